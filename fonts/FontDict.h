// Reading font dictionaries: what kind of font a dictionary draws with,
// where its program is, and how its character codes reach glyphs.
//
// Lookups never raise on odd dictionaries: a value of the wrong kind reads
// as absent, and a font whose codes cannot be followed says so, so that
// the caller keeps it whole.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "fonts/Type1Font.h"
#include "pdfcore/CosObj.h"

namespace fonts {

enum class FontKind {
    Type1,        // FontFile
    Type1C,       // FontFile3 /Type1C
    CidType0C,    // FontFile3 /CIDFontType0C
    TrueType,     // FontFile2 (simple or CIDFontType2)
    OpenType,     // FontFile3 /OpenType
    Type3,
    NotEmbedded,
    Unknown,      // a program of a kind the font work does not touch
};

struct FontInfo {
    CosObj font;        // the font dictionary (the Type0 for a composite font)
    CosObj cidFont;     // the descendant of a Type0, else null
    CosObj descriptor;  // null when there is none
    CosObj program;     // FontFile, FontFile2 or FontFile3 stream, else null
    ASAtom programKey = ASAtomNull;
    FontKind kind = FontKind::Unknown;
    std::string baseName;  // BaseFont (of the descendant for Type0), without a subset tag
    std::string tag;       // the six-letter subset tag, "" when none
    bool composite = false;
    bool symbolic = false;  // descriptor Flags bit 3
};

FontInfo ReadFontInfo(CosObj font);

// Writing font programs back: Flate-encoded data in place of a program
// stream's data, and the Length1/2/3 a Type 1 program's stream needs.
void StoreFlateProgram(CosObj stream, const std::vector<uint8_t>& encoded);
void PutType1Lengths(CosObj streamDict, const Type1Program& program);

// True for "ABCDEF+..." (six upper-case letters and a plus).
bool HasSubsetTag(const std::string& name);

// A simple font's code -> glyph name map: the base encoding (the
// /Encoding name, or the dictionary's BaseEncoding) with the Differences
// applied.  `names[c]` is "" where neither gives a name: there the font's
// built-in encoding applies.
struct SimpleEncoding {
    std::array<std::string, 256> names;
    bool hasBase = false;         // a named base encoding was given
    bool hasDifferences = false;
};
SimpleEncoding ReadSimpleEncoding(CosObj font);
// The names of a predefined encoding (StandardEncoding, WinAnsiEncoding,
// MacRomanEncoding, MacExpertEncoding), or null.
const char* const* PredefinedEncoding(ASAtom name);

// A composite font's code -> CID map.
class CidMap {
public:
    // Reads the Type0's Encoding: Identity-H/V, or an embedded CMap stream
    // (cidrange, cidchar, usecmap of Identity).  False when the codes
    // cannot be followed (another predefined CMap, an unreadable stream).
    bool Read(CosObj encoding);
    // The CID of a code, nullopt for an unmapped code (it draws CID 0).
    std::optional<uint32_t> Cid(uint32_t code) const;

private:
    bool m_identity = false;
    struct Range {
        uint32_t low, high, cid;
    };
    std::vector<Range> m_ranges;  // sorted by low
};

// A CIDFontType2's CIDToGIDMap: Identity (absent), or a stream of
// big-endian 16-bit glyph ids.  False when the stream cannot be read.
class CidToGid {
public:
    bool Read(CosObj cidFont);
    uint32_t Gid(uint32_t cid) const;
    bool Identity() const { return m_identity; }

private:
    bool m_identity = true;
    std::vector<uint8_t> m_map;
};

}  // namespace fonts
