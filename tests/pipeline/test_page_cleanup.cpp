// The page clean-up operations of the post-layout page loop, on documents
// built here: removals, page boxes, rotation, transitions, content streams,
// page resources and annotations.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "base/Log.h"
#include "filters/Filters.h"
#include "pdfcore/CosDoc.h"
#include "pdfcore/CosNames.h"
#include "pipeline/AnnotCleanup.h"
#include "pipeline/PageCleanup.h"
#include "pipeline/PageResources.h"
#include "pipeline/Report.h"
#include "settings/TrimoraPreferences.h"

namespace {

using namespace pipeline;

ASAtom A(const char* s) { return ASAtomFromString(s); }

struct CapturedLog {
    CapturedLog() : out(tmpfile()), err(tmpfile()) {
        log.SetConsoleStreams(out, err);
        log.SetFileLoggingAllowed(false);
        log.SetChannelOff(Log::kProgress, false);
    }
    ~CapturedLog() {
        fclose(out);
        fclose(err);
    }
    static std::string Read(FILE* f) {
        fflush(f);
        std::string s;
        rewind(f);
        char buf[4096];
        size_t n;
        while ((n = fread(buf, 1, sizeof buf, f)) > 0) s.append(buf, n);
        return s;
    }
    std::string All() { return Read(out) + Read(err); }
    FILE* out;
    FILE* err;
    Log log;
};

class PageCleanupTest : public ::testing::Test {
protected:
    void SetUp() override {
        prefs.SetLog(&cap.log);
        Statistics(prefs.StatisticsDict()).Reset();
        pd = PDDocCreate();
        doc = PDDocGetCosDoc(pd);
        pages = CosDictGet(CosDocGetRoot(doc), cosnames::Pages);
    }
    void TearDown() override { PDDocClose(pd); }

    CosObj Numbers(std::initializer_list<double> values) {
        CosObj a = CosNewArray(doc, false);
        for (double v : values) CosArrayAppend(a, CosNewNumber(doc, false, v));
        return a;
    }
    // A page under `parent` (the root Pages node by default) with a media
    // box unless `media` is false.
    CosObj AddPage(bool media = true, CosObj parent = nullptr) {
        if (!parent) parent = pages;
        CosObj page = CosNewDict(doc, true);
        CosDictPutName(page, cosnames::Type, false, cosnames::Page);
        CosDictPut(page, cosnames::Parent, parent);
        if (media) CosDictPut(page, cosnames::MediaBox, Numbers({0, 0, 612, 792}));
        CosArrayAppend(CosDictGet(parent, cosnames::Kids), page);
        CosDictPutInteger(parent, cosnames::Count, CosArrayLength(CosDictGet(parent, cosnames::Kids)));
        PDDocPagesChanged(pd);
        return page;
    }
    CosObj Stream(const std::string& text, CosObj dict = nullptr) {
        CosObj s = CosNewStream(doc, dict ? dict : CosNewNull(), {});
        CosStreamSetDecodedData(s, std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(text.data()), text.size()),
                                -1);
        return s;
    }
    std::string Decoded(CosObj s) {
        std::vector<uint8_t> d = CosStreamDecodedData(s);
        return std::string(d.begin(), d.end());
    }
    RunContext Ctx(ASInt32 page = 0) {
        RunContext c{pd, prefs, Statistics(prefs.StatisticsDict()), cap.log};
        c.pageNumber = page;
        return c;
    }
    ASInt32 Stat(const char* key) { return Statistics(prefs.StatisticsDict()).Get(key); }
    CosObj Dict() { return CosNewDict(doc, false); }

    CapturedLog cap;
    CTrimoraPreferences prefs;
    PDDoc pd = nullptr;
    CosDoc doc = nullptr;
    CosObj pages = nullptr;
};

// ---------------------------------------------------------------- removals

TEST_F(PageCleanupTest, EditDataCountsPieceInfoWithLastModifiedOnce) {
    CosObj page = AddPage();
    CosDictPut(page, A("PieceInfo"), Dict());
    CosDictPut(page, A("LastModified"), CosNewString(doc, false, "D:2004"));
    CosDictPut(page, A("CAPT_Info"), Dict());
    CosDictPut(page, A("CSML:PProtB"), CosNewInteger(doc, false, 1));
    CosDictPut(page, A("Rotate"), CosNewInteger(doc, false, 0));  // not edit data
    RunContext ctx = Ctx();
    RemoveEditData(page, ctx);
    EXPECT_EQ(3, Stat("EditData_Removed"));
    for (const char* k : {"PieceInfo", "LastModified", "CAPT_Info", "CSML:PProtB"}) EXPECT_FALSE(CosDictKnown(page, A(k))) << k;
    EXPECT_TRUE(CosDictKnown(page, A("Rotate")));
    EXPECT_NE(std::string::npos, cap.All().find("\tRemoving Edit Data...\n"));

    // A null PieceInfo is not present: LastModified stays, nothing counts.
    CosObj other = AddPage();
    CosDictPut(other, A("PieceInfo"), CosNewNull());
    CosDictPut(other, A("LastModified"), CosNewString(doc, false, "D:2004"));
    RemoveEditData(other, ctx);
    EXPECT_EQ(3, Stat("EditData_Removed"));
    EXPECT_TRUE(CosDictKnown(other, A("LastModified")));
}

TEST_F(PageCleanupTest, ThumbnailAndJobTicket) {
    CosObj page = AddPage();
    CosDictPut(page, A("Thumb"), Stream("thumb"));
    CosDictPut(page, A("HDAG_Tools"), Dict());
    RunContext ctx = Ctx();
    RemoveThumbnail(page, ctx);
    RemoveJobTicket(page, ctx);
    RemoveThumbnail(page, ctx);  // nothing left to count
    EXPECT_EQ(1, Stat("Thumbs_Removed"));
    EXPECT_EQ(1, Stat("JobTicket_Removed"));
    EXPECT_FALSE(CosDictKnown(page, A("Thumb")));
    EXPECT_FALSE(CosDictKnown(page, A("HDAG_Tools")));
}

TEST_F(PageCleanupTest, FileAttachmentsGoWithTheirPopups) {
    CosObj page = AddPage();
    CosObj annots = CosNewArray(doc, false);
    auto annot = [&](const char* subtype) {
        CosObj a = CosNewDict(doc, true);
        CosDictPutName(a, A("Subtype"), false, A(subtype));
        CosArrayAppend(annots, a);
        return a;
    };
    CosObj first = annot("FileAttachment");
    CosObj note = annot("Text");
    annot("FileAttachment");
    CosObj popup = annot("Popup");
    CosDictPut(popup, A("Parent"), first);
    CosObj notePopup = annot("Popup");
    CosDictPut(notePopup, A("Parent"), note);
    annot("FileAttachment");
    CosDictPut(page, A("Annots"), annots);
    RunContext ctx = Ctx();
    RemoveFileAttachments(page, ctx);
    EXPECT_EQ(3, Stat("EmbeddedFiles_Removed"));
    ASSERT_EQ(2, CosArrayLength(annots));
    EXPECT_EQ(note, CosArrayGet(annots, 0));
    EXPECT_EQ(notePopup, CosArrayGet(annots, 1));

    // Annots of the wrong kind: a warning, nothing else.
    CosObj other = AddPage();
    CosDictPut(other, A("Annots"), CosNewInteger(doc, false, 7));
    RemoveFileAttachments(other, ctx);
    EXPECT_EQ(3, Stat("EmbeddedFiles_Removed"));
    EXPECT_NE(std::string::npos, cap.All().find("Annots is not an array"));
}

// ---------------------------------------------------------------- page boxes

TEST_F(PageCleanupTest, ExtraBoxesEqualToTheMediaBoxGo) {
    CosObj page = AddPage();
    CosDictPut(page, A("TrimBox"), Numbers({0, 0, 612, 792}));
    CosDictPut(page, A("CropBox"), Numbers({0, 0, 612.0, 792}));
    CosDictPut(page, A("BleedBox"), Numbers({0, 0, 612, 792.001}));
    CosDictPut(page, A("ArtBox"), Numbers({0, 0, 0, 0}));  // all zeros: not a box to compare
    RunContext ctx = Ctx();
    RemoveExtraBoxes(page, ctx);
    EXPECT_EQ(2, Stat("ExtraBoxes_Removed"));
    EXPECT_FALSE(CosDictKnown(page, A("TrimBox")));
    EXPECT_FALSE(CosDictKnown(page, A("CropBox")));
    EXPECT_TRUE(CosDictKnown(page, A("BleedBox")));
    EXPECT_TRUE(CosDictKnown(page, A("ArtBox")));
    EXPECT_EQ(0, Stat("PageBoxes_Optimized"));  // one page: nothing is inherited
    EXPECT_TRUE(CosDictKnown(page, A("MediaBox")));

    // A box of the wrong kind is named in a warning and left; the others go on.
    CosObj bad = AddPage();
    CosDictPut(bad, A("CropBox"), Numbers({0, 0, 612}));
    CosDictPut(bad, A("TrimBox"), Numbers({0, 0, 612, 792}));
    RemoveExtraBoxes(bad, ctx);
    EXPECT_TRUE(CosDictKnown(bad, A("CropBox")));
    EXPECT_FALSE(CosDictKnown(bad, A("TrimBox")));
    EXPECT_NE(std::string::npos, cap.All().find("the CropBox is not an array of four numbers"));

    // An all-zero box is no copy of a media box, even of an all-zero one.
    CosObj bare = AddPage(false);
    CosDictPut(bare, A("MediaBox"), Numbers({0, 0, 0, 0}));
    CosDictPut(bare, A("CropBox"), Numbers({0, 0, 0, 0}));
    CosDictPut(bare, A("TrimBox"), Numbers({0, 0, 10, 10}));
    const ASInt32 before = Stat("ExtraBoxes_Removed");
    RemoveExtraBoxes(bare, ctx);
    EXPECT_EQ(before, Stat("ExtraBoxes_Removed"));
    EXPECT_TRUE(CosDictKnown(bare, A("CropBox")));
}

TEST_F(PageCleanupTest, MediaBoxInheritedFromAnEqualParent) {
    CosDictPut(pages, A("MediaBox"), Numbers({0, 0, 612, 792}));
    CosObj same = AddPage();
    CosObj other = AddPage(false);
    CosDictPut(other, A("MediaBox"), Numbers({0, 0, 595, 842}));
    RunContext ctx = Ctx();
    RemoveExtraBoxes(same, ctx);
    RemoveExtraBoxes(other, ctx);
    EXPECT_EQ(1, Stat("PageBoxes_Optimized"));
    EXPECT_FALSE(CosDictKnown(same, A("MediaBox")));
    EXPECT_TRUE(CosDictKnown(other, A("MediaBox")));
    EXPECT_EQ(612, CosFixedValue(CosArrayGet(PDPageGetInheritedAttr(same, A("MediaBox")), 2)));
}

TEST_F(PageCleanupTest, EqualBoxesOfAllSiblingsMoveUpToTheParent) {
    CosObj a = AddPage(), b = AddPage();
    for (CosObj p : {a, b}) CosDictPut(p, A("CropBox"), Numbers({10, 10, 600, 780}));
    RunContext ctx = Ctx();
    RemoveExtraBoxes(a, ctx);
    RemoveExtraBoxes(b, ctx);
    // Both media boxes and both crop boxes now come from the parent.
    EXPECT_EQ(4, Stat("PageBoxes_Optimized"));
    for (CosObj p : {a, b}) {
        EXPECT_FALSE(CosDictKnown(p, A("MediaBox")));
        EXPECT_FALSE(CosDictKnown(p, A("CropBox")));
        EXPECT_EQ(780, CosFixedValue(CosArrayGet(PDPageGetInheritedAttr(p, A("CropBox")), 3)));
        EXPECT_EQ(792, CosFixedValue(CosArrayGet(PDPageGetInheritedAttr(p, A("MediaBox")), 3)));
    }
}

TEST_F(PageCleanupTest, BoxesStayWhenASiblingWouldInheritAnotherBox) {
    // The second page has no crop box of its own: moving the first page's
    // crop box up would crop it.
    CosObj a = AddPage(), b = AddPage();
    CosDictPut(a, A("CropBox"), Numbers({10, 10, 600, 780}));
    (void)b;
    RunContext ctx = Ctx();
    RemoveExtraBoxes(a, ctx);
    EXPECT_TRUE(CosDictKnown(a, A("CropBox")));
    EXPECT_FALSE(CosDictKnown(pages, A("CropBox")));
    // Media boxes were all equal, so that one did move.
    EXPECT_EQ(1, Stat("PageBoxes_Optimized"));
    EXPECT_TRUE(CosDictKnown(pages, A("MediaBox")));
    EXPECT_TRUE(CosDictKnown(b, A("MediaBox")));  // not yet visited
}

// ---------------------------------------------------------------- rotation, transitions

TEST_F(PageCleanupTest, RotationZeroIsRemovedOnlyWhenItIsAnIntegerZero) {
    CosObj zero = AddPage(), ninety = AddPage(), real = AddPage(), name = AddPage();
    CosDictPut(zero, A("Rotate"), CosNewInteger(doc, false, 0));
    CosDictPut(ninety, A("Rotate"), CosNewInteger(doc, false, 90));
    CosDictPut(real, A("Rotate"), CosNewFixed(doc, false, 0.25));
    CosDictPut(name, A("Rotate"), CosNewName(doc, false, A("Zero")));
    RunContext ctx = Ctx();
    for (CosObj p : {zero, ninety, real}) AdjustRotation(p, ctx);
    EXPECT_EQ(1, Stat("Rotations_Removed"));
    EXPECT_FALSE(CosDictKnown(zero, A("Rotate")));
    EXPECT_EQ(90, CosDictGetInt(ninety, A("Rotate"), 0));
    EXPECT_TRUE(CosDictKnown(real, A("Rotate")));
    EXPECT_THROW(AdjustRotation(name, ctx), CVellumError);

    prefs.Viewing().rotate = -90;
    AdjustRotation(zero, ctx);
    EXPECT_EQ(270, CosDictGetInt(zero, A("Rotate"), 0));
    EXPECT_EQ(1, Stat("Rotations_Added"));
    prefs.Viewing().rotate = 45;
    AdjustRotation(ninety, ctx);
    EXPECT_EQ(90, CosDictGetInt(ninety, A("Rotate"), 0));
    EXPECT_EQ(1, Stat("Rotations_Added"));
}

TEST_F(PageCleanupTest, TransitionFromTheSettings) {
    CosObj page = AddPage();
    RunContext ctx = Ctx();
    AddTransition(page, ctx);  // the default style is None
    EXPECT_FALSE(CosDictKnown(page, A("Trans")));
    TransitionSettings& t = prefs.Viewing().transition;
    t.name = A("Wipe");
    t.direction = 270;
    t.transDuration = 2;
    t.pageDuration = 5;
    AddTransition(page, ctx);
    CosObj trans = CosDictGet(page, A("Trans"));
    ASSERT_EQ(kCosDict, CosObjGetType(trans));
    EXPECT_EQ(A("Wipe"), CosDictGetName(trans, A("S")));
    EXPECT_EQ(270, CosDictGetInt(trans, A("Di"), 0));
    EXPECT_EQ(2, CosDictGetInt(trans, A("D"), 0));
    EXPECT_FALSE(CosDictKnown(trans, A("Dm")));  // Wipe has no dimension
    EXPECT_EQ(5, CosDictGetInt(page, A("Dur"), 0));
    EXPECT_EQ(1, Stat("Transitions_Added"));
}

// ---------------------------------------------------------------- content streams

TEST_F(PageCleanupTest, ContentArraysAreJoinedWithALineEndBetweenStreams) {
    CosObj page = AddPage();
    CosObj contents = CosNewArray(doc, false);
    CosArrayAppend(contents, Stream("q 1 0 0 1 0 0 cm"));
    CosObj flate = Stream("");
    const std::string mid = "0 0 10 10 re f";
    CosStreamSetDecodedData(flate, std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(mid.data()), mid.size()), 6);
    CosArrayAppend(contents, flate);
    CosArrayAppend(contents, CosNewNull());  // skipped, as viewers skip it
    CosArrayAppend(contents, Stream("Q"));
    CosDictPut(page, cosnames::Contents, contents);
    RunContext ctx = Ctx();
    CombineContentStreams(page, ctx);
    CosObj joined = CosDictGet(page, cosnames::Contents);
    ASSERT_EQ(kCosStream, CosObjGetType(joined));
    EXPECT_EQ("q 1 0 0 1 0 0 cm\n0 0 10 10 re f\nQ", Decoded(joined));
    EXPECT_EQ(3, Stat("ContentStreams_Total"));
    EXPECT_EQ(1, Stat("ContentStreams_Combined"));
    CombineContentStreams(page, ctx);  // a single stream counts once too
    EXPECT_EQ(4, Stat("ContentStreams_Total"));
    EXPECT_EQ(2, Stat("ContentStreams_Combined"));
}

TEST_F(PageCleanupTest, StreamsThatOtherPagesDrawAreNotCopiedIntoEachPage) {
    CosObj background = Stream("0.9 g 0 0 612 792 re f");
    std::vector<CosObj> arrays;
    for (int i = 0; i < 2; ++i) {
        CosObj page = AddPage();
        CosObj contents = CosNewArray(doc, false);
        CosArrayAppend(contents, background);
        CosArrayAppend(contents, Stream("BT ET"));
        CosDictPut(page, cosnames::Contents, contents);
        arrays.push_back(contents);
    }
    CosObj own = AddPage();
    CosObj contents = CosNewArray(doc, false);
    CosArrayAppend(contents, Stream("q"));
    CosArrayAppend(contents, Stream("Q"));
    CosDictPut(own, cosnames::Contents, contents);
    for (ASInt32 i = 0; i < 3; ++i) {
        RunContext ctx = Ctx(i);
        CombineContentStreams(PDDocGetPageObj(pd, i), ctx);
    }
    EXPECT_EQ(arrays[0], CosDictGet(PDDocGetPageObj(pd, 0), cosnames::Contents));
    EXPECT_EQ(arrays[1], CosDictGet(PDDocGetPageObj(pd, 1), cosnames::Contents));
    EXPECT_EQ(kCosStream, CosObjGetType(CosDictGet(own, cosnames::Contents)));
    EXPECT_EQ(6, Stat("ContentStreams_Total"));
    EXPECT_EQ(3, Stat("ContentStreams_Combined"));  // each page once, joined or not
}

TEST_F(PageCleanupTest, ContentThatDoesNotDecodeIsNeitherCombinedNorRewritten) {
    CosObj page = AddPage();
    CosObj bad = CosNewDict(doc, false);
    CosDictPutName(bad, A("Filter"), false, A("FlateDecode"));
    const std::string junk = "this is not deflated";
    CosObj broken = CosNewStream(doc, bad, std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(junk.data()), junk.size()));
    CosObj contents = CosNewArray(doc, false);
    CosArrayAppend(contents, Stream("0 0 10 10 re f"));
    CosArrayAppend(contents, broken);
    CosDictPut(page, cosnames::Contents, contents);
    RunContext ctx = Ctx();
    CombineContentStreams(page, ctx);
    EXPECT_EQ(contents, CosDictGet(page, cosnames::Contents));
    EXPECT_EQ(1, Stat("ContentStreams_Combined"));

    CosDictPut(page, cosnames::Contents, broken);
    ProcessContentStreams(page, ctx);
    EXPECT_EQ(junk.size(), CosStreamEncodedLength(broken));
    EXPECT_EQ(0, Stat("ContentStreams_Compressed"));
    EXPECT_NE(std::string::npos, cap.All().find("does not decode completely"));
}

TEST_F(PageCleanupTest, ContentIsRewrittenAndCompressedOnlyWhenSmaller) {
    CosObj page = AddPage();
    std::string text;
    for (int i = 0; i < 40; ++i) text += "0.50   0   0   rg\r\n% a comment\n" + std::to_string(i) + "  0  10  10  re  F\n";
    CosObj s = Stream(text);
    CosDictPut(page, cosnames::Contents, s);
    RunContext ctx = Ctx();
    ProcessContentStreams(page, ctx);
    EXPECT_EQ(1, Stat("ContentStreams_Compressed"));
    EXPECT_EQ(1, Stat("ContentStreams_Optimized"));
    EXPECT_EQ(A("FlateDecode"), CosDictGetName(s, A("Filter")));
    const std::string out = Decoded(s);
    EXPECT_EQ(0u, out.rfind("0.50 0 0 rg 0 0 10 10 re f ", 0)) << out;
    EXPECT_EQ(std::string::npos, out.find("comment"));

    // A second run finds nothing smaller to store.
    ProcessContentStreams(page, ctx);
    EXPECT_EQ(1, Stat("ContentStreams_Compressed"));

    // Damaged content is stored compressed but not rewritten.
    std::string damaged = text + "(unterminated";
    CosObj d = Stream(damaged);
    CosDictPut(page, cosnames::Contents, d);
    ProcessContentStreams(page, ctx);
    EXPECT_EQ(2, Stat("ContentStreams_Compressed"));
    EXPECT_EQ(1, Stat("ContentStreams_Optimized"));
    EXPECT_EQ(damaged, Decoded(d));
}

// ---------------------------------------------------------------- resources

class PageResourcesTest : public PageCleanupTest {
protected:
    CosObj Font(const char* name) {
        CosObj f = CosNewDict(doc, true);
        CosDictPutName(f, A("Type"), false, A("Font"));
        CosDictPutName(f, A("BaseFont"), false, A(name));
        return f;
    }
    CosObj Form(const std::string& content, CosObj resources = nullptr) {
        CosObj d = CosNewDict(doc, false);
        CosDictPutName(d, A("Subtype"), false, A("Form"));
        CosDictPut(d, A("BBox"), Numbers({0, 0, 10, 10}));
        if (resources) CosDictPut(d, A("Resources"), resources);
        return Stream(content, d);
    }
    CosObj Category(CosObj res, const char* name) {
        CosObj c = CosDictGet(res, A(name));
        if (CosObjIsNull(c)) {
            c = CosNewDict(doc, false);
            CosDictPut(res, A(name), c);
        }
        return c;
    }
    void CleanAll() {
        for (ASInt32 i = 0; i < PDDocGetNumPages(pd); ++i) {
            RunContext ctx = Ctx(i);
            CleanUpPageResources(PDDocGetPageObj(pd, i), ctx);
        }
    }
};

TEST_F(PageResourcesTest, InheritedResourcesKeepWhatAnyPageUses) {
    CosObj res = CosNewDict(doc, true);
    CosDictPut(pages, A("Resources"), res);
    CosObj fonts = Category(res, "Font");
    for (const char* n : {"F1", "F2", "F3", "F4"}) CosDictPut(fonts, A(n), Font(n));
    CosObj procset = CosNewArray(doc, false);
    CosArrayAppend(procset, CosNewName(doc, false, A("PDF")));
    CosDictPut(res, A("ProcSet"), procset);
    CosDictPut(Category(res, "XObject"), A("Fm"), Form("BT /F4 9 Tf ET"));  // no resources: the page's
    CosDictPut(Category(res, "ExtGState"), A("GS0"), Dict());
    CosObj a = AddPage(), b = AddPage();
    CosDictPut(a, cosnames::Contents, Stream("BT /F1 12 Tf (a) Tj ET /Fm Do"));
    CosDictPut(b, cosnames::Contents, Stream("BT /F2 12 Tf (b) Tj ET"));
    CleanAll();
    EXPECT_TRUE(CosDictKnown(fonts, A("F1")));
    EXPECT_TRUE(CosDictKnown(fonts, A("F2")));
    EXPECT_FALSE(CosDictKnown(fonts, A("F3")));
    EXPECT_TRUE(CosDictKnown(fonts, A("F4")));
    EXPECT_EQ(1, Stat("Unreferenced_Fonts_Removed"));
    EXPECT_FALSE(CosDictKnown(res, A("ExtGState")));  // emptied, so gone
    EXPECT_TRUE(CosDictKnown(res, A("XObject")));
    EXPECT_FALSE(CosDictKnown(res, A("ProcSet")));
    EXPECT_NE(std::string::npos, cap.All().find("\tCleaning up Page Resources...\n"));
}

TEST_F(PageResourcesTest, ASharedCategoryDictionaryKeepsTheUnionOfItsUsers) {
    // Two pages with resource dictionaries of their own that share one Font
    // dictionary; an annotation appearance and a tiling pattern name fonts
    // of the same dictionary through resources of their own.
    CosObj shared = CosNewDict(doc, true);
    for (const char* n : {"F1", "F2", "F3", "F4", "F5"}) CosDictPut(shared, A(n), Font(n));
    CosObj a = AddPage(), b = AddPage();
    for (CosObj p : {a, b}) {
        CosObj r = Dict();
        CosDictPut(r, A("Font"), shared);
        CosDictPut(p, A("Resources"), r);
    }
    CosDictPut(a, cosnames::Contents, Stream("BT /F1 12 Tf ET"));
    CosDictPut(b, cosnames::Contents, Stream("/P0 scn 0 0 5 5 re f"));
    CosObj patRes = Dict();
    CosDictPut(patRes, A("Font"), shared);
    CosObj patDict = Dict();
    CosDictPutInteger(patDict, A("PatternType"), 1);
    CosDictPut(patDict, A("Resources"), patRes);
    CosDictPut(Category(CosDictGet(b, A("Resources")), "Pattern"), A("P0"), Stream("BT /F2 1 Tf ET", patDict));
    CosObj apRes = Dict();
    CosDictPut(apRes, A("Font"), shared);
    CosObj annot = CosNewDict(doc, true);
    CosDictPutName(annot, A("Subtype"), false, A("FreeText"));
    CosDictPut(annot, A("Rect"), Numbers({0, 0, 10, 10}));
    CosObj ap = Dict();
    CosDictPut(ap, A("N"), Form("BT /F3 8 Tf ET", apRes));
    CosDictPut(annot, A("AP"), ap);
    CosObj annots = CosNewArray(doc, false);
    CosArrayAppend(annots, annot);
    CosDictPut(b, A("Annots"), annots);
    CleanAll();
    EXPECT_TRUE(CosDictKnown(shared, A("F1")));
    EXPECT_TRUE(CosDictKnown(shared, A("F2")));
    EXPECT_TRUE(CosDictKnown(shared, A("F3")));
    EXPECT_FALSE(CosDictKnown(shared, A("F4")));
    EXPECT_FALSE(CosDictKnown(shared, A("F5")));
    EXPECT_EQ(2, Stat("Unreferenced_Fonts_Removed"));
}

TEST_F(PageResourcesTest, UnreadableContentKeepsItsDictionaryWhole) {
    CosObj page = AddPage();
    CosObj res = Dict();
    CosDictPut(page, A("Resources"), res);
    CosObj fonts = CosNewDict(doc, true);  // indirect: it outlives its removal from the resources
    CosDictPut(res, A("Font"), fonts);
    for (const char* n : {"F1", "F2"}) CosDictPut(fonts, A(n), Font(n));
    CosObj bad = CosNewDict(doc, false);
    CosDictPutName(bad, A("Subtype"), false, A("Form"));
    CosDictPut(bad, A("BBox"), Numbers({0, 0, 1, 1}));
    CosDictPutName(bad, A("Filter"), false, A("FlateDecode"));
    const std::string junk = "BT /F2 1 Tf ET, not deflated";
    CosDictPut(Category(res, "XObject"), A("Fm"),
               CosNewStream(doc, bad, std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(junk.data()), junk.size())));
    CosDictPut(page, cosnames::Contents, Stream("/Fm Do"));
    CleanAll();
    EXPECT_TRUE(CosDictKnown(fonts, A("F1")));
    EXPECT_TRUE(CosDictKnown(fonts, A("F2")));
    EXPECT_EQ(0, Stat("Unreferenced_Fonts_Removed"));

    // A form whose data is cut short: the part that decodes names F1 only,
    // but what is lost may name F2.
    std::string text = "BT /F1 1 Tf ET ";
    for (int i = 0; i < 3000; ++i) text += std::to_string(i * 7919 % 10007) + " ";
    text += "pop BT /F2 1 Tf ET";
    filters::Bytes packed =
        filters::FlateEncode(std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(text.data()), text.size()), 6);
    packed.resize(packed.size() / 2);
    CosObj cutDict = CosNewDict(doc, false);
    CosDictPutName(cutDict, A("Subtype"), false, A("Form"));
    CosDictPut(cutDict, A("BBox"), Numbers({0, 0, 1, 1}));
    CosDictPutName(cutDict, A("Filter"), false, A("FlateDecode"));
    CosDictPut(Category(res, "XObject"), A("Fm"), CosNewStream(doc, cutDict, packed));
    CleanAll();
    EXPECT_TRUE(CosDictKnown(fonts, A("F2")));

    // Damaged page content: the same.
    CosDictPut(Category(res, "XObject"), A("Fm"), Form(""));
    CosDictPut(page, cosnames::Contents, Stream("/Fm Do BT /F1 1 Tf (cut"));
    CleanAll();
    EXPECT_TRUE(CosDictKnown(fonts, A("F2")));
    // Readable again: F2 goes.
    CosDictPut(page, cosnames::Contents, Stream("/Fm Do BT /F1 1 Tf (whole) Tj ET"));
    CleanAll();
    EXPECT_TRUE(CosDictKnown(fonts, A("F1")));
    EXPECT_FALSE(CosDictKnown(fonts, A("F2")));
}

TEST_F(PageResourcesTest, OverfullOperatorsAndFormResourcesAreKept) {
    CosObj page = AddPage();
    CosObj res = Dict();
    CosDictPut(page, A("Resources"), res);
    CosObj fonts = CosNewDict(doc, true);
    CosDictPut(res, A("Font"), fonts);
    for (const char* n : {"F1", "F2", "F3"}) CosDictPut(fonts, A(n), Font(n));
    // Viewers read the last operands of an overfull Tf.
    CosDictPut(page, cosnames::Contents, Stream("BT /F1 /F2 12 Tf (x) Tj ET"));
    // The interactive form's default resources are the page's own.
    CosObj acro = Dict();
    CosDictPut(acro, A("DR"), CosNewDict(doc, true));
    CosDictPut(CosDocGetRoot(doc), A("AcroForm"), acro);
    CosDictPut(CosDictGet(acro, A("DR")), A("Font"), fonts);
    CleanAll();
    EXPECT_EQ(3, CosDictCount(fonts));
    CosDictRemove(CosDocGetRoot(doc), A("AcroForm"));
    CleanAll();
    EXPECT_TRUE(CosDictKnown(fonts, A("F2")));
    EXPECT_FALSE(CosDictKnown(fonts, A("F3")));
}

TEST_F(PageResourcesTest, ColourSpacesNamedByOtherResourcesAreKept) {
    CosObj page = AddPage();
    CosObj res = Dict();
    CosDictPut(page, A("Resources"), res);
    CosObj spaces = Category(res, "ColorSpace");
    auto space = [&](std::initializer_list<const char*> names) {
        CosObj a = CosNewArray(doc, false);
        for (const char* n : names) CosArrayAppend(a, CosNewName(doc, false, A(n)));
        return a;
    };
    CosObj indexed = space({"Indexed", "Base"});
    CosArrayAppend(indexed, CosNewInteger(doc, false, 0));
    CosArrayAppend(indexed, CosNewString(doc, false, std::string("\0\0\0", 3)));
    CosDictPut(spaces, A("CS0"), indexed);
    CosDictPut(spaces, A("Base"), space({"CalRGB"}));
    CosDictPut(spaces, A("ForImage"), space({"CalGray"}));
    CosDictPut(spaces, A("Unused"), space({"CalGray"}));
    CosObj imageDict = Dict();
    CosDictPutName(imageDict, A("Subtype"), false, A("Image"));
    CosDictPutName(imageDict, A("ColorSpace"), false, A("ForImage"));
    CosDictPut(Category(res, "XObject"), A("Im0"), Stream("x", imageDict));
    CosDictPut(page, cosnames::Contents, Stream("/CS0 cs 0 sc 0 0 1 1 re f /Im0 Do"));
    CleanAll();
    EXPECT_TRUE(CosDictKnown(spaces, A("CS0")));
    EXPECT_TRUE(CosDictKnown(spaces, A("Base")));
    EXPECT_TRUE(CosDictKnown(spaces, A("ForImage")));
    EXPECT_FALSE(CosDictKnown(spaces, A("Unused")));
}

TEST_F(PageResourcesTest, APageIsGatheredAgainBeforeItsOwnCleanUp) {
    // Page 2 draws a new resource after the loop began (as flattening
    // does): the entry it now names must survive its clean-up.
    CosObj a = AddPage(), b = AddPage();
    for (CosObj p : {a, b}) CosDictPut(p, A("Resources"), Dict());
    CosObj fonts = Category(CosDictGet(b, A("Resources")), "Font");
    CosDictPut(fonts, A("F1"), Font("F1"));
    CosDictPut(a, cosnames::Contents, Stream(""));
    CosDictPut(b, cosnames::Contents, Stream("BT /F1 12 Tf ET"));
    RunContext first = Ctx(0);
    CleanUpPageResources(a, first);
    CosDictPut(fonts, A("TMRFont1"), Font("Added"));
    CosDictPut(b, cosnames::Contents, Stream("BT /F1 12 Tf ET BT /TMRFont1 9 Tf ET"));
    RunContext second = Ctx(1);
    CleanUpPageResources(b, second);
    EXPECT_TRUE(CosDictKnown(fonts, A("F1")));
    EXPECT_TRUE(CosDictKnown(fonts, A("TMRFont1")));
    EXPECT_EQ(0, Stat("Unreferenced_Fonts_Removed"));
}

// ---------------------------------------------------------------- annotations

class AnnotCleanupTest : public PageCleanupTest {
protected:
    CosObj Annot(CosObj annots, const char* subtype, std::initializer_list<double> rect = {0, 0, 10, 10}) {
        CosObj a = CosNewDict(doc, true);
        CosDictPutName(a, A("Subtype"), false, A(subtype));
        CosDictPut(a, A("Rect"), Numbers(rect));
        CosArrayAppend(annots, a);
        return a;
    }
};

TEST_F(AnnotCleanupTest, BordersAndEmptyArrays) {
    CosObj page = AddPage();
    CosObj annots = CosNewArray(doc, false);
    CosObj styled = Annot(annots, "Square");
    CosDictPut(styled, A("BS"), Dict());
    CosDictPut(styled, A("Border"), Numbers({0, 0, 2}));
    CosObj withAp = Annot(annots, "Stamp");
    CosDictPut(withAp, A("Border"), Numbers({0, 0, 1}));
    CosObj ap = Dict();
    CosDictPut(ap, A("N"), Stream(""));
    CosDictPut(withAp, A("AP"), ap);
    CosObj noAp = Annot(annots, "Square");
    CosDictPut(noAp, A("Border"), Numbers({0, 0, 1}));
    CosObj invisible = Annot(annots, "Square");
    CosDictPut(invisible, A("Border"), Numbers({0, 0, 0}));
    CosObj dashed = Annot(annots, "Square");
    CosObj border = Numbers({0, 0, 3});
    CosArrayAppend(border, CosNewArray(doc, false));
    CosDictPut(dashed, A("Border"), border);
    CosObj stamp = Annot(annots, "Text");  // Text annotations do not read BS
    CosDictPut(stamp, A("BS"), Dict());
    CosDictPut(stamp, A("Border"), Numbers({0, 0, 2}));
    CosDictPut(page, A("Annots"), annots);
    RunContext ctx = Ctx();
    CleanUpAnnotations(page, ctx);
    EXPECT_EQ(3, Stat("Annots_Cleaned"));
    EXPECT_FALSE(CosDictKnown(styled, A("Border")));
    EXPECT_FALSE(CosDictKnown(withAp, A("Border")));
    EXPECT_TRUE(CosDictKnown(noAp, A("Border")));
    EXPECT_TRUE(CosDictKnown(invisible, A("Border")));
    EXPECT_EQ(3, CosArrayLength(CosDictGet(dashed, A("Border"))));
    EXPECT_TRUE(CosDictKnown(stamp, A("Border")));
    EXPECT_EQ(0, Stat("Empty_Annots_Removed"));

    CosObj empty = AddPage();
    CosObj nulls = CosNewArray(doc, false);
    CosArrayAppend(nulls, CosNewNull());
    CosDictPut(empty, A("Annots"), nulls);
    CleanUpAnnotations(empty, ctx);
    EXPECT_FALSE(CosDictKnown(empty, A("Annots")));
    EXPECT_EQ(1, Stat("Empty_Annots_Removed"));
}

TEST_F(AnnotCleanupTest, LinksLoseIsMapAndDuplicates) {
    CosObj page = AddPage();
    CosObj annots = CosNewArray(doc, false);
    auto uri = [&](CosObj link, bool isMap) {
        CosObj act = Dict();
        CosDictPutName(act, A("S"), false, A("URI"));
        CosDictPut(act, A("URI"), CosNewString(doc, false, "http://example.org/"));
        CosDictPut(act, A("IsMap"), CosNewBoolean(doc, false, isMap));
        CosDictPut(link, A("A"), act);
        return act;
    };
    CosObj plain = Annot(annots, "Link");
    CosObj plainAction = uri(plain, false);
    CosObj map = Annot(annots, "Link", {20, 0, 30, 10});
    CosObj mapAction = uri(map, true);
    CosObj copy = Annot(annots, "Link");  // same area, same action
    uri(copy, false);
    CosDictPut(copy, A("P"), page);
    CosObj elsewhere = Annot(annots, "Link", {0, 20, 10, 30});
    uri(elsewhere, false);
    for (int i = 0; i < 2; ++i) {  // tied into the structure tree: both stay
        CosObj tagged = Annot(annots, "Link", {50, 50, 60, 60});
        CosDictPutInteger(tagged, A("StructParent"), 3);
    }
    CosDictPut(page, A("Annots"), annots);
    RunContext ctx = Ctx();
    CleanUpAnnotations(page, ctx);
    EXPECT_EQ(6, Stat("LinkAnnots_Total"));
    EXPECT_EQ(1, Stat("LinkAnnots_Duplicates"));
    EXPECT_EQ(3, Stat("LinkAnnots_Cleaned"));  // the three IsMap false
    EXPECT_EQ(5, CosArrayLength(annots));
    EXPECT_FALSE(CosDictKnown(plainAction, A("IsMap")));
    EXPECT_TRUE(CosDictKnown(mapAction, A("IsMap")));
    for (ASInt32 i = 0; i < CosArrayLength(annots); ++i) EXPECT_NE(copy, CosArrayGet(annots, i));

    Statistics stats(prefs.StatisticsDict());
    const std::string report = BuildReport(ReportInputs{}, stats, "   ");
    EXPECT_NE(std::string::npos, report.find("   Found 1 duplicate Link Annotation out of 6 total\n")) << report;
    EXPECT_NE(std::string::npos, report.find("   Cleaned up 3 Annotations\n")) << report;
}

}  // namespace

namespace {

// The standard operations in the post-layout loop: their order, their log
// lines and the report they lead to.
TEST_F(PageCleanupTest, StandardLoopRunsTheStepsInOrder) {
    CosObj page = AddPage();
    CosDictPut(page, A("Thumb"), Stream("thumb"));
    CosDictPut(page, A("Rotate"), CosNewInteger(doc, false, 0));
    CosObj contents = CosNewArray(doc, false);
    CosArrayAppend(contents, Stream("q 1 0 0 1 0 0 cm"));
    CosArrayAppend(contents, Stream("Q"));
    CosDictPut(page, cosnames::Contents, contents);
    AddPage();

    OperationRegistry reg;
    RegisterStandardOperations(reg);
    RunContext ctx = Ctx();
    EXPECT_EQ(0, RunPageLoop(reg.PageOperations(PagePhase::PostLayout, prefs), ctx));
    const std::string log = cap.All();
    const char* const lines[] = {"Processing Page 1\n",
                                 "\tRemoving Edit Data...\n",
                                 "\tRemoving Page Thumbnail...\n",
                                 "\tRemoving Job Ticket Data...\n",
                                 "\tRemoving embedded files...\n",
                                 "\tRemoving Extra Page Boxes...\n",
                                 "\tCleaning up Annotations...\n",
                                 "\tAdjusting Rotation...\n",
                                 "\tCombining Content Streams\n",
                                 "\tCleaning up Page Resources...\n",
                                 "\tRecompressing XObjects...\n",
                                 "\tProcessing Content Streams...\n",
                                 "Processing Page 2\n"};
    size_t at = 0;
    for (const char* line : lines) {
        size_t found = log.find(line, at);
        ASSERT_NE(std::string::npos, found) << line << " after offset " << at << " in\n" << log;
        at = found + 1;
    }
    EXPECT_EQ(std::string::npos, log.find("\tAdding Transition...\n"));

    Statistics stats(prefs.StatisticsDict());
    const std::string report = BuildReport(ReportInputs{}, stats, "   ");
    EXPECT_NE(std::string::npos, report.find("   Removed 1 unnecessary Thumbnail\n")) << report;
    EXPECT_NE(std::string::npos, report.find("   Removed 1 unnecessary Rotation\n")) << report;
    EXPECT_NE(std::string::npos, report.find("   Optimized 2 Page Boxes\n")) << report;
    EXPECT_NE(std::string::npos, report.find("   Combined 2 Content Stream into 1, optimizing 0 & compressing 0\n")) << report;
}

}  // namespace
