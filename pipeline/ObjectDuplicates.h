// Merging duplicate objects of every kind: fonts embedded once per page,
// identical forms, images, dictionaries and arrays, as merged files and
// some generators repeat them.
//
// Objects are grouped by a canonical text of their value in which every
// reference names the object it currently stands for; the text is hashed
// and texts with equal hashes are compared in full, and streams with equal
// dictionaries compare their stored bytes, so nothing merges on a hash
// alone.  A merge can make the objects that refer to the merged ones equal
// in turn, so the grouping repeats until a round merges nothing.  Objects
// whose identity matters (pages, annotations, fields, structure elements,
// outline items, optional-content groups, threads and beads, and the
// trailer's own entries) are never merged, though their references are
// pointed at the objects kept.
#pragma once

#include <cstddef>

#include "pdfcore/CosObj.h"
#include "pipeline/Operations.h"

namespace pipeline {

struct ObjectMergeResult {
    size_t merged = 0;  // objects that became unreferenced
    int rounds = 0;     // grouping rounds run, the last one merging nothing
};

ObjectMergeResult MergeDuplicateObjects(CosDoc doc);

// True for objects that carry identity and are never merged.
bool CarriesIdentity(CosObj obj);

// Registers the merge (post-layout, after the resource step) under
// `dup-object-check`.
void RegisterObjectDuplicateOperations(OperationRegistry& registry);

}  // namespace pipeline
