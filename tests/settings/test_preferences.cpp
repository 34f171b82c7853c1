#include <gtest/gtest.h>

#include "settings/FileList.h"
#include "settings/SettingsFile.h"
#include "tests/settings/SettingsTestUtil.h"

namespace {
const std::string kExamples = std::string(TM_TEST_DATA_DIR) + "/../../examples/";
}  // namespace

TEST(Preferences, HandleSharesAndCopyIsIndependent) {
    CTrimoraPreferences master;
    CTrimoraPreferences alias = master;
    alias.Optimize().flateLevel = 3;
    EXPECT_EQ(master.Optimize().flateLevel, 3);
    EXPECT_TRUE(alias.SharesWith(master));

    CapturedLog log;
    master.SetLog(&log.log);
    master.SetProducerText("Trimora 2.5 (Apr 16 2004)");
    CosObj& stats = master.StatisticsDict();
    CosDictPutInteger(stats, A("Images_Total"), 7);

    CTrimoraPreferences work = master.Copy();
    EXPECT_FALSE(work.SharesWith(master));
    EXPECT_EQ(work.Optimize().flateLevel, 3);
    EXPECT_EQ(work.GetLog(), &log.log);
    EXPECT_EQ(work.ProducerText(), "Trimora 2.5 (Apr 16 2004)");
    EXPECT_EQ(CosDictGetInt(work.StatisticsDict(), A("Images_Total"), -1), 7);
    EXPECT_NE(work.StatisticsDoc(), master.StatisticsDoc());

    work.Optimize().flateLevel = 1;
    CosDictPutInteger(work.StatisticsDict(), A("Images_Total"), 0);
    EXPECT_EQ(master.Optimize().flateLevel, 3);
    EXPECT_EQ(CosDictGetInt(master.StatisticsDict(), A("Images_Total"), -1), 7);

    master.ResetToDefaults();
    EXPECT_EQ(master.Optimize(), OptimizeSettings());
    EXPECT_EQ(master.GetLog(), &log.log);
}

// Nothing lossy and nothing that changes a page is on by default (the
// defaults a bad value falls back to are checked with the readers).
TEST(Preferences, DefaultsAreConservative) {
    CTrimoraPreferences p;
    p.RunFinishingSteps();
    EXPECT_TRUE(p.Optimize().removeThumbs);
    EXPECT_FALSE(p.Optimize().removeOutlines);
    EXPECT_FALSE(p.Viewing().OpenActionConfigured());
    EXPECT_TRUE(p.Fonts().subset);
    EXPECT_EQ(p.Security().securityWord, 0);
    EXPECT_FALSE(p.Metadata().Enabled());
    EXPECT_FALSE(p.Layout().Enabled());
    EXPECT_FALSE(p.Stamp().Enabled());
    EXPECT_FALSE(p.PageScaler().Enabled());
    EXPECT_FALSE(p.PageBoxes().Enabled());
    EXPECT_FALSE(p.Image().Configured());
    EXPECT_FALSE(p.Color().Configured());
}

TEST(Preferences, FinishingStepsDeriveFromCurrentSettings) {
    CTrimoraPreferences p;
    ImageClassSettings& c = p.Images().color;
    c.downsampleUsing = A("Subsample");
    c.resolution = 150;
    c.downsampleAbove = 100;  // below the target: never upsample
    c.filter = A("JPEG");
    c.jpegQuality = A("Maximum");
    p.Images().grayscale.downsampleUsing = A("Average");
    p.Images().mono.downsampleUsing = A("Bicubic");
    p.RunFinishingSteps();
    EXPECT_EQ(p.Image().color.resampleFilter, "point");
    EXPECT_DOUBLE_EQ(p.Image().color.thresholdPpi, 150);
    EXPECT_TRUE(p.Image().color.recompress);
    EXPECT_EQ(p.Image().color.jpegQuality, 92);
    EXPECT_EQ(p.Image().grayscale.resampleFilter, "box");
    EXPECT_EQ(p.Image().mono.resampleFilter, "triangle");
    EXPECT_TRUE(p.Image().Configured());

    // Rebuilt from scratch: switching off removes what was derived before.
    c.downsampleUsing = A("none");
    p.Colors().rasterImages.type = A("CMYK");
    p.Colors().rasterImages.cmyk.outputProfile = "press.icc";
    p.Colors().destinationProfile = {1, 2, 3};
    p.Colors().destinationSpace = A("CMYK");
    p.RunFinishingSteps();
    EXPECT_FALSE(p.Image().color.downsample);
    EXPECT_EQ(p.Image().color.resampleFilter, "");
    EXPECT_TRUE(p.Color().images.convert);
    EXPECT_EQ(p.Color().images.outputProfile, "press.icc");
    ASSERT_NE(p.Color().images.outputProfileData, nullptr);
    EXPECT_EQ(p.Color().images.outputProfileData->size(), 3u);
    EXPECT_FALSE(p.Color().content.convert);

    CTrimoraPreferences copy = p.Copy();
    ASSERT_NE(copy.Color().images.outputProfileData, nullptr);
    EXPECT_EQ(copy.Color().images.outputProfileData, &copy.Colors().destinationProfile);
}

TEST(Preferences, CommandLineOverridesOnlySwitchOn) {
    CTrimoraPreferences p;
    p.Security().keyLength = 128;
    p.Security().securityWord = kSecNoEditing | kSecAllowFill;
    p.Security().ownerPassword = "fromfile";
    CommandLineSecurity o;
    o.keyLength = 56;
    ApplyCommandLineOverrides(p, o);
    EXPECT_EQ(p.Security().keyLength, 128);
    EXPECT_FALSE(p.Security().encrypt);
    EXPECT_EQ(p.Security().ownerPassword, "fromfile");
    EXPECT_EQ(p.Security().securityWord, kSecNoEditing | kSecAllowFill);

    o.encrypt = true;
    o.keyLength = 40;
    o.ownerPassword = "owner";
    o.noPrinting = o.noCopy = o.noNotes = o.allowAccess = o.allowAssem = o.allowHQPrint = true;
    ApplyCommandLineOverrides(p, o);
    EXPECT_TRUE(p.Security().encrypt);
    EXPECT_EQ(p.Security().keyLength, 40);
    EXPECT_EQ(p.Security().ownerPassword, "owner");
    EXPECT_EQ(p.Security().userPassword, "");
    EXPECT_EQ(p.Security().securityWord, kSecOwnerPasswordGiven | kSecNoPrinting | kSecNoEditing | kSecNoCopy |
                                             kSecNoNotes | kSecAllowFill | kSecAllowAccess | kSecAllowAssembly |
                                             kSecAllowHQPrint);
    CommandLineSecurity u;
    u.userPassword = "user";
    u.keyLength = 128;
    ApplyCommandLineOverrides(p, u);
    EXPECT_EQ(p.Security().keyLength, 128);
    EXPECT_TRUE(p.Security().securityWord & kSecUserPasswordGiven);
    EXPECT_TRUE(p.Security().securityWord & kSecOwnerPasswordGiven);
}

TEST(Examples, EveryExampleLoadsWithoutWarnings) {
    for (const char* name : {"lossless-cleanup.tmc", "screen-email.tmc", "print.tmc", "web-ready.tms"}) {
        CapturedLog log;
        CTrimoraPreferences p;
        EXPECT_TRUE(LoadSettingsFile(p, kExamples + name, log.log)) << name << ": " << log.Text();
        std::string text = log.Text();
        EXPECT_EQ(text.find("Warning"), std::string::npos) << name << ": " << text;
        EXPECT_EQ(text.find("error"), std::string::npos) << name << ": " << text;
    }
    CapturedLog log;
    CTrimoraPreferences screen;
    ASSERT_TRUE(LoadSettingsFile(screen, kExamples + "screen-email.tmc", log.log));
    EXPECT_TRUE(screen.Image().color.downsample);
    EXPECT_DOUBLE_EQ(screen.Image().color.targetPpi, 150);
    EXPECT_EQ(screen.Images().color.jpegQuality, A("Medium"));

    FileList list;
    ASSERT_TRUE(ReadFileList(kExamples + "files.tml", list, log.log)) << log.Text();
    EXPECT_FALSE(list.entries.empty());
    EXPECT_EQ(log.Text().find("Warning"), std::string::npos);
}
