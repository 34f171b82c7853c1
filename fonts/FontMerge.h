// Merging subsets of one font.  A document made by joining others, or by a
// producer that subsets each figure or page on its own, carries many
// subsets of the same font program.  One program holding the union of
// their glyphs serves every font dictionary that used any of them, and is
// far smaller than their sum; the subset step that follows then trims it
// to the glyphs the text uses.
//
// Programs are merged only when nothing a viewer draws can change:
//   - the same kind of program (Type 1, or bare CFF of a simple font) and
//     the same font name once the subset tags are removed;
//   - the same font-wide values (FontMatrix, private hinting values, the
//     Top DICT entries of a CFF), and subroutines that agree wherever both
//     programs hold one;
//   - the same charstring, byte for byte, for every glyph both hold;
//   - every code a font dictionary draws through the program's built-in
//     encoding (its PDF encoding names no glyph for it) selects the same
//     glyph in the merged program.
// A merged program replaces the others only when it is smaller, once
// compressed, than the programs it stands for.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/Log.h"
#include "fonts/GlyphUse.h"
#include "fonts/Type1Font.h"
#include "pdfcore/PDDoc.h"

namespace fonts {

struct MergeOutcome {
    int groups = 0;          // merged programs written
    int programsMerged = 0;  // programs they replaced
    size_t bytesBefore = 0, bytesAfter = 0;  // stored bytes of those programs, and of the merged ones
    std::vector<CosObj> changedFonts;
};

MergeOutcome MergeFontSubsets(PDDoc doc, const DocumentGlyphUse& use, int flateLevel, Log& log);

// Adds the glyphs and Subrs of `other` to `into` when the two are subsets
// of one Type 1 font (the rules above, built-in encodings aside).  False,
// with `into` unchanged and `why` set, when they are not.
bool MergeType1Into(Type1Font& into, const Type1Font& other, std::string& why);

// A Type 2 charstring's advance width and the bytes after it.  The width
// is an extra first operand of the first stack-clearing operator, stored
// as its difference from the font's nominalWidthX, or absent for the
// font's defaultWidthX: subsets of one font often differ in these two
// values while drawing the same glyph.  Nullopt when the charstring does
// not start in a way this can follow (a subroutine call first, or
// truncated).
struct Type2WidthSplit {
    double width = 0;
    std::span<const uint8_t> rest;
};
std::optional<Type2WidthSplit> SplitType2Width(std::span<const uint8_t> charstring, double defaultWidth,
                                               double nominalWidth);

// Bare CFF programs of simple fonts (FontFile3 /Type1C), merged one by one.
// The first program added sets the name and the values the others must
// match; glyphs come in the order they are first seen.
class CffMerger {
public:
    CffMerger();
    ~CffMerger();
    CffMerger(const CffMerger&) = delete;
    CffMerger& operator=(const CffMerger&) = delete;

    // Adds a program (which must outlive the merger).  False, with the
    // merger unchanged and `why` set, when it is not a subset of the same
    // font as those added before (the rules above, built-in encodings
    // aside) or cannot be read.
    bool Add(std::span<const uint8_t> program, std::string& why);
    // The merged program: the union of the glyphs, the union of the
    // FontBBoxes, and `encoding` (code -> glyph name, "" for none) as its
    // built-in encoding.  Empty, with `why` set, when it cannot be written.
    std::vector<uint8_t> Build(const std::array<std::string, 256>& encoding, std::string& why) const;

private:
    struct Impl;
    std::unique_ptr<Impl> m;
};

}  // namespace fonts
