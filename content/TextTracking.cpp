#include "content/TextTracking.h"

#include "content/ContentTokenizer.h"

namespace {

const ASAtom K_Font = ASAtomFromString("Font");
const ASAtom K_Subtype = ASAtomFromString("Subtype");
const ASAtom K_Type0 = ASAtomFromString("Type0");
const ASAtom K_Encoding = ASAtomFromString("Encoding");

// Reads the code space ranges of an embedded CMap ("begincodespacerange
// <lo> <hi> ... endcodespacerange"), whose syntax the content tokenizer
// reads as operands and operators.
template <typename Range>
std::vector<Range> CodeSpaceRanges(CosObj cmap) {
    std::vector<Range> ranges;
    std::vector<uint8_t> bytes;
    try {
        bytes = CosStreamDecodedData(cmap);
    } catch (const CVellumError&) {
        return ranges;
    }
    ContentTokenizer tok(bytes);
    ContentToken t;
    std::string_view op;
    std::vector<std::string> strings;
    bool inRanges = false;
    for (;;) {
        auto r = tok.Next(t, op);
        if (r == ContentTokenizer::Result::End) break;
        if (r == ContentTokenizer::Result::Operand) {
            if (inRanges && t.IsString()) strings.push_back(t.text);
            continue;
        }
        if (op == "begincodespacerange") {
            inRanges = true;
            strings.clear();
        } else if (op == "endcodespacerange") {
            for (size_t i = 0; i + 1 < strings.size() && ranges.size() < 256; i += 2) {
                const std::string& lo = strings[i];
                const std::string& hi = strings[i + 1];
                if (lo.empty() || lo.size() != hi.size() || lo.size() > 4) continue;
                uint32_t l = 0, h = 0;
                for (size_t k = 0; k < lo.size(); ++k) {
                    l = l << 8 | static_cast<uint8_t>(lo[k]);
                    h = h << 8 | static_cast<uint8_t>(hi[k]);
                }
                ranges.push_back({static_cast<int>(lo.size()), l, h});
            }
            inRanges = false;
        }
    }
    return ranges;
}

}  // namespace

TextTrackingHandler::TextTrackingHandler(Log* log, bool descend) : ContentHandler(log), m_descend(descend) {
    m_out.SetEnabled(false);
    m_fontStack.emplace_back();
}

const FontUse* TextTrackingHandler::Find(CosObj font) const {
    auto it = m_byFont.find(font);
    return it == m_byFont.end() ? nullptr : &m_fonts[static_cast<size_t>(it->second)];
}

void TextTrackingHandler::SaveGraphicsState() {
    ContentHandler::SaveGraphicsState();
    m_fontStack.push_back(m_fontStack.back());
}

void TextTrackingHandler::RestoreGraphicsState() {
    ContentHandler::RestoreGraphicsState();
    if (m_fontStack.size() <= 1) {
        m_unbalanced = true;
        Report(Log::kWarning, "Error: Font Stack is unbalanced!\n ");
        return;
    }
    m_fontStack.pop_back();
}

void TextTrackingHandler::Finish() {
    // An unclosed q at the end is common and harmless; only a Q that found
    // no font to restore (reported when it happened) counts as unbalanced.
    m_fontStack.resize(1);
}

int TextTrackingHandler::IndexFor(const std::string& name) {
    CosObj font = LookupResource(K_Font, name);
    if (CosObjGetType(font) != kCosDict) font = CosNewNull();
    if (!CosObjIsNull(font)) {
        auto it = m_byFont.find(font);
        if (it != m_byFont.end()) return it->second;
    } else {
        for (size_t i = 0; i < m_fonts.size(); ++i)
            if (CosObjIsNull(m_fonts[i].font) && m_fonts[i].resourceName == name) return static_cast<int>(i);
    }
    FontUse use;
    use.font = font;
    use.resourceName = name;
    int index = static_cast<int>(m_fonts.size());
    if (!CosObjIsNull(font) && CosDictGetName(font, K_Subtype) == K_Type0) {
        use.codeBytes = 2;
        CosObj enc = CosDictGet(font, K_Encoding);
        if (CosObjGetType(enc) == kCosStream) {
            std::vector<Range> ranges = CodeSpaceRanges<Range>(enc);
            if (!ranges.empty()) m_ranges[index] = std::move(ranges);
        }
    }
    m_fonts.push_back(std::move(use));
    if (!CosObjIsNull(font)) m_byFont[font] = index;
    return index;
}

void TextTrackingHandler::SetTextFontAndSize(OperandStack& s) {
    if (s.size() != 2) {
        Report(Log::kWarning, "   SetTextFontAndSize: TOO MANY PARAMS\n ");
        return;
    }
    ContentHandler::SetTextFontAndSize(s);
    if (s[0].IsName()) m_fontStack.back().index = IndexFor(s[0].text);
}

void TextTrackingHandler::Record(const std::string& bytes) {
    int index = m_fontStack.back().index;
    if (index < 0) return;  // text before any Tf shows nothing
    FontUse& use = m_fonts[static_cast<size_t>(index)];
    auto ranges = m_ranges.find(index);
    size_t i = 0;
    while (i < bytes.size()) {
        int n = use.codeBytes;
        if (ranges != m_ranges.end()) {
            // The shortest code space range that matches the leading bytes.
            n = 1;
            bool found = false;
            for (int len = 1; len <= 4 && !found; ++len) {
                if (i + static_cast<size_t>(len) > bytes.size()) break;
                uint32_t code = 0;
                for (int k = 0; k < len; ++k) code = code << 8 | static_cast<uint8_t>(bytes[i + static_cast<size_t>(k)]);
                for (const Range& r : ranges->second) {
                    if (r.bytes == len && code >= r.low && code <= r.high) {
                        n = len;
                        found = true;
                        break;
                    }
                }
            }
        }
        uint32_t code = 0;
        for (int k = 0; k < n && i < bytes.size(); ++k, ++i) code = code << 8 | static_cast<uint8_t>(bytes[i]);
        use.codes.insert(code);
    }
}

void TextTrackingHandler::DisplayText(OperandStack& s) {
    if (s.size() != 1) {
        Report(Log::kWarning, "   DisplayText: TOO MANY PARAMS\n ");
        return;
    }
    if (s[0].IsString()) Record(s[0].text);
    ContentHandler::DisplayText(s);
}

void TextTrackingHandler::DisplayTextArray(OperandStack& s) {
    if (s.size() != 1 || !s[0].IsArray()) {
        Report(Log::kWarning, "   DisplayTextArray: TOO MANY PARAMS\n ");
        return;
    }
    for (const ContentToken& e : s[0].elements)
        if (e.IsString()) Record(e.text);
    ContentHandler::DisplayTextArray(s);
}

void TextTrackingHandler::MoveDisplayText(OperandStack& s) {
    if (s.size() == 1 && s[0].IsString()) Record(s[0].text);
    ContentHandler::MoveDisplayText(s);
}

void TextTrackingHandler::MoveSetDisplayText(OperandStack& s) {
    if (s.size() == 3 && s[2].IsString()) Record(s[2].text);
    ContentHandler::MoveSetDisplayText(s);
}
