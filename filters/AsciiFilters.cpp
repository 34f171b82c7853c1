// ASCIIHexDecode and ASCII85Decode.
#include <cstring>

#include "filters/FilterStage.h"
#include "base/ASError.h"

namespace filters::detail {

namespace {

bool IsPdfWhite(uint8_t c) { return c == ' ' || c == '\n' || c == '\r' || c == '\t' || c == '\f' || c == 0; }

int HexValue(uint8_t c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

class ASCIIHexStage : public FilterStage {
protected:
    void DoWrite(const uint8_t* data, size_t size) override {
        uint8_t buf[4096];
        size_t n = 0;
        for (size_t i = 0; i < size && !ended_; ++i) {
            uint8_t c = data[i];
            if (c == '>') {
                ended_ = true;
                break;
            }
            int v = HexValue(c);
            if (v < 0) {
                if (IsPdfWhite(c)) continue;
                Emit(buf, n);
                Fail(kErrSyntax, "ASCIIHexDecode: bad character in data");
            }
            if (high_ < 0) {
                high_ = v;
            } else {
                buf[n++] = static_cast<uint8_t>(high_ << 4 | v);
                high_ = -1;
                if (n == sizeof buf) {
                    Emit(buf, n);
                    n = 0;
                }
            }
        }
        Emit(buf, n);
    }
    void DoFinish() override {
        // An odd final digit stands for its high nibble.
        if (high_ >= 0) {
            uint8_t b = static_cast<uint8_t>(high_ << 4);
            high_ = -1;
            Emit(&b, 1);
        }
    }

private:
    int high_ = -1;
    bool ended_ = false;
};

class ASCII85Stage : public FilterStage {
protected:
    void DoWrite(const uint8_t* data, size_t size) override {
        uint8_t buf[4096];
        size_t n = 0;
        auto flush = [&] {
            Emit(buf, n);
            n = 0;
        };
        for (size_t i = 0; i < size && !ended_; ++i) {
            uint8_t c = data[i];
            if (sawTilde_) {
                if (c == '>') {
                    ended_ = true;
                    break;
                }
                if (IsPdfWhite(c)) continue;
                flush();
                Fail(kErrSyntax, "ASCII85Decode: '~' not followed by '>'");
            }
            if (IsPdfWhite(c)) continue;
            if (c == '~') {
                sawTilde_ = true;
                continue;
            }
            if (n + 4 > sizeof buf) flush();
            if (c == 'z') {
                if (count_ != 0) {
                    flush();
                    Fail(kErrSyntax, "ASCII85Decode: 'z' inside a group");
                }
                std::memset(buf + n, 0, 4);
                n += 4;
                continue;
            }
            if (c < '!' || c > 'u') {
                flush();
                Fail(kErrSyntax, "ASCII85Decode: bad character in data");
            }
            group_[count_++] = static_cast<uint8_t>(c - '!');
            if (count_ == 5) {
                uint64_t v = 0;
                for (int k = 0; k < 5; ++k) v = v * 85 + group_[k];
                if (v > 0xFFFFFFFFu) {
                    flush();
                    Fail(kErrSyntax, "ASCII85Decode: group value out of range");
                }
                buf[n++] = static_cast<uint8_t>(v >> 24);
                buf[n++] = static_cast<uint8_t>(v >> 16);
                buf[n++] = static_cast<uint8_t>(v >> 8);
                buf[n++] = static_cast<uint8_t>(v);
                count_ = 0;
            }
        }
        flush();
    }
    void DoFinish() override {
        if (count_ == 0) return;
        if (count_ == 1) Fail(kErrSyntax, "ASCII85Decode: final group has a single character");
        // A final group of k characters stands for k-1 bytes: pad with the
        // highest digit so that truncation rounds the right way.
        uint64_t v = 0;
        for (int k = 0; k < 5; ++k) v = v * 85 + (k < count_ ? group_[k] : 84);
        if (v > 0xFFFFFFFFu) Fail(kErrSyntax, "ASCII85Decode: group value out of range");
        uint8_t out[4] = {static_cast<uint8_t>(v >> 24), static_cast<uint8_t>(v >> 16), static_cast<uint8_t>(v >> 8),
                          static_cast<uint8_t>(v)};
        int keep = count_ - 1;
        count_ = 0;
        Emit(out, static_cast<size_t>(keep));
    }

private:
    uint8_t group_[5] = {};
    int count_ = 0;
    bool sawTilde_ = false;
    bool ended_ = false;
};

}  // namespace

std::unique_ptr<FilterStage> MakeASCIIHexStage() { return std::make_unique<ASCIIHexStage>(); }
std::unique_ptr<FilterStage> MakeASCII85Stage() { return std::make_unique<ASCII85Stage>(); }

}  // namespace filters::detail
