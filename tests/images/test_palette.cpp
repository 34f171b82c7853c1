// Palettisation and quantisation of image XObjects built in memory: exact
// results, the depth chosen, keys and Decode arrays, the quality bound and
// replace-only-when-smaller.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "images/Palette.h"
#include "images/Quantize.h"
#include "tests/images/ImageTestUtil.h"

using namespace images;
using namespace imagetest;

namespace {

// `n` distinct RGB colours laid out in blocks of rows (so Flate finds runs
// and a table pays), each colour far from the others.
Bytes Blocks(int w, int h, int n, int comps = 3) {
    Bytes b;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const int c = ((y / 4) * ((w + 7) / 8) + x / 8 + y / 4) % n;
            for (int k = 0; k < comps; ++k) b.push_back(uint8_t((c * (37 + 64 * k) + (c >> (2 * k))) & 0xFF));
        }
    return b;
}

// A smooth diagonal RGB gradient: tens of thousands of colours.
Bytes Gradient(int w, int h) {
    Bytes b;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            b.push_back(uint8_t(x * 255 / (w - 1)));
            b.push_back(uint8_t(y * 255 / (h - 1)));
            b.push_back(uint8_t((x + y) * 255 / (w + h - 2)));
        }
    return b;
}

Raster RGB(int w, int h, Bytes data) {
    Raster r;
    r.width = w;
    r.height = h;
    r.colors = 3;
    r.data = std::move(data);
    return r;
}

class Colours : public ImageDocTest {
protected:
    // Samples stored with fast Flate, as many writers leave them.
    CosObj Image(int w, int h, CosObj cs, int bpc, const Bytes& raw) { return FlateImage(w, h, cs, bpc, raw, 1); }
    CosObj RgbJpeg(int w, int h, const Bytes& jpeg) {
        return ImageDocTest::Image(w, h, Name("DeviceRGB"), 8, jpeg, "DCTDecode");
    }
    ColourOutcome Palettise(CosObj img) { return ReduceColours(img, Palettize()).outcome; }
    static ColourReductionParams Palettize() {
        ColourReductionParams p;
        p.palettize = true;
        return p;
    }
    static ColourReductionParams Quantize(int maxColors = 256) {
        ColourReductionParams p;
        p.quantize = true;
        p.maxColors = maxColors;
        return p;
    }

    // The indices of an image, row by row, unpacked from its samples.
    static std::vector<int> Indices(CosObj img) {
        const int w = Int(img, "Width"), h = Int(img, "Height"), bits = Int(img, "BitsPerComponent");
        const Bytes rows = CosStreamDecodedData(img);
        const size_t rowBytes = (size_t(w) * size_t(bits) + 7) / 8;
        EXPECT_GE(rows.size(), rowBytes * size_t(h));
        std::vector<int> out;
        for (int y = 0; y < h && rows.size() >= rowBytes * size_t(h); ++y)
            for (int x = 0; x < w; ++x) {
                const size_t bit = size_t(x) * size_t(bits);
                out.push_back((rows[size_t(y) * rowBytes + bit / 8] >> (8 - bits - bit % 8)) & ((1 << bits) - 1));
            }
        return out;
    }

    // The colours an Indexed image draws, read back the way a viewer does:
    // unpack the indices, look each one up in the table.
    static Bytes Drawn(CosObj img) {
        CosObj cs = CosDictGet(img, A("ColorSpace"));
        EXPECT_EQ(CosObjGetType(cs), kCosArray);
        EXPECT_EQ(CosNameValue(CosArrayGet(cs, 0)), A("Indexed"));
        const int hival = CosIntegerValue(CosArrayGet(cs, 2));
        // Small tables are strings, large ones streams.
        CosObj lookup = CosArrayGet(cs, 3);
        std::string table;
        if (CosObjGetType(lookup) == kCosStream) {
            const Bytes b = CosStreamDecodedData(lookup);
            table.assign(b.begin(), b.end());
            EXPECT_GT(table.size(), 48u);
        } else {
            size_t tableLength = 0;
            const char* tableBytes = CosStringValue(lookup, &tableLength);
            table.assign(tableBytes, tableLength);
            EXPECT_LE(table.size(), 48u);
        }
        EXPECT_EQ(table.size() % size_t(hival + 1), 0u);
        const int comps = int(table.size()) / (hival + 1);
        Bytes out;
        for (int idx : Indices(img)) {
            EXPECT_LE(idx, hival);
            for (int k = 0; k < comps; ++k) out.push_back(uint8_t(table[size_t(idx * comps + k)]));
        }
        return out;
    }
};

}  // namespace

TEST(PaletteRaster, TableSizeAndDepthAtEveryBoundary) {
    const std::vector<std::pair<int, int>> cases = {{2, 1},  {3, 2},  {4, 2},   {5, 4},
                                                    {16, 4}, {17, 8}, {256, 8}, {257, 0}};
    for (auto [n, bits] : cases) {
        // One pixel per colour, all distinct: n pixels in a row.
        Bytes data;
        for (int i = 0; i < n; ++i) {
            data.push_back(uint8_t(i & 0xFF));
            data.push_back(uint8_t(i >> 8));
            data.push_back(uint8_t(i * 3));
        }
        Raster r = RGB(n, 1, data);
        auto ir = ExactPalette(r);
        if (bits == 0) {
            EXPECT_FALSE(ir) << n;
            continue;
        }
        ASSERT_TRUE(ir) << n;
        EXPECT_EQ(ir->entries, n);
        EXPECT_EQ(IndexBits(ir->entries), bits) << n;
        EXPECT_EQ(ExpandIndexed(*ir).data, data) << n;
    }
    // A limit below the colours there are.
    EXPECT_FALSE(ExactPalette(RGB(40, 40, Blocks(40, 40, 9)), 8));
    EXPECT_EQ(ExactPalette(RGB(40, 40, Blocks(40, 40, 9)), 9)->entries, 9);
}

TEST(PaletteRaster, GridDepthsAndPacking) {
    auto gray = [](Bytes v) {
        Raster r;
        r.width = int(v.size());
        r.height = 1;
        r.data = std::move(v);
        return r;
    };
    const std::vector<std::pair<Bytes, int>> grids = {{{0, 255, 255, 0}, 1}, {{0, 85, 170, 255}, 2}, {{255, 85}, 2},
                                                      {{0, 17, 238}, 4},     {{0, 1, 255}, 0},      {{128}, 0}};
    for (const auto& [levels, bits] : grids) EXPECT_EQ(GridBits(gray(levels)), bits) << testing::PrintToString(levels);

    // Rows are padded to whole bytes, samples from the high bits down.
    EXPECT_EQ(PackSamples({1, 0, 1, 1, 0, 0, 0, 0, 1, 1}, 5, 2, 1, 1), (Bytes{0xB0, 0x18}));
    EXPECT_EQ(PackSamples({3, 0, 2}, 3, 1, 1, 2), (Bytes{0xC8}));
    EXPECT_EQ(PackSamples({15, 1, 2}, 3, 1, 1, 4), (Bytes{0xF1, 0x20}));
}

TEST_F(Colours, PalettisesExactlyAtTheSmallestDepthKeepingTheBase) {
    // An ICC-based base stays the very same profile stream.
    CosObj profile = CosNewStream(doc, CosNewDict(doc, false), Bytes(600, 7));
    CosDictPutInteger(profile, A("N"), 3);
    for (auto [n, bits] : std::vector<std::pair<int, int>>{{2, 1}, {3, 2}, {5, 4}, {16, 4}, {17, 8}, {256, 8}}) {
        CosObj cs = CosNewArray(doc, false);
        CosArrayAppend(cs, Name("ICCBased"));
        CosArrayAppend(cs, profile);
        const Bytes raw = Blocks(256, 128, n);
        CosObj img = Image(256, 128, cs, 8, raw);
        const size_t before = CosStreamEncodedLength(img);
        ColourResult r = ReduceColours(img, Palettize());
        ASSERT_EQ(r.outcome, ColourOutcome::Palettized) << n << " " << r.reason;
        EXPECT_EQ(r.colours, n);
        EXPECT_EQ(CosDictGetInt(img, A("BitsPerComponent"), 0), bits) << n;
        EXPECT_LT(CosStreamEncodedLength(img), before);
        CosObj base = CosArrayGet(CosDictGet(img, A("ColorSpace")), 1);
        EXPECT_EQ(CosArrayGet(base, 1), profile);
        EXPECT_EQ(Drawn(img), raw) << n;
    }
    // More than 256 colours: palettisation alone leaves the image.
    CosObj many = Image(64, 64, Name("DeviceRGB"), 8, Gradient(64, 64));
    EXPECT_EQ(Palettise(many), ColourOutcome::Unchanged);
    EXPECT_EQ(CosDictGetName(many, A("ColorSpace")), A("DeviceRGB"));
}

TEST_F(Colours, GrayImagesGoToSmallerDepthsOrSmallTables) {
    // 200 x 100 gray in stripes of the given levels.
    auto stripes = [](std::vector<uint8_t> levels) {
        Bytes b(200 * 100);
        for (size_t i = 0; i < b.size(); ++i) b[i] = levels[(i / 200 / 5 + i % 200 / 20) % levels.size()];
        return b;
    };
    std::vector<uint8_t> seventeen;
    for (int k = 0; k < 17; ++k) seventeen.push_back(uint8_t(3 + 11 * k));
    const Bytes bw = stripes({0, 255}), four = stripes({0, 85, 170, 255});
    // Black and white: 1-bit DeviceGray, no table; four levels on the 2-bit
    // grid: 2-bit gray; three levels off the grid: a 2-bit table over
    // DeviceGray; seventeen would need 8 bits, no smaller than the image.
    struct Case {
        Bytes data;
        int bits;
        bool table;
    };
    for (const Case& c : {Case{bw, 1, false}, Case{four, 2, false}, Case{stripes({30, 100, 240}), 2, true},
                          Case{stripes(seventeen), 8, false}}) {
        CosObj img = Image(200, 100, Name("DeviceGray"), 8, c.data);
        EXPECT_EQ(Palettise(img), c.bits == 8 ? ColourOutcome::Unchanged : ColourOutcome::Palettized);
        EXPECT_EQ(Int(img, "BitsPerComponent"), c.bits);
        if (c.table)
            EXPECT_EQ(Drawn(img), c.data);
        else
            EXPECT_EQ(NameOf(img, "ColorSpace"), "DeviceGray") << c.bits;
    }

    // A Decode array is kept over the new 1-bit samples.
    CosObj img = With(Image(200, 100, Name("DeviceGray"), 8, bw), "Decode", Ints({1, 0}));
    ASSERT_EQ(Palettise(img), ColourOutcome::Palettized);
    EXPECT_EQ(CosObjGetType(CosDictGet(img, A("Decode"))), kCosArray);
    EXPECT_EQ(CosStreamDecodedData(img).size(), 25u * 100u);
    std::vector<int> white;
    for (uint8_t v : bw) white.push_back(v ? 1 : 0);
    EXPECT_EQ(Indices(img), white);

    // A key on gray levels moves to the new depth: [200 255] holds only
    // white, which is 1 at one bit; [10 20] holds no level at all.
    auto keyed = [&](const Bytes& data, std::initializer_list<int> key) {
        CosObj k = With(Image(200, 100, Name("DeviceGray"), 8, data), "Mask", Ints(key));
        EXPECT_EQ(Palettise(k), ColourOutcome::Palettized);
        CosObj mask = CosDictGet(k, A("Mask"));
        std::vector<int> out;
        for (ASInt32 i = 0; CosObjGetType(mask) == kCosArray && i < CosArrayLength(mask); ++i)
            out.push_back(CosIntegerValue(CosArrayGet(mask, i)));
        return out;
    };
    EXPECT_EQ(keyed(bw, {200, 255}), (std::vector<int>{1, 1}));
    EXPECT_EQ(keyed(four, {80, 175}), (std::vector<int>{1, 2}));
    EXPECT_EQ(keyed(bw, {10, 20}), std::vector<int>{});

    // 4-bit black and white becomes 1-bit; 1-bit stays as it is.
    Bytes nib(100 * 50, 0);
    for (size_t i = 0; i < nib.size(); ++i) nib[i] = (i / 100 / 4 + i % 100 / 7) % 2 ? 0xF0 : 0x0F;
    CosObj img5 = Image(200, 50, Name("DeviceGray"), 4, nib);
    ASSERT_EQ(Palettise(img5), ColourOutcome::Palettized);
    EXPECT_EQ(CosDictGetInt(img5, A("BitsPerComponent"), 0), 1);
    EXPECT_EQ(CosDictGetName(img5, A("ColorSpace")), A("DeviceGray"));
    EXPECT_EQ(Palettise(img5), ColourOutcome::Unchanged);
}

TEST_F(Colours, DecodeKeysAndSixteenBits) {
    // Decode [1 0 ...] is folded into the table and dropped.
    const Bytes raw = Blocks(128, 64, 6);
    CosObj inv = With(Image(128, 64, Name("DeviceRGB"), 8, raw), "Decode", Ints({1, 0, 0, 1, 1, 0}));
    ASSERT_EQ(Palettise(inv), ColourOutcome::Palettized);
    EXPECT_FALSE(CosDictKnown(inv, A("Decode")));
    Bytes expected = raw;
    for (size_t i = 0; i < expected.size(); ++i)
        if (i % 3 != 1) expected[i] = uint8_t(255 - expected[i]);
    EXPECT_EQ(Drawn(inv), expected);

    // Any other Decode, or a Lab image with one, is left alone.
    CosObj odd = With(Image(128, 64, Name("DeviceRGB"), 8, raw), "Decode", Ints({0, 1, 0, 1, 1, 1}));
    EXPECT_EQ(Palettise(odd), ColourOutcome::LeftAlone);

    // A colour key: keyed colours take the first indices and the Mask
    // becomes their range, so the same pixels stay see-through.
    CosObj keyed = With(Image(128, 64, Name("DeviceRGB"), 8, raw), "Mask", Ints({0, 120, 0, 255, 0, 255}));
    ASSERT_EQ(Palettise(keyed), ColourOutcome::Palettized);
    CosObj mask = CosDictGet(keyed, A("Mask"));
    ASSERT_EQ(CosObjGetType(mask), kCosArray);
    ASSERT_EQ(CosArrayLength(mask), 2);
    EXPECT_EQ(CosIntegerValue(CosArrayGet(mask, 0)), 0);
    const int last = CosIntegerValue(CosArrayGet(mask, 1));
    const Bytes drawn = Drawn(keyed);
    EXPECT_EQ(drawn, raw);
    // Read the indices again to see which pixels the new key hides.
    const std::vector<int> idx = Indices(keyed);
    ASSERT_EQ(idx.size(), raw.size() / 3);
    int hidden = 0;
    for (size_t i = 0; i < idx.size(); ++i) {
        const bool wasKeyed = raw[i * 3] <= 120;
        ASSERT_EQ(idx[i] <= last, wasKeyed) << i;
        hidden += wasKeyed;
    }
    EXPECT_GT(hidden, 0);

    // 16-bit samples that are 8-bit values in disguise are palettised...
    Bytes wide;
    for (uint8_t v : raw) {
        wide.push_back(v);
        wide.push_back(v);
    }
    CosObj img16 = Image(128, 64, Name("DeviceRGB"), 16, wide);
    ASSERT_EQ(Palettise(img16), ColourOutcome::Palettized);
    EXPECT_EQ(Drawn(img16), raw);
    // ...real 16-bit ones are not.
    wide[1] ^= 1;
    CosObj real16 = Image(128, 64, Name("DeviceRGB"), 16, wide);
    EXPECT_EQ(Palettise(real16), ColourOutcome::Unchanged);
    EXPECT_EQ(CosDictGetInt(real16, A("BitsPerComponent"), 0), 16);
}

TEST_F(Colours, ReplacesOnlyWhenSmallerAndLeavesOtherKindsAlone) {
    // A tiny image stored without a filter: the table costs more than it saves.
    CosObj small = Image(2, 1, Name("DeviceRGB"), 8, Bytes{});
    CosDictRemove(small, A("Filter"));
    CosStreamSetEncodedData(small, Bytes{0, 0, 0, 255, 255, 255});
    const size_t before = CosStreamEncodedLength(small);
    ColourResult r = ReduceColours(small, Palettize());
    EXPECT_EQ(r.outcome, ColourOutcome::NotSmaller);
    EXPECT_GE(r.bytesAfter, r.bytesBefore);
    EXPECT_EQ(CosStreamEncodedLength(small), before);
    EXPECT_EQ(CosDictGetName(small, A("ColorSpace")), A("DeviceRGB"));

    // A soft mask stays with its image.
    CosObj img = Image(128, 64, Name("DeviceRGB"), 8, Blocks(128, 64, 4));
    CosObj smask = Image(128, 64, Name("DeviceGray"), 8, Bytes(128 * 64, 200));
    CosDictPut(img, A("SMask"), smask);
    ASSERT_EQ(Palettise(img), ColourOutcome::Palettized);
    EXPECT_EQ(CosDictGet(img, A("SMask")), smask);
    EXPECT_EQ(CosDictGetInt(smask, A("BitsPerComponent"), 0), 8);

    // A soft mask with a Matte colour pins the image's colour space; a gray
    // image can still drop to fewer bits in its own space.
    CosObj matted = Image(128, 64, Name("DeviceRGB"), 8, Blocks(128, 64, 4));
    CosObj matte = With(Image(128, 64, Name("DeviceGray"), 8, Bytes(128 * 64, 200)), "Matte", Ints({1, 1, 1}));
    CosDictPut(matted, A("SMask"), matte);
    EXPECT_EQ(Palettise(matted), ColourOutcome::LeftAlone);
    Bytes bw(128 * 64);
    for (size_t i = 0; i < bw.size(); ++i) bw[i] = (i / 128 + i % 128 / 9) % 2 ? 255 : 0;
    EXPECT_EQ(Palettise(With(Image(128, 64, Name("DeviceGray"), 8, bw), "SMask", matte)), ColourOutcome::Palettized);

    // Already Indexed, image masks, nothing asked for, damaged data.
    EXPECT_EQ(Palettise(img), ColourOutcome::Unchanged);
    CosObj stencil = Image(64, 64, Name("DeviceGray"), 1, Bytes(512, 0x0F));
    CosDictPut(stencil, A("ImageMask"), CosNewBoolean(doc, false, true));
    EXPECT_EQ(Palettise(stencil), ColourOutcome::Unchanged);
    CosObj plain = Image(128, 64, Name("DeviceRGB"), 8, Blocks(128, 64, 4));
    EXPECT_EQ(ReduceColours(plain, ColourReductionParams{}).outcome, ColourOutcome::Unchanged);
    EXPECT_EQ(Palettise(Image(128, 64, Name("DeviceRGB"), 8, Bytes(100, 1))), ColourOutcome::Bad);
    CosObj badKey = With(Image(128, 64, Name("DeviceRGB"), 8, Blocks(128, 64, 4)), "Mask", Ints({1, 2}));
    EXPECT_EQ(Palettise(badKey), ColourOutcome::Bad);
    EXPECT_EQ(Palettise(Image(60000, 60000, Name("DeviceRGB"), 8, Bytes(10, 0))), ColourOutcome::LeftAlone);
}

TEST_F(Colours, JpegsArePalettisedFromTheirDecodedPixels) {
    // A flat two-colour JPEG at full quality decodes to exactly two colours.
    Bytes flat(64 * 64 * 3);
    for (size_t i = 0; i < flat.size(); ++i) flat[i] = (i / 3) % 64 < 32 ? 255 : 0;
    filters::DCTEncodeParams dp;
    dp.quality = 100;
    dp.colorTransform = false;
    const Bytes jpeg = filters::EncodeDCT(flat, 64, 64, 3, dp);
    CosObj img = RgbJpeg(64, 64, jpeg);
    const Bytes decoded = filters::DecodeDCT(jpeg).samples;
    auto exact = ExactPalette(RGB(64, 64, decoded));
    ASSERT_TRUE(exact);
    EXPECT_LE(exact->entries, 4);
    ColourResult r = ReduceColours(img, Palettize());
    ASSERT_EQ(r.outcome, ColourOutcome::Palettized) << r.reason;
    EXPECT_EQ(Drawn(img), decoded);
}

TEST_F(Colours, QuantisationStaysWithinItsBoundAndPalette) {
    const Bytes grad = Gradient(160, 120);
    for (int maxColors : {256, 64}) {
        CosObj img = Image(160, 120, Name("DeviceRGB"), 8, grad);
        ColourReductionParams p = Quantize(maxColors);
        p.minPsnr = 25;
        ColourResult r = ReduceColours(img, p);
        ASSERT_EQ(r.outcome, ColourOutcome::Quantized) << maxColors << " " << r.reason << " " << r.psnr;
        EXPECT_LE(r.colours, maxColors);
        CosObj cs = CosDictGet(img, A("ColorSpace"));
        EXPECT_LE(CosIntegerValue(CosArrayGet(cs, 2)), maxColors - 1);
        // The bound, measured here on what a viewer would draw.
        const Bytes drawn = Drawn(img);
        ASSERT_EQ(drawn.size(), grad.size());
        const double psnr = Psnr(RGB(160, 120, grad), RGB(160, 120, drawn));
        EXPECT_GE(psnr, 25.0);
        EXPECT_NEAR(psnr, r.psnr, 0.01);
    }

    // A bound the quantiser cannot meet leaves the image as it was.
    CosObj strict = Image(160, 120, Name("DeviceRGB"), 8, grad);
    ColourReductionParams p = Quantize(4);
    p.minPsnr = 40;
    ColourResult r = ReduceColours(strict, p);
    EXPECT_EQ(r.outcome, ColourOutcome::Unchanged);
    EXPECT_LT(r.psnr, 40);
    EXPECT_EQ(CosDictGetName(strict, A("ColorSpace")), A("DeviceRGB"));
    EXPECT_EQ(CosStreamDecodedData(strict), grad);

    // Few colours under quantisation alone: an exact table, no loss.
    const Bytes few = Blocks(128, 64, 12);
    CosObj fewImg = Image(128, 64, Name("DeviceRGB"), 8, few);
    ASSERT_EQ(ReduceColours(fewImg, Quantize(16)).outcome, ColourOutcome::Quantized);
    EXPECT_EQ(Drawn(fewImg), few);
}

TEST_F(Colours, QuantisationOnlyForPlainRGBAndOnlyWhenSmaller) {
    // A JPEG far smaller than any table of its colours could be.
    const Bytes grad = Gradient(160, 120);
    const Bytes jpeg = Jpeg(grad, 160, 120, 3, 20);
    CosObj img = RgbJpeg(160, 120, jpeg);
    ColourReductionParams p = Quantize();
    p.minPsnr = 20;
    ColourResult r = ReduceColours(img, p);
    EXPECT_EQ(r.outcome, ColourOutcome::NotSmaller) << r.reason;
    EXPECT_GT(r.bytesAfter, jpeg.size());
    EXPECT_EQ(CosStreamEncodedLength(img), jpeg.size());

    // Gray, CMYK and Lab, keyed and Decode'd images keep their colours.
    Bytes cmyk;
    for (size_t i = 0; i < 64 * 64; ++i)
        for (int k = 0; k < 4; ++k) cmyk.push_back(uint8_t(k % 2 ? i % 64 * 4 : i / 64 * 4 + k));
    EXPECT_EQ(ReduceColours(Image(64, 64, Name("DeviceCMYK"), 8, cmyk), p).outcome, ColourOutcome::Unchanged);
    EXPECT_EQ(ReduceColours(Image(160, 120, Lab(), 8, grad), p).outcome, ColourOutcome::Unchanged);
    Bytes gray(160 * 120);
    for (size_t i = 0; i < gray.size(); ++i) gray[i] = uint8_t(i % 160 + i / 160 / 2);
    EXPECT_EQ(ReduceColours(Image(160, 120, Name("DeviceGray"), 8, gray), p).outcome, ColourOutcome::Unchanged);
    CosObj keyed = With(Image(160, 120, Name("DeviceRGB"), 8, grad), "Mask", Ints({0, 10, 0, 10, 0, 10}));
    EXPECT_EQ(ReduceColours(keyed, p).outcome, ColourOutcome::LeftAlone);
    CosObj decoded = With(Image(160, 120, Name("DeviceRGB"), 8, grad), "Decode", Ints({1, 0, 1, 0, 1, 0}));
    EXPECT_EQ(ReduceColours(decoded, p).outcome, ColourOutcome::LeftAlone);
}

TEST_F(Colours, LargeImagesAreProbedBeforeQuantising) {
    // A megapixel of shades with grain: the probe and the full run agree
    // that a table pays.
    const int w = 1024, h = 1024;
    Bytes shades;
    shades.reserve(size_t(w) * h * 3);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const int grain = (x * 7 + y * 13) % 3;
            shades.push_back(uint8_t(40 + x / 8 + grain));
            shades.push_back(uint8_t(60 + y / 16 + grain));
            shades.push_back(uint8_t(200 - (x + y) / 32));
        }
    CosObj img = Image(w, h, Name("DeviceRGB"), 8, shades);
    ColourResult r = ReduceColours(img, Quantize());
    ASSERT_EQ(r.outcome, ColourOutcome::Quantized) << r.reason << " " << r.psnr;
    EXPECT_GE(r.psnr, 35.0);
    EXPECT_LT(r.bytesAfter, r.bytesBefore);

    // Noise stored as a small JPEG: the probe's estimate is far above it,
    // and the image is not quantised.
    Bytes noise(size_t(w) * h * 3);
    unsigned seed = 1;
    for (auto& v : noise) {
        seed = seed * 1103515245u + 12345u;
        v = uint8_t(128 + int((seed >> 16) % 48) - 24);
    }
    const Bytes jpeg = Jpeg(noise, w, h, 3, 30);
    CosObj photo = RgbJpeg(w, h, jpeg);
    ColourReductionParams p = Quantize();
    p.minPsnr = 0;
    ColourResult q = ReduceColours(photo, p);
    EXPECT_EQ(q.outcome, ColourOutcome::NotSmaller);
    EXPECT_GT(q.bytesAfter, jpeg.size() * 3 / 2);
    EXPECT_EQ(q.psnr, 0);  // decided by the probe, before the full run
    EXPECT_EQ(CosStreamEncodedLength(photo), jpeg.size());
}

TEST(Quantise, DiffusesTheErrorSoAreasKeepTheirMeanColour) {
    // A ramp across 256 columns with only four colours to draw it: without
    // error diffusion it turns into four bands, with it the 8 x 8 blocks
    // keep close to their means (about 5.6 levels off on average here,
    // against 13 for plain nearest-colour mapping).
    const int w = 256, h = 64;
    Bytes ramp;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int k = 0; k < 3; ++k) ramp.push_back(uint8_t(x));
    std::string why;
    auto q = QuantizeRGB(RGB(w, h, ramp), 4, &why);
    ASSERT_TRUE(q) << why;
    EXPECT_LE(q->entries, 4);
    const Raster drawn = ExpandIndexed(*q);
    double total = 0;
    int blocks = 0;
    for (int by = 0; by < h; by += 8)
        for (int bx = 0; bx < w; bx += 8) {
            double a = 0, b = 0;
            for (int y = by; y < by + 8; ++y)
                for (int x = bx; x < bx + 8; ++x) {
                    a += ramp[(size_t(y) * w + size_t(x)) * 3];
                    b += drawn.data[(size_t(y) * w + size_t(x)) * 3];
                }
            total += std::abs(a - b) / 64;
            ++blocks;
        }
    EXPECT_LT(total / blocks, 9.0);
    std::string bad;
    Raster two = RGB(2, 1, Bytes{1, 2, 3, 4, 5, 6});
    two.colors = 1;
    EXPECT_FALSE(QuantizeRGB(two, 4, &bad));
    EXPECT_FALSE(bad.empty());
}

TEST(Quantise, LargeImagesLeaveNoBlocksBehind) {
    // Past about four million pixels the quantiser works a row at a time and
    // forgets its row buffers; the sanitizer build's leak check fails this
    // test if they are not freed.  The result must still be a real palette.
    const int w = 2400, h = 1800;
    Bytes data(size_t(w) * h * 3);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            uint8_t* px = &data[(size_t(y) * w + size_t(x)) * 3];
            px[0] = uint8_t(x / 10), px[1] = uint8_t(y / 8), px[2] = uint8_t((x + y) / 20);
        }
    std::string why;
    auto q = QuantizeRGB(RGB(w, h, data), 64, &why, true);
    ASSERT_TRUE(q) << why;
    EXPECT_GT(q->entries, 16);
    EXPECT_LE(q->entries, 64);
    // The corners are far apart in colour and must map to different entries.
    EXPECT_NE(q->indices.front(), q->indices.back());
}
