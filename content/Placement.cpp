#include "content/Placement.h"

#include <cmath>

#include "pdfcore/CosNames.h"

namespace {

const ASAtom K_Subtype = ASAtomFromString("Subtype");
const ASAtom K_Image = ASAtomFromString("Image");
const ASAtom K_Width = ASAtomFromString("Width");
const ASAtom K_Height = ASAtomFromString("Height");

int DictInt(const ContentToken& dict, std::string_view key, std::string_view alt) {
    const ContentToken* v = dict.Find(key, alt);
    if (!v || !v->IsNumber() || !(v->number > 0) || v->number > 1e9) return 0;
    return static_cast<int>(v->number);
}

}  // namespace

void EffectiveResolution(const PlacedImage& image, double& dpiX, double& dpiY) {
    // The image's x axis runs along (a, b), its y axis along (c, d), each
    // one unit long in image space; their lengths on the page, in points,
    // hold `width` and `height` pixels.
    double lx = std::hypot(image.ctm.a, image.ctm.b);
    double ly = std::hypot(image.ctm.c, image.ctm.d);
    dpiX = lx > 1e-9 ? image.width * 72.0 / lx : 0;
    dpiY = ly > 1e-9 ? image.height * 72.0 / ly : 0;
}

PlacementHandler::PlacementHandler(Log* log) : ContentHandler(log) { m_out.SetEnabled(false); }

void PlacementHandler::ExecuteXObject(OperandStack& s) {
    if (s.size() == 1 && s[0].IsName()) {
        CosObj x = LookupResource(cosnames::XObject, s[0].text);
        if (CosObjGetType(x) == kCosStream && CosDictGetName(x, K_Subtype) == K_Image) {
            PlacedImage p;
            p.xobject = x;
            p.name = s[0].text;
            p.resources = Resources();
            p.ctm = State().ctm;
            p.nesting = NestingDepth();
            p.width = CosDictGetInt(x, K_Width, 0);
            p.height = CosDictGetInt(x, K_Height, 0);
            m_images.push_back(std::move(p));
        }
    }
    ContentHandler::ExecuteXObject(s);
}

void PlacementHandler::EndImage(OperandStack& s) {
    if (!s.empty() && s.back().kind == ContentTokenKind::InlineImageData) {
        PlacedImage p;
        p.xobject = CosNewNull();
        p.resources = Resources();
        p.ctm = State().ctm;
        p.nesting = NestingDepth();
        p.inlineDict.kind = ContentTokenKind::Dictionary;
        for (size_t i = 0; i + 1 < s.size(); ++i) p.inlineDict.elements.push_back(s[i]);
        p.inlineBytes = s.back().text.size();
        p.inlineIndex = m_inlineCount;
        p.width = DictInt(p.inlineDict, "W", "Width");
        p.height = DictInt(p.inlineDict, "H", "Height");
        m_images.push_back(std::move(p));
    }
    ++m_inlineCount;
    ContentHandler::EndImage(s);
}

std::vector<PlacedImage> FindPlacedImages(CosObj page, Log* log, bool annotations) {
    PlacementHandler h(log);
    h.RunPage(page, annotations);
    return h.TakeImages();
}
