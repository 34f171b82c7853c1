// DCTDecode through libjpeg.  libjpeg reports fatal errors through a
// callback that must not return; it jumps back to the one function below
// that holds no C++ objects, so no destructor is skipped.
#include <algorithm>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
// jpeglib.h needs size_t and FILE declared first.
#include <jpeglib.h>

#include "filters/FilterStage.h"
#include "base/ASError.h"

namespace filters {
namespace {

struct JpegErr {
    jpeg_error_mgr pub;
    jmp_buf jump;
    char message[JMSG_LENGTH_MAX];
    bool warned;
};

void OnJpegError(j_common_ptr cinfo) {
    JpegErr* e = reinterpret_cast<JpegErr*>(cinfo->err);
    (*cinfo->err->format_message)(cinfo, e->message);
    longjmp(e->jump, 1);
}

void OnJpegMessage(j_common_ptr cinfo, int level) {
    // Level -1 is a warning about damaged data; the rest is chatter.
    if (level < 0) {
        JpegErr* e = reinterpret_cast<JpegErr*>(cinfo->err);
        if (!e->warned) (*cinfo->err->format_message)(cinfo, e->message);
        e->warned = true;
    }
}

enum class JpegOutcome { Ok, Damaged, TooLarge, Failed };

// Everything libjpeg-related happens here.  `samples` is allocated with
// malloc once the size is known and checked against `maxOutput`.
struct JpegRun {
    const uint8_t* data;
    size_t size;
    int colorTransform;  // -1 when absent
    uint64_t maxOutput;
    int width, height, components;
    bool app14;
    int app14Transform;
    uint8_t* samples;
    size_t rowsDone;
    char message[JMSG_LENGTH_MAX];
};

JpegOutcome RunJpeg(JpegRun* r) {
    jpeg_decompress_struct cinfo;
    JpegErr err;
    std::memset(&cinfo, 0, sizeof cinfo);
    cinfo.err = jpeg_std_error(&err.pub);
    err.pub.error_exit = OnJpegError;
    err.pub.emit_message = OnJpegMessage;
    err.message[0] = 0;
    err.warned = false;
    r->samples = nullptr;
    r->rowsDone = 0;
    if (setjmp(err.jump)) {
        std::memcpy(r->message, err.message, sizeof r->message);
        jpeg_destroy_decompress(&cinfo);
        return r->rowsDone > 0 ? JpegOutcome::Damaged : JpegOutcome::Failed;
    }
    jpeg_create_decompress(&cinfo);
    jpeg_mem_src(&cinfo, const_cast<unsigned char*>(r->data), static_cast<unsigned long>(r->size));
    jpeg_read_header(&cinfo, TRUE);
    r->app14 = cinfo.saw_Adobe_marker;
    r->app14Transform = cinfo.saw_Adobe_marker ? cinfo.Adobe_transform : -1;
    // Without an APP14 marker the ColorTransform parameter decides whether
    // three or four components were colour-transformed when encoding.
    if (!cinfo.saw_Adobe_marker && r->colorTransform >= 0) {
        if (cinfo.num_components == 3) cinfo.jpeg_color_space = r->colorTransform ? JCS_YCbCr : JCS_RGB;
        if (cinfo.num_components == 4) cinfo.jpeg_color_space = r->colorTransform ? JCS_YCCK : JCS_CMYK;
    }
    switch (cinfo.num_components) {
    case 1: cinfo.out_color_space = JCS_GRAYSCALE; break;
    case 3: cinfo.out_color_space = JCS_RGB; break;
    case 4: cinfo.out_color_space = JCS_CMYK; break;
    default: break;
    }
    jpeg_calc_output_dimensions(&cinfo);
    r->width = static_cast<int>(cinfo.output_width);
    r->height = static_cast<int>(cinfo.output_height);
    r->components = cinfo.out_color_components;
    uint64_t total = uint64_t(cinfo.output_width) * cinfo.output_height * uint64_t(cinfo.out_color_components);
    if (total > r->maxOutput) {
        jpeg_destroy_decompress(&cinfo);
        return JpegOutcome::TooLarge;
    }
    // libjpeg's own working memory grows with the image; keep it in scale.
    cinfo.mem->max_memory_to_use = static_cast<long>(std::min<uint64_t>(r->maxOutput * 4 + (64u << 20), 1ull << 40));
    r->samples = static_cast<uint8_t*>(std::calloc(total ? total : 1, 1));
    if (!r->samples) {
        jpeg_destroy_decompress(&cinfo);
        return JpegOutcome::TooLarge;
    }
    jpeg_start_decompress(&cinfo);
    const size_t stride = size_t(cinfo.output_width) * size_t(cinfo.output_components);
    while (cinfo.output_scanline < cinfo.output_height) {
        JSAMPROW row = r->samples + size_t(cinfo.output_scanline) * stride;
        if (jpeg_read_scanlines(&cinfo, &row, 1) != 1) break;
        r->rowsDone = cinfo.output_scanline;
    }
    jpeg_finish_decompress(&cinfo);
    jpeg_destroy_decompress(&cinfo);
    if (err.warned) {
        std::memcpy(r->message, err.message, sizeof r->message);
        return JpegOutcome::Damaged;
    }
    return JpegOutcome::Ok;
}

// Decodes into `img`; returns the damage message, empty when clean.
// Raises for an image larger than the limit.
std::string DecodeJpegInto(ByteSpan in, int colorTransform, uint64_t maxOutput, DCTImage& img) {
    JpegRun r{};
    r.data = in.data();
    r.size = in.size();
    r.colorTransform = colorTransform;
    r.maxOutput = maxOutput;
    JpegOutcome outcome = in.empty() ? JpegOutcome::Failed : RunJpeg(&r);
    if (in.empty()) std::strcpy(r.message, "no data");
    if (outcome == JpegOutcome::TooLarge) {
        std::free(r.samples);
        ASRaiseErr(ErrSysCos, kErrTooComplex);
    }
    img.width = r.width;
    img.height = r.height;
    img.components = r.components;
    img.app14Marker = r.app14;
    img.app14Transform = r.app14Transform;
    img.invertedCMYK = r.app14 && r.components == 4;
    if (r.samples) {
        img.samples.assign(r.samples, r.samples + size_t(r.width) * size_t(r.height) * size_t(r.components));
        std::free(r.samples);
    }
    if (outcome == JpegOutcome::Ok) return {};
    img.corrupt = true;
    return std::string("DCTDecode: ") + r.message;
}

int ColorTransformParam(const FilterParams& params) {
    return params.Has("ColorTransform") ? (params.Get("ColorTransform", 0) != 0 ? 1 : 0) : -1;
}

}  // namespace

DCTImage DecodeDCT(ByteSpan in, const FilterParams& params, const DecodeOptions& opts) {
    DCTImage img;
    std::string damage = DecodeJpegInto(in, ColorTransformParam(params), opts.maxOutput, img);
    if (!damage.empty()) {
        if (opts.strict) ASRaiseErr(ErrSysCos, kErrJPEGFilter);
        Warn(damage);
    }
    return img;
}

namespace detail {
namespace {

class DCTStage : public FilterStage {
public:
    explicit DCTStage(int colorTransform) : colorTransform_(colorTransform) {}

protected:
    void DoWrite(const uint8_t* data, size_t size) override { in_.insert(in_.end(), data, data + size); }
    void DoFinish() override {
        DCTImage img;
        std::string damage = DecodeJpegInto(in_, colorTransform_, Limit(), img);
        Emit(img.samples.data(), img.samples.size());
        if (!damage.empty()) Fail(kErrJPEGFilter, damage);
    }

private:
    int colorTransform_;
    Bytes in_;
};

}  // namespace

std::unique_ptr<FilterStage> MakeDCTStage(const FilterParams& params) {
    return std::make_unique<DCTStage>(ColorTransformParam(params));
}

}  // namespace detail
}  // namespace filters
