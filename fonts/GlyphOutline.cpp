#include "fonts/GlyphOutline.h"

#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_FONT_FORMATS_H
#include FT_OUTLINE_H

#include <cmath>
#include <cstring>
#include <map>

#include "content/ContentWriter.h"
#include "fonts/GlyphNames.h"
#include "fonts/StandardEncodings.h"

namespace fonts {

namespace {

constexpr FT_UShort kPlatformUnicode = 0;
constexpr FT_UShort kPlatformMac = 1;
constexpr FT_UShort kPlatformWindows = 3;
constexpr FT_UShort kPlatformBuiltin = 7;  // FreeType's maps of a Type 1 or CFF built-in encoding

// Outline points are multiplied by this before the path is walked:
// FreeType places the implied on-curve point between two quadratic
// control points at their integer midpoint, which would drop half units.
constexpr FT_Pos kPointScale = 4;
// Coordinates beyond this (in font units) are not a real glyph.
constexpr FT_Pos kMaxCoordinate = FT_Pos(1) << 24;
// Entries of a Unicode character map read when looking for a glyph's
// code point: a crafted map may cover every value.
constexpr unsigned kMaxCmapEntries = 1u << 17;

// A whole number from a product that a crafted unit size may blow up.
int Whole(double v) { return static_cast<int>(std::fmax(-1e9, std::fmin(1e9, v))); }

bool IsPrivateUse(uint32_t u) { return (u >= 0xE000 && u <= 0xF8FF) || u >= 0xF0000; }

// Writes an outline as path operators.  A line back to the contour's
// start that ends the contour is left out: filling closes every subpath.
class PathWriter {
public:
    explicit PathWriter(double scale) : m_scale(scale) {}

    static int MoveTo(const FT_Vector* to, void* user) {
        PathWriter& w = *static_cast<PathWriter*>(user);
        w.m_pendingClose = false;
        w.Point(to->x, to->y);
        w.m_out += "m\n";
        w.m_cx = w.m_sx = static_cast<double>(to->x);
        w.m_cy = w.m_sy = static_cast<double>(to->y);
        return w.Status();
    }
    static int LineTo(const FT_Vector* to, void* user) {
        PathWriter& w = *static_cast<PathWriter*>(user);
        w.Flush();
        double x = static_cast<double>(to->x), y = static_cast<double>(to->y);
        w.m_cx = x;
        w.m_cy = y;
        if (x == w.m_sx && y == w.m_sy) {
            w.m_pendingClose = true;
            return 0;
        }
        w.Point(x, y);
        w.m_out += "l\n";
        return w.Status();
    }
    static int ConicTo(const FT_Vector* control, const FT_Vector* to, void* user) {
        PathWriter& w = *static_cast<PathWriter*>(user);
        w.Flush();
        // The cubic with the same curve: its control points lie two thirds
        // of the way from each end point towards the quadratic's one.
        double qx = static_cast<double>(control->x), qy = static_cast<double>(control->y);
        double x = static_cast<double>(to->x), y = static_cast<double>(to->y);
        w.Point(w.m_cx + 2.0 / 3.0 * (qx - w.m_cx), w.m_cy + 2.0 / 3.0 * (qy - w.m_cy));
        w.Point(x + 2.0 / 3.0 * (qx - x), y + 2.0 / 3.0 * (qy - y));
        w.Point(x, y);
        w.m_out += "c\n";
        w.m_cx = x;
        w.m_cy = y;
        return w.Status();
    }
    static int CubicTo(const FT_Vector* c1, const FT_Vector* c2, const FT_Vector* to, void* user) {
        PathWriter& w = *static_cast<PathWriter*>(user);
        w.Flush();
        w.Point(c1->x, c1->y);
        w.Point(c2->x, c2->y);
        w.Point(to->x, to->y);
        w.m_out += "c\n";
        w.m_cx = static_cast<double>(to->x);
        w.m_cy = static_cast<double>(to->y);
        return w.Status();
    }

    std::string& Text() { return m_out; }

private:
    void Point(double x, double y) {
        m_out += FormatReal(x * m_scale, 1);
        m_out += ' ';
        m_out += FormatReal(y * m_scale, 1);
        m_out += ' ';
    }
    void Point(FT_Pos x, FT_Pos y) { Point(static_cast<double>(x), static_cast<double>(y)); }
    // The held-back line to the start, when the contour goes on after it.
    void Flush() {
        if (!m_pendingClose) return;
        m_pendingClose = false;
        Point(m_sx, m_sy);
        m_out += "l\n";
    }
    int Status() const { return m_out.size() > OutlineFont::kMaxPathBytes ? 1 : 0; }

    double m_scale;
    std::string m_out;
    double m_cx = 0, m_cy = 0, m_sx = 0, m_sy = 0;
    bool m_pendingClose = false;
};

}  // namespace

struct OutlineFont::Impl {
    FT_Library library = nullptr;
    FT_Face face = nullptr;
    std::vector<uint8_t> bytes;  // FreeType reads the program in place
    bool nameKeyed = false;
    bool reverseRead = false;
    std::map<unsigned, uint32_t> unicodeOf;

    ~Impl() {
        if (face) FT_Done_Face(face);
        if (library) FT_Done_FreeType(library);
    }

    FT_CharMap Charmap(FT_UShort platform, int encoding = -1) const {
        for (FT_Int i = 0; i < face->num_charmaps; ++i) {
            FT_CharMap cm = face->charmaps[i];
            if (cm->platform_id == platform && (encoding < 0 || cm->encoding_id == encoding))
                return cm;
        }
        return nullptr;
    }
    FT_CharMap UnicodeCharmap() const {
        if (FT_CharMap cm = Charmap(kPlatformWindows, 1)) return cm;
        if (FT_CharMap cm = Charmap(kPlatformWindows, 10)) return cm;
        return Charmap(kPlatformUnicode);
    }
    // The glyph `cm` maps `c` to, 0 for none (or for glyph 0).
    FT_UInt Lookup(FT_CharMap cm, FT_ULong c) const {
        if (!cm || FT_Set_Charmap(face, cm) != 0) return 0;
        FT_UInt g = FT_Get_Char_Index(face, c);
        return static_cast<FT_Long>(g) < face->num_glyphs ? g : 0;
    }
    FT_UInt ByName(const std::string& name) const {
        if (!FT_HAS_GLYPH_NAMES(face)) return 0;
        FT_UInt g = FT_Get_Name_Index(face, name.c_str());
        return static_cast<FT_Long>(g) < face->num_glyphs ? g : 0;
    }

    std::optional<unsigned> NameKeyedGlyph(uint8_t code, bool symbolic,
                                           const SimpleEncoding& enc) const {
        const std::string& name = enc.names[code];
        if (!name.empty()) {
            if (name == ".notdef") return 0u;
            if (FT_UInt g = ByName(name)) return g;
            // A name the program spells differently ("uni00C4" for
            // "Adieresis") is found through the Unicode map FreeType
            // derives from the program's names.
            if (std::optional<uint32_t> u = UnicodeForGlyphName(name))
                if (FT_UInt g = Lookup(UnicodeCharmap(), *u)) return g;
            return 0u;
        }
        // The built-in encoding.
        for (FT_Int i = 0; i < face->num_charmaps; ++i)
            if (face->charmaps[i]->platform_id == kPlatformBuiltin)
                if (FT_UInt g = Lookup(face->charmaps[i], code)) return g;
        if (symbolic) {
            for (FT_ULong c : {FT_ULong(code), FT_ULong(0xF000 + code)})
                if (FT_UInt g = Lookup(Charmap(kPlatformWindows, 0), c)) return g;
        }
        // Readers draw .notdef for a name the program lacks; in Type 1 and
        // CFF programs that glyph is as good as always blank.
        return 0u;
    }

    // A TrueType program maps codes through its character maps, the way
    // readers of simple TrueType fonts do: by the glyph name's Unicode
    // value in a Unicode map, by the code itself in a symbol map (where
    // codes may sit at 0xF000 and up), by the Mac OS Roman code of the
    // name in a Macintosh map, then by the program's own glyph names.
    std::optional<unsigned> TrueTypeGlyph(uint8_t code, bool symbolic,
                                          const SimpleEncoding& enc) const {
        std::string name = enc.names[code];
        if (name.empty() && !symbolic && kStandardEncoding[code]) name = kStandardEncoding[code];
        FT_CharMap unicode = UnicodeCharmap();
        FT_CharMap symbol = Charmap(kPlatformWindows, 0);
        FT_CharMap mac = Charmap(kPlatformMac, 0);
        bool encoded = enc.hasBase || enc.hasDifferences;
        if (unicode && !name.empty() && (!symbolic || encoded)) {
            if (std::optional<uint32_t> u = UnicodeForGlyphName(name))
                if (FT_UInt g = Lookup(unicode, *u)) return g;
        }
        for (FT_ULong base : {0x0000ul, 0xF000ul, 0xF100ul, 0xF200ul})
            if (FT_UInt g = Lookup(symbol, base + code)) return g;
        if (mac) {
            int macCode = code;
            if (!name.empty() && !symbolic) {
                macCode = -1;
                for (int c = 0; c < 256 && macCode < 0; ++c)
                    if (kMacRomanEncoding[c] && name == kMacRomanEncoding[c]) macCode = c;
            }
            if (macCode >= 0)
                if (FT_UInt g = Lookup(mac, static_cast<FT_ULong>(macCode))) return g;
        }
        if (!name.empty())
            if (FT_UInt g = ByName(name)) return g;
        if (unicode && symbolic) {
            for (FT_ULong c : {FT_ULong(code), FT_ULong(0xF000 + code)})
                if (FT_UInt g = Lookup(unicode, c)) return g;
        }
        // A program without character maps is indexed by the codes.
        if (face->num_charmaps == 0 && code < face->num_glyphs) return code;
        return std::nullopt;
    }
};

OutlineFont::OutlineFont() : m(std::make_unique<Impl>()) {}
OutlineFont::~OutlineFont() = default;

bool OutlineFont::Open(std::vector<uint8_t> program, std::string& reason) {
    m = std::make_unique<Impl>();
    m->bytes = std::move(program);
    if (m->bytes.empty()) {
        reason = "the font program is empty";
        return false;
    }
    if (FT_Init_FreeType(&m->library) != 0) {
        m->library = nullptr;
        reason = "the font engine cannot start";
        return false;
    }
    if (FT_New_Memory_Face(m->library, m->bytes.data(), static_cast<FT_Long>(m->bytes.size()), 0,
                           &m->face) != 0) {
        m->face = nullptr;
        reason = "the font program cannot be read";
        return false;
    }
    FT_Face f = m->face;
    const char* format = FT_Get_Font_Format(f);
    format = format ? format : "";
    if (std::strcmp(format, "Type 1") == 0 || std::strcmp(format, "CFF") == 0) {
        m->nameKeyed = true;
    } else if (std::strcmp(format, "TrueType") != 0) {
        reason = std::string("a font program of the format '") + format + "' is not outlined";
        return false;
    }
    if (!FT_IS_SCALABLE(f) || f->num_glyphs <= 0) {
        reason = "the font program has no outlines";
        return false;
    }
    if (FT_IS_CID_KEYED(f)) {
        reason = "the font program is CID-keyed";
        return false;
    }
    // Programs whose glyphs are assembled by their hinting instructions
    // draw garbage without them.
    if (FT_IS_TRICKY(f)) {
        reason = "the font program needs its hinting to draw";
        return false;
    }
    if (f->units_per_EM == 0) {
        reason = "the font program has no unit size";
        return false;
    }
    return true;
}

int OutlineFont::UnitsPerEm() const { return m->face ? m->face->units_per_EM : 0; }

bool OutlineFont::NameKeyed() const { return m->nameKeyed; }

std::optional<unsigned> OutlineFont::GlyphForCode(uint8_t code, bool symbolic,
                                                  const SimpleEncoding& enc) {
    if (!m->face) return std::nullopt;
    return m->nameKeyed ? m->NameKeyedGlyph(code, symbolic, enc)
                        : m->TrueTypeGlyph(code, symbolic, enc);
}

std::string OutlineFont::GlyphName(unsigned gid) const {
    if (!m->face || !FT_HAS_GLYPH_NAMES(m->face)) return "";
    char buf[128] = {};
    if (FT_Get_Glyph_Name(m->face, gid, buf, sizeof buf) != 0) return "";
    std::string name(buf, strnlen(buf, sizeof buf));
    for (char ch : name)
        if (ch <= ' ' || ch > '~') return "";
    return name;
}

std::optional<uint32_t> OutlineFont::UnicodeOf(unsigned gid) {
    if (!m->face) return std::nullopt;
    if (!m->reverseRead) {
        m->reverseRead = true;
        FT_CharMap cm = m->UnicodeCharmap();
        if (cm && FT_Set_Charmap(m->face, cm) == 0) {
            FT_UInt g = 0;
            FT_ULong c = FT_Get_First_Char(m->face, &g);
            for (unsigned n = 0; g != 0 && n < kMaxCmapEntries; ++n) {
                // Ascending order: the first value of a glyph is its lowest.
                if (c >= 0x20 && c <= 0x10FFFF && !IsPrivateUse(static_cast<uint32_t>(c)))
                    m->unicodeOf.emplace(g, static_cast<uint32_t>(c));
                c = FT_Get_Next_Char(m->face, c, &g);
            }
        }
    }
    auto it = m->unicodeOf.find(gid);
    if (it == m->unicodeOf.end()) return std::nullopt;
    return it->second;
}

bool OutlineFont::Outline(unsigned gid, double scale, GlyphPath& out, std::string& reason) {
    out = GlyphPath();
    FT_Face f = m->face;
    if (!f || static_cast<FT_Long>(gid) >= f->num_glyphs) {
        reason = "glyph " + std::to_string(gid) + " is not in the font program";
        return false;
    }
    if (FT_Load_Glyph(f, gid, FT_LOAD_NO_SCALE | FT_LOAD_NO_HINTING | FT_LOAD_NO_BITMAP) != 0 ||
        f->glyph->format != FT_GLYPH_FORMAT_OUTLINE) {
        reason = "glyph " + std::to_string(gid) + " cannot be loaded";
        return false;
    }
    out.advance = static_cast<double>(f->glyph->metrics.horiAdvance) * scale;
    FT_Outline& o = f->glyph->outline;
    if (o.n_points <= 0 || o.n_contours <= 0) return true;
    for (int i = 0; i < o.n_points; ++i) {
        FT_Vector& p = o.points[i];
        if (p.x > kMaxCoordinate || p.x < -kMaxCoordinate || p.y > kMaxCoordinate ||
            p.y < -kMaxCoordinate) {
            reason = "glyph " + std::to_string(gid) + " has coordinates out of range";
            return false;
        }
        p.x *= kPointScale;
        p.y *= kPointScale;
    }
    double k = scale / static_cast<double>(kPointScale);
    FT_BBox box;
    FT_Outline_Get_CBox(&o, &box);
    out.bbox[0] = Whole(std::floor(static_cast<double>(box.xMin) * k));
    out.bbox[1] = Whole(std::floor(static_cast<double>(box.yMin) * k));
    out.bbox[2] = Whole(std::ceil(static_cast<double>(box.xMax) * k));
    out.bbox[3] = Whole(std::ceil(static_cast<double>(box.yMax) * k));

    PathWriter writer(k);
    FT_Outline_Funcs funcs = {};
    funcs.move_to = &PathWriter::MoveTo;
    funcs.line_to = &PathWriter::LineTo;
    funcs.conic_to = &PathWriter::ConicTo;
    funcs.cubic_to = &PathWriter::CubicTo;
    if (FT_Outline_Decompose(&o, &funcs, &writer) != 0) {
        reason = "glyph " + std::to_string(gid) + " has a broken or oversized outline";
        return false;
    }
    out.ops = std::move(writer.Text());
    if (out.ops.empty()) {
        for (int& v : out.bbox) v = 0;
        return true;
    }
    // TrueType and Type 1 both fill by the nonzero winding rule; FreeType
    // flags the programs that mean even-odd.
    out.ops += (o.flags & FT_OUTLINE_EVEN_ODD_FILL) ? "f*" : "f";
    return true;
}

std::string GlyphProcedure(double width, const GlyphPath& path) {
    std::string s = FormatReal(width, 3);
    s += " 0";
    for (int v : path.bbox) {
        s += ' ';
        s += std::to_string(v);
    }
    s += " d1\n";
    s += path.ops;
    return s;
}

}  // namespace fonts
