// The image codecs: CCITT fax data made by libtiff's encoder, JPEG made by
// libjpeg, and a JBIG2 page built segment by segment around MMR data.
#include <gtest/gtest.h>
#include <jpeglib.h>
#include <tiffio.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "tests/filters/FilterTestUtil.h"

using namespace filters;
using namespace filters::testing;

namespace {

// A bilevel test page, packed MSB first, 1 = black: stripes, blocks, single
// pixels and a run longer than 2560 so every code family is used.
struct Bitmap {
    int width, height;
    Bytes bits;
    size_t RowBytes() const { return (size_t(width) + 7) / 8; }
    void Set(int x, int y) { bits[size_t(y) * RowBytes() + size_t(x) / 8] |= static_cast<uint8_t>(0x80 >> (x % 8)); }
};

Bitmap MakePage(int width, int height) {
    Bitmap b{width, height, Bytes(((size_t(width) + 7) / 8) * size_t(height), 0)};
    Lcg rng(42);
    for (int y = 0; y < height; ++y) {
        int kind = y % 6;
        for (int x = 0; x < width; ++x) {
            bool black = false;
            if (kind == 0) black = (x / 3) % 2 == 0;
            if (kind == 1) black = x > 5 && x < width - 2;  // one long run
            if (kind == 2) black = rng.Next() % 5 == 0;
            if (kind == 3) black = ((x + y) / 40) % 2 == 0;
            if (kind == 4) black = x == y || x == width - 1;
            if (black) b.Set(x, y);
        }
    }
    return b;
}

// Encodes with libtiff and returns the single strip's raw bytes.
Bytes LibtiffFax(const Bitmap& bm, uint16_t compression, uint32_t t4options, int faxmode) {
    char path[] = "/tmp/tm-fax-XXXXXX";
    int fd = mkstemp(path);
    if (fd < 0) return {};
    close(fd);
    TIFF* t = TIFFOpen(path, "w");
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, uint32_t(bm.width));
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, uint32_t(bm.height));
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 1);
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, uint32_t(bm.height));
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
    TIFFSetField(t, TIFFTAG_FILLORDER, FILLORDER_MSB2LSB);
    TIFFSetField(t, TIFFTAG_COMPRESSION, compression);
    if (compression == COMPRESSION_CCITTFAX3) TIFFSetField(t, TIFFTAG_GROUP3OPTIONS, t4options);
    if (faxmode >= 0) TIFFSetField(t, TIFFTAG_FAXMODE, faxmode);
    for (int y = 0; y < bm.height; ++y) {
        TIFFWriteScanline(t, const_cast<uint8_t*>(bm.bits.data() + size_t(y) * bm.RowBytes()), uint32_t(y), 0);
    }
    TIFFClose(t);
    t = TIFFOpen(path, "r");
    Bytes raw;
    if (t) {
        tmsize_t n = TIFFRawStripSize(t, 0);
        raw.resize(size_t(n));
        TIFFReadRawStrip(t, 0, raw.data(), n);
        TIFFClose(t);
    }
    std::remove(path);
    return raw;
}

Bytes Inverted(Bytes b) {
    for (auto& v : b) v = static_cast<uint8_t>(~v);
    return b;
}

// Clears the padding bits past the last column of each row.
Bytes MaskPadding(Bytes b, int width) {
    size_t rb = (size_t(width) + 7) / 8;
    if (width % 8 == 0) return b;
    uint8_t mask = static_cast<uint8_t>(0xFF << (8 - width % 8));
    for (size_t i = rb - 1; i < b.size(); i += rb) b[i] &= mask;
    return b;
}

FilterParams Fax(int k, int columns, int rows, bool blackIs1 = false) {
    return Params({{"K", double(k)}, {"Columns", double(columns)}, {"Rows", double(rows)},
                   {"BlackIs1", blackIs1 ? 1.0 : 0.0}});
}

}  // namespace

TEST(CCITTFax, Group4MatchesTheImageInBothPolarities) {
    Bitmap bm = MakePage(3001, 60);
    Bytes g4 = LibtiffFax(bm, COMPRESSION_CCITTFAX4, 0, -1);
    ASSERT_FALSE(g4.empty());
    // PDF's default: 0 is black.
    EXPECT_EQ(MaskPadding(CCITTFaxDecode(g4, Fax(-1, bm.width, bm.height)), bm.width),
              MaskPadding(Inverted(bm.bits), bm.width));
    EXPECT_EQ(MaskPadding(CCITTFaxDecode(g4, Fax(-1, bm.width, bm.height, true)), bm.width), bm.bits);
    // Without Rows the end-of-block mark ends the data.
    FilterParams noRows = Params({{"K", -1}, {"Columns", double(bm.width)}, {"BlackIs1", 1}});
    EXPECT_EQ(MaskPadding(CCITTFaxDecode(g4, noRows), bm.width), bm.bits);
}

TEST(CCITTFax, Group3OneAndTwoDimensional) {
    Bitmap bm = MakePage(1728, 40);
    Bytes want = MaskPadding(bm.bits, bm.width);
    // K = 0: one-dimensional rows, each after an end-of-line code.
    Bytes g31 = LibtiffFax(bm, COMPRESSION_CCITTFAX3, 0, -1);
    FilterParams p = Fax(0, bm.width, bm.height, true);
    p.values["EndOfLine"] = 1;
    EXPECT_EQ(CCITTFaxDecode(g31, p), want);
    // K > 0: rows tagged one- or two-dimensional.
    Bytes g32 = LibtiffFax(bm, COMPRESSION_CCITTFAX3, GROUP3OPT_2DENCODING, -1);
    p = Fax(4, bm.width, bm.height, true);
    EXPECT_EQ(CCITTFaxDecode(g32, p), want);
    // End-of-line codes padded to end on a byte boundary.
    Bytes g3fill = LibtiffFax(bm, COMPRESSION_CCITTFAX3, GROUP3OPT_2DENCODING | GROUP3OPT_FILLBITS, -1);
    p.values["EncodedByteAlign"] = 1;
    p.values["EndOfLine"] = 1;
    EXPECT_EQ(CCITTFaxDecode(g3fill, p), want);
}

TEST(CCITTFax, ByteAlignedRowsWithoutEndOfLine) {
    Bitmap bm = MakePage(203, 30);
    Bytes want = MaskPadding(bm.bits, bm.width);
    // Modified Huffman: K = 0, every row starts on a byte, no end-of-line.
    Bytes mh = LibtiffFax(bm, COMPRESSION_CCITTRLE, 0, -1);
    FilterParams p = Fax(0, bm.width, bm.height, true);
    p.values["EncodedByteAlign"] = 1;
    EXPECT_EQ(MaskPadding(CCITTFaxDecode(mh, p), bm.width), want);
    // Read unaligned, the same data goes wrong.
    WarningCatcher wc;
    p.values["EncodedByteAlign"] = 0;
    EXPECT_NE(MaskPadding(CCITTFaxDecode(mh, p), bm.width), want);
    // Group 4 with byte-aligned rows (K < 0), coded by hand for 16 columns:
    // a white row (V0), black 4-12 (H W4 B8, V0), the same again (V0 x3).
    Bytes aligned{0x80, 0x36, 0x2C, 0xE0, 0x00, 0x10, 0x01};
    Bytes packed{0x9B, 0x17, 0xC0};
    Bytes rows{0x00, 0x00, 0x0F, 0xF0, 0x0F, 0xF0};
    p = Fax(-1, 16, 3, true);
    EXPECT_EQ(CCITTFaxDecode(packed, p), rows);
    p.values["EncodedByteAlign"] = 1;
    EXPECT_EQ(CCITTFaxDecode(aligned, p), rows);
    p.values.erase("Rows");
    EXPECT_EQ(CCITTFaxDecode(aligned, p), rows);
    // K > 0 without end-of-line codes: only the tag bits mark 1-D (white 16)
    // and 2-D rows.
    EXPECT_EQ(CCITTFaxDecode(Bytes{0xD4, 0x36, 0x2D, 0xC0}, Fax(2, 16, 3, true)), rows);
}

TEST(CCITTFax, TruncatedAndDamagedData) {
    Bitmap bm = MakePage(640, 48);
    Bytes g4 = LibtiffFax(bm, COMPRESSION_CCITTFAX4, 0, -1);
    Bytes cut(g4.begin(), g4.begin() + static_cast<std::ptrdiff_t>(g4.size() / 2));
    WarningCatcher wc;
    DecodeResult r = DecodeChain(cut, {{"CCF", Fax(-1, bm.width, bm.height, true)}});
    EXPECT_EQ(r.status, DecodeStatus::Corrupt);
    size_t rb = bm.RowBytes();
    ASSERT_GT(r.data.size(), rb * 5);
    ASSERT_LT(r.data.size(), bm.bits.size());
    EXPECT_EQ(r.data.size() % rb, 0u);
    // The rows that did decode are right (all but possibly the last).
    EXPECT_TRUE(std::equal(r.data.begin(), r.data.end() - static_cast<std::ptrdiff_t>(rb), bm.bits.begin()));
    EXPECT_FALSE(wc.warnings.empty());
    EXPECT_EQ(RaisedError([&] { DecodeChain(cut, {{"CCF", Fax(-1, bm.width, bm.height)}}, kStrict); }),
              kErrCCITTFilter);
    // Noise is rejected without hanging.
    Bytes noise(4000);
    Lcg rng(5);
    for (auto& v : noise) v = static_cast<uint8_t>(rng.Next());
    for (int k : {-1, 0, 3}) EXPECT_NE(DecodeChain(noise, {{"CCF", Fax(k, 1728, 0)}}).status, DecodeStatus::Ok);
}

namespace {

int MaxDiff(const Bytes& a, const Bytes& b) {
    int m = a.size() == b.size() ? 0 : 999;
    for (size_t i = 0; i < std::min(a.size(), b.size()); ++i) m = std::max(m, std::abs(a[i] - b[i]));
    return m;
}

}  // namespace

TEST(DCT, GrayRgbAndApp14CMYK) {
    const int w = 48, h = 32;
    Bytes gray(w * h), rgb(w * h * 3), cmyk(w * h * 4);
    for (int i = 0; i < w * h; ++i) {
        int x = i % w, y = i / w;
        gray[size_t(i)] = static_cast<uint8_t>(x * 5);
        rgb[size_t(i) * 3] = static_cast<uint8_t>(x * 5);
        rgb[size_t(i) * 3 + 1] = static_cast<uint8_t>(y * 7);
        rgb[size_t(i) * 3 + 2] = 128;
        for (int c = 0; c < 4; ++c) cmyk[size_t(i) * 4 + size_t(c)] = static_cast<uint8_t>(40 * c + x);
    }
    DCTImage g = DecodeDCT(EncodeJpeg(w, h, 1, JCS_GRAYSCALE, gray, 100));
    EXPECT_EQ(g.components, 1);
    EXPECT_LE(MaxDiff(g.samples, gray), 3);
    EXPECT_FALSE(g.app14Marker);
    DCTImage c = DecodeDCT(EncodeJpeg(w, h, 3, JCS_RGB, rgb, 100));
    EXPECT_EQ(c.width, w);
    EXPECT_EQ(c.height, h);
    EXPECT_LE(MaxDiff(c.samples, rgb), 6);
    // libjpeg writes CMYK with an APP14 marker: flagged, samples as stored.
    DCTImage k = DecodeDCT(EncodeJpeg(w, h, 4, JCS_CMYK, cmyk, 100));
    EXPECT_TRUE(k.app14Marker);
    EXPECT_TRUE(k.invertedCMYK);
    EXPECT_EQ(k.app14Transform, 0);
    EXPECT_LE(MaxDiff(k.samples, cmyk), 6);
    // Through the chain the samples come out the same way.
    EXPECT_EQ(DecodeChain(EncodeJpeg(w, h, 1, JCS_GRAYSCALE, gray, 90), {{"DCT", {}}}).data.size(), gray.size());
}

TEST(DCT, DamagedJpeg) {
    Bytes gray(64 * 64);
    for (size_t i = 0; i < gray.size(); ++i) gray[i] = static_cast<uint8_t>(i * 13);
    Bytes jpg = EncodeJpeg(64, 64, 1, JCS_GRAYSCALE, gray, 75);
    Bytes cut(jpg.begin(), jpg.begin() + static_cast<std::ptrdiff_t>(jpg.size() * 2 / 3));
    WarningCatcher wc;
    DCTImage img = DecodeDCT(cut);
    EXPECT_TRUE(img.corrupt);
    EXPECT_EQ(img.samples.size(), gray.size());
    EXPECT_FALSE(wc.warnings.empty());
    EXPECT_EQ(RaisedError([&] { DecodeDCT(cut, {}, kStrict); }), kErrJPEGFilter);
    EXPECT_EQ(RaisedError([&] { DecodeChain(B("not a jpeg"), {{"DCTDecode", {}}}, kStrict); }), kErrJPEGFilter);
    // A JPEG bigger than the limit is refused before it is decoded.
    DecodeOptions small;
    small.maxOutput = 1000;
    EXPECT_EQ(RaisedError([&] { DecodeDCT(jpg, {}, small); }), kErrTooComplex);
}

namespace {

void Put32(Bytes& b, uint32_t v) {
    for (int s = 24; s >= 0; s -= 8) b.push_back(static_cast<uint8_t>(v >> s));
}

// A segment header of the embedded JBIG2 format: number, type, no
// referred-to segments, page 1, data length.
void Segment(Bytes& out, uint32_t number, uint8_t type, const Bytes& data) {
    Put32(out, number);
    out.push_back(type);
    out.push_back(0);
    out.push_back(1);
    Put32(out, static_cast<uint32_t>(data.size()));
    out.insert(out.end(), data.begin(), data.end());
}

}  // namespace

TEST(JBIG2, MMRGenericRegionIsInvertedForPdf) {
    Bitmap bm = MakePage(77, 20);
    Bytes mmr = LibtiffFax(bm, COMPRESSION_CCITTFAX4, 0, -1);
    Bytes page;
    Bytes info;
    Put32(info, 77);
    Put32(info, 20);
    Put32(info, 0);
    Put32(info, 0);
    info.push_back(0);  // flags: default pixel 0, combination OR
    info.push_back(0);
    info.push_back(0);  // no striping
    Segment(page, 0, 48, info);
    Bytes region;
    Put32(region, 77);
    Put32(region, 20);
    Put32(region, 0);
    Put32(region, 0);
    region.push_back(0);  // external combination operator
    region.push_back(1);  // generic region flags: MMR
    region.insert(region.end(), mmr.begin(), mmr.end());
    Segment(page, 1, 38, region);
    Segment(page, 2, 49, {});
    DecodeResult r = DecodeChain(page, {{"JBIG2Decode", {}}});
    EXPECT_EQ(r.status, DecodeStatus::Ok);
    // JBIG2 marks black with 1; the PDF sample 0 is black.
    EXPECT_EQ(MaskPadding(r.data, bm.width), MaskPadding(Inverted(bm.bits), bm.width));
    // The same page info moved into the globals leaves no page: damaged.
    WarningCatcher wc;
    FilterParams withGlobals;
    withGlobals.jbig2Globals = Bytes(page.begin(), page.begin() + 11 + 19);
    Bytes rest(page.begin() + 11 + 19, page.end());
    EXPECT_EQ(DecodeChain(rest, {{"JBIG2Decode", withGlobals}}).status, DecodeStatus::Corrupt);
    EXPECT_EQ(DecodeChain(B("garbage"), {{"JBIG2Decode", {}}}).status, DecodeStatus::Corrupt);
    // The limit holds the page's bitmap exactly (10 bytes by 20 rows).
    DecodeOptions exact;
    exact.maxOutput = 200;
    EXPECT_EQ(DecodeChain(page, {{"JBIG2Decode", {}}}, exact).data.size(), 200u);
}

TEST(JBIG2, PageLargerThanTheLimitIsRefusedBeforeDecoding) {
    // An extension segment, then page information numbered 300 (referring
    // twice to segment 0, in two bytes each) for a page of 40000 x 40000
    // pixels: 200 MB of bitmap that the decoder must not allocate when only
    // 1 MB may come out.
    Bytes page;
    Segment(page, 0, 62, {0, 0});
    Put32(page, 300);
    page.push_back(48);
    page.push_back(0x40);  // two referred-to segments, short form
    for (int i = 0; i < 4; ++i) page.push_back(0);
    page.push_back(1);     // page 1
    Bytes info;
    Put32(info, 40000);
    Put32(info, 40000);
    for (int i = 0; i < 11; ++i) info.push_back(0);
    Put32(page, static_cast<uint32_t>(info.size()));
    page.insert(page.end(), info.begin(), info.end());
    DecodeOptions small;
    small.maxOutput = 1 << 20;
    EXPECT_EQ(RaisedError([&] { DecodeChain(page, {{"JBIG2Decode", {}}}, small); }), kErrTooComplex);
}
