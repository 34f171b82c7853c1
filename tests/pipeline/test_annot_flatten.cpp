// Flattening and removing annotations and form fields on documents built
// here: where appearances land, which annotations are drawn, what is
// counted, and what bad input leaves behind.
#include <algorithm>

#include "content/PageAppend.h"
#include "pipeline/AnnotFlatten.h"
#include "pipeline_fixture.h"

namespace {

using namespace pipetest;
using pipeline::AnnotAction;
using pipeline::FlattenPageAnnotations;

// ------------------------------------------------------------ placement

// The appearance box, through Matrix and then the fit, must land exactly
// on the annotation's rectangle whatever the rotation or scale.
TEST(AppearanceFit, TransformedBoxLandsOnTheRectangle) {
    const double bbox[4] = {-5, 10, 95, 60};
    const double rect[4] = {100, 200, 160, 320};
    const ContentMatrix matrices[] = {
        {1, 0, 0, 1, 0, 0},  {0, 1, -1, 0, 0, 0},  {-1, 0, 0, -1, 7, 3}, {0, -1, 1, 0, 0, 0},
        {2, 0, 0, 0.5, 3, 4}, {1, 0.5, 0, 1, 0, 0},
    };
    for (const ContentMatrix& m : matrices) {
        ContentMatrix fit = AppearanceFit(bbox, m, rect);
        ContentMatrix all = m.Times(fit);
        double lo[2] = {1e9, 1e9}, hi[2] = {-1e9, -1e9};
        for (double x : {bbox[0], bbox[2]})
            for (double y : {bbox[1], bbox[3]}) {
                double ox, oy;
                all.Apply(x, y, ox, oy);
                lo[0] = std::min(lo[0], ox), lo[1] = std::min(lo[1], oy);
                hi[0] = std::max(hi[0], ox), hi[1] = std::max(hi[1], oy);
            }
        EXPECT_NEAR(lo[0], rect[0], 1e-9);
        EXPECT_NEAR(lo[1], rect[1], 1e-9);
        EXPECT_NEAR(hi[0], rect[2], 1e-9);
        EXPECT_NEAR(hi[1], rect[3], 1e-9);
    }
}

TEST(AppearanceFit, RotatedAndScaledBoxesGiveTheViewersMatrix) {
    // Rotated a quarter turn: the 100 x 50 box stands 50 wide and 100 high
    // at x -50..0, and is doubled onto a 100 x 200 rectangle.
    const double bbox[4] = {0, 0, 100, 50};
    const double rect[4] = {10, 20, 110, 220};
    EXPECT_EQ(MatrixText(AppearanceFit(bbox, {0, 1, -1, 0, 0, 0}, rect)), "2 0 0 2 110 20");
    // A box away from the origin is moved as well as scaled.
    const double off[4] = {10, 10, 30, 20};
    const double r2[4] = {100, 100, 140, 120};
    EXPECT_EQ(MatrixText(AppearanceFit(off, {}, r2)), "2 0 0 2 80 80");
    // A box without height is only moved in that direction.
    const double flat[4] = {0, 5, 10, 5};
    EXPECT_EQ(MatrixText(AppearanceFit(flat, {}, r2)), "4 0 0 1 100 95");
}

// ------------------------------------------------------------ flattening

class AnnotFlattenTest : public DocTest {
protected:
    CosObj Annot(CosObj page, const char* subtype, std::initializer_list<double> rect = {0, 0, 1, 1}) {
        CosObj a = Dict({{"Type", Name("Annot")}, {"Subtype", Name(subtype)}}, true);
        if (rect.size()) CosDictPut(a, A("Rect"), Array(rect));
        if (!Has(page, "Annots")) CosDictPut(page, A("Annots"), Arr({}));
        CosArrayAppend(CosDictGet(page, A("Annots")), a);
        return a;
    }
    CosObj SetAppearance(CosObj annot, CosObj form) { return Set(annot, {{"AP", Dict({{"N", form}})}}); }
    ASInt32 AnnotCount(CosObj page) { return CosArrayLength(CosDictGet(page, A("Annots"))); }
    // The resource name the flattened content draws `obj` under.
    std::string NameOf(CosObj page, CosObj obj) {
        CosObj xo = Res(page, "XObject");
        for (ASInt32 i = 0; i < CosDictCount(xo); ++i)
            if (CosObjEqual(CosDictValueAt(xo, i), obj)) return ASAtomGetString(CosDictKeyAt(xo, i));
        return "";
    }
    pipeline::AnnotFlattenCounts Flatten(CosObj page, AnnotAction annots = AnnotAction::Flatten,
                                         AnnotAction widgets = AnnotAction::Flatten) {
        return FlattenPageAnnotations(page, annots, widgets, C());
    }
};

TEST_F(AnnotFlattenTest, AppearanceIsDrawnAfterThePageStateIsClosed) {
    CosObj page = AddPage("1 0 0 1 50 50 cm 0 0 1 rg");
    CosObj form = Form("0 0 20 10 re f", {0, 0, 20, 10}, {0, 1, -1, 0, 0, 0});
    SetAppearance(Annot(page, "Square", {100, 100, 110, 120}), form);
    auto c = Flatten(page);
    EXPECT_EQ(c.annotsFlattened, 1);
    EXPECT_EQ(AnnotCount(page), 0);
    EXPECT_EQ(Stat("Annots_Total"), 1);
    EXPECT_EQ(Stat("Annots_Flattened"), 1);
    EXPECT_EQ(Stat("Annots_Removed"), 0);
    // The rotated 20 x 10 box stands 10 wide at x -10..0 and fits the
    // 10 x 20 rectangle unscaled.
    EXPECT_EQ(Content(page), "q \n1 0 0 1 50 50 cm 0 0 1 rg\n\nQ q 1 0 0 1 110 100 cm /TMRAnnot1 Do Q ");
    EXPECT_EQ(NameOf(page, form), "TMRAnnot1");
    // The original stream is kept as it was, between the two new ones.
    EXPECT_EQ(CosArrayLength(CosDictGet(page, cosnames::Contents)), 3);
}

TEST_F(AnnotFlattenTest, StateSelectedByASIsTheOneDrawn) {
    CosObj page = AddPage("");
    CosDictRemove(page, cosnames::Contents);
    CosObj on = Form("0 g 0 0 5 5 re f", {0, 0, 5, 5});
    CosObj off = Form("", {0, 0, 5, 5});
    CosObj a = Annot(page, "Widget", {0, 0, 5, 5});
    CosObj ap = Dict({{"N", Dict({{"On", on}, {"Off", off}})}});
    CosDictPut(a, A("AP"), ap);
    CosDictPut(a, A("AS"), Name("On"));
    Flatten(page);
    EXPECT_EQ(NameOf(page, on), "TMRAnnot1");
    EXPECT_EQ(NameOf(page, off), "");
    // A page without content gets the drawing alone.
    EXPECT_EQ(Content(page), "q 1 0 0 1 0 0 cm /TMRAnnot1 Do Q ");

    // Without AS a dictionary of states draws nothing.
    CosObj page2 = AddPage("");
    Set(Annot(page2, "Widget", {0, 0, 5, 5}), {{"AP", CosObjCopy(ap, doc, false)}});
    auto c = Flatten(page2);
    EXPECT_EQ(c.widgetsRemoved, 1);
    EXPECT_EQ(Content(page2), "");
}

TEST_F(AnnotFlattenTest, HiddenNoViewAndInvisibleUnknownTypesAreRemovedUndrawn) {
    CosObj page = AddPage("0 g");
    CosObj form = Form("0 0 1 1 re f");
    struct Case {
        const char* subtype;
        int flags;
    } cases[] = {{"Square", 2}, {"Square", 32}, {"MadeUpType", 1}};
    for (const Case& k : cases) {
        CosObj a = SetAppearance(Annot(page, k.subtype), form);
        CosDictPutInteger(a, A("F"), k.flags);
    }
    // Invisible alone does not hide a standard type; Print does not matter.
    CosObj shown = SetAppearance(Annot(page, "Circle"), form);
    CosDictPutInteger(shown, A("F"), 1 | 4);
    auto c = Flatten(page);
    EXPECT_EQ(c.annotsTotal, 4);
    EXPECT_EQ(c.annotsRemoved, 3);
    EXPECT_EQ(c.annotsFlattened, 1);
    EXPECT_EQ(AnnotCount(page), 0);
    std::string content = Content(page);
    EXPECT_EQ(std::count(content.begin(), content.end(), 'D'), 1) << content;  // one Do
}

TEST_F(AnnotFlattenTest, PopupsGoWithTheirParentsAndRemoveDrawsNothing) {
    CosObj page = AddPage("0 g");
    CosObj text = SetAppearance(Annot(page, "Text", {10, 10, 30, 30}), Form("0 0 1 1 re f"));
    CosObj popup = Set(Annot(page, "Popup", {40, 40, 200, 100}), {{"Parent", text}});
    CosDictPut(text, A("Popup"), popup);
    auto c = Flatten(page, AnnotAction::Remove, AnnotAction::Keep);
    EXPECT_EQ(c.annotsTotal, 2);
    EXPECT_EQ(c.annotsRemoved, 2);
    EXPECT_EQ(AnnotCount(page), 0);
    EXPECT_EQ(Content(page), "0 g");  // Remove leaves the content alone
    EXPECT_EQ(Stat("Annots_Flattened"), 0);

    // Annotations kept, widgets flattened: the popup of a widget goes with
    // it, other popups and annotations stay and are not counted.
    CosObj page2 = AddPage("");
    CosObj widget = SetAppearance(Annot(page2, "Widget", {0, 0, 10, 10}), Form("", {0, 0, 10, 10}));
    Set(Annot(page2, "Popup", {0, 0, 10, 10}), {{"Parent", widget}});
    CosObj note = Annot(page2, "Text", {0, 0, 10, 10});
    CosObj npopup = Set(Annot(page2, "Popup", {0, 0, 10, 10}), {{"Parent", note}});
    auto c2 = Flatten(page2, AnnotAction::Keep, AnnotAction::Flatten);
    EXPECT_EQ(c2.annotsTotal, 0);
    EXPECT_EQ(c2.widgetsFlattened, 1);
    CosObj left = CosDictGet(page2, A("Annots"));
    ASSERT_EQ(CosArrayLength(left), 2);
    EXPECT_TRUE(CosObjEqual(CosArrayGet(left, 0), note));
    EXPECT_TRUE(CosObjEqual(CosArrayGet(left, 1), npopup));
}

TEST_F(AnnotFlattenTest, FormFieldsCountOnceWhateverTheirWidgets) {
    CosObj page = AddPage("");
    // A radio group: one field, two widgets as its kids.
    CosObj kids = Arr({}), field = Dict({{"T", Str("choice")}, {"Kids", kids}}, true);
    for (int i = 0; i < 2; ++i) {
        CosObj w = Set(Annot(page, "Widget", {double(i * 20), 0, double(i * 20 + 10), 10}), {{"Parent", field}});
        CosArrayAppend(kids, w);
        SetAppearance(w, Form("", {0, 0, 10, 10}));
    }
    // A field and widget in one dictionary, drawn.
    SetAppearance(Set(Annot(page, "Widget", {50, 0, 60, 10}), {{"T", Str("name")}}), Form("", {0, 0, 10, 10}));
    // A field whose one widget has no appearance: removed, not drawn.
    CosObj bare = Set(Annot(page, "Widget", {70, 0, 80, 10}), {{"T", Str("empty")}});
    pipeline::FieldTally tally;
    auto ctx = Ctx();
    auto c = FlattenPageAnnotations(page, AnnotAction::Keep, AnnotAction::Flatten, ctx, &tally);
    EXPECT_EQ(c.widgetsTotal, 3);
    EXPECT_EQ(c.widgetsFlattened, 2);
    EXPECT_EQ(c.widgetsRemoved, 1);
    EXPECT_EQ(Stat("AcroForms_Total"), 3);
    EXPECT_EQ(Stat("AcroForms_Flattened"), 2);
    EXPECT_EQ(Stat("AcroForms_Removed"), 1);
    EXPECT_EQ(Stat("Annots_Total"), 0);

    // The same field's widget on a later page counts no more; a field first
    // seen removed counts as flattened once a widget of it is drawn.
    CosObj page2 = AddPage("");
    SetAppearance(Set(Annot(page2, "Widget", {0, 0, 10, 10}), {{"Parent", field}}), Form("", {0, 0, 10, 10}));
    SetAppearance(Set(Annot(page2, "Widget", {0, 0, 10, 10}), {{"Parent", bare}}), Form("", {0, 0, 10, 10}));
    auto ctx2 = Ctx(1);
    FlattenPageAnnotations(page2, AnnotAction::Keep, AnnotAction::Flatten, ctx2, &tally);
    EXPECT_EQ(Stat("AcroForms_Total"), 3);
    EXPECT_EQ(Stat("AcroForms_Flattened"), 3);
    EXPECT_EQ(Stat("AcroForms_Removed"), 0);

    // A field without appearance in a form that asks viewers to make one
    // is removed and reported (and only then).
    EXPECT_FALSE(cap.Logged("asks viewers to make one"));
    CosDictPut(cat, A("AcroForm"), Dict({{"NeedAppearances", Bool(true)}}, true));
    CosObj page3 = AddPage("");
    Set(Annot(page3, "Widget", {0, 0, 10, 10}), {{"T", Str("text")}});
    EXPECT_EQ(Flatten(page3).widgetsRemoved, 1);
    EXPECT_TRUE(cap.Logged("asks viewers to make one"));
}

TEST_F(AnnotFlattenTest, BadAnnotationsAreLeftInPlaceAndTheRestFlattened) {
    CosObj page = AddPage("");
    CosObj noRect = SetAppearance(Annot(page, "Square", {}), Form(""));
    CosObj badBox = Annot(page, "Square");
    CosObj box = Form("");
    CosDictPut(box, cosnames::BBox, Name("Nonsense"));
    SetAppearance(badBox, box);
    CosObj badData = Annot(page, "Square");
    CosObj broken = Set(Form("this is no flate data"), {{"Filter", Name("FlateDecode")}});
    SetAppearance(badData, broken);
    CosArrayAppend(CosDictGet(page, A("Annots")), Int(7));
    SetAppearance(Annot(page, "Square"), Form("0 0 1 1 re f"));

    auto c = Flatten(page);
    EXPECT_EQ(c.annotsTotal, 4);
    EXPECT_EQ(c.annotsFlattened, 1);
    EXPECT_EQ(c.annotsRemoved, 0);
    CosObj left = CosDictGet(page, A("Annots"));
    ASSERT_EQ(CosArrayLength(left), 4);
    EXPECT_TRUE(CosObjEqual(CosArrayGet(left, 0), noRect));
    EXPECT_TRUE(CosObjEqual(CosArrayGet(left, 1), badBox));
    EXPECT_TRUE(CosObjEqual(CosArrayGet(left, 2), badData));
    for (const char* text : {"no usable Rect", "no usable BBox", "cannot be read", "not a dictionary"})
        EXPECT_TRUE(cap.Logged(text)) << text;

    // Annots of the wrong kind: a warning, nothing else.
    CosObj page2 = Set(AddPage("0 g"), {{"Annots", Name("Oops")}});
    auto c2 = Flatten(page2);
    EXPECT_EQ(c2.annotsTotal, 0);
    EXPECT_EQ(Content(page2), "0 g");
    EXPECT_TRUE(cap.Logged("not an array"));
}

TEST_F(AnnotFlattenTest, UnbalancedOrUnreadableContentCannotUndoTheWrapping) {
    CosObj page = AddPage("Q Q q 1 0 0 1 5 5 cm BT /F1 1 Tf");
    SetAppearance(Annot(page, "Square"), Form(""));
    Flatten(page);
    // Three q: one per stray Q and one of our own; the text object is
    // closed and the two states left open are restored.
    EXPECT_EQ(Content(page),
              "q q q \nQ Q q 1 0 0 1 5 5 cm BT /F1 1 Tf\n\nET Q Q q 1 0 0 1 0 0 cm /TMRAnnot1 Do Q ");

    // Content that cannot be decoded is kept as it is, between the wrapping.
    CosObj page2 = AddPage("");
    CosObj broken = Set(CosDictGet(page2, cosnames::Contents), {{"Filter", Name("FlateDecode")}});
    SetAppearance(Annot(page2, "Square"), Form(""));
    Flatten(page2);
    CosObj contents = CosDictGet(page2, cosnames::Contents);
    ASSERT_EQ(CosObjGetType(contents), kCosArray);
    ASSERT_EQ(CosArrayLength(contents), 3);
    EXPECT_TRUE(CosObjEqual(CosArrayGet(contents, 1), broken));
}

TEST_F(AnnotFlattenTest, SharedOrInheritedResourcesAreCopiedBeforeTheyChange) {
    // Both pages inherit the page tree's resources.
    CosObj logo = Form("");
    CosObj xo = Dict({{"Logo", logo}}, true), inherited = Dict({{"XObject", xo}}, true);
    CosDictPut(pages, cosnames::Resources, inherited);
    CosObj p1 = AddPage("/Logo Do", false);
    CosObj p2 = AddPage("/Logo Do", false);
    CosObj ap = Form("");
    SetAppearance(Annot(p1, "Square"), ap);
    // The same appearance twice on the page is entered once.
    SetAppearance(Annot(p1, "Square", {0, 0, 2, 2}), ap);
    Flatten(p1);
    CosObj own = CosDictGet(p1, cosnames::Resources);
    ASSERT_EQ(CosObjGetType(own), kCosDict);
    EXPECT_FALSE(CosObjEqual(own, inherited));
    CosObj ownXo = CosDictGet(own, A("XObject"));
    EXPECT_EQ(CosDictCount(ownXo), 2);
    EXPECT_TRUE(CosObjEqual(CosDictGet(ownXo, A("Logo")), logo));
    EXPECT_TRUE(CosObjEqual(CosDictGet(ownXo, A("TMRAnnot1")), ap));
    // Nothing the other page sees has changed.
    EXPECT_EQ(CosDictCount(xo), 1);
    EXPECT_TRUE(CosObjIsNull(CosDictGet(p2, cosnames::Resources)));
    EXPECT_TRUE(CosObjEqual(PDPageGetInheritedAttr(p2, cosnames::Resources), inherited));
}

TEST_F(AnnotFlattenTest, AnAnnotsArraySharedByPagesIsCopiedFirst) {
    CosObj p1 = AddPage("");
    CosObj p2 = AddPage("");
    CosObj a = SetAppearance(Annot(p1, "Square"), Form(""));
    CosObj shared = Arr({a}, true);
    CosDictPut(p1, A("Annots"), shared);
    CosDictPut(p2, A("Annots"), shared);
    Flatten(p1);
    EXPECT_EQ(AnnotCount(p1), 0);
    EXPECT_EQ(CosArrayLength(shared), 1);
    EXPECT_TRUE(CosObjEqual(CosDictGet(p2, A("Annots")), shared));
}

TEST_F(AnnotFlattenTest, PostersLinkBordersAndOptionalContent) {
    CosObj page = AddPage("");
    // A movie without appearance shows its poster image over its rectangle.
    CosObj movie = Annot(page, "Movie", {10, 20, 110, 70});
    CosObj poster = Stream(std::string(4, '\xff'), Dict({{"Subtype", Name("Image")}}));
    CosDictPut(movie, A("Movie"), Dict({{"Poster", poster}}));
    // A link without appearance gets the border a viewer strokes, on the
    // rectangle's edges, in its colour.
    Set(Annot(page, "Link", {0, 0, 50, 10}), {{"Border", Array({0, 0, 2})}, {"C", Array({1, 0, 0})}});
    // A link with a zero-width border draws nothing.
    Set(Annot(page, "Link", {0, 0, 50, 10}), {{"Border", Array({0, 0, 0})}, {"C", Array({1, 0, 0})}});
    // An annotation in optional content stays in it.
    CosObj layered = SetAppearance(Annot(page, "Square"), Form(""));
    CosObj ocg = Dict({{"Type", Name("OCG")}}, true);
    CosDictPut(layered, A("OC"), ocg);

    auto c = Flatten(page);
    EXPECT_EQ(c.annotsFlattened, 3);
    EXPECT_EQ(c.annotsRemoved, 1);
    // An empty content stream is kept, and closed like any other.
    EXPECT_EQ(Content(page),
              "q \n\n\nQ q 100 0 0 50 10 20 cm /TMRAnnot1 Do Q "
              "q 1 0 0 RG 2 w 0 0 50 10 re S Q "
              "/OC /TMROC1 BDC q 1 0 0 1 0 0 cm /TMRAnnot2 Do Q EMC ");
    EXPECT_EQ(NameOf(page, poster), "TMRAnnot1");
    EXPECT_TRUE(CosObjEqual(CosDictGet(Res(page, "Properties"), A("TMROC1")), ocg));
}

TEST_F(AnnotFlattenTest, OperationFollowsTheSettingsWords) {
    auto op = pipeline::MakeAnnotFlatten();
    EXPECT_FALSE(op->Enabled(prefs));
    prefs.Optimize().acroformProcessing = A("Remove");
    EXPECT_TRUE(op->Enabled(prefs));
    prefs.Optimize().acroformProcessing = A("None");
    prefs.Optimize().annotProcessing = A("Flatten");
    EXPECT_TRUE(op->Enabled(prefs));

    CosObj page = AddPage("");
    SetAppearance(Annot(page, "Square"), Form(""));
    CosObj w = SetAppearance(Annot(page, "Widget"), Form(""));
    op->Apply(page, C());
    EXPECT_TRUE(cap.Logged("\tFlattening annotations...\n"));
    EXPECT_EQ(Stat("Annots_Flattened"), 1);
    // Widgets are kept when only annotations are asked for.
    EXPECT_EQ(Stat("AcroForms_Total"), 0);
    ASSERT_EQ(AnnotCount(page), 1);
    EXPECT_TRUE(CosObjEqual(CosArrayGet(CosDictGet(page, A("Annots")), 0), w));
}

}  // namespace
