// JBIG2 segments as a PDF embeds them: no file header, each segment a
// header (number, type, page association, data length) and its data.
// `EncodeGenericPage` puts one bitmap on one page: a page information
// segment and an immediate lossless generic region covering the page.  The
// end of the stream ends the page; an end-of-page segment is left out,
// since some PDF readers report it as an unknown segment (they draw the
// page all the same, but say the file is damaged).
#pragma once

#include <cstdint>
#include <vector>

#include "jbig2/GenericRegion.h"

namespace jbig2 {

enum SegmentType : uint8_t {
    kSegSymbolDictionary = 0,
    kSegImmediateTextRegion = 6,
    kSegImmediateLosslessTextRegion = 7,
    kSegImmediateGenericRegion = 38,
    kSegImmediateLosslessGenericRegion = 39,
    kSegPageInformation = 48,
    kSegEndOfPage = 49,
};

// Writes segments one after the other, numbering them from `first`, all
// associated with one page (page 0: the document's global segments, as a
// JBIG2Globals stream holds them).
class SegmentWriter {
public:
    explicit SegmentWriter(uint32_t page = 1, uint32_t first = 0) : page_(page), next_(first) {}

    // Page of `width` x `height` pixels, white by default, not striped;
    // `lossless` tells readers every region on it is coded exactly.
    void PageInformation(uint32_t width, uint32_t height, bool lossless);
    // A generic region at (x, y) on the page, coded with template 0 and the
    // given options; `lossless` selects the lossless segment type.
    void ImmediateGenericRegion(const Bitmap& bitmap, uint32_t x, uint32_t y, const GenericOptions& options,
                                bool lossless);
    void EndOfPage();
    // Any segment, referring to the segments numbered in `referred` (at most
    // four); returns its number.
    uint32_t Segment(SegmentType type, const std::vector<uint8_t>& data, const std::vector<uint32_t>& referred = {});

    const std::vector<uint8_t>& Bytes() const { return out_; }
    std::vector<uint8_t> Take() { return std::move(out_); }

private:
    void Header(SegmentType type, uint32_t dataLength, const std::vector<uint32_t>& referred = {});

    uint32_t page_;
    uint32_t next_ = 0;
    std::vector<uint8_t> out_;
};

// One bitmap as a complete embedded JBIG2 stream (see above).
std::vector<uint8_t> EncodeGenericPage(const Bitmap& bitmap, const GenericOptions& options = {});

// The data of an immediate lossless generic region (region information,
// flags, AT pixels, code) of `bitmap` placed at (x, y).
std::vector<uint8_t> GenericRegionData(const Bitmap& bitmap, uint32_t x, uint32_t y, const GenericOptions& options);

}  // namespace jbig2
