// The lexical rules that PDF files and content streams share: character
// classes, white space with comments, and the body of a literal string.
//
// The file lexer and the content tokenizer differ in what they do with bad
// input (the first raises, the second counts a warning and goes on), so the
// shared pieces report how they ended and leave the reaction to the caller.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace CosSyntax {

constexpr bool IsWhite(uint8_t c) { return c == 0 || c == 9 || c == 10 || c == 12 || c == 13 || c == 32; }
constexpr bool IsDelim(uint8_t c) {
    return c == '%' || c == '(' || c == ')' || c == '<' || c == '>' || c == '[' || c == ']' || c == '{' ||
           c == '}' || c == '/';
}
constexpr bool IsRegular(uint8_t c) { return !IsWhite(c) && !IsDelim(c); }
// The value of a hexadecimal digit, -1 for any other byte.
constexpr int HexValue(uint8_t c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// The first position at or after `pos` that is neither white space nor
// inside a comment (a comment runs to the next CR or LF).
size_t SkipWhite(std::span<const uint8_t> data, size_t pos);

enum class LiteralEnd : uint8_t {
    Closed,        // the balancing ")" was read
    Unterminated,  // the data ended first
    TooLong,       // `out` reached `maxBytes` first
};

// Decodes a literal string whose "(" is just before `pos` into `out`
// (cleared first) and leaves `pos` after the balancing ")".  Escapes and
// ends of line read the way the file format says: an unknown escape stands
// for its character, any end of line inside the string reads as one LF, and
// a backslash before an end of line continues the string.
LiteralEnd ReadLiteralBody(std::span<const uint8_t> data, size_t& pos, std::string& out,
                           size_t maxBytes = SIZE_MAX);

}  // namespace CosSyntax
