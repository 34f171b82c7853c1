// Where images are drawn: the current transformation matrix at every
// image XObject and inline image of a page, through nested forms, tiling
// patterns, soft masks, Type 3 glyphs and annotation appearances.
#pragma once

#include <string>
#include <vector>

#include "content/ContentHandler.h"

struct PlacedImage {
    // The image XObject, or null for an inline image.
    CosObj xobject;
    // The resource name it was drawn by (empty for an inline image).
    std::string name;
    // The resource dictionary the name was looked up in.
    CosObj resources;
    // The image's unit square maps to the page through this matrix.
    ContentMatrix ctm;
    // 0 on the page itself, 1 inside a form drawn by the page, and so on.
    int nesting = 0;
    // An inline image: its dictionary entries (abbreviated keys as
    // written) and the size of its data; its position among the page's
    // inline images (in drawing order, forms included) is `inlineIndex`.
    ContentToken inlineDict;
    size_t inlineBytes = 0;
    int inlineIndex = -1;
    // Pixel size as the dictionary gives it (0 when missing).
    int width = 0;
    int height = 0;
};

// The effective resolution of an image of `width` x `height` pixels drawn
// with `ctm`, in pixels per inch along the image's two axes (0 for a
// degenerate matrix).
void EffectiveResolution(const PlacedImage& image, double& dpiX, double& dpiY);

class PlacementHandler : public ContentHandler {
public:
    explicit PlacementHandler(Log* log = nullptr);

    const std::vector<PlacedImage>& Images() const { return m_images; }
    std::vector<PlacedImage> TakeImages() { return std::move(m_images); }

    bool WantsDescent() const override { return true; }
    void ExecuteXObject(OperandStack& s) override;
    void EndImage(OperandStack& s) override;

private:
    std::vector<PlacedImage> m_images;
    int m_inlineCount = 0;
};

// Every image a page draws, in drawing order, with the matrix it is drawn
// with; annotation appearances follow the page content when asked.
std::vector<PlacedImage> FindPlacedImages(CosObj page, Log* log = nullptr, bool annotations = true);
