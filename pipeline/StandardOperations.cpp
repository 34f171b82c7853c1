// The list of operations the program runs.  Page clean-up, content,
// resource, font, image, layout and document clean-up operations each add
// their line here; the order of lines is the order within a phase.
#include "pipeline/AnnotFlatten.h"
#include "pipeline/DocumentCleanup.h"
#include "pipeline/FontWork.h"
#include "pipeline/FormXObjectFlatten.h"
#include "pipeline/ImageReduction.h"
#include "pipeline/ObjectDuplicates.h"
#include "pipeline/Operations.h"
#include "pipeline/PageCleanup.h"
#include "pipeline/ResourceOptimizer.h"
#include "pipeline/Transparency.h"

namespace pipeline {

void RegisterStandardOperations(OperationRegistry& registry) {
    // Post-layout page loop: the page clean-up removals first; then what
    // changes what a page draws (annotations and form fields drawn into
    // the page, form XObjects drawn in place of their Do); then the
    // operations that must see the final page content (annotation
    // clean-up, transitions, rotation, combining, resources, content
    // processing).
    RegisterPageRemovalOperations(registry);
    registry.Add(MakeAnnotFlatten());
    registry.Add(MakeFormXObjectFlatten());
    RegisterPageContentOperations(registry);
    // After the page loop, before the resources: transparency entries
    // without effect dropped, once every page's drawing is final.
    registry.Add(MakeTransparencyRemoval());

    // Post-layout, after the page loop: resources first (their duplicate
    // images and profiles, then every stream recompressed), then the
    // merge of all equal objects, which finds more once equal data has
    // been recompressed to equal bytes.
    RegisterResourceOperations(registry);
    // Fonts next: subsets of the programs the resource step kept, before
    // the merge joins equal subsets.
    registry.Add(MakeFontWork());
    RegisterObjectDuplicateOperations(registry);
    // Image reduction runs at its own point, after the resources: each
    // image left after the duplicate merge is reduced once.
    registry.Add(MakeImageReduction(images::FindImages));
    // Document clean-up: the catalog and its trees, step by step in a
    // fixed order, once the page, resource and image work is done.
    RegisterDocumentCleanupOperations(registry);
}

}  // namespace pipeline
