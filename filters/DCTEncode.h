// JPEG (DCT) encoding of 8-bit samples through libjpeg, and an estimate of
// the quality an existing JPEG was made with, read from its quantisation
// tables.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace filters {

struct DCTEncodeParams {
    int quality = 80;  // libjpeg scale, 1..100
    // Three components: store YCbCr (the usual, smaller choice) instead of
    // the samples' own space.  The matching DecodeParms ColorTransform is
    // 1 when true and 0 when false.
    bool colorTransform = true;
    // Four components: write the APP14 marker, which tells readers that
    // the stored values are inverted CMYK.  Only for samples that came
    // from such a JPEG and are stored as they were.
    bool app14Marker = false;
};

// Encodes width x height interleaved samples of 1, 3 or 4 components,
// rows top to bottom, as a baseline JPEG with optimised Huffman tables.
// Raises "bad parameter" for other layouts or short data and "error in
// JPEG data filter" when libjpeg fails.
std::vector<uint8_t> EncodeDCT(std::span<const uint8_t> samples, int width, int height, int components,
                               const DCTEncodeParams& params);

// The libjpeg quality (1..100) whose scaled standard luminance table is
// closest to the JPEG's first quantisation table; 0 when the data holds
// no readable header or tables.
int EstimateDCTQuality(std::span<const uint8_t> jpeg);

}  // namespace filters
