// Rewriting the content of forms, tiling patterns, Type 3 glyphs and
// annotation appearances: only when it reads back token for token, only
// when smaller, and counted by the resource step.
#include "pipeline/NestedContent.h"
#include "pipeline/ResourceOptimizer.h"
#include "pipeline_fixture.h"

namespace {

using namespace pipeline;
using namespace pipetest;

// Repeated drawing with comments and loose spacing: the kind of content
// the rewrite shortens.
std::string Wordy(int n) {
    std::string s = "% drawn by hand\n";
    for (int i = 0; i < n; ++i)
        s += "q   1 0 0 1 " + std::to_string(i) + " 0   cm\n  0.5   g\n 0 0 10 10 re   F\n Q   % box\n";
    return s;
}

TEST(NestedContent, RewriteIsCompactAndReadsBackAsTheSameTokens) {
    std::string out;
    ASSERT_TRUE(RewriteContentExactly(B("% note\n1 0 0 RG\n  10 10 m 20 20 l S\n(a\\)b) Tj F"), CosNewNull(), out));
    EXPECT_EQ(out.find('%'), std::string::npos);
    EXPECT_NE(out.find("10 10 m"), std::string::npos);
    EXPECT_NE(out.find("(a\\)b) Tj"), std::string::npos);
    // Inline image bytes survive, even ones that look like an operator.
    const std::string image = "BI /W 3 /H 1 /BPC 8 /CS /G ID EI\x01 EI\nQ";
    ASSERT_TRUE(RewriteContentExactly(B("q " + image), CosNewNull(), out));
    EXPECT_NE(out.find(std::string("ID EI\x01\nEI Q")), std::string::npos) << out;
}

TEST(NestedContent, ContentThatDoesNotReadBackCleanlyIsRefused) {
    std::string out;
    EXPECT_FALSE(RewriteContentExactly(B("1 2 g 0 0 m"), CosNewNull(), out)) << "wrong operand count";
    EXPECT_FALSE(RewriteContentExactly(B("0 0 m foo 1 1 l"), CosNewNull(), out)) << "unknown operator";
    EXPECT_FALSE(RewriteContentExactly(B("Q 0 0 m"), CosNewNull(), out)) << "restore without save";
    EXPECT_FALSE(RewriteContentExactly(B("(open string 0 0 m"), CosNewNull(), out)) << "unterminated";
    EXPECT_TRUE(RewriteContentExactly(B(""), CosNewNull(), out));
}

using NestedContentStreamTest = DocTest;

TEST_F(NestedContentStreamTest, SmallerRewriteReplacesTheContent) {
    const std::string wordy = Wordy(40);
    CosObj s = Stream(wordy);
    ContentRewriteResult r = RewriteContentStream(s, CosNewNull(), 9);
    EXPECT_TRUE(r.rewritten);
    EXPECT_EQ(r.recompress.outcome, RecompressOutcome::Smaller);
    EXPECT_EQ(CosDictGetName(s, A("Filter")), A("FlateDecode"));
    std::string expected;
    ASSERT_TRUE(RewriteContentExactly(B(wordy), CosNewNull(), expected));
    EXPECT_EQ(Decoded(s), expected);
    EXPECT_EQ(Decoded(s).find('%'), std::string::npos);
}

TEST_F(NestedContentStreamTest, DamagedContentIsOnlyRecompressedAndTinyContentKept) {
    // An unknown operator in the middle: the bytes stay exactly as they were.
    const std::string odd = Wordy(20) + " 5 5 m weird 6 6 l S\n" + Wordy(20);
    CosObj s = Stream(odd);
    ContentRewriteResult r = RewriteContentStream(s, CosNewNull(), 9);
    EXPECT_FALSE(r.rewritten);
    EXPECT_EQ(r.recompress.outcome, RecompressOutcome::Smaller);
    EXPECT_EQ(Decoded(s), odd);

    // Already compact and compressed: nothing smaller exists.
    const std::string compact = "0 0 1 1 re f";
    filters::Bytes packed = filters::FlateEncode(B(compact), 9);
    CosObj t = Stream(packed, "FlateDecode");
    r = RewriteContentStream(t, CosNewNull(), 9);
    EXPECT_FALSE(r.rewritten);
    EXPECT_NE(r.recompress.outcome, RecompressOutcome::Smaller);
    EXPECT_EQ(CosStreamEncodedLength(t), packed.size());

    // Data that does not decode is left alone.
    CosObj bad = Stream(B("this is not flate"), "FlateDecode");
    r = RewriteContentStream(bad, CosNewNull(), 9);
    EXPECT_EQ(r.recompress.outcome, RecompressOutcome::Undecodable);
    EXPECT_EQ(CosStreamEncodedLength(bad), 17u);
}

// The resource step counts and rewrites every kind of nested content.
TEST_F(NestedContentStreamTest, FormsPatternsGlyphsAndAppearancesAreRewrittenAndCounted) {
    CosObj page = AddPage();
    CosObj form = Put(page, "XObject", "Fm1", Stream(Wordy(30), Dict({{"Subtype", Name("Form")}})));
    Put(page, "Pattern", "P1", Stream(Wordy(30), Dict({{"PatternType", Int(1)}})));
    CosObj damagedPattern = Put(page, "Pattern", "P2", Stream(Wordy(30) + " zz ", Dict({{"PatternType", Int(1)}})));
    CosObj glyph = Stream("1000 0 0 0 750 750 d1\n" + Wordy(10));
    // The second glyph is too small to gain anything.
    CosObj procs = Dict({{"a", glyph}, {"b", Stream("0 0 d0")}});
    Put(page, "Font", "T3", Dict({{"Subtype", Name("Type3")}, {"CharProcs", procs}}, true));
    CosObj on = Stream(Wordy(30)), off = Stream(Wordy(25));
    // The same stream twice counts once.
    CosObj ap = Dict({{"N", Dict({{"On", on}, {"Off", off}})}, {"D", on}});
    CosDictPut(page, cosnames::Annots, Arr({Dict({{"AP", ap}}, true)}));

    auto ctx = Ctx(-1);
    OptimizeResources(ctx);
    // Both patterns count: the damaged one shrinks by plain recompression.
    for (auto [key, n] : {std::pair{"FormXObjects_Total", 1}, {"FormXObjects_Compressed", 1}, {"Patterns_Total", 2},
                          {"Patterns_Compressed", 2}, {"T3FontGlyphs_Total", 2}, {"T3FontGlyphs_Compressed", 1},
                          {"AnnotStreams_Total", 2}, {"AnnotStreams_Compressed", 2}})
        EXPECT_EQ(Stat(key), n) << key;
    EXPECT_EQ(Decoded(form).find('%'), std::string::npos);
    EXPECT_EQ(Decoded(on).find('%'), std::string::npos);
    EXPECT_NE(Decoded(glyph).find("750 750 d1"), std::string::npos);
    EXPECT_EQ(Decoded(damagedPattern), Wordy(30) + " zz ");
    const std::string report = Report();
    EXPECT_NE(report.find("Optimized and Compressed 2 Annotations out of 2 total\n"), std::string::npos) << report;
    EXPECT_NE(report.find("Optimized and Compressed 1 Type 3 Font Glyph out of 2 total\n"), std::string::npos)
        << report;
}

}  // namespace
