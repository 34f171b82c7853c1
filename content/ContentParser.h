// The content parser: reads a content stream token by token and hands each
// operator with its operands to a handler.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "content/ContentHandler.h"
#include "content/ContentToken.h"

class ContentParser {
public:
    explicit ContentParser(ContentHandler& handler) : m_handler(&handler) {}

    // Parses `data` (decoded content bytes) to its end.
    void Parse(std::span<const uint8_t> data);

    void SetHandler(ContentHandler& handler) { m_handler = &handler; }
    ContentHandler& Handler() const { return *m_handler; }

    // Dispatches one operator to the handler, in the order of the operator
    // table; false for an unknown operator (and PS), which is dropped.
    static bool Dispatch(ContentHandler& h, std::string_view op, OperandStack& stack);

private:
    ContentHandler* m_handler;
    OperandStack m_stack;
};

// The decoded content of a page: its Contents stream, or the streams of its
// Contents array joined by a newline (a token never spans two streams).
// Streams that cannot be decoded contribute what decoded, with a warning.
std::vector<uint8_t> PageContentBytes(CosObj page, Log* log = nullptr);
