// The page tree: walking it into a page list, inherited attributes, and
// inserting and removing pages.
#include "pdfcore/PDPageTree.h"

#include <algorithm>
#include <string>
#include <unordered_set>

#include "pdfcore/CosCopy.h"
#include "pdfcore/CosInternal.h"
#include "pdfcore/CosNames.h"
#include "pdfcore/CosRepair.h"
#include "pdfcore/CosWarn.h"

namespace {

// Name trees are looked up recursively; no producer nests them this deep.
constexpr int kMaxNameTreeDepth = 128;

[[noreturn]] void RaiseBadPagesRoot() { ASRaiseErr(ErrSysPDDoc, kErrBadPagesTree); }

bool IsPageNode(CosObj node) {
    ASAtom type = CosDictGetName(node, cosnames::Type);
    if (type == cosnames::Page) return true;
    if (type == cosnames::Pages) return false;
    // Damaged files leave Type out; a node without Kids is a page.
    return CosObjGetType(CosDictGet(node, cosnames::Kids)) != kCosArray;
}

bool IsTreeNode(CosObj obj) { return CosObjGetType(obj) == kCosDict && !IsPageNode(obj); }

// Walks a Parent chain: calls `visit` on `node` and each ancestor until it
// returns true or the chain ends.  The chain may be as long as the tree is
// deep (no fixed limit), and a chain that loops ends where it meets itself.
template <class Visit>
void ForEachAncestor(CosObj node, Visit visit) {
    std::unordered_set<CosObj> seen;
    for (size_t steps = 0; CosObjGetType(node) == kCosDict; ++steps) {
        // Short chains (all real ones) are checked without the set.
        if (steps >= 64 && !seen.insert(node).second) return;
        if (visit(node)) return;
        node = CosDictGet(node, cosnames::Parent);
    }
}

void AdjustCounts(CosObj node, ASInt32 delta) {
    ForEachAncestor(node, [delta](CosObj n) {
        // Count comes from the file: add in 64 bits and keep it in range
        // rather than overflow a 32-bit value.
        int64_t v = int64_t(CosDictGetInt(n, cosnames::Count, 0)) + delta;
        CosDictPutInteger(n, cosnames::Count, static_cast<ASInt32>(std::clamp<int64_t>(v, 0, INT32_MAX)));
        return false;
    });
}

// What a page-tree walk had to mend, reported once per kind.
struct TreeRepairs {
    int duplicates = 0;
    int loops = 0;
    int badKids = 0;
    int parents = 0;
    int counts = 0;
    int direct = 0;

    void Report() const {
        auto n = [](int count, const char* one, const char* many) {
            return std::to_string(count) + " " + (count == 1 ? one : many);
        };
        if (duplicates)
            CosWarn("the page tree lists %s more than once; each further listing is kept as a copy",
                    n(duplicates, "page object", "page objects").c_str());
        if (loops) CosWarn("the page tree loops back on itself (%s); the loops are cut", n(loops, "time", "times").c_str());
        if (badKids)
            CosWarn("the page tree holds %s that are not pages; they are dropped",
                    n(badKids, "entry", "entries").c_str());
        if (parents)
            CosWarn("%s of the page tree name the wrong Parent; it is corrected",
                    n(parents, "node", "nodes").c_str());
        if (direct)
            CosWarn("the page tree holds %s written in place; each is made an object of its own",
                    n(direct, "node", "nodes").c_str());
        if (counts)
            CosWarn("%s of the page tree give a wrong page Count; it is corrected", n(counts, "node", "nodes").c_str());
    }
};

const ASAtom kInheritable[] = {cosnames::Resources, cosnames::MediaBox, cosnames::CropBox, cosnames::Rotate};

// A new indirect object with the entries of `node`.  Values that are
// references stay references (the copy shares content, fonts, images); direct
// values are copied, and a Kids array becomes a new array of the same
// references, so mending the copy's Kids leaves the original alone.
CosObj ShallowCopyNode(CosObj node) {
    CosDoc doc = CosObjGetDoc(node);
    CosObj copy = CosNewDict(doc, true, CosDictCount(node));
    for (ASInt32 i = 0, n = CosDictCount(node); i < n; ++i) {
        ASAtom key = CosDictKeyAt(node, i);
        CosObj raw = CosDictValueAtRaw(node, i);
        CosObj value = CosResolve(raw);
        if (key == cosnames::Kids && CosObjGetType(value) == kCosArray) {
            CosObj kids = CosNewArray(doc, false, CosArrayLength(value));
            for (ASInt32 k = 0, m = CosArrayLength(value); k < m; ++k) {
                CosObj kid = CosResolve(CosArrayGetRaw(value, k));
                CosArrayAppend(kids, CosObjIsIndirect(kid) ? kid : CosNewNull());
            }
            CosDictPut(copy, key, kids);
        } else if (CosObjIsIndirect(value)) {
            CosDictPut(copy, key, value);
        } else if (!CosObjIsNull(value)) {
            CosDictPut(copy, key, CosObjCopy(value, doc, false));
        }
    }
    return copy;
}

// Gives `kid` the Parent `parent`.  Attributes the kid inherited through
// its old Parent and would not inherit through the new one are set on the
// kid itself, so that the page looks the same whichever chain a reader
// follows.
void FixParent(CosObj kid, CosObj parent) {
    CosObj old = CosDictGet(kid, cosnames::Parent);
    if (CosObjGetType(old) == kCosDict) {
        for (ASAtom key : kInheritable) {
            if (CosDictKnown(kid, key)) continue;
            CosObj was = PDPageGetInheritedAttr(old, key);
            if (CosObjIsNull(was) || !CosObjIsNull(PDPageGetInheritedAttr(parent, key))) continue;
            CosDictPut(kid, key, CosObjIsIndirect(was) ? was : CosObjCopy(was, CosObjGetDoc(kid), false));
        }
    }
    CosDictPut(kid, cosnames::Parent, parent);
}

// The pages under `root` in document order, mending the tree on the way the
// way robust readers read it: a node met again inside its own subtree (a
// loop) is cut; a page or node listed a second time elsewhere is replaced
// by a copy, so both listings keep their page; entries that are not
// dictionaries are dropped; a wrong Parent or Count is corrected.  The walk
// keeps its own stack, so deep trees need no recursion.
std::vector<CosObj> WalkTree(CosObj root, TreeRepairs& rep) {
    struct Frame {
        CosObj node;
        CosObj kids;
        ASInt32 next;
        ASInt32 pages;
    };
    std::vector<CosObj> out;
    std::unordered_set<CosObj> onPath;  // the nodes from the root down to the current one
    std::unordered_set<CosObj> seen;    // every indirect node and page met so far
    std::vector<Frame> stack;
    CosDoc doc = CosObjGetDoc(root);

    auto enter = [&](CosObj node) {
        CosObj kids = CosDictGet(node, cosnames::Kids);
        if (CosObjGetType(kids) == kCosDict) {
            // A single kid written without its array.  One written in place
            // belongs to `node` already: the array takes a copy of it, and
            // the original goes when the array replaces it.
            CosObj kid = CosObjIsIndirect(kids) ? kids : CosObjCopy(kids, doc, false);
            CosObj wrapped = CosNewArray(doc, false, 1);
            CosArrayAppend(wrapped, kid);
            CosDictPut(node, cosnames::Kids, wrapped);
            kids = wrapped;
            ++rep.badKids;
        }
        if (CosObjGetType(kids) != kCosArray) kids = CosNewNull();
        onPath.insert(node);
        seen.insert(node);
        stack.push_back(Frame{node, kids, 0, 0});
    };
    enter(root);
    while (!stack.empty()) {
        Frame& f = stack.back();
        if (CosObjIsNull(f.kids) || f.next >= CosArrayLength(f.kids)) {
            if (CosDictGetInt(f.node, cosnames::Count, -1) != f.pages) {
                CosDictPutInteger(f.node, cosnames::Count, f.pages);
                ++rep.counts;
            }
            const ASInt32 pages = f.pages;
            onPath.erase(f.node);
            stack.pop_back();
            if (!stack.empty()) stack.back().pages += pages;
            continue;
        }
        const ASInt32 i = f.next++;
        CosObj kid = CosArrayGet(f.kids, i);
        const CosType t = CosObjGetType(kid);
        if (t != kCosDict || onPath.count(kid)) {
            // Not a node at all (a missing or unreadable object, in damaged
            // files), or a node that contains itself: drop the entry, so the
            // tree written later holds only nodes.
            if (t == kCosDict) ++rep.loops;
            else ++rep.badKids;
            CosArrayRemoveAt(f.kids, i);
            --f.next;
            continue;
        }
        if (!CosObjIsIndirect(kid)) {
            // A node written in place: Parent entries could not refer to it.
            kid = ShallowCopyNode(kid);
            CosArrayPut(f.kids, i, kid);
            FixParent(kid, f.node);
            ++rep.direct;
        } else if (seen.count(kid)) {
            kid = ShallowCopyNode(kid);
            CosArrayPut(f.kids, i, kid);
            FixParent(kid, f.node);
            ++rep.duplicates;
        } else if (CosDictGet(kid, cosnames::Parent) != f.node) {
            // The root's own Parent is not looked at; every other node's must
            // name the node that lists it.
            FixParent(kid, f.node);
            ++rep.parents;
        }
        if (IsPageNode(kid)) {
            seen.insert(kid);
            out.push_back(kid);
            ++f.pages;
            continue;
        }
        enter(kid);  // invalidates `f`
    }
    return out;
}

// The root of the page tree, mended when the catalog does not lead to one:
// a catalog whose Pages is a page is given a root above it; a missing or
// unusable Pages (or a Root that is not the catalog) is looked for among all
// objects.  Raises only when no page tree can be found at all.
CosObj PagesRoot(CosDoc doc) {
    CosObj trailer = CosDocGetTrailer(doc);
    CosObj root = CosDocGetRoot(doc);
    if (CosObjGetType(root) != kCosDict) ASRaiseErr(ErrSysPDDoc, kErrBadRoot);
    CosObj pages = CosDictGet(root, cosnames::Pages);
    if (IsTreeNode(pages)) return pages;
    if (CosObjGetType(pages) == kCosDict) {
        // The catalog names a single page: put a root above it.
        CosObj node = CosNewDict(doc, true, 3);
        CosDictPutName(node, cosnames::Type, false, cosnames::Pages);
        CosObj kids = CosNewArray(doc, false, 1);
        CosArrayAppend(kids, pages);
        CosDictPut(node, cosnames::Kids, kids);
        CosDictPutInteger(node, cosnames::Count, 1);
        CosDictPut(root, cosnames::Pages, node);
        CosWarn("the catalog names a page instead of the page tree; a page tree is put above it");
        return node;
    }
    CosObj found = CosFindPageTreeRoot(doc, root);
    if (CosObjIsNull(found)) RaiseBadPagesRoot();
    if (CosDictGetName(found, cosnames::Type) == cosnames::Catalog) {
        CosDictPut(trailer, cosnames::Root, found);
        CosWarn("the document's Root is not its catalog; the catalog found by scanning the file is used");
        return CosDictGet(found, cosnames::Pages);
    }
    CosDictPut(root, cosnames::Pages, found);
    CosWarn("the catalog does not lead to the page tree; the page tree found by scanning the file is used");
    return found;
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
    if (depth > kMaxNameTreeDepth || CosObjGetType(node) != kCosDict) return CosNewNull();
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
    if (!CosObjIsIndirect(pages)) {
        // Kids and Parent entries must be able to refer to the root.
        CosObj node = ShallowCopyNode(pages);
        CosDictPut(CosDocGetRoot(doc), cosnames::Pages, node);
        pages = node;
    }
    TreeRepairs rep;
    std::vector<CosObj> out = WalkTree(pages, rep);
    rep.Report();
    if (out.empty() && (rep.badKids || rep.loops)) {
        // The mended tree leads to no page: a document without pages is no
        // result, so the pages are looked for among all objects (as other
        // readers do), and the file is refused when there are none.
        std::vector<CosObj> lost;
        for (ASInt32 id = CosDocNextObjID(doc, 0); id < CosDocGetObjTableSize(doc); id = CosDocNextObjID(doc, id)) {
            CosObj obj = CosDocGetObjByID(doc, id);
            if (CosObjGetType(obj) == kCosDict && CosDictGetName(obj, cosnames::Type) == cosnames::Page)
                lost.push_back(obj);
        }
        if (lost.empty()) RaiseBadPagesRoot();
        CosObj kids = CosNewArray(doc, false, static_cast<ASInt32>(lost.size()));
        for (CosObj page : lost) {
            CosArrayAppend(kids, page);
            CosDictPut(page, cosnames::Parent, pages);
        }
        CosDictPut(pages, cosnames::Kids, kids);
        CosDictPutInteger(pages, cosnames::Count, static_cast<ASInt32>(lost.size()));
        CosWarn("the page tree leads to no page; the %s found by scanning the file %s kept",
                lost.size() == 1 ? "page object" : (std::to_string(lost.size()) + " page objects").c_str(),
                lost.size() == 1 ? "is" : "are");
        TreeRepairs again;
        out = WalkTree(pages, again);
    }
    return out;
}

CosObj PDPageGetInheritedAttr(CosObj pageDict, ASAtom key) {
    CosObj found = CosNewNull();
    ForEachAncestor(pageDict, [&](CosObj node) {
        found = CosDictGet(node, key);
        return !CosObjIsNull(found);
    });
    return found;
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
