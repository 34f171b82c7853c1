// Inputs that once reached undefined behaviour (caught by the sanitizer
// build): a null pointer handed to memcpy for an empty input, and 32-bit
// sums over numbers read from the file.  Each case runs the real path.
#include <gtest/gtest.h>

#include "pdfcore/CosNames.h"
#include "pdfcore/CosWriter.h"
#include "pdfcore/security/MD5.h"
#include "pdfcore/security/RC4.h"
#include "pdfcore/security/StdSecAlgorithms.h"
#include "tests/pdfcore/test_support.h"

namespace {

using namespace fixture;

std::string Hex(const uint8_t* p, size_t n) { return "<" + ToHex(std::span(p, n)) + ">"; }

TEST(UndefinedBehaviour, EmptyInputsReachNoMemcpy) {
    // An empty vector's data() is null; the digest must treat it as nothing,
    // also when bytes are already waiting in the block buffer.
    MD5 md5;
    md5.Update(std::string_view("abc"));
    md5.Update(std::span<const uint8_t>());
    md5.Update(std::vector<uint8_t>());
    EXPECT_EQ(md5.Final(), MD5::Of(std::string_view("abc")));

    EXPECT_EQ(StdSecPadPassword(std::string_view()), kStdSecPadding);

    ScratchDir scratch;
    const std::string path = scratch / "out.bin";
    {
        CosOutputFile out(path);
        out.Write(nullptr, 0);
        out.Write(std::string_view());
        out.Write("x", 1);
        out.Commit();
    }
    EXPECT_EQ(ReadFile(path), "x");
}

// An encrypted file (revision 2, empty user password) whose trailer ID has
// an empty first string: the key derivation hashes an empty identifier.
TEST(UndefinedBehaviour, EncryptedFileWithEmptyIdentifierOpens) {
    CosCoreInit();
    StdSecParams p;
    p.revision = 2;
    p.version = 1;
    p.keyLengthBits = 40;
    p.permissions = -4;
    p.owner = StdSecComputeO("owner", "", 2, 5);
    StdSecBytes key = StdSecFileKey(StdSecPadPassword(""), p);
    p.user = StdSecComputeU(key, 2, p.id0);

    // The information dictionary's title, encrypted under object 4's key.
    std::string title = "Hello";
    StdSecBytes objKey = StdSecObjectKey(key, 4, 0);
    std::vector<uint8_t> enc(title.begin(), title.end());
    RC4::Apply(objKey, enc);

    std::vector<std::string> objs = PageTree(1);  // objects 1-3
    objs.push_back("<< /Title " + Hex(enc.data(), enc.size()) + " >>");
    objs.push_back("<< /Filter /Standard /V 1 /R 2 /P -4 /O " + Hex(p.owner.data(), 32) + " /U " +
                   Hex(p.user.data(), 32) + " >>");
    Built b = MakePdf(objs, "/Root 1 0 R /Info 4 0 R /Encrypt 5 0 R /ID [<> <>]");

    CosDoc doc = CosDocOpenFromMemory(Span(b.bytes), "");
    EXPECT_TRUE(CosDocGetFileInfo(doc).encrypted);
    EXPECT_EQ(CosStringBytes(CosDictGet(CosDocGetInfo(doc), ASAtomFromString("Title"))), "Hello");
    CosDocClose(doc);
}

// Page counts come from the file; adding pages to a tree whose Count is
// already the largest 32-bit value must not overflow.
TEST(UndefinedBehaviour, PageCountAtTheTopOfTheRangeTakesMorePages) {
    std::vector<std::string> objs = PageTree(1);
    objs[1] = "<< /Type /Pages /Kids [3 0 R] /Count 2147483647 >>";
    OpenDoc target(MakePdf(objs).bytes);
    OpenDoc source(MakePdf(PageTree(2)).bytes);
    PDDocInsertPages(target.pd, 0, source.pd, 0, 2);
    EXPECT_EQ(target.pages(), 3);
    CosObj root = CosDictGet(CosDocGetRoot(target.cos()), cosnames::Pages);
    EXPECT_EQ(CosDictGetInt(root, cosnames::Count, 0), 3);
}

// Cross-reference numbers too long for a long: read as the largest value
// (an offset that points nowhere), never as an overflow.
TEST(UndefinedBehaviour, HugeNumbersInTheTableAreSaturated) {
    Built b = MakePdf(PageTree(2));
    std::string f = b.bytes;
    size_t at = f.find("\r\n", b.xrefPos) + 2;         // the free entry of object 0
    at = f.find("\r\n", at) + 2;                       // object 1's entry
    f.replace(at, 10, "99999999999999999999999999");
    OpenDoc pd(f);
    EXPECT_EQ(pd.pages(), 2);
    EXPECT_TRUE(pd.info().repaired);

    // A subsection header with a first number past the range.
    std::string g = b.bytes;
    size_t h = g.find("xref\n") + 5;
    g.replace(h, 1, "-99999999999999999999999");
    EXPECT_EQ(PageCount(g), 2);
}

}  // namespace
