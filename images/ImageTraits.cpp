#include "images/ImageTraits.h"

#include <algorithm>

#include "filters/Filters.h"

namespace images {
namespace {

const ASAtom K_Filter = ASAtomFromString("Filter");
const ASAtom K_N = ASAtomFromString("N");
const ASAtom K_Alternate = ASAtomFromString("Alternate");
const ASAtom K_Range = ASAtomFromString("Range");

// Spaces refer to spaces (an ICC profile's alternate, an Indexed base):
// damaged files may make that a loop.
constexpr int kMaxDepth = 4;

ColourSpaceInfo Read(CosObj cs, int depth) {
    ColourSpaceInfo ci;
    if (depth > kMaxDepth) {
        ci.problem = "colour space nested too deeply";
        return ci;
    }
    const std::string f = ColourSpaceFamily(cs);
    if (f.empty()) {
        ci.problem = CosObjIsNull(cs) ? "no colour space" : "unknown colour space";
        return ci;
    }
    if (f == "DeviceGray" || f == "G" || f == "CalGray" || f == "Separation") {
        ci.components = 1;
    } else if (f == "DeviceRGB" || f == "RGB" || f == "CalRGB") {
        ci.components = 3;
        ci.rgbLike = true;
    } else if (f == "Lab") {
        ci.components = 3;
        ci.unitRanges = false;
    } else if (f == "DeviceCMYK" || f == "CMYK") {
        ci.components = 4;
    } else if (f == "ICCBased") {
        CosObj stream = CosArrayGet(cs, 1);
        if (CosObjGetType(stream) != kCosStream) {
            ci.problem = "ICC-based colour space without a profile";
            return ci;
        }
        ASInt32 n = CosDictGetInt(stream, K_N, 0);
        if (n == 0) n = Read(CosDictGet(stream, K_Alternate), depth + 1).components;
        if (n != 1 && n != 3 && n != 4) {
            ci.problem = "ICC-based colour space without a usable N";
            return ci;
        }
        ci.components = n;
        ci.rgbLike = n == 3;
        ci.unitRanges = !CosDictKnown(stream, K_Range);
    } else if (f == "Indexed" || f == "I") {
        ci.components = 1;
        ci.indexed = true;
        ci.indexedBase = Read(CosArrayGet(cs, 1), depth + 1).components;
    } else if (f == "DeviceN") {
        CosObj names = CosArrayGet(cs, 1);
        const int n = CosObjGetType(names) == kCosArray ? CosArrayLength(names) : 0;
        if (n < 1 || n > 4) ci.problem = "DeviceN space with more than four colorants";
        else ci.components = n;
    } else {
        ci.problem = "unknown colour space " + f;
    }
    return ci;
}

}  // namespace

ColourSpaceInfo ReadColourSpace(CosObj cs) { return Read(cs, 0); }

std::string ColourSpaceFamily(CosObj cs) {
    if (CosObjGetType(cs) == kCosName) return ASAtomGetString(CosNameValue(cs));
    if (CosObjGetType(cs) == kCosArray && CosObjGetType(CosArrayGet(cs, 0)) == kCosName)
        return ASAtomGetString(CosNameValue(CosArrayGet(cs, 0)));
    return "";
}

FilterFamily FilterFamilyOf(CosObj image, int* chainLength) {
    CosObj filter = CosDictGet(image, K_Filter);
    CosObj last = filter;
    int chain = 0;
    if (CosObjGetType(filter) == kCosArray) {
        chain = CosArrayLength(filter);
        last = CosArrayGet(filter, chain - 1);
    } else if (CosObjGetType(filter) == kCosName) {
        chain = 1;
    }
    if (chainLength) *chainLength = chain;
    if (chain == 0) return FilterFamily::Raw;
    if (CosObjGetType(last) != kCosName) return FilterFamily::Other;
    const std::string name = filters::CanonicalFilterName(ASAtomGetString(CosNameValue(last)));
    if (name == "FlateDecode") return FilterFamily::Flate;
    if (name == "LZWDecode") return FilterFamily::LZW;
    if (name == "RunLengthDecode") return FilterFamily::RunLength;
    if (name == "DCTDecode") return FilterFamily::DCT;
    if (name == "JPXDecode") return FilterFamily::JPX;
    if (name == "JBIG2Decode") return FilterFamily::JBIG2;
    if (name == "CCITTFaxDecode") return FilterFamily::CCITT;
    if (name == "ASCIIHexDecode" || name == "ASCII85Decode") return FilterFamily::Raw;
    return FilterFamily::Other;
}

std::optional<std::vector<uint8_t>> DecodeImageData(CosObj stream, uint64_t expected, uint64_t limit,
                                                    std::string* problem) {
    CosDecodeOptions opts;
    opts.maxOutput = std::min<uint64_t>(limit, expected + expected / 4 + 65536);
    std::vector<uint8_t> data;
    bool complete = true;
    try {
        data = CosStreamDecodedData(stream, opts, &complete);
    } catch (const CVellumError&) {
        *problem = "damaged image data";
        return std::nullopt;
    }
    if (data.size() < expected) {
        *problem = complete ? "image data is shorter than its size says" : "damaged image data";
        return std::nullopt;
    }
    data.resize(static_cast<size_t>(expected));
    return data;
}

}  // namespace images
