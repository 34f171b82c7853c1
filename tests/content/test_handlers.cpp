// The analysing handlers (resource use, text tracking, placement) and the
// descent into nested content.
#include <gtest/gtest.h>

#include "content/Placement.h"
#include "content/ResourceUse.h"
#include "content/TextTracking.h"
#include "tests/content/ContentTestUtil.h"

namespace {

using HandlerDoc = ContentDoc;
using Names = std::set<std::string>;

TEST_F(HandlerDoc, ResourceUseCoversEveryCategoryAndInlineImages) {
    CosObj page = NewPage(doc,
                          "/GS1 gs /CS1 cs /DeviceRGB CS /Pattern cs /P1 scn 0.5 /P2 SCN /Sh1 sh "
                          "BT /F1 12 Tf ET /Im1 Do /OC /MC0 BDC EMC /X /MC1 DP "
                          "BI /W 1 /H 1 /BPC 8 /CS /CS2 ID a\nEI "
                          "BI /W 1 /H 1 /BPC 8 /CS [/I /CS3 1 <0000000000ff>] ID a\nEI "
                          "BI /W 1 /H 1 /BPC 8 /CS /RGB ID abc\nEI "
                          "/GS9 /GS8 gs",
                          resources);
    ResourceNames used = PageResourceUse(page);
    EXPECT_EQ(used["ExtGState"], (Names{"GS1"}));
    EXPECT_EQ(used["ColorSpace"], (Names{"CS1", "CS2", "CS3"}));
    EXPECT_EQ(used["Pattern"], (Names{"P1", "P2"}));
    EXPECT_EQ(used["Shading"], (Names{"Sh1"}));
    EXPECT_EQ(used["Font"], (Names{"F1"}));
    EXPECT_EQ(used["XObject"], (Names{"Im1"}));
    EXPECT_EQ(used["Properties"], (Names{"MC0", "MC1"}));
}

TEST_F(HandlerDoc, ResourceUseFollowsFormsIntoTheirOwnResources) {
    CosObj formRes = CosNewDict(doc, false);
    CosObj form = NewForm(doc, "/F2 10 Tf /Inner Do", formRes);
    Put(Category(resources, "XObject"), "Fm1", form);
    // A form without Resources uses those of the stream that draws it.
    Put(Category(formRes, "XObject"), "Inner", NewForm(doc, "/GSx gs", CosNewNull()));
    CosObj page = NewPage(doc, "/Fm1 Do", resources);
    ResourceUseHandler h;
    h.RunPage(page);
    EXPECT_EQ(h.UsedIn(resources).at("XObject"), (Names{"Fm1"}));
    EXPECT_EQ(h.UsedIn(formRes).at("Font"), (Names{"F2"}));
    EXPECT_EQ(h.UsedIn(formRes).at("ExtGState"), (Names{"GSx"}));
    EXPECT_EQ(h.UsedIn(resources).count("Font"), 0u);
}

TEST_F(HandlerDoc, TextTrackingRecordsCodesPerFontThroughTheFontStack) {
    CosObj f1 = CosNewDict(doc, true);
    Put(f1, "Subtype", Name(doc, "TrueType"));
    CosObj f2 = CosNewDict(doc, true);
    Put(f2, "Subtype", Name(doc, "Type0"));
    Put(f2, "Encoding", Name(doc, "Identity-H"));
    CosObj fonts = Category(resources, "Font");
    Put(fonts, "F1", f1);
    Put(fonts, "F2", f2);
    CosObj page = NewPage(doc,
                          "BT /F1 10 Tf (AB) Tj q /F2 8 Tf <00410102> Tj [<0003> 5 <0004>] TJ Q "
                          "(C) ' 1 2 (D) \" [(E) 3 (F)] TJ ET",
                          resources);
    TextTrackingHandler h;
    h.RunPage(page);
    ASSERT_EQ(h.Fonts().size(), 2u);
    const FontUse* u1 = h.Find(f1);
    const FontUse* u2 = h.Find(f2);
    ASSERT_TRUE(u1 && u2);
    EXPECT_EQ(u1->codes, (std::set<uint32_t>{'A', 'B', 'C', 'D', 'E', 'F'}));
    EXPECT_EQ(u2->codes, (std::set<uint32_t>{0x41, 0x102, 3, 4}));
    EXPECT_EQ(u2->codeBytes, 2);
    EXPECT_FALSE(h.Unbalanced());
}

TEST_F(HandlerDoc, TextTrackingReadsEmbeddedCodeSpaces) {
    CosObj cmap = NewStream(doc,
                            "/CIDInit /ProcSet findresource begin 2 begincodespacerange <00> <80> "
                            "<8140> <9ffc> endcodespacerange end");
    CosObj f = CosNewDict(doc, true);
    Put(f, "Subtype", Name(doc, "Type0"));
    Put(f, "Encoding", cmap);
    Put(Category(resources, "Font"), "J", f);
    CosObj page = NewPage(doc, "BT /J 9 Tf <41814042> Tj ET", resources);
    TextTrackingHandler h;
    h.RunPage(page);
    ASSERT_EQ(h.Fonts().size(), 1u);
    EXPECT_EQ(h.Fonts()[0].codes, (std::set<uint32_t>{0x41, 0x8140, 0x42}));
}

TEST_F(HandlerDoc, TextTrackingMessagesAndUnbalancedFontStack) {
    CapturedLog cap;
    TextTrackingHandler h(&cap.log);
    h.RunContent(Bytes("/F1 Tf (a) (b) Tj (x) TJ Q"));
    EXPECT_EQ(cap.Text(),
              "   SetTextFontAndSize: TOO MANY PARAMS\n    DisplayText: TOO MANY PARAMS\n "
              "   DisplayTextArray: TOO MANY PARAMS\n Mismatched Save/Restore of graphic state!\n"
              "Error: Font Stack is unbalanced!\n ");
    EXPECT_TRUE(h.Unbalanced());
    EXPECT_TRUE(h.Fonts().empty());
}

TEST_F(HandlerDoc, PlacementMultipliesNestedMatrices) {
    CosObj img = NewImage(doc, 300, 150);
    CosObj formRes = CosNewDict(doc, false);
    Put(Category(formRes, "XObject"), "Im", img);
    CosObj form = NewForm(doc, "q 100 0 0 50 0 0 cm /Im Do Q BI /W 2 /H 3 /BPC 8 /CS /G ID abcdef\nEI",
                          formRes, Array(doc, {0.5, 0, 0, 0.5, 10, 20}));
    CosObj xobjs = Category(resources, "XObject");
    Put(xobjs, "Fm", form);
    Put(xobjs, "Big", img);
    CosObj page = NewPage(doc, "q 2 0 0 2 0 0 cm /Fm Do Q 72 0 0 72 0 0 cm /Big Do /Fm Do", resources);
    std::vector<PlacedImage> found = FindPlacedImages(page);
    ASSERT_EQ(found.size(), 5u);
    // Inside the form: image matrix x form Matrix x page CTM.
    EXPECT_EQ(found[0].ctm, (ContentMatrix{100, 0, 0, 50, 20, 40}));
    EXPECT_EQ(found[0].xobject, img);
    EXPECT_EQ(found[0].nesting, 1);
    EXPECT_EQ(found[0].resources, formRes);
    EXPECT_TRUE(CosObjIsNull(found[1].xobject));
    EXPECT_EQ(found[1].ctm, (ContentMatrix{1, 0, 0, 1, 20, 40}));
    EXPECT_EQ(found[1].width, 2);
    EXPECT_EQ(found[1].height, 3);
    EXPECT_EQ(found[1].inlineBytes, 6u);
    EXPECT_EQ(found[1].inlineIndex, 0);
    EXPECT_EQ(found[2].ctm, (ContentMatrix{72, 0, 0, 72, 0, 0}));
    EXPECT_EQ(found[2].name, "Big");
    EXPECT_EQ(found[2].nesting, 0);
    EXPECT_EQ(found[3].ctm, (ContentMatrix{3600, 0, 0, 1800, 720, 1440}));
    EXPECT_EQ(found[4].inlineIndex, 1);
    double dx, dy;
    EffectiveResolution(found[2], dx, dy);
    EXPECT_DOUBLE_EQ(dx, 300);
    EXPECT_DOUBLE_EQ(dy, 150);
    EffectiveResolution(found[0], dx, dy);
    EXPECT_DOUBLE_EQ(dx, 216);
    EXPECT_DOUBLE_EQ(dy, 216);
}

TEST_F(HandlerDoc, GraphicsStateTracksColourSpacesAndFonts) {
    CosObj cs = CosNewArray(doc, false);
    CosArrayAppend(cs, Name(doc, "Pattern"));
    CosArrayAppend(cs, Name(doc, "DeviceRGB"));
    Put(Category(resources, "ColorSpace"), "PCS", cs);
    ContentHandler h;
    h.SetResources(resources);
    h.RunContent(Bytes("/PCS cs /CS0 CS q 1 0 0 rg /Pattern CS /F2 7 Tf Q"));
    EXPECT_EQ(h.State().fillSpace, "PCS");
    EXPECT_TRUE(h.State().fillPattern);
    EXPECT_EQ(h.State().strokeSpace, "CS0");
    EXPECT_FALSE(h.State().strokePattern);
    EXPECT_EQ(h.State().fontName, "");
    h.RunContent(Bytes("1 0 0 rg /Pattern CS /F2 7 Tf"));
    EXPECT_EQ(h.State().fillSpace, "DeviceRGB");
    EXPECT_FALSE(h.State().fillPattern);
    EXPECT_TRUE(h.State().strokePattern);
    EXPECT_EQ(h.State().fontName, "F2");
    EXPECT_EQ(h.State().fontSize, 7);
}

// Each device colour operator selects its own space for its own side only.
TEST_F(HandlerDoc, DeviceColourOperatorsSetOneSide) {
    struct Case { const char* ops; const char* space; bool fill; } cases[] = {
        {"0.5 g", "DeviceGray", true},       {"0.5 G", "DeviceGray", false},
        {"0 0 0 1 k", "DeviceCMYK", true},   {"0 0 0 1 K", "DeviceCMYK", false},
        {"1 0 0 rg", "DeviceRGB", true},     {"1 0 0 RG", "DeviceRGB", false},
    };
    for (const Case& c : cases) {
        ContentHandler h;
        h.SetResources(resources);
        h.RunContent(Bytes(std::string("/Pattern cs /Pattern CS ") + c.ops));
        EXPECT_EQ(c.fill ? h.State().fillSpace : h.State().strokeSpace, c.space) << c.ops;
        EXPECT_FALSE(c.fill ? h.State().fillPattern : h.State().strokePattern) << c.ops;
        EXPECT_TRUE(c.fill ? h.State().strokePattern : h.State().fillPattern) << c.ops;
    }
}

TEST_F(HandlerDoc, RotatedPlacementAndDegenerateMatrices) {
    PlacedImage p;
    p.width = 100;
    p.height = 100;
    p.ctm = {0, 72, -72, 0, 100, 0};
    double dx, dy;
    EffectiveResolution(p, dx, dy);
    EXPECT_DOUBLE_EQ(dx, 100);
    EXPECT_DOUBLE_EQ(dy, 100);
    p.ctm = {0, 0, 0, 0, 0, 0};
    EffectiveResolution(p, dx, dy);
    EXPECT_EQ(dx, 0);
    EXPECT_EQ(dy, 0);
}

TEST_F(HandlerDoc, AFormThatDrawsItselfIsFollowedOnce) {
    CosObj formRes = CosNewDict(doc, false);
    CosObj img = NewImage(doc, 10, 10);
    Put(Category(formRes, "XObject"), "Im", img);
    CosObj form = NewForm(doc, "/Im Do /Self Do", formRes);
    Put(Category(formRes, "XObject"), "Self", form);
    Put(Category(resources, "XObject"), "Fm", form);
    CosObj page = NewPage(doc, "/Fm Do", resources);
    CapturedLog cap;
    std::vector<PlacedImage> found = FindPlacedImages(page, &cap.log);
    EXPECT_EQ(found.size(), 1u);
    EXPECT_NE(cap.Text().find("draws itself"), std::string::npos);
}

TEST_F(HandlerDoc, NestingDepthIsLimited) {
    // A chain of 40 distinct forms, each drawing the next and an image.
    CosObj img = NewImage(doc, 10, 10);
    CosObj next = CosNewNull();
    for (int i = 0; i < 40; ++i) {
        CosObj res = CosNewDict(doc, false);
        Put(Category(res, "XObject"), "Im", img);
        if (!CosObjIsNull(next)) Put(Category(res, "XObject"), "Next", next);
        next = NewForm(doc, "/Im Do /Next Do", res);
    }
    Put(Category(resources, "XObject"), "Fm", next);
    CosObj page = NewPage(doc, "/Fm Do", resources);
    CapturedLog cap;
    std::vector<PlacedImage> found = FindPlacedImages(page, &cap.log);
    EXPECT_EQ(found.size(), static_cast<size_t>(ContentHandler::kMaxNesting));
    EXPECT_EQ(found.back().nesting, ContentHandler::kMaxNesting);
    EXPECT_NE(cap.Text().find("nested too deeply"), std::string::npos);
}

TEST_F(HandlerDoc, PatternsSoftMasksType3AndAnnotationsAreFollowed) {
    CosObj img = NewImage(doc, 10, 10);
    auto withImage = [&]() {
        CosObj r = CosNewDict(doc, false);
        Put(Category(r, "XObject"), "Im", img);
        return r;
    };
    // A tiling pattern: placed by its Matrix from the page's base space,
    // whatever the CTM when it is selected.
    CosObj patDict = CosNewDict(doc, false);
    Put(patDict, "PatternType", CosNewInteger(doc, false, 1));
    Put(patDict, "Matrix", Array(doc, {1, 0, 0, 1, 5, 5}));
    Put(patDict, "Resources", withImage());
    Put(Category(resources, "Pattern"), "P1", NewStream(doc, "/Im Do", patDict));
    // A soft mask whose group draws the image.
    CosObj gs = CosNewDict(doc, false);
    CosObj smask = CosNewDict(doc, false);
    Put(smask, "G", NewForm(doc, "/Im Do", withImage()));
    Put(gs, "SMask", smask);
    Put(Category(resources, "ExtGState"), "GS1", gs);
    // A Type 3 font whose glyph draws the image.
    CosObj t3 = CosNewDict(doc, true);
    Put(t3, "Subtype", Name(doc, "Type3"));
    Put(t3, "FontMatrix", Array(doc, {0.01, 0, 0, 0.01, 0, 0}));
    CosObj procs = CosNewDict(doc, false);
    Put(procs, "a", NewStream(doc, "100 0 0 100 0 0 cm /Im Do"));
    Put(t3, "CharProcs", procs);
    Put(t3, "Resources", withImage());
    Put(Category(resources, "Font"), "T3", t3);
    CosObj page = NewPage(doc, "3 0 0 3 0 0 cm /Pattern cs /P1 scn /GS1 gs BT /T3 2 Tf (a) Tj ET", resources);
    // An annotation whose appearance (BBox 0 0 100 100) fills Rect 10 10 60 110.
    CosObj annot = CosNewDict(doc, true);
    Put(annot, "Rect", Array(doc, {60, 110, 10, 10}));
    CosObj ap = CosNewDict(doc, false);
    CosObj states = CosNewDict(doc, false);
    Put(states, "On", NewForm(doc, "/Im Do", withImage()));
    Put(ap, "N", states);
    Put(annot, "AP", ap);
    CosObj annots = CosNewArray(doc, false);
    CosArrayAppend(annots, annot);
    Put(page, "Annots", annots);

    std::vector<PlacedImage> found = FindPlacedImages(page);
    ASSERT_EQ(found.size(), 4u);
    EXPECT_EQ(found[0].ctm, (ContentMatrix{1, 0, 0, 1, 5, 5}));
    EXPECT_EQ(found[1].ctm, (ContentMatrix{3, 0, 0, 3, 0, 0}));
    EXPECT_EQ(found[2].ctm, (ContentMatrix{6, 0, 0, 6, 0, 0}));
    EXPECT_EQ(found[3].ctm, (ContentMatrix{0.5, 0, 0, 1, 10, 10}));
    EXPECT_EQ(FindPlacedImages(page, nullptr, false).size(), 3u);
}

TEST_F(HandlerDoc, OptionalContentWrapsTheContentAndRegistersTheGroup) {
    CosObj catalog = CosNewDict(doc, true);
    CosDictPut(CosDocGetTrailer(doc), cosnames::Root, catalog);
    std::string content = "0 0 m 1 1 l S";
    std::string name = WrapInOptionalContent(doc, resources, content, false, true);
    EXPECT_EQ(name, "TMROCG1");
    EXPECT_EQ(content, "/OC /TMROCG1 BDC 0 0 m 1 1 l S\nEMC ");
    CosObj ocg = Get(Get(resources, "Properties"), "TMROCG1");
    EXPECT_EQ(std::string(ASAtomGetString(CosDictGetName(ocg, cosnames::Type))), "OCG");
    CosObj usage = Get(ocg, "Usage");
    EXPECT_EQ(std::string(ASAtomGetString(CosDictGetName(Get(usage, "View"), ASAtomFromString("ViewState")))), "OFF");
    EXPECT_EQ(std::string(ASAtomGetString(CosDictGetName(Get(usage, "Print"), ASAtomFromString("PrintState")))), "ON");
    CosObj ocp = Get(catalog, "OCProperties");
    EXPECT_EQ(CosArrayGet(Get(ocp, "OCGs"), 0), ocg);
    EXPECT_EQ(CosArrayGet(Get(Get(ocp, "D"), "OFF"), 0), ocg);
    std::string second = "1 w ";
    EXPECT_EQ(WrapInOptionalContent(doc, resources, second, true, true), "TMROCG2");
    EXPECT_EQ(second, "/OC /TMROCG2 BDC 1 w EMC ");
}

}  // namespace
