#include "content/PageAppend.h"

#include <algorithm>
#include <cmath>

#include "content/ContentParser.h"
#include "pdfcore/CosNames.h"
#include "pdfcore/PDDoc.h"

namespace {

// A direct copy of a dictionary whose values refer to the same indirect
// objects as the original.
CosObj ShallowDictCopy(CosObj dict, CosDoc doc) {
    CosObj copy = CosNewDict(doc, false, CosDictCount(dict));
    ASInt32 n = CosDictCount(dict);
    for (ASInt32 i = 0; i < n; ++i) {
        CosObj v = CosDictValueAt(dict, i);
        if (CosObjIsNull(v)) continue;
        CosDictPut(copy, CosDictKeyAt(dict, i), CosObjIsIndirect(v) ? v : CosObjCopy(v, doc, false));
    }
    return copy;
}

// Counts q and Q (and BT and ET); writes nothing.
class BalanceHandler : public ContentHandler {
public:
    explicit BalanceHandler(Log* log) : ContentHandler(log) { Out().SetEnabled(false); }
    void SaveGraphicsState() override { ++depth; }
    void RestoreGraphicsState() override {
        --depth;
        lowest = std::min(lowest, depth);
    }
    void BeginText() override { inText = true; }
    void EndText() override { inText = false; }
    void Report(Log::Channel, const char*) override {}  // the caller's rewrite reports
    int depth = 0, lowest = 0;
    bool inText = false;
};

std::string Repeat(std::string_view op, int n) {
    std::string s;
    for (int i = 0; i < n; ++i) {
        s += op;
        s += ' ';
    }
    return s;
}

CosObj NewContentStream(CosDoc doc, std::string_view text, int flateLevel) {
    CosObj s = CosNewStream(doc, CosNewNull(), {});
    CosStreamSetDecodedData(s, std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(text.data()), text.size()),
                            flateLevel);
    return s;
}

}  // namespace

CosObj WritablePageResources(CosObj page) {
    CosDoc doc = CosObjGetDoc(page);
    CosObj own = CosDictGet(page, cosnames::Resources);
    if (CosObjGetType(own) == kCosDict && !CosObjIsIndirect(own)) return own;
    CosObj source = CosObjGetType(own) == kCosDict ? own : PDPageGetInheritedAttr(page, cosnames::Resources);
    CosObj res = CosObjGetType(source) == kCosDict ? ShallowDictCopy(source, doc) : CosNewDict(doc, false);
    CosDictPut(page, cosnames::Resources, res);
    return CosDictGet(page, cosnames::Resources);
}

CosObj WritableResourceCategory(CosObj resources, ASAtom category) {
    CosObj cat = CosDictGet(resources, category);
    if (CosObjGetType(cat) == kCosDict && !CosObjIsIndirect(cat)) return cat;
    CosDoc doc = CosObjGetDoc(resources);
    CosObj copy = CosObjGetType(cat) == kCosDict ? ShallowDictCopy(cat, doc) : CosNewDict(doc, false);
    CosDictPut(resources, category, copy);
    return CosDictGet(resources, category);
}

ContentBalance MeasureBalance(std::span<const uint8_t> content, Log* log) {
    BalanceHandler h(log);
    h.RunContent(content);
    return {h.lowest, h.depth, h.inText};
}

void AppendToPageContent(CosObj page, std::string_view drawing, int flateLevel, Log* log) {
    CosDoc doc = CosObjGetDoc(page);
    std::vector<uint8_t> bytes = PageContentBytes(page, log);
    ContentBalance b = MeasureBalance(bytes, log);
    // One q for the wrapping, and one more for every Q the content has
    // without its q, so that those restore states of our own.
    int opened = 1 - b.lowest;
    std::string head = Repeat("q", opened);
    // The streams of a page are read as one, but a token must not run
    // from one stream into the next: the closing stream starts on a new line.
    std::string tail = b.inText ? "\nET " : "\n";
    tail += Repeat("Q", opened + b.end);
    tail += drawing;

    // The page's streams, kept as they are (also one that cannot be
    // decoded: it is the user's, and a better reader may manage).
    CosObj contents = CosDictGet(page, cosnames::Contents);
    std::vector<CosObj> streams;
    if (CosObjGetType(contents) == kCosArray) {
        ASInt32 n = CosArrayLength(contents);
        for (ASInt32 i = 0; i < n; ++i) {
            CosObj s = CosArrayGet(contents, i);
            if (CosObjGetType(s) == kCosStream) streams.push_back(s);
        }
    } else if (CosObjGetType(contents) == kCosStream) {
        streams.push_back(contents);
    }
    if (streams.empty()) {
        // Nothing drawn so far: the drawing is the page's whole content.
        CosDictPut(page, cosnames::Contents, NewContentStream(doc, drawing, flateLevel));
        return;
    }
    CosObj array = CosNewArray(doc, false);
    CosArrayAppend(array, NewContentStream(doc, head, flateLevel));
    for (CosObj s : streams) CosArrayAppend(array, s);
    CosArrayAppend(array, NewContentStream(doc, tail, flateLevel));
    CosDictPut(page, cosnames::Contents, array);
}

ContentMatrix AppearanceFit(const double bbox[4], const ContentMatrix& m, const double rect[4]) {
    double xs[4], ys[4];
    m.Apply(bbox[0], bbox[1], xs[0], ys[0]);
    m.Apply(bbox[2], bbox[1], xs[1], ys[1]);
    m.Apply(bbox[0], bbox[3], xs[2], ys[2]);
    m.Apply(bbox[2], bbox[3], xs[3], ys[3]);
    double x0 = *std::min_element(xs, xs + 4), x1 = *std::max_element(xs, xs + 4);
    double y0 = *std::min_element(ys, ys + 4), y1 = *std::max_element(ys, ys + 4);
    // A box without width or height cannot be scaled onto the rectangle;
    // it is only moved there.
    double sx = x1 - x0 > 1e-9 ? (rect[2] - rect[0]) / (x1 - x0) : 1;
    double sy = y1 - y0 > 1e-9 ? (rect[3] - rect[1]) / (y1 - y0) : 1;
    return {sx, 0, 0, sy, rect[0] - x0 * sx, rect[1] - y0 * sy};
}

bool ReadContentMatrix(CosObj arr, ContentMatrix& m) {
    if (CosObjGetType(arr) != kCosArray || CosArrayLength(arr) != 6) return false;
    double v[6];
    for (int i = 0; i < 6; ++i) {
        CosObj e = CosArrayGet(arr, i);
        CosType t = CosObjGetType(e);
        if (t != kCosInteger && t != kCosFixed) return false;
        v[i] = CosFixedValue(e);
        if (!std::isfinite(v[i])) return false;
    }
    m = {v[0], v[1], v[2], v[3], v[4], v[5]};
    return true;
}

bool ReadContentRect(CosObj arr, double r[4]) {
    if (CosObjGetType(arr) != kCosArray || CosArrayLength(arr) != 4) return false;
    for (int i = 0; i < 4; ++i) {
        CosObj e = CosArrayGet(arr, i);
        CosType t = CosObjGetType(e);
        if (t != kCosInteger && t != kCosFixed) return false;
        r[i] = CosFixedValue(e);
        if (!std::isfinite(r[i])) return false;
    }
    if (r[0] > r[2]) std::swap(r[0], r[2]);
    if (r[1] > r[3]) std::swap(r[1], r[3]);
    return true;
}

std::string MatrixText(const ContentMatrix& m) {
    std::string s;
    for (double v : {m.a, m.b, m.c, m.d, m.e, m.f}) {
        s += FormatReal(v, 6);
        s += ' ';
    }
    s.pop_back();
    return s;
}
