#include "jbig2/GenericRegion.h"

#include <cstring>

#include "base/ASError.h"
#include "jbig2/MQEncoder.h"

namespace jbig2 {
namespace {

// The context in which typical prediction's "row is as above" flag is
// coded for template 0: a fixed neighbourhood pattern, shared with the
// pixel contexts.
constexpr uint32_t kTypicalContext0 = 0x9B25;

// Padding kept around an unpacked row so the context window can reach
// four pixels left and four right without tests.
constexpr size_t kPad = 4;

void Unpack(const uint8_t* packed, uint32_t width, uint8_t* out) {
    for (uint32_t x = 0; x < width; ++x) out[x] = (packed[x >> 3] >> (7 - (x & 7))) & 1;
}

bool RowEqualsAbove(const uint8_t* row, const uint8_t* above, uint32_t width) {
    const size_t full = width / 8;
    if (above == nullptr) {
        for (size_t i = 0; i < full; ++i)
            if (row[i]) return false;
    } else if (std::memcmp(row, above, full) != 0) {
        return false;
    }
    if (width % 8) {
        const uint8_t mask = uint8_t(0xFF << (8 - width % 8));
        const uint8_t a = above ? above[full] : 0;
        if ((row[full] ^ a) & mask) return false;
    }
    return true;
}

}  // namespace

std::vector<uint8_t> EncodeGenericRegion(const Bitmap& bm, const GenericOptions& options) {
    MQEncoder mq(0);
    std::vector<uint8_t> contexts(kGenericContexts, 0);
    EncodeGenericRegion(mq, contexts.data(), bm, options);
    return mq.Finish();
}

void EncodeGenericRegion(MQEncoder& mq, uint8_t* contexts, const Bitmap& bm, const GenericOptions& options) {
    const size_t rowBytes = (size_t(bm.width) + 7) / 8;
    if (bm.stride < rowBytes || (bm.height > 0 && bm.rows.size() < bm.stride * (bm.height - 1) + rowBytes))
        ASRaiseErr(ErrSysGeneral, kErrBadParm);
    // Three unpacked rows (two above and the current one), one byte a pixel,
    // with zero padding: pixels outside the bitmap read as 0.
    const size_t span = size_t(bm.width) + 2 * kPad;
    std::vector<uint8_t> lines(3 * span, 0);
    uint8_t* up2 = lines.data() + kPad;
    uint8_t* up1 = up2 + span;
    uint8_t* cur = up1 + span;
    int typical = 0;  // the previous row's prediction state (LTP)
    for (uint32_t y = 0; y < bm.height; ++y) {
        const uint8_t* packed = bm.rows.data() + size_t(y) * bm.stride;
        Unpack(packed, bm.width, cur);
        if (options.typicalPrediction) {
            const uint8_t* above = y == 0 ? nullptr : packed - bm.stride;
            const int same = RowEqualsAbove(packed, above, bm.width) ? 1 : 0;
            mq.Encode(contexts[kTypicalContext0], same ^ typical);
            typical = same;
        }
        if (!typical) {
            // The context window: four pixels to the left on this row
            // (bits 0-3), x+3 .. x-3 on the row above (bits 4-10), x+2 .. x-2
            // two rows up (bits 11-15); bit 4, 10, 11 and 15 are the
            // adaptive pixels at their nominal places.
            uint32_t w0 = 0;
            uint32_t w1 = (uint32_t(up1[-3]) << 6) | (uint32_t(up1[-2]) << 5) | (uint32_t(up1[-1]) << 4) |
                          (uint32_t(up1[0]) << 3) | (uint32_t(up1[1]) << 2) | (uint32_t(up1[2]) << 1) | up1[3];
            uint32_t w2 = (uint32_t(up2[-2]) << 4) | (uint32_t(up2[-1]) << 3) | (uint32_t(up2[0]) << 2) |
                          (uint32_t(up2[1]) << 1) | up2[2];
            for (uint32_t x = 0; x < bm.width; ++x) {
                const int bit = cur[x];
                mq.Encode(contexts[w0 | (w1 << 4) | (w2 << 11)], bit);
                w0 = ((w0 << 1) & 0xF) | uint32_t(bit);
                w1 = ((w1 << 1) & 0x7F) | up1[x + 4];
                w2 = ((w2 << 1) & 0x1F) | up2[x + 3];
            }
        }
        // Rotate: the current row becomes the one above.
        uint8_t* t = up2;
        up2 = up1;
        up1 = cur;
        cur = t;  // its padding was never written and stays 0
    }
}

}  // namespace jbig2
