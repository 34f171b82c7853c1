#include "images/ImageEncode.h"

#include <algorithm>

#include "filters/Filters.h"

namespace images {
namespace {

const ASAtom K_Width = ASAtomFromString("Width");
const ASAtom K_Height = ASAtomFromString("Height");
const ASAtom K_BitsPerComponent = ASAtomFromString("BitsPerComponent");
const ASAtom K_Filter = ASAtomFromString("Filter");
const ASAtom K_DecodeParms = ASAtomFromString("DecodeParms");
const ASAtom K_DL = ASAtomFromString("DL");
const ASAtom K_Predictor = ASAtomFromString("Predictor");
const ASAtom K_Colors = ASAtomFromString("Colors");
const ASAtom K_Columns = ASAtomFromString("Columns");
const ASAtom K_Rows = ASAtomFromString("Rows");
const ASAtom K_K = ASAtomFromString("K");
const ASAtom K_ColorTransform = ASAtomFromString("ColorTransform");
const ASAtom K_FlateDecode = ASAtomFromString("FlateDecode");
const ASAtom K_LZWDecode = ASAtomFromString("LZWDecode");
const ASAtom K_RunLengthDecode = ASAtomFromString("RunLengthDecode");

}  // namespace

EncodedImage EncodeLosslessRows(std::span<const uint8_t> rows, int colors, int bits, int columns,
                                ImageCompression how, int flateLevel, bool flatePrediction, Prediction prediction) {
    EncodedImage e;
    switch (how) {
    case ImageCompression::LZW:
        e.data = filters::LZWEncode(rows);
        e.filter = K_LZWDecode;
        break;
    case ImageCompression::Packbits:
        e.data = filters::RunLengthEncode(rows);
        e.filter = K_RunLengthDecode;
        break;
    default: {
        e.filter = K_FlateDecode;
        const int level = std::clamp(flateLevel, 0, 9);
        const bool predict = flatePrediction && prediction != Prediction::Never;
        if (!predict || prediction == Prediction::Both) e.data = filters::FlateEncode(rows, level);
        if (predict) {
            // The predictor pays on photographs, gradients and anything
            // resampled, not always on flat artwork: an image that keeps its
            // samples is tried both ways and keeps the smaller.
            filters::Bytes predicted = filters::FlateEncodePNG(rows, level, colors, bits, columns);
            if (e.data.empty() || predicted.size() < e.data.size()) {
                e.data = std::move(predicted);
                e.predictorColors = colors;
                e.predictorBits = bits;
                e.predictorColumns = columns;
            }
        }
        break;
    }
    }
    return e;
}

void PutEncodedImage(CosObj image, const EncodedImage& e, int width, int height, int bits) {
    CosDoc doc = CosObjGetDoc(image);
    CosDictPutInteger(image, K_Width, width);
    CosDictPutInteger(image, K_Height, height);
    CosDictPutInteger(image, K_BitsPerComponent, bits);
    CosDictPut(image, K_Filter, CosNewName(doc, false, e.filter));
    CosDictRemove(image, K_DL);
    CosObj parms = CosNewNull();
    if (e.fax) {
        parms = CosNewDict(doc, false);
        CosDictPutInteger(parms, K_K, e.faxK);
        CosDictPutInteger(parms, K_Columns, width);
        CosDictPutInteger(parms, K_Rows, height);
    } else if (e.predictorColors > 0) {
        parms = CosNewDict(doc, false);
        CosDictPutInteger(parms, K_Predictor, 15);
        CosDictPutInteger(parms, K_Colors, e.predictorColors);
        CosDictPutInteger(parms, K_BitsPerComponent, e.predictorBits);
        CosDictPutInteger(parms, K_Columns, e.predictorColumns);
    } else if (e.colorTransformOff) {
        parms = CosNewDict(doc, false);
        CosDictPutInteger(parms, K_ColorTransform, 0);
    }
    if (CosObjGetType(parms) == kCosDict)
        CosDictPut(image, K_DecodeParms, parms);
    else
        CosDictRemove(image, K_DecodeParms);
    CosStreamSetEncodedData(image, e.data);
}

}  // namespace images
