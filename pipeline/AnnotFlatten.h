// Flattening or removing annotations and form fields.
//
// Flattening draws each annotation's normal appearance into the page
// content where a viewer draws it, then removes the annotation; removing
// only removes it.  Annotations (`annot-processing`) and form widgets
// (`acroform-processing`) are chosen separately.  The catalog's AcroForm
// is left to the document clean-up.
#pragma once

#include <map>
#include <memory>

#include "pipeline/Operations.h"

namespace pipeline {

enum class AnnotAction { Keep, Flatten, Remove };

// The action a settings word ("Flatten", "Remove", anything else) selects.
AnnotAction AnnotActionFromWord(ASAtom word);

struct AnnotFlattenCounts {
    int annotsTotal = 0, annotsFlattened = 0, annotsRemoved = 0;
    int widgetsTotal = 0, widgetsFlattened = 0, widgetsRemoved = 0;
};

// Form fields already counted in a document, by field dictionary.
struct FieldTally {
    PDDoc doc = nullptr;
    std::map<CosObj, int> state;
};

// Flattens or removes the annotations of one page: `annots` for every
// annotation that is not a widget, `widgets` for form widgets.  Counts in
// `ctx.stats` (Annots_Total, Annots_Flattened, Annots_Removed,
// AcroForms_Total, AcroForms_Flattened, AcroForms_Removed) and returns the
// page's counts.  Form fields count once each in `fields` (a field with
// several widgets, or widgets on several pages, is one field); without it,
// once per page.  Bad annotations are reported and left in place.
AnnotFlattenCounts FlattenPageAnnotations(CosObj page, AnnotAction annots, AnnotAction widgets,
                                          RunContext& ctx, FieldTally* fields = nullptr);

// "\tFlattening annotations...\n": enabled when either setting asks for
// "Flatten" or "Remove".
std::unique_ptr<PageOperation> MakeAnnotFlatten();

}  // namespace pipeline
