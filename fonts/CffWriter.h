// Building blocks for writing bare CFF fonts: INDEX and DICT encoding and
// Type 2 charstring operands.  The predefined strings and encodings are in
// CffTables.h.
//
// Everything here is byte-level and shares no state; the font assembly
// (which tables go where) lives with the converter that uses it.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace fonts::cff {

using Bytes = std::vector<uint8_t>;

// Numbers in charstrings are carried as 16.16 fixed point in 64 bits, wide
// enough for any Type 1 integer and for sums of a bounded number of them.
using Fixed = int64_t;
constexpr Fixed kFixedOne = 65536;

// The smallest offset size (1 to 4) that can hold `maxOffset`.
unsigned OffSizeFor(uint64_t maxOffset);

void PutCard16(Bytes& out, unsigned value);
void PutOffset(Bytes& out, uint64_t value, unsigned offSize);

// An INDEX of the given items; a count of 0 gives the 2-byte empty INDEX.
// The caller keeps items below 2^32 bytes in total.
Bytes BuildIndex(const std::vector<Bytes>& items);
Bytes BuildIndex(const std::vector<std::string>& items);

// A DICT under construction.  Operators above 0xff are the two-byte
// escaped ones: 0x0c00 | b.
class DictWriter {
public:
    void Int(int64_t value);      // shortest integer form (values clamped to int32)
    void Int5(int32_t value);     // always the 5-byte form, for offsets fixed before layout
    void Real(double value);      // shortest of the integer and real forms
    void Op(unsigned op);
    const Bytes& bytes() const { return m_out; }

private:
    Bytes m_out;
};

// The bytes of a DICT real number (operator 30 and its nibbles), choosing
// the shorter of the fixed and exponent spellings.
Bytes EncodeDictReal(double value);

// Appends a Type 2 charstring operand: the shortest integer form when the
// value is integral and fits 16 bits, else the 16.16 form (prefix 255).
// False when the value cannot be written (outside -32768..32767.99998).
bool PutType2Number(Bytes& out, Fixed value);
// The byte count PutType2Number would append (0 when it cannot).
unsigned Type2NumberSize(Fixed value);

// A glyph ready to be written as a Type 2 charstring.  Coordinates are
// absolute (relative to the glyph origin), so the writer can choose the
// delta operators freely; sums of the deltas it writes give back exactly
// these points.
struct Point {
    Fixed x = 0, y = 0;
    bool operator==(const Point&) const = default;
};
// A stem hint: an edge and a width (a width of -20 or -21 marks an edge
// hint, as in both charstring formats).
struct Stem {
    Fixed pos = 0, width = 0;
    auto operator<=>(const Stem&) const = default;
};
// The stems in force over one stretch of the outline.
struct HintGroup {
    std::vector<Stem> h, v;
};
enum class PathOpKind : uint8_t {
    Move,   // pts[0]: starts a contour (and closes the one before)
    Line,   // pts[0]
    Curve,  // pts[0..2]
    Flex,   // pts[0..5], flexDepth: two curves a renderer may flatten
    Mask,   // group: the hints of groups[group] apply from here on
};
struct PathOp {
    PathOpKind kind = PathOpKind::Move;
    std::array<Point, 6> pts{};
    Fixed flexDepth = 0;
    uint32_t group = 0;
};
struct Type2Glyph {
    Fixed width = 0;
    std::vector<HintGroup> groups;  // groups[0] applies from the start
    std::vector<PathOp> ops;        // every drawing op follows a Move
    // The accented-character form of endchar: the accent's origin offset
    // and the StandardEncoding codes of the base and accent glyphs.
    bool seac = false;
    Fixed seacAdx = 0, seacAdy = 0;
    int seacBase = 0, seacAccent = 0;
};

// Writes `glyph` as a Type 2 charstring.  The width goes out only when it
// differs from `defaultWidth`, as its difference from `nominalWidth`.
// Stems are declared sorted and without duplicates; with more than one
// hint group they are selected by hintmask operators.  Lines and curves
// get the most compact operator sequence.  False, with `error` set, when a
// value cannot be written (deltas past 16 bits, more than 96 stems).
bool WriteType2Charstring(const Type2Glyph& glyph, Fixed defaultWidth, Fixed nominalWidth, Bytes& out,
                          std::string& error);

// The predefined charset 0 (the ISO Latin names) gives glyph i the SID i,
// up to SID 228.
constexpr unsigned kCharset0LastSid = 228;

}  // namespace fonts::cff
