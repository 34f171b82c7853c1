// The fonts a content stream uses and the character codes each one shows,
// for font subsetting.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "content/ContentHandler.h"

struct FontUse {
    CosObj font;               // the font dictionary (null when the name is missing)
    std::string resourceName;  // the name it was first selected by
    int codeBytes = 1;         // bytes per character code (2 for most composite fonts)
    std::set<uint32_t> codes;  // every code shown
};

// Keeps a stack of current fonts parallel to the graphics-state stack:
// Tf replaces its top, q pushes and Q pops it; every text-showing operator
// records its codes against the font on top.  With descent on (the
// default) the text inside forms, patterns and Type 3 glyphs counts too.
//
// Composite fonts with Identity encodings or an embedded CMap have their
// codes split by the CMap's code space ranges; other predefined CMaps are
// read as two-byte codes.
class TextTrackingHandler : public ContentHandler {
public:
    explicit TextTrackingHandler(Log* log = nullptr, bool descend = true);

    // Fonts in the order first used.
    const std::vector<FontUse>& Fonts() const { return m_fonts; }
    // The use of one font dictionary, or null.
    const FontUse* Find(CosObj font) const;
    bool Unbalanced() const { return m_unbalanced; }

    bool WantsDescent() const override { return m_descend; }
    void SaveGraphicsState() override;
    void RestoreGraphicsState() override;
    void SetTextFontAndSize(OperandStack& s) override;
    void DisplayText(OperandStack& s) override;
    void DisplayTextArray(OperandStack& s) override;
    void MoveDisplayText(OperandStack& s) override;
    void MoveSetDisplayText(OperandStack& s) override;
    void Finish() override;

private:
    struct Current {
        int index = -1;  // into m_fonts
    };
    void Record(const std::string& bytes);
    int IndexFor(const std::string& name);

    bool m_descend;
    bool m_unbalanced = false;
    std::vector<Current> m_fontStack;
    std::vector<FontUse> m_fonts;
    std::map<CosObj, int> m_byFont;
    // Code space ranges per font: (byte count, low, high).
    struct Range {
        int bytes;
        uint32_t low, high;
    };
    std::map<int, std::vector<Range>> m_ranges;
};
