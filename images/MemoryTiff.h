// libtiff over bytes in memory: reading a TIFF held in a buffer, and writing
// one into a growing buffer (used to get CCITT G4 data from libtiff's encoder).
// Every handle is opened with its own silent error handlers and an
// allocation cap, so a damaged file neither prints nor eats memory.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

typedef struct tiff TIFF;

namespace images {

class MemoryTiff {
public:
    // Opens `bytes` for reading (the bytes must outlive the handle).
    static std::unique_ptr<MemoryTiff> OpenRead(std::span<const uint8_t> bytes);
    // Opens an empty buffer for writing.
    static std::unique_ptr<MemoryTiff> OpenWrite();
    ~MemoryTiff();
    MemoryTiff(const MemoryTiff&) = delete;
    MemoryTiff& operator=(const MemoryTiff&) = delete;

    TIFF* Handle() const { return m_tif; }
    // Closes the handle (flushing a written file); afterwards Bytes() holds it.
    void Close();
    const std::vector<uint8_t>& Bytes() const { return m_data; }

    // The I/O callbacks libtiff calls.
    int64_t Read(void* buf, int64_t size);
    int64_t Write(const void* buf, int64_t size);
    uint64_t Seek(uint64_t off, int whence);
    uint64_t Size() const;

private:
    MemoryTiff() = default;
    TIFF* m_tif = nullptr;
    std::span<const uint8_t> m_in;  // reading
    std::vector<uint8_t> m_data;    // writing
    bool m_writing = false;
    uint64_t m_pos = 0;
};

// CCITT Group 4 data (one strip, no EncodedByteAlign, BlackIs1 false) for a
// bilevel raster whose rows are packed MSB first with 1 meaning black.
std::vector<uint8_t> EncodeG4(std::span<const uint8_t> packedRows, uint32_t width, uint32_t height);

}  // namespace images
