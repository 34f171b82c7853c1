#include "jbig2/ShapeMatch.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <vector>

namespace jbig2 {
namespace {

bool Pixel(const Symbol& s, int64_t x, int64_t y) {
    if (x < 0 || y < 0 || x >= s.w || y >= s.h) return false;
    return (s.bits[size_t(y) * ((s.w + 7) / 8) + size_t(x) / 8] >> (7 - x % 8)) & 1;
}

}  // namespace

bool ShapesMatch(const Symbol& a, const Symbol& b, int dx, int dy) {
    if (std::abs(int64_t(a.w) - b.w) > 1 || std::abs(int64_t(a.h) - b.h) > 1) return false;
    const size_t limit = std::max(size_t(a.w) * a.h, size_t(b.w) * b.h) / 32;
    size_t count = 0;
    if (a.w == b.w && a.h == b.h && dx == 0 && dy == 0) {
        // The common case, a word at a time: too many differences end it early.
        for (size_t i = 0; i < a.bits.size() && count <= limit; ++i)
            count += size_t(std::popcount(uint8_t(a.bits[i] ^ b.bits[i])));
        if (count > limit) return false;
        if (count <= 1) return true;  // no blob of one pixel
    }
    // The differences over both boxes, with a blank border so the
    // neighbourhood needs no bounds tests.
    const int64_t x0 = std::min<int64_t>(0, dx), y0 = std::min<int64_t>(0, dy);
    const int64_t x1 = std::max<int64_t>(a.w, int64_t(b.w) + dx), y1 = std::max<int64_t>(a.h, int64_t(b.h) + dy);
    const int64_t w = x1 - x0 + 2, h = y1 - y0 + 2;
    std::vector<uint8_t> diff(size_t(w * h), 0);
    count = 0;
    for (int64_t y = y0; y < y1; ++y)
        for (int64_t x = x0; x < x1; ++x)
            if (Pixel(a, x, y) != Pixel(b, x - dx, y - dy)) {
                diff[size_t((y - y0 + 1) * w + (x - x0 + 1))] = 1;
                if (++count > limit) return false;
            }
    if (count <= 1) return true;
    for (int64_t y = 1; y + 1 < h; ++y)
        for (int64_t x = 1; x + 1 < w; ++x) {
            const uint8_t* c = diff.data() + size_t(y * w + x);
            if (!*c) continue;
            const int n = c[-w - 1] + c[-w] + c[-w + 1] + c[-1] + c[0] + c[1] + c[w - 1] + c[w] + c[w + 1];
            if (n > 3) return false;
        }
    return true;
}

}  // namespace jbig2
