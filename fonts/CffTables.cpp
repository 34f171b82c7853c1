#include "fonts/CffTables.h"

#include <charconv>
#include <cmath>
#include <unordered_map>

namespace fonts::cff {

namespace {

// The CFF format caps a DICT's operand stack at 48.
constexpr size_t kMaxOperands = 48;
// A real number longer than this is not a number a font needs.
constexpr size_t kMaxRealChars = 64;

uint32_t ReadBE(std::span<const uint8_t> d, size_t pos, unsigned bytes) {
    uint32_t v = 0;
    for (unsigned i = 0; i < bytes; ++i) v = (v << 8) | d[pos + i];
    return v;
}

bool Fits(std::span<const uint8_t> d, size_t pos, size_t n) { return pos <= d.size() && n <= d.size() - pos; }

const DictEntry* Find(const std::vector<DictEntry>& dict, unsigned op) {
    for (const DictEntry& e : dict)
        if (e.op == op) return &e;
    return nullptr;
}

// An operand that must be an offset or count into `limit` bytes.
bool AsOffset(double v, size_t limit, size_t& out) {
    if (!std::isfinite(v) || v < 0 || v != std::floor(v) || v > static_cast<double>(limit)) return false;
    out = static_cast<size_t>(v);
    return true;
}

bool ReadReal(std::span<const uint8_t> d, size_t& pos, double& out, std::string& error) {
    std::string text;
    bool done = false;
    while (!done) {
        if (pos >= d.size()) {
            error = "CFF DICT: real number runs past the end";
            return false;
        }
        uint8_t b = d[pos++];
        for (int nibble : {b >> 4, b & 0x0f}) {
            if (nibble <= 9) text += static_cast<char>('0' + nibble);
            else if (nibble == 0xa) text += '.';
            else if (nibble == 0xb) text += 'E';
            else if (nibble == 0xc) text += "E-";
            else if (nibble == 0xe) text += '-';
            else if (nibble == 0xf) { done = true; break; }
            else {
                error = "CFF DICT: reserved nibble in a real number";
                return false;
            }
        }
        if (text.size() > kMaxRealChars) {
            error = "CFF DICT: real number too long";
            return false;
        }
    }
    out = 0;
    auto res = std::from_chars(text.data(), text.data() + text.size(), out);
    if (res.ec != std::errc() || !std::isfinite(out)) out = 0;
    return true;
}

bool ReadCharset(const CffInfo& font, size_t offset, std::vector<uint16_t>& out, std::string& error) {
    const uint32_t n = font.glyphCount;
    out.assign(n, 0);
    if (offset <= 2 && font.cidKeyed) {
        // A CID-keyed font must have its own charset; read a predefined one
        // as the identity, as lenient readers do.
        for (uint32_t g = 0; g < n; ++g) out[g] = static_cast<uint16_t>(g);
        return true;
    }
    if (offset == 0) {
        for (uint32_t g = 0; g < n && g < 229; ++g) out[g] = static_cast<uint16_t>(g);
        return true;
    }
    if (offset == 1 || offset == 2) {
        const uint16_t* table = offset == 1 ? kExpertCharset : kExpertSubsetCharset;
        uint32_t size = offset == 1 ? 166 : 87;
        for (uint32_t g = 0; g < n && g < size; ++g) out[g] = table[g];
        return true;
    }
    std::span<const uint8_t> d = font.data;
    size_t pos = offset;
    if (!Fits(d, pos, 1)) {
        error = "CFF charset offset past the end";
        return false;
    }
    unsigned format = d[pos++];
    if (format == 0) {
        if (!Fits(d, pos, 2 * size_t(n - 1))) {
            error = "CFF charset (format 0) truncated";
            return false;
        }
        for (uint32_t g = 1; g < n; ++g, pos += 2) out[g] = static_cast<uint16_t>(ReadBE(d, pos, 2));
        return true;
    }
    if (format != 1 && format != 2) {
        error = "CFF charset format " + std::to_string(format) + " unknown";
        return false;
    }
    const unsigned leftBytes = format == 1 ? 1 : 2;
    uint32_t g = 1;
    while (g < n) {
        // Every range takes at least three bytes, so this ends with the data.
        if (!Fits(d, pos, 2 + leftBytes)) {
            error = "CFF charset ranges truncated";
            return false;
        }
        uint32_t first = ReadBE(d, pos, 2);
        uint32_t left = ReadBE(d, pos + 2, leftBytes);
        pos += 2 + leftBytes;
        for (uint32_t k = 0; k <= left && g < n; ++k, ++g) {
            if (first + k > 0xffff) {
                error = "CFF charset range runs past the largest SID";
                return false;
            }
            out[g] = static_cast<uint16_t>(first + k);
        }
    }
    return true;
}

bool ReadEncoding(CffInfo& font, size_t offset, std::string& error) {
    std::unordered_map<uint16_t, uint16_t> gidForSid;
    for (uint32_t g = font.glyphCount; g-- > 0;) gidForSid[font.charset[g]] = static_cast<uint16_t>(g);
    auto bySid = [&](unsigned sid) -> uint16_t {
        auto it = gidForSid.find(static_cast<uint16_t>(sid));
        return it == gidForSid.end() ? 0 : it->second;
    };
    font.encoding.fill(0);
    if (offset <= 1) {
        font.predefinedEncoding = static_cast<int>(offset);
        const uint16_t* table = offset == 0 ? kStandardEncoding : kExpertEncoding;
        for (unsigned c = 0; c < 256; ++c)
            if (table[c]) font.encoding[c] = bySid(table[c]);
        return true;
    }
    std::span<const uint8_t> d = font.data;
    size_t pos = offset;
    if (!Fits(d, pos, 2)) {
        error = "CFF encoding offset past the end";
        return false;
    }
    unsigned format = d[pos] & 0x7f;
    bool supplements = (d[pos] & 0x80) != 0;
    unsigned count = d[pos + 1];
    pos += 2;
    // Later entries override earlier ones, as renderers read them.
    if (format == 0) {
        if (!Fits(d, pos, count)) {
            error = "CFF encoding (format 0) truncated";
            return false;
        }
        for (unsigned j = 0; j < count; ++j)
            if (j + 1 < font.glyphCount) font.encoding[d[pos + j]] = static_cast<uint16_t>(j + 1);
        pos += count;
    } else if (format == 1) {
        if (!Fits(d, pos, 2 * size_t(count))) {
            error = "CFF encoding (format 1) truncated";
            return false;
        }
        uint32_t g = 1;
        for (unsigned r = 0; r < count; ++r, pos += 2) {
            unsigned first = d[pos], left = d[pos + 1];
            for (unsigned k = 0; k <= left; ++k, ++g)
                if (first + k < 256 && g < font.glyphCount) font.encoding[first + k] = static_cast<uint16_t>(g);
        }
    } else {
        error = "CFF encoding format " + std::to_string(format) + " unknown";
        return false;
    }
    if (supplements) {
        font.hasSupplements = true;
        if (!Fits(d, pos, 1) || !Fits(d, pos + 1, 3 * size_t(d[pos]))) {
            error = "CFF encoding supplements truncated";
            return false;
        }
        unsigned sups = d[pos++];
        for (unsigned s = 0; s < sups; ++s, pos += 3) {
            uint16_t gid = bySid(ReadBE(d, pos + 1, 2));
            if (gid) font.encoding[d[pos]] = gid;
        }
    }
    return true;
}

}  // namespace

std::string_view StandardString(unsigned sid) {
    return sid < kStandardStringCount ? std::string_view(kStandardStrings[sid]) : std::string_view();
}

int StandardSid(std::string_view name) {
    static const std::unordered_map<std::string_view, int> byName = [] {
        std::unordered_map<std::string_view, int> m;
        for (unsigned i = 0; i < kStandardStringCount; ++i) m.emplace(kStandardStrings[i], static_cast<int>(i));
        return m;
    }();
    auto it = byName.find(name);
    return it == byName.end() ? -1 : it->second;
}

bool ReadIndex(std::span<const uint8_t> data, size_t pos, Index& out, std::string& error) {
    out = Index{};
    if (!Fits(data, pos, 2)) {
        error = "CFF INDEX past the end";
        return false;
    }
    out.count = ReadBE(data, pos, 2);
    if (out.count == 0) {
        out.end = pos + 2;
        out.offsets.assign(1, static_cast<uint32_t>(pos + 2));
        return true;
    }
    if (!Fits(data, pos + 2, 1)) {
        error = "CFF INDEX truncated";
        return false;
    }
    unsigned offSize = data[pos + 2];
    if (offSize < 1 || offSize > 4) {
        error = "CFF INDEX offset size " + std::to_string(offSize);
        return false;
    }
    size_t table = pos + 3;
    size_t tableBytes = (size_t(out.count) + 1) * offSize;
    if (!Fits(data, table, tableBytes)) {
        error = "CFF INDEX offsets past the end (count " + std::to_string(out.count) + ")";
        return false;
    }
    // Offsets count from the byte before the object data.
    size_t base = table + tableBytes - 1;
    out.offsets.resize(size_t(out.count) + 1);
    uint32_t prev = 1;
    for (size_t i = 0; i <= out.count; ++i) {
        uint32_t off = ReadBE(data, table + i * offSize, offSize);
        if (off < prev || off - 1 > data.size() - base - 1) {
            error = "CFF INDEX offsets out of order or past the end";
            return false;
        }
        prev = off;
        out.offsets[i] = static_cast<uint32_t>(base + off);
    }
    out.end = out.offsets[out.count];
    return true;
}

bool ReadDict(std::span<const uint8_t> d, std::vector<DictEntry>& out, std::string& error) {
    out.clear();
    DictEntry cur;
    size_t pos = 0;
    while (pos < d.size()) {
        size_t start = pos;
        uint8_t b0 = d[pos++];
        if (b0 <= 21) {
            unsigned op = b0;
            if (b0 == 12) {
                if (pos >= d.size()) {
                    error = "CFF DICT: escaped operator cut off";
                    return false;
                }
                op = 1200 + d[pos++];
            }
            cur.op = op;
            cur.end = pos;
            out.push_back(std::move(cur));
            cur = DictEntry{};
            cur.begin = pos;
            continue;
        }
        if (cur.operands.empty()) cur.begin = start;
        if (cur.operands.size() >= kMaxOperands) {
            error = "CFF DICT: more than 48 operands";
            return false;
        }
        double v;
        if (b0 >= 32 && b0 <= 246) {
            v = int(b0) - 139;
        } else if (b0 >= 247 && b0 <= 254) {
            if (pos >= d.size()) {
                error = "CFF DICT: number cut off";
                return false;
            }
            int hi = b0 <= 250 ? b0 - 247 : b0 - 251;
            int w = hi * 256 + d[pos++] + 108;
            v = b0 <= 250 ? w : -w;
        } else if (b0 == 28 || b0 == 29) {
            unsigned n = b0 == 28 ? 2 : 4;
            if (!Fits(d, pos, n)) {
                error = "CFF DICT: number cut off";
                return false;
            }
            uint32_t raw = ReadBE(d, pos, n);
            pos += n;
            v = n == 2 ? double(int16_t(uint16_t(raw))) : double(int32_t(raw));
        } else if (b0 == 30) {
            if (!ReadReal(d, pos, v, error)) return false;
        } else {
            error = "CFF DICT: reserved byte " + std::to_string(b0);
            return false;
        }
        cur.operands.push_back(v);
    }
    return true;
}

bool ReadCff(std::span<const uint8_t> data, CffInfo& out, std::string& error) {
    out = CffInfo{};
    out.data = data;
    if (data.size() < 4 || data[0] != 1) {
        error = "not a CFF (version 1) program";
        return false;
    }
    size_t hdrSize = data[2];
    if (hdrSize < 4 || hdrSize > data.size()) {
        error = "CFF header size " + std::to_string(hdrSize);
        return false;
    }
    Index names, topDicts, gsubrs;
    if (!ReadIndex(data, hdrSize, names, error) || !ReadIndex(data, names.end, topDicts, error) ||
        !ReadIndex(data, topDicts.end, out.strings, error) || !ReadIndex(data, out.strings.end, gsubrs, error)) {
        error = "CFF header INDEXes: " + error;
        return false;
    }
    if (names.count < 1 || topDicts.count < 1) {
        error = "CFF program holds no font";
        return false;
    }
    auto name = names.Item(data, 0);
    out.fontName.assign(name.begin(), name.begin() + std::min<size_t>(name.size(), 255));
    if (!ReadDict(topDicts.Item(data, 0), out.topDict, error)) return false;

    if (const DictEntry* e = Find(out.topDict, kOpCharstringType); e && !e->operands.empty() && e->operands[0] != 2) {
        error = "CFF charstrings are not Type 2";
        return false;
    }
    const DictEntry* cs = Find(out.topDict, kOpCharStrings);
    size_t csOffset;
    if (!cs || cs->operands.empty() || !AsOffset(cs->operands.back(), data.size(), csOffset)) {
        error = "CFF Top DICT has no usable CharStrings offset";
        return false;
    }
    Index charStrings;
    if (!ReadIndex(data, csOffset, charStrings, error)) {
        error = "CFF CharStrings: " + error;
        return false;
    }
    if (charStrings.count < 1) {
        error = "CFF program has no glyphs";
        return false;
    }
    out.glyphCount = charStrings.count;

    if (const DictEntry* ros = Find(out.topDict, kOpRos); ros && ros->operands.size() >= 3) {
        out.cidKeyed = true;
        auto sid = [](double v) { return v >= 0 && v <= 65535 ? static_cast<unsigned>(v) : 0u; };
        out.registry = SidString(out, sid(ros->operands[0]));
        out.ordering = SidString(out, sid(ros->operands[1]));
        out.supplement = ros->operands[2];
    }
    if (const DictEntry* fm = Find(out.topDict, kOpFontMatrix); fm && fm->operands.size() == 6) {
        bool finite = true;
        for (double v : fm->operands) finite = finite && std::isfinite(v);
        if (finite)
            for (int i = 0; i < 6; ++i) out.fontMatrix[i] = fm->operands[i];
    }

    size_t charsetOffset = 0;
    if (const DictEntry* e = Find(out.topDict, kOpCharset); e && !e->operands.empty() &&
                                                             !AsOffset(e->operands.back(), data.size(), charsetOffset)) {
        error = "CFF charset offset out of range";
        return false;
    }
    if (!ReadCharset(out, charsetOffset, out.charset, error)) return false;

    if (!out.cidKeyed) {
        size_t encodingOffset = 0;
        if (const DictEntry* e = Find(out.topDict, kOpEncoding);
            e && !e->operands.empty() && !AsOffset(e->operands.back(), data.size(), encodingOffset)) {
            error = "CFF encoding offset out of range";
            return false;
        }
        if (!ReadEncoding(out, encodingOffset, error)) return false;
    }
    return true;
}

namespace {

void PutLong(std::vector<uint8_t>& out, uint32_t v) {
    out.insert(out.end(), {29, uint8_t(v >> 24), uint8_t(v >> 16), uint8_t(v >> 8), uint8_t(v)});
}

void PutInt(std::vector<uint8_t>& out, int v) {
    if (v >= -107 && v <= 107) out.push_back(uint8_t(v + 139));
    else PutLong(out, uint32_t(v));
}

bool BuildEncoding(const CffInfo& font, const std::array<uint16_t, 256>& codes, std::vector<uint8_t>& out,
                   std::string& error) {
    const uint32_t n = font.glyphCount;
    std::vector<int> primary(n, -1);
    for (int c = 255; c >= 0; --c)
        if (codes[c] && codes[c] < n) primary[codes[c]] = c;
    uint32_t run = 0;  // glyphs 1..run each have a code
    while (run + 1 < n && run < 255 && primary[run + 1] >= 0) ++run;
    std::vector<uint8_t> sups;
    unsigned supCount = 0;
    for (unsigned c = 0; c < 256; ++c) {
        uint16_t g = codes[c];
        if (!g || g >= n || (g <= run && primary[g] == int(c))) continue;
        uint16_t sid = font.charset[g];
        for (uint32_t other = 0; other < g; ++other)
            if (font.charset[other] == sid) {
                error = "glyph " + std::to_string(g) + " shares its name with another: no supplement can reach it";
                return false;
            }
        sups.insert(sups.end(), {uint8_t(c), uint8_t(sid >> 8), uint8_t(sid)});
        ++supCount;
    }
    if (supCount > 255) {
        error = "too many codes for an encoding";
        return false;
    }
    out.assign({uint8_t(supCount ? 0x80 : 0), uint8_t(run)});
    for (uint32_t g = 1; g <= run; ++g) out.push_back(uint8_t(primary[g]));
    if (supCount) {
        out.push_back(uint8_t(supCount));
        out.insert(out.end(), sups.begin(), sups.end());
    }
    return true;
}

}  // namespace

bool ReplaceEncoding(std::span<const uint8_t> data, const std::array<uint16_t, 256>& codes,
                     std::vector<uint8_t>& out, std::string& error) {
    CffInfo font;
    if (!ReadCff(data, font, error)) return false;
    if (font.cidKeyed) {
        error = "a CID-keyed font has no encoding";
        return false;
    }
    std::vector<uint8_t> encoding;
    if (!BuildEncoding(font, codes, encoding, error)) return false;
    Index names, tops;
    if (!ReadIndex(data, data[2], names, error) || !ReadIndex(data, names.end, tops, error)) return false;
    if (tops.count != 1) {
        error = "CFF with more than one font";
        return false;
    }
    // Every offset is written in the 5-byte form, so the new Top DICT's
    // size does not depend on the offsets it holds.
    auto buildTop = [&](int64_t delta, uint32_t encodingAt, std::vector<uint8_t>& top) {
        std::span<const uint8_t> old = tops.Item(data, 0);
        top.clear();
        for (const DictEntry& e : font.topDict) {
            bool isOffset = e.op == kOpCharStrings || e.op == kOpFdArray || e.op == kOpFdSelect ||
                            (e.op == kOpCharset && !e.operands.empty() && e.operands.back() > 2);
            if (e.op == kOpEncoding) continue;
            if (e.op == kOpPrivate && e.operands.size() == 2) {
                PutInt(top, int(e.operands[0]));
                PutLong(top, uint32_t(int64_t(e.operands[1]) + delta));
            } else if (isOffset && e.operands.size() == 1) {
                PutLong(top, uint32_t(int64_t(e.operands[0]) + delta));
            } else {
                top.insert(top.end(), old.begin() + e.begin, old.begin() + e.end);
                continue;
            }
            if (e.op >= 1200) top.insert(top.end(), {12, uint8_t(e.op - 1200)});
            else top.push_back(uint8_t(e.op));
        }
        PutLong(top, encodingAt);
        top.push_back(uint8_t(kOpEncoding));
    };
    // Everything the Top DICT points to lies after the header INDEXes.
    for (const DictEntry& e : font.topDict) {
        bool offset = e.op == kOpCharStrings || e.op == kOpPrivate || e.op == kOpFdArray || e.op == kOpFdSelect ||
                      (e.op == kOpCharset && !e.operands.empty() && e.operands.back() > 2);
        size_t at = 0, size = 0;
        if (offset && (e.operands.size() != (e.op == kOpPrivate ? 2u : 1u) ||
                       !AsOffset(e.operands.back(), data.size(), at) || at < tops.end ||
                       (e.op == kOpPrivate && !AsOffset(e.operands[0], data.size(), size)))) {
            error = "CFF Top DICT offsets out of range";
            return false;
        }
    }
    std::vector<uint8_t> top;
    buildTop(0, 0, top);
    if (top.size() + 1 > 0xffffff) {
        error = "CFF Top DICT too large";
        return false;
    }
    // The new Top DICT INDEX: count 1, 4-byte offsets.
    const size_t newIndexSize = 2 + 1 + 8 + top.size();
    const int64_t delta = int64_t(newIndexSize) - int64_t(tops.end - names.end);
    const size_t encodingAt = size_t(int64_t(data.size()) + delta);
    if (encodingAt > 0x7fffffff) {
        error = "CFF too large";
        return false;
    }
    buildTop(delta, uint32_t(encodingAt), top);
    out.assign(data.begin(), data.begin() + names.end);
    uint32_t end = uint32_t(top.size() + 1);
    out.insert(out.end(), {0, 1, 4, 0, 0, 0, 1, uint8_t(end >> 24), uint8_t(end >> 16), uint8_t(end >> 8), uint8_t(end)});
    out.insert(out.end(), top.begin(), top.end());
    out.insert(out.end(), data.begin() + tops.end, data.end());
    out.insert(out.end(), encoding.begin(), encoding.end());
    return true;
}

std::string SidString(const CffInfo& font, unsigned sid) {
    if (sid < kStandardStringCount) return std::string(kStandardStrings[sid]);
    unsigned i = sid - kStandardStringCount;
    if (i >= font.strings.count) return {};
    auto s = font.strings.Item(font.data, i);
    return std::string(s.begin(), s.end());
}

std::string GlyphName(const CffInfo& font, unsigned gid) {
    if (font.cidKeyed || gid >= font.charset.size()) return {};
    return SidString(font, font.charset[gid]);
}

}  // namespace fonts::cff
