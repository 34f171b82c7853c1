// Glyph names and the Unicode values they stand for.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace fonts {

// The code point a glyph name stands for: a name of the standard glyph
// list, "uniXXXX" (four hexadecimal digits) or "uXXXX" to "uXXXXXX"; a
// suffix after the first period (".sc", ".alt") is ignored.  nullopt for
// any other name.
std::optional<uint32_t> UnicodeForGlyphName(std::string_view name);

namespace detail {
struct GlyphListEntry {
    const char* name;
    uint32_t unicode;
};
extern const GlyphListEntry kGlyphList[];
extern const size_t kGlyphListSize;
}  // namespace detail

}  // namespace fonts
