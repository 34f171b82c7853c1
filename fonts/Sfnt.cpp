#include "fonts/Sfnt.h"

// The glyph-mapping queries of a subset plan are exported by every build
// of the subsetting library this project supports, but declared only
// under this macro before version 7.
#ifndef HB_EXPERIMENTAL_API
#define HB_EXPERIMENTAL_API
#endif
#include <hb-subset.h>
#include <hb.h>

#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_ADVANCES_H

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <unordered_map>

#include "fonts/CffTables.h"

namespace fonts {

namespace {

// Far more tables than any real font has.
constexpr unsigned kMaxTables = 1024;
// The largest font program accepted (CJK fonts reach tens of MB).
constexpr size_t kMaxProgram = 64u << 20;

constexpr uint32_t Tag(char a, char b, char c, char d) {
    return (uint32_t(uint8_t(a)) << 24) | (uint32_t(uint8_t(b)) << 16) | (uint32_t(uint8_t(c)) << 8) | uint8_t(d);
}

uint32_t U32(std::span<const uint8_t> d, size_t p) {
    return (uint32_t(d[p]) << 24) | (uint32_t(d[p + 1]) << 16) | (uint32_t(d[p + 2]) << 8) | d[p + 3];
}
uint16_t U16(std::span<const uint8_t> d, size_t p) { return uint16_t((d[p] << 8) | d[p + 1]); }
bool Fits(std::span<const uint8_t> d, size_t pos, size_t n) { return pos <= d.size() && n <= d.size() - pos; }

void Put16(std::vector<uint8_t>& v, size_t p, uint32_t x) {
    v[p] = uint8_t(x >> 8);
    v[p + 1] = uint8_t(x);
}
void Put32(std::vector<uint8_t>& v, size_t p, uint32_t x) {
    Put16(v, p, x >> 16);
    Put16(v, p + 2, x & 0xffff);
}

bool IsSfntMagic(std::span<const uint8_t> d) {
    if (d.size() < 4) return false;
    uint32_t v = U32(d, 0);
    return v == 0x00010000 || v == Tag('O', 'T', 'T', 'O') || v == Tag('t', 'r', 'u', 'e') || v == Tag('t', 't', 'c', 'f');
}

// One cmap subtable, kept as the bytes from its start to the end of the
// cmap table (subtable lengths are often wrong, so only the table bounds).
struct CmapSubtable {
    uint16_t platform = 0, encoding = 0, format = 0;
    std::span<const uint8_t> bytes;
    bool sorted = true;  // segments in ascending order: binary search is safe
};

std::optional<uint32_t> LookupFormat4(const CmapSubtable& t, uint32_t code) {
    std::span<const uint8_t> d = t.bytes;
    if (code > 0xffff) return std::nullopt;
    size_t segs = U16(d, 6) / 2;
    size_t ends = 14, starts = 16 + 2 * segs, deltas = 16 + 4 * segs, ranges = 16 + 6 * segs;
    size_t lo = 0, hi = segs, seg = segs;
    if (t.sorted) {
        while (lo < hi) {
            size_t mid = (lo + hi) / 2;
            if (U16(d, ends + 2 * mid) < code) lo = mid + 1;
            else hi = mid;
        }
        seg = lo;
    } else {
        for (size_t i = 0; i < segs; ++i)
            if (U16(d, ends + 2 * i) >= code) {
                seg = i;
                break;
            }
    }
    if (seg >= segs || U16(d, starts + 2 * seg) > code) return std::nullopt;
    uint32_t start = U16(d, starts + 2 * seg);
    uint16_t delta = U16(d, deltas + 2 * seg);
    uint16_t rangeOffset = U16(d, ranges + 2 * seg);
    if (rangeOffset == 0) return uint16_t(code + delta);
    size_t at = ranges + 2 * seg + rangeOffset + 2 * size_t(code - start);
    if (!Fits(d, at, 2)) return std::nullopt;
    uint16_t g = U16(d, at);
    return g == 0 ? 0 : uint16_t(g + delta);
}

std::optional<uint32_t> LookupFormat12(const CmapSubtable& t, uint32_t code) {
    std::span<const uint8_t> d = t.bytes;
    size_t groups = U32(d, 12);  // bounded by the table size when read
    auto group = [&](size_t i) { return 16 + 12 * i; };
    size_t found = groups;
    if (t.sorted) {
        size_t lo = 0, hi = groups;
        while (lo < hi) {
            size_t mid = (lo + hi) / 2;
            if (U32(d, group(mid) + 4) < code) lo = mid + 1;
            else hi = mid;
        }
        found = lo;
    } else {
        for (size_t i = 0; i < groups; ++i)
            if (U32(d, group(i)) <= code && code <= U32(d, group(i) + 4)) {
                found = i;
                break;
            }
    }
    if (found >= groups) return std::nullopt;
    uint32_t start = U32(d, group(found)), end = U32(d, group(found) + 4), glyph = U32(d, group(found) + 8);
    if (code < start || code > end) return std::nullopt;
    return t.format == 13 ? glyph : glyph + (code - start);
}

// Checks a subtable's fixed parts fit and whether its segments are sorted.
bool PrepareSubtable(CmapSubtable& t) {
    std::span<const uint8_t> d = t.bytes;
    switch (t.format) {
        case 0:
            return Fits(d, 0, 6 + 256);
        case 4: {
            if (!Fits(d, 0, 14)) return false;
            size_t segs = U16(d, 6) / 2;
            if (segs == 0 || !Fits(d, 0, 16 + 8 * segs)) return false;
            for (size_t i = 1; i < segs && t.sorted; ++i) t.sorted = U16(d, 14 + 2 * i) > U16(d, 14 + 2 * (i - 1));
            return true;
        }
        case 6:
            return Fits(d, 0, 10) && Fits(d, 10, 2 * size_t(U16(d, 8)));
        case 12:
        case 13: {
            if (!Fits(d, 0, 16)) return false;
            size_t groups = U32(d, 12);
            if (groups > (d.size() - 16) / 12) return false;
            for (size_t i = 0; i < groups && t.sorted; ++i) {
                uint32_t start = U32(d, 16 + 12 * i), end = U32(d, 20 + 12 * i);
                t.sorted = start <= end && (i == 0 || start > U32(d, 16 + 12 * (i - 1) + 4));
            }
            return true;
        }
        default:
            return false;
    }
}

// Tables a PDF reader never uses: layout, kerning, device metrics, vertical
// metrics (the PDF gives its own), signatures and variations (a PDF shows
// the default instance).
constexpr uint32_t kDroppedTables[] = {
    Tag('G', 'S', 'U', 'B'), Tag('G', 'P', 'O', 'S'), Tag('G', 'D', 'E', 'F'), Tag('B', 'A', 'S', 'E'),
    Tag('J', 'S', 'T', 'F'), Tag('M', 'A', 'T', 'H'), Tag('k', 'e', 'r', 'n'), Tag('k', 'e', 'r', 'x'),
    Tag('m', 'o', 'r', 'x'), Tag('m', 'o', 'r', 't'), Tag('f', 'e', 'a', 't'), Tag('t', 'r', 'a', 'k'),
    Tag('h', 'd', 'm', 'x'), Tag('V', 'D', 'M', 'X'), Tag('L', 'T', 'S', 'H'), Tag('D', 'S', 'I', 'G'),
    Tag('v', 'h', 'e', 'a'), Tag('v', 'm', 't', 'x'), Tag('V', 'O', 'R', 'G'), Tag('P', 'C', 'L', 'T'),
    Tag('m', 'e', 't', 'a'), Tag('S', 'T', 'A', 'T'), Tag('f', 'v', 'a', 'r'), Tag('g', 'v', 'a', 'r'),
    Tag('a', 'v', 'a', 'r'), Tag('c', 'v', 'a', 'r'), Tag('H', 'V', 'A', 'R'), Tag('V', 'V', 'A', 'R'),
    Tag('M', 'V', 'A', 'R'),
};

struct HbInput {
    hb_subset_input_t* p = hb_subset_input_create_or_fail();
    ~HbInput() { hb_subset_input_destroy(p); }
};
struct HbPlan {
    hb_subset_plan_t* p = nullptr;
    ~HbPlan() { hb_subset_plan_destroy(p); }
};
struct HbFace {
    hb_face_t* p = nullptr;
    ~HbFace() { hb_face_destroy(p); }
};
struct HbSet {
    hb_set_t* p = nullptr;
    ~HbSet() { hb_set_destroy(p); }
};
struct HbBlob {
    hb_blob_t* p = nullptr;
    ~HbBlob() { hb_blob_destroy(p); }
};

std::vector<uint8_t> BlobBytes(hb_blob_t* blob) {
    unsigned len = 0;
    const char* data = hb_blob_get_data(blob, &len);
    if (!data) return {};
    return std::vector<uint8_t>(reinterpret_cast<const uint8_t*>(data), reinterpret_cast<const uint8_t*>(data) + len);
}

}  // namespace

struct SfntFont::Impl {
    SfntKind kind = SfntKind::TrueType;
    std::vector<uint8_t> data;     // the program as given
    std::vector<uint8_t> wrapper;  // a bare CFF's OpenType wrapper
    hb_blob_t* blob = nullptr;
    hb_face_t* face = nullptr;
    hb_font_t* font = nullptr;
    unsigned glyphCount = 0;
    double unitsPerEm = 1000;

    std::map<uint32_t, std::span<const uint8_t>> tables;  // sfnt tables
    std::vector<CmapSubtable> cmaps;
    std::span<const uint8_t> hmtx;
    unsigned numHMetrics = 0;

    bool hasCff = false;
    cff::CffInfo cff;
    std::unordered_map<std::string, unsigned> gidForName;
    std::vector<std::pair<uint16_t, uint16_t>> gidForCid;  // sorted by CID

    FT_Library ftLib = nullptr;  // a bare CFF's advances come from its charstrings
    FT_Face ftFace = nullptr;

    ~Impl() { Reset(); }
    void Reset() {
        if (ftFace) FT_Done_Face(ftFace);
        if (ftLib) FT_Done_FreeType(ftLib);
        ftFace = nullptr;
        ftLib = nullptr;
        hb_font_destroy(font);
        hb_face_destroy(face);
        hb_blob_destroy(blob);
        font = nullptr;
        face = nullptr;
        blob = nullptr;
    }

    std::span<const uint8_t> Table(uint32_t tag) const {
        auto it = tables.find(tag);
        return it == tables.end() ? std::span<const uint8_t>() : it->second;
    }

    bool Open(std::span<const uint8_t> program, SfntKind declared, std::string& error);
    bool ReadDirectory(std::string& error);
    void ReadCmap();
    bool ReadCffInfo(std::span<const uint8_t> program, std::string& error);
    bool BuildWrapper(std::string& error);
    bool MakeFace(std::span<const uint8_t> bytes, std::string& error);

    std::vector<uint8_t> SubsetOnce(const std::set<unsigned>& gids, bool retainGids, bool desubroutinize,
                                    std::string& error) const;
    bool CheckSfntSubset(std::span<const uint8_t> out, bool retainGids, std::string& error) const;
    enum class Check { Good, EncodingLost, Bad };
    Check CheckCffSubset(std::span<const uint8_t> out, const hb_map_t* newToOld, bool retainGids,
                         std::array<uint16_t, 256>& wantCodes, std::string& error) const;
};

bool SfntFont::Impl::ReadDirectory(std::string& error) {
    std::span<const uint8_t> d = data;
    size_t dir = 0;
    if (U32(d, 0) == Tag('t', 't', 'c', 'f')) {
        // A collection in a PDF: the first font is the one readers take.
        if (!Fits(d, 0, 16) || U32(d, 8) == 0) {
            error = "font collection header truncated";
            return false;
        }
        dir = U32(d, 12);
        if (!Fits(d, dir, 12) || !IsSfntMagic(d.subspan(dir)) || U32(d, dir) == Tag('t', 't', 'c', 'f')) {
            error = "font collection's first font is not readable";
            return false;
        }
    }
    if (!Fits(d, dir, 12)) {
        error = "table directory truncated";
        return false;
    }
    unsigned numTables = U16(d, dir + 4);
    if (numTables == 0 || numTables > kMaxTables) {
        error = "table directory holds " + std::to_string(numTables) + " tables";
        return false;
    }
    if (!Fits(d, dir + 12, 16 * size_t(numTables))) {
        error = "table directory runs past the end";
        return false;
    }
    for (unsigned i = 0; i < numTables; ++i) {
        size_t rec = dir + 12 + 16 * size_t(i);
        uint32_t tag = U32(d, rec), offset = U32(d, rec + 8), length = U32(d, rec + 12);
        if (offset > d.size()) {
            error = "table offset past the end of the font";
            return false;
        }
        // Writers often count the padding of the last table; a table cut
        // short is kept with what there is, and its readers check bounds.
        size_t avail = std::min<size_t>(length, d.size() - offset);
        tables.emplace(tag, d.subspan(offset, avail));
    }
    return true;
}

void SfntFont::Impl::ReadCmap() {
    std::span<const uint8_t> t = Table(Tag('c', 'm', 'a', 'p'));
    if (!Fits(t, 0, 4)) return;
    unsigned n = U16(t, 2);
    for (unsigned i = 0; i < n && Fits(t, 4 + 8 * size_t(i), 8); ++i) {
        size_t rec = 4 + 8 * size_t(i);
        uint32_t offset = U32(t, rec + 4);
        if (!Fits(t, offset, 2)) continue;
        CmapSubtable sub;
        sub.platform = U16(t, rec);
        sub.encoding = U16(t, rec + 2);
        sub.format = U16(t, offset);
        sub.bytes = t.subspan(offset);
        if (PrepareSubtable(sub)) cmaps.push_back(sub);
    }
}

bool SfntFont::Impl::ReadCffInfo(std::span<const uint8_t> program, std::string& error) {
    if (!cff::ReadCff(program, cff, error)) return false;
    hasCff = true;
    if (cff.cidKeyed) {
        for (uint32_t g = 0; g < cff.glyphCount; ++g) gidForCid.emplace_back(cff.charset[g], uint16_t(g));
        // The first glyph of a CID wins, as with names.
        std::stable_sort(gidForCid.begin(), gidForCid.end(),
                         [](const auto& a, const auto& b) { return a.first < b.first; });
    } else {
        for (uint32_t g = 0; g < cff.glyphCount; ++g) gidForName.emplace(cff::GlyphName(cff, g), g);
    }
    return true;
}

// The OpenType tables the subsetter needs around a bare CFF: it takes the
// glyph count from maxp and subsets head, hhea, hmtx and post with it.
// Widths are zero: the PDF gives its own and only the CFF is kept.
bool SfntFont::Impl::BuildWrapper(std::string& error) {
    const uint32_t n = cff.glyphCount;
    std::vector<uint8_t> head(54, 0), hhea(36, 0), maxp(6, 0), post(32, 0), hmtxBytes(4 + 2 * size_t(n - 1), 0);
    Put32(head, 0, 0x00010000);
    Put32(head, 12, 0x5F0F3CF5);
    Put16(head, 18, 1000);
    Put16(head, 48, 2);  // fontDirectionHint
    Put32(hhea, 0, 0x00010000);
    Put16(hhea, 34, 1);  // numberOfHMetrics
    Put32(maxp, 0, 0x00005000);
    Put16(maxp, 4, n);
    Put32(post, 0, 0x00030000);

    HbFace builder{hb_face_builder_create()};
    auto add = [&](uint32_t tag, const std::vector<uint8_t>& bytes) {
        HbBlob b{hb_blob_create(reinterpret_cast<const char*>(bytes.data()), unsigned(bytes.size()),
                                HB_MEMORY_MODE_DUPLICATE, nullptr, nullptr)};
        return hb_face_builder_add_table(builder.p, tag, b.p);
    };
    HbBlob cffBlob{hb_blob_create(reinterpret_cast<const char*>(data.data()), unsigned(data.size()),
                                  HB_MEMORY_MODE_READONLY, nullptr, nullptr)};
    bool ok = hb_face_builder_add_table(builder.p, Tag('C', 'F', 'F', ' '), cffBlob.p) &&
              add(Tag('h', 'e', 'a', 'd'), head) && add(Tag('h', 'h', 'e', 'a'), hhea) &&
              add(Tag('m', 'a', 'x', 'p'), maxp) && add(Tag('p', 'o', 's', 't'), post) &&
              add(Tag('h', 'm', 't', 'x'), hmtxBytes);
    HbBlob out{ok ? hb_face_reference_blob(builder.p) : nullptr};
    wrapper = out.p ? BlobBytes(out.p) : std::vector<uint8_t>();
    if (wrapper.empty()) {
        error = "could not build an OpenType wrapper around the CFF";
        return false;
    }
    return true;
}

bool SfntFont::Impl::MakeFace(std::span<const uint8_t> bytes, std::string& error) {
    blob = hb_blob_create(reinterpret_cast<const char*>(bytes.data()), unsigned(bytes.size()),
                          HB_MEMORY_MODE_READONLY, nullptr, nullptr);
    face = hb_face_create(blob, 0);
    font = hb_font_create(face);
    if (!face || hb_face_get_glyph_count(face) == 0) {
        error = "the font has no glyphs";
        return false;
    }
    return true;
}

SfntFont::SfntFont() : m(std::make_unique<Impl>()) {}
SfntFont::~SfntFont() = default;

bool SfntFont::Open(std::span<const uint8_t> program, SfntKind kind, std::string& error) {
    m = std::make_unique<Impl>();
    if (m->Open(program, kind, error)) return true;
    m = std::make_unique<Impl>();  // a failed Open leaves no font
    return false;
}

bool SfntFont::Impl::Open(std::span<const uint8_t> program, SfntKind declared, std::string& error) {
    if (program.size() > kMaxProgram) {
        error = "font program larger than " + std::to_string(kMaxProgram >> 20) + " MB";
        return false;
    }
    if (program.size() < 4) {
        error = "font program too short";
        return false;
    }
    data.assign(program.begin(), program.end());
    std::span<const uint8_t> d = data;
    // The PDF's word for the kind is a hint: the bytes decide.
    bool sfnt = IsSfntMagic(d);
    if (!sfnt && d[0] != 1) {
        error = declared == SfntKind::BareCff ? "not a CFF program" : "not a TrueType or OpenType program";
        return false;
    }
    if (!sfnt) {
        kind = SfntKind::BareCff;
        if (!ReadCffInfo(d, error) || !BuildWrapper(error) || !MakeFace(wrapper, error)) return false;
        glyphCount = cff.glyphCount;
        double a = cff.fontMatrix[0];
        if (std::isfinite(a) && a > 1e-6 && a < 1) unitsPerEm = 1 / a;
        if (FT_Init_FreeType(&ftLib) == 0 &&
            FT_New_Memory_Face(ftLib, data.data(), FT_Long(data.size()), 0, &ftFace) != 0)
            ftFace = nullptr;
        return true;
    }

    if (!ReadDirectory(error)) return false;
    auto head = Table(Tag('h', 'e', 'a', 'd')), maxp = Table(Tag('m', 'a', 'x', 'p'));
    if (!Fits(head, 0, 54) || !Fits(maxp, 0, 6)) {
        error = "head or maxp table missing or truncated";
        return false;
    }
    auto cffTable = Table(Tag('C', 'F', 'F', ' '));
    if (!cffTable.empty()) {
        kind = SfntKind::OpenTypeCff;
        if (!ReadCffInfo(cffTable, error)) {
            error = "CFF table: " + error;
            return false;
        }
    } else if (!Table(Tag('g', 'l', 'y', 'f')).empty() && !Table(Tag('l', 'o', 'c', 'a')).empty()) {
        kind = SfntKind::TrueType;
    } else {
        error = "neither glyf nor CFF outlines";
        return false;
    }
    if (!MakeFace(d, error)) return false;
    glyphCount = U16(maxp, 4);
    if (hasCff) glyphCount = std::min<unsigned>(glyphCount, cff.glyphCount);
    unsigned upem = U16(head, 18);
    if (upem >= 16 && upem <= 16384) unitsPerEm = upem;
    auto hhea = Table(Tag('h', 'h', 'e', 'a'));
    if (Fits(hhea, 0, 36)) {
        hmtx = Table(Tag('h', 'm', 't', 'x'));
        numHMetrics = std::min<size_t>(U16(hhea, 34), hmtx.size() / 4);
    }
    ReadCmap();
    return true;
}

SfntKind SfntFont::Kind() const { return m->kind; }
unsigned SfntFont::GlyphCount() const { return m->glyphCount; }
bool SfntFont::IsCidKeyed() const { return m->hasCff && m->cff.cidKeyed; }

std::optional<unsigned> SfntFont::GlyphForCmap(unsigned platform, unsigned encoding, uint32_t code) const {
    for (const CmapSubtable& t : m->cmaps) {
        if (t.platform != platform || t.encoding != encoding) continue;
        std::optional<uint32_t> g;
        std::span<const uint8_t> d = t.bytes;
        switch (t.format) {
            case 0:
                if (code < 256) g = d[6 + code];
                break;
            case 4:
                g = LookupFormat4(t, code);
                break;
            case 6: {
                uint32_t first = U16(d, 6), count = U16(d, 8);
                if (code >= first && code - first < count) g = U16(d, 10 + 2 * size_t(code - first));
                break;
            }
            default:
                g = LookupFormat12(t, code);
                break;
        }
        // The first usable subtable of the pair decides; glyph 0 is "none".
        if (!g || *g == 0 || *g >= m->glyphCount) return std::nullopt;
        return *g;
    }
    return std::nullopt;
}

bool SfntFont::HasCmap(unsigned platform, unsigned encoding) const {
    return std::any_of(m->cmaps.begin(), m->cmaps.end(),
                       [&](const CmapSubtable& t) { return t.platform == platform && t.encoding == encoding; });
}

std::optional<unsigned> SfntFont::GlyphForName(const std::string& name) const {
    if (m->hasCff) {
        if (m->cff.cidKeyed) return std::nullopt;
        auto it = m->gidForName.find(name);
        if (it == m->gidForName.end() || it->second >= m->glyphCount) return std::nullopt;
        return it->second;
    }
    if (!m->font || name.empty() || name.size() > 1024) return std::nullopt;
    hb_codepoint_t g = 0;
    if (!hb_font_get_glyph_from_name(m->font, name.data(), int(name.size()), &g) || g >= m->glyphCount)
        return std::nullopt;
    return g;
}

std::string SfntFont::GlyphName(unsigned gid) const {
    if (gid >= m->glyphCount) return {};
    if (m->hasCff) return cff::GlyphName(m->cff, gid);
    char buf[256] = {};
    if (!m->font || !hb_font_get_glyph_name(m->font, gid, buf, sizeof buf)) return {};
    return buf;
}

std::optional<unsigned> SfntFont::GlyphForCid(unsigned cid) const {
    if (!IsCidKeyed() || cid > 0xffff) return std::nullopt;
    auto it = std::lower_bound(m->gidForCid.begin(), m->gidForCid.end(), std::make_pair(uint16_t(cid), uint16_t(0)));
    if (it == m->gidForCid.end() || it->first != cid || it->second >= m->glyphCount) return std::nullopt;
    return it->second;
}

std::optional<unsigned> SfntFont::GlyphForBuiltinCode(unsigned code) const {
    if (!m->hasCff || m->cff.cidKeyed || code > 255) return std::nullopt;
    unsigned g = m->cff.encoding[code];
    if (g == 0 || g >= m->glyphCount) return std::nullopt;
    return g;
}

std::optional<double> SfntFont::Advance(unsigned gid) const {
    if (gid >= m->glyphCount) return std::nullopt;
    if (m->kind == SfntKind::BareCff) {
        // The renderer library takes a CID-keyed font's glyphs by CID.
        unsigned index = m->cff.cidKeyed ? m->cff.charset[gid] : gid;
        if (m->cff.cidKeyed && GlyphForCid(index) != gid) return std::nullopt;
        FT_Fixed adv = 0;
        if (!m->ftFace || FT_Get_Advance(m->ftFace, index, FT_LOAD_NO_SCALE, &adv) != 0) return std::nullopt;
        return double(adv);
    }
    if (m->numHMetrics == 0) return std::nullopt;
    size_t i = std::min<size_t>(gid, m->numHMetrics - 1);
    return double(U16(m->hmtx, 4 * i));
}

double SfntFont::UnitsPerEm() const { return m->unitsPerEm; }

std::vector<uint8_t> SfntFont::Impl::SubsetOnce(const std::set<unsigned>& gids, bool retainGids, bool desubroutinize,
                                                std::string& error) const {
    HbInput in;
    if (!in.p) {
        error = "out of memory";
        return {};
    }
    unsigned flags = HB_SUBSET_FLAGS_NOTDEF_OUTLINE | HB_SUBSET_FLAGS_GLYPH_NAMES;
    if (retainGids) flags |= HB_SUBSET_FLAGS_RETAIN_GIDS;
    if (desubroutinize) flags |= HB_SUBSET_FLAGS_DESUBROUTINIZE;
    hb_subset_input_set_flags(in.p, flags);
    hb_set_t* glyphs = hb_subset_input_glyph_set(in.p);
    hb_set_add(glyphs, 0);
    for (unsigned g : gids)
        if (g < glyphCount) hb_set_add(glyphs, g);
    hb_set_t* drop = hb_subset_input_set(in.p, HB_SUBSET_SETS_DROP_TABLE_TAG);
    for (uint32_t tag : kDroppedTables) hb_set_add(drop, tag);
    if (kind != SfntKind::BareCff) {
        if (retainGids) {
            // The cmap stays as it was; keeping the last glyph keeps the
            // glyph count, so none of its entries points past the end.
            hb_set_add(glyphs, glyphCount - 1);
            hb_set_add(hb_subset_input_set(in.p, HB_SUBSET_SETS_NO_SUBSET_TABLE_TAG), Tag('c', 'm', 'a', 'p'));
        } else {
            // New glyph ids: the Unicode subtables are rewritten for the
            // characters whose glyphs are kept.
            HbSet all{hb_set_create()};
            hb_face_collect_unicodes(face, all.p);
            hb_set_t* unicodes = hb_subset_input_unicode_set(in.p);
            hb_codepoint_t u = HB_SET_VALUE_INVALID, g;
            while (hb_set_next(all.p, &u))
                if (hb_font_get_nominal_glyph(font, u, &g) && hb_set_has(glyphs, g)) hb_set_add(unicodes, u);
        }
    }
    HbPlan plan{hb_subset_plan_create_or_fail(face, in.p)};
    HbFace out{plan.p ? hb_subset_plan_execute_or_fail(plan.p) : nullptr};
    if (!out.p) {
        error = "the subsetter failed on this font";
        return {};
    }
    if (kind != SfntKind::BareCff) {
        HbBlob blob{hb_face_reference_blob(out.p)};
        std::vector<uint8_t> bytes = BlobBytes(blob.p);
        if (!CheckSfntSubset(bytes, retainGids, error)) return {};
        return bytes;
    }
    HbBlob table{hb_face_reference_table(out.p, Tag('C', 'F', 'F', ' '))};
    std::vector<uint8_t> bytes = BlobBytes(table.p);
    const hb_map_t* newToOld = hb_subset_plan_new_to_old_glyph_mapping(plan.p);
    std::array<uint16_t, 256> wantCodes{};
    Check check = CheckCffSubset(bytes, newToOld, retainGids, wantCodes, error);
    if (check == Check::EncodingLost) {
        // The subsetter stops writing codes at the first glyph without one
        // and so loses the supplements of any glyph after it.
        std::vector<uint8_t> fixed;
        if (!cff::ReplaceEncoding(bytes, wantCodes, fixed, error)) {
            error = "the subset lost built-in codes that cannot be restored: " + error;
            return {};
        }
        bytes.swap(fixed);
        check = CheckCffSubset(bytes, newToOld, retainGids, wantCodes, error);
    }
    if (check != Check::Good) return {};
    return bytes;
}

// A subset that lost what the PDF addresses its glyphs by is worse than
// none: the caller then keeps the font whole.
bool SfntFont::Impl::CheckSfntSubset(std::span<const uint8_t> out, bool retainGids, std::string& error) const {
    SfntFont check;
    if (!check.Open(out, kind, error)) {
        error = "the subset does not read back: " + error;
        return false;
    }
    if (retainGids) {
        auto a = Table(Tag('c', 'm', 'a', 'p')), b = check.m->Table(Tag('c', 'm', 'a', 'p'));
        if (check.GlyphCount() != glyphCount || !std::equal(a.begin(), a.end(), b.begin(), b.end())) {
            error = "the subset changed the glyph count or the cmap";
            return false;
        }
    }
    return true;
}

SfntFont::Impl::Check SfntFont::Impl::CheckCffSubset(std::span<const uint8_t> out, const hb_map_t* newToOld,
                                                     bool retainGids, std::array<uint16_t, 256>& wantCodes,
                                                     std::string& error) const {
    cff::CffInfo o;
    if (!cff::ReadCff(out, o, error)) {
        error = "the subset does not read back: " + error;
        return Check::Bad;
    }
    if (o.cidKeyed != cff.cidKeyed || o.glyphCount > cff.glyphCount) {
        error = "the subset changed the font's kind or grew";
        return Check::Bad;
    }
    // Where each old glyph went; in a retained-ids subset the glyphs left
    // out stay as empty slots, with their old names or CIDs.
    std::vector<int> newFor(cff.glyphCount, -1);
    std::vector<bool> kept(o.glyphCount, false);
    for (uint32_t g = 0; g < o.glyphCount; ++g) {
        hb_codepoint_t old = newToOld ? hb_map_get(newToOld, g) : HB_MAP_VALUE_INVALID;
        kept[g] = old != HB_MAP_VALUE_INVALID;
        if (!kept[g]) {
            if (!retainGids) {
                error = "the subset has a glyph of unknown origin";
                return Check::Bad;
            }
            old = g;
        }
        if (old >= cff.glyphCount || newFor[old] >= 0) {
            error = "the subset's glyph map is not one to one";
            return Check::Bad;
        }
        newFor[old] = int(g);
        bool same = cff.cidKeyed ? o.charset[g] == cff.charset[old] : cff::GlyphName(o, g) == cff::GlyphName(cff, old);
        if (!same && kept[g]) {
            error = "the subset lost the " + std::string(cff.cidKeyed ? "CID" : "name") + " of glyph " +
                    std::to_string(old);
            return Check::Bad;
        }
    }
    if (cff.cidKeyed) return Check::Good;
    // Codes of kept glyphs must stay; codes of empty slots may go.
    Check result = Check::Good;
    for (unsigned c = 0; c < 256; ++c) {
        int want = cff.encoding[c] ? newFor[cff.encoding[c]] : -1;
        int got = o.encoding[c] ? int(o.encoding[c]) : -1;
        bool ok = want >= 0 && !kept[want] ? (got == want || got == -1) : got == want;
        wantCodes[c] = want >= 0 && kept[want] ? uint16_t(want) : 0;
        if (!ok && result == Check::Good) {
            error = "the subset changed the built-in encoding at code " + std::to_string(c);
            result = Check::EncodingLost;
        }
    }
    return result;
}

std::vector<uint8_t> SfntFont::Subset(const std::set<unsigned>& gids, bool retainGids, std::string& error) const {
    if (!m->face) {
        error = "no font open";
        return {};
    }
    std::vector<uint8_t> best = m->SubsetOnce(gids, retainGids, false, error);
    if (m->hasCff) {
        // Flattened charstrings are smaller for the few glyphs a PDF
        // usually keeps, subroutines for many: keep the smaller.
        std::string flatError;
        std::vector<uint8_t> flat = m->SubsetOnce(gids, retainGids, true, flatError);
        if (!flat.empty() && (best.empty() || flat.size() < best.size())) best.swap(flat);
        if (best.empty() && error.empty()) error = flatError;
    }
    if (!best.empty()) error.clear();
    return best;
}

}  // namespace fonts
