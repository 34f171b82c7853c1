#include "fonts/FontSubset.h"

#include <algorithm>
#include <map>
#include <set>

#include "filters/Filters.h"
#include "fonts/FontDict.h"
#include "fonts/GlyphNames.h"
#include "fonts/Sfnt.h"
#include "fonts/StandardEncodings.h"
#include "fonts/SubsetTag.h"
#include "fonts/Type1Font.h"
#include "pdfcore/CosDoc.h"

namespace fonts {

namespace {

const ASAtom K_Type = ASAtomFromString("Type");
const ASAtom K_Font = ASAtomFromString("Font");
const ASAtom K_Subtype = ASAtomFromString("Subtype");
const ASAtom K_BaseFont = ASAtomFromString("BaseFont");
const ASAtom K_FontName = ASAtomFromString("FontName");
const ASAtom K_FontFile = ASAtomFromString("FontFile");
const ASAtom K_FontFile3 = ASAtomFromString("FontFile3");
const ASAtom K_Type1C = ASAtomFromString("Type1C");
const ASAtom K_Length1 = ASAtomFromString("Length1");
const ASAtom K_Encoding = ASAtomFromString("Encoding");
const ASAtom K_CharProcs = ASAtomFromString("CharProcs");
const ASAtom K_CharSet = ASAtomFromString("CharSet");
const ASAtom K_CIDSet = ASAtomFromString("CIDSet");

// Programs larger than this are left alone: reading them costs more than
// any document gains.
constexpr size_t kMaxProgramBytes = 64u << 20;

bool IsDict(CosObj o) { return CosObjGetType(o) == kCosDict; }

std::string FontLabel(const FontInfo& f) {
    if (!f.baseName.empty()) return f.baseName;
    return "object " + std::to_string(CosObjGetID(f.font));
}

// Every font dictionary of the document: the indirect ones of the object
// table and the (possibly direct) ones the content was seen to use.
std::vector<CosObj> AllFonts(PDDoc doc, const DocumentGlyphUse& use) {
    std::set<CosObj> seen;
    std::vector<CosObj> out;
    CosDoc cos = PDDocGetCosDoc(doc);
    ASInt32 size = CosDocGetObjTableSize(cos);
    for (ASInt32 id = 1; id < size; id = CosDocNextObjID(cos, id)) {
        CosObj o = CosDocGetObjByID(cos, id);
        if (!IsDict(o) || CosDictGetName(o, K_Type) != K_Font) continue;
        if (seen.insert(o).second) out.push_back(o);
    }
    for (const auto& [font, codes] : use.codes)
        if (IsDict(font) && seen.insert(font).second) out.push_back(font);
    return out;
}

// ------------------------------------------------------------ glyph needs

// The names a simple font's codes select: its encoding's name and the
// program's built-in one, when they differ (a viewer may use either when
// the encoding's name is missing from the program).
std::set<std::string> NamesForCodes(CosObj font, const std::set<uint32_t>& codes,
                                    const std::array<std::string, 256>& builtin) {
    SimpleEncoding enc = ReadSimpleEncoding(font);
    std::set<std::string> names;
    for (uint32_t c : codes) {
        if (c > 255) continue;
        if (!enc.names[c].empty()) names.insert(enc.names[c]);
        if (!builtin[c].empty()) names.insert(builtin[c]);
    }
    return names;
}

// The Mac OS Roman code of a glyph name, for (1,0) cmap lookups.
std::optional<unsigned> MacRomanCode(const std::string& name) {
    for (int c = 0; c < 256; ++c)
        if (kMacRomanEncoding[c] && name == kMacRomanEncoding[c]) return static_cast<unsigned>(c);
    return std::nullopt;
}

// The glyphs of a simple font in an sfnt or CFF program that the codes may
// reach, by every route a viewer may take: the encoding's glyph names
// through the (3,1) and (1,0) cmaps and the glyph names of the program,
// the code through the symbolic (3,0) and (1,0) cmaps and the built-in
// CFF encoding, and, for TrueType, the code itself as a glyph id.
std::set<unsigned> SimpleSfntGlyphs(const SfntFont& sf, CosObj font, const std::set<uint32_t>& codes) {
    SimpleEncoding enc = ReadSimpleEncoding(font);
    std::set<unsigned> gids;
    auto add = [&](std::optional<unsigned> g) {
        if (g && *g < sf.GlyphCount()) gids.insert(*g);
    };
    const bool trueType = sf.Kind() == SfntKind::TrueType;
    for (uint32_t c : codes) {
        if (c > 255) continue;
        std::string name = enc.names[c];
        if (name.empty() && kStandardEncoding[c] && sf.Kind() != SfntKind::BareCff) name = kStandardEncoding[c];
        if (!name.empty()) {
            add(sf.GlyphForName(name));
            if (auto u = UnicodeForGlyphName(name)) {
                add(sf.GlyphForCmap(3, 1, *u));
                add(sf.GlyphForCmap(3, 10, *u));
                add(sf.GlyphForCmap(0, 3, *u));
                add(sf.GlyphForCmap(0, 4, *u));
            }
            if (auto m = MacRomanCode(name)) add(sf.GlyphForCmap(1, 0, *m));
        }
        add(sf.GlyphForCmap(3, 0, c));
        add(sf.GlyphForCmap(3, 0, 0xF000 + c));
        add(sf.GlyphForCmap(3, 0, 0xF100 + c));
        add(sf.GlyphForCmap(3, 0, 0xF200 + c));
        add(sf.GlyphForCmap(1, 0, c));
        if (sf.Kind() == SfntKind::BareCff) add(sf.GlyphForBuiltinCode(c));
        if (trueType) add(c);
    }
    return gids;
}

// ------------------------------------------------------------ storing

size_t StoredSize(CosObj stream) { return CosStreamEncodedLength(stream); }

filters::Bytes Deflate(const std::vector<uint8_t>& bytes, int level) {
    return filters::FlateEncode(filters::ByteSpan(bytes.data(), bytes.size()), level);
}


// ------------------------------------------------------------ the work

struct Group {
    CosObj program;
    std::vector<FontInfo> fonts;
};

class Subsetter {
public:
    Subsetter(PDDoc doc, const DocumentGlyphUse& use, int level, Log& log)
        : m_doc(doc), m_use(use), m_level(level), m_log(log) {}

    SubsetOutcome Run() {
        std::map<CosObj, Group> groups;
        std::vector<CosObj> order;
        std::map<CosObj, std::vector<FontInfo>> type3;  // by CharProcs dictionary
        std::vector<CosObj> type3Order;
        for (CosObj font : AllFonts(m_doc, m_use)) {
            FontInfo info = ReadFontInfo(font);
            if (!info.tag.empty()) m_tags.insert(info.tag);
            if (info.kind == FontKind::Type3) {
                CosObj procs = CosDictGet(font, K_CharProcs);
                if (!IsDict(procs)) continue;
                auto [it, fresh] = type3.try_emplace(procs);
                if (fresh) type3Order.push_back(procs);
                it->second.push_back(info);
                continue;
            }
            if (CosObjIsNull(info.program)) continue;
            auto [it, fresh] = groups.try_emplace(info.program, Group{info.program, {}});
            if (fresh) order.push_back(info.program);
            it->second.fonts.push_back(info);
        }
        for (CosObj p : order) {
            Group& g = groups[p];
            if (g.fonts.front().kind == FontKind::Unknown || g.fonts.front().kind == FontKind::NotEmbedded) continue;
            ++m_out.programs;
            if (!Allowed(g.fonts)) continue;
            try {
                Subset(g);
            } catch (const CVellumError& e) {
                m_log.Warning("The font '%s' is left as it is: '%s'\n", FontLabel(g.fonts.front()).c_str(),
                              e.what());
            }
        }
        for (CosObj procs : type3Order) {
            if (!Allowed(type3[procs])) continue;
            TrimType3(procs, type3[procs]);
        }
        return m_out;
    }

private:
    // No font of the group may need glyphs the analysis cannot see.
    bool Allowed(const std::vector<FontInfo>& fonts) const {
        for (const FontInfo& f : fonts) {
            if (m_use.keepWhole.count(f.font) || (!CosObjIsNull(f.cidFont) && m_use.keepWhole.count(f.cidFont)))
                return false;
        }
        // A program no content draws with is used, if at all, in ways the
        // analysis does not know: it stays as it is.
        for (const FontInfo& f : fonts)
            if (m_use.codes.count(f.font)) return true;
        return false;
    }

    const std::set<uint32_t>& CodesOf(CosObj font) const {
        static const std::set<uint32_t> none;
        auto it = m_use.codes.find(font);
        return it == m_use.codes.end() ? none : it->second;
    }

    std::vector<uint8_t> Decoded(const Group& g) const {
        CosDecodeOptions opts;
        opts.maxOutput = kMaxProgramBytes;
        opts.strict = true;
        bool complete = false;
        std::vector<uint8_t> bytes = CosStreamDecodedData(g.program, opts, &complete);
        if (!complete) bytes.clear();
        return bytes;
    }

    void Warn(const Group& g, const std::string& why) {
        m_log.Warning("The font '%s' is left as it is: %s\n", FontLabel(g.fonts.front()).c_str(), why.c_str());
    }

    void Subset(Group& g) {
        std::vector<uint8_t> bytes = Decoded(g);
        if (bytes.empty()) {
            Warn(g, "its program cannot be read");
            return;
        }
        switch (g.fonts.front().kind) {
        case FontKind::Type1:
            SubsetType1Program(g, bytes);
            break;
        case FontKind::Type1C:
        case FontKind::CidType0C:
        case FontKind::TrueType:
        case FontKind::OpenType:
            SubsetSfntProgram(g, bytes);
            break;
        default:
            break;
        }
    }

    // The seed of the tag: the font's name and the glyphs kept.
    template <typename Set>
    std::string TagFor(const Group& g, const Set& glyphs) {
        std::string seed = g.fonts.front().baseName;
        for (const auto& v : glyphs) {
            seed += '/';
            if constexpr (std::is_same_v<typename Set::value_type, std::string>) seed += v;
            else seed += std::to_string(v);
        }
        return MakeSubsetTag(seed, m_tags);
    }

    // Puts the new names on every font of the group and on the descriptors.
    void Rename(Group& g, const std::string& tag) {
        std::set<CosObj> done;
        for (const FontInfo& f : g.fonts) {
            CosDoc cos = CosObjGetDoc(f.font);
            std::string tagged = tag + "+" + f.baseName;
            auto put = [&](CosObj dict, ASAtom key, const std::string& value) {
                if (!IsDict(dict) || !done.insert(dict).second) return;
                CosDictPut(dict, key, CosNewName(cos, false, ASAtomFromString(value)));
            };
            if (f.composite) {
                std::string top = ASAtomGetString(CosDictGetName(f.font, K_BaseFont));
                if (HasSubsetTag(top)) top = top.substr(7);
                if (!top.empty()) put(f.font, K_BaseFont, tag + "+" + top);
                put(f.cidFont, K_BaseFont, tagged);
            } else {
                put(f.font, K_BaseFont, tagged);
            }
            put(f.descriptor, K_FontName, tagged);
            m_out.changedFonts.push_back(f.font);
            ++m_out.fontsChanged;
        }
    }

    void Count(size_t before, size_t after) {
        ++m_out.subset;
        m_out.bytesBefore += before;
        m_out.bytesAfter += after;
    }

    // ------------------------------------------------ Type 1

    void SubsetType1Program(Group& g, const std::vector<uint8_t>& bytes) {
        Type1Font t1;
        std::string error;
        size_t length1 = static_cast<size_t>(std::max(0, CosDictGetInt(g.program, K_Length1, 0)));
        if (!ReadType1(bytes, length1, t1, error)) {
            Warn(g, error);
            return;
        }
        const std::array<std::string, 256> builtin = Type1BuiltinNames(t1);
        std::set<std::string> glyphs;
        for (const FontInfo& f : g.fonts) {
            std::set<std::string> n = NamesForCodes(f.font, CodesOf(f.font), builtin);
            glyphs.insert(n.begin(), n.end());
        }
        Type1GlyphClosure(t1, glyphs);
        // Only names the program has count for the tag and the CharSet.
        std::set<std::string> present;
        for (const auto& [name, cs] : t1.charStrings)
            if (glyphs.count(name)) present.insert(name);
        const bool dropsGlyphs = present.size() < t1.charStrings.size();
        const std::string tag = TagFor(g, present);
        const std::string tagged = tag + "+" + g.fonts.front().baseName;

        const size_t before = StoredSize(g.program);
        // Two candidates: the Type 1 subset, and the same glyphs as a CFF
        // program, whose charstrings compress where eexec data cannot.
        Type1Program p1;
        filters::Bytes enc1;
        if (dropsGlyphs) {
            p1 = SubsetType1(t1, present, tagged);
            if (p1.bytes.empty()) return;
            enc1 = Deflate(p1.bytes, m_level);
        }
        Type1Font renamed = t1;
        if (dropsGlyphs) renamed.fontName = tagged;
        std::string cffError;
        std::vector<uint8_t> cff = Type1ToCff(renamed, dropsGlyphs ? present : std::set<std::string>{}, cffError);
        filters::Bytes enc2 = cff.empty() ? filters::Bytes{} : Deflate(cff, m_level);

        const bool useCff = !enc2.empty() && (enc1.empty() || enc2.size() < enc1.size()) && enc2.size() < before;
        const bool useT1 = !useCff && !enc1.empty() && enc1.size() < before;
        if (!useCff && !useT1) return;
        CosDoc cos = CosObjGetDoc(g.program);
        if (useT1) {
            StoreFlateProgram(g.program, enc1);
            PutType1Lengths(g.program, p1);
            Count(before, enc1.size());
        } else {
            CosObj dict = CosNewDict(cos, false);
            CosDictPutName(dict, K_Subtype, false, K_Type1C);
            CosObj stream = CosNewStream(cos, dict, {});
            StoreFlateProgram(stream, enc2);
            for (const FontInfo& f : g.fonts) {
                if (!IsDict(f.descriptor)) continue;
                CosDictRemove(f.descriptor, K_FontFile);
                CosDictPut(f.descriptor, K_FontFile3, stream);
            }
            Count(before, enc2.size());
        }
        if (dropsGlyphs) {
            Rename(g, tag);
            PutCharSet(g, present);
        }
    }

    // A descriptor's CharSet lists the glyphs the program holds; it must
    // not name glyphs that were dropped.
    void PutCharSet(Group& g, const std::set<std::string>& names) {
        for (const FontInfo& f : g.fonts) {
            if (!IsDict(f.descriptor) || !CosDictKnown(f.descriptor, K_CharSet)) continue;
            std::string s;
            for (const std::string& n : names)
                if (n != ".notdef") s += "/" + n;
            CosDictPut(f.descriptor, K_CharSet, CosNewString(CosObjGetDoc(f.descriptor), false, s));
        }
    }

    // ------------------------------------------------ sfnt and CFF

    void SubsetSfntProgram(Group& g, const std::vector<uint8_t>& bytes) {
        const FontKind kind = g.fonts.front().kind;
        SfntKind sk = kind == FontKind::TrueType ? SfntKind::TrueType
                      : kind == FontKind::OpenType ? SfntKind::OpenTypeCff
                                                   : SfntKind::BareCff;
        SfntFont sf;
        std::string error;
        if (!sf.Open(bytes, sk, error)) {
            Warn(g, error);
            return;
        }
        std::set<unsigned> gids{0};
        std::set<uint32_t> cids{0};
        bool byId = sf.Kind() != SfntKind::BareCff;  // sfnt glyphs keep their ids
        for (const FontInfo& f : g.fonts) {
            if (f.kind != kind) return;  // one program read as two kinds: leave it
            const std::set<uint32_t>& codes = CodesOf(f.font);
            if (!f.composite) {
                if (sf.IsCidKeyed()) return;
                std::set<unsigned> s = SimpleSfntGlyphs(sf, f.font, codes);
                gids.insert(s.begin(), s.end());
                continue;
            }
            CidMap cmap;
            if (!cmap.Read(CosDictGet(f.font, K_Encoding))) return;  // codes we cannot follow
            CidToGid toGid;
            if (!toGid.Read(f.cidFont)) return;
            const bool cffCids = sf.IsCidKeyed();
            for (uint32_t code : codes) {
                std::optional<uint32_t> cid = cmap.Cid(code);
                if (!cid) continue;
                cids.insert(*cid);
                std::optional<unsigned> gid;
                if (cffCids) gid = sf.GlyphForCid(*cid);
                else if (kind == FontKind::TrueType) gid = toGid.Gid(*cid);
                else gid = *cid;
                if (gid && *gid < sf.GlyphCount()) gids.insert(*gid);
            }
            byId = true;
        }
        if (gids.size() >= sf.GlyphCount()) return;  // nothing to drop
        std::vector<uint8_t> out = sf.Subset(gids, byId, error);
        if (out.empty()) {
            Warn(g, error);
            return;
        }
        const size_t before = StoredSize(g.program);
        filters::Bytes enc = Deflate(out, m_level);
        if (enc.size() >= before) return;
        StoreFlateProgram(g.program, enc);
        if (CosDictKnown(g.program, K_Length1))
            CosDictPutInteger(g.program, K_Length1, static_cast<ASInt32>(out.size()));
        Count(before, enc.size());
        Rename(g, TagFor(g, gids));
        PutCidSet(g, cids);
    }

    // A CIDSet marks the CIDs the program holds; after subsetting, only
    // the CIDs kept.
    void PutCidSet(Group& g, const std::set<uint32_t>& cids) {
        for (const FontInfo& f : g.fonts) {
            if (!f.composite || !IsDict(f.descriptor) || !CosDictKnown(f.descriptor, K_CIDSet)) continue;
            uint32_t last = cids.empty() ? 0 : *cids.rbegin();
            if (last > 0xFFFF) continue;
            std::vector<uint8_t> bits(last / 8 + 1, 0);
            for (uint32_t c : cids) bits[c / 8] |= static_cast<uint8_t>(0x80 >> (c % 8));
            CosObj stream = CosNewStream(CosObjGetDoc(f.descriptor), CosNewNull(), {});
            CosStreamSetDecodedData(stream, bits, m_level);
            CosDictPut(f.descriptor, K_CIDSet, stream);
        }
    }

    // ------------------------------------------------ Type 3

    // Glyph procedures no used code selects are dropped.  The encoding's
    // Differences name them; a code without a name draws nothing.
    void TrimType3(CosObj procs, const std::vector<FontInfo>& fonts) {
        std::set<std::string> used;
        for (const FontInfo& f : fonts) {
            SimpleEncoding enc = ReadSimpleEncoding(f.font);
            for (uint32_t c : CodesOf(f.font))
                if (c < 256 && !enc.names[c].empty()) used.insert(enc.names[c]);
        }
        std::vector<ASAtom> drop;
        ASInt32 n = CosDictCount(procs);
        for (ASInt32 i = 0; i < n; ++i) {
            ASAtom key = CosDictKeyAt(procs, i);
            if (!used.count(ASAtomGetString(key))) drop.push_back(key);
        }
        if (drop.empty()) return;
        for (ASAtom key : drop) CosDictRemove(procs, key);
        ++m_out.type3Trimmed;
        for (const FontInfo& f : fonts) m_out.changedFonts.push_back(f.font);
    }

    PDDoc m_doc;
    const DocumentGlyphUse& m_use;
    int m_level;
    Log& m_log;
    std::set<std::string> m_tags;
    SubsetOutcome m_out;
};

}  // namespace

SubsetOutcome SubsetDocumentFonts(PDDoc doc, const DocumentGlyphUse& use, int flateLevel, Log& log) {
    if (use.incomplete) {
        log.Debug("Fonts are kept whole: %s\n", use.incompleteReason.c_str());
        return {};
    }
    return Subsetter(doc, use, flateLevel, log).Run();
}

}  // namespace fonts
