// Helpers shared by the filter tests.
#pragma once

#include <string>
#include <vector>

#include "filters/Filters.h"
#include "base/ASError.h"

namespace filters::testing {

inline Bytes B(const std::string& s) { return Bytes(s.begin(), s.end()); }
inline std::string S(const Bytes& b) { return std::string(b.begin(), b.end()); }

inline FilterParams Params(std::initializer_list<std::pair<const std::string, double>> kv) {
    FilterParams p;
    p.values = kv;
    return p;
}

// Collects what the decoders warn about while alive.
class WarningCatcher {
public:
    WarningCatcher() {
        SetWarningSink([this](const std::string& w) { warnings.push_back(w); });
    }
    ~WarningCatcher() { SetWarningSink(nullptr); }
    std::vector<std::string> warnings;
};

// The error number of the CVellumError `f` raises, or 0 when it does not.
template <class F>
int RaisedError(F&& f) {
    try {
        f();
    } catch (const CVellumError& e) {
        return ErrGetNumber(e.GetErrorCode());
    }
    return 0;
}

// A small deterministic generator for test data.
class Lcg {
public:
    explicit Lcg(uint32_t seed) : s_(seed) {}
    uint32_t Next() {
        s_ = s_ * 1664525u + 1013904223u;
        return s_ >> 8;
    }

private:
    uint32_t s_;
};

}  // namespace filters::testing
