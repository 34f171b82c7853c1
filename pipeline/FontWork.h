// The font step of the post-layout phase: fonts drawn as outlines
// (`outline`), fonts the system has embedded (`embed`), and embedded fonts
// subset to the glyphs the document's text uses (`subset`), in this order.
//
// It runs after the resource step, so that the programs it reads are the
// ones duplicate merging kept, and before the merge of equal objects, which
// then also joins equal subsets.  A font whose program is replaced counts
// under Fonts_Compressed, once, whether or not the resource step had
// recompressed it already.
#pragma once

#include <memory>

#include "pipeline/Operations.h"

namespace pipeline {

std::unique_ptr<DocumentOperation> MakeFontWork();

}  // namespace pipeline
