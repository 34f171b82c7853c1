// The predictors that may follow FlateDecode and LZWDecode: TIFF predictor
// 2 (horizontal differencing per component) and the PNG filters (a filter
// type byte before every row), plus the PNG predictor encoder.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "filters/FilterStage.h"
#include "base/ASError.h"

namespace filters {
namespace {

// Row sizes beyond this are not images but damaged parameters.
constexpr size_t kMaxRowBytes = size_t(1) << 26;

struct RowShape {
    int colors;
    int bpc;
    int columns;
    size_t rowBytes;  // bytes of one row, without the PNG type byte
    size_t pixelBytes;  // the byte distance PNG filters look back (at least 1)
};

RowShape MakeShape(int colors, int bpc, int columns) {
    RowShape s{colors, bpc, columns, 0, 0};
    uint64_t bits = uint64_t(colors) * uint64_t(bpc) * uint64_t(columns);
    s.rowBytes = static_cast<size_t>((bits + 7) / 8);
    s.pixelBytes = std::max<size_t>(1, static_cast<size_t>(colors * bpc / 8));
    return s;
}

inline uint8_t Paeth(int a, int b, int c) {
    int p = a + b - c;
    int pa = std::abs(p - a), pb = std::abs(p - b), pc = std::abs(p - c);
    if (pa <= pb && pa <= pc) return static_cast<uint8_t>(a);
    if (pb <= pc) return static_cast<uint8_t>(b);
    return static_cast<uint8_t>(c);
}

// Undoes one PNG filter in place; `prev` is the previous decoded row (zeros
// for the first).  `n` may be short of a full row for the last one.
bool UnfilterPNG(int type, uint8_t* row, const uint8_t* prev, size_t n, size_t bpp) {
    switch (type) {
    case 0:
        return true;
    case 1:
        for (size_t i = bpp; i < n; ++i) row[i] = static_cast<uint8_t>(row[i] + row[i - bpp]);
        return true;
    case 2:
        for (size_t i = 0; i < n; ++i) row[i] = static_cast<uint8_t>(row[i] + prev[i]);
        return true;
    case 3:
        for (size_t i = 0; i < n; ++i) {
            int left = i >= bpp ? row[i - bpp] : 0;
            row[i] = static_cast<uint8_t>(row[i] + ((left + prev[i]) >> 1));
        }
        return true;
    case 4:
        for (size_t i = 0; i < n; ++i) {
            int left = i >= bpp ? row[i - bpp] : 0;
            int upLeft = i >= bpp ? prev[i - bpp] : 0;
            row[i] = static_cast<uint8_t>(row[i] + Paeth(left, prev[i], upLeft));
        }
        return true;
    default:
        return false;
    }
}

// TIFF predictor 2 on one row of `n` bytes.
void UndoTIFF(uint8_t* row, size_t n, const RowShape& s) {
    const size_t c = static_cast<size_t>(s.colors);
    if (s.bpc == 8) {
        for (size_t i = c; i < n; ++i) row[i] = static_cast<uint8_t>(row[i] + row[i - c]);
    } else if (s.bpc == 16) {
        for (size_t i = 2 * c; i + 1 < n; i += 2) {
            unsigned v = (unsigned(row[i]) << 8 | row[i + 1]) + (unsigned(row[i - 2 * c]) << 8 | row[i + 1 - 2 * c]);
            row[i] = static_cast<uint8_t>(v >> 8);
            row[i + 1] = static_cast<uint8_t>(v);
        }
    } else {
        // Sub-byte samples: walk the row sample by sample.
        const int bpc = s.bpc;
        const unsigned mask = (1u << bpc) - 1;
        const size_t samples = std::min<size_t>(size_t(s.columns) * c, n * 8 / size_t(bpc));
        auto get = [&](size_t k) {
            size_t bit = k * size_t(bpc);
            return (row[bit >> 3] >> (8 - bpc - (bit & 7))) & mask;
        };
        for (size_t k = c; k < samples; ++k) {
            unsigned v = (get(k) + get(k - c)) & mask;
            size_t bit = k * size_t(bpc);
            int shift = 8 - bpc - static_cast<int>(bit & 7);
            row[bit >> 3] = static_cast<uint8_t>((row[bit >> 3] & ~(mask << shift)) | (v << shift));
        }
    }
}

}  // namespace

namespace detail {
namespace {

class PredictorStage : public FilterStage {
public:
    PredictorStage(bool png, RowShape shape)
        : png_(png), shape_(shape), unit_(shape.rowBytes + (png ? 1 : 0)), cur_(unit_), prev_(shape.rowBytes + 1) {}

protected:
    void DoWrite(const uint8_t* data, size_t size) override {
        while (size > 0) {
            size_t take = std::min(size, unit_ - have_);
            std::memcpy(cur_.data() + have_, data, take);
            have_ += take;
            data += take;
            size -= take;
            if (have_ == unit_) Row(unit_);
        }
    }
    void DoFinish() override {
        // A short final row is decoded as far as it goes.
        if (have_ > (png_ ? 1u : 0u)) Row(have_);
        have_ = 0;
    }

private:
    void Row(size_t got) {
        have_ = 0;
        if (png_) {
            size_t n = got - 1;
            if (!UnfilterPNG(cur_[0], cur_.data() + 1, prev_.data(), n, shape_.pixelBytes)) {
                Fail(kErrSyntax, "PNG predictor: unknown filter type in row");
            }
            std::memcpy(prev_.data(), cur_.data() + 1, n);
            Emit(cur_.data() + 1, n);
        } else {
            UndoTIFF(cur_.data(), got, shape_);
            Emit(cur_.data(), got);
        }
    }

    bool png_;
    RowShape shape_;
    size_t unit_;
    Bytes cur_;
    Bytes prev_;
    size_t have_ = 0;
};

}  // namespace

std::unique_ptr<FilterStage> MakePredictorStage(const FilterParams& params) {
    int predictor = IntParam(params, "Predictor", 1, 0, 15, kErrSyntax);
    if (predictor <= 1) return nullptr;
    if (predictor != 2 && predictor < 10) Fail(kErrSyntax, "unsupported predictor in decode parameters");
    int colors = IntParam(params, "Colors", 1, 1, 32, kErrSyntax);
    int bpc = IntParam(params, "BitsPerComponent", 8, 1, 16, kErrSyntax);
    if (bpc != 1 && bpc != 2 && bpc != 4 && bpc != 8 && bpc != 16) {
        Fail(kErrSyntax, "bad BitsPerComponent in decode parameters");
    }
    int columns = IntParam(params, "Columns", 1, 1, 1 << 24, kErrSyntax);
    RowShape shape = MakeShape(colors, bpc, columns);
    if (shape.rowBytes > kMaxRowBytes) Fail(kErrSyntax, "predictor rows too long");
    return std::make_unique<PredictorStage>(predictor >= 10, shape);
}

}  // namespace detail

Bytes PNGPredictEncode(ByteSpan in, int colors, int bitsPerComponent, int columns) {
    if (colors < 1 || columns < 1 || bitsPerComponent < 1 || bitsPerComponent > 16) ASRaiseErr(ErrSysGeneral, kErrBadParm);
    RowShape s = MakeShape(colors, bitsPerComponent, columns);
    if (s.rowBytes > kMaxRowBytes) ASRaiseErr(ErrSysGeneral, kErrBadParm);
    const size_t rb = s.rowBytes, bpp = s.pixelBytes;
    Bytes out;
    out.reserve(in.size() + in.size() / rb + 1);
    Bytes zero(rb, 0);
    Bytes cand(5 * rb);
    for (size_t off = 0; off < in.size(); off += rb) {
        size_t n = std::min(rb, in.size() - off);
        const uint8_t* row = in.data() + off;
        const uint8_t* prev = off == 0 ? zero.data() : in.data() + off - rb;
        uint64_t best = UINT64_MAX;
        int bestType = 0;
        for (int t = 0; t < 5; ++t) {
            uint8_t* f = cand.data() + size_t(t) * rb;
            uint64_t sum = 0;
            for (size_t i = 0; i < n; ++i) {
                int left = i >= bpp ? row[i - bpp] : 0;
                int up = prev[i];
                int upLeft = i >= bpp ? prev[i - bpp] : 0;
                int pred = 0;
                switch (t) {
                case 1: pred = left; break;
                case 2: pred = up; break;
                case 3: pred = (left + up) >> 1; break;
                case 4: pred = Paeth(left, up, upLeft); break;
                default: break;
                }
                uint8_t v = static_cast<uint8_t>(row[i] - pred);
                f[i] = v;
                // The bytes read as signed: small moves either way are cheap.
                sum += static_cast<uint64_t>(std::abs(static_cast<int>(static_cast<int8_t>(v))));
            }
            if (sum < best) {
                best = sum;
                bestType = t;
            }
        }
        out.push_back(static_cast<uint8_t>(bestType));
        const uint8_t* f = cand.data() + size_t(bestType) * rb;
        out.insert(out.end(), f, f + n);
    }
    return out;
}

}  // namespace filters
