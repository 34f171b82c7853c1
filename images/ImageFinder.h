// The images a document draws, each once, with the highest resolution it
// is drawn at.
//
// An image's effective resolution on the page is its pixel count along an
// axis over the length that axis is drawn at, in inches.  An image drawn
// several times (on several pages, through several forms or names) is
// reduced for its sharpest placement, along each axis separately, so no
// placement ends up below the target resolution.  Images that no page,
// form or annotation appearance draws are not found and are left alone;
// soft masks are reduced with the image that uses them.
#pragma once

#include <unordered_map>
#include <vector>

#include "images/ImageReduce.h"
#include "pdfcore/PDDoc.h"

class Log;

namespace images {

struct FoundImage {
    CosObj image;  // the image XObject stream
    ImageClass imageClass = ImageClass::Color;
    double ppiX = 0;  // highest over all placements; 0 when every placement was degenerate
    double ppiY = 0;
    int placements = 0;
};

// Gathers placements into one entry per image object, in the order the
// images were first drawn.
class ImageCollector {
public:
    // Adds one placement; anything that is not an image XObject is ignored.
    void Add(CosObj image, double ppiX, double ppiY);
    const std::vector<FoundImage>& Images() const { return m_images; }
    std::vector<FoundImage> TakeImages() { return std::move(m_images); }

private:
    std::vector<FoundImage> m_images;
    std::unordered_map<CosObj, size_t> m_index;
};

// Every image XObject the pages of `doc` draw, through forms, patterns
// and annotation appearances.  A page whose content cannot be read is
// reported on the Warning channel; the images found elsewhere still count.
std::vector<FoundImage> FindImages(PDDoc doc, Log& log);

}  // namespace images
