#include "content/ContentHandler.h"

#include <algorithm>
#include <cmath>

#include "content/ContentParser.h"
#include "content/ContentTokenizer.h"
#include "pdfcore/CosNames.h"

namespace {

// Tags whose marked-content markers are removed when that is asked for;
// the drawing between the markers stays.
const char* const kStrippedTags[] = {"DocumentSetup", "Layer",     "InPathText",   "OnPathText",
                                     "AltAI8",        "PointText", "Touch-Up_Line"};
const char* const kKnownBDC[] = {
    "OC",   "I",     "P",     "H",    "H1",   "H2",        "H3",       "H4",        "H5",   "H6",
    "L",    "LI",    "Lbl",   "LBody", "Table", "TR",      "TH",       "TD",        "HR",   "Span",
    "Quote", "Note", "Reference", "BibEntry", "Code", "Link", "Figure", "Formula", "Form", "Shape",
    "ReversedChars", "InlineShape", "AltWords", "WebCaptureFN", "PageletContainer"};
const char* const kKnownBMC[] = {"Clip",        "Pgf",           "EmbeddedDocument", "Artifact",
                                 "WebCaptureBG", "pageletContainer", "PlacedGraphic", "PlacedPDF", "Tx"};
const char* const kKnownDP[] = {"DocumentSetup", "PgfFormat", "TabFormat"};

template <size_t N>
bool InList(const char* const (&list)[N], const std::string& s) {
    for (const char* e : list)
        if (s == e) return true;
    return false;
}

bool NumbersOnly(const OperandStack& s, size_t from = 0) {
    for (size_t i = from; i < s.size(); ++i)
        if (!s[i].IsNumber()) return false;
    return true;
}

// Puts ASCIIHex in front of the inline image's filters, with a null
// parameter entry in front of its decode parameters when it has any.
void AddHexFilter(ContentToken& dict) {
    ContentToken* filter = nullptr;
    ContentToken* parms = nullptr;
    for (size_t i = 0; i + 1 < dict.elements.size(); i += 2) {
        const ContentToken& k = dict.elements[i];
        if (k.IsName("F") || k.IsName("Filter")) filter = &dict.elements[i + 1];
        if (k.IsName("DP") || k.IsName("DecodeParms")) parms = &dict.elements[i + 1];
    }
    const bool hadFilter = filter && filter->kind != ContentTokenKind::Null &&
                           !(filter->IsArray() && filter->elements.empty());
    if (parms && hadFilter && parms->kind != ContentTokenKind::Null) {
        ContentToken none;
        if (parms->IsArray()) {
            parms->elements.insert(parms->elements.begin(), none);
        } else {
            ContentToken arr;
            arr.kind = ContentTokenKind::Array;
            arr.elements = {none, *parms};
            *parms = std::move(arr);
        }
    } else if (parms) {
        // Parameters without a filter apply to nothing.
        *parms = ContentToken();
    }
    ContentToken ahx = ContentToken::MakeName("AHx");
    if (!filter) {
        dict.elements.push_back(ContentToken::MakeName("F"));
        dict.elements.push_back(ahx);
    } else if (!hadFilter) {
        *filter = ahx;
    } else if (filter->IsArray()) {
        filter->elements.insert(filter->elements.begin(), ahx);
    } else {
        ContentToken arr;
        arr.kind = ContentTokenKind::Array;
        arr.elements = {ahx, *filter};
        *filter = std::move(arr);
    }
}

std::string HexEncode(std::string_view data) {
    static const char kDigits[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(data.size() * 2 + data.size() / 32 + 1);
    for (size_t i = 0; i < data.size(); ++i) {
        unsigned char c = static_cast<unsigned char>(data[i]);
        out.push_back(kDigits[c >> 4]);
        out.push_back(kDigits[c & 15]);
        if (i % 32 == 31) out.push_back('\n');
    }
    out.push_back('>');
    return out;
}

}  // namespace

ContentHandler::ContentHandler(Log* log) : m_log(log), m_resources(CosNewNull()) {
    m_states.emplace_back();
}

ContentHandler::~ContentHandler() = default;

// ---------------------------------------------------------------- housekeeping

void ContentHandler::BeginStream() {}
void ContentHandler::EndStream() {}
void ContentHandler::Finish() {}

void ContentHandler::PushState() {
    // Each level costs a copy of the state, so the stack is bounded: past
    // the cap, levels are only counted and share the state on top (a
    // stream that saves a million times still restores correctly as long
    // as it does not change state at those depths).
    if (m_states.size() >= kMaxStateDepth) {
        ++m_uncountedStates;
        return;
    }
    m_states.push_back(m_states.back());
}

bool ContentHandler::PopState() {
    if (m_uncountedStates > 0) {
        --m_uncountedStates;
        return true;
    }
    if (m_states.size() <= 1) return false;
    m_states.pop_back();
    return true;
}

void ContentHandler::SetResources(CosObj resources) {
    m_resources = resources;
    m_out.SetResources(resources);
}

CosObj ContentHandler::Resources() const { return m_resources; }

void ContentHandler::Report(Log::Channel channel, const char* text) {
    if (!m_log) return;
    m_log->Write(channel, text);
}

bool ContentHandler::WantsDescent() const { return false; }

void ContentHandler::Operand(const ContentToken&) {}
void ContentHandler::Operator(std::string_view) {}

CosObj ContentHandler::LookupResource(ASAtom category, std::string_view name) const {
    if (CosObjGetType(m_resources) != kCosDict) return CosNewNull();
    CosObj cat = CosDictGet(m_resources, category);
    if (CosObjGetType(cat) != kCosDict) return CosNewNull();
    ASAtom atom = ASAtomFind(name);
    if (atom == ASAtomNull) return CosNewNull();
    return CosDictGet(cat, atom);
}

// ---------------------------------------------------------------- writing operators

void ContentHandler::Emit(OperandStack& s, std::string_view op) {
    if (!m_out.Enabled()) return;
    for (const ContentToken& t : s) m_out.WriteOperand(t);
    m_out.WriteOperator(op);
}

bool ContentHandler::Keep(OperandStack& s, std::string_view op, int count, const char* message) {
    if (count >= 0 && s.size() != static_cast<size_t>(count)) {
        if (message) Report(Log::kWarning, message);
        return false;
    }
    Emit(s, op);
    return true;
}

// ---------------------------------------------------------------- operators

void ContentHandler::SetDash(OperandStack& s) {
    if (s.size() != 2) {
        Report(Log::kWarning, "   SetDash: TOO MANY PARAMS\n ");
        return;
    }
    if (!s[0].IsArray()) {
        Report(Log::kWarning, "   SetDash: FIRST PARAM NOT ARRAY!\n ");
        return;
    }
    Emit(s, "d");
}

void ContentHandler::SetDeviceDependentGraphicsState(OperandStack& s) {
    if (Keep(s, "gs", 1, "   SetDeviceDependentGraphicsState: TOO MANY PARAMS\n ") && s[0].IsName() &&
        WantsDescent())
        DescendExtGState(s[0].text);
}
void ContentHandler::SetFlatness(OperandStack& s) { Keep(s, "i", 1, "   SetFlatness: TOO MANY PARAMS\n "); }
void ContentHandler::SetLineJoin(OperandStack& s) { Keep(s, "j", 1, "   SetLineJoin: TOO MANY PARAMS\n "); }
void ContentHandler::SetLineCap(OperandStack& s) { Keep(s, "J", 1, "   SetLineCap: TOO MANY PARAMS\n "); }
void ContentHandler::SetMiterLimit(OperandStack& s) { Keep(s, "M", 1, "   SetMiterLimit: TOO MANY PARAMS\n "); }
void ContentHandler::SetLineWidth(OperandStack& s) { Keep(s, "w", 1, "   SetLineWidth: TOO MANY PARAMS\n "); }

void ContentHandler::SaveGraphicsState() {
    Emit("q");
    PushState();
}

void ContentHandler::RestoreGraphicsState() {
    if (m_states.size() <= 1 && m_uncountedStates == 0) {
        // A Q without its q: the stacks stay as they are.  It is still
        // written, because a renderer ignores it just the same.
        m_mismatch = true;
        Report(Log::kWarning, "Mismatched Save/Restore of graphic state!\n");
        Emit("Q");
        return;
    }
    Emit("Q");
    PopState();
}

void ContentHandler::ConcatenateMatrix(OperandStack& s) {
    if (!Keep(s, "cm", 6, "   ConcatenateMatrix: TOO MANY PARAMS!\n")) return;
    if (!NumbersOnly(s)) return;
    ContentMatrix m{s[0].number, s[1].number, s[2].number, s[3].number, s[4].number, s[5].number};
    State().ctm = m.Times(State().ctm);
}

void ContentHandler::DeviceColour(OperandStack& s, std::string_view op, int count, const char* message,
                                  const char* space, bool fill) {
    if (!Keep(s, op, count, message)) return;
    GraphicsState& g = State();
    (fill ? g.fillSpace : g.strokeSpace) = space;
    (fill ? g.fillPattern : g.strokePattern) = false;
}
void ContentHandler::GrayFill(OperandStack& s) {
    DeviceColour(s, "g", 1, "   GrayFill: TOO MANY PARAMS\n ", "DeviceGray", true);
}
void ContentHandler::GrayStroke(OperandStack& s) {
    DeviceColour(s, "G", 1, "   GrayStroke: TOO MANY PARAMS\n ", "DeviceGray", false);
}
void ContentHandler::CMYKFill(OperandStack& s) {
    DeviceColour(s, "k", 4, "   CMYKFill: TOO MANY PARAMS\n ", "DeviceCMYK", true);
}
void ContentHandler::CMYKStroke(OperandStack& s) {
    DeviceColour(s, "K", 4, "   CMYKStroke: TOO MANY PARAMS\n ", "DeviceCMYK", false);
}
void ContentHandler::RGBFill(OperandStack& s) {
    DeviceColour(s, "rg", 3, "   RGBFill: TOO MANY PARAMS\n ", "DeviceRGB", true);
}
void ContentHandler::RGBStroke(OperandStack& s) {
    DeviceColour(s, "RG", 3, "   RGBStroke: TOO MANY PARAMS\n ", "DeviceRGB", false);
}
void ContentHandler::SetColorFill(OperandStack& s) { Emit(s, "sc"); }
void ContentHandler::SetColorStroke(OperandStack& s) { Emit(s, "SC"); }
void ContentHandler::SetColorFillN(OperandStack& s) {
    Emit(s, "scn");
    if (WantsDescent()) DescendPattern(s);
}
void ContentHandler::SetColorStrokeN(OperandStack& s) {
    Emit(s, "SCN");
    if (WantsDescent()) DescendPattern(s);
}

bool ContentHandler::IsPatternSpace(const std::string& name) const {
    if (name == "Pattern") return true;
    static const ASAtom kColorSpace = ASAtomFromString("ColorSpace");
    static const ASAtom kPatternName = ASAtomFromString("Pattern");
    CosObj cs = LookupResource(kColorSpace, name);
    return CosObjGetType(cs) == kCosArray && CosObjGetType(CosArrayGet(cs, 0)) == kCosName &&
           CosNameValue(CosArrayGet(cs, 0)) == kPatternName;
}

void ContentHandler::SetColorSpaceFill(OperandStack& s) {
    if (!Keep(s, "cs", 1, "   SetColorSpaceFill: TOO MANY PARAMS\n ")) return;
    if (!s[0].IsName()) return;
    State().fillSpace = s[0].text;
    State().colorSpaceName = s[0].text;
    State().fillPattern = IsPatternSpace(s[0].text);
}

void ContentHandler::SetColorSpaceStroke(OperandStack& s) {
    if (!Keep(s, "CS", 1, "   SetColorSpaceStroke: TOO MANY PARAMS\n ")) return;
    if (!s[0].IsName()) return;
    State().strokeSpace = s[0].text;
    State().colorSpaceName = s[0].text;
    State().strokePattern = IsPatternSpace(s[0].text);
}

void ContentHandler::SetShadedFill(OperandStack& s) { Keep(s, "sh", 1, "   SetShadedFill: TOO MANY PARAMS\n "); }
void ContentHandler::SetTextCharacterSpacing(OperandStack& s) {
    Keep(s, "Tc", 1, "   SetTextCharacterSpacing: TOO MANY PARAMS\n ");
}
void ContentHandler::SetTextFontAndSize(OperandStack& s) {
    if (!Keep(s, "Tf", 2, "   SetTextFontAndSize: TOO MANY PARAMS\n ")) return;
    if (s[0].IsName()) State().fontName = s[0].text;
    if (s[1].IsNumber()) State().fontSize = s[1].number;
    if (s[0].IsName() && WantsDescent()) DescendType3(s[0].text);
}
void ContentHandler::SetTextLeading(OperandStack& s) { Keep(s, "TL", 1, "   SetTextLeading: TOO MANY PARAMS\n "); }
void ContentHandler::SetTextRenderingMode(OperandStack& s) {
    Keep(s, "Tr", 1, "   SetTextRenderingMode: TOO MANY PARAMS\n ");
}
void ContentHandler::SetTextRise(OperandStack& s) { Keep(s, "Ts", 1, "   SetTextRise: TOO MANY PARAMS\n "); }
void ContentHandler::SetTextWordSpacing(OperandStack& s) {
    Keep(s, "Tw", 1, "   SetTextWordSpacing: TOO MANY PARAMS\n ");
}
void ContentHandler::SetHorizontalScaling(OperandStack& s) {
    Keep(s, "Tz", 1, "   SetHorizontalScaling: TOO MANY PARAMS\n ");
}
void ContentHandler::BeginText() { Emit("BT"); }
void ContentHandler::EndText() { Emit("ET"); }
void ContentHandler::DisplayText(OperandStack& s) { Keep(s, "Tj", 1, "   DisplayText: TOO MANY PARAMS!\n"); }
void ContentHandler::DisplayTextArray(OperandStack& s) { Emit(s, "TJ"); }
void ContentHandler::MoveDisplayText(OperandStack& s) { Keep(s, "'", 1, "   MoveDisplayText: TOO MANY PARAMS!\n"); }
void ContentHandler::MoveSetDisplayText(OperandStack& s) {
    Keep(s, "\"", 3, "   MoveSetDisplayText: TOO MANY PARAMS!\n");
}
void ContentHandler::TextDestination(OperandStack& s) { Keep(s, "Td", 2, "   TextDestination: TOO MANY PARAMS!\n"); }
void ContentHandler::SetTextDestinationAndLeading(OperandStack& s) {
    Keep(s, "TD", 2, "   SetTextDestinationAndLeading: TOO MANY PARAMS!\n");
}
void ContentHandler::TextMatrix(OperandStack& s) { Keep(s, "Tm", 6, "   TextMatrix: TOO MANY PARAMS!\n"); }
void ContentHandler::NextLine() { Emit("T*"); }
void ContentHandler::SetCharWidth(OperandStack& s) { Emit(s, "d0"); }
void ContentHandler::SetCacheDevice(OperandStack& s) { Emit(s, "d1"); }
void ContentHandler::Curve(OperandStack& s) { Keep(s, "c", 6, "   Curve: TOO MANY PARAMS!\n"); }
void ContentHandler::MoveTo(OperandStack& s) { Keep(s, "m", 2, "   MoveTo: TOO MANY PARAMS!\n"); }
void ContentHandler::Rectangle(OperandStack& s) { Keep(s, "re", 4, "   Rectangle: TOO MANY PARAMS!\n"); }
void ContentHandler::CurveToFromXY(OperandStack& s) { Keep(s, "v", 4, "   CurveToFromXY: TOO MANY PARAMS!\n"); }
void ContentHandler::CurveToFromXY2(OperandStack& s) { Keep(s, "y", 4, "   CurveToFromXY2: TOO MANY PARAMS!\n"); }
void ContentHandler::LineTo(OperandStack& s) { Keep(s, "l", 2, "   LineTo: TOO MANY PARAMS!\n"); }
void ContentHandler::Fill() { Emit("f"); }
void ContentHandler::EOFill() { Emit("f*"); }
void ContentHandler::EndPath() { Emit("n"); }
void ContentHandler::CloseStroke() { Emit("s"); }
void ContentHandler::Stroke() { Emit("S"); }
void ContentHandler::CloseFillStroke() { Emit("b"); }
void ContentHandler::CloseEOFillStroke() { Emit("b*"); }
void ContentHandler::FillStroke() { Emit("B"); }
void ContentHandler::EOFillStroke() { Emit("B*"); }
void ContentHandler::ClosePath() { Emit("h"); }
void ContentHandler::Clip() { Emit("W"); }
void ContentHandler::EOClip() { Emit("W*"); }

void ContentHandler::BeginMarked(OperandStack& s, const char* op, bool knownTag) {
    if (s.empty() || !s[0].IsName()) {
        // Without its tag the sequence cannot be kept; its EMC goes too.
        m_markedDropEMC.push_back(true);
        return;
    }
    bool drop = false;
    if (m_removeMarkedContent) {
        const std::string& tag = s[0].text;
        if (InList(kStrippedTags, tag)) {
            drop = true;
        } else if (!knownTag && m_reportedTags.insert(std::string(op) + " " + tag).second) {
            std::string msg = std::string("Unknown ") + op + " operator '" + tag + "'\n";
            Report(Log::kInfo, msg.c_str());
        }
    }
    m_markedDropEMC.push_back(drop);
    if (!drop) Emit(s, op);
}

void ContentHandler::BeginMarkedContent(OperandStack& s) {
    BeginMarked(s, "BMC", !s.empty() && InList(kKnownBMC, s[0].text));
}

void ContentHandler::BeginMarkedContentProps(OperandStack& s) {
    BeginMarked(s, "BDC", !s.empty() && InList(kKnownBDC, s[0].text));
}

void ContentHandler::EndMarkedContent() {
    if (m_markedDropEMC.empty()) {
        // An EMC without a start is kept: it does no harm to a renderer and
        // combined streams may close what an earlier stream opened.
        Emit("EMC");
        return;
    }
    bool drop = m_markedDropEMC.back();
    m_markedDropEMC.pop_back();
    if (!drop) Emit("EMC");
}

void ContentHandler::MarkPoint(OperandStack& s) { Emit(s, "MP"); }

void ContentHandler::MarkPointProps(OperandStack& s) {
    if (s.empty() || !s[0].IsName()) return;
    if (m_removeMarkedContent) {
        const std::string& tag = s[0].text;
        // Marked points draw nothing, so the known ones go as a whole.
        if (InList(kStrippedTags, tag) || InList(kKnownDP, tag)) return;
        if (m_reportedTags.insert("DP " + tag).second) {
            std::string msg = "Unknown DP operator '" + tag + "'\n";
            Report(Log::kInfo, msg.c_str());
        }
    }
    Emit(s, "DP");
}

void ContentHandler::RenderingIntent(OperandStack& s) {
    if (s.size() != 1) {
        Report(Log::kWarning, "   RenderingIntent: TOO MANY PARAMS\n ");
        return;
    }
    if (!s[0].IsName() || m_removeIntents) return;
    Emit(s, "ri");
}

void ContentHandler::ExecuteXObject(OperandStack& s) {
    if (s.size() != 1) {
        Report(Log::kWarning, "   ExecuteXObject: TOO MANY PARAMS\n ");
        return;
    }
    if (!s[0].IsName()) return;
    Emit(s, "Do");
    if (WantsDescent()) DescendXObject(s[0].text);
}

int ContentHandler::ColorSpaceComponents(std::string_view name) const {
    static const ASAtom kColorSpace = ASAtomFromString("ColorSpace");
    CosObj cs = LookupResource(kColorSpace, name);
    if (CosObjGetType(cs) == kCosName) {
        std::string n = ASAtomGetString(CosNameValue(cs));
        if (n == "DeviceGray" || n == "CalGray") return 1;
        if (n == "DeviceRGB" || n == "CalRGB") return 3;
        if (n == "DeviceCMYK") return 4;
        return 0;
    }
    if (CosObjGetType(cs) != kCosArray) return 0;
    std::string family = ASAtomGetString(CosNameValue(CosArrayGet(cs, 0)));
    if (family == "Indexed" || family == "I" || family == "Separation") return 1;
    if (family == "CalGray") return 1;
    if (family == "CalRGB" || family == "Lab") return 3;
    if (family == "DeviceN") return CosArrayLength(CosArrayGet(cs, 1));
    if (family == "ICCBased") return CosDictGetInt(CosArrayGet(cs, 1), cosnames::N, 0);
    return 0;
}

void ContentHandler::BeginCompat() { Emit("BX"); }
void ContentHandler::EndCompat() { Emit("EX"); }
void ContentHandler::BeginImage() { Emit("BI"); }

void ContentHandler::EndImage(OperandStack& s) {
    if (s.empty() || s.back().kind != ContentTokenKind::InlineImageData) return;
    if (!m_out.Enabled()) return;
    std::string hex;
    const std::string* data = &s.back().text;
    ContentToken dict;
    dict.kind = ContentTokenKind::Dictionary;
    dict.elements.assign(s.begin(), s.end() - 1);
    ContentTokenizer probe({});
    probe.SetColorSpaceResolver([this](std::string_view n) { return ColorSpaceComponents(n); });
    if (probe.EndIsAmbiguous(dict, *data)) {
        // The data holds an end marker that a reader may stop at, which
        // one depending on what follows the image.  Hexadecimal data has
        // no such marker (I is no hex digit), so the image reads back the
        // same wherever it is written, in this program and in viewers.
        // A line end before EI separates the marker from the data.
        std::string_view bytes = *data;
        if (!bytes.empty() && bytes.back() == '\n') bytes.remove_suffix(1);
        if (!bytes.empty() && bytes.back() == '\r') bytes.remove_suffix(1);
        AddHexFilter(dict);
        hex = HexEncode(bytes);
        data = &hex;
    }
    for (size_t i = 0; i < dict.elements.size(); ++i) m_out.WriteOperand(dict.elements[i]);
    m_out.Append("ID ");
    m_out.Append(*data);
    // The end marker must be preceded by white space for readers that
    // search for it; data that already ends in white space keeps its bytes.
    char last = data->empty() ? 0 : data->back();
    if (last != ' ' && last != '\n' && last != '\r' && last != '\t' && last != '\f') m_out.Append("\n");
    m_out.WriteOperator("EI");
}
