// Lossless coding of a bilevel bitmap as a JBIG2 generic region: template 0
// with its nominal adaptive pixels, arithmetic (MQ) coding, and typical
// prediction, which codes a row equal to the one above with one decision.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace jbig2 {

// A bitmap as JBIG2 sees it: rows top to bottom, `stride` bytes apart,
// pixels packed most significant bit first, 1 meaning black.  Bits past
// the width in each row's last byte are ignored.
struct Bitmap {
    uint32_t width = 0;
    uint32_t height = 0;
    size_t stride = 0;
    std::span<const uint8_t> rows;
};

struct GenericOptions {
    bool typicalPrediction = true;
};

// The nominal adaptive-pixel offsets of template 0 (x, y pairs).
inline constexpr int8_t kTemplate0AT[8] = {3, -1, -3, -1, 2, -2, -2, -2};

// The arithmetic-coded data of the region (what follows the region's
// header fields in a generic region segment).  Raises "bad parameter" when
// the rows are shorter than width, height and stride say.
std::vector<uint8_t> EncodeGenericRegion(const Bitmap& bitmap, const GenericOptions& options = {});

class MQEncoder;
// Template 0 has 16 context bits.
inline constexpr size_t kGenericContexts = size_t(1) << 16;
// Codes the region into a running coder, with `contexts` (kGenericContexts
// adaptive states) carried over from region to region: how a symbol
// dictionary codes its bitmaps one after the other.
void EncodeGenericRegion(MQEncoder& mq, uint8_t* contexts, const Bitmap& bitmap, const GenericOptions& options);

}  // namespace jbig2
