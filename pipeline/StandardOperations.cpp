// The list of operations the program runs.  Page clean-up, content,
// resource, font, image, layout and document clean-up operations each add
// their line here; the order of lines is the order within a phase.
#include "pipeline/AnnotFlatten.h"
#include "pipeline/DocumentCleanup.h"
#include "pipeline/FormXObjectFlatten.h"
#include "pipeline/ImageReduction.h"
#include "pipeline/ObjectDuplicates.h"
#include "pipeline/Operations.h"
#include "pipeline/ResourceOptimizer.h"
#include "pipeline/Transparency.h"

namespace pipeline {

void RegisterStandardOperations(OperationRegistry& registry) {
    // Post-layout page operations that change what a page draws: the
    // annotations and form fields drawn into the page, then form XObjects
    // drawn in place of their Do, then transparency entries without effect
    // dropped.  They run after the page clean-up removals and before the
    // content-stream work, which then sees the flattened content.
    registry.Add(MakeAnnotFlatten());
    registry.Add(MakeFormXObjectFlatten());
    registry.Add(MakeTransparencyRemoval());
    // Post-layout, after the page loop: resources first (their duplicate
    // images and profiles, then every stream recompressed), then the
    // merge of all equal objects, which finds more once equal data has
    // been recompressed to equal bytes.
    RegisterResourceOperations(registry);
    RegisterObjectDuplicateOperations(registry);
    // Image reduction runs at its own point, after the resources: each
    // image left after the duplicate merge is reduced once.
    registry.Add(MakeImageReduction(images::FindImages));
    // Document clean-up: the catalog and its trees, step by step in a
    // fixed order, once the page, resource and image work is done.
    RegisterDocumentCleanupOperations(registry);
}

}  // namespace pipeline
