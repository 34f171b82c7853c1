// A simple font's program read through FreeType: which glyph each
// character code draws, and each glyph's outline as the path of a Type 3
// glyph procedure.
//
// Glyphs are loaded unscaled and unhinted, so the paths are the outlines
// as the program stores them, in its own units.  The program is untrusted:
// every answer that cannot be given (a program FreeType rejects, a code
// that leads to no glyph, an outline past the size budget) is "no" with a
// reason, never a guess.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fonts/FontDict.h"

namespace fonts {

// One glyph's outline as content operators.
struct GlyphPath {
    // "x y m", "x y l", "x1 y1 x2 y2 x3 y3 c" (quadratic segments raised
    // to cubics) and the fill, one operator a line; "" for a glyph that
    // marks nothing.
    std::string ops;
    // The outline's control box rounded outward to whole units; all zero
    // for a glyph that marks nothing.
    int bbox[4] = {0, 0, 0, 0};
    double advance = 0;  // the program's advance width, in the written units
};

class OutlineFont {
public:
    // Outlines above this many bytes of path text are refused.
    static constexpr size_t kMaxPathBytes = size_t(1) << 20;

    OutlineFont();
    ~OutlineFont();
    OutlineFont(const OutlineFont&) = delete;
    OutlineFont& operator=(const OutlineFont&) = delete;

    // Opens a program (Type 1, bare CFF, TrueType or OpenType).  False,
    // with the reason, when FreeType cannot read it or its glyphs are not
    // scalable outlines that stand on their own without hinting.
    bool Open(std::vector<uint8_t> program, std::string& reason);

    int UnitsPerEm() const;
    // Whether glyphs are found by name (Type 1 and CFF) rather than
    // through a character map (TrueType).
    bool NameKeyed() const;

    // The glyph a viewer draws for `code` of a simple font with encoding
    // `enc`.  A name a Type 1 or CFF program lacks draws its .notdef
    // (glyph 0), as readers do; for a TrueType program, whose .notdef is
    // a visible box that readers treat differently, nullopt when no
    // character map leads to a glyph.
    std::optional<unsigned> GlyphForCode(uint8_t code, bool symbolic, const SimpleEncoding& enc);

    // The program's name for a glyph, "" when it has none.
    std::string GlyphName(unsigned gid) const;
    // The code point a Unicode character map of the program gives the
    // glyph (private-use values excluded), nullopt when none does.
    std::optional<uint32_t> UnicodeOf(unsigned gid);

    // The glyph's outline with every coordinate multiplied by `scale`.
    bool Outline(unsigned gid, double scale, GlyphPath& out, std::string& reason);

private:
    struct Impl;
    std::unique_ptr<Impl> m;
};

// A Type 3 glyph procedure: "wx 0 llx lly urx ury d1" and the path.
std::string GlyphProcedure(double width, const GlyphPath& path);

}  // namespace fonts
