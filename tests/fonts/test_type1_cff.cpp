// Type 1 to bare CFF conversion: the converted font must draw exactly what
// the Type 1 program draws.  Both are loaded into the same rasteriser and
// compared glyph by glyph: outline points in font units and at a large
// size (to see fractions of a unit), advances, hinted bitmaps (so lost or
// misplaced stems show), glyph names and built-in encodings.
#include <gtest/gtest.h>

#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_TYPE1_TABLES_H
#include FT_FONT_FORMATS_H

#include <algorithm>
#include <cstring>
#include <map>
#include <variant>
#include <fstream>
#include <iterator>

#include "fonts/CffTables.h"
#include "fonts/Type1Font.h"

namespace {

using namespace fonts;

const std::string kUrw = "/usr/share/fonts/type1/urw-base35/";

std::vector<uint8_t> FileBytes(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(f), {});
}

Type1Font ReadUrw(const std::string& name) {
    Type1Font font;
    std::string error;
    auto bytes = FileBytes(kUrw + name + ".t1");
    EXPECT_TRUE(ReadType1(bytes, 0, font, error)) << name << ": " << error;
    return font;
}

class FreeType {
public:
    FreeType() { FT_Init_FreeType(&m_lib); }
    ~FreeType() { FT_Done_FreeType(m_lib); }
    // The face keeps pointing into `bytes`.
    FT_Face Open(const std::vector<uint8_t>& bytes) {
        FT_Face face = nullptr;
        if (FT_New_Memory_Face(m_lib, bytes.data(), FT_Long(bytes.size()), 0, &face)) return nullptr;
        m_faces.push_back(face);
        return face;
    }
    FreeType(const FreeType&) = delete;
    FreeType& operator=(const FreeType&) = delete;

private:
    FT_Library m_lib = nullptr;
    std::vector<FT_Face> m_faces;
};

std::string GlyphName(FT_Face face, FT_UInt gid) {
    char buf[256] = {0};
    if (FT_Get_Glyph_Name(face, gid, buf, sizeof buf)) return {};
    return buf;
}

// Everything a glyph load gives that must not change, as text so a
// mismatch shows where.
std::string Snapshot(FT_Face face, FT_UInt gid, FT_Int32 flags) {
    if (FT_Load_Glyph(face, gid, flags)) return "load error";
    FT_GlyphSlot slot = face->glyph;
    std::string s = "adv " + std::to_string(slot->advance.x) + " lsb " + std::to_string(slot->metrics.horiBearingX);
    if (slot->format == FT_GLYPH_FORMAT_BITMAP) {
        const FT_Bitmap& bm = slot->bitmap;
        s += " bitmap " + std::to_string(bm.width) + "x" + std::to_string(bm.rows) + " at " +
             std::to_string(slot->bitmap_left) + "," + std::to_string(slot->bitmap_top) + ":";
        for (unsigned r = 0; r < bm.rows; ++r)
            for (unsigned c = 0; c < bm.width; ++c) s += char('a' + bm.buffer[r * bm.pitch + c] / 16);
        return s;
    }
    // Contours as a set: a seac glyph's base and accent come out in either
    // order depending on the font format.
    s += " linear " + std::to_string(slot->linearHoriAdvance);
    const FT_Outline& o = slot->outline;
    std::vector<std::string> contours;
    for (int c = 0, p = 0; c < o.n_contours; ++c) {
        std::string contour;
        for (; p <= o.contours[c] && p < o.n_points; ++p)
            contour += " " + std::to_string(o.points[p].x) + "," + std::to_string(o.points[p].y) + ":" +
                       std::to_string(o.tags[p] & 3);
        contours.push_back(contour + " |");
    }
    std::sort(contours.begin(), contours.end());
    for (const auto& c : contours) s += c;
    return s;
}

// Compares every glyph of `cff` with the glyph of the same name in `t1`.
struct Comparison {
    std::vector<std::string> problems;  // outlines, advances, names (the first few)
    size_t hintedRenders = 0, hintedMismatches = 0;
};
Comparison CompareFaces(FT_Face t1, FT_Face cff) {
    Comparison result;
    auto note = [&](std::string p) {
        if (result.problems.size() < 5) result.problems.push_back(std::move(p));
    };
    struct Mode {
        const char* what;
        FT_UInt ppem;
        FT_Int32 flags;
    };
    const Mode modes[] = {
        {"font units", 0, FT_LOAD_NO_SCALE | FT_LOAD_NO_HINTING},
        {"1000 ppem unhinted", 1000, FT_LOAD_NO_HINTING},
        {"13 ppem hinted", 13, FT_LOAD_RENDER},
        {"24 ppem hinted", 24, FT_LOAD_RENDER},
    };
    for (const Mode& m : modes) {
        if (m.ppem) {
            FT_Set_Pixel_Sizes(t1, 0, m.ppem);
            FT_Set_Pixel_Sizes(cff, 0, m.ppem);
        }
        bool hinted = (m.flags & FT_LOAD_NO_HINTING) == 0;
        for (FT_Long g = 0; g < cff->num_glyphs; ++g) {
            std::string name = GlyphName(cff, FT_UInt(g));
            FT_UInt t1gid = name == ".notdef" ? 0 : FT_Get_Name_Index(t1, name.c_str());
            if (name.empty() || (t1gid == 0 && name != ".notdef")) {
                note("glyph " + std::to_string(g) + " '" + name + "' not in the Type 1 font");
                continue;
            }
            std::string a = Snapshot(t1, t1gid, m.flags), b = Snapshot(cff, FT_UInt(g), m.flags);
            result.hintedRenders += hinted;
            if (a == b) continue;
            if (hinted)
                ++result.hintedMismatches;
            else
                note(name + " (" + m.what + "):\n  t1  " + a.substr(0, 300) + "\n  cff " + b.substr(0, 300));
        }
    }
    return result;
}

// Hinted renderings: stems go over unchanged, but a Type 2 rasteriser
// builds its first hint map from every stem a glyph declares, where a
// Type 1 one takes the stems in force at the start.  Glyphs with hint
// replacement and stems that appear only later can then snap a pixel
// differently; a few per hundred is that, more means lost hints.
void ExpectSameHinting(const Comparison& c) {
    EXPECT_LE(c.hintedMismatches * 100, c.hintedRenders * 2)
        << c.hintedMismatches << " of " << c.hintedRenders << " hinted renderings differ";
}

// code -> glyph name through the face's built-in-encoding charmap.
std::array<std::string, 256> BuiltinEncoding(FT_Face face) {
    std::array<std::string, 256> names;
    for (int i = 0; i < face->num_charmaps; ++i)
        if (face->charmaps[i]->platform_id == 7) FT_Set_Charmap(face, face->charmaps[i]);
    for (unsigned c = 0; c < 256; ++c)
        if (FT_UInt gid = FT_Get_Char_Index(face, c)) names[c] = GlyphName(face, gid);
    return names;
}

// A Type 1 charstring from numbers and operator names; "byte:N" puts a
// raw byte (for broken charstrings).
std::string T1(std::initializer_list<std::variant<int, const char*>> tokens) {
    static const std::map<std::string, unsigned> ops = {
        {"hstem", 1},       {"vstem", 3},       {"vmoveto", 4},         {"rlineto", 5},        {"hlineto", 6},
        {"vlineto", 7},     {"rrcurveto", 8},   {"closepath", 9},       {"callsubr", 10},      {"return", 11},
        {"hsbw", 13},       {"endchar", 14},    {"rmoveto", 21},        {"hmoveto", 22},       {"vhcurveto", 30},
        {"hvcurveto", 31},  {"dotsection", 0x0c00}, {"vstem3", 0x0c01}, {"hstem3", 0x0c02},    {"seac", 0x0c06},
        {"sbw", 0x0c07},    {"div", 0x0c0c},    {"callothersubr", 0x0c10}, {"pop", 0x0c11},    {"setcurrentpoint", 0x0c21}};
    std::string out;
    for (const auto& t : tokens) {
        if (const int* n = std::get_if<int>(&t)) {
            int v = *n;
            if (v >= -107 && v <= 107) {
                out += char(v + 139);
            } else if (v >= 108 && v <= 1131) {
                out += char((v - 108) / 256 + 247);
                out += char((v - 108) % 256);
            } else if (v >= -1131 && v <= -108) {
                out += char((-v - 108) / 256 + 251);
                out += char((-v - 108) % 256);
            } else {
                out += char(255);
                for (int shift = 24; shift >= 0; shift -= 8) out += char(uint32_t(v) >> shift);
            }
            continue;
        }
        std::string name = std::get<const char*>(t);
        if (name.rfind("byte:", 0) == 0) {
            out += char(std::stoi(name.substr(5)));
            continue;
        }
        unsigned op = ops.at(name);
        if (op > 0xff) out += char(12);
        out += char(op & 0xff);
    }
    return out;
}

// Glyphs using what the URW fonts do not: seac, sbw, div, flex in its
// three shapes, drawing without a moveto.  Written back as a Type 1
// program and converted, both must draw the same.
TEST(Type1ToCff, ConvertsRareCharstringFeaturesExactly) {
    Type1Font font = ReadUrw("NimbusSans-Regular");
    auto add = [&](const char* name, std::string cs) { font.charStrings.emplace_back(name, std::move(cs)); };
    // seac: base A, accent acute (StandardEncoding 194), with an accent
    // sidebearing and a composite sidebearing that differ from the real ones.
    add("seacA", T1({17, 667, "hsbw", 30, 200, 140, 65, 194, "seac"}));
    add("seacB", T1({40, 700, "hsbw", 10, -50, 30, 65, 194, "seac"}));
    // sbw: the start point and the vertical stems move by the sidebearing
    // point.  (Horizontal stems with a nonzero sby are left out: the Type 1
    // rasteriser here places them at y + 2 sby.)
    add("sbwbox", T1({30, 20, 600, 0, "sbw", 5, 100, "vstem", 10, 10, "rmoveto", 100, "hlineto", 100,
                      "vlineto", -100, "hlineto", "closepath", "endchar"}));
    // div: fractional points (seen at 1000 ppem) and a fractional width.
    add("divided", T1({20, 1001, 2, "div", "hsbw", 50, 50, "rmoveto", 1000, 3, "div", 0, "rlineto", 0, 2000, 7, "div",
                       "rlineto", -1000, 3, "div", 0, "rlineto", "closepath", "endchar"}));
    // Flex: horizontal (hflex), uneven (hflex1), vertical (flex1), with a
    // depth other than 50 and ending off its start line (both flex).
    auto flex = [](std::array<int, 14> d, int depth, int endX, int endY) {
        std::string s = T1({0, 600, "hsbw", 100, 300, "rmoveto", 1, "callsubr"});
        for (int k = 0; k < 7; ++k) s += T1({d[2 * k], d[2 * k + 1], "rmoveto", 2, "callsubr"});
        return s + T1({depth, endX, endY, 0, "callsubr", 0, 200, "rlineto", -400, 0, "rlineto", "closepath", "endchar"});
    };
    add("hflex", flex({200, 0, -100, 0, 50, 20, 50, 0, 50, 0, 50, -20, 100, 0}, 50, 500, 300));
    add("hflex1", flex({200, 0, -100, 5, 50, 20, 50, 0, 50, 0, 50, -30, 100, 5}, 50, 500, 300));
    add("flex1", flex({0, 100, 0, -100, 20, 40, 0, 50, 0, 50, -20, 40, 0, 70}, 50, 100, 500));
    add("flex", flex({200, 0, -100, 3, 50, 20, 50, 1, 50, 0, 50, -20, 100, 7}, 30, 500, 311));
    add("flexstep", flex({200, 0, -100, 0, 50, 20, 50, 0, 50, 0, 50, -10, 100, 0}, 50, 500, 310));
    // hstem3/vstem3, dotsection and stems declared in a subroutine.
    font.subrs.push_back(T1({0, 20, "hstem", "return"}));
    int subr = int(font.subrs.size()) - 1;
    add("stems3", T1({20, 500, "hsbw", 0, 50, 200, 50, 400, 50, "hstem3", 10, 40, 150, 40, 290, 40, "vstem3", subr,
                      "callsubr", "dotsection", 0, 0, "rmoveto", 400, "hlineto", 450, "vlineto", -400, "hlineto",
                      "closepath", "endchar"}));

    std::set<std::string> names = {"seacA", "seacB", "sbwbox", "divided", "hflex", "hflex1", "flex1", "flex", "flexstep", "stems3"};
    Type1Program program = SubsetType1(font, names);
    ASSERT_FALSE(program.bytes.empty());
    std::string error;
    std::set<std::string> closure = names;
    Type1GlyphClosure(font, closure);
    std::vector<uint8_t> cffBytes = Type1ToCff(font, closure, error);
    ASSERT_FALSE(cffBytes.empty()) << error;
    FreeType ft;
    FT_Face t1 = ft.Open(program.bytes), cff = ft.Open(cffBytes);
    ASSERT_TRUE(t1 && cff);
    // The subset: the named glyphs, the seac components and .notdef.
    EXPECT_EQ(cff->num_glyphs, FT_Long(names.size() + 3));
    for (const char* name : {"A", "acute", "flex1", "seacB"}) EXPECT_NE(FT_Get_Name_Index(cff, name), 0u) << name;
    Comparison comparison = CompareFaces(t1, cff);
    for (const auto& p : comparison.problems) ADD_FAILURE() << p;
    EXPECT_EQ(comparison.hintedMismatches, 0u);  // no hint replacement here
}

// Charstrings that cannot be converted give no font and a reason, never a
// crash or a hang.
TEST(Type1ToCff, RefusesUnconvertibleCharstrings) {
    const std::string ok = T1({0, 500, "hsbw", "endchar"});
    std::string manyNumbers = T1({0, 500, "hsbw"}), manyStems = manyNumbers;
    for (int i = 0; i < 60; ++i) manyNumbers += T1({1});
    for (int i = 0; i < 100; ++i) manyStems += T1({i * 30, 20, "hstem"});
    manyStems += T1({0, 0, "rmoveto", 10, "hlineto", "endchar"});
    struct Case {
        const char* what;
        std::string charstring;
        const char* error;
    };
    const Case cases[] = {
        {"reserved operator", T1({0, 500, "hsbw", "byte:2", "endchar"}), "unknown charstring operator 2"},
        {"reserved escape", T1({0, 500, "hsbw", "byte:12", "byte:99", "endchar"}), "unknown charstring operator"},
        {"OtherSubr 12", T1({0, 500, "hsbw", 0, 12, "callothersubr", "endchar"}), "OtherSubr 12"},
        {"recursion", T1({0, 500, "hsbw", 0, "callsubr", "endchar"}), "nested too deeply"},
        {"call fan-out", T1({0, 500, "hsbw", 1, "callsubr", "endchar"}), "runs too long"},
        {"stack overflow", manyNumbers, "stack overflow"},
        {"division by zero", T1({0, 500, "hsbw", 10, 0, "div", 0, "rmoveto", "endchar"}), "division by zero"},
        {"no hsbw", T1({10, 10, "rmoveto", "endchar"}), "before hsbw"},
        {"no endchar", T1({0, 500, "hsbw", 10, 10, "rmoveto"}), "without endchar"},
        {"truncated number", T1({0, 500, "hsbw", "byte:255", "byte:1"}), "truncated"},
        {"missing subroutine", T1({0, 500, "hsbw", 999, "callsubr", "endchar"}), "missing subroutine"},
        {"pop without result", T1({0, 500, "hsbw", "pop", "endchar"}), "pop without"},
        {"too far for Type 2", T1({0, 500, "hsbw", 40000, 0, "rmoveto", 10, "hlineto", "endchar"}), "out of range"},
        {"line without moveto", T1({30, 500, "hsbw", 100, "hlineto", "endchar"}), "without a moveto"},
        {"line after closepath", T1({0, 500, "hsbw", 0, 0, "rmoveto", 9, "hlineto", "closepath", 9, "vlineto", "endchar"}),
         "without a moveto"},
        {"short flex", T1({0, 500, "hsbw", 0, 0, "rmoveto", 0, 1, "callothersubr", 5, 5, "rmoveto", 0, 2,
                           "callothersubr", 50, 5, 5, 3, 0, "callothersubr", "endchar"}),
         "malformed flex"},
        {"seac code", T1({0, 500, "hsbw", 0, 0, 0, 300, 65, "seac"}), "StandardEncoding"},
        {"too many stems", manyStems, "96"},
    };
    // Subr 0 calls itself; subrs 1..15 each call the next four times.
    std::vector<std::string> subrs = {T1({0, "callsubr", "return"})};
    for (int i = 1; i <= 15; ++i)
        subrs.push_back(T1({i + 1, "callsubr", i + 1, "callsubr", i + 1, "callsubr", i + 1, "callsubr", "return"}));
    subrs.push_back(T1({"return"}));
    for (const Case& c : cases) {
        Type1Font font;
        font.fontName = "Broken";
        font.subrs = subrs;
        font.charStrings = {{".notdef", ok}, {"bad", c.charstring}};
        std::string error;
        EXPECT_TRUE(Type1ToCff(font, {}, error).empty()) << c.what;
        EXPECT_NE(error.find(c.error), std::string::npos) << c.what << ": " << error;
        // The same font without the bad glyph converts.
        EXPECT_FALSE(Type1ToCff(font, {".notdef"}, error).empty()) << c.what << ": " << error;
    }
}

// The built-in encoding and the charset in their predefined forms when
// they fit, else custom ones (with supplements for codes sharing a glyph).
TEST(Type1ToCff, WritesEncodingAndCharsetForms) {
    struct Case {
        const char* font;
        std::set<std::string> glyphs;
        int extraCode;  // a second code for "alpha" (-1: none)
        int predefinedEncoding;
        bool predefinedCharset;
    };
    const Case cases[] = {
        {"NimbusSans-Regular", {"A", "B", "Euro", "Aacute"}, -1, 0, false},
        {"NimbusSans-Regular", {"space", "exclam", "quotedbl"}, -1, 0, true},  // SIDs 1, 2, 3
        {"StandardSymbolsPS", {"alpha", "beta", "space", "universal"}, -1, -1, false},
        {"StandardSymbolsPS", {"alpha", "beta"}, 200, -1, false},
        {"StandardSymbolsPS", {}, 250, -1, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.font) + " " + std::to_string(c.glyphs.size()));
        Type1Font font = ReadUrw(c.font);
        if (c.extraCode >= 0) font.encoding[size_t(c.extraCode)] = "alpha";
        std::string error;
        std::vector<uint8_t> bytes = Type1ToCff(font, c.glyphs, error);
        ASSERT_FALSE(bytes.empty()) << error;
        cff::CffInfo info;
        ASSERT_TRUE(cff::ReadCff(bytes, info, error)) << error;
        // Exactly the glyphs asked for, .notdef first.
        std::set<std::string> names;
        for (unsigned g = 1; g < info.glyphCount; ++g) names.insert(cff::GlyphName(info, g));
        EXPECT_EQ(cff::GlyphName(info, 0), ".notdef");
        if (!c.glyphs.empty()) EXPECT_EQ(names, c.glyphs);
        else EXPECT_EQ(names.size() + 1, font.charStrings.size());
        EXPECT_EQ(info.predefinedEncoding, c.predefinedEncoding);
        bool hasCharset = std::any_of(info.topDict.begin(), info.topDict.end(),
                                      [](const cff::DictEntry& e) { return e.op == cff::kOpCharset; });
        EXPECT_EQ(!hasCharset, c.predefinedCharset);
        EXPECT_EQ(info.hasSupplements, c.extraCode >= 0);
        // Every code reaches the glyph the Type 1 encoding names, if kept.
        for (unsigned code = 0; code < 256; ++code) {
            std::string want = font.standardEncoding ? std::string(cff::StandardString(cff::kStandardEncoding[code]))
                                                     : font.encoding[code];
            if (want == ".notdef" || (!c.glyphs.empty() && !c.glyphs.count(want))) want.clear();
            std::string got = info.encoding[code] ? cff::GlyphName(info, info.encoding[code]) : "";
            if (info.predefinedEncoding == 0) {  // resolved by name through StandardEncoding
                got = std::string(cff::StandardString(cff::kStandardEncoding[code]));
                if (got == ".notdef" || !names.count(got)) got.clear();
            }
            EXPECT_EQ(got, want) << "code " << code;
        }
    }
}

// The whole font converted: every glyph identical, same names, same
// encoding, same FontInfo and Private values.
class UrwFont : public ::testing::TestWithParam<const char*> {};

TEST_P(UrwFont, ConvertsEveryGlyphExactly) {
    Type1Font font = ReadUrw(GetParam());
    std::string error;
    std::vector<uint8_t> cffBytes = Type1ToCff(font, {}, error);
    ASSERT_FALSE(cffBytes.empty()) << error;
    std::vector<uint8_t> t1Bytes = FileBytes(kUrw + GetParam() + ".t1");
    FreeType ft;
    FT_Face t1 = ft.Open(t1Bytes), cff = ft.Open(cffBytes);
    ASSERT_TRUE(t1 && cff);
    EXPECT_STREQ(FT_Get_Font_Format(cff), "CFF");
    EXPECT_EQ(cff->num_glyphs, t1->num_glyphs);
    EXPECT_EQ(GlyphName(cff, 0), ".notdef");
    Comparison comparison = CompareFaces(t1, cff);
    for (const auto& p : comparison.problems) ADD_FAILURE() << p;
    ExpectSameHinting(comparison);
    EXPECT_EQ(BuiltinEncoding(cff), BuiltinEncoding(t1));

    PS_FontInfoRec i1, i2;
    ASSERT_EQ(FT_Get_PS_Font_Info(t1, &i1), 0);
    ASSERT_EQ(FT_Get_PS_Font_Info(cff, &i2), 0);
    EXPECT_STREQ(i2.version, i1.version);
    EXPECT_STREQ(i2.notice, i1.notice);
    EXPECT_STREQ(i2.full_name, i1.full_name);
    EXPECT_STREQ(i2.family_name, i1.family_name);
    EXPECT_STREQ(i2.weight, i1.weight);
    EXPECT_EQ(i2.is_fixed_pitch, i1.is_fixed_pitch);
    EXPECT_EQ(cff->underline_position, t1->underline_position);
    EXPECT_EQ(cff->underline_thickness, t1->underline_thickness);
    EXPECT_EQ(cff->bbox.xMin, t1->bbox.xMin);
    EXPECT_EQ(cff->bbox.yMax, t1->bbox.yMax);

    // The Private DICT read back: delta arrays summed up again, defaults
    // left out.
    cff::CffInfo info;
    ASSERT_TRUE(cff::ReadCff(cffBytes, info, error)) << error;
    // (The Type 1 reader truncates ItalicAngle; the CFF one does not.)
    double italicAngle = 0;
    for (const auto& e : info.topDict)
        if (e.op == 1202 && e.operands.size() == 1) italicAngle = e.operands[0];
    EXPECT_EQ(italicAngle, std::stod(font.fontInfo["ItalicAngle"]));
    std::map<std::string, std::vector<double>> privateValues;
    for (const auto& e : info.topDict)
        if (e.op == cff::kOpPrivate && e.operands.size() == 2) {
            std::vector<cff::DictEntry> entries;
            auto dict = std::span<const uint8_t>(cffBytes).subspan(size_t(e.operands[1]), size_t(e.operands[0]));
            ASSERT_TRUE(cff::ReadDict(dict, entries, error)) << error;
            const std::map<unsigned, std::pair<const char*, bool>> keys = {
                {6, {"BlueValues", true}},   {7, {"OtherBlues", true}},     {10, {"StdHW", false}},
                {11, {"StdVW", false}},      {1212, {"StemSnapH", true}},   {1213, {"StemSnapV", true}},
                {1209, {"BlueScale", false}}, {1210, {"BlueShift", false}}, {1214, {"ForceBold", false}}};
            for (const auto& entry : entries) {
                auto k = keys.find(entry.op);
                if (k == keys.end()) continue;
                std::vector<double> v = entry.operands;
                for (size_t i = 1; k->second.second && i < v.size(); ++i) v[i] += v[i - 1];
                privateValues[k->second.first] = v;
            }
        }
    for (const char* key : {"BlueValues", "OtherBlues", "StdHW", "StdVW", "StemSnapH", "StemSnapV", "BlueScale"}) {
        auto it = font.privateValues.find(key);
        if (it == font.privateValues.end() || (std::string(key) == "BlueScale" && it->second[0] == 0.039625))
            EXPECT_EQ(privateValues.count(key), 0u) << key;
        else
            EXPECT_EQ(privateValues[key], it->second) << key;
    }
    EXPECT_EQ(privateValues.count("ForceBold") > 0, font.privateValues.count("ForceBold") && font.privateValues["ForceBold"][0] != 0);

    // The point of the conversion: no bigger than the Type 1 program.
    EXPECT_LT(cffBytes.size(), t1Bytes.size());
}

// Standard and custom encodings, hint replacement in most glyphs, flex in
// the italic faces, hstem3/vstem3 everywhere.
INSTANTIATE_TEST_SUITE_P(Urw, UrwFont,
                         ::testing::Values("NimbusSans-Regular", "StandardSymbolsPS", "D050000L",
                                           "NimbusRoman-Italic", "C059-BdIta", "URWBookman-Light"));

}  // namespace
