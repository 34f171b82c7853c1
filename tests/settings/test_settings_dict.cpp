#include <gtest/gtest.h>

#include <unistd.h>

#include "tests/settings/SettingsTestUtil.h"

TEST(SettingsDict, ReadsEveryGroup) {
    ScratchDir dir;
    CapturedLog log;
    dir.Write("rgb.icc", "not really a profile");
    std::string path = dir.Write("full.tms", R"(<<
  /WebEnable true /TouchDates true /PDFMajorVersion 1 /PDFMinorVersion 6 /FixedPrecision 3
  /Rotate 180 /OpenPage 2 /OpenZoom 150 /FlateLevel 12
  /Info << /Title (Quarterly) /Author (Me) >>
  /Encrypt << /KeyLength 128 /OwnerPassword (own) /UserPassword (usr) /NoPrinting true /NoCopying true
              /AllowAssembly true /AllowHQPrint true >>
  /PageMode /Thumbs /PageLayout /Continuous /HideToolbar true /CenterWindow true
  /Optimizations << /NoXObjectCheck false /LeaveThumbnails true /RemoveTagging false /RemoveOutlineTree true /DuplicateObjectCheck true /RecompressImagesLossless true
                    /RemoveAnnotations /Flatten /RemoveThreads true /RemovePageLabels /RemoveUnused >>
  /Images << /Default << /Filter /Flate >>
             /Color << /Resolution 150 /DownsampleThreshold 1.5 /DownsampleType /Bicubic /Filter /JPEG
                       /JPEGQuality /Medium >>
             /Mono << /Filter /CCITTG4 >> /AllowQuantization true /MaxColorsToQuantize 64 >>
  /Watermark << /FileSpec (logo.pdf) /Page 2 /Background true /HPosition /Left /VPosition 40 /Opacity 0.5
                /MakeOCG true /Printable false >>
  /Transition << /S /Dissolve /D 2 /Dur 5 >>
  /ColorConversion << /Operation /RGB /RGBOutputProfile (rgb.icc) /RGBOutputIntent /Saturation /Content true >>
  /Imposition << /Type /StepAndRepeat /Rows 2 /Columns 2 /Gutters [6 8] /Margins [1 2 3 4] /CropMarks true >>
  /Boxes << /CropBox [10 20 300 400] >>
>>)");
    CTrimoraPreferences p;
    ASSERT_TRUE(LoadSettingsFile(p, path, log.log)) << log.Text();
    std::string text = log.Text();
    EXPECT_NE(text.find("Reading settings from '" + path + "'... \n"), std::string::npos);
    EXPECT_NE(text.find("Loading Color Profiles...\n"), std::string::npos);
    EXPECT_EQ(text.find("Warning"), std::string::npos) << text;

    EXPECT_TRUE(p.Optimize().linearize);
    EXPECT_EQ(p.Target().pdfMinorVersion, 6);
    EXPECT_EQ(p.Target().precision, 3);
    EXPECT_EQ(p.Viewing().rotate, 180);
    EXPECT_EQ(p.Viewing().openZoomFit, A("Custom"));
    EXPECT_EQ(p.Optimize().flateLevel, 12);
    EXPECT_TRUE(p.Optimize().dupObjectCheck);
    EXPECT_TRUE(p.Optimize().recompressImagesLossless);
    EXPECT_EQ(p.Metadata().entries.at("Title"), "Quarterly");
    const SecuritySettings& s = p.Security();
    EXPECT_TRUE(s.encrypt);
    EXPECT_EQ(s.keyLength, 128);
    EXPECT_EQ(s.securityWord, kSecOwnerPasswordGiven | kSecUserPasswordGiven | kSecNoPrinting | kSecNoCopy |
                                  kSecAllowAssembly | kSecAllowHQPrint);
    EXPECT_EQ(p.Viewing().pageMode, A("Thumbs"));
    EXPECT_TRUE(p.Optimize().dupXObjCheck);
    EXPECT_FALSE(p.Optimize().removeThumbs);
    EXPECT_FALSE(p.Optimize().removeTags);
    EXPECT_EQ(p.Optimize().annotProcessing, A("Flatten"));
    EXPECT_EQ(p.Optimize().removeThreads, A("Remove"));
    EXPECT_EQ(p.Optimize().removePageLabels, A("RemoveUnused"));
    EXPECT_EQ(p.Images().color.filter, A("JPEG"));
    EXPECT_EQ(p.Images().grayscale.filter, A("Flate"));  // from Default
    EXPECT_EQ(p.Images().mono.filter, A("CCITTG4"));
    EXPECT_DOUBLE_EQ(p.Images().color.downsampleAbove, 225);
    EXPECT_EQ(p.Images().maxColors, 64);
    EXPECT_EQ(p.Stamp().inputDoc, "logo.pdf");
    EXPECT_EQ(p.Stamp().position.xAlign, A("Left"));
    EXPECT_EQ(p.Stamp().position.yAlign, A("Custom"));
    EXPECT_FALSE(p.Stamp().ocgPrint);
    EXPECT_EQ(p.Viewing().transition.name, A("Dissolve"));
    EXPECT_EQ(p.Viewing().transition.pageDuration, 5);
    EXPECT_EQ(p.Colors().content.type, A("RGB"));
    EXPECT_EQ(p.Layout().type, A("StepAndRepeat"));
    EXPECT_DOUBLE_EQ(p.Layout().margins.right, 4);
    EXPECT_TRUE(p.PageBoxes().crop.IsSet());

    // The finishing steps ran: the derived objects follow the settings.
    EXPECT_TRUE(p.Image().color.downsample);
    EXPECT_EQ(p.Image().color.resampleFilter, "triangle");
    EXPECT_EQ(p.Image().color.jpegQuality, 65);
    EXPECT_TRUE(p.Color().images.convert);
    EXPECT_EQ(p.Color().images.outputProfile, "rgb.icc");
}

// Reads `text` saved as `name` with the loader that picks the form by name.
static ReadSettings Load(const std::string& text, const std::string& name = "s.tms", CTrimoraPreferences start = {}) {
    return ReadSettings(LoadSettingsFile, name, text, start);
}

TEST(SettingsDict, MissingFileBadSyntaxAndBadValues) {
    {
        ScratchDir dir;
        CapturedLog log;
        CTrimoraPreferences p;
        std::string path = dir / "none.tms";
        EXPECT_FALSE(LoadSettingsFile(p, path, log.log));
        EXPECT_NE(log.Text().find("Unable to locate configuration file '" + path + "'.\n"), std::string::npos);
        EXPECT_FALSE(p.Image().color.downsample);
    }
    char before[512];
    ASSERT_TRUE(getcwd(before, sizeof before));
    ReadSettings bad = Load("<< /FlateLevel 3 /Info << /Title (x");
    EXPECT_FALSE(bad.ok);
    EXPECT_NE(bad.log.Text().find("occured while reading the preferences\n"), std::string::npos);
    char after[512];
    ASSERT_TRUE(getcwd(after, sizeof after));
    EXPECT_STREQ(before, after);  // the current folder came back
    EXPECT_FALSE(Load("[1 2 3]").ok);

    ReadSettings r = Load("<< /FlateLevel -2 /Encrypt << /KeyLength 56 >> /PageMode /Sideways /WebEnable 1 >>");
    ASSERT_TRUE(r.ok);
    EXPECT_EQ(r.p.Optimize().flateLevel, 9);
    EXPECT_EQ(r.p.Security().keyLength, 40);
    EXPECT_EQ(r.p.Viewing().pageMode, A("None"));
    EXPECT_FALSE(r.p.Optimize().linearize);
    for (const char* key : {"'FlateLevel'", "'KeyLength'", "'PageMode'", "'WebEnable'"})
        EXPECT_NE(r.log.Text().find(key), std::string::npos) << key << " in " << r.log.Text();
}

TEST(SettingsDict, NameChoosesForm) {
    // Dictionary syntax in a name holding both extensions: read as the dictionary form.
    ReadSettings both = Load("<< /FlateLevel 4 >>", "x.tmc.tms.bak");
    ASSERT_TRUE(both.ok) << both.log.Text();
    EXPECT_EQ(both.p.Optimize().flateLevel, 4);
    ReadSettings xml =
        Load("<trimora><target><optimize><flate-level>2</flate-level></optimize></target></trimora>", "y.tmc");
    ASSERT_TRUE(xml.ok);
    EXPECT_EQ(xml.p.Optimize().flateLevel, 2);
    // Neither: nothing is read, the finishing steps still run.
    CTrimoraPreferences average;
    average.Images().color.downsampleUsing = A("Average");
    ReadSettings neither = Load("<< /FlateLevel 1 >>", "z.txt", average);
    ASSERT_TRUE(neither.ok);
    EXPECT_EQ(neither.p.Optimize().flateLevel, 9);
    EXPECT_EQ(neither.p.Image().color.resampleFilter, "box");
}

TEST(SettingsDict, IntegerKeysRefuseFractionsAndHugeReals) {
    CTrimoraPreferences start;
    start.Layout().rows = 3;
    ReadSettings r = Load("<< /FlateLevel 1000000000000000000000000000000000.0 /Rotate 99999999999999999999 "
                          "/OpenPage -3.0 /Encrypt << /KeyLength 128.0 >> /Imposition << /Rows 2.5 /Columns 4.0 >> >>",
                          "big.tms", start);
    ASSERT_TRUE(r.ok) << r.log.Text();
    EXPECT_EQ(r.p.Optimize().flateLevel, 9);
    EXPECT_EQ(r.p.Viewing().rotate, 0);
    EXPECT_EQ(r.p.Viewing().openPage, 0);
    EXPECT_EQ(r.p.Layout().rows, 3);
    // A real with no fraction is a whole number.
    EXPECT_EQ(r.p.Layout().columns, 4);
    EXPECT_EQ(r.p.Security().keyLength, 128);
    for (const char* key : {"'FlateLevel'", "'Rotate'", "'OpenPage'", "'Rows'"})
        EXPECT_NE(r.log.Text().find(key), std::string::npos) << key << " in " << r.log.Text();
}

TEST(SettingsDict, ObjectStreamsIsATopLevelName) {
    CTrimoraPreferences disabled;
    disabled.Optimize().objectStreams = A("Disable");
    for (const char* word : {"Generate", "Disable", "Preserve"}) {
        ReadSettings r = Load(std::string("<< /ObjectStreams /") + word + " >>", "o.tms", disabled.Copy());
        ASSERT_TRUE(r.ok);
        EXPECT_EQ(r.p.Optimize().objectStreams, A(word));
    }
    for (const char* bad : {"<< /ObjectStreams /Always >>", "<< /ObjectStreams (Generate) >>",
                            "<< /ObjectStreams true >>"}) {
        ReadSettings r = Load(bad);
        ASSERT_TRUE(r.ok);
        EXPECT_EQ(r.p.Optimize().objectStreams, A("Preserve")) << bad;
        EXPECT_NE(r.log.Text().find("'ObjectStreams'"), std::string::npos) << bad << ": " << r.log.Text();
    }
}
