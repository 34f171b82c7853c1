// Removing transparency that has no visible effect (`remove-transparency`).
//
// Only entries whose removal does not change what the page shows are
// dropped:
//  - extended graphics state entries that set the initial value (CA 1,
//    ca 1, BM Normal or Compatible, SMask None, AIS false, TK true), when no
//    graphics state reached from any page sets that entry to anything else
//    (otherwise `CA 1` may be what undoes an earlier `CA 0.5`);
//  - an image's soft mask whose every sample is fully opaque (no Matte, no
//    Decode inversion), and an image's SMaskInData 0;
//  - a page's transparency group (Group with S Transparency) when nothing
//    the page draws (its content's resources, the forms, patterns, Type 3
//    glyphs and annotation appearances it reaches) uses transparency.
// Transparency that shows (opacity below 1, blend modes, soft masks with
// content, transparency groups of forms) is left as it is: turning it into
// opaque drawing would change the page.
#pragma once

#include <memory>

#include "pipeline/Operations.h"

namespace pipeline {

struct TransparencyCounts {
    int entries = 0;     // graphics-state entries removed
    int softMasks = 0;   // opaque soft masks (and SMaskInData 0) removed
    int pageGroups = 0;  // page transparency groups removed
};

TransparencyCounts RemoveInvisibleTransparency(RunContext& ctx);

// A document operation of the post-layout point, after the page loop.
std::unique_ptr<DocumentOperation> MakeTransparencyRemoval();

}  // namespace pipeline
