// Flattening form XObjects into page content, and removing transparency
// that has no visible effect, on documents built here.
#include "pipeline/FormXObjectFlatten.h"
#include "pipeline/Transparency.h"
#include "pipeline_fixture.h"

namespace {

using namespace pipetest;

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
        return pipeline::FlattenPageFormXObjects(page, C());
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
    CosObj fonts = Res(page, "Font");
    EXPECT_TRUE(CosObjEqual(CosDictGet(fonts, A("F1")), pageFont));
    EXPECT_TRUE(CosObjEqual(CosDictGet(fonts, A("F1_1")), formFont));
    EXPECT_TRUE(CosObjEqual(CosDictGet(fonts, A("F2")), other));
    EXPECT_TRUE(CosObjEqual(CosDictGet(fonts, A("F3")), pageFont));
    // The page no longer draws the form; the form itself is untouched.
    EXPECT_FALSE(Has(Res(page, "XObject"), "Fm0"));
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
    CosObj xo = Res(page, "XObject");
    EXPECT_TRUE(CosObjEqual(CosDictGet(xo, A("A")), a));
    EXPECT_FALSE(Has(xo, "X") || Has(xo, "B"));
}

TEST_F(FormFlattenTest, AFormsStrayOperatorsStayInsideIt) {
    CosObj page = AddPage("/BDC1 BMC /F Do EMC");
    // An EMC and a Q the form did not open are dropped; what it leaves open
    // (a state, a text object, a marked sequence) is closed after it.
    Put(page, "XObject", "F", Form("EMC Q q 1 0 0 1 5 5 cm /Tag BMC BT"));
    EXPECT_EQ(Flatten(page), 1);
    EXPECT_EQ(Content(page), "/BDC1 BMC q 0 0 1 1 re W n q 1 0 0 1 5 5 cm /Tag BMC BT \nET EMC Q Q EMC ");
}

TEST_F(FormFlattenTest, FormsThatCannotBecomePageContentKeepTheirDo) {
    CosObj page = AddPage("/G Do /O Do /B Do /D Do /P Do /U Do /T Do /Ok Do");
    CosObj group = Form("0 g"), oc = Form("0 g"), badBox = Form("0 g", {0, 0, 1}), broken = Form("not flate");
    CosDictPut(group, A("Group"), Dict());
    CosDictPut(oc, A("OC"), Dict());
    CosDictPut(broken, A("Filter"), Name("FlateDecode"));
    CosObj ownPattern = Form("0 g");
    Put(ownPattern, "Pattern", "P0", Dict(true));
    // A pattern of the page used inside a form would be placed in the
    // page's space instead of the form's: the output is taken back.
    CosObj usesPattern = Form("/Pattern cs /P9 scn 0 0 1 1 re f");
    Put(page, "Pattern", "P9", Dict(true));
    // A Type 3 font without resources of its own would look its glyphs'
    // names up in the form's resources.
    CosObj type3 = Form("");
    CosDictPut(Put(type3, "Font", "T", Font("T3")), A("Subtype"), Name("Type3"));
    CosObj ok = Form("0.5 g");
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
    CosObj form = Form("BT /F1 5 Tf ET");
    CosObj font = Put(form, "Font", "F1", Font("Form"));
    CosObj xo = Dict({{"Fm", form}}, true), shared = Dict({{"XObject", xo}}, true);
    CosDictPut(pages, cosnames::Resources, shared);
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
    for (int i = 0; i < depth; ++i) forms.push_back(Form(DrawL(i + 1)));
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
    for (int i = 0; i < 14; ++i) forms.push_back(Form(tenTimes));
    for (int i = 0; i + 1 < 14; ++i) Put(forms[size_t(i)], "XObject", "N", forms[size_t(i + 1)]);
    Put(page, "XObject", "L0", forms[0]);
    const size_t bound = 64 * 1024;
    int n = pipeline::FlattenPageFormXObjects(page, C(), bound);
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
        return pipeline::RemoveInvisibleTransparency(C());
    }
    void Group(CosObj page) { CosDictPut(page, A("Group"), Dict({{"S", Name("Transparency")}})); }
    CosObj Image(const std::string& samples, int w, int h, int bpc) {
        return Stream(samples, Dict({{"Subtype", Name("Image")}, {"Width", Int(w)}, {"Height", Int(h)},
                                     {"BitsPerComponent", Int(bpc)}}));
    }
};

TEST_F(TransparencyTest, InitialValuesGoOnlyWhereNoStateSetsAnotherValue) {
    CosObj p1 = AddPage("/S1 gs");
    CosObj s1 = Put(p1, "ExtGState", "S1",
                    Dict({{"CA", Num(1)}, {"ca", Num(1)}, {"BM", Name("Normal")}, {"SMask", Name("None")},
                          {"LW", Num(2)}}, true));
    Group(p1);
    CosObj p2 = AddPage("/S2 gs");
    Put(p2, "ExtGState", "S2", Dict({{"CA", Num(0.5)}}, true));
    Group(p2);
    auto c = Run();
    // CA 1 may undo CA 0.5 set earlier, so it stays.
    EXPECT_TRUE(Has(s1, "CA") && Has(s1, "LW"));
    EXPECT_FALSE(Has(s1, "ca") || Has(s1, "BM") || Has(s1, "SMask"));
    EXPECT_EQ(c.entries, 3);
    // The first page has no transparency and loses its group.
    EXPECT_FALSE(Has(p1, "Group"));
    EXPECT_TRUE(Has(p2, "Group"));
    EXPECT_EQ(c.pageGroups, 1);
}

TEST_F(TransparencyTest, OnlyOpaqueSoftMasksGo) {
    CosObj page = AddPage("/A Do /B Do /C Do /D Do");
    Group(page);
    CosObj opaque8 = Set(Image("xxxx", 2, 2, 8), {{"SMask", Image(std::string(4, '\xff'), 2, 2, 8)}});
    // One-bit rows of three samples: the five padding bits do not count.
    CosObj opaque1 = Set(Image("xx", 3, 2, 8), {{"SMask", Image("\xe0\xe0", 3, 2, 1)}, {"SMaskInData", Num(0)}});
    CosObj matte = Image("xxxx", 2, 2, 8);
    CosObj matteMask = Set(Image(std::string(4, '\xff'), 2, 2, 8), {{"Matte", Array({0})}});
    CosDictPut(matte, A("SMask"), matteMask);
    CosObj partial = Set(Image("xxxx", 2, 2, 8), {{"SMask", Image("\xff\xff\xff\x80", 2, 2, 8)}});
    for (auto [n, img] : {std::pair{"A", opaque8}, {"B", opaque1}, {"C", matte}, {"D", partial}})
        Put(page, "XObject", n, img);
    auto c = Run();
    EXPECT_FALSE(Has(opaque8, "SMask") || Has(opaque1, "SMask") || Has(opaque1, "SMaskInData"));
    EXPECT_TRUE(Has(matte, "SMask") && Has(partial, "SMask"));
    EXPECT_EQ(c.softMasks, 3);
    // What is left is transparent: the page keeps its group.
    EXPECT_TRUE(Has(page, "Group"));

    // A transparency group of a form inside an annotation appearance
    // keeps the page's group as well.
    CosObj page2 = AddPage("");
    Group(page2);
    CosObj ap = Form("/G Do");
    CosDictPut(Put(ap, "XObject", "G", Form("")), A("Group"), Dict());
    CosDictPut(page2, A("Annots"), Arr({Dict({{"AP", Dict({{"N", ap}})}}, true)}));
    Run();
    EXPECT_TRUE(Has(page2, "Group"));
}

}  // namespace
