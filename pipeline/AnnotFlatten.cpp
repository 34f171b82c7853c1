#include "pipeline/AnnotFlatten.h"

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "base/Log.h"
#include "content/ContentWriter.h"
#include "content/PageAppend.h"
#include "pdfcore/CosDoc.h"
#include "pdfcore/CosNames.h"
#include "settings/TrimoraPreferences.h"

namespace pipeline {

namespace {

ASAtom K(const char* s) { return ASAtomFromString(s); }

const ASAtom K_Annots = K("Annots");
const ASAtom K_Subtype = K("Subtype");
const ASAtom K_Widget = K("Widget");
const ASAtom K_Popup = K("Popup");
const ASAtom K_Movie = K("Movie");
const ASAtom K_Poster = K("Poster");
const ASAtom K_Parent = K("Parent");
const ASAtom K_Rect = K("Rect");
const ASAtom K_F = K("F");
const ASAtom K_AP = K("AP");
const ASAtom K_AS = K("AS");
const ASAtom K_Matrix = K("Matrix");
const ASAtom K_OC = K("OC");
const ASAtom K_XObject = K("XObject");
const ASAtom K_Properties = K("Properties");
const ASAtom K_Link = K("Link");
const ASAtom K_Border = K("Border");
const ASAtom K_BS = K("BS");
const ASAtom K_W = K("W");
const ASAtom K_S = K("S");
const ASAtom K_D = K("D");
const ASAtom K_U = K("U");
const ASAtom K_C = K("C");
const ASAtom K_T = K("T");
const ASAtom K_AcroForm = K("AcroForm");
const ASAtom K_NeedAppearances = K("NeedAppearances");
const ASAtom K_Image = K("Image");
const ASAtom K_Flatten = K("Flatten");
const ASAtom K_Remove = K("Remove");

// Annotation flags (ISO 32000-1, 12.5.3).
constexpr ASInt32 kFlagInvisible = 1;
constexpr ASInt32 kFlagHidden = 2;
constexpr ASInt32 kFlagNoView = 32;

// The annotation types of the PDF standard; the Invisible flag hides only
// annotations of a type not among them.
bool IsStandardType(ASAtom subtype) {
    static const std::set<ASAtom> known = [] {
        std::set<ASAtom> s;
        for (const char* n : {"Text", "Link", "FreeText", "Line", "Square", "Circle", "Polygon", "PolyLine",
                              "Highlight", "Underline", "Squiggly", "StrikeOut", "Stamp", "Caret", "Ink", "Popup",
                              "FileAttachment", "Sound", "Movie", "Widget", "Screen", "PrinterMark", "TrapNet",
                              "Watermark", "3D", "Redact", "RichMedia"})
            s.insert(K(n));
        return s;
    }();
    return known.count(subtype) != 0;
}

// The form field a widget belongs to: the widget itself when it carries
// the field's name (a merged field and widget), else its parent field.
CosObj FieldOf(CosObj widget) {
    if (CosDictKnown(widget, K_T)) return widget;
    CosObj parent = CosDictGet(widget, K_Parent);
    return CosObjGetType(parent) == kCosDict ? parent : widget;
}

// The normal appearance: N itself, or the state AS selects from N.
CosObj NormalAppearance(CosObj annot) {
    CosObj ap = CosDictGet(annot, K_AP);
    if (CosObjGetType(ap) != kCosDict) return CosNewNull();
    CosObj n = CosDictGet(ap, cosnames::N);
    if (CosObjGetType(n) == kCosStream) return n;
    if (CosObjGetType(n) != kCosDict) return CosNewNull();
    ASAtom state = CosDictGetName(annot, K_AS);
    if (state == ASAtomNull) return CosNewNull();
    CosObj s = CosDictGet(n, state);
    return CosObjGetType(s) == kCosStream ? s : CosNewNull();
}

bool NumbersOnly(CosObj arr) {
    for (ASInt32 i = 0; i < CosArrayLength(arr); ++i) {
        CosType t = CosObjGetType(CosArrayGet(arr, i));
        if (t != kCosInteger && t != kCosFixed) return false;
    }
    return true;
}

// The border a viewer draws around a link that has no appearance of its
// own: width and dashes from BS (or the older Border array), colour from C.
// Empty when nothing is drawn.
std::string LinkBorder(CosObj annot, const double rect[4]) {
    double width = 1;
    std::string dash;
    bool underline = false;
    CosObj bs = CosDictGet(annot, K_BS);
    CosObj border = CosDictGet(annot, K_Border);
    if (CosObjGetType(bs) == kCosDict) {
        width = CosDictGetNumber(bs, K_W, 1);
        ASAtom style = CosDictGetName(bs, K_S);
        underline = style == K_U;
        CosObj d = CosDictGet(bs, K_D);
        if (style == K_D && CosObjGetType(d) == kCosArray && NumbersOnly(d)) {
            for (ASInt32 i = 0; i < CosArrayLength(d); ++i) dash += FormatReal(CosFixedValue(CosArrayGet(d, i)), 4) + " ";
            if (dash.empty()) dash = "3 ";
        } else if (style == K_D) {
            dash = "3 ";
        }
    } else if (CosObjGetType(border) == kCosArray) {
        if (CosArrayLength(border) < 3) return {};
        CosObj w = CosArrayGet(border, 2);
        if (CosObjGetType(w) != kCosInteger && CosObjGetType(w) != kCosFixed) return {};
        width = CosFixedValue(w);
        CosObj d = CosArrayGet(border, 3);
        if (CosObjGetType(d) == kCosArray && NumbersOnly(d))
            for (ASInt32 i = 0; i < CosArrayLength(d); ++i) dash += FormatReal(CosFixedValue(CosArrayGet(d, i)), 4) + " ";
    } else {
        return {};  // no border asked for
    }
    if (!(width > 0) || width > 1000) return {};
    CosObj c = CosDictGet(annot, K_C);
    if (CosObjGetType(c) != kCosArray || !NumbersOnly(c)) return {};
    std::string colour;
    for (ASInt32 i = 0; i < CosArrayLength(c); ++i) colour += FormatReal(CosFixedValue(CosArrayGet(c, i)), 4) + " ";
    switch (CosArrayLength(c)) {
    case 1: colour += "G "; break;
    case 3: colour += "RG "; break;
    case 4: colour += "K "; break;
    default: return {};  // no colour: a transparent border
    }
    std::string s = "q " + colour + FormatReal(width, 4) + " w ";
    if (!dash.empty()) s += "[ " + dash + "] 0 d ";
    // Viewers stroke the rectangle's own edges, half the width outside it.
    if (underline) {
        s += FormatReal(rect[0], 4) + " " + FormatReal(rect[1], 4) + " m " + FormatReal(rect[2], 4) + " " +
             FormatReal(rect[1], 4) + " l S Q ";
    } else {
        s += FormatReal(rect[0], 4) + " " + FormatReal(rect[1], 4) + " " + FormatReal(rect[2] - rect[0], 4) + " " +
             FormatReal(rect[3] - rect[1], 4) + " re S Q ";
    }
    return s;
}

class Flattener {
public:
    Flattener(CosObj page, AnnotAction annots, AnnotAction widgets, RunContext& ctx, FieldTally* fields)
        : m_page(page), m_annotAct(annots), m_widgetAct(widgets), m_ctx(ctx), m_fields(fields) {}

    AnnotFlattenCounts Run() {
        CosObj annots = CosDictGet(m_page, K_Annots);
        if (CosObjIsNull(annots)) return m_counts;
        if (CosObjGetType(annots) != kCosArray) {
            Warn("its Annots entry is not an array: left alone");
            return m_counts;
        }
        CosObj root = CosDocGetRoot(CosObjGetDoc(m_page));
        CosObj form = CosObjGetType(root) == kCosDict ? CosDictGet(root, K_AcroForm) : CosNewNull();
        m_needAppearances = CosObjGetType(form) == kCosDict && CosDictGetBool(form, K_NeedAppearances, false);

        ASInt32 n = CosArrayLength(annots);
        std::vector<bool> drop(size_t(n), false);
        std::set<CosObj> dropped;
        std::vector<std::pair<ASInt32, CosObj>> popups;
        for (ASInt32 i = 0; i < n; ++i) {
            CosObj a = CosArrayGet(annots, i);
            if (CosObjGetType(a) != kCosDict) {
                if (!CosObjIsNull(a)) Warn("an entry of Annots is not a dictionary: left alone");
                continue;
            }
            ASAtom subtype = CosDictGetName(a, K_Subtype);
            bool widget = subtype == K_Widget;
            AnnotAction act = widget ? m_widgetAct : m_annotAct;
            if (act == AnnotAction::Keep) {
                if (subtype == K_Popup) popups.emplace_back(i, a);
                continue;
            }
            Count(a, widget, Result::Total);
            bool removeOnly = act == AnnotAction::Remove || subtype == K_Popup;
            if (!removeOnly) {
                Outcome o = Draw(a, subtype, widget);
                if (o == Outcome::Skipped) continue;
                Count(a, widget, o == Outcome::Drawn ? Result::Flattened : Result::Removed);
            } else {
                Count(a, widget, Result::Removed);
            }
            drop[size_t(i)] = true;
            dropped.insert(a);
        }
        // A popup belongs to its parent annotation and goes with it.
        for (auto& [i, p] : popups) {
            CosObj parent = CosDictGet(p, K_Parent);
            if (CosObjGetType(parent) == kCosDict && dropped.count(parent)) drop[size_t(i)] = true;
        }
        if (std::find(drop.begin(), drop.end(), true) != drop.end() && CosObjIsIndirect(annots)) {
            // An Annots array of its own object may be another page's too:
            // this page gets its own copy before anything leaves it.
            annots = CosObjCopy(annots, CosObjGetDoc(m_page), false);
            CosDictPut(m_page, K_Annots, annots);
            annots = CosDictGet(m_page, K_Annots);
        }
        for (ASInt32 i = n - 1; i >= 0; --i)
            if (drop[size_t(i)]) CosArrayRemoveAt(annots, i);
        if (!m_drawing.empty())
            AppendToPageContent(m_page, m_drawing, m_ctx.prefs.Optimize().flateLevel, &m_ctx.log);
        return m_counts;
    }

private:
    enum class Outcome { Drawn, NothingToDraw, Skipped };

    void Warn(const std::string& what) {
        m_ctx.log.Warning("Page %d: %s\n", int(m_ctx.pageNumber + 1), what.c_str());
    }

    enum class Result { Total, Flattened, Removed };

    void Bump(const char* key, int& counter, int by) {
        counter += by;
        m_ctx.stats.Increment(key, by);
    }

    // Annotations count one by one; form fields count once each, however
    // many widgets they have (radio buttons): a field counts as flattened
    // when any of its widgets was drawn.
    void Count(CosObj a, bool widget, Result r) {
        if (!widget) {
            if (r == Result::Total) Bump("Annots_Total", m_counts.annotsTotal, 1);
            if (r == Result::Flattened) Bump("Annots_Flattened", m_counts.annotsFlattened, 1);
            if (r == Result::Removed) Bump("Annots_Removed", m_counts.annotsRemoved, 1);
            return;
        }
        int& state = m_fields->state[FieldOf(a)];  // 0 new, 1 seen, 2 removed, 3 flattened
        if (r == Result::Total) {
            if (state == 0) {
                state = 1;
                Bump("AcroForms_Total", m_counts.widgetsTotal, 1);
            }
        } else if (r == Result::Removed) {
            if (state == 1) {
                state = 2;
                Bump("AcroForms_Removed", m_counts.widgetsRemoved, 1);
            }
        } else if (state == 1 || state == 2) {
            if (state == 2) Bump("AcroForms_Removed", m_counts.widgetsRemoved, -1);
            state = 3;
            Bump("AcroForms_Flattened", m_counts.widgetsFlattened, 1);
        }
    }

    CosObj Resources() {
        if (CosObjIsNull(m_resources)) m_resources = WritablePageResources(m_page);
        return m_resources;
    }

    // The name under which `obj` is entered in `category` of the page's
    // resources: an existing entry for the same object, else a new
    // `prefix`n entry.  Names already given are remembered, so a page with
    // thousands of annotations is not searched over and over.
    std::string NameFor(ASAtom category, const char* prefix, CosObj obj) {
        CosObj cat = WritableResourceCategory(Resources(), category);
        Names& names = m_names[category];
        if (!names.scanned) {
            names.scanned = true;
            for (ASInt32 i = CosDictCount(cat) - 1; i >= 0; --i) {
                CosObj v = CosDictValueAt(cat, i);
                if (CosObjIsIndirect(v)) names.byObject[v] = ASAtomGetString(CosDictKeyAt(cat, i));
            }
        }
        if (CosObjIsIndirect(obj)) {
            auto it = names.byObject.find(obj);
            if (it != names.byObject.end()) return it->second;
        }
        std::string name;
        do {
            name = prefix + std::to_string(++names.counter);
        } while (CosDictKnown(cat, ASAtomFromString(name)));
        CosDictPut(cat, ASAtomFromString(name), obj);
        if (CosObjIsIndirect(obj)) names.byObject[obj] = name;
        return name;
    }

    Outcome Draw(CosObj a, ASAtom subtype, bool widget) {
        double rect[4];
        if (!ReadContentRect(CosDictGet(a, K_Rect), rect)) {
            Warn(std::string("a ") + (widget ? "form field" : "annotation") + " has no usable Rect: left alone");
            return Outcome::Skipped;
        }
        ASInt32 flags = CosDictGetInt(a, K_F, 0);
        if ((flags & (kFlagHidden | kFlagNoView)) || ((flags & kFlagInvisible) && !IsStandardType(subtype)))
            return Outcome::NothingToDraw;

        CosObj ap = NormalAppearance(a);
        std::string mark;
        if (CosObjGetType(ap) == kCosStream) {
            double bbox[4];
            if (!ReadContentRect(CosDictGet(ap, cosnames::BBox), bbox)) {
                Warn("an annotation's appearance has no usable BBox: left alone");
                return Outcome::Skipped;
            }
            bool complete = false;
            try {
                CosStreamDecodedData(ap, {}, &complete);
            } catch (const CVellumError&) {
                complete = false;
            }
            if (!complete) {
                Warn("an annotation's appearance cannot be read: left alone");
                return Outcome::Skipped;
            }
            ContentMatrix m;
            ReadContentMatrix(CosDictGet(ap, K_Matrix), m);
            ContentMatrix fit = AppearanceFit(bbox, m, rect);
            std::string name = NameFor(K_XObject, "TMRAnnot", ap);
            mark = "q " + MatrixText(fit) + " cm /" + name + " Do Q ";
        } else if (subtype == K_Movie) {
            CosObj movie = CosDictGet(a, K_Movie);
            CosObj poster = CosObjGetType(movie) == kCosDict ? CosDictGet(movie, K_Poster) : CosNewNull();
            if (CosObjGetType(poster) != kCosStream || CosDictGetName(poster, K_Subtype) != K_Image)
                return Outcome::NothingToDraw;
            // The poster image fills the annotation's rectangle.
            std::string name = NameFor(K_XObject, "TMRAnnot", poster);
            ContentMatrix fit{rect[2] - rect[0], 0, 0, rect[3] - rect[1], rect[0], rect[1]};
            mark = "q " + MatrixText(fit) + " cm /" + name + " Do Q ";
        } else if (subtype == K_Link) {
            mark = LinkBorder(a, rect);
            if (mark.empty()) return Outcome::NothingToDraw;
        } else {
            if (widget && m_needAppearances)
                Warn("a form field has no appearance and the form asks viewers to make one: its value is not drawn");
            return Outcome::NothingToDraw;
        }
        // An annotation in optional content stays in it.
        CosObj oc = CosDictGet(a, K_OC);
        if (CosObjGetType(oc) == kCosDict) {
            std::string name = NameFor(K_Properties, "TMROC", oc);
            mark = "/OC /" + name + " BDC " + mark + "EMC ";
        }
        m_drawing += mark;
        return Outcome::Drawn;
    }

    CosObj m_page;
    AnnotAction m_annotAct, m_widgetAct;
    RunContext& m_ctx;
    FieldTally* m_fields;
    struct Names {
        bool scanned = false;
        int counter = 0;
        std::map<CosObj, std::string> byObject;
    };
    CosObj m_resources = CosNewNull();
    std::map<ASAtom, Names> m_names;
    bool m_needAppearances = false;
    std::string m_drawing;
    AnnotFlattenCounts m_counts;
};

class AnnotFlattenOperation : public PageOperation {
public:
    const char* Name() const override { return "annotation flattening"; }
    PagePhase Phase() const override { return PagePhase::PostLayout; }
    bool Enabled(const CTrimoraPreferences& prefs) const override {
        return AnnotActionFromWord(prefs.Optimize().annotProcessing) != AnnotAction::Keep ||
               AnnotActionFromWord(prefs.Optimize().acroformProcessing) != AnnotAction::Keep;
    }
    std::string FailureMessage(ASInt32 pageNumber) const override {
        return "Error while flattening annotations on page " + std::to_string(pageNumber);
    }
    void Apply(CosObj page, RunContext& ctx) override {
        ctx.log.Progress("\tFlattening annotations...\n");
        // Fields are counted once per document.
        if (ctx.pageNumber <= 0 || m_fields.doc != ctx.doc) m_fields = FieldTally{ctx.doc, {}};
        AnnotFlattenCounts c =
            FlattenPageAnnotations(page, AnnotActionFromWord(ctx.prefs.Optimize().annotProcessing),
                                   AnnotActionFromWord(ctx.prefs.Optimize().acroformProcessing), ctx, &m_fields);
        int drawn = c.annotsFlattened + c.widgetsFlattened, removed = c.annotsRemoved + c.widgetsRemoved;
        if (drawn + removed > 0)
            ctx.log.Debug("Page %d: %d annotations drawn into the page, %d removed\n", int(ctx.pageNumber + 1),
                          drawn, removed);
    }

private:
    FieldTally m_fields;
};

}  // namespace

AnnotAction AnnotActionFromWord(ASAtom word) {
    if (word == K_Flatten) return AnnotAction::Flatten;
    if (word == K_Remove) return AnnotAction::Remove;
    return AnnotAction::Keep;
}

AnnotFlattenCounts FlattenPageAnnotations(CosObj page, AnnotAction annots, AnnotAction widgets, RunContext& ctx,
                                          FieldTally* fields) {
    if (CosObjGetType(page) != kCosDict) return {};
    FieldTally local;
    return Flattener(page, annots, widgets, ctx, fields ? fields : &local).Run();
}

std::unique_ptr<PageOperation> MakeAnnotFlatten() { return std::make_unique<AnnotFlattenOperation>(); }

}  // namespace pipeline
