// The JBIG2 generic-region encoder: the arithmetic coder against the
// standard's own test sequence, and bitmaps of every awkward shape coded
// and read back through the JBIG2Decode filter.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "base/ASError.h"
#include "filters/Filters.h"
#include "jbig2/MQEncoder.h"
#include "jbig2/Segments.h"
#include "tests/jbig2/Jbig2TestUtil.h"

using Bytes = std::vector<uint8_t>;

namespace {

// The arithmetic coder test sequence of ITU T.88 (annex H.2): 256 bits,
// all in one context, and the code string they must give.
TEST(MQEncoder, CodesTheStandardTestSequence) {
    const Bytes input = {0x00, 0x02, 0x00, 0x51, 0x00, 0x00, 0x00, 0xC0, 0x03, 0x52, 0x87,
                         0x2A, 0xAA, 0xAA, 0xAA, 0xAA, 0x82, 0xC0, 0x20, 0x00, 0xFC, 0xD7,
                         0x9E, 0xF6, 0xBF, 0x7F, 0xED, 0x90, 0x4F, 0x46, 0xA3, 0xBF};
    const Bytes expected = {0x84, 0xC7, 0x3B, 0xFC, 0xE1, 0xA1, 0x43, 0x04, 0x02, 0x20, 0x00, 0x00, 0x41, 0x0D, 0xBB,
                            0x86, 0xF4, 0x31, 0x7F, 0xFF, 0x88, 0xFF, 0x37, 0x47, 0x1A, 0xDB, 0x6A, 0xDF, 0xFF, 0xAC};
    jbig2::MQEncoder mq(1);
    for (uint8_t byte : input)
        for (int i = 7; i >= 0; --i) mq.Encode(0, (byte >> i) & 1);
    EXPECT_EQ(mq.Finish(), expected);
}

struct Pixels {
    uint32_t width, height;
    size_t stride;
    Bytes rows;  // 1 = black
    jbig2::Bitmap View() const { return {width, height, stride, rows}; }
    bool Get(uint32_t x, uint32_t y) const { return (rows[y * stride + x / 8] >> (7 - x % 8)) & 1; }
};

uint32_t Next(uint32_t& seed) {
    seed = seed * 1103515245u + 12345u;
    return seed >> 8;
}

// Random pixels with black at `percent`, runs of identical rows mixed in
// so both outcomes of typical prediction occur, and garbage in the bits
// past the width (which the encoder must ignore).
Pixels Random(uint32_t w, uint32_t h, int percent, uint32_t seed, size_t extraStride = 0) {
    Pixels p{w, h, (w + 7) / 8 + extraStride, {}};
    p.rows.assign(p.stride * h, 0);
    for (uint32_t y = 0; y < h; ++y) {
        uint8_t* row = p.rows.data() + y * p.stride;
        if (y > 0 && Next(seed) % 4 == 0) {
            std::copy_n(row - p.stride, p.stride, row);
            continue;
        }
        for (uint32_t x = 0; x < w; ++x)
            if (int(Next(seed) % 100) < percent) row[x / 8] |= uint8_t(0x80 >> (x % 8));
        if (w % 8) row[w / 8] |= uint8_t(0xFF >> (w % 8)) & uint8_t(Next(seed));
    }
    return p;
}

void ExpectDecodesTo(const Bytes& stream, const Pixels& p) {
    jbig2test::ExpectDecodesTo(stream, p.width, p.height, p.stride, p.rows);
}

TEST(GenericPage, RandomBitmapsOfAwkwardShapesRoundTrip) {
    struct Case {
        uint32_t w, h;
        int percent;
        size_t extraStride;
    };
    const Case cases[] = {{1, 1, 100, 0},  {1, 9, 50, 0},   {9, 1, 50, 0},     {7, 3, 40, 1},
                          {64, 64, 5, 0},  {65, 40, 50, 0}, {133, 77, 95, 3},  {300, 50, 1, 0},
                          {17, 200, 30, 0}, {1000, 20, 12, 0}};
    uint32_t seed = 7;
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.w << "x" << c.h << " at " << c.percent << "%");
        Pixels p = Random(c.w, c.h, c.percent, seed++, c.extraStride);
        ExpectDecodesTo(jbig2::EncodeGenericPage(p.View()), p);
        jbig2::GenericOptions plain;
        plain.typicalPrediction = false;
        ExpectDecodesTo(jbig2::EncodeGenericPage(p.View(), plain), p);
    }
}

// A scanned-text-like page: white rows, then rows of glyph-like blocks.
// Typical prediction must pay for itself here, and all white and all
// black pages must come out right (the first row is predicted from white).
TEST(GenericPage, UniformAndRepetitivePagesRoundTripSmall) {
    for (int fill : {0, 0xFF}) {
        Pixels p{200, 300, 25, Bytes(25 * 300, uint8_t(fill))};
        const Bytes coded = jbig2::EncodeGenericPage(p.View());
        ExpectDecodesTo(coded, p);
        EXPECT_LT(coded.size(), 120u) << "fill " << fill;
    }
    Pixels text{400, 400, 50, Bytes(50 * 400, 0)};
    for (uint32_t y = 40; y < 360; ++y)
        if (y % 30 < 12)
            for (uint32_t x = 20; x < 380; ++x)
                if ((x / 3 + y / 4) % 5 < 2) text.rows[y * 50 + x / 8] |= uint8_t(0x80 >> (x % 8));
    const Bytes withTp = jbig2::EncodeGenericPage(text.View());
    jbig2::GenericOptions plain;
    plain.typicalPrediction = false;
    const Bytes withoutTp = jbig2::EncodeGenericPage(text.View(), plain);
    ExpectDecodesTo(withTp, text);
    ExpectDecodesTo(withoutTp, text);
    EXPECT_LT(withTp.size(), withoutTp.size());
}

TEST(GenericPage, SegmentsAreLaidOutAsReadersExpect) {
    Pixels p = Random(70, 30, 20, 99);
    const Bytes s = jbig2::EncodeGenericPage(p.View());
    auto u32 = [&](size_t at) {
        return uint32_t(s[at]) << 24 | uint32_t(s[at + 1]) << 16 | uint32_t(s[at + 2]) << 8 | s[at + 3];
    };
    // Page information: number 0, type 48, page 1, 19 bytes: 70 x 30.
    ASSERT_GE(s.size(), 11u + 19 + 11 + 26);
    EXPECT_EQ(u32(0), 0u);
    EXPECT_EQ(s[4], 48);
    EXPECT_EQ(s[6], 1);
    EXPECT_EQ(u32(7), 19u);
    EXPECT_EQ(u32(11), 70u);
    EXPECT_EQ(u32(15), 30u);
    // Immediate lossless generic region, number 1, covering the page at 0,0
    // with template 0, typical prediction and the nominal AT pixels.
    const size_t g = 11 + 19;
    EXPECT_EQ(u32(g), 1u);
    EXPECT_EQ(s[g + 4], 39);
    const uint32_t len = u32(g + 7);
    EXPECT_EQ(u32(g + 11), 70u);
    EXPECT_EQ(u32(g + 15), 30u);
    EXPECT_EQ(u32(g + 19), 0u);
    EXPECT_EQ(u32(g + 23), 0u);
    EXPECT_EQ(s[g + 28], 0x08);
    const Bytes at(s.begin() + long(g) + 29, s.begin() + long(g) + 37);
    EXPECT_EQ(at, (Bytes{3, 0xFF, 0xFD, 0xFF, 2, 0xFE, 0xFE, 0xFE}));
    // The code string ends the stream with its marker.
    ASSERT_EQ(s.size(), g + 11 + len);
    EXPECT_EQ(s[s.size() - 2], 0xFF);
    EXPECT_EQ(s.back(), 0xAC);
}

// Segments after the first page's: numbering goes on, and a page number
// past 255 takes the four-byte association.
TEST(SegmentWriter, NumbersSegmentsAndWidensLargePageNumbers) {
    jbig2::SegmentWriter w(300);
    w.PageInformation(8, 8, false);
    w.EndOfPage();
    const Bytes& s = w.Bytes();
    ASSERT_EQ(s.size(), 14u + 19 + 14);
    EXPECT_EQ(s[4], 48 | 0x40);
    EXPECT_EQ((Bytes{s[6], s[7], s[8], s[9]}), (Bytes{0, 0, 1, 44}));
    EXPECT_EQ(s[14 + 18], 0x00);  // page flags: not lossless
    EXPECT_EQ(s[33 + 3], 1);      // second segment number
    EXPECT_EQ(s[33 + 4], 49 | 0x40);
}

TEST(GenericPage, RowsShorterThanTheSizeAreRefused) {
    Bytes rows(10);
    jbig2::Bitmap b{16, 6, 2, rows};
    EXPECT_THROW(jbig2::EncodeGenericPage(b), CVellumError);
    jbig2::Bitmap narrow{17, 1, 2, rows};
    EXPECT_THROW(jbig2::EncodeGenericPage(narrow), CVellumError);
}

}  // namespace
