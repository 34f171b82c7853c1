// The list of operations the program runs.  Page clean-up, content,
// resource, font, image, layout and document clean-up operations each add
// their line here; the order of lines is the order within a phase.
#include "pipeline/ImageReduction.h"
#include "pipeline/Operations.h"

namespace pipeline {

void RegisterStandardOperations(OperationRegistry& registry) {
    registry.Add(MakeImageReduction(images::FindImages));
}

}  // namespace pipeline
