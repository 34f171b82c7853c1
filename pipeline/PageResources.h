// Page resources clean-up: entries of a page's resource dictionary that
// nothing draws are dropped, and ProcSet goes.
//
// Resource dictionaries are shared: many pages inherit one dictionary from
// the page tree, and category dictionaries (a Font dictionary, say) are
// often shared between pages and forms.  An entry is dropped only when no
// user of that very dictionary object names it: the names are collected
// over every page of the document, following forms, tiling patterns,
// soft masks, Type 3 glyph procedures and annotation appearances, and
// kept per dictionary object.  A dictionary one of whose users cannot be
// read completely (content that does not decode, damaged content, nesting
// too deep to follow) keeps every entry, and so do the interactive form's
// default resources, which field texts name.
//
// The categories cleaned are ExtGState, Font, Pattern, ColorSpace, Shading
// and XObject; each dropped font counts Unreferenced_Fonts_Removed.
#pragma once

#include "pipeline/Operations.h"

namespace pipeline {

// The page step ("\tCleaning up Page Resources...\n").  The uses of every
// page are gathered when the page loop starts (page 0, or a document not
// seen before) and the current page's are gathered again just before its
// clean-up, so that earlier steps on this page (flattening) are seen.
void CleanUpPageResources(CosObj page, RunContext& ctx);

}  // namespace pipeline
