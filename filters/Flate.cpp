// FlateDecode through zlib, and Flate encoding through libdeflate.
#include <libdeflate.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>

#include "filters/FilterStage.h"
#include "base/ASError.h"

namespace filters {
namespace detail {
namespace {

class FlateStage : public FilterStage {
public:
    FlateStage() { std::memset(&zs_, 0, sizeof zs_); }
    ~FlateStage() override {
        if (started_) inflateEnd(&zs_);
    }

protected:
    void DoWrite(const uint8_t* data, size_t size) override {
        if (ended_) return;
        if (!started_) {
            // The header decides between zlib and raw deflate; it needs two
            // bytes, which may arrive in separate chunks.
            if (head_.size() + size < 2) {
                head_.insert(head_.end(), data, data + size);
                return;
            }
            Start(data, size);
            if (!head_.empty()) {
                Bytes h;
                h.swap(head_);
                Inflate(h.data(), h.size());
            }
        }
        Inflate(data, size);
    }

    void DoFinish() override {
        if (ended_) return;
        if (!started_) {
            if (head_.empty()) return;
            Start(nullptr, 0);
            Bytes h;
            h.swap(head_);
            Inflate(h.data(), h.size());
            if (ended_) return;
        }
        // Whatever zlib still holds comes out; a stream that stops before
        // its end marker is damaged but keeps what decoded.
        Inflate(nullptr, 0);
        if (!ended_) Fail(kErrSyntax, "FlateDecode: stream ends before its end marker");
    }

private:
    void Start(const uint8_t* data, size_t size) {
        uint8_t hb[2] = {0, 0};
        size_t k = 0;
        for (uint8_t b : head_) if (k < 2) hb[k++] = b;
        for (size_t i = 0; i < size && k < 2; ++i) hb[k++] = data[i];
        const int b0 = hb[0], b1 = hb[1];
        bool zlibHeader = (b0 & 0x0F) == 8 && (b0 >> 4) <= 7 && ((b0 << 8) | b1) % 31 == 0;
        // Some writers leave out the zlib header: fall back to raw deflate.
        int rc = inflateInit2(&zs_, zlibHeader ? 15 : -15);
        if (rc != Z_OK) ASRaiseErr(ErrSysGeneral, kErrNoMemory);
        started_ = true;
    }

    void Inflate(const uint8_t* data, size_t size) {
        zs_.next_in = const_cast<Bytef*>(data);
        zs_.avail_in = 0;
        size_t left = size;
        do {
            // zlib counts in 32 bits: feed huge chunks in slices.
            uInt slice = static_cast<uInt>(std::min<size_t>(left, 1u << 30));
            zs_.avail_in = slice;
            left -= slice;
            for (;;) {
                zs_.next_out = out_;
                zs_.avail_out = sizeof out_;
                int rc = inflate(&zs_, Z_NO_FLUSH);
                size_t got = sizeof out_ - zs_.avail_out;
                Emit(out_, got);
                if (rc == Z_STREAM_END) {
                    ended_ = true;
                    return;
                }
                if (rc == Z_BUF_ERROR) break;  // needs more input
                if (rc != Z_OK) {
                    Fail(kErrSyntax, std::string("FlateDecode: ") + (zs_.msg ? zs_.msg : "bad data"));
                }
                if (zs_.avail_in == 0 && zs_.avail_out != 0) break;
            }
        } while (left > 0);
    }

    z_stream zs_;
    bool started_ = false;
    bool ended_ = false;
    Bytes head_;
    uint8_t out_[65536];
};

}  // namespace

std::unique_ptr<FilterStage> MakeFlateStage() { return std::make_unique<FlateStage>(); }

}  // namespace detail

// Compression goes through libdeflate: at the same level it writes smaller
// streams than zlib in less time, and its levels 10-12 search harder still.
// The output is an ordinary zlib stream (header, deflate data, Adler-32),
// which every PDF reader inflates.  libdeflate compresses whole buffers, so
// the input is held once and the output sized by its bound.
Bytes FlateEncode(ByteSpan in, int level) {
    if (level < kFlateMinLevel || level > kFlateMaxLevel) level = kFlateDefaultLevel;
    libdeflate_compressor* c = libdeflate_alloc_compressor(level);
    if (!c) ASRaiseErr(ErrSysGeneral, kErrNoMemory);
    Bytes out(libdeflate_zlib_compress_bound(c, in.size()));
    const size_t n = libdeflate_zlib_compress(c, in.data(), in.size(), out.data(), out.size());
    libdeflate_free_compressor(c);
    // The bound always suffices; 0 would mean the library disagrees with it.
    if (n == 0) ASRaiseErr(ErrSysGeneral, kErrNoMemory);
    out.resize(n);
    out.shrink_to_fit();
    return out;
}

Bytes FlateEncodePNG(ByteSpan in, int level, int colors, int bitsPerComponent, int columns) {
    Bytes predicted = PNGPredictEncode(in, colors, bitsPerComponent, columns);
    return FlateEncode(predicted, level);
}

}  // namespace filters
