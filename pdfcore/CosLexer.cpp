#include "pdfcore/CosLexer.h"

#include <cmath>

using CosSyntax::HexValue;

void CosLexer::SkipWhite() { m_pos = CosSyntax::SkipWhite(m_data, m_pos); }

bool CosLexer::ReadLine(std::string& line, size_t maxLength) {
    line.clear();
    const size_t n = m_data.size();
    if (m_pos >= n) return false;
    while (m_pos < n && m_data[m_pos] != '\r' && m_data[m_pos] != '\n') {
        if (line.size() < maxLength) line.push_back(static_cast<char>(m_data[m_pos]));
        ++m_pos;
    }
    if (m_pos < n && m_data[m_pos] == '\r') ++m_pos;
    if (m_pos < n && m_data[m_pos] == '\n') ++m_pos;
    return true;
}

CosToken CosLexer::Peek() {
    size_t save = m_pos;
    CosToken tok = Next();
    m_pos = save;
    return tok;
}

CosToken CosLexer::Next() {
    SkipWhite();
    CosToken tok;
    tok.start = m_pos;
    if (m_pos >= m_data.size()) return tok;
    uint8_t c = m_data[m_pos];
    switch (c) {
    case '(':
        ++m_pos;
        ReadLiteralString(tok);
        return tok;
    case '<':
        if (m_pos + 1 < m_data.size() && m_data[m_pos + 1] == '<') {
            m_pos += 2;
            tok.type = CosTokType::DictOpen;
            return tok;
        }
        ++m_pos;
        ReadHexString(tok);
        return tok;
    case '>':
        if (m_pos + 1 < m_data.size() && m_data[m_pos + 1] == '>') {
            m_pos += 2;
            tok.type = CosTokType::DictClose;
            return tok;
        }
        break;  // a lone '>' is a stray byte
    case '[':
        ++m_pos;
        tok.type = CosTokType::ArrayOpen;
        return tok;
    case ']':
        ++m_pos;
        tok.type = CosTokType::ArrayClose;
        return tok;
    case '{':
        ++m_pos;
        tok.type = CosTokType::BraceOpen;
        return tok;
    case '}':
        ++m_pos;
        tok.type = CosTokType::BraceClose;
        return tok;
    case '/':
        ++m_pos;
        ReadName(tok);
        return tok;
    default:
        if (IsRegular(c)) {
            ReadRegular(tok);
            return tok;
        }
        break;
    }
    // Stray delimiter (")" or a lone ">"): a one-byte keyword the parser rejects.
    ++m_pos;
    tok.type = CosTokType::Keyword;
    tok.text.assign(1, static_cast<char>(c));
    return tok;
}

void CosLexer::ReadLiteralString(CosToken& tok) {
    tok.type = CosTokType::String;
    switch (CosSyntax::ReadLiteralBody(m_data, m_pos, tok.text, kMaxString)) {
        case CosSyntax::LiteralEnd::Closed: return;
        case CosSyntax::LiteralEnd::Unterminated: ASRaiseParse(kErrUnterminatedString);
        case CosSyntax::LiteralEnd::TooLong: ASRaiseParse(kErrStringTooLong);
    }
}

void CosLexer::ReadHexString(CosToken& tok) {
    tok.type = CosTokType::HexString;
    std::string& out = tok.text;
    const size_t n = m_data.size();
    int high = -1;
    while (true) {
        if (m_pos >= n) ASRaiseParse(kErrUnterminatedString);
        uint8_t c = m_data[m_pos++];
        if (c == '>') break;
        if (IsWhite(c)) continue;
        int v = HexValue(c);
        if (v < 0) ASRaiseParse(kErrNonHexChar);
        if (high < 0) {
            high = v;
        } else {
            if (out.size() >= kMaxString) ASRaiseParse(kErrStringTooLong);
            out.push_back(static_cast<char>(high * 16 + v));
            high = -1;
        }
    }
    // An odd final digit is followed by an implied 0.
    if (high >= 0) out.push_back(static_cast<char>(high * 16));
}

void CosLexer::ReadName(CosToken& tok) {
    tok.type = CosTokType::Name;
    const size_t n = m_data.size();
    while (m_pos < n && IsRegular(m_data[m_pos])) {
        if (tok.text.size() >= kMaxToken) ASRaiseParse(kErrTokenTooLong);
        uint8_t c = m_data[m_pos++];
        if (c == '#' && m_pos + 1 < n && HexValue(m_data[m_pos]) >= 0 &&
            HexValue(m_data[m_pos + 1]) >= 0) {
            c = static_cast<uint8_t>(HexValue(m_data[m_pos]) * 16 + HexValue(m_data[m_pos + 1]));
            m_pos += 2;
        }
        tok.text.push_back(static_cast<char>(c));
    }
}

void CosLexer::ReadRegular(CosToken& tok) {
    const size_t n = m_data.size();
    while (m_pos < n && IsRegular(m_data[m_pos])) {
        if (tok.text.size() >= kMaxToken) ASRaiseParse(kErrTokenTooLong);
        tok.text.push_back(static_cast<char>(m_data[m_pos++]));
    }
    if (ParseNumber(tok.text, tok)) {
        tok.text.clear();
        return;
    }
    tok.type = CosTokType::Keyword;
}

bool CosLexer::ParseNumber(const std::string& text, CosToken& tok) {
    if (text.empty()) return false;
    for (char ch : text)
        if (!(ch >= '0' && ch <= '9') && ch != '+' && ch != '-' && ch != '.') return false;
    size_t i = 0;
    bool negative = false;
    // Repeated signs ("--5", "+-3") read as one sign, as viewers do.
    while (i < text.size() && (text[i] == '+' || text[i] == '-')) {
        if (text[i] == '-') negative = true;
        ++i;
    }
    double whole = 0;
    int64_t iv = 0;
    bool overflow = false;
    bool digits = false;
    while (i < text.size() && text[i] >= '0' && text[i] <= '9') {
        int d = text[i] - '0';
        whole = whole * 10 + d;
        if (iv > (INT64_MAX - d) / 10) overflow = true;
        else iv = iv * 10 + d;
        digits = true;
        ++i;
    }
    bool real = false;
    double frac = 0, scale = 1;
    if (i < text.size() && text[i] == '.') {
        real = true;
        ++i;
        while (i < text.size() && text[i] >= '0' && text[i] <= '9') {
            if (scale < 1e30) {
                frac = frac * 10 + (text[i] - '0');
                scale *= 10;
            }
            digits = true;
            ++i;
        }
    }
    // Anything after the leading number ("1.2.3", "5-2") is ignored.
    (void)digits;
    double value = whole + frac / scale;
    if (negative) value = -value;
    tok.rval = value;
    if (!real && !overflow) {
        tok.type = CosTokType::Integer;
        tok.ival = negative ? -iv : iv;
    } else {
        tok.type = CosTokType::Real;
        tok.ival = static_cast<int64_t>(std::fmax(std::fmin(value, 9.2e18), -9.2e18));
    }
    return true;
}
