#include "pipeline/ViewingPlan.h"

#include <string_view>

#include "settings/TrimoraPreferences.h"

namespace pipeline {
namespace {

const ASAtom K_PageMode = ASAtomFromString("PageMode");
const ASAtom K_PageLayout = ASAtomFromString("PageLayout");
const ASAtom K_OpenAction = ASAtomFromString("OpenAction");
const ASAtom K_ViewerPreferences = ASAtomFromString("ViewerPreferences");
const ASAtom K_HideToolbar = ASAtomFromString("HideToolbar");
const ASAtom K_HideMenubar = ASAtomFromString("HideMenubar");
const ASAtom K_HideWindowUI = ASAtomFromString("HideWindowUI");
const ASAtom K_FitWindow = ASAtomFromString("FitWindow");
const ASAtom K_CenterWindow = ASAtomFromString("CenterWindow");
const ASAtom K_Fit = ASAtomFromString("Fit");
const ASAtom K_FitH = ASAtomFromString("FitH");
const ASAtom K_FitV = ASAtomFromString("FitV");
const ASAtom K_XYZ = ASAtomFromString("XYZ");

bool Is(ASAtom a, std::string_view word) { return a != ASAtomNull && word == ASAtomGetString(a); }

}  // namespace

bool ViewingPlan::Any() const {
    return pageMode || pageLayout || zoomKind || startingPage > 0 || hideToolbar || hideMenubar ||
           hideWindowUI || fitWindow || centerWindow;
}

ViewingPlan MakeViewingPlan(const ViewingSettings& v) {
    ViewingPlan p;
    if (Is(v.pageMode, "Thumbs")) p.pageMode = ASAtomFromString("UseThumbs");
    else if (Is(v.pageMode, "Bookmarks")) p.pageMode = ASAtomFromString("UseOutlines");
    else if (Is(v.pageMode, "FullScreen")) p.pageMode = ASAtomFromString("FullScreen");

    if (Is(v.pageLayout, "Single")) p.pageLayout = ASAtomFromString("SinglePage");
    else if (Is(v.pageLayout, "Continuous")) p.pageLayout = ASAtomFromString("OneColumn");
    else if (Is(v.pageLayout, "ContinuousFacing")) p.pageLayout = ASAtomFromString("TwoColumnLeft");

    if (Is(v.openZoomFit, "FitWindow") || Is(v.openZoomFit, "FitPage")) p.zoomKind = K_Fit;
    else if (Is(v.openZoomFit, "FitWidth")) p.zoomKind = K_FitH;
    else if (Is(v.openZoomFit, "FitHeight")) p.zoomKind = K_FitV;
    else if (Is(v.openZoomFit, "Custom") && v.openZoom > 0) {
        p.zoomKind = K_XYZ;
        p.zoom = v.openZoom / 100.0;
    }
    p.startingPage = v.openPage > 0 ? v.openPage : 0;
    p.hideToolbar = v.hideToolbar;
    p.hideMenubar = v.hideMenubar;
    p.hideWindowUI = v.hideWindow;
    p.fitWindow = v.fitWindow;
    p.centerWindow = v.centerWindow;
    return p;
}

void ApplyViewingPlan(CosObj catalog, const ViewingPlan& p, CosObj openPage) {
    if (CosObjGetType(catalog) != kCosDict) return;
    CosDoc doc = CosObjGetDoc(catalog);
    if (p.pageMode) CosDictPutName(catalog, K_PageMode, false, p.pageMode);
    if (p.pageLayout) CosDictPutName(catalog, K_PageLayout, false, p.pageLayout);
    if ((p.zoomKind || p.startingPage > 0) && CosObjGetType(openPage) == kCosDict) {
        CosObj dest = CosNewArray(doc, false, 5);
        CosArrayAppend(dest, openPage);
        CosObj null = CosNewNull();
        if (p.zoomKind == K_Fit) {
            CosArrayAppend(dest, CosNewName(doc, false, K_Fit));
        } else if (p.zoomKind == K_FitH || p.zoomKind == K_FitV) {
            CosArrayAppend(dest, CosNewName(doc, false, p.zoomKind));
            CosArrayAppend(dest, null);
        } else {  // XYZ keeps the position; the zoom only when one is given
            CosArrayAppend(dest, CosNewName(doc, false, K_XYZ));
            CosArrayAppend(dest, null);
            CosArrayAppend(dest, null);
            if (p.zoomKind == K_XYZ) CosArrayAppend(dest, CosNewNumber(doc, false, p.zoom));
            else CosArrayAppend(dest, null);
        }
        CosDictPut(catalog, K_OpenAction, dest);
    }
    if (p.hideToolbar || p.hideMenubar || p.hideWindowUI || p.fitWindow || p.centerWindow) {
        CosObj prefs = CosDictGet(catalog, K_ViewerPreferences);
        if (CosObjGetType(prefs) != kCosDict) {
            prefs = CosNewDict(doc, false);
            CosDictPut(catalog, K_ViewerPreferences, prefs);
        }
        const std::pair<bool, ASAtom> flags[] = {{p.hideToolbar, K_HideToolbar},
                                                 {p.hideMenubar, K_HideMenubar},
                                                 {p.hideWindowUI, K_HideWindowUI},
                                                 {p.fitWindow, K_FitWindow},
                                                 {p.centerWindow, K_CenterWindow}};
        for (const auto& [on, key] : flags)
            if (on) CosDictPut(prefs, key, CosNewBoolean(doc, false, true));
    }
}

}  // namespace pipeline
