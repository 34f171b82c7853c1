// JPEG and TIFF files turned into one-page (or one page per TIFF page)
// documents.  The fixtures are made here with libjpeg and libtiff.
#include <gtest/gtest.h>
#include <jpeglib.h>
#include <tiffio.h>

#include <cstdio>
#include <string>
#include <vector>

#include "images/ImageImport.h"
#include "images/MemoryTiff.h"
#include "pdfcore/CosNames.h"
#include "tests/filters/FilterTestUtil.h"
#include "tests/pdfcore/test_support.h"

namespace {

using filters::Bytes;

// A small JPEG with a JFIF density (unit 1 = dots per inch, 2 = per cm).
Bytes MakeJpeg(int w, int h, int components, int densityUnit, int density, bool app14 = false) {
    Bytes pixels(size_t(w) * size_t(h) * size_t(components));
    for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = uint8_t((i * 7 + i / size_t(w * components) * 3) & 0xFF);
    const J_COLOR_SPACE space = components == 1 ? JCS_GRAYSCALE : components == 3 ? JCS_RGB : JCS_CMYK;
    return filters::testing::EncodeJpeg(w, h, components, space, pixels, 75, [&](jpeg_compress_struct& c) {
        c.write_JFIF_header = TRUE;
        c.write_Adobe_marker = app14 ? TRUE : FALSE;
        c.density_unit = UINT8(densityUnit);
        c.X_density = c.Y_density = UINT16(density);
    });
}

// `jpeg` with an Exif APP1 marker after its SOI whose first directory
// gives XResolution x, YResolution y (rationals over 1) and the unit
// (none when 0).
Bytes WithExif(Bytes jpeg, bool little, uint32_t x, uint32_t y, uint16_t unit) {
    Bytes t;
    auto put = [&](uint32_t v, int bytes) {
        for (int i = 0; i < bytes; ++i) t.push_back(uint8_t(v >> (little ? 8 * i : 8 * (bytes - 1 - i))));
    };
    t.push_back(little ? 'I' : 'M');
    t.push_back(little ? 'I' : 'M');
    put(42, 2);
    put(8, 4);   // the first directory
    const uint32_t entries = unit ? 3 : 2, data = 8 + 2 + 12 * entries + 4;
    put(entries, 2);
    put(0x011A, 2), put(5, 2), put(1, 4), put(data, 4);      // XResolution
    put(0x011B, 2), put(5, 2), put(1, 4), put(data + 8, 4);  // YResolution
    if (unit) put(0x0128, 2), put(3, 2), put(1, 4), put(unit, 2), put(0, 2);
    put(0, 4);   // no next directory
    put(x, 4), put(1, 4), put(y, 4), put(1, 4);
    Bytes app1 = {'E', 'x', 'i', 'f', 0, 0};
    app1.insert(app1.end(), t.begin(), t.end());
    const size_t len = app1.size() + 2;
    Bytes marker = {0xFF, 0xE1, uint8_t(len >> 8), uint8_t(len)};
    marker.insert(marker.end(), app1.begin(), app1.end());
    jpeg.insert(jpeg.begin() + 2, marker.begin(), marker.end());
    return jpeg;
}

// A bilevel pattern, rows packed MSB first, 1 = black.
Bytes Checker(uint32_t w, uint32_t h) {
    const size_t stride = (w + 7) / 8;
    Bytes rows(stride * h, 0);
    for (uint32_t y = 0; y < h; ++y)
        for (uint32_t x = 0; x < w; ++x)
            if (((x / 4) + (y / 3)) % 2) rows[y * stride + x / 8] |= uint8_t(0x80 >> (x % 8));
    return rows;
}

// Writes a TIFF into memory: each page is (width, height, bps, spp, photometric, compression).
struct TiffPage {
    uint32_t w, h;
    uint16_t bps, spp, photometric, compression;
    float dpi;
};
Bytes MakeTiff(const std::vector<TiffPage>& pages) {
    auto mt = images::MemoryTiff::OpenWrite();
    TIFF* t = mt->Handle();
    for (const TiffPage& p : pages) {
        TIFFSetField(t, TIFFTAG_IMAGEWIDTH, p.w);
        TIFFSetField(t, TIFFTAG_IMAGELENGTH, p.h);
        TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, p.bps);
        TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, p.spp);
        TIFFSetField(t, TIFFTAG_PHOTOMETRIC, p.photometric);
        TIFFSetField(t, TIFFTAG_COMPRESSION, p.compression);
        TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, p.h);
        if (p.dpi > 0) {
            TIFFSetField(t, TIFFTAG_XRESOLUTION, p.dpi);
            TIFFSetField(t, TIFFTAG_YRESOLUTION, p.dpi);
            TIFFSetField(t, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
        }
        const size_t stride = p.bps == 1 ? (p.w + 7) / 8 : size_t(p.w) * p.spp;
        Bytes rows = p.bps == 1 ? Checker(p.w, p.h) : Bytes(stride * p.h);
        if (p.bps == 1 && p.photometric == PHOTOMETRIC_MINISBLACK)
            for (auto& b : rows) b = uint8_t(~b);
        for (size_t i = 0; p.bps != 1 && i < rows.size(); ++i) rows[i] = uint8_t(i * 13);
        for (uint32_t y = 0; y < p.h; ++y) TIFFWriteScanline(t, rows.data() + y * stride, y, 0);
        TIFFWriteDirectory(t);
    }
    mt->Close();
    return mt->Bytes();
}

std::vector<double> MediaBox(PDDoc pd, int page) {
    CosObj box = CosDictGet(PDDocGetPageObj(pd, page), cosnames::MediaBox);
    std::vector<double> v;
    for (ASInt32 i = 0; i < CosArrayLength(box); ++i) v.push_back(CosFixedValue(CosArrayGet(box, i)));
    return v;
}

CosObj PageImage(PDDoc pd, int page) {
    CosObj res = CosDictGet(PDDocGetPageObj(pd, page), cosnames::Resources);
    CosObj xo = CosDictGet(res, cosnames::XObject);
    return CosDictValueAt(xo, 0);
}

std::string NameOf(CosObj dict, const char* key) {
    return ASAtomGetString(CosDictGetName(dict, ASAtomFromString(key)));
}

TEST(ImageImport, KindByExtension) {
    using K = images::ImageFileKind;
    // Exact spellings only: "scan.Tif" is no TIFF.
    for (auto [name, kind] : {std::pair{"a/b.jpeg", K::Jpeg}, {"x.JPG", K::Jpeg}, {"scan.tif", K::Tiff},
                              {"scan.TIFF", K::Tiff}, {"scan.Tif", K::None}, {"doc.pdf", K::None}, {"jpg", K::None}})
        EXPECT_EQ(kind, images::ImageFileKindFromName(name)) << name;
}

TEST(ImageImport, JpegKeepsItsBytesAndSizesThePageByDensity) {
    const Bytes jpeg = MakeJpeg(300, 150, 3, 1, 150);
    PDDoc pd = images::ImportJpeg(jpeg);
    ASSERT_NE(nullptr, pd);
    ASSERT_EQ(1, PDDocGetNumPages(pd));
    EXPECT_EQ((std::vector<double>{0, 0, 144, 72}), MediaBox(pd, 0));
    CosObj img = PageImage(pd, 0);
    ASSERT_EQ(kCosStream, CosObjGetType(img));
    auto data = CosStreamEncodedData(img);
    EXPECT_EQ(jpeg, Bytes(data.begin(), data.end()));
    EXPECT_EQ("DCTDecode", NameOf(img, "Filter"));
    EXPECT_EQ("DeviceRGB", NameOf(img, "ColorSpace"));
    EXPECT_EQ(300, CosDictGetInt(img, ASAtomFromString("Width"), 0));
    EXPECT_EQ(150, CosDictGetInt(img, ASAtomFromString("Height"), 0));
    PDDocClose(pd);
}

TEST(ImageImport, JpegColourSpacesAndResolutionFallbacks) {
    // Dots per centimetre: 59 per cm is 149.86 ppi.
    PDDoc gray = images::ImportJpeg(MakeJpeg(100, 100, 1, 2, 59));
    ASSERT_NE(nullptr, gray);
    EXPECT_EQ("DeviceGray", NameOf(PageImage(gray, 0), "ColorSpace"));
    EXPECT_NEAR(100 * 72 / (59 * 2.54), MediaBox(gray, 0)[2], 0.001);
    PDDocClose(gray);

    // Aspect ratio only: 72 ppi, one point per pixel.
    PDDoc noDpi = images::ImportJpeg(MakeJpeg(40, 30, 3, 0, 1));
    ASSERT_NE(nullptr, noDpi);
    EXPECT_EQ((std::vector<double>{0, 0, 40, 30}), MediaBox(noDpi, 0));
    PDDocClose(noDpi);

    // The resolution in Exif alone, in either byte order and unit; a JFIF
    // density goes first.
    struct ExifCase {
        int jfifUnit;
        bool little;
        uint32_t x, y;
        uint16_t unit;
        double w, h;
    };
    for (const ExifCase& c : {ExifCase{0, true, 144, 288, 2, 20, 7.5}, ExifCase{0, false, 100, 100, 3, 40 * 72 / 254.0, 30 * 72 / 254.0},
                               ExifCase{1, true, 144, 144, 2, 40, 30}, ExifCase{0, false, 144, 144, 7, 40, 30},
                               ExifCase{0, true, 144, 144, 0, 20, 15}}) {  // no unit: inches
        PDDoc exif = images::ImportJpeg(WithExif(MakeJpeg(40, 30, 3, c.jfifUnit, 72), c.little, c.x, c.y, c.unit));
        ASSERT_NE(nullptr, exif);
        EXPECT_NEAR(MediaBox(exif, 0)[2], c.w, 0.001) << c.x << " " << c.unit;
        EXPECT_NEAR(MediaBox(exif, 0)[3], c.h, 0.001) << c.y << " " << c.unit;
        PDDocClose(exif);
    }

    PDDoc cmyk = images::ImportJpeg(MakeJpeg(16, 16, 4, 1, 72, true));
    ASSERT_NE(nullptr, cmyk);
    CosObj img = PageImage(cmyk, 0);
    EXPECT_EQ("DeviceCMYK", NameOf(img, "ColorSpace"));
    CosObj decode = CosDictGet(img, ASAtomFromString("Decode"));
    ASSERT_EQ(8, CosArrayLength(decode));
    EXPECT_EQ(1, CosIntegerValue(CosArrayGet(decode, 0)));
    EXPECT_EQ(0, CosIntegerValue(CosArrayGet(decode, 1)));
    PDDocClose(cmyk);
}

TEST(ImageImport, RejectsWhatIsNoImage) {
    EXPECT_EQ(nullptr, images::ImportJpeg(Bytes{}));
    Bytes notJpeg = {'%', 'P', 'D', 'F', '-', '1', '.', '4'};
    EXPECT_EQ(nullptr, images::ImportJpeg(notJpeg));
    Bytes truncated = MakeJpeg(64, 64, 3, 1, 72);
    truncated.resize(20);
    EXPECT_EQ(nullptr, images::ImportJpeg(truncated));
    EXPECT_EQ(nullptr, images::ImportTiff(notJpeg));
    Bytes tiff = MakeTiff({{32, 32, 8, 3, PHOTOMETRIC_RGB, COMPRESSION_NONE, 72}});
    tiff.resize(12);
    EXPECT_EQ(nullptr, images::ImportTiff(tiff));
    EXPECT_EQ(nullptr, images::ImportImageFile("/nonexistent/dir/x.jpg"));
    EXPECT_EQ(nullptr, images::ImportImageFile("whatever.png"));
}

TEST(ImageImport, BilevelTiffBecomesG4ThatDecodesToThePixels) {
    const uint32_t w = 37, h = 20;  // a width that is no multiple of 8
    // Uncompressed MinIsWhite (encoded here) and MinIsBlack G4 (copied).
    const TiffPage kinds[] = {{w, h, 1, 1, PHOTOMETRIC_MINISWHITE, COMPRESSION_NONE, 200},
                              {w, h, 1, 1, PHOTOMETRIC_MINISBLACK, COMPRESSION_CCITTFAX4, 300}};

    // Decoded through the CCITT filter, both give the pattern with
    // 0 = black (DeviceGray, one bit).
    Bytes expected = Checker(w, h);
    for (auto& b : expected) b = uint8_t(~b);
    const size_t stride = (w + 7) / 8;
    for (const TiffPage& kind : kinds) {
        PDDoc pd = images::ImportTiff(MakeTiff({kind}));
        ASSERT_NE(nullptr, pd);
        ASSERT_EQ(1, PDDocGetNumPages(pd));
        EXPECT_NEAR(w * 72.0 / kind.dpi, MediaBox(pd, 0)[2], 0.001);
        EXPECT_NEAR(h * 72.0 / kind.dpi, MediaBox(pd, 0)[3], 0.001);
        CosObj img = PageImage(pd, 0);
        EXPECT_EQ("CCITTFaxDecode", NameOf(img, "Filter"));
        Bytes got = CosStreamDecodedData(img);
        ASSERT_EQ(expected.size(), got.size()) << "photometric " << kind.photometric;
        for (uint32_t y = 0; y < h; ++y)
            for (uint32_t x = 0; x < w; ++x) {
                const int bit = 0x80 >> (x % 8);
                ASSERT_EQ(expected[y * stride + x / 8] & bit, got[y * stride + x / 8] & bit)
                    << "photometric " << kind.photometric << " x " << x << " y " << y;
            }
        PDDocClose(pd);
    }
}

TEST(ImageImport, MultiPageTiffGivesOnePageFromTheFirst) {
    Bytes tiff = MakeTiff({{16, 8, 1, 1, PHOTOMETRIC_MINISWHITE, COMPRESSION_NONE, 144},
                           {5, 4, 8, 3, PHOTOMETRIC_RGB, COMPRESSION_NONE, 72}});
    PDDoc pd = images::ImportTiff(tiff);
    ASSERT_NE(nullptr, pd);
    EXPECT_EQ(1, PDDocGetNumPages(pd));
    EXPECT_EQ((std::vector<double>{0, 0, 8, 4}), MediaBox(pd, 0));  // the first page at 144 ppi
    EXPECT_EQ("CCITTFaxDecode", NameOf(PageImage(pd, 0), "Filter"));
    PDDocClose(pd);
}

TEST(ImageImport, ColourTiffBecomesFlateWithTheSamples) {
    Bytes tiff = MakeTiff({{5, 4, 8, 3, PHOTOMETRIC_RGB, COMPRESSION_LZW, 0}});
    PDDoc pd = images::ImportTiff(tiff);
    ASSERT_NE(nullptr, pd);
    EXPECT_EQ((std::vector<double>{0, 0, 5, 4}), MediaBox(pd, 0));  // no resolution: 72 ppi
    CosObj img = PageImage(pd, 0);
    EXPECT_EQ("FlateDecode", NameOf(img, "Filter"));
    EXPECT_EQ("DeviceRGB", NameOf(img, "ColorSpace"));
    Bytes got = CosStreamDecodedData(img);
    ASSERT_EQ(size_t(5 * 4 * 3), got.size());
    for (size_t i = 0; i < got.size(); ++i) ASSERT_EQ(uint8_t(i * 13), got[i]) << i;
    PDDocClose(pd);
}

TEST(ImageImport, ImportImageFileReadsFromDisk) {
    ScratchDir dir;
    const Bytes jpeg = MakeJpeg(72, 36, 3, 1, 72);
    PDDoc pd = images::ImportImageFile(dir.Write("photo.JPEG", std::string(jpeg.begin(), jpeg.end())));
    ASSERT_NE(nullptr, pd);
    EXPECT_EQ((std::vector<double>{0, 0, 72, 36}), MediaBox(pd, 0));
    PDDocClose(pd);
}

}  // namespace
