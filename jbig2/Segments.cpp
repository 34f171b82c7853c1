#include "jbig2/Segments.h"

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

void SegmentWriter::Header(SegmentType type, uint32_t dataLength) {
    Put32(out_, next_++);
    // Flags: the type, and a four-byte page association when the page
    // number does not fit one byte.
    const bool widePage = page_ > 0xFF;
    out_.push_back(uint8_t(type | (widePage ? 0x40 : 0)));
    out_.push_back(0);  // refers to no other segment
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

void SegmentWriter::ImmediateGenericRegion(const Bitmap& bm, uint32_t x, uint32_t y, const GenericOptions& options,
                                           bool lossless) {
    const std::vector<uint8_t> coded = EncodeGenericRegion(bm, options);
    // Region information (17 bytes), generic flags (1), AT pixels (8).
    Header(lossless ? kSegImmediateLosslessGenericRegion : kSegImmediateGenericRegion, 26 + uint32_t(coded.size()));
    Put32(out_, bm.width);
    Put32(out_, bm.height);
    Put32(out_, x);
    Put32(out_, y);
    out_.push_back(0);  // external combination operator OR
    // MMR off, template 0, typical prediction as asked.
    out_.push_back(options.typicalPrediction ? 0x08 : 0x00);
    for (int8_t v : kTemplate0AT) out_.push_back(uint8_t(v));
    out_.insert(out_.end(), coded.begin(), coded.end());
}

void SegmentWriter::EndOfPage() { Header(kSegEndOfPage, 0); }

std::vector<uint8_t> EncodeGenericPage(const Bitmap& bm, const GenericOptions& options) {
    SegmentWriter w;
    w.PageInformation(bm.width, bm.height, true);
    w.ImmediateGenericRegion(bm, 0, 0, options, true);
    return w.Take();
}

}  // namespace jbig2
