// The predefined simple-font encodings and the built-in encodings of the
// standard Symbol and Dingbats fonts: 256 glyph names each, nullptr where a
// code has no glyph.  PDF readers map codes with exactly these tables, so
// they must not be "improved" with the platforms' later additions.
#pragma once

namespace fonts {

// The standard Latin-text encoding, also the built-in encoding of most Latin
// Type 1 fonts.
extern const char* const kStandardEncoding[256];
// The Windows code page 1252 encoding as PDF defines it: 0x27 quotesingle,
// 0x60 grave, 0xA0 space and 0xAD hyphen repeated, 0x80 Euro; the unused
// codes 0x7F, 0x81, 0x8D, 0x8F, 0x90 and 0x9D are undefined.
extern const char* const kWinAnsiEncoding[256];
// The Mac OS Latin-text encoding as PDF defines it: without the mathematical
// symbols and the apple of the system encoding, 0xCA a second space and 0xDB
// currency.
extern const char* const kMacRomanEncoding[256];
// The expert set encoding (small capitals, old-style figures, fractions).
extern const char* const kMacExpertEncoding[256];
// The built-in encoding of the standard Symbol font.
extern const char* const kSymbolEncoding[256];
// The built-in encoding of the standard Dingbats font.
extern const char* const kZapfDingbatsEncoding[256];

}  // namespace fonts
