#include <gtest/gtest.h>

#include "settings/SettingsFile.h"
#include "tests/settings/SettingsTestUtil.h"

namespace {

std::string Target(const std::string& body, const std::string& attrs = "") {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<trimora><target name=\"T\"" + attrs + ">" + body +
           "</target></trimora>\n";
}

// Every setting the writer emits, moved away from its default.
void ChangeEverything(CTrimoraPreferences& p) {
    TargetSettings& t = p.Target();
    t.name = "Everything changed > defaults & <more>";
    t.pdfMajorVersion = 2;
    t.pdfMinorVersion = 0;
    t.precision = 3;
    t.evalUnits = A("Millimeters");

    OptimizeSettings& o = p.Optimize();
    o.flateLevel = 11;
    for (bool* b : {&o.linearize, &o.touchDates, &o.dupXObjCheck, &o.removeThumbs, &o.removeExtraBoxes,
                    &o.removeEditData, &o.removeMetadata, &o.removeJobTicket, &o.removeTags, &o.removeOPI,
                    &o.removeAltImages, &o.removeOutlines, &o.removeEmbeddedFiles, &o.removeRIOperators,
                    &o.removeOCGs, &o.removeTransparency, &o.flattenXObjects, &o.dupObjectCheck,
                    &o.recompressImagesLossless})
        *b = !*b;
    o.removeThreads = A("Remove");
    o.removeNamedDests = A("Remove");
    o.removePageLabels = A("RemoveUnused");
    o.annotProcessing = A("Flatten");
    o.acroformProcessing = A("Remove");
    o.objectStreams = A("Generate");

    ViewingSettings& v = p.Viewing();
    v.rotate = 90;
    v.pageMode = A("Bookmarks");
    v.pageLayout = A("ContinuousFacing");
    v.openPage = 3;
    v.openZoomFit = A("Custom");
    v.openZoom = 125.5;
    v.hideToolbar = v.hideMenubar = v.hideWindow = v.fitWindow = v.centerWindow = true;
    v.transition = TransitionSettings();
    v.transition.name = A("Blinds");
    v.transition.dimension = A("V");
    v.transition.motion = A("O");
    v.transition.direction = 270;
    v.transition.transDuration = 2;
    v.transition.pageDuration = 7;

    p.Metadata().entries = {{"Title", "A < B & C"}, {"Author", "Someone"}, {"Keywords", ""}};

    SecuritySettings& s = p.Security();
    s.encrypt = true;
    s.keyLength = 128;
    s.ownerPassword = "own&er";
    s.userPassword = "us<er";
    s.securityWord = kSecUserPasswordGiven | kSecOwnerPasswordGiven | kSecNoPrinting | kSecNoEditing |
                     kSecNoCopy | kSecNoNotes | kSecAllowFill | kSecAllowAccess | kSecAllowAssembly |
                     kSecAllowHQPrint;

    ImageSettings& im = p.Images();
    int k = 0;
    for (ImageClassSettings* c : {&im.color, &im.grayscale, &im.mono}) {
        ++k;
        c->downsampleAbove = 200.5 + k;
        c->resolution = 100 + k;
        c->downsampleUsing = A(k == 1 ? "Bicubic" : k == 2 ? "Average" : "Subsample");
        c->filter = A(k == 3 ? "CCITTG4" : "JPEG");
        c->jpegQuality = A("Low");
        c->flateLevel = 3;
        c->flatePrediction = !c->flatePrediction;
        c->rgbToYCbCr = !c->rgbToYCbCr;
        c->jbig2Lossless = !c->jbig2Lossless;
        c->interpolate = !c->interpolate;
    }
    im.allowPalettization = !im.allowPalettization;
    im.allowQuantization = !im.allowQuantization;
    im.maxColors = 16;
    im.descreenMonochrome = !im.descreenMonochrome;
    im.despeckle = !im.despeckle;

    ColorSettings& c = p.Colors();
    for (ColorConversionGroup* g : {&c.content, &c.rasterImages}) {
        g->type = A(g == &c.content ? "CMYK" : "RGB");
        g->gray.inputProfile = "gin.icc";
        g->gray.outputProfile = "gout.icc";
        g->rgb = {};
        g->rgb.inputProfile = "rin.icc";
        g->rgb.outputProfile = "rout.icc";
        g->rgb.intent = A("Saturation");
        g->cmyk.inputProfile = "cin.icc";
        g->cmyk.outputProfile = "cout.icc";
        g->cmyk.intent = A("AbsoluteColorimetric");
    }
    c.simulationProfile = "sim.icc";
    c.simulationIntent = A("RelativeColorimetric");
    c.grayReduction = A("DeviceGray");
    c.protectSpotColors = !c.protectSpotColors;
    c.useEmbeddedProfiles = !c.useEmbeddedProfiles;
    c.overprintAware = !c.overprintAware;

    LayoutSettings& l = p.Layout();
    l.type = A("Booklet");
    l.rows = 2;
    l.columns = 3;
    l.sheetSize = {842, 595};
    l.gutter = {4.5, 6};
    l.margins = {1, 2, 3, 4};
    l.pageScaleFactor = {0.5, 0.75};
    l.pageBox = A("TrimBox");
    l.pageScaling = A("Shrink");
    l.pageScalingPreserveAspect = false;
    l.pagePosition = A("TopLeft");
    l.stepAndRepeatCount = 4;
    l.sheetsPerSaddle = 5;
    l.marks = {1.5, 20, 0.25, 0.75, true, true, true};

    StampSettings& st = p.Stamp();
    st.background = true;
    st.opacity = 0.4;
    st.range = "1-3,7";
    st.rangeType = A("odd");
    st.position.xAlign = A("Custom");
    st.position.x = 72.25;
    st.position.yAlign = A("Top");
    st.position.w = 100;
    st.position.h = 50;
    st.position.rotation = 45;
    st.makeOCG = true;
    st.ocgView = false;
    st.ocgPrint = false;
    st.inputDoc = "stamp source.pdf";
    st.inputPage = 2;
    st.text = "CONFIDENTIAL & <draft>";
    st.font = "Times-Roman";
    st.fontSize = 36;
    st.startingPageNumber = 5;

    PageScalerSettings& ps = p.PageScaler();
    ps.sheetSize = {500, 700};
    ps.sheetSizeScaleFactor = {2, 3};
    ps.pageScaleFactor = {0.9, 0.8};
    ps.pageScaling = A("Scale");
    ps.pageScalingPreserveAspect = false;
    ps.pagePosition = A("BottomRight");
    ps.pageRotation = 180;

    PageBoxSettings& pb = p.PageBoxes();
    pb.art = {1, 2, 3, 4};
    pb.bleed = {5, 6, 7, 8};
    pb.crop = {-9, -10, 11, 12};
    pb.trim = {13, 14, 15, 16.5};
    pb.moveContents = true;
    pb.moveContentsTo = A("ArtBox");
    pb.resetPageBox = true;
    pb.resetFrom = A("BleedBox");
    pb.resetTo = A("TrimBox");

    FontSettings& f = p.Fonts();
    f.embed = !f.embed;
    f.subset = !f.subset;
    f.outline = !f.outline;
}

// The sections in which `a` and `b` differ.
std::vector<std::string> Differing(CTrimoraPreferences& a, CTrimoraPreferences& b) {
    std::vector<std::string> out;
    auto check = [&](const char* name, bool same) {
        if (!same) out.push_back(name);
    };
    check("target", a.Target() == b.Target());
    check("optimize", a.Optimize() == b.Optimize());
    check("viewing", a.Viewing() == b.Viewing());
    check("metadata", a.Metadata() == b.Metadata());
    check("security", a.Security() == b.Security());
    check("images", a.Images() == b.Images());
    check("colors", a.Colors() == b.Colors());
    check("layout", a.Layout() == b.Layout());
    check("stamp", a.Stamp() == b.Stamp());
    check("page-scaler", a.PageScaler() == b.PageScaler());
    check("page-boxes", a.PageBoxes() == b.PageBoxes());
    check("fonts", a.Fonts() == b.Fonts());
    return out;
}

}  // namespace

TEST(SettingsXml, RoundTripOfEverySettingChanged) {
    ScratchDir dir;
    CapturedLog log;
    CTrimoraPreferences written, defaults;
    ChangeEverything(written);
    // Each section really differs from its defaults, so the comparison below means something.
    EXPECT_EQ(Differing(written, defaults).size(), 12u);
    std::string path = dir / "all.tmc";
    ASSERT_TRUE(WriteXmlSettings(written, path, log.log));
    CTrimoraPreferences read;
    ASSERT_TRUE(ReadXmlSettings(read, path, log.log)) << log.Text();
    EXPECT_EQ(Differing(read, written), std::vector<std::string>{});
    EXPECT_EQ(log.Text().find("Warning"), std::string::npos) << log.Text();

    // A file that cannot be written is reported.
    EXPECT_FALSE(WriteXmlSettings(written, "/nonexistent-dir/x.tmc", log.log));
    EXPECT_NE(log.Text().find("occured while writing the preferences\n"), std::string::npos);
}

TEST(SettingsXml, WrittenShapeStartsWithDeclarationAndKeepsSectionOrder) {
    CTrimoraPreferences p;
    std::string s = BuildXmlSettings(p).to_string();
    EXPECT_EQ(s.rfind("<?xml version = \"1.0\" encoding = \"UTF-8\"?>\n<trimora>", 0), 0u) << s;
    size_t last = 0;
    for (const char* sec : {"<optimize>", "<viewing>", "<metadata/>", "<security>", "<images>", "<colors>",
                            "<layout ", "<stamp ", "<page-scaler>", "<page-boxes>", "<fonts>"}) {
        size_t at = s.find(sec);
        ASSERT_NE(at, std::string::npos) << sec;
        EXPECT_GT(at, last) << sec;
        last = at;
    }
    EXPECT_NE(s.find("<target eval-units=\"Points\" name=\"Untitled Target\""), std::string::npos) << s;
}

// Reads `text` with the XML reader, over `start`.
static ReadSettings Xml(const std::string& text, CTrimoraPreferences start = {}) {
    return ReadSettings(ReadXmlSettings, "s.tmc", text, start);
}

TEST(SettingsXml, StructuralChecksAndExactBooleans) {
    {
        ReadSettings r = Xml("<trimora><target pdfMinorVersion=\"6\"><optimize><linearize>true</linearize>"
                             "</optimize></target><target pdfMinorVersion=\"3\"><optimize><linearize>false"
                             "</linearize></optimize></target></trimora>");
        ASSERT_TRUE(r.ok);
        EXPECT_EQ(r.p.Target().pdfMinorVersion, 6);  // only the first target counts
        EXPECT_TRUE(r.p.Optimize().linearize);
        EXPECT_NE(r.log.Text().find("Reading settings from '" + r.path + "'... \n"), std::string::npos)
            << r.log.Text();
        EXPECT_NE(r.log.Text().find("Initializing Settings...\n"), std::string::npos);
    }
    {
        ReadSettings r = Xml("<trimora><other/><target pdfMinorVersion=\"6\"/></trimora>");
        EXPECT_FALSE(r.ok);
        EXPECT_EQ(r.p.Target().pdfMinorVersion, TargetSettings().pdfMinorVersion);
        EXPECT_NE(r.log.Text().find("occured while reading the preferences\n"), std::string::npos);
        EXPECT_EQ(r.log.Text().find("Initializing Settings"), std::string::npos);
    }
    EXPECT_FALSE(Xml("<other><target/></other>").ok);
    ReadSettings r = Xml(Target("<optimize><linearize>True</linearize><touch-dates> true </touch-dates></optimize>"));
    ASSERT_TRUE(r.ok);
    EXPECT_FALSE(r.p.Optimize().linearize);
    EXPECT_TRUE(r.p.Optimize().touchDates);  // the value is trimmed before the comparison
}

TEST(SettingsXml, EmptyOptimizeKeepsDefaultsAndWalkOrderLetsLaterWin) {
    ReadSettings e = Xml(Target("<optimize/>"));
    ASSERT_TRUE(e.ok);
    EXPECT_EQ(e.p.Optimize(), OptimizeSettings());
    ReadSettings r = Xml(Target("<optimize><flate-level>3</flate-level><unknown>x</unknown><remove-thumbs>false"
                                "</remove-thumbs><flate-level>5</flate-level></optimize>"));
    ASSERT_TRUE(r.ok);
    EXPECT_EQ(r.p.Optimize().flateLevel, 5);
    EXPECT_FALSE(r.p.Optimize().removeThumbs);
    EXPECT_EQ(r.log.Text().find("Warning"), std::string::npos);
}

TEST(SettingsXml, BadValuesWarnOrFailWithoutCrashing) {
    ReadSettings w = Xml(Target("<optimize><flate-level>-1</flate-level><remove-threads>Keep</remove-threads>"
                                "</optimize><security><key-length>56</key-length></security>"
                                "<viewing><rotate>45</rotate><page-mode>Outlines</page-mode></viewing>",
                                " eval-units=\"Furlongs\""));
    ASSERT_TRUE(w.ok);
    EXPECT_EQ(w.p.Optimize().flateLevel, 9);
    EXPECT_EQ(w.p.Optimize().removeThreads, A("None"));
    EXPECT_EQ(w.p.Security().keyLength, 40);
    EXPECT_EQ(w.p.Viewing().rotate, 0);
    EXPECT_EQ(w.p.Viewing().pageMode, A("None"));
    EXPECT_EQ(w.p.Target().evalUnits, A("Points"));
    for (const char* name : {"'flate-level'", "'remove-threads'", "'key-length'", "'rotate'", "'page-mode'",
                             "'eval-units'"})
        EXPECT_NE(w.log.Text().find(name), std::string::npos) << name << " in " << w.log.Text();

    ReadSettings n = Xml(Target("<optimize><flate-level>nine</flate-level></optimize>"));
    EXPECT_FALSE(n.ok);
    EXPECT_NE(n.log.Text().find("An error ('"), std::string::npos);
    EXPECT_NE(n.log.Text().find("nine"), std::string::npos);

    ReadSettings m = Xml("<trimora><target>\n</trimora>");
    EXPECT_FALSE(m.ok);
    EXPECT_NE(m.log.Text().find("An error ('Parse error at line 2 --- mismatched tag') occured while reading "
                                "the preferences\n"),
              std::string::npos)
        << m.log.Text();
}

TEST(SettingsXml, SecurityAndStampDetails) {
    ReadSettings r = Xml(Target("<security><owner-password>o</owner-password><permissions printing=\"false\" "
                                "copying=\"true\" assembly=\"true\" form-filling=\"no\"/></security>"
                                "<stamp><position x=\"12.5\" y=\"Fit\"/><text text-color=\"#FF8000\">Hi</text>"
                                "</stamp>"));
    ASSERT_TRUE(r.ok) << r.log.Text();
    const SecuritySettings& s = r.p.Security();
    EXPECT_TRUE(s.encrypt);
    EXPECT_EQ(s.securityWord, kSecOwnerPasswordGiven | kSecNoPrinting | kSecAllowAssembly);
    const StampSettings& st = r.p.Stamp();
    EXPECT_EQ(st.position.xAlign, A("Custom"));
    EXPECT_DOUBLE_EQ(st.position.x, 12.5);
    EXPECT_EQ(st.position.yAlign, A("Fit"));
    EXPECT_DOUBLE_EQ(st.textColor[0], 1.0);
    EXPECT_NEAR(st.textColor[1], 128 / 255.0, 1e-9);
    EXPECT_TRUE(st.Enabled());
}

TEST(SettingsXml, EveryTruncationOfAFullFileEndsCleanly) {
    CTrimoraPreferences full;
    ChangeEverything(full);
    const std::string text = BuildXmlSettings(full).to_string();
    Log quiet;
    quiet.SetConsoleQuiet(true);
    int parsed = 0;
    for (size_t len = 0; len <= text.size(); len += 5) {
        try {
            domLite::document d = domLite::parser().parse_buffer(text.data(), len);
            CTrimoraPreferences p;
            ApplyXmlSettings(p, d, quiet);
            ++parsed;
        } catch (const std::exception&) {
            // A truncated document fails to parse; what matters is that it fails cleanly.
        }
    }
    // Only the complete text (trailing newline aside) parses.
    EXPECT_LE(parsed, 1);
}

TEST(SettingsXml, TextColorTakesOnlyHexDigitsOrUnitComponents) {
    CTrimoraPreferences grey;
    grey.Stamp().textColor[0] = grey.Stamp().textColor[1] = grey.Stamp().textColor[2] = 0.5;
    auto colour = [&](const std::string& value) {
        ReadSettings r = Xml(Target("<stamp><text text-color=\"" + value + "\">x</text></stamp>"), grey.Copy());
        EXPECT_TRUE(r.ok) << r.log.Text();
        const bool warned = r.log.Text().find("for setting 'text-color'") != std::string::npos;
        return std::make_pair(std::vector<double>(std::begin(r.p.Stamp().textColor), std::end(r.p.Stamp().textColor)),
                              warned);
    };
    // A sign or a blank where a hex digit belongs keeps the colour (and warns)
    // instead of giving negative components.
    for (const char* bad : {"#-1-1-1", "# 1 1 1", "#+F+F+F", "#GG0000"})
        EXPECT_EQ(colour(bad), std::make_pair(std::vector<double>({0.5, 0.5, 0.5}), true)) << bad;
    auto [c, warned] = colour("#00ff80");
    EXPECT_FALSE(warned);
    EXPECT_DOUBLE_EQ(c[0], 0);
    EXPECT_DOUBLE_EQ(c[1], 1);
    EXPECT_NEAR(c[2], 128 / 255.0, 1e-12);
    EXPECT_EQ(colour("0.25 1 0"), std::make_pair(std::vector<double>({0.25, 1, 0}), false));
}

TEST(SettingsXml, ObjectStreamsTakesItsThreeWords) {
    EXPECT_EQ(CTrimoraPreferences().Optimize().objectStreams, A("Preserve"));
    CTrimoraPreferences disabled;
    disabled.Optimize().objectStreams = A("Disable");
    for (const char* word : {"Generate", "Disable", "Preserve"}) {
        ReadSettings r = Xml(Target(std::string("<optimize><object-streams>") + word + "</object-streams></optimize>"),
                             disabled.Copy());
        ASSERT_TRUE(r.ok);
        EXPECT_EQ(r.p.Optimize().objectStreams, A(word));
        EXPECT_EQ(r.log.Text().find("Warning"), std::string::npos) << r.log.Text();
    }
    // Another word (or another case) keeps the setting and says so.
    ReadSettings r = Xml(Target("<optimize><object-streams>generate</object-streams></optimize>"));
    ASSERT_TRUE(r.ok);
    EXPECT_EQ(r.p.Optimize().objectStreams, A("Preserve"));
    EXPECT_NE(r.log.Text().find("'object-streams'"), std::string::npos) << r.log.Text();
    // Written in the optimize section.
    EXPECT_NE(BuildXmlSettings(r.p).to_string().find("<object-streams>Preserve</object-streams>"), std::string::npos);
}
