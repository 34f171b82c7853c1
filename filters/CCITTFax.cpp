// CCITTFaxDecode: Group 3 one- and two-dimensional and Group 4 fax data.
//
// The compressed data is gathered first (it is small next to the image) and
// decoded when the input is complete; rows leave as they are decoded.
// A row is kept as its list of changing elements: the column where black
// starts, then where white starts again, and so on.
#include <algorithm>
#include <cstring>
#include <vector>

#include "filters/CCITTCodes.h"
#include "filters/FilterStage.h"
#include "base/ASError.h"

namespace filters::detail {
namespace {

constexpr int kLookBits = 13;
constexpr int16_t kInvalid = -1;

struct RunEntry {
    int16_t run = kInvalid;
    uint8_t length = 0;
};
struct ModeEntry {
    int8_t mode = -1;
    uint8_t length = 0;
};

struct Tables {
    RunEntry white[1 << kLookBits];
    RunEntry black[1 << kLookBits];
    ModeEntry modes[1 << 7];

    Tables() {
        auto fill = [](RunEntry* t, const FaxCode& c) {
            int shift = kLookBits - c.length;
            for (int s = 0; s < (1 << shift); ++s) t[(c.bits << shift) | s] = RunEntry{c.run, c.length};
        };
        for (const auto& c : kWhiteCodes) fill(white, c);
        for (const auto& c : kBlackCodes) fill(black, c);
        for (const auto& c : kExtendedCodes) {
            fill(white, c);
            fill(black, c);
        }
        for (const auto& m : kModeCodes) {
            int shift = 7 - m.length;
            for (int s = 0; s < (1 << shift); ++s) modes[(m.bits << shift) | s] = ModeEntry{m.mode, m.length};
        }
    }
};

const Tables& GetTables() {
    static const Tables t;
    return t;
}

// MSB-first bit reader; reads past the end as zero bits and says so.
class BitReader {
public:
    BitReader(const uint8_t* data, size_t size) : data_(data), size_(size) { Refill(); }

    uint32_t Peek(int n) {
        if (count_ < n) Refill();
        return static_cast<uint32_t>(buf_ >> (64 - n));
    }
    void Skip(int n) {
        if (count_ < n) Refill();
        buf_ <<= n;
        count_ -= n;
        consumed_ += static_cast<uint64_t>(n);
    }
    void AlignToByte() {
        int extra = static_cast<int>(consumed_ & 7);
        if (extra) Skip(8 - extra);
    }
    bool AtEnd() const { return consumed_ >= uint64_t(size_) * 8; }
    bool PastEnd() const { return consumed_ > uint64_t(size_) * 8; }

private:
    void Refill() {
        while (count_ <= 56) {
            uint8_t b = pos_ < size_ ? data_[pos_] : 0;
            ++pos_;
            buf_ |= uint64_t(b) << (56 - count_);
            count_ += 8;
        }
    }
    const uint8_t* data_;
    size_t size_;
    size_t pos_ = 0;
    uint64_t buf_ = 0;
    int count_ = 0;
    uint64_t consumed_ = 0;
};

struct FaxParams {
    int k = 0;
    bool endOfLine = false;
    bool byteAlign = false;
    int columns = 1728;
    int rows = 0;
    bool endOfBlock = true;
    bool blackIs1 = false;
};

class CCITTFaxStage : public FilterStage {
public:
    explicit CCITTFaxStage(const FaxParams& p) : p_(p) {}

protected:
    void DoWrite(const uint8_t* data, size_t size) override { in_.insert(in_.end(), data, data + size); }
    void DoFinish() override { Decode(); }

private:
    [[noreturn]] void Bad(const char* what) {
        FlushRows();
        Fail(kErrCCITTFilter, std::string("CCITTFaxDecode: ") + what);
    }

    // One run of the given colour: make-up codes then a terminating code.
    int ReadRun(BitReader& br, bool black) {
        const RunEntry* table = black ? tables_.black : tables_.white;
        int total = 0;
        for (;;) {
            RunEntry e = table[br.Peek(kLookBits)];
            if (e.run == kInvalid) Bad("bad run-length code");
            br.Skip(e.length);
            if (br.PastEnd()) Bad("data ends inside a row");
            total += e.run;
            if (e.run < 64) return total;
            if (total > p_.columns + 2560) Bad("run longer than the row");
        }
    }

    // Appends a changing element; a change back at the same column cancels
    // the one before (a zero-length run).
    void Push(int pos) {
        if (!cur_.empty() && cur_.back() == pos) cur_.pop_back();
        else cur_.push_back(pos);
    }

    void Decode1D(BitReader& br) {
        int a0 = 0;
        bool black = false;
        while (a0 < p_.columns) {
            int run = ReadRun(br, black);
            a0 = std::min(a0 + run, p_.columns);
            Push(a0);
            black = !black;
        }
    }

    void Decode2D(BitReader& br) {
        const int cols = p_.columns;
        int a0 = -1;  // the imaginary white pixel before the row
        size_t ri = 0;
        while (a0 < cols) {
            // b1: the first change on the reference row right of a0 whose
            // colour is opposite to a0's; the colour goes with the parity.
            while (ri > 0 && ref_[ri - 1] > a0) --ri;
            while (ref_[ri] <= a0) ++ri;
            size_t colour = cur_.size() & 1;
            if ((ri & 1) != colour) ++ri;
            int b1 = ref_[ri];
            int b2 = ref_[ri + 1];
            ModeEntry m = tables_.modes[br.Peek(7)];
            if (m.mode < 0) Bad("bad mode code");
            br.Skip(m.length);
            if (br.PastEnd()) Bad("data ends inside a row");
            int start = std::max(a0, 0);
            switch (m.mode) {
            case kPass:
                a0 = b2;
                break;
            case kHoriz: {
                bool black = colour != 0;
                int r1 = ReadRun(br, black);
                int r2 = ReadRun(br, !black);
                int a1 = std::min(start + r1, cols);
                int a2 = std::min(a1 + r2, cols);
                Push(a1);
                Push(a2);
                a0 = a2;
                break;
            }
            case kExt:
                Bad("uncompressed mode is not supported");
            default: {
                static const int kDelta[] = {0, 0, 0, 1, 2, 3, -1, -2, -3};
                int a1 = b1 + kDelta[m.mode];
                if (a1 < start || a1 > cols) Bad("vertical mode leaves the row");
                Push(a1);
                a0 = a1;
                break;
            }
            }
        }
    }

    // Skips fill bits and end-of-line codes at the start of a row.  Returns
    // false at the end of the data: two end-of-line codes in a row (the
    // end-of-block or return-to-control marks) or no more bits.  Twelve zero
    // bits never start a row's data, so they can only be fill.
    bool StartRow(BitReader& br) {
        if (p_.byteAlign && (p_.k < 0 || !p_.endOfLine)) br.AlignToByte();
        int eols = 0;
        for (;;) {
            while (!br.AtEnd() && br.Peek(12) == 0) br.Skip(1);
            if (br.AtEnd()) return false;
            if (br.Peek(12) != 1) return true;
            br.Skip(12);
            if (++eols == 2) return false;
            // With K > 0 a tag bit follows each end-of-line; the
            // return-to-control mark is end-of-line + 1, repeated.
            if (p_.k > 0) return br.Peek(13) != 0x1001;
        }
    }

    void Decode() {
        const int cols = p_.columns;
        rowBytes_ = static_cast<size_t>((cols + 7) / 8);
        outBuf_.resize(std::max<size_t>(rowBytes_, 65536));
        BitReader br(in_.data(), in_.size());
        ref_.assign({cols, cols, cols});
        cur_.reserve(size_t(cols) + 4);
        int row = 0;
        while (p_.rows <= 0 || row < p_.rows) {
            if (!StartRow(br)) break;
            bool twoD = p_.k < 0;
            if (p_.k > 0) {
                twoD = br.Peek(1) == 0;
                br.Skip(1);
            }
            cur_.clear();
            if (twoD) Decode2D(br);
            else Decode1D(br);
            EmitRow();
            ++row;
            // The coding row becomes the next reference, closed by sentinels.
            ref_.swap(cur_);
            while (!ref_.empty() && ref_.back() >= cols) ref_.pop_back();
            ref_.insert(ref_.end(), {cols, cols, cols});
        }
        FlushRows();
        if (p_.rows > 0 && row < p_.rows) Fail(kErrCCITTFilter, "CCITTFaxDecode: data ends before the last row");
    }

    // Paints the row's black spans into the output buffer.
    void EmitRow() {
        if (outLen_ + rowBytes_ > outBuf_.size()) FlushRows();
        uint8_t* row = outBuf_.data() + outLen_;
        const uint8_t white = p_.blackIs1 ? 0x00 : 0xFF;
        std::memset(row, white, rowBytes_);
        const size_t n = cur_.size();
        for (size_t i = 0; i < n; i += 2) {
            int from = cur_[i];
            int to = i + 1 < n ? cur_[i + 1] : p_.columns;
            if (to > p_.columns) to = p_.columns;
            if (from < to) Paint(row, from, to, !p_.blackIs1);
        }
        outLen_ += rowBytes_;
    }

    // Sets (or clears) bits [from, to) of the row.
    static void Paint(uint8_t* row, int from, int to, bool clear) {
        int fb = from >> 3, tb = to >> 3;
        uint8_t headMask = static_cast<uint8_t>(0xFF >> (from & 7));
        uint8_t tailMask = static_cast<uint8_t>(~(0xFF >> (to & 7)));
        if (fb == tb) {
            uint8_t m = headMask & tailMask;
            row[fb] = clear ? static_cast<uint8_t>(row[fb] & ~m) : static_cast<uint8_t>(row[fb] | m);
            return;
        }
        row[fb] = clear ? static_cast<uint8_t>(row[fb] & ~headMask) : static_cast<uint8_t>(row[fb] | headMask);
        if (tb > fb + 1) std::memset(row + fb + 1, clear ? 0x00 : 0xFF, static_cast<size_t>(tb - fb - 1));
        if (to & 7) row[tb] = clear ? static_cast<uint8_t>(row[tb] & ~tailMask) : static_cast<uint8_t>(row[tb] | tailMask);
    }

    void FlushRows() {
        size_t n = outLen_;
        outLen_ = 0;
        Emit(outBuf_.data(), n);
    }

    FaxParams p_;
    const Tables& tables_ = GetTables();
    Bytes in_;
    std::vector<int> ref_;
    std::vector<int> cur_;
    size_t rowBytes_ = 0;
    Bytes outBuf_;
    size_t outLen_ = 0;
};

}  // namespace

std::unique_ptr<FilterStage> MakeCCITTFaxStage(const FilterParams& params) {
    FaxParams p;
    p.k = IntParam(params, "K", 0, -1000000, 1000000, kErrCCITTFilter);
    p.endOfLine = params.Get("EndOfLine", 0) != 0;
    p.byteAlign = params.Get("EncodedByteAlign", 0) != 0;
    p.columns = IntParam(params, "Columns", 1728, 1, 1 << 20, kErrCCITTFilter);
    p.rows = IntParam(params, "Rows", 0, 0, 1 << 30, kErrCCITTFilter);
    p.endOfBlock = params.Get("EndOfBlock", 1) != 0;
    p.blackIs1 = params.Get("BlackIs1", 0) != 0;
    return std::make_unique<CCITTFaxStage>(p);
}

}  // namespace filters::detail
