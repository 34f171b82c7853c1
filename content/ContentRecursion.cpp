// Running whole pages and descending into nested content: forms, tiling
// patterns, soft-mask groups, Type 3 glyph procedures and annotation
// appearances, each with its own resources and matrix.
#include <algorithm>
#include <cmath>

#include <boost/format.hpp>

#include "content/ContentHandler.h"
#include "content/ContentParser.h"
#include "content/PageAppend.h"
#include "pdfcore/CosNames.h"
#include "pdfcore/PDDoc.h"

namespace {

const ASAtom K_Font = ASAtomFromString("Font");
const ASAtom K_ExtGState = ASAtomFromString("ExtGState");
const ASAtom K_Pattern = ASAtomFromString("Pattern");
const ASAtom K_Properties = ASAtomFromString("Properties");
const ASAtom K_Subtype = ASAtomFromString("Subtype");
const ASAtom K_Form = ASAtomFromString("Form");
const ASAtom K_Matrix = ASAtomFromString("Matrix");
const ASAtom K_PatternType = ASAtomFromString("PatternType");
const ASAtom K_SMask = ASAtomFromString("SMask");
const ASAtom K_G = ASAtomFromString("G");
const ASAtom K_Type3 = ASAtomFromString("Type3");
const ASAtom K_CharProcs = ASAtomFromString("CharProcs");
const ASAtom K_FontMatrix = ASAtomFromString("FontMatrix");
const ASAtom K_AP = ASAtomFromString("AP");
const ASAtom K_D = ASAtomFromString("D");
const ASAtom K_R = ASAtomFromString("R");
const ASAtom K_Rect = ASAtomFromString("Rect");
const ASAtom K_OCG = ASAtomFromString("OCG");
const ASAtom K_OCGs = ASAtomFromString("OCGs");
const ASAtom K_OCProperties = ASAtomFromString("OCProperties");
const ASAtom K_OFF = ASAtomFromString("OFF");
const ASAtom K_ON = ASAtomFromString("ON");
const ASAtom K_Name = ASAtomFromString("Name");
const ASAtom K_Usage = ASAtomFromString("Usage");
const ASAtom K_View = ASAtomFromString("View");
const ASAtom K_Print = ASAtomFromString("Print");
const ASAtom K_ViewState = ASAtomFromString("ViewState");
const ASAtom K_PrintState = ASAtomFromString("PrintState");

}  // namespace

void ContentHandler::RunContent(std::span<const uint8_t> data) {
    ContentParser parser(*this);
    parser.Parse(data);
}

void ContentHandler::RunPage(CosObj page, bool annotations) {
    SetResources(PDPageGetInheritedAttr(page, cosnames::Resources));
    m_streamBase = ContentMatrix();
    std::vector<uint8_t> bytes = PageContentBytes(page, m_log);
    RunContent(bytes);
    Finish();
    if (!annotations) return;
    CosObj annots = CosDictGet(page, cosnames::Annots);
    if (CosObjGetType(annots) != kCosArray) return;
    CosObj pageResources = Resources();
    // Appearances are placed in the page's default space, whatever state
    // the page content left behind.
    m_states.assign(1, GraphicsState());
    m_uncountedStates = 0;
    m_markedDropEMC.clear();
    ASInt32 n = CosArrayLength(annots);
    for (ASInt32 i = 0; i < n; ++i) {
        CosObj annot = CosArrayGet(annots, i);
        if (CosObjGetType(annot) != kCosDict) continue;
        CosObj ap = CosDictGet(annot, K_AP);
        if (CosObjGetType(ap) != kCosDict) continue;
        double rect[4];
        if (!ReadContentRect(CosDictGet(annot, K_Rect), rect)) continue;
        const ASAtom kinds[] = {cosnames::N, K_R, K_D};
        for (ASAtom kind : kinds) {
            CosObj entry = CosDictGet(ap, kind);
            std::vector<CosObj> forms;
            if (CosObjGetType(entry) == kCosStream) {
                forms.push_back(entry);
            } else if (CosObjGetType(entry) == kCosDict) {
                ASInt32 m = CosDictCount(entry);
                for (ASInt32 k = 0; k < m; ++k) {
                    CosObj v = CosDictValueAt(entry, k);
                    if (CosObjGetType(v) == kCosStream) forms.push_back(v);
                }
            }
            for (CosObj form : forms) {
                // The appearance's bounding box, transformed by its Matrix,
                // is fitted to the annotation's rectangle (ISO 32000-1, 12.5.5).
                double bbox[4];
                if (!ReadContentRect(CosDictGet(form, cosnames::BBox), bbox)) continue;
                ContentMatrix fm;
                ReadContentMatrix(CosDictGet(form, K_Matrix), fm);
                double xs[4], ys[4];
                fm.Apply(bbox[0], bbox[1], xs[0], ys[0]);
                fm.Apply(bbox[2], bbox[1], xs[1], ys[1]);
                fm.Apply(bbox[0], bbox[3], xs[2], ys[2]);
                fm.Apply(bbox[2], bbox[3], xs[3], ys[3]);
                double x0 = *std::min_element(xs, xs + 4), x1 = *std::max_element(xs, xs + 4);
                double y0 = *std::min_element(ys, ys + 4), y1 = *std::max_element(ys, ys + 4);
                double sx = x1 - x0 > 1e-9 ? (rect[2] - rect[0]) / (x1 - x0) : 1;
                double sy = y1 - y0 > 1e-9 ? (rect[3] - rect[1]) / (y1 - y0) : 1;
                ContentMatrix a{sx, 0, 0, sy, rect[0] - x0 * sx, rect[1] - y0 * sy};
                SetResources(pageResources);
                RunForm(form, &a);
            }
        }
    }
    SetResources(pageResources);
}

void ContentHandler::RunForm(CosObj form, const ContentMatrix* extra) {
    if (CosObjGetType(form) != kCosStream) return;
    CosObj res = CosDictGet(form, cosnames::Resources);
    if (CosObjGetType(res) != kCosDict) res = m_resources;
    ContentMatrix m;
    ReadContentMatrix(CosDictGet(form, K_Matrix), m);
    ContentMatrix base = extra ? extra->Times(State().ctm) : State().ctm;
    RunNested(form, res, m.Times(base));
}

void ContentHandler::RunPattern(CosObj pattern) {
    if (CosObjGetType(pattern) != kCosStream) return;
    CosObj res = CosDictGet(pattern, cosnames::Resources);
    if (CosObjGetType(res) != kCosDict) res = m_resources;
    ContentMatrix m;
    ReadContentMatrix(CosDictGet(pattern, K_Matrix), m);
    RunNested(pattern, res, m.Times(m_streamBase));
}

bool ContentHandler::RunNested(CosObj stream, CosObj resources, const ContentMatrix& ctm) {
    if (std::find(m_active.begin(), m_active.end(), stream) != m_active.end()) {
        char text[128];
        std::snprintf(text, sizeof text, "Content stream %d draws itself: not followed again\n",
                      CosObjGetID(stream));
        Report(Log::kWarning, text);
        return false;
    }
    if (static_cast<int>(m_active.size()) >= kMaxNesting) {
        Report(Log::kWarning, "Content nested too deeply: the innermost stream is not followed\n");
        return false;
    }
    // Everything the nested stream may change is saved and put back, so the
    // stream that drew it goes on as if it had drawn a single mark.
    struct Saved {
        ContentHandler& h;
        CosObj resources;
        ContentMatrix base;
        std::vector<GraphicsState> states;
        size_t uncounted;
        std::vector<bool> marked;
        bool enabled;
        ~Saved() {
            h.SetResources(resources);
            h.m_streamBase = base;
            h.m_states = std::move(states);
            h.m_uncountedStates = uncounted;
            h.m_markedDropEMC = std::move(marked);
            h.m_out.SetEnabled(enabled);
            h.m_active.pop_back();
        }
    } saved{*this, m_resources, m_streamBase, {}, m_uncountedStates, {}, m_out.Enabled()};
    GraphicsState top = m_states.back();
    saved.states = std::move(m_states);
    saved.marked = std::move(m_markedDropEMC);
    m_active.push_back(stream);
    m_states.assign(1, top);
    m_uncountedStates = 0;
    m_states.back().ctm = ctm;
    m_markedDropEMC.clear();
    m_streamBase = ctm;
    m_out.SetEnabled(false);  // nested content never lands in the caller's output
    SetResources(resources);
    try {
        std::vector<uint8_t> bytes = CosStreamDecodedData(stream);
        RunContent(bytes);
    } catch (const CVellumError& e) {
        char text[256];
        std::snprintf(text, sizeof text, "Nested content stream %d cannot be read: '%s'\n", CosObjGetID(stream),
                      e.what());
        Report(Log::kWarning, text);
    }
    return true;
}

void ContentHandler::DescendXObject(const std::string& name) {
    CosObj x = LookupResource(cosnames::XObject, name);
    if (CosObjGetType(x) != kCosStream) return;
    if (CosDictGetName(x, K_Subtype) != K_Form) return;
    RunForm(x);
}

void ContentHandler::DescendPattern(const OperandStack& s) {
    if (s.empty() || !s.back().IsName()) return;
    CosObj p = LookupResource(K_Pattern, s.back().text);
    if (CosObjGetType(p) != kCosStream || CosDictGetInt(p, K_PatternType, 0) != 1) return;
    RunPattern(p);
}

void ContentHandler::DescendExtGState(const std::string& name) {
    CosObj gs = LookupResource(K_ExtGState, name);
    if (CosObjGetType(gs) != kCosDict) return;
    CosObj smask = CosDictGet(gs, K_SMask);
    if (CosObjGetType(smask) != kCosDict) return;
    RunForm(CosDictGet(smask, K_G));
}

void ContentHandler::DescendType3(const std::string& fontName) {
    CosObj font = LookupResource(K_Font, fontName);
    if (CosObjGetType(font) != kCosDict || CosDictGetName(font, K_Subtype) != K_Type3) return;
    if (!m_visitedType3.insert(font).second) return;
    CosObj procs = CosDictGet(font, K_CharProcs);
    if (CosObjGetType(procs) != kCosDict) return;
    CosObj res = CosDictGet(font, cosnames::Resources);
    if (CosObjGetType(res) != kCosDict) res = m_resources;
    // Glyphs are placed by the text matrix, which this walk does not follow:
    // the glyph space is taken at the font size from the current CTM.
    ContentMatrix fm{0.001, 0, 0, 0.001, 0, 0};
    ReadContentMatrix(CosDictGet(font, K_FontMatrix), fm);
    double size = State().fontSize != 0 ? State().fontSize : 1;
    ContentMatrix ctm = fm.Times(ContentMatrix{size, 0, 0, size, 0, 0}).Times(State().ctm);
    ASInt32 n = CosDictCount(procs);
    for (ASInt32 i = 0; i < n; ++i) {
        CosObj proc = CosDictValueAt(procs, i);
        if (CosObjGetType(proc) == kCosStream) RunNested(proc, res, ctm);
    }
}

std::string WrapInOptionalContent(CosDoc doc, CosObj resources, std::string& content, bool viewOn,
                                  bool printOn, std::string_view groupName) {
    CosObj ocg = CosNewDict(doc, true);
    CosDictPutName(ocg, cosnames::Type, false, K_OCG);
    CosDictPut(ocg, K_Name, CosNewString(doc, false, groupName));
    CosObj usage = CosNewDict(doc, false);
    CosObj view = CosNewDict(doc, false);
    CosDictPutName(view, K_ViewState, false, viewOn ? K_ON : K_OFF);
    CosObj print = CosNewDict(doc, false);
    CosDictPutName(print, K_PrintState, false, printOn ? K_ON : K_OFF);
    CosDictPut(usage, K_View, view);
    CosDictPut(usage, K_Print, print);
    CosDictPut(ocg, K_Usage, usage);
    std::string name = ContentWriter::AddResource(resources, K_Properties, "TMROCG", ocg);

    // Viewers honour only the groups that the catalog lists.
    CosObj root = CosDocGetRoot(doc);
    if (CosObjGetType(root) == kCosDict) {
        CosObj ocp = CosDictGet(root, K_OCProperties);
        if (CosObjGetType(ocp) != kCosDict) {
            ocp = CosNewDict(doc, false);
            CosDictPut(root, K_OCProperties, ocp);
        }
        CosObj ocgs = CosDictGet(ocp, K_OCGs);
        if (CosObjGetType(ocgs) != kCosArray) {
            ocgs = CosNewArray(doc, false);
            CosDictPut(ocp, K_OCGs, ocgs);
        }
        CosArrayAppend(ocgs, ocg);
        CosObj d = CosDictGet(ocp, K_D);
        if (CosObjGetType(d) != kCosDict) {
            d = CosNewDict(doc, false);
            CosDictPut(ocp, K_D, d);
        }
        if (!viewOn) {
            CosObj off = CosDictGet(d, K_OFF);
            if (CosObjGetType(off) != kCosArray) {
                off = CosNewArray(doc, false);
                CosDictPut(d, K_OFF, off);
            }
            CosArrayAppend(off, ocg);
        }
    }
    std::string wrapped = (boost::format("/OC /%1% BDC ") % name).str();
    wrapped += content;
    if (!content.empty() && content.back() != ' ' && content.back() != '\n' && content.back() != '\r')
        wrapped += '\n';
    wrapped += "EMC ";
    content = std::move(wrapped);
    return name;
}
