// Page-tree work shared by the document layer.
#pragma once

#include <vector>

#include "pdfcore/PDDoc.h"

// The page dictionaries in document order.  Loops and nodes that are not
// dictionaries raise "the document's page tree contains an invalid node";
// a missing catalog or page-tree root raises their own errors.
std::vector<CosObj> PDCollectPages(CosDoc doc);
// Copies `srcPages` (of another document or the same) into `target` after
// page `afterPage` (-1: at the front).
void PDInsertPageCopies(CosDoc target, ASInt32 afterPage, const std::vector<CosObj>& srcPages);
// Unlinks a page from its parent's Kids and fixes the counts above it.
void PDRemovePageFromTree(CosObj page);
