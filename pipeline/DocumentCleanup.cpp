#include "pipeline/DocumentCleanup.h"

#include <functional>
#include <map>
#include <set>
#include <unordered_set>
#include <vector>

#include "base/Log.h"
#include "pdfcore/CosDoc.h"
#include "pdfcore/PDDoc.h"
#include "pipeline/DocumentCleanupTrees.h"
#include "pipeline/ObjectGraph.h"
#include "pipeline/StreamRecompress.h"
#include "settings/TrimoraPreferences.h"

namespace pipeline {
namespace {

ASAtom K(const char* name) { return ASAtomFromString(name); }
const ASAtom K_Metadata = K("Metadata");
const ASAtom K_JT = K("JT");
const ASAtom K_StructTreeRoot = K("StructTreeRoot");
const ASAtom K_MarkInfo = K("MarkInfo");
const ASAtom K_StructParent = K("StructParent");
const ASAtom K_StructParents = K("StructParents");
const ASAtom K_Outlines = K("Outlines");
const ASAtom K_Count = K("Count");
const ASAtom K_First = K("First");
const ASAtom K_Next = K("Next");
const ASAtom K_OCProperties = K("OCProperties");
const ASAtom K_OC = K("OC");
const ASAtom K_AcroForm = K("AcroForm");
const ASAtom K_Fields = K("Fields");
const ASAtom K_XFA = K("XFA");
const ASAtom K_Threads = K("Threads");
const ASAtom K_B = K("B");
const ASAtom K_Names = K("Names");
const ASAtom K_AP = K("AP");
const ASAtom K_Dests = K("Dests");
const ASAtom K_EmbeddedFiles = K("EmbeddedFiles");
const ASAtom K_Collection = K("Collection");
const ASAtom K_AlternatePresentations = K("AlternatePresentations");
const ASAtom K_Type = K("Type");
const ASAtom K_SlideShow = K("SlideShow");
const ASAtom K_Resources = K("Resources");
const ASAtom K_StartResource = K("StartResource");
const ASAtom K_EF = K("EF");
const ASAtom K_F = K("F");
const ASAtom K_UF = K("UF");
const ASAtom K_SpiderInfo = K("SpiderInfo");
const ASAtom K_IDS = K("IDS");
const ASAtom K_URLS = K("URLS");
const ASAtom K_PageLabels = K("PageLabels");
const ASAtom K_S = K("S");
const ASAtom K_D = K("D");
const ASAtom K_P = K("P");
const ASAtom K_St = K("St");
const ASAtom K_None = K("None");
const ASAtom K_Remove = K("Remove");
const ASAtom K_RemoveUnused = K("RemoveUnused");
const ASAtom K_Flatten = K("Flatten");

// Private catalog entries of other applications, made from their texts at
// run time since several are not valid names to spell in code.
constexpr const char* kPrivateCatalogKeys[] = {"FICL:Enfocus", "QITE_cache_2", "CSML:PProt",
                                               "CREO:PageletPreferences", "CAPT_Info"};

// Outline trees are walked no deeper than this.
constexpr int kMaxOutlineDepth = 64;

bool IsDict(CosObj o) { return CosObjGetType(o) == kCosDict; }
bool Present(CosObj dict, ASAtom key) {
    const CosType t = CosObjGetType(dict);
    return (t == kCosDict || t == kCosStream) && !CosObjIsNull(CosDictGet(dict, key));
}

// A choice word that asks for something: neither unset nor None.
bool Asks(ASAtom choice) { return choice != ASAtomNull && choice != K_None; }

// What every step works on.
class Cleanup {
public:
    explicit Cleanup(RunContext& ctx)
        : ctx(ctx), doc(PDDocGetCosDoc(ctx.doc)), catalog(CosDocGetRoot(doc)) {}

    bool HasCatalog() const { return IsDict(catalog); }

    // A catalog entry that must be a dictionary: null when absent, and
    // null with a warning when it is of another kind.
    CosObj CatalogDict(ASAtom key, bool warn = true) {
        if (!HasCatalog()) return CosNewNull();
        CosObj v = CosDictGet(catalog, key);
        if (CosObjIsNull(v) || IsDict(v)) return v;
        if (warn) Warn("The catalog's %s is not a dictionary: left as it is\n", ASAtomGetString(key));
        return CosNewNull();
    }

    // Removes `key` from `dict` when present; true when it did.
    static bool RemoveIfPresent(CosObj dict, ASAtom key) {
        if (!Present(dict, key)) return false;
        CosDictRemove(dict, key);
        return true;
    }

    template <typename... Args>
    void Warn(const char* format, Args... args) {
        ctx.log.Warning(format, args...);
    }

    // Every dictionary and stream the written file will hold: the
    // indirect objects and the direct dictionaries inside them.
    std::vector<CosObj> AllDictionaries() {
        std::vector<CosObj> out;
        for (CosObj obj : ReachableIndirectObjects(doc)) {
            const CosType t = CosObjGetType(obj);
            if (t == kCosDict || t == kCosStream) out.push_back(obj);
            ForEachDirectValue(obj, [&](CosObj v) {
                if (!CosObjIsIndirect(v) && IsDict(v)) out.push_back(v);
            });
        }
        return out;
    }

    // Removes the keys from every dictionary of the file; true when any went.
    bool RemoveEverywhere(std::initializer_list<ASAtom> keys, const std::function<bool(CosObj)>& only = {}) {
        bool removed = false;
        for (CosObj d : AllDictionaries())
            for (ASAtom key : keys)
                if (CosDictKnown(d, key) && (!only || only(CosDictGet(d, key)))) {
                    CosDictRemove(d, key);
                    removed = true;
                }
        return removed;
    }

    RunContext& ctx;
    CosDoc doc;
    CosObj catalog;
};

// ------------------------------------------------------------ the steps

void PrivateData(Cleanup& c) {
    c.ctx.log.Progress("\tCleaning up the Document...\n");
    // Always, unlike the pages' edit data: no reader uses these keys, and
    // the applications that wrote them rebuild them when they need them.
    if (!c.HasCatalog()) return;
    for (const char* key : kPrivateCatalogKeys)
        if (Cleanup::RemoveIfPresent(c.catalog, ASAtomFromString(key))) c.ctx.stats.Increment("EditData_Removed");
}

// The document's XMP packet, and those of pages, images, forms and fonts:
// a viewer shows none of them.
void Metadata(Cleanup& c) {
    if (!c.HasCatalog()) return;
    bool removed = Cleanup::RemoveIfPresent(c.catalog, K_Metadata);
    removed |= c.RemoveEverywhere({K_Metadata}, [](CosObj v) { return CosObjGetType(v) == kCosStream; });
    if (removed) c.ctx.stats.SetFlag("Metadata_Removed", true);
}

void JobTicket(Cleanup& c) {
    if (Cleanup::RemoveIfPresent(c.catalog, K_JT)) c.ctx.stats.Increment("JobTicket_Removed");
}

// The structure tree, and every reference into it: the pages' and forms'
// StructParents, the annotations' and images' StructParent, and the
// MarkInfo that would still claim the document is tagged.
void Tagging(Cleanup& c) {
    if (!c.HasCatalog()) return;
    if (Cleanup::RemoveIfPresent(c.catalog, K_StructTreeRoot)) c.ctx.stats.SetFlag("Tagging_Removed", true);
    Cleanup::RemoveIfPresent(c.catalog, K_MarkInfo);
    c.RemoveEverywhere({K_StructParent, K_StructParents});
}

// Follows First and Next through an outline that is kept, to warn about
// loops and damage that can hang or confuse a viewer.
void CheckOutlineTree(Cleanup& c, CosObj root) {
    std::unordered_set<CosObj> seen{root};
    std::string problem;
    std::function<void(CosObj, int)> items = [&](CosObj parent, int depth) {
        if (depth > kMaxOutlineDepth) {
            if (problem.empty()) problem = "the outline is nested too deeply";
            return;
        }
        for (CosObj item = CosDictGet(parent, K_First); !CosObjIsNull(item); item = CosDictGet(item, K_Next)) {
            if (!IsDict(item)) {
                if (problem.empty()) problem = "an item is not a dictionary";
                return;
            }
            if (!seen.insert(item).second) {
                if (problem.empty()) problem = "an item is reached twice (a loop)";
                return;
            }
            items(item, depth + 1);
        }
    };
    items(root, 0);
    if (!problem.empty()) c.Warn("Skipping part of the outline tree: %s\n", problem.c_str());
}

// The outline goes when the settings ask, or when its Count says no item
// is open, which is how the document's own producer marks an empty one.
void Outlines(Cleanup& c) {
    CosObj outlines = c.CatalogDict(K_Outlines);
    if (CosObjIsNull(outlines)) return;
    if (c.ctx.prefs.Optimize().removeOutlines) {
        CosDictRemove(c.catalog, K_Outlines);
        c.ctx.stats.SetFlag("OutlineTree_Removed", true);
        return;
    }
    CosObj count = CosDictGet(outlines, K_Count);
    const CosType t = CosObjGetType(count);
    const bool zero = (t == kCosInteger || t == kCosFixed) && CosDictGetNumber(outlines, K_Count, 1) == 0;
    if (CosObjIsNull(count) || zero) {
        CosDictRemove(c.catalog, K_Outlines);
        c.ctx.stats.SetFlag("EmptyOutline_Removed", true);
        return;
    }
    CheckOutlineTree(c, outlines);
}

// Without OCProperties no group is known, so readers show every piece of
// optional content; the OC entries of annotations and XObjects then name
// groups nobody lists and go too.  Marks in content (BDC /OC) stay: they
// read as visible content.
void OptionalContent(Cleanup& c) {
    if (!c.HasCatalog()) return;
    Cleanup::RemoveIfPresent(c.catalog, K_OCProperties);
    c.RemoveEverywhere({K_OC});
}

void InteractiveForm(Cleanup& c) { Cleanup::RemoveIfPresent(c.catalog, K_AcroForm); }

// Article threads, and the pages' bead lists that lead into them.
void Threads(Cleanup& c) {
    if (!c.HasCatalog() || !Cleanup::RemoveIfPresent(c.catalog, K_Threads)) return;
    for (ASInt32 i = 0; i < PDDocGetNumPages(c.ctx.doc); ++i) Cleanup::RemoveIfPresent(PDDocGetPageObj(c.ctx.doc, i), K_B);
}

void AppearanceNames(Cleanup& c) {
    CosObj names = c.CatalogDict(K_Names);
    if (Cleanup::RemoveIfPresent(names, K_AP)) c.ctx.stats.SetFlag("APNames_Removed", true);
}

// Named destinations: every use is pointed at the explicit destination
// first, then the names go.  A dictionary or tree that cannot be read
// completely stays, so no name that is still used loses its target.
void NamedDests(Cleanup& c) {
    if (!c.HasCatalog()) return;
    std::vector<std::string> problems;
    NamedDestinations dests(c.catalog, &problems);
    for (const std::string& p : problems) c.Warn("Skipping named destinations: %s\n", p.c_str());
    if (dests.Size() > 0 || Present(c.catalog, K_Dests)) {
        DestinationRewrite r = ReplaceNamedDestinations(c.doc, dests);
        c.ctx.log.Debug("Named destinations: %d uses made explicit, %d unknown names\n", int(r.replaced),
                        int(r.unresolved));
    }
    if (IsDict(CosDictGet(c.catalog, K_Dests))) CosDictRemove(c.catalog, K_Dests);
    CosObj names = c.CatalogDict(K_Names, false);
    if (!Present(names, K_Dests)) return;
    if (ReadTree(CosDictGet(names, K_Dests), TreeKind::Names).problem.empty()) CosDictRemove(names, K_Dests);
}

// True for an action that opens an embedded file: a go-to into an
// embedded document, or a launch whose file dictionary embeds the file.
bool OpensEmbeddedFile(CosObj action) {
    if (!IsDict(action)) return false;
    const ASAtom s = CosDictGetName(action, K("S"));
    if (s == K("GoToE")) return true;
    return s == K("Launch") && IsDict(CosDictGet(action, K("F"))) && Present(CosDictGet(action, K("F")), K_EF);
}

// Actions that would open an embedded file once the files are gone,
// wherever they stand: an entry (A, OpenAction, Next, an additional-actions
// entry) that holds one goes, and so does one in a Next array.  A link left
// with no action and no destination goes too.  Returns how many went.
int RemoveEmbeddedFileActions(Cleanup& c) {
    // Found first and removed afterwards, innermost first: removing an
    // entry destroys the direct dictionaries under it, which the list of
    // dictionaries holds too.
    struct Removal {
        CosObj container;  // a dictionary (key) or a Next array (index)
        ASAtom key;
        ASInt32 index;
    };
    std::vector<Removal> found;
    std::unordered_set<CosObj> emptied;  // annotations whose action goes
    auto look = [&](CosObj holder, ASAtom key) {
        CosObj value = CosDictGet(holder, key);
        if (OpensEmbeddedFile(value)) {
            found.push_back({holder, key, -1});
            if (key == K("A")) emptied.insert(holder);
        } else if (key == K("Next") && CosObjGetType(value) == kCosArray) {
            for (ASInt32 i = 0; i < CosArrayLength(value); ++i)
                if (OpensEmbeddedFile(CosArrayGet(value, i))) found.push_back({value, ASAtomNull, i});
        }
    };
    for (CosObj d : c.AllDictionaries()) {
        for (ASAtom key : {K("A"), K("OpenAction"), K("Next")}) look(d, key);
        CosObj aa = CosDictGet(d, K("AA"));
        if (IsDict(aa))
            for (ASInt32 i = 0; i < CosDictCount(aa); ++i) look(aa, CosDictKeyAt(aa, i));
    }
    for (auto it = found.rbegin(); it != found.rend(); ++it) {
        if (it->index >= 0)
            CosArrayRemoveAt(it->container, it->index);
        else
            CosDictRemove(it->container, it->key);
    }
    const int removed = int(found.size());
    if (emptied.empty()) return removed;
    for (ASInt32 p = 0; p < PDDocGetNumPages(c.ctx.doc); ++p) {
        CosObj annots = CosDictGet(PDDocGetPageObj(c.ctx.doc, p), K("Annots"));
        if (CosObjGetType(annots) != kCosArray) continue;
        for (ASInt32 i = CosArrayLength(annots) - 1; i >= 0; --i) {
            CosObj annot = CosArrayGet(annots, i);
            if (emptied.count(annot) && CosDictGetName(annot, K("Subtype")) == K("Link") && !Present(annot, K("Dest")))
                CosArrayRemoveAt(annots, i);
        }
    }
    return removed;
}

// The embedded files, the portfolio view that would only show them, and
// the actions that would open them.
void EmbeddedFiles(Cleanup& c) {
    const int actions = RemoveEmbeddedFileActions(c);
    if (actions > 0) c.ctx.stats.Increment("EmbeddedFiles_Removed", actions);
    CosObj names = c.CatalogDict(K_Names, false);
    if (!Cleanup::RemoveIfPresent(names, K_EmbeddedFiles)) return;
    c.ctx.stats.Increment("EmbeddedFiles_Removed");
    Cleanup::RemoveIfPresent(c.catalog, K_Collection);
}

// The stream a slide show's resource entry holds: the entry itself or the
// embedded file its file dictionary (EF) holds.
CosObj ResourceStream(CosObj value) {
    if (CosObjGetType(value) == kCosStream) return value;
    if (!IsDict(value)) return CosNewNull();
    CosObj ef = CosDictGet(value, K_EF);
    if (!IsDict(ef)) return CosNewNull();
    for (ASAtom key : {K_F, K_UF})
        if (CosObjGetType(CosDictGet(ef, key)) == kCosStream) return CosDictGet(ef, key);
    return CosNewNull();
}

// Slide shows: the SVG presentation and every resource it uses stored
// Flate-compressed when that is smaller.
void AlternatePresentations(Cleanup& c) {
    CosObj names = c.CatalogDict(K_Names, false);
    if (!Present(names, K_AlternatePresentations)) return;
    TreeContents shows = ReadTree(CosDictGet(names, K_AlternatePresentations), TreeKind::Names);
    if (!shows.problem.empty())
        c.Warn("Skipping part of the alternate presentations: %s\n", shows.problem.c_str());
    const int level = c.ctx.prefs.Optimize().flateLevel;
    for (const TreeEntry& show : shows.entries) {
        if (!IsDict(show.value) || CosDictGetName(show.value, K_Type) != K_SlideShow) continue;
        TreeContents res = ReadTree(CosDictGet(show.value, K_Resources), TreeKind::Names);
        CosObj start = CosDictGet(show.value, K_StartResource);
        CosObj svg = CosNewNull();
        for (const TreeEntry& e : res.entries)
            if (CosObjGetType(start) == kCosString && CosStringBytes(e.key) == CosStringBytes(start))
                svg = ResourceStream(e.value);
        if (CosObjIsNull(svg) || RecompressPlainStream(svg, level).outcome == RecompressOutcome::Undecodable) {
            c.ctx.log.Warning("Unabled to access the SVG presentation for the document\n");
            continue;
        }
        for (const TreeEntry& e : res.entries) {
            CosObj s = ResourceStream(e.value);
            if (!CosObjIsNull(s) && s != svg) RecompressPlainStream(s, level);
        }
        c.ctx.stats.SetFlag("PSDAlbum_Cleanup", true);
    }
}

// Web capture: the update information, and the two name trees that map
// its content identifiers and addresses, which only an update reads.
void SpiderInfo(Cleanup& c) {
    if (!Cleanup::RemoveIfPresent(c.catalog, K_SpiderInfo)) return;
    c.ctx.stats.SetFlag("SpiderInfo_Removed", true);
    CosObj names = c.CatalogDict(K_Names, false);
    Cleanup::RemoveIfPresent(names, K_IDS);
    Cleanup::RemoveIfPresent(names, K_URLS);
}

void PageLabels(Cleanup& c) {
    CosObj labels = c.CatalogDict(K_PageLabels);
    if (CosObjIsNull(labels)) return;
    const ASAtom how = c.ctx.prefs.Optimize().removePageLabels;
    if (how == K_RemoveUnused) {
        std::string problem;
        if (!PageLabelsArePlain(labels, PDDocGetNumPages(c.ctx.doc), &problem)) {
            if (!problem.empty()) c.Warn("Skipping the page labels: %s\n", problem.c_str());
            return;
        }
    }
    CosDictRemove(c.catalog, K_PageLabels);
    c.ctx.stats.SetFlag("PageLabels_Removed", true);
}

// A form without fields (and without an XFA form, which lives in the
// AcroForm too), name trees without entries, and a Names left empty.
void EmptyStructures(Cleanup& c) {
    CosObj form = c.CatalogDict(K_AcroForm, false);
    if (IsDict(form) && !Present(form, K_XFA)) {
        CosObj fields = CosDictGet(form, K_Fields);
        if (CosObjIsNull(fields) || (CosObjGetType(fields) == kCosArray && CosArrayLength(fields) == 0))
            CosDictRemove(c.catalog, K_AcroForm);
    }
    CosObj names = c.CatalogDict(K_Names, false);
    if (!IsDict(names)) return;
    for (ASInt32 i = CosDictCount(names) - 1; i >= 0; --i) {
        TreeContents t = ReadTree(CosDictValueAt(names, i), TreeKind::Names);
        if (t.entries.empty() && t.problem.empty()) CosDictRemove(names, CosDictKeyAt(names, i));
    }
    if (CosDictCount(names) == 0) CosDictRemove(c.catalog, K_Names);
}

// ------------------------------------------------------------ registration

class CleanupStep : public DocumentOperation {
public:
    using EnabledFn = std::function<bool(const OptimizeSettings&)>;
    CleanupStep(const char* name, EnabledFn enabled, void (*apply)(Cleanup&))
        : m_name(name), m_enabled(std::move(enabled)), m_apply(apply) {}
    const char* Name() const override { return m_name; }
    DocumentPoint Point() const override { return DocumentPoint::DocumentCleanup; }
    bool Enabled(const CTrimoraPreferences& prefs) const override { return m_enabled(prefs.Optimize()); }
    void Apply(RunContext& ctx) override {
        Cleanup c(ctx);
        m_apply(c);
    }

private:
    const char* m_name;
    EnabledFn m_enabled;
    void (*m_apply)(Cleanup&);
};

void AddSteps(OperationRegistry& r) {
    auto always = [](const OptimizeSettings&) { return true; };
    auto add = [&](const char* name, CleanupStep::EnabledFn enabled, void (*apply)(Cleanup&)) {
        r.Add(std::make_unique<CleanupStep>(name, std::move(enabled), apply));
    };
    add("private data clean-up", always, PrivateData);
    add("metadata removal", [](const OptimizeSettings& o) { return o.removeMetadata; }, Metadata);
    add("job ticket removal", [](const OptimizeSettings& o) { return o.removeJobTicket; }, JobTicket);
    add("tagging removal", [](const OptimizeSettings& o) { return o.removeTags; }, Tagging);
    add("outline clean-up", always, Outlines);
    add("optional content removal", [](const OptimizeSettings& o) { return o.removeOCGs; }, OptionalContent);
    add("form removal",
        [](const OptimizeSettings& o) {
            return o.acroformProcessing == K_Flatten || o.acroformProcessing == K_Remove;
        },
        InteractiveForm);
    add("thread removal", [](const OptimizeSettings& o) { return Asks(o.removeThreads); }, Threads);
    add("appearance name clean-up", always, AppearanceNames);
    add("named destination removal", [](const OptimizeSettings& o) { return Asks(o.removeNamedDests); },
        NamedDests);
    add("embedded file removal", [](const OptimizeSettings& o) { return o.removeEmbeddedFiles; }, EmbeddedFiles);
    add("alternate presentation clean-up", always, AlternatePresentations);
    add("web capture clean-up", always, SpiderInfo);
    add("page label removal",
        [](const OptimizeSettings& o) {
            return o.removePageLabels == K_Remove || o.removePageLabels == K_RemoveUnused;
        },
        PageLabels);
    add("empty structure removal", always, EmptyStructures);
}

}  // namespace

bool PageLabelsArePlain(CosObj pageLabels, ASInt32 pageCount, std::string* problem) {
    TreeContents t = ReadTree(pageLabels, TreeKind::Numbers);
    if (!t.problem.empty()) {
        if (problem) *problem = t.problem;
        return false;
    }
    // Ranges in page order (a damaged tree may list them out of order);
    // ranges that start past the last page label nothing.
    std::map<ASInt32, CosObj> ranges;
    for (const TreeEntry& e : t.entries) {
        const ASInt32 page = CosIntegerValue(e.key);
        if (page < 0 || page >= pageCount) continue;
        if (!ranges.emplace(page, e.value).second) return false;  // two ranges for one page
    }
    if (!ranges.empty() && ranges.begin()->first != 0) return false;
    for (const auto& [page, range] : ranges) {
        if (!IsDict(range) || CosDictGetName(range, K_S) != K_D) return false;
        CosObj prefix = CosDictGet(range, K_P);
        if (!CosObjIsNull(prefix) && !(CosObjGetType(prefix) == kCosString && CosStringBytes(prefix).empty()))
            return false;
        CosObj st = CosDictGet(range, K_St);
        const ASInt32 startNumber =
            CosObjIsNull(st) ? 1 : (CosObjGetType(st) == kCosInteger ? CosIntegerValue(st) : -1);
        if (startNumber != page + 1) return false;
    }
    return true;
}

void RegisterDocumentCleanupOperations(OperationRegistry& registry) { AddSteps(registry); }

int CleanUpDocument(RunContext& ctx) {
    OperationRegistry r;
    AddSteps(r);
    return RunDocumentOperations(r.DocumentOperations(DocumentPoint::DocumentCleanup, ctx.prefs), ctx);
}

}  // namespace pipeline
