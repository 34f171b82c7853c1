// The image reduction step with a finder made for the test: counters,
// class settings, warnings for bad images and progress.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "base/Log.h"
#include "filters/Filters.h"
#include "pdfcore/CosDoc.h"
#include "pipeline/ImageReduction.h"
#include "pipeline/Operations.h"
#include "pipeline/Report.h"
#include "settings/TrimoraPreferences.h"

using namespace pipeline;

namespace {

ASAtom A(const char* s) { return ASAtomFromString(s); }

struct Fractions : ProgressSink {
    std::vector<double> seen;
    void Completed(double f) override { seen.push_back(f); }
};

std::string ReadAll(FILE* f) {
    fflush(f);
    rewind(f);
    std::string s;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, f)) > 0) s.append(buf, n);
    return s;
}

class ImageStep : public ::testing::Test {
protected:
    void SetUp() override {
        out = tmpfile();
        err = tmpfile();
        log.SetConsoleStreams(out, err);
        log.SetFileLoggingAllowed(false);
        log.SetChannelOff(Log::kDebug, false);
        log.SetDestinations(Log::kDebug, LogToStdout);
        log.SetProgressSink(&sink);
        prefs.SetLog(&log);
        Statistics(prefs.StatisticsDict()).Reset();
        pd = PDDocCreate();
        doc = PDDocGetCosDoc(pd);
    }
    void TearDown() override {
        PDDocClose(pd);
        fclose(out);
        fclose(err);
    }
    CosObj Image(int w, int h, const char* cs, int bpc, const std::vector<uint8_t>& raw) {
        CosObj d = CosNewDict(doc, false);
        CosDictPutName(d, A("Subtype"), false, A("Image"));
        CosDictPutInteger(d, A("Width"), w);
        CosDictPutInteger(d, A("Height"), h);
        CosDictPutInteger(d, A("BitsPerComponent"), bpc);
        CosDictPutName(d, A("ColorSpace"), false, A(cs));
        CosDictPutName(d, A("Filter"), false, A("FlateDecode"));
        return CosNewStream(doc, d, filters::FlateEncode(raw, 6));
    }
    static std::vector<uint8_t> Ramp(size_t n, int period) {
        std::vector<uint8_t> v(n);
        for (size_t i = 0; i < n; ++i) v[i] = uint8_t((i * 7 + i / size_t(period)) % 251);
        return v;
    }
    ASInt32 Count(const char* key) { return Statistics(prefs.StatisticsDict()).Get(key); }

    FILE* out = nullptr;
    FILE* err = nullptr;
    Log log;
    Fractions sink;
    CTrimoraPreferences prefs;
    PDDoc pd = nullptr;
    CosDoc doc = nullptr;
};

}  // namespace

TEST_F(ImageStep, ReducesEachClassWithItsSettingsAndCounts) {
    ImageClassSettings& c = prefs.Images().color;
    c.downsampleUsing = A("Bicubic");
    c.downsampleAbove = 225;
    c.resolution = 150;
    c.filter = A("JPEG");
    c.jpegQuality = A("Low");
    ImageClassSettings& g = prefs.Images().grayscale;
    g.downsampleUsing = A("Average");
    g.downsampleAbove = 225;
    g.resolution = 100;
    g.filter = A("Flate");
    prefs.RunFinishingSteps();

    CosObj colour = Image(300, 300, "DeviceRGB", 8, Ramp(300 * 300 * 3, 900));
    CosObj gray = Image(300, 300, "DeviceGray", 8, Ramp(300 * 300, 300));
    CosObj mono = Image(64, 64, "DeviceGray", 1, std::vector<uint8_t>(8 * 64, 0x55));
    CosObj broken = Image(300, 300, "DeviceRGB", 8, std::vector<uint8_t>(10, 1));
    CosObj slight = Image(300, 300, "DeviceGray", 8, Ramp(300 * 300, 300));
    auto finder = [&](PDDoc, Log&) {
        images::ImageCollector col;
        col.Add(colour, 600, 600);
        col.Add(gray, 300, 300);
        col.Add(gray, 600, 600);  // its sharpest placement counts
        col.Add(mono, 1200, 1200);
        col.Add(broken, 600, 600);
        col.Add(slight, 200, 200);  // below the threshold: only recompressed
        return col.TakeImages();
    };
    OperationRegistry reg;
    reg.Add(MakeImageReduction(finder));
    auto ops = reg.DocumentOperations(DocumentPoint::ImageReduction, prefs);
    ASSERT_EQ(ops.size(), 1u);
    RunContext ctx{pd, prefs, Statistics(prefs.StatisticsDict()), log};
    EXPECT_EQ(RunDocumentOperations(ops, ctx), 0);

    EXPECT_EQ(Count("Images_Total"), 5);
    EXPECT_EQ(Count("Images_ToBeProcessed"), 4);  // the bilevel image is not this step's
    EXPECT_EQ(CosDictGetInt(colour, A("Width"), 0), 75);
    EXPECT_EQ(ASAtomGetString(CosDictGetName(colour, A("Filter"))), std::string("DCTDecode"));
    EXPECT_EQ(CosDictGetInt(gray, A("Width"), 0), 50);
    EXPECT_EQ(ASAtomGetString(CosDictGetName(gray, A("Filter"))), std::string("FlateDecode"));
    EXPECT_EQ(CosDictGetInt(mono, A("Width"), 0), 64);
    EXPECT_EQ(CosDictGetInt(broken, A("Width"), 0), 300);
    EXPECT_EQ(CosDictGetInt(slight, A("Width"), 0), 300);
    // The colour and gray images, and the one recompressed without downsampling.
    EXPECT_EQ(Count("Images_Processed"), 3);
    EXPECT_LT(CosStreamEncodedLength(slight), filters::FlateEncode(Ramp(300 * 300, 300), 6).size());
    EXPECT_EQ(CosStreamDecodedData(slight), Ramp(300 * 300, 300));  // losslessly
    EXPECT_EQ(BuildReport(ReportInputs{}, Statistics(prefs.StatisticsDict()), "   "),
              "   Reduced 3 of 5 images in size\n");

    const std::string e = ReadAll(err);
    EXPECT_NE(e.find("Image " + std::to_string(CosObjGetID(broken)) + " 0 R left as it was: image data is shorter"),
              std::string::npos)
        << e;
    EXPECT_NE(ReadAll(out).find("now 75 x 75"), std::string::npos);

    // Progress runs from the page share to the whole document, one step per image.
    ASSERT_EQ(sink.seen.size(), 5u);
    EXPECT_GT(sink.seen.front(), 0.4);
    EXPECT_DOUBLE_EQ(sink.seen.back(), 1.0);
    for (size_t i = 1; i < sink.seen.size(); ++i) EXPECT_GT(sink.seen[i], sink.seen[i - 1]);
}

TEST_F(ImageStep, RunsOnlyWhenImageReductionIsConfigured) {
    OperationRegistry reg;
    reg.Add(MakeImageReduction([](PDDoc, Log&) { return std::vector<images::FoundImage>{}; }));
    prefs.RunFinishingSteps();
    EXPECT_TRUE(reg.DocumentOperations(DocumentPoint::ImageReduction, prefs).empty());
    prefs.Images().grayscale.filter = A("LZW");
    prefs.RunFinishingSteps();
    EXPECT_EQ(reg.DocumentOperations(DocumentPoint::ImageReduction, prefs).size(), 1u);

    // The class settings carry over word for word.
    prefs.Images().color.filter = A("CCITTG4");
    prefs.Images().color.jpegQuality = A("Minimum");
    prefs.RunFinishingSteps();
    images::ReductionParams p = ReductionParamsFor(prefs.Image().color);
    EXPECT_EQ(p.compression, images::ImageCompression::Other);
    EXPECT_EQ(p.jpegQuality, 25);
    EXPECT_FALSE(p.Active());
    EXPECT_EQ(ReductionParamsFor(prefs.Image().grayscale).compression, images::ImageCompression::LZW);
}

TEST_F(ImageStep, PalettisesBeforeReducingAndCountsTheFinalState) {
    // Colour images above 225 ppi come down to 150 as JPEG; palettisation
    // and quantisation are on.
    ImageClassSettings& c = prefs.Images().color;
    c.downsampleUsing = A("Bicubic");
    c.downsampleAbove = 225;
    c.resolution = 150;
    c.filter = A("Original");
    prefs.Images().allowPalettization = true;
    prefs.Images().allowQuantization = true;
    prefs.RunFinishingSteps();
    EXPECT_TRUE(prefs.Image().Configured());

    // Five flat colours in blocks.
    std::vector<uint8_t> flat;
    for (int y = 0; y < 200; ++y)
        for (int x = 0; x < 200; ++x)
            for (int k = 0; k < 3; ++k) flat.push_back(uint8_t(((x / 40 + y / 40) % 5) * (50 + 20 * k) % 256));
    // Shades of two hues with a little grain: many colours, which a table
    // of 256 holds closely.
    std::vector<uint8_t> smooth;
    for (int y = 0; y < 200; ++y)
        for (int x = 0; x < 200; ++x) {
            const int grain = (x * 7 + y * 13) % 3;
            smooth.push_back(uint8_t(40 + x / 2 + grain));
            smooth.push_back(uint8_t(60 + x / 4 + grain));
            smooth.push_back(uint8_t(200 - y / 8));
        }
    CosObj kept = Image(200, 200, "DeviceRGB", 8, flat);      // not downsampled: stays exact
    // Downsampled, but its table is smaller than any downsampled copy.
    CosObj shrunk = Image(200, 200, "DeviceRGB", 8, flat);
    CosObj shades = Image(200, 200, "DeviceRGB", 8, smooth);  // quantised
    auto finder = [&](PDDoc, Log&) {
        images::ImageCollector col;
        col.Add(kept, 200, 200);
        col.Add(shrunk, 600, 600);
        col.Add(shades, 100, 100);
        return col.TakeImages();
    };
    OperationRegistry reg;
    reg.Add(MakeImageReduction(finder));
    auto ops = reg.DocumentOperations(DocumentPoint::ImageReduction, prefs);
    ASSERT_EQ(ops.size(), 1u);
    RunContext ctx{pd, prefs, Statistics(prefs.StatisticsDict()), log};
    EXPECT_EQ(RunDocumentOperations(ops, ctx), 0);

    // Not JPEG: a table of its five colours, every sample as it was.
    CosObj cs = CosDictGet(kept, A("ColorSpace"));
    ASSERT_EQ(CosObjGetType(cs), kCosArray);
    EXPECT_EQ(CosNameValue(CosArrayGet(cs, 0)), A("Indexed"));
    EXPECT_EQ(CosIntegerValue(CosArrayGet(cs, 2)), 4);
    EXPECT_EQ(CosDictGetInt(kept, A("BitsPerComponent"), 0), 4);
    EXPECT_EQ(CosDictGetInt(shrunk, A("Width"), 0), 200);
    EXPECT_EQ(CosDictGetInt(shrunk, A("BitsPerComponent"), 0), 4);
    CosObj qcs = CosDictGet(shades, A("ColorSpace"));
    ASSERT_EQ(CosObjGetType(qcs), kCosArray);
    EXPECT_EQ(CosNameValue(CosArrayGet(qcs, 0)), A("Indexed"));

    EXPECT_EQ(Count("Images_Total"), 3);
    EXPECT_EQ(Count("Images_Processed"), 3);
    EXPECT_EQ(Count("Images_Palettized"), 2);
    EXPECT_EQ(Count("Images_Quantized"), 1);
    EXPECT_EQ(BuildReport(ReportInputs{}, Statistics(prefs.StatisticsDict()), ""),
              "Reduced 3 of 3 images in size\nPalettized 2 of 3 images\nQuantized 1 of 3 images\n");
    const std::string debug = ReadAll(out);
    EXPECT_NE(debug.find("palettised: 5 colours at 4 bits"), std::string::npos) << debug;
}
