#include "content/PageGeometry.h"

#include <algorithm>

#include "pdfcore/CosNames.h"
#include "pdfcore/PDDoc.h"

namespace {

const ASAtom K_BleedBox = ASAtomFromString("BleedBox");
const ASAtom K_ArtBox = ASAtomFromString("ArtBox");

bool ReadBox(CosObj arr, double b[4]) {
    if (CosObjGetType(arr) != kCosArray || CosArrayLength(arr) != 4) return false;
    for (int i = 0; i < 4; ++i) {
        CosObj e = CosArrayGet(arr, i);
        if (CosObjGetType(e) != kCosInteger && CosObjGetType(e) != kCosFixed) return false;
        b[i] = CosFixedValue(e);
    }
    if (b[0] > b[2]) std::swap(b[0], b[2]);
    if (b[1] > b[3]) std::swap(b[1], b[3]);
    return true;
}

}  // namespace

void PageContentBox(CosObj page, std::string_view boxName, double box[4]) {
    double media[4] = {0, 0, 612, 792};
    ReadBox(PDPageGetInheritedAttr(page, cosnames::MediaBox), media);
    double crop[4] = {media[0], media[1], media[2], media[3]};
    ReadBox(PDPageGetInheritedAttr(page, cosnames::CropBox), crop);
    double chosen[4] = {crop[0], crop[1], crop[2], crop[3]};
    if (boxName == "media") {
        std::copy(media, media + 4, chosen);
    } else if (boxName == "bleed" || boxName == "trim" || boxName == "art") {
        ASAtom key = boxName == "bleed" ? K_BleedBox : boxName == "trim" ? cosnames::TrimBox : K_ArtBox;
        ReadBox(CosDictGet(page, key), chosen);
    }
    box[0] = std::max(chosen[0], media[0]);
    box[1] = std::max(chosen[1], media[1]);
    box[2] = std::min(chosen[2], media[2]);
    box[3] = std::min(chosen[3], media[3]);
    // A box wholly outside the media box is no box at all: the media box then.
    if (box[0] >= box[2] || box[1] >= box[3]) std::copy(media, media + 4, box);
}

PathReader::PathReader(Log* log) : ContentHandler(log) { m_out.SetEnabled(false); }

void PathReader::Operator(std::string_view op) {
    if (!m_building) return;
    static const char* const kPathOps[] = {"m", "l", "c", "v", "y", "h", "re", "W", "W*", "f", "F", "f*",
                                           "n", "s", "S", "b", "b*", "B", "B*"};
    for (const char* p : kPathOps)
        if (op == p) return;
    Report(Log::kWarning, "Found unknown path operator! ");
    m_building = false;
    m_path = ContentPath();
}

void PathReader::Add(char op, const OperandStack& s, size_t count) {
    if (s.size() != count) return;
    for (const ContentToken& t : s)
        if (!t.IsNumber()) return;
    PathSegment seg{op, {0, 0, 0, 0, 0, 0}};
    const ContentMatrix& m = State().ctm;
    double in[6] = {0, 0, 0, 0, 0, 0};
    if (op == 'v') {  // the first control point is the current point
        in[0] = m_lastX;
        in[1] = m_lastY;
        for (size_t i = 0; i < 4; ++i) in[2 + i] = s[i].number;
        seg.op = 'c';
    } else if (op == 'y') {  // the second control point is the end point
        for (size_t i = 0; i < 4; ++i) in[i] = s[i].number;
        in[4] = s[2].number;
        in[5] = s[3].number;
        seg.op = 'c';
    } else {
        for (size_t i = 0; i < count; ++i) in[i] = s[i].number;
    }
    if (op == 'r') {
        // A rectangle's corners: x y and x+w y+h, both through the CTM.
        m.Apply(in[0], in[1], seg.pts[0], seg.pts[1]);
        m.Apply(in[0] + in[2], in[1] + in[3], seg.pts[2], seg.pts[3]);
        m_lastX = in[0];
        m_lastY = in[1];
    } else {
        int points = seg.op == 'c' ? 3 : 1;
        for (int i = 0; i < points; ++i) m.Apply(in[2 * i], in[2 * i + 1], seg.pts[2 * i], seg.pts[2 * i + 1]);
        m_lastX = in[2 * points - 2];
        m_lastY = in[2 * points - 1];
    }
    if (!m_building && op != 'm' && op != 'r') return;  // a path starts with m or re
    m_building = true;
    m_path.segments.push_back(seg);
}

void PathReader::MoveTo(OperandStack& s) { Add('m', s, 2); }
void PathReader::LineTo(OperandStack& s) { Add('l', s, 2); }
void PathReader::Curve(OperandStack& s) { Add('c', s, 6); }
void PathReader::CurveToFromXY(OperandStack& s) { Add('v', s, 4); }
void PathReader::CurveToFromXY2(OperandStack& s) { Add('y', s, 4); }
void PathReader::Rectangle(OperandStack& s) { Add('r', s, 4); }
void PathReader::ClosePath() {
    if (m_building) m_path.segments.push_back({'h', {0, 0, 0, 0, 0, 0}});
}
void PathReader::Clip() { m_path.clip = 1; }
void PathReader::EOClip() { m_path.clip = 2; }

void PathReader::Paint(char paint, bool evenOdd) {
    if (m_building && !m_path.segments.empty()) {
        m_path.paint = paint;
        m_path.evenOdd = evenOdd;
        m_paths.push_back(std::move(m_path));
    }
    m_path = ContentPath();
    m_building = false;
}

void PathReader::Fill() { Paint('f', false); }
void PathReader::EOFill() { Paint('f', true); }
void PathReader::EndPath() { Paint('n', false); }
void PathReader::CloseStroke() { Paint('s', false); }
void PathReader::Stroke() { Paint('S', false); }
void PathReader::CloseFillStroke() { Paint('b', false); }
void PathReader::CloseEOFillStroke() { Paint('b', true); }
void PathReader::FillStroke() { Paint('B', false); }
void PathReader::EOFillStroke() { Paint('B', true); }
