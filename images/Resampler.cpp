#include "images/Resampler.h"

#include <algorithm>
#include <cmath>
#include <deque>

#include "base/ASError.h"

namespace images {
namespace {

inline double SampleAt(const uint8_t* row, size_t index, int bits) {
    if (bits == 16) return double((unsigned(row[2 * index]) << 8) | row[2 * index + 1]);
    return double(row[index]);
}

inline void StoreSample(uint8_t* row, size_t index, int bits, double v) {
    const double maxValue = bits == 16 ? 65535.0 : 255.0;
    v = std::clamp(std::floor(v + 0.5), 0.0, maxValue);
    const unsigned u = unsigned(v);
    if (bits == 16) {
        row[2 * index] = uint8_t(u >> 8);
        row[2 * index + 1] = uint8_t(u & 0xFF);
    } else {
        row[index] = uint8_t(u);
    }
}

void CheckRaster(const Raster& r) {
    if (r.width <= 0 || r.height <= 0 || r.colors < 1 || r.colors > 4 || (r.bits != 8 && r.bits != 16) ||
        r.data.size() < r.ByteSize())
        ASRaiseErr(ErrSysGeneral, kErrBadParm);
}

bool IsBox(const ResampleFilter& f) { return f.kernel == BoxKernel && f.support == 0.5f && f.blur == 0; }
bool IsPoint(const ResampleFilter& f) { return f.kernel == BoxKernel && f.support == 0.0f && f.blur == 0; }

// Block sums at whole-number ratios: box is the mean of each kx x ky block,
// point the sample nearest the block's centre (as the general path picks).
Raster IntegerRatio(const Raster& src, int dstW, int dstH, bool point) {
    Raster out = src;
    out.width = dstW;
    out.height = dstH;
    out.data.assign(out.ByteSize(), 0);
    const int kx = src.width / dstW, ky = src.height / dstH;
    const int ch = src.Channels();
    const int alphaIndex = src.alpha ? src.colors : -1;
    const size_t srcRow = src.RowBytes(), dstRow = out.RowBytes();
    std::vector<double> acc(size_t(dstW) * size_t(ch));
    for (int y = 0; y < dstH; ++y) {
        uint8_t* drow = out.data.data() + size_t(y) * dstRow;
        if (point) {
            const uint8_t* srow = src.data.data() + size_t(y * ky + ky / 2) * srcRow;
            for (int x = 0; x < dstW; ++x)
                for (int c = 0; c < ch; ++c)
                    StoreSample(drow, size_t(x) * ch + c, src.bits,
                                SampleAt(srow, size_t(x * kx + kx / 2) * ch + c, src.bits));
            continue;
        }
        std::fill(acc.begin(), acc.end(), 0.0);
        for (int sy = y * ky; sy < (y + 1) * ky; ++sy) {
            const uint8_t* srow = src.data.data() + size_t(sy) * srcRow;
            for (int x = 0; x < dstW; ++x) {
                double* a = &acc[size_t(x) * ch];
                for (int sx = x * kx; sx < (x + 1) * kx; ++sx) {
                    const double w = alphaIndex >= 0 ? SampleAt(srow, size_t(sx) * ch + alphaIndex, src.bits) : 1.0;
                    for (int c = 0; c < ch; ++c) {
                        const double v = SampleAt(srow, size_t(sx) * ch + c, src.bits);
                        a[c] += c == alphaIndex ? v : v * w;
                    }
                }
            }
        }
        const double n = double(kx) * double(ky);
        for (int x = 0; x < dstW; ++x) {
            const double* a = &acc[size_t(x) * ch];
            for (int c = 0; c < ch; ++c) {
                double v = a[c] / n;
                if (alphaIndex >= 0 && c != alphaIndex) v = a[alphaIndex] > 0 ? a[c] / a[alphaIndex] : 0.0;
                StoreSample(drow, size_t(x) * ch + c, src.bits, v);
            }
        }
    }
    return out;
}

}  // namespace

std::vector<Contribution> ComputeContributions(int srcSize, int dstSize, const ResampleFilter& filter) {
    if (srcSize <= 0 || dstSize <= 0 || !filter.kernel) ASRaiseErr(ErrSysGeneral, kErrBadParm);
    std::vector<Contribution> out(static_cast<size_t>(dstSize));
    const double ratio = double(srcSize) / double(dstSize);
    const double blur = filter.blur > 0 ? filter.blur : 1.0;
    // Distances are in destination samples when reducing, source samples when enlarging.
    const double scale = std::max(ratio, 1.0) * blur;
    const double reach = double(filter.support) * scale;
    std::vector<double> w;
    for (int j = 0; j < dstSize; ++j) {
        const double centre = (j + 0.5) * ratio;
        const int lo = int(std::floor(centre - reach - 0.5));
        const int hi = int(std::ceil(centre + reach - 0.5));
        // Positions outside the image are folded onto the edge samples.
        const int first = std::clamp(lo, 0, srcSize - 1);
        const int last = std::clamp(hi, 0, srcSize - 1);
        w.assign(size_t(last - first + 1), 0.0);
        double sum = 0;
        for (int i = lo; i <= hi; ++i) {
            const double d = (i + 0.5 - centre);
            if (std::fabs(d) > reach + 1e-9) continue;
            const double k = filter.kernel(d / scale);
            if (k == 0.0) continue;
            w[size_t(std::clamp(i, 0, srcSize - 1) - first)] += k;
            sum += k;
        }
        Contribution& c = out[size_t(j)];
        if (std::fabs(sum) < 1e-12) {
            c.first = std::clamp(int(std::floor(centre)), 0, srcSize - 1);
            c.weights.assign(1, 1.0);
            continue;
        }
        // Trim zero weights at both ends so the loops below stay short.
        size_t a = 0, b = w.size();
        while (a < b && w[a] == 0.0) ++a;
        while (b > a && w[b - 1] == 0.0) --b;
        c.first = first + int(a);
        c.weights.assign(w.begin() + long(a), w.begin() + long(b));
        for (double& x : c.weights) x /= sum;
    }
    return out;
}

Raster Resample(const Raster& src, int dstWidth, int dstHeight, const ResampleFilter& filter) {
    CheckRaster(src);
    if (dstWidth <= 0 || dstHeight <= 0 || !filter.kernel) ASRaiseErr(ErrSysGeneral, kErrBadParm);
    if ((IsBox(filter) || IsPoint(filter)) && src.width % dstWidth == 0 && src.height % dstHeight == 0)
        return IntegerRatio(src, dstWidth, dstHeight, IsPoint(filter));

    const std::vector<Contribution> across = ComputeContributions(src.width, dstWidth, filter);
    const std::vector<Contribution> down = ComputeContributions(src.height, dstHeight, filter);
    const int ch = src.Channels();
    const int alphaIndex = src.alpha ? src.colors : -1;
    const size_t srcRow = src.RowBytes();
    const size_t dstSamples = size_t(dstWidth) * size_t(ch);

    Raster out = src;
    out.width = dstWidth;
    out.height = dstHeight;
    out.data.assign(out.ByteSize(), 0);

    // Rows resampled across, kept while a destination row still needs them.
    // With alpha, colours are stored premultiplied.
    std::deque<std::vector<double>> cache;
    int cacheFirst = 0;
    auto acrossRow = [&](int sy) {
        std::vector<double> row(dstSamples, 0.0);
        const uint8_t* s = src.data.data() + size_t(sy) * srcRow;
        for (int x = 0; x < dstWidth; ++x) {
            const Contribution& c = across[size_t(x)];
            double* r = &row[size_t(x) * ch];
            for (size_t k = 0; k < c.weights.size(); ++k) {
                const size_t base = size_t(c.first + int(k)) * ch;
                const double wk = c.weights[k];
                const double a = alphaIndex >= 0 ? SampleAt(s, base + alphaIndex, src.bits) : 1.0;
                for (int ci = 0; ci < ch; ++ci) {
                    const double v = SampleAt(s, base + ci, src.bits);
                    r[ci] += wk * (ci == alphaIndex ? v : v * a);
                }
            }
        }
        return row;
    };

    std::vector<double> acc(dstSamples);
    for (int y = 0; y < dstHeight; ++y) {
        const Contribution& c = down[size_t(y)];
        const int need = c.first;
        while (!cache.empty() && cacheFirst < need) {
            cache.pop_front();
            ++cacheFirst;
        }
        if (cache.empty()) cacheFirst = need;
        while (cacheFirst + int(cache.size()) < c.first + int(c.weights.size()))
            cache.push_back(acrossRow(cacheFirst + int(cache.size())));
        std::fill(acc.begin(), acc.end(), 0.0);
        for (size_t k = 0; k < c.weights.size(); ++k) {
            const std::vector<double>& row = cache[size_t(c.first - cacheFirst) + k];
            const double wk = c.weights[k];
            for (size_t i = 0; i < dstSamples; ++i) acc[i] += wk * row[i];
        }
        uint8_t* drow = out.data.data() + size_t(y) * out.RowBytes();
        for (int x = 0; x < dstWidth; ++x) {
            const double* a = &acc[size_t(x) * ch];
            for (int ci = 0; ci < ch; ++ci) {
                double v = a[ci];
                if (alphaIndex >= 0 && ci != alphaIndex) v = a[alphaIndex] > 1e-9 ? v / a[alphaIndex] : 0.0;
                StoreSample(drow, size_t(x) * ch + ci, src.bits, v);
            }
        }
    }
    return out;
}

}  // namespace images
