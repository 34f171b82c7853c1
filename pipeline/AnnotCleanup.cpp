#include "pipeline/AnnotCleanup.h"

#include <string>
#include <unordered_set>

#include "base/Log.h"
#include "pdfcore/CosDoc.h"
#include "pipeline/ObjectGraph.h"

namespace pipeline {
namespace {

ASAtom K(const char* name) { return ASAtomFromString(name); }
const ASAtom K_Annots = K("Annots");
const ASAtom K_Subtype = K("Subtype");
const ASAtom K_Link = K("Link");
const ASAtom K_Border = K("Border");
const ASAtom K_BS = K("BS");
const ASAtom K_AP = K("AP");
const ASAtom K_N = K("N");
const ASAtom K_A = K("A");
const ASAtom K_S = K("S");
const ASAtom K_URI = K("URI");
const ASAtom K_IsMap = K("IsMap");
const ASAtom K_P = K("P");
const ASAtom K_NM = K("NM");
const ASAtom K_M = K("M");
const ASAtom K_StructParent = K("StructParent");

bool IsDict(CosObj o) { return CosObjGetType(o) == kCosDict; }
bool IsNumber(CosObj o) { return CosObjGetType(o) == kCosInteger || CosObjGetType(o) == kCosFixed; }

// The annotation types whose border style dictionary replaces Border
// (ISO 32000-1, 12.5.6).
bool ReadsBorderStyle(ASAtom subtype) {
    static const char* const types[] = {"Link",    "FreeText", "Line", "Square", "Circle",
                                        "Polygon", "PolyLine", "Ink",  "Widget"};
    for (const char* t : types)
        if (subtype == K(t)) return true;
    return false;
}

bool HasNormalAppearance(CosObj annot) {
    CosObj ap = CosDictGet(annot, K_AP);
    if (!IsDict(ap)) return false;
    CosObj n = CosDictGet(ap, K_N);
    return CosObjGetType(n) == kCosStream || IsDict(n);
}

// True when the Border entry was removed or rewritten.
bool CleanBorder(CosObj annot) {
    CosObj border = CosDictGet(annot, K_Border);
    if (CosObjIsNull(border)) return false;
    if (IsDict(CosDictGet(annot, K_BS)) && ReadsBorderStyle(CosDictGetName(annot, K_Subtype))) {
        CosDictRemove(annot, K_Border);
        return true;
    }
    if (CosObjGetType(border) != kCosArray) {
        CosDictRemove(annot, K_Border);
        return true;
    }
    const ASInt32 n = CosArrayLength(border);
    if (n < 3) return false;
    for (ASInt32 i = 0; i < 3; ++i)
        if (!IsNumber(CosArrayGet(border, i))) return false;
    bool changed = false;
    if (n == 4 && CosObjGetType(CosArrayGet(border, 3)) == kCosArray && CosArrayLength(CosArrayGet(border, 3)) == 0) {
        CosArrayRemoveAt(border, 3);
        changed = true;
    }
    if (CosArrayLength(border) == 3 && CosFixedValue(CosArrayGet(border, 0)) == 0 &&
        CosFixedValue(CosArrayGet(border, 1)) == 0 && CosFixedValue(CosArrayGet(border, 2)) == 1 &&
        HasNormalAppearance(annot)) {
        CosDictRemove(annot, K_Border);
        changed = true;
    }
    return changed;
}

// True when an IsMap entry was removed.
bool CleanIsMap(CosObj link) {
    bool changed = false;
    if (CosDictKnown(link, K_IsMap)) {
        CosDictRemove(link, K_IsMap);
        changed = true;
    }
    CosObj action = CosDictGet(link, K_A);
    if (IsDict(action) && CosDictGetName(action, K_S) == K_URI && CosDictKnown(action, K_IsMap)) {
        CosObj v = CosDictGet(action, K_IsMap);
        if (CosObjGetType(v) != kCosBoolean || !CosBooleanValue(v)) {
            CosDictRemove(action, K_IsMap);
            changed = true;
        }
    }
    return changed;
}

}  // namespace

void CleanUpAnnotations(CosObj page, RunContext& ctx) {
    ctx.log.Progress("\tCleaning up Annotations...\n");
    CosObj annots = CosDictGet(page, K_Annots);
    if (CosObjIsNull(annots)) return;
    if (CosObjGetType(annots) != kCosArray) {
        ctx.log.Warning("Page %d: Annots is not an array; its annotations are left alone\n", int(ctx.pageNumber + 1));
        return;
    }
    std::unordered_set<std::string> links;
    const auto byId = [](CosObj v) { return std::to_string(CosObjGetID(v)); };
    for (ASInt32 i = 0; i < CosArrayLength(annots); ++i) {
        CosObj a = CosArrayGet(annots, i);
        if (CosObjIsNull(a)) {
            CosArrayRemoveAt(annots, i--);
            continue;
        }
        if (!IsDict(a)) continue;
        if (CleanBorder(a)) ctx.stats.Increment("Annots_Cleaned");
        if (CosDictGetName(a, K_Subtype) != K_Link) continue;
        ctx.stats.Increment("LinkAnnots_Total");
        if (CleanIsMap(a)) ctx.stats.Increment("LinkAnnots_Cleaned");
        if (CosDictKnown(a, K_StructParent)) continue;
        std::string sig;
        if (!AppendCanonical(sig, a, byId, {K_P, K_NM, K_M})) continue;
        if (!links.insert(sig).second) {
            CosArrayRemoveAt(annots, i--);
            ctx.stats.Increment("LinkAnnots_Duplicates");
        }
    }
    if (CosArrayLength(annots) == 0) {
        CosDictRemove(page, K_Annots);
        ctx.stats.Increment("Empty_Annots_Removed");
    }
}

}  // namespace pipeline
