// TrueType, OpenType and bare CFF font programs (FontFile2, FontFile3
// /OpenType, FontFile3 /Type1C and /CIDFontType0C): reading the glyph maps
// a PDF addresses glyphs through, and subsetting through HarfBuzz's
// subsetter.
//
// Bad programs never raise: Open returns false with a reason and the caller
// leaves the font as it is.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

namespace fonts {

enum class SfntKind {
    TrueType,   // sfnt with glyf outlines (FontFile2, or FontFile3 /OpenType)
    OpenTypeCff,// sfnt with a CFF table (FontFile3 /OpenType)
    BareCff,    // a CFF font alone (FontFile3 /Type1C or /CIDFontType0C)
};

class SfntFont {
public:
    SfntFont();
    ~SfntFont();
    SfntFont(const SfntFont&) = delete;
    SfntFont& operator=(const SfntFont&) = delete;

    // Reads a decoded font program.  `kind` is what the PDF says it is,
    // but the bytes decide: Kind() tells what was found (a FontFile3
    // /OpenType is told apart by its table directory).  One thread at a
    // time per object.
    bool Open(std::span<const uint8_t> program, SfntKind kind, std::string& error);

    SfntKind Kind() const;
    unsigned GlyphCount() const;
    bool IsCidKeyed() const;  // a CID-keyed CFF (ROS operator)

    // Glyph lookups a PDF's encodings need; nullopt when the font has no
    // such glyph or no such table.
    // A cmap subtable (platform, encoding) lookup of one code.
    std::optional<unsigned> GlyphForCmap(unsigned platform, unsigned encoding, uint32_t code) const;
    bool HasCmap(unsigned platform, unsigned encoding) const;
    // By glyph name: the CFF charset, or the TrueType `post` table.
    std::optional<unsigned> GlyphForName(const std::string& name) const;
    // The name of a glyph (CFF charset or `post`), "" when unknown.
    std::string GlyphName(unsigned gid) const;
    // A CID-keyed CFF's charset: CID -> glyph id.
    std::optional<unsigned> GlyphForCid(unsigned cid) const;
    // A CFF font's built-in encoding (bare or in an OpenType font): code
    // -> glyph id (simple CFF only).
    std::optional<unsigned> GlyphForBuiltinCode(unsigned code) const;
    // Horizontal advance of a glyph in font units, and units per em
    // (1000 for a bare CFF unless its FontMatrix says otherwise).
    std::optional<double> Advance(unsigned gid) const;
    double UnitsPerEm() const;

    // The font with only `gids` (glyph 0 is always kept, and every glyph a
    // kept composite or seac-like glyph needs; ids past the glyph count are
    // ignored).  `retainGids` keeps every glyph id where it is (unused
    // glyphs become empty); needed where the PDF addresses glyphs by id
    // (CIDToGIDMap, symbolic TrueType).  The result has the input's kind: a
    // bare CFF in gives a bare CFF out, with its charset (glyph names, or
    // CIDs for a CID-keyed font) and built-in encoding kept for the glyphs
    // kept; an sfnt with `retainGids` keeps its `cmap` byte for byte and
    // its glyph count (the last glyph is kept so no cmap entry points past
    // the end).  Without `retainGids` an sfnt's Unicode cmap subtables are
    // rewritten for the new ids and the others dropped.  Every subset is
    // read back and checked; empty on failure, with `error` set.
    std::vector<uint8_t> Subset(const std::set<unsigned>& gids, bool retainGids, std::string& error) const;

private:
    struct Impl;
    std::unique_ptr<Impl> m;
};

}  // namespace fonts
