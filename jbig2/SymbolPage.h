// Symbol coding of a page: the connected components that occur more than
// once become symbols of a dictionary, a text region places them, and
// what is left (pictures, rules, shapes drawn only once) is a generic
// region drawn with OR over the same page.  The decoded page is the input
// bit for bit, unless lossy matching is asked for.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "jbig2/GenericRegion.h"
#include "jbig2/TextCoding.h"

namespace jbig2 {

struct SymbolOptions {
    // Components wider or taller than this stay in the generic region: at
    // that size they are pictures or rules, not letters.
    uint32_t maxSide = 512;
    // Lossy: a component may be drawn as an earlier one that ShapesMatch
    // finds close enough, so the page is no longer exact.
    bool lossy = false;
};

// A page split into repeated shapes and the rest.
struct PagePlan {
    uint32_t width = 0, height = 0;
    std::vector<Symbol> shapes;          // each drawn at least twice
    std::vector<Placement> placements;   // `id` indexes `shapes`
    std::vector<uint8_t> residue;        // rw x rh at (rx, ry), rows of (rw + 7) / 8 bytes
    uint32_t rx = 0, ry = 0, rw = 0, rh = 0;  // rw = 0: nothing is left
    bool lossless = true;  // the plan draws the page exactly
};

// Nothing when the page cannot be split (too many runs of black).
std::optional<PagePlan> PlanPage(const Bitmap& page, const SymbolOptions& options = {});

// The page stream of a plan: page information, the page's own symbol
// dictionary, the text region and the residue.  Symbols listed in
// `global` are taken from a dictionary kept elsewhere (a JBIG2Globals
// stream whose dictionary is segment `globalSegment` and exports
// `globalCount` symbols); global[i] is the number in that dictionary of
// shapes[i], or UINT32_MAX when the shape is the page's own.  Empty
// `global`: every shape is the page's own.
std::vector<uint8_t> EncodePlannedPage(const PagePlan& plan, const std::vector<uint32_t>& global = {},
                                       uint32_t globalSegment = 0, uint32_t globalCount = 0);

// The page stream from its parts: `residueRegion` is the data of the
// residue's generic region (GenericRegionData), empty when there is none;
// `global` etc. as for EncodePlannedPage.
std::vector<uint8_t> ComposePage(uint32_t width, uint32_t height, const std::vector<const Symbol*>& shapes,
                                 const std::vector<Placement>& placements, const std::vector<uint8_t>& residueRegion,
                                 const std::vector<uint32_t>& global, uint32_t globalSegment, uint32_t globalCount,
                                 bool lossless = true);

// The data of the plan's residue region, empty when nothing is left.
std::vector<uint8_t> ResidueRegionData(const PagePlan& plan);

// The page as an embedded JBIG2 stream without globals: symbol coded when
// that is smaller than generic coding of the whole page, generic otherwise.
std::vector<uint8_t> EncodePage(const Bitmap& page, const SymbolOptions& options = {});

}  // namespace jbig2
