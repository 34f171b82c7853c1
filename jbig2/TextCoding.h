// The arithmetic-coded parts of symbol coding: integer coding (the IAx
// procedures), symbol dictionaries whose bitmaps are generic regions coded
// one after another, and text regions that place symbols by number.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "jbig2/MQEncoder.h"

namespace jbig2 {

// An integer coder's adaptive contexts (IADH, IADW, IAEX, IADT, ...).
class IntegerCoder {
public:
    // Codes `value` (any value but INT32_MIN and below -4436 - 2^32 + 1).
    void Encode(MQEncoder& mq, int32_t value);
    // Codes the out-of-band value that ends a list (negative zero).
    void EncodeOOB(MQEncoder& mq);

private:
    void Bit(MQEncoder& mq, int bit);
    uint8_t states_[512] = {};
    uint32_t prev_ = 1;
};

// Symbol numbers in a text region: `bits` binary decisions in a tree of
// contexts (IAID).
class SymbolIdCoder {
public:
    explicit SymbolIdCoder(int bits) : bits_(bits), states_(size_t(1) << bits, 0) {}
    void Encode(MQEncoder& mq, uint32_t id);

private:
    int bits_;
    std::vector<uint8_t> states_;
};

// The number of bits a text region spends on a symbol number when it can
// refer to `symbols` symbols.
int SymbolCodeLength(uint32_t symbols);

struct Symbol {
    uint32_t w = 0, h = 0;
    std::vector<uint8_t> bits;  // rows of (w + 7) / 8 bytes, 1 = black
};

// A key equal for two shapes exactly when they are pixel for pixel equal.
std::string ShapeKey(uint32_t w, uint32_t h, const std::vector<uint8_t>& bits);

// The data of a symbol dictionary segment that defines and exports
// `symbols`, coded with template 0 and no refinement.  Symbols are sorted
// into height classes (then by width), which the format asks and which
// makes the height and width deltas small; `position[i]` is the number that
// symbols[i] has in the dictionary's export list.
std::vector<uint8_t> SymbolDictionaryData(const std::vector<const Symbol*>& symbols, std::vector<uint32_t>& position);

// A symbol drawn on the region: `id` numbers it among all the symbols the
// region refers to; (x, y) is its top-left corner; w x h its size.
struct Placement {
    uint32_t id = 0;
    uint32_t x = 0, y = 0, w = 0, h = 0;
};

struct TextRegionLayout {
    int logStrips = 0;      // instances are grouped in strips of 2^logStrips rows
    bool bottomLeft = true;  // T is the symbol's bottom row, else its top row
};

// The data of a text region segment of width x height at the page's origin,
// drawing `placements` with OR, for a region that refers to `symbols`
// symbols.
std::vector<uint8_t> TextRegionData(uint32_t width, uint32_t height, uint32_t symbols,
                                    std::vector<Placement> placements, const TextRegionLayout& layout);

// The smallest of TextRegionData over the strip sizes and reference
// corners worth trying.
std::vector<uint8_t> SmallestTextRegionData(uint32_t width, uint32_t height, uint32_t symbols,
                                            const std::vector<Placement>& placements);

}  // namespace jbig2
