// The page clean-up operations of the post-layout page loop, on documents
// built here: removals, page boxes, rotation, transitions, content streams,
// page resources and annotations.
#include "pipeline/AnnotCleanup.h"
#include "pipeline/PageCleanup.h"
#include "pipeline/PageResources.h"
#include "pipeline_fixture.h"

namespace {

using namespace pipeline;
using namespace pipetest;

class PageCleanupTest : public DocTest {
protected:
    // A page without content or resources of its own.
    CosObj Page(bool media = true, CosObj parent = nullptr) { return AddPage(nullptr, false, media, parent); }
};

// ---------------------------------------------------------------- removals

TEST_F(PageCleanupTest, EditDataThumbnailsAndJobTicketsAreCountedOnce) {
    // PieceInfo with its LastModified counts once.
    CosObj page = Page();
    Set(page, {{"PieceInfo", Dict()}, {"LastModified", Str("D:2004")}, {"CAPT_Info", Dict()}, {"CSML:PProtB", Int(1)},
               {"Rotate", Int(0)}});  // Rotate is not edit data
    RemoveEditData(page, C());
    EXPECT_EQ(3, Stat("EditData_Removed"));
    for (const char* k : {"PieceInfo", "LastModified", "CAPT_Info", "CSML:PProtB"})
        EXPECT_FALSE(Has(page, k)) << k;
    EXPECT_TRUE(Has(page, "Rotate"));
    EXPECT_TRUE(cap.Logged("\tRemoving Edit Data...\n"));

    // A null PieceInfo is not present: LastModified stays, nothing counts.
    CosObj other = Set(Page(), {{"PieceInfo", CosNewNull()}, {"LastModified", Str("D:2004")}});
    RemoveEditData(other, C());
    EXPECT_EQ(3, Stat("EditData_Removed"));
    EXPECT_TRUE(Has(other, "LastModified"));

    CosObj thumbed = Set(Page(), {{"Thumb", Stream("thumb")}, {"HDAG_Tools", Dict()}});
    RemoveThumbnail(thumbed, C());
    RemoveJobTicket(thumbed, C());
    RemoveThumbnail(thumbed, C());  // nothing left to count
    EXPECT_EQ(1, Stat("Thumbs_Removed"));
    EXPECT_EQ(1, Stat("JobTicket_Removed"));
    EXPECT_FALSE(Has(thumbed, "Thumb") || Has(thumbed, "HDAG_Tools"));
}

TEST_F(PageCleanupTest, FileAttachmentsGoWithTheirPopups) {
    CosObj page = Page();
    auto annot = [&](const char* subtype) { return Dict({{"Subtype", Name(subtype)}}, true); };
    CosObj first = annot("FileAttachment"), note = annot("Text");
    CosObj popup = Set(annot("Popup"), {{"Parent", first}}), notePopup = Set(annot("Popup"), {{"Parent", note}});
    CosObj annots = Arr({first, note, annot("FileAttachment"), popup, notePopup, annot("FileAttachment")});
    CosDictPut(page, A("Annots"), annots);
    RemoveFileAttachments(page, C());
    EXPECT_EQ(3, Stat("EmbeddedFiles_Removed"));
    ASSERT_EQ(2, CosArrayLength(annots));
    EXPECT_EQ(note, CosArrayGet(annots, 0));
    EXPECT_EQ(notePopup, CosArrayGet(annots, 1));

    // Annots of the wrong kind: a warning, nothing else.
    CosObj other = Set(Page(), {{"Annots", Int(7)}});
    RemoveFileAttachments(other, C());
    EXPECT_EQ(3, Stat("EmbeddedFiles_Removed"));
    EXPECT_TRUE(cap.Logged("Annots is not an array"));
}

// ---------------------------------------------------------------- page boxes

TEST_F(PageCleanupTest, ExtraBoxesEqualToTheMediaBoxGo) {
    // An all-zero ArtBox is not a box to compare.
    CosObj page = Set(Page(), {{"TrimBox", Array({0, 0, 612, 792})}, {"CropBox", Array({0, 0, 612.0, 792})},
                               {"BleedBox", Array({0, 0, 612, 792.001})}, {"ArtBox", Array({0, 0, 0, 0})}});
    RemoveExtraBoxes(page, C());
    EXPECT_EQ(2, Stat("ExtraBoxes_Removed"));
    EXPECT_FALSE(Has(page, "TrimBox") || Has(page, "CropBox"));
    EXPECT_TRUE(Has(page, "BleedBox") && Has(page, "ArtBox") && Has(page, "MediaBox"));
    EXPECT_EQ(0, Stat("PageBoxes_Optimized"));  // one page: nothing is inherited

    // A box of the wrong kind is named in a warning and left; the others go on.
    CosObj bad = Set(Page(), {{"CropBox", Array({0, 0, 612})}, {"TrimBox", Array({0, 0, 612, 792})}});
    RemoveExtraBoxes(bad, C());
    EXPECT_TRUE(Has(bad, "CropBox"));
    EXPECT_FALSE(Has(bad, "TrimBox"));
    EXPECT_TRUE(cap.Logged("the CropBox is not an array of four numbers"));

    // An all-zero box is no copy of a media box, even of an all-zero one.
    CosObj bare = Set(Page(false), {{"MediaBox", Array({0, 0, 0, 0})}, {"CropBox", Array({0, 0, 0, 0})},
                                    {"TrimBox", Array({0, 0, 10, 10})}});
    const ASInt32 before = Stat("ExtraBoxes_Removed");
    RemoveExtraBoxes(bare, C());
    EXPECT_EQ(before, Stat("ExtraBoxes_Removed"));
    EXPECT_TRUE(Has(bare, "CropBox"));
}

TEST_F(PageCleanupTest, MediaBoxInheritedFromAnEqualParent) {
    CosDictPut(pages, A("MediaBox"), Array({0, 0, 612, 792}));
    CosObj same = Page(), other = Set(Page(false), {{"MediaBox", Array({0, 0, 595, 842})}});
    RemoveExtraBoxes(same, C());
    RemoveExtraBoxes(other, C());
    EXPECT_EQ(1, Stat("PageBoxes_Optimized"));
    EXPECT_FALSE(Has(same, "MediaBox"));
    EXPECT_TRUE(Has(other, "MediaBox"));
    EXPECT_EQ(612, CosFixedValue(CosArrayGet(PDPageGetInheritedAttr(same, A("MediaBox")), 2)));
}

TEST_F(PageCleanupTest, EqualBoxesOfAllSiblingsMoveUpToTheParent) {
    CosObj a = Page(), b = Page();
    for (CosObj p : {a, b}) CosDictPut(p, A("CropBox"), Array({10, 10, 600, 780}));
    RemoveExtraBoxes(a, C());
    RemoveExtraBoxes(b, C());
    // Both media boxes and both crop boxes now come from the parent.
    EXPECT_EQ(4, Stat("PageBoxes_Optimized"));
    for (CosObj p : {a, b}) {
        EXPECT_FALSE(Has(p, "MediaBox") || Has(p, "CropBox"));
        EXPECT_EQ(780, CosFixedValue(CosArrayGet(PDPageGetInheritedAttr(p, A("CropBox")), 3)));
        EXPECT_EQ(792, CosFixedValue(CosArrayGet(PDPageGetInheritedAttr(p, A("MediaBox")), 3)));
    }
}

TEST_F(PageCleanupTest, BoxesStayWhenASiblingWouldInheritAnotherBox) {
    // The second page has no crop box of its own: moving the first page's
    // crop box up would crop it.
    CosObj a = Set(Page(), {{"CropBox", Array({10, 10, 600, 780})}}), b = Page();
    RemoveExtraBoxes(a, C());
    EXPECT_TRUE(Has(a, "CropBox"));
    EXPECT_FALSE(Has(pages, "CropBox"));
    // Media boxes were all equal, so that one did move.
    EXPECT_EQ(1, Stat("PageBoxes_Optimized"));
    EXPECT_TRUE(Has(pages, "MediaBox"));
    EXPECT_TRUE(Has(b, "MediaBox"));  // not yet visited
}

// ---------------------------------------------------------------- rotation, transitions

TEST_F(PageCleanupTest, RotationZeroIsRemovedOnlyWhenItIsAnIntegerZero) {
    CosObj zero = Set(Page(), {{"Rotate", Int(0)}}), ninety = Set(Page(), {{"Rotate", Int(90)}});
    CosObj real = Set(Page(), {{"Rotate", CosNewFixed(doc, false, 0.25)}}), name = Set(Page(), {{"Rotate", Name("Zero")}});
    for (CosObj p : {zero, ninety, real}) AdjustRotation(p, C());
    EXPECT_EQ(1, Stat("Rotations_Removed"));
    EXPECT_FALSE(Has(zero, "Rotate"));
    EXPECT_EQ(90, CosDictGetInt(ninety, A("Rotate"), 0));
    EXPECT_TRUE(Has(real, "Rotate"));
    EXPECT_THROW(AdjustRotation(name, C()), CVellumError);

    prefs.Viewing().rotate = -90;
    AdjustRotation(zero, C());
    EXPECT_EQ(270, CosDictGetInt(zero, A("Rotate"), 0));
    EXPECT_EQ(1, Stat("Rotations_Added"));
    prefs.Viewing().rotate = 45;
    AdjustRotation(ninety, C());
    EXPECT_EQ(90, CosDictGetInt(ninety, A("Rotate"), 0));
    EXPECT_EQ(1, Stat("Rotations_Added"));
}

TEST_F(PageCleanupTest, TransitionFromTheSettings) {
    CosObj page = Page();
    AddTransition(page, C());  // the default style is None
    EXPECT_FALSE(Has(page, "Trans"));
    TransitionSettings& t = prefs.Viewing().transition;
    t.name = A("Wipe");
    t.direction = 270;
    t.transDuration = 2;
    t.pageDuration = 5;
    AddTransition(page, C());
    CosObj trans = CosDictGet(page, A("Trans"));
    ASSERT_EQ(kCosDict, CosObjGetType(trans));
    EXPECT_EQ(A("Wipe"), CosDictGetName(trans, A("S")));
    EXPECT_EQ(270, CosDictGetInt(trans, A("Di"), 0));
    EXPECT_EQ(2, CosDictGetInt(trans, A("D"), 0));
    EXPECT_FALSE(Has(trans, "Dm"));  // Wipe has no dimension
    EXPECT_EQ(5, CosDictGetInt(page, A("Dur"), 0));
    EXPECT_EQ(1, Stat("Transitions_Added"));
}

// ---------------------------------------------------------------- content streams

TEST_F(PageCleanupTest, ContentArraysAreJoinedWithALineEndBetweenStreams) {
    CosObj page = Page();
    CosObj flate = Stream("");
    CosStreamSetDecodedData(flate, B("0 0 10 10 re f"), 6);
    // The null is skipped, as viewers skip it.
    CosDictPut(page, cosnames::Contents, Arr({Stream("q 1 0 0 1 0 0 cm"), flate, CosNewNull(), Stream("Q")}));
    CombineContentStreams(page, C());
    CosObj joined = CosDictGet(page, cosnames::Contents);
    ASSERT_EQ(kCosStream, CosObjGetType(joined));
    EXPECT_EQ("q 1 0 0 1 0 0 cm\n0 0 10 10 re f\nQ", Decoded(joined));
    EXPECT_EQ(3, Stat("ContentStreams_Total"));
    EXPECT_EQ(1, Stat("ContentStreams_Combined"));
    CombineContentStreams(page, C());  // a single stream counts once too
    EXPECT_EQ(4, Stat("ContentStreams_Total"));
    EXPECT_EQ(2, Stat("ContentStreams_Combined"));
}

TEST_F(PageCleanupTest, StreamsThatOtherPagesDrawAreNotCopiedIntoEachPage) {
    CosObj background = Stream("0.9 g 0 0 612 792 re f");
    std::vector<CosObj> arrays;
    for (int i = 0; i < 2; ++i) {
        arrays.push_back(Arr({background, Stream("BT ET")}));
        CosDictPut(Page(), cosnames::Contents, arrays.back());
    }
    CosObj own = Set(Page(), {{"Contents", Arr({Stream("q"), Stream("Q")})}});
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
    CosObj page = Page();
    const std::string junk = "this is not deflated";
    CosObj broken = Stream(B(junk), "FlateDecode");
    CosObj contents = Arr({Stream("0 0 10 10 re f"), broken});
    CosDictPut(page, cosnames::Contents, contents);
    CombineContentStreams(page, C());
    EXPECT_EQ(contents, CosDictGet(page, cosnames::Contents));
    EXPECT_EQ(1, Stat("ContentStreams_Combined"));

    CosDictPut(page, cosnames::Contents, broken);
    ProcessContentStreams(page, C());
    EXPECT_EQ(junk.size(), CosStreamEncodedLength(broken));
    EXPECT_EQ(0, Stat("ContentStreams_Compressed"));
    EXPECT_TRUE(cap.Logged("does not decode completely"));
}

TEST_F(PageCleanupTest, ContentIsRewrittenAndCompressedOnlyWhenSmaller) {
    CosObj page = Page();
    std::string text;
    for (int i = 0; i < 40; ++i) text += "0.50   0   0   rg\r\n% a comment\n" + std::to_string(i) + "  0  10  10  re  F\n";
    CosObj s = Stream(text);
    CosDictPut(page, cosnames::Contents, s);
    ProcessContentStreams(page, C());
    EXPECT_EQ(1, Stat("ContentStreams_Compressed"));
    EXPECT_EQ(1, Stat("ContentStreams_Optimized"));
    EXPECT_EQ(A("FlateDecode"), CosDictGetName(s, A("Filter")));
    const std::string out = Decoded(s);
    EXPECT_EQ(0u, out.rfind("0.50 0 0 rg 0 0 10 10 re f ", 0)) << out;
    EXPECT_EQ(std::string::npos, out.find("comment"));

    // A second run finds nothing smaller to store.
    ProcessContentStreams(page, C());
    EXPECT_EQ(1, Stat("ContentStreams_Compressed"));

    // Damaged content is stored compressed but not rewritten.
    std::string damaged = text + "(unterminated";
    CosObj d = Stream(damaged);
    CosDictPut(page, cosnames::Contents, d);
    ProcessContentStreams(page, C());
    EXPECT_EQ(2, Stat("ContentStreams_Compressed"));
    EXPECT_EQ(1, Stat("ContentStreams_Optimized"));
    EXPECT_EQ(damaged, Decoded(d));
}

// ---------------------------------------------------------------- resources

class PageResourcesTest : public PageCleanupTest {
protected:
    void CleanAll() {
        for (ASInt32 i = 0; i < PDDocGetNumPages(pd); ++i) {
            RunContext ctx = Ctx(i);
            CleanUpPageResources(PDDocGetPageObj(pd, i), ctx);
        }
    }
};

TEST_F(PageResourcesTest, InheritedResourcesKeepWhatAnyPageUses) {
    CosObj fonts = Dict(), res = Dict({{"Font", fonts}, {"ProcSet", Names({"PDF"})}}, true);
    CosDictPut(pages, A("Resources"), res);
    for (const char* n : {"F1", "F2", "F3", "F4"}) CosDictPut(fonts, A(n), Font(n));
    CosDictPut(Sub(res, "XObject"), A("Fm"), Form("BT /F4 9 Tf ET"));  // no resources: the page's
    CosDictPut(Sub(res, "ExtGState"), A("GS0"), Dict());
    Set(Page(), {{"Contents", Stream("BT /F1 12 Tf (a) Tj ET /Fm Do")}});
    Set(Page(), {{"Contents", Stream("BT /F2 12 Tf (b) Tj ET")}});
    CleanAll();
    EXPECT_TRUE(Has(fonts, "F1") && Has(fonts, "F2") && Has(fonts, "F4"));
    EXPECT_FALSE(Has(fonts, "F3"));
    EXPECT_EQ(1, Stat("Unreferenced_Fonts_Removed"));
    EXPECT_FALSE(Has(res, "ExtGState"));  // emptied, so gone
    EXPECT_TRUE(Has(res, "XObject"));
    EXPECT_FALSE(Has(res, "ProcSet"));
    EXPECT_TRUE(cap.Logged("\tCleaning up Page Resources...\n"));
}

TEST_F(PageResourcesTest, ASharedCategoryDictionaryKeepsTheUnionOfItsUsers) {
    // Two pages with resource dictionaries of their own that share one Font
    // dictionary; an annotation appearance and a tiling pattern name fonts
    // of the same dictionary through resources of their own.
    CosObj shared = Dict(true);
    for (const char* n : {"F1", "F2", "F3", "F4", "F5"}) CosDictPut(shared, A(n), Font(n));
    auto fonts = [&] { return Dict({{"Font", shared}}); };
    CosObj a = Page(), b = Page();
    Set(a, {{"Resources", fonts()}, {"Contents", Stream("BT /F1 12 Tf ET")}});
    Set(b, {{"Resources", fonts()}, {"Contents", Stream("/P0 scn 0 0 5 5 re f")}});
    Put(b, "Pattern", "P0", Stream("BT /F2 1 Tf ET", Dict({{"PatternType", Int(1)}, {"Resources", fonts()}})));
    CosObj ap = Set(Form("BT /F3 8 Tf ET"), {{"Resources", fonts()}});
    CosObj annot = Dict({{"Subtype", Name("FreeText")}, {"Rect", Array({0, 0, 10, 10})}, {"AP", Dict({{"N", ap}})}}, true);
    CosDictPut(b, A("Annots"), Arr({annot}));
    CleanAll();
    EXPECT_TRUE(Has(shared, "F1") && Has(shared, "F2") && Has(shared, "F3"));
    EXPECT_FALSE(Has(shared, "F4") || Has(shared, "F5"));
    EXPECT_EQ(2, Stat("Unreferenced_Fonts_Removed"));
}

TEST_F(PageResourcesTest, UnreadableContentKeepsItsDictionaryWhole) {
    CosObj page = Page();
    CosObj fonts = Dict(true);  // indirect: it outlives its removal from the resources
    Set(page, {{"Resources", Dict({{"Font", fonts}})}, {"Contents", Stream("/Fm Do")}});
    for (const char* n : {"F1", "F2"}) CosDictPut(fonts, A(n), Font(n));
    CosObj bad = Set(Form("BT /F2 1 Tf ET, not deflated"), {{"Filter", Name("FlateDecode")}});
    Put(page, "XObject", "Fm", bad);
    CleanAll();
    EXPECT_TRUE(Has(fonts, "F1") && Has(fonts, "F2"));
    EXPECT_EQ(0, Stat("Unreferenced_Fonts_Removed"));

    // A form whose data is cut short: the part that decodes names F1 only,
    // but what is lost may name F2.
    std::string text = "BT /F1 1 Tf ET ";
    for (int i = 0; i < 3000; ++i) text += std::to_string(i * 7919 % 10007) + " ";
    text += "pop BT /F2 1 Tf ET";
    Bytes packed = filters::FlateEncode(B(text), 6);
    packed.resize(packed.size() / 2);
    CosObj cut = Set(Form(""), {{"Filter", Name("FlateDecode")}});
    CosStreamSetEncodedData(cut, packed);
    Put(page, "XObject", "Fm", cut);
    CleanAll();
    EXPECT_TRUE(Has(fonts, "F2"));

    // Damaged page content: the same.
    Put(page, "XObject", "Fm", Form(""));
    CosDictPut(page, cosnames::Contents, Stream("/Fm Do BT /F1 1 Tf (cut"));
    CleanAll();
    EXPECT_TRUE(Has(fonts, "F2"));
    // Readable again: F2 goes.
    CosDictPut(page, cosnames::Contents, Stream("/Fm Do BT /F1 1 Tf (whole) Tj ET"));
    CleanAll();
    EXPECT_TRUE(Has(fonts, "F1"));
    EXPECT_FALSE(Has(fonts, "F2"));
}

TEST_F(PageResourcesTest, OverfullOperatorsAndFormResourcesAreKept) {
    CosObj fonts = Dict(true);
    for (const char* n : {"F1", "F2", "F3"}) CosDictPut(fonts, A(n), Font(n));
    // Viewers read the last operands of an overfull Tf.
    Set(Page(), {{"Resources", Dict({{"Font", fonts}})}, {"Contents", Stream("BT /F1 /F2 12 Tf (x) Tj ET")}});
    // The interactive form's default resources are the page's own.
    CosDictPut(cat, A("AcroForm"), Dict({{"DR", Dict({{"Font", fonts}}, true)}}));
    CleanAll();
    EXPECT_EQ(3, CosDictCount(fonts));
    CosDictRemove(cat, A("AcroForm"));
    CleanAll();
    EXPECT_TRUE(Has(fonts, "F2"));
    EXPECT_FALSE(Has(fonts, "F3"));
}

TEST_F(PageResourcesTest, ColourSpacesNamedByOtherResourcesAreKept) {
    CosObj page = Set(Page(), {{"Contents", Stream("/CS0 cs 0 sc 0 0 1 1 re f /Im0 Do")}});
    CosObj indexed = Arr({Name("Indexed"), Name("Base"), Int(0), Str(std::string("\0\0\0", 3))});
    CosObj spaces = Set(Res(page, "ColorSpace"), {{"CS0", indexed}, {"Base", Names({"CalRGB"})},
                                                  {"ForImage", Names({"CalGray"})}, {"Unused", Names({"CalGray"})}});
    Put(page, "XObject", "Im0", Stream("x", Dict({{"Subtype", Name("Image")}, {"ColorSpace", Name("ForImage")}})));
    CleanAll();
    EXPECT_TRUE(Has(spaces, "CS0") && Has(spaces, "Base") && Has(spaces, "ForImage"));
    EXPECT_FALSE(Has(spaces, "Unused"));
}

TEST_F(PageResourcesTest, APageIsGatheredAgainBeforeItsOwnCleanUp) {
    // Page 2 draws a new resource after the loop began (as flattening
    // does): the entry it now names must survive its clean-up.
    CosObj a = AddPage(""), b = AddPage("BT /F1 12 Tf ET");
    CosObj fonts = Set(Res(b, "Font"), {{"F1", Font("F1")}});
    RunContext first = Ctx(0);
    CleanUpPageResources(a, first);
    CosDictPut(fonts, A("TMRFont1"), Font("Added"));
    CosDictPut(b, cosnames::Contents, Stream("BT /F1 12 Tf ET BT /TMRFont1 9 Tf ET"));
    RunContext second = Ctx(1);
    CleanUpPageResources(b, second);
    EXPECT_TRUE(Has(fonts, "F1") && Has(fonts, "TMRFont1"));
    EXPECT_EQ(0, Stat("Unreferenced_Fonts_Removed"));
}

// ---------------------------------------------------------------- annotations

class AnnotCleanupTest : public PageCleanupTest {
protected:
    CosObj Annot(CosObj annots, const char* subtype, std::initializer_list<double> rect = {0, 0, 10, 10}) {
        CosObj a = Dict({{"Subtype", Name(subtype)}, {"Rect", Array(rect)}}, true);
        CosArrayAppend(annots, a);
        return a;
    }
};

TEST_F(AnnotCleanupTest, BordersAndEmptyArrays) {
    CosObj page = Page();
    CosObj annots = Arr({});
    CosObj styled = Set(Annot(annots, "Square"), {{"BS", Dict()}, {"Border", Array({0, 0, 2})}});
    CosObj withAp = Set(Annot(annots, "Stamp"), {{"Border", Array({0, 0, 1})}, {"AP", Dict({{"N", Stream("")}})}});
    CosObj noAp = Set(Annot(annots, "Square"), {{"Border", Array({0, 0, 1})}});
    CosObj invisible = Set(Annot(annots, "Square"), {{"Border", Array({0, 0, 0})}});
    CosObj border = Array({0, 0, 3});
    CosArrayAppend(border, Arr({}));
    CosObj dashed = Set(Annot(annots, "Square"), {{"Border", border}});
    // Text annotations do not read BS.
    CosObj stamp = Set(Annot(annots, "Text"), {{"BS", Dict()}, {"Border", Array({0, 0, 2})}});
    CosDictPut(page, A("Annots"), annots);
    CleanUpAnnotations(page, C());
    EXPECT_EQ(3, Stat("Annots_Cleaned"));
    EXPECT_FALSE(Has(styled, "Border") || Has(withAp, "Border"));
    EXPECT_TRUE(Has(noAp, "Border") && Has(invisible, "Border"));
    EXPECT_EQ(3, CosArrayLength(CosDictGet(dashed, A("Border"))));
    EXPECT_TRUE(Has(stamp, "Border"));
    EXPECT_EQ(0, Stat("Empty_Annots_Removed"));

    CosObj empty = Set(Page(), {{"Annots", Arr({CosNewNull()})}});
    CleanUpAnnotations(empty, C());
    EXPECT_FALSE(Has(empty, "Annots"));
    EXPECT_EQ(1, Stat("Empty_Annots_Removed"));
}

TEST_F(AnnotCleanupTest, LinksLoseIsMapAndDuplicates) {
    CosObj page = Page();
    CosObj annots = Arr({});
    auto uri = [&](CosObj link, bool isMap) {
        CosObj act = Dict({{"S", Name("URI")}, {"URI", Str("http://example.org/")}, {"IsMap", Bool(isMap)}});
        CosDictPut(link, A("A"), act);
        return act;
    };
    CosObj plainAction = uri(Annot(annots, "Link"), false);
    CosObj mapAction = uri(Annot(annots, "Link", {20, 0, 30, 10}), true);
    CosObj copy = Set(Annot(annots, "Link"), {{"P", page}});  // same area, same action
    uri(copy, false);
    uri(Annot(annots, "Link", {0, 20, 10, 30}), false);
    for (int i = 0; i < 2; ++i)  // tied into the structure tree: both stay
        Set(Annot(annots, "Link", {50, 50, 60, 60}), {{"StructParent", Int(3)}});
    CosDictPut(page, A("Annots"), annots);
    CleanUpAnnotations(page, C());
    EXPECT_EQ(6, Stat("LinkAnnots_Total"));
    EXPECT_EQ(1, Stat("LinkAnnots_Duplicates"));
    EXPECT_EQ(3, Stat("LinkAnnots_Cleaned"));  // the three IsMap false
    EXPECT_EQ(5, CosArrayLength(annots));
    EXPECT_FALSE(Has(plainAction, "IsMap"));
    EXPECT_TRUE(Has(mapAction, "IsMap"));
    for (ASInt32 i = 0; i < CosArrayLength(annots); ++i) EXPECT_NE(copy, CosArrayGet(annots, i));

    const std::string report = Report();
    EXPECT_NE(std::string::npos, report.find("   Found 1 duplicate Link Annotation out of 6 total\n")) << report;
    EXPECT_NE(std::string::npos, report.find("   Cleaned up 3 Annotations\n")) << report;
}

// The standard operations in the post-layout loop: their order, their log
// lines and the report they lead to.
TEST_F(PageCleanupTest, StandardLoopRunsTheStepsInOrder) {
    Set(Page(), {{"Thumb", Stream("thumb")},
                 {"Rotate", Int(0)},
                 {"Contents", Arr({Stream("q 1 0 0 1 0 0 cm"), Stream("Q")})}});
    Page();

    OperationRegistry reg;
    RegisterStandardOperations(reg);
    EXPECT_EQ(0, RunPageLoop(reg.PageOperations(PagePhase::PostLayout, prefs), C()));
    const std::string log = cap.All();
    const char* const lines[] = {
        "Processing Page 1\n",           "\tRemoving Edit Data...\n",         "\tRemoving Page Thumbnail...\n",
        "\tRemoving Job Ticket Data...\n", "\tRemoving embedded files...\n",    "\tRemoving Extra Page Boxes...\n",
        "\tCleaning up Annotations...\n", "\tAdjusting Rotation...\n",         "\tCombining Content Streams\n",
        "\tCleaning up Page Resources...\n", "\tRecompressing XObjects...\n", "\tProcessing Content Streams...\n",
        "Processing Page 2\n"};
    size_t at = 0;
    for (const char* line : lines) {
        size_t found = log.find(line, at);
        ASSERT_NE(std::string::npos, found) << line << " after offset " << at << " in\n" << log;
        at = found + 1;
    }
    EXPECT_EQ(std::string::npos, log.find("\tAdding Transition...\n"));

    const std::string report = Report();
    for (const char* line : {"   Removed 1 unnecessary Thumbnail\n", "   Removed 1 unnecessary Rotation\n",
                             "   Optimized 2 Page Boxes\n",
                             "   Combined 2 Content Stream into 1, optimizing 0 & compressing 0\n"})
        EXPECT_NE(std::string::npos, report.find(line)) << line << report;
}

}  // namespace
