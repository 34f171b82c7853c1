// Rewriting the content of forms, tiling patterns, Type 3 glyphs and
// annotation appearances: only when it reads back token for token, only
// when smaller, and counted by the resource step.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "base/Log.h"
#include "filters/Filters.h"
#include "pdfcore/CosDoc.h"
#include "pdfcore/CosNames.h"
#include "pipeline/NestedContent.h"
#include "pipeline/Report.h"
#include "pipeline/ResourceOptimizer.h"
#include "settings/TrimoraPreferences.h"

namespace {

using namespace pipeline;

ASAtom A(const char* s) { return ASAtomFromString(s); }
std::span<const uint8_t> B(const std::string& s) { return {reinterpret_cast<const uint8_t*>(s.data()), s.size()}; }

std::string Decoded(CosObj stream) {
    std::vector<uint8_t> d = CosStreamDecodedData(stream);
    return std::string(d.begin(), d.end());
}

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

class NestedContentStreamTest : public ::testing::Test {
protected:
    void SetUp() override { doc = CosDocCreate(); }
    void TearDown() override { CosDocClose(doc); }
    CosObj Stream(const std::string& data, const char* filter = nullptr) {
        CosObj d = CosNewDict(doc, false);
        if (filter) CosDictPutName(d, A("Filter"), false, A(filter));
        return CosNewStream(doc, d, B(data));
    }
    CosDoc doc = nullptr;
};

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
    CosObj t = CosNewStream(doc, CosNewDict(doc, false), packed);
    CosDictPutName(t, A("Filter"), false, A("FlateDecode"));
    r = RewriteContentStream(t, CosNewNull(), 9);
    EXPECT_FALSE(r.rewritten);
    EXPECT_NE(r.recompress.outcome, RecompressOutcome::Smaller);
    EXPECT_EQ(CosStreamEncodedLength(t), packed.size());

    // Data that does not decode is left alone.
    CosObj bad = Stream("this is not flate", "FlateDecode");
    r = RewriteContentStream(bad, CosNewNull(), 9);
    EXPECT_EQ(r.recompress.outcome, RecompressOutcome::Undecodable);
    EXPECT_EQ(CosStreamEncodedLength(bad), 17u);
}

// The resource step counts and rewrites every kind of nested content.
TEST(NestedContentResources, FormsPatternsGlyphsAndAppearancesAreRewrittenAndCounted) {
    Log log;
    log.SetFileLoggingAllowed(false);
    log.SetChannelOff(Log::kWarning, true);
    log.SetChannelOff(Log::kProgress, true);
    CTrimoraPreferences prefs;
    prefs.SetLog(&log);
    Statistics stats(prefs.StatisticsDict());
    stats.Reset();
    PDDoc pd = PDDocCreate();
    CosDoc doc = PDDocGetCosDoc(pd);
    auto stream = [&](const std::string& text) {
        return CosNewStream(doc, CosNewDict(doc, false), B(text));
    };
    auto dict = [&] { return CosNewDict(doc, false); };
    CosObj pages = CosDictGet(CosDocGetRoot(doc), cosnames::Pages);
    CosObj page = CosNewDict(doc, true);
    CosDictPutName(page, cosnames::Type, false, cosnames::Page);
    CosDictPut(page, cosnames::Parent, pages);
    CosArrayAppend(CosDictGet(pages, cosnames::Kids), page);
    CosDictPutInteger(pages, cosnames::Count, 1);
    PDDocPagesChanged(pd);
    CosObj res = dict();
    CosDictPut(page, cosnames::Resources, res);

    CosObj form = stream(Wordy(30));
    CosDictPutName(form, A("Subtype"), false, A("Form"));
    CosObj xobjects = dict();
    CosDictPut(xobjects, A("Fm1"), form);
    CosDictPut(res, A("XObject"), xobjects);

    CosObj pattern = stream(Wordy(30));
    CosDictPutInteger(pattern, A("PatternType"), 1);
    CosObj damagedPattern = stream(Wordy(30) + " zz ");
    CosDictPutInteger(damagedPattern, A("PatternType"), 1);
    CosObj patterns = dict();
    CosDictPut(patterns, A("P1"), pattern);
    CosDictPut(patterns, A("P2"), damagedPattern);
    CosDictPut(res, A("Pattern"), patterns);

    CosObj font = CosNewDict(doc, true);
    CosDictPutName(font, A("Subtype"), false, A("Type3"));
    CosObj procs = dict();
    CosObj glyph = stream("1000 0 0 0 750 750 d1\n" + Wordy(10));
    CosDictPut(procs, A("a"), glyph);
    CosDictPut(procs, A("b"), stream("0 0 d0"));  // too small to gain anything
    CosDictPut(font, A("CharProcs"), procs);
    CosObj fonts = dict();
    CosDictPut(fonts, A("T3"), font);
    CosDictPut(res, A("Font"), fonts);

    CosObj annot = CosNewDict(doc, true);
    CosObj ap = dict(), states = dict();
    CosObj on = stream(Wordy(30)), off = stream(Wordy(25));
    CosDictPut(states, A("On"), on);
    CosDictPut(states, A("Off"), off);
    CosDictPut(ap, A("N"), states);
    CosDictPut(ap, A("D"), on);  // the same stream twice counts once
    CosDictPut(annot, A("AP"), ap);
    CosObj annots = CosNewArray(doc, false);
    CosArrayAppend(annots, annot);
    CosDictPut(page, cosnames::Annots, annots);

    RunContext ctx{pd, prefs, stats, log};
    OptimizeResources(ctx);
    EXPECT_EQ(stats.Get("FormXObjects_Total"), 1);
    EXPECT_EQ(stats.Get("FormXObjects_Compressed"), 1);
    EXPECT_EQ(stats.Get("Patterns_Total"), 2);
    EXPECT_EQ(stats.Get("Patterns_Compressed"), 2) << "the damaged one shrinks by plain recompression";
    EXPECT_EQ(stats.Get("T3FontGlyphs_Total"), 2);
    EXPECT_EQ(stats.Get("T3FontGlyphs_Compressed"), 1);
    EXPECT_EQ(stats.Get("AnnotStreams_Total"), 2);
    EXPECT_EQ(stats.Get("AnnotStreams_Compressed"), 2);
    EXPECT_EQ(Decoded(form).find('%'), std::string::npos);
    EXPECT_EQ(Decoded(on).find('%'), std::string::npos);
    EXPECT_NE(Decoded(glyph).find("750 750 d1"), std::string::npos);
    EXPECT_EQ(Decoded(damagedPattern), Wordy(30) + " zz ");
    const std::string report = BuildReport(ReportInputs{}, stats, "   ");
    EXPECT_NE(report.find("Optimized and Compressed 2 Annotations out of 2 total\n"), std::string::npos) << report;
    EXPECT_NE(report.find("Optimized and Compressed 1 Type 3 Font Glyph out of 2 total\n"), std::string::npos)
        << report;
    PDDocClose(pd);
}

}  // namespace
