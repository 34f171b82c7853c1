// Error texts and raising of core errors.
#include <cstring>

#include "base/ASError.h"
#include "base/ASMem.h"

namespace vellum_detail {
extern const char* const kErrorTexts[];
}

const char* ASGetErrorString(ASErrorCode code) {
    const ASInt32 number = ErrGetNumber(code);
    if (number < kErrFirst || number > kErrLast) return "unknown error";
    return vellum_detail::kErrorTexts[number - kErrFirst];
}

char* ASGetErrorText(ASErrorCode code, char* buffer, ASInt32 size) {
    if (!buffer || size <= 0) return nullptr;
    std::memset(buffer, 0, static_cast<size_t>(size));
    const char* text = ASGetErrorString(code);
    size_t n = std::strlen(text);
    if (n > static_cast<size_t>(size) - 1) n = static_cast<size_t>(size) - 1;
    std::memcpy(buffer, text, n);
    return buffer;
}

const char* CVellumError::what() const noexcept { return ASGetErrorString(m_code); }

void ASRaise(ASErrorCode code, const char* file, int line) {
    if (VellumIsInitialized()) {
        char text[256];
        ASGetErrorText(code, text, sizeof text);
        if (file)
            VellumStatusPrintf("ASRaise called with error #%ld [%s] from file %s, line %d\n",
                               static_cast<long>(code), text, file, line);
        else
            VellumStatusPrintf("ASRaise called with error #%ld [%s]\n", static_cast<long>(code), text);
    }
    throw CVellumError(code);
}
