#include "images/ImageReduce.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <span>
#include <vector>

#include "filters/DCTEncode.h"
#include "filters/Filters.h"
#include "images/ImageEncode.h"
#include "images/ImageTraits.h"
#include "images/ResampleFilter.h"
#include "images/Resampler.h"

namespace images {
namespace {

const ASAtom K_Width = ASAtomFromString("Width");
const ASAtom K_Height = ASAtomFromString("Height");
const ASAtom K_BitsPerComponent = ASAtomFromString("BitsPerComponent");
const ASAtom K_ColorSpace = ASAtomFromString("ColorSpace");
const ASAtom K_ImageMask = ASAtomFromString("ImageMask");
const ASAtom K_SMask = ASAtomFromString("SMask");
const ASAtom K_Mask = ASAtomFromString("Mask");
const ASAtom K_Filter = ASAtomFromString("Filter");
const ASAtom K_DecodeParms = ASAtomFromString("DecodeParms");
const ASAtom K_Interpolate = ASAtomFromString("Interpolate");
const ASAtom K_F = ASAtomFromString("F");
const ASAtom K_DL = ASAtomFromString("DL");
const ASAtom K_Decode = ASAtomFromString("Decode");
const ASAtom K_ColorTransform = ASAtomFromString("ColorTransform");
const ASAtom K_Length = ASAtomFromString("Length");
const ASAtom K_DCTDecode = ASAtomFromString("DCTDecode");

// Largest side taken on; beyond it a dimension is not a real image.
constexpr int64_t kMaxSide = 1 << 20;

// The DecodeParms of the last filter, or null.
CosObj LastDecodeParms(CosObj image) {
    CosObj parms = CosDictGet(image, K_DecodeParms);
    if (CosObjGetType(parms) == kCosArray) return CosArrayGet(parms, CosArrayLength(parms) - 1);
    return parms;
}

struct Failure {
    ReductionOutcome outcome;
    std::string reason;
};

// 1, 2 and 4-bit samples spread over 0..255, 8 and 16-bit taken as they are.
// `scale` false keeps the values (palette indices) as they are.
std::optional<Raster> RasterFromSamples(const std::vector<uint8_t>& data, int w, int h, int colors, int bpc,
                                        bool scale = true) {
    Raster r;
    r.width = w;
    r.height = h;
    r.colors = colors;
    r.bits = bpc == 16 ? 16 : 8;
    const size_t rowIn = (size_t(w) * size_t(colors) * size_t(bpc) + 7) / 8;
    if (data.size() < rowIn * size_t(h)) return std::nullopt;
    if (bpc == 8 || bpc == 16) {
        r.data.assign(data.begin(), data.begin() + long(r.ByteSize()));
        return r;
    }
    r.data.resize(r.ByteSize());
    const unsigned maxv = (1u << bpc) - 1;
    const size_t perRow = size_t(w) * size_t(colors);
    for (int y = 0; y < h; ++y) {
        const uint8_t* in = data.data() + size_t(y) * rowIn;
        uint8_t* out = r.data.data() + size_t(y) * perRow;
        for (size_t i = 0; i < perRow; ++i) {
            const size_t bit = i * size_t(bpc);
            const unsigned v = (in[bit / 8] >> (8 - bpc - bit % 8)) & maxv;
            out[i] = uint8_t(scale ? (v * 255 + maxv / 2) / maxv : v);
        }
    }
    return r;
}

Raster To8Bit(const Raster& r) {
    if (r.bits == 8) return r;
    Raster o = r;
    o.bits = 8;
    o.data.resize(r.ByteSize() / 2);
    for (size_t i = 0; i < o.data.size(); ++i) {
        const unsigned v = (unsigned(r.data[2 * i]) << 8) | r.data[2 * i + 1];
        o.data[i] = uint8_t((v * 255 + 32767) / 65535);
    }
    return o;
}

// Resamples an image with a colour-key mask (ranges in sample values):
// keyed samples carry no weight, destination samples that end up mostly
// keyed take the key's low colour, the others are kept out of the key.
Raster ResampleKeyed(const Raster& src, const std::vector<int>& ranges, int w, int h, const ResampleFilter& f) {
    const int c = src.colors;
    const int bytes = src.bits / 8;
    const unsigned maxv = src.bits == 16 ? 65535 : 255;
    auto get = [&](const uint8_t* p, int i) { return bytes == 2 ? (unsigned(p[2 * i]) << 8) | p[2 * i + 1] : p[i]; };
    auto put = [&](uint8_t* p, int i, unsigned v) {
        if (bytes == 2) {
            p[2 * i] = uint8_t(v >> 8);
            p[2 * i + 1] = uint8_t(v);
        } else {
            p[i] = uint8_t(v);
        }
    };
    auto keyed = [&](const uint8_t* px) {
        for (int k = 0; k < c; ++k) {
            const int v = int(get(px, k));
            if (v < ranges[2 * size_t(k)] || v > ranges[2 * size_t(k) + 1]) return false;
        }
        return true;
    };
    Raster a = src;
    a.alpha = true;
    a.data.resize(a.ByteSize());
    const size_t n = size_t(src.width) * size_t(src.height);
    for (size_t i = 0; i < n; ++i) {
        const uint8_t* s = src.data.data() + i * size_t(c * bytes);
        uint8_t* d = a.data.data() + i * size_t((c + 1) * bytes);
        for (int k = 0; k < c; ++k) put(d, k, get(s, k));
        put(d, c, keyed(s) ? 0 : maxv);
    }
    Raster r = Resample(a, w, h, f);
    Raster out = src;
    out.width = w;
    out.height = h;
    out.data.resize(out.ByteSize());
    const size_t m = size_t(w) * size_t(h);
    for (size_t i = 0; i < m; ++i) {
        const uint8_t* s = r.data.data() + i * size_t((c + 1) * bytes);
        uint8_t* d = out.data.data() + i * size_t(c * bytes);
        if (get(s, c) * 2 < maxv) {
            for (int k = 0; k < c; ++k) put(d, k, unsigned(std::clamp(ranges[2 * size_t(k)], 0, int(maxv))));
            continue;
        }
        for (int k = 0; k < c; ++k) put(d, k, get(s, k));
        if (keyed(d)) {
            // Step the first component that can leave its range just outside it.
            for (int k = 0; k < c; ++k) {
                const int lo = ranges[2 * size_t(k)], hi = ranges[2 * size_t(k) + 1];
                const int v = int(get(d, k));
                if (hi < int(maxv) && (v - lo > hi - v || lo <= 0)) {
                    put(d, k, unsigned(hi + 1));
                    break;
                }
                if (lo > 0) {
                    put(d, k, unsigned(lo - 1));
                    break;
                }
            }
        }
    }
    return out;
}

EncodedImage EncodeLossless(const Raster& r, ImageCompression how, const ReductionParams& p, Prediction prediction) {
    return EncodeLosslessRows(r.data, r.Channels(), r.bits, r.width, how, p.flateLevel, p.flatePrediction, prediction);
}

// The samples of an image (not a JPEG) or soft mask, decoded through its
// filters; a Failure when the data is damaged or short.
std::optional<Raster> DecodeSamples(CosObj stream, int w, int h, int colors, int bpc, uint64_t limit,
                                    Failure* failure, bool scale = true) {
    const uint64_t rowBytes = (uint64_t(w) * uint64_t(colors) * uint64_t(bpc) + 7) / 8;
    std::string problem;
    const auto data = DecodeImageData(stream, rowBytes * uint64_t(h), limit, &problem);
    if (!data) {
        *failure = {ReductionOutcome::Bad, problem};
        return std::nullopt;
    }
    return RasterFromSamples(*data, w, h, colors, bpc, scale);
}

// An Indexed space's base and palette: `components` bytes per entry,
// hival + 1 entries (a short table reads as zeros, as readers do).
struct Palette {
    CosObj base = nullptr;
    ColourSpaceInfo baseInfo;
    std::vector<uint8_t> table;
    int entries = 0;
};

std::optional<Palette> ReadPalette(CosObj cs, std::string* problem) {
    Palette pal;
    pal.base = CosArrayGet(cs, 1);
    pal.baseInfo = ReadColourSpace(pal.base);
    if (!pal.baseInfo.problem.empty() || pal.baseInfo.indexed || pal.baseInfo.components < 1) {
        *problem = "Indexed space with an unusable base";
        return std::nullopt;
    }
    CosObj hival = CosArrayGet(cs, 2);
    if (CosObjGetType(hival) != kCosInteger && CosObjGetType(hival) != kCosFixed) {
        *problem = "Indexed space without hival";
        return std::nullopt;
    }
    pal.entries = std::clamp(CosIntegerValue(hival), 0, 255) + 1;
    CosObj lookup = CosArrayGet(cs, 3);
    if (CosObjGetType(lookup) == kCosString) {
        const std::string b = CosStringBytes(lookup);
        pal.table.assign(b.begin(), b.end());
    } else if (CosObjGetType(lookup) == kCosStream) {
        CosDecodeOptions o;
        o.maxOutput = 1 << 16;
        pal.table = CosStreamDecodedData(lookup, o);
    } else {
        *problem = "Indexed space without a lookup table";
        return std::nullopt;
    }
    pal.table.resize(size_t(pal.entries) * size_t(pal.baseInfo.components), 0);
    return pal;
}

// Palette indices to the base space's samples; indices above hival take
// the last entry.
Raster ExpandPalette(const Raster& indices, const Palette& pal) {
    Raster r;
    r.width = indices.width;
    r.height = indices.height;
    r.colors = pal.baseInfo.components;
    r.data.resize(r.ByteSize());
    const size_t n = size_t(r.width) * size_t(r.height), c = size_t(r.colors);
    for (size_t i = 0; i < n; ++i) {
        const size_t e = std::min<size_t>(indices.data[i], size_t(pal.entries - 1));
        std::copy_n(pal.table.begin() + long(e * c), c, r.data.begin() + long(i * c));
    }
    return r;
}

bool ValidBits(int bpc) { return bpc == 1 || bpc == 2 || bpc == 4 || bpc == 8 || bpc == 16; }

}  // namespace

ImageClass ClassifyImage(CosObj image) {
    if (CosDictGetBool(image, K_ImageMask, false)) return ImageClass::Mono;
    ColourSpaceInfo ci = ReadColourSpace(CosDictGet(image, K_ColorSpace));
    const int bpc = CosDictGetInt(image, K_BitsPerComponent, 8);
    // A two-entry palette at one bit is a bilevel image in two colours.
    if (ci.indexed && bpc == 1) return ImageClass::Mono;
    if (ci.indexed) return ci.indexedBase == 1 ? ImageClass::Grayscale : ImageClass::Color;
    int chain = 0;
    const FilterFamily fam = FilterFamilyOf(image, &chain);
    if (ci.components == 1 && (bpc == 1 || fam == FilterFamily::CCITT || fam == FilterFamily::JBIG2)) return ImageClass::Mono;
    if (ci.components == 1) return ImageClass::Grayscale;
    return ImageClass::Color;
}

ReductionResult ReduceImage(CosObj image, double ppiX, double ppiY, const ReductionParams& p) {
    ReductionResult res;
    auto fail = [&](ReductionOutcome o, std::string why) {
        res.outcome = o;
        res.reason = std::move(why);
        return res;
    };
    if (CosObjGetType(image) != kCosStream) return fail(ReductionOutcome::Bad, "not an image stream");
    if (p.interpolate) CosDictPut(image, K_Interpolate, CosNewBoolean(CosObjGetDoc(image), false, true));
    if (CosDictGetBool(image, K_ImageMask, false)) return fail(ReductionOutcome::Unchanged, "image mask");
    if (CosDictKnown(image, K_F)) return fail(ReductionOutcome::LeftAlone, "image data in an external file");

    const int64_t w = CosDictGetInt(image, K_Width, 0);
    const int64_t h = CosDictGetInt(image, K_Height, 0);
    const int bpc = CosDictGetInt(image, K_BitsPerComponent, 0);
    int chain = 0;
    const FilterFamily fam = FilterFamilyOf(image, &chain);
    res.newWidth = int(w);
    res.newHeight = int(h);
    if (fam == FilterFamily::JPX) return fail(ReductionOutcome::LeftAlone, "JPX image");
    if (fam == FilterFamily::JBIG2 || fam == FilterFamily::CCITT) return fail(ReductionOutcome::Unchanged, "bilevel image");
    if (fam == FilterFamily::Other) return fail(ReductionOutcome::LeftAlone, "unknown image filter");
    if (w <= 0 || h <= 0 || w > kMaxSide || h > kMaxSide) return fail(ReductionOutcome::Bad, "absurd image size");
    ColourSpaceInfo ci = ReadColourSpace(CosDictGet(image, K_ColorSpace));
    if (!ci.problem.empty()) return fail(ReductionOutcome::Bad, ci.problem);
    if (fam != FilterFamily::DCT && !ValidBits(bpc)) return fail(ReductionOutcome::Bad, "bad BitsPerComponent");
    const uint64_t decodedBytes = uint64_t(w) * uint64_t(h) * uint64_t(ci.components) * 2;
    if (decodedBytes > p.maxDecodedBytes * 2) return fail(ReductionOutcome::Bad, "image too large to reduce");

    // Colour key: a Mask array of min/max pairs, one per component.
    std::vector<int> key;
    CosObj mask = CosDictGet(image, K_Mask);
    if (CosObjGetType(mask) == kCosArray) {
        if (CosArrayLength(mask) != 2 * ci.components) return fail(ReductionOutcome::Bad, "bad colour-key mask");
        for (ASInt32 i = 0; i < CosArrayLength(mask); ++i) {
            CosObj v = CosArrayGet(mask, i);
            if (CosObjGetType(v) != kCosInteger && CosObjGetType(v) != kCosFixed)
                return fail(ReductionOutcome::Bad, "bad colour-key mask");
            key.push_back(CosIntegerValue(v));
        }
        if (bpc != 8 && bpc != 16) return fail(ReductionOutcome::LeftAlone, "colour-key mask below 8 bits");
    }

    // How far down, if at all.
    int newW = int(w), newH = int(h);
    if (p.downsample && std::max(ppiX, ppiY) > p.thresholdPpi && p.targetPpi > 0) {
        if (ppiX > p.targetPpi) newW = std::max(1, int(std::lround(double(w) * p.targetPpi / ppiX)));
        if (ppiY > p.targetPpi) newH = std::max(1, int(std::lround(double(h) * p.targetPpi / ppiY)));
        newW = std::min<int>(newW, int(w));
        newH = std::min<int>(newH, int(h));
    }
    const bool downsampling = newW < w || newH < h;

    // An Indexed image is only worth changing when it is downsampled: it
    // then becomes an image in its base space, since averaging indices
    // means nothing.
    std::optional<Palette> palette;
    if (ci.indexed && !downsampling) {
        // Palette images (screenshots, diagrams) only get a lossless
        // recompression of their indices, whatever filter was asked for.
        if (p.compression == ImageCompression::Original || p.compression == ImageCompression::Other)
            return res;  // Unchanged
        const ImageCompression how =
            p.compression == ImageCompression::JPEG ? ImageCompression::Flate : p.compression;
        const uint64_t rowBytes = (uint64_t(w) * uint64_t(bpc) + 7) / 8;
        std::string problem;
        const auto rows = DecodeImageData(image, rowBytes * uint64_t(h), p.maxDecodedBytes, &problem);
        if (!rows) return fail(ReductionOutcome::Bad, problem);
        // Predicting palette indices from their neighbours means nothing.
        EncodedImage e = EncodeLosslessRows(*rows, 1, bpc, int(w), how, p.flateLevel, p.flatePrediction, Prediction::Never);
        res.bytesBefore = CosStreamEncodedLength(image);
        res.bytesAfter = e.data.size();
        if (res.bytesAfter >= res.bytesBefore) {
            res.outcome = ReductionOutcome::NotSmaller;
            return res;
        }
        PutEncodedImage(image, e, int(w), int(h), bpc);
        res.outcome = ReductionOutcome::Replaced;
        return res;
    }
    if (ci.indexed) {
        if (CosDictKnown(image, K_Decode)) return fail(ReductionOutcome::LeftAlone, "Indexed image with a Decode array");
        if (!key.empty()) return fail(ReductionOutcome::LeftAlone, "colour-keyed Indexed image");
        if (bpc > 8) return fail(ReductionOutcome::Bad, "bad BitsPerComponent");
        std::string problem;
        try {
            palette = ReadPalette(CosDictGet(image, K_ColorSpace), &problem);
        } catch (const CVellumError&) {
            problem = "damaged Indexed lookup table";
        }
        if (!palette) return fail(ReductionOutcome::Bad, problem);
    }

    // What to encode with.
    ImageCompression target = p.compression;
    if (target == ImageCompression::Original || target == ImageCompression::Other) {
        if (!downsampling) return res;  // Unchanged
        switch (fam) {
        case FilterFamily::DCT: target = ImageCompression::JPEG; break;
        case FilterFamily::LZW: target = ImageCompression::LZW; break;
        case FilterFamily::RunLength: target = ImageCompression::Packbits; break;
        default: target = ImageCompression::Flate; break;
        }
    }

    // A JPEG that keeps its size would only grow as anything lossless.
    if (!downsampling && fam == FilterFamily::DCT && target != ImageCompression::JPEG)
        return fail(ReductionOutcome::Unchanged, "JPEG kept: a lossless encoding would be larger");

    // The soft mask follows the image's new size.
    CosObj smask = CosDictGet(image, K_SMask);
    const bool hasSMask = CosObjGetType(smask) == kCosStream;
    if (downsampling && hasSMask) {
        if (CosDictGetInt(smask, K_Width, 0) != w || CosDictGetInt(smask, K_Height, 0) != h)
            return fail(ReductionOutcome::Bad, "soft mask of another size than its image");
        if (!ValidBits(CosDictGetInt(smask, K_BitsPerComponent, 0)))
            return fail(ReductionOutcome::Bad, "soft mask with bad BitsPerComponent");
        int smChain = 0;
        const FilterFamily smFam = FilterFamilyOf(smask, &smChain);
        if (smFam == FilterFamily::JPX || smFam == FilterFamily::DCT || smFam == FilterFamily::Other || smFam == FilterFamily::JBIG2)
            return fail(ReductionOutcome::LeftAlone, "soft mask in an encoding that is not reduced");
    }

    // Decode.
    Failure failure{ReductionOutcome::Bad, ""};
    std::optional<Raster> raster;
    bool invertedCMYK = false;
    int sourceQuality = 0;
    if (fam == FilterFamily::DCT) {
        std::vector<uint8_t> jpeg;
        CosDecodeOptions opts;
        opts.maxOutput = p.maxDecodedBytes;
        opts.keepImageCodecs = true;
        if (chain == 1) {
            auto span = CosStreamEncodedData(image);
            jpeg.assign(span.begin(), span.end());
        } else {
            try {
                jpeg = CosStreamDecodedData(image, opts);
            } catch (const CVellumError&) {
                return fail(ReductionOutcome::Bad, "damaged image data");
            }
        }
        sourceQuality = filters::EstimateDCTQuality(jpeg);
        // Not downsampled and already at or below the quality asked for:
        // a new JPEG would lose detail for little or nothing.
        if (!downsampling && target == ImageCompression::JPEG && sourceQuality > 0 && sourceQuality <= p.jpegQuality)
            return fail(ReductionOutcome::Unchanged, "JPEG already at the quality asked for");
        filters::FilterParams fp;
        CosObj dp = LastDecodeParms(image);
        if (CosObjGetType(dp) == kCosDict && CosDictKnown(dp, K_ColorTransform))
            fp.values["ColorTransform"] = CosDictGetInt(dp, K_ColorTransform, 1);
        filters::DecodeOptions fo;
        fo.strict = true;
        fo.maxOutput = p.maxDecodedBytes;
        filters::DCTImage img;
        try {
            img = filters::DecodeDCT(jpeg, fp, fo);
        } catch (const CVellumError&) {
            return fail(ReductionOutcome::Bad, "damaged JPEG data");
        }
        if (img.corrupt || img.width != w || img.height != h || img.components != ci.components)
            return fail(ReductionOutcome::Bad, "JPEG data does not match the image's size or colour space");
        invertedCMYK = img.invertedCMYK;
        Raster r;
        r.width = img.width;
        r.height = img.height;
        r.colors = img.components;
        r.data = std::move(img.samples);
        raster = std::move(r);
    } else {
        raster = DecodeSamples(image, int(w), int(h), ci.components, bpc, p.maxDecodedBytes, &failure, !palette);
        if (!raster) return fail(failure.outcome, failure.reason);
        if (palette) {
            raster = ExpandPalette(*raster, *palette);
            ci = palette->baseInfo;
        }
    }

    if (invertedCMYK && target != ImageCompression::JPEG)
        return fail(ReductionOutcome::LeftAlone, "inverted CMYK JPEG kept as JPEG only");
    // A lossy encoding would move samples into or out of the colour key.
    if (!key.empty() && target == ImageCompression::JPEG) target = ImageCompression::Flate;
    if (target == ImageCompression::JPEG && ci.components == 2) target = ImageCompression::Flate;

    if (downsampling) {
        auto filter = CreateResampleFilter(p.resampleFilter);
        if (!filter) return fail(ReductionOutcome::LeftAlone, "unknown resampling filter " + p.resampleFilter);
        raster = key.empty() ? Resample(*raster, newW, newH, *filter) : ResampleKeyed(*raster, key, newW, newH, *filter);
    }

    EncodedImage enc;
    if (target == ImageCompression::JPEG) {
        Raster r8 = To8Bit(*raster);
        filters::DCTEncodeParams dp;
        dp.quality = p.compression == ImageCompression::JPEG || sourceQuality == 0 ? p.jpegQuality : sourceQuality;
        dp.colorTransform = r8.colors == 3 && ci.rgbLike && p.rgbToYCbCr;
        dp.app14Marker = invertedCMYK;
        enc.data = filters::EncodeDCT(r8.data, r8.width, r8.height, r8.colors, dp);
        enc.filter = K_DCTDecode;
        enc.colorTransformOff = r8.colors == 3 && !dp.colorTransform;
        raster = std::move(r8);
    } else {
        enc = EncodeLossless(*raster, target, p, downsampling ? Prediction::AsAsked : Prediction::Both);
    }

    // The soft mask, resampled to the same size.
    std::optional<EncodedImage> smEnc;
    int smBits = 8;
    size_t smBefore = 0;
    if (downsampling && hasSMask) {
        const int smBpc = CosDictGetInt(smask, K_BitsPerComponent, 8);
        auto sm = DecodeSamples(smask, int(w), int(h), 1, smBpc, p.maxDecodedBytes, &failure);
        if (!sm) return fail(failure.outcome, "soft mask: " + failure.reason);
        auto filter = CreateResampleFilter(p.resampleFilter);
        Raster smr = Resample(*sm, newW, newH, *filter);
        ReductionParams lossless = p;
        lossless.flatePrediction = true;
        smEnc = EncodeLossless(smr, ImageCompression::Flate, lossless, Prediction::AsAsked);
        smBits = smr.bits;
        smBefore = CosStreamEncodedLength(smask);
    }

    res.bytesBefore = CosStreamEncodedLength(image) + smBefore;
    res.bytesAfter = enc.data.size() + (smEnc ? smEnc->data.size() : 0);
    res.newWidth = newW;
    res.newHeight = newH;
    if (res.bytesAfter >= res.bytesBefore) {
        res.outcome = ReductionOutcome::NotSmaller;
        res.newWidth = int(w);
        res.newHeight = int(h);
        return res;
    }

    PutEncodedImage(image, enc, newW, newH, raster->bits);
    if (palette) {
        // A direct base lives in the Indexed array: the image gets its own copy.
        CosObj base = CosObjIsIndirect(palette->base) ? palette->base
                                                       : CosObjCopy(palette->base, CosObjGetDoc(image), false);
        CosDictPut(image, K_ColorSpace, base);
    }
    if (smEnc) {
        // A new stream, so another image sharing the old mask keeps it.
        CosDoc doc = CosObjGetDoc(image);
        CosObj dict = CosNewDict(doc, false);
        for (ASInt32 i = 0, n = CosDictCount(smask); i < n; ++i) {
            const ASAtom k = CosDictKeyAt(smask, i);
            if (k == K_Length || k == K_Filter || k == K_DecodeParms || k == K_DL) continue;
            CosDictPut(dict, k, CosObjCopy(CosDictValueAt(smask, i), doc, false));
        }
        CosObj fresh = CosNewStream(doc, dict, {});
        PutEncodedImage(fresh, *smEnc, newW, newH, smBits);
        CosDictPut(image, K_SMask, fresh);
    }
    res.outcome = ReductionOutcome::Replaced;
    return res;
}

}  // namespace images
