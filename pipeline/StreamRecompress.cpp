#include "pipeline/StreamRecompress.h"

#include <vector>

#include "filters/Filters.h"
#include "filters/JpegTranscode.h"
#include "pdfcore/CosDoc.h"

namespace pipeline {
namespace {

const ASAtom K_Filter = ASAtomFromString("Filter");
const ASAtom K_DecodeParms = ASAtomFromString("DecodeParms");
const ASAtom K_Subtype = ASAtomFromString("Subtype");
const ASAtom K_Image = ASAtomFromString("Image");
const ASAtom K_ImageMask = ASAtomFromString("ImageMask");
const ASAtom K_Width = ASAtomFromString("Width");
const ASAtom K_Height = ASAtomFromString("Height");
const ASAtom K_BitsPerComponent = ASAtomFromString("BitsPerComponent");
const ASAtom K_ColorSpace = ASAtomFromString("ColorSpace");
const ASAtom K_Decode = ASAtomFromString("Decode");
const ASAtom K_FlateDecode = ASAtomFromString("FlateDecode");
const ASAtom K_Predictor = ASAtomFromString("Predictor");
const ASAtom K_Colors = ASAtomFromString("Colors");
const ASAtom K_Columns = ASAtomFromString("Columns");
const ASAtom K_N = ASAtomFromString("N");

// The filters of a stream as canonical names; `ok` false when the Filter
// entry is malformed or names a filter the decoders do not know.
struct FilterList {
    std::vector<std::string> names;
    bool ok = true;
    bool imageCodec = false;
};

FilterList FiltersOf(CosObj stream) {
    FilterList fl;
    CosObj f = CosDictGet(stream, K_Filter);
    std::vector<CosObj> items;
    if (CosObjGetType(f) == kCosName) {
        items.push_back(f);
    } else if (CosObjGetType(f) == kCosArray) {
        for (ASInt32 i = 0; i < CosArrayLength(f); ++i) items.push_back(CosArrayGet(f, i));
    } else if (!CosObjIsNull(f)) {
        fl.ok = false;
    }
    for (CosObj item : items) {
        if (CosObjGetType(item) != kCosName) {
            fl.ok = false;
            continue;
        }
        std::string c = filters::CanonicalFilterName(ASAtomGetString(CosNameValue(item)));
        if (c.empty()) fl.ok = false;
        if (filters::IsImageCodec(c)) fl.imageCodec = true;
        fl.names.push_back(c);
    }
    return fl;
}

// What the filter entries cost in the written dictionary, roughly: the
// comparison must not trade a few bytes of data for more bytes of keys.
size_t FilterEntryCost(CosObj stream) {
    size_t cost = 0;
    CosObj f = CosDictGet(stream, K_Filter);
    if (!CosObjIsNull(f)) {
        cost += 8;  // "/Filter" and a separator
        for (const std::string& n : FiltersOf(stream).names) cost += n.size() + 1;
        if (CosObjGetType(f) == kCosArray) cost += 2;
    }
    CosObj dp = CosDictGet(stream, K_DecodeParms);
    if (!CosObjIsNull(dp)) cost += 13 + CosObjToDebugString(dp, 4).size();
    return cost;
}

constexpr size_t kFlateEntryCost = 8 + 12;  // "/Filter/FlateDecode"

std::string ErrorText(const CVellumError& e) { return ASGetErrorString(e.GetErrorCode()); }

// The decoded bytes, strictly: a damaged stream raises rather than giving
// partial data, since partial data must never replace the original.
bool DecodeStrict(CosObj stream, std::vector<uint8_t>& out, std::string& message) {
    CosDecodeOptions opts;
    opts.strict = true;
    try {
        bool complete = false;
        out = CosStreamDecodedData(stream, opts, &complete);
        if (!complete) {
            message = "the data does not decode completely";
            return false;
        }
        return true;
    } catch (const CVellumError& e) {
        message = ErrorText(e);
        return false;
    }
}

void Replace(CosObj stream, const filters::Bytes& data, CosObj decodeParms) {
    CosDictPutName(stream, K_Filter, false, K_FlateDecode);
    if (CosObjIsNull(decodeParms))
        CosDictRemove(stream, K_DecodeParms);
    else
        CosDictPut(stream, K_DecodeParms, decodeParms);
    CosStreamSetEncodedData(stream, data);
}

int ComponentsOf(CosObj cs, int depth) {
    if (depth > 8) return 0;
    if (CosObjGetType(cs) == kCosName) {
        const std::string n = ASAtomGetString(CosNameValue(cs));
        if (n == "DeviceGray" || n == "G" || n == "CalGray" || n == "Indexed" || n == "I" || n == "Separation")
            return 1;
        if (n == "DeviceRGB" || n == "RGB" || n == "CalRGB" || n == "Lab") return 3;
        if (n == "DeviceCMYK" || n == "CMYK") return 4;
        return 0;
    }
    if (CosObjGetType(cs) != kCosArray || CosArrayLength(cs) == 0) return 0;
    CosObj fam = CosArrayGet(cs, 0);
    if (CosObjGetType(fam) != kCosName) return 0;
    const std::string n = ASAtomGetString(CosNameValue(fam));
    if (n == "ICCBased") {
        CosObj s = CosArrayGet(cs, 1);
        if (CosObjGetType(s) != kCosStream) return 0;
        ASInt32 comps = CosDictGetInt(s, K_N, 0);
        return comps >= 1 && comps <= 4 ? comps : 0;
    }
    if (n == "DeviceN") {
        CosObj names = CosArrayGet(cs, 1);
        return CosObjGetType(names) == kCosArray ? int(CosArrayLength(names)) : 0;
    }
    if (CosArrayLength(cs) == 1) return ComponentsOf(fam, depth + 1);
    return ComponentsOf(fam, depth + 1);
}

}  // namespace

int ImageComponents(CosObj image) {
    if (CosDictGetBool(image, K_ImageMask, false)) return 1;
    int n = ComponentsOf(CosDictGet(image, K_ColorSpace), 0);
    if (n == 0) {
        // Without a known colour space the Decode array still tells.
        CosObj d = CosDictGet(image, K_Decode);
        if (CosObjGetType(d) == kCosArray && CosArrayLength(d) % 2 == 0) n = int(CosArrayLength(d) / 2);
    }
    return n;
}

RecompressResult RecompressPlainStream(CosObj stream, int level) {
    RecompressResult r;
    r.before = r.after = CosStreamEncodedLength(stream) + FilterEntryCost(stream);
    FilterList fl = FiltersOf(stream);
    if (!fl.ok) {
        r.outcome = RecompressOutcome::Undecodable;
        r.message = "a filter the decoders do not know";
        return r;
    }
    if (fl.imageCodec) {
        r.outcome = RecompressOutcome::NotPlain;
        return r;
    }
    std::vector<uint8_t> plain;
    if (!DecodeStrict(stream, plain, r.message)) {
        r.outcome = RecompressOutcome::Undecodable;
        return r;
    }
    filters::Bytes enc = filters::FlateEncode(plain, level);
    const size_t flateCost = enc.size() + kFlateEntryCost;
    if (flateCost < r.before) {
        Replace(stream, enc, CosNewNull());
        r.after = flateCost;
        r.outcome = RecompressOutcome::Smaller;
    }
    return r;
}

RecompressResult RecompressImageLossless(CosObj image, int level) {
    RecompressResult r;
    r.before = r.after = CosStreamEncodedLength(image) + FilterEntryCost(image);
    FilterList fl = FiltersOf(image);
    if (!fl.ok) {
        r.outcome = RecompressOutcome::Undecodable;
        r.message = "a filter the decoders do not know";
        return r;
    }
    if (fl.names.size() == 1 && fl.names[0] == "DCTDecode") {
        // Progressive JPEG is PDF 1.3 and later.
        const CosDocFileInfo& info = CosDocGetFileInfo(CosObjGetDoc(image));
        const bool progressive = info.majorVersion > 1 || (info.majorVersion == 1 && info.minorVersion >= 3);
        filters::JpegTranscodeResult t = filters::JpegTranscode(CosStreamEncodedData(image), progressive);
        if (!t.ok) {
            r.outcome = RecompressOutcome::Undecodable;
            r.message = t.message;
            return r;
        }
        if (t.data.size() < CosStreamEncodedLength(image)) {
            r.after = r.before - CosStreamEncodedLength(image) + t.data.size();
            CosStreamSetEncodedData(image, t.data);
            r.outcome = RecompressOutcome::Smaller;
        }
        return r;
    }
    if (fl.imageCodec) {
        r.outcome = RecompressOutcome::NotPlain;
        return r;
    }
    const ASInt32 width = CosDictGetInt(image, K_Width, 0);
    const ASInt32 height = CosDictGetInt(image, K_Height, 0);
    const bool mask = CosDictGetBool(image, K_ImageMask, false);
    const ASInt32 bpc = mask ? 1 : CosDictGetInt(image, K_BitsPerComponent, 0);
    const int comps = ImageComponents(image);
    if (width <= 0 || height <= 0 || comps <= 0 || comps > 32 ||
        (bpc != 1 && bpc != 2 && bpc != 4 && bpc != 8 && bpc != 16)) {
        r.outcome = RecompressOutcome::Undecodable;
        r.message = "the image's size, depth or colour space cannot be told";
        return r;
    }
    const uint64_t rowBytes = (uint64_t(width) * uint64_t(comps) * uint64_t(bpc) + 7) / 8;
    const uint64_t expected = rowBytes * uint64_t(height);
    std::vector<uint8_t> samples;
    if (!DecodeStrict(image, samples, r.message)) {
        r.outcome = RecompressOutcome::Undecodable;
        return r;
    }
    if (samples.size() != expected) {
        r.outcome = RecompressOutcome::Undecodable;
        r.message = "the image data is " + std::to_string(samples.size()) + " bytes where " +
                    std::to_string(expected) + " are expected";
        return r;
    }
    filters::Bytes plain = filters::FlateEncode(samples, level);
    filters::Bytes predicted = filters::FlateEncodePNG(samples, level, comps, bpc, width);
    CosDoc doc = CosObjGetDoc(image);
    // "/DecodeParms<</Predictor 15/Colors c/BitsPerComponent b/Columns w>>"
    const size_t parmsCost = 13 + 17 + 10 + 20 + 10 + std::to_string(width).size();
    const size_t plainCost = plain.size() + kFlateEntryCost;
    const size_t predictedCost = predicted.size() + kFlateEntryCost + parmsCost;
    if (predictedCost < plainCost && predictedCost < r.before) {
        CosObj dp = CosNewDict(doc, false, 4);
        CosDictPutInteger(dp, K_Predictor, 15);
        CosDictPutInteger(dp, K_Colors, comps);
        CosDictPutInteger(dp, K_BitsPerComponent, bpc);
        CosDictPutInteger(dp, K_Columns, width);
        Replace(image, predicted, dp);
        r.after = predictedCost;
        r.outcome = RecompressOutcome::Smaller;
    } else if (plainCost < r.before) {
        Replace(image, plain, CosNewNull());
        r.after = plainCost;
        r.outcome = RecompressOutcome::Smaller;
    }
    return r;
}

}  // namespace pipeline
