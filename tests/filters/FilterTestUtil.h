// Helpers shared by the filter tests.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <jpeglib.h>

#include "filters/Filters.h"
#include "base/ASError.h"

namespace filters::testing {

inline Bytes B(const std::string& s) { return Bytes(s.begin(), s.end()); }
inline std::string S(const Bytes& b) { return std::string(b.begin(), b.end()); }

inline FilterParams Params(std::initializer_list<std::pair<const std::string, double>> kv) {
    FilterParams p;
    p.values = kv;
    return p;
}

// Options under which damaged data raises instead of decoding in part.
inline const DecodeOptions kStrict = [] {
    DecodeOptions o;
    o.strict = true;
    return o;
}();

// Collects what the decoders warn about while alive.
class WarningCatcher {
public:
    WarningCatcher() {
        SetWarningSink([this](const std::string& w) { warnings.push_back(w); });
    }
    ~WarningCatcher() { SetWarningSink(nullptr); }
    std::vector<std::string> warnings;
};

// The error number of the CVellumError `f` raises, or 0 when it does not.
template <class F>
int RaisedError(F&& f) {
    try {
        f();
    } catch (const CVellumError& e) {
        return ErrGetNumber(e.GetErrorCode());
    }
    return 0;
}

// A small deterministic generator for test data.
class Lcg {
public:
    explicit Lcg(uint32_t seed) : s_(seed) {}
    uint32_t Next() {
        s_ = s_ * 1664525u + 1013904223u;
        return s_ >> 8;
    }

private:
    uint32_t s_;
};

// A JPEG made by libjpeg from `pixels` (`comps` samples a pixel in `space`)
// at `quality`. `setup` may change the compressor's settings; `markers`
// (marker code, contents) go before the image data.
inline Bytes EncodeJpeg(int w, int h, int comps, J_COLOR_SPACE space, const Bytes& pixels, int quality,
                        const std::function<void(jpeg_compress_struct&)>& setup = {},
                        const std::vector<std::pair<int, std::string>>& markers = {}) {
    jpeg_compress_struct c;
    jpeg_error_mgr err;
    c.err = jpeg_std_error(&err);
    jpeg_create_compress(&c);
    unsigned char* mem = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&c, &mem, &size);
    c.image_width = static_cast<JDIMENSION>(w);
    c.image_height = static_cast<JDIMENSION>(h);
    c.input_components = comps;
    c.in_color_space = space;
    jpeg_set_defaults(&c);
    jpeg_set_quality(&c, quality, TRUE);
    if (setup) setup(c);
    jpeg_start_compress(&c, TRUE);
    for (const auto& [marker, data] : markers)
        jpeg_write_marker(&c, marker, reinterpret_cast<const JOCTET*>(data.data()), unsigned(data.size()));
    while (c.next_scanline < c.image_height) {
        JSAMPROW row = const_cast<uint8_t*>(pixels.data() + size_t(c.next_scanline) * size_t(w * comps));
        jpeg_write_scanlines(&c, &row, 1);
    }
    jpeg_finish_compress(&c);
    jpeg_destroy_compress(&c);
    Bytes out(mem, mem + size);
    std::free(mem);
    return out;
}

}  // namespace filters::testing
