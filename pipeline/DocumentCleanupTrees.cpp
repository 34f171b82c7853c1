#include "pipeline/DocumentCleanupTrees.h"

#include "pdfcore/CosDoc.h"
#include "pipeline/ObjectGraph.h"

namespace pipeline {
namespace {

const ASAtom K_Kids = ASAtomFromString("Kids");
const ASAtom K_Names = ASAtomFromString("Names");
const ASAtom K_Nums = ASAtomFromString("Nums");
const ASAtom K_Dests = ASAtomFromString("Dests");
const ASAtom K_Dest = ASAtomFromString("Dest");
const ASAtom K_D = ASAtomFromString("D");
const ASAtom K_S = ASAtomFromString("S");
const ASAtom K_GoTo = ASAtomFromString("GoTo");
const ASAtom K_OpenAction = ASAtomFromString("OpenAction");

bool IsDict(CosObj o) { return CosObjGetType(o) == kCosDict; }

class TreeReader {
public:
    TreeReader(TreeKind kind, TreeContents& out) : m_kind(kind), m_out(out) {}

    void Node(CosObj node, int depth) {
        if (!IsDict(node)) {
            Problem("a node is not a dictionary");
            return;
        }
        if (depth > kMaxTreeDepth) {
            Problem("the tree is nested too deeply");
            return;
        }
        if (!m_out.nodes.insert(node).second) {
            Problem("a node is reached twice (a loop)");
            return;
        }
        CosObj kids = CosDictGet(node, K_Kids);
        if (CosObjGetType(kids) == kCosArray) {
            for (ASInt32 i = 0; i < CosArrayLength(kids); ++i) Node(CosArrayGet(kids, i), depth + 1);
        } else if (!CosObjIsNull(kids)) {
            Problem("Kids is not an array");
        }
        const ASAtom leafKey = m_kind == TreeKind::Names ? K_Names : K_Nums;
        CosObj leaf = CosDictGet(node, leafKey);
        if (CosObjIsNull(leaf)) return;
        if (CosObjGetType(leaf) != kCosArray) {
            Problem(m_kind == TreeKind::Names ? "Names is not an array" : "Nums is not an array");
            return;
        }
        const ASInt32 n = CosArrayLength(leaf);
        if (n % 2 != 0) Problem("a key has no value");
        const CosType keyType = m_kind == TreeKind::Names ? kCosString : kCosInteger;
        for (ASInt32 i = 0; i + 1 < n; i += 2) {
            CosObj key = CosArrayGet(leaf, i);
            if (CosObjGetType(key) != keyType) {
                Problem("a key is of the wrong kind");
                continue;
            }
            m_out.entries.push_back({key, CosArrayGet(leaf, i + 1)});
        }
    }

private:
    void Problem(const char* what) {
        if (m_out.problem.empty()) m_out.problem = what;
    }
    TreeKind m_kind;
    TreeContents& m_out;
};

// The explicit destination in a named destination's value.
CosObj ExplicitDestination(CosObj value) {
    if (CosObjGetType(value) == kCosArray) return value;
    if (IsDict(value) && CosObjGetType(CosDictGet(value, K_D)) == kCosArray) return CosDictGet(value, K_D);
    return CosNewNull();
}

bool IsNameOrString(CosObj o) {
    const CosType t = CosObjGetType(o);
    return t == kCosName || t == kCosString;
}

// A destination array placed in a new spot: a direct array can live in one
// container only, so it is copied (the page references inside stay
// references); an indirect one is simply referred to again.
CosObj Placeable(CosObj dest, CosDoc doc) {
    return CosObjIsIndirect(dest) ? dest : CosObjCopy(dest, doc, false);
}

}  // namespace

TreeContents ReadTree(CosObj root, TreeKind kind) {
    TreeContents out;
    TreeReader(kind, out).Node(root, 0);
    return out;
}

NamedDestinations::NamedDestinations(CosObj catalog, std::vector<std::string>* problems) {
    if (!IsDict(catalog)) return;
    CosObj dict = CosDictGet(catalog, K_Dests);
    if (IsDict(dict)) {
        m_containers.insert(dict);
        for (ASInt32 i = 0; i < CosDictCount(dict); ++i)
            m_byNameKey[ASAtomGetString(CosDictKeyAt(dict, i))] = CosDictValueAt(dict, i);
    } else if (!CosObjIsNull(dict) && problems) {
        problems->push_back("the catalog's Dests is not a dictionary");
    }
    CosObj names = CosDictGet(catalog, K_Names);
    CosObj tree = IsDict(names) ? CosDictGet(names, K_Dests) : CosNewNull();
    if (!CosObjIsNull(tree)) {
        TreeContents t = ReadTree(tree, TreeKind::Names);
        if (!t.problem.empty() && problems) problems->push_back("the Dests name tree: " + t.problem);
        m_containers.insert(t.nodes.begin(), t.nodes.end());
        for (const TreeEntry& e : t.entries) m_byText.emplace(CosStringBytes(e.key), e.value);
    }
}

CosObj NamedDestinations::Resolve(CosObj nameOrString) const {
    const bool isName = CosObjGetType(nameOrString) == kCosName;
    if (!isName && CosObjGetType(nameOrString) != kCosString) return CosNewNull();
    const std::string text = isName ? ASAtomGetString(CosNameValue(nameOrString)) : CosStringBytes(nameOrString);
    const std::map<std::string, CosObj>& first = isName ? m_byNameKey : m_byText;
    const std::map<std::string, CosObj>& second = isName ? m_byText : m_byNameKey;
    for (const auto* m : {&first, &second}) {
        auto it = m->find(text);
        if (it == m->end()) continue;
        CosObj dest = ExplicitDestination(it->second);
        if (!CosObjIsNull(dest)) return dest;
    }
    return CosNewNull();
}

DestinationRewrite ReplaceNamedDestinations(CosDoc doc, const NamedDestinations& dests) {
    DestinationRewrite result;
    // The dictionaries first, changed after: the walk must not see its
    // containers change under it.
    std::vector<CosObj> dicts;
    for (CosObj obj : ReachableIndirectObjects(doc)) {
        if (dests.Containers().count(obj)) continue;
        if (IsDict(obj)) dicts.push_back(obj);
        ForEachDirectValue(obj, [&](CosObj v) {
            if (IsDict(v) && !CosObjIsIndirect(v)) dicts.push_back(v);
        });
    }
    auto replace = [&](CosObj dict, ASAtom key) {
        CosObj value = CosDictGet(dict, key);
        if (!IsNameOrString(value)) return;
        CosObj dest = dests.Resolve(value);
        if (CosObjIsNull(dest)) {
            ++result.unresolved;
            return;
        }
        CosDictPut(dict, key, Placeable(dest, doc));
        ++result.replaced;
    };
    for (CosObj d : dicts) {
        replace(d, K_Dest);
        if (CosDictGetName(d, K_S) == K_GoTo) replace(d, K_D);
    }
    // An open action should be an array or an action, but a bare name is
    // met in the wild and viewers follow it.
    CosObj catalog = CosDocGetRoot(doc);
    if (IsDict(catalog)) replace(catalog, K_OpenAction);
    return result;
}

}  // namespace pipeline
