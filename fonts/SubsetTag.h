// Subset tags: the six upper-case letters and a plus that mark a font
// program as a subset ("ABCDEF+Name").
#pragma once

#include <cstdint>
#include <set>
#include <string>

namespace fonts {

// A tag that depends only on `seed` (the same font and glyphs give the
// same tag, so repeated runs write identical files) and is not in `taken`;
// the tag is added to `taken`.
std::string MakeSubsetTag(const std::string& seed, std::set<std::string>& taken);

}  // namespace fonts
