// The page-operation loop and the per-document run, with operations made
// for the test.
#include <lcms2.h>

#include <cstdlib>
#include <filesystem>

#include "pdfcore/CosInternal.h"
#include "pipeline/Pipeline.h"
#include "pipeline_fixture.h"

namespace {

using namespace pipeline;
using namespace pipetest;

// Counts the pages it saw; fails on one chosen page.
class MarkPages : public PageOperation {
public:
    MarkPages(PagePhase phase, int failOn, bool enabled = true)
        : m_phase(phase), m_failOn(failOn), m_enabled(enabled) {}
    const char* Name() const override { return "marking"; }
    PagePhase Phase() const override { return m_phase; }
    bool Enabled(const CTrimoraPreferences&) const override { return m_enabled; }
    std::string FailureMessage(ASInt32 page) const override {
        return "Error while marking page " + std::to_string(page);
    }
    void Apply(CosObj page, RunContext& ctx) override {
        if (ctx.pageNumber + 1 == m_failOn) ASRaiseErr(ErrSysCos, kErrBadOperation);
        CosDictPutInteger(page, ASAtomFromString("Marked"), ctx.pageNumber + 1);
        ctx.stats.Increment("Thumbs_Removed");
    }

private:
    PagePhase m_phase;
    int m_failOn;
    bool m_enabled;
};

class CountAfter : public PageOperation {
public:
    const char* Name() const override { return "counting"; }
    PagePhase Phase() const override { return PagePhase::PostLayout; }
    bool Enabled(const CTrimoraPreferences&) const override { return true; }
    void Apply(CosObj, RunContext& ctx) override { ctx.stats.Increment("Rotations_Removed"); }
};

class CleanupThatFails : public DocumentOperation {
public:
    const char* Name() const override { return "document clean-up"; }
    DocumentPoint Point() const override { return DocumentPoint::DocumentCleanup; }
    bool Enabled(const CTrimoraPreferences&) const override { return true; }
    void Apply(RunContext&) override { ASRaiseErr(ErrSysGeneral, kErrInternal); }
};

class PipelineTest : public DocTest {
protected:
    void SetUp() override {
        DocTest::SetUp();
        prefs.SetProducerText("Trimora 2.5 (Apr 16 2004)");
    }
    // `n` empty letter pages.
    void Pages(int n) {
        for (int i = 0; i < n; ++i) AddPage(nullptr, false);
    }
    ScratchDir dir;
};

TEST_F(PipelineTest, PageLoopAppliesEveryOperationAndSurvivesFailures) {
    Pages(3);
    OperationRegistry reg;
    reg.Add(std::make_unique<MarkPages>(PagePhase::PostLayout, 2));
    reg.Add(std::make_unique<MarkPages>(PagePhase::PostLayout, 0, false));  // disabled: never runs
    reg.Add(std::make_unique<CountAfter>());
    auto ops = reg.PageOperations(PagePhase::PostLayout, prefs);
    ASSERT_EQ(2u, ops.size());
    EXPECT_TRUE(reg.PageOperations(PagePhase::PreLayout, prefs).empty());

    RunContext ctx = Ctx();
    EXPECT_EQ(1, RunPageLoop(ops, ctx));
    EXPECT_EQ(2, ctx.stats.Get("Thumbs_Removed"));     // pages 1 and 3
    EXPECT_EQ(3, ctx.stats.Get("Rotations_Removed"));  // the failure did not stop page 2
    EXPECT_EQ(1, CosDictGetInt(PDDocGetPageObj(pd, 0), ASAtomFromString("Marked"), 0));
    EXPECT_EQ(0, CosDictGetInt(PDDocGetPageObj(pd, 1), ASAtomFromString("Marked"), 0));
    EXPECT_EQ("Processing Page 1\nProcessing Page 2\nProcessing Page 3\n", cap.Out());
    EXPECT_NE(std::string::npos, cap.Err().find("Error while marking page 2: '"));
}

TEST_F(PipelineTest, RunGoesThroughThePhasesInOrderAndSaves) {
    Pages(2);
    OperationRegistry reg;
    reg.Add(std::make_unique<MarkPages>(PagePhase::PreLayout, 0));
    reg.Add(std::make_unique<CleanupThatFails>());
    const std::string out = dir / "out.pdf";
    prefs.Statistics().startingSize = 0;
    EXPECT_EQ(0, pipeline::Run(pd, out, prefs, reg));

    const std::string progress = cap.Out();
    const char* order[] = {"Processing Page 1\n", "Processing Page 2\n", "Starting File Reduction\n",
                           "Completed File Reduction\n", "Setting Additional Settings (if any) \n",
                           "Saving...\n", "File Saved!\n"};
    size_t at = 0;
    for (const char* line : order) {
        size_t found = progress.find(line, at);
        ASSERT_NE(std::string::npos, found) << line << " missing or out of order in:\n" << progress;
        at = found;
    }
    EXPECT_EQ(std::string::npos, progress.find("Setting Info Fields"));  // no metadata configured
    EXPECT_NE(std::string::npos, cap.Err().find("Error while performing document clean-up: '"));

    const auto size = std::filesystem::file_size(out);
    EXPECT_EQ(ASInt32(size), prefs.Statistics().endingSize);
    EXPECT_EQ(0.0, prefs.Statistics().percent);  // starting size 0
    EXPECT_GE(prefs.Statistics().endMillis, prefs.Statistics().startMillis);
}

TEST_F(PipelineTest, FinalisationWritesInfoAndViewerSettings) {
    Pages(3);
    prefs.Metadata().entries["Title"] = "Caf\xC3\xA9";
    prefs.Optimize().touchDates = true;
    prefs.Viewing().pageMode = ASAtomFromString("Bookmarks");
    prefs.Viewing().openPage = 7;  // past the end: the last page
    prefs.Viewing().hideToolbar = true;
    const std::string out = dir / "final.pdf";
    EXPECT_EQ(0, pipeline::Run(pd, out, prefs, OperationRegistry{}));

    CosObj info = CosDocGetInfo(doc);
    EXPECT_EQ(std::string("\xFE\xFF\x00" "C\x00" "a\x00" "f\x00\xE9", 10),
              CosStringBytes(CosDictGet(info, ASAtomFromString("Title"))));
    EXPECT_EQ("By Trimora 2.5 (Apr 16 2004)",
              CosStringBytes(CosDictGet(info, ASAtomFromString("Enhanced"))));
    const std::string date = CosStringBytes(CosDictGet(info, cosnames::ModDate));
    EXPECT_EQ(0u, date.rfind("D:", 0));
    EXPECT_EQ("-00'00'", date.substr(date.size() - 7));
    CosObj catalog = cat;
    EXPECT_STREQ("UseOutlines", ASAtomGetString(CosDictGetName(catalog, ASAtomFromString("PageMode"))));
    CosObj open = CosDictGet(catalog, ASAtomFromString("OpenAction"));
    ASSERT_EQ(kCosArray, CosObjGetType(open));
    EXPECT_TRUE(CosObjEqual(PDDocGetPageObj(pd, 2), CosArrayGet(open, 0)));
    EXPECT_TRUE(CosDictGetBool(CosDictGet(catalog, ASAtomFromString("ViewerPreferences")),
                               ASAtomFromString("HideToolbar"), false));
    EXPECT_NE(std::string::npos, cap.Out().find("Setting Info Fields\n"));
}

TEST_F(PipelineTest, FailedSaveReturnsTheCodeAndLeavesNoFile) {
    Pages(1);
    const std::string out = dir / "never.pdf";
    setenv(kFailSaveVariable, "1", 1);
    const ASErrorCode code = pipeline::Run(pd, out, prefs, OperationRegistry{});
    unsetenv(kFailSaveVariable);
    EXPECT_EQ(kErrFileWrite, ErrGetNumber(code));
    EXPECT_FALSE(std::filesystem::exists(out));
    EXPECT_FALSE(std::filesystem::exists(out + ".tmfail"));
    EXPECT_EQ(std::string::npos, cap.Out().find("File Saved!"));

    // A folder that does not exist fails in the writer itself.
    EXPECT_NE(0, pipeline::Run(pd, dir / "no/such/x.pdf", prefs, OperationRegistry{}));
}

class ImageStep : public DocumentOperation {
public:
    const char* Name() const override { return "image step"; }
    DocumentPoint Point() const override { return DocumentPoint::ImageReduction; }
    bool Enabled(const CTrimoraPreferences&) const override { return true; }
    void Apply(RunContext& ctx) override { ctx.stats.Increment("Images_Colored"); }
};

TEST_F(PipelineTest, ImageColourConversionCountsAsImageReduction) {
    Pages(1);
    OperationRegistry reg;
    reg.Add(std::make_unique<ImageStep>());
    const std::string out = dir / "img.pdf";
    ASSERT_EQ(0, pipeline::Run(pd, out, prefs, reg));  // defaults: no image work
    EXPECT_EQ(0, Stat("Images_Colored"));
    EXPECT_EQ(std::string::npos, cap.Out().find("Performing image reduction...\n"));

    prefs.Colors().rasterImages.type = ASAtomFromString("CMYK");
    prefs.RunFinishingSteps();
    ASSERT_TRUE(prefs.Color().images.convert);
    ASSERT_FALSE(prefs.Image().Configured());
    ASSERT_EQ(0, pipeline::Run(pd, out, prefs, reg));
    EXPECT_EQ(1, Stat("Images_Colored"));
    EXPECT_NE(std::string::npos, cap.Out().find("Performing image reduction...\n"));
}

TEST_F(PipelineTest, HeaderVersionIsTheTargetsEvenBelowTheInputs) {
    Pages(1);
    CosDocMutableFileInfo(doc).minorVersion = 6;  // as if read from a 1.6 file
    // By default (no target, 0) the input's own version stands.
    for (auto [minor, header] : {std::pair{0, "%PDF-1.6"}, {3, "%PDF-1.3"}, {7, "%PDF-1.7"}}) {
        if (minor) prefs.Target().pdfMajorVersion = 1, prefs.Target().pdfMinorVersion = minor;
        const std::string path = dir / ("v" + std::to_string(minor) + ".pdf");
        ASSERT_EQ(0, pipeline::Run(pd, path, prefs, OperationRegistry{}));
        EXPECT_EQ(header, ReadFile(path).substr(0, 8));
    }
}

TEST_F(PipelineTest, ObjectStreamsSettingChoosesTheFileForm) {
    Pages(2);
    auto compact = [&](const char* name) {
        const std::string path = dir / name;
        EXPECT_EQ(0, pipeline::Run(pd, path, prefs, OperationRegistry{}));
        const std::string bytes = ReadFile(path);
        const bool stream = bytes.find("/Type/XRef") != std::string::npos;
        EXPECT_NE(stream, bytes.find("\rxref\r") != std::string::npos) << name;
        if (stream) {
            EXPECT_EQ(bytes.substr(0, 8), "%PDF-1.5") << name;
        }
        return stream;
    };
    // Preserve (the default) follows what the input used.
    EXPECT_FALSE(compact("plain.pdf"));
    CosDocMutableFileInfo(doc).objectStreams = true;
    EXPECT_TRUE(compact("kept.pdf"));
    prefs.Optimize().objectStreams = ASAtomFromString("Disable");
    EXPECT_FALSE(compact("disabled.pdf"));
    prefs.Optimize().objectStreams = ASAtomFromString("Generate");
    CosDocMutableFileInfo(doc).objectStreams = false;
    EXPECT_TRUE(compact("generated.pdf"));
}

TEST(PipelinePercent, ShrunkGrownAndZero) {
    EXPECT_DOUBLE_EQ(25.0, PercentShrunk(1000, 750));
    EXPECT_DOUBLE_EQ(-50.0, PercentShrunk(1000, 1500));
    EXPECT_DOUBLE_EQ(0.0, PercentShrunk(0, 1234));
}

std::vector<uint8_t> ProfileBytes(cmsHPROFILE h) {
    cmsUInt32Number n = 0;
    cmsSaveProfileToMem(h, nullptr, &n);
    std::vector<uint8_t> bytes(n);
    cmsSaveProfileToMem(h, bytes.data(), &n);
    cmsCloseProfile(h);
    return bytes;
}

TEST(OutputIntent, RgbProfileIsAdoptedOthersAreNot) {
    // Adopts from a document whose output intent holds `profile` (none when null).
    auto adopt = [](const std::vector<uint8_t>* profile, CTrimoraPreferences& prefs) {
        fixture::OpenDoc d(PDDocCreate());
        const Maker m{d.cos()};
        if (profile)
            CosDictPut(CosDocGetRoot(d.cos()), A("OutputIntents"),
                       m.Array({m.Dict({{"DestOutputProfile", CosNewStream(d.cos(), CosNewNull(), *profile)}})}));
        return AdoptOutputIntent(d.pd, prefs);
    };
    CTrimoraPreferences prefs;
    EXPECT_FALSE(adopt(nullptr, prefs));
    const std::vector<uint8_t> lab = ProfileBytes(cmsCreateLab4Profile(nullptr));
    EXPECT_FALSE(adopt(&lab, prefs));
    EXPECT_TRUE(prefs.Colors().destinationProfile.empty());
    const std::vector<uint8_t> srgb = ProfileBytes(cmsCreate_sRGBProfile());
    EXPECT_TRUE(adopt(&srgb, prefs));
    EXPECT_EQ(srgb, prefs.Colors().destinationProfile);
    EXPECT_STREQ("RGB", ASAtomGetString(prefs.Colors().destinationSpace));
    const std::vector<uint8_t> junk(200, 0x41);
    CTrimoraPreferences fresh;
    EXPECT_FALSE(adopt(&junk, fresh));
}

}  // namespace
