#include "images/ImageImport.h"

#include <jpeglib.h>
#include <tiffio.h>

#include <algorithm>
#include <charconv>
#include <csetjmp>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

#include "filters/Filters.h"
#include "images/MemoryTiff.h"
#include "pdfcore/CosNames.h"

namespace images {
namespace {

const ASAtom K_XObject = ASAtomFromString("XObject");
const ASAtom K_Image = ASAtomFromString("Image");
const ASAtom K_Subtype = ASAtomFromString("Subtype");
const ASAtom K_Width = ASAtomFromString("Width");
const ASAtom K_Height = ASAtomFromString("Height");
const ASAtom K_ColorSpace = ASAtomFromString("ColorSpace");
const ASAtom K_DeviceGray = ASAtomFromString("DeviceGray");
const ASAtom K_DeviceRGB = ASAtomFromString("DeviceRGB");
const ASAtom K_DeviceCMYK = ASAtomFromString("DeviceCMYK");
const ASAtom K_Decode = ASAtomFromString("Decode");
const ASAtom K_DCTDecode = ASAtomFromString("DCTDecode");
const ASAtom K_CCITTFaxDecode = ASAtomFromString("CCITTFaxDecode");
const ASAtom K_ProcSet = ASAtomFromString("ProcSet");
const ASAtom K_Im0 = ASAtomFromString("Im0");

// Numbers in content and boxes: "C" locale whatever the process locale is.
std::string Num(double v) {
    char buf[64];
    auto r = std::to_chars(buf, buf + sizeof buf, v, std::chars_format::fixed, 4);
    std::string s(buf, r.ptr);
    if (s.find('.') != std::string::npos) {
        while (s.back() == '0') s.pop_back();
        if (s.back() == '.') s.pop_back();
    }
    return s == "-0" ? "0" : s;
}

// The value as the content stream writes it, so box and content agree;
// parsed back without the process locale.
double Rounded(double v) {
    const std::string text = Num(v);
    double out = 0;
    std::from_chars(text.data(), text.data() + text.size(), out);
    return out;
}

// Points for `pixels` at `ppi`; 72 ppi when the file gives no usable one.
double PagePoints(uint32_t pixels, double ppi) {
    if (!(ppi >= 1.0 && ppi <= 100000.0)) ppi = 72.0;
    return double(pixels) * 72.0 / ppi;
}

CosObj NewImageDict(CosDoc doc, uint32_t w, uint32_t h, int bpc, ASAtom colorSpace) {
    CosObj d = CosNewDict(doc, false, 8);
    CosDictPutName(d, cosnames::Type, false, K_XObject);
    CosDictPutName(d, K_Subtype, false, K_Image);
    CosDictPutInteger(d, K_Width, ASInt32(w));
    CosDictPutInteger(d, K_Height, ASInt32(h));
    CosDictPutInteger(d, cosnames::BitsPerComponent, bpc);
    CosDictPutName(d, K_ColorSpace, false, colorSpace);
    return d;
}

// Appends one page that shows `image` over a page of `wPt` x `hPt` points.
void AddImagePage(PDDoc pd, CosObj image, double wPt, double hPt) {
    CosDoc doc = PDDocGetCosDoc(pd);
    CosObj pages = CosDictGet(CosDocGetRoot(doc), cosnames::Pages);
    CosObj page = CosNewDict(doc, true, 6);
    CosDictPutName(page, cosnames::Type, false, cosnames::Page);
    CosDictPut(page, cosnames::Parent, pages);
    CosObj box = CosNewArray(doc, false, 4);
    CosArrayAppend(box, CosNewInteger(doc, false, 0));
    CosArrayAppend(box, CosNewInteger(doc, false, 0));
    CosArrayAppend(box, CosNewNumber(doc, false, Rounded(wPt)));
    CosArrayAppend(box, CosNewNumber(doc, false, Rounded(hPt)));
    CosDictPut(page, cosnames::MediaBox, box);

    CosObj res = CosNewDict(doc, false, 2);
    CosObj xobjects = CosNewDict(doc, false, 1);
    CosDictPut(xobjects, K_Im0, image);
    CosDictPut(res, K_XObject, xobjects);
    CosDictPut(page, cosnames::Resources, res);

    const std::string content = "q " + Num(wPt) + " 0 0 " + Num(hPt) + " 0 0 cm /Im0 Do Q";
    CosObj contents = CosNewStream(
        doc, CosNewNull(),
        std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(content.data()), content.size()));
    CosDictPut(page, cosnames::Contents, contents);

    CosArrayAppend(CosDictGet(pages, cosnames::Kids), page);
    CosDictPutInteger(pages, cosnames::Count, CosDictGetInt(pages, cosnames::Count, 0) + 1);
    PDDocPagesChanged(pd);
}

// ---------------------------------------------------------------- JPEG

struct JpegError {
    jpeg_error_mgr mgr;
    std::jmp_buf jump;
};

void JpegErrorExit(j_common_ptr cinfo) {
    std::longjmp(reinterpret_cast<JpegError*>(cinfo->err)->jump, 1);
}
void JpegSilent(j_common_ptr, int) {}

struct JpegInfo {
    uint32_t width = 0, height = 0;
    int components = 0;
    bool app14 = false;
    double xppi = 0, yppi = 0;
};

// The resolution in the first image directory of an Exif block (the data
// of an APP1 marker, "Exif" and two zero bytes, then a TIFF structure of
// either byte order): XResolution, YResolution and ResolutionUnit (2 inch,
// the default, or 3 centimetre).  False when it gives none.
bool ExifResolution(std::span<const uint8_t> d, double& xppi, double& yppi) {
    static const uint8_t kExif[6] = {'E', 'x', 'i', 'f', 0, 0};
    if (d.size() < 14 || !std::equal(kExif, kExif + 6, d.begin())) return false;
    const std::span<const uint8_t> t = d.subspan(6);
    const bool little = t[0] == 'I' && t[1] == 'I';
    if (!little && !(t[0] == 'M' && t[1] == 'M')) return false;
    auto u16 = [&](size_t at) -> uint32_t {
        return little ? uint32_t(t[at]) | uint32_t(t[at + 1]) << 8 : uint32_t(t[at]) << 8 | t[at + 1];
    };
    auto u32 = [&](size_t at) -> uint32_t { return little ? u16(at) | u16(at + 2) << 16 : u16(at) << 16 | u16(at + 2); };
    const uint32_t ifd = u32(4);
    if (ifd > t.size() || t.size() - ifd < 2) return false;
    const uint32_t entries = u16(ifd);
    double x = 0, y = 0, unit = 2;
    for (uint32_t i = 0; i < entries; ++i) {
        const size_t e = size_t(ifd) + 2 + size_t(i) * 12;
        if (e + 12 > t.size()) break;
        const uint32_t tag = u16(e), type = u16(e + 2);
        if ((tag == 0x011A || tag == 0x011B) && type == 5) {  // RATIONAL
            const uint32_t at = u32(e + 8);
            if (at > t.size() || t.size() - at < 8 || u32(at + 4) == 0) continue;
            (tag == 0x011A ? x : y) = double(u32(at)) / double(u32(at + 4));
        } else if (tag == 0x0128 && type == 3) {  // SHORT, in the value field
            unit = u16(e + 8);
        }
    }
    const double scale = unit == 2 ? 1.0 : unit == 3 ? 2.54 : 0.0;
    if (!(x > 0 && y > 0 && scale > 0)) return false;
    xppi = x * scale;
    yppi = y * scale;
    return true;
}

// Reads the header only; false when libjpeg refuses the data.
bool ReadJpegHeader(std::span<const uint8_t> bytes, JpegInfo& info) {
    if (bytes.size() < 4 || bytes[0] != 0xFF || bytes[1] != 0xD8) return false;
    jpeg_decompress_struct cinfo;
    JpegError err;
    cinfo.err = jpeg_std_error(&err.mgr);
    err.mgr.error_exit = JpegErrorExit;
    err.mgr.emit_message = JpegSilent;
    // Nothing with a destructor lives between setjmp and the calls that may jump.
    if (setjmp(err.jump)) {
        jpeg_destroy_decompress(&cinfo);
        return false;
    }
    jpeg_create_decompress(&cinfo);
    jpeg_mem_src(&cinfo, bytes.data(), static_cast<unsigned long>(bytes.size()));
    jpeg_save_markers(&cinfo, JPEG_APP0 + 14, 0xFFFF);
    jpeg_save_markers(&cinfo, JPEG_APP0 + 1, 0xFFFF);
    if (jpeg_read_header(&cinfo, TRUE) != JPEG_HEADER_OK) {
        jpeg_destroy_decompress(&cinfo);
        return false;
    }
    info.width = cinfo.image_width;
    info.height = cinfo.image_height;
    info.components = cinfo.num_components;
    info.app14 = cinfo.saw_Adobe_marker;
    const bool precision8 = cinfo.data_precision == 8;
    if (cinfo.saw_JFIF_marker && cinfo.X_density > 0 && cinfo.Y_density > 0) {
        double scale = cinfo.density_unit == 1 ? 1.0 : cinfo.density_unit == 2 ? 2.54 : 0.0;
        info.xppi = cinfo.X_density * scale;
        info.yppi = cinfo.Y_density * scale;
    }
    // Cameras and phones give their resolution in Exif only (with a JFIF
    // marker of aspect ratio alone, or none): image-to-PDF tools use it.
    for (jpeg_saved_marker_ptr m = cinfo.marker_list; m && !(info.xppi > 0); m = m->next)
        if (m->marker == JPEG_APP0 + 1) ExifResolution({m->data, m->data_length}, info.xppi, info.yppi);
    jpeg_destroy_decompress(&cinfo);
    return precision8;
}

// ---------------------------------------------------------------- TIFF

double TiffPpi(TIFF* t, ttag_t tag) {
    float res = 0;
    uint16_t unit = RESUNIT_INCH;
    if (!TIFFGetField(t, tag, &res) || !(res > 0)) return 0;
    TIFFGetFieldDefaulted(t, TIFFTAG_RESOLUTIONUNIT, &unit);
    if (unit == RESUNIT_CENTIMETER) return res * 2.54;
    if (unit == RESUNIT_INCH) return res;
    return 0;  // no absolute unit: only an aspect ratio
}

// The page's bilevel raster, rows packed MSB first with 1 meaning black.
bool ReadBilevel(TIFF* t, uint32_t w, uint32_t h, uint16_t photometric, std::vector<uint8_t>& rows) {
    const tmsize_t lineSize = TIFFScanlineSize(t);
    const size_t stride = (size_t(w) + 7) / 8;
    if (lineSize < tmsize_t(stride)) return false;
    rows.assign(stride * h, 0);
    std::vector<uint8_t> line(static_cast<size_t>(lineSize));
    for (uint32_t y = 0; y < h; ++y) {
        if (TIFFReadScanline(t, line.data(), y, 0) < 0) return false;
        uint8_t* dst = rows.data() + size_t(y) * stride;
        std::copy_n(line.begin(), stride, dst);
        if (photometric == PHOTOMETRIC_MINISBLACK)
            for (size_t i = 0; i < stride; ++i) dst[i] = uint8_t(~dst[i]);
    }
    if (w % 8) {  // clear the padding bits past the last column
        const uint8_t keep = uint8_t(0xFF << (8 - w % 8));
        for (uint32_t y = 0; y < h; ++y) rows[size_t(y) * stride + stride - 1] &= keep;
    }
    return true;
}

CosObj BilevelImage(CosDoc doc, TIFF* t, uint32_t w, uint32_t h) {
    uint16_t photometric = PHOTOMETRIC_MINISWHITE, compression = COMPRESSION_NONE,
             fill = FILLORDER_MSB2LSB;
    TIFFGetFieldDefaulted(t, TIFFTAG_PHOTOMETRIC, &photometric);
    TIFFGetFieldDefaulted(t, TIFFTAG_COMPRESSION, &compression);
    TIFFGetFieldDefaulted(t, TIFFTAG_FILLORDER, &fill);
    uint32_t g4opts = 0;
    TIFFGetFieldDefaulted(t, TIFFTAG_GROUP4OPTIONS, &g4opts);

    std::vector<uint8_t> data;
    bool blackIs1 = false;
    if (compression == COMPRESSION_CCITTFAX4 && !TIFFIsTiled(t) && TIFFNumberOfStrips(t) == 1 &&
        fill == FILLORDER_MSB2LSB && g4opts == 0) {
        // One G4 strip is already what the page needs: copy it.
        uint64_t* counts = nullptr;
        if (TIFFGetField(t, TIFFTAG_STRIPBYTECOUNTS, &counts) && counts && counts[0] > 0 &&
            counts[0] < kMaxImageBytes) {
            data.resize(size_t(counts[0]));
            if (TIFFReadRawStrip(t, 0, data.data(), tmsize_t(data.size())) != tmsize_t(data.size()))
                data.clear();
            // The code's "black" runs are the 1 bits of the file; with
            // MinIsBlack those are white.
            blackIs1 = photometric == PHOTOMETRIC_MINISBLACK;
        }
    }
    if (data.empty()) {
        std::vector<uint8_t> rows;
        if (!ReadBilevel(t, w, h, photometric, rows)) return CosNewNull();
        data = EncodeG4(rows, w, h);
        blackIs1 = false;
    }
    CosObj dict = NewImageDict(doc, w, h, 1, K_DeviceGray);
    CosDictPutName(dict, cosnames::Filter, false, K_CCITTFaxDecode);
    CosObj parms = CosNewDict(doc, false, 4);
    CosDictPutInteger(parms, cosnames::K, -1);
    CosDictPutInteger(parms, cosnames::Columns, ASInt32(w));
    CosDictPutInteger(parms, cosnames::Rows, ASInt32(h));
    if (blackIs1) CosDictPut(parms, cosnames::BlackIs1, CosNewBoolean(doc, false, true));
    CosDictPut(dict, cosnames::DecodeParms, parms);
    return CosNewStream(doc, dict, data);
}

CosObj FlateImage(CosDoc doc, uint32_t w, uint32_t h, int bpc, int colors, ASAtom cs,
                  const std::vector<uint8_t>& samples) {
    CosObj dict = NewImageDict(doc, w, h, bpc, cs);
    CosDictPutName(dict, cosnames::Filter, false, cosnames::FlateDecode);
    CosObj parms = CosNewDict(doc, false, 4);
    CosDictPutInteger(parms, cosnames::Predictor, 15);
    CosDictPutInteger(parms, cosnames::Colors, colors);
    CosDictPutInteger(parms, cosnames::BitsPerComponent, bpc);
    CosDictPutInteger(parms, cosnames::Columns, ASInt32(w));
    CosDictPut(dict, cosnames::DecodeParms, parms);
    filters::Bytes enc = filters::FlateEncodePNG(samples, 9, colors, bpc, ASInt32(w));
    return CosNewStream(doc, dict, enc);
}

// 8-bit gray, RGB or CMYK stored contiguously: the samples are read as they
// are (extra samples such as alpha are dropped).
CosObj DirectImage(CosDoc doc, TIFF* t, uint32_t w, uint32_t h, uint16_t spp, int colors, ASAtom cs,
                   bool invert) {
    const tmsize_t lineSize = TIFFScanlineSize(t);
    if (lineSize < tmsize_t(size_t(w) * spp)) return CosNewNull();
    std::vector<uint8_t> line(static_cast<size_t>(lineSize));
    std::vector<uint8_t> samples(size_t(w) * h * size_t(colors));
    for (uint32_t y = 0; y < h; ++y) {
        if (TIFFReadScanline(t, line.data(), y, 0) < 0) return CosNewNull();
        uint8_t* dst = samples.data() + size_t(y) * w * size_t(colors);
        for (uint32_t x = 0; x < w; ++x)
            for (int c = 0; c < colors; ++c) {
                uint8_t v = line[size_t(x) * spp + size_t(c)];
                dst[size_t(x) * size_t(colors) + size_t(c)] = invert ? uint8_t(255 - v) : v;
            }
    }
    return FlateImage(doc, w, h, 8, colors, cs, samples);
}

// Anything else (palettes, 16-bit, YCbCr, planes, JPEG-in-TIFF, odd depths)
// goes through libtiff's RGBA reader and is stored as 8-bit RGB.
CosObj RgbaImage(CosDoc doc, TIFF* t, uint32_t w, uint32_t h) {
    std::vector<uint32_t> raster(size_t(w) * h);
    if (!TIFFReadRGBAImageOriented(t, w, h, raster.data(), ORIENTATION_TOPLEFT, 0))
        return CosNewNull();
    std::vector<uint8_t> rgb(size_t(w) * h * 3);
    for (size_t i = 0; i < raster.size(); ++i) {
        rgb[i * 3] = uint8_t(TIFFGetR(raster[i]));
        rgb[i * 3 + 1] = uint8_t(TIFFGetG(raster[i]));
        rgb[i * 3 + 2] = uint8_t(TIFFGetB(raster[i]));
    }
    return FlateImage(doc, w, h, 8, 3, K_DeviceRGB, rgb);
}

// The image of the current directory, or null when it cannot be read.
CosObj TiffPageImage(CosDoc doc, TIFF* t, uint32_t w, uint32_t h) {
    uint16_t bps = 1, spp = 1, photometric = PHOTOMETRIC_MINISWHITE, planar = PLANARCONFIG_CONTIG,
             compression = COMPRESSION_NONE;
    TIFFGetFieldDefaulted(t, TIFFTAG_BITSPERSAMPLE, &bps);
    TIFFGetFieldDefaulted(t, TIFFTAG_SAMPLESPERPIXEL, &spp);
    TIFFGetFieldDefaulted(t, TIFFTAG_PLANARCONFIG, &planar);
    TIFFGetFieldDefaulted(t, TIFFTAG_COMPRESSION, &compression);
    if (!TIFFGetField(t, TIFFTAG_PHOTOMETRIC, &photometric))
        photometric = spp >= 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISWHITE;
    const bool contig = planar == PLANARCONFIG_CONTIG || spp == 1;
    const bool plain = contig && bps == 8 && !TIFFIsTiled(t) && compression != COMPRESSION_OJPEG &&
                       compression != COMPRESSION_JPEG;

    if (bps == 1 && spp == 1 &&
        (photometric == PHOTOMETRIC_MINISWHITE || photometric == PHOTOMETRIC_MINISBLACK) &&
        !TIFFIsTiled(t))
        return BilevelImage(doc, t, w, h);
    if (plain && spp >= 1 &&
        (photometric == PHOTOMETRIC_MINISBLACK || photometric == PHOTOMETRIC_MINISWHITE))
        return DirectImage(doc, t, w, h, spp, 1, K_DeviceGray,
                           photometric == PHOTOMETRIC_MINISWHITE);
    if (plain && spp >= 3 && photometric == PHOTOMETRIC_RGB)
        return DirectImage(doc, t, w, h, spp, 3, K_DeviceRGB, false);
    if (plain && spp >= 4 && photometric == PHOTOMETRIC_SEPARATED) {
        uint16_t inkset = INKSET_CMYK;
        TIFFGetFieldDefaulted(t, TIFFTAG_INKSET, &inkset);
        if (inkset == INKSET_CMYK) return DirectImage(doc, t, w, h, spp, 4, K_DeviceCMYK, false);
    }
    return RgbaImage(doc, t, w, h);
}

bool SizeAcceptable(uint32_t w, uint32_t h, uint64_t bytesPerPixel) {
    return w > 0 && h > 0 && w <= kMaxImageSide && h <= kMaxImageSide &&
           uint64_t(w) * h * bytesPerPixel <= kMaxImageBytes;
}

bool EndsWith(const std::string& s, const char* suffix) {
    const std::string_view sv(suffix);
    return s.size() >= sv.size() && s.compare(s.size() - sv.size(), sv.size(), sv) == 0;
}

}  // namespace

ImageFileKind ImageFileKindFromName(const std::string& path) {
    for (const char* ext : {".jpg", ".JPG", ".jpeg", ".JPEG"})
        if (EndsWith(path, ext)) return ImageFileKind::Jpeg;
    for (const char* ext : {".tif", ".TIF", ".tiff", ".TIFF"})
        if (EndsWith(path, ext)) return ImageFileKind::Tiff;
    return ImageFileKind::None;
}

PDDoc ImportJpeg(std::span<const uint8_t> jpeg) {
    JpegInfo info;
    if (!ReadJpegHeader(jpeg, info)) return nullptr;
    if (info.components != 1 && info.components != 3 && info.components != 4) return nullptr;
    if (!SizeAcceptable(info.width, info.height, uint64_t(info.components))) return nullptr;

    PDDoc pd = PDDocCreate();
    try {
        CosDoc doc = PDDocGetCosDoc(pd);
        const ASAtom cs = info.components == 1   ? K_DeviceGray
                          : info.components == 3 ? K_DeviceRGB
                                                 : K_DeviceCMYK;
        CosObj dict = NewImageDict(doc, info.width, info.height, 8, cs);
        CosDictPutName(dict, cosnames::Filter, false, K_DCTDecode);
        if (info.components == 4 && info.app14) {
            // CMYK JPEGs that carry an APP14 marker are stored inverted.
            CosObj decode = CosNewArray(doc, false, 8);
            for (int i = 0; i < 4; ++i) {
                CosArrayAppend(decode, CosNewInteger(doc, false, 1));
                CosArrayAppend(decode, CosNewInteger(doc, false, 0));
            }
            CosDictPut(dict, K_Decode, decode);
        }
        CosObj image = CosNewStream(doc, dict, jpeg);
        AddImagePage(pd, image, PagePoints(info.width, info.xppi), PagePoints(info.height, info.yppi));
    } catch (...) {
        PDDocClose(pd);
        throw;
    }
    return pd;
}

PDDoc ImportTiff(std::span<const uint8_t> tiff) {
    std::unique_ptr<MemoryTiff> mt = MemoryTiff::OpenRead(tiff);
    if (!mt) return nullptr;
    TIFF* t = mt->Handle();
    // Only the first page (directory) is taken: an image input becomes a
    // one-page document.
    uint32_t w = 0, h = 0;
    if (!TIFFGetField(t, TIFFTAG_IMAGEWIDTH, &w) || !TIFFGetField(t, TIFFTAG_IMAGELENGTH, &h) ||
        !SizeAcceptable(w, h, 4))
        return nullptr;
    PDDoc pd = PDDocCreate();
    try {
        CosDoc doc = PDDocGetCosDoc(pd);
        CosObj image = TiffPageImage(doc, t, w, h);
        if (CosObjIsNull(image)) {
            PDDocClose(pd);
            return nullptr;
        }
        AddImagePage(pd, image, PagePoints(w, TiffPpi(t, TIFFTAG_XRESOLUTION)),
                     PagePoints(h, TiffPpi(t, TIFFTAG_YRESOLUTION)));
    } catch (const CVellumError&) {
        PDDocClose(pd);
        return nullptr;
    } catch (...) {
        PDDocClose(pd);
        throw;
    }
    return pd;
}

PDDoc ImportImageFile(const std::string& path) {
    const ImageFileKind kind = ImageFileKindFromName(path);
    if (kind == ImageFileKind::None) return nullptr;
    std::ifstream in(path, std::ios::binary);
    if (!in) return nullptr;
    in.seekg(0, std::ios::end);
    const std::streamoff size = in.tellg();
    if (size <= 0 || uint64_t(size) > kMaxImageBytes) return nullptr;
    in.seekg(0);
    std::vector<uint8_t> bytes(static_cast<size_t>(size));
    if (!in.read(reinterpret_cast<char*>(bytes.data()), size)) return nullptr;
    return kind == ImageFileKind::Jpeg ? ImportJpeg(bytes) : ImportTiff(bytes);
}

}  // namespace images
