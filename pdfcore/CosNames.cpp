#include "pdfcore/CosNames.h"

namespace cosnames {
#define TM_COS_NAME(id) const ASAtom id = ASAtomFromString(#id);
#include "pdfcore/CosNames.def"
#undef TM_COS_NAME
}  // namespace cosnames
