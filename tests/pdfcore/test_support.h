// Small helpers shared by the core's tests.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string_view>

#include "base/ASError.h"

// The full error code raised by `f`, or 0.
inline ASErrorCode ErrorCodeOf(const std::function<void()>& f) {
    try {
        f();
    } catch (const CVellumError& e) {
        return e.GetErrorCode();
    }
    return 0;
}

// The error number raised by `f`, or 0.
inline ASInt32 ErrorOf(const std::function<void()>& f) { return ErrGetNumber(ErrorCodeOf(f)); }

inline std::span<const uint8_t> Span(std::string_view s) {
    return {reinterpret_cast<const uint8_t*>(s.data()), s.size()};
}
