// Encrypted files end to end: opening files encrypted by qpdf through the
// parser, and saving with new or kept encryption through the writer.
#include <gtest/gtest.h>

#include <string>

#include "pdfcore/CosNames.h"
#include "pdfcore/security/StandardSecurity.h"
#include "tests/pdfcore/test_support.h"

namespace {

const std::string kDir = std::string(TM_TEST_DATA_DIR) + "/security/";
const std::string kContent = "BT /F1 24 Tf 20 40 Td (Secret text) Tj ET\n";
const ASAtom K_Title = ASAtomFromString("Title");

const ASErrorCode kNeedPassword = ErrBuildCode(4, 3, kErrNeedPassword);

std::string Title(CosDoc doc) { return CosStringBytes(CosDictGet(CosDocGetInfo(doc), K_Title)); }

// The first page's content stream, which the fixtures keep unfiltered.
std::string Content(CosDoc doc) {
    CosObj pages = CosDictGet(CosDocGetRoot(doc), cosnames::Pages);
    CosObj page = CosArrayGet(CosDictGet(pages, cosnames::Kids), 0);
    std::span<const uint8_t> data = CosStreamEncodedData(CosDictGet(page, cosnames::Contents));
    return std::string(data.begin(), data.end());
}

class SecurityFilesTest : public ::testing::Test {
protected:
    void SetUp() override { CosCoreInit(); }  // registers the handler, as the program does at start-up
    void Save(CosDoc doc) {
        CosSaveParams params;
        params.path = out;
        CosDocSave(doc, params);
    }
    ScratchDir scratch;
    const std::string out = scratch / "out.pdf";
};

}  // namespace

TEST_F(SecurityFilesTest, QpdfFilesOpenWithTheirPasswords) {
    for (const char* name : {"rc4-40.pdf", "rc4-128.pdf"}) {
        SCOPED_TRACE(name);
        for (const char* password : {"user", "owner"}) {
            CosDoc doc = OpenPath(kDir + name, password);
            const CosDocFileInfo& info = CosDocGetFileInfo(doc);
            EXPECT_TRUE(info.encrypted);
            EXPECT_EQ(info.ownerAuthenticated, std::string(password) == "owner");
            EXPECT_EQ(Title(doc), "Known title string");
            EXPECT_EQ(Content(doc), kContent);
            EXPECT_GT(CosDocLoadAllObjects(doc), 0);
            CosDocClose(doc);
        }
        EXPECT_EQ(ErrorCodeOf([&] { OpenPath(kDir + name, "wrong"); }), kNeedPassword);
        EXPECT_EQ(ErrorCodeOf([&] { OpenPath(kDir + name, ""); }), kNeedPassword);
    }
    EXPECT_EQ(ErrorCodeOf([&] { OpenPath(kDir + "aes-128.pdf", "user"); }),
              ErrBuildCode(4, 3, kErrSecRevisionNotImpl));
}

TEST_F(SecurityFilesTest, PermissionsOfOpenedFiles) {
    // qpdf --modify=none, opened without a password, then by the owner.
    CosDoc doc = OpenPath(kDir + "owner-only-128.pdf", "");
    EXPECT_EQ(Title(doc), "Known title string");
    EXPECT_FALSE(StdSecDocPermits(doc, 0x408));
    CosDocClose(doc);
    doc = OpenPath(kDir + "owner-only-128.pdf", "owner");
    EXPECT_TRUE(StdSecDocPermits(doc, 0x2));
    CosDocClose(doc);
    doc = OpenPath(kDir + "rc4-40-restricted.pdf", "user");  // --modify=n
    EXPECT_FALSE(StdSecDocPermits(doc, 0x408));
    CosDocClose(doc);
}

TEST_F(SecurityFilesTest, EncryptedSaveOpensAgain) {
    for (int bits : {40, 56, 128}) {
        SCOPED_TRACE(bits);
        CosDoc doc = OpenPath(kDir + "plain.pdf", "");
        SetupStandardEncryption(doc, "boss", "reader",
                                kSecUserPasswordGiven | kSecOwnerPasswordGiven | kSecNoCopy, bits);
        Save(doc);
        CosDocClose(doc);

        CosDoc user = OpenPath(out, "reader");
        EXPECT_FALSE(CosDocGetFileInfo(user).ownerAuthenticated);
        EXPECT_EQ(CosDocGetFileInfo(user).permissions,
                  StdSecPermissionsFromWord(kSecNoCopy, bits == 40 ? 2 : 3));
        EXPECT_EQ(Title(user), "Known title string");
        EXPECT_EQ(Content(user), kContent);
        CosDocClose(user);
        CosDoc owner = OpenPath(out, "boss");
        EXPECT_TRUE(CosDocGetFileInfo(owner).ownerAuthenticated);
        EXPECT_EQ(Content(owner), kContent);
        CosDocClose(owner);
        EXPECT_EQ(ErrorCodeOf([&] { OpenPath(out, ""); }), kNeedPassword);
    }
}

TEST_F(SecurityFilesTest, KeptEncryptionSurvivesASave) {
    CosDoc doc = OpenPath(kDir + "rc4-128.pdf", "user");
    ASSERT_TRUE(KeepInputEncryption(doc));
    Save(doc);
    CosDocClose(doc);
    EXPECT_EQ(ErrorCodeOf([&] { OpenPath(out, ""); }), kNeedPassword);
    CosDoc again = OpenPath(out, "user");
    EXPECT_EQ(Title(again), "Known title string");
    EXPECT_EQ(Content(again), kContent);
    CosDocClose(again);
    again = OpenPath(out, "owner");
    EXPECT_TRUE(CosDocGetFileInfo(again).ownerAuthenticated);
    EXPECT_FALSE(KeepInputEncryption(again));
    CosDocClose(again);
}
