#include "jbig2/ShapeMatch.h"

#include <bit>
#include <vector>

namespace jbig2 {

bool ShapesMatch(const Symbol& a, const Symbol& b) {
    if (a.w != b.w || a.h != b.h || a.bits.size() != b.bits.size()) return false;
    const size_t stride = (size_t(a.w) + 7) / 8;
    const size_t limit = size_t(a.w) * a.h / 32;
    // The differing pixels, with a blank row above and below and a blank
    // byte on either side, so the neighbourhood needs no bounds tests.
    const size_t wide = stride + 2;
    std::vector<uint8_t> diff(wide * (a.h + 2), 0);
    size_t count = 0;
    for (uint32_t y = 0; y < a.h; ++y)
        for (size_t i = 0; i < stride; ++i) {
            const uint8_t d = a.bits[y * stride + i] ^ b.bits[y * stride + i];
            diff[(y + 1) * wide + i + 1] = d;
            count += size_t(std::popcount(d));
        }
    if (count > limit) return false;
    if (count <= 1) return true;  // no blob of one pixel
    auto at = [&](int64_t x, int64_t y) {  // x, y from -1 to w, h
        return (diff[size_t(y + 1) * wide + size_t(x + 8) / 8] >> (7 - (x + 8) % 8)) & 1;
    };
    for (int64_t y = 0; y < a.h; ++y)
        for (int64_t x = 0; x < a.w; ++x) {
            if (!at(x, y)) continue;
            int n = 0;
            for (int dy = -1; dy <= 1; ++dy)
                for (int dx = -1; dx <= 1; ++dx) n += at(x + dx, y + dy);
            if (n > 3) return false;
        }
    return true;
}

}  // namespace jbig2
