// LZWDecode and its encoder.  Codes are 9 to 12 bits wide, most significant
// bit first; 256 clears the table, 257 ends the data, 258 is the first
// table entry.  With EarlyChange 1 (the default) the width grows one code
// earlier than the table needs it to.
#include <algorithm>
#include <cstring>

#include "filters/FilterStage.h"
#include "base/ASError.h"

namespace filters {
namespace {

constexpr int kClear = 256;
constexpr int kEOD = 257;
constexpr int kFirstFree = 258;
constexpr int kTableSize = 4096;

int CodeWidth(int nextCode, int early) {
    int n = nextCode + early;
    if (n >= 2048) return 12;
    if (n >= 1024) return 11;
    if (n >= 512) return 10;
    return 9;
}

}  // namespace

namespace detail {
namespace {

class LZWStage : public FilterStage {
public:
    explicit LZWStage(int early) : early_(early) {
        for (int i = 0; i < 256; ++i) {
            prefix_[i] = -1;
            suffix_[i] = static_cast<uint8_t>(i);
            first_[i] = static_cast<uint8_t>(i);
            length_[i] = 1;
        }
        Reset();
    }

protected:
    void DoWrite(const uint8_t* data, size_t size) override {
        for (size_t i = 0; i < size && !ended_; ++i) {
            bits_ = (bits_ << 8) | data[i];
            nbits_ += 8;
            while (nbits_ >= width_ && !ended_) {
                nbits_ -= width_;
                int code = static_cast<int>((bits_ >> nbits_) & ((1u << width_) - 1));
                Code(code);
            }
        }
        Flush();
    }
    void DoFinish() override { Flush(); }

private:
    void Reset() {
        next_ = kFirstFree;
        width_ = CodeWidth(next_, early_);
        prev_ = -1;
    }

    void Code(int code) {
        if (code == kClear) {
            Reset();
            return;
        }
        if (code == kEOD) {
            ended_ = true;
            return;
        }
        int outCode = code;
        if (code < next_ && code != kClear && code != kEOD) {
            if (prev_ >= 0) Add(prev_, first_[code]);
        } else if (code == next_ && prev_ >= 0) {
            Add(prev_, first_[prev_]);
        } else {
            Flush();
            Fail(kErrLZWFilter, "LZWDecode: bad code in data");
        }
        Put(outCode);
        prev_ = code;
        width_ = CodeWidth(next_, early_);
    }

    void Add(int prefix, uint8_t c) {
        // A full table takes no more entries until the next clear code.
        if (next_ >= kTableSize) return;
        prefix_[next_] = static_cast<int16_t>(prefix);
        suffix_[next_] = c;
        first_[next_] = first_[prefix];
        length_[next_] = static_cast<uint16_t>(length_[prefix] + 1);
        ++next_;
    }

    void Put(int code) {
        size_t len = length_[code];
        if (outLen_ + len > sizeof out_) Flush();
        uint8_t* p = out_ + outLen_ + len;
        for (int c = code; c >= 0; c = prefix_[c]) *--p = suffix_[c];
        outLen_ += len;
    }

    void Flush() {
        size_t n = outLen_;
        outLen_ = 0;
        Emit(out_, n);
    }

    int early_;
    int16_t prefix_[kTableSize];
    uint8_t suffix_[kTableSize];
    uint8_t first_[kTableSize];
    uint16_t length_[kTableSize];
    int next_ = kFirstFree;
    int width_ = 9;
    int prev_ = -1;
    uint32_t bits_ = 0;
    int nbits_ = 0;
    bool ended_ = false;
    uint8_t out_[65536];
    size_t outLen_ = 0;
};

}  // namespace

std::unique_ptr<FilterStage> MakeLZWStage(const FilterParams& params) {
    int early = IntParam(params, "EarlyChange", 1, 0, 1, kErrLZWFilter);
    return std::make_unique<LZWStage>(early);
}

}  // namespace detail

namespace {

class BitWriter {
public:
    explicit BitWriter(Bytes& out) : out_(out) {}
    void Put(int code, int width) {
        bits_ = (bits_ << width) | static_cast<uint32_t>(code);
        nbits_ += width;
        while (nbits_ >= 8) {
            nbits_ -= 8;
            out_.push_back(static_cast<uint8_t>(bits_ >> nbits_));
        }
    }
    void Close() {
        if (nbits_ > 0) out_.push_back(static_cast<uint8_t>(bits_ << (8 - nbits_)));
        nbits_ = 0;
    }

private:
    Bytes& out_;
    uint32_t bits_ = 0;
    int nbits_ = 0;
};

}  // namespace

Bytes LZWEncode(ByteSpan in) {
    constexpr int kEarly = 1;
    constexpr size_t kHashSize = 8192;  // power of two, twice the table
    Bytes out;
    out.reserve(in.size() / 2 + 16);
    BitWriter bw(out);
    // Open-addressed hash from (prefix code, byte) to the entry's code.
    std::vector<uint32_t> keys(kHashSize);
    std::vector<int16_t> codes(kHashSize);
    auto clearTable = [&] { std::fill(codes.begin(), codes.end(), int16_t(-1)); };
    clearTable();
    int next = kFirstFree;
    // The reader's table lags one entry behind ours, so the width it
    // expects for a code is the one for our table size minus one.
    auto width = [&] { return CodeWidth(next - 1, kEarly); };
    bw.Put(kClear, 9);
    if (in.empty()) {
        bw.Put(kEOD, 9);
        bw.Close();
        return out;
    }
    int prefix = in[0];
    for (size_t i = 1; i < in.size(); ++i) {
        uint8_t c = in[i];
        uint32_t key = static_cast<uint32_t>(prefix) << 8 | c;
        size_t h = (key * 2654435761u) >> 19 & (kHashSize - 1);
        while (codes[h] >= 0 && keys[h] != key) h = (h + 1) & (kHashSize - 1);
        if (codes[h] >= 0) {
            prefix = codes[h];
            continue;
        }
        bw.Put(prefix, width());
        keys[h] = key;
        codes[h] = static_cast<int16_t>(next++);
        prefix = c;
        if (next == kTableSize - 1) {
            // Start over before the reader's table could fill.
            bw.Put(kClear, width());
            clearTable();
            next = kFirstFree;
        }
    }
    bw.Put(prefix, width());
    // The reader adds an entry for the last code too, which may widen EOD.
    bw.Put(kEOD, CodeWidth(next, kEarly));
    bw.Close();
    return out;
}

}  // namespace filters
