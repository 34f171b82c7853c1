// Type 1 font program fuzz target.  The first byte picks the form: even,
// the rest is the program as a FontFile holds it; odd, the part after
// "eexec" is plain text and is encrypted here first, so that mutations
// reach the private dictionary and the charstrings.  A program that reads
// is subset to some of its glyphs, and the subset must read back with
// exactly the glyphs kept.
#include <cstddef>
#include <cstdint>
#include <set>
#include <string>

#include "fonts/Type1Font.h"

using namespace fonts;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    uint8_t sel = data[0];
    std::string program(reinterpret_cast<const char*>(data + 1), size - 1);
    if (sel & 1) {
        size_t e = program.find("eexec");
        if (e == std::string::npos) return 0;
        e += 6;
        if (e > program.size()) return 0;
        program = program.substr(0, e) + Type1Encrypt(std::string(4, '\0') + program.substr(e), kEexecKey);
    }
    Type1Font font;
    std::string error;
    std::span<const uint8_t> bytes(reinterpret_cast<const uint8_t*>(program.data()), program.size());
    if (!ReadType1(bytes, 0, font, error)) return 0;

    std::set<std::string> glyphs;
    for (size_t i = 0; i < font.charStrings.size(); ++i)
        if ((i + (sel >> 1)) % 3 == 0) glyphs.insert(font.charStrings[i].first);
    Type1GlyphClosure(font, glyphs);
    Type1Program subset = SubsetType1(font, glyphs, "ABCDEF+Fuzz");
    if (subset.bytes.empty()) return 0;
    if (subset.length1 + subset.length2 != subset.bytes.size() || subset.length3 != 0) __builtin_trap();

    Type1Font back;
    if (!ReadType1(subset.bytes, subset.length1, back, error)) __builtin_trap();
    size_t kept = 0;
    for (const auto& [name, cs] : font.charStrings)
        if (glyphs.count(name)) {
            if (kept >= back.charStrings.size() || back.charStrings[kept].first != name ||
                back.charStrings[kept].second != cs)
                __builtin_trap();
            ++kept;
        }
    if (kept != back.charStrings.size()) __builtin_trap();
    return 0;
}
