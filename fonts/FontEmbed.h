// Embedding the fonts a document draws with but does not carry.
//
// A simple font (Type1, MMType1, TrueType) without a program gets the
// installed font its name stands for (see SystemFonts.h), but only when
// that font draws what the document asks for: every code the text shows
// must reach a glyph through the font's encoding, and the glyph's advance
// must agree with the PDF's Widths within 1% (1 unit for narrow glyphs).
// A font without Widths passes only with a fixed, metric-compatible
// substitute.  A font that fails stays as it is, with a warning naming it
// and the reason.
//
// An embedded font gets a complete descriptor (from the font file), the
// program as FontFile (Type 1), FontFile2 (TrueType) or FontFile3 /Type1C
// (the CFF of an OpenType file), Widths computed from the program when it
// had none, and, for a TrueType program, an encoding that reaches its
// glyphs through their Unicode values in every viewer.  BaseFont stays as
// it was.  Fonts drawn from one installed file share one program stream,
// so that subsetting afterwards keeps one program with the glyphs all of
// them use.
//
// Composite (Type0) fonts are not embedded: their CIDs follow a character
// collection an installed font does not carry.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "base/Log.h"
#include "fonts/GlyphUse.h"
#include "fonts/SystemFonts.h"
#include "fonts/Type1Font.h"
#include "pdfcore/PDDoc.h"

namespace fonts {

struct EmbedOutcome {
    int candidates = 0;  // used fonts without a program
    int embedded = 0;
    // "name: reason" for every candidate left as it was.
    std::vector<std::string> leftOut;
    // Font dictionaries that now carry a program.
    std::vector<CosObj> changedFonts;
};

// The program a PDF embeds from an installed font file: a Type 1 file (PFA
// or PFB) as the three parts of a FontFile, its encrypted part binary; the
// CFF table of an OpenType file; a TrueType file as it is.  False with a
// reason for a file that is not what `format` says.
// The bytes and lengths a program stream needs (Type 1 parts; Length1
// alone for TrueType).
using EmbeddableProgram = Type1Program;
bool ProgramFromFontFile(std::span<const uint8_t> file, FontFileFormat format, EmbeddableProgram& out,
                         std::string& error);

EmbedOutcome EmbedDocumentFonts(PDDoc doc, const DocumentGlyphUse& use, int flateLevel, Log& log);

}  // namespace fonts
