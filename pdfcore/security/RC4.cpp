#include "pdfcore/security/RC4.h"

#include <utility>

#include "base/ASError.h"

RC4::RC4(std::span<const uint8_t> key) {
    if (key.empty() || key.size() > 256) ASRaiseErr(ErrSysGeneral, kErrBadParm);
    for (int i = 0; i < 256; ++i) m_s[i] = uint8_t(i);
    uint8_t j = 0;
    for (size_t i = 0; i < 256; ++i) {
        j = uint8_t(j + m_s[i] + key[i % key.size()]);
        std::swap(m_s[i], m_s[j]);
    }
}

void RC4::Process(std::span<uint8_t> data) {
    for (uint8_t& byte : data) {
        m_i = uint8_t(m_i + 1);
        m_j = uint8_t(m_j + m_s[m_i]);
        std::swap(m_s[m_i], m_s[m_j]);
        byte ^= m_s[uint8_t(m_s[m_i] + m_s[m_j])];
    }
}

void RC4::Apply(std::span<const uint8_t> key, std::span<uint8_t> data) {
    RC4 cipher(key);
    cipher.Process(data);
}
