#include "jbig2/MQEncoder.h"

namespace jbig2 {
namespace {

// The probability estimation table: Qe, next state after an MPS, next
// state after an LPS, and whether an LPS swaps the sense of the MPS.
struct QeEntry {
    uint16_t qe;
    uint8_t nmps;
    uint8_t nlps;
    uint8_t swap;
};

constexpr QeEntry kQe[47] = {
    {0x5601, 1, 1, 1},   {0x3401, 2, 6, 0},   {0x1801, 3, 9, 0},   {0x0AC1, 4, 12, 0},  {0x0521, 5, 29, 0},
    {0x0221, 38, 33, 0}, {0x5601, 7, 6, 1},   {0x5401, 8, 14, 0},  {0x4801, 9, 14, 0},  {0x3801, 10, 14, 0},
    {0x3001, 11, 17, 0}, {0x2401, 12, 18, 0}, {0x1C01, 13, 20, 0}, {0x1601, 29, 21, 0}, {0x5601, 15, 14, 1},
    {0x5401, 16, 14, 0}, {0x5101, 17, 15, 0}, {0x4801, 18, 16, 0}, {0x3801, 19, 17, 0}, {0x3401, 20, 18, 0},
    {0x3001, 21, 19, 0}, {0x2801, 22, 19, 0}, {0x2401, 23, 20, 0}, {0x2201, 24, 21, 0}, {0x1C01, 25, 22, 0},
    {0x1801, 26, 23, 0}, {0x1601, 27, 24, 0}, {0x1401, 28, 25, 0}, {0x1201, 29, 26, 0}, {0x1101, 30, 27, 0},
    {0x0AC1, 31, 28, 0}, {0x09C1, 32, 29, 0}, {0x08A1, 33, 30, 0}, {0x0521, 34, 31, 0}, {0x0441, 35, 32, 0},
    {0x02A1, 36, 33, 0}, {0x0221, 37, 34, 0}, {0x0141, 38, 35, 0}, {0x0111, 39, 36, 0}, {0x0085, 40, 37, 0},
    {0x0049, 41, 38, 0}, {0x0025, 42, 39, 0}, {0x0015, 43, 40, 0}, {0x0009, 44, 41, 0}, {0x0005, 45, 42, 0},
    {0x0001, 45, 43, 0}, {0x5601, 46, 46, 0},
};

}  // namespace

MQEncoder::MQEncoder(size_t contexts) : states_(contexts, 0) {
    // The byte before the code string: the first ByteOut looks at it, but
    // it is never written (a carry cannot reach it, since C starts below A).
    out_.push_back(0);
}

void MQEncoder::Encode(uint8_t& st, int bit) {
    const QeEntry& e = kQe[st >> 1];
    const int mps = st & 1;
    const uint32_t qe = e.qe;
    a_ -= qe;
    if (bit == mps) {
        if (a_ & 0x8000) {
            c_ += qe;
            return;
        }
        // Conditional exchange: the MPS takes the larger interval.
        if (a_ < qe)
            a_ = qe;
        else
            c_ += qe;
        st = uint8_t(e.nmps << 1 | mps);
    } else {
        if (a_ < qe)
            c_ += qe;
        else
            a_ = qe;
        st = uint8_t(e.nlps << 1 | (e.swap ? 1 - mps : mps));
    }
    Renormalise();
}

void MQEncoder::Renormalise() {
    do {
        a_ <<= 1;
        c_ <<= 1;
        if (--ct_ == 0) ByteOut();
    } while ((a_ & 0x8000) == 0);
}

void MQEncoder::ByteOut() {
    uint8_t& b = out_.back();
    if (b == 0xFF) {
        // After 0xFF only seven bits go out, so a carry can never make a
        // marker code.
        out_.push_back(uint8_t(c_ >> 20));
        c_ &= 0xFFFFF;
        ct_ = 7;
        return;
    }
    if (c_ >= 0x8000000) {
        // Carry into the byte already written.
        ++b;
        c_ &= 0x7FFFFFF;
        if (b == 0xFF) {
            out_.push_back(uint8_t(c_ >> 20));
            c_ &= 0xFFFFF;
            ct_ = 7;
            return;
        }
    }
    out_.push_back(uint8_t(c_ >> 19));
    c_ &= 0x7FFFF;
    ct_ = 8;
}

std::vector<uint8_t> MQEncoder::Finish() {
    // Set as many trailing bits to 1 as the interval allows, so the decoder's
    // padding with 1 bits lands inside it.
    const uint32_t top = c_ + a_;
    c_ |= 0xFFFF;
    if (c_ >= top) c_ -= 0x8000;
    c_ <<= ct_;
    ByteOut();
    c_ <<= ct_;
    ByteOut();
    if (out_.back() != 0xFF) out_.push_back(0xFF);
    out_.push_back(0xAC);
    out_.erase(out_.begin());
    return std::move(out_);
}

}  // namespace jbig2
