// Subsetting the embedded fonts of a document to the glyphs its text uses.
//
// Fonts are grouped by their program stream, since several font
// dictionaries (a font with two encodings, a Type0 over a shared
// descendant) may draw from one program: the subset keeps what all of
// them need.  A program is left whole when any of its fonts must keep
// every glyph, when the codes of one of them cannot be followed to glyphs,
// or when the program cannot be read; in the last case one warning names
// the font.  A new program replaces the old one only when it is smaller
// once compressed.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "base/Log.h"
#include "fonts/GlyphUse.h"
#include "pdfcore/PDDoc.h"

namespace fonts {

struct SubsetOutcome {
    int programs = 0;      // programs looked at
    int subset = 0;        // programs replaced by a smaller subset
    int fontsChanged = 0;  // font dictionaries whose program was replaced
    int type3Trimmed = 0;  // Type 3 fonts that lost unused glyph procedures
    size_t bytesBefore = 0, bytesAfter = 0;  // stored program bytes of the replaced programs
    // Font dictionaries whose program was replaced (for the statistics).
    std::vector<CosObj> changedFonts;
};

SubsetOutcome SubsetDocumentFonts(PDDoc doc, const DocumentGlyphUse& use, int flateLevel, Log& log);

}  // namespace fonts
