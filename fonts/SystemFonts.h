// Finding an installed font file for the name a PDF gives a font it does
// not embed.
//
// Two routes, in this order:
//  - fixed substitutes, chosen because their glyphs have the same advance
//    widths as the fonts the names stand for: the standard 35 PostScript
//    names (Helvetica, Times-Roman, Courier, Symbol, ZapfDingbats, ...) go
//    to the URW base 35 fonts, and the common TrueType names (Arial, Times
//    New Roman, Courier New, in any of the style spellings writers use) to
//    the Liberation fonts;
//  - the font configuration: a face whose PostScript name is the PDF name,
//    else the best face of the family the name spells, accepted only when
//    its family and style really are the ones asked for (never a fallback
//    the configuration offers for a family it does not have).
//
// The configuration is loaded on the first lookup, once per process, and
// every answer is remembered; lookups may come from several threads.
#pragma once

#include <optional>
#include <string>

namespace fonts {

enum class FontFileFormat {
    Type1,        // a PFA or PFB program
    OpenTypeCff,  // an sfnt holding a CFF table
    TrueType,     // an sfnt with glyf outlines
};

// A PDF font name taken apart: "Arial,BoldItalic", "Arial-BoldItalicMT",
// "TimesNewRomanPS-BoldMT" and "ArialBold" all give a family ("Arial",
// "TimesNewRomanPS") with bold and italic set.  `styleKnown` is false when
// the style part holds more than bold, italic, oblique and the words for
// regular ("Arial-Black", "Helvetica-Light"): such a face is not the
// family's regular, bold or italic one.
struct FontNameParts {
    std::string family;
    bool bold = false;
    bool italic = false;
    bool styleKnown = true;
};
FontNameParts SplitFontName(const std::string& pdfName);

struct SystemFont {
    std::string path;
    FontFileFormat format = FontFileFormat::TrueType;
    std::string family;          // the family name the file gives
    std::string postScriptName;  // the file's PostScript name
    // A fixed substitute: its advance widths are those of the named font,
    // so it stands in even where the PDF gives no widths to check against.
    bool metricCompatible = false;
    // Symbol or ZapfDingbats: codes reach glyphs through the font's own
    // encoding, and the descriptor says symbolic.
    bool symbolic = false;
    bool serif = false;
};

// The installed font for a PDF font name (a subset tag is ignored), or
// nullopt with `why` (when given) saying what was missing.
std::optional<SystemFont> FindSystemFont(const std::string& pdfName, std::string* why = nullptr);

}  // namespace fonts
