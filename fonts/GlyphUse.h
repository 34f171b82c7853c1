// Which fonts a document draws with, and which character codes each shows.
//
// Every page's content is read with its annotations' appearances; forms
// (to any depth), tiling patterns, soft masks and Type 3 glyph procedures
// are followed.  Fonts that a viewer or a form filler may draw with codes
// nobody can see in the file (the interactive form's default resources,
// which fill-in text is set in) are marked to be kept whole.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>

#include "base/Log.h"
#include "pdfcore/PDDoc.h"

namespace fonts {

struct DocumentGlyphUse {
    // Per font dictionary (a Type0 for composite fonts), the codes shown.
    std::map<CosObj, std::set<uint32_t>> codes;
    // Font dictionaries that must keep every glyph.
    std::set<CosObj> keepWhole;
    // Some content could not be followed (a stream that cannot be read,
    // nesting too deep, a text operator dropped): no font of the document
    // may lose glyphs, as the missing text may use any of them.
    bool incomplete = false;
    std::string incompleteReason;
};

DocumentGlyphUse CollectGlyphUse(PDDoc doc);

}  // namespace fonts
