// Resampling filters by name and the resampling loop.
#include <gtest/gtest.h>

#include <cmath>
#include <numeric>

#include "base/ASError.h"
#include "images/ResampleFilter.h"
#include "images/Resampler.h"

using namespace images;

namespace {

Raster Make(int w, int h, int colors, int bits, bool alpha = false) {
    Raster r;
    r.width = w;
    r.height = h;
    r.colors = colors;
    r.bits = bits;
    r.alpha = alpha;
    r.data.assign(r.ByteSize(), 0);
    return r;
}

unsigned Get(const Raster& r, int x, int y, int c) {
    const size_t i = (size_t(y) * r.width + x) * r.Channels() + c;
    if (r.bits == 16) return (unsigned(r.data[2 * i]) << 8) | r.data[2 * i + 1];
    return r.data[i];
}

void Put(Raster& r, int x, int y, int c, unsigned v) {
    const size_t i = (size_t(y) * r.width + x) * r.Channels() + c;
    if (r.bits == 16) {
        r.data[2 * i] = uint8_t(v >> 8);
        r.data[2 * i + 1] = uint8_t(v);
    } else {
        r.data[i] = uint8_t(v);
    }
}

}  // namespace

TEST(ResampleFilter, KernelValuesAtTheirEdges) {
    EXPECT_EQ(BoxKernel(0.5), 1.0);
    EXPECT_EQ(BoxKernel(-0.5), 1.0);
    EXPECT_EQ(BoxKernel(0.5000002), 0.0);
    EXPECT_EQ(BoxKernel(-0.5000002), 0.0);
    EXPECT_EQ(TriangleKernel(0), 1.0);
    EXPECT_DOUBLE_EQ(TriangleKernel(0.25), 0.75);
    EXPECT_EQ(TriangleKernel(1.2), 0.0);  // inside the 1.5 support, outside the kernel
    EXPECT_EQ(TriangleKernel(1.0), 0.0);
    EXPECT_DOUBLE_EQ(MitchellKernel(0), 0.8888888888888888);
    EXPECT_NEAR(MitchellKernel(1), 0.05555555555555555, 1e-14);
    EXPECT_NEAR(MitchellKernel(-1), 0.05555555555555555, 1e-14);
    EXPECT_NEAR(MitchellKernel(2), 0.0, 1e-15);
    EXPECT_EQ(MitchellKernel(2.5), 0.0);
    EXPECT_EQ(LanczosKernel(0), 1.0);
    for (double x : {1.0, 2.0, -2.0}) EXPECT_NEAR(LanczosKernel(x), 0.0, 1e-15) << x;
    EXPECT_EQ(LanczosKernel(3.0), 0.0);
    EXPECT_LT(LanczosKernel(1.5), 0.0);  // the negative lobe
}

TEST(Resampler, WeightsSumToOneEverywhereIncludingEdges) {
    // Names are case-sensitive; the settings words are not filter names.
    for (const char* unknown : {"Box", "", "Bicubic"}) EXPECT_EQ(CreateResampleFilter(unknown), nullptr) << unknown;
    for (const char* name : {"box", "ptbox", "triangle", "mitchell", "lanczos", "LWbox", "point"}) {
        auto f = CreateResampleFilter(name);
        for (auto [n, m] : {std::pair{10, 3}, {7, 7}, {100, 33}, {5, 12}, {2, 1}, {1, 1}, {9, 4}}) {
            auto contribs = ComputeContributions(n, m, *f);
            ASSERT_EQ(contribs.size(), size_t(m));
            for (const Contribution& c : contribs) {
                ASSERT_FALSE(c.weights.empty()) << name;
                EXPECT_GE(c.first, 0);
                EXPECT_LE(c.first + int(c.weights.size()), n) << name;
                EXPECT_NEAR(std::accumulate(c.weights.begin(), c.weights.end(), 0.0), 1.0, 1e-9)
                    << name << " " << n << "->" << m;
            }
        }
    }
}

TEST(Resampler, DistancesAreScaledByTheRatio) {
    // Box at ratio 3 covers exactly three samples with equal weight.
    auto box = CreateResampleFilter("box");
    auto c = ComputeContributions(9, 3, *box);
    EXPECT_EQ(c[1].first, 3);
    ASSERT_EQ(c[1].weights.size(), 3u);
    for (double w : c[1].weights) EXPECT_NEAR(w, 1.0 / 3, 1e-12);
    // Triangle at ratio 2: the centre sits between samples 2 and 3; the
    // kernel reaches one destination sample (two source samples) each way.
    auto tri = CreateResampleFilter("triangle");
    c = ComputeContributions(8, 4, *tri);
    EXPECT_EQ(c[1].first, 1);
    ASSERT_EQ(c[1].weights.size(), 4u);
    EXPECT_NEAR(c[1].weights[0], 0.125, 1e-12);
    EXPECT_NEAR(c[1].weights[1], 0.375, 1e-12);
    // At the left edge the samples before 0 fold onto sample 0.
    EXPECT_EQ(c[0].first, 0);
    EXPECT_NEAR(c[0].weights[0], 0.125 + 0.375, 1e-12);
    // The point filter at an even ratio takes the sample at the centre's right.
    auto point = CreateResampleFilter("point");
    c = ComputeContributions(8, 4, *point);
    EXPECT_EQ(c[1].first, 3);
    EXPECT_EQ(c[1].weights.size(), 1u);
    // ...and at an odd ratio the middle sample.
    c = ComputeContributions(9, 3, *point);
    EXPECT_EQ(c[2].first, 7);
}

TEST(Resampler, BoxAtRatioTwoIsTheMeanOfEachBlock) {
    Raster r = Make(6, 4, 3, 8);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 6; ++x)
            for (int c = 0; c < 3; ++c) Put(r, x, y, c, unsigned((x * 37 + y * 53 + c * 11) % 256));
    auto box = CreateResampleFilter("box");
    Raster fast = Resample(r, 3, 2, *box);
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 3; ++x)
            for (int c = 0; c < 3; ++c) {
                double mean = (Get(r, 2 * x, 2 * y, c) + Get(r, 2 * x + 1, 2 * y, c) + Get(r, 2 * x, 2 * y + 1, c) +
                               Get(r, 2 * x + 1, 2 * y + 1, c)) / 4.0;
                EXPECT_EQ(Get(fast, x, y, c), unsigned(std::floor(mean + 0.5)));
            }
    // The general path (a blur of 1 changes nothing but skips the fast
    // path) gives the same result.
    ResampleFilter general = *box;
    general.blur = 1.0;
    EXPECT_EQ(Resample(r, 3, 2, general).data, fast.data);
    // So does the point filter's fast path against its general one.
    auto point = CreateResampleFilter("point");
    Raster picked = Resample(r, 3, 2, *point);
    EXPECT_EQ(Get(picked, 1, 1, 2), Get(r, 3, 3, 2));
    EXPECT_EQ(Get(picked, 0, 0, 0), Get(r, 1, 1, 0));
}

TEST(Resampler, SixteenBitSamplesKeepTheirLowByte) {
    Raster r = Make(4, 1, 1, 16);
    const unsigned vals[] = {1000, 1003, 60000, 60002};
    for (int x = 0; x < 4; ++x) Put(r, x, 0, 0, vals[x]);
    Raster out = Resample(r, 2, 1, *CreateResampleFilter("box"));
    EXPECT_EQ(Get(out, 0, 0, 0), 1002u);  // 1001.5 rounds up
    EXPECT_EQ(Get(out, 1, 0, 0), 60001u);
    Raster tri = Resample(r, 3, 1, *CreateResampleFilter("triangle"));
    EXPECT_GT(Get(tri, 2, 0, 0), 30000u);
    EXPECT_LE(Get(tri, 2, 0, 0), 60002u);
}

TEST(Resampler, EdgesAreClampedNotDarkened) {
    // A ramp: the first and last destination samples must stay within the
    // ramp's range instead of mixing in zeros from outside the image.
    Raster r = Make(20, 1, 1, 8);
    for (int x = 0; x < 20; ++x) Put(r, x, 0, 0, unsigned(100 + x));
    for (const char* name : {"triangle", "mitchell", "lanczos"}) {
        Raster out = Resample(r, 5, 1, *CreateResampleFilter(name));
        EXPECT_GE(Get(out, 0, 0, 0), 97u) << name;
        EXPECT_LE(Get(out, 0, 0, 0), 105u) << name;
        EXPECT_GE(Get(out, 4, 0, 0), 114u) << name;
        EXPECT_LE(Get(out, 4, 0, 0), 122u) << name;
    }
}

TEST(Resampler, AlphaKeepsTransparentColourOut) {
    // Left half opaque red, right half fully transparent green: the mixed
    // destination sample is red at half coverage, not a red-green blend.
    Raster r = Make(4, 2, 3, 8, true);
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 4; ++x) {
            const bool left = x < 2 || x == 2;  // columns 0-2 opaque
            Put(r, x, y, 0, left ? 255 : 0);
            Put(r, x, y, 1, left ? 0 : 255);
            Put(r, x, y, 3, left ? 255 : 0);
        }
    Raster out = Resample(r, 2, 1, *CreateResampleFilter("box"));
    EXPECT_EQ(Get(out, 1, 0, 0), 255u);
    EXPECT_EQ(Get(out, 1, 0, 1), 0u);
    EXPECT_EQ(Get(out, 1, 0, 3), 128u);
    ResampleFilter general = *CreateResampleFilter("box");
    general.blur = 1.0;
    EXPECT_EQ(Resample(r, 2, 1, general).data, out.data);
}

TEST(Resampler, NonIntegerRatiosWithFourComponents) {
    Raster r = Make(10, 7, 4, 8);
    for (int y = 0; y < 7; ++y)
        for (int x = 0; x < 10; ++x)
            for (int c = 0; c < 4; ++c) Put(r, x, y, c, unsigned(x < 5 ? 10 * c : 200 + c));
    Raster out = Resample(r, 4, 3, *CreateResampleFilter("triangle"));
    // Far left and far right keep the pure colours; the middle is mixed.
    for (int c = 0; c < 4; ++c) {
        EXPECT_EQ(Get(out, 0, 1, c), unsigned(10 * c));
        EXPECT_EQ(Get(out, 3, 1, c), unsigned(200 + c));
    }
    EXPECT_GT(Get(out, 1, 1, 0), 0u);
    EXPECT_LT(Get(out, 2, 1, 0), 200u);
    // Enlarging works too (distances then stay in source samples).
    Raster up = Resample(r, 20, 14, *CreateResampleFilter("triangle"));
    EXPECT_EQ(Get(up, 0, 0, 3), 30u);
    EXPECT_EQ(Get(up, 19, 13, 3), 203u);
}

TEST(Resampler, RejectsBadRasters) {
    auto f = CreateResampleFilter("box");
    Raster shortData = Make(10, 10, 3, 8);
    shortData.data.resize(shortData.data.size() - 1);
    EXPECT_THROW(Resample(shortData, 5, 5, *f), CVellumError);
    Raster bits = Make(4, 4, 1, 8);
    bits.bits = 4;
    EXPECT_THROW(Resample(bits, 2, 2, *f), CVellumError);
    Raster five = Make(4, 4, 1, 8);
    five.colors = 5;
    five.data.resize(five.ByteSize());
    EXPECT_THROW(Resample(five, 2, 2, *f), CVellumError);
    EXPECT_THROW(Resample(Make(4, 4, 1, 8), 0, 2, *f), CVellumError);
}
