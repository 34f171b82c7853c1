// Damaged page trees and cross-reference chains that robust readers open:
// each is mended with one warning line, and every page that can be found
// is kept.
#include <gtest/gtest.h>

#include "filters/Filters.h"
#include "pdfcore/CosNames.h"
#include "test_parser_fixture.h"

namespace {

using namespace fixture;

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
