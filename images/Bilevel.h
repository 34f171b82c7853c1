// Work on bilevel (1-bit) bitmaps: thresholded downsampling that keeps thin
// lines, removal of isolated specks, descreening to gray, and CCITT fax
// encoding through libtiff.
//
// Bitmaps here are "ink" bitmaps: rows packed most significant bit first,
// (width + 7) / 8 bytes each, 1 marking ink (black on paper, the painted
// part of a mask), 0 the background.  Bits past the width are 0 in every
// result.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "images/Resampler.h"

namespace images {

struct InkBitmap {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> rows;
    size_t Stride() const { return (size_t(width) + 7) / 8; }
    bool Get(int x, int y) const { return (rows[size_t(y) * Stride() + size_t(x) / 8] >> (7 - x % 8)) & 1; }
};

// The share of a destination pixel's weight that must be ink for it to
// come out as ink, when shrinking by `ratio` (source pixels per destination
// pixel along the longer-shrinking side): 1 / (2 x ratio), kept between
// 1/8 and 1/2.  A one-pixel line covers at least 1 / ratio of the pixels it
// crosses, and at least half of that when it straddles two of them, so it
// stays visible up to a ratio of 4; at ratio 2 a pixel is ink when a
// quarter of its sources are.
double InkThreshold(double ratio);

// Shrinks `src` to dstWidth x dstHeight with the named resampling filter
// (a name CreateResampleFilter knows) and thresholds with InkThreshold.
// Raises "bad parameter" for an unknown filter or an empty size.
InkBitmap DownsampleInk(const InkBitmap& src, int dstWidth, int dstHeight, const std::string& filter);

// Clears every 8-connected group of ink pixels of at most `maxPixels`
// pixels that touches no other ink; returns how many pixels were cleared.
size_t Despeckle(InkBitmap& bitmap, int maxPixels);

// The largest speck Despeckle removes for an image at `ppi` pixels per inch
// (0 when unknown, taken as 300): specks up to about 0.15 mm across, that
// is 3 pixels at 300 ppi, 12 at 600, a single pixel at 200 ppi or less.
int SpeckSizeFor(double ppi);

// True when the ink forms a regular screen (a halftone or an ordered
// dither), the kind of bilevel image that descreening turns back into the
// grays it stands for; false for text, line art and noise.  Tiles of
// 32 x 32 pixels in mid-tones (15 % to 85 % ink) are sampled across the
// image; in each, the normalised autocorrelation of the ink is computed for
// shifts up to 12 pixels, and the tile is periodic when it has a local
// maximum of at least 0.5 at a shift of 2 pixels or more, with the
// correlation dipping at least 0.3 below it on the way from the origin (a
// screen comes back to itself there; strokes of text only resemble
// themselves at short shifts, and a rule or a staff line resembles itself
// all along, without a dip).  The image is a
// halftone when it has at least 4 mid-tone tiles and at least half of them
// are periodic.
bool LooksHalftoned(const InkBitmap& ink);

// Turns 1-bit samples (rows packed as PDF packs them, 0 and 1 becoming 0
// and 255) into an 8-bit gray raster of dstWidth x dstHeight: a 3 x 3 blur,
// then the triangle filter, which together average a halftone screen into
// the gray it stands for.
Raster DescreenToGray(std::span<const uint8_t> samples, int width, int height, int dstWidth, int dstHeight);

// CCITT fax data of an ink bitmap, one strip, encoded by libtiff: Group 4
// (K -1) or Group 3 one-dimensional (K 0, an end-of-line code before each
// row), never byte-aligned.  Decoded with BlackIs1 false, ink comes out as
// 0 samples.
enum class FaxGroup { G3, G4 };
std::vector<uint8_t> EncodeFax(const InkBitmap& ink, FaxGroup group);

}  // namespace images
