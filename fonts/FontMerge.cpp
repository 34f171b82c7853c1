#include "fonts/FontMerge.h"

#include <algorithm>
#include <map>
#include <set>

#include "filters/Filters.h"
#include "fonts/CffTables.h"
#include "fonts/FontDict.h"
#include "fonts/SubsetTag.h"
#include "pdfcore/CosDoc.h"

namespace fonts {

namespace {

const ASAtom K_Type = ASAtomFromString("Type");
const ASAtom K_Font = ASAtomFromString("Font");
const ASAtom K_BaseFont = ASAtomFromString("BaseFont");
const ASAtom K_FontName = ASAtomFromString("FontName");
const ASAtom K_FontBBox = ASAtomFromString("FontBBox");
const ASAtom K_CharSet = ASAtomFromString("CharSet");
const ASAtom K_Length1 = ASAtomFromString("Length1");

constexpr size_t kMaxProgramBytes = 64u << 20;

bool IsDict(CosObj o) { return CosObjGetType(o) == kCosDict; }

std::string WithoutTag(const std::string& name) { return HasSubsetTag(name) ? name.substr(7) : name; }

// One program stream and the simple fonts drawing with it.
struct Member {
    CosObj program;
    FontKind kind = FontKind::Unknown;
    std::vector<FontInfo> fonts;
    std::vector<uint8_t> bytes;  // decoded
    Type1Font t1;
    std::array<std::string, 256> builtin;  // the program's own encoding, by glyph name
    std::set<std::string> glyphs;
    std::string innerName;  // the program's font name, without a tag
    // The codes its fonts draw, with the glyph the built-in encoding gives
    // them ("" for none).  Some viewers draw a symbolic font's codes
    // through the built-in encoding even where the PDF's encoding names a
    // glyph, so a merged program must keep these.
    std::map<unsigned, std::string> used;
};

class Merger {
public:
    Merger(PDDoc doc, const DocumentGlyphUse& use, int level, Log& log)
        : m_doc(doc), m_use(use), m_level(level), m_log(log) {}

    MergeOutcome Run() {
        std::map<CosObj, Member> members;
        std::vector<CosObj> order;
        CosDoc cos = PDDocGetCosDoc(m_doc);
        ASInt32 size = CosDocGetObjTableSize(cos);
        for (ASInt32 id = 1; id < size; id = CosDocNextObjID(cos, id)) {
            CosObj o = CosDocGetObjByID(cos, id);
            if (!IsDict(o) || CosDictGetName(o, K_Type) != K_Font) continue;
            FontInfo info = ReadFontInfo(o);
            if (!info.tag.empty()) m_tags.insert(info.tag);
            if (info.composite || (info.kind != FontKind::Type1 && info.kind != FontKind::Type1C) ||
                CosObjGetType(info.program) != kCosStream || !IsDict(info.descriptor))
                continue;
            auto [it, fresh] = members.try_emplace(info.program);
            if (fresh) {
                it->second.program = info.program;
                it->second.kind = info.kind;
                order.push_back(info.program);
            }
            if (it->second.kind == info.kind) it->second.fonts.push_back(info);
        }
        // Candidates: programs of one kind and one font name.
        std::map<std::pair<FontKind, std::string>, std::vector<Member*>> byName;
        std::vector<std::pair<FontKind, std::string>> names;
        for (CosObj p : order) {
            Member& mb = members[p];
            auto key = std::make_pair(mb.kind, mb.fonts.front().baseName);
            auto [it, fresh] = byName.try_emplace(key);
            if (fresh) names.push_back(key);
            it->second.push_back(&mb);
        }
        for (const auto& key : names) {
            std::vector<Member*>& group = byName[key];
            if (group.size() < 2) continue;
            try {
                MergeGroup(group);
            } catch (const CVellumError& e) {
                m_log.Warning("The subsets of the font '%s' are left apart: '%s'\n", key.second.c_str(), e.what());
            }
        }
        return m_out;
    }

private:
    bool Load(Member& mb) {
        CosDecodeOptions opts;
        opts.maxOutput = kMaxProgramBytes;
        opts.strict = true;
        bool complete = false;
        mb.bytes = CosStreamDecodedData(mb.program, opts, &complete);
        if (!complete || mb.bytes.empty()) return false;
        std::string error;
        if (mb.kind == FontKind::Type1) {
            size_t length1 = static_cast<size_t>(std::max(0, CosDictGetInt(mb.program, K_Length1, 0)));
            if (!ReadType1(mb.bytes, length1, mb.t1, error)) return false;
            mb.innerName = WithoutTag(mb.t1.fontName);
            mb.builtin = Type1BuiltinNames(mb.t1);
            for (const auto& entry : mb.t1.charStrings) mb.glyphs.insert(entry.first);
        } else {
            cff::CffInfo info;
            if (!cff::ReadCff(mb.bytes, info, error) || info.cidKeyed) return false;
            mb.innerName = WithoutTag(info.fontName);
            for (int c = 0; c < 256; ++c)
                if (info.encoding[c]) mb.builtin[c] = cff::GlyphName(info, info.encoding[c]);
            for (unsigned g = 0; g < info.glyphCount; ++g) mb.glyphs.insert(g ? cff::GlyphName(info, g) : ".notdef");
        }
        for (const FontInfo& f : mb.fonts) {
            if (m_use.incomplete || m_use.keepWhole.count(f.font)) {
                for (unsigned c = 0; c < 256; ++c) mb.used[c] = mb.builtin[c];
            } else if (auto it = m_use.codes.find(f.font); it != m_use.codes.end()) {
                for (uint32_t c : it->second)
                    if (c < 256) mb.used[c] = mb.builtin[c];
            }
        }
        return true;
    }

    // Whether the fonts of `other` draw the same glyphs through the merged
    // program's built-in encoding `builtin`.  The merged program's
    // encoding is written anew, so codes no merged font draws yet may take
    // the glyph `other` needs.
    static bool EncodingFits(const Member& other, std::array<std::string, 256>& builtin,
                             std::array<bool, 256>& claimed) {
        std::array<std::string, 256> next = builtin;
        for (const auto& [code, name] : other.used) {
            if (next[code] == name) continue;
            if (claimed[code]) return false;
            next[code] = name;
        }
        builtin = next;
        for (const auto& [code, name] : other.used) claimed[code] = true;
        return true;
    }

    void MergeGroup(std::vector<Member*>& group) {
        std::vector<Member*> left;
        for (Member* mb : group)
            if (Load(*mb)) left.push_back(mb);
        while (left.size() >= 2) {
            Member& first = *left.front();
            std::vector<Member*> taken{&first}, rest;
            Type1Font t1 = first.t1;
            CffMerger cff;
            std::string why;
            std::array<std::string, 256> builtin = first.builtin;
            std::array<bool, 256> claimed{};
            for (const auto& entry : first.used) claimed[entry.first] = true;
            bool ok = first.kind == FontKind::Type1 || cff.Add(first.bytes, why);
            for (size_t i = 1; i < left.size(); ++i) {
                Member& other = *left[i];
                std::array<std::string, 256> b = builtin;
                std::array<bool, 256> c = claimed;
                why.clear();
                bool fits = ok && other.innerName == first.innerName;
                if (fits && !EncodingFits(other, b, c)) {
                    fits = false;
                    why = "a code selects another glyph through the built-in encoding";
                }
                if (fits)
                    fits = first.kind == FontKind::Type1 ? MergeType1Into(t1, other.t1, why) : cff.Add(other.bytes, why);
                if (!fits && !why.empty())
                    m_log.Debug("The subset of the font '%s' in object %d stays apart: %s\n",
                                other.fonts.front().baseName.c_str(), int(CosObjGetID(other.program)), why.c_str());
                if (fits) {
                    taken.push_back(&other);
                    builtin = b;
                    claimed = c;
                } else {
                    rest.push_back(&other);
                }
            }
            if (taken.size() >= 2) Write(taken, t1, cff, builtin);
            left = std::move(rest);
        }
    }

    void Write(const std::vector<Member*>& taken, const Type1Font& t1, const CffMerger& cff,
               const std::array<std::string, 256>& builtin) {
        Member& first = *taken.front();
        std::set<std::string> glyphs;
        for (const Member* mb : taken) glyphs.insert(mb->glyphs.begin(), mb->glyphs.end());
        const std::string& base = first.fonts.front().baseName;
        std::string seed = base + "/merged";
        for (const std::string& g : glyphs) seed += "/" + g;
        const std::string tag = MakeSubsetTag(seed, m_tags);
        const std::string tagged = tag + "+" + base;

        std::vector<uint8_t> program;
        Type1Program p1;
        std::string why;
        if (first.kind == FontKind::Type1) {
            Type1Font encoded = t1;
            if (builtin == first.builtin || SetType1Encoding(encoded, builtin)) p1 = SubsetType1(encoded, glyphs, tagged);
            else why = "its built-in encoding cannot be rewritten";
            program = p1.bytes;
        } else {
            program = cff.Build(builtin, why);
        }
        if (program.empty()) {
            m_log.Debug("The subsets of the font '%s' are left apart: %s\n", base.c_str(), why.c_str());
            return;
        }
        size_t before = 0;
        for (const Member* mb : taken) before += CosStreamEncodedLength(mb->program);
        filters::Bytes encoded = filters::FlateEncode(filters::ByteSpan(program.data(), program.size()), m_level);
        if (encoded.size() >= before) return;

        StoreFlateProgram(first.program, encoded);
        if (first.kind == FontKind::Type1) PutType1Lengths(first.program, p1);

        // Every descriptor points at the merged program and describes it:
        // the union of the boxes, the union of the glyph names.
        std::vector<double> box;
        std::set<CosObj> descriptors;
        for (const Member* mb : taken)
            for (const FontInfo& f : mb->fonts) descriptors.insert(f.descriptor);
        for (CosObj d : descriptors) {
            CosObj b = CosDictGet(d, K_FontBBox);
            if (CosObjGetType(b) != kCosArray || CosArrayLength(b) != 4) continue;
            std::vector<double> v;
            for (ASInt32 i = 0; i < 4; ++i) {
                CosObj n = CosArrayGet(b, i);
                if (CosObjGetType(n) == kCosInteger) v.push_back(static_cast<double>(CosInteger64Value(n)));
                else if (CosObjGetType(n) == kCosFixed) v.push_back(CosFixedValue(n));
            }
            if (v.size() != 4) continue;
            if (box.empty()) box = v;
            for (int i = 0; i < 2; ++i) box[i] = std::min(box[i], v[i]);
            for (int i = 2; i < 4; ++i) box[i] = std::max(box[i], v[i]);
        }
        std::string charSet;
        for (const std::string& g : glyphs)
            if (g != ".notdef") charSet += "/" + g;
        const ASAtom programKey = first.fonts.front().programKey;
        CosDoc cos = PDDocGetCosDoc(m_doc);
        for (CosObj d : descriptors) {
            CosDictPut(d, programKey, first.program);
            CosDictPut(d, K_FontName, CosNewName(cos, false, ASAtomFromString(tagged)));
            if (CosDictKnown(d, K_CharSet)) CosDictPut(d, K_CharSet, CosNewString(cos, false, charSet));
            if (box.size() == 4) {
                CosObj arr = CosNewArray(cos, false, 4);
                for (int i = 0; i < 4; ++i) CosArrayPut(arr, i, CosNewNumber(cos, false, box[i]));
                CosDictPut(d, K_FontBBox, arr);
            }
        }
        for (const Member* mb : taken)
            for (const FontInfo& f : mb->fonts) {
                CosDictPut(f.font, K_BaseFont, CosNewName(cos, false, ASAtomFromString(tagged)));
                m_out.changedFonts.push_back(f.font);
            }
        ++m_out.groups;
        m_out.programsMerged += static_cast<int>(taken.size());
        m_out.bytesBefore += before;
        m_out.bytesAfter += encoded.size();
        m_log.Debug("Merged %zu subsets of the font '%s': %zu bytes -> %zu bytes\n", taken.size(), base.c_str(),
                    before, encoded.size());
    }

    PDDoc m_doc;
    const DocumentGlyphUse& m_use;
    int m_level;
    Log& m_log;
    std::set<std::string> m_tags;
    MergeOutcome m_out;
};

}  // namespace

MergeOutcome MergeFontSubsets(PDDoc doc, const DocumentGlyphUse& use, int flateLevel, Log& log) {
    return Merger(doc, use, flateLevel, log).Run();
}

}  // namespace fonts
