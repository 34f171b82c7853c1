// Document clean-up: once per document, after the page and resource work,
// the catalog and its name trees are cleaned of other applications'
// private data and, as the settings ask, of metadata, tagging, outlines,
// optional content, forms, threads, named destinations, embedded files,
// page labels and empty structures.  Each step is its own document
// operation, so a step that fails on a damaged file is reported and the
// next one still runs.  What a step removes leaves no dangling use behind:
// links and bookmarks to removed named destinations get the explicit
// destination, the structure references of pages, annotations and forms go
// with the structure tree, and so on (docs/settings.md says what each
// setting removes).
#pragma once

#include <string>

#include "pdfcore/CosObj.h"
#include "pipeline/Operations.h"

namespace pipeline {

// Adds every clean-up step, in the order they run, at DocumentCleanup.
void RegisterDocumentCleanupOperations(OperationRegistry& registry);

// Runs every enabled step in order, each guarded as the pipeline guards
// them (for tests and tools).  Returns the number of steps that failed.
int CleanUpDocument(RunContext& ctx);

// The `RemoveUnused` rule for page labels: true when the labels of a
// document of `pageCount` pages read exactly as plain decimal page numbers
// from 1 (every range that starts on a page of the document uses decimal
// numbering without a prefix and starts at its own page number, and the
// first range starts on the first page), so removing them changes nothing a
// reader sees.  A tree that cannot be read completely is never plain; its
// problem goes to `problem`.
bool PageLabelsArePlain(CosObj pageLabels, ASInt32 pageCount, std::string* problem = nullptr);

}  // namespace pipeline
