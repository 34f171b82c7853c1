// Reduction of single image XObjects built in memory: downsampling,
// recompression, the "never worse" rules and bad input.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "images/ImageReduce.h"
#include "tests/images/ImageTestUtil.h"

using namespace images;
using namespace imagetest;

namespace {

using Reduce = ImageDocTest;

// A smooth colour gradient with a little texture, comps per pixel.
Bytes Gradient(int w, int h, int comps, int bpc = 8) {
    Bytes b;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < comps; ++c) {
                unsigned v = unsigned(std::min(255, x * 200 / std::max(1, w - 1) + (y * (c + 1)) % 40 + ((x ^ y) & 3)));
                if (bpc == 16) {
                    b.push_back(uint8_t(v));
                    b.push_back(uint8_t((x * 7 + y) & 0xFF));
                } else {
                    b.push_back(uint8_t(v));
                }
            }
    return b;
}

ReductionParams Downsample(const char* filter, ImageCompression how) {
    ReductionParams p;
    p.downsample = true;
    p.resampleFilter = filter;
    p.thresholdPpi = 225;
    p.targetPpi = 150;
    p.compression = how;
    p.jpegQuality = 65;
    return p;
}

// The outcome of reducing `img` placed at `ppi` with the downsampling above.
ReductionOutcome Outcome(CosObj img, double ppi, const char* filter, ImageCompression how) {
    return ReduceImage(img, ppi, ppi, Downsample(filter, how)).outcome;
}

double MeanAbsDiff(const Bytes& a, const Bytes& b) {
    double s = 0;
    for (size_t i = 0; i < std::min(a.size(), b.size()); ++i) s += std::abs(int(a[i]) - int(b[i]));
    return s / double(std::max<size_t>(1, a.size()));
}

}  // namespace

TEST(DCTEncode, QualityEstimateReadsBackTheQualityUsed) {
    Bytes g = Gradient(32, 32, 3);
    for (int q : {10, 25, 45, 50, 65, 80, 92, 100}) EXPECT_EQ(filters::EstimateDCTQuality(Jpeg(g, 32, 32, 3, q)), q) << q;
    EXPECT_EQ(filters::EstimateDCTQuality(Bytes{1, 2, 3}), 0);
    EXPECT_EQ(filters::EstimateDCTQuality(Bytes{}), 0);
    EXPECT_THROW(filters::EncodeDCT(g, 32, 32, 2, {}), CVellumError);
    EXPECT_THROW(filters::EncodeDCT(Bytes(10), 32, 32, 3, {}), CVellumError);
}

// Untransformed colour (the marker's transform 0) is checked with the Lab
// images below.
TEST(DCTEncode, APP14MarkerOnlyWhenAsked) {
    Bytes cmyk = Gradient(16, 16, 4);
    filters::DCTImage plain = filters::DecodeDCT(Jpeg(cmyk, 16, 16, 4, 90));
    EXPECT_FALSE(plain.invertedCMYK);
    filters::DCTImage marked = filters::DecodeDCT(Jpeg(cmyk, 16, 16, 4, 90, true));
    EXPECT_TRUE(marked.invertedCMYK);
    EXPECT_LT(MeanAbsDiff(marked.samples, cmyk), 4.0);  // values stored as given
}

TEST_F(Reduce, DownsamplesToTheTargetAndStoresFlateWithPredictor) {
    const Bytes raw = Gradient(400, 200, 3);
    CosObj img = FlateImage(400, 200, "DeviceRGB", 8, raw);
    ReductionResult r = ReduceImage(img, 600, 600, Downsample("triangle", ImageCompression::Flate));
    ASSERT_EQ(r.outcome, ReductionOutcome::Replaced) << r.reason;
    EXPECT_EQ(Int(img, "Width"), 100);
    EXPECT_EQ(Int(img, "Height"), 50);
    EXPECT_EQ(FilterOf(img), "FlateDecode");
    CosObj parms = CosDictGet(img, A("DecodeParms"));
    EXPECT_EQ(CosDictGetInt(parms, A("Predictor"), 0), 15);
    EXPECT_EQ(CosDictGetInt(parms, A("Colors"), 0), 3);
    EXPECT_EQ(CosDictGetInt(parms, A("Columns"), 0), 100);
    Bytes out = CosStreamDecodedData(img);
    ASSERT_EQ(out.size(), 100u * 50 * 3);
    // The gradient runs across: the left column is dark, the right light.
    EXPECT_LT(out[0], 40);
    EXPECT_GT(out[(99) * 3], 200);
    EXPECT_LT(r.bytesAfter, r.bytesBefore);
    EXPECT_EQ(r.bytesBefore, filters::FlateEncode(raw, 6).size());
}

TEST_F(Reduce, ResolutionDecidesPerAxisAndNeverUpsamples) {
    const Bytes raw = Gradient(300, 300, 1);
    CosObj img = FlateImage(300, 300, "DeviceGray", 8, raw);
    // Only the width is above the target; the height stays.
    ReductionResult r = ReduceImage(img, 300, 100, Downsample("box", ImageCompression::Flate));
    ASSERT_EQ(r.outcome, ReductionOutcome::Replaced) << r.reason;
    EXPECT_EQ(Int(img, "Width"), 150);
    EXPECT_EQ(Int(img, "Height"), 300);
    // ...and the other way round.
    CosObj tall = FlateImage(300, 300, "DeviceGray", 8, raw);
    ASSERT_EQ(ReduceImage(tall, 100, 300, Downsample("box", ImageCompression::Flate)).outcome,
              ReductionOutcome::Replaced);
    EXPECT_EQ(Int(tall, "Width"), 300);
    EXPECT_EQ(Int(tall, "Height"), 150);
    // Below the threshold nothing happens with Original.
    CosObj low = FlateImage(300, 300, "DeviceGray", 8, raw);
    EXPECT_EQ(Outcome(low, 200, "box", ImageCompression::Original), ReductionOutcome::Unchanged);
    EXPECT_EQ(Int(low, "Width"), 300);
    // Unknown placement: no downsampling.
    EXPECT_EQ(Outcome(low, 0, "box", ImageCompression::Original), ReductionOutcome::Unchanged);
}

TEST_F(Reduce, JpegAsAskedAndOriginalKeepsTheJpegQuality) {
    const Bytes raw = Gradient(240, 240, 3);
    CosObj img = FlateImage(240, 240, "DeviceRGB", 8, raw);
    ReductionParams p = Downsample("triangle", ImageCompression::JPEG);
    ASSERT_EQ(ReduceImage(img, 480, 480, p).outcome, ReductionOutcome::Replaced);
    EXPECT_EQ(FilterOf(img), "DCTDecode");
    EXPECT_EQ(filters::EstimateDCTQuality(CosStreamEncodedData(img)), 65);
    EXPECT_TRUE(CosObjIsNull(CosDictGet(img, A("DecodeParms"))));  // YCbCr, the default

    // Original: a JPEG made at 90 is downsampled and goes back to JPEG at 90.
    CosObj jp = Image(240, 240, Name("DeviceRGB"), 8, Jpeg(raw, 240, 240, 3, 90), "DCTDecode");
    ASSERT_EQ(Outcome(jp, 480, "triangle", ImageCompression::Original), ReductionOutcome::Replaced);
    EXPECT_EQ(FilterOf(jp), "DCTDecode");
    EXPECT_EQ(Int(jp, "Width"), 75);
    EXPECT_EQ(filters::EstimateDCTQuality(CosStreamEncodedData(jp)), 90);

    // Not downsampled: a JPEG already at or below the asked quality stays.
    CosObj low = Image(240, 240, Name("DeviceRGB"), 8, Jpeg(raw, 240, 240, 3, 50), "DCTDecode");
    const Bytes before(CosStreamEncodedData(low).begin(), CosStreamEncodedData(low).end());
    EXPECT_EQ(ReduceImage(low, 100, 100, p).outcome, ReductionOutcome::Unchanged);
    EXPECT_EQ(Bytes(CosStreamEncodedData(low).begin(), CosStreamEncodedData(low).end()), before);
    // ...and a lossless filter never decodes a JPEG it would not downsample.
    ReductionParams lossless;
    lossless.compression = ImageCompression::Flate;
    EXPECT_EQ(ReduceImage(low, 100, 100, lossless).outcome, ReductionOutcome::Unchanged);
    EXPECT_EQ(FilterOf(low), "DCTDecode");
}

TEST_F(Reduce, OnlySmallerResultsReplace) {
    // Raw noise does not get smaller with Flate.
    const Bytes noise = Noise(64 * 64, 7);
    CosObj img = Image(64, 64, Name("DeviceGray"), 8, noise);
    ReductionParams p;
    p.compression = ImageCompression::Flate;
    ReductionResult r = ReduceImage(img, 72, 72, p);
    EXPECT_EQ(r.outcome, ReductionOutcome::NotSmaller);
    EXPECT_GE(r.bytesAfter, r.bytesBefore);
    EXPECT_TRUE(CosObjIsNull(CosDictGet(img, A("Filter"))));
    EXPECT_EQ(Bytes(CosStreamEncodedData(img).begin(), CosStreamEncodedData(img).end()), noise);
    // LZW and Packbits of a flat raw image are smaller and decode to it.
    for (auto how : {ImageCompression::LZW, ImageCompression::Packbits}) {
        const Bytes flat(64 * 64, 77);
        CosObj f = Image(64, 64, Name("DeviceGray"), 8, flat);
        p.compression = how;
        ASSERT_EQ(ReduceImage(f, 72, 72, p).outcome, ReductionOutcome::Replaced);
        EXPECT_EQ(FilterOf(f), how == ImageCompression::LZW ? "LZWDecode" : "RunLengthDecode");
        EXPECT_EQ(CosStreamDecodedData(f), flat);
    }
}

TEST_F(Reduce, SoftMaskIsResampledWithItsImage) {
    const Bytes raw = Gradient(100, 100, 3);
    CosObj img = FlateImage(100, 100, "DeviceRGB", 8, raw);
    Bytes alpha(100 * 100);
    for (int y = 0; y < 100; ++y)
        for (int x = 0; x < 100; ++x) alpha[size_t(y) * 100 + x] = x < 50 ? 0 : 255;
    CosObj sm = FlateImage(100, 100, "DeviceGray", 8, alpha);
    CosDictPut(img, A("SMask"), sm);
    ReductionResult r = ReduceImage(img, 400, 400, Downsample("box", ImageCompression::Flate));
    ASSERT_EQ(r.outcome, ReductionOutcome::Replaced) << r.reason;
    CosObj newMask = CosDictGet(img, A("SMask"));
    EXPECT_FALSE(CosObjEqual(newMask, sm));  // the old mask object is untouched
    EXPECT_EQ(Int(sm, "Width"), 100);
    EXPECT_EQ(Int(newMask, "Width"), Int(img, "Width"));
    EXPECT_EQ(Int(newMask, "Height"), 38);
    Bytes m = CosStreamDecodedData(newMask);
    ASSERT_EQ(m.size(), 38u * 38);
    EXPECT_EQ(m[0], 0);
    EXPECT_EQ(m[37], 255);
    EXPECT_EQ(NameOf(newMask, "ColorSpace"), "DeviceGray");

    // A mask of another size leaves everything as it was.
    CosObj img2 = FlateImage(100, 100, "DeviceRGB", 8, raw);
    CosObj small = FlateImage(50, 50, "DeviceGray", 8, Bytes(2500, 128));
    CosDictPut(img2, A("SMask"), small);
    EXPECT_EQ(Outcome(img2, 400, "box", ImageCompression::Flate), ReductionOutcome::Bad);
    EXPECT_EQ(Int(img2, "Width"), 100);
    EXPECT_TRUE(CosObjEqual(CosDictGet(img2, A("SMask")), small));
}

TEST_F(Reduce, ColourKeyStaysExactAndLossless) {
    // Left half keyed pure blue, right half an opaque red ramp whose
    // averages would land inside a key range of red 100..140.
    Bytes raw;
    for (int y = 0; y < 40; ++y)
        for (int x = 0; x < 40; ++x) {
            if (x < 20) {
                raw.insert(raw.end(), {120, 0, 255});
            } else {
                raw.insert(raw.end(), {uint8_t(x % 2 ? 100 : 140), 0, 255});
            }
        }
    CosObj img = With(FlateImage(40, 40, "DeviceRGB", 8, raw), "Mask", Ints({110, 130, 0, 0, 255, 255}));
    ReductionParams p = Downsample("box", ImageCompression::JPEG);
    ReductionResult r = ReduceImage(img, 600, 600, p);
    ASSERT_EQ(r.outcome, ReductionOutcome::Replaced) << r.reason;
    EXPECT_EQ(FilterOf(img), "FlateDecode");  // JPEG would break the key
    Bytes out = CosStreamDecodedData(img);
    const int w = Int(img, "Width");
    ASSERT_EQ(w, 10);
    for (int x = 0; x < w; ++x) {
        const uint8_t* px = &out[size_t(x) * 3];
        const bool inKey = px[0] >= 110 && px[0] <= 130 && px[1] == 0 && px[2] == 255;
        EXPECT_EQ(inKey, x < 5) << "column " << x << " red " << int(px[0]);
    }
    EXPECT_EQ(CosArrayLength(CosDictGet(img, A("Mask"))), 6);
}

TEST_F(Reduce, UnusualColourSpacesKeepTheirLook) {
    // Lab goes to JPEG without the RGB transform.
    CosObj img = FlateImage(120, 120, Lab(), 8, Gradient(120, 120, 3));
    ASSERT_EQ(Outcome(img, 480, "triangle", ImageCompression::JPEG), ReductionOutcome::Replaced);
    EXPECT_EQ(CosDictGetInt(CosDictGet(img, A("DecodeParms")), A("ColorTransform"), -1), 0);
    EXPECT_EQ(filters::DecodeDCT(CosStreamEncodedData(img)).app14Transform, 0);

    CosObj idx = Indexed(Name("DeviceRGB"), 1, std::string("\0\0\0\xff\xff\xff", 6));
    // Indexed images keep their palette unless downsampled; then they
    // become images in the base space (indices 2 and up read as the last entry).
    Bytes indices(64 * 64);
    for (size_t i = 0; i < indices.size(); ++i) indices[i] = (i % 64) < 32 ? 0 : (i % 2 ? 1 : 7);
    CosObj ii = Image(64, 64, idx, 8, indices);
    EXPECT_EQ(ClassifyImage(ii), ImageClass::Color);
    EXPECT_EQ(Outcome(ii, 200, "box", ImageCompression::Original), ReductionOutcome::Unchanged);
    // At its size it only gets its indices recompressed, even when JPEG is asked for.
    ASSERT_EQ(Outcome(ii, 200, "box", ImageCompression::JPEG), ReductionOutcome::Replaced);
    EXPECT_EQ(FilterOf(ii), "FlateDecode");
    EXPECT_EQ(CosObjGetType(CosDictGet(ii, A("ColorSpace"))), kCosArray);
    EXPECT_EQ(Int(ii, "Width"), 64);
    EXPECT_EQ(CosStreamDecodedData(ii), indices);
    ASSERT_EQ(Outcome(ii, 600, "box", ImageCompression::Flate), ReductionOutcome::Replaced);
    EXPECT_EQ(NameOf(ii, "ColorSpace"), "DeviceRGB");
    Bytes rgb = CosStreamDecodedData(ii);
    ASSERT_EQ(rgb.size(), 16u * 16 * 3);
    EXPECT_EQ(rgb[0], 0);
    EXPECT_EQ(rgb[15 * 3 + 2], 255);
    // A 4-bit gray palette with an indirect base.
    CosObj icc = CosNewArray(doc, true);
    CosArrayAppend(icc, Name("ICCBased"));
    CosObj profile = CosNewStream(doc, CosNewDict(doc, false), Bytes(16, 0));
    CosDictPutInteger(profile, A("N"), 1);
    CosArrayAppend(icc, profile);
    std::string ramp;
    for (int i = 0; i < 16; ++i) ramp.push_back(char(i * 17));
    CosObj gidx = Indexed(icc, 15, ramp);
    Bytes packed(64 * 32, 0xF0);  // index 15 then 0, over and over
    CosObj gi = Image(64, 64, gidx, 4, packed);
    EXPECT_EQ(ClassifyImage(gi), ImageClass::Grayscale);
    ASSERT_EQ(Outcome(gi, 600, "box", ImageCompression::Flate), ReductionOutcome::Replaced);
    EXPECT_TRUE(CosObjEqual(CosDictGet(gi, A("ColorSpace")), icc));
    for (uint8_t v : CosStreamDecodedData(gi)) EXPECT_NEAR(v, 128, 1);

    // A Decode array stays as it was; 4-bit samples become 8-bit.
    Bytes four = Noise(128 * 128 / 2, 3);
    for (uint8_t& b : four) b = uint8_t((b & 0x10 ? 0xF0 : 0) | (b & 0x01 ? 0x0F : 0));
    CosObj dec = With(FlateImage(128, 128, "DeviceGray", 4, four), "Decode", Ints({1, 0}));
    ASSERT_EQ(Outcome(dec, 600, "point", ImageCompression::Flate), ReductionOutcome::Replaced);
    EXPECT_EQ(Int(dec, "BitsPerComponent"), 8);
    EXPECT_EQ(CosArrayLength(CosDictGet(dec, A("Decode"))), 2);
    for (uint8_t v : CosStreamDecodedData(dec)) EXPECT_TRUE(v == 0 || v == 255);

    // 16 bits stay 16 bits with a lossless filter.
    CosObj deep = FlateImage(64, 64, "DeviceGray", 16, Gradient(64, 64, 1, 16));
    ASSERT_EQ(Outcome(deep, 600, "triangle", ImageCompression::Flate), ReductionOutcome::Replaced);
    EXPECT_EQ(Int(deep, "BitsPerComponent"), 16);
    EXPECT_EQ(CosStreamDecodedData(deep).size(), size_t(Int(deep, "Width")) * Int(deep, "Height") * 2);
}

TEST_F(Reduce, InvertedCMYKJpegGoesBackToJpegOnly) {
    const Bytes cmyk = Gradient(96, 96, 4);
    const Bytes jpeg = Jpeg(cmyk, 96, 96, 4, 90, true);
    CosObj img = Image(96, 96, Name("DeviceCMYK"), 8, jpeg, "DCTDecode");
    EXPECT_EQ(Outcome(img, 600, "box", ImageCompression::Flate), ReductionOutcome::LeftAlone);
    EXPECT_EQ(CosStreamEncodedLength(img), jpeg.size());
    ASSERT_EQ(Outcome(img, 600, "box", ImageCompression::Original), ReductionOutcome::Replaced);
    filters::DCTImage back = filters::DecodeDCT(CosStreamEncodedData(img));
    EXPECT_TRUE(back.invertedCMYK);
    // The first pixel is the mean of the stored (inverted) values of its block.
    filters::DCTImage orig = filters::DecodeDCT(jpeg);
    ASSERT_EQ(back.width, 24);
    for (int c = 0; c < 4; ++c) {
        double mean = 0;
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < 4; ++x) mean += orig.samples[(size_t(y) * 96 + x) * 4 + c] / 16.0;
        EXPECT_NEAR(back.samples[size_t(c)], mean, 6) << c;
    }
}

TEST_F(Reduce, BadImagesAreLeftAsTheyWere) {
    ReductionParams p = Downsample("triangle", ImageCompression::JPEG);
    auto outcome = [&](CosObj img) { return ReduceImage(img, 600, 600, p).outcome; };
    // Data shorter than the size says.
    CosObj shortImg = FlateImage(100, 100, "DeviceRGB", 8, Bytes(100, 5));
    ReductionResult r = ReduceImage(shortImg, 600, 600, p);
    EXPECT_EQ(r.outcome, ReductionOutcome::Bad);
    EXPECT_NE(r.reason.find("shorter"), std::string::npos);
    EXPECT_EQ(FilterOf(shortImg), "FlateDecode");
    // A Flate stream cut short: damaged, left alone.
    Bytes cut = filters::FlateEncode(Noise(100 * 100 * 3, 5), 6);
    cut.resize(cut.size() / 2);
    r = ReduceImage(Image(100, 100, Name("DeviceRGB"), 8, cut, "FlateDecode"), 600, 600, p);
    EXPECT_EQ(r.outcome, ReductionOutcome::Bad);
    EXPECT_EQ(r.reason, "damaged image data");
    // Bytes after the last row are ignored.
    Bytes longer = Gradient(100, 100, 3);
    longer.resize(longer.size() + 20000, 9);
    EXPECT_EQ(outcome(FlateImage(100, 100, "DeviceRGB", 8, longer)), ReductionOutcome::Replaced);
    // Absurd dimensions never get decoded.
    CosObj huge = Image(1, 1000000000, Name("DeviceGray"), 8, Bytes(10, 0));
    EXPECT_EQ(outcome(huge), ReductionOutcome::Bad);
    CosObj wide = Image(60000, 60000, Name("DeviceRGB"), 8, Bytes(10, 0));
    EXPECT_EQ(outcome(wide), ReductionOutcome::Bad);
    // Unknown or missing colour spaces.
    EXPECT_EQ(outcome(Image(10, 10, Name("Foo"), 8, Bytes(100))), ReductionOutcome::Bad);
    EXPECT_EQ(outcome(Image(10, 10, CosNewNull(), 8, Bytes(100))), ReductionOutcome::Bad);
    // A corrupt JPEG.
    Bytes jpeg = Jpeg(Gradient(64, 64, 3), 64, 64, 3, 80);
    jpeg.resize(jpeg.size() / 3);
    CosObj broken = Image(64, 64, Name("DeviceRGB"), 8, jpeg, "DCTDecode");
    EXPECT_EQ(outcome(broken), ReductionOutcome::Bad);
    EXPECT_EQ(CosStreamEncodedLength(broken), jpeg.size());
    // A JPEG whose size disagrees with the dictionary.
    CosObj liar = Image(32, 64, Name("DeviceRGB"), 8, Jpeg(Gradient(64, 64, 3), 64, 64, 3, 80), "DCTDecode");
    EXPECT_EQ(outcome(liar), ReductionOutcome::Bad);
    // JPX is not decoded; bad bit depths are refused.
    EXPECT_EQ(outcome(Image(10, 10, Name("DeviceRGB"), 8, Bytes(10), "JPXDecode")), ReductionOutcome::LeftAlone);
    EXPECT_EQ(outcome(Image(10, 10, Name("DeviceRGB"), 7, Bytes(300))), ReductionOutcome::Bad);
}

TEST_F(Reduce, InterpolateAndClasses) {
    CosObj img = FlateImage(16, 16, "DeviceGray", 8, Bytes(256, 3));
    ReductionParams p;
    p.interpolate = true;
    ReduceImage(img, 72, 72, p);
    EXPECT_TRUE(CosDictGetBool(img, A("Interpolate"), false));
    EXPECT_EQ(ClassifyImage(img), ImageClass::Grayscale);
    EXPECT_EQ(ClassifyImage(Image(8, 8, Name("DeviceGray"), 1, Bytes(8))), ImageClass::Mono);
    EXPECT_EQ(ClassifyImage(Image(8, 8, Name("DeviceCMYK"), 8, Bytes(256))), ImageClass::Color);
    CosObj two = Indexed(Name("DeviceRGB"), 1, std::string("\0\0\0\xff\0\0", 6));
    EXPECT_EQ(ClassifyImage(Image(8, 8, two, 1, Bytes(8))), ImageClass::Mono);
    CosObj stencil = With(Image(8, 8, CosNewNull(), 1, Bytes(8)), "ImageMask", CosNewBoolean(doc, false, true));
    EXPECT_EQ(ClassifyImage(stencil), ImageClass::Mono);
}

TEST_F(Reduce, RandomImagesNeverCrash) {
    // Random dictionaries over random, truncated or valid-but-mismatched
    // data: every outcome is fine except a crash or a raise other than an
    // encoder's refusal.
    static const char* spaces[] = {"DeviceGray", "DeviceRGB", "DeviceCMYK", "Lab", "Foo"};
    static const char* filterNames[] = {nullptr, "FlateDecode", "DCTDecode", "RunLengthDecode", "LZWDecode"};
    static const int depths[] = {1, 2, 4, 8, 16, 8, 8, 3};
    static const char* resamplers[] = {"point", "box", "triangle", "lanczos"};
    unsigned seed = 12345;
    auto next = [&] {
        seed = seed * 1103515245u + 12345u;
        return seed >> 8;
    };
    int replaced = 0;
    for (int iter = 0; iter < 1500; ++iter) {
        const int w = 1 + int(next() % 90), h = 1 + int(next() % 90);
        const int comps = 1 + int(next() % 4);
        Bytes body;
        switch (next() % 3) {
        case 0: body = Noise(next() % 3000, next()); break;
        case 1: body = filters::FlateEncode(Noise(size_t(w) * h * comps, next()), 1); break;
        default: body = Jpeg(Gradient(w, h, comps == 2 ? 1 : comps), w, h, comps == 2 ? 1 : comps, 50); break;
        }
        if (next() % 4 == 0) body.resize(body.size() / 2);
        CosObj img = Image(w, h, Name(spaces[next() % 5]), depths[next() % 8], body, filterNames[next() % 5]);
        if (next() % 5 == 0) {
            CosObj key = CosNewArray(doc, false);
            for (unsigned i = 0, n = 2 * (1 + next() % 4); i < n; ++i)
                CosArrayAppend(key, CosNewInteger(doc, false, int(next() % 300)));
            CosDictPut(img, A("Mask"), key);
        }
        if (next() % 5 == 0)
            CosDictPut(img, A("SMask"), FlateImage(next() % 2 ? w : w + 1, h, "DeviceGray", 8, Noise(size_t(w) * h, 9)));
        ReductionParams p = Downsample(resamplers[next() % 4], ImageCompression(next() % 5));
        p.jpegQuality = 1 + int(next() % 100);
        try {
            if (ReduceImage(img, 72 + next() % 600, 72 + next() % 600, p).outcome == ReductionOutcome::Replaced)
                ++replaced;
        } catch (const CVellumError& e) {
            EXPECT_EQ(e.GetErrorCode() & 0xFFFF, kErrJPEGFilter) << "iteration " << iter;
        }
    }
    EXPECT_GT(replaced, 100);  // the valid ones did get through
}
