// Geometry read from pages: the box that bounds a page's content, and the
// paths that content draws or clips with.
#pragma once

#include <string_view>
#include <vector>

#include "content/ContentHandler.h"

// The box named "media", "crop", "bleed", "trim" or "art" (any other name
// reads as "crop"), falling back as ISO 32000 defines: bleed, trim and art
// boxes default to the crop box, the crop box to the media box, a missing
// media box to US Letter.  The box is normalised (left < right, bottom <
// top) and clipped to the media box.  `box` is left, bottom, right, top.
void PageContentBox(CosObj page, std::string_view boxName, double box[4]);

struct PathSegment {
    char op;         // 'm', 'l', 'c' (v and y are made full curves), 'h', or 'r' for re
    double pts[6];   // in user space (the CTM applied)
};

struct ContentPath {
    std::vector<PathSegment> segments;
    char paint = 'n';      // the painting operator's first byte: S s f B b n
    bool evenOdd = false;  // f*, B*, b*
    int clip = 0;          // 0 none, 1 W, 2 W*
};

// Reads the paths a content stream builds, with the CTM applied to every
// point.  A path interrupted by an operator that has no place in a path
// ("Found unknown path operator! " is logged) is abandoned.
class PathReader : public ContentHandler {
public:
    explicit PathReader(Log* log = nullptr);
    const std::vector<ContentPath>& Paths() const { return m_paths; }

    void Operator(std::string_view op) override;
    void MoveTo(OperandStack& s) override;
    void LineTo(OperandStack& s) override;
    void Curve(OperandStack& s) override;
    void CurveToFromXY(OperandStack& s) override;
    void CurveToFromXY2(OperandStack& s) override;
    void Rectangle(OperandStack& s) override;
    void ClosePath() override;
    void Clip() override;
    void EOClip() override;
    void Fill() override;
    void EOFill() override;
    void EndPath() override;
    void CloseStroke() override;
    void Stroke() override;
    void CloseFillStroke() override;
    void CloseEOFillStroke() override;
    void FillStroke() override;
    void EOFillStroke() override;

private:
    void Add(char op, const OperandStack& s, size_t count);
    void Paint(char paint, bool evenOdd);
    bool m_building = false;
    double m_lastX = 0, m_lastY = 0;  // current point, user space before the CTM
    ContentPath m_path;
    std::vector<ContentPath> m_paths;
};
