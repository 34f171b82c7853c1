// Bilevel bitmap work: thresholded downsampling, despeckling, descreening
// and CCITT encoding read back through the CCITTFaxDecode filter.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "base/ASError.h"
#include "filters/Filters.h"
#include "images/Bilevel.h"

using namespace images;
using Bytes = std::vector<uint8_t>;

namespace {

InkBitmap Blank(int w, int h) {
    InkBitmap b;
    b.width = w;
    b.height = h;
    b.rows.assign(b.Stride() * size_t(h), 0);
    return b;
}

void Set(InkBitmap& b, int x, int y) { b.rows[size_t(y) * b.Stride() + size_t(x) / 8] |= uint8_t(0x80 >> (x % 8)); }

size_t InkCount(const InkBitmap& b) {
    size_t n = 0;
    for (int y = 0; y < b.height; ++y)
        for (int x = 0; x < b.width; ++x) n += b.Get(x, y);
    return n;
}

TEST(InkThreshold, FollowsTheRatioWithinItsBounds) {
    EXPECT_DOUBLE_EQ(InkThreshold(1.0), 0.5);
    EXPECT_DOUBLE_EQ(InkThreshold(2.0), 0.25);
    EXPECT_DOUBLE_EQ(InkThreshold(4.0), 0.125);
    EXPECT_DOUBLE_EQ(InkThreshold(10.0), 0.125);
    EXPECT_NEAR(InkThreshold(1.5), 1.0 / 3.0, 1e-12);
}

// Screens and dithers are halftones; text, noise, rules and blank pages are not.
TEST(LooksHalftoned, TellsScreensFromTextAndNoise) {
    const int w = 400, h = 400;
    // A smooth "photograph": gray levels from 0.2 to 0.8 over the page.
    auto tone = [&](int x, int y) { return 0.2 + 0.6 * (0.5 + 0.5 * std::sin(x / 70.0) * std::cos(y / 90.0)); };
    static const int bayer[4][4] = {{0, 8, 2, 10}, {12, 4, 14, 6}, {3, 11, 1, 9}, {15, 7, 13, 5}};
    InkBitmap dither = Blank(w, h), clustered = Blank(w, h), text = Blank(w, h), noise = Blank(w, h),
              staff = Blank(w, h), patch = Blank(w, h);
    std::mt19937 rng(9);
    auto next = [&] { return uint32_t(rng()); };
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            if (tone(x, y) * 16 > bayer[y % 4][x % 4] + 0.5) {
                Set(dither, x, y);
                // A small dithered patch (two mid-tone tiles) is too little
                // to call the whole image a halftone.
                if (x < 100 && y < 60) Set(patch, x, y);
            }
            // A clustered-dot screen at 45 degrees, 8 pixels apart, with
            // scanner noise at its edges.
            const double u = (x + y) * 0.7071 / 8, v = (x - y) * 0.7071 / 8;
            const double d = std::hypot(u - std::floor(u) - 0.5, v - std::floor(v) - 0.5);
            if (d < std::sqrt(tone(x, y) / 3.14159) + (next() % 5 == 0 ? 0.05 : 0)) Set(clustered, x, y);
            if (next() % 2) Set(noise, x, y);
            // Staff lines 7 pixels thick, 25 apart, and a bar line now and then.
            if (y % 25 < 7 || x % 97 < 5) Set(staff, x, y);
        }
    // Lines of bold letters of random widths and shapes.
    for (int base = 30; base + 10 < h; base += 26)
        for (int x = 5; x + 20 < w;) {
            const int lw = 8 + int(next() % 8), lh = 14 + int(next() % 5), kind = int(next() % 4);
            for (int yy = base - lh; yy < base; ++yy)
                for (int xx = x; xx < x + lw; ++xx) {
                    const bool stem = xx - x < 3 || (kind == 1 && x + lw - xx <= 3);
                    const bool bar = (kind >= 2 && (yy - base + lh < 3 || base - yy <= 3)) || (kind == 3 && std::abs(yy - base + lh / 2) < 2);
                    if (stem || bar) Set(text, xx, yy);
                }
            x += lw + 2 + int(next() % 4) + (next() % 7 == 0 ? 10 : 0);
        }
    EXPECT_TRUE(LooksHalftoned(dither));
    EXPECT_TRUE(LooksHalftoned(clustered));
    EXPECT_FALSE(LooksHalftoned(text));
    EXPECT_FALSE(LooksHalftoned(noise));
    EXPECT_FALSE(LooksHalftoned(staff));
    EXPECT_FALSE(LooksHalftoned(patch));
    EXPECT_FALSE(LooksHalftoned(Blank(w, h)));
    EXPECT_FALSE(LooksHalftoned(Blank(40, 40)));  // smaller than a tile and its reach
}

// A coverage that lands on the threshold counts as ink: 3 of 25 pixels
// shrunk 5 to 1 cover 31 of 255, the threshold at that ratio; 2 do not.
TEST(DownsampleInk, CoverageAtTheThresholdIsInk) {
    for (int inked : {2, 3}) {
        InkBitmap b = Blank(5, 5);
        for (int i = 0; i < inked; ++i) Set(b, i * 2, i);
        EXPECT_EQ(InkCount(DownsampleInk(b, 1, 1, "box")), size_t(inked == 3)) << inked;
    }
}

// One-pixel lines, vertical, horizontal and diagonal, at every offset
// against the destination grid, stay unbroken through the filters the
// settings offer for averaging, at ratio 2 and 3 and at a ratio between.
TEST(DownsampleInk, OnePixelLinesStayUnbroken) {
    struct Case {
        const char* filter;
        int from, to;
    };
    for (const Case c : {Case{"box", 64, 32}, Case{"box", 63, 21}, Case{"triangle", 64, 32}, Case{"box", 60, 40},
                         Case{"box", 64, 16}}) {
        for (int offset = 0; offset < 4; ++offset) {
            SCOPED_TRACE(testing::Message() << c.filter << " " << c.from << "->" << c.to << " offset " << offset);
            InkBitmap v = Blank(c.from, c.from), hz = Blank(c.from, c.from), d = Blank(c.from, c.from);
            for (int i = 0; i < c.from; ++i) {
                Set(v, 10 + offset, i);
                Set(hz, i, 10 + offset);
                Set(d, i, i);
            }
            const InkBitmap vs = DownsampleInk(v, c.to, c.to, c.filter);
            const InkBitmap hs = DownsampleInk(hz, c.to, c.to, c.filter);
            const InkBitmap ds = DownsampleInk(d, c.to, c.to, c.filter);
            for (int i = 0; i < c.to; ++i) {
                bool vrow = false, hcol = false, drow = false;
                for (int j = 0; j < c.to; ++j) {
                    vrow |= vs.Get(j, i);
                    hcol |= hs.Get(i, j);
                    drow |= ds.Get(j, i);
                }
                ASSERT_TRUE(vrow) << "vertical line broken at row " << i;
                ASSERT_TRUE(hcol) << "horizontal line broken at column " << i;
                ASSERT_TRUE(drow) << "diagonal line broken at row " << i;
            }
            // A thin line stays thin: at most two destination pixels wide.
            EXPECT_LE(InkCount(vs), size_t(2 * c.to));
        }
    }
}

TEST(DownsampleInk, SparseNoiseFadesAndSolidAreasStay) {
    InkBitmap b = Blank(80, 80);
    for (int y = 0; y < 80; y += 8)
        for (int x = 0; x < 40; x += 8) Set(b, x + (y / 8) % 4, y);  // lone dots on the left
    for (int y = 0; y < 80; ++y)
        for (int x = 40; x < 80; ++x) Set(b, x, y);  // solid on the right
    const InkBitmap s = DownsampleInk(b, 20, 20, "box");
    for (int y = 0; y < 20; ++y)
        for (int x = 0; x < 20; ++x) EXPECT_EQ(s.Get(x, y), x >= 10) << x << "," << y;
    // Padding bits past the width stay clear.
    InkBitmap odd = Blank(10, 4);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 10; ++x) Set(odd, x, y);
    const InkBitmap os = DownsampleInk(odd, 5, 2, "box");
    EXPECT_EQ(os.rows[0], 0xF8);
    EXPECT_THROW(DownsampleInk(odd, 5, 2, "Box"), CVellumError);
}

TEST(Despeckle, RemovesOnlySmallIsolatedGroups) {
    InkBitmap b = Blank(40, 20);
    Set(b, 0, 0);                 // single pixel in a corner
    Set(b, 5, 5), Set(b, 6, 6);   // two, diagonally joined
    Set(b, 10, 2), Set(b, 11, 2), Set(b, 12, 2);  // three in a row
    for (int x = 20; x < 24; ++x) Set(b, x, 10);  // four: kept
    Set(b, 30, 5), Set(b, 31, 6), Set(b, 30, 7);  // a V: three, reached only through a diagonal
    Set(b, 39, 19);               // single pixel in the far corner
    for (int y = 12; y < 20; ++y) Set(b, 5, y);   // a stroke...
    Set(b, 6, 11);                // ...with a pixel touching it diagonally: kept
    Set(b, 7, 15);                // one column away from the stroke: a speck
    const size_t before = InkCount(b);
    EXPECT_EQ(Despeckle(b, 3), 11u);
    EXPECT_EQ(InkCount(b), before - 11);
    EXPECT_FALSE(b.Get(7, 15));
    EXPECT_FALSE(b.Get(0, 0));
    EXPECT_FALSE(b.Get(6, 6));
    EXPECT_FALSE(b.Get(12, 2));
    EXPECT_FALSE(b.Get(30, 7));
    EXPECT_FALSE(b.Get(39, 19));
    EXPECT_TRUE(b.Get(23, 10));
    EXPECT_TRUE(b.Get(6, 11));
    // A limit of 2 keeps the groups of three.
    InkBitmap c = Blank(16, 4);
    Set(c, 1, 1), Set(c, 2, 1), Set(c, 3, 1), Set(c, 8, 1), Set(c, 9, 2);
    EXPECT_EQ(Despeckle(c, 2), 2u);
    EXPECT_TRUE(c.Get(2, 1));
}

TEST(Despeckle, SpeckSizeFollowsResolution) {
    for (auto [ppi, size] : {std::pair{300, 3}, {0, 3}, {600, 12}, {200, 1}, {72, 1}, {2400, 16}})
        EXPECT_EQ(SpeckSizeFor(ppi), size) << ppi;
}

TEST(DescreenToGray, AveragesAHalftoneIntoItsGray) {
    // A 50% checkerboard and a 25% dot screen side by side.
    const int w = 64, h = 32;
    Bytes samples(size_t(w / 8) * h, 0);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const bool on = x < 32 ? (x + y) % 2 == 0 : (x % 2 == 0 && y % 2 == 0);
            if (on) samples[size_t(y) * (w / 8) + size_t(x) / 8] |= uint8_t(0x80 >> (x % 8));
        }
    const Raster g = DescreenToGray(samples, w, h, 16, 8);
    ASSERT_EQ(g.width, 16);
    ASSERT_EQ(g.height, 8);
    ASSERT_EQ(g.bits, 8);
    for (int y = 1; y < 7; ++y) {
        EXPECT_NEAR(g.data[size_t(y) * 16 + 3], 128, 8) << y;
        EXPECT_NEAR(g.data[size_t(y) * 16 + 12], 64, 8) << y;
    }
}

InkBitmap Random(int w, int h, unsigned seed) {
    InkBitmap b = Blank(w, h);
    for (int y = 0; y < h; ++y) {
        int x = 0;
        while (x < w) {
            seed = seed * 1103515245u + 12345u;
            const int run = 1 + int((seed >> 16) % 23);
            const bool ink = (seed >> 8) & 1;
            for (int i = 0; i < run && x < w; ++i, ++x)
                if (ink) Set(b, x, y);
        }
    }
    return b;
}

// Fax data decodes with BlackIs1 false to ink as 0 samples.
TEST(EncodeFax, Group3AndGroup4DecodeToTheSameBits) {
    for (const auto& [w, h] : {std::pair{1, 1}, std::pair{13, 7}, std::pair{200, 50}, std::pair{1729, 3}}) {
        const InkBitmap b = Random(w, h, unsigned(w * 31 + h));
        for (FaxGroup g : {FaxGroup::G4, FaxGroup::G3}) {
            SCOPED_TRACE(testing::Message() << w << "x" << h << (g == FaxGroup::G4 ? " G4" : " G3"));
            const Bytes coded = EncodeFax(b, g);
            filters::FilterStep step{"CCITTFaxDecode", {}};
            step.params.values = {{"K", g == FaxGroup::G4 ? -1 : 0}, {"Columns", w}, {"Rows", h}};
            filters::DecodeOptions o;
            o.strict = true;
            const filters::DecodeResult r = filters::DecodeChain(coded, {step}, o);
            ASSERT_EQ(r.status, filters::DecodeStatus::Ok) << r.message;
            ASSERT_EQ(r.data.size(), b.rows.size());
            for (size_t i = 0; i < b.rows.size(); ++i) {
                const uint8_t pad = (i % b.Stride() == b.Stride() - 1 && w % 8) ? uint8_t(0xFF >> (w % 8)) : 0;
                ASSERT_EQ(uint8_t(~r.data[i] & ~pad), b.rows[i]) << "byte " << i;
            }
        }
    }
}

}  // namespace
