// libFuzzer target for the stream decoders.  The first byte picks the
// filter and its parameters; the rest is the stream data.  Any outcome but a
// crash, a hang or unbounded memory is fine: damaged data must end in a
// warning or a CVellumError.
#include <cstddef>
#include <cstdint>

#include "filters/Filters.h"
#include "base/ASError.h"

using namespace filters;

namespace {

FilterParams P(std::initializer_list<std::pair<const std::string, double>> kv) {
    FilterParams p;
    p.values = kv;
    return p;
}

FilterChain PickChain(uint8_t sel) {
    const int predictors[] = {1, 2, 10, 15};
    const int bpcs[] = {1, 2, 4, 8, 16, 8, 8, 8};
    int pred = predictors[(sel >> 4) & 3];
    FilterParams pp = P({{"Predictor", pred}, {"Colors", double(1 + ((sel >> 6) & 3))},
                         {"BitsPerComponent", double(bpcs[(sel >> 3) & 7])}, {"Columns", double(1 + (sel & 0x3F))}});
    switch (sel & 15) {
    case 0: return {{"ASCIIHexDecode", {}}};
    case 1: return {{"ASCII85Decode", {}}};
    case 2: return {{"RunLengthDecode", {}}};
    case 3: pp.values["EarlyChange"] = (sel >> 7) & 1; return {{"LZWDecode", pp}};
    case 4: return {{"FlateDecode", pp}};
    case 5: return {{"CCITTFaxDecode", P({{"K", -1}, {"Columns", double(8 + (sel >> 4) * 37)}})}};
    case 6: return {{"CCITTFaxDecode", P({{"K", 0}, {"Columns", double(8 + (sel >> 4) * 37)}, {"EncodedByteAlign", double(sel >> 7)}})}};
    case 7: return {{"CCITTFaxDecode", P({{"K", 2}, {"Columns", 1728}, {"EndOfLine", 1}, {"BlackIs1", 1}})}};
    case 8: return {{"DCTDecode", {}}};
    case 9: return {{"JBIG2Decode", {}}};
    case 10: return {{"A85", {}}, {"Fl", pp}};
    case 11: return {{"AHx", {}}, {"LZW", pp}};
    case 12: return {{"Fl", {}}, {"RL", {}}};
    default: return {{"Crypt", {}}, {"JPXDecode", {}}};
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    DecodeOptions opts;
    opts.maxOutput = 64u << 20;
    opts.strict = (data[0] & 0x80) != 0 && (data[0] & 15) < 8;
    try {
        DecodeChain(ByteSpan(data + 1, size - 1), PickChain(data[0]), opts);
    } catch (const CVellumError&) {
    }
    return 0;
}
