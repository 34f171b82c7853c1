#include "pipeline/FormXObjectFlatten.h"

#include <algorithm>
#include <map>
#include <tuple>

#include "base/Log.h"
#include "content/ContentParser.h"
#include "content/PageAppend.h"
#include "content/ResourceUse.h"
#include "pdfcore/CosNames.h"
#include "pdfcore/PDDoc.h"
#include "settings/TrimoraPreferences.h"

namespace pipeline {

namespace {

ASAtom K(const char* s) { return ASAtomFromString(s); }

const ASAtom K_XObject = K("XObject");
const ASAtom K_Font = K("Font");
const ASAtom K_ExtGState = K("ExtGState");
const ASAtom K_ColorSpace = K("ColorSpace");
const ASAtom K_Pattern = K("Pattern");
const ASAtom K_Shading = K("Shading");
const ASAtom K_Properties = K("Properties");
const ASAtom K_Subtype = K("Subtype");
const ASAtom K_Form = K("Form");
const ASAtom K_Group = K("Group");
const ASAtom K_OC = K("OC");
const ASAtom K_StructParent = K("StructParent");
const ASAtom K_StructParents = K("StructParents");
const ASAtom K_Matrix = K("Matrix");

bool HasDefaultSpaces(CosObj resources) {
    if (CosObjGetType(resources) != kCosDict) return false;
    CosObj cs = CosDictGet(resources, K_ColorSpace);
    if (CosObjGetType(cs) != kCosDict) return false;
    for (const char* n : {"DefaultGray", "DefaultRGB", "DefaultCMYK"})
        if (CosDictKnown(cs, K(n))) return true;
    return false;
}

bool NonEmptyCategory(CosObj resources, ASAtom category) {
    if (CosObjGetType(resources) != kCosDict) return false;
    CosObj c = CosDictGet(resources, category);
    return CosObjGetType(c) == kCosDict && CosDictCount(c) > 0;
}

// A Type 3 font without resources of its own draws its glyphs with the
// resources of the stream that shows them: the form's names, which
// flattening may rename.
bool HasType3WithoutResources(CosObj resources) {
    if (CosObjGetType(resources) != kCosDict) return false;
    CosObj fonts = CosDictGet(resources, K_Font);
    if (CosObjGetType(fonts) != kCosDict) return false;
    static const ASAtom kType3 = ASAtomFromString("Type3");
    for (ASInt32 i = 0; i < CosDictCount(fonts); ++i) {
        CosObj f = CosDictValueAt(fonts, i);
        if (CosObjGetType(f) == kCosDict && CosDictGetName(f, K_Subtype) == kType3 &&
            CosObjGetType(CosDictGet(f, cosnames::Resources)) != kCosDict)
            return true;
    }
    return false;
}

bool IsDeviceSpace(const std::string& n) {
    return n == "DeviceGray" || n == "DeviceRGB" || n == "DeviceCMYK" || n == "Pattern" || n == "G" ||
           n == "RGB" || n == "CMYK" || n == "I" || n == "Indexed";
}

// Rewrites a page's content, drawing flattenable forms in place of their
// Do and renaming the resource names that the forms' content uses to the
// names their resources get in the page's resources.
class FlattenHandler : public ContentHandler {
public:
    FlattenHandler(CosObj page, Log* log, size_t maxContent)
        : ContentHandler(log), m_page(page), m_maxContent(maxContent) {
        m_pageRes = PDPageGetInheritedAttr(page, cosnames::Resources);
        m_defaultsOnPage = HasDefaultSpaces(m_pageRes);
        SetResources(m_pageRes);
    }

    int Flattened() const { return m_flattened; }
    const std::set<std::string>& FlattenedNames() const { return m_flattenedNames; }

    // ------------------------------------------------------------ renamed operands
    void SetDeviceDependentGraphicsState(OperandStack& s) override {
        Rename(s, 0, K_ExtGState);
        ContentHandler::SetDeviceDependentGraphicsState(s);
    }
    void SetColorSpaceFill(OperandStack& s) override {
        if (s.size() == 1 && s[0].IsName() && !IsDeviceSpace(s[0].text)) Rename(s, 0, K_ColorSpace);
        ContentHandler::SetColorSpaceFill(s);
    }
    void SetColorSpaceStroke(OperandStack& s) override {
        if (s.size() == 1 && s[0].IsName() && !IsDeviceSpace(s[0].text)) Rename(s, 0, K_ColorSpace);
        ContentHandler::SetColorSpaceStroke(s);
    }
    void SetColorFillN(OperandStack& s) override {
        PatternUse(s);
        ContentHandler::SetColorFillN(s);
    }
    void SetColorStrokeN(OperandStack& s) override {
        PatternUse(s);
        ContentHandler::SetColorStrokeN(s);
    }
    void SetShadedFill(OperandStack& s) override {
        Rename(s, 0, K_Shading);
        ContentHandler::SetShadedFill(s);
    }
    void SetTextFontAndSize(OperandStack& s) override {
        if (s.size() == 2) Rename(s, 0, K_Font);
        ContentHandler::SetTextFontAndSize(s);
    }
    void BeginMarkedContent(OperandStack& s) override {
        if (!m_frames.empty()) ++m_frames.back().marked;
        ContentHandler::BeginMarkedContent(s);
    }
    void BeginMarkedContentProps(OperandStack& s) override {
        if (s.size() == 2 && s[1].IsName()) Rename(s, 1, K_Properties);
        if (!m_frames.empty()) ++m_frames.back().marked;
        ContentHandler::BeginMarkedContentProps(s);
    }
    void EndMarkedContent() override {
        if (!m_frames.empty()) {
            // An EMC the form did not open would close a sequence of the
            // page: a viewer runs the form on its own, so it is dropped.
            if (m_frames.back().marked == 0) return;
            --m_frames.back().marked;
        }
        ContentHandler::EndMarkedContent();
    }
    void MarkPointProps(OperandStack& s) override {
        if (s.size() == 2 && s[1].IsName()) Rename(s, 1, K_Properties);
        ContentHandler::MarkPointProps(s);
    }
    void EndImage(OperandStack& s) override {
        for (size_t i = 0; i + 2 < s.size(); i += 2) {
            if ((s[i].IsName("CS") || s[i].IsName("ColorSpace")) && s[i + 1].IsName() &&
                !IsDeviceSpace(s[i + 1].text))
                Rename(s, i + 1, K_ColorSpace);
        }
        ContentHandler::EndImage(s);
    }
    void BeginText() override {
        if (!m_frames.empty()) m_frames.back().inText = true;
        ContentHandler::BeginText();
    }
    void EndText() override {
        if (!m_frames.empty()) m_frames.back().inText = false;
        ContentHandler::EndText();
    }
    void SaveGraphicsState() override {
        if (!m_frames.empty()) ++m_frames.back().saved;
        ContentHandler::SaveGraphicsState();
    }
    void RestoreGraphicsState() override {
        if (!m_frames.empty()) {
            // A Q without its q inside a form restores nothing in a viewer.
            if (m_frames.back().saved == 0) return;
            --m_frames.back().saved;
        }
        ContentHandler::RestoreGraphicsState();
    }

    void ExecuteXObject(OperandStack& s) override {
        if (s.size() == 1 && s[0].IsName() && TryFlatten(s[0].text)) return;
        if (s.size() == 1 && s[0].IsName()) Rename(s, 0, K_XObject);
        ContentHandler::ExecuteXObject(s);
    }

private:
    struct Frame {
        CosObj form;
        CosObj resources;  // the form's own resources, or null
        int saved = 0;     // q without their Q so far
        int marked = 0;    // BMC/BDC without their EMC so far
        bool inText = false;
    };

    // The resource `name` of `category` as a viewer finds it at the current
    // level: in the innermost form that has resources, falling back
    // outwards to the page.  `level` is the frame index the name belongs to
    // (-1: the page).
    CosObj Find(ASAtom category, const std::string& name, int& level) const {
        ASAtom atom = ASAtomFind(name);
        for (int i = int(m_frames.size()) - 1; i >= 0; --i) {
            CosObj res = m_frames[size_t(i)].resources;
            if (CosObjGetType(res) != kCosDict) continue;
            CosObj cat = CosDictGet(res, category);
            CosObj v = atom != ASAtomNull && CosObjGetType(cat) == kCosDict ? CosDictGet(cat, atom) : CosNewNull();
            if (!CosObjIsNull(v)) {
                level = i;
                return v;
            }
        }
        level = -1;
        if (CosObjGetType(m_pageRes) != kCosDict) return CosNewNull();
        CosObj cat = CosDictGet(m_pageRes, category);
        if (atom == ASAtomNull || CosObjGetType(cat) != kCosDict) return CosNewNull();
        return CosDictGet(cat, atom);
    }

    CosObj WritableRes() {
        if (!m_writable) {
            m_pageRes = WritablePageResources(m_page);
            SetResources(m_pageRes);
            m_writable = true;
        }
        return m_pageRes;
    }

    // The page-level name for a name used inside a flattened form.
    void Rename(OperandStack& s, size_t index, ASAtom category) {
        if (m_frames.empty() || index >= s.size() || !s[index].IsName()) return;
        int level;
        CosObj value = Find(category, s[index].text, level);
        if (level < 0 || CosObjIsNull(value)) return;  // the page's own name, or undefined
        CosObj owner = m_frames[size_t(level)].resources;
        auto key = std::make_tuple(owner, category, s[index].text);
        auto it = m_renamed.find(key);
        if (it == m_renamed.end()) {
            CosObj res = WritableRes();
            CosObj cat = WritableResourceCategory(res, category);
            ASAtom atom = ASAtomFromString(s[index].text);
            CosObj existing = CosDictGet(cat, atom);
            std::string name = s[index].text;
            if (CosObjIsNull(existing)) {
                CosDictPut(cat, atom, CosObjIsIndirect(value) ? value : CosObjCopy(value, CosObjGetDoc(m_page), false));
            } else if (!(CosObjIsIndirect(value) && CosObjEqual(existing, value))) {
                name = ContentWriter::AddResource(res, category, s[index].text + "_",
                                                  CosObjIsIndirect(value) ? value
                                                                          : CosObjCopy(value, CosObjGetDoc(m_page), false));
            }
            it = m_renamed.emplace(key, name).first;
        }
        s[index].text = it->second;
    }

    void PatternUse(OperandStack& s) {
        // A pattern's space is the space of the stream that draws it, so
        // a form that uses patterns cannot become page content.
        if (!m_frames.empty() && !s.empty() && s.back().IsName()) m_patternInForm = true;
        Rename(s, s.empty() ? 0 : s.size() - 1, K_Pattern);
    }

    bool Flattenable(CosObj form, double bbox[4], ContentMatrix& m, std::vector<uint8_t>& data) {
        if (CosObjGetType(form) != kCosStream || CosDictGetName(form, K_Subtype) != K_Form) return false;
        if (Out().Size() > m_maxContent) return false;
        if (int(m_frames.size()) >= kMaxFlattenDepth) return false;
        for (const Frame& f : m_frames)
            if (f.form == form) return false;
        if (CosDictKnown(form, K_Group) || CosDictKnown(form, K_OC) || CosDictKnown(form, K_StructParent) ||
            CosDictKnown(form, K_StructParents))
            return false;
        CosObj res = CosDictGet(form, cosnames::Resources);
        if (m_defaultsOnPage || HasDefaultSpaces(res) || NonEmptyCategory(res, K_Pattern) ||
            HasType3WithoutResources(res))
            return false;
        if (!ReadContentRect(CosDictGet(form, cosnames::BBox), bbox)) return false;
        CosObj mo = CosDictGet(form, K_Matrix);
        if (!CosObjIsNull(mo) && !ReadContentMatrix(mo, m)) return false;
        try {
            bool complete = true;
            data = CosStreamDecodedData(form, {}, &complete);
            if (!complete) return false;
        } catch (const CVellumError&) {
            return false;
        }
        return true;
    }

    bool TryFlatten(const std::string& name) {
        int level;
        CosObj form = Find(K_XObject, name, level);
        double bbox[4];
        ContentMatrix m;
        std::vector<uint8_t> data;
        if (!Flattenable(form, bbox, m, data)) return false;

        // Drawn into the output and taken back when the form turns out to
        // use patterns.
        size_t mark = Out().Size();
        bool outerPattern = m_patternInForm;
        m_patternInForm = false;
        size_t depth = StateDepth();
        std::string head = "q ";
        if (!(m == ContentMatrix())) head += MatrixText(m) + " cm ";
        head += FormatReal(bbox[0], 6) + " " + FormatReal(bbox[1], 6) + " " + FormatReal(bbox[2] - bbox[0], 6) +
                " " + FormatReal(bbox[3] - bbox[1], 6) + " re W n ";
        Out().Append(head);
        PushState();
        CosObj res = CosDictGet(form, cosnames::Resources);
        m_frames.push_back(Frame{form, CosObjGetType(res) == kCosDict ? res : CosNewNull()});
        {
            ContentParser parser(*this);
            parser.Parse(data);
        }
        Frame f = m_frames.back();
        m_frames.pop_back();
        std::string tail = "\n";  // the form's last token must not run into ours
        if (f.inText) tail += "ET ";
        for (int i = 0; i < f.marked; ++i) tail += "EMC ";
        for (int i = 0; i < f.saved; ++i) tail += "Q ";
        tail += "Q ";
        Out().Append(tail);
        while (StateDepth() > depth) PopState();

        bool usedPattern = m_patternInForm;
        m_patternInForm = outerPattern || usedPattern;
        if (usedPattern) {
            std::string text = Out().TakeText();
            text.resize(mark);
            Out().Append(text);
            return false;
        }
        if (m_frames.empty()) m_flattenedNames.insert(name);
        ++m_flattened;
        return true;
    }

    CosObj m_page;
    size_t m_maxContent;
    CosObj m_pageRes;
    bool m_writable = false;
    bool m_defaultsOnPage = false;
    bool m_patternInForm = false;
    std::vector<Frame> m_frames;
    std::map<std::tuple<CosObj, ASAtom, std::string>, std::string> m_renamed;
    std::set<std::string> m_flattenedNames;
    int m_flattened = 0;
};

// Whether every content stream of the page decodes completely: a page
// whose content is partly unreadable is not rewritten.
bool ContentReadable(CosObj page) {
    CosObj contents = CosDictGet(page, cosnames::Contents);
    std::vector<CosObj> streams;
    if (CosObjGetType(contents) == kCosArray) {
        for (ASInt32 i = 0; i < CosArrayLength(contents); ++i) streams.push_back(CosArrayGet(contents, i));
    } else {
        streams.push_back(contents);
    }
    for (CosObj s : streams) {
        if (CosObjGetType(s) != kCosStream) return false;
        try {
            bool complete = true;
            CosStreamDecodedData(s, {}, &complete);
            if (!complete) return false;
        } catch (const CVellumError&) {
            return false;
        }
    }
    return true;
}

class FormXObjectFlattenOperation : public PageOperation {
public:
    const char* Name() const override { return "form XObject flattening"; }
    PagePhase Phase() const override { return PagePhase::PostLayout; }
    bool Enabled(const CTrimoraPreferences& prefs) const override { return prefs.Optimize().flattenXObjects; }
    std::string FailureMessage(ASInt32 pageNumber) const override {
        return "Error while flattening form XObjects on page " + std::to_string(pageNumber);
    }
    void Apply(CosObj page, RunContext& ctx) override {
        ctx.log.Progress("\tFlattening Form XObjects...\n");
        if (int n = FlattenPageFormXObjects(page, ctx))
            ctx.log.Debug("Page %d: %d form XObjects drawn in place\n", int(ctx.pageNumber + 1), n);
    }
};

}  // namespace

int FlattenPageFormXObjects(CosObj page, RunContext& ctx, size_t maxContent) {
    if (CosObjGetType(page) != kCosDict || !CosDictKnown(page, cosnames::Contents)) return 0;
    if (!ContentReadable(page)) {
        ctx.log.Warning("Page %d: its content cannot be read completely: form XObjects not flattened\n",
                        int(ctx.pageNumber + 1));
        return 0;
    }
    FlattenHandler h(page, &ctx.log, maxContent);
    std::vector<uint8_t> bytes = PageContentBytes(page, &ctx.log);
    h.RunContent(bytes);
    h.Finish();
    if (h.Flattened() == 0) return 0;
    std::string text = h.Out().TakeText();

    CosDoc doc = CosObjGetDoc(page);
    CosObj stream = CosNewStream(doc, CosNewNull(), {});
    CosStreamSetDecodedData(stream, std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(text.data()), text.size()),
                            ctx.prefs.Optimize().flateLevel);
    CosDictPut(page, cosnames::Contents, stream);

    // The page's entries for the forms it no longer draws go; the forms
    // themselves stay for whatever else draws them.
    ResourceUseHandler use(nullptr, false);
    use.RunPage(page, true);
    CosObj res = WritablePageResources(page);
    const ResourceNames& used = use.UsedIn(PDPageGetInheritedAttr(page, cosnames::Resources));
    auto xo = used.find("XObject");
    CosObj cat = CosDictGet(res, K_XObject);
    if (CosObjGetType(cat) == kCosDict) {
        cat = WritableResourceCategory(res, K_XObject);
        for (const std::string& name : h.FlattenedNames())
            if (xo == used.end() || !xo->second.count(name)) CosDictRemove(cat, ASAtomFromString(name));
    }
    return h.Flattened();
}

std::unique_ptr<PageOperation> MakeFormXObjectFlatten() { return std::make_unique<FormXObjectFlattenOperation>(); }

}  // namespace pipeline
