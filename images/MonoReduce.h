// Reduction of one bilevel image XObject (the mono class: image masks and
// 1-bit images, CCITT and JBIG2 ones included): despeckling, downsampling
// with a threshold that keeps thin lines, descreening to gray, and
// recompression with a bilevel encoding.  The result replaces the image
// only when it is smaller.
//
// The samples keep their meaning: the colour space, Decode array and a
// colour-key Mask stay as they were, so an image mask with Decode [1 0]
// or a two-colour palette image looks as before.  Which sample value is
// ink (what thin lines and specks are made of) follows from them: the
// painted value of a mask, the darker colour otherwise.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "images/ImageReduce.h"

namespace images {

enum class MonoCompression { Original, CCITTG4, CCITTG3, JBIG2, Flate, LZW, Packbits };

// Codes a bitmap (rows of (width + 7) / 8 bytes, 1 meaning black) as an
// embedded JBIG2 stream without globals.  The JBIG2 coder lives above this
// library and is handed in.
using BilevelEncoder = std::function<std::vector<uint8_t>(std::span<const uint8_t> rows, int width, int height)>;

struct MonoParams {
    bool downsample = false;
    std::string resampleFilter;
    double thresholdPpi = 0;
    double targetPpi = 0;
    MonoCompression compression = MonoCompression::Original;
    int flateLevel = 9;
    bool interpolate = false;
    bool despeckle = false;
    bool descreen = false;  // downsampled 1-bit gray images become 8-bit gray
    BilevelEncoder jbig2;
    // Largest image (in pixels) taken on; bigger ones are left as they are.
    uint64_t maxPixels = uint64_t(256) << 20;

    bool Active() const { return downsample || interpolate || despeckle || compression != MonoCompression::Original; }
};

// Reduces a bilevel image drawn at most at ppiX x ppiY pixels per inch.
// Never raises for bad image data: that is a Bad result.
ReductionResult ReduceMonoImage(CosObj image, double ppiX, double ppiY, const MonoParams& params);

}  // namespace images
