#include "jbig2/SymbolPage.h"

#include <algorithm>
#include <string>
#include <unordered_map>

#include "jbig2/Components.h"
#include "jbig2/DocumentCoder.h"
#include "jbig2/Segments.h"
#include "jbig2/ShapeMatch.h"

namespace jbig2 {
namespace {

// The pixels of `bm` in the rectangle, rows of (w + 7) / 8 bytes.
std::vector<uint8_t> Crop(const std::vector<uint8_t>& rows, size_t stride, uint32_t x, uint32_t y, uint32_t w,
                          uint32_t h) {
    const size_t out = (size_t(w) + 7) / 8;
    std::vector<uint8_t> bits(out * h, 0);
    const unsigned shift = x & 7;
    for (uint32_t r = 0; r < h; ++r) {
        const uint8_t* src = rows.data() + size_t(y + r) * stride + x / 8;
        const size_t avail = stride - x / 8;
        uint8_t* dst = bits.data() + size_t(r) * out;
        for (size_t i = 0; i < out; ++i) {
            const unsigned hi = src[i];
            const unsigned lo = i + 1 < avail ? src[i + 1] : 0;
            dst[i] = uint8_t((hi << shift | lo >> (8 - shift)) & 0xFF);
        }
        if (w % 8) dst[out - 1] &= uint8_t(0xFF << (8 - w % 8));
    }
    return bits;
}

}  // namespace

std::optional<PagePlan> PlanPage(const Bitmap& page, const SymbolOptions& options) {
    std::optional<ComponentSet> found = FindComponents(page);
    if (!found) return std::nullopt;
    const ComponentSet& set = *found;
    PagePlan plan;
    plan.width = page.width;
    plan.height = page.height;

    // Exact-match classes of the components small enough to be symbols.
    std::unordered_map<std::string, uint32_t> classOf;
    std::vector<uint32_t> cls(set.components.size(), UINT32_MAX);
    std::vector<uint32_t> members;
    std::vector<std::vector<uint8_t>> bits;
    for (size_t i = 0; i < set.components.size(); ++i) {
        const Component& c = set.components[i];
        if (c.w > options.maxSide || c.h > options.maxSide) continue;
        std::vector<uint8_t> b = set.Bits(c);
        std::string key(reinterpret_cast<const char*>(&c.w), sizeof c.w);
        key.append(reinterpret_cast<const char*>(&c.h), sizeof c.h);
        key.append(b.begin(), b.end());
        auto [it, added] = classOf.try_emplace(std::move(key), uint32_t(members.size()));
        if (added) {
            members.push_back(0);
            bits.push_back(std::move(b));
        }
        cls[i] = it->second;
        ++members[it->second];
    }
    classOf.clear();

    // Lossy: a class drawn as an earlier one that looks the same.  Each
    // class is tried against a bounded number of earlier ones of its size,
    // so a page of a million specks stays linear.
    std::vector<uint32_t> root(members.size());
    for (uint32_t c = 0; c < members.size(); ++c) root[c] = c;
    if (options.lossy) {
        constexpr size_t kTries = 64;
        std::unordered_map<uint64_t, std::vector<uint32_t>> bySize;
        std::vector<Symbol> probe(members.size());
        for (size_t i = 0; i < set.components.size(); ++i) {
            const uint32_t c = cls[i];
            if (c == UINT32_MAX || !probe[c].bits.empty()) continue;
            probe[c] = {set.components[i].w, set.components[i].h, bits[c]};
            std::vector<uint32_t>& roots = bySize[uint64_t(probe[c].w) << 32 | probe[c].h];
            for (size_t k = 0; k < roots.size() && k < kTries; ++k)
                if (ShapesMatch(probe[roots[k]], probe[c])) {
                    root[c] = roots[k];
                    break;
                }
            if (root[c] == c) roots.push_back(c);
        }
        for (uint32_t c = 0; c < members.size(); ++c)
            if (root[c] != c) {
                members[root[c]] += members[c];
                plan.lossless = false;
            }
    }

    // Classes drawn twice or more become shapes; everything else stays.
    std::vector<uint32_t> shapeOf(members.size(), UINT32_MAX);
    const size_t rowBytes = (size_t(page.width) + 7) / 8;
    plan.residue.assign(rowBytes * page.height, 0);
    for (uint32_t y = 0; y < page.height; ++y)
        std::copy_n(page.rows.data() + size_t(y) * page.stride, rowBytes, plan.residue.data() + size_t(y) * rowBytes);
    uint32_t x0 = UINT32_MAX, y0 = UINT32_MAX, x1 = 0, y1 = 0;
    for (size_t i = 0; i < set.components.size(); ++i) {
        const Component& c = set.components[i];
        if (cls[i] == UINT32_MAX || members[root[cls[i]]] < 2) {
            x0 = std::min(x0, c.x);
            y0 = std::min(y0, c.y);
            x1 = std::max(x1, c.x + c.w);
            y1 = std::max(y1, c.y + c.h);
            continue;
        }
        const uint32_t r = root[cls[i]];
        uint32_t& shape = shapeOf[r];
        if (shape == UINT32_MAX) {
            shape = uint32_t(plan.shapes.size());
            plan.shapes.push_back({c.w, c.h, bits[r]});
        }
        plan.placements.push_back({shape, c.x, c.y, c.w, c.h});
        for (size_t r = c.firstRun; r < c.firstRun + c.runCount; ++r) {
            const Run& run = set.runs[r];
            uint8_t* row = plan.residue.data() + size_t(run.y) * rowBytes;
            for (uint32_t x = run.x0; x < run.x1; ++x) row[x >> 3] &= uint8_t(~(0x80 >> (x & 7)));
        }
    }
    if (x0 < x1) {
        plan.residue = Crop(plan.residue, rowBytes, x0, y0, x1 - x0, y1 - y0);
        plan.rx = x0;
        plan.ry = y0;
        plan.rw = x1 - x0;
        plan.rh = y1 - y0;
    } else {
        plan.residue.clear();
    }
    return plan;
}

std::vector<uint8_t> ComposePage(uint32_t width, uint32_t height, const std::vector<const Symbol*>& shapes,
                                 const std::vector<Placement>& placements, const std::vector<uint8_t>& residueRegion,
                                 const std::vector<uint32_t>& global, uint32_t globalSegment, uint32_t globalCount,
                                 bool lossless) {
    // Page segments are numbered after the global one, so the two never
    // share a number.
    SegmentWriter w(1, global.empty() ? 0 : globalSegment + 1);
    w.PageInformation(width, height, lossless);
    std::vector<uint32_t> referred;
    if (!global.empty()) referred.push_back(globalSegment);
    // The page's own shapes, numbered after the global ones.
    std::vector<const Symbol*> own;
    std::vector<uint32_t> ownIndex;
    for (size_t i = 0; i < shapes.size(); ++i)
        if (global.empty() || global[i] == UINT32_MAX) {
            own.push_back(shapes[i]);
            ownIndex.push_back(uint32_t(i));
        }
    std::vector<uint32_t> id(shapes.size());
    if (!global.empty()) id = global;
    if (!own.empty()) {
        std::vector<uint32_t> position;
        referred.push_back(w.Segment(kSegSymbolDictionary, SymbolDictionaryData(own, position)));
        for (size_t k = 0; k < own.size(); ++k) id[ownIndex[k]] = globalCount + position[k];
    }
    if (!placements.empty()) {
        std::vector<Placement> placed = placements;
        for (Placement& p : placed) p.id = id[p.id];
        w.Segment(lossless ? kSegImmediateLosslessTextRegion : kSegImmediateTextRegion,
                  SmallestTextRegionData(width, height, globalCount + uint32_t(own.size()), placed), referred);
    }
    if (!residueRegion.empty()) w.Segment(kSegImmediateLosslessGenericRegion, residueRegion);
    return w.Take();
}

std::vector<uint8_t> ResidueRegionData(const PagePlan& plan) {
    if (plan.rw == 0) return {};
    const Bitmap residue{plan.rw, plan.rh, (size_t(plan.rw) + 7) / 8, plan.residue};
    return GenericRegionData(residue, plan.rx, plan.ry, {});
}

std::vector<uint8_t> EncodePlannedPage(const PagePlan& plan, const std::vector<uint32_t>& global,
                                       uint32_t globalSegment, uint32_t globalCount) {
    std::vector<const Symbol*> shapes;
    for (const Symbol& s : plan.shapes) shapes.push_back(&s);
    return ComposePage(plan.width, plan.height, shapes, plan.placements, ResidueRegionData(plan), global,
                       globalSegment, globalCount, plan.lossless);
}

std::vector<uint8_t> EncodePage(const Bitmap& page, const SymbolOptions& options) {
    DocumentCoder one(options);
    uint32_t ticket;
    return one.Add(page, ticket);
}

}  // namespace jbig2
