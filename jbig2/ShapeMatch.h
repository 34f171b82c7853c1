// The test that lets lossy symbol coding draw one shape in place of
// another.  It is deliberately strict: a wrong match changes what a page
// says (a "6" drawn as an "8"), while a missed one only costs bytes.
//
// Shape b is laid over shape a with its top-left corner at (dx, dy) in a's
// box.  They match when
//  - their widths and heights differ by at most one pixel;
//  - they differ in at most w x h / 32 pixels, w x h being the larger box
//    (about 3 %, so shapes of fewer than 32 pixels must be equal);
//  - no differing pixel has more than 3 differing pixels in its 3 x 3
//    neighbourhood, itself included.  Scanner noise moves edges by a
//    pixel, which differs in thin lines; a stroke that one shape has and
//    the other lacks differs in a blob, however small.
#pragma once

#include "jbig2/TextCoding.h"

namespace jbig2 {

bool ShapesMatch(const Symbol& a, const Symbol& b, int dx = 0, int dy = 0);

}  // namespace jbig2
