#include "jbig2/Components.h"

#include <algorithm>
#include <bit>

#include "base/ASError.h"

namespace jbig2 {
namespace {

// Appends the runs of black in one packed row; bits past the width are
// not pixels.
void RowRuns(const uint8_t* row, uint32_t width, uint32_t y, std::vector<Run>& out) {
    const size_t bytes = (size_t(width) + 7) / 8;
    size_t b = 0;
    uint32_t x = 0;
    while (x < width) {
        // The next black pixel at or after x.
        b = x >> 3;
        unsigned v = row[b] & (0xFFu >> (x & 7));
        while (v == 0) {
            if (++b >= bytes) return;
            v = row[b];
        }
        x = uint32_t(b * 8) + uint32_t(std::countl_zero(uint8_t(v)));
        if (x >= width) return;
        // The next white pixel after it.
        v = uint8_t(~row[b]) & (0xFFu >> (x & 7));
        while (v == 0 && ++b < bytes) v = uint8_t(~row[b]);
        const uint32_t end =
            b >= bytes ? width : std::min(width, uint32_t(b * 8) + uint32_t(std::countl_zero(uint8_t(v))));
        out.push_back({y, x, end});
        x = end;
    }
}

uint32_t Find(std::vector<uint32_t>& parent, uint32_t i) {
    while (parent[i] != i) {
        parent[i] = parent[parent[i]];  // path halving
        i = parent[i];
    }
    return i;
}

void Unite(std::vector<uint32_t>& parent, uint32_t a, uint32_t b) {
    a = Find(parent, a);
    b = Find(parent, b);
    // The older run stays the root, so a component's root is its first run.
    if (a < b)
        parent[b] = a;
    else if (b < a)
        parent[a] = b;
}

}  // namespace

std::vector<uint8_t> ComponentSet::Bits(const Component& c) const {
    const size_t stride = (size_t(c.w) + 7) / 8;
    std::vector<uint8_t> bits(stride * c.h, 0);
    for (size_t i = c.firstRun; i < c.firstRun + c.runCount; ++i) {
        const Run& r = runs[i];
        uint8_t* row = bits.data() + size_t(r.y - c.y) * stride;
        for (uint32_t x = r.x0 - c.x; x < r.x1 - c.x; ++x) row[x >> 3] |= uint8_t(0x80 >> (x & 7));
    }
    return bits;
}

std::optional<ComponentSet> FindComponents(const Bitmap& bm, size_t maxRuns, size_t maxComponents) {
    const size_t rowBytes = (size_t(bm.width) + 7) / 8;
    if (bm.stride < rowBytes || (bm.height > 0 && bm.rows.size() < bm.stride * (bm.height - 1) + rowBytes))
        ASRaiseErr(ErrSysGeneral, kErrBadParm);
    std::vector<Run> runs;
    std::vector<uint32_t> parent;
    size_t prevBegin = 0;
    for (uint32_t y = 0; y < bm.height; ++y) {
        const size_t begin = runs.size();
        RowRuns(bm.rows.data() + size_t(y) * bm.stride, bm.width, y, runs);
        if (runs.size() > maxRuns) return std::nullopt;
        for (size_t i = begin; i < runs.size(); ++i) parent.push_back(uint32_t(i));
        // Join each run with the runs above that touch it, diagonally
        // included: both lists are sorted, so one pointer walks the row above.
        size_t j = prevBegin;
        for (size_t i = begin; i < runs.size(); ++i) {
            const Run& c = runs[i];
            while (j < begin && runs[j].x1 < c.x0) ++j;
            for (size_t k = j; k < begin && runs[k].x0 <= c.x1; ++k) Unite(parent, uint32_t(i), uint32_t(k));
        }
        prevBegin = begin;
    }
    ComponentSet set;
    // Number the components in the order of their roots (first runs).
    constexpr uint32_t kNone = UINT32_MAX;
    std::vector<uint32_t> id(runs.size(), kNone);
    std::vector<uint32_t> compOf(runs.size());
    for (size_t i = 0; i < runs.size(); ++i) {
        const uint32_t root = Find(parent, uint32_t(i));
        if (id[root] == kNone) {
            if (set.components.size() == maxComponents) return std::nullopt;
            id[root] = uint32_t(set.components.size());
            Component c;
            c.x = runs[i].x0;
            c.y = runs[i].y;
            c.w = runs[i].x1;  // right edge until the end
            c.h = runs[i].y;   // bottom row until the end
            set.components.push_back(c);
        }
        Component& c = set.components[id[root]];
        compOf[i] = id[root];
        c.x = std::min(c.x, runs[i].x0);
        c.w = std::max(c.w, runs[i].x1);
        c.h = runs[i].y;
        c.pixels += runs[i].x1 - runs[i].x0;
        ++c.runCount;
    }
    parent = {};
    id = {};
    size_t at = 0;
    for (Component& c : set.components) {
        c.w -= c.x;
        c.h = c.h - c.y + 1;
        c.firstRun = at;
        at += c.runCount;
        c.runCount = 0;
    }
    set.runs.resize(runs.size());
    for (size_t i = 0; i < runs.size(); ++i) {
        Component& c = set.components[compOf[i]];
        set.runs[c.firstRun + c.runCount++] = runs[i];
    }
    return set;
}

}  // namespace jbig2
