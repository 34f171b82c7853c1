// The resampling loop: changes an image's size with a named filter.
//
// The work is separable: every row is first resampled across (columns),
// then the rows are combined down (rows).  For one axis with `n` source
// samples and `m` destination samples, destination sample j is centred at
// c = (j + 0.5) * n / m in source coordinates (sample i covers [i, i + 1)).
// When reducing (n > m) distances are measured in destination samples:
// source sample i gets the weight kernel((i + 0.5 - c) * m / n), and the
// filter's support is stretched by n / m, so a box filter at ratio k covers
// exactly k source samples.  When enlarging, distances stay in source
// samples.  The weights of each destination sample are divided by their sum
// (so they always add up to 1); source positions beyond the edges take the
// edge sample.  A filter whose reach holds no sample (the point filter at an
// even ratio) takes the source sample nearest to the centre.
//
// Box and point filters at whole-number ratios on both axes take a fast
// path with integer block sums that gives the same result.
//
// Samples are interleaved, rows top to bottom, 8 or 16 bits per sample
// (16-bit samples big-endian, as PDF stores them), with 1 to 4 colour
// components and optionally one alpha channel after them.  With alpha the
// colours are weighted by their alpha, so fully transparent samples never
// bleed colour into visible ones.
#pragma once

#include <cstdint>
#include <vector>

#include "images/ResampleFilter.h"

namespace images {

struct Raster {
    int width = 0;
    int height = 0;
    int colors = 1;      // colour components, 1..4
    bool alpha = false;  // one more channel, after the colours
    int bits = 8;        // 8 or 16
    std::vector<uint8_t> data;

    int Channels() const { return colors + (alpha ? 1 : 0); }
    size_t RowBytes() const { return size_t(width) * size_t(Channels()) * size_t(bits / 8); }
    size_t ByteSize() const { return RowBytes() * size_t(height); }
};

// One destination sample's source samples along one axis: indices
// first, first + 1, ... with their weights (summing to 1).
struct Contribution {
    int first = 0;
    std::vector<double> weights;
};

// The weights for resampling `srcSize` samples to `dstSize` with `filter`.
std::vector<Contribution> ComputeContributions(int srcSize, int dstSize, const ResampleFilter& filter);

// Resamples `src` to dstWidth x dstHeight (both at least 1).  Raises
// "bad parameter" for a raster whose data is shorter than its size says or
// whose layout is not one described above.  Memory beyond source and
// result stays within a few rows.
Raster Resample(const Raster& src, int dstWidth, int dstHeight, const ResampleFilter& filter);

}  // namespace images
