// Walking the objects of a document as a graph: which indirect objects the
// written file will hold, and pointing every reference to one object at
// another.  Used by the duplicate merges, which make objects unreferenced
// so that the writer drops them.
#pragma once

#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

#include "pdfcore/CosObj.h"

namespace pipeline {

// Every indirect object reachable from the trailer, each once, in the order
// met (breadth first).  Cycles are harmless.
std::vector<CosObj> ReachableIndirectObjects(CosDoc doc);

// Calls `fn` for every direct value inside `obj` (a container), depth first,
// not entering indirect objects: the values of a dictionary or a stream's
// dictionary and the elements of an array, with nested direct containers.
// Indirect values are passed to `fn` but not entered.
void ForEachDirectValue(CosObj obj, const std::function<void(CosObj value)>& fn);

// Makes every reference to a key of `redirect` (inside the trailer and the
// given objects) refer to its value instead.  Returns how many references
// changed.
size_t RedirectReferences(CosDoc doc, const std::vector<CosObj>& objects,
                          const std::unordered_map<CosObj, CosObj>& redirect);

}  // namespace pipeline

namespace pipeline {

// A byte text that is equal for two objects exactly when they are equal as
// PDF values: kinds, numbers, names, string bytes, array elements in order,
// dictionary entries in key order (the order written in the file does not
// matter), and, for a stream, its dictionary followed by its stored data's
// length (the data itself is compared by the caller).  Indirect values
// inside are written as `refName(value)`, so the caller decides when two
// references count as equal.  Keys in `skipKeys` are left out of the top
// dictionary.  Returns false for nesting too deep to be reasonable.
bool AppendCanonical(std::string& out, CosObj obj, const std::function<std::string(CosObj)>& refName,
                     const std::vector<ASAtom>& skipKeys = {});

}  // namespace pipeline
