#include "fonts/FontOutline.h"

#include <algorithm>
#include <cstdio>
#include <map>

#include "content/ContentWriter.h"
#include "fonts/FontDict.h"
#include "fonts/GlyphNames.h"
#include "fonts/GlyphOutline.h"
#include "pdfcore/CosDoc.h"

namespace fonts {

namespace {

const ASAtom K_Type = ASAtomFromString("Type");
const ASAtom K_Font = ASAtomFromString("Font");
const ASAtom K_Subtype = ASAtomFromString("Subtype");
const ASAtom K_Type3 = ASAtomFromString("Type3");
const ASAtom K_FontBBox = ASAtomFromString("FontBBox");
const ASAtom K_FontMatrix = ASAtomFromString("FontMatrix");
const ASAtom K_CharProcs = ASAtomFromString("CharProcs");
const ASAtom K_Encoding = ASAtomFromString("Encoding");
const ASAtom K_Differences = ASAtomFromString("Differences");
const ASAtom K_FirstChar = ASAtomFromString("FirstChar");
const ASAtom K_LastChar = ASAtomFromString("LastChar");
const ASAtom K_Widths = ASAtomFromString("Widths");
const ASAtom K_MissingWidth = ASAtomFromString("MissingWidth");
const ASAtom K_Resources = ASAtomFromString("Resources");
const ASAtom K_ToUnicode = ASAtomFromString("ToUnicode");

constexpr size_t kMaxProgramBytes = 64u << 20;
// Path text of all glyphs of one font past which the font stays as it is.
constexpr size_t kMaxFontPathBytes = 16u << 20;
// Glyph procedures are written in thousandths of an em, the unit of
// the widths: the Type 3 FontMatrix is then 0.001, which the writer's
// decimal numbers carry exactly, where 1/2048 would be rounded.
constexpr double kUnits = 1000;

std::string Label(const FontInfo& f) {
    if (!f.baseName.empty()) return f.baseName;
    return "object " + std::to_string(CosObjGetID(f.font));
}

// A glyph name a procedure may be called by: printable, no delimiters,
// not absurdly long.
bool UsableName(const std::string& n) {
    if (n.empty() || n.size() > 64) return false;
    for (char c : n)
        if (c <= ' ' || c > '~' ||
            std::string_view("()<>[]{}/%#").find(c) != std::string_view::npos)
            return false;
    return true;
}

// The width a viewer gives `code` of a simple font, in thousandths of an
// em: its entry in Widths, MissingWidth outside them, the program's own
// advance when the dictionary has no widths at all.
double WidthOf(const FontInfo& info, uint8_t code, double advance) {
    CosObj widths = CosDictGet(info.font, K_Widths);
    if (CosObjGetType(widths) != kCosArray) return advance;
    ASInt32 first = CosDictGetInt(info.font, K_FirstChar, 0);
    if (first >= 0 && first <= code) {
        CosObj w = CosArrayGet(widths, code - first);
        if (CosObjGetType(w) == kCosInteger || CosObjGetType(w) == kCosFixed)
            return CosFixedValue(w);
    }
    return CosDictGetNumber(info.descriptor, K_MissingWidth, 0);
}

void AppendUtf16Hex(std::string& out, uint32_t u) {
    char buf[16];
    if (u >= 0x10000) {
        u -= 0x10000;
        std::snprintf(buf, sizeof buf, "%04X%04X", 0xD800 + (u >> 10), 0xDC00 + (u & 0x3FF));
    } else {
        std::snprintf(buf, sizeof buf, "%04X", u);
    }
    out += buf;
}

// A ToUnicode CMap of one-byte codes.  Readers take only its mappings;
// the registry and name are ours.
std::string ToUnicodeCMap(const std::map<uint8_t, uint32_t>& map) {
    std::string s =
        "/CIDInit /ProcSet findresource begin\n12 dict begin\nbegincmap\n"
        "/CIDSystemInfo << /Registry (TMR) /Ordering (UCS) /Supplement 0 >> def\n"
        "/CMapName /TMR-Identity-UCS def\n/CMapType 2 def\n"
        "1 begincodespacerange\n<00> <FF>\nendcodespacerange\n";
    auto it = map.begin();
    while (it != map.end()) {
        // A bfchar block holds at most 100 entries.
        size_t n = std::min<size_t>(100, static_cast<size_t>(std::distance(it, map.end())));
        s += std::to_string(n) + " beginbfchar\n";
        for (size_t i = 0; i < n; ++i, ++it) {
            char code[8];
            std::snprintf(code, sizeof code, "<%02X> <", it->first);
            s += code;
            AppendUtf16Hex(s, it->second);
            s += ">\n";
        }
        s += "endbfchar\n";
    }
    s += "endcmap\nCMapName currentdict /CMap defineresource pop\nend\nend\n";
    return s;
}

bool ShowsPrivateUse(uint32_t u) { return (u >= 0xE000 && u <= 0xF8FF) || u >= 0xF0000; }

struct Glyph {
    unsigned gid = 0;
    std::string name;
    GlyphPath path;
    double width = 0;  // of the first code drawing it
};

class FontOutliner {
public:
    FontOutliner(CosDoc doc, const FontInfo& info, const std::set<uint32_t>& codes, int flateLevel)
        : m_doc(doc), m_info(info), m_codes(codes), m_level(flateLevel) {}

    // Rewrites the font; "" on success, else why it stays as it is.
    // `damaged` tells a program that could not be read from a font this
    // work does not apply to.
    std::string Run(bool& damaged) {
        damaged = true;
        CosDecodeOptions opts;
        opts.maxOutput = kMaxProgramBytes;
        opts.strict = true;
        bool complete = false;
        std::vector<uint8_t> bytes = CosStreamDecodedData(m_info.program, opts, &complete);
        if (!complete) return "the font program cannot be decoded";
        std::string reason;
        if (!m_font.Open(std::move(bytes), reason)) return reason;
        damaged = false;
        m_scale = kUnits / m_font.UnitsPerEm();
        m_enc = ReadSimpleEncoding(m_info.font);
        if (!(reason = Collect(damaged)).empty()) return reason;
        Rewrite();
        return "";
    }

    size_t GlyphCount() const { return m_glyphs.size(); }

private:
    // Every used code's glyph, outlined once per glyph.
    std::string Collect(bool& damaged) {
        size_t total = 0;
        std::set<std::string> names;
        for (uint32_t code32 : m_codes) {
            if (code32 > 255) return "a code is longer than one byte";
            uint8_t code = static_cast<uint8_t>(code32);
            std::optional<unsigned> gid = m_font.GlyphForCode(code, m_info.symbolic, m_enc);
            if (!gid) {
                char text[64];
                std::snprintf(text, sizeof text, "the code <%02X> reaches no glyph of the program",
                              code);
                return text;
            }
            auto known = m_byGid.find(*gid);
            if (known != m_byGid.end()) {
                m_codeGlyph[code] = known->second;
                continue;
            }
            Glyph g;
            g.gid = *gid;
            std::string reason;
            if (!m_font.Outline(g.gid, m_scale, g.path, reason)) {
                damaged = true;
                return reason;
            }
            total += g.path.ops.size();
            if (total > kMaxFontPathBytes) return "the outlines are too large";
            g.width = WidthOf(m_info, code, g.path.advance);
            g.name = ProcedureName(code, g.gid, names);
            names.insert(g.name);
            m_byGid[g.gid] = m_glyphs.size();
            m_codeGlyph[code] = m_glyphs.size();
            m_glyphs.push_back(std::move(g));
        }
        if (m_glyphs.empty()) return "no text is shown with it";
        return "";
    }

    // The encoding's name for the code, else the program's name for the
    // glyph, else "g" and the glyph number; each glyph has its own.
    std::string ProcedureName(uint8_t code, unsigned gid,
                              const std::set<std::string>& taken) const {
        for (const std::string& n : {m_enc.names[code], m_font.GlyphName(gid)})
            if (UsableName(n) && !taken.count(n)) return n;
        std::string base = "g" + std::to_string(gid);
        std::string n = base;
        for (int i = 1; taken.count(n); ++i) n = base + "." + std::to_string(i);
        return n;
    }

    CosObj Number(double v) { return CosNewNumber(m_doc, false, v); }

    void Rewrite() {
        CosObj font = m_info.font;
        bool keepToUnicode = CosDictKnown(font, K_ToUnicode);
        CosObj newToUnicode = keepToUnicode ? CosNewNull() : BuildToUnicode();

        CosObj procs = CosNewDict(m_doc, false, static_cast<ASInt32>(m_glyphs.size()));
        int box[4] = {0, 0, 0, 0};
        bool anyMarks = false;
        for (const Glyph& g : m_glyphs) {
            std::string text = GlyphProcedure(g.width, g.path);
            CosObj s = CosNewStream(m_doc, CosNewNull(), {});
            CosStreamSetDecodedData(s, {reinterpret_cast<const uint8_t*>(text.data()), text.size()},
                                    m_level);
            CosDictPut(procs, ASAtomFromString(g.name), s);
            if (g.path.ops.empty()) continue;
            if (!anyMarks) {
                std::copy(g.path.bbox, g.path.bbox + 4, box);
                anyMarks = true;
            } else {
                box[0] = std::min(box[0], g.path.bbox[0]);
                box[1] = std::min(box[1], g.path.bbox[1]);
                box[2] = std::max(box[2], g.path.bbox[2]);
                box[3] = std::max(box[3], g.path.bbox[3]);
            }
        }

        // Differences in runs of consecutive codes.
        CosObj diffs = CosNewArray(m_doc, false);
        int next = -2;
        for (const auto& [code, index] : m_codeGlyph) {
            if (code != next) CosArrayAppend(diffs, CosNewInteger(m_doc, false, code));
            CosArrayAppend(diffs, CosNewName(m_doc, false, ASAtomFromString(m_glyphs[index].name)));
            next = code + 1;
        }
        CosObj encoding = CosNewDict(m_doc, false);
        CosDictPutName(encoding, K_Type, false, K_Encoding);
        CosDictPut(encoding, K_Differences, diffs);

        // Widths over the used codes; unused codes in between keep theirs.
        int first = m_codeGlyph.begin()->first, last = m_codeGlyph.rbegin()->first;
        CosObj widths = CosNewArray(m_doc, false, last - first + 1);
        for (int c = first; c <= last; ++c) {
            auto it = m_codeGlyph.find(static_cast<uint8_t>(c));
            double advance = it != m_codeGlyph.end() ? m_glyphs[it->second].path.advance : 0;
            CosArrayAppend(widths, Number(WidthOf(m_info, static_cast<uint8_t>(c), advance)));
        }

        // Every entry of the old font but its ToUnicode goes: the
        // descriptor and its program with it (they are dropped once nothing
        // else refers to them).
        std::vector<ASAtom> keys;
        for (ASInt32 i = 0, n = CosDictCount(font); i < n; ++i)
            keys.push_back(CosDictKeyAt(font, i));
        for (ASAtom k : keys)
            if (k != K_ToUnicode) CosDictRemove(font, k);

        CosDictPutName(font, K_Type, false, K_Font);
        CosDictPutName(font, K_Subtype, false, K_Type3);
        CosObj bbox = CosNewArray(m_doc, false);
        for (int v : box) CosArrayAppend(bbox, CosNewInteger(m_doc, false, v));
        CosDictPut(font, K_FontBBox, bbox);
        CosObj matrix = CosNewArray(m_doc, false);
        for (double v : {1 / kUnits, 0.0, 0.0, 1 / kUnits, 0.0, 0.0})
            CosArrayAppend(matrix, Number(v));
        CosDictPut(font, K_FontMatrix, matrix);
        CosDictPut(font, K_CharProcs, procs);
        CosDictPut(font, K_Encoding, encoding);
        CosDictPutInteger(font, K_FirstChar, first);
        CosDictPutInteger(font, K_LastChar, last);
        CosDictPut(font, K_Widths, widths);
        CosDictPut(font, K_Resources, CosNewDict(m_doc, false));
        if (!CosObjIsNull(newToUnicode)) CosDictPut(font, K_ToUnicode, newToUnicode);
    }

    // The text each code stands for, from the encoding's glyph name, the
    // program's glyph name or the program's Unicode map; null when no
    // code has any.
    CosObj BuildToUnicode() {
        std::map<uint8_t, uint32_t> map;
        for (const auto& [code, index] : m_codeGlyph) {
            const Glyph& g = m_glyphs[index];
            std::optional<uint32_t> u = UnicodeForGlyphName(m_enc.names[code]);
            if (!u || ShowsPrivateUse(*u)) u = UnicodeForGlyphName(m_font.GlyphName(g.gid));
            if (!u || ShowsPrivateUse(*u)) u = m_font.UnicodeOf(g.gid);
            if (u && !ShowsPrivateUse(*u) && *u <= 0x10FFFF && (*u < 0xD800 || *u > 0xDFFF))
                map[code] = *u;
        }
        if (map.empty()) return CosNewNull();
        std::string text = ToUnicodeCMap(map);
        CosObj s = CosNewStream(m_doc, CosNewNull(), {});
        CosStreamSetDecodedData(s, {reinterpret_cast<const uint8_t*>(text.data()), text.size()},
                                m_level);
        return s;
    }

    CosDoc m_doc;
    const FontInfo& m_info;
    const std::set<uint32_t>& m_codes;
    int m_level;
    OutlineFont m_font;
    double m_scale = 1;
    SimpleEncoding m_enc;
    std::vector<Glyph> m_glyphs;
    std::map<unsigned, size_t> m_byGid;
    std::map<uint8_t, size_t> m_codeGlyph;  // code -> index into m_glyphs
};

// Why a font is not a candidate at all, "" when it is.
std::string Ineligible(const FontInfo& info, const DocumentGlyphUse& use) {
    if (use.incomplete) return "not all text could be read (" + use.incompleteReason + ")";
    if (use.keepWhole.count(info.font)) return "the interactive form draws with it";
    if (info.composite) return "composite fonts keep their multi-byte codes";
    switch (info.kind) {
        case FontKind::Type1:
        case FontKind::Type1C:
        case FontKind::TrueType:
        case FontKind::OpenType:
            return "";
        case FontKind::NotEmbedded:
            return "it is not embedded";
        default:
            return "its font program is of a kind not outlined";
    }
}

}  // namespace

OutlineOutcome OutlineDocumentFonts(PDDoc doc, const DocumentGlyphUse& use, int flateLevel,
                                    Log& log) {
    OutlineOutcome out;
    std::vector<FontInfo> candidates;
    for (const auto& [font, codes] : use.codes) {
        if (codes.empty() || CosObjGetType(font) != kCosDict) continue;
        FontInfo info = ReadFontInfo(font);
        if (info.kind == FontKind::Type3) continue;
        ++out.fonts;
        std::string why = Ineligible(info, use);
        if (why.empty()) {
            candidates.push_back(info);
        } else {
            out.kept.push_back({font, Label(info), why, false});
        }
    }
    if (candidates.empty()) return out;

    // The fonts are taken in the order the content first selects them,
    // so that the objects written are numbered alike run after run.
    std::vector<CosObj> order;
    std::set<CosObj> notFilled = FontsNotOnlyFilled(doc, &order);
    std::map<CosObj, size_t> rank;
    for (size_t i = 0; i < order.size(); ++i) rank.emplace(order[i], i);
    std::stable_sort(candidates.begin(), candidates.end(),
                     [&](const FontInfo& a, const FontInfo& b) {
                         auto ra = rank.find(a.font), rb = rank.find(b.font);
                         size_t ia = ra == rank.end() ? order.size() : ra->second;
                         size_t ib = rb == rank.end() ? order.size() : rb->second;
                         if (ia != ib) return ia < ib;
                         return CosObjGetID(a.font) < CosObjGetID(b.font);
                     });

    CosDoc cos = PDDocGetCosDoc(doc);
    for (const FontInfo& info : candidates) {
        if (notFilled.count(info.font)) {
            out.kept.push_back(
                {info.font, Label(info), "some of its text is not drawn by filling", false});
            continue;
        }
        std::string why;
        bool damaged = false;
        FontOutliner outliner(cos, info, use.codes.at(info.font), flateLevel);
        try {
            why = outliner.Run(damaged);
        } catch (const CVellumError& e) {
            why = e.what();
            damaged = true;
        }
        if (!why.empty()) {
            if (damaged)
                log.Warning("The font '%s' is not outlined: %s\n", Label(info).c_str(),
                            why.c_str());
            else
                log.Debug("The font '%s' is not outlined: %s\n", Label(info).c_str(), why.c_str());
            out.kept.push_back({info.font, Label(info), why, damaged});
            continue;
        }
        ++out.outlined;
        out.glyphs += static_cast<int>(outliner.GlyphCount());
        out.changedFonts.push_back(info.font);
    }
    return out;
}

}  // namespace fonts
