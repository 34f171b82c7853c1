#include "fonts/GlyphUse.h"

#include <cstring>

#include "content/TextTracking.h"
#include "filters/Filters.h"
#include "pdfcore/CosDoc.h"

namespace fonts {

namespace {

const ASAtom K_AcroForm = ASAtomFromString("AcroForm");
const ASAtom K_DR = ASAtomFromString("DR");
const ASAtom K_Font = ASAtomFromString("Font");
const ASAtom K_DescendantFonts = ASAtomFromString("DescendantFonts");
const ASAtom K_ExtGState = ASAtomFromString("ExtGState");

// The text tracker, with every problem it reports taken as a sign that
// some text was not seen.
class UseTracker : public TextTrackingHandler {
public:
    UseTracker() : TextTrackingHandler(nullptr, true) {}
    void Report(Log::Channel channel, const char* text) override {
        if (channel != Log::kWarning && channel != Log::kError) return;
        // An unbalanced font stack or a dropped graphics operator leaves
        // every shown code recorded; only text and streams that were not
        // read hide codes.
        // "DisplayText" also matches the DisplayTextArray messages.
        static const char* const kHiding[] = {"cannot be read", "nested too deeply", "DisplayText",
                                              "SetTextFontAndSize"};
        for (const char* h : kHiding) {
            if (std::strstr(text, h)) {
                if (m_problem.empty()) m_problem = text;
                return;
            }
        }
    }
    const std::string& Problem() const { return m_problem; }

private:
    std::string m_problem;
};

void KeepFont(CosObj f, std::set<CosObj>& keep) {
    if (CosObjGetType(f) != kCosDict) return;
    keep.insert(f);
    // A descendant shared with another Type0 must stay whole too.
    CosObj kids = CosDictGet(f, K_DescendantFonts);
    if (CosObjGetType(kids) == kCosArray && CosObjGetType(CosArrayGet(kids, 0)) == kCosDict)
        keep.insert(CosArrayGet(kids, 0));
}

void KeepFontsOf(CosObj fonts, std::set<CosObj>& keep) {
    if (CosObjGetType(fonts) != kCosDict) return;
    ASInt32 n = CosDictCount(fonts);
    for (ASInt32 i = 0; i < n; ++i) KeepFont(CosDictValueAt(fonts, i), keep);
}

// A graphics state may set the font itself (an ExtGState's /Font [font
// size]); the text tracker follows Tf only, so the text shown after such
// a gs is not seen, and these fonts keep every glyph.
void KeepGraphicsStateFonts(PDDoc doc, std::set<CosObj>& keep) {
    auto check = [&](CosObj gs) {
        if (CosObjGetType(gs) != kCosDict) return;
        CosObj f = CosDictGet(gs, K_Font);
        if (CosObjGetType(f) == kCosArray && CosArrayLength(f) > 0) KeepFont(CosArrayGet(f, 0), keep);
    };
    CosDoc cos = PDDocGetCosDoc(doc);
    const ASInt32 size = CosDocGetObjTableSize(cos);
    for (ASInt32 id = 1; id < size; id = CosDocNextObjID(cos, id)) {
        CosObj o = CosDocGetObjByID(cos, id);
        if (CosObjGetType(o) == kCosStream) o = CosStreamDict(o);
        if (CosObjGetType(o) != kCosDict) continue;
        check(o);
        // Resources written in place in a page, form or pattern.
        CosObj res = CosDictGet(o, ASAtomFromString("Resources"));
        CosObj states = CosDictGet(CosObjGetType(res) == kCosDict ? res : o, K_ExtGState);
        if (CosObjGetType(states) != kCosDict) continue;
        for (ASInt32 i = 0, n = CosDictCount(states); i < n; ++i) check(CosDictValueAt(states, i));
    }
}

// While the text is read, damaged data (which decodes in part, with a
// warning) marks the reading incomplete.  The warnings themselves are the
// business of the steps that rewrite those streams: they are not repeated.
class DamageWatch {
public:
    DamageWatch() : m_previous(filters::GetWarningSink()) {
        filters::SetWarningSink([this](const std::string& text) {
            if (m_first.empty()) m_first = text;
        });
    }
    ~DamageWatch() { filters::SetWarningSink(m_previous); }
    const std::string& First() const { return m_first; }

private:
    filters::WarningSink m_previous;
    std::string m_first;
};

}  // namespace

DocumentGlyphUse CollectGlyphUse(PDDoc doc) {
    DocumentGlyphUse use;
    DamageWatch damage;
    ASInt32 pages = PDDocGetNumPages(doc);
    for (ASInt32 p = 0; p < pages; ++p) {
        UseTracker tracker;
        tracker.RunPage(PDDocGetPageObj(doc, p), true);
        for (const FontUse& f : tracker.Fonts()) {
            if (CosObjIsNull(f.font)) continue;
            use.codes[f.font].insert(f.codes.begin(), f.codes.end());
        }
        if (!tracker.Problem().empty() && !use.incomplete) {
            use.incomplete = true;
            use.incompleteReason = tracker.Problem();
        }
    }
    if (!use.incomplete && !damage.First().empty()) {
        use.incomplete = true;
        use.incompleteReason = damage.First();
    }
    while (!use.incompleteReason.empty() && std::strchr("\n ", use.incompleteReason.back()))
        use.incompleteReason.pop_back();
    CosObj root = CosDocGetRoot(PDDocGetCosDoc(doc));
    CosObj form = CosObjGetType(root) == kCosDict ? CosDictGet(root, K_AcroForm) : CosNewNull();
    if (CosObjGetType(form) == kCosDict) {
        CosObj dr = CosDictGet(form, K_DR);
        if (CosObjGetType(dr) == kCosDict) KeepFontsOf(CosDictGet(dr, K_Font), use.keepWhole);
    }
    KeepGraphicsStateFonts(doc, use.keepWhole);
    return use;
}

}  // namespace fonts
