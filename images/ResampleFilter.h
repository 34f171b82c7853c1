// Named resampling filters: a kernel function and the distance beyond which
// it is zero.  The image reduction step picks one by name (the settings turn
// the downsampling word into a name: "Subsample" -> "point", "Average" ->
// "box", "Bicubic" -> "triangle") and hands it to the resampler.
#pragma once

#include <memory>
#include <string>

namespace images {

typedef double (*ResampleKernel)(double x);

struct ResampleFilter {
    ResampleKernel kernel = nullptr;
    // Distance (in samples of the coarser grid) beyond which the kernel
    // is taken as zero.  It may reach past the kernel's own zero: the
    // triangle filter keeps 1.5 although its kernel ends at 1.
    float support = 0;
    // Extra widening of the kernel; 0 for every named filter, which the
    // resampler reads as "none" (a value above 1 would blur, below 1 sharpen).
    double blur = 0;
    std::string name;  // the filter's own copy of its name
};

// A new filter for `name`, compared case-sensitively with "box", "ptbox",
// "triangle", "mitchell", "lanczos", "LWbox" and "point" in that order;
// null for any other name.
std::unique_ptr<ResampleFilter> CreateResampleFilter(const std::string& name);

// The kernels, for a distance x in samples of the coarser grid.
double BoxKernel(double x);       // 1 on [-0.5, 0.5] (edges included with a 1e-7 tolerance)
double TriangleKernel(double x);  // 1 - |x| inside (-1, 1)
double MitchellKernel(double x);  // cubic with B = C = 1/3, zero from |x| = 2
double LanczosKernel(double x);   // three lobes, zero from |x| = 3

}  // namespace images
