#include "pipeline/PageResources.h"

#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "base/Log.h"
#include "content/ResourceUse.h"
#include "pdfcore/CosDoc.h"
#include "pdfcore/CosNames.h"

namespace pipeline {
namespace {

ASAtom K(const char* name) { return ASAtomFromString(name); }
const ASAtom K_Resources = K("Resources");
const ASAtom K_ProcSet = K("ProcSet");
const ASAtom K_Font = K("Font");
const ASAtom K_AcroForm = K("AcroForm");
const ASAtom K_DR = K("DR");
const ASAtom K_Subtype = K("Subtype");
const ASAtom K_Type3 = K("Type3");
const ASAtom K_Image = K("Image");
const ASAtom K_ColorSpace = K("ColorSpace");
const ASAtom K_XObject = K("XObject");
const ASAtom K_Shading = K("Shading");

// The categories cleaned, in this order.
const char* const kCategories[] = {"ExtGState", "Font", "Pattern", "ColorSpace", "Shading", "XObject"};
// Every category a doubtful dictionary keeps whole.
const char* const kAllCategories[] = {"ExtGState", "Font",    "Pattern",    "ColorSpace",
                                      "Shading",   "XObject", "Properties"};

bool IsDict(CosObj o) { return CosObjGetType(o) == kCosDict; }

bool IsDeviceSpace(const std::string& n) {
    return n == "DeviceGray" || n == "DeviceRGB" || n == "DeviceCMYK" || n == "Pattern";
}

// What one page needs: the names used per category dictionary object, the
// dictionaries that must stay whole, and whether anything could not be
// followed at all.
struct PageUses {
    std::map<CosObj, std::set<std::string>> names;
    std::set<CosObj> keep;
    bool unknown = false;
};

// Collects names like ResourceUseHandler, and more cautiously: every name
// operand of an operator that names resources counts, whatever the operand
// count (viewers read the last operands of an overfull operator), and a
// resource dictionary whose content cannot be read completely is marked.
class UseWalker : public ResourceUseHandler {
public:
    explicit UseWalker(Log* log) : ResourceUseHandler(log, true) {}

    void Report(Log::Channel channel, const char* text) override {
        std::string_view t(text);
        if (t.starts_with("Damaged content stream") || t.starts_with("Nested content stream"))
            Doubt(Resources());
        else if (t.starts_with("Content nested too deeply"))
            unknown = true;
        ResourceUseHandler::Report(channel, text);
    }

    // Nested streams are read leniently by the walk; a stream that does not
    // decode completely may hide names, so its dictionary is kept whole.
    void BeginStream() override {
        if (!m_active.empty() && !Decodes(m_active.back())) Doubt(Resources());
        ResourceUseHandler::BeginStream();
    }

    void SetDeviceDependentGraphicsState(OperandStack& s) override {
        RecordAll(s, "ExtGState");
        ResourceUseHandler::SetDeviceDependentGraphicsState(s);
    }
    void SetColorFillN(OperandStack& s) override {
        RecordAll(s, "Pattern");
        ResourceUseHandler::SetColorFillN(s);
    }
    void SetColorStrokeN(OperandStack& s) override {
        RecordAll(s, "Pattern");
        ResourceUseHandler::SetColorStrokeN(s);
    }
    void SetColorSpaceFill(OperandStack& s) override {
        RecordAll(s, "ColorSpace");
        ResourceUseHandler::SetColorSpaceFill(s);
    }
    void SetColorSpaceStroke(OperandStack& s) override {
        RecordAll(s, "ColorSpace");
        ResourceUseHandler::SetColorSpaceStroke(s);
    }
    void SetShadedFill(OperandStack& s) override {
        RecordAll(s, "Shading");
        ResourceUseHandler::SetShadedFill(s);
    }
    void SetTextFontAndSize(OperandStack& s) override {
        RecordAll(s, "Font");
        // A Type 3 font without resources of its own draws its glyphs with
        // those of whoever shows it; the walk follows each font's glyphs
        // only once, so such a user keeps its whole dictionary.
        for (const ContentToken& t : s) {
            if (!t.IsName()) continue;
            CosObj font = LookupResource(K_Font, t.text);
            if (IsDict(font) && CosDictGetName(font, K_Subtype) == K_Type3 && !IsDict(CosDictGet(font, K_Resources)))
                Doubt(Resources());
        }
        ResourceUseHandler::SetTextFontAndSize(s);
    }
    void ExecuteXObject(OperandStack& s) override {
        RecordAll(s, "XObject");
        // An overfull Do is drawn by viewers but not followed here.
        if (s.size() != 1) Doubt(Resources());
        for (const ContentToken& t : s) {
            if (!t.IsName()) continue;
            // Some writers name an image's colour space by a resource name;
            // viewers look it up in the resources of whoever draws it.
            CosObj x = LookupResource(K_XObject, t.text);
            if (CosObjGetType(x) != kCosStream || CosDictGetName(x, K_Subtype) != K_Image) continue;
            CosObj cs = CosDictGet(x, K_ColorSpace);
            if (CosObjGetType(cs) == kCosName) {
                std::string n = ASAtomGetString(CosNameValue(cs));
                if (!IsDeviceSpace(n)) Record("ColorSpace", n);
            }
        }
        ResourceUseHandler::ExecuteXObject(s);
    }
    void BeginMarkedContentProps(OperandStack& s) override {
        RecordAll(s, "Properties");
        ResourceUseHandler::BeginMarkedContentProps(s);
    }
    void MarkPointProps(OperandStack& s) override {
        RecordAll(s, "Properties");
        ResourceUseHandler::MarkPointProps(s);
    }

    // Doubtful resource dictionaries, and whether something was not followed.
    std::set<CosObj> doubtful;
    std::map<CosObj, ResourceNames> extra;
    bool unknown = false;

    void Doubt(CosObj resources) {
        // Content without a resource dictionary has nothing to lose.
        if (IsDict(resources)) doubtful.insert(resources);
    }

    bool Decodes(CosObj stream) {
        auto it = m_decodes.find(stream);
        if (it != m_decodes.end()) return it->second;
        bool ok = false;
        try {
            CosDecodeOptions opts;
            opts.strict = true;
            bool complete = false;
            (void)CosStreamDecodedData(stream, opts, &complete);
            ok = complete;
        } catch (const CVellumError&) {
        }
        m_decodes[stream] = ok;
        return ok;
    }

private:
    void Record(const char* category, const std::string& name) { extra[Resources()][category].insert(name); }
    void RecordAll(const OperandStack& s, const char* category) {
        for (const ContentToken& t : s)
            if (t.IsName()) Record(category, t.text);
    }
    std::unordered_map<CosObj, bool> m_decodes;
};

void AddNames(PageUses& uses, CosObj resources, const ResourceNames& names) {
    if (!IsDict(resources)) return;
    for (const auto& [category, set] : names) {
        CosObj dict = CosDictGet(resources, K(category.c_str()));
        if (!IsDict(dict)) continue;
        uses.names[dict].insert(set.begin(), set.end());
    }
}

// Colour spaces named by resources rather than by content: viewers look a
// colour space given by a name that is no colour space family (as the base
// of an Indexed space, the alternate of a Separation, the space of an image
// or shading) up in the same resources, so such names count as used.
void NoteSpaceNames(CosObj value, CosObj spaces, std::set<std::string>& found, int depth) {
    if (depth > 8) return;
    switch (CosObjGetType(value)) {
    case kCosName: {
        const std::string n = ASAtomGetString(CosNameValue(value));
        if (!IsDict(spaces) || !CosDictKnown(spaces, CosNameValue(value)) || !found.insert(n).second) return;
        NoteSpaceNames(CosDictGet(spaces, CosNameValue(value)), spaces, found, depth + 1);
        break;
    }
    case kCosArray:
        for (ASInt32 i = 0; i < CosArrayLength(value); ++i)
            NoteSpaceNames(CosArrayGet(value, i), spaces, found, depth + 1);
        break;
    case kCosDict:
    case kCosStream:
        NoteSpaceNames(CosDictGet(value, K_ColorSpace), spaces, found, depth + 1);
        NoteSpaceNames(CosDictGet(value, K_Shading), spaces, found, depth + 1);
        break;
    default:
        break;
    }
}

void AddIndirectColorSpaces(CosObj resources, ResourceNames& names) {
    if (!IsDict(resources)) return;
    CosObj spaces = CosDictGet(resources, K_ColorSpace);
    if (!IsDict(spaces)) return;
    std::set<std::string> found;
    for (const char* category : {"ColorSpace", "Shading", "Pattern", "XObject"}) {
        auto it = names.find(category);
        CosObj dict = CosDictGet(resources, K(category));
        if (it == names.end() || !IsDict(dict)) continue;
        for (const std::string& n : it->second) {
            const ASAtom key = ASAtomFind(n);
            if (key != ASAtomNull && CosDictKnown(dict, key)) NoteSpaceNames(CosDictGet(dict, key), spaces, found, 0);
        }
    }
    names["ColorSpace"].insert(found.begin(), found.end());
}

PageUses GatherPage(CosObj page, Log& log) {
    PageUses uses;
    CosObj resources = PDPageGetInheritedAttr(page, K_Resources);
    UseWalker w(&log);
    // The page's own streams are read leniently by the walk as well.
    CosObj contents = CosDictGet(page, cosnames::Contents);
    auto check = [&](CosObj s) {
        if (CosObjGetType(s) == kCosStream && !w.Decodes(s)) w.Doubt(resources);
    };
    if (CosObjGetType(contents) == kCosArray) {
        for (ASInt32 i = 0; i < CosArrayLength(contents); ++i) check(CosArrayGet(contents, i));
    } else {
        check(contents);
    }
    w.RunPage(page, true);
    std::map<CosObj, ResourceNames> all = w.All();
    for (const auto& [res, names] : w.extra)
        for (const auto& [category, set] : names) all[res][category].insert(set.begin(), set.end());
    for (auto& [res, names] : all) AddIndirectColorSpaces(res, names);
    for (const auto& [res, names] : all) AddNames(uses, res, names);
    for (CosObj res : w.doubtful) {
        uses.keep.insert(res);
        for (const char* c : kAllCategories) {
            CosObj dict = CosDictGet(res, K(c));
            if (IsDict(dict)) uses.keep.insert(dict);
        }
    }
    uses.unknown = w.unknown;
    return uses;
}

// The uses of every page of one document, as counts over pages, so that
// one page's uses can be replaced when it is gathered again.
class DocumentUses {
public:
    void Start(PDDoc doc, Log& log) {
        *this = DocumentUses();
        const ASInt32 n = PDDocGetNumPages(doc);
        m_pages.resize(size_t(n));
        for (ASInt32 i = 0; i < n; ++i) Set(i, GatherPage(PDDocGetPageObj(doc, i), log));
        KeepFormResources(doc);
        // Only a complete gathering belongs to the document; after a failure
        // the next page starts again.
        m_doc = doc;
    }

    void Refresh(ASInt32 index, CosObj page, Log& log) {
        if (index < 0 || size_t(index) >= m_pages.size()) return;
        Set(index, GatherPage(page, log));
    }

    bool Matches(PDDoc doc, ASInt32 index) const {
        return doc == m_doc && index > m_last && size_t(index) < m_pages.size();
    }
    void SetLast(ASInt32 index) { m_last = index; }

    bool Unknown() const { return m_unknown > 0; }
    bool Kept(CosObj dict) const {
        auto it = m_keep.find(dict);
        return (it != m_keep.end() && it->second > 0) || m_formKeep.count(dict);
    }
    bool Used(CosObj dict, const std::string& name) const {
        auto it = m_names.find(dict);
        if (it == m_names.end()) return false;
        auto jt = it->second.find(name);
        return jt != it->second.end() && jt->second > 0;
    }

private:
    void Set(ASInt32 index, PageUses uses) {
        Apply(m_pages[size_t(index)], -1);
        m_pages[size_t(index)] = std::move(uses);
        Apply(m_pages[size_t(index)], +1);
    }
    void Apply(const PageUses& u, int sign) {
        for (const auto& [dict, set] : u.names)
            for (const std::string& n : set) m_names[dict][n] += sign;
        for (CosObj d : u.keep) m_keep[d] += sign;
        if (u.unknown) m_unknown += sign;
    }
    // Field texts name fonts of the form's default resources.
    void KeepFormResources(PDDoc doc) {
        CosObj root = CosDocGetRoot(PDDocGetCosDoc(doc));
        if (!IsDict(root)) return;
        CosObj form = CosDictGet(root, K_AcroForm);
        if (!IsDict(form)) return;
        CosObj dr = CosDictGet(form, K_DR);
        if (!IsDict(dr)) return;
        m_formKeep.insert(dr);
        for (ASInt32 i = 0; i < CosDictCount(dr); ++i)
            if (IsDict(CosDictValueAt(dr, i))) m_formKeep.insert(CosDictValueAt(dr, i));
    }

    PDDoc m_doc = nullptr;
    ASInt32 m_last = -1;
    std::vector<PageUses> m_pages;
    std::map<CosObj, std::map<std::string, int>> m_names;
    std::map<CosObj, int> m_keep;
    std::set<CosObj> m_formKeep;
    int m_unknown = 0;
};

DocumentUses& Uses() {
    static DocumentUses uses;
    return uses;
}

}  // namespace

void CleanUpPageResources(CosObj page, RunContext& ctx) {
    ctx.log.Progress("\tCleaning up Page Resources...\n");
    CosObj resources = PDPageGetInheritedAttr(page, K_Resources);
    if (CosObjIsNull(resources)) return;
    if (!IsDict(resources)) {
        ctx.log.Warning("Page %d: Resources is not a dictionary; it is left as it is\n", int(ctx.pageNumber + 1));
        return;
    }
    DocumentUses& uses = Uses();
    // The loop starts over with each document; a call outside the loop
    // (no page number) gathers the whole document afresh.
    if (ctx.pageNumber < 0 || !uses.Matches(ctx.doc, ctx.pageNumber)) uses.Start(ctx.doc, ctx.log);
    if (ctx.pageNumber >= 0) {
        uses.Refresh(ctx.pageNumber, page, ctx.log);
        uses.SetLast(ctx.pageNumber);
    }

    if (!uses.Unknown() && !uses.Kept(resources)) {
        for (const char* category : kCategories) {
            const ASAtom key = K(category);
            CosObj dict = CosDictGet(resources, key);
            if (CosObjIsNull(dict)) continue;
            if (!IsDict(dict)) {
                ctx.log.Warning("Page %d: the %s resources are not a dictionary; they are left as they are\n",
                                int(ctx.pageNumber + 1), category);
                continue;
            }
            if (uses.Kept(dict)) continue;
            for (ASInt32 i = 0; i < CosDictCount(dict); ++i) {
                const ASAtom name = CosDictKeyAt(dict, i);
                if (uses.Used(dict, ASAtomGetString(name))) continue;
                CosDictRemove(dict, name);
                --i;
                if (key == K_Font) ctx.stats.Increment("Unreferenced_Fonts_Removed");
            }
            if (CosDictCount(dict) == 0) CosDictRemove(resources, key);
        }
    }
    // Procedure sets have meant nothing to viewers since PDF 1.4.
    if (CosDictKnown(resources, K_ProcSet)) CosDictRemove(resources, K_ProcSet);
}

}  // namespace pipeline
