// The page tree: walking it into a page list, inherited attributes, and
// inserting and removing pages.
#include "pdfcore/PDPageTree.h"

#include <unordered_set>

#include "pdfcore/CosCopy.h"
#include "pdfcore/CosInternal.h"
#include "pdfcore/CosNames.h"

namespace {

// Trees deeper than this are not made by any producer; the cap turns a
// forged chain of nodes into an error instead of a stack overflow.
constexpr int kMaxTreeDepth = 128;
constexpr int kMaxParentChain = 128;

[[noreturn]] void RaiseBadNode() { ASRaiseErr(ErrSysPDDoc, kErrBadPageTreeNode); }

bool IsPageNode(CosObj node) {
    ASAtom type = CosDictGetName(node, cosnames::Type);
    if (type == cosnames::Page) return true;
    if (type == cosnames::Pages) return false;
    // Damaged files leave Type out; a node without Kids is a page.
    return CosObjGetType(CosDictGet(node, cosnames::Kids)) != kCosArray;
}

void Walk(CosObj node, int depth, std::unordered_set<ASInt32>& seen, std::vector<CosObj>& out) {
    if (depth > kMaxTreeDepth) RaiseBadNode();
    if (IsPageNode(node)) {
        out.push_back(node);
        return;
    }
    CosObj kids = CosDictGet(node, cosnames::Kids);
    for (ASInt32 i = 0, n = CosArrayLength(kids); i < n; ++i) {
        CosObj kid = CosArrayGet(kids, i);
        CosType t = CosObjGetType(kid);
        if (t == kCosNull) continue;  // a missing object: damaged files have them
        if (t != kCosDict) RaiseBadNode();
        if (CosObjIsIndirect(kid) && !seen.insert(CosObjGetID(kid)).second) RaiseBadNode();
        Walk(kid, depth + 1, seen, out);
    }
}

CosObj PagesRoot(CosDoc doc) {
    CosObj root = CosDocGetRoot(doc);
    if (CosObjGetType(root) != kCosDict) ASRaiseErr(ErrSysPDDoc, kErrBadRoot);
    CosObj pages = CosDictGet(root, cosnames::Pages);
    if (CosObjGetType(pages) != kCosDict) ASRaiseErr(ErrSysPDDoc, kErrBadPagesTree);
    return pages;
}

void AdjustCounts(CosObj node, ASInt32 delta) {
    for (int i = 0; i < kMaxParentChain && CosObjGetType(node) == kCosDict; ++i) {
        CosDictPutInteger(node, cosnames::Count, CosDictGetInt(node, cosnames::Count, 0) + delta);
        node = CosDictGet(node, cosnames::Parent);
    }
}

ASInt32 IndexInKids(CosObj kids, CosObj page) {
    for (ASInt32 i = 0, n = CosArrayLength(kids); i < n; ++i)
        if (CosArrayGet(kids, i) == page) return i;
    return -1;
}


const ASAtom kDest = ASAtomFromString("Dest");
const ASAtom kA = ASAtomFromString("A");
const ASAtom kS = ASAtomFromString("S");
const ASAtom kD = ASAtomFromString("D");
const ASAtom kGoTo = ASAtomFromString("GoTo");
const ASAtom kLimits = ASAtomFromString("Limits");

// Looks `key` up in a name tree (sorted string keys), following Kids with
// the Limits as guides but not trusting them blindly.
CosObj NameTreeLookup(CosObj node, const std::string& key, int depth) {
    if (depth > kMaxTreeDepth || CosObjGetType(node) != kCosDict) return CosNewNull();
    CosObj names = CosDictGet(node, cosnames::Names);
    ASInt32 count = CosObjGetType(names) == kCosArray ? CosArrayLength(names) : 0;
    for (ASInt32 i = 0; i + 1 < count; i += 2) {
        CosObj k = CosArrayGet(names, i);
        if (CosObjGetType(k) == kCosString && CosStringBytes(k) == key) return CosArrayGet(names, i + 1);
    }
    CosObj kids = CosDictGet(node, cosnames::Kids);
    if (CosObjGetType(kids) != kCosArray) return CosNewNull();
    for (ASInt32 i = 0, n = CosArrayLength(kids); i < n; ++i) {
        CosObj kid = CosArrayGet(kids, i);
        CosObj limits = CosDictGet(kid, kLimits);
        if (CosObjGetType(limits) == kCosArray && CosArrayLength(limits) == 2 &&
            CosObjGetType(CosArrayGet(limits, 0)) == kCosString &&
            CosObjGetType(CosArrayGet(limits, 1)) == kCosString &&
            (key < CosStringBytes(CosArrayGet(limits, 0)) || key > CosStringBytes(CosArrayGet(limits, 1))))
            continue;
        CosObj v = NameTreeLookup(kid, key, depth + 1);
        if (!CosObjIsNull(v)) return v;
    }
    return CosNewNull();
}

// The destination a name stands for in `doc`: the catalog's Dests
// dictionary (names) or its Names/Dests tree (strings).  A dictionary value
// holds the destination under D.
CosObj LookupNamedDest(CosDoc doc, CosObj name) {
    CosObj root = CosDocGetRoot(doc);
    if (CosObjGetType(root) != kCosDict) return CosNewNull();
    CosObj dest = CosNewNull();
    if (CosObjGetType(name) == kCosName) {
        CosObj dests = CosDictGet(root, cosnames::Dests);
        if (CosObjGetType(dests) == kCosDict) dest = CosDictGet(dests, CosNameValue(name));
    } else if (CosObjGetType(name) == kCosString) {
        CosObj names = CosDictGet(root, cosnames::Names);
        if (CosObjGetType(names) == kCosDict)
            dest = NameTreeLookup(CosDictGet(names, cosnames::Dests), CosStringBytes(name), 0);
        if (CosObjIsNull(dest)) {
            // Old files key the Dests dictionary by the same text.
            CosObj dests = CosDictGet(root, cosnames::Dests);
            if (CosObjGetType(dests) == kCosDict)
                dest = CosDictGet(dests, ASAtomFromString(CosStringBytes(name)));
        }
    }
    if (CosObjGetType(dest) == kCosDict) dest = CosDictGet(dest, kD);
    return CosObjGetType(dest) == kCosArray ? dest : CosNewNull();
}

// Links of copied pages that name their destination would look the name up
// in the target's catalog, where it means something else or nothing: give
// them the explicit destination from the source instead.
void ResolveNamedLinks(CosObj copiedPage, CosDoc source, CosCopier& copier) {
    CosObj annots = CosDictGet(copiedPage, cosnames::Annots);
    ASInt32 count = CosObjGetType(annots) == kCosArray ? CosArrayLength(annots) : 0;
    for (ASInt32 i = 0; i < count; ++i) {
        CosObj annot = CosArrayGet(annots, i);
        if (CosObjGetType(annot) != kCosDict) continue;
        CosObj holder = annot;
        ASAtom key = kDest;
        CosObj action = CosDictGet(annot, kA);
        if (CosObjGetType(action) == kCosDict && CosDictGetName(action, kS) == kGoTo) {
            holder = action;
            key = kD;
        }
        CosObj name = CosDictGet(holder, key);
        CosType t = CosObjGetType(name);
        if (t != kCosName && t != kCosString) continue;
        CosObj dest = LookupNamedDest(source, name);
        if (CosObjIsNull(dest)) continue;
        CosDictPut(holder, key, copier.Copy(dest));
    }
}
}  // namespace

std::vector<CosObj> PDCollectPages(CosDoc doc) {
    CosObj pages = PagesRoot(doc);
    std::vector<CosObj> out;
    std::unordered_set<ASInt32> seen;
    if (CosObjIsIndirect(pages)) seen.insert(CosObjGetID(pages));
    Walk(pages, 0, seen, out);
    return out;
}

CosObj PDPageGetInheritedAttr(CosObj pageDict, ASAtom key) {
    CosObj node = pageDict;
    for (int i = 0; i < kMaxParentChain && CosObjGetType(node) == kCosDict; ++i) {
        CosObj v = CosDictGet(node, key);
        if (!CosObjIsNull(v)) return v;
        node = CosDictGet(node, cosnames::Parent);
    }
    return CosNewNull();
}

void PDInsertPageCopies(CosDoc target, ASInt32 afterPage, const std::vector<CosObj>& srcPages) {
    if (srcPages.empty()) return;
    CosObj pagesRoot = PagesRoot(target);
    std::vector<CosObj> existing = PDCollectPages(target);

    CosCopier copier(target);
    std::unordered_set<ASInt32> wanted;
    for (CosObj p : srcPages) {
        if (!CosObjIsIndirect(p)) ASRaiseErr(ErrSysPDDoc, kErrBadPage);
        wanted.insert(CosObjGetID(p));
        copier.Reserve(p);
    }
    // Pages outside the selection and the source's tree nodes are not
    // copied: a link to such a page becomes null instead of dragging in the
    // whole source document.
    copier.shouldCopy = [&wanted](CosObj src) {
        if (CosObjGetType(src) != kCosDict) return true;
        ASAtom type = CosDictGetName(src, cosnames::Type);
        if (type == cosnames::Pages) return false;
        if (type == cosnames::Page) return wanted.count(CosObjGetID(src)) != 0;
        return true;
    };
    copier.skipKey = [](CosObj dict, ASAtom key) {
        return key == cosnames::Parent && CosDictGetName(dict, cosnames::Type) == cosnames::Page;
    };

    // Where the new pages go: after `afterPage` in its parent, or at the
    // start (or end of an empty tree) of the root's Kids.
    CosObj parent = pagesRoot;
    ASInt32 insertAt = 0;
    if (afterPage >= 0 && static_cast<size_t>(afterPage) < existing.size()) {
        CosObj prev = existing[static_cast<size_t>(afterPage)];
        CosObj p = CosDictGet(prev, cosnames::Parent);
        if (CosObjGetType(p) == kCosDict && CosObjGetType(CosDictGet(p, cosnames::Kids)) == kCosArray) {
            ASInt32 idx = IndexInKids(CosDictGet(p, cosnames::Kids), prev);
            if (idx >= 0) {
                parent = p;
                insertAt = idx + 1;
            }
        }
        if (parent == pagesRoot && insertAt == 0) insertAt = -1;  // append to the root
    }
    CosObj kids = CosDictGet(parent, cosnames::Kids);
    if (CosObjGetType(kids) != kCosArray) {
        kids = CosNewArray(target, false);
        CosDictPut(parent, cosnames::Kids, kids);
    }
    if (insertAt < 0 || insertAt > CosArrayLength(kids)) insertAt = CosArrayLength(kids);

    static const ASAtom kInheritable[] = {cosnames::Resources, cosnames::MediaBox, cosnames::CropBox,
                                          cosnames::Rotate};
    CosDoc source = CosObjGetDoc(srcPages.front());
    for (CosObj src : srcPages) {
        CosObj copy = copier.Copy(src);
        if (source != target) ResolveNamedLinks(copy, source, copier);
        // The source's ancestors are not copied: bring down what they gave.
        for (ASAtom key : kInheritable) {
            if (CosDictKnown(copy, key)) continue;
            CosObj inherited = PDPageGetInheritedAttr(src, key);
            if (!CosObjIsNull(inherited)) CosDictPut(copy, key, copier.Copy(inherited));
        }
        CosDictPut(copy, cosnames::Parent, parent);
        CosArrayInsert(kids, insertAt++, copy);
    }
    AdjustCounts(parent, static_cast<ASInt32>(srcPages.size()));
}

void PDRemovePageFromTree(CosObj page) {
    CosObj parent = CosDictGet(page, cosnames::Parent);
    if (CosObjGetType(parent) != kCosDict) ASRaiseErr(ErrSysPDDoc, kErrBadPage);
    CosObj kids = CosDictGet(parent, cosnames::Kids);
    ASInt32 idx = IndexInKids(kids, page);
    if (idx < 0) ASRaiseErr(ErrSysPDDoc, kErrBadPageTreeNode);
    CosArrayRemoveAt(kids, idx);
    AdjustCounts(parent, -1);
}
