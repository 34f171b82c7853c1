#include "images/ImageFinder.h"

#include <algorithm>
#include <cmath>

#include "base/Log.h"
#include "content/Placement.h"

namespace images {
namespace {
const ASAtom K_Subtype = ASAtomFromString("Subtype");
const ASAtom K_Image = ASAtomFromString("Image");

double Usable(double ppi) { return std::isfinite(ppi) && ppi > 0 ? ppi : 0; }
}  // namespace

void ImageCollector::Add(CosObj image, double ppiX, double ppiY) {
    if (CosObjGetType(image) != kCosStream || CosDictGetName(image, K_Subtype) != K_Image) return;
    auto [it, fresh] = m_index.try_emplace(image, m_images.size());
    if (fresh) {
        FoundImage f;
        f.image = image;
        f.imageClass = ClassifyImage(image);
        m_images.push_back(f);
    }
    FoundImage& f = m_images[it->second];
    f.ppiX = std::max(f.ppiX, Usable(ppiX));
    f.ppiY = std::max(f.ppiY, Usable(ppiY));
    ++f.placements;
}

std::vector<FoundImage> FindImages(PDDoc doc, Log& log) {
    ImageCollector collector;
    for (ASInt32 i = 0; i < PDDocGetNumPages(doc); ++i) {
        try {
            for (const PlacedImage& p : FindPlacedImages(PDDocGetPageObj(doc, i), &log, true)) {
                if (CosObjIsNull(p.xobject)) continue;  // inline images stay in the content
                double ppiX = 0, ppiY = 0;
                EffectiveResolution(p, ppiX, ppiY);
                collector.Add(p.xobject, ppiX, ppiY);
            }
        } catch (const CVellumError& e) {
            log.Warning("Images of page %d: %s\n", int(i + 1), ASGetErrorString(e.GetErrorCode()));
        }
    }
    return collector.TakeImages();
}

}  // namespace images
