// Colour reduction of image XObjects: palettisation and quantisation.
//
// Palettisation is lossless: an image whose samples hold few distinct
// colours is stored as indices into a table of those colours (an Indexed
// colour space over the image's own space, ICC profile and all), at the
// smallest depth that holds the table (1, 2, 4 or 8 bits per pixel).  A
// one-component image whose levels all sit on the grid of a smaller depth
// (only black and white, or only 0, 85, 170, 255) needs no table: it keeps
// its colour space and Decode array and is stored at that depth.
//
// Quantisation is lossy and only for RGB images: their colours are reduced
// to a palette of at most `maxColors` entries with error diffusion, and the
// result is kept only when it stays within the quality bound (a PSNR of
// at least `minPsnr` dB over all samples, against the image itself).
//
// Either result replaces the image only when it is smaller than the image
// as it is stored (the colour table counted).  What is left alone:
//  - image masks, inline images (never seen here), soft masks (a soft mask
//    stays with its image as it is), images that are Indexed already;
//  - JPX, JBIG2 and CCITT images and images in an external file;
//  - 16-bit images whose samples are not all 8-bit values in disguise
//    (v = 257 * b), for palettisation;
//  - Decode arrays other than the plain one or the inverted one ([1 0] per
//    component), and soft masks with a Matte colour, for images that would
//    get a colour table;
//  - for quantisation: anything but three-component RGB-like spaces (no
//    gray, CMYK, Lab, Separation or DeviceN), colour-keyed images and
//    images with a Decode array.
// A colour-key Mask is kept exact: the keyed colours take the first
// entries of the table and the Mask becomes that range of indices.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "images/ImageReduce.h"
#include "images/Resampler.h"

namespace images {

// Indices into a colour table, one byte per pixel.
struct IndexedRaster {
    int width = 0;
    int height = 0;
    int colors = 1;               // components of each table entry
    int entries = 0;              // table entries in use
    std::vector<uint8_t> table;   // entries x colors bytes
    std::vector<uint8_t> indices; // width x height
};

// The smallest of 1, 2, 4, 8 bits that holds `entries` indices.
int IndexBits(int entries);

// The distinct colours of an 8-bit raster without alpha, in the order they
// first appear, with every pixel's index; nullopt when there are more than
// `maxEntries` (at most 256).
std::optional<IndexedRaster> ExactPalette(const Raster& r, int maxEntries = 256);

// For an 8-bit one-component raster: the smallest depth of 1, 2 or 4 bits
// whose levels (0, 255 / (2^k - 1), ...) hold every sample; 0 if none.
int GridBits(const Raster& gray);

// Packs one value per sample (each below 2^bits) into PDF rows of `bits`
// per sample, each row padded to a whole byte.
std::vector<uint8_t> PackSamples(const std::vector<uint8_t>& values, int width, int height, int components, int bits);

// The table's colours at every pixel: the inverse of ExactPalette.
Raster ExpandIndexed(const IndexedRaster& ir);

// Peak signal-to-noise ratio in dB between two 8-bit rasters of the same
// layout; infinity when they are equal.
double Psnr(const Raster& a, const Raster& b);

struct ColourReductionParams {
    bool palettize = false;
    bool quantize = false;
    int maxColors = 256;  // 2..256
    double minPsnr = 35;  // quantisation's quality bound
    ImageCompression compression = ImageCompression::Original;  // LZW, Packbits: used; else Flate
    int flateLevel = 9;
    bool flatePrediction = true;
    uint64_t maxDecodedBytes = uint64_t(512) << 20;

    bool Active() const { return palettize || quantize; }
};

enum class ColourOutcome {
    Palettized,  // now Indexed (or a smaller depth), exactly as before
    Quantized,   // now Indexed with fewer colours, within the bound
    NotSmaller,  // a result was found but was not smaller
    Unchanged,   // nothing applies: too many colours, or not asked for
    LeftAlone,   // a kind of image this step does not change
    Bad,         // damaged data or dictionary
};

struct ColourResult {
    ColourOutcome outcome = ColourOutcome::Unchanged;
    std::string reason;
    size_t bytesBefore = 0;
    size_t bytesAfter = 0;
    int colours = 0;   // table entries (or levels) of the result
    int bits = 0;      // bits per pixel of the result
    double psnr = 0;   // for quantisation
};

// Palettises or quantises `image` (an image XObject) as `params` allow.
// Never raises for bad image data: that is a Bad result.
ColourResult ReduceColours(CosObj image, const ColourReductionParams& params);

}  // namespace images
