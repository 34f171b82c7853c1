// Reading the parts of a CFF font program that a PDF addresses glyphs
// through: the charset (glyph names, or CIDs in a CID-keyed font), the
// built-in encoding, the Top DICT values and the INDEX structures.
//
// Outlines are not interpreted here.  Every count and offset is checked
// against the data; a program that lies gets false and a reason.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace fonts::cff {

// The standard strings (SIDs 0 to 390).
inline constexpr unsigned kStandardStringCount = 391;
std::string_view StandardString(unsigned sid);
// The SID of a standard string, or -1.
int StandardSid(std::string_view name);
extern const char* const kStandardStrings[kStandardStringCount];
// The predefined encodings: code -> SID (0 for none).
extern const uint16_t kStandardEncoding[256];
extern const uint16_t kExpertEncoding[256];
// The predefined Expert and Expert Subset charsets: gid -> SID.
extern const uint16_t kExpertCharset[166];
extern const uint16_t kExpertSubsetCharset[87];

// An INDEX: `count` objects whose bytes lie between offsets[i] and
// offsets[i + 1], relative to the start of the data given to ReadIndex.
struct Index {
    uint32_t count = 0;
    std::vector<uint32_t> offsets;  // count + 1 entries, absolute, non-decreasing
    size_t end = 0;                 // first byte after the INDEX

    std::span<const uint8_t> Item(std::span<const uint8_t> data, uint32_t i) const {
        return data.subspan(offsets[i], offsets[i + 1] - offsets[i]);
    }
};
bool ReadIndex(std::span<const uint8_t> data, size_t pos, Index& out, std::string& error);

// One DICT entry: the operator (escaped operators are 1200 + second byte),
// its operands and where the entry lies in the DICT's bytes.
struct DictEntry {
    unsigned op = 0;
    std::vector<double> operands;
    size_t begin = 0, end = 0;  // operands start .. after the operator
};
bool ReadDict(std::span<const uint8_t> dict, std::vector<DictEntry>& out, std::string& error);

inline constexpr unsigned kOpCharset = 15;
inline constexpr unsigned kOpEncoding = 16;
inline constexpr unsigned kOpCharStrings = 17;
inline constexpr unsigned kOpPrivate = 18;
inline constexpr unsigned kOpCharstringType = 1206;
inline constexpr unsigned kOpFontMatrix = 1207;
inline constexpr unsigned kOpRos = 1230;
inline constexpr unsigned kOpFdArray = 1236;
inline constexpr unsigned kOpFdSelect = 1237;

struct CffInfo {
    std::string fontName;              // the Name INDEX's first entry
    uint32_t glyphCount = 0;           // the CharStrings INDEX count
    bool cidKeyed = false;
    std::string registry, ordering;    // of the ROS operator
    double supplement = 0;
    std::array<double, 6> fontMatrix{0.001, 0, 0, 0.001, 0, 0};
    std::vector<DictEntry> topDict;
    Index strings;                     // the String INDEX (SIDs from 391)
    std::span<const uint8_t> data;     // the program itself (not owned)

    // gid -> SID (simple font) or CID (CID-keyed font).
    std::vector<uint16_t> charset;
    // The built-in encoding of a simple font: code -> gid, 0 where the
    // code selects no glyph.  `predefinedEncoding` is 0 (Standard) or 1
    // (Expert) when the font uses one of those, else -1.
    std::array<uint16_t, 256> encoding{};
    int predefinedEncoding = -1;
    bool hasSupplements = false;
};

// Reads a bare CFF program (CFF version 1; Type 2 charstrings).
bool ReadCff(std::span<const uint8_t> data, CffInfo& out, std::string& error);

// Gives a simple font the built-in encoding `codes` (code -> gid, 0 for
// none): a new encoding is appended and the Top DICT rewritten with its
// offsets moved.  Codes beyond a leading run of glyphs with one code each
// become supplements, which name their glyph by SID, so every glyph they
// reach must have a SID of its own.
bool ReplaceEncoding(std::span<const uint8_t> data, const std::array<uint16_t, 256>& codes,
                     std::vector<uint8_t>& out, std::string& error);

// The name of glyph `gid` of a simple font, "" for a CID-keyed font or an
// unknown glyph or string.
std::string GlyphName(const CffInfo& font, unsigned gid);
// The string a SID stands for in `font`, "" when it has none.
std::string SidString(const CffInfo& font, unsigned sid);

}  // namespace fonts::cff
