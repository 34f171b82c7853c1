// The byte-level half of merging font subsets: Type 1 programs through
// their parsed form, bare CFF programs INDEX by INDEX.
#include <algorithm>
#include <cmath>
#include <map>
#include <optional>

#include "fonts/CffTables.h"
#include "fonts/CffWriter.h"
#include "fonts/FontMerge.h"

namespace fonts {

namespace {

// A subroutine a subsetter blanked: nothing, or a bare "return".
bool EmptySubr(const std::string& s) { return s.empty() || s == "\x0b"; }

}  // namespace

bool MergeType1Into(Type1Font& into, const Type1Font& other, std::string& why) {
    if (into.lenIV != other.lenIV || into.fontMatrix != other.fontMatrix || into.paintType != other.paintType) {
        why = "the programs differ in lenIV, FontMatrix or PaintType";
        return false;
    }
    if (into.privateValues != other.privateValues) {
        why = "the programs' private values differ";
        return false;
    }
    const size_t subrs = std::max(into.subrs.size(), other.subrs.size());
    for (size_t i = 0; i < subrs; ++i) {
        const std::string& a = i < into.subrs.size() ? into.subrs[i] : std::string();
        const std::string& b = i < other.subrs.size() ? other.subrs[i] : std::string();
        if (!EmptySubr(a) && !EmptySubr(b) && a != b) {
            why = "Subrs " + std::to_string(i) + " differs";
            return false;
        }
    }
    std::map<std::string, const std::string*> have;
    for (const auto& [name, cs] : into.charStrings) have.emplace(name, &cs);
    for (const auto& [name, cs] : other.charStrings) {
        auto it = have.find(name);
        if (it != have.end() && *it->second != cs) {
            why = "the glyph '" + name + "' differs";
            return false;
        }
    }
    // They agree: take what `other` adds.
    if (into.subrs.size() < subrs) into.subrs.resize(subrs);
    for (size_t i = 0; i < other.subrs.size(); ++i)
        if (EmptySubr(into.subrs[i]) && !EmptySubr(other.subrs[i])) into.subrs[i] = other.subrs[i];
    for (const auto& entry : other.charStrings)
        if (!have.count(entry.first)) into.charStrings.push_back(entry);
    return true;
}

// ------------------------------------------------------------ CFF

namespace {

using cff::DictEntry;
using cff::Index;

// Top DICT operators whose operand is a SID: compared and written as the
// strings they stand for.
bool IsSidOp(unsigned op) {
    return op <= 4 || op == 1200 || op == 1221 || op == 1222;
}
// Entries the merge writes itself, or that differ between subsets of one
// font without changing a glyph.
bool IsLayoutOp(unsigned op) {
    return op == cff::kOpCharset || op == cff::kOpEncoding || op == cff::kOpCharStrings || op == cff::kOpPrivate ||
           op == 5 /* FontBBox */ || op == 13 /* UniqueID */ || op == 14 /* XUID */;
}
constexpr unsigned kOpSubrs = 19;
constexpr unsigned kOpDefaultWidth = 20;
constexpr unsigned kOpNominalWidth = 21;

const DictEntry* FindOp(const std::vector<DictEntry>& d, unsigned op) {
    for (const DictEntry& e : d)
        if (e.op == op) return &e;
    return nullptr;
}

bool Offset(double v, size_t limit, size_t& out) {
    if (!(v >= 0) || v > double(limit)) return false;
    out = static_cast<size_t>(v);
    return true;
}

// One program, read far enough to compare and copy it.
struct Parts {
    cff::CffInfo info;
    std::span<const uint8_t> data;
    std::vector<std::string> names;                 // gid -> glyph name
    std::vector<std::span<const uint8_t>> glyphs;   // gid -> charstring
    std::span<const uint8_t> privateDict;
    std::vector<DictEntry> privateEntries;
    std::vector<std::span<const uint8_t>> localSubrs, globalSubrs;
    std::array<double, 4> bbox{0, 0, 0, 0};
    bool hasBox = false;
};

std::vector<std::span<const uint8_t>> Items(std::span<const uint8_t> data, const Index& index) {
    std::vector<std::span<const uint8_t>> out;
    out.reserve(index.count);
    for (uint32_t i = 0; i < index.count; ++i) out.push_back(index.Item(data, i));
    return out;
}

bool ReadParts(std::span<const uint8_t> data, Parts& p, std::string& why) {
    p.data = data;
    if (!cff::ReadCff(data, p.info, why)) return false;
    if (p.info.cidKeyed) {
        why = "a CID-keyed CFF";
        return false;
    }
    Index gsubrs;
    if (!cff::ReadIndex(data, p.info.strings.end, gsubrs, why)) return false;
    p.globalSubrs = Items(data, gsubrs);
    const DictEntry* cs = FindOp(p.info.topDict, cff::kOpCharStrings);
    size_t at = 0;
    Index charStrings;
    if (!cs || cs->operands.empty() || !Offset(cs->operands.back(), data.size(), at) ||
        !cff::ReadIndex(data, at, charStrings, why))
        return false;
    p.glyphs = Items(data, charStrings);
    for (uint32_t g = 0; g < charStrings.count; ++g) p.names.push_back(g == 0 ? ".notdef" : cff::GlyphName(p.info, g));
    for (uint32_t g = 1; g < charStrings.count; ++g)
        if (p.names[g].empty()) {
            why = "glyph " + std::to_string(g) + " has no name";
            return false;
        }
    if (const DictEntry* pr = FindOp(p.info.topDict, cff::kOpPrivate)) {
        size_t size = 0, offset = 0;
        if (pr->operands.size() != 2 || !Offset(pr->operands[0], data.size(), size) ||
            !Offset(pr->operands[1], data.size(), offset) || offset + size > data.size()) {
            why = "CFF Private DICT out of range";
            return false;
        }
        p.privateDict = data.subspan(offset, size);
        if (!cff::ReadDict(p.privateDict, p.privateEntries, why)) return false;
        if (const DictEntry* sub = FindOp(p.privateEntries, kOpSubrs)) {
            size_t rel = 0;
            Index local;
            if (sub->operands.empty() || !Offset(sub->operands.back(), data.size() - offset, rel) ||
                !cff::ReadIndex(data, offset + rel, local, why))
                return false;
            p.localSubrs = Items(data, local);
        }
    }
    if (const DictEntry* box = FindOp(p.info.topDict, 5); box && box->operands.size() == 4) {
        for (int i = 0; i < 4; ++i) p.bbox[i] = box->operands[i];
        p.hasBox = std::all_of(p.bbox.begin(), p.bbox.end(), [](double v) { return std::isfinite(v); });
    }
    return true;
}

bool SameItems(const std::vector<std::span<const uint8_t>>& a, const std::vector<std::span<const uint8_t>>& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](auto x, auto y) { return std::equal(x.begin(), x.end(), y.begin(), y.end()); });
}

// The Top DICT values that must agree, SIDs read as their strings.
std::map<unsigned, std::vector<std::string>> TopValues(const Parts& p) {
    std::map<unsigned, std::vector<std::string>> v;
    for (const DictEntry& e : p.info.topDict) {
        if (IsLayoutOp(e.op)) continue;
        std::vector<std::string>& out = v[e.op];
        for (double d : e.operands)
            out.push_back(IsSidOp(e.op) && d >= 0 && d < 65536 ? cff::SidString(p.info, unsigned(d))
                                                                  : std::to_string(d));
    }
    return v;
}

// The Private DICT values that must agree: all but the offset of the
// Subrs and the two width values, which the merge works around.
std::map<unsigned, std::vector<double>> PrivateValues(const Parts& p) {
    std::map<unsigned, std::vector<double>> v;
    for (const DictEntry& e : p.privateEntries)
        if (e.op != kOpSubrs && e.op != kOpDefaultWidth && e.op != kOpNominalWidth) v[e.op] = e.operands;
    return v;
}

double PrivateValue(const Parts& p, unsigned op) {
    const DictEntry* e = FindOp(p.privateEntries, op);
    return e && !e->operands.empty() && std::isfinite(e->operands.back()) ? e->operands.back() : 0;
}

}  // namespace

std::optional<Type2WidthSplit> SplitType2Width(std::span<const uint8_t> cs, double defaultWidth, double nominalWidth) {
    size_t pos = 0, firstEnd = 0;
    double first = 0;
    unsigned count = 0;
    while (pos < cs.size()) {
        const uint8_t b = cs[pos];
        double v = 0;
        if (b == 28) {
            if (pos + 3 > cs.size()) return std::nullopt;
            v = int16_t(uint16_t(cs[pos + 1] << 8 | cs[pos + 2]));
            pos += 3;
        } else if (b >= 32 && b <= 246) {
            v = int(b) - 139;
            pos += 1;
        } else if (b >= 247 && b <= 254) {
            if (pos + 2 > cs.size()) return std::nullopt;
            v = b <= 250 ? (b - 247) * 256 + cs[pos + 1] + 108 : -(b - 251) * 256 - cs[pos + 1] - 108;
            pos += 2;
        } else if (b == 255) {
            if (pos + 5 > cs.size()) return std::nullopt;
            v = int32_t(uint32_t(cs[pos + 1]) << 24 | uint32_t(cs[pos + 2]) << 16 | uint32_t(cs[pos + 3]) << 8 |
                        cs[pos + 4]) /
                65536.0;
            pos += 5;
        } else {
            bool width = false;
            switch (b) {
            case 1: case 3: case 18: case 23:  // hstem vstem hstemhm vstemhm
            case 19: case 20:                  // hintmask cntrmask (stems before them are vstems)
                width = count % 2 == 1;
                break;
            case 21:  // rmoveto
                width = count > 2;
                break;
            case 4: case 22:  // vmoveto hmoveto
                width = count > 1;
                break;
            case 14:  // endchar, alone or with seac arguments
                width = count == 1 || count == 5;
                break;
            default:
                return std::nullopt;
            }
            if (width) return Type2WidthSplit{nominalWidth + first, cs.subspan(firstEnd)};
            return Type2WidthSplit{defaultWidth, cs};
        }
        if (count++ == 0) {
            first = v;
            firstEnd = pos;
        }
    }
    return std::nullopt;
}

namespace {

using SplitGlyph = Type2WidthSplit;

void PutDictOp(cff::Bytes& out, unsigned op) {
    if (op >= 1200) {
        out.push_back(12);
        out.push_back(uint8_t(op - 1200));
    } else {
        out.push_back(uint8_t(op));
    }
}

}  // namespace

struct CffMerger::Impl {
    std::vector<Parts> parts;
    std::vector<std::string> names;                // merged gid -> name
    std::vector<cff::Bytes> glyphs;                // merged gid -> charstring
    std::vector<SplitGlyph> split;                 // merged gid -> width and outline (the source's bytes)
    std::map<std::string, size_t> byName;
    std::array<double, 4> bbox{0, 0, 0, 0};
    bool hasBox = false;
};

CffMerger::CffMerger() : m(std::make_unique<Impl>()) {}
CffMerger::~CffMerger() = default;

bool CffMerger::Add(std::span<const uint8_t> program, std::string& why) {
    Parts p;
    if (!ReadParts(program, p, why)) return false;
    if (!m->parts.empty()) {
        const Parts& first = m->parts.front();
        if (TopValues(first) != TopValues(p)) {
            why = "the programs' Top DICTs differ";
            return false;
        }
        if (PrivateValues(first) != PrivateValues(p) || !SameItems(first.localSubrs, p.localSubrs) ||
            !SameItems(first.globalSubrs, p.globalSubrs)) {
            why = "the programs' private values or subroutines differ";
            return false;
        }
    }
    // Every glyph as a width and the rest of its charstring.
    std::vector<SplitGlyph> split;
    const double dflt = PrivateValue(p, kOpDefaultWidth), nominal = PrivateValue(p, kOpNominalWidth);
    for (size_t g = 0; g < p.glyphs.size(); ++g) {
        std::optional<SplitGlyph> s = SplitType2Width(p.glyphs[g], dflt, nominal);
        if (!s) {
            why = "the width of the glyph '" + p.names[g] + "' cannot be read";
            return false;
        }
        split.push_back(*s);
        auto it = m->byName.find(p.names[g]);
        if (it == m->byName.end()) continue;
        const SplitGlyph& a = m->split[it->second];
        if (a.width != s->width || !std::equal(a.rest.begin(), a.rest.end(), s->rest.begin(), s->rest.end())) {
            why = "the glyph '" + p.names[g] + "' differs";
            return false;
        }
    }
    // New glyphs keep their bytes when they come from the first program,
    // whose width values the merged program keeps; others are written
    // with their widths against those values.
    const Parts& base = m->parts.empty() ? p : m->parts.front();
    const double baseDefault = PrivateValue(base, kOpDefaultWidth), baseNominal = PrivateValue(base, kOpNominalWidth);
    std::vector<cff::Bytes> added;
    for (size_t g = 0; g < p.glyphs.size(); ++g) {
        if (m->byName.count(p.names[g])) continue;
        cff::Bytes bytes;
        if (dflt == baseDefault && nominal == baseNominal) {
            bytes.assign(p.glyphs[g].begin(), p.glyphs[g].end());
        } else {
            if (split[g].width != baseDefault &&
                !cff::PutType2Number(bytes, cff::Fixed(std::llround((split[g].width - baseNominal) * cff::kFixedOne)))) {
                why = "the width of the glyph '" + p.names[g] + "' cannot be written";
                return false;
            }
            bytes.insert(bytes.end(), split[g].rest.begin(), split[g].rest.end());
        }
        added.push_back(std::move(bytes));
    }
    size_t next = 0;
    for (size_t g = 0; g < p.glyphs.size(); ++g) {
        if (m->byName.count(p.names[g])) continue;
        m->byName.emplace(p.names[g], m->names.size());
        m->names.push_back(p.names[g]);
        m->glyphs.push_back(std::move(added[next++]));
        m->split.push_back(split[g]);
    }
    if (p.hasBox) {
        if (!m->hasBox) m->bbox = p.bbox;
        for (int i = 0; i < 2; ++i) m->bbox[i] = std::min(m->bbox[i], p.bbox[i]);
        for (int i = 2; i < 4; ++i) m->bbox[i] = std::max(m->bbox[i], p.bbox[i]);
        m->hasBox = true;
    }
    m->parts.push_back(std::move(p));
    return true;
}

std::vector<uint8_t> CffMerger::Build(const std::array<std::string, 256>& encoding, std::string& why) const {
    if (m->parts.empty()) {
        why = "nothing to merge";
        return {};
    }
    const Parts& first = m->parts.front();
    // Strings: glyph names and SID values that are not standard strings.
    std::vector<std::string> strings;
    std::map<std::string, unsigned> sids;
    auto sidFor = [&](const std::string& s) -> unsigned {
        int standard = cff::StandardSid(s);
        if (standard >= 0) return unsigned(standard);
        auto [it, fresh] = sids.emplace(s, unsigned(391 + strings.size()));
        if (fresh) strings.push_back(s);
        return it->second;
    };
    cff::Bytes charset{0};  // format 0: one SID per glyph after .notdef
    for (size_t g = 1; g < m->names.size(); ++g) cff::PutCard16(charset, sidFor(m->names[g]));

    // The Top DICT: the first program's entries, SIDs renumbered, the
    // union of the FontBBoxes, and every offset in the 5-byte form so its
    // size is known before the layout.
    std::span<const uint8_t> topSource;
    {
        Index names, tops;
        std::string error;
        cff::ReadIndex(first.data, first.data[2], names, error);
        cff::ReadIndex(first.data, names.end, tops, error);
        topSource = tops.Item(first.data, 0);
    }
    cff::Bytes topFixed;
    for (const DictEntry& e : first.info.topDict) {
        if (IsLayoutOp(e.op)) continue;
        if (IsSidOp(e.op)) {
            cff::DictWriter sw;
            for (double d : e.operands)
                sw.Int(sidFor(d >= 0 && d < 65536 ? cff::SidString(first.info, unsigned(d)) : std::string()));
            topFixed.insert(topFixed.end(), sw.bytes().begin(), sw.bytes().end());
            PutDictOp(topFixed, e.op);
        } else {
            topFixed.insert(topFixed.end(), topSource.begin() + e.begin, topSource.begin() + e.end);
        }
    }
    if (m->hasBox) {
        cff::DictWriter bw;
        for (double v : m->bbox) bw.Real(v);
        topFixed.insert(topFixed.end(), bw.bytes().begin(), bw.bytes().end());
        PutDictOp(topFixed, 5);
    }

    // The Private DICT with its Subrs offset in the 5-byte form, pointing
    // just past the DICT.
    cff::Bytes priv;
    const DictEntry* subrsEntry = FindOp(first.privateEntries, kOpSubrs);
    if (subrsEntry) {
        const size_t size = first.privateDict.size() - (subrsEntry->end - subrsEntry->begin) + 6;
        priv.assign(first.privateDict.begin(), first.privateDict.begin() + subrsEntry->begin);
        cff::DictWriter sw;
        sw.Int5(static_cast<int32_t>(size));
        priv.insert(priv.end(), sw.bytes().begin(), sw.bytes().end());
        priv.push_back(kOpSubrs);
        priv.insert(priv.end(), first.privateDict.begin() + subrsEntry->end, first.privateDict.end());
    } else {
        priv.assign(first.privateDict.begin(), first.privateDict.end());
    }
    std::vector<cff::Bytes> localItems, globalItems, glyphItems;
    for (auto s : first.localSubrs) localItems.emplace_back(s.begin(), s.end());
    for (auto s : first.globalSubrs) globalItems.emplace_back(s.begin(), s.end());
    glyphItems = m->glyphs;

    const cff::Bytes nameIndex = cff::BuildIndex(std::vector<std::string>{first.info.fontName});
    const cff::Bytes stringIndex = cff::BuildIndex(strings);
    const cff::Bytes globalIndex = cff::BuildIndex(globalItems);
    const cff::Bytes glyphIndex = cff::BuildIndex(glyphItems);
    // charset, CharStrings and Private (size and offset) in the 5-byte
    // form with their operators, and a one-byte Encoding entry.
    const size_t topSize = topFixed.size() + (5 + 1) + (5 + 1) + (5 + 5 + 1) + 2;
    const size_t topIndexSize = 2 + 1 + 2 * 4 + topSize;  // one item, 4-byte offsets
    const size_t charsetAt = 4 + nameIndex.size() + topIndexSize + stringIndex.size() + globalIndex.size();
    const size_t glyphsAt = charsetAt + charset.size();
    const size_t privateAt = glyphsAt + glyphIndex.size();

    cff::DictWriter tail;
    tail.Int5(static_cast<int32_t>(charsetAt));
    tail.Op(cff::kOpCharset);
    tail.Int5(static_cast<int32_t>(glyphsAt));
    tail.Op(cff::kOpCharStrings);
    tail.Int5(static_cast<int32_t>(priv.size()));
    tail.Int5(static_cast<int32_t>(privateAt));
    tail.Op(cff::kOpPrivate);
    cff::Bytes top = topFixed;
    top.insert(top.end(), tail.bytes().begin(), tail.bytes().end());
    // The standard encoding until the real one is put in below.
    top.push_back(139);
    top.push_back(cff::kOpEncoding);
    if (top.size() != topSize) {
        why = "CFF Top DICT layout";
        return {};
    }
    cff::Bytes topIndex;
    cff::PutCard16(topIndex, 1);
    topIndex.push_back(4);
    cff::PutOffset(topIndex, 1, 4);
    cff::PutOffset(topIndex, 1 + top.size(), 4);
    topIndex.insert(topIndex.end(), top.begin(), top.end());

    cff::Bytes out{1, 0, 4, 4};
    for (const cff::Bytes* b : std::initializer_list<const cff::Bytes*>{&nameIndex, &topIndex, &stringIndex, &globalIndex, &charset, &glyphIndex, &priv})
        out.insert(out.end(), b->begin(), b->end());
    if (subrsEntry) {
        cff::Bytes local = cff::BuildIndex(localItems);
        out.insert(out.end(), local.begin(), local.end());
    }

    std::array<uint16_t, 256> codes{};
    for (int c = 0; c < 256; ++c) {
        if (encoding[c].empty()) continue;
        auto it = m->byName.find(encoding[c]);
        if (it != m->byName.end()) codes[c] = static_cast<uint16_t>(it->second);
    }
    std::vector<uint8_t> result;
    if (!cff::ReplaceEncoding(out, codes, result, why)) return {};
    cff::CffInfo check;
    if (!cff::ReadCff(result, check, why)) return {};
    if (check.glyphCount != m->names.size()) {
        why = "the merged CFF reads back wrong";
        return {};
    }
    return result;
}

}  // namespace fonts
