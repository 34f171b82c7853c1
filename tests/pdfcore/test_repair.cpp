// Damaged files: broken cross-reference data rebuilt by scanning, broken
// page trees mended with one warning line each, or a clear error; never a
// crash.
#include <gtest/gtest.h>

#include "filters/Filters.h"
#include "pdfcore/CosNames.h"
#include "tests/pdfcore/test_support.h"

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

// Collects the warning lines while a test runs.
class PageTreeRepair : public ::testing::Test {
protected:
    void SetUp() override {
        filters::SetWarningSink([this](const std::string& t) { warnings += t; });
    }
    void TearDown() override { filters::SetWarningSink(nullptr); }
    bool Warned(const std::string& part) const { return warnings.find(part) != std::string::npos; }

    std::string warnings;
};

// A page object with a marker, so pages can be told apart.
std::string Page(int parent, const std::string& extra = "") {
    return "<< /Type /Page /Parent " + std::to_string(parent) + " 0 R " + extra + " >>";
}

// The page count after a save and a fresh open of the saved file, checking
// that the saved tree needs no more mending: counts and parents agree.
ASInt32 PagesAfterRoundTrip(PDDoc pd) {
    ScratchDir scratch;
    PDDocSave(pd, scratch / "tree.pdf", 1);
    OpenDoc again(PDDocOpen(scratch / "tree.pdf"));
    EXPECT_FALSE(again.info().repaired);
    for (ASInt32 i = 0; i < again.pages(); ++i) {
        CosObj page = again.page(i);
        CosObj kids = CosDictGet(CosDictGet(page, cosnames::Parent), cosnames::Kids);
        bool listed = false;
        for (ASInt32 k = 0; k < CosArrayLength(kids); ++k) listed = listed || CosArrayGet(kids, k) == page;
        EXPECT_TRUE(listed) << "page " << i;
    }
    CosObj root = CosDictGet(CosDocGetRoot(again.cos()), cosnames::Pages);
    EXPECT_EQ(CosDictGetInt(root, cosnames::Count, -1), again.pages());
    return again.pages();
}

TEST_F(PageTreeRepair, PageListedTwiceKeepsBothPages) {
    std::vector<std::string> objs = {"<< /Type /Catalog /Pages 2 0 R >>",
                                     "<< /Type /Pages /Kids [3 0 R 4 0 R 3 0 R] /Count 3 /MediaBox [0 0 5 5] >>",
                                     Page(2, "/Rotate 90"), Page(2)};
    OpenDoc pd(MakePdf(objs).bytes);
    ASSERT_EQ(pd.pages(), 3);
    CosObj first = pd.page(0), third = pd.page(2);
    EXPECT_NE(first, third);  // a copy: one object cannot stand twice in the tree
    EXPECT_EQ(CosDictGetInt(third, cosnames::Rotate, 0), 90);
    EXPECT_TRUE(Warned("more than once"));
    EXPECT_EQ(PagesAfterRoundTrip(pd.pd), 3);
}

TEST_F(PageTreeRepair, KidsLoopIsCut) {
    // Node 5 lists the root again: the loop is cut, both pages stay.
    std::vector<std::string> objs = {"<< /Type /Catalog /Pages 2 0 R >>",
                                     "<< /Type /Pages /Kids [3 0 R 5 0 R] /Count 2 >>", Page(2), Page(5),
                                     "<< /Type /Pages /Parent 2 0 R /Kids [2 0 R 4 0 R 5 0 R] /Count 1 >>"};
    OpenDoc pd(MakePdf(objs).bytes);
    EXPECT_EQ(pd.pages(), 2);
    EXPECT_TRUE(Warned("loops back on itself"));
    EXPECT_EQ(PagesAfterRoundTrip(pd.pd), 2);
}

TEST_F(PageTreeRepair, VeryDeepTreeIsWalkedWholeAndInheritsFromTheTop) {
    // 3000 nested nodes, one page at the bottom taking its MediaBox from the root.
    const int depth = 3000;
    std::vector<std::string> objs = {"<< /Type /Catalog /Pages 2 0 R >>"};
    for (int i = 0; i < depth; ++i) {
        const int self = 2 + i;
        std::string parent = i == 0 ? "" : "/Parent " + std::to_string(self - 1) + " 0 R ";
        std::string box = i == 0 ? "/MediaBox [0 0 123 456] " : "";
        objs.push_back("<< /Type /Pages " + parent + box + "/Kids [" + std::to_string(self + 1) +
                       " 0 R] /Count 1 >>");
    }
    objs.push_back(Page(depth + 1));
    OpenDoc pd(MakePdf(objs).bytes);
    ASSERT_EQ(pd.pages(), 1);
    CosObj box = PDPageGetInheritedAttr(pd.page(0), cosnames::MediaBox);
    ASSERT_EQ(CosObjGetType(box), kCosArray);
    EXPECT_EQ(CosIntegerValue(CosArrayGet(box, 3)), 456);
    EXPECT_TRUE(warnings.empty()) << warnings;
    EXPECT_EQ(PagesAfterRoundTrip(pd.pd), 1);
}

TEST_F(PageTreeRepair, WrongParentIsCorrectedAndKeepsWhatItGave) {
    // Page 4 names node 5 (not in the tree) as its Parent and inherits its
    // Rotate from there: the Parent is corrected, the Rotate kept on the page.
    std::vector<std::string> objs = {"<< /Type /Catalog /Pages 2 0 R >>",
                                     "<< /Type /Pages /Kids [3 0 R 4 0 R] /Count 2 >>", Page(2), Page(5),
                                     "<< /Type /Pages /Kids [] /Count 0 /Rotate 180 >>"};
    OpenDoc pd(MakePdf(objs).bytes);
    ASSERT_EQ(pd.pages(), 2);
    CosObj page = pd.page(1);
    EXPECT_EQ(CosDictGet(page, cosnames::Parent), CosDictGet(CosDocGetRoot(pd.cos()), cosnames::Pages));
    EXPECT_EQ(CosDictGetInt(page, cosnames::Rotate, 0), 180);
    EXPECT_TRUE(Warned("wrong Parent"));
    EXPECT_EQ(PagesAfterRoundTrip(pd.pd), 2);
}

TEST_F(PageTreeRepair, EntriesThatAreNotPagesAreDroppedAndCountsCorrected) {
    std::vector<std::string> objs = {"<< /Type /Catalog /Pages 2 0 R >>",
                                     "<< /Type /Pages /Kids [3 0 R 42 (junk) 5 0 R 99 0 R 4 0 R] /Count 9 >>",
                                     Page(2), Page(2), "[1 2 3]"};
    OpenDoc pd(MakePdf(objs).bytes);
    EXPECT_EQ(pd.pages(), 2);
    // Only the two pages stay listed; a reference to a missing object goes too.
    CosObj root = CosDictGet(CosDocGetRoot(pd.cos()), cosnames::Pages);
    EXPECT_EQ(CosArrayLength(CosDictGet(root, cosnames::Kids)), 2);
    EXPECT_TRUE(Warned("not pages"));
    EXPECT_TRUE(Warned("wrong page Count"));
    EXPECT_EQ(PagesAfterRoundTrip(pd.pd), 2);
}

TEST_F(PageTreeRepair, TreeLeadingToNoPageKeepsThePagesFoundByScanning) {
    // The only entry is damaged; or the tree runs 108 nodes deep into a node
    // that lists itself, with the page outside it.  Either way the mended
    // tree would hold no page, and the page objects of the file are kept.
    std::vector<std::string> damaged = {"<< /Type /Catalog /Pages 2 0 R >>",
                                        "<< /Type /Pages /Kids [4 0 R] /Count 1 >>", Page(2), "(not a page)"};
    std::vector<std::string> deep = {"<< /Type /Catalog /Pages 3 0 R >>", Page(3)};
    for (int i = 0; i < 108; ++i)
        deep.push_back("<< /Type /Pages /Kids [" + std::to_string(i < 107 ? 4 + i : 3 + i) + " 0 R] /Count 1 >>");
    for (const auto* objs : {&damaged, &deep}) {
        warnings.clear();
        OpenDoc pd(MakePdf(*objs).bytes);
        ASSERT_EQ(pd.pages(), 1);
        EXPECT_TRUE(Warned("leads to no page")) << warnings;
        EXPECT_EQ(PagesAfterRoundTrip(pd.pd), 1);
    }
    // No page object anywhere: refused rather than written without pages.
    std::vector<std::string> none = {"<< /Type /Catalog /Pages 2 0 R >>", "<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
                                     "(not a page)"};
    EXPECT_THROW(PageCount(MakePdf(none).bytes), CVellumError);
}

TEST_F(PageTreeRepair, SingleKidWithoutItsArrayIsWrapped) {
    // Kids naming one node without the array, by reference and written in
    // place (the tree then owns a copy: nothing may be left unowned).
    for (const std::string kids : {"3 0 R", "<< /Type /Page /Rotate 90 >>"}) {
        warnings.clear();
        std::vector<std::string> objs = {"<< /Type /Catalog /Pages 2 0 R >>",
                                         "<< /Type /Pages /Kids " + kids + " /Count 1 >>", Page(2)};
        OpenDoc pd(MakePdf(objs).bytes);
        ASSERT_EQ(pd.pages(), 1) << kids;
        EXPECT_TRUE(Warned("not pages")) << warnings;
        EXPECT_EQ(PagesAfterRoundTrip(pd.pd), 1);
    }
}

TEST_F(PageTreeRepair, PageTreeRootFoundByScanning) {
    // Opens, checks the warning and the tree the catalog now leads to (a plain
    // save of the objects, without the document layer, must keep the pages),
    // and gives the page count before and after a round trip.
    auto pages = [&](const std::string& bytes, const char* warning) {
        warnings.clear();
        OpenDoc pd(bytes);
        const ASInt32 n = pd.pages();
        EXPECT_TRUE(Warned(warning)) << warnings;
        CosObj tree = CosDictGet(CosDocGetRoot(pd.cos()), cosnames::Pages);
        EXPECT_EQ(PagesAfterRoundTrip(pd.pd), n);
        if (CosDictGetName(tree, cosnames::Type) == cosnames::Pages) {
            EXPECT_EQ(CosDictGetInt(tree, cosnames::Count, 0), n);
        }
        return n;
    };
    // The catalog has no Pages at all.
    std::vector<std::string> objs = PageTree(3);
    objs[0] = "<< /Type /Catalog >>";
    EXPECT_EQ(pages(MakePdf(objs).bytes, "page tree found by scanning"), 3);
    // The trailer's Root is a dictionary but not the catalog.
    objs = PageTree(2);
    objs.push_back("<< /Title (not a catalog) >>");
    EXPECT_EQ(pages(MakePdf(objs, "/Root 5 0 R").bytes, "catalog found by scanning"), 2);
    // No catalog anywhere, and no usable table: a catalog is made for the pages.
    objs = PageTree(2);
    objs[0] = "<< /Title (nothing) >>";
    Built b = MakePdf(objs);
    EXPECT_EQ(pages(b.bytes.substr(0, b.xrefPos), ""), 2);
    // The catalog names a page directly.
    EXPECT_EQ(pages(MakePdf({"<< /Type /Catalog /Pages 2 0 R >>", "<< /Type /Page /MediaBox [0 0 10 10] >>"}).bytes, ""), 1);
    // Without any page the document is still refused, clearly.
    OpenDoc none(MakePdf({"<< /Type /Catalog >>", "<< /Title (x) >>"}).bytes);
    EXPECT_EQ(ErrorOf([&] { none.pages(); }), kErrBadPagesTree);
}

// Two sections: the update (newest) redefines page object 4 and adds object 5.
Built TwoSections(const std::string& prevText) {
    Built b = MakePdf(PageTree(2));
    const size_t firstXref = b.xrefPos;
    b.offsets.clear();
    AddObjects(b, {"<< /Type /Page /Parent 2 0 R /MediaBox [0 0 30 30] >>", "<< /Producer (update) >>"}, 4);
    AddClassicXref(b, "/Root 1 0 R /Info 5 0 R /Prev " + (prevText.empty() ? std::to_string(firstXref) : prevText),
                   0, 4, 5);
    return b;
}

TEST_F(PageTreeRepair, PrevChainThatLoopsOrLeadsNowhere) {
    // Sound chain first, as the reference.
    OpenDoc sound(TwoSections("").bytes);
    EXPECT_EQ(sound.pages(), 2);
    EXPECT_FALSE(sound.info().repaired);

    // The older section's trailer points back at the newer one.  It is
    // written with a six-digit placeholder first and patched once the
    // update's offset is known, so no offset moves.
    Built b = MakePdf(PageTree(2), "/Root 1 0 R /Prev 999999");
    const size_t oldX = b.xrefPos;
    b.offsets.clear();
    AddObjects(b, {"<< /Producer (update) >>"}, 5);
    AddClassicXref(b, "/Root 1 0 R /Info 5 0 R /Prev " + std::to_string(oldX), 0, 5, 5);
    std::string newX = std::to_string(b.xrefPos);
    newX.insert(0, 6 - newX.size(), '0');
    b.bytes.replace(b.bytes.find("/Prev 999999"), 12, "/Prev " + newX);
    {
        OpenDoc pd(b.bytes);
        EXPECT_EQ(pd.pages(), 2);
        EXPECT_EQ(CosObjGetType(CosDocGetInfo(pd.cos())), kCosDict);
        EXPECT_TRUE(Warned("cross-reference sections loops back")) << warnings;
    }

    // A Prev past the end of the file, and one into the middle of an object:
    // the whole file is scanned, and the newest definitions win.
    for (std::string prev : {std::string("99999999"), std::string("20")}) {
        warnings.clear();
        OpenDoc pd(TwoSections(prev).bytes);
        EXPECT_EQ(pd.pages(), 2) << prev;
        EXPECT_TRUE(pd.info().repaired) << prev;
        EXPECT_EQ(CosIntegerValue(CosArrayGet(CosDictGet(pd.page(1), cosnames::MediaBox), 2)), 30) << prev;
        EXPECT_TRUE(Warned("rebuilt by scanning")) << warnings;
    }
}

}  // namespace
