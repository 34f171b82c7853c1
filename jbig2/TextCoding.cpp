#include "jbig2/TextCoding.h"

#include <algorithm>
#include <numeric>

#include "base/ASError.h"
#include "jbig2/GenericRegion.h"

namespace jbig2 {
namespace {

void Put32(std::vector<uint8_t>& out, uint32_t v) {
    for (int s = 24; s >= 0; s -= 8) out.push_back(uint8_t(v >> s));
}

}  // namespace

void IntegerCoder::Bit(MQEncoder& mq, int bit) {
    mq.Encode(states_[prev_], bit);
    // The context is the bits coded so far, kept to the last eight once
    // there are more than eight.
    prev_ = prev_ < 256 ? (prev_ << 1) | uint32_t(bit) : (((prev_ << 1) | uint32_t(bit)) & 511) | 256;
}

void IntegerCoder::Encode(MQEncoder& mq, int32_t value) {
    // A sign, a prefix choosing the range, then the offset in the range.
    struct Range {
        int prefix;  // prefix bits: this many 1s, then a 0 unless it is the last range
        int bits;
        uint32_t base;
    };
    static constexpr Range kRanges[] = {{0, 2, 0}, {1, 4, 4}, {2, 6, 20}, {3, 8, 84}, {4, 12, 340}, {5, 32, 4436}};
    prev_ = 1;
    const uint32_t magnitude = value < 0 ? uint32_t(-int64_t(value)) : uint32_t(value);
    Bit(mq, value < 0 ? 1 : 0);
    size_t r = 0;
    while (r + 1 < std::size(kRanges) && magnitude >= kRanges[r + 1].base) ++r;
    for (int i = 0; i < kRanges[r].prefix; ++i) Bit(mq, 1);
    if (r + 1 < std::size(kRanges)) Bit(mq, 0);
    const uint32_t offset = magnitude - kRanges[r].base;
    for (int i = kRanges[r].bits - 1; i >= 0; --i) Bit(mq, int((offset >> i) & 1));
}

void IntegerCoder::EncodeOOB(MQEncoder& mq) {
    prev_ = 1;
    Bit(mq, 1);
    Bit(mq, 0);
    Bit(mq, 0);
    Bit(mq, 0);
}

void SymbolIdCoder::Encode(MQEncoder& mq, uint32_t id) {
    uint32_t prev = 1;
    for (int i = bits_ - 1; i >= 0; --i) {
        const int bit = int((id >> i) & 1);
        mq.Encode(states_[prev], bit);
        prev = (prev << 1) | uint32_t(bit);
    }
}

std::string ShapeKey(uint32_t w, uint32_t h, const std::vector<uint8_t>& bits) {
    std::string key(reinterpret_cast<const char*>(&w), sizeof w);
    key.append(reinterpret_cast<const char*>(&h), sizeof h);
    key.append(bits.begin(), bits.end());
    return key;
}

int SymbolCodeLength(uint32_t symbols) {
    int bits = 0;
    while (bits < 32 && (uint64_t(1) << bits) < symbols) ++bits;
    return bits;
}

std::vector<uint8_t> SymbolDictionaryData(const std::vector<const Symbol*>& symbols, std::vector<uint32_t>& position) {
    std::vector<uint32_t> order(symbols.size());
    std::iota(order.begin(), order.end(), 0u);
    std::stable_sort(order.begin(), order.end(), [&](uint32_t a, uint32_t b) {
        return symbols[a]->h != symbols[b]->h ? symbols[a]->h < symbols[b]->h : symbols[a]->w < symbols[b]->w;
    });
    position.assign(symbols.size(), 0);
    for (size_t i = 0; i < order.size(); ++i) position[order[i]] = uint32_t(i);

    std::vector<uint8_t> out;
    out.push_back(0);  // flags: arithmetic coding, no refinement, template 0
    out.push_back(0);
    for (int8_t v : kTemplate0AT) out.push_back(uint8_t(v));
    Put32(out, uint32_t(symbols.size()));  // exported
    Put32(out, uint32_t(symbols.size()));  // new

    MQEncoder mq(0);
    IntegerCoder dh, dw, ex;
    std::vector<uint8_t> gb(kGenericContexts, 0);
    GenericOptions plain;
    plain.typicalPrediction = false;
    uint32_t height = 0;
    for (size_t i = 0; i < order.size();) {
        const Symbol& first = *symbols[order[i]];
        dh.Encode(mq, int32_t(first.h) - int32_t(height));
        height = first.h;
        uint32_t width = 0;
        for (; i < order.size() && symbols[order[i]]->h == height; ++i) {
            const Symbol& s = *symbols[order[i]];
            dw.Encode(mq, int32_t(s.w) - int32_t(width));
            width = s.w;
            EncodeGenericRegion(mq, gb.data(), Bitmap{s.w, s.h, (size_t(s.w) + 7) / 8, s.bits}, plain);
        }
        dw.EncodeOOB(mq);
    }
    // Export flags as run lengths: none left out, then all exported.
    ex.Encode(mq, 0);
    ex.Encode(mq, int32_t(symbols.size()));
    const std::vector<uint8_t> code = mq.Finish();
    out.insert(out.end(), code.begin(), code.end());
    return out;
}

std::vector<uint8_t> TextRegionData(uint32_t width, uint32_t height, uint32_t symbols,
                                    std::vector<Placement> placements, const TextRegionLayout& layout) {
    const int log = layout.logStrips;
    auto t = [&](const Placement& p) { return layout.bottomLeft ? p.y + p.h - 1 : p.y; };
    std::stable_sort(placements.begin(), placements.end(), [&](const Placement& a, const Placement& b) {
        const uint32_t sa = t(a) >> log, sb = t(b) >> log;
        return sa != sb ? sa < sb : a.x < b.x;
    });

    std::vector<uint8_t> out;
    Put32(out, width);
    Put32(out, height);
    Put32(out, 0);
    Put32(out, 0);
    out.push_back(0);  // external combination operator OR
    // Flags: arithmetic, no refinement, the strip size and corner, not
    // transposed, OR, white background, no S offset.
    const uint16_t flags = uint16_t(log << 2 | (layout.bottomLeft ? 0 : 1) << 4);
    out.push_back(uint8_t(flags >> 8));
    out.push_back(uint8_t(flags));
    Put32(out, uint32_t(placements.size()));

    MQEncoder mq(0);
    IntegerCoder dt, fs, ds, it;
    SymbolIdCoder ids(SymbolCodeLength(symbols));
    dt.Encode(mq, 0);  // the first strip's T is counted from 0
    int64_t stripT = 0, firstS = 0;
    for (size_t i = 0; i < placements.size();) {
        const int64_t strip = int64_t(t(placements[i]) >> log) << log;
        dt.Encode(mq, int32_t((strip - stripT) >> log));
        stripT = strip;
        int64_t curS = 0;
        bool first = true;
        for (; i < placements.size() && (int64_t(t(placements[i]) >> log) << log) == strip; ++i) {
            const Placement& p = placements[i];
            if (first) {
                fs.Encode(mq, int32_t(int64_t(p.x) - firstS));
                firstS = p.x;
                first = false;
            } else {
                ds.Encode(mq, int32_t(int64_t(p.x) - curS));
            }
            if (log > 0) it.Encode(mq, int32_t(t(p) - strip));
            ids.Encode(mq, p.id);
            curS = int64_t(p.x) + p.w - 1;
        }
        ds.EncodeOOB(mq);
    }
    const std::vector<uint8_t> code = mq.Finish();
    out.insert(out.end(), code.begin(), code.end());
    return out;
}

std::vector<uint8_t> SmallestTextRegionData(uint32_t width, uint32_t height, uint32_t symbols,
                                            const std::vector<Placement>& placements) {
    std::vector<uint8_t> best;
    for (bool bottom : {true, false})
        for (int log = 0; log <= 3; ++log) {
            std::vector<uint8_t> d = TextRegionData(width, height, symbols, placements, {log, bottom});
            if (best.empty() || d.size() < best.size()) best = std::move(d);
        }
    return best;
}

}  // namespace jbig2
