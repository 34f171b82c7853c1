// The handler base class: one operation per content operator.
//
// The parser hands every operator with its operands to a handler.  The base
// handler checks each operator's operand count, logs the operator's fixed
// message on a wrong count and drops it, and otherwise writes the operator
// back through its content writer with the operands as they were read.
// Derived handlers override single operations and call the base operation
// when they want the operator kept.
//
// The handler also keeps the graphics-state stacks (current transformation
// matrix, colour spaces, font), the marked-content stack, and the machinery
// that descends into form XObjects, tiling patterns, soft-mask groups and
// Type 3 glyph procedures with their own resources, bounded in depth and
// guarded against forms that draw themselves.
#pragma once

#include <cstddef>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/Log.h"
#include "content/ContentToken.h"
#include "content/ContentWriter.h"
#include "pdfcore/CosObj.h"

class ContentHandler {
public:
    // How deeply forms, patterns and glyph procedures may nest.
    static constexpr int kMaxNesting = 32;
    // Graphics states kept on the stack; deeper saves are only counted.
    static constexpr size_t kMaxStateDepth = 4096;

    // One entry of the graphics-state stacks.
    struct GraphicsState {
        ContentMatrix ctm;
        std::string fillSpace = "DeviceGray";   // current colour spaces (resource name or family)
        std::string strokeSpace = "DeviceGray";
        std::string colorSpaceName;             // last colour-space resource set by cs or CS
        bool fillPattern = false;               // the fill space is a pattern space
        bool strokePattern = false;
        std::string fontName;                   // Font resource name set by Tf
        double fontSize = 0;
    };

    explicit ContentHandler(Log* log = nullptr);
    virtual ~ContentHandler();

    // ------------------------------------------------------------ housekeeping
    // Called before the first and after the last token of each stream.
    virtual void BeginStream();
    virtual void EndStream();
    // Called once after all streams of a page or form.
    virtual void Finish();
    // Pushes and pops every per-graphics-state stack (q and Q).
    virtual void PushState();
    virtual bool PopState();
    // The resource dictionary that names in the content refer to.
    virtual void SetResources(CosObj resources);
    virtual CosObj Resources() const;
    // Writes a message to the log (nothing without a log).
    virtual void Report(Log::Channel channel, const char* text);
    // Whether the handler descends into forms, patterns and Type 3 glyphs.
    virtual bool WantsDescent() const;

    // ------------------------------------------------------------ operators
    virtual void SetDash(OperandStack& s);
    virtual void SetDeviceDependentGraphicsState(OperandStack& s);
    virtual void SetFlatness(OperandStack& s);
    virtual void SetLineJoin(OperandStack& s);
    virtual void SetLineCap(OperandStack& s);
    virtual void SetMiterLimit(OperandStack& s);
    virtual void SetLineWidth(OperandStack& s);
    virtual void SaveGraphicsState();
    virtual void RestoreGraphicsState();
    virtual void ConcatenateMatrix(OperandStack& s);
    virtual void GrayFill(OperandStack& s);
    virtual void GrayStroke(OperandStack& s);
    virtual void CMYKFill(OperandStack& s);
    virtual void CMYKStroke(OperandStack& s);
    virtual void RGBFill(OperandStack& s);
    virtual void RGBStroke(OperandStack& s);
    virtual void SetColorFill(OperandStack& s);
    virtual void SetColorStroke(OperandStack& s);
    virtual void SetColorFillN(OperandStack& s);
    virtual void SetColorStrokeN(OperandStack& s);
    virtual void SetColorSpaceFill(OperandStack& s);
    virtual void SetColorSpaceStroke(OperandStack& s);
    virtual void SetShadedFill(OperandStack& s);
    virtual void SetTextCharacterSpacing(OperandStack& s);
    virtual void SetTextFontAndSize(OperandStack& s);
    virtual void SetTextLeading(OperandStack& s);
    virtual void SetTextRenderingMode(OperandStack& s);
    virtual void SetTextRise(OperandStack& s);
    virtual void SetTextWordSpacing(OperandStack& s);
    virtual void SetHorizontalScaling(OperandStack& s);
    virtual void BeginText();
    virtual void EndText();
    virtual void DisplayText(OperandStack& s);
    virtual void DisplayTextArray(OperandStack& s);
    virtual void MoveDisplayText(OperandStack& s);
    virtual void MoveSetDisplayText(OperandStack& s);
    virtual void TextDestination(OperandStack& s);
    virtual void SetTextDestinationAndLeading(OperandStack& s);
    virtual void TextMatrix(OperandStack& s);
    virtual void NextLine();
    virtual void SetCharWidth(OperandStack& s);
    virtual void SetCacheDevice(OperandStack& s);
    virtual void Curve(OperandStack& s);
    virtual void MoveTo(OperandStack& s);
    virtual void Rectangle(OperandStack& s);
    virtual void CurveToFromXY(OperandStack& s);
    virtual void CurveToFromXY2(OperandStack& s);
    virtual void LineTo(OperandStack& s);
    virtual void Fill();
    virtual void EOFill();
    virtual void EndPath();
    virtual void CloseStroke();
    virtual void Stroke();
    virtual void CloseFillStroke();
    virtual void CloseEOFillStroke();
    virtual void FillStroke();
    virtual void EOFillStroke();
    virtual void ClosePath();
    virtual void Clip();
    virtual void EOClip();
    virtual void BeginMarkedContent(OperandStack& s);
    virtual void BeginMarkedContentProps(OperandStack& s);
    virtual void EndMarkedContent();
    virtual void MarkPoint(OperandStack& s);
    virtual void MarkPointProps(OperandStack& s);
    virtual void RenderingIntent(OperandStack& s);
    virtual void ExecuteXObject(OperandStack& s);
    virtual void BeginCompat();
    virtual void EndCompat();
    virtual void BeginImage();
    // The image dictionary's key/value pairs, then one InlineImageData token.
    virtual void EndImage(OperandStack& s);

    // ------------------------------------------------------------ single tokens
    // Every operand as it is read, and every operator (known or not) before
    // it is dispatched.
    virtual void Operand(const ContentToken& token);
    virtual void Operator(std::string_view op);

    // ------------------------------------------------------------ switches
    void SetRemoveMarkedContent(bool on) { m_removeMarkedContent = on; }
    void SetRemoveRenderingIntents(bool on) { m_removeIntents = on; }

    // ------------------------------------------------------------ running
    // Parses `data` as one content stream with this handler.
    void RunContent(std::span<const uint8_t> data);
    // A page: its content (one stream or an array read as one sequence)
    // with the page's inherited resources.  With `annotations`, every
    // appearance stream of the page's annotations follows, each as a form.
    void RunPage(CosObj page, bool annotations = false);
    // A form XObject (or any content stream with Resources and Matrix):
    // resources, matrix and state are set around it and restored after.
    // `extra` is applied after the form's Matrix (an annotation's placement).
    void RunForm(CosObj form, const ContentMatrix* extra = nullptr);
    // A tiling pattern, placed by its Matrix in the space of the stream
    // that the current page or form started with.
    void RunPattern(CosObj pattern);

    // ------------------------------------------------------------ state
    ContentWriter& Out() { return m_out; }
    const GraphicsState& State() const { return m_states.back(); }
    GraphicsState& State() { return m_states.back(); }
    size_t StateDepth() const { return m_states.size(); }
    bool Mismatched() const { return m_mismatch; }
    int NestingDepth() const { return static_cast<int>(m_active.size()); }
    Log* GetLog() const { return m_log; }

    // The number of colour components of the colour-space resource `name`
    // (0: unknown), for the length of unfiltered inline image data.
    int ColorSpaceComponents(std::string_view name) const;
    // The resource `name` of `category` in the current resources, or null.
    CosObj LookupResource(ASAtom category, std::string_view name) const;
    // True for "Pattern" and for a colour-space resource of the Pattern family.
    bool IsPatternSpace(const std::string& name) const;

protected:
    // Writes the operands and the operator when the operand count is
    // `count` (any count when negative); otherwise logs `message` and
    // writes nothing.  Returns whether it wrote.
    bool Keep(OperandStack& s, std::string_view op, int count, const char* message);
    // Keep() for the device colour operators (g, G, k, K, rg, RG), which
    // also select their device space for filling or stroking.
    void DeviceColour(OperandStack& s, std::string_view op, int count, const char* message,
                      const char* space, bool fill);
    // BMC and BDC: keeps, drops (with its EMC) or reports the sequence by
    // its tag; `knownTag` says whether the tag is one the operator expects.
    void BeginMarked(OperandStack& s, const char* op, bool knownTag);
    // Writes the operands and the operator without a check.
    void Emit(OperandStack& s, std::string_view op);
    void Emit(std::string_view op) { m_out.WriteOperator(op); }
    // Descends into what a Do, scn, gs or Tf refers to, when wanted.
    void DescendXObject(const std::string& name);
    void DescendPattern(const OperandStack& s);
    void DescendExtGState(const std::string& name);
    void DescendType3(const std::string& fontName);
    // Runs a nested content stream with its own resources and matrix;
    // false when the depth limit or a cycle stopped it.
    bool RunNested(CosObj stream, CosObj resources, const ContentMatrix& ctm);

    ContentWriter m_out;
    Log* m_log;
    std::vector<GraphicsState> m_states;
    size_t m_uncountedStates = 0;
    std::vector<bool> m_markedDropEMC;  // per open marked-content sequence: drop its EMC
    bool m_mismatch = false;
    bool m_removeMarkedContent = false;
    bool m_removeIntents = false;
    CosObj m_resources;
    ContentMatrix m_streamBase;  // the CTM the current page or form started with
    std::vector<CosObj> m_active;  // streams being run (cycle detection)
    std::set<std::string> m_reportedTags;
    std::set<CosObj> m_visitedType3;
};

// Optional content: puts `content` (a page's whole content) under a new
// optional-content group registered as TMROCGn in the Properties of
// `resources`; the group is also listed in the catalog's OCProperties so
// that viewers honour it.  Returns the resource name.
std::string WrapInOptionalContent(CosDoc doc, CosObj resources, std::string& content, bool viewOn,
                                  bool printOn, std::string_view groupName = "Optional content");
