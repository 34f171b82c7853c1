// The image reduction step with a finder made for the test: counters,
// class settings, warnings for bad images and progress; and the mono class,
// a bilevel image reduced to JBIG2 with the real coder and read back by the
// JBIG2Decode filter.
#include "pipeline/ImageReduction.h"
#include "pipeline_fixture.h"

using namespace pipeline;
using namespace pipetest;

namespace {

struct Fractions : ProgressSink {
    std::vector<double> seen;
    void Completed(double f) override { seen.push_back(f); }
};

class ImageStep : public DocTest {
protected:
    ImageStep() : DocTest(true) { cap.log.SetProgressSink(&sink); }
    CosObj Image(int w, int h, const char* cs, int bpc, const std::vector<uint8_t>& raw) {
        return Set(DocTest::Image(w, h, raw, cs), {{"BitsPerComponent", Int(bpc)}});
    }
    static std::vector<uint8_t> Ramp(size_t n, int period) {
        std::vector<uint8_t> v(n);
        for (size_t i = 0; i < n; ++i) v[i] = uint8_t((i * 7 + i / size_t(period)) % 251);
        return v;
    }
    // Runs the step with a finder that gives `images`, each at its resolution.
    void Reduce(std::initializer_list<std::pair<CosObj, double>> images) {
        OperationRegistry reg;
        reg.Add(MakeImageReduction([&](PDDoc, Log&) {
            images::ImageCollector col;
            for (auto [img, ppi] : images) col.Add(img, ppi, ppi);
            return col.TakeImages();
        }));
        auto ops = reg.DocumentOperations(DocumentPoint::ImageReduction, prefs);
        ASSERT_EQ(ops.size(), 1u);
        auto ctx = Ctx(-1);
        EXPECT_EQ(RunDocumentOperations(ops, ctx), 0);
    }

    Fractions sink;
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
    // The gray image's sharpest placement counts; the slight one is below
    // the threshold and only recompressed.
    Reduce({{colour, 600}, {gray, 300}, {gray, 600}, {mono, 1200}, {broken, 600}, {slight, 200}});

    EXPECT_EQ(Stat("Images_Total"), 5);
    EXPECT_EQ(Stat("Images_ToBeProcessed"), 4);  // the bilevel image is not this step's
    EXPECT_EQ(CosDictGetInt(colour, A("Width"), 0), 75);
    EXPECT_EQ(ASAtomGetString(CosDictGetName(colour, A("Filter"))), std::string("DCTDecode"));
    EXPECT_EQ(CosDictGetInt(gray, A("Width"), 0), 50);
    EXPECT_EQ(ASAtomGetString(CosDictGetName(gray, A("Filter"))), std::string("FlateDecode"));
    EXPECT_EQ(CosDictGetInt(mono, A("Width"), 0), 64);
    EXPECT_EQ(CosDictGetInt(broken, A("Width"), 0), 300);
    EXPECT_EQ(CosDictGetInt(slight, A("Width"), 0), 300);
    // The colour and gray images, and the one recompressed without downsampling.
    EXPECT_EQ(Stat("Images_Processed"), 3);
    EXPECT_LT(CosStreamEncodedLength(slight), filters::FlateEncode(Ramp(300 * 300, 300), 6).size());
    EXPECT_EQ(CosStreamDecodedData(slight), Ramp(300 * 300, 300));  // losslessly
    EXPECT_EQ(Report(), "   Reduced 3 of 5 images in size\n");

    const std::string e = cap.Err();
    EXPECT_NE(e.find("Image " + std::to_string(CosObjGetID(broken)) + " 0 R left as it was: image data is shorter"),
              std::string::npos)
        << e;
    EXPECT_NE(cap.Out().find("now 75 x 75"), std::string::npos);

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
    Reduce({{kept, 200}, {shrunk, 600}, {shades, 100}});

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

    EXPECT_EQ(Stat("Images_Total"), 3);
    EXPECT_EQ(Stat("Images_Processed"), 3);
    EXPECT_EQ(Stat("Images_Palettized"), 2);
    EXPECT_EQ(Stat("Images_Quantized"), 1);
    EXPECT_EQ(Report(""),
              "Reduced 3 of 3 images in size\nPalettized 2 of 3 images\nQuantized 1 of 3 images\n");
    const std::string debug = cap.Out();
    EXPECT_NE(debug.find("palettised: 5 colours at 4 bits"), std::string::npos) << debug;
}

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

TEST_F(ImageStep, ReducesBilevelScansToJBIG2ThatShareSymbolsAndDecodeToTheSameSamples) {
    // Two scans of lines of letters from a four-letter alphabet in random
    // order, with a few specks: the letters become symbols shared by both.
    const int w = 300, h = 200;
    const size_t stride = (w + 7) / 8;
    const char* letters[4][7] = {{"#####", "#...#", "#...#", "#...#", "#...#", "#...#", "#####"},
                                 {"..#..", "..#..", "..#..", "..#..", "..#..", "..#..", "..#.."},
                                 {"#....", "#....", "#....", "#....", "#....", "#....", "#####"},
                                 {"#####", "..#..", "..#..", "..#..", "..#..", "..#..", "..#.."}};
    std::vector<std::vector<uint8_t>> pages;
    unsigned seed = 5;
    for (int n = 0; n < 2; ++n) {
        std::vector<uint8_t> page(stride * h, 0xFF);
        auto ink = [&](int x, int y) { page[size_t(y) * stride + size_t(x) / 8] &= uint8_t(~(0x80 >> (x % 8))); };
        for (int line = 0; line < 11; ++line)
            for (int k = 0, letter = 0; k < 30; ++k, seed = seed * 1103515245u + 12345u, letter = int(seed >> 16) % 4)
                for (int y = 0; y < 7; ++y)
                    for (int x = 0; x < 5; ++x)
                        if (letters[letter][y][x] == '#') ink(30 + k * 8 + x, 20 + line * 14 + y);
        for (int i = 0; i < 20; ++i) {
            seed = seed * 1103515245u + 12345u;
            ink(int(seed >> 8) % w, int(seed >> 20) % h);
        }
        for (int y = 0; y < h; ++y) page[y * stride + stride - 1] |= 0x0F;  // padding past 300 as white
        pages.push_back(page);
    }
    CosObj a = Image(w, h, "DeviceGray", 1, pages[0]), b = Image(w, h, "DeviceGray", 1, pages[1]);

    prefs.Images().mono.filter = A("JBIG2");
    prefs.RunFinishingSteps();
    Reduce({{a, 300}, {b, 300}});
    EXPECT_EQ(Stat("Images_ToBeProcessed"), 2);
    EXPECT_EQ(Stat("Images_Processed"), 2);
    CosObj globals[2];
    int i = 0;
    for (CosObj img : {a, b}) {
        EXPECT_EQ(ASAtomGetString(CosDictGetName(img, A("Filter"))), std::string("JBIG2Decode"));
        globals[i] = CosDictGet(CosDictGet(img, A("DecodeParms")), A("JBIG2Globals"));
        EXPECT_EQ(CosObjGetType(globals[i]), kCosStream);
        std::vector<uint8_t> back = CosStreamDecodedData(img);
        ASSERT_EQ(back.size(), pages[size_t(i)].size());
        for (int y = 0; y < h; ++y) back[y * stride + stride - 1] |= 0x0F;
        EXPECT_EQ(back, pages[size_t(i)]);
        ++i;
    }
    EXPECT_TRUE(CosObjEqual(globals[0], globals[1]));
}
