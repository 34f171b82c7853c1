#include "pipeline/ObjectDuplicates.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "base/Log.h"
#include "pdfcore/CosDoc.h"
#include "pipeline/ObjectGraph.h"
#include "settings/TrimoraPreferences.h"

namespace pipeline {
namespace {

ASAtom K(const char* name) { return ASAtomFromString(name); }

// A merge can only make the objects one level up equal, so the rounds
// needed are the depth of the repeated structure (program, descriptor,
// font, resources, form...).  The cap only guards against the unexpected.
constexpr int kMaxRounds = 64;

bool HasType(CosObj o, std::initializer_list<const char*> types) {
    const ASAtom t = CosDictGetName(o, K("Type"));
    if (t == ASAtomNull) return false;
    for (const char* n : types)
        if (t == K(n)) return true;
    return false;
}

}  // namespace

bool CarriesIdentity(CosObj o) {
    const CosType type = CosObjGetType(o);
    if (type != kCosDict && type != kCosStream) return false;
    if (HasType(o, {"Catalog", "Pages", "Page", "Annot", "StructTreeRoot", "StructElem", "OBJR", "MCR",
                    "Outlines", "OCG", "OCMD", "Sig", "Thread", "Bead", "Encrypt", "Template"}))
        return true;
    // Without a Type: tree nodes point at their parents and siblings
    // (fields, outline items, structure elements, annotations' P), fields
    // have a type or a name, annotations a subtype and a rectangle.
    for (const char* key : {"Parent", "P", "Prev", "Next", "First", "Last", "Kids", "StructParent",
                            "StructParents", "FT", "T"})
        if (CosDictKnown(o, K(key))) return true;
    if (type == kCosDict && CosDictKnown(o, K("Subtype")) && CosDictKnown(o, K("Rect"))) return true;
    return false;
}

ObjectMergeResult MergeDuplicateObjects(CosDoc doc) {
    ObjectMergeResult result;
    std::vector<CosObj> objects = ReachableIndirectObjects(doc);

    std::unordered_set<CosObj> fixed;
    ForEachDirectValue(CosDocGetTrailer(doc), [&](CosObj v) {
        if (CosObjIsIndirect(v)) fixed.insert(v);
    });
    for (CosObj o : objects) {
        if (CarriesIdentity(o)) fixed.insert(o);
        // Whatever an Annots array lists is an annotation, typed or not.
        CosObj annots = CosObjGetType(o) == kCosDict ? CosDictGet(o, K("Annots")) : CosNewNull();
        if (CosObjGetType(annots) == kCosArray)
            for (ASInt32 i = 0; i < CosArrayLength(annots); ++i) {
                CosObj a = CosArrayGet(annots, i);
                if (CosObjIsIndirect(a)) fixed.insert(a);
            }
    }

    std::unordered_map<CosObj, CosObj> mergedInto;
    auto find = [&](CosObj o) {
        for (auto it = mergedInto.find(o); it != mergedInto.end(); it = mergedInto.find(o)) o = it->second;
        return o;
    };
    auto refName = [&](CosObj v) { return std::to_string(CosObjGetID(find(v))); };

    for (int round = 1; round <= kMaxRounds; ++round) {
        result.rounds = round;
        size_t mergedThisRound = 0;
        std::unordered_map<std::string, std::vector<CosObj>> groups;
        groups.reserve(objects.size());
        std::string text;
        for (CosObj o : objects) {
            if (fixed.count(o) || mergedInto.count(o)) continue;
            text.clear();
            if (!AppendCanonical(text, o, refName)) continue;
            std::vector<CosObj>& group = groups[text];
            CosObj same = nullptr;
            if (CosObjGetType(o) == kCosStream) {
                std::span<const uint8_t> data = CosStreamEncodedData(o);
                for (CosObj g : group) {
                    std::span<const uint8_t> other = CosStreamEncodedData(g);
                    if (other.size() == data.size() && std::equal(data.begin(), data.end(), other.begin())) {
                        same = g;
                        break;
                    }
                }
            } else if (!group.empty()) {
                same = group.front();
            }
            if (same) {
                mergedInto[o] = same;
                ++mergedThisRound;
            } else {
                group.push_back(o);
            }
        }
        result.merged += mergedThisRound;
        if (mergedThisRound == 0) break;
    }

    if (result.merged > 0) {
        std::unordered_map<CosObj, CosObj> redirect;
        for (const auto& [from, to] : mergedInto) redirect[from] = find(to);
        RedirectReferences(doc, objects, redirect);
    }
    return result;
}

namespace {

class ObjectDuplicatesOperation : public DocumentOperation {
public:
    const char* Name() const override { return "duplicate object merging"; }
    DocumentPoint Point() const override { return DocumentPoint::PostLayout; }
    bool Enabled(const CTrimoraPreferences& prefs) const override { return prefs.Optimize().dupObjectCheck; }
    void Apply(RunContext& ctx) override {
        ctx.log.Progress("\tMerging Duplicate Objects...\n");
        ObjectMergeResult r = MergeDuplicateObjects(PDDocGetCosDoc(ctx.doc));
        ctx.log.Debug("Merged %zu duplicate objects in %d rounds\n", r.merged, r.rounds);
    }
};

}  // namespace

void RegisterObjectDuplicateOperations(OperationRegistry& registry) {
    registry.Add(std::make_unique<ObjectDuplicatesOperation>());
}

}  // namespace pipeline
