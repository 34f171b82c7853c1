// Type 1 font programs (the PDF's FontFile): reading, subsetting and
// conversion to a bare CFF (FontFile3 /Type1C).
//
// A FontFile holds three parts: the clear-text part (Length1 bytes), the
// eexec-encrypted part (Length2 bytes, binary or hexadecimal) and the
// trailer of zeros and cleartomark (Length3 bytes, often 0).  Readers never
// trust the lengths: the encrypted part is found after the "eexec" keyword.
//
// Everything here works on bytes and knows nothing of the object model.
// Bad programs never raise: the reader returns false with a reason, and the
// caller leaves the font as it is.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace fonts {

struct Type1Font {
    // Top-level values.
    std::string fontName;                 // /FontName without the slash
    std::array<double, 6> fontMatrix{0.001, 0, 0, 0.001, 0, 0};
    std::array<double, 4> fontBBox{0, 0, 0, 0};
    int paintType = 0;
    double strokeWidth = 0;
    long uniqueID = -1;                   // -1 when absent
    // FontInfo entries as their source text: strings without the
    // parentheses (FullName, FamilyName, Weight, Notice, version, Copyright),
    // numbers and booleans as written (ItalicAngle, isFixedPitch,
    // UnderlinePosition, UnderlineThickness).
    std::map<std::string, std::string> fontInfo;
    // The built-in encoding: true for "/Encoding StandardEncoding def",
    // else the 256 glyph names of the "dup code /name put" lines ("" where
    // none is set).
    bool standardEncoding = false;
    std::array<std::string, 256> encoding;

    // Private dictionary values by key without the slash, numbers only
    // (arrays as their elements; booleans as 1/0): BlueValues, OtherBlues,
    // FamilyBlues, FamilyOtherBlues, BlueScale, BlueShift, BlueFuzz, StdHW,
    // StdVW, StemSnapH, StemSnapV, ForceBold, LanguageGroup,
    // ExpansionFactor, lenIV, ...
    std::map<std::string, std::vector<double>> privateValues;
    int lenIV = 4;                        // -1: charstrings are not encrypted

    // Charstrings decrypted, with their lenIV leading bytes removed.
    std::vector<std::string> subrs;       // index = Subrs number ("" for a gap)
    std::vector<std::pair<std::string, std::string>> charStrings;  // (glyph name, charstring) in file order

    // The source texts, kept so the subsetter can write the program back
    // with everything it does not understand unchanged.
    std::string cleartext;                // the clear-text part, up to and including "eexec" and its line end
    std::string privateText;              // the decrypted private part (the 4 random bytes removed)
};

// Reads a FontFile stream's decoded bytes.  `length1` is the dictionary's
// Length1 (a hint only; 0 when absent).  Also accepts the PFB form (segments
// with 0x80 headers) and a hexadecimal encrypted part.  Returns false and
// sets `error` for anything that is not a readable Type 1 program (no
// eexec, no CharStrings, garbage after decryption, negative counts or
// counts past 65536, a Subrs number past the array's declared size, a
// lenIV outside -1..255, sizes past the input).  Fewer entries than
// declared is fine: subset fonts often keep the full font's counts.
bool ReadType1(std::span<const uint8_t> program, size_t length1, Type1Font& out, std::string& error);

// The Type 1 encryption, a byte stream cipher over the private part
// (eexec, key 55665) and over each charstring (key 4330).  Decryption keeps
// the leading random bytes (4 for eexec, lenIV for charstrings): callers
// drop them, and prefix them before encrypting.
constexpr uint16_t kEexecKey = 55665;
constexpr uint16_t kCharStringKey = 4330;
std::string Type1Decrypt(std::string_view cipher, uint16_t key);
std::string Type1Encrypt(std::string_view plain, uint16_t key);

// Adds to `glyphs` everything the named glyphs need: ".notdef" and the
// base and accent glyphs of every seac (looked up through StandardEncoding,
// as seac asks).  Names the font does not have are left in the set.
void Type1GlyphClosure(const Type1Font& font, std::set<std::string>& glyphs);

// The built-in encoding as 256 glyph names ("" where a code has none),
// StandardEncoding spelled out.
std::array<std::string, 256> Type1BuiltinNames(const Type1Font& font);

// Gives the program the built-in encoding `names` (code -> glyph name, ""
// for none): the clear text's /Encoding entry is written anew, as
// StandardEncoding when it is that one.  False, with `font` unchanged,
// when the clear text has no /Encoding entry this can find.
bool SetType1Encoding(Type1Font& font, const std::array<std::string, 256>& names);

// A written Type 1 program with the lengths its stream dictionary needs.
struct Type1Program {
    std::vector<uint8_t> bytes;
    size_t length1 = 0, length2 = 0, length3 = 0;
};

// Writes the program back keeping only the CharStrings named in `glyphs`
// (after Type1GlyphClosure) and the Subrs they call, directly or through
// other Subrs (Subrs 0-3, the flex and hint-replacement helpers, are always
// kept; Subrs not kept become empty "return" entries so numbers stay
// valid, and unused ones at the end are dropped; when a call's number
// cannot be worked out, every Subr is kept).  The closure is applied
// again here, so a bare set is safe.  Everything else in the program is
// copied byte for byte; the counts are set to what is written.  Output is
// deterministic (fixed bytes stand for the random leading bytes).  The
// encrypted part is binary; Length3 is 0 (no zeros trailer: the PDF reader
// needs none).  `renameTo`, when not empty, becomes the program's
// /FontName.  The program is empty when `font` did not come from
// ReadType1 (its private text does not scan).
Type1Program SubsetType1(const Type1Font& font, const std::set<std::string>& glyphs,
                         const std::string& renameTo = {});

// A bare CFF font (FontFile3 /Subtype /Type1C) with the same outlines,
// hints, metrics and built-in encoding.  `glyphs` empty keeps every glyph,
// else only those named (after Type1GlyphClosure).  Charstrings become
// Type 2 charstrings: hsbw/sbw give the width and the start point, Subrs are
// inlined or carried over as local subroutines, flex (OtherSubrs 0-2)
// becomes flex/hflex operators, hint replacement (OtherSubrs 3) becomes
// hintmask, seac becomes the endchar form with accent arguments.
// Returns an empty vector when a charstring cannot be converted (the caller
// keeps the Type 1 program); `error` says why.
std::vector<uint8_t> Type1ToCff(const Type1Font& font, const std::set<std::string>& glyphs, std::string& error);

}  // namespace fonts
