// Reading JBIG2 streams back in the tests: through the JBIG2Decode filter
// (jbig2dec), which gives PDF samples (0 for black), compared bit for bit
// with the bitmap they were coded from.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "filters/Filters.h"

namespace jbig2test {

using Bytes = std::vector<uint8_t>;

// `rows` are `stride` bytes apart, most significant bit first, 1 = black.
inline void ExpectDecodesTo(const Bytes& stream, uint32_t width, uint32_t height, size_t stride, const Bytes& rows,
                            const Bytes& globals = {}) {
    filters::FilterChain chain{{"JBIG2Decode", {}}};
    chain[0].params.jbig2Globals = globals;
    filters::DecodeOptions o;
    o.strict = true;
    filters::DecodeResult r = filters::DecodeChain(stream, chain, o);
    ASSERT_EQ(r.status, filters::DecodeStatus::Ok) << r.message;
    const size_t rowBytes = (width + 7) / 8;
    ASSERT_EQ(r.data.size(), rowBytes * height);
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < width; ++x) {
            const bool black = !((r.data[y * rowBytes + x / 8] >> (7 - x % 8)) & 1);
            const bool want = (rows[y * stride + x / 8] >> (7 - x % 8)) & 1;
            ASSERT_EQ(black, want) << "pixel " << x << "," << y << " of " << width << "x" << height;
        }
}

}  // namespace jbig2test
