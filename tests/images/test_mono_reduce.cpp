// Reduction of bilevel image XObjects built in memory: every encoding read
// back to the same samples, the look kept through masks, Decode arrays
// and palettes, downsampling and despeckling, descreening, and bad input.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "images/Bilevel.h"
#include "images/MonoReduce.h"
#include "tests/images/ImageTestUtil.h"

using namespace images;
using namespace imagetest;

namespace {

// A page of "text": white with rows of dark strokes (samples: 1 white,
// 0 black, as DeviceGray stores them).
Bytes TextPage(int w, int h, unsigned seed = 1) {
    const size_t stride = (size_t(w) + 7) / 8;
    Bytes b(stride * size_t(h), 0xFF);
    for (int y = 0; y < h; ++y) {
        if (y % 24 < 6 || y % 24 > 15) continue;
        const int shift = int((seed * unsigned(y / 24 + 1)) >> 3) % 3;  // each line of text its own
        for (int x = 8; x < w - 8; ++x)
            if ((x / 5 + shift) % 3 == 0) b[size_t(y) * stride + size_t(x) / 8] &= uint8_t(~(0x80 >> (x % 8)));
    }
    if (w % 8)
        for (int y = 0; y < h; ++y) b[size_t(y) * stride + stride - 1] &= uint8_t(0xFF << (8 - w % 8));
    return b;
}

class Mono : public ImageDocTest {
protected:
    // Stored without compression, so any encoding is smaller.
    CosObj Bilevel(int w, int h, const Bytes& samples, const char* cs = "DeviceGray") {
        return Image(w, h, cs ? Name(cs) : CosNewNull(), 1, samples);
    }
    CosObj Mask(int w, int h, const Bytes& samples, bool inverted) {
        CosObj img = Image(w, h, CosNewNull(), 1, samples);
        CosDictRemove(img, A("BitsPerComponent"));
        CosDictPut(img, A("ImageMask"), CosNewBoolean(doc, false, true));
        if (inverted) CosDictPut(img, A("Decode"), Ints({1, 0}));
        return img;
    }
    static int Parm(CosObj img, const char* key) { return CosDictGetInt(CosDictGet(img, A("DecodeParms")), A(key), -99); }
    static bool Sample(const Bytes& rows, int w, int x, int y) {
        return (rows[size_t(y) * ((size_t(w) + 7) / 8) + size_t(x) / 8] >> (7 - x % 8)) & 1;
    }
    // Same pixels, whatever the padding bits past the width hold.
    static void ExpectSamePixels(const Bytes& a, const Bytes& b, int w, int h) {
        const size_t n = (size_t(w) + 7) / 8 * size_t(h);
        ASSERT_GE(a.size(), n);
        ASSERT_GE(b.size(), n);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) ASSERT_EQ(Sample(a, w, x, y), Sample(b, w, x, y)) << x << "," << y;
    }
};

// Box-filter downsampling above `threshold` ppi to `target` ppi.
MonoParams BoxDownsample(double threshold, double target) {
    MonoParams p;
    p.downsample = true;
    p.resampleFilter = "box";
    p.thresholdPpi = threshold;
    p.targetPpi = target;
    return p;
}

// JBIG2 comes from the layer above; this stand-in stores the ink rows
// behind a marker, so the test sees exactly what the coder was handed.
BilevelEncoder RecordingJBIG2(Bytes* seen) {
    return [seen](std::span<const uint8_t> rows, int, int) {
        seen->assign(rows.begin(), rows.end());
        return Bytes{'J'};
    };
}

TEST_F(Mono, EveryLosslessEncodingReadsBackTheSameSamples) {
    const int w = 203, h = 97;
    const Bytes page = TextPage(w, h);
    struct Case {
        MonoCompression how;
        const char* filter;
    };
    for (const Case c : {Case{MonoCompression::CCITTG4, "CCITTFaxDecode"}, Case{MonoCompression::CCITTG3, "CCITTFaxDecode"},
                         Case{MonoCompression::Flate, "FlateDecode"}, Case{MonoCompression::LZW, "LZWDecode"},
                         Case{MonoCompression::Packbits, "RunLengthDecode"}}) {
        SCOPED_TRACE(c.filter);
        CosObj img = Bilevel(w, h, page);
        MonoParams p;
        p.compression = c.how;
        const ReductionResult r = ReduceMonoImage(img, 300, 300, p);
        ASSERT_EQ(r.outcome, ReductionOutcome::Replaced) << r.reason;
        EXPECT_EQ(FilterOf(img), c.filter);
        ExpectSamePixels(CosStreamDecodedData(img), page, w, h);
        if (c.how == MonoCompression::CCITTG4 || c.how == MonoCompression::CCITTG3) {
            EXPECT_EQ(Parm(img, "K"), c.how == MonoCompression::CCITTG4 ? -1 : 0);
            EXPECT_EQ(Parm(img, "Columns"), w);
            EXPECT_EQ(Parm(img, "Rows"), h);
        }
    }
}

// The JBIG2 coder gets black as 1: for a gray image that is the 0 samples.
TEST_F(Mono, JBIG2IsHandedBlackAsOne) {
    const int w = 40, h = 30;
    const Bytes page = TextPage(w, h);
    Bytes seen;
    CosObj img = Bilevel(w, h, page);
    MonoParams p;
    p.compression = MonoCompression::JBIG2;
    p.jbig2 = RecordingJBIG2(&seen);
    ASSERT_EQ(ReduceMonoImage(img, 300, 300, p).outcome, ReductionOutcome::Replaced);
    EXPECT_EQ(FilterOf(img), "JBIG2Decode");
    EXPECT_TRUE(CosObjIsNull(CosDictGet(img, A("DecodeParms"))));
    ASSERT_EQ(seen.size(), page.size());
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) ASSERT_NE(Sample(seen, w, x, y), Sample(page, w, x, y)) << x << "," << y;
    // Without a coder, JBIG2 falls back to CCITT G4; a colour key (white
    // shows through) stays, since the samples keep their values.
    CosObj other = With(Bilevel(w, h, page), "Mask", Ints({1, 1}));
    p.jbig2 = nullptr;
    p.downsample = true;
    p.resampleFilter = "box";
    p.targetPpi = 150;
    ASSERT_EQ(ReduceMonoImage(other, 300, 300, p).outcome, ReductionOutcome::Replaced);
    EXPECT_EQ(FilterOf(other), "CCITTFaxDecode");
    EXPECT_EQ(Int(other, "Width"), 20);
    EXPECT_EQ(CosIntegerValue(CosArrayGet(CosDictGet(other, A("Mask")), 0)), 1);
}

// A vertical one-pixel line, downsampled 2:1 with the box filter, in each
// kind of bilevel image: it must come out as the kind's ink.
TEST_F(Mono, DownsamplingKeepsThinLinesInEveryKindOfImage) {
    const int w = 64, h = 64;
    auto lineImage = [&](bool inkIsOne) {
        Bytes b(8 * size_t(h), inkIsOne ? 0x00 : 0xFF);
        for (int y = 0; y < h; ++y) {
            uint8_t& byte = b[size_t(y) * 8 + 2];
            byte = inkIsOne ? uint8_t(byte | 0x10) : uint8_t(byte & ~0x10);  // column 19
        }
        return b;
    };
    MonoParams p = BoxDownsample(450, 300);
    p.compression = MonoCompression::Flate;

    // Painted sample, per image: gray (black = 0), mask (paint = 0), mask
    // with Decode [1 0] (paint = 1), a palette whose entry 1 is dark.
    CosObj gray = Bilevel(w, h, lineImage(false));
    CosObj mask = Mask(w, h, lineImage(false), false);
    CosObj invMask = Mask(w, h, lineImage(true), true);
    CosObj palette =
        Image(w, h, Indexed(Name("DeviceRGB"), 1, std::string("\xF0\xF0\xF0\x10\x10\x60", 6)), 1, lineImage(true));
    struct Case {
        CosObj img;
        bool inkIsOne;
        const char* name;
    };
    for (const Case c : {Case{gray, false, "gray"}, Case{mask, false, "mask"}, Case{invMask, true, "mask [1 0]"},
                         Case{palette, true, "palette"}}) {
        SCOPED_TRACE(c.name);
        const ReductionResult r = ReduceMonoImage(c.img, 600, 600, p);
        ASSERT_EQ(r.outcome, ReductionOutcome::Replaced) << r.reason;
        ASSERT_EQ(Int(c.img, "Width"), 32);
        ASSERT_EQ(Int(c.img, "Height"), 32);
        EXPECT_EQ(Int(c.img, "BitsPerComponent"), 1);
        const Bytes out = CosStreamDecodedData(c.img);
        ASSERT_EQ(out.size(), 4u * 32);
        for (int y = 0; y < 32; ++y) {
            int inkCount = 0;
            for (int x = 0; x < 32; ++x) inkCount += Sample(out, 32, x, y) == c.inkIsOne;
            ASSERT_EQ(inkCount, 1) << "row " << y;
            ASSERT_EQ(Sample(out, 32, 9, y), c.inkIsOne) << "row " << y;
        }
    }
    // The Decode array stays, so the mask still paints the same side.
    EXPECT_EQ(CosArrayLength(CosDictGet(invMask, A("Decode"))), 2);
}

TEST_F(Mono, DespeckleClearsSpecksButNotText) {
    const int w = 96, h = 48;
    Bytes page = TextPage(w, h);
    Bytes specked = page;
    const int specks[][2] = {{3, 2}, {50, 20}, {90, 45}, {40, 3}};
    for (const auto& s : specks) specked[size_t(s[1]) * 12 + size_t(s[0]) / 8] &= uint8_t(~(0x80 >> (s[0] % 8)));
    CosObj img = Bilevel(w, h, specked);
    MonoParams p;
    p.despeckle = true;
    ASSERT_TRUE(p.Active());
    ASSERT_EQ(ReduceMonoImage(img, 300, 300, p).outcome, ReductionOutcome::Replaced);
    EXPECT_EQ(FilterOf(img), "FlateDecode");  // a raw image with Original goes to Flate
    ExpectSamePixels(CosStreamDecodedData(img), page, w, h);
}

TEST_F(Mono, DescreenTurnsADownsampledHalftoneIntoGray) {
    const int w = 256, h = 256;
    Bytes screen(32 * size_t(h));
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            if ((x + y) % 2) screen[size_t(y) * 32 + size_t(x) / 8] |= uint8_t(0x80 >> (x % 8));
    MonoParams p = BoxDownsample(300, 150);
    p.descreen = true;
    CosObj img = Bilevel(w, h, screen);
    ASSERT_EQ(ReduceMonoImage(img, 600, 600, p).outcome, ReductionOutcome::Replaced);
    EXPECT_EQ(Int(img, "BitsPerComponent"), 8);
    EXPECT_EQ(Int(img, "Width"), 64);
    EXPECT_EQ(Parm(img, "Predictor"), 15);
    const Bytes gray = CosStreamDecodedData(img);
    ASSERT_EQ(gray.size(), 64u * 64);
    for (uint8_t v : gray) ASSERT_NEAR(v, 128, 6);
    // Masks stay bilevel: descreening does not apply to them.
    CosObj mask = Mask(w, h, screen, false);
    ASSERT_EQ(ReduceMonoImage(mask, 600, 600, p).outcome, ReductionOutcome::Replaced);
    EXPECT_EQ(Int(mask, "BitsPerComponent"), 1);
    // Nor to text, which is no screen.
    CosObj text = Bilevel(96, 48, TextPage(96, 48));
    ASSERT_EQ(ReduceMonoImage(text, 600, 600, p).outcome, ReductionOutcome::Replaced);
    EXPECT_EQ(Int(text, "BitsPerComponent"), 1);
}

TEST_F(Mono, CCITTSourcesWithMissingOrWrongRows) {
    const int w = 120, h = 40;
    const Bytes page = TextPage(w, h);
    InkBitmap ink{w, h, page};
    for (auto& b : ink.rows) b = uint8_t(~b);
    for (int y = 0; y < h; ++y) ink.rows[size_t(y) * 15 + 14] &= 0xFF;
    const Bytes g4 = EncodeFax(ink, FaxGroup::G4);
    auto ccitt = [&](int rows) {
        CosObj img = Bilevel(w, h, {});
        CosDictPutName(img, A("Filter"), false, A("CCITTFaxDecode"));
        CosObj parms = CosNewDict(doc, false);
        CosDictPutInteger(parms, A("K"), -1);
        CosDictPutInteger(parms, A("Columns"), w);
        if (rows >= 0) CosDictPutInteger(parms, A("Rows"), rows);
        CosDictPut(img, A("DecodeParms"), parms);
        CosStreamSetEncodedData(img, g4);
        return img;
    };
    MonoParams p = BoxDownsample(450, 300);
    // No Rows: the data holds Height rows, so the image is reduced.
    CosObj noRows = ccitt(-1);
    ReductionResult r = ReduceMonoImage(noRows, 600, 600, p);
    ASSERT_EQ(r.outcome, ReductionOutcome::Replaced) << r.reason;
    EXPECT_EQ(FilterOf(noRows), "CCITTFaxDecode");  // Original keeps the family
    EXPECT_EQ(Parm(noRows, "Rows"), 20);
    // Rows below Height: fewer rows than the image needs, left as it was.
    CosObj shortRows = ccitt(h / 2);
    r = ReduceMonoImage(shortRows, 600, 600, p);
    EXPECT_EQ(r.outcome, ReductionOutcome::Bad);
    EXPECT_EQ(Int(shortRows, "Width"), w);
    EXPECT_EQ(CosStreamEncodedLength(shortRows), g4.size());
}

TEST_F(Mono, BadAndHugeImagesAreLeftAlone) {
    MonoParams p;
    p.compression = MonoCompression::CCITTG4;
    // 60000 x 60000: refused before anything is decoded.
    CosObj huge = Bilevel(60000, 60000, Bytes(100));
    CosDictPutName(huge, A("Filter"), false, A("FlateDecode"));
    ReductionResult r = ReduceMonoImage(huge, 300, 300, p);
    EXPECT_EQ(r.outcome, ReductionOutcome::Bad);
    EXPECT_EQ(r.reason, "image too large to reduce");
    // Short data, a damaged stream, an unknown filter.
    EXPECT_EQ(ReduceMonoImage(Bilevel(64, 64, Bytes(100)), 300, 300, p).outcome, ReductionOutcome::Bad);
    CosObj damaged = Bilevel(64, 64, Bytes(200, 0x33));
    CosDictPutName(damaged, A("Filter"), false, A("FlateDecode"));
    EXPECT_EQ(ReduceMonoImage(damaged, 300, 300, p).outcome, ReductionOutcome::Bad);
    CosObj odd = Bilevel(64, 64, Bytes(512));
    CosDictPutName(odd, A("Filter"), false, A("JPXDecode"));
    EXPECT_EQ(ReduceMonoImage(odd, 300, 300, p).outcome, ReductionOutcome::LeftAlone);
    // Nothing asked for: untouched.
    CosObj plain = Bilevel(64, 64, TextPage(64, 64));
    EXPECT_EQ(ReduceMonoImage(plain, 300, 300, MonoParams{}).outcome, ReductionOutcome::Unchanged);
    // A result that is not smaller keeps the image.
    CosObj tiny = Bilevel(8, 1, Bytes{0x5A});
    p.compression = MonoCompression::Flate;
    EXPECT_EQ(ReduceMonoImage(tiny, 300, 300, p).outcome, ReductionOutcome::NotSmaller);
    EXPECT_EQ(CosStreamDecodedData(tiny), Bytes{0x5A});
    EXPECT_TRUE(CosObjIsNull(CosDictGet(tiny, A("Filter"))));
}

}  // namespace
