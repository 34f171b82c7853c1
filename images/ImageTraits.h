// What the image steps read from an image dictionary before touching its
// data: the colour space and the family of the filter that codes the
// samples.  One reading, so that every step agrees on which images it can
// take on.
#pragma once

#include <string>

#include "pdfcore/CosObj.h"

namespace images {

struct ColourSpaceInfo {
    int components = 0;      // 0 when the space cannot be used
    bool indexed = false;
    int indexedBase = 0;     // components of an Indexed space's base
    bool rgbLike = false;    // DeviceRGB, CalRGB or a 3-component ICC space
    bool unitRanges = true;  // every component runs 0..1 (not Lab, not an ICC space with a Range)
    std::string problem;     // why the space cannot be handled
};

ColourSpaceInfo ReadColourSpace(CosObj cs);

// A colour space's family: its name, or the name its array begins with;
// "" for anything else.
std::string ColourSpaceFamily(CosObj cs);

enum class FilterFamily { Raw, Flate, LZW, RunLength, DCT, JPX, JBIG2, CCITT, Other };

// The family of the image's last filter, which decides how its samples are
// coded (ASCII filters count as raw data); `chainLength` receives the
// number of filters.
FilterFamily FilterFamilyOf(CosObj image, int* chainLength = nullptr);

}  // namespace images
