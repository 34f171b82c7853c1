// Lossless rewriting of JPEG data: the same quantised DCT coefficients
// written again with Huffman tables optimised for this image, as a
// progressive JPEG when that is smaller.  Decoding the result gives exactly
// the samples the original gives.
#pragma once

#include <string>

#include "filters/Filters.h"

namespace filters {

struct JpegTranscodeResult {
    bool ok = false;       // the data was read and rewritten
    bool progressive = false;  // the smaller form was the progressive one
    Bytes data;            // the rewritten JPEG (empty unless ok)
    std::string message;   // why it could not be rewritten
};

// Rewrites `in`.  The markers a decoder reads for colour are copied as they
// stand: the JFIF header (APP0), an embedded ICC profile (APP2) and the
// APP14 colour-transform marker; the library's own JFIF or APP14 markers are
// never added, so a reader's choice of colour transform cannot change.
// Other application markers (Exif, thumbnails, comments) and restart
// intervals are dropped: PDF readers ignore them.  Damaged or unsupported
// data (12-bit, lossless-mode JPEG) gives ok = false with the library's
// message; nothing is raised.
// `allowProgressive` false keeps the result sequential (baseline), for
// files whose version predates progressive JPEG in PDF (1.3).
JpegTranscodeResult JpegTranscode(ByteSpan in, bool allowProgressive = true);

}  // namespace filters
