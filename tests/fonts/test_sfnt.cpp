// TrueType, OpenType and bare CFF reading and subsetting.  Subsets are
// checked with an independent renderer library: outlines of kept glyphs,
// names, CIDs and built-in codes must come out as they went in.
#include <gtest/gtest.h>

#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_CID_H

#include <cstring>
#include <fstream>
#include <iterator>
#include <random>

#include "fonts/Sfnt.h"

namespace {

using fonts::SfntFont;
using fonts::SfntKind;
using Bytes = std::vector<uint8_t>;

const char* kLiberation = "/usr/share/fonts/truetype/liberation2/LiberationSans-Regular.ttf";
const char* kNimbusOtf = "/usr/share/fonts/opentype/urw-base35/NimbusSans-Regular.otf";
const char* kDingbatsOtf = "/usr/share/fonts/opentype/urw-base35/D050000L.otf";

Bytes ReadFile(const char* path) {
    std::ifstream f(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(f), {});
}

uint32_t U32(const Bytes& d, size_t p) { return (uint32_t(d[p]) << 24) | (d[p + 1] << 16) | (d[p + 2] << 8) | d[p + 3]; }

// A table of an sfnt, found through its directory; empty when absent.
Bytes TableOf(const Bytes& font, const char* tag) {
    unsigned n = (font[4] << 8) | font[5];
    for (unsigned i = 0; i < n; ++i) {
        size_t rec = 12 + 16 * i;
        if (std::memcmp(&font[rec], tag, 4) == 0)
            return Bytes(font.begin() + U32(font, rec + 8), font.begin() + U32(font, rec + 8) + U32(font, rec + 12));
    }
    return {};
}

// A font program seen through FreeType.
struct FtFont {
    FT_Library lib = nullptr;
    FT_Face face = nullptr;
    Bytes bytes;
    explicit FtFont(Bytes b) : bytes(std::move(b)) {
        FT_Init_FreeType(&lib);
        if (FT_New_Memory_Face(lib, bytes.data(), FT_Long(bytes.size()), 0, &face)) face = nullptr;
    }
    ~FtFont() {
        if (face) FT_Done_Face(face);
        FT_Done_FreeType(lib);
    }
    // Points, tags and contour ends of a glyph, unscaled and unhinted.
    std::vector<long> Outline(unsigned gid) const {
        std::vector<long> out;
        if (FT_Load_Glyph(face, gid, FT_LOAD_NO_SCALE | FT_LOAD_NO_HINTING)) return {-1};
        const FT_Outline& o = face->glyph->outline;
        for (int i = 0; i < o.n_points; ++i) out.insert(out.end(), {o.points[i].x, o.points[i].y, long(o.tags[i] & 3)});
        for (int i = 0; i < o.n_contours; ++i) out.push_back(o.contours[i]);
        return out;
    }
    std::string Name(unsigned gid) const {
        char buf[128] = {};
        return FT_Get_Glyph_Name(face, gid, buf, sizeof buf) ? "" : buf;
    }
    unsigned ByName(const char* name) const { return FT_Get_Name_Index(face, name); }
    unsigned Cid(unsigned gid) const {
        FT_UInt cid = 0;
        return FT_Get_CID_From_Glyph_Index(face, gid, &cid) ? ~0u : cid;
    }
    // Through the built-in encoding: the charmap of the built-in platform.
    unsigned BuiltinCode(unsigned code) const {
        for (int i = 0; i < face->num_charmaps; ++i)
            if (face->charmaps[i]->platform_id == 7 && !FT_Set_Charmap(face, face->charmaps[i]))
                return FT_Get_Char_Index(face, code);
        return ~0u;
    }
};

// --- A small CFF writer for fonts with the charsets and encodings real
// fonts seldom have (format 0 encodings with supplements, CID-keyed).

void Num(Bytes& out, int v) {  // DICT and charstring integer forms
    if (v >= -107 && v <= 107) out.push_back(uint8_t(v + 139));
    else if (v >= 108 && v <= 1131) out.insert(out.end(), {uint8_t((v - 108) / 256 + 247), uint8_t((v - 108) % 256)});
    else if (v <= -108 && v >= -1131) out.insert(out.end(), {uint8_t((-v - 108) / 256 + 251), uint8_t((-v - 108) % 256)});
    else out.insert(out.end(), {28, uint8_t(v >> 8), uint8_t(v)});
}
void Long(Bytes& out, uint32_t v) { out.insert(out.end(), {29, uint8_t(v >> 24), uint8_t(v >> 16), uint8_t(v >> 8), uint8_t(v)}); }
Bytes Index(const std::vector<Bytes>& items) {
    Bytes out{uint8_t(items.size() >> 8), uint8_t(items.size())};
    if (items.empty()) return out;
    out.push_back(4);
    uint32_t off = 1;
    auto put = [&](uint32_t v) { out.insert(out.end(), {uint8_t(v >> 24), uint8_t(v >> 16), uint8_t(v >> 8), uint8_t(v)}); };
    put(off);
    for (const Bytes& b : items) put(off += uint32_t(b.size()));
    for (const Bytes& b : items) out.insert(out.end(), b.begin(), b.end());
    return out;
}

struct CffLayout {
    std::vector<std::string> names;  // simple font: glyph names, [0] = .notdef
    std::vector<uint16_t> cids;      // CID-keyed font: gid -> CID
    Bytes encoding;                  // raw custom encoding; empty: Standard
};

// Glyph g starts at x = 10 * g with advance 400 + g, so each glyph's
// outline and width are its own.  A simple font's glyphs are squares; a
// CID-keyed font has two Font DICTs, glyphs from 3 on in the second, and
// draws through each one's local subroutine (a square, a triangle).
Bytes BuildCff(const CffLayout& layout) {
    const bool cid = !layout.cids.empty();
    const size_t n = cid ? layout.cids.size() : layout.names.size();
    std::vector<Bytes> strings;
    auto sid = [&](const std::string& s) -> int {
        static const char* std_[] = {".notdef", "space", "A", "B"};  // enough standard strings for the tests
        static const int stdSid[] = {0, 1, 34, 35};
        for (int i = 0; i < 4; ++i)
            if (s == std_[i]) return stdSid[i];
        strings.emplace_back(s.begin(), s.end());
        return 390 + int(strings.size());
    };
    Bytes charset{0};
    for (size_t g = 1; g < n; ++g) {
        int v = cid ? layout.cids[g] : sid(layout.names[g]);
        charset.insert(charset.end(), {uint8_t(v >> 8), uint8_t(v)});
    }
    int rosR = cid ? sid("Test") : 0, rosO = cid ? sid("Identity") : 0;
    Bytes square, triangle;
    Num(square, 100), Num(square, 0), Num(square, 0), Num(square, 100), Num(square, -100), square.push_back(6);
    Num(triangle, 100), Num(triangle, 0), Num(triangle, -50), Num(triangle, 100), triangle.push_back(5);
    std::vector<Bytes> glyphs;
    for (size_t g = 0; g < n; ++g) {
        Bytes cs;
        Num(cs, 400 + int(g)), Num(cs, 10 * int(g)), Num(cs, 0), cs.push_back(21);  // width dx dy rmoveto
        if (cid) Num(cs, -107), cs.push_back(10);  // callsubr 0
        else cs.insert(cs.end(), square.begin(), square.end());
        cs.push_back(14);
        glyphs.push_back(cs);
    }
    square.push_back(11), triangle.push_back(11);  // return
    // nominalWidthX 0, and for a CID-keyed font Subrs right after.
    Bytes priv{139, 21};
    Bytes privs[2] = {priv, priv};
    if (cid)
        for (int fd = 0; fd < 2; ++fd) {
            privs[fd].insert(privs[fd].end(), {143, 19});
            Bytes subrs = Index({fd ? triangle : square});
            privs[fd].insert(privs[fd].end(), subrs.begin(), subrs.end());
        }
    Bytes head{1, 0, 4, 4};
    Bytes names = Index({Bytes{'T', 'e', 's', 't'}});
    // Offsets are written as 5-byte numbers, so the Top DICT's size is
    // known before the layout.
    auto topDict = [&](uint32_t charsetAt, uint32_t encAt, uint32_t csAt, uint32_t privAt, uint32_t fdAt,
                       uint32_t fdSelAt) {
        Bytes t;
        if (cid) Num(t, rosR), Num(t, rosO), Num(t, 0), t.insert(t.end(), {12, 30});
        Long(t, charsetAt), t.push_back(15);
        if (!cid && !layout.encoding.empty()) Long(t, encAt), t.push_back(16);
        Long(t, csAt), t.push_back(17);
        if (cid) {
            Long(t, fdAt), t.insert(t.end(), {12, 36});
            Long(t, fdSelAt), t.insert(t.end(), {12, 37});
        } else {
            Num(t, int(priv.size())), Long(t, privAt), t.push_back(18);
        }
        return t;
    };
    auto fontDict = [&](uint32_t privAt) {
        Bytes f;
        Num(f, 4), Long(f, privAt), f.push_back(18);
        return f;
    };
    Bytes fdSelect{3, 0, 2, 0, 0, 0, 0, 3, 1, uint8_t(n >> 8), uint8_t(n)};
    Bytes strIndex = Index(strings), gsubrs = Index({});
    size_t pos = head.size() + names.size() + Index({topDict(0, 0, 0, 0, 0, 0)}).size() + strIndex.size() + gsubrs.size();
    uint32_t charsetAt = uint32_t(pos), encAt = uint32_t(charsetAt + charset.size());
    uint32_t csAt = uint32_t(encAt + layout.encoding.size());
    Bytes csIndex = Index(glyphs);
    uint32_t privAt = uint32_t(csAt + csIndex.size());
    uint32_t priv1At = uint32_t(privAt + privs[0].size());
    uint32_t fdAt = uint32_t(priv1At + (cid ? privs[1].size() : 0));
    Bytes fdArray = Index({fontDict(privAt), fontDict(priv1At)});
    uint32_t fdSelAt = uint32_t(fdAt + fdArray.size());
    Bytes out = head;
    out.insert(out.end(), names.begin(), names.end());
    Bytes top = Index({topDict(charsetAt, encAt, csAt, privAt, fdAt, fdSelAt)});
    for (const Bytes* b : std::initializer_list<const Bytes*>{&top, &strIndex, &gsubrs, &charset, &layout.encoding, &csIndex, &privs[0]})
        out.insert(out.end(), b->begin(), b->end());
    if (cid)
        for (const Bytes* b : {&privs[1], &fdArray, &fdSelect}) out.insert(out.end(), b->begin(), b->end());
    return out;
}

std::unique_ptr<SfntFont> Open(const Bytes& b, SfntKind kind) {
    auto f = std::make_unique<SfntFont>();
    std::string error;
    EXPECT_TRUE(f->Open(b, kind, error)) << error;
    return f;
}

std::set<unsigned> EveryNth(unsigned count, unsigned step) {
    std::set<unsigned> s;
    for (unsigned g = 1; g < count; g += step) s.insert(g);
    return s;
}

// --- Reading

TEST(Sfnt, LookupsAgreeWithRenderer) {
    struct Case {
        const char* path;
        bool bareCff;
        SfntKind kind;
        double upem;
    } cases[] = {
        {kLiberation, false, SfntKind::TrueType, 2048},
        {kNimbusOtf, false, SfntKind::OpenTypeCff, 1000},
        {kNimbusOtf, true, SfntKind::BareCff, 1000},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.path) + (c.bareCff ? " (CFF table)" : ""));
        Bytes file = ReadFile(c.path);
        ASSERT_FALSE(file.empty());
        Bytes program = c.bareCff ? TableOf(file, "CFF ") : file;
        // The PDF's word for the kind is only a hint.
        auto font = Open(program, c.bareCff ? SfntKind::TrueType : SfntKind::BareCff);
        FtFont ft(program);
        ASSERT_TRUE(ft.face);
        EXPECT_EQ(font->Kind(), c.kind);
        EXPECT_EQ(font->GlyphCount(), unsigned(ft.face->num_glyphs));
        EXPECT_EQ(font->UnitsPerEm(), c.upem);
        EXPECT_FALSE(font->IsCidKeyed());
        for (const char* name : {"A", "ampersand", "zero", "Aacute", "quotesingle"}) {
            unsigned g = ft.ByName(name);
            ASSERT_NE(g, 0u) << name;
            EXPECT_EQ(font->GlyphForName(name), g) << name;
            EXPECT_EQ(font->GlyphName(g), name);
            ASSERT_EQ(FT_Load_Glyph(ft.face, g, FT_LOAD_NO_SCALE), 0);
            EXPECT_EQ(font->Advance(g), double(ft.face->glyph->metrics.horiAdvance)) << name;
        }
        EXPECT_EQ(font->GlyphForName("no.such.glyph"), std::nullopt);
        EXPECT_EQ(font->Advance(font->GlyphCount()), std::nullopt);
        if (!c.bareCff) {
            EXPECT_TRUE(font->HasCmap(3, 1));
            EXPECT_FALSE(font->HasCmap(3, 0));
            for (uint32_t u : {0x41u, 0x20ACu, 0x2022u}) EXPECT_EQ(font->GlyphForCmap(3, 1, u), FT_Get_Char_Index(ft.face, u));
            EXPECT_EQ(font->GlyphForCmap(3, 1, 0xE000), std::nullopt);
            EXPECT_EQ(font->GlyphForCmap(3, 0, 0x41), std::nullopt);
        } else {
            // A text font's built-in encoding is Standard: by name.
            EXPECT_EQ(font->GlyphForBuiltinCode(65), ft.ByName("A"));
            EXPECT_EQ(font->GlyphForBuiltinCode(0xe1), ft.ByName("AE"));
            EXPECT_EQ(font->GlyphForBuiltinCode(0x80), std::nullopt);
        }
    }
}

// Encodings with format 1 ranges (the dingbats font), format 0 codes,
// supplements and a glyph reached through a supplement only.
TEST(Sfnt, BuiltinEncodingsAgreeWithRenderer) {
    Bytes dingbats = TableOf(ReadFile(kDingbatsOtf), "CFF ");
    Bytes format0 = BuildCff({{".notdef", "A", "B", "extra1", "extra2"}, {}, {0x80, 3, 'a', 'b', 'c', 2, 200, 0, 34, 201, 1, 0x88}});
    Bytes format1 = BuildCff({{".notdef", "space", "A", "B"}, {}, {1, 2, 32, 1, 100, 0}});
    for (const Bytes* b : {&dingbats, &format0, &format1}) {
        auto font = Open(*b, SfntKind::BareCff);
        FtFont ft(*b);
        for (unsigned code = 0; code < 256; ++code) {
            unsigned want = ft.BuiltinCode(code);
            EXPECT_EQ(font->GlyphForBuiltinCode(code).value_or(0), want) << "code " << code;
        }
    }
    auto f0 = Open(format0, SfntKind::BareCff);
    EXPECT_EQ(f0->GlyphForBuiltinCode('a'), 1u);
    EXPECT_EQ(f0->GlyphForBuiltinCode(200), 1u);  // supplement by standard SID
    EXPECT_EQ(f0->GlyphForBuiltinCode(201), 4u);  // supplement by custom SID, past the codes
    EXPECT_EQ(f0->Advance(3), 403.0);
}

TEST(Sfnt, CidKeyedCff) {
    Bytes b = BuildCff({{}, {0, 5, 17, 300, 1000}, {}});
    auto font = Open(b, SfntKind::BareCff);
    EXPECT_TRUE(font->IsCidKeyed());
    EXPECT_EQ(font->GlyphForCid(0), 0u);
    EXPECT_EQ(font->GlyphForCid(300), 3u);
    EXPECT_EQ(font->GlyphForCid(6), std::nullopt);
    EXPECT_EQ(font->GlyphForCid(70000), std::nullopt);
    EXPECT_EQ(font->GlyphForName("A"), std::nullopt);
    EXPECT_EQ(font->GlyphName(3), "");
    EXPECT_EQ(font->Advance(4), 404.0);
}

// --- Subsetting

TEST(Sfnt, TrueTypeRetainedIdsSubset) {
    Bytes file = ReadFile(kLiberation);
    auto font = Open(file, SfntKind::TrueType);
    FtFont ft(file);
    // Aacute is a composite: its parts come along without being asked for.
    unsigned aacute = ft.ByName("Aacute"), a = ft.ByName("A");
    std::set<unsigned> keep = EveryNth(font->GlyphCount(), 41);
    keep.insert(aacute);
    keep.erase(a);
    std::string error;
    Bytes sub = font->Subset(keep, true, error);
    ASSERT_FALSE(sub.empty()) << error;
    EXPECT_LT(sub.size() * 5, file.size());
    EXPECT_EQ(TableOf(sub, "cmap"), TableOf(file, "cmap"));
    for (const char* gone : {"GSUB", "GPOS", "GDEF", "kern", "hdmx", "DSIG"}) EXPECT_TRUE(TableOf(sub, gone).empty()) << gone;
    for (const char* kept : {"fpgm", "prep", "cvt ", "gasp", "OS/2", "post", "name"})
        EXPECT_EQ(TableOf(sub, kept).empty(), TableOf(file, kept).empty()) << kept;
    FtFont out(sub);
    ASSERT_TRUE(out.face);
    EXPECT_EQ(out.face->num_glyphs, ft.face->num_glyphs);
    for (unsigned g : keep) {
        EXPECT_EQ(out.Outline(g), ft.Outline(g)) << g;
        EXPECT_EQ(out.Name(g), ft.Name(g));  // symbolic fonts are looked up by post names
    }
    EXPECT_EQ(out.Outline(a), ft.Outline(a));
    unsigned b = ft.ByName("B");
    ASSERT_FALSE(keep.count(b) || ft.Outline(b).empty());
    EXPECT_TRUE(out.Outline(b).empty());  // left out, still in its place
}

TEST(Sfnt, SubsetsKeepNamesOutlinesAndCodes) {
    Bytes nimbus = ReadFile(kNimbusOtf);
    Bytes dingbats = TableOf(ReadFile(kDingbatsOtf), "CFF ");
    Bytes format0 = BuildCff({{".notdef", "A", "B", "extra1", "extra2", "extra3"}, {}, {0x80, 3, 'a', 'b', 'c', 2, 200, 0, 34, 201, 1, 0x89}});
    struct Case {
        const char* what;
        Bytes program;
        std::set<unsigned> keep;
    } cases[] = {
        {"Liberation", ReadFile(kLiberation), EveryNth(2000, 37)},
        {"OpenType CFF", nimbus, EveryNth(855, 13)},
        {"bare CFF", TableOf(nimbus, "CFF "), EveryNth(855, 13)},
        {"dingbats", dingbats, {5, 10, 50, 100, 150}},
        {"format 0 and supplements", format0, {2, 5}},
    };
    for (const Case& c : cases) {
        for (bool retain : {false, true}) {
            SCOPED_TRACE(std::string(c.what) + (retain ? " retained ids" : " new ids"));
            auto font = Open(c.program, SfntKind::BareCff);
            std::string error;
            Bytes sub = font->Subset(c.keep, retain, error);
            ASSERT_FALSE(sub.empty()) << error;
            EXPECT_LT(sub.size(), c.program.size());
            auto back = Open(sub, SfntKind::BareCff);
            EXPECT_EQ(back->Kind(), font->Kind());
            FtFont ft(c.program), out(sub);
            ASSERT_TRUE(out.face);
            for (unsigned g : c.keep) {
                std::string name = ft.Name(g);
                unsigned ng = retain ? g : out.ByName(name.c_str());
                ASSERT_NE(ng, 0u) << name;
                EXPECT_EQ(out.Name(ng), name);
                EXPECT_EQ(back->GlyphForName(name), ng);
                EXPECT_EQ(out.Outline(ng), ft.Outline(g)) << name;
            }
            if (font->Kind() == SfntKind::BareCff)
                for (unsigned code = 0; code < 256; ++code) {
                    auto before = font->GlyphForBuiltinCode(code);
                    if (!before || !c.keep.count(*before)) continue;
                    unsigned ng = retain ? *before : out.ByName(ft.Name(*before).c_str());
                    EXPECT_EQ(out.BuiltinCode(code), ng) << "code " << code;
                    EXPECT_EQ(back->GlyphForBuiltinCode(code), ng) << "code " << code;
                }
        }
    }
}

TEST(Sfnt, CidKeyedSubsetKeepsCids) {
    const std::vector<uint16_t> cids{0, 5, 17, 300, 1000, 1001};
    Bytes b = BuildCff({{}, cids, {}});
    auto font = Open(b, SfntKind::BareCff);
    FtFont ft(b);
    for (bool retain : {false, true}) {
        std::string error;
        Bytes sub = font->Subset({3, 5}, retain, error);
        ASSERT_FALSE(sub.empty()) << error;
        FtFont out(sub);
        ASSERT_TRUE(out.face);
        auto back = Open(sub, SfntKind::BareCff);
        EXPECT_TRUE(back->IsCidKeyed());
        for (unsigned g : {0u, 3u, 5u}) {
            unsigned ng = *back->GlyphForCid(cids[g]);
            if (retain) {
                EXPECT_EQ(ng, g);
            }
            EXPECT_EQ(out.Cid(ng), cids[g]);
            // FreeType loads a CID-keyed font's glyphs by CID.
            EXPECT_EQ(out.Outline(cids[g]), ft.Outline(cids[g]));
            EXPECT_EQ(out.Outline(cids[g])[0], 10 * long(g));
            EXPECT_EQ(out.Outline(cids[g]).size(), g < 3 ? 13u : 10u);  // square or triangle: the right Font DICT
        }
        EXPECT_EQ(back->GlyphForCid(17).has_value(), retain);
    }
}

// The largest glyph count a CFF can have.
TEST(Sfnt, LargeCidKeyedCff) {
    std::vector<uint16_t> cids(65535);
    for (size_t g = 0; g < cids.size(); ++g) cids[g] = uint16_t(g == 0 ? 0 : 65535 - g);
    Bytes b = BuildCff({{}, cids, {}});
    auto font = Open(b, SfntKind::BareCff);
    EXPECT_EQ(font->GlyphCount(), 65535u);
    EXPECT_EQ(font->GlyphForCid(1), 65534u);
    std::string error;
    Bytes sub = font->Subset({65534, 3}, false, error);
    ASSERT_FALSE(sub.empty()) << error;
    EXPECT_LT(sub.size(), 400u);
    auto back = Open(sub, SfntKind::BareCff);
    EXPECT_EQ(back->GlyphForCid(1), 2u);
    EXPECT_EQ(back->GlyphForCid(65532), 1u);
}

// --- Hostile programs

TEST(Sfnt, RejectsBrokenPrograms) {
    Bytes cff = BuildCff({{".notdef", "A", "B"}, {}, {}});
    Bytes ttf = ReadFile(kLiberation);
    auto patched = [](Bytes b, size_t at, std::initializer_list<uint8_t> bytes) {
        std::copy(bytes.begin(), bytes.end(), b.begin() + at);
        return b;
    };
    // The CharStrings operator, with its 5-byte offset before it.
    size_t charStringsOp = 0;
    for (size_t i = 0; i + 5 < cff.size(); ++i)
        if (cff[i] == 29 && cff[i + 5] == 17) charStringsOp = i;
    ASSERT_NE(charStringsOp, 0u);
    uint32_t csAt = U32(cff, charStringsOp + 1);
    struct Case {
        const char* what;
        Bytes program;
    } cases[] = {
        {"empty", {}},
        {"garbage", {0x42, 0x42, 0x42, 0x42, 0x42}},
        {"CFF header only", Bytes(cff.begin(), cff.begin() + 4)},
        {"CFF cut in the CharStrings", Bytes(cff.begin(), cff.begin() + csAt + 5)},
        {"CFF CharStrings count lies", patched(cff, csAt, {0x7f, 0xff})},
        {"CFF CharStrings offset past the end", patched(cff, charStringsOp + 1, {0x7f, 0, 0, 0})},
        {"CFF INDEX offset size 7", patched(cff, csAt + 2, {7})},
        {"sfnt with 60000 tables", patched(ttf, 4, {0xea, 0x60})},
        {"sfnt table offset past the end", patched(ttf, 12 + 8, {0x7f, 0, 0, 0})},
        {"sfnt cut in its directory", Bytes(ttf.begin(), ttf.begin() + 40)},
    };
    for (const Case& c : cases) {
        SfntFont font;
        std::string error;
        EXPECT_FALSE(font.Open(c.program, SfntKind::BareCff, error)) << c.what;
        EXPECT_FALSE(error.empty()) << c.what;
    }
}

// Damage that reading may survive: lookups and subsets must stay in
// bounds and end.  Run under the sanitizers, this is the real check.
TEST(Sfnt, SurvivesDamagedPrograms) {
    Bytes ttf = ReadFile(kLiberation);
    FtFont ft(ttf);
    // A composite glyph made to contain itself.
    Bytes loop = ttf;
    {
        Bytes glyf = TableOf(ttf, "glyf"), loca = TableOf(ttf, "loca"), head = TableOf(ttf, "head");
        ASSERT_EQ(head[51], 1);  // long loca offsets
        unsigned g = ft.ByName("Aacute");
        size_t glyfAt = 0;
        for (unsigned i = 0; i < 40; ++i)
            if (std::memcmp(&ttf[12 + 16 * i], "glyf", 4) == 0) glyfAt = U32(ttf, 12 + 16 * i + 8);
        size_t at = glyfAt + U32(loca, 4 * g);
        ASSERT_EQ(int16_t((loop[at] << 8) | loop[at + 1]), -1);  // composite
        loop[at + 10 + 2] = uint8_t(g >> 8), loop[at + 10 + 3] = uint8_t(g);  // first component: itself
    }
    std::vector<Bytes> programs{loop};
    // The cmap table's subtables all pointing at one with a huge segment count.
    Bytes cmapLies = ttf;
    for (size_t i = 0; i < 40; ++i)
        if (std::memcmp(&ttf[12 + 16 * i], "cmap", 4) == 0) {
            size_t cmap = U32(ttf, 12 + 16 * i + 8), sub = cmap + U32(ttf, cmap + 4 + 4);
            cmapLies[sub + 6] = 0xff, cmapLies[sub + 7] = 0xfe;
        }
    programs.push_back(cmapLies);
    // Random damage to the small fonts.
    std::mt19937 rng(7);
    Bytes cff = BuildCff({{".notdef", "A", "B", "x1"}, {}, {0x80, 2, 'a', 'b', 1, 201, 0, 34}});
    Bytes cid = BuildCff({{}, {0, 4, 9, 12}, {}});
    Bytes small = ReadFile(kLiberation);
    {
        SfntFont f;
        std::string e;
        ASSERT_TRUE(f.Open(small, SfntKind::TrueType, e));
        small = f.Subset({36, 37}, false, e);
    }
    for (const Bytes* base : {&cff, &cid, &small})
        for (int i = 0; i < 60; ++i) {
            Bytes b = *base;
            for (int k = 0; k < 4; ++k) b[rng() % b.size()] = uint8_t(rng());
            programs.push_back(b);
        }
    int opened = 0;
    for (const Bytes& b : programs) {
        SfntFont font;
        std::string error;
        if (!font.Open(b, SfntKind::BareCff, error)) continue;
        ++opened;
        for (unsigned code : {0u, 32u, 65u, 0xf041u, 0x10000u}) {
            font.GlyphForCmap(3, 1, code);
            font.GlyphForCmap(1, 0, code);
            font.GlyphForBuiltinCode(code);
            font.GlyphForCid(code);
        }
        for (unsigned g = 0; g < 8; ++g) font.GlyphName(g), font.Advance(g);
        font.GlyphForName("A");
        Bytes sub = font.Subset({1, 2, 3, 4}, false, error);
        if (sub.empty()) {
            EXPECT_FALSE(error.empty());
        }
    }
    EXPECT_GT(opened, 2);
}

}  // namespace
