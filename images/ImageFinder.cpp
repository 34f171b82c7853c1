#include "images/ImageFinder.h"

#include <algorithm>
#include <cmath>

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

}  // namespace images
