// JPEG encoding through libjpeg.  As in the decoder, libjpeg's fatal-error
// callback jumps back into a function that holds no C++ objects, so no
// destructor is ever skipped.
#include "filters/DCTEncode.h"

#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
// jpeglib.h needs size_t and FILE declared first.
#include <jpeglib.h>

#include "base/ASError.h"

namespace filters {
namespace {

struct EncodeErr {
    jpeg_error_mgr pub;
    jmp_buf jump;
};

void OnEncodeError(j_common_ptr cinfo) { longjmp(reinterpret_cast<EncodeErr*>(cinfo->err)->jump, 1); }
void OnEncodeMessage(j_common_ptr, int) {}

struct EncodeRun {
    const uint8_t* samples;
    int width, height, components;
    int quality;
    bool colorTransform;
    bool app14Marker;
    unsigned char* out;
    unsigned long outSize;
};

bool RunEncode(EncodeRun* r) {
    jpeg_compress_struct c;
    EncodeErr err;
    std::memset(&c, 0, sizeof c);
    c.err = jpeg_std_error(&err.pub);
    err.pub.error_exit = OnEncodeError;
    err.pub.emit_message = OnEncodeMessage;
    r->out = nullptr;
    r->outSize = 0;
    if (setjmp(err.jump)) {
        jpeg_destroy_compress(&c);
        std::free(r->out);
        r->out = nullptr;
        return false;
    }
    jpeg_create_compress(&c);
    jpeg_mem_dest(&c, &r->out, &r->outSize);
    c.image_width = JDIMENSION(r->width);
    c.image_height = JDIMENSION(r->height);
    c.input_components = r->components;
    c.in_color_space = r->components == 1 ? JCS_GRAYSCALE : r->components == 3 ? JCS_RGB : JCS_CMYK;
    jpeg_set_defaults(&c);
    if (r->components == 3 && !r->colorTransform) jpeg_set_colorspace(&c, JCS_RGB);
    if (r->components == 4) {
        jpeg_set_colorspace(&c, JCS_CMYK);
        c.write_Adobe_marker = r->app14Marker ? TRUE : FALSE;
    }
    // A JFIF marker says nothing a PDF reader uses.
    c.write_JFIF_header = FALSE;
    jpeg_set_quality(&c, r->quality, TRUE);
    c.optimize_coding = TRUE;
    jpeg_start_compress(&c, TRUE);
    const size_t stride = size_t(r->width) * size_t(r->components);
    while (c.next_scanline < c.image_height) {
        JSAMPROW row = const_cast<JSAMPROW>(r->samples + size_t(c.next_scanline) * stride);
        jpeg_write_scanlines(&c, &row, 1);
    }
    jpeg_finish_compress(&c);
    jpeg_destroy_compress(&c);
    return true;
}

struct QuantRun {
    const uint8_t* data;
    size_t size;
    unsigned table[64];
    bool found;
};

void ReadQuant(QuantRun* r) {
    jpeg_decompress_struct d;
    EncodeErr err;
    std::memset(&d, 0, sizeof d);
    d.err = jpeg_std_error(&err.pub);
    err.pub.error_exit = OnEncodeError;
    err.pub.emit_message = OnEncodeMessage;
    r->found = false;
    if (setjmp(err.jump)) {
        jpeg_destroy_decompress(&d);
        return;
    }
    jpeg_create_decompress(&d);
    jpeg_mem_src(&d, const_cast<unsigned char*>(r->data), static_cast<unsigned long>(r->size));
    jpeg_read_header(&d, TRUE);
    if (d.quant_tbl_ptrs[0]) {
        for (int i = 0; i < 64; ++i) r->table[i] = d.quant_tbl_ptrs[0]->quantval[i];
        r->found = true;
    }
    jpeg_destroy_decompress(&d);
}

// The luminance table of the JPEG standard (Annex K), in natural order,
// which libjpeg scales for its quality setting.
const unsigned kStdLuminance[64] = {
    16, 11, 10, 16, 24,  40,  51,  61,  12, 12, 14, 19, 26,  58,  60,  55,
    14, 13, 16, 24, 40,  57,  69,  56,  14, 17, 22, 29, 51,  87,  80,  62,
    18, 22, 37, 56, 68,  109, 103, 77,  24, 35, 55, 64, 81,  104, 113, 92,
    49, 64, 78, 87, 103, 121, 120, 101, 72, 92, 95, 98, 112, 100, 103, 99};

}  // namespace

std::vector<uint8_t> EncodeDCT(std::span<const uint8_t> samples, int width, int height, int components,
                               const DCTEncodeParams& params) {
    if (width <= 0 || height <= 0 || width > 65500 || height > 65500 ||
        (components != 1 && components != 3 && components != 4) ||
        samples.size() < size_t(width) * size_t(height) * size_t(components))
        ASRaiseErr(ErrSysGeneral, kErrBadParm);
    EncodeRun r{};
    r.samples = samples.data();
    r.width = width;
    r.height = height;
    r.components = components;
    r.quality = params.quality < 1 ? 1 : params.quality > 100 ? 100 : params.quality;
    r.colorTransform = params.colorTransform;
    r.app14Marker = params.app14Marker;
    if (!RunEncode(&r)) ASRaiseErr(ErrSysCos, kErrJPEGFilter);
    std::vector<uint8_t> out(r.out, r.out + r.outSize);
    std::free(r.out);
    return out;
}

int EstimateDCTQuality(std::span<const uint8_t> jpeg) {
    if (jpeg.empty()) return 0;
    QuantRun r{};
    r.data = jpeg.data();
    r.size = jpeg.size();
    ReadQuant(&r);
    if (!r.found) return 0;
    int best = 0;
    uint64_t bestError = UINT64_MAX;
    for (int q = 1; q <= 100; ++q) {
        const long scale = q < 50 ? 5000 / q : 200 - 2 * q;
        uint64_t error = 0;
        for (int i = 0; i < 64; ++i) {
            long t = (long(kStdLuminance[i]) * scale + 50) / 100;
            t = t < 1 ? 1 : t > 255 ? 255 : t;
            error += uint64_t(std::labs(t - long(r.table[i])));
        }
        // Ties go to the higher quality, so an estimate never lowers it.
        if (error <= bestError) {
            bestError = error;
            best = q;
        }
    }
    return best;
}

}  // namespace filters
