// Adding drawing to an existing page: resources the page may change
// without touching other pages, and content appended so that the page's
// own graphics state cannot leak into what is drawn after it.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "content/ContentHandler.h"
#include "pdfcore/CosObj.h"

// The page's own resource dictionary, ready to be changed.  Resources
// inherited from the page tree, or held as an indirect object (which other
// pages may share), are first copied into a direct dictionary of the page;
// the copy refers to the same resource objects.
CosObj WritablePageResources(CosObj page);

// The category dictionary (`XObject`, `Font`, ...) of `resources`, ready
// to be changed: created when missing, copied when it is an indirect
// object that other resource dictionaries may share.
CosObj WritableResourceCategory(CosObj resources, ASAtom category);

// How a content stream leaves the graphics-state stack.
struct ContentBalance {
    int lowest = 0;      // the lowest q depth reached (negative after a Q without its q)
    int end = 0;         // the depth at the end
    bool inText = false; // ends inside BT ... ET
};
ContentBalance MeasureBalance(std::span<const uint8_t> content, Log* log = nullptr);

// Appends `drawing` (content text) to the page's content, after the
// existing content has been put inside q ... Q: the page's own state
// (matrix, colours, clip, a text object left open) ends before `drawing`
// starts, and Q operators without their q in the page's content cannot
// undo the wrapping.  The existing streams are kept; one stream is added
// in front and one at the end, Flate-compressed at `flateLevel`.
void AppendToPageContent(CosObj page, std::string_view drawing, int flateLevel, Log* log = nullptr);

// The matrix that places an appearance (a form with `bbox` and `matrix`)
// into an annotation's rectangle `rect` (ISO 32000-1, 12.5.5): the bbox
// transformed by the matrix is bounded by a box, which is scaled and moved
// onto the rectangle.  bbox and rect are left, bottom, right, top.
ContentMatrix AppearanceFit(const double bbox[4], const ContentMatrix& matrix, const double rect[4]);

// Readers that never raise: false for anything but an array of numbers of
// the right length.  A rectangle is normalised (left < right, bottom < top).
bool ReadContentMatrix(CosObj array, ContentMatrix& m);
bool ReadContentRect(CosObj array, double r[4]);

// Content text of a matrix for `cm` (six numbers, no operator).
std::string MatrixText(const ContentMatrix& m);
