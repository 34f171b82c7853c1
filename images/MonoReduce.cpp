#include "images/MonoReduce.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "filters/Filters.h"
#include "images/Bilevel.h"
#include "images/ImageEncode.h"
#include "images/ImageTraits.h"

namespace images {
namespace {

const ASAtom K_Width = ASAtomFromString("Width");
const ASAtom K_Height = ASAtomFromString("Height");
const ASAtom K_BitsPerComponent = ASAtomFromString("BitsPerComponent");
const ASAtom K_ColorSpace = ASAtomFromString("ColorSpace");
const ASAtom K_ImageMask = ASAtomFromString("ImageMask");
const ASAtom K_Mask = ASAtomFromString("Mask");
const ASAtom K_Interpolate = ASAtomFromString("Interpolate");
const ASAtom K_F = ASAtomFromString("F");
const ASAtom K_Decode = ASAtomFromString("Decode");
const ASAtom K_CCITTFaxDecode = ASAtomFromString("CCITTFaxDecode");
const ASAtom K_JBIG2Decode = ASAtomFromString("JBIG2Decode");

constexpr int64_t kMaxSide = 1 << 20;

// Lightness 0..1 of a colour given in a base colour space of n components.
double Lightness(const uint8_t* c, int n) {
    if (n == 1) return c[0] / 255.0;
    if (n == 3) return (0.3 * c[0] + 0.59 * c[1] + 0.11 * c[2]) / 255.0;
    if (n == 4) return 1.0 - std::min(1.0, (0.3 * c[0] + 0.59 * c[1] + 0.11 * c[2]) / 255.0 + c[3] / 255.0);
    return 0.5;
}

int BaseComponents(CosObj cs) {
    const std::string f = ColourSpaceFamily(cs);
    if (f == "DeviceGray" || f == "G" || f == "CalGray") return 1;
    if (f == "DeviceRGB" || f == "RGB" || f == "CalRGB" || f == "Lab") return 3;
    if (f == "DeviceCMYK" || f == "CMYK") return 4;
    if (f == "ICCBased") {
        CosObj s = CosArrayGet(cs, 1);
        return CosObjGetType(s) == kCosStream ? CosDictGetInt(s, ASAtomFromString("N"), 0) : 0;
    }
    return 0;
}

// The sample value (0 or 1) that stands for ink, before any Decode array:
// the painted value of a mask, the darker colour of a palette, the full
// tint of a colorant, black otherwise.
int InkSample(CosObj image, bool mask) {
    if (mask) return 0;
    CosObj cs = CosDictGet(image, K_ColorSpace);
    const std::string f = ColourSpaceFamily(cs);
    if (f == "Separation" || f == "DeviceN") return 1;
    if (f == "Indexed" || f == "I") {
        CosObj base = CosArrayGet(cs, 1);
        const int n = BaseComponents(base);
        CosObj lookup = CosArrayGet(cs, 3);
        std::vector<uint8_t> table;
        try {
            if (CosObjGetType(lookup) == kCosString) {
                const std::string b = CosStringBytes(lookup);
                table.assign(b.begin(), b.end());
            } else if (CosObjGetType(lookup) == kCosStream) {
                CosDecodeOptions o;
                o.maxOutput = 1 << 16;
                table = CosStreamDecodedData(lookup, o);
            }
        } catch (const CVellumError&) {
            table.clear();
        }
        if (n < 1 || table.size() < size_t(2 * n)) return 0;
        return Lightness(table.data() + n, n) < Lightness(table.data(), n) ? 1 : 0;
    }
    return 0;
}

// True when the Decode array swaps the two sample values.
bool DecodeSwaps(CosObj image) {
    CosObj d = CosDictGet(image, K_Decode);
    if (CosObjGetType(d) != kCosArray || CosArrayLength(d) < 2) return false;
    auto num = [](CosObj o) { return CosObjGetType(o) == kCosInteger ? double(CosIntegerValue(o)) : CosFixedValue(o); };
    return num(CosArrayGet(d, 0)) > num(CosArrayGet(d, 1));
}

// Samples (1 bits as stored) to ink and back: the same bits, or all of
// them flipped, with the padding past the width cleared.
void ToInk(std::vector<uint8_t>& rows, int width, int height, bool flip) {
    const size_t stride = (size_t(width) + 7) / 8;
    const uint8_t last = width % 8 ? uint8_t(0xFF << (8 - width % 8)) : 0xFF;
    for (int y = 0; y < height; ++y) {
        uint8_t* r = rows.data() + size_t(y) * stride;
        if (flip)
            for (size_t i = 0; i < stride; ++i) r[i] = uint8_t(~r[i]);
        r[stride - 1] &= last;
    }
}

}  // namespace

ReductionResult ReduceMonoImage(CosObj image, double ppiX, double ppiY, const MonoParams& p) {
    ReductionResult res;
    auto fail = [&](ReductionOutcome o, std::string why) {
        res.outcome = o;
        res.reason = std::move(why);
        return res;
    };
    if (CosObjGetType(image) != kCosStream) return fail(ReductionOutcome::Bad, "not an image stream");
    if (p.interpolate) CosDictPut(image, K_Interpolate, CosNewBoolean(CosObjGetDoc(image), false, true));
    if (CosDictKnown(image, K_F)) return fail(ReductionOutcome::LeftAlone, "image data in an external file");
    const bool mask = CosDictGetBool(image, K_ImageMask, false);
    const int64_t w = CosDictGetInt(image, K_Width, 0);
    const int64_t h = CosDictGetInt(image, K_Height, 0);
    const FilterFamily src = FilterFamilyOf(image);
    res.newWidth = int(w);
    res.newHeight = int(h);
    if (src == FilterFamily::DCT || src == FilterFamily::JPX || src == FilterFamily::Other) return fail(ReductionOutcome::LeftAlone, "unknown image filter");
    if (w <= 0 || h <= 0 || w > kMaxSide || h > kMaxSide) return fail(ReductionOutcome::Bad, "absurd image size");
    const int bpc = CosDictGetInt(image, K_BitsPerComponent, mask || src == FilterFamily::CCITT || src == FilterFamily::JBIG2 ? 1 : 0);
    if (bpc != 1) return fail(ReductionOutcome::LeftAlone, "not a 1-bit image");
    if (uint64_t(w) * uint64_t(h) > p.maxPixels) return fail(ReductionOutcome::Bad, "image too large to reduce");
    if (!mask && CosObjIsNull(CosDictGet(image, K_ColorSpace))) return fail(ReductionOutcome::Bad, "no colour space");

    // How far down, if at all.
    int newW = int(w), newH = int(h);
    if (p.downsample && std::max(ppiX, ppiY) > p.thresholdPpi && p.targetPpi > 0) {
        if (ppiX > p.targetPpi) newW = std::max(1, int(std::lround(double(w) * p.targetPpi / ppiX)));
        if (ppiY > p.targetPpi) newH = std::max(1, int(std::lround(double(h) * p.targetPpi / ppiY)));
        newW = std::min<int>(newW, int(w));
        newH = std::min<int>(newH, int(h));
    }
    const bool downsampling = newW < w || newH < h;
    if (!downsampling && !p.despeckle && p.compression == MonoCompression::Original) return res;  // Unchanged

    MonoCompression target = p.compression;
    if (target == MonoCompression::Original) {
        switch (src) {
        case FilterFamily::CCITT: target = MonoCompression::CCITTG4; break;
        case FilterFamily::JBIG2: target = MonoCompression::JBIG2; break;
        case FilterFamily::LZW: target = MonoCompression::LZW; break;
        case FilterFamily::RunLength: target = MonoCompression::Packbits; break;
        default: target = MonoCompression::Flate; break;
        }
    }
    if (target == MonoCompression::JBIG2 && !p.jbig2) target = MonoCompression::CCITTG4;

    // Decode.  CCITT data whose Rows disagree with Height is taken when it
    // holds at least Height rows (as readers draw it) and refused otherwise.
    const size_t stride = (size_t(w) + 7) / 8;
    std::string problem;
    auto decoded = DecodeImageData(image, uint64_t(stride) * uint64_t(h), UINT64_MAX, &problem);
    if (!decoded) return fail(ReductionOutcome::Bad, problem);
    std::vector<uint8_t> rows = std::move(*decoded);

    const int inkValue = InkSample(image, mask) ^ (DecodeSwaps(image) ? 1 : 0);
    const bool keyed = CosObjGetType(CosDictGet(image, K_Mask)) == kCosArray;
    const std::string family = mask ? "" : ColourSpaceFamily(CosDictGet(image, K_ColorSpace));
    const bool grayFamily = family == "DeviceGray" || family == "G" || family == "CalGray" ||
                            family == "Separation" || (family == "ICCBased" && BaseComponents(CosDictGet(image, K_ColorSpace)) == 1);

    EncodedImage enc;
    int bits = 1;
    bool halftone = false;
    if (p.descreen && downsampling && !mask && !keyed && grayFamily) {
        // Only a screen becomes gray: text and line art stay bilevel.
        InkBitmap probe{int(w), int(h), rows};
        ToInk(probe.rows, probe.width, probe.height, inkValue == 0);
        halftone = LooksHalftoned(probe);
    }
    if (halftone) {
        // A halftone becomes the gray it stands for; the samples keep their
        // scale (0 and 1 become 0 and 255), so Decode means the same.
        Raster g = DescreenToGray(rows, int(w), int(h), newW, newH);
        enc = EncodeLosslessRows(g.data, 1, 8, newW, ImageCompression::Flate, p.flateLevel, true, Prediction::AsAsked);
        bits = 8;
    } else {
        InkBitmap ink{int(w), int(h), std::move(rows)};
        ToInk(ink.rows, ink.width, ink.height, inkValue == 0);
        if (p.despeckle) Despeckle(ink, SpeckSizeFor(std::max(ppiX, ppiY)));
        if (downsampling) {
            const std::string filter = p.resampleFilter.empty() ? "box" : p.resampleFilter;
            try {
                ink = DownsampleInk(ink, newW, newH, filter);
            } catch (const CVellumError&) {
                return fail(ReductionOutcome::LeftAlone, "unknown resampling filter " + filter);
            }
        }
        // The codecs' black is the 0 sample (CCITT with BlackIs1 false, and
        // JBIG2 as PDF reads it): they get the samples flipped.
        InkBitmap codec = ink;
        ToInk(codec.rows, codec.width, codec.height, inkValue == 1);
        switch (target) {
        case MonoCompression::CCITTG4:
        case MonoCompression::CCITTG3:
            enc.data = EncodeFax(codec, target == MonoCompression::CCITTG4 ? FaxGroup::G4 : FaxGroup::G3);
            enc.filter = K_CCITTFaxDecode;
            enc.fax = true;
            enc.faxK = target == MonoCompression::CCITTG4 ? -1 : 0;
            break;
        case MonoCompression::JBIG2:
            enc.data = p.jbig2(codec.rows, codec.width, codec.height);
            enc.filter = K_JBIG2Decode;
            break;
        default: {
            // The samples as PDF stores them.
            ToInk(ink.rows, ink.width, ink.height, inkValue == 0);
            const ImageCompression how = target == MonoCompression::LZW        ? ImageCompression::LZW
                                         : target == MonoCompression::Packbits ? ImageCompression::Packbits
                                                                               : ImageCompression::Flate;
            enc = EncodeLosslessRows(ink.rows, 1, 1, ink.width, how, p.flateLevel, false, Prediction::Never);
            break;
        }
        }
    }

    res.bytesBefore = CosStreamEncodedLength(image);
    res.bytesAfter = enc.data.size();
    if (res.bytesAfter >= res.bytesBefore) {
        res.outcome = ReductionOutcome::NotSmaller;
        return res;
    }
    PutEncodedImage(image, enc, newW, newH, bits);
    res.newWidth = newW;
    res.newHeight = newH;
    res.outcome = ReductionOutcome::Replaced;
    return res;
}

}  // namespace images
