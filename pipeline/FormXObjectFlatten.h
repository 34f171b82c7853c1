// Drawing form XObjects in place of their Do (`flatten-xobjects`).
//
// A form drawn by a page becomes part of the page's content:
//     q <Matrix> cm <BBox> re W n <the form's content> Q
// with the form's resources entered in the page's resources (under new
// names where a name is taken by something else).  Forms drawn by the
// flattened form are flattened the same way, down to a fixed depth.
//
// A form stays a form (its Do is kept) when flattening could change what
// is drawn or cannot be done safely: a transparency group (Group), optional
// content (OC), a structure link (StructParent or StructParents), its own
// patterns or uses of patterns (their space is the form's), default colour
// spaces (DefaultGray, DefaultRGB, DefaultCMYK) in its or the page's
// resources, Type 3 fonts that use the form's resources, a BBox or Matrix that cannot be read, content that cannot be
// decoded, a form that draws itself, or nesting deeper than the bound.
// The form object itself is never changed: other pages, annotations and
// patterns that draw it keep drawing it.
#pragma once

#include <memory>

#include "pipeline/Operations.h"

namespace pipeline {

// The deepest nesting of forms that is flattened (a page drawing a form
// drawing a form ... counts one level per form).
constexpr int kMaxFlattenDepth = 12;

// The most content a page's flattening writes: forms that draw forms many
// times each would otherwise multiply without end.  Past it, the remaining
// forms stay Do operators.
constexpr size_t kMaxFlattenedContent = size_t(32) << 20;

// Flattens the forms drawn by one page's content; returns how many Do
// operators were replaced.  The page's content is replaced only when one
// was; the page's entries for forms it no longer draws are dropped.
int FlattenPageFormXObjects(CosObj page, RunContext& ctx, size_t maxContent = kMaxFlattenedContent);

// "\tFlattening Form XObjects...\n", enabled by `flatten-xobjects`.
std::unique_ptr<PageOperation> MakeFormXObjectFlatten();

}  // namespace pipeline
