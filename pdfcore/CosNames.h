// The core's own names, registered before any document is opened.  Program
// code declares its own atoms the same way, in static initialisers.
#pragma once

#include "pdfcore/CosObj.h"

namespace cosnames {
#define TM_COS_NAME(id) extern const ASAtom id;
#include "pdfcore/CosNames.def"
#undef TM_COS_NAME
}  // namespace cosnames
