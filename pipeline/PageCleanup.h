// Page clean-up: the operations of the post-layout page loop that remove
// data viewers never need from each page dictionary (other applications'
// edit data, thumbnails, job tickets, file-attachment annotations, page
// boxes that repeat the media box), set or drop rotations, add transitions,
// and combine and rewrite the page's content streams.
//
// Each operation announces itself on the Progress channel with its fixed
// line, changes only the page it is given (the page-box step may move an
// equal box up to the page's parent) and counts what it did.  Everything of
// the wrong kind (an Annots that is no array, a box that is not four
// numbers) is skipped with a warning; the rest of the page is still done.
#pragma once

#include <memory>

#include "pipeline/Operations.h"

namespace pipeline {

// The single steps, for the operations below and for tests.
void RemoveEditData(CosObj page, RunContext& ctx);
void RemoveThumbnail(CosObj page, RunContext& ctx);
void RemoveJobTicket(CosObj page, RunContext& ctx);
void RemoveFileAttachments(CosObj page, RunContext& ctx);
void RemoveExtraBoxes(CosObj page, RunContext& ctx);
void AdjustRotation(CosObj page, RunContext& ctx);
void AddTransition(CosObj page, RunContext& ctx);
// Joins a Contents array into one Flate stream.  Counts every content
// stream met in ContentStreams_Total and the streams that disappeared in
// ContentStreams_Combined (three streams joined into one add 2).
void CombineContentStreams(CosObj page, RunContext& ctx);
// Rewrites the page's single content stream compactly and stores it with
// Flate at the settings' level, only when that is smaller than what is
// stored.  ContentStreams_Compressed counts pages whose stream was replaced;
// ContentStreams_Optimized those among them whose rewritten content is also
// shorter than the decoded original.
void ProcessContentStreams(CosObj page, RunContext& ctx);

// Registration, in the order of the post-layout page loop.  The removal
// operations come first; the content operations (annotation clean-up,
// transitions, rotation, combining, resources, XObject hand-over, content
// processing) come after any operation that changes what pages draw.
void RegisterPageRemovalOperations(OperationRegistry& registry);
void RegisterPageContentOperations(OperationRegistry& registry);

}  // namespace pipeline
