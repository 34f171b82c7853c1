// Encrypted files end to end: opening files encrypted by qpdf through the
// parser, and saving with new or kept encryption through the writer.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>

#include "pdfcore/CosNames.h"
#include "pdfcore/security/StandardSecurity.h"

namespace {

const std::string kDir = std::string(TM_TEST_DATA_DIR) + "/security/";
const std::string kContent = "BT /F1 24 Tf 20 40 Td (Secret text) Tj ET\n";
const ASAtom K_Title = ASAtomFromString("Title");

ASErrorCode CodeOf(const std::function<void()>& f) {
    try {
        f();
    } catch (const CVellumError& e) {
        return e.GetErrorCode();
    }
    return 0;
}

CosDoc Open(const std::string& path, const std::string& password) {
    CosOpenParams params;
    params.path = path;
    params.password = password;
    return CosDocOpen(params);
}

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
    void SetUp() override {
        CosCoreInit();  // registers the handler, as the program does at start-up
        out = (std::filesystem::temp_directory_path() /
               ("tm-security-" + std::to_string(::getpid()) + ".pdf"))
                  .string();
    }
    void TearDown() override { std::remove(out.c_str()); }
    void Save(CosDoc doc) {
        CosSaveParams params;
        params.path = out;
        CosDocSave(doc, params);
    }
    std::string out;
};

}  // namespace

TEST_F(SecurityFilesTest, QpdfFilesOpenWithTheirPasswords) {
    for (const char* name : {"rc4-40.pdf", "rc4-128.pdf"}) {
        SCOPED_TRACE(name);
        for (const char* password : {"user", "owner"}) {
            CosDoc doc = Open(kDir + name, password);
            const CosDocFileInfo& info = CosDocGetFileInfo(doc);
            EXPECT_TRUE(info.encrypted);
            EXPECT_EQ(info.ownerAuthenticated, std::string(password) == "owner");
            EXPECT_EQ(Title(doc), "Known title string");
            EXPECT_EQ(Content(doc), kContent);
            EXPECT_GT(CosDocLoadAllObjects(doc), 0);
            CosDocClose(doc);
        }
        EXPECT_EQ(CodeOf([&] { Open(kDir + name, "wrong"); }), ErrBuildCode(4, 3, kErrNeedPassword));
        EXPECT_EQ(CodeOf([&] { Open(kDir + name, ""); }), ErrBuildCode(4, 3, kErrNeedPassword));
    }
    EXPECT_EQ(CodeOf([&] { Open(kDir + "aes-128.pdf", "user"); }),
              ErrBuildCode(4, 3, kErrSecRevisionNotImpl));
}

TEST_F(SecurityFilesTest, PermissionsOfOpenedFiles) {
    // qpdf --modify=none, opened without a password, then by the owner.
    CosDoc doc = Open(kDir + "owner-only-128.pdf", "");
    EXPECT_EQ(Title(doc), "Known title string");
    EXPECT_FALSE(StdSecDocPermits(doc, 0x408));
    CosDocClose(doc);
    doc = Open(kDir + "owner-only-128.pdf", "owner");
    EXPECT_TRUE(StdSecDocPermits(doc, 0x2));
    CosDocClose(doc);
    doc = Open(kDir + "rc4-40-restricted.pdf", "user");  // --modify=n
    EXPECT_FALSE(StdSecDocPermits(doc, 0x408));
    CosDocClose(doc);
}

TEST_F(SecurityFilesTest, EncryptedSaveOpensAgain) {
    for (int bits : {40, 56, 128}) {
        SCOPED_TRACE(bits);
        CosDoc doc = Open(kDir + "plain.pdf", "");
        SetupStandardEncryption(doc, "boss", "reader",
                                kSecUserPasswordGiven | kSecOwnerPasswordGiven | kSecNoCopy, bits);
        Save(doc);
        CosDocClose(doc);

        CosDoc user = Open(out, "reader");
        EXPECT_FALSE(CosDocGetFileInfo(user).ownerAuthenticated);
        EXPECT_EQ(CosDocGetFileInfo(user).permissions,
                  StdSecPermissionsFromWord(kSecNoCopy, bits == 40 ? 2 : 3));
        EXPECT_EQ(Title(user), "Known title string");
        EXPECT_EQ(Content(user), kContent);
        CosDocClose(user);
        CosDoc owner = Open(out, "boss");
        EXPECT_TRUE(CosDocGetFileInfo(owner).ownerAuthenticated);
        EXPECT_EQ(Content(owner), kContent);
        CosDocClose(owner);
        EXPECT_EQ(CodeOf([&] { Open(out, ""); }), ErrBuildCode(4, 3, kErrNeedPassword));
    }
}

TEST_F(SecurityFilesTest, KeptEncryptionSurvivesASave) {
    CosDoc doc = Open(kDir + "rc4-128.pdf", "user");
    ASSERT_TRUE(KeepInputEncryption(doc));
    Save(doc);
    CosDocClose(doc);
    EXPECT_EQ(CodeOf([&] { Open(out, ""); }), ErrBuildCode(4, 3, kErrNeedPassword));
    CosDoc again = Open(out, "user");
    EXPECT_EQ(Title(again), "Known title string");
    EXPECT_EQ(Content(again), kContent);
    CosDocClose(again);
    again = Open(out, "owner");
    EXPECT_TRUE(CosDocGetFileInfo(again).ownerAuthenticated);
    EXPECT_FALSE(KeepInputEncryption(again));
    CosDocClose(again);
}
