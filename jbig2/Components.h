// Connected components of a bilevel bitmap: 8-connected groups of black
// pixels, found in one pass over the packed rows as runs joined by
// union-find, with their bounding boxes and their own pixels.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "jbig2/GenericRegion.h"

namespace jbig2 {

// Black pixels x0 .. x1 - 1 of row y.
struct Run {
    uint32_t y, x0, x1;
};

struct Component {
    uint32_t x = 0, y = 0, w = 0, h = 0;  // bounding box
    uint64_t pixels = 0;
    size_t firstRun = 0, runCount = 0;  // its runs in ComponentSet::runs
};

struct ComponentSet {
    // In the order of their first pixel (top to bottom, left to right).
    std::vector<Component> components;
    // Grouped by component, each component's runs in raster order.
    std::vector<Run> runs;

    // The component's own pixels in its bounding box (pixels of other
    // components inside the box stay white), rows of (w + 7) / 8 bytes.
    std::vector<uint8_t> Bits(const Component& c) const;
};

// A page with more runs than this is no text page (noise, dithering): it
// is not worth symbol coding, and the run table would grow with the
// pixels.  Two million runs take about 40 MB.
inline constexpr size_t kMaxRuns = size_t(1) << 21;
// Nor is a page of more than half a million components (a dense 600 ppi
// text page has a few thousand): this bounds what classifying them takes.
inline constexpr size_t kMaxComponents = size_t(1) << 19;

// The components, or nothing when the bitmap has more than `maxRuns` runs
// of black or more than `maxComponents` components.  Raises "bad
// parameter" when the rows are shorter than the sizes say.
std::optional<ComponentSet> FindComponents(const Bitmap& bitmap, size_t maxRuns = kMaxRuns,
                                           size_t maxComponents = kMaxComponents);

}  // namespace jbig2
