// The mono class in the image step: settings words to parameters, and a
// bilevel image reduced to JBIG2 with the real coder, read back by the
// JBIG2Decode filter.
#include <gtest/gtest.h>

#include <vector>

#include "base/Log.h"
#include "filters/Filters.h"
#include "pdfcore/CosDoc.h"
#include "pipeline/ImageReduction.h"
#include "pipeline/Operations.h"
#include "settings/TrimoraPreferences.h"

using namespace pipeline;

namespace {

ASAtom A(const char* s) { return ASAtomFromString(s); }

TEST(MonoParams, FollowTheMonoClassAndTheSectionSwitches) {
    CTrimoraPreferences prefs;
    prefs.RunFinishingSteps();
    EXPECT_FALSE(MonoParamsFor(prefs.Image()).Active());
    EXPECT_FALSE(prefs.Image().Configured());

    prefs.Images().despeckle = true;
    prefs.RunFinishingSteps();
    EXPECT_TRUE(prefs.Image().Configured());
    EXPECT_TRUE(MonoParamsFor(prefs.Image()).despeckle);

    const std::pair<const char*, images::MonoCompression> words[] = {
        {"CCITTG4", images::MonoCompression::CCITTG4}, {"CCITTG3", images::MonoCompression::CCITTG3},
        {"JBIG2", images::MonoCompression::JBIG2},     {"Flate", images::MonoCompression::Flate},
        {"JPEG", images::MonoCompression::Flate},      {"LZW", images::MonoCompression::LZW},
        {"Packbits", images::MonoCompression::Packbits}, {"Original", images::MonoCompression::Original}};
    for (const auto& [word, how] : words) {
        prefs.Images().mono.filter = A(word);
        prefs.RunFinishingSteps();
        EXPECT_EQ(MonoParamsFor(prefs.Image()).compression, how) << word;
    }
    prefs.Images().mono.downsampleUsing = A("Average");
    prefs.Images().mono.downsampleAbove = 450;
    prefs.Images().mono.resolution = 300;
    prefs.Images().descreenMonochrome = true;
    prefs.RunFinishingSteps();
    const images::MonoParams p = MonoParamsFor(prefs.Image());
    EXPECT_TRUE(p.downsample);
    EXPECT_EQ(p.resampleFilter, "box");
    EXPECT_DOUBLE_EQ(p.targetPpi, 300);
    EXPECT_TRUE(p.descreen);
    EXPECT_TRUE(static_cast<bool>(p.jbig2));
}

TEST(MonoStep, ReducesABilevelScanToJBIG2ThatDecodesToTheSameSamples) {
    const int w = 300, h = 200;
    const size_t stride = (w + 7) / 8;
    std::vector<uint8_t> page(stride * h, 0xFF);
    // Glyph-like blobs of random shapes on lines of text.
    unsigned seed = 5;
    for (int y = 20; y < 180; ++y)
        for (int x = 30; x < 270; ++x) {
            seed = seed * 1103515245u + 12345u;
            const bool inGlyph = (y / 12) % 2 == 0 && (x / 7) % 3 != 2 && ((x / 7 * 13 + y / 3) % 5 < 3);
            if (inGlyph && (seed >> 16) % 8 != 0) page[y * stride + x / 8] &= uint8_t(~(0x80 >> (x % 8)));
        }
    for (int y = 0; y < h; ++y) page[y * stride + stride - 1] &= 0xF0;  // clear padding past 300

    PDDoc pd = PDDocCreate();
    CosDoc doc = PDDocGetCosDoc(pd);
    CosObj d = CosNewDict(doc, false);
    CosDictPutName(d, A("Subtype"), false, A("Image"));
    CosDictPutInteger(d, A("Width"), w);
    CosDictPutInteger(d, A("Height"), h);
    CosDictPutInteger(d, A("BitsPerComponent"), 1);
    CosDictPutName(d, A("ColorSpace"), false, A("DeviceGray"));
    CosDictPutName(d, A("Filter"), false, A("FlateDecode"));
    CosObj img = CosNewStream(doc, d, filters::FlateEncode(page, 9));

    Log log;
    log.SetFileLoggingAllowed(false);
    CTrimoraPreferences prefs;
    prefs.SetLog(&log);
    prefs.Images().mono.filter = A("JBIG2");
    prefs.RunFinishingSteps();
    Statistics(prefs.StatisticsDict()).Reset();
    OperationRegistry reg;
    reg.Add(MakeImageReduction([&](PDDoc, Log&) {
        images::ImageCollector col;
        col.Add(img, 300, 300);
        return col.TakeImages();
    }));
    auto ops = reg.DocumentOperations(DocumentPoint::ImageReduction, prefs);
    ASSERT_EQ(ops.size(), 1u);
    RunContext ctx{pd, prefs, Statistics(prefs.StatisticsDict()), log};
    EXPECT_EQ(RunDocumentOperations(ops, ctx), 0);
    EXPECT_EQ(Statistics(prefs.StatisticsDict()).Get("Images_ToBeProcessed"), 1);
    EXPECT_EQ(Statistics(prefs.StatisticsDict()).Get("Images_Processed"), 1);
    EXPECT_EQ(ASAtomGetString(CosDictGetName(img, A("Filter"))), std::string("JBIG2Decode"));
    std::vector<uint8_t> back = CosStreamDecodedData(img);
    ASSERT_EQ(back.size(), page.size());
    for (int y = 0; y < h; ++y) back[y * stride + stride - 1] &= 0xF0;
    EXPECT_EQ(back, page);
    PDDocClose(pd);
}

}  // namespace
