// How the image steps code the samples they make and write the result into
// the image's dictionary, so that the filter and its parameters always match
// the data.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "images/ImageReduce.h"

namespace images {

struct EncodedImage {
    std::vector<uint8_t> data;
    ASAtom filter = ASAtomNull;
    int predictorColors = 0;  // > 0: Flate with the PNG predictor
    int predictorBits = 0;
    int predictorColumns = 0;
    bool colorTransformOff = false;  // DCT data that is not YCbCr
    bool fax = false;                // CCITT data: K, Columns and Rows are written
    int faxK = 0;
};

// How Flate is tried: with the PNG predictor when the settings ask for it,
// without it, or both ways keeping the smaller.
enum class Prediction { AsAsked, Never, Both };

// Rows of `columns` samples of `colors` x `bits` each, packed as PDF packs
// them, coded losslessly: LZW or RunLength when `how` names them, Flate for
// anything else.
EncodedImage EncodeLosslessRows(std::span<const uint8_t> rows, int colors, int bits, int columns,
                                ImageCompression how, int flateLevel, bool flatePrediction, Prediction prediction);

// Replaces the image's data, size, depth, filter and decode parameters.
// Parameters the new data does not need are removed (a JBIG2 image's
// shared globals with them: they stay with the other images using them).
void PutEncodedImage(CosObj image, const EncodedImage& e, int width, int height, int bits);

}  // namespace images
