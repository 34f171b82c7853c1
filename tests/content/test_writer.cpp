// The content writer: templates, number formatting, named colours and the
// resources it generates.
#include <gtest/gtest.h>

#include "content/ContentToken.h"
#include "content/ContentWriter.h"
#include "tests/content/ContentTestUtil.h"

namespace {

TEST(FormatReal, RoundsTrimsAndSwitchesToIntegersForLargeValues) {
    EXPECT_EQ(FormatReal(0.00001, 4), "0");
    EXPECT_EQ(FormatReal(0.99996, 4), "1");
    EXPECT_EQ(FormatReal(2.5, 4), "2.5");
    EXPECT_EQ(FormatReal(40000.4, 4), "40000");
    EXPECT_EQ(FormatReal(40000.5, 4), "40001");
    EXPECT_EQ(FormatReal(-1.25, 4), "-1.25");
    EXPECT_EQ(FormatReal(0, 2), "0");
    EXPECT_EQ(FormatReal(0.0049, 2), "0");
    EXPECT_EQ(FormatReal(-0.0049, 2), "0");
    EXPECT_EQ(FormatReal(1.05, 1), "1.1");
    EXPECT_EQ(FormatReal(3.0001, 6), "3.0001");
    EXPECT_EQ(FormatReal(0.000015, 6), "0.000015");
    EXPECT_EQ(FormatReal(32767.99999, 4), "32768");
    EXPECT_EQ(FormatReal(12.5, 0), "13");
}

TEST(IntToText, UsesTheRadixDigits) {
    EXPECT_EQ(IntToText(0), "0");
    EXPECT_EQ(IntToText(1234567), "1234567");
    EXPECT_EQ(IntToText(255, 16), "FF");
    EXPECT_EQ(IntToText(-10, 2), "-1010");
}

TEST(ContentWriter, PathTemplatesUseOneBlankSeparator) {
    ContentWriter w;
    w.MoveTo(10, 20);
    w.LineTo(30, 40);
    EXPECT_EQ(w.Text(), "10 20 m 30 40 l ");
    w.Clear();
    w.CurveTo(1, 2, 3, 4, 5.5, 6);
    EXPECT_EQ(w.CurrentX(), 5.5);
    w.ClosePath();
    EXPECT_EQ(w.CurrentX(), 10);
    EXPECT_EQ(w.CurrentY(), 20);
    w.Rectangle(0, 0, 1.0 / 3, 100);
    w.SetLineWidth(0.5);
    EXPECT_EQ(w.Text(), "1 2 3 4 5.5 6 c h\n0 0 0.333333 100 re 0.5 w ");
}

TEST(ContentWriter, PaintClipStateAndXObject) {
    ContentWriter w;
    for (int mode = -1; mode <= 6; ++mode) w.PaintPath(mode);
    EXPECT_EQ(w.Text(), "S f f* B B* n ");
    w.Clear();
    w.Clip(false);
    w.Clip(true);
    w.SaveState();
    w.RestoreState();
    w.DrawXObject("Im1");
    w.SetFont("F 1", 12);
    EXPECT_EQ(w.Text(), "W n\nW* n\nq\nQ\n/Im1 Do /F#201 12 Tf ");
}

TEST(ContentWriter, ShowTextEscapesWithoutOctal) {
    ContentWriter w;
    w.ShowText("a(b)c\\");
    EXPECT_EQ(w.Text(), "BT\n(a\\(b\\)c\\\\) Tj\nET\n");
    w.Clear();
    w.ShowText(std::string("\n\r\t\b\f\x01", 6));
    EXPECT_EQ(w.Text(), std::string("BT\n(\\n\\r\\t\\b\\f\x01) Tj\nET\n"));
}

TEST(ContentWriter, NamedColours) {
    auto named = [](const char* name, bool fill) {
        ContentWriter w;
        w.SetNamedColor(name, fill);
        return w.Text();
    };
    EXPECT_EQ(named("navy", true), "0 0 0.501961 rg ");
    EXPECT_EQ(named("white", false), "1 1 1 RG ");
    EXPECT_EQ(named("#FF8000", true), "1 0.501961 0 rg ");
    // Names compare case-sensitively; unknown texts give black.
    EXPECT_EQ(named("Navy", true), "0 0 0 rg ");
    EXPECT_EQ(named("none", true), "");
    ContentWriter w;
    w.SetNamedColor("Navy", true);
    w.SetNamedColor("none", true);  // leaves the colour set before
    EXPECT_EQ(w.FillColor(), "0 0 0 rg");
    w.Clear();
    w.SetGray(0.25, true);
    w.SetCMYK(0, 0.5, 1, 0, false);
    EXPECT_EQ(w.Text(), "0.25 g 0 0.5 1 0 K ");
    EXPECT_EQ(w.FillColor(), "0.25 g");
    EXPECT_EQ(w.StrokeColor(), "0 0.5 1 0 K");
}

using WriterResources = ContentDoc;

TEST_F(WriterResources, OpacityMakesNumberedExtGStatesAndNothingAtOne) {
    ContentWriter w(resources);
    w.SetOpacity(1.0);
    EXPECT_EQ(w.Text(), "");
    EXPECT_TRUE(CosObjIsNull(Get(resources, "ExtGState")));
    w.SetOpacity(0.5);
    w.SetOpacity(0.25, "CA");
    w.SetOpacity(0.5);  // the same state again is reused
    EXPECT_EQ(w.Text(), "/TMRGS1 gs /TMRGS2 gs /TMRGS1 gs ");
    CosObj gs = Get(resources, "ExtGState");
    ASSERT_EQ(CosDictCount(gs), 2);
    CosObj first = Get(gs, "TMRGS1");
    EXPECT_EQ(ASAtomGetString(CosDictGetName(first, cosnames::Type)), std::string("ExtGState"));
    EXPECT_DOUBLE_EQ(CosFixedValue(Get(first, "ca")), 0.5);
    EXPECT_DOUBLE_EQ(CosFixedValue(Get(Get(gs, "TMRGS2"), "CA")), 0.25);
}

TEST_F(WriterResources, GeneratedNamesSkipNamesInUse) {
    Put(Category(resources, "ExtGState"), "TMRGS1", CosNewDict(doc, false));
    ContentWriter w(resources);
    w.SetOpacity(0.3);
    EXPECT_EQ(w.Text(), "/TMRGS2 gs ");
}

TEST_F(WriterResources, SpotColourMakesASeparationSpace) {
    ContentWriter w(resources);
    w.SetSpotColor("Brand Red", 0, 1, 0.8, 0.1, 0.5, true);
    w.SetSpotColor("Brand Red", 0, 1, 0.8, 0.1, 1, false);
    EXPECT_EQ(w.Text(), "/TMRCS1 cs 0.5 scn /TMRCS1 CS 1 SCN ");
    EXPECT_EQ(w.FillColor(), "/TMRCS1 cs 0.5 scn");
    CosObj cs = Get(Get(resources, "ColorSpace"), "TMRCS1");
    ASSERT_EQ(CosObjGetType(cs), kCosArray);
    EXPECT_EQ(std::string(ASAtomGetString(CosNameValue(CosArrayGet(cs, 0)))), "Separation");
    EXPECT_EQ(std::string(ASAtomGetString(CosNameValue(CosArrayGet(cs, 1)))), "Brand Red");
    EXPECT_EQ(std::string(ASAtomGetString(CosNameValue(CosArrayGet(cs, 2)))), "DeviceCMYK");
    CosObj fn = CosArrayGet(cs, 3);
    EXPECT_EQ(CosDictGetInt(fn, ASAtomFromString("FunctionType"), 0), 2);
    EXPECT_DOUBLE_EQ(CosFixedValue(CosArrayGet(Get(fn, "C1"), 2)), 0.8);
}

TEST(ContentWriter, StringsAreWrittenLiterallyWithMinimalEscapes) {
    auto literal = [](const std::string& s) {
        std::string out;
        ContentWriter::AppendString(out, s);
        return out;
    };
    EXPECT_EQ(literal("a(b)"), "(a\\(b\\))");
    EXPECT_EQ(literal("(((("), "(\\(\\(\\(\\()");
    EXPECT_EQ(literal("(((((("), "(\\(\\(\\(\\(\\(\\()");
    EXPECT_EQ(literal("\\\\\\)\r"), "(\\\\\\\\\\\\\\)\\r)");
    EXPECT_EQ(literal(std::string("\xff\0\n", 3)), std::string("(\xff\0\n)", 5));
}

}  // namespace
