#include "content/ContentParser.h"

#include <cstdio>

#include "content/ContentTokenizer.h"
#include "pdfcore/CosNames.h"

namespace {

// Operands held on the stack at once; beyond this, operands are dropped
// until the next operator (which then sees a wrong count).
constexpr size_t kMaxStack = 4096;

}  // namespace

bool ContentParser::Dispatch(ContentHandler& h, std::string_view op, OperandStack& s) {
    // A linear chain of exact comparisons, in the order of the operator
    // table: the first equal operator wins.
    if (op == "d") h.SetDash(s);
    else if (op == "gs") h.SetDeviceDependentGraphicsState(s);
    else if (op == "i") h.SetFlatness(s);
    else if (op == "j") h.SetLineJoin(s);
    else if (op == "J") h.SetLineCap(s);
    else if (op == "M") h.SetMiterLimit(s);
    else if (op == "w") h.SetLineWidth(s);
    else if (op == "q") h.SaveGraphicsState();
    else if (op == "Q") h.RestoreGraphicsState();
    else if (op == "cm") h.ConcatenateMatrix(s);
    else if (op == "g") h.GrayFill(s);
    else if (op == "G") h.GrayStroke(s);
    else if (op == "k") h.CMYKFill(s);
    else if (op == "K") h.CMYKStroke(s);
    else if (op == "rg") h.RGBFill(s);
    else if (op == "RG") h.RGBStroke(s);
    else if (op == "sc") h.SetColorFill(s);
    else if (op == "SC") h.SetColorStroke(s);
    else if (op == "scn") h.SetColorFillN(s);
    else if (op == "SCN") h.SetColorStrokeN(s);
    else if (op == "cs") h.SetColorSpaceFill(s);
    else if (op == "CS") h.SetColorSpaceStroke(s);
    else if (op == "sh") h.SetShadedFill(s);
    else if (op == "Tc") h.SetTextCharacterSpacing(s);
    else if (op == "Tf") h.SetTextFontAndSize(s);
    else if (op == "TL") h.SetTextLeading(s);
    else if (op == "Tr") h.SetTextRenderingMode(s);
    else if (op == "Ts") h.SetTextRise(s);
    else if (op == "Tw") h.SetTextWordSpacing(s);
    else if (op == "Tz") h.SetHorizontalScaling(s);
    else if (op == "BT") h.BeginText();
    else if (op == "ET") h.EndText();
    else if (op == "Tj") h.DisplayText(s);
    else if (op == "TJ") h.DisplayTextArray(s);
    else if (op == "'") h.MoveDisplayText(s);
    else if (op == "\"") h.MoveSetDisplayText(s);
    else if (op == "Td") h.TextDestination(s);
    else if (op == "TD") h.SetTextDestinationAndLeading(s);
    else if (op == "Tm") h.TextMatrix(s);
    else if (op == "T*") h.NextLine();
    else if (op == "d0") h.SetCharWidth(s);
    else if (op == "d1") h.SetCacheDevice(s);
    else if (op == "c") h.Curve(s);
    else if (op == "m") h.MoveTo(s);
    else if (op == "re") h.Rectangle(s);
    else if (op == "v") h.CurveToFromXY(s);
    else if (op == "y") h.CurveToFromXY2(s);
    else if (op == "l") h.LineTo(s);
    else if (op == "f") h.Fill();
    else if (op == "F") h.Fill();
    else if (op == "f*") h.EOFill();
    else if (op == "n") h.EndPath();
    else if (op == "s") h.CloseStroke();
    else if (op == "S") h.Stroke();
    else if (op == "b") h.CloseFillStroke();
    else if (op == "b*") h.CloseEOFillStroke();
    else if (op == "B") h.FillStroke();
    else if (op == "B*") h.EOFillStroke();
    else if (op == "h") h.ClosePath();
    else if (op == "W") h.Clip();
    else if (op == "W*") h.EOClip();
    else if (op == "BMC") h.BeginMarkedContent(s);
    else if (op == "BDC") h.BeginMarkedContentProps(s);
    else if (op == "EMC") h.EndMarkedContent();
    else if (op == "MP") h.MarkPoint(s);
    else if (op == "DP") h.MarkPointProps(s);
    else if (op == "ri") h.RenderingIntent(s);
    else if (op == "Do") h.ExecuteXObject(s);
    else if (op == "PS") return false;
    else if (op == "BX") h.BeginCompat();
    else if (op == "EX") h.EndCompat();
    else if (op == "BI") h.BeginImage();
    else if (op == "EI") h.EndImage(s);
    else return false;
    return true;
}

void ContentParser::Parse(std::span<const uint8_t> data) {
    ContentHandler& h = *m_handler;
    ContentTokenizer tok(data);
    tok.SetColorSpaceResolver([&h](std::string_view name) { return h.ColorSpaceComponents(name); });
    m_stack.clear();
    h.BeginStream();
    ContentToken operand;
    std::string_view op;
    size_t droppedOperands = 0;
    for (;;) {
        ContentTokenizer::Result r = tok.Next(operand, op);
        if (r == ContentTokenizer::Result::End) break;
        if (r == ContentTokenizer::Result::Operand) {
            h.Operand(operand);
            if (m_stack.size() >= kMaxStack || tok.OverBudget()) {
                ++droppedOperands;
            } else {
                m_stack.push_back(std::move(operand));
            }
            operand = ContentToken();
            continue;
        }
        h.Operator(op);
        if (op == "BI") {
            // The image is read whole before either handler operation runs,
            // so a damaged one is dropped without leaving a lone BI behind.
            m_stack.clear();
            ContentToken dict;
            std::string bytes;
            if (tok.ReadInlineImage(dict, bytes)) {
                OperandStack image;
                image.reserve(dict.elements.size() + 1);
                for (auto& e : dict.elements) image.push_back(std::move(e));
                ContentToken dataTok;
                dataTok.kind = ContentTokenKind::InlineImageData;
                dataTok.text = std::move(bytes);
                image.push_back(std::move(dataTok));
                h.BeginImage();
                h.EndImage(image);
            }
        } else if (op == "EI") {
            // EI outside an inline image has no data to end: dropped.
        } else {
            Dispatch(h, op, m_stack);
        }
        m_stack.clear();
        tok.ResetBudget();
    }
    h.EndStream();
    const ContentTokenizer::Warnings& w = tok.Problems();
    droppedOperands += w.droppedOperands;
    if (w.unterminatedStrings || w.unterminatedArrays || w.tooDeep || w.longTokens || w.missingEI ||
        droppedOperands) {
        char text[320];
        std::snprintf(text, sizeof text,
                      "Damaged content stream: %zu unterminated strings, %zu unterminated arrays, "
                      "%zu nested too deeply, %zu overlong tokens, %zu inline images without EI, "
                      "%zu operands dropped\n",
                      w.unterminatedStrings, w.unterminatedArrays, w.tooDeep, w.longTokens, w.missingEI,
                      droppedOperands);
        h.Report(Log::kWarning, text);
    }
    m_stack.clear();
}

std::vector<uint8_t> PageContentBytes(CosObj page, Log* log) {
    std::vector<uint8_t> out;
    CosObj contents = CosDictGet(page, cosnames::Contents);
    auto add = [&](CosObj stream) {
        if (CosObjGetType(stream) != kCosStream) return;
        try {
            bool complete = true;
            std::vector<uint8_t> bytes = CosStreamDecodedData(stream, {}, &complete);
            if (!out.empty()) out.push_back('\n');
            out.insert(out.end(), bytes.begin(), bytes.end());
        } catch (const CVellumError& e) {
            if (log) log->Warning("Content stream %d cannot be decoded: '%s'\n", CosObjGetID(stream), e.what());
        }
    };
    if (CosObjGetType(contents) == kCosArray) {
        ASInt32 n = CosArrayLength(contents);
        for (ASInt32 i = 0; i < n; ++i) add(CosArrayGet(contents, i));
    } else {
        add(contents);
    }
    return out;
}
