// Turning JPEG and TIFF files into PDF documents.
//
// A JPEG becomes a one-page document whose only content is the image; the
// JPEG bytes are embedded unchanged (DCTDecode), so nothing is recompressed.
// A TIFF becomes a one-page document too, made from the file's first page
// (directory); later pages of a multi-page file are not taken.  A bilevel
// image is stored as CCITT Group 4 (the strip is copied when the file
// already holds one G4 strip, otherwise it is encoded), any other as Flate.
// Page sizes follow the image resolution (72 ppi when the file gives none).
//
// Files that are not images of these kinds, or that libjpeg/libtiff cannot
// read, are rejected with a null result; the caller decides what to say.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "pdfcore/PDDoc.h"

namespace images {

enum class ImageFileKind { None, Jpeg, Tiff };

// By extension: ".jpg", ".JPG", ".jpeg", ".JPEG" and ".tif", ".TIF",
// ".tiff", ".TIFF" (exactly these spellings).
ImageFileKind ImageFileKindFromName(const std::string& path);

// A new document for the image file, or null when it is rejected.
PDDoc ImportImageFile(const std::string& path);

// The same from bytes already in memory.
PDDoc ImportJpeg(std::span<const uint8_t> jpeg);
PDDoc ImportTiff(std::span<const uint8_t> tiff);

// Limits that keep a hostile header from asking for unbounded memory.
inline constexpr uint32_t kMaxImageSide = 65535;
inline constexpr uint64_t kMaxImageBytes = uint64_t(1) << 30;  // decoded samples

}  // namespace images
