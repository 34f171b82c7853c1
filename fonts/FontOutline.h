// Converting a document's embedded simple fonts to Type 3 fonts whose
// glyph procedures draw the glyph outlines: the font programs go, and
// only the glyphs the text uses are kept, as paths.
//
// A font dictionary is rewritten in place, so every resource dictionary
// that names it follows.  Its character codes stay as they are (a Type 3
// font is a simple font, one byte a code), so no content changes; the
// widths and the ToUnicode map stay, and a ToUnicode map is made from the
// glyph names when there was none, so that text stays extractable.
//
// A font is left as it is when any of its text is drawn in a rendering
// mode other than plain filling (stroked, clipping or invisible text does
// not survive as a filled path), when it is composite, not embedded, used
// by an interactive form, when a code reaches no glyph of a TrueType
// program, or when the program cannot be read.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "base/Log.h"
#include "fonts/GlyphUse.h"
#include "pdfcore/PDDoc.h"

namespace fonts {

struct KeptFont {
    CosObj font;
    std::string name;  // BaseFont without its subset tag, or "object N"
    std::string reason;
    bool damaged = false;  // the program could not be read (also logged as a warning)
};

struct OutlineOutcome {
    int fonts = 0;                     // fonts the text uses, Type 3 fonts not counted
    int outlined = 0;                  // fonts that became Type 3 fonts
    int glyphs = 0;                    // glyph procedures written
    std::vector<KeptFont> kept;        // used fonts left as they were, and why
    std::vector<CosObj> changedFonts;  // the font dictionaries rewritten
};

// Rewrites every used embedded simple font (Type 1, Type 1 in CFF,
// TrueType, OpenType) whose text is only ever filled into a Type 3 font.
// Glyph procedures are deflated at `flateLevel` (below 0: stored).
OutlineOutcome OutlineDocumentFonts(PDDoc doc, const DocumentGlyphUse& use, int flateLevel,
                                    Log& log);

// The font dictionaries that show text in any rendering mode but 0
// (fill) somewhere in the document's pages, annotation appearances,
// forms, patterns and glyph procedures.  `order`, when given, receives
// every font dictionary selected by the content, in the order first met.
std::set<CosObj> FontsNotOnlyFilled(PDDoc doc, std::vector<CosObj>* order = nullptr);

}  // namespace fonts
