#include "images/ResampleFilter.h"

#include <cmath>

namespace images {

double BoxKernel(double x) {
    // The tolerance lets a sample lying exactly on either half-sample edge
    // count, so both neighbours of an even split contribute.
    return (x + 1e-7 > -0.5 && x - 1e-7 <= 0.5) ? 1.0 : 0.0;
}

double TriangleKernel(double x) {
    const double t = std::fabs(x);
    return t < 1.0 ? 1.0 - t : 0.0;
}

double MitchellKernel(double x) {
    const double t = std::fabs(x);
    const double t2 = t * t;
    const double t3 = t2 * t;
    if (t < 1.0) return (7.0 * t3 + -12.0 * t2 + 5.333333333333333) * 0.16666666666666666;
    if (t < 2.0)
        return (-2.3333333333333335 * t3 + 12.0 * t2 + -20.0 * t + 10.666666666666666) * 0.16666666666666666;
    return 0.0;
}

namespace {
double Sinc(double u) {
    const double pu = u * 3.141592653589793;
    if (pu == 0.0) return 1.0;
    return std::sin(pu) / pu;
}
}  // namespace

double LanczosKernel(double x) {
    const double t = std::fabs(x);
    if (t < 3.0) return Sinc(t) * Sinc(t / 3.0);
    return 0.0;
}

std::unique_ptr<ResampleFilter> CreateResampleFilter(const std::string& name) {
    struct Entry {
        const char* name;
        ResampleKernel kernel;
        float support;
    };
    static const Entry kFilters[] = {
        {"box", BoxKernel, 0.5f},        {"ptbox", BoxKernel, 0.5f},   {"triangle", TriangleKernel, 1.5f},
        {"mitchell", MitchellKernel, 2.0f}, {"lanczos", LanczosKernel, 3.0f}, {"LWbox", BoxKernel, 0.25f},
        {"point", BoxKernel, 0.0f},
    };
    for (const Entry& e : kFilters) {
        if (name != e.name) continue;
        auto f = std::make_unique<ResampleFilter>();
        f->kernel = e.kernel;
        f->support = e.support;
        f->blur = 0;
        f->name = e.name;
        return f;
    }
    return nullptr;
}

}  // namespace images
