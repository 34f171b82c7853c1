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

// The pixels of `rows` (`stride` bytes apart) in the rectangle, rows of
// (w + 7) / 8 bytes.
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
    std::vector<std::pair<uint32_t, uint32_t>> size;
    for (size_t i = 0; i < set.components.size(); ++i) {
        const Component& c = set.components[i];
        if (c.w > options.maxSide || c.h > options.maxSide) continue;
        std::vector<uint8_t> b = set.Bits(c);
        auto [it, added] = classOf.try_emplace(ShapeKey(c.w, c.h, b), uint32_t(members.size()));
        if (added) {
            members.push_back(0);
            bits.push_back(std::move(b));
            size.emplace_back(c.w, c.h);
        }
        cls[i] = it->second;
        ++members[it->second];
    }
    classOf.clear();

    // Lossy: a class drawn as an earlier one that looks the same, of its
    // size or one pixel off, laid over it in the place where they match.
    // Each class is tried against a bounded number of earlier ones, so a
    // page of a million specks stays linear.
    std::vector<uint32_t> root(members.size());
    std::vector<std::pair<int, int>> offset(members.size(), {0, 0});  // the member's corner in its root's box
    for (uint32_t c = 0; c < members.size(); ++c) root[c] = c;
    if (options.lossy) {
        constexpr size_t kTries = 64;
        std::unordered_map<uint64_t, std::vector<uint32_t>> bySize;
        std::vector<Symbol> probe(members.size());
        for (size_t i = 0; i < set.components.size(); ++i) {
            const uint32_t c = cls[i];
            if (c == UINT32_MAX || !probe[c].bits.empty()) continue;
            const Symbol& shape = probe[c] = {set.components[i].w, set.components[i].h, bits[c]};
            size_t tries = 0;
            for (int dw : {0, -1, 1})
                for (int dh : {0, -1, 1}) {
                    if (root[c] != c || int64_t(shape.w) + dw < 1 || int64_t(shape.h) + dh < 1) continue;
                    auto it = bySize.find(uint64_t(shape.w + dw) << 32 | uint32_t(shape.h + dh));
                    if (it == bySize.end()) continue;
                    for (uint32_t r : it->second) {
                        if (tries++ == kTries || root[c] != c) break;
                        // A root one pixel larger may hold the member at 0 or 1.
                        for (int ox = std::min(0, dw); ox <= std::max(0, dw) && root[c] == c; ++ox)
                            for (int oy = std::min(0, dh); oy <= std::max(0, dh) && root[c] == c; ++oy)
                                if (ShapesMatch(probe[r], shape, ox, oy)) {
                                    root[c] = r;
                                    offset[c] = {ox, oy};
                                }
                    }
                }
            if (root[c] == c) bySize[uint64_t(shape.w) << 32 | shape.h].push_back(c);
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
        const auto [ox, oy] = cls[i] == UINT32_MAX ? std::pair<int, int>{0, 0} : offset[cls[i]];
        // A shape drawn one pixel up or left of a component at the edge
        // would leave the page: such a component stays as it is.
        const bool fits = int64_t(c.x) >= ox && int64_t(c.y) >= oy;
        if (cls[i] == UINT32_MAX || members[root[cls[i]]] < 2 || !fits) {
            x0 = std::min(x0, c.x);
            y0 = std::min(y0, c.y);
            x1 = std::max(x1, c.x + c.w);
            y1 = std::max(y1, c.y + c.h);
            continue;
        }
        const uint32_t r = root[cls[i]];
        uint32_t& shape = shapeOf[r];
        if (shape == UINT32_MAX) {
            // The root's own size: a member may be a pixel larger or smaller.
            shape = uint32_t(plan.shapes.size());
            plan.shapes.push_back({size[r].first, size[r].second, bits[r]});
        }
        const Symbol& drawn = plan.shapes[shape];
        plan.placements.push_back({shape, uint32_t(int64_t(c.x) - ox), uint32_t(int64_t(c.y) - oy), drawn.w, drawn.h});
        for (size_t k = c.firstRun; k < c.firstRun + c.runCount; ++k) {
            const Run& run = set.runs[k];
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
