// Flattening form XObjects into page content, and removing transparency
// that has no visible effect, on documents built here.
#include "flatten_fixture.h"
#include "pipeline/FormXObjectFlatten.h"
#include "pipeline/Transparency.h"

namespace {

using namespace flattentest;

// "L" followed by the number, and the operator that draws it (built in
// steps: g++ 12 warns falsely about a literal added to a temporary string).
std::string L(int i) {
    std::string s = "L";
    s += std::to_string(i);
    return s;
}
std::string DrawL(int i) {
    std::string s = "/";
    s += L(i);
    s += " Do";
    return s;
}

class FormFlattenTest : public DocTest {
protected:
    int Flatten(CosObj page) {
        auto ctx = Ctx();
        return pipeline::FlattenPageFormXObjects(page, ctx);
    }
    void Put(CosObj dict, const char* category, const char* name, CosObj value) {
        CosObj res = CosDictGet(dict, cosnames::Resources);
        if (CosObjIsNull(res)) {
            res = CosNewDict(doc, false);
            CosDictPut(dict, cosnames::Resources, res);
        }
        CosObj cat = CosDictGet(res, A(category));
        if (CosObjIsNull(cat)) {
            cat = CosNewDict(doc, false);
            CosDictPut(res, A(category), cat);
        }
        CosDictPut(cat, A(name), value);
    }
    CosObj Font(const char* base) {
        CosObj f = CosNewDict(doc, true);
        CosDictPutName(f, A("Type"), false, A("Font"));
        CosDictPutName(f, A("BaseFont"), false, A(base));
        return f;
    }
};

TEST_F(FormFlattenTest, FormContentReplacesItsDoWithMatrixClipAndMergedResources) {
    CosObj page = AddPage("0 g /Fm0 Do 1 g");
    CosObj pageFont = Font("Page");
    Put(page, "Font", "F1", pageFont);
    CosObj form = Form("BT /F1 12 Tf (a) Tj /F2 10 Tf (b) Tj /F3 9 Tf ET", {0, 0, 100, 50}, {0, 1, -1, 0, 10, 20});
    CosObj formFont = Font("Form"), other = Font("Other");
    Put(form, "Font", "F1", formFont);  // the same name as the page's, another font
    Put(form, "Font", "F2", other);     // a name the page does not use
    Put(form, "Font", "F3", pageFont);  // the page's own font under another name
    Put(page, "XObject", "Fm0", form);
    std::vector<uint8_t> formBefore = CosStreamDecodedData(form);

    EXPECT_EQ(Flatten(page), 1);
    EXPECT_EQ(Content(page),
              "0 g q 0 1 -1 0 10 20 cm 0 0 100 50 re W n BT /F1_1 12 Tf (a) Tj /F2 10 Tf (b) Tj /F3 9 Tf ET \nQ 1 g ");
    CosObj fonts = CosDictGet(CosDictGet(page, cosnames::Resources), A("Font"));
    EXPECT_TRUE(CosObjEqual(CosDictGet(fonts, A("F1")), pageFont));
    EXPECT_TRUE(CosObjEqual(CosDictGet(fonts, A("F1_1")), formFont));
    EXPECT_TRUE(CosObjEqual(CosDictGet(fonts, A("F2")), other));
    EXPECT_TRUE(CosObjEqual(CosDictGet(fonts, A("F3")), pageFont));
    // The page no longer draws the form; the form itself is untouched.
    EXPECT_TRUE(CosObjIsNull(CosDictGet(CosDictGet(CosDictGet(page, cosnames::Resources), A("XObject")), A("Fm0"))));
    EXPECT_EQ(CosStreamDecodedData(form), formBefore);
    EXPECT_EQ(CosArrayLength(CosDictGet(form, A("Matrix"))), 6);
}

TEST_F(FormFlattenTest, NestedFormsFlattenAndAFormThatDrawsItselfStaysADo) {
    CosObj page = AddPage("/X Do");
    CosObj a = Form("0 g /B Do /A Do", {0, 0, 10, 10});
    CosObj b = Form("1 g", {0, 0, 5, 5}, {1, 0, 0, 1, 2, 3});
    Put(a, "XObject", "B", b);
    Put(a, "XObject", "A", a);
    Put(page, "XObject", "X", a);
    EXPECT_EQ(Flatten(page), 2);
    EXPECT_EQ(Content(page), "q 0 0 10 10 re W n 0 g q 1 0 0 1 2 3 cm 0 0 5 5 re W n 1 g \nQ /A Do \nQ ");
    CosObj xo = CosDictGet(CosDictGet(page, cosnames::Resources), A("XObject"));
    EXPECT_TRUE(CosObjEqual(CosDictGet(xo, A("A")), a));
    EXPECT_TRUE(CosObjIsNull(CosDictGet(xo, A("X"))));
    EXPECT_TRUE(CosObjIsNull(CosDictGet(xo, A("B"))));
}

TEST_F(FormFlattenTest, AFormsStrayOperatorsStayInsideIt) {
    CosObj page = AddPage("/BDC1 BMC /F Do EMC");
    // An EMC and a Q the form did not open are dropped; what it leaves open
    // (a state, a text object, a marked sequence) is closed after it.
    CosObj form = Form("EMC Q q 1 0 0 1 5 5 cm /Tag BMC BT", {0, 0, 1, 1});
    Put(page, "XObject", "F", form);
    EXPECT_EQ(Flatten(page), 1);
    EXPECT_EQ(Content(page), "/BDC1 BMC q 0 0 1 1 re W n q 1 0 0 1 5 5 cm /Tag BMC BT \nET EMC Q Q EMC ");
}

TEST_F(FormFlattenTest, FormsThatCannotBecomePageContentKeepTheirDo) {
    CosObj page = AddPage("/G Do /O Do /B Do /D Do /P Do /U Do /T Do /Ok Do");
    CosObj group = Form("0 g", {0, 0, 1, 1});
    CosDictPut(group, A("Group"), CosNewDict(doc, false));
    CosObj oc = Form("0 g", {0, 0, 1, 1});
    CosDictPut(oc, A("OC"), CosNewDict(doc, false));
    CosObj badBox = Form("0 g", {0, 0, 1});
    CosObj broken = Form("not flate", {0, 0, 1, 1});
    CosDictPutName(broken, A("Filter"), false, A("FlateDecode"));
    CosObj ownPattern = Form("0 g", {0, 0, 1, 1});
    Put(ownPattern, "Pattern", "P0", CosNewDict(doc, true));
    // A pattern of the page used inside a form would be placed in the
    // page's space instead of the form's: the output is taken back.
    CosObj usesPattern = Form("/Pattern cs /P9 scn 0 0 1 1 re f", {0, 0, 1, 1});
    Put(page, "Pattern", "P9", CosNewDict(doc, true));
    // A Type 3 font without resources of its own would look its glyphs'
    // names up in the form's resources.
    CosObj type3 = Form("", {0, 0, 1, 1});
    CosObj t3font = Font("T3");
    CosDictPutName(t3font, A("Subtype"), false, A("Type3"));
    Put(type3, "Font", "T", t3font);
    CosObj ok = Form("0.5 g", {0, 0, 1, 1});
    for (auto [n, f] : {std::pair{"G", group}, {"O", oc}, {"B", badBox}, {"D", broken}, {"P", ownPattern},
                        {"U", usesPattern}, {"T", type3}, {"Ok", ok}})
        Put(page, "XObject", n, f);
    EXPECT_EQ(Flatten(page), 1);
    EXPECT_EQ(Content(page), "/G Do /O Do /B Do /D Do /P Do /U Do /T Do q 0 0 1 1 re W n 0.5 g \nQ ");

    // Nothing flattenable: the content stream is not even rewritten.
    CosObj page2 = AddPage("/G  Do");
    Put(page2, "XObject", "G", group);
    CosObj before = CosDictGet(page2, cosnames::Contents);
    EXPECT_EQ(Flatten(page2), 0);
    EXPECT_TRUE(CosObjEqual(CosDictGet(page2, cosnames::Contents), before));
}

TEST_F(FormFlattenTest, InheritedResourcesAreCopiedNotChanged) {
    CosObj pages = CosDictGet(CosDocGetRoot(doc), cosnames::Pages);
    CosObj shared = CosNewDict(doc, true);
    CosDictPut(pages, cosnames::Resources, shared);
    CosObj form = Form("BT /F1 5 Tf ET", {0, 0, 1, 1});
    CosObj font = Font("Form");
    Put(form, "Font", "F1", font);
    CosObj xo = CosNewDict(doc, true);
    CosDictPut(xo, A("Fm"), form);
    CosDictPut(shared, A("XObject"), xo);
    CosObj p1 = AddPage("/Fm Do", false);
    CosObj p2 = AddPage("/Fm Do", false);
    EXPECT_EQ(Flatten(p1), 1);
    CosObj own = CosDictGet(p1, cosnames::Resources);
    ASSERT_EQ(CosObjGetType(own), kCosDict);
    EXPECT_TRUE(CosObjEqual(CosDictGet(CosDictGet(own, A("Font")), A("F1")), font));
    EXPECT_EQ(CosDictCount(CosDictGet(own, A("XObject"))), 0);
    // The page tree's dictionaries, which the second page still uses, keep
    // what they had and gain nothing.
    EXPECT_EQ(CosDictCount(shared), 1);
    EXPECT_TRUE(CosObjEqual(CosDictGet(xo, A("Fm")), form));
    EXPECT_EQ(Content(p2), "/Fm Do");
}

TEST_F(FormFlattenTest, NestingStopsAtTheBound) {
    // A chain of forms deeper than the bound: the innermost stay Do.
    CosObj page = AddPage("/L0 Do");
    const int depth = pipeline::kMaxFlattenDepth + 3;
    std::vector<CosObj> forms;
    for (int i = 0; i < depth; ++i) forms.push_back(Form(DrawL(i + 1), {0, 0, 1, 1}));
    for (int i = 0; i + 1 < depth; ++i)
        Put(forms[size_t(i)], "XObject", L(i + 1).c_str(), forms[size_t(i + 1)]);
    Put(page, "XObject", "L0", forms[0]);
    EXPECT_EQ(Flatten(page), pipeline::kMaxFlattenDepth);
    std::string c = Content(page);
    EXPECT_NE(c.find(DrawL(pipeline::kMaxFlattenDepth)), std::string::npos) << c;
}

TEST_F(FormFlattenTest, FormsDrawingFormsManyTimesStopAtTheContentBound) {
    // Each form draws the next ten times: flattened in full, twelve levels
    // would write 10^12 copies of the innermost form.
    CosObj page = AddPage("/L0 Do");
    std::vector<CosObj> forms;
    std::string tenTimes;
    for (int i = 0; i < 10; ++i) tenTimes += "/N Do ";
    for (int i = 0; i < 14; ++i) forms.push_back(Form(tenTimes, {0, 0, 1, 1}));
    for (int i = 0; i + 1 < 14; ++i) Put(forms[size_t(i)], "XObject", "N", forms[size_t(i + 1)]);
    Put(page, "XObject", "L0", forms[0]);
    auto ctx = Ctx();
    const size_t bound = 64 * 1024;
    int n = pipeline::FlattenPageFormXObjects(page, ctx, bound);
    EXPECT_GT(n, 100);
    std::string c = Content(page);
    // Past the bound only what is already open is closed: a few forms'
    // worth of text more.
    EXPECT_LT(c.size(), bound + 4096);
    EXPECT_NE(c.find("/N Do"), std::string::npos);
}

// ------------------------------------------------------------ transparency

class TransparencyTest : public FormFlattenTest {
protected:
    pipeline::TransparencyCounts Run() {
        auto ctx = Ctx();
        return pipeline::RemoveInvisibleTransparency(ctx);
    }
    CosObj State(std::initializer_list<std::pair<const char*, CosObj>> entries) {
        CosObj gs = CosNewDict(doc, true);
        for (auto& [k, v] : entries) CosDictPut(gs, A(k), v);
        return gs;
    }
    CosObj Name(const char* n) { return CosNewName(doc, false, A(n)); }
    void Group(CosObj page) {
        CosObj g = CosNewDict(doc, false);
        CosDictPutName(g, A("S"), false, A("Transparency"));
        CosDictPut(page, A("Group"), g);
    }
    CosObj Image(const std::string& samples, int w, int h, int bpc) {
        CosObj img = Stream(samples);
        CosDictPutName(img, A("Subtype"), false, A("Image"));
        CosDictPutInteger(img, A("Width"), w);
        CosDictPutInteger(img, A("Height"), h);
        CosDictPutInteger(img, A("BitsPerComponent"), bpc);
        return img;
    }
};

TEST_F(TransparencyTest, InitialValuesGoOnlyWhereNoStateSetsAnotherValue) {
    CosObj p1 = AddPage("/S1 gs");
    CosObj s1 = State({{"CA", Num(1)}, {"ca", Num(1)}, {"BM", Name("Normal")}, {"SMask", Name("None")},
                       {"LW", Num(2)}});
    Put(p1, "ExtGState", "S1", s1);
    Group(p1);
    CosObj p2 = AddPage("/S2 gs");
    Put(p2, "ExtGState", "S2", State({{"CA", Num(0.5)}}));
    Group(p2);
    auto c = Run();
    // CA 1 may undo CA 0.5 set earlier, so it stays.
    EXPECT_TRUE(CosDictKnown(s1, A("CA")));
    EXPECT_FALSE(CosDictKnown(s1, A("ca")));
    EXPECT_FALSE(CosDictKnown(s1, A("BM")));
    EXPECT_FALSE(CosDictKnown(s1, A("SMask")));
    EXPECT_TRUE(CosDictKnown(s1, A("LW")));
    EXPECT_EQ(c.entries, 3);
    // The first page has no transparency and loses its group.
    EXPECT_FALSE(CosDictKnown(p1, A("Group")));
    EXPECT_TRUE(CosDictKnown(p2, A("Group")));
    EXPECT_EQ(c.pageGroups, 1);
}

TEST_F(TransparencyTest, OnlyOpaqueSoftMasksGo) {
    CosObj page = AddPage("/A Do /B Do /C Do /D Do");
    Group(page);
    CosObj opaque8 = Image("xxxx", 2, 2, 8);
    CosDictPut(opaque8, A("SMask"), Image(std::string(4, '\xff'), 2, 2, 8));
    // One-bit rows of three samples: the five padding bits do not count.
    CosObj opaque1 = Image("xx", 3, 2, 8);
    CosDictPut(opaque1, A("SMask"), Image("\xe0\xe0", 3, 2, 1));
    CosDictPut(opaque1, A("SMaskInData"), Num(0));
    CosObj matte = Image("xxxx", 2, 2, 8);
    CosObj matteMask = Image(std::string(4, '\xff'), 2, 2, 8);
    CosDictPut(matteMask, A("Matte"), Array({0}));
    CosDictPut(matte, A("SMask"), matteMask);
    CosObj partial = Image("xxxx", 2, 2, 8);
    CosDictPut(partial, A("SMask"), Image("\xff\xff\xff\x80", 2, 2, 8));
    Put(page, "XObject", "A", opaque8);
    Put(page, "XObject", "B", opaque1);
    Put(page, "XObject", "C", matte);
    Put(page, "XObject", "D", partial);
    auto c = Run();
    EXPECT_FALSE(CosDictKnown(opaque8, A("SMask")));
    EXPECT_FALSE(CosDictKnown(opaque1, A("SMask")));
    EXPECT_FALSE(CosDictKnown(opaque1, A("SMaskInData")));
    EXPECT_TRUE(CosDictKnown(matte, A("SMask")));
    EXPECT_TRUE(CosDictKnown(partial, A("SMask")));
    EXPECT_EQ(c.softMasks, 3);
    // What is left is transparent: the page keeps its group.
    EXPECT_TRUE(CosDictKnown(page, A("Group")));

    // A transparency group of a form inside an annotation appearance
    // keeps the page's group as well.
    CosObj page2 = AddPage("");
    Group(page2);
    CosObj grouped = Form("", {0, 0, 1, 1});
    CosDictPut(grouped, A("Group"), CosNewDict(doc, false));
    CosObj ap = Form("/G Do", {0, 0, 1, 1});
    Put(ap, "XObject", "G", grouped);
    CosObj annot = CosNewDict(doc, true);
    CosObj apd = CosNewDict(doc, false);
    CosDictPut(apd, cosnames::N, ap);
    CosDictPut(annot, A("AP"), apd);
    CosObj annots = CosNewArray(doc, false);
    CosArrayAppend(annots, annot);
    CosDictPut(page2, A("Annots"), annots);
    Run();
    EXPECT_TRUE(CosDictKnown(page2, A("Group")));
}

}  // namespace
