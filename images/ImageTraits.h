// What the image steps read from an image dictionary before touching its
// data: the colour space and the family of the filter that codes the
// samples.  One reading, so that every step agrees on which images it can
// take on.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

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

// The first `expected` decoded bytes of an image or soft-mask stream, or
// nullopt with `problem` saying why ("damaged image data", "image data is
// shorter than its size says").  Data damaged after the last row still
// holds every sample and is taken.  Producers often leave some bytes after
// the last row: decoding allows for a quarter more (and 64 KB), never more
// than `limit`, so a hostile stream cannot grow without bound.
std::optional<std::vector<uint8_t>> DecodeImageData(CosObj stream, uint64_t expected, uint64_t limit,
                                                    std::string* problem);

}  // namespace images
