// JPEG coefficient transcoding through libjpeg's jpeg_read_coefficients /
// jpeg_write_coefficients.
#include "filters/JpegTranscode.h"

#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <jpeglib.h>

namespace filters {
namespace {

// libjpeg reports fatal errors through error_exit, which must not return;
// a longjmp back to the transcoder keeps C++ exceptions out of C frames.
struct ErrorManager {
    jpeg_error_mgr pub;
    std::jmp_buf jump;
    char message[JMSG_LENGTH_MAX];
};

void ErrorExit(j_common_ptr cinfo) {
    auto* err = reinterpret_cast<ErrorManager*>(cinfo->err);
    (*cinfo->err->format_message)(cinfo, err->message);
    std::longjmp(err->jump, 1);
}

// Warnings (a corrupt stretch of entropy-coded data) mean the coefficients
// read are not what the file holds: treat them as failures so that a
// damaged image is never replaced by a "repaired" one.
void EmitMessage(j_common_ptr cinfo, int level) {
    if (level < 0) ErrorExit(cinfo);
}

bool IsColourMarker(const jpeg_saved_marker_ptr m) {
    auto starts = [&](const char* tag, size_t n) {
        return m->data_length >= n && std::memcmp(m->data, tag, n) == 0;
    };
    if (m->marker == JPEG_APP0) return starts("JFIF\0", 5);
    if (m->marker == JPEG_APP0 + 2) return starts("ICC_PROFILE\0", 12);
    // The APP14 colour-transform marker opens with its five-byte identifier.
    if (m->marker == JPEG_APP0 + 14) return starts("\x41\x64\x6f\x62\x65", 5);
    return false;
}

// One write of the coefficients; `progressive` selects the scan script.
// Returns false (with the message) when the library fails.
bool Write(jpeg_decompress_struct& src, jvirt_barray_ptr* coefs, bool progressive, Bytes& out,
           std::string& message) {
    jpeg_compress_struct dst;
    ErrorManager err;
    dst.err = jpeg_std_error(&err.pub);
    err.pub.error_exit = ErrorExit;
    unsigned char* buffer = nullptr;
    unsigned long size = 0;
    // Volatile: read after a longjmp.
    volatile bool created = false;
    if (setjmp(err.jump)) {
        message = err.message;
        if (created) jpeg_destroy_compress(&dst);
        std::free(buffer);
        return false;
    }
    jpeg_create_compress(&dst);
    created = true;
    jpeg_mem_dest(&dst, &buffer, &size);
    jpeg_copy_critical_parameters(&src, &dst);
    dst.write_JFIF_header = FALSE;
    dst.write_Adobe_marker = FALSE;
    dst.optimize_coding = TRUE;
    dst.restart_interval = 0;
    dst.restart_in_rows = 0;
    if (progressive) jpeg_simple_progression(&dst);
    jpeg_write_coefficients(&dst, coefs);
    for (jpeg_saved_marker_ptr m = src.marker_list; m; m = m->next)
        if (IsColourMarker(m)) jpeg_write_marker(&dst, m->marker, m->data, m->data_length);
    jpeg_finish_compress(&dst);
    jpeg_destroy_compress(&dst);
    out.assign(buffer, buffer + size);
    std::free(buffer);
    return true;
}

}  // namespace

JpegTranscodeResult JpegTranscode(ByteSpan in, bool allowProgressive) {
    JpegTranscodeResult r;
    if (in.empty()) {
        r.message = "empty JPEG data";
        return r;
    }
    // Everything with a destructor lives outside the setjmp region, so a
    // longjmp never skips one.
    Bytes baseline, progressive;
    std::string message;
    jpeg_decompress_struct src;
    ErrorManager err;
    src.err = jpeg_std_error(&err.pub);
    err.pub.error_exit = ErrorExit;
    err.pub.emit_message = EmitMessage;
    if (setjmp(err.jump)) {
        r.message = err.message;
        r.data.clear();
        r.ok = false;
        jpeg_destroy_decompress(&src);
        return r;
    }
    jpeg_create_decompress(&src);
    jpeg_mem_src(&src, in.data(), static_cast<unsigned long>(in.size()));
    jpeg_save_markers(&src, JPEG_APP0, 0xFFFF);
    jpeg_save_markers(&src, JPEG_APP0 + 2, 0xFFFF);
    jpeg_save_markers(&src, JPEG_APP0 + 14, 0xFFFF);
    jpeg_read_header(&src, TRUE);
    jvirt_barray_ptr* coefs = jpeg_read_coefficients(&src);
    const bool haveBaseline = Write(src, coefs, false, baseline, message);
    const bool haveProgressive = haveBaseline && allowProgressive && Write(src, coefs, true, progressive, message);
    jpeg_finish_decompress(&src);
    jpeg_destroy_decompress(&src);
    if (!haveBaseline) {
        r.message = message;
        return r;
    }
    r.ok = true;
    if (haveProgressive && progressive.size() < baseline.size()) {
        r.progressive = true;
        r.data = std::move(progressive);
    } else {
        r.data = std::move(baseline);
    }
    return r;
}

}  // namespace filters
