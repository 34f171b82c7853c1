// Colour quantisation of RGB rasters: a palette of at most a given number
// of colours chosen for the image, and the image remapped onto it with
// error diffusion, so gradients stay smooth instead of banding.
//
// The palette search and the remapping are libimagequant's: it picks the
// palette by a variance-based median cut refined with k-means in a
// perceptual colour space, and dithers with Floyd-Steinberg weighted by
// how busy the surroundings are (smooth areas get less noise).
#pragma once

#include <optional>
#include <string>

#include "images/Palette.h"

namespace images {

// Quantises an 8-bit three-component raster (no alpha) to at most
// `maxColors` (clamped to 2..256) table entries.  Nullopt, with the reason
// in `why`, when the raster has another layout or the quantiser fails.
// `quick` trades some quality for speed (for estimates).
std::optional<IndexedRaster> QuantizeRGB(const Raster& rgb, int maxColors, std::string* why, bool quick = false);

}  // namespace images
