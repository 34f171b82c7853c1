#include "images/MemoryTiff.h"

#include <tiffio.h>

#include <algorithm>
#include <cstring>

#include "base/ASError.h"

namespace images {
namespace {

constexpr tmsize_t kMaxSingleAlloc = tmsize_t(256) << 20;

MemoryTiff* Self(thandle_t h) { return static_cast<MemoryTiff*>(h); }
tmsize_t ReadProc(thandle_t h, void* buf, tmsize_t size) { return Self(h)->Read(buf, size); }
tmsize_t WriteProc(thandle_t h, void* buf, tmsize_t size) { return Self(h)->Write(buf, size); }
toff_t SeekProc(thandle_t h, toff_t off, int whence) { return Self(h)->Seek(off, whence); }
int CloseProc(thandle_t) { return 0; }
toff_t SizeProc(thandle_t h) { return Self(h)->Size(); }
int MapProc(thandle_t, void**, toff_t*) { return 0; }
void UnmapProc(thandle_t, void*, toff_t) {}
int Silent(TIFF*, void*, const char*, const char*, va_list) { return 1; }

TIFF* OpenClient(MemoryTiff* self, const char* mode) {
    TIFFOpenOptions* opts = TIFFOpenOptionsAlloc();
    TIFFOpenOptionsSetMaxSingleMemAlloc(opts, kMaxSingleAlloc);
    TIFFOpenOptionsSetErrorHandlerExtR(opts, Silent, nullptr);
    TIFFOpenOptionsSetWarningHandlerExtR(opts, Silent, nullptr);
    TIFF* tif = TIFFClientOpenExt("memory", mode, self, ReadProc, WriteProc, SeekProc, CloseProc,
                                  SizeProc, MapProc, UnmapProc, opts);
    TIFFOpenOptionsFree(opts);
    return tif;
}

}  // namespace

std::unique_ptr<MemoryTiff> MemoryTiff::OpenRead(std::span<const uint8_t> bytes) {
    std::unique_ptr<MemoryTiff> t(new MemoryTiff);
    t->m_in = bytes;
    t->m_tif = OpenClient(t.get(), "rm");
    if (!t->m_tif) return nullptr;
    return t;
}

std::unique_ptr<MemoryTiff> MemoryTiff::OpenWrite() {
    std::unique_ptr<MemoryTiff> t(new MemoryTiff);
    t->m_writing = true;
    t->m_tif = OpenClient(t.get(), "wm");
    if (!t->m_tif) return nullptr;
    return t;
}

MemoryTiff::~MemoryTiff() { Close(); }

void MemoryTiff::Close() {
    if (m_tif) TIFFClose(m_tif);
    m_tif = nullptr;
}

int64_t MemoryTiff::Read(void* buf, int64_t size) {
    const uint64_t total = Size();
    if (size <= 0 || m_pos >= total) return 0;
    const uint64_t n = std::min<uint64_t>(uint64_t(size), total - m_pos);
    std::memcpy(buf, (m_writing ? m_data.data() : m_in.data()) + m_pos, n);
    m_pos += n;
    return int64_t(n);
}

int64_t MemoryTiff::Write(const void* buf, int64_t size) {
    if (!m_writing || size < 0) return -1;
    const uint64_t end = m_pos + uint64_t(size);
    if (end > (uint64_t(1) << 31)) return -1;
    if (end > m_data.size()) m_data.resize(end);
    std::memcpy(m_data.data() + m_pos, buf, size_t(size));
    m_pos = end;
    return size;
}

uint64_t MemoryTiff::Seek(uint64_t off, int whence) {
    uint64_t base = whence == SEEK_CUR ? m_pos : whence == SEEK_END ? Size() : 0;
    m_pos = base + off;
    return m_pos;
}

uint64_t MemoryTiff::Size() const { return m_writing ? m_data.size() : m_in.size(); }

std::vector<uint8_t> EncodeG4(std::span<const uint8_t> rows, uint32_t width, uint32_t height) {
    const size_t stride = (size_t(width) + 7) / 8;
    if (width == 0 || height == 0 || rows.size() < stride * height) ASRaiseErr(ErrSysGeneral, kErrBadParm);
    std::vector<uint8_t> encoded;
    {
        std::unique_ptr<MemoryTiff> out = MemoryTiff::OpenWrite();
        if (!out) ASRaiseErr(ErrSysGeneral, kErrCCITTFilter);
        TIFF* t = out->Handle();
        TIFFSetField(t, TIFFTAG_IMAGEWIDTH, width);
        TIFFSetField(t, TIFFTAG_IMAGELENGTH, height);
        TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 1);
        TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 1);
        TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
        TIFFSetField(t, TIFFTAG_FILLORDER, FILLORDER_MSB2LSB);
        TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX4);
        TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, height);
        std::vector<uint8_t> row(stride);
        for (uint32_t y = 0; y < height; ++y) {
            std::memcpy(row.data(), rows.data() + size_t(y) * stride, stride);
            if (TIFFWriteScanline(t, row.data(), y, 0) < 0) ASRaiseErr(ErrSysGeneral, kErrCCITTFilter);
        }
        if (!TIFFWriteDirectory(t)) ASRaiseErr(ErrSysGeneral, kErrCCITTFilter);
        out->Close();
        // Read the one strip back as it was written.
        std::vector<uint8_t> file = out->Bytes();
        std::unique_ptr<MemoryTiff> in = MemoryTiff::OpenRead(file);
        if (!in) ASRaiseErr(ErrSysGeneral, kErrCCITTFilter);
        uint64_t* counts = nullptr;
        if (!TIFFGetField(in->Handle(), TIFFTAG_STRIPBYTECOUNTS, &counts) || !counts)
            ASRaiseErr(ErrSysGeneral, kErrCCITTFilter);
        encoded.resize(size_t(counts[0]));
        if (TIFFReadRawStrip(in->Handle(), 0, encoded.data(), tmsize_t(encoded.size())) < 0)
            ASRaiseErr(ErrSysGeneral, kErrCCITTFilter);
    }
    return encoded;
}

}  // namespace images
