// Locating and reading the cross-reference data of a file: the header, the
// end marker, "startxref", classic tables, cross-reference streams, hybrid
// files and the Prev chain, plus the linearization test.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "pdfcore/CosInternal.h"

// Object numbers at or above this are never accepted from a file.
constexpr ASInt32 kCosMaxObjNum = 8 * 1024 * 1024;

// Position of `header` among start positions 0..1023; raises "file does not
// begin with '%PDF-'" when none matches.
size_t CosFindHeader(std::span<const uint8_t> file, const std::string& header);
// The version digits after the header text (the middle byte is skipped).
void CosReadVersion(std::span<const uint8_t> file, size_t versionPos, ASInt16& major, ASInt16& minor);
// Absolute position of the "%%EOF" that ends the file; raises "missing '%%EOF'".
size_t CosFindEOFMarker(std::span<const uint8_t> file);
// The value after the last "startxref" before the end marker at `eofPos`;
// raises "could not find startxref address" or "value of startxref address
// not an integer".
int64_t CosReadStartxref(std::span<const uint8_t> file, size_t eofPos);

struct CosXrefChain {
    CosObj trailer = nullptr;             // the newest trailer (a direct dictionary)
    std::vector<int64_t> sectionOffsets;  // relative offsets, newest first
    bool prevLoop = false;                // a Prev led back to a section already read
};

// Reads the chain of sections starting at `startxref` (relative to
// `headerOffset`) into `table`, newest entries winning.  Raises the parser
// errors on broken data; Prev loops end the chain.
CosXrefChain CosReadXrefChain(CosDoc doc, std::span<const uint8_t> file, size_t headerOffset,
                              int64_t startxref, CosObjTable& table);

// The linearization test; never raises.
bool CosIsLinearized(std::span<const uint8_t> file, const std::vector<int64_t>& sectionOffsets);

// Decodes the data of a cross-reference or object stream whose filters are
// none or Flate (with PNG or TIFF predictors).  Returns false for other
// filters.  Output is capped; damaged Flate data gives what decoded.
bool CosDecodeStructureStream(CosObj dict, std::span<const uint8_t> raw, std::vector<uint8_t>& out);
