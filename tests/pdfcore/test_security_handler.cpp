// The standard security handler: reading Encrypt dictionaries,
// authenticating and setting up encryption on documents made in memory
// (with the Encrypt values of small files encrypted by qpdf), then whole
// files encrypted by qpdf opened through the parser, and saves with new or
// kept encryption through the writer.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "pdfcore/CosInternal.h"
#include "pdfcore/CosNames.h"
#include "pdfcore/security/StandardSecurity.h"
#include "tests/pdfcore/test_support.h"

namespace {

const ASAtom K_R = ASAtomFromString("R");
const ASAtom K_V = ASAtomFromString("V");
const ASAtom K_O = ASAtomFromString("O");
const ASAtom K_U = ASAtomFromString("U");

const ASErrorCode kNeedPassword = ErrBuildCode(4, 3, kErrNeedPassword);
const ASErrorCode kRevisionNotImpl = ErrBuildCode(4, 3, kErrSecRevisionNotImpl);

struct EncryptValues {
    int r, v, length;  // length 0: no Length entry
    long long p;
    const char* o;
    const char* u;
};

const EncryptValues kRc4_40 = {2, 1, 40, -4, qpdf::kO40, qpdf::kU40};
const EncryptValues kRc4_128 = {3, 2, 128, -4, qpdf::kO128, qpdf::kU128};
const std::string kQpdfId = Unhex(qpdf::kId);

class SecurityHandlerTest : public CosDocTest {
protected:
    CosObj Dict(const EncryptValues& e) {
        const Maker m{doc};
        CosObj d = m.Dict({{"Filter", m.Name("Standard")}, {"R", m.Int(e.r)}, {"V", m.Int(e.v)}});
        if (e.length) CosDictPut(d, cosnames::Length, m.Int(e.length));
        return Maker::Put(d, {{"P", CosNewNumber(doc, false, double(e.p))},
                              {"O", m.Str(Unhex(e.o))},
                              {"U", m.Str(Unhex(e.u))}});
    }
    CosObj Ids(const std::string& first) {
        const Maker m{doc};
        return m.Array({m.Str(first), m.Str(first)});
    }
    // Opens with a dictionary and an ID array made for the call (freed after,
    // whatever happens: direct objects without a container are the caller's).
    CosSecurityOpenResult OpenDict(CosObj dict, const std::string& id, const std::string& password) {
        struct Owned {
            CosObj obj;
            ~Owned() { CosObjDestroy(obj); }
        } ownDict{dict}, ids{Ids(id)};
        return StdSecOpen(dict, ids.obj, password);
    }
    CosSecurityOpenResult Open(const EncryptValues& e, const std::string& id,
                               const std::string& password) {
        return OpenDict(Dict(e), id, password);
    }
    static std::string Decrypt(CosCryptFilter& f, ASUns32 num, const std::string& bytes) {
        std::vector<uint8_t> data(bytes.begin(), bytes.end());
        f.Decrypt(num, 0, data);
        return std::string(data.begin(), data.end());
    }
};

}  // namespace

TEST_F(SecurityHandlerTest, ReadingTheEncryptDictionary) {
    // R 4 (AES) and R 5 are refused; R must be a number.
    for (int r : {1, 4, 5}) {
        EncryptValues e = kRc4_128;
        e.r = r;
        EXPECT_EQ(ErrorCodeOf([&] { Open(e, kQpdfId, "user"); }), kRevisionNotImpl) << "R " << r;
    }
    CosObj named = Dict(kRc4_40);
    CosDictPutName(named, K_R, false, cosnames::Standard);
    EXPECT_EQ(ErrorOf([&] { OpenDict(named, kQpdfId, "user"); }), kErrExpectedNumber);
    CosObj noP = Dict(kRc4_40);
    CosDictRemove(noP, cosnames::P);
    EXPECT_EQ(ErrorOf([&] { OpenDict(noP, kQpdfId, "user"); }), kErrExpectedNumber);
    EXPECT_EQ(ErrorOf([&] { OpenDict(CosNewNull(), "", ""); }), kErrExpectedDict);

    // Without Length the key is 40 bits.
    EncryptValues noLength = kRc4_40;
    noLength.length = 0;
    StdSecParams params;
    CosObj dict = Dict(noLength);
    EXPECT_TRUE(StdSecReadEncryptDict(dict, &params));
    CosObjDestroy(dict);
    EXPECT_EQ(params.keyLengthBits, 40);
    EXPECT_TRUE(Open(noLength, kQpdfId, "user").crypt);

    // A key length outside 40..128 stops the reading: no key can be made.
    EncryptValues tooLong = kRc4_128;
    tooLong.length = 256;
    dict = Dict(tooLong);
    EXPECT_FALSE(StdSecReadEncryptDict(dict, &params));
    CosObjDestroy(dict);
    EXPECT_EQ(ErrorCodeOf([&] { Open(tooLong, kQpdfId, "user"); }),
              ErrBuildCode(4, 3, kErrCannotDecrypt));

    // P written unsigned still means -4.
    EncryptValues unsignedP = kRc4_40;
    unsignedP.p = 4294967292LL;
    CosSecurityOpenResult r = Open(unsignedP, kQpdfId, "user");
    EXPECT_EQ(r.permissions, -4);
}

TEST_F(SecurityHandlerTest, SetupWritesEntriesThatOpenAgain) {
    struct Case {
        int bits, r, v;
        size_t keyBytes;
    };
    for (Case c : {Case{40, 2, 1, 5}, Case{56, 3, 2, 7}, Case{96, 3, 2, 12}, Case{128, 3, 2, 16}}) {
        CosDoc d = CosDocCreate();
        SetupStandardEncryption(d, "boss", "reader",
                                kSecUserPasswordGiven | kSecOwnerPasswordGiven | kSecNoPrinting,
                                c.bits);
        CosCryptFilter* write = CosDocGetWriteCrypt(d);
        CosObj dict = CosDocGetWriteEncryptDict(d);
        ASSERT_TRUE(write);
        ASSERT_EQ(CosObjGetType(dict), kCosDict);
        EXPECT_EQ(CosDictGetName(dict, cosnames::Filter), cosnames::Standard);
        EXPECT_EQ(CosDictGetInt(dict, K_R, 0), c.r);
        EXPECT_EQ(CosDictGetInt(dict, K_V, 0), c.v);
        EXPECT_EQ(CosDictGetInt(dict, cosnames::Length, 0), c.bits);
        EXPECT_EQ(CosDictGetInt(dict, cosnames::P, 0),
                  StdSecPermissionsFromWord(kSecNoPrinting, c.r));
        std::string u = CosStringBytes(CosDictGet(dict, K_U));
        ASSERT_EQ(u.size(), 32u);
        if (c.r == 3) {
            for (size_t i = 16; i < 32; ++i) EXPECT_EQ(uint8_t(u[i]), i) << "U byte " << i;
        }

        // The trailer got an identifier, and the entries open with it.
        CosObj ids = CosDictGet(CosDocGetTrailer(d), cosnames::ID);
        ASSERT_EQ(CosArrayLength(ids), 2);
        EXPECT_EQ(CosStringBytes(CosArrayGet(ids, 0)).size(), 16u);
        std::vector<uint8_t> data = {'h', 'e', 'l', 'l', 'o'};
        write->Encrypt(9, 0, data);
        EXPECT_NE(std::string(data.begin(), data.end()), "hello");

        CosSecurityOpenResult user = StdSecOpen(dict, ids, "reader");
        EXPECT_FALSE(user.ownerAuthenticated);
        EXPECT_EQ(Decrypt(*user.crypt, 9, std::string(data.begin(), data.end())), "hello");
        EXPECT_TRUE(StdSecOpen(dict, ids, "boss").ownerAuthenticated);
        EXPECT_EQ(ErrorCodeOf([&] { StdSecOpen(dict, ids, ""); }), kNeedPassword);
        CosDocClose(d);
    }
}

TEST_F(SecurityHandlerTest, SetupRulesForPasswordsAndIdentifier) {
    // No password-given bit: nothing would protect the document.
    EXPECT_EQ(ErrorCodeOf([&] { SetupStandardEncryption(doc, "a", "b", kSecNoCopy, 40); }), kNeedPassword);
    EXPECT_EQ(ErrorOf([&] { SetupStandardEncryption(doc, "a", "b", 3, 64 + 4); }),
              kErrBadParm);
    EXPECT_EQ(ErrorOf([&] { SetupStandardEncryption(doc, "a", "b", 3, 256); }),
              kErrBadParm);

    // An empty owner password becomes the user password.
    CosDictPut(CosDocGetTrailer(doc), cosnames::ID, Ids("kept first id"));
    SetupStandardEncryption(doc, "", "only", kSecUserPasswordGiven, 128);
    CosObj ids = CosDictGet(CosDocGetTrailer(doc), cosnames::ID);
    EXPECT_EQ(CosStringBytes(CosArrayGet(ids, 0)), "kept first id");
    EXPECT_TRUE(StdSecOpen(CosDocGetWriteEncryptDict(doc), ids, "only").ownerAuthenticated);

    // Only an owner password: the document opens without one.
    SetupStandardEncryption(doc, "boss", "", kSecOwnerPasswordGiven | kSecNoEditing, 40);
    CosSecurityOpenResult r = StdSecOpen(CosDocGetWriteEncryptDict(doc), ids, "");
    EXPECT_FALSE(r.ownerAuthenticated);
    EXPECT_FALSE(StdSecPermits(r.permissions, false, 0x408, 2));
}

TEST_F(SecurityHandlerTest, FreshIdentifierIsReproducibleWithSourceDateEpoch) {
    auto idOf = [](CosDoc d) {
        SetupStandardEncryption(d, "o", "u", 3, 40);
        return CosStringBytes(CosArrayGet(CosDictGet(CosDocGetTrailer(d), cosnames::ID), 0));
    };
    setenv("SOURCE_DATE_EPOCH", "1700000000", 1);
    CosDoc other = CosDocCreate();
    std::string a = idOf(doc), b = idOf(other);
    setenv("SOURCE_DATE_EPOCH", "1700000001", 1);
    CosDoc third = CosDocCreate();
    std::string c = idOf(third);
    unsetenv("SOURCE_DATE_EPOCH");
    EXPECT_EQ(a.size(), 16u);
    EXPECT_EQ(a, b);
    EXPECT_NE(a, c);
    CosDocClose(other);
    CosDocClose(third);
}

TEST_F(SecurityHandlerTest, InputEncryptionIsKeptUnlessTheOwnerOpenedIt) {
    // A document as the parser leaves it: the read filter installed.
    auto openAs = [&](const std::string& password) {
        CosObj ids = Ids(kQpdfId);
        CosObj dict = Dict(kRc4_40);
        CosSecurityOpenResult r = StdSecOpen(dict, ids, password);
        CosObjDestroy(dict);
        CosDocFileInfo& info = CosDocMutableFileInfo(doc);
        info.encrypted = true;
        info.ownerAuthenticated = r.ownerAuthenticated;
        info.permissions = r.permissions;
        CosDocSetReadCrypt(doc, std::move(r.crypt));
        CosDictPut(CosDocGetTrailer(doc), cosnames::ID, ids);
    };
    EXPECT_FALSE(KeepInputEncryption(doc));  // not encrypted
    EXPECT_FALSE(StdSecGetInputEncryption(doc, nullptr));
    EXPECT_TRUE(StdSecDocPermits(doc, 0x2));

    openAs("user");
    StdSecDocInfo info;
    ASSERT_TRUE(StdSecGetInputEncryption(doc, &info));
    EXPECT_EQ(info.params.revision, 2);
    EXPECT_FALSE(info.ownerAuthenticated);
    EXPECT_TRUE(StdSecDocPermits(doc, 0x408));
    EXPECT_FALSE(StdSecDocPermits(doc, 0x2));

    // A new identifier must not break the kept key.
    CosDictPut(CosDocGetTrailer(doc), cosnames::ID, Ids("changed"));
    ASSERT_TRUE(KeepInputEncryption(doc));
    CosObj dict = CosDocGetWriteEncryptDict(doc);
    EXPECT_EQ(CosStringBytes(CosDictGet(dict, K_O)), Unhex(kRc4_40.o));
    EXPECT_EQ(CosStringBytes(CosDictGet(dict, K_U)), Unhex(kRc4_40.u));
    EXPECT_EQ(CosDictGetInt(dict, cosnames::P, 0), -4);
    CosObj ids = CosDictGet(CosDocGetTrailer(doc), cosnames::ID);
    EXPECT_EQ(CosStringBytes(CosArrayGet(ids, 0)), kQpdfId);
    std::string title = Unhex(qpdf::kTitle40);
    std::vector<uint8_t> plain = {'K', 'n', 'o', 'w', 'n'};
    CosDocGetWriteCrypt(doc)->Encrypt(2, 0, plain);
    EXPECT_EQ(std::string(plain.begin(), plain.end()), title.substr(0, 5));

    CosDocSetWriteCrypt(doc, nullptr, CosNewNull());
    openAs("owner");
    EXPECT_FALSE(KeepInputEncryption(doc));
    EXPECT_EQ(CosDocGetWriteCrypt(doc), nullptr);
    EXPECT_TRUE(StdSecDocPermits(doc, 0x2));
}

namespace {

const std::string kDir = std::string(TM_TEST_DATA_DIR) + "/security/";
const std::string kContent = "BT /F1 24 Tf 20 40 Td (Secret text) Tj ET\n";
const ASAtom K_Title = ASAtomFromString("Title");

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
