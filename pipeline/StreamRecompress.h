// Recompression of single streams, never making anything bigger.
//
// A stream is replaced only when its new form, counted with the dictionary
// entries that describe it, is smaller than the old one.  A stream whose
// filters cannot be undone (an unknown or encryption filter, an image codec
// for plain recompression) or whose data is damaged is left exactly as it
// is; the caller decides what to tell the user.
#pragma once

#include <string>

#include "pdfcore/CosObj.h"

namespace pipeline {

enum class RecompressOutcome {
    Smaller,      // replaced by a smaller encoding
    Kept,         // decoded fine, but no new encoding was smaller
    NotPlain,     // an image codec (or an image) is involved: not plain data
    Undecodable,  // unknown filter, damaged data, or a length that lies
};

struct RecompressResult {
    RecompressOutcome outcome = RecompressOutcome::Kept;
    size_t before = 0;  // stored bytes (plus filter entries) before
    size_t after = 0;   // and after
    std::string message;  // why, for Undecodable
};

// Plain data (content, fonts, ToUnicode, glyph procedures, forms...): the
// decoded bytes deflated at `level`.  Streams whose filters include an image
// codec are NotPlain and untouched.
RecompressResult RecompressPlainStream(CosObj stream, int level);

// An image XObject (or soft mask) re-encoded without changing one sample:
// Flate or unfiltered images are deflated again with the best PNG predictor
// per row (or none, when that is smaller); a JPEG image has its coefficients
// rewritten with optimised Huffman tables (progressive when smaller).  Other
// codecs (JPX, JBIG2, CCITT) are NotPlain.  Decoded sample data whose size
// differs from what Width, Height, BitsPerComponent and the colour space
// give is Undecodable: the image is left as it is.
RecompressResult RecompressImageLossless(CosObj image, int level);

// The number of colour components of an image's colour space (1 for an
// image mask), or 0 when it cannot be told.
int ImageComponents(CosObj image);

}  // namespace pipeline
