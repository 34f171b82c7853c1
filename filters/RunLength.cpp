// RunLengthDecode and its encoder.
#include <algorithm>
#include <cstring>

#include "filters/FilterStage.h"
#include "base/ASError.h"

namespace filters {
namespace detail {
namespace {

// A length byte n < 128 copies the next n+1 bytes; n > 128 repeats the next
// byte 257-n times; 128 ends the data.  State survives chunk boundaries.
class RunLengthStage : public FilterStage {
protected:
    void DoWrite(const uint8_t* data, size_t size) override {
        size_t i = 0;
        while (i < size && !ended_) {
            if (copyLeft_ > 0) {
                size_t n = std::min<size_t>(copyLeft_, size - i);
                Emit(data + i, n);
                copyLeft_ -= static_cast<int>(n);
                i += n;
                continue;
            }
            if (repeat_ > 0) {
                uint8_t run[128];
                std::memset(run, data[i++], static_cast<size_t>(repeat_));
                Emit(run, static_cast<size_t>(repeat_));
                repeat_ = 0;
                continue;
            }
            uint8_t len = data[i++];
            if (len < 128) copyLeft_ = len + 1;
            else if (len > 128) repeat_ = 257 - len;
            else ended_ = true;
        }
    }
    void DoFinish() override {
        // Running out inside a run is common enough in the wild; the bytes
        // seen are kept and the stream counts as damaged.
        if (copyLeft_ > 0 || repeat_ > 0) Fail(kErrSyntax, "RunLengthDecode: data ends inside a run");
    }

private:
    int copyLeft_ = 0;
    int repeat_ = 0;
    bool ended_ = false;
};

}  // namespace

std::unique_ptr<FilterStage> MakeRunLengthStage() { return std::make_unique<RunLengthStage>(); }

}  // namespace detail

Bytes RunLengthEncode(ByteSpan in) {
    Bytes out;
    out.reserve(in.size() + in.size() / 128 + 2);
    size_t i = 0;
    const size_t n = in.size();
    while (i < n) {
        // A run of three or more equal bytes is worth a repeat code.
        size_t run = 1;
        while (i + run < n && run < 128 && in[i + run] == in[i]) ++run;
        if (run >= 3 || (run == 2 && i + run == n)) {
            out.push_back(static_cast<uint8_t>(257 - run));
            out.push_back(in[i]);
            i += run;
            continue;
        }
        // Literal bytes up to the next run of three.
        size_t start = i;
        size_t len = 0;
        while (i < n && len < 128) {
            if (i + 2 < n && in[i] == in[i + 1] && in[i] == in[i + 2]) break;
            ++i;
            ++len;
        }
        out.push_back(static_cast<uint8_t>(len - 1));
        out.insert(out.end(), in.begin() + static_cast<std::ptrdiff_t>(start),
                   in.begin() + static_cast<std::ptrdiff_t>(start + len));
    }
    out.push_back(128);
    return out;
}

}  // namespace filters
