// Files with broken cross-reference data: rebuilt by scanning, or ending in
// a clear error; never a crash.
#include <gtest/gtest.h>

#include "pdfcore/CosNames.h"
#include "test_parser_fixture.h"

namespace {

using namespace fixture;

bool Repaired(const std::string& bytes, ASInt32 expectPages) {
    OpenDoc pd(bytes);
    bool r = pd.info().repaired;
    EXPECT_EQ(pd.pages(), expectPages);
    CosDocLoadAllObjects(pd.cos());
    return r;
}

TEST(CosRepair, TruncatedBeforeTheTable) {
    Built b = MakePdf(PageTree(4));
    EXPECT_FALSE(Repaired(b.bytes, 4));
    EXPECT_TRUE(Repaired(b.bytes.substr(0, b.xrefPos), 4));
    // Cut inside the table: the objects are all there.
    std::string cut = b.bytes.substr(0, b.xrefPos + 30);
    EXPECT_TRUE(Repaired(cut, 4));
}

TEST(CosRepair, WrongOffsetsAndBadStartxref) {
    Built b = MakePdf(PageTree(2));
    // Every offset off by 3 bytes: the labels are not where the table says.
    std::string shifted = b.bytes;
    shifted.insert(b.offsets[1], "   ");
    EXPECT_TRUE(Repaired(shifted, 2));
    std::string badSx = b.bytes;
    size_t p = badSx.rfind("startxref\n") + 10;
    badSx.replace(p, std::to_string(b.xrefPos).size(), std::to_string(b.xrefPos + 1234));
    EXPECT_TRUE(Repaired(badSx, 2));
    std::string notInt = b.bytes;
    notInt.replace(p, 1, "x");
    EXPECT_TRUE(Repaired(notInt, 2));
}

TEST(CosRepair, LastDefinitionWinsAndCatalogFoundWithoutTrailer) {
    Built b = MakePdf(PageTree(3));
    std::string f = b.bytes.substr(0, b.xrefPos);
    // A later definition of object 2 with a single kid, and no trailer at all.
    f += "2 0 obj\n<< /Type /Pages /Kids [4 0 R] /Count 1 >>\nendobj\n";
    EXPECT_TRUE(Repaired(f, 1));
    // A trailer whose Root points nowhere: the catalog is found by its Type.
    Built c = MakePdf(PageTree(2), "/Root 40 0 R");
    EXPECT_TRUE(Repaired(c.bytes, 2));
}

TEST(CosRepair, NothingUsableIsAClearError) {
    EXPECT_EQ(ErrorOf([] { PageCount("%PDF-1.4\nno objects here\n%%EOF\n"); }), kErrCouldNotRepair);
    EXPECT_EQ(ErrorOf([] { PageCount("%PDF-1.4\n1 0 obj\n<< /A 1 >>\nendobj\n%%EOF\n"); }), kErrCouldNotRepair);
    EXPECT_EQ(ErrorOf([] { PageCount(""); }), kErrBadHeader);
}

TEST(CosRepair, CyclesAndHostileObjectsNeverCrash) {
    // Length pointing to itself, a reference loop, deep nesting in an object,
    // a Prev to itself and an object stream that extends itself.
    std::string deep(20000, '[');
    Built b = MakePdf({"<< /Type /Catalog /Pages 2 0 R /X 5 0 R /Y 6 0 R >>",
                       "<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
                       "<< /Type /Page /Parent 2 0 R /Contents 4 0 R >>",
                       "<< /Length 4 0 R >>\nstream\nabc\nendstream", deep, "7 0 R", "6 0 R",
                       "<< /Type /ObjStm /N 1 /First 4 /Extends 8 0 R /Length 8 >>\nstream\n9 0 1\nendstream"},
                      "/Root 1 0 R /Prev 0");
    OpenDoc pd(b.bytes);
    CosDoc cos = pd.cos();
    EXPECT_EQ(pd.pages(), 1);
    EXPECT_TRUE(CosObjIsNull(CosDocGetObjByID(cos, 5)));  // too deep: reads as null
    CosDocLoadAllObjects(cos);
    auto d = CosStreamEncodedData(CosDocGetObjByID(cos, 4));
    EXPECT_EQ(std::string(d.begin(), d.end()), "abc");
}

// Opens, counts and loads everything; a clear error is as good as a document.
void OpensOrFailsCleanly(const std::string& bytes) {
    try {
        OpenDoc pd(bytes);
        pd.pages();
        CosDocLoadAllObjects(pd.cos());
    } catch (const CVellumError&) {
    }
}

TEST(CosRepair, EveryTruncationEndsInADocumentOrAnError) {
    Built b = MakePdf(PageTree(2));
    for (size_t len = 0; len <= b.bytes.size(); len += 7) OpensOrFailsCleanly(b.bytes.substr(0, len));
}

// Inputs that once crashed the parser fuzz target, replayed.
TEST(CosRepair, FuzzRegressionsReplay) {
    int files = 0;
    for (const auto& e : std::filesystem::directory_iterator(std::string(TM_TEST_DATA_DIR) + "/fuzz-parser")) {
        if (e.path().extension() != ".pdf") continue;
        ++files;
        OpensOrFailsCleanly(ReadFile(e.path().string()));
    }
    EXPECT_GT(files, 0);
}

}  // namespace
