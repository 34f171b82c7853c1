#include "images/Bilevel.h"

#include <tiffio.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>

#include "base/ASError.h"
#include "images/MemoryTiff.h"
#include "images/ResampleFilter.h"

namespace images {

double InkThreshold(double ratio) {
    if (!(ratio > 1)) return 0.5;
    return std::clamp(1.0 / (2.0 * ratio), 0.125, 0.5);
}

InkBitmap DownsampleInk(const InkBitmap& src, int dstWidth, int dstHeight, const std::string& filterName) {
    auto filter = CreateResampleFilter(filterName);
    if (!filter || dstWidth < 1 || dstHeight < 1) ASRaiseErr(ErrSysGeneral, kErrBadParm);
    Raster coverage;
    coverage.width = src.width;
    coverage.height = src.height;
    coverage.data.resize(coverage.ByteSize());
    for (int y = 0; y < src.height; ++y) {
        const uint8_t* in = src.rows.data() + size_t(y) * src.Stride();
        uint8_t* out = coverage.data.data() + size_t(y) * size_t(src.width);
        for (int x = 0; x < src.width; ++x) out[x] = ((in[x >> 3] >> (7 - (x & 7))) & 1) ? 255 : 0;
    }
    const Raster r = Resample(coverage, dstWidth, dstHeight, *filter);
    coverage = Raster();
    const double ratio =
        std::max(double(src.width) / double(dstWidth), double(src.height) / double(dstHeight));
    // Ink when the weighted coverage reaches the threshold (on the 0-255
    // scale, rounded down so an exact share counts).
    const int threshold = std::max(1, int(std::floor(InkThreshold(ratio) * 255.0)));
    InkBitmap out;
    out.width = dstWidth;
    out.height = dstHeight;
    out.rows.assign(out.Stride() * size_t(dstHeight), 0);
    for (int y = 0; y < dstHeight; ++y) {
        const uint8_t* in = r.data.data() + size_t(y) * size_t(dstWidth);
        uint8_t* row = out.rows.data() + size_t(y) * out.Stride();
        for (int x = 0; x < dstWidth; ++x)
            if (in[x] >= threshold) row[x >> 3] |= uint8_t(0x80 >> (x & 7));
    }
    return out;
}

bool LooksHalftoned(const InkBitmap& ink) {
    constexpr int kTile = 32, kReach = 12, kSpan = kTile + 2 * kReach, kMaxTiles = 48;
    if (ink.width < kSpan || ink.height < kSpan) return false;
    // Tile positions on a grid over the image, at most kMaxTiles of them
    // tried in mid-tones.
    const int across = std::max(1, (ink.width - kSpan) / kSpan + 1), down = std::max(1, (ink.height - kSpan) / kSpan + 1);
    const int step = std::max(1, across * down / (kMaxTiles * 4));
    int midTiles = 0, periodic = 0, tried = 0;
    std::vector<uint8_t> region(size_t(kSpan) * kSpan);
    std::vector<double> corr(size_t(2 * kReach + 1) * (2 * kReach + 1));
    for (int t = 0; t < across * down && midTiles < kMaxTiles && tried < kMaxTiles * 8; t += step, ++tried) {
        const int x0 = (t % across) * kSpan, y0 = (t / across) * kSpan;
        for (int y = 0; y < kSpan; ++y)
            for (int x = 0; x < kSpan; ++x) region[size_t(y) * kSpan + size_t(x)] = ink.Get(x0 + x, y0 + y);
        int count = 0;
        for (int y = kReach; y < kReach + kTile; ++y)
            for (int x = kReach; x < kReach + kTile; ++x) count += region[size_t(y) * kSpan + size_t(x)];
        const double m = double(count) / (kTile * kTile);
        if (m < 0.15 || m > 0.85) continue;
        ++midTiles;
        for (int dy = -kReach; dy <= kReach; ++dy)
            for (int dx = -kReach; dx <= kReach; ++dx) {
                int both = 0;
                for (int y = kReach; y < kReach + kTile; ++y) {
                    const uint8_t* a = region.data() + size_t(y) * kSpan;
                    const uint8_t* b = region.data() + size_t(y + dy) * kSpan + dx;
                    for (int x = kReach; x < kReach + kTile; ++x) both += a[x] & b[x];
                }
                corr[size_t(dy + kReach) * (2 * kReach + 1) + size_t(dx + kReach)] =
                    (double(both) / (kTile * kTile) - m * m) / (m - m * m);
            }
        // A local maximum away from the origin.
        bool found = false;
        for (int dy = -kReach + 1; dy < kReach && !found; ++dy)
            for (int dx = -kReach + 1; dx < kReach && !found; ++dx) {
                if (std::max(std::abs(dx), std::abs(dy)) < 2) continue;
                const double c = corr[size_t(dy + kReach) * (2 * kReach + 1) + size_t(dx + kReach)];
                if (c < 0.5) continue;
                bool peak = true;
                for (int ny = -1; ny <= 1 && peak; ++ny)
                    for (int nx = -1; nx <= 1 && peak; ++nx)
                        if ((nx || ny) && corr[size_t(dy + ny + kReach) * (2 * kReach + 1) + size_t(dx + nx + kReach)] > c)
                            peak = false;
                // A screen comes back: on the way from the origin the
                // correlation dips well below the peak.  A line or a long
                // stroke resembles itself all along, with no dip.
                const int n = std::max(std::abs(dx), std::abs(dy));
                double dip = c;
                for (int k = 1; k < n && peak; ++k) {
                    const int ix = int(std::lround(double(dx) * k / n)), iy = int(std::lround(double(dy) * k / n));
                    dip = std::min(dip, corr[size_t(iy + kReach) * (2 * kReach + 1) + size_t(ix + kReach)]);
                }
                found = peak && dip <= c - 0.3;
            }
        periodic += found;
    }
    return midTiles >= 4 && periodic * 2 >= midTiles;
}

int SpeckSizeFor(double ppi) {
    if (!(ppi > 0)) ppi = 300;
    const double scaled = 3.0 * (ppi / 300.0) * (ppi / 300.0);
    return std::clamp(int(std::lround(scaled)), 1, 16);
}

size_t Despeckle(InkBitmap& bm, int maxPixels) {
    if (maxPixels < 1) return 0;
    const int w = bm.width, h = bm.height;
    const size_t stride = bm.Stride();
    auto ink = [&](int x, int y) {
        return x >= 0 && y >= 0 && x < w && y < h && ((bm.rows[size_t(y) * stride + size_t(x >> 3)] >> (7 - (x & 7))) & 1);
    };
    // A group is explored until it holds more than maxPixels pixels; bigger
    // groups are left at once, so the work stays a small constant a pixel.
    std::vector<std::pair<int, int>> group;
    group.reserve(size_t(maxPixels) + 1);
    size_t cleared = 0;
    for (int y = 0; y < h; ++y) {
        const uint8_t* row = bm.rows.data() + size_t(y) * stride;
        for (int x = 0; x < w; ++x) {
            if (row[x >> 3] == 0) {
                x |= 7;  // a whole byte of background
                continue;
            }
            if (!ink(x, y)) continue;
            // An ink neighbour already passed belongs to the same group, and
            // is still there only because that group was too big.
            if (ink(x - 1, y) || ink(x - 1, y - 1) || ink(x, y - 1) || ink(x + 1, y - 1)) continue;
            group.clear();
            group.emplace_back(x, y);
            bool small = true;
            for (size_t i = 0; i < group.size() && small; ++i) {
                const auto [gx, gy] = group[i];
                for (int dy = -1; dy <= 1 && small; ++dy)
                    for (int dx = -1; dx <= 1 && small; ++dx) {
                        if (!ink(gx + dx, gy + dy)) continue;
                        const std::pair<int, int> p{gx + dx, gy + dy};
                        if (std::find(group.begin(), group.end(), p) != group.end()) continue;
                        if (int(group.size()) == maxPixels) {
                            small = false;
                        } else {
                            group.push_back(p);
                        }
                    }
            }
            if (!small) continue;
            for (const auto& [gx, gy] : group)
                bm.rows[size_t(gy) * stride + size_t(gx >> 3)] &= uint8_t(~(0x80 >> (gx & 7)));
            cleared += group.size();
        }
    }
    return cleared;
}

Raster DescreenToGray(std::span<const uint8_t> samples, int w, int h, int dstWidth, int dstHeight) {
    const size_t stride = (size_t(w) + 7) / 8;
    if (w < 1 || h < 1 || samples.size() < stride * size_t(h)) ASRaiseErr(ErrSysGeneral, kErrBadParm);
    // Running 3 x 3 box sums: column sums of three rows, then across.
    Raster blurred;
    blurred.width = w;
    blurred.height = h;
    blurred.data.resize(blurred.ByteSize());
    auto bit = [&](int x, int y) -> int {
        x = std::clamp(x, 0, w - 1);
        y = std::clamp(y, 0, h - 1);
        return (samples[size_t(y) * stride + size_t(x >> 3)] >> (7 - (x & 7))) & 1;
    };
    std::vector<int> cols(size_t(w) + 2);
    for (int y = 0; y < h; ++y) {
        for (int x = -1; x <= w; ++x) cols[size_t(x + 1)] = bit(x, y - 1) + bit(x, y) + bit(x, y + 1);
        uint8_t* out = blurred.data.data() + size_t(y) * size_t(w);
        for (int x = 0; x < w; ++x) {
            const int sum = cols[size_t(x)] + cols[size_t(x) + 1] + cols[size_t(x) + 2];
            out[x] = uint8_t((sum * 255 + 4) / 9);
        }
    }
    auto triangle = CreateResampleFilter("triangle");
    return Resample(blurred, dstWidth, dstHeight, *triangle);
}

std::vector<uint8_t> EncodeFax(const InkBitmap& ink, FaxGroup group) {
    if (group == FaxGroup::G4) return EncodeG4(ink.rows, uint32_t(ink.width), uint32_t(ink.height));
    const size_t stride = ink.Stride();
    if (ink.width < 1 || ink.height < 1 || ink.rows.size() < stride * size_t(ink.height))
        ASRaiseErr(ErrSysGeneral, kErrBadParm);
    std::unique_ptr<MemoryTiff> out = MemoryTiff::OpenWrite();
    if (!out) ASRaiseErr(ErrSysGeneral, kErrCCITTFilter);
    TIFF* t = out->Handle();
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, uint32_t(ink.width));
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, uint32_t(ink.height));
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 1);
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
    TIFFSetField(t, TIFFTAG_FILLORDER, FILLORDER_MSB2LSB);
    TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX3);
    TIFFSetField(t, TIFFTAG_GROUP3OPTIONS, uint32_t(0));  // one-dimensional, no fill bits
    TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, uint32_t(ink.height));
    std::vector<uint8_t> row(stride);
    for (int y = 0; y < ink.height; ++y) {
        std::memcpy(row.data(), ink.rows.data() + size_t(y) * stride, stride);
        if (TIFFWriteScanline(t, row.data(), uint32_t(y), 0) < 0) ASRaiseErr(ErrSysGeneral, kErrCCITTFilter);
    }
    if (!TIFFWriteDirectory(t)) ASRaiseErr(ErrSysGeneral, kErrCCITTFilter);
    out->Close();
    const std::vector<uint8_t> file = out->Bytes();
    std::unique_ptr<MemoryTiff> in = MemoryTiff::OpenRead(file);
    if (!in) ASRaiseErr(ErrSysGeneral, kErrCCITTFilter);
    uint64_t* counts = nullptr;
    if (!TIFFGetField(in->Handle(), TIFFTAG_STRIPBYTECOUNTS, &counts) || !counts)
        ASRaiseErr(ErrSysGeneral, kErrCCITTFilter);
    std::vector<uint8_t> encoded(static_cast<size_t>(counts[0]));
    if (TIFFReadRawStrip(in->Handle(), 0, encoded.data(), tmsize_t(encoded.size())) < 0)
        ASRaiseErr(ErrSysGeneral, kErrCCITTFilter);
    return encoded;
}

}  // namespace images
