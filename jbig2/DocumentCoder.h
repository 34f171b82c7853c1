// Symbol coding across the pages of a document.  Each page is first coded
// on its own (EncodePage); the coder keeps what it needs to code it again
// (its shapes, placements and coded residue, not its pixels), and at the
// end moves the shapes that occur on several pages into one dictionary
// that every page refers to (a PDF's JBIG2Globals stream), when the
// pages and the dictionary together come out smaller.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "jbig2/SymbolPage.h"

namespace jbig2 {

class DocumentCoder {
public:
    explicit DocumentCoder(SymbolOptions options = {}) : options_(options) {}

    // The page coded on its own, as EncodePage codes it.  `ticket` names the
    // page for Share (UINT32_MAX when it has no shapes to share).
    std::vector<uint8_t> Add(const Bitmap& page, uint32_t& ticket);
    // The page's coding was not used after all: Share leaves it out.
    void Drop(uint32_t ticket);

    struct Shared {
        std::vector<uint8_t> globals;  // the dictionary, segment 0 of page 0
        // The new stream of each page that refers to the dictionary, by ticket.
        std::vector<std::pair<uint32_t, std::vector<uint8_t>>> pages;
        size_t bytesBefore = 0, bytesAfter = 0;  // the pages (and dictionary) alone and shared
    };
    // Nothing when no shape occurs on two pages or sharing is not smaller.
    std::optional<Shared> Share() const;

private:
    struct PageRecord {
        uint32_t width = 0, height = 0;
        std::vector<uint32_t> shapes;        // into shapes_
        std::vector<Placement> placements;   // `id` indexes the record's shapes
        std::vector<uint8_t> residueRegion;  // GenericRegionData, or empty
        size_t alone = 0;                    // bytes of the page coded on its own
        bool lossless = true;
        bool live = true;
    };
    SymbolOptions options_;
    std::vector<PageRecord> pages_;
    std::vector<Symbol> shapes_;
    std::unordered_map<std::string, uint32_t> index_;  // shape bits -> shapes_
};

}  // namespace jbig2
