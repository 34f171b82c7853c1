// Merging subsets of one font: the programs must agree glyph by glyph and
// value by value, and the merged program must draw every code of every
// font that used a part of it as before.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "base/Log.h"
#include "fonts/CffTables.h"
#include "fonts/FontDict.h"
#include "fonts/FontMerge.h"
#include "fonts/FontSubset.h"
#include "fonts/GlyphUse.h"
#include "fonts/StandardEncodings.h"
#include "fonts/Type1Font.h"
#include "pdfcore/CosDoc.h"
#include "pdfcore/PDDoc.h"

namespace {

using namespace fonts;

const std::string kUrw = "/usr/share/fonts/type1/urw-base35/";

Type1Font ReadUrw(const std::string& name) {
    std::ifstream f(kUrw + name + ".t1", std::ios::binary);
    std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(f), {}};
    Type1Font font;
    std::string error;
    EXPECT_TRUE(ReadType1(bytes, 0, font, error)) << name << ": " << error;
    return font;
}

// A subset written out and read back, as a document would carry it.
Type1Font Type1Subset(const Type1Font& full, const std::set<std::string>& glyphs) {
    Type1Program p = SubsetType1(full, glyphs);
    Type1Font font;
    std::string error;
    EXPECT_TRUE(ReadType1(p.bytes, p.length1, font, error)) << error;
    return font;
}

std::map<std::string, std::string> CharStrings(const Type1Font& f) {
    return {f.charStrings.begin(), f.charStrings.end()};
}

std::set<std::string> CffGlyphs(const std::vector<uint8_t>& program) {
    cff::CffInfo info;
    std::string error;
    EXPECT_TRUE(cff::ReadCff(program, info, error)) << error;
    std::set<std::string> names;
    for (unsigned g = 1; g < info.glyphCount; ++g) names.insert(cff::GlyphName(info, g));
    return names;
}

TEST(FontMerge, Type1SubsetsMergeOnlyWhenEverySharedPartAgrees) {
    const Type1Font sans = ReadUrw("NimbusSans-Regular");
    const Type1Font ab = Type1Subset(sans, {"A", "B"}), bc = Type1Subset(sans, {"B", "C", "Aacute"});

    Type1Font merged = ab;
    std::string why;
    ASSERT_TRUE(MergeType1Into(merged, bc, why)) << why;
    // Written and read back, the merged program holds each glyph as the
    // full font draws it, with the Subrs the glyphs call.
    Type1Font back = Type1Subset(merged, {"A", "B", "C", "Aacute"});
    auto have = CharStrings(back), full = CharStrings(sans);
    for (const char* g : {"A", "B", "C", "Aacute", ".notdef"}) EXPECT_EQ(full[g], have[g]) << g;
    for (size_t i = 0; i < back.subrs.size(); ++i)
        if (back.subrs[i] != "\x0b") {
            EXPECT_EQ(sans.subrs[i], back.subrs[i]) << "Subrs " << i;
        }

    // The merged program takes a built-in encoding of its own, and keeps
    // StandardEncoding's short form when it is that one.
    std::array<std::string, 256> names;
    names[65] = "A";
    names[200] = "Aacute";
    ASSERT_TRUE(SetType1Encoding(merged, names));
    Type1Font encoded = Type1Subset(merged, {"A", "B", "C", "Aacute"});
    EXPECT_FALSE(encoded.standardEncoding);
    EXPECT_EQ(names, encoded.encoding);
    EXPECT_EQ(CharStrings(back), CharStrings(encoded));
    for (int c = 0; c < 256; ++c) names[c] = kStandardEncoding[c] ? kStandardEncoding[c] : "";
    ASSERT_TRUE(SetType1Encoding(merged, names));
    EXPECT_TRUE(Type1Subset(merged, {"A"}).standardEncoding);

    // Refusals leave the target as it was.
    Type1Font otherGlyph = bc;
    for (auto& [name, cs] : otherGlyph.charStrings)
        if (name == "B") cs.insert(0, "\x8b\x8b\x15");  // B drawn differently: a moveto first
    Type1Font otherSubr = bc;  // a Subr both programs hold, changed
    for (size_t i = 0; i < std::min(ab.subrs.size(), bc.subrs.size()); ++i)
        if (ab.subrs[i].size() > 1 && bc.subrs[i].size() > 1) {
            otherSubr.subrs[i][0] ^= 1;
            break;
        }
    Type1Font otherFont = Type1Subset(ReadUrw("NimbusRoman-Regular"), {"B"});
    Type1Font otherValues = bc;
    otherValues.privateValues["BlueScale"] = {0.05};
    for (const Type1Font* bad : {&otherGlyph, &otherSubr, &otherFont, &otherValues}) {
        SCOPED_TRACE(bad == &otherGlyph ? "glyph" : bad == &otherSubr ? "Subr" : bad == &otherFont ? "font" : "values");
        Type1Font into = ab;
        why.clear();
        EXPECT_FALSE(MergeType1Into(into, *bad, why));
        EXPECT_FALSE(why.empty());
        EXPECT_EQ(CharStrings(ab), CharStrings(into));
        EXPECT_EQ(ab.subrs, into.subrs);
    }
}

TEST(FontMerge, Type2WidthsAreFoundBeforeEveryFirstOperator) {
    // Small integers are stored as value + 139.  Default width 500,
    // nominal width 600.
    struct Case {
        std::vector<uint8_t> cs;
        double width;    // -1: nullopt
        size_t restAt;   // where the bytes after the width start
    };
    const Case cases[] = {
        {{139 + 50, 140, 141, 21, 14}, 650, 1},         // w dx dy rmoveto
        {{140, 141, 21, 14}, 500, 0},                    // dx dy rmoveto
        {{139 - 20, 140, 22, 14}, 580, 1},               // w dx hmoveto
        {{140, 4, 14}, 500, 0},                          // dy vmoveto
        {{189, 140, 141, 1, 14}, 650, 1},                // w y dy hstem
        {{140, 141, 18, 14}, 500, 0},                    // y dy hstemhm
        {{189, 140, 141, 19, 0x80, 14}, 650, 1},         // w x dx hintmask mask
        {{189, 14}, 650, 1},                             // w endchar
        {{14}, 500, 0},                                  // endchar
        {{189, 140, 141, 142, 143, 14}, 650, 1},         // w adx ady bchar achar endchar
        {{140, 141, 142, 143, 14}, 500, 0},              // adx ady bchar achar endchar
        {{28, 0x01, 0x00, 14}, 856, 3},                  // 16-bit width
        {{247, 0, 14}, 708, 2},                          // 108 in two bytes
        {{251, 0, 14}, 492, 2},                          // -108 in two bytes
        {{255, 0, 1, 0x80, 0, 14}, 601.5, 5},            // 16.16 fixed width
        {{140, 10, 14}, -1, 0},                          // callsubr first: not followed
        {{28, 0x01}, -1, 0},                             // truncated
        {{140, 141}, -1, 0},                             // no operator
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.cs));
        std::optional<Type2WidthSplit> s = SplitType2Width(c.cs, 500, 600);
        if (c.width < 0) {
            EXPECT_FALSE(s);
            continue;
        }
        ASSERT_TRUE(s);
        EXPECT_EQ(c.width, s->width);
        EXPECT_EQ(c.cs.data() + c.restAt, s->rest.data());
        EXPECT_EQ(c.cs.size() - c.restAt, s->rest.size());
    }
}

TEST(FontMerge, CffSubsetsMergeIntoOneReadableProgram) {
    const Type1Font sans = ReadUrw("NimbusSans-Regular");
    std::string error;
    const std::vector<uint8_t> ab = Type1ToCff(sans, {"A", "B"}, error), bc = Type1ToCff(sans, {"B", "C"}, error),
                               roman = Type1ToCff(ReadUrw("NimbusRoman-Regular"), {"D"}, error);
    ASSERT_FALSE(ab.empty() || bc.empty() || roman.empty()) << error;
    std::vector<uint8_t> changed = bc;  // one byte of B's charstring altered
    {
        cff::CffInfo info;
        ASSERT_TRUE(cff::ReadCff(bc, info, error));
        cff::Index cs;
        const auto* e = &info.topDict.front();
        for (const auto& entry : info.topDict)
            if (entry.op == cff::kOpCharStrings) e = &entry;
        ASSERT_TRUE(cff::ReadIndex(bc, size_t(e->operands.back()), cs, error));
        for (unsigned g = 1; g < info.glyphCount; ++g)
            if (cff::GlyphName(info, g) == "B") changed[cs.offsets[g]] ^= 1;
    }

    CffMerger merger;
    ASSERT_TRUE(merger.Add(ab, error)) << error;
    for (const std::vector<uint8_t>* bad : {&roman, static_cast<const std::vector<uint8_t>*>(&changed)}) {
        error.clear();
        EXPECT_FALSE(merger.Add(*bad, error));
        EXPECT_FALSE(error.empty());
    }
    ASSERT_TRUE(merger.Add(bc, error)) << error;
    std::array<std::string, 256> encoding;
    encoding['A'] = "A";
    encoding['x'] = "C";
    const std::vector<uint8_t> out = merger.Build(encoding, error);
    ASSERT_FALSE(out.empty()) << error;
    EXPECT_EQ((std::set<std::string>{"A", "B", "C"}), CffGlyphs(out));
    cff::CffInfo info;
    ASSERT_TRUE(cff::ReadCff(out, info, error));
    EXPECT_EQ("A", cff::GlyphName(info, info.encoding['A']));
    EXPECT_EQ("C", cff::GlyphName(info, info.encoding['x']));
    EXPECT_EQ(0, info.encoding['B']);
}

// Inputs the font fuzz target found, replayed through the same calls: the
// first byte picks a Type 1 program (below 0x80) or a bare CFF program.
TEST(FontMerge, FuzzFindingsReplay) {
    const std::filesystem::path dir = std::filesystem::path(TM_TEST_DATA_DIR) / "fuzz-fonts";
    int replayed = 0;
    for (const auto& entry : std::filesystem::directory_iterator(dir)) {
        SCOPED_TRACE(entry.path().filename().string());
        std::ifstream f(entry.path(), std::ios::binary);
        std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(f), {}};
        ASSERT_FALSE(bytes.empty());
        std::span<const uint8_t> program(bytes.data() + 1, bytes.size() - 1);
        std::string why;
        if (bytes[0] < 0x80) {
            Type1Font font;
            if (ReadType1(program, 0, font, why)) {
                EXPECT_FALSE(SubsetType1(font, {"A"}).bytes.empty());
            }
        } else {
            CffMerger merger;
            if (merger.Add(program, why)) {
                // Two glyphs of one name: the second reads as a different
                // glyph, so the program does not merge with itself.
                const bool merged = merger.Add(program, why);
                if (entry.path().filename().string().find("duplicate-glyph-name") != std::string::npos) {
                    EXPECT_FALSE(merged);
                }
                std::array<std::string, 256> encoding;
                EXPECT_FALSE(merger.Build(encoding, why).empty()) << why;
            }
        }
        ++replayed;
    }
    EXPECT_GT(replayed, 0);
}

// ------------------------------------------------------------ documents

class FontMergeDoc : public ::testing::Test {
protected:
    void SetUp() override {
        pd = PDDocCreate();
        doc = PDDocGetCosDoc(pd);
        log.SetConsoleStreams(out, err);
        log.SetFileLoggingAllowed(false);
        sans = ReadUrw("NimbusSans-Regular");
    }
    void TearDown() override {
        PDDocClose(pd);
        std::fclose(out);
        std::fclose(err);
    }
    CosObj Name(const std::string& n) { return CosNewName(doc, false, ASAtomFromString(n.c_str())); }
    // A simple font drawing `text` on a page of its own, with a CFF subset
    // of `glyphs` whose built-in encoding gives `builtin` (code, glyph).
    // A Type 1 program (FontFile) when `type1`, else a bare CFF.
    CosObj Font(const std::string& tag, const std::set<std::string>& glyphs,
                const std::vector<std::pair<int, std::string>>& builtin, const std::string& text, bool type1 = false) {
        std::string error;
        std::vector<uint8_t> program;
        CosObj sdict = CosNewDict(doc, false);
        if (type1) {
            std::array<std::string, 256> names;
            for (const auto& [code, glyph] : builtin) names[code] = glyph;
            Type1Font t1 = sans;
            EXPECT_TRUE(SetType1Encoding(t1, names));
            Type1Program p = SubsetType1(t1, glyphs);
            program = p.bytes;
            CosDictPutInteger(sdict, ASAtomFromString("Length1"), static_cast<ASInt32>(p.length1));
            CosDictPutInteger(sdict, ASAtomFromString("Length2"), static_cast<ASInt32>(p.length2));
            CosDictPutInteger(sdict, ASAtomFromString("Length3"), 0);
        } else {
            std::vector<uint8_t> cff = Type1ToCff(sans, glyphs, error);
            cff::CffInfo info;
            EXPECT_TRUE(cff::ReadCff(cff, info, error)) << error;
            std::array<uint16_t, 256> codes{};
            for (const auto& [code, glyph] : builtin)
                for (unsigned g = 1; g < info.glyphCount; ++g)
                    if (cff::GlyphName(info, g) == glyph) codes[code] = static_cast<uint16_t>(g);
            EXPECT_TRUE(cff::ReplaceEncoding(cff, codes, program, error)) << error;
            CosDictPut(sdict, ASAtomFromString("Subtype"), Name("Type1C"));
        }
        CosObj stream = CosNewStream(doc, sdict, program);
        CosObj desc = CosNewDict(doc, true);
        CosDictPut(desc, ASAtomFromString("Type"), Name("FontDescriptor"));
        CosDictPut(desc, ASAtomFromString("FontName"), Name(tag + "+NimbusSans-Regular"));
        CosDictPutInteger(desc, ASAtomFromString("Flags"), 4);
        CosDictPut(desc, ASAtomFromString(type1 ? "FontFile" : "FontFile3"), stream);
        CosObj font = CosNewDict(doc, true);
        CosDictPut(font, ASAtomFromString("Type"), Name("Font"));
        CosDictPut(font, ASAtomFromString("Subtype"), Name("Type1"));
        CosDictPut(font, ASAtomFromString("BaseFont"), Name(tag + "+NimbusSans-Regular"));
        CosDictPut(font, ASAtomFromString("FontDescriptor"), desc);

        CosObj pages = CosDictGet(CosDocGetRoot(doc), ASAtomFromString("Pages"));
        CosObj page = CosNewDict(doc, true);
        CosDictPut(page, ASAtomFromString("Type"), Name("Page"));
        CosDictPut(page, ASAtomFromString("Parent"), pages);
        CosObj res = CosNewDict(doc, false), fonts = CosNewDict(doc, false);
        CosDictPut(fonts, ASAtomFromString("F"), font);
        CosDictPut(res, ASAtomFromString("Font"), fonts);
        CosDictPut(page, ASAtomFromString("Resources"), res);
        const std::string content = "BT /F 12 Tf (" + text + ") Tj ET";
        CosDictPut(page, ASAtomFromString("Contents"),
                   CosNewStream(doc, CosNewNull(), {reinterpret_cast<const uint8_t*>(content.data()), content.size()}));
        CosArrayAppend(CosDictGet(pages, ASAtomFromString("Kids")), page);
        CosDictPutInteger(pages, ASAtomFromString("Count"), CosArrayLength(CosDictGet(pages, ASAtomFromString("Kids"))));
        PDDocPagesChanged(pd);
        return font;
    }

    PDDoc pd = nullptr;
    CosDoc doc = nullptr;
    FILE* out = std::tmpfile();
    FILE* err = std::tmpfile();
    Log log;
    Type1Font sans;
};

TEST_F(FontMergeDoc, FontsShareOneProgramWhereTheirBuiltInEncodingsAllowIt) {
    // Symbolic fonts without an Encoding: every code goes through the
    // program's own encoding.  The second subset draws code 66 with B as
    // the first does, and code 67 (unused by the first) with C; the third
    // draws code 65 with a glyph the first draws code 65 with another.
    CosObj f1 = Font("AAAAAA", {"A", "B"}, {{65, "A"}, {66, "B"}}, "AB");
    CosObj f2 = Font("BBBBBB", {"B", "C"}, {{66, "B"}, {67, "C"}}, "BC");
    CosObj f3 = Font("CCCCCC", {"A", "D"}, {{65, "D"}}, "A");
    // Two Type 1 subsets whose built-in encodings each name only what they
    // draw, as TeX's subsets do.
    CosObj t1 = Font("DDDDDD", {"A", "B"}, {{65, "A"}, {66, "B"}}, "AB", true);
    CosObj t2 = Font("EEEEEE", {"B", "E"}, {{66, "B"}, {69, "E"}}, "BE", true);
    MergeOutcome o = MergeFontSubsets(pd, CollectGlyphUse(pd), 6, log);
    EXPECT_EQ(2, o.groups);
    EXPECT_EQ(4, o.programsMerged);

    FontInfo type1 = ReadFontInfo(t1);
    ASSERT_EQ(type1.program, ReadFontInfo(t2).program);
    Type1Font merged1;
    std::string error1;
    std::vector<uint8_t> bytes1 = CosStreamDecodedData(type1.program);
    ASSERT_TRUE(ReadType1(bytes1, 0, merged1, error1)) << error1;
    std::set<std::string> names1;
    for (const auto& entry : merged1.charStrings) names1.insert(entry.first);
    EXPECT_EQ((std::set<std::string>{".notdef", "A", "B", "E"}), names1);
    EXPECT_EQ("A", merged1.encoding[65]);
    EXPECT_EQ("E", merged1.encoding[69]);

    FontInfo i1 = ReadFontInfo(f1), i2 = ReadFontInfo(f2), i3 = ReadFontInfo(f3);
    EXPECT_EQ(i1.program, i2.program);
    EXPECT_NE(i1.program, i3.program);
    EXPECT_EQ("CCCCCC", i3.tag);
    EXPECT_NE("AAAAAA", i1.tag);
    EXPECT_EQ(i1.tag, i2.tag);
    EXPECT_EQ(CosDictGetName(f1, ASAtomFromString("BaseFont")),
              CosDictGetName(i2.descriptor, ASAtomFromString("FontName")));

    std::vector<uint8_t> merged = CosStreamDecodedData(i1.program);
    EXPECT_EQ((std::set<std::string>{"A", "B", "C"}), CffGlyphs(merged));
    cff::CffInfo info;
    std::string error;
    ASSERT_TRUE(cff::ReadCff(merged, info, error)) << error;
    EXPECT_EQ("A", cff::GlyphName(info, info.encoding[65]));
    EXPECT_EQ("B", cff::GlyphName(info, info.encoding[66]));
    EXPECT_EQ("C", cff::GlyphName(info, info.encoding[67]));
}

TEST_F(FontMergeDoc, FontsTextMaySelectUnseenKeepEveryGlyph) {
    const std::set<std::string> glyphs{"A", "B", "C", "D"};
    const std::vector<std::pair<int, std::string>> codes{{65, "A"}, {66, "B"}, {67, "C"}, {68, "D"}};
    CosObj plain = Font("AAAAAA", glyphs, codes, "AB");
    // Set by a graphics state (gs), which the text tracker does not follow.
    CosObj byState = Font("BBBBBB", glyphs, codes, "A");
    CosObj state = CosNewDict(doc, true), sel = CosNewArray(doc, false);
    CosArrayAppend(sel, byState);
    CosArrayAppend(sel, CosNewInteger(doc, false, 12));
    CosDictPut(state, ASAtomFromString("Font"), sel);
    CosObj states = CosNewDict(doc, false);
    CosDictPut(states, ASAtomFromString("GS0"), state);
    CosObj page = PDDocGetPageObj(pd, 1);
    CosDictPut(CosDictGet(page, ASAtomFromString("Resources")), ASAtomFromString("ExtGState"), states);
    // In the form's default resources: a form filler may set any text.
    CosObj form = Font("CCCCCC", glyphs, codes, "A");
    CosObj acro = CosNewDict(doc, false), dr = CosNewDict(doc, false), drFonts = CosNewDict(doc, false);
    CosDictPut(drFonts, ASAtomFromString("Helv"), form);
    CosDictPut(dr, ASAtomFromString("Font"), drFonts);
    CosDictPut(acro, ASAtomFromString("DR"), dr);
    CosDictPut(CosDocGetRoot(doc), ASAtomFromString("AcroForm"), acro);

    SubsetOutcome o = SubsetDocumentFonts(pd, CollectGlyphUse(pd), 6, log);
    EXPECT_EQ(1, o.subset);
    EXPECT_EQ((std::set<std::string>{"A", "B"}), CffGlyphs(CosStreamDecodedData(ReadFontInfo(plain).program)));
    for (CosObj whole : {byState, form})
        EXPECT_EQ(glyphs, CffGlyphs(CosStreamDecodedData(ReadFontInfo(whole).program)));
}

}  // namespace
