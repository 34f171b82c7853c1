#include "fonts/FontEmbed.h"

#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_ADVANCES_H
#include FT_CID_H
#include FT_OUTLINE_H
#include FT_TRUETYPE_TABLES_H
#include FT_TYPE1_TABLES_H

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string_view>

#include "fonts/CffTables.h"
#include "fonts/FontDict.h"
#include "fonts/GlyphNames.h"
#include "fonts/StandardEncodings.h"
#include "pdfcore/CosDoc.h"

namespace fonts {

namespace {

const ASAtom K_Type = ASAtomFromString("Type");
const ASAtom K_Subtype = ASAtomFromString("Subtype");
const ASAtom K_Type1 = ASAtomFromString("Type1");
const ASAtom K_MMType1 = ASAtomFromString("MMType1");
const ASAtom K_TrueType = ASAtomFromString("TrueType");
const ASAtom K_Type1C = ASAtomFromString("Type1C");
const ASAtom K_BaseFont = ASAtomFromString("BaseFont");
const ASAtom K_FontDescriptor = ASAtomFromString("FontDescriptor");
const ASAtom K_FontName = ASAtomFromString("FontName");
const ASAtom K_Flags = ASAtomFromString("Flags");
const ASAtom K_FontBBox = ASAtomFromString("FontBBox");
const ASAtom K_ItalicAngle = ASAtomFromString("ItalicAngle");
const ASAtom K_Ascent = ASAtomFromString("Ascent");
const ASAtom K_Descent = ASAtomFromString("Descent");
const ASAtom K_CapHeight = ASAtomFromString("CapHeight");
const ASAtom K_StemV = ASAtomFromString("StemV");
const ASAtom K_MissingWidth = ASAtomFromString("MissingWidth");
const ASAtom K_FontFile = ASAtomFromString("FontFile");
const ASAtom K_FontFile2 = ASAtomFromString("FontFile2");
const ASAtom K_FontFile3 = ASAtomFromString("FontFile3");
const ASAtom K_Length1 = ASAtomFromString("Length1");
const ASAtom K_FirstChar = ASAtomFromString("FirstChar");
const ASAtom K_LastChar = ASAtomFromString("LastChar");
const ASAtom K_Widths = ASAtomFromString("Widths");
const ASAtom K_Encoding = ASAtomFromString("Encoding");
const ASAtom K_BaseEncoding = ASAtomFromString("BaseEncoding");
const ASAtom K_Differences = ASAtomFromString("Differences");
const ASAtom K_WinAnsiEncoding = ASAtomFromString("WinAnsiEncoding");

// Descriptor flags.
constexpr ASInt32 kFixedPitch = 1, kSerif = 2, kSymbolic = 4, kItalic = 64, kNonsymbolic = 32;

// Installed files larger than this are not embedded (no text face is).
constexpr size_t kMaxFontFileBytes = 64u << 20;

// ------------------------------------------------------------ font files

uint32_t Be32(std::span<const uint8_t> b, size_t at) {
    return uint32_t(b[at]) << 24 | uint32_t(b[at + 1]) << 16 | uint32_t(b[at + 2]) << 8 | b[at + 3];
}

bool IsBlank(uint8_t c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f'; }

int HexValue(uint8_t c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

bool Fail(std::string& error, const char* why) {
    error = why;
    return false;
}

// A PFB file: segments of clear text (type 1) and binary data (type 2),
// each behind a six-byte header, ending with a type 3 marker.
bool Type1FromPfb(std::span<const uint8_t> file, EmbeddableProgram& out, std::string& error) {
    std::array<std::vector<uint8_t>, 3> parts;
    size_t part = 0;
    size_t at = 0;
    while (at < file.size()) {
        if (file.size() - at < 2 || file[at] != 0x80) return Fail(error, "a PFB segment header is broken");
        const uint8_t type = file[at + 1];
        if (type == 3) break;
        if ((type != 1 && type != 2) || file.size() - at < 6) return Fail(error, "a PFB segment header is broken");
        const size_t length = uint32_t(file[at + 2]) | uint32_t(file[at + 3]) << 8 | uint32_t(file[at + 4]) << 16 |
                              uint32_t(file[at + 5]) << 24;
        at += 6;
        if (length > file.size() - at) return Fail(error, "a PFB segment runs past the end of the file");
        if (type == 2) {
            if (part == 2) return Fail(error, "the PFB file has binary data after its trailer");
            part = 1;
        } else if (part == 1) {
            part = 2;
        }
        parts[part].insert(parts[part].end(), file.begin() + at, file.begin() + at + length);
        at += length;
    }
    if (parts[0].empty() || parts[1].size() < 4) return Fail(error, "the PFB file has no encrypted part");
    out.bytes = parts[0];
    out.bytes.insert(out.bytes.end(), parts[1].begin(), parts[1].end());
    out.bytes.insert(out.bytes.end(), parts[2].begin(), parts[2].end());
    out.length1 = parts[0].size();
    out.length2 = parts[1].size();
    out.length3 = parts[2].size();
    return true;
}

// A PFA file, or a clear-text file with a binary encrypted part: the clear
// text up to the line end after "eexec", the encrypted part, and a trailer
// of 512 zeros before "cleartomark".  The encrypted part is stored binary,
// as PDF readers expect it and as it compresses best.
bool Type1FromPfa(std::span<const uint8_t> file, EmbeddableProgram& out, std::string& error) {
    std::string_view text(reinterpret_cast<const char*>(file.data()), file.size());
    if (text.substr(0, 2) != "%!") return Fail(error, "the file is not a Type 1 font");
    const size_t eexec = text.find("eexec");
    const size_t mark = text.rfind("cleartomark");
    if (eexec == std::string_view::npos || mark == std::string_view::npos || mark < eexec)
        return Fail(error, "the file has no encrypted part");
    size_t start = eexec + 5;
    while (start < mark && IsBlank(file[start])) ++start;
    // Hexadecimal when the first four bytes are hex digits, as readers decide.
    bool hex = mark - start >= 4;
    for (size_t i = start; hex && i < start + 4; ++i) hex = HexValue(file[i]) >= 0;
    std::vector<uint8_t> encrypted;
    size_t trailerZeros = 0;
    if (hex) {
        int high = -1;
        for (size_t i = start; i < mark; ++i) {
            if (IsBlank(file[i])) continue;
            const int v = HexValue(file[i]);
            if (v < 0) return Fail(error, "the encrypted part holds a character that is not hexadecimal");
            if (high < 0) {
                high = v;
            } else {
                encrypted.push_back(static_cast<uint8_t>(high << 4 | v));
                high = -1;
            }
        }
        // The trailer's zeros read as zero bytes; at most 256 of them are
        // the trailer, any more end the encrypted data.
        while (trailerZeros < 256 && trailerZeros < encrypted.size() &&
               encrypted[encrypted.size() - 1 - trailerZeros] == 0)
            ++trailerZeros;
        encrypted.resize(encrypted.size() - trailerZeros);
    } else {
        size_t end = mark;
        while (end > start && (IsBlank(file[end - 1]) || (file[end - 1] == '0' && trailerZeros < 512))) {
            if (file[end - 1] == '0') ++trailerZeros;
            --end;
        }
        encrypted.assign(file.begin() + start, file.begin() + end);
    }
    if (encrypted.size() < 4) return Fail(error, "the encrypted part is empty");
    std::string trailer;
    for (int line = 0; line < 8; ++line) trailer += std::string(64, '0') + "\n";
    trailer += text.substr(mark);
    out.bytes.assign(file.begin(), file.begin() + start);
    out.bytes.insert(out.bytes.end(), encrypted.begin(), encrypted.end());
    out.bytes.insert(out.bytes.end(), trailer.begin(), trailer.end());
    out.length1 = start;
    out.length2 = encrypted.size();
    out.length3 = trailer.size();
    return true;
}

// The table `tag` of an sfnt, or an empty span.
std::span<const uint8_t> SfntTable(std::span<const uint8_t> file, uint32_t tag) {
    if (file.size() < 12) return {};
    const size_t count = size_t(file[4]) << 8 | file[5];
    if (file.size() < 12 + 16 * count) return {};
    for (size_t i = 0; i < count; ++i) {
        const size_t rec = 12 + 16 * i;
        if (Be32(file, rec) != tag) continue;
        const size_t offset = Be32(file, rec + 8), length = Be32(file, rec + 12);
        if (offset > file.size() || length > file.size() - offset) return {};
        return file.subspan(offset, length);
    }
    return {};
}

constexpr uint32_t Tag(const char (&t)[5]) {
    return uint32_t(uint8_t(t[0])) << 24 | uint32_t(uint8_t(t[1])) << 16 | uint32_t(uint8_t(t[2])) << 8 |
           uint8_t(t[3]);
}

bool ReadFile(const std::string& path, std::vector<uint8_t>& out, std::string& error) {
    FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) return Fail(error, "the file cannot be opened");
    out.clear();
    uint8_t buffer[65536];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0) {
        if (out.size() + n > kMaxFontFileBytes) {
            std::fclose(f);
            return Fail(error, "the file is too large");
        }
        out.insert(out.end(), buffer, buffer + n);
    }
    const bool bad = std::ferror(f) != 0;
    std::fclose(f);
    return bad ? Fail(error, "the file cannot be read") : true;
}

// ------------------------------------------------------------ installed fonts

// An installed font read for embedding: the program a PDF will carry, a
// FreeType face over exactly those bytes (glyph names, encodings and
// advances as viewers will see them), and one over the whole file for the
// descriptor's metrics (the OpenType tables a bare CFF does not have).
struct LoadedFont {
    SystemFont sys;
    std::vector<uint8_t> file;
    EmbeddableProgram program;
    FT_Face programFace = nullptr;
    FT_Face fileFace = nullptr;  // the same face as programFace unless the program is a CFF table
    bool blankNotdef = false;    // glyph 0 draws nothing
    std::string error;           // the font cannot be used when set
    CosObj stream = nullptr;     // the program stream, made when a font first takes it
    std::map<std::string, CosObj> descriptors;  // new descriptors by FontName and flags

    ~LoadedFont() {
        if (fileFace && fileFace != programFace) FT_Done_Face(fileFace);
        if (programFace) FT_Done_Face(programFace);
    }

    bool IsTrueType() const { return sys.format == FontFileFormat::TrueType; }

    double Scale(FT_Face face) const { return face->units_per_EM ? 1000.0 / face->units_per_EM : 1.0; }

    std::optional<unsigned> ByName(const std::string& name) const {
        if (!FT_HAS_GLYPH_NAMES(programFace)) return std::nullopt;
        const FT_UInt g = FT_Get_Name_Index(programFace, name.c_str());
        if (g == 0 && name != ".notdef") return std::nullopt;
        return g;
    }

    // A code through the charmap of `platform` (the built-in encoding of a
    // Type 1 or CFF program is FreeType's platform 7) and, when not
    // negative, `encoding`.
    std::optional<unsigned> ByCode(unsigned platform, int encoding, uint32_t code) const {
        for (FT_Int i = 0; i < programFace->num_charmaps; ++i) {
            FT_CharMap cm = programFace->charmaps[i];
            if (cm->platform_id != platform || (encoding >= 0 && cm->encoding_id != encoding)) continue;
            if (FT_Set_Charmap(programFace, cm) != 0) continue;
            const FT_UInt g = FT_Get_Char_Index(programFace, code);
            if (g != 0) return g;
        }
        return std::nullopt;
    }
    std::optional<unsigned> Builtin(uint32_t code) const { return ByCode(7, -1, code); }
    std::optional<unsigned> Unicode(uint32_t u) const {
        if (auto g = ByCode(3, 1, u)) return g;
        return ByCode(3, 10, u);
    }

    double Advance(unsigned gid) const {
        FT_Fixed advance = 0;
        if (FT_Get_Advance(programFace, gid, FT_LOAD_NO_SCALE, &advance) != 0) return 0;
        return static_cast<double>(advance) * Scale(programFace);
    }
};

bool OpenFace(FT_Library lib, const std::vector<uint8_t>& bytes, FT_Face& face) {
    return FT_New_Memory_Face(lib, bytes.data(), static_cast<FT_Long>(bytes.size()), 0, &face) == 0;
}

void LoadFont(FT_Library lib, LoadedFont& f) {
    std::string error;
    if (!ReadFile(f.sys.path, f.file, error) || !ProgramFromFontFile(f.file, f.sys.format, f.program, error)) {
        f.error = error;
        return;
    }
    if (!OpenFace(lib, f.program.bytes, f.programFace)) {
        f.error = "FreeType cannot open its program";
        return;
    }
    if (f.sys.format == FontFileFormat::OpenTypeCff) {
        if (!OpenFace(lib, f.file, f.fileFace)) {
            f.error = "FreeType cannot open the file";
            return;
        }
        FT_Bool cid = 0;
        if (FT_Get_CID_Is_Internally_CID_Keyed(f.programFace, &cid) == 0 && cid) {
            f.error = "its CFF program is CID-keyed";
            return;
        }
    } else {
        f.fileFace = f.programFace;
    }
    if (!FT_IS_SCALABLE(f.programFace) || f.programFace->num_glyphs <= 0) {
        f.error = "it has no outlines";
        return;
    }
    f.blankNotdef = FT_Load_Glyph(f.programFace, 0, FT_LOAD_NO_SCALE) == 0 &&
                    f.programFace->glyph->format == FT_GLYPH_FORMAT_OUTLINE &&
                    f.programFace->glyph->outline.n_points == 0;
}

// ------------------------------------------------------------ descriptor metrics

// A CFF program's StdVW, which FreeType does not give for CFF.
std::optional<double> CffStdVW(std::span<const uint8_t> program) {
    cff::CffInfo info;
    std::string error;
    if (!cff::ReadCff(program, info, error)) return std::nullopt;
    for (const cff::DictEntry& e : info.topDict) {
        if (e.op != cff::kOpPrivate || e.operands.size() != 2) continue;
        const double size = e.operands[0], offset = e.operands[1];
        if (!(size > 0 && offset >= 0 && offset + size <= static_cast<double>(program.size()))) return std::nullopt;
        std::vector<cff::DictEntry> priv;
        if (!cff::ReadDict(program.subspan(static_cast<size_t>(offset), static_cast<size_t>(size)), priv, error))
            return std::nullopt;
        for (const cff::DictEntry& p : priv)
            if (p.op == 11 && p.operands.size() == 1 && p.operands[0] > 0) return p.operands[0];
    }
    return std::nullopt;
}

struct Metrics {
    std::array<double, 4> bbox{};
    double italicAngle = 0, ascent = 0, descent = 0, capHeight = 0, stemV = 0;
    bool fixedPitch = false, italic = false;
};

std::optional<std::array<double, 4>> GlyphBox(const LoadedFont& f, const char* name) {
    std::optional<unsigned> g;
    if (f.IsTrueType()) {
        if (auto u = UnicodeForGlyphName(name)) g = f.Unicode(*u);
    } else {
        g = f.ByName(name);
    }
    if (!g || *g == 0) return std::nullopt;
    if (FT_Load_Glyph(f.programFace, *g, FT_LOAD_NO_SCALE) != 0 ||
        f.programFace->glyph->format != FT_GLYPH_FORMAT_OUTLINE)
        return std::nullopt;
    FT_BBox box;
    FT_Outline_Get_CBox(&f.programFace->glyph->outline, &box);
    const double s = f.Scale(f.programFace);
    return std::array<double, 4>{box.xMin * s, box.yMin * s, box.xMax * s, box.yMax * s};
}

Metrics MeasureFont(const LoadedFont& f) {
    Metrics m;
    FT_Face face = f.fileFace;
    const double s = f.Scale(face);
    m.bbox = {face->bbox.xMin * s, face->bbox.yMin * s, face->bbox.xMax * s, face->bbox.yMax * s};
    m.fixedPitch = FT_IS_FIXED_WIDTH(face);
    m.italic = (face->style_flags & FT_STYLE_FLAG_ITALIC) != 0;
    PS_FontInfoRec info;
    if (auto* post = static_cast<TT_Postscript*>(FT_Get_Sfnt_Table(face, FT_SFNT_POST)))
        m.italicAngle = static_cast<double>(post->italicAngle) / 65536.0;
    else if (FT_Get_PS_Font_Info(face, &info) == 0)
        m.italicAngle = static_cast<double>(info.italic_angle);
    if (m.italicAngle != 0) m.italic = true;
    // TrueType writers give the horizontal header's values; PostScript
    // fonts' metrics files take the tops of "d" and "H" and the bottom of "p".
    m.ascent = face->ascender * s;
    m.descent = face->descender * s;
    if (!f.IsTrueType()) {
        if (auto d = GlyphBox(f, "d")) m.ascent = (*d)[3];
        if (auto p = GlyphBox(f, "p")) m.descent = (*p)[1];
    }
    auto* os2 = static_cast<TT_OS2*>(FT_Get_Sfnt_Table(face, FT_SFNT_OS2));
    if (os2 && os2->version != 0xFFFF && os2->version >= 2 && os2->sCapHeight > 0) m.capHeight = os2->sCapHeight * s;
    else if (auto h = GlyphBox(f, "H")) m.capHeight = (*h)[3];
    else m.capHeight = m.ascent;
    // The dominant vertical stem: the Private dictionary's StdVW when the
    // program has one, else an estimate from the weight.
    PS_PrivateRec priv;
    std::optional<double> cffStem;
    if (f.sys.format == FontFileFormat::OpenTypeCff) cffStem = CffStdVW(f.program.bytes);
    if (cffStem) {
        m.stemV = *cffStem * f.Scale(f.programFace);
    } else if (FT_Get_PS_Font_Private(f.programFace, &priv) == 0 && priv.standard_width[0] > 0) {
        m.stemV = priv.standard_width[0] * f.Scale(f.programFace);
    } else {
        double weight = (face->style_flags & FT_STYLE_FLAG_BOLD) ? 700 : 400;
        if (os2 && os2->version != 0xFFFF && os2->usWeightClass > 0) weight = os2->usWeightClass;
        m.stemV = 50 + (weight / 65) * (weight / 65);
    }
    return m;
}

// ------------------------------------------------------------ PDF values

std::optional<double> NumberOf(CosObj o) {
    CosType t = CosObjGetType(o);
    if (t == kCosInteger) return static_cast<double>(CosInteger64Value(o));
    if (t == kCosFixed) return CosFixedValue(o);
    return std::nullopt;
}

bool IsDict(CosObj o) { return CosObjGetType(o) == kCosDict; }

std::string Format(double v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.4g", v);
    return buf;
}

// ------------------------------------------------------------ the work

struct Candidate {
    FontInfo info;
    std::string name;  // BaseFont as written
    LoadedFont* font = nullptr;
    bool symbolic = false;
    // The glyph name each code is meant to draw; "" where the program's
    // own encoding decides.  `given` marks the names the PDF's encoding
    // spells (as opposed to the default encoding filling in).
    std::array<std::string, 256> names;
    std::array<bool, 256> given{};
    bool hasBase = false;
    std::string reason;  // why it stays as it is; "" when it is embedded
};

class Embedder {
public:
    Embedder(PDDoc doc, const DocumentGlyphUse& use, int level, Log& log)
        : m_doc(doc), m_use(use), m_level(level), m_log(log) {
        if (FT_Init_FreeType(&m_lib) != 0) m_lib = nullptr;
    }
    ~Embedder() {
        m_fonts.clear();  // faces before the library
        if (m_lib) FT_Done_FreeType(m_lib);
    }

    EmbedOutcome Run() {
        std::vector<Candidate> cands;
        // Every font content selects, even to show no glyph (an empty form
        // field's appearance), and those a form filler will write with:
        // archiving rules ask for every font a page refers to.  A font that
        // shows nothing costs its .notdef glyph once subset.
        std::set<CosObj> wanted = m_use.keepWhole;
        for (const auto& entry : m_use.codes) wanted.insert(entry.first);
        for (CosObj font : wanted) {
            if (CosObjGetType(font) != kCosDict) continue;
            FontInfo info = ReadFontInfo(font);
            if (info.kind != FontKind::NotEmbedded) continue;
            Candidate c;
            c.info = info;
            cands.push_back(std::move(c));
        }
        // The use map is ordered by handle; object numbers give the same
        // order, and the same messages, on every run.
        std::stable_sort(cands.begin(), cands.end(), [](const Candidate& a, const Candidate& b) {
            return CosObjGetID(a.info.font) < CosObjGetID(b.info.font);
        });
        for (Candidate& c : cands) Decide(c);
        Agree(cands);
        for (Candidate& c : cands) {
            ++m_out.candidates;
            if (!c.reason.empty()) {
                const std::string label = c.name.empty() ? "object " + std::to_string(CosObjGetID(c.info.font)) : c.name;
                m_log.Warning("The font '%s' is not embedded: %s\n", label.c_str(), c.reason.c_str());
                m_out.leftOut.push_back(label + ": " + c.reason);
                continue;
            }
            Apply(c);
            ++m_out.embedded;
            m_out.changedFonts.push_back(c.info.font);
        }
        return m_out;
    }

private:
    LoadedFont* Load(const SystemFont& sys) {
        auto [it, fresh] = m_fonts.try_emplace(sys.path);
        if (fresh) {
            it->second = std::make_unique<LoadedFont>();
            it->second->sys = sys;
            if (m_lib) LoadFont(m_lib, *it->second);
            else it->second->error = "FreeType cannot be started";
        }
        return it->second.get();
    }

    const char* const* KnownBuiltin(const LoadedFont& f) const {
        if (!f.sys.metricCompatible || !f.sys.symbolic) return nullptr;
        return f.sys.postScriptName == "D050000L" ? kZapfDingbatsEncoding : kSymbolEncoding;
    }

    // The glyph a code draws once the program is embedded, or nullopt with
    // the reason.  Glyph 0 stands for a code that draws nothing, in the
    // missing font as in the embedded one: allowed where the program's
    // .notdef glyph is blank.
    std::optional<unsigned> GlyphFor(const Candidate& c, uint32_t code, std::string& why) const {
        const LoadedFont& f = *c.font;
        const std::string& name = c.names[code];
        const std::string what = "code " + std::to_string(code) + (name.empty() ? "" : " ('" + name + "')");
        if (name.empty() && (f.IsTrueType() || !f.Builtin(code))) {
            if (f.blankNotdef) return 0u;
            why = what + " names no glyph, and the installed font " + f.sys.postScriptName + " draws a box for it";
            return std::nullopt;
        }
        if (f.IsTrueType()) {
            // The names reach a TrueType program's glyphs through Unicode.
            std::optional<uint32_t> u = UnicodeForGlyphName(name);
            std::optional<unsigned> g = u ? f.Unicode(*u) : std::nullopt;
            if (!g) why = "the installed font " + f.sys.postScriptName + " has no glyph for " + what;
            return g;
        }
        if (name.empty()) return f.Builtin(code);
        std::optional<unsigned> g = f.ByName(name);
        if (!g) {
            why = "the installed font " + f.sys.postScriptName + " has no glyph for " + what;
            return std::nullopt;
        }
        // Where the PDF names no glyph, a viewer takes the embedded
        // program's own encoding: it must agree with the default the
        // missing program had.
        if (!c.given[code] && f.Builtin(code) != g) {
            why = "the installed font's own encoding does not give " + what;
            return std::nullopt;
        }
        return g;
    }

    void Decide(Candidate& c) {
        CosObj font = c.info.font;
        c.name = ASAtomGetString(CosDictGetName(font, K_BaseFont));
        if (c.info.composite) {
            c.reason = "composite fonts are not embedded";
            return;
        }
        const ASAtom subtype = CosDictGetName(font, K_Subtype);
        if (subtype != K_Type1 && subtype != K_MMType1 && subtype != K_TrueType) {
            c.reason = "fonts of this type are not embedded";
            return;
        }
        if (c.name.empty()) {
            c.reason = "it has no name";
            return;
        }
        std::string why;
        std::optional<SystemFont> sys = FindSystemFont(c.name, &why);
        if (!sys) {
            c.reason = why;
            return;
        }
        c.font = Load(*sys);
        if (!c.font->error.empty()) {
            c.reason = "the installed font " + sys->path + " cannot be used: " + c.font->error;
            return;
        }
        const LoadedFont& f = *c.font;
        if (sys->metricCompatible) {
            c.symbolic = sys->symbolic;
        } else {
            const ASInt32 flags = IsDict(c.info.descriptor) ? CosDictGetInt(c.info.descriptor, K_Flags, 0) : 0;
            c.symbolic = (flags & kSymbolic) && !(flags & kNonsymbolic);
        }
        if (c.symbolic && f.IsTrueType()) {
            c.reason = "the installed font " + sys->postScriptName + " is TrueType, which cannot draw a symbolic font's codes";
            return;
        }
        SimpleEncoding enc = ReadSimpleEncoding(font);
        c.hasBase = enc.hasBase;
        const char* const* builtin = KnownBuiltin(f);
        for (size_t code = 0; code < 256; ++code) {
            c.given[code] = !enc.names[code].empty();
            if (c.given[code]) c.names[code] = enc.names[code];
            else if (builtin && builtin[code]) c.names[code] = builtin[code];
            else if (!c.symbolic && kStandardEncoding[code]) c.names[code] = kStandardEncoding[code];
        }
        CheckGlyphs(c);
    }

    void CheckGlyphs(Candidate& c) {
        CosObj font = c.info.font;
        CosObj widths = CosDictGet(font, K_Widths);
        const bool hasWidths = CosObjGetType(widths) == kCosArray && CosArrayLength(widths) > 0;
        if (!hasWidths && !c.font->sys.metricCompatible) {
            c.reason = "it has no widths to check the installed font " + c.font->sys.postScriptName + " against";
            return;
        }
        const ASInt32 first = CosDictGetInt(font, K_FirstChar, 0);
        const double missing = IsDict(c.info.descriptor) ? CosDictGetNumber(c.info.descriptor, K_MissingWidth, 0) : 0;
        std::set<uint32_t> codes;
        if (auto shown = m_use.codes.find(font); shown != m_use.codes.end())
            for (uint32_t code : shown->second)
                if (code < 256) codes.insert(code);
        // A font a form filler may write any text with, or any font when
        // some content could not be read, must draw every code its
        // encoding names.
        if (m_use.incomplete || m_use.keepWhole.count(font)) {
            const int64_t last = hasWidths ? int64_t(first) + CosArrayLength(widths) - 1 : 255;
            for (int64_t code = std::max<int64_t>(0, first); code <= std::min<int64_t>(255, last); ++code)
                if (!c.names[static_cast<size_t>(code)].empty()) codes.insert(static_cast<uint32_t>(code));
        }
        for (uint32_t code : codes) {
            std::string why;
            std::optional<unsigned> g = GlyphFor(c, code, why);
            if (!g) {
                c.reason = why;
                return;
            }
            if (!hasWidths || *g == 0) continue;
            const int64_t index = int64_t(code) - first;
            std::optional<double> w = index >= 0 && index < CosArrayLength(widths)
                                          ? NumberOf(CosArrayGet(widths, static_cast<ASInt32>(index)))
                                          : std::optional<double>(missing);
            const double pdf = w.value_or(0), own = c.font->Advance(*g);
            if (std::fabs(own - pdf) > std::max(1.0, 0.01 * std::fabs(pdf))) {
                const std::string& name = c.names[code];
                c.reason = "the width of code " + std::to_string(code) + (name.empty() ? "" : " ('" + name + "')") +
                           " is " + Format(pdf) + " in the PDF but " + Format(own) + " in the installed font " +
                           c.font->sys.postScriptName;
                return;
            }
        }
    }

    // Fonts sharing a descriptor share its program: all of them are
    // embedded from one file, or none is.
    void Agree(std::vector<Candidate>& cands) {
        std::map<CosObj, std::vector<Candidate*>> byDescriptor;
        for (Candidate& c : cands)
            if (IsDict(c.info.descriptor)) byDescriptor[c.info.descriptor].push_back(&c);
        for (auto& [desc, group] : byDescriptor) {
            if (group.size() < 2) continue;
            const Candidate* bad = nullptr;
            for (const Candidate* c : group)
                if (!c->reason.empty() || c->font != group.front()->font) bad = c;
            if (!bad) continue;
            for (Candidate* c : group)
                if (c->reason.empty())
                    c->reason = "it shares its descriptor with the font '" + bad->name + "', which cannot be embedded";
        }
    }

    CosObj ProgramStream(LoadedFont& f) {
        if (f.stream) return f.stream;
        CosDoc cos = PDDocGetCosDoc(m_doc);
        CosObj dict = CosNewDict(cos, false);
        switch (f.sys.format) {
        case FontFileFormat::Type1:
            PutType1Lengths(dict, f.program);
            break;
        case FontFileFormat::OpenTypeCff:
            CosDictPutName(dict, K_Subtype, false, K_Type1C);
            break;
        case FontFileFormat::TrueType:
            CosDictPutInteger(dict, K_Length1, static_cast<ASInt32>(f.program.bytes.size()));
            break;
        }
        f.stream = CosNewStream(cos, dict, {});
        CosStreamSetDecodedData(f.stream, f.program.bytes, m_level);
        return f.stream;
    }

    ASAtom ProgramKey(const LoadedFont& f) const {
        switch (f.sys.format) {
        case FontFileFormat::Type1:
            return K_FontFile;
        case FontFileFormat::OpenTypeCff:
            return K_FontFile3;
        case FontFileFormat::TrueType:
            return K_FontFile2;
        }
        return K_FontFile;
    }

    void Apply(Candidate& c) {
        LoadedFont& f = *c.font;
        CosObj font = c.info.font;
        CosDoc cos = PDDocGetCosDoc(m_doc);
        auto number = [&](double v) { return CosNewNumber(cos, false, v); };
        const Metrics& m = MetricsOf(f);

        // A descriptor of the font's own is completed; one is made (and
        // shared by the fonts of the same name) where there is none.
        CosObj desc = c.info.descriptor;
        const bool fresh = !IsDict(desc);
        ASInt32 flags = fresh ? 0 : CosDictGetInt(desc, K_Flags, 0);
        if (fresh || !CosDictKnown(desc, K_Flags)) {
            if (m.fixedPitch) flags |= kFixedPitch;
            if (f.sys.serif) flags |= kSerif;
            if (m.italic) flags |= kItalic;
        }
        flags = (flags & ~(kSymbolic | kNonsymbolic)) | (c.symbolic ? kSymbolic : kNonsymbolic);
        if (fresh) {
            const std::string key = c.name + "/" + std::to_string(flags);
            CosObj& shared = f.descriptors[key];
            if (!shared) {
                shared = CosNewDict(cos, true);
                CosDictPutName(shared, K_Type, false, K_FontDescriptor);
            }
            desc = shared;
            CosDictPut(font, K_FontDescriptor, desc);
        }
        CosDictPutInteger(desc, K_Flags, flags);
        // Values a descriptor already has describe the font the document
        // was made with, and stay.
        auto missing = [&](ASAtom key) { return !CosDictKnown(desc, key); };
        if (missing(K_FontName)) CosDictPutName(desc, K_FontName, false, ASAtomFromString(c.name));
        if (missing(K_FontBBox)) {
            CosObj bbox = CosNewArray(cos, false);
            for (size_t i = 0; i < 4; ++i)
                CosArrayAppend(bbox, number(i < 2 ? std::floor(m.bbox[i]) : std::ceil(m.bbox[i])));
            CosDictPut(desc, K_FontBBox, bbox);
        }
        const std::pair<ASAtom, double> values[] = {
            {K_ItalicAngle, std::round(m.italicAngle * 100) / 100}, {K_Ascent, std::round(m.ascent)},
            {K_Descent, std::round(m.descent)}, {K_CapHeight, std::round(m.capHeight)}, {K_StemV, std::round(m.stemV)}};
        for (auto [key, value] : values)
            if (missing(key)) CosDictPut(desc, key, number(value));
        for (ASAtom k : {K_FontFile, K_FontFile2, K_FontFile3}) CosDictRemove(desc, k);
        CosDictPut(desc, ProgramKey(f), ProgramStream(f));

        const ASAtom subtype = f.IsTrueType() ? K_TrueType : K_Type1;
        if (CosDictGetName(font, K_Subtype) != subtype) CosDictPutName(font, K_Subtype, false, subtype);
        CosObj widths = CosDictGet(font, K_Widths);
        if (CosObjGetType(widths) != kCosArray || CosArrayLength(widths) == 0) PutWidths(c);
        if (f.IsTrueType() && !c.hasBase) PutUnicodeEncoding(c);
    }

    const Metrics& MetricsOf(const LoadedFont& f) {
        auto [it, fresh] = m_metrics.try_emplace(&f);
        if (fresh) it->second = MeasureFont(f);
        return it->second;
    }

    // Widths for every code the encoding reaches, so that every viewer
    // spaces the text by the embedded program.
    void PutWidths(const Candidate& c) {
        std::array<double, 256> w{};
        int first = -1, last = -1;
        for (uint32_t code = 0; code < 256; ++code) {
            std::string why;
            std::optional<unsigned> g = GlyphFor(c, code, why);
            if (!g || *g == 0) continue;
            w[code] = std::round(c.font->Advance(*g));
            if (first < 0) first = static_cast<int>(code);
            last = static_cast<int>(code);
        }
        if (first < 0) return;
        CosDoc cos = PDDocGetCosDoc(m_doc);
        CosObj arr = CosNewArray(cos, false, last - first + 1);
        for (int code = first; code <= last; ++code)
            CosArrayAppend(arr, CosNewNumber(cos, false, w[static_cast<size_t>(code)]));
        CosDictPutInteger(c.info.font, K_FirstChar, first);
        CosDictPutInteger(c.info.font, K_LastChar, last);
        CosDictPut(c.info.font, K_Widths, arr);
    }

    // Without a base encoding, viewers disagree on how a TrueType
    // program's glyphs are reached.  With WinAnsiEncoding as the base and
    // the codes that mean something else listed as differences, every
    // viewer goes from the glyph names to the program's Unicode map.
    void PutUnicodeEncoding(const Candidate& c) {
        std::vector<std::pair<int, std::string>> changes;
        for (int code = 0; code < 256; ++code) {
            const std::string& want = c.names[static_cast<size_t>(code)];
            const char* win = kWinAnsiEncoding[code];
            if (want == (win ? win : "")) continue;
            changes.emplace_back(code, want.empty() ? ".notdef" : want);
        }
        if (changes.empty()) {
            CosDictPutName(c.info.font, K_Encoding, false, K_WinAnsiEncoding);
            return;
        }
        CosDoc cos = PDDocGetCosDoc(m_doc);
        CosObj diffs = CosNewArray(cos, false);
        int previous = -2;
        for (const auto& [code, name] : changes) {
            if (code != previous + 1) CosArrayAppend(diffs, CosNewInteger(cos, false, code));
            CosArrayAppend(diffs, CosNewName(cos, false, ASAtomFromString(name)));
            previous = code;
        }
        CosObj enc = CosNewDict(cos, false);
        CosDictPutName(enc, K_Type, false, K_Encoding);
        CosDictPutName(enc, K_BaseEncoding, false, K_WinAnsiEncoding);
        CosDictPut(enc, K_Differences, diffs);
        CosDictPut(c.info.font, K_Encoding, enc);
    }

    PDDoc m_doc;
    const DocumentGlyphUse& m_use;
    int m_level;
    Log& m_log;
    FT_Library m_lib = nullptr;
    std::map<std::string, std::unique_ptr<LoadedFont>> m_fonts;
    std::map<const LoadedFont*, Metrics> m_metrics;
    EmbedOutcome m_out;
};

}  // namespace

bool ProgramFromFontFile(std::span<const uint8_t> file, FontFileFormat format, EmbeddableProgram& out,
                         std::string& error) {
    out = EmbeddableProgram{};
    switch (format) {
    case FontFileFormat::Type1:
        if (!file.empty() && file[0] == 0x80) return Type1FromPfb(file, out, error);
        return Type1FromPfa(file, out, error);
    case FontFileFormat::OpenTypeCff: {
        if (file.size() < 12 || Be32(file, 0) != Tag("OTTO")) return Fail(error, "the file is not an OpenType CFF font");
        std::span<const uint8_t> cff = SfntTable(file, Tag("CFF "));
        if (cff.size() < 4) return Fail(error, "the file has no CFF table");
        out.bytes.assign(cff.begin(), cff.end());
        return true;
    }
    case FontFileFormat::TrueType: {
        const uint32_t version = file.size() >= 12 ? Be32(file, 0) : 0;
        if (version != 0x00010000 && version != Tag("true")) return Fail(error, "the file is not a TrueType font");
        if (SfntTable(file, Tag("glyf")).empty()) return Fail(error, "the file has no TrueType outlines");
        out.bytes.assign(file.begin(), file.end());
        out.length1 = file.size();
        return true;
    }
    }
    return Fail(error, "unknown font format");
}

EmbedOutcome EmbedDocumentFonts(PDDoc doc, const DocumentGlyphUse& use, int flateLevel, Log& log) {
    return Embedder(doc, use, flateLevel, log).Run();
}

}  // namespace fonts
