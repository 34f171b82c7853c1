// The rendering modes text is drawn in, per font: a font may become a
// filled Type 3 font only when all of its text is plainly filled.
#include <vector>

#include "content/TextTracking.h"
#include "fonts/FontOutline.h"

namespace fonts {

namespace {

const ASAtom K_Font = ASAtomFromString("Font");

// Keeps the rendering mode and the font with the graphics state (q and Q
// save and restore both) and notes every font that shows text while the
// mode is not 0.  A mode operand that is not a number counts as not
// filling, so that doubt keeps the font.
class RenderModeTracker : public TextTrackingHandler {
public:
    RenderModeTracker(std::set<CosObj>& notFilled, std::vector<CosObj>* order)
        : TextTrackingHandler(nullptr, true), m_notFilled(notFilled), m_order(order) {
        m_states.emplace_back();
    }

    // A nested stream (form, pattern, appearance, glyph procedure) starts
    // with the state of the stream that draws it and leaves that state as
    // it found it, however its own q and Q pair up.
    void BeginStream() override {
        TextTrackingHandler::BeginStream();
        m_saved.push_back(m_states);
        State top = m_states.back();
        m_states.assign(1, top);
    }
    void EndStream() override {
        TextTrackingHandler::EndStream();
        if (m_saved.empty()) return;
        m_states = std::move(m_saved.back());
        m_saved.pop_back();
    }
    void SaveGraphicsState() override {
        TextTrackingHandler::SaveGraphicsState();
        if (m_states.size() >= kMaxStateDepth) {
            ++m_uncounted;
            return;
        }
        m_states.push_back(m_states.back());
    }
    void RestoreGraphicsState() override {
        TextTrackingHandler::RestoreGraphicsState();
        if (m_uncounted > 0) {
            --m_uncounted;
        } else if (m_states.size() > 1) {
            m_states.pop_back();
        }
    }
    void SetTextRenderingMode(OperandStack& s) override {
        TextTrackingHandler::SetTextRenderingMode(s);
        bool fill = s.size() == 1 && s[0].IsNumber() && s[0].number == 0;
        m_states.back().mode = fill ? 0 : -1;
    }
    void SetTextFontAndSize(OperandStack& s) override {
        TextTrackingHandler::SetTextFontAndSize(s);
        if (s.size() != 2 || !s[0].IsName()) return;
        CosObj font = LookupResource(K_Font, s[0].text);
        if (CosObjGetType(font) != kCosDict) font = CosNewNull();
        m_states.back().font = font;
        if (m_order && !CosObjIsNull(font) && m_seen.insert(font).second) m_order->push_back(font);
    }
    void DisplayText(OperandStack& s) override {
        TextTrackingHandler::DisplayText(s);
        Shown();
    }
    void DisplayTextArray(OperandStack& s) override {
        TextTrackingHandler::DisplayTextArray(s);
        Shown();
    }
    void MoveDisplayText(OperandStack& s) override {
        TextTrackingHandler::MoveDisplayText(s);
        Shown();
    }
    void MoveSetDisplayText(OperandStack& s) override {
        TextTrackingHandler::MoveSetDisplayText(s);
        Shown();
    }

private:
    struct State {
        int mode = 0;
        CosObj font = CosNewNull();
    };
    void Shown() {
        const State& st = m_states.back();
        if (st.mode != 0 && !CosObjIsNull(st.font)) m_notFilled.insert(st.font);
    }

    std::set<CosObj>& m_notFilled;
    std::vector<CosObj>* m_order;
    std::set<CosObj> m_seen;
    std::vector<State> m_states;
    std::vector<std::vector<State>> m_saved;
    size_t m_uncounted = 0;
};

}  // namespace

std::set<CosObj> FontsNotOnlyFilled(PDDoc doc, std::vector<CosObj>* order) {
    std::set<CosObj> notFilled;
    std::set<CosObj> seen;
    ASInt32 pages = PDDocGetNumPages(doc);
    for (ASInt32 p = 0; p < pages; ++p) {
        std::vector<CosObj> pageOrder;
        RenderModeTracker tracker(notFilled, order ? &pageOrder : nullptr);
        tracker.RunPage(PDDocGetPageObj(doc, p), true);
        for (CosObj f : pageOrder)
            if (seen.insert(f).second) order->push_back(f);
    }
    return notFilled;
}

}  // namespace fonts
