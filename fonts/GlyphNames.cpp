#include "fonts/GlyphNames.h"

#include <algorithm>
#include <cstring>
#include <string>

namespace fonts {

namespace {

std::optional<uint32_t> Hex(std::string_view digits) {
    uint32_t v = 0;
    for (char c : digits) {
        int d;
        if (c >= '0' && c <= '9') d = c - '0';
        else if (c >= 'A' && c <= 'F') d = c - 'A' + 10;
        else return std::nullopt;  // the convention asks for upper-case digits
        v = v << 4 | static_cast<uint32_t>(d);
    }
    return v;
}

}  // namespace

std::optional<uint32_t> UnicodeForGlyphName(std::string_view name) {
    if (size_t dot = name.find('.'); dot != std::string_view::npos && dot > 0) name = name.substr(0, dot);
    if (name.empty()) return std::nullopt;
    const auto* begin = detail::kGlyphList;
    const auto* end = detail::kGlyphList + detail::kGlyphListSize;
    const auto* it = std::lower_bound(begin, end, name, [](const detail::GlyphListEntry& e, std::string_view n) {
        return std::string_view(e.name) < n;
    });
    if (it != end && name == it->name) return it->unicode;
    std::optional<uint32_t> v;
    if (name.size() == 7 && name.substr(0, 3) == "uni") v = Hex(name.substr(3));
    else if (name.size() >= 5 && name.size() <= 7 && name[0] == 'u') v = Hex(name.substr(1));
    if (v && (*v > 0x10FFFF || (*v >= 0xD800 && *v <= 0xDFFF))) return std::nullopt;
    return v;
}

}  // namespace fonts
