// The MQ arithmetic encoder of JBIG2 (ITU T.88, Annex E): binary decisions,
// each coded in an adaptive context, into a byte string a JBIG2 decoder
// reads back with the same contexts.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace jbig2 {

class MQEncoder {
public:
    // `contexts` adaptive states, all starting at state 0 with MPS 0.
    explicit MQEncoder(size_t contexts);

    // Codes `bit` (0 or 1) in context `cx`.
    void Encode(uint32_t cx, int bit) { Encode(states_[cx], bit); }
    // Codes `bit` in an adaptive state kept by the caller (a byte that
    // starts at 0), for procedures that keep their contexts apart: the
    // integer coders and the generic regions of a symbol dictionary.
    void Encode(uint8_t& state, int bit);

    // Ends the code string (with the 0xFF 0xAC marker) and returns it; the
    // encoder is spent afterwards.
    std::vector<uint8_t> Finish();

    // Bytes written so far (the last one may still change by a carry).
    size_t Size() const { return out_.size(); }

private:
    void Renormalise();
    void ByteOut();

    std::vector<uint8_t> states_;  // per context: state index << 1 | MPS
    std::vector<uint8_t> out_;     // out_[0] is the byte before the code string
    uint32_t a_ = 0x8000;
    uint32_t c_ = 0;
    int ct_ = 12;
};

}  // namespace jbig2
