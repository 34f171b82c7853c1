// The list of operations the program runs.  Page clean-up, content,
// resource, font, image, layout and document clean-up operations each add
// their line here; the order of lines is the order within a phase.
#include "pipeline/ImageReduction.h"
#include "pipeline/ObjectDuplicates.h"
#include "pipeline/Operations.h"
#include "pipeline/PageCleanup.h"
#include "pipeline/ResourceOptimizer.h"

namespace pipeline {

void RegisterStandardOperations(OperationRegistry& registry) {
    // Post-layout page loop: the page clean-up removals first; flattening
    // of annotations and forms registers after them; then the operations
    // that must see the final page content (annotation clean-up,
    // transitions, rotation, combining, resources, content processing).
    RegisterPageRemovalOperations(registry);
    RegisterPageContentOperations(registry);

    // Post-layout, after the page loop: resources first (their duplicate
    // images and profiles, then every stream recompressed), then the
    // merge of all equal objects, which finds more once equal data has
    // been recompressed to equal bytes.
    RegisterResourceOperations(registry);
    RegisterObjectDuplicateOperations(registry);
    // Image reduction runs at its own point, after the resources: each
    // image left after the duplicate merge is reduced once.
    registry.Add(MakeImageReduction(images::FindImages));
}

}  // namespace pipeline
