// The initial-view settings a run writes into the catalog: which of them
// apply (the report lists the same ones) and how they are written.
#pragma once

#include "pdfcore/CosObj.h"

struct ViewingSettings;

namespace pipeline {

struct ViewingPlan {
    ASAtom pageMode = ASAtomNull;    // catalog PageMode value, null: leave alone
    ASAtom pageLayout = ASAtomNull;  // catalog PageLayout value, null: leave alone
    ASAtom zoomKind = ASAtomNull;    // destination kind (Fit, FitH, FitV, XYZ), null: no zoom
    double zoom = 0;                 // XYZ zoom factor (1.0 = 100 %)
    ASInt32 startingPage = 0;        // 1-based, 0: leave alone
    bool hideToolbar = false;
    bool hideMenubar = false;
    bool hideWindowUI = false;
    bool fitWindow = false;
    bool centerWindow = false;

    bool OpenDestination() const { return zoomKind != ASAtomNull; }
    bool Any() const;
};

// Words of the settings mapped onto catalog values; unknown words and the
// "None" words leave the document's own setting alone.
ViewingPlan MakeViewingPlan(const ViewingSettings& viewing);

// Writes the plan into the document's catalog.  The open action goes to the
// starting page (or the first page when only a zoom is given); a starting
// page past the last page is clipped to it.
void ApplyViewingPlan(CosObj catalog, const ViewingPlan& plan, CosObj pageDictForOpen);

}  // namespace pipeline
