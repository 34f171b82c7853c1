// Annotation clean-up: what a page's annotations carry without effect.
//
// - An empty Annots array is removed (Empty_Annots_Removed); entries that
//   are no annotation at all (null, a reference to a missing object) are
//   dropped from the array first.
// - Border entries (Annots_Cleaned): a Border next to a BS dictionary on an
//   annotation type that reads BS is dead and removed; a Border that is not
//   an array is ignored by viewers and removed; an empty dash array (a solid
//   line, as without one) is dropped from the array; a Border equal to the
//   default [0 0 1] is removed when the annotation has a normal appearance
//   stream (viewers draw that appearance, so the default changes nothing).
// - Links (LinkAnnots_Total counts every link seen): IsMap false in a URI
//   action (the default) or IsMap placed in the link itself, where it means
//   nothing, is removed (LinkAnnots_Cleaned).  A link equal to an earlier
//   link of the same page in everything but its page, name and date entries
//   (same rectangle, same destination or action, same look) is removed
//   (LinkAnnots_Duplicates); links tied into the structure tree stay.
// - Widget appearances are kept (FormAPs_Removed stays 0): viewers that do
//   not regenerate field appearances would show empty fields.
#pragma once

#include "pipeline/Operations.h"

namespace pipeline {

// The page step ("\tCleaning up Annotations...\n").
void CleanUpAnnotations(CosObj page, RunContext& ctx);

}  // namespace pipeline
