#include "jbig2/Segments.h"

#include "base/ASError.h"

namespace jbig2 {
namespace {

void Put32(std::vector<uint8_t>& out, uint32_t v) {
    out.push_back(uint8_t(v >> 24));
    out.push_back(uint8_t(v >> 16));
    out.push_back(uint8_t(v >> 8));
    out.push_back(uint8_t(v));
}

void Put16(std::vector<uint8_t>& out, uint16_t v) {
    out.push_back(uint8_t(v >> 8));
    out.push_back(uint8_t(v));
}

}  // namespace

void SegmentWriter::Header(SegmentType type, uint32_t dataLength, const std::vector<uint32_t>& referred) {
    if (referred.size() > 4) ASRaiseErr(ErrSysGeneral, kErrBadParm);
    const uint32_t number = next_++;
    Put32(out_, number);
    // Flags: the type, and a four-byte page association when the page
    // number does not fit one byte.
    const bool widePage = page_ > 0xFF;
    out_.push_back(uint8_t(type | (widePage ? 0x40 : 0)));
    // The count of referred segments (no retention flags), then their
    // numbers, each as wide as this segment's number needs.
    out_.push_back(uint8_t(referred.size() << 5));
    for (uint32_t r : referred) {
        if (number <= 256)
            out_.push_back(uint8_t(r));
        else if (number <= 65536)
            Put16(out_, uint16_t(r));
        else
            Put32(out_, r);
    }
    if (widePage)
        Put32(out_, page_);
    else
        out_.push_back(uint8_t(page_));
    Put32(out_, dataLength);
}

void SegmentWriter::PageInformation(uint32_t width, uint32_t height, bool lossless) {
    Header(kSegPageInformation, 19);
    Put32(out_, width);
    Put32(out_, height);
    Put32(out_, 0);  // resolution unknown: the PDF places the image
    Put32(out_, 0);
    // Default pixel 0 (white), combination operator OR, no auxiliary
    // buffers; bit 0 says the page is coded losslessly.
    out_.push_back(lossless ? 0x01 : 0x00);
    Put16(out_, 0);  // not striped
}

std::vector<uint8_t> GenericRegionData(const Bitmap& bm, uint32_t x, uint32_t y, const GenericOptions& options) {
    const std::vector<uint8_t> coded = EncodeGenericRegion(bm, options);
    // Region information (17 bytes), generic flags (1), AT pixels (8).
    std::vector<uint8_t> out;
    out.reserve(26 + coded.size());
    Put32(out, bm.width);
    Put32(out, bm.height);
    Put32(out, x);
    Put32(out, y);
    out.push_back(0);  // external combination operator OR
    // MMR off, template 0, typical prediction as asked.
    out.push_back(options.typicalPrediction ? 0x08 : 0x00);
    for (int8_t v : kTemplate0AT) out.push_back(uint8_t(v));
    out.insert(out.end(), coded.begin(), coded.end());
    return out;
}

void SegmentWriter::ImmediateGenericRegion(const Bitmap& bm, uint32_t x, uint32_t y, const GenericOptions& options,
                                           bool lossless) {
    Segment(lossless ? kSegImmediateLosslessGenericRegion : kSegImmediateGenericRegion,
            GenericRegionData(bm, x, y, options));
}

void SegmentWriter::EndOfPage() { Header(kSegEndOfPage, 0); }

uint32_t SegmentWriter::Segment(SegmentType type, const std::vector<uint8_t>& data,
                                const std::vector<uint32_t>& referred) {
    const uint32_t number = next_;
    Header(type, uint32_t(data.size()), referred);
    out_.insert(out_.end(), data.begin(), data.end());
    return number;
}

std::vector<uint8_t> EncodeGenericPage(const Bitmap& bm, const GenericOptions& options) {
    SegmentWriter w;
    w.PageInformation(bm.width, bm.height, true);
    w.ImmediateGenericRegion(bm, 0, 0, options, true);
    return w.Take();
}

}  // namespace jbig2
