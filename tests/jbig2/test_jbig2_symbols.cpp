// Symbol coding: components, exact-match symbols, text regions in every
// layout and shared dictionaries, each page read back through the
// JBIG2Decode filter (jbig2dec) and compared bit for bit.
#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <string>
#include <vector>

#include "filters/Filters.h"
#include "jbig2/Components.h"
#include "jbig2/DocumentCoder.h"
#include "jbig2/Segments.h"
#include "jbig2/ShapeMatch.h"
#include "jbig2/SymbolPage.h"
#include "tests/jbig2/Jbig2TestUtil.h"

using Bytes = std::vector<uint8_t>;

namespace {

struct Page {
    uint32_t width, height;
    Bytes rows;
    size_t Stride() const { return (width + 7) / 8; }
    jbig2::Bitmap View() const { return {width, height, Stride(), rows}; }
    void Set(uint32_t x, uint32_t y) { rows[y * Stride() + x / 8] |= uint8_t(0x80 >> (x % 8)); }
    bool Get(uint32_t x, uint32_t y) const { return (rows[y * Stride() + x / 8] >> (7 - x % 8)) & 1; }
};

Page Blank(uint32_t w, uint32_t h) { return {w, h, Bytes(size_t((w + 7) / 8) * h, 0)}; }

Page FromArt(const std::vector<std::string>& art) {
    Page p = Blank(uint32_t(art[0].size()), uint32_t(art.size()));
    for (uint32_t y = 0; y < p.height; ++y)
        for (uint32_t x = 0; x < p.width; ++x)
            if (art[y][x] == '#') p.Set(x, y);
    return p;
}

uint32_t Next(uint32_t& seed) {
    seed = seed * 1103515245u + 12345u;
    return seed >> 8;
}

// A page of "text": lines of glyphs drawn from a small alphabet of random
// shapes (open at the bottom, so some fall apart into several components;
// most recur), some glyphs touching their neighbours, a rule
// and a block of noise that stay in the generic region.
// The alphabet depends on `font` only.
Page TextPage(uint32_t w, uint32_t h, uint32_t seed, uint32_t font = 1) {
    Page p = Blank(w, h);
    std::vector<Page> alphabet;
    for (int g = 0; g < 24; ++g) {
        Page glyph = Blank(4 + Next(font) % 6, 6 + Next(font) % 8);
        for (uint32_t y = 0; y < glyph.height; ++y)
            for (uint32_t x = 0; x < glyph.width; ++x)
                if (x == 0 || y == 0 || x + 1 == glyph.width || Next(font) % 2) glyph.Set(x, y);
        alphabet.push_back(glyph);
    }
    for (uint32_t base = 20; base + 16 < h; base += 19) {
        uint32_t x = 5 + Next(seed) % 7;
        while (x + 12 < w) {
            const Page& g = alphabet[Next(seed) % alphabet.size()];
            const uint32_t top = base - g.height + (Next(seed) % 5 == 0 ? 3 : 0);  // some descend
            for (uint32_t y = 0; y < g.height; ++y)
                for (uint32_t gx = 0; gx < g.width; ++gx)
                    if ((g.rows[y * g.Stride() + gx / 8] >> (7 - gx % 8)) & 1) p.Set(x + gx, top + y);
            x += g.width + (Next(seed) % 8 ? 2 + Next(seed) % 2 : 0) + (Next(seed) % 6 == 0 ? 8 : 0);
        }
    }
    for (uint32_t x = 3; x + 3 < w; ++x) p.Set(x, h - 2);
    for (uint32_t y = 2; y < 10 && y < h; ++y)
        for (uint32_t x = w / 2; x < w / 2 + 30 && x < w; ++x)
            if (Next(seed) % 2) p.Set(x, y);
    return p;
}

void ExpectDecodesTo(const Bytes& stream, const Page& p, const Bytes& globals = {}) {
    jbig2test::ExpectDecodesTo(stream, p.width, p.height, p.Stride(), p.rows, globals);
}

TEST(Components, LabelsTouchingNestedAndDiagonalShapes) {
    // A ring with a dot inside (two components), a diagonal staircase
    // (one), two shapes that only come close (two), a U whose arms join
    // late (one).
    const Page p = FromArt({
        "#####.....#.......#.#..#...#",
        "#...#......#......#.#..#...#",
        "#.#.#.......#.....#.#..#...#",
        "#...#........#.........#...#",
        "#####.........#........#####",
    });
    std::optional<jbig2::ComponentSet> set = jbig2::FindComponents(p.View());
    ASSERT_TRUE(set);
    struct Box {
        uint32_t x, y, w, h;
        uint64_t pixels;
    };
    const Box want[] = {{0, 0, 5, 5, 16}, {10, 0, 5, 5, 5}, {18, 0, 1, 3, 3}, {20, 0, 1, 3, 3},
                        {23, 0, 5, 5, 13}, {2, 2, 1, 1, 1}};
    ASSERT_EQ(set->components.size(), std::size(want));
    for (size_t i = 0; i < std::size(want); ++i) {
        const jbig2::Component& c = set->components[i];
        SCOPED_TRACE(i);
        EXPECT_EQ(c.x, want[i].x);
        EXPECT_EQ(c.y, want[i].y);
        EXPECT_EQ(c.w, want[i].w);
        EXPECT_EQ(c.h, want[i].h);
        EXPECT_EQ(c.pixels, want[i].pixels);
    }
    // The ring's own bits leave the dot out.
    EXPECT_EQ(set->Bits(set->components[0]), (Bytes{0xF8, 0x88, 0x88, 0x88, 0xF8}));
    // More runs or components than allowed: none.
    EXPECT_FALSE(jbig2::FindComponents(p.View(), 10));
    EXPECT_TRUE(jbig2::FindComponents(p.View(), 100, 6));
    EXPECT_FALSE(jbig2::FindComponents(p.View(), 100, 5));
}

TEST(SymbolPage, TextPagesRoundTripSmallerThanGenericCoding) {
    struct Case {
        uint32_t w, h;
    };
    uint32_t seed = 3;
    for (const Case c : {Case{600, 400}, Case{333, 97}, Case{1201, 180}}) {
        SCOPED_TRACE(testing::Message() << c.w << "x" << c.h);
        const Page p = TextPage(c.w, c.h, seed++);
        std::optional<jbig2::PagePlan> plan = jbig2::PlanPage(p.View());
        ASSERT_TRUE(plan);
        EXPECT_GT(plan->shapes.size(), 10u);
        EXPECT_GT(plan->rw, 0u);  // the rule and the noise
        const Bytes symbols = jbig2::EncodePlannedPage(*plan);
        ExpectDecodesTo(symbols, p);
        EXPECT_LT(symbols.size(), jbig2::EncodeGenericPage(p.View()).size() * 8 / 10);
        // Every strip size and corner places the symbols right.
        for (bool bottom : {true, false})
            for (int log = 0; log <= 3; ++log) {
                SCOPED_TRACE(testing::Message() << "log strips " << log << (bottom ? " bottom" : " top"));
                jbig2::SegmentWriter w;
                w.PageInformation(p.width, p.height, true);
                std::vector<const jbig2::Symbol*> own;
                for (const jbig2::Symbol& s : plan->shapes) own.push_back(&s);
                std::vector<uint32_t> position;
                const uint32_t dict = w.Segment(jbig2::kSegSymbolDictionary, jbig2::SymbolDictionaryData(own, position));
                std::vector<jbig2::Placement> placed = plan->placements;
                for (jbig2::Placement& pl : placed) pl.id = position[pl.id];
                w.Segment(jbig2::kSegImmediateLosslessTextRegion,
                          jbig2::TextRegionData(p.width, p.height, uint32_t(own.size()), placed, {log, bottom}),
                          {dict});
                const jbig2::Bitmap residue{plan->rw, plan->rh, (plan->rw + 7) / 8, plan->residue};
                w.Segment(jbig2::kSegImmediateLosslessGenericRegion,
                          jbig2::GenericRegionData(residue, plan->rx, plan->ry, {}));
                ExpectDecodesTo(w.Bytes(), p);
            }
    }
}

TEST(DocumentCoder, SharesShapesOfSeveralPagesInOneDictionary) {
    // Pages 0, 1 and 3 use one alphabet; page 2 has only a rule, drawn
    // once, and no shapes; page 3's coding is dropped; page 4's shapes (plus
    // signs) occur on no other page.  The shared dictionary serves pages 0
    // and 1; page 4 keeps its own coding.
    Page rule = Blank(500, 300);
    for (uint32_t x = 10; x < 400; ++x) rule.Set(x, 100);
    Page plus = Blank(500, 300);
    for (uint32_t y = 10; y < 290; y += 6)
        for (uint32_t x = 10; x < 490; x += 6) {
            plus.Set(x + 1, y);
            plus.Set(x, y + 1);
            plus.Set(x + 1, y + 1);
            plus.Set(x + 2, y + 1);
            plus.Set(x + 1, y + 2);
        }
    const Page pages[] = {TextPage(500, 300, 11), TextPage(500, 300, 12), rule, TextPage(500, 300, 14), plus};
    jbig2::DocumentCoder coder;
    std::vector<Bytes> alone;
    uint32_t tickets[5];
    for (int i = 0; i < 5; ++i) {
        alone.push_back(coder.Add(pages[i].View(), tickets[i]));
        EXPECT_EQ(tickets[i] == UINT32_MAX, i == 2);
        ExpectDecodesTo(alone.back(), pages[i]);
    }
    coder.Drop(tickets[3]);
    coder.Drop(tickets[2]);  // no page: ignored
    std::optional<jbig2::DocumentCoder::Shared> shared = coder.Share();
    ASSERT_TRUE(shared);
    ASSERT_EQ(shared->pages.size(), 2u);
    size_t after = shared->globals.size();
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(shared->pages[i].first, tickets[i]);
        ExpectDecodesTo(shared->pages[i].second, pages[i], shared->globals);
        after += shared->pages[i].second.size();
    }
    EXPECT_EQ(shared->bytesBefore, alone[0].size() + alone[1].size());
    EXPECT_EQ(shared->bytesAfter, after);
    EXPECT_LT(after, shared->bytesBefore);
}

TEST(SymbolPage, DegeneratePagesComeOutExact) {
    std::vector<Page> pages;
    pages.push_back(Blank(64, 64));
    Page black = Blank(37, 21);
    for (uint8_t& v : black.rows) v = 0xFF;
    pages.push_back(black);
    Page line = Blank(100000, 1);
    for (uint32_t x = 0; x < line.width; x += 3) line.Set(x, 0);  // 33,334 equal dots
    pages.push_back(line);
    Page column = Blank(1, 5000);
    for (uint32_t y = 0; y < column.height; y += 2) column.Set(0, y);
    pages.push_back(column);
    Page noise = Blank(300, 300);
    uint32_t seed = 5;
    for (uint32_t y = 0; y < 300; ++y)
        for (uint32_t x = 0; x < 300; ++x)
            if (Next(seed) % 2) noise.Set(x, y);
    pages.push_back(noise);
    for (const Page& p : pages) {
        SCOPED_TRACE(testing::Message() << p.width << "x" << p.height);
        ExpectDecodesTo(jbig2::EncodePage(p.View()), p);
    }
    // The dotted line as symbols: one shape, so a symbol number takes no bits.
    std::optional<jbig2::PagePlan> dots = jbig2::PlanPage(line.View());
    ASSERT_TRUE(dots);
    ASSERT_EQ(dots->shapes.size(), 1u);
    ExpectDecodesTo(jbig2::EncodePlannedPage(*dots), line);
    // Noise has more runs than the limit: planning gives up at once.
    EXPECT_FALSE(jbig2::FindComponents(noise.View(), 1000));
}

jbig2::Symbol Shape(const std::vector<std::string>& art) {
    const Page p = FromArt(art);
    return {p.width, p.height, p.rows};
}

TEST(ShapesMatch, AcceptsEdgeNoiseButNotAMissingStroke) {
    // A 6 and an 8 (at twice this size) differ in one short stroke:
    // refused.  A 6 with four edge pixels flipped: accepted.  A 6 one
    // pixel wider matches where it lies over the other, not elsewhere; two
    // pixels wider, nowhere.  At half the size three differing pixels are
    // already too many.
    const std::vector<std::string> sixArt = {"..####..", ".##..##.", ".##.....", ".#####..",
                                             ".##..##.", ".##..##.", ".##..##.", "..####.."};
    const std::vector<std::string> eightArt = {"..####..", ".##..##.", ".##..##.", "..####..",
                                               ".##..##.", ".##..##.", ".##..##.", "..####.."};
    auto doubled = [](const std::vector<std::string>& art) {
        std::vector<std::string> out;
        for (const std::string& row : art) {
            std::string wide;
            for (char c : row) wide += std::string(2, c);
            out.push_back(wide);
            out.push_back(wide);
        }
        return out;
    };
    const jbig2::Symbol six = Shape(doubled(sixArt)), eight = Shape(doubled(eightArt)), small6 = Shape(sixArt);
    std::vector<std::string> raggedArt = doubled(sixArt);
    raggedArt[0][12] = raggedArt[6][1] = raggedArt[13][14] = '#';
    raggedArt[15][7] = '.';
    const jbig2::Symbol ragged = Shape(raggedArt);
    std::vector<std::string> smallArt = sixArt;
    smallArt[0][6] = smallArt[3][6] = smallArt[7][1] = '#';
    const jbig2::Symbol smallRagged = Shape(smallArt);
    std::vector<std::string> shiftedArt = doubled(sixArt), widerArt = doubled(sixArt);
    for (std::string& row : shiftedArt) row = "." + row;
    for (std::string& row : widerArt) row += "..";
    const jbig2::Symbol shifted = Shape(shiftedArt), wider = Shape(widerArt);
    Page noisy = Blank(40, 40);  // a big box: many scattered differences allowed
    for (uint32_t i = 0; i < 40; ++i) noisy.Set(i, i);
    Page noisier = noisy;
    for (uint32_t i = 0; i < 36; i += 4) noisier.Set(i + 2, i);
    Page blob = noisy;
    for (uint32_t y = 10; y < 12; ++y)
        for (uint32_t x = 20; x < 22; ++x) blob.Set(x, y);
    const jbig2::Symbol line{40, 40, noisy.rows}, dotted{40, 40, noisier.rows}, blobbed{40, 40, blob.rows};
    struct Case {
        const jbig2::Symbol &a, &b;
        int dx;
        bool match;
    };
    const Case cases[] = {{six, six, 0, true},          {six, ragged, 0, true},   {six, eight, 0, false},
                          {shifted, six, 1, true},      {shifted, six, 0, false}, {six, wider, 0, false},
                          {line, dotted, 0, true},      {line, blobbed, 0, false}, {small6, smallRagged, 0, false}};
    for (size_t i = 0; i < std::size(cases); ++i) {
        const Case& c = cases[i];
        EXPECT_EQ(jbig2::ShapesMatch(c.a, c.b, c.dx, 0), c.match) << "case " << i;
        EXPECT_EQ(jbig2::ShapesMatch(c.b, c.a, -c.dx, 0), c.match) << "case " << i << " swapped";
    }
}

// The page with edge pixels gained now and then on any side, so some
// copies of a glyph are a pixel larger, their corner moved.
Page Noisy(const Page& p, uint32_t seed) {
    Page noisy = p;
    for (uint32_t y = 1; y + 1 < p.height; ++y)
        for (uint32_t x = 1; x + 1 < p.width; ++x)
            if (!p.Get(x, y) && (p.Get(x - 1, y) || p.Get(x + 1, y) || p.Get(x, y + 1)) && Next(seed) % 40 == 0)
                noisy.Set(x, y);
    return noisy;
}

// How many pixels of the decoded stream differ from the page, and how many
// of those have more than 3 differing pixels in their 3 x 3 neighbourhood.
std::pair<size_t, size_t> Differences(const Bytes& stream, const Page& p) {
    filters::FilterChain chain{{"JBIG2Decode", {}}};
    filters::DecodeResult r = filters::DecodeChain(stream, chain, {});
    if (r.data.size() != p.rows.size()) return {SIZE_MAX, SIZE_MAX};
    Page diff = Blank(p.width, p.height);
    for (size_t i = 0; i < r.data.size(); ++i) diff.rows[i] = uint8_t(~r.data[i] ^ p.rows[i]);
    for (uint32_t y = 0; y < p.height; ++y) diff.rows[y * p.Stride() + p.Stride() - 1] &= uint8_t(0xFF << ((8 - p.width % 8) % 8));
    size_t differ = 0, blobs = 0;
    for (uint32_t y = 1; y + 1 < p.height; ++y)
        for (uint32_t x = 1; x + 1 < p.width; ++x) {
            if (!diff.Get(x, y)) continue;
            ++differ;
            int n = 0;
            for (int dy = -1; dy <= 1; ++dy)
                for (int dx = -1; dx <= 1; ++dx) n += diff.Get(x + dx, y + dy);
            blobs += n > 3;
        }
    return {differ, blobs};
}

TEST(SymbolPage, LossyCodingDrawsNoisyCopiesAsOneShape) {
    // Exact matching finds few repeats of noisy glyphs, lossy matching
    // most, and the decoded page differs from the input only in scattered
    // pixels and thin lines, never in a blob, which a shape placed a pixel
    // off or drawn at the wrong size would make.
    const Page noisy = Noisy(TextPage(600, 400, 21), 77);
    jbig2::SymbolOptions lossy;
    lossy.lossy = true;
    std::optional<jbig2::PagePlan> exact = jbig2::PlanPage(noisy.View()), loose = jbig2::PlanPage(noisy.View(), lossy);
    ASSERT_TRUE(exact && loose);
    EXPECT_TRUE(exact->lossless);
    EXPECT_FALSE(loose->lossless);
    EXPECT_GT(loose->placements.size(), exact->placements.size() + 100);
    const Bytes coded = jbig2::EncodePlannedPage(*loose);
    EXPECT_LT(coded.size(), jbig2::EncodePlannedPage(*exact).size());
    const auto [differ, blobs] = Differences(coded, noisy);
    EXPECT_GT(differ, 0u);
    EXPECT_EQ(blobs, 0u);
}

}  // namespace
