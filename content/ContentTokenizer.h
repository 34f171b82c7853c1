// The tokenizer of content streams.
//
// It reads leniently, the way viewers do: stray closing delimiters are
// skipped, an unterminated string, array or dictionary ends at the end of
// the data, a bad hexadecimal digit is ignored, and every token, nesting
// level and operand count is capped so that no input can take unbounded
// memory.  Problems are counted in `Warnings()` for the parser to report.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "content/ContentToken.h"
#include "pdfcore/CosSyntax.h"

class ContentTokenizer {
public:
    enum class Result { Operand, Operator, End };

    // Caps that keep any content stream within bounds.
    static constexpr size_t kMaxNesting = 64;          // arrays and dictionaries inside each other
    static constexpr size_t kMaxTokenBytes = 1 << 16;  // a name, number or operator
    static constexpr size_t kMaxOperandTokens = 1 << 17;  // operands (nested ones included) held at once

    explicit ContentTokenizer(std::span<const uint8_t> data) : m_data(data) {}

    // Reads the next token.  An operand is stored into `operand` (whole for
    // arrays and dictionaries); an operator's text is set into `op` (a view
    // into the data).
    Result Next(ContentToken& operand, std::string_view& op);

    // Called by the parser after `BI`: reads the image dictionary up to
    // `ID` into `dict` (a Dictionary) and the image bytes up to the real
    // `EI` into `data`.  Returns false when no `ID` was found (the image
    // is then dropped).
    bool ReadInlineImage(ContentToken& dict, std::string& data);

    // The number of colour components of a named colour space in the
    // current resources (0: unknown), used to compute the length of
    // unfiltered inline image data.
    void SetColorSpaceResolver(std::function<int(std::string_view)> resolver) {
        m_csResolver = std::move(resolver);
    }

    // The byte length of unfiltered image data that an inline image
    // dictionary implies, or -1 when it implies none (filtered data, or a
    // size or colour space that is missing or unknown).
    double ImpliedDataLength(const ContentToken& dict) const;

    // True when `data`, written between `ID` and `EI`, holds an end marker
    // that a reader could take for the real one: where the search stops
    // would then depend on what follows the image.
    bool EndIsAmbiguous(const ContentToken& dict, std::string_view data) const;

    // Operand-budget accounting: the parser resets it after each operator.
    void ResetBudget() { m_tokensHeld = 0; }
    bool OverBudget() const { return m_tokensHeld > kMaxOperandTokens; }

    size_t Pos() const { return m_pos; }
    bool AtEnd() const { return m_pos >= m_data.size(); }

    struct Warnings {
        size_t unterminatedStrings = 0;
        size_t unterminatedArrays = 0;
        size_t tooDeep = 0;
        size_t strayBytes = 0;
        size_t longTokens = 0;
        size_t missingEI = 0;
        size_t droppedOperands = 0;
    };
    const Warnings& Problems() const { return m_warn; }

    static bool IsWhite(uint8_t c) { return CosSyntax::IsWhite(c); }
    static bool IsDelim(uint8_t c) { return CosSyntax::IsDelim(c); }
    // True for the operators the parser knows (and true, false, null).
    static bool IsKnownKeyword(std::string_view word);

private:
    enum class Raw { Operand, Operator, Close, End };
    Raw ReadOne(ContentToken& out, std::string_view& op, size_t depth);
    void SkipWhite();
    void ReadLiteral(std::string& out);
    void ReadHex(std::string& out);
    void ReadName(std::string& out);
    std::string_view ReadRegular();
    void ReadContainer(ContentToken& out, bool dict, size_t depth);
    size_t FindImageEnd(size_t start, const ContentToken& dict, size_t& dataEnd);
    bool PlausibleContentAfter(size_t pos) const;
    int ComponentsOf(const ContentToken* cs) const;

    std::span<const uint8_t> m_data;
    size_t m_pos = 0;
    size_t m_tokensHeld = 0;
    Warnings m_warn;
    std::function<int(std::string_view)> m_csResolver;
};
