#include "pdfcore/CosSyntax.h"

namespace CosSyntax {

size_t SkipWhite(std::span<const uint8_t> data, size_t pos) {
    const size_t n = data.size();
    while (pos < n) {
        uint8_t c = data[pos];
        if (IsWhite(c)) {
            ++pos;
        } else if (c == '%') {
            while (pos < n && data[pos] != '\r' && data[pos] != '\n') ++pos;
        } else {
            break;
        }
    }
    return pos;
}

LiteralEnd ReadLiteralBody(std::span<const uint8_t> data, size_t& pos, std::string& out, size_t maxBytes) {
    out.clear();
    const size_t n = data.size();
    int depth = 1;
    for (;;) {
        if (pos >= n) return LiteralEnd::Unterminated;
        if (out.size() >= maxBytes) return LiteralEnd::TooLong;
        uint8_t c = data[pos++];
        if (c == '(') {
            ++depth;
            out.push_back('(');
        } else if (c == ')') {
            if (--depth == 0) return LiteralEnd::Closed;
            out.push_back(')');
        } else if (c == '\r') {
            if (pos < n && data[pos] == '\n') ++pos;
            out.push_back('\n');
        } else if (c != '\\') {
            out.push_back(static_cast<char>(c));
        } else {
            if (pos >= n) return LiteralEnd::Unterminated;
            uint8_t e = data[pos++];
            switch (e) {
                case 'n': out.push_back('\n'); break;
                case 'r': out.push_back('\r'); break;
                case 't': out.push_back('\t'); break;
                case 'b': out.push_back('\b'); break;
                case 'f': out.push_back('\f'); break;
                case '\r':  // line continuation
                    if (pos < n && data[pos] == '\n') ++pos;
                    break;
                case '\n':
                    break;
                default:
                    if (e >= '0' && e <= '7') {
                        int v = e - '0';
                        for (int k = 0; k < 2 && pos < n && data[pos] >= '0' && data[pos] <= '7'; ++k)
                            v = v * 8 + (data[pos++] - '0');
                        out.push_back(static_cast<char>(v & 0xFF));
                    } else {
                        // "\(", "\)", "\\" and unknown escapes give the byte itself.
                        out.push_back(static_cast<char>(e));
                    }
            }
        }
    }
}

}  // namespace CosSyntax
