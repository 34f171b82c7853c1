// Known-answer tests for the primitives and key arithmetic of the standard
// security handler.  The encryption values come from small files encrypted
// by qpdf (tests/data/security), so these tests check our arithmetic
// against an independent implementation without needing a parser.
#include <gtest/gtest.h>

#include <string>

#include "pdfcore/security/MD5.h"
#include "pdfcore/security/RC4.h"
#include "pdfcore/security/StdSecAlgorithms.h"
#include "tests/pdfcore/test_support.h"

namespace {

StdSecBytes Hex(std::string_view hex) {
    std::string bytes = Unhex(hex);
    return StdSecBytes(bytes.begin(), bytes.end());
}

StdSecBlock Block(std::string_view hex) {
    StdSecBlock out{};
    std::string bytes = Unhex(hex);
    std::copy(bytes.begin(), bytes.end(), out.begin());
    return out;
}

StdSecParams Rc4(int bits) {
    StdSecParams p;
    p.revision = bits == 40 ? 2 : 3;
    p.version = bits == 40 ? 1 : 2;
    p.keyLengthBits = bits;
    p.permissions = -4;
    p.owner = Block(bits == 40 ? qpdf::kO40 : qpdf::kO128);
    p.user = Block(bits == 40 ? qpdf::kU40 : qpdf::kU128);
    p.id0 = Hex(qpdf::kId);
    return p;
}

// qpdf --static-id --encrypt "" owner 128 --use-aes=n --modify=none --print=low
StdSecParams OwnerOnly128() {
    StdSecParams p = Rc4(128);
    p.permissions = -3372;
    p.owner = Block("566fa873ee33c797cd3b904fdadf814afa34df9a38f6ed41b984e2c6da2aa6f5");
    p.user = Block("0743d09457d362ad3fac2a0d569341d80122456a91bae5134273a6db134c87c4");
    return p;
}

std::string DecryptString(const StdSecBytes& fileKey, ASUns32 objNum, std::string_view hex) {
    StdSecBytes data = Hex(hex);
    RC4::Apply(StdSecObjectKey(fileKey, objNum, 0), data);
    return std::string(data.begin(), data.end());
}

}  // namespace

TEST(SecurityMD5, Rfc1321TestSuite) {
    EXPECT_EQ(ToHex(MD5::Of("")), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(ToHex(MD5::Of("a")), "0cc175b9c0f1b6a831c399e269772661");
    EXPECT_EQ(ToHex(MD5::Of("abc")), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(ToHex(MD5::Of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789")),
              "d174ab98d277d9f5a5611c2c9f419d9f");
    std::string digits;
    for (int i = 0; i < 8; ++i) digits += "1234567890";
    EXPECT_EQ(ToHex(MD5::Of(digits)), "57edf4a22be3c955ac49da2e2107b67a");
}

TEST(SecurityMD5, PiecewiseUpdatesMatchOneShot) {
    // Lengths around the 56- and 64-byte padding boundaries, fed in uneven
    // pieces, must hash as if given at once.
    for (size_t length : {55u, 56u, 63u, 64u, 65u, 119u, 120u, 200u}) {
        std::string text;
        for (size_t i = 0; i < length; ++i) text += char('a' + i % 26);
        MD5 md5;
        for (size_t pos = 0; pos < length; pos += 7) md5.Update(std::string_view(text).substr(pos, 7));
        EXPECT_EQ(ToHex(md5.Final()), ToHex(MD5::Of(text))) << "length " << length;
    }
    MD5 reused;
    reused.Update("junk");
    reused.Final();
    reused.Reset();
    reused.Update("abc");
    EXPECT_EQ(ToHex(reused.Final()), "900150983cd24fb0d6963f7d28e17f72");
}

TEST(SecurityRC4, KnownVectors) {
    auto encrypt = [](std::string_view key, std::string_view text) {
        StdSecBytes data(text.begin(), text.end());
        RC4::Apply(StdSecBytes(key.begin(), key.end()), data);
        return ToHex(data);
    };
    EXPECT_EQ(encrypt("Key", "Plaintext"), "bbf316e8d940af0ad3");
    // RFC 6229, 40-bit key 0102030405: the first 16 bytes of key stream.
    StdSecBytes zeros(16, 0);
    RC4::Apply(Hex("0102030405"), zeros);
    EXPECT_EQ(ToHex(zeros), "b2396305f03dc027ccc3524a0a1118a8");
}

TEST(SecurityRC4, StreamingContinuesTheKeyStreamAndEmptyKeyIsRefused) {
    StdSecBytes whole(100, 0x5A), pieces(100, 0x5A);
    RC4::Apply(Hex("0102030405"), whole);
    RC4 cipher(Hex("0102030405"));
    cipher.Process({pieces.data(), 33});
    cipher.Process({pieces.data() + 33, 67});
    EXPECT_EQ(whole, pieces);
    EXPECT_THROW(RC4(StdSecBytes{}), CVellumError);
}

TEST(SecurityKeys, PaddingCutsLongPasswords) {
    StdSecBlock cut = StdSecPadPassword(std::string(40, 'x'));
    EXPECT_TRUE(std::all_of(cut.begin(), cut.end(), [](uint8_t b) { return b == 'x'; }));
}

TEST(SecurityKeys, Revisions2And3MatchQpdf) {
    struct Case {
        int bits;
        size_t keyBytes;
        const char *key, *title;
    } cases[] = {{40, 5, "ee4fd3a223", qpdf::kTitle40},
                 {128, 16, "55831911f0f2b9a08ac3cbcc766166db", "b0cfe9786cb10cfd6dffe8f360293b8421ec"}};
    for (const Case& c : cases) {
        StdSecParams p = Rc4(c.bits);
        EXPECT_EQ(p.KeyBytes(), c.keyBytes);
        EXPECT_EQ(StdSecComputeO("owner", "user", p.revision, c.keyBytes), p.owner);
        StdSecBytes key = StdSecFileKey(StdSecPadPassword("user"), p);
        EXPECT_EQ(ToHex(key), c.key);
        EXPECT_EQ(DecryptString(key, 2, c.title), "Known title string");
        StdSecBlock u = StdSecComputeU(key, p.revision, p.id0);
        if (p.revision == 2) {
            EXPECT_EQ(u, p.user);  // all 32 bytes at revision 2
            continue;
        }
        // Revision 3 checks 16 bytes and writes a filler after them.
        EXPECT_TRUE(std::equal(u.begin(), u.begin() + 16, p.user.begin()));
        for (size_t i = 16; i < 32; ++i) EXPECT_EQ(u[i], 0x10 + (i - 16)) << "byte " << i;
    }
}

TEST(SecurityKeys, PasswordChecks) {
    StdSecBytes key;
    for (const StdSecParams& p : {Rc4(40), Rc4(128)}) {
        EXPECT_TRUE(StdSecCheckUserPassword("user", p, &key));
        EXPECT_FALSE(StdSecCheckUserPassword("owner", p, nullptr));
        EXPECT_FALSE(StdSecCheckUserPassword("", p, nullptr));
        EXPECT_FALSE(StdSecCheckOwnerPassword("user", p, nullptr));
        StdSecBytes ownerKey;
        EXPECT_TRUE(StdSecCheckOwnerPassword("owner", p, &ownerKey));
        EXPECT_EQ(ownerKey, key);  // the owner reaches the same file key
        EXPECT_EQ(StdSecRecoverUserPassword("owner", p), StdSecPadPassword("user"));
    }
    StdSecParams ownerOnly = OwnerOnly128();
    EXPECT_TRUE(StdSecCheckUserPassword("", ownerOnly, &key));
    EXPECT_EQ(ToHex(key), "35768308e9fcffa2868a38ba37370759");
    EXPECT_EQ(DecryptString(key, 2, "c7fdc9face13c759ca0ddbac3760864d804a"), "Known title string");
    EXPECT_TRUE(StdSecCheckOwnerPassword("owner", ownerOnly, nullptr));
    EXPECT_FALSE(StdSecCheckOwnerPassword("", ownerOnly, nullptr));
}

TEST(SecurityKeys, OwnerCheckAcceptsShortHashRoundsBelow128Bits) {
    // An O entry whose 50 rounds hash only the first 7 key bytes, as some
    // writers make it for a 56-bit key.
    StdSecParams p;
    p.revision = 3;
    p.keyLengthBits = 56;
    p.id0 = Hex("0102");
    MD5::Digest d = MD5::Of(StdSecPadPassword("boss"));
    for (int i = 0; i < 50; ++i) d = MD5::Of({d.data(), 7});
    p.owner = StdSecPadPassword("reader");
    for (int pass = 0; pass < 20; ++pass) {
        uint8_t key[7];
        for (int k = 0; k < 7; ++k) key[k] = uint8_t(d[size_t(k)] ^ pass);
        RC4::Apply({key, 7}, p.owner);
    }
    EXPECT_NE(p.owner, StdSecComputeO("boss", "reader", 3, 7));  // we write the full-digest form
    StdSecBytes key = StdSecFileKey(StdSecPadPassword("reader"), p);
    p.user = StdSecComputeU(key, 3, p.id0);
    StdSecBytes got;
    EXPECT_TRUE(StdSecCheckOwnerPassword("boss", p, &got));
    EXPECT_EQ(got, key);
    EXPECT_FALSE(StdSecCheckOwnerPassword("reader", p, nullptr));
}

TEST(SecurityKeys, ObjectKeyDependsOnNumberAndGeneration) {
    StdSecBytes key = Hex("ee4fd3a223");
    EXPECT_NE(StdSecObjectKey(key, 1, 0), StdSecObjectKey(key, 2, 0));
    EXPECT_NE(StdSecObjectKey(key, 1, 0), StdSecObjectKey(key, 1, 1));
    // Only the low 3 bytes of the object number take part.
    EXPECT_EQ(StdSecObjectKey(key, 0x01000005, 0), StdSecObjectKey(key, 5, 0));
    // The object key is the file key plus five bytes, at most 16.
    for (size_t bytes : {5u, 11u, 12u, 16u})
        EXPECT_EQ(StdSecObjectKey(StdSecBytes(bytes, 1), 7, 0).size(), std::min<size_t>(bytes + 5, 16)) << bytes;
}

TEST(SecurityPermissions, WordToP) {
    // Nothing restricted: bits 3-6 plus the reserved ones, and at revision 2
    // also bits 9-12, which it cannot refuse.
    EXPECT_EQ(StdSecPermissionsFromWord(0, 2), -4);
    EXPECT_EQ(ASUns32(StdSecPermissionsFromWord(kSecUserPasswordGiven | kSecOwnerPasswordGiven, 3)),
              0xFFFFF0FCu);
    EXPECT_EQ(ASUns32(StdSecPermissionsFromWord(kSecNoPrinting | kSecNoEditing, 2)), 0xFFFFFFF0u);
    EXPECT_EQ(ASUns32(StdSecPermissionsFromWord(kSecNoCopy | kSecNoNotes, 3)), 0xFFFFF0CCu);
    const ASUns16 allowAll = kSecAllowFill | kSecAllowAccess | kSecAllowAssembly | kSecAllowHQPrint;
    EXPECT_EQ(StdSecPermissionsFromWord(allowAll, 3), -4);
    EXPECT_EQ(StdSecPermissionsFromWord(allowAll, 2), -4);
    EXPECT_EQ(ASUns32(StdSecPermissionsFromWord(kSecAllowAssembly | kSecNoEditing, 3)), 0xFFFFF4F4u);
}

TEST(SecurityPermissions, Query) {
    const ASInt32 editing = 0x408, ownerAccess = 0x2;
    EXPECT_TRUE(StdSecPermits(-4, false, editing));
    EXPECT_FALSE(StdSecPermits(-4, false, ownerAccess));
    EXPECT_TRUE(StdSecPermits(-4, true, ownerAccess));
    EXPECT_TRUE(StdSecPermits(0, true, editing));
    // -16 clears printing and modifying (qpdf --modify=n --print=n at 40 bits).
    EXPECT_FALSE(StdSecPermits(-16, false, editing, 2));
    // Modify granted but assembly clear: fine at revision 2, where assembly
    // has no bit of its own, refused at revision 3.
    const ASInt32 modifyOnly = static_cast<ASInt32>(0xFFFFF0FCu);
    EXPECT_TRUE(StdSecPermits(modifyOnly, false, editing, 2));
    EXPECT_FALSE(StdSecPermits(modifyOnly, false, editing, 3));
    EXPECT_FALSE(StdSecPermits(-3372, false, editing, 3));
}
