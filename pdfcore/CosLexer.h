// Tokens of PDF file syntax over a byte buffer.
//
// The lexer reads leniently, the way viewers do: malformed numbers such as
// "--5" or "1.2.3" give the number their leading part spells, a stray
// delimiter becomes a one-byte keyword, and only input that can never be
// read (a bad hex digit, an unterminated string, a token past its size cap)
// raises a parser error (severity 2, system 2).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "base/ASError.h"
#include "pdfcore/CosSyntax.h"

enum class CosTokType : uint8_t {
    Eof,
    Integer,
    Real,
    Name,        // text holds the decoded name (after #xx escapes), no slash
    String,      // text holds the decoded bytes of a literal string
    HexString,   // text holds the decoded bytes of a hex string
    Keyword,     // true, false, null, obj, R, stream, ... or a stray byte
    ArrayOpen,   // [
    ArrayClose,  // ]
    DictOpen,    // <<
    DictClose,   // >>
    BraceOpen,   // {
    BraceClose,  // }
};

struct CosToken {
    CosTokType type = CosTokType::Eof;
    size_t start = 0;   // offset of the token's first byte
    std::string text;   // names, strings and keywords
    int64_t ival = 0;   // Integer
    double rval = 0;    // Integer and Real

    bool IsKeyword(const char* word) const { return type == CosTokType::Keyword && text == word; }
};

class CosLexer {
public:
    // Caps that keep any input from eating memory without bound.
    static constexpr size_t kMaxToken = 32767;               // names, keywords, numbers
    static constexpr size_t kMaxString = size_t(64) << 20;  // literal and hex strings

    explicit CosLexer(std::span<const uint8_t> data, size_t pos = 0)
        : m_data(data), m_pos(pos < data.size() ? pos : data.size()) {}

    size_t Pos() const { return m_pos; }
    void Seek(size_t pos) { m_pos = pos < m_data.size() ? pos : m_data.size(); }
    size_t Size() const { return m_data.size(); }
    bool AtEnd() const { return m_pos >= m_data.size(); }
    std::span<const uint8_t> Data() const { return m_data; }

    // The next token; Eof at the end of the data.
    CosToken Next();
    // The next token without consuming it.
    CosToken Peek();
    // Skips white space and comments.
    void SkipWhite();
    // Reads the bytes up to the next end of line (CR, LF or CR LF) and steps
    // past it; false when already at the end of the data.
    bool ReadLine(std::string& line, size_t maxLength = 4096);

    static bool IsWhite(uint8_t c) { return CosSyntax::IsWhite(c); }
    static bool IsDelim(uint8_t c) { return CosSyntax::IsDelim(c); }
    static bool IsRegular(uint8_t c) { return CosSyntax::IsRegular(c); }

    // Reads a number in lenient viewer fashion from `text`; false when the
    // text is not number-like (it then is a keyword).
    static bool ParseNumber(const std::string& text, CosToken& tok);

private:
    void ReadLiteralString(CosToken& tok);
    void ReadHexString(CosToken& tok);
    void ReadName(CosToken& tok);
    void ReadRegular(CosToken& tok);

    std::span<const uint8_t> m_data;
    size_t m_pos = 0;
};
