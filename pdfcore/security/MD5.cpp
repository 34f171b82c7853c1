#include "pdfcore/security/MD5.h"

#include <algorithm>
#include <cstring>

namespace {

// Per-round shift amounts and the sine-derived constants of RFC 1321.
constexpr uint32_t kShift[64] = {
    7, 12, 17, 22, 7, 12, 17, 22, 7, 12, 17, 22, 7, 12, 17, 22,
    5, 9,  14, 20, 5, 9,  14, 20, 5, 9,  14, 20, 5, 9,  14, 20,
    4, 11, 16, 23, 4, 11, 16, 23, 4, 11, 16, 23, 4, 11, 16, 23,
    6, 10, 15, 21, 6, 10, 15, 21, 6, 10, 15, 21, 6, 10, 15, 21};

constexpr uint32_t kSine[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613,
    0xfd469501, 0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193,
    0xa679438e, 0x49b40821, 0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d,
    0x02441453, 0xd8a1e681, 0xe7d3fbc8, 0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed,
    0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a, 0xfffa3942, 0x8771f681, 0x6d9d6122,
    0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70, 0x289b7ec6, 0xeaa127fa,
    0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665, 0xf4292244,
    0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb,
    0xeb86d391};

inline uint32_t Rotl(uint32_t x, uint32_t n) { return (x << n) | (x >> (32 - n)); }

}  // namespace

MD5::MD5() { Reset(); }

void MD5::Reset() {
    m_state[0] = 0x67452301;
    m_state[1] = 0xefcdab89;
    m_state[2] = 0x98badcfe;
    m_state[3] = 0x10325476;
    m_length = 0;
    m_used = 0;
}

void MD5::Block(const uint8_t* block) {
    uint32_t w[16];
    for (int i = 0; i < 16; ++i) {
        // The message words are little-endian whatever the host order.
        w[i] = uint32_t(block[i * 4]) | uint32_t(block[i * 4 + 1]) << 8 |
               uint32_t(block[i * 4 + 2]) << 16 | uint32_t(block[i * 4 + 3]) << 24;
    }
    uint32_t a = m_state[0], b = m_state[1], c = m_state[2], d = m_state[3];
    for (int i = 0; i < 64; ++i) {
        uint32_t f;
        int g;
        if (i < 16) {
            f = (b & c) | (~b & d);
            g = i;
        } else if (i < 32) {
            f = (d & b) | (~d & c);
            g = (5 * i + 1) & 15;
        } else if (i < 48) {
            f = b ^ c ^ d;
            g = (3 * i + 5) & 15;
        } else {
            f = c ^ (b | ~d);
            g = (7 * i) & 15;
        }
        uint32_t next = b + Rotl(a + f + kSine[i] + w[g], kShift[i]);
        a = d;
        d = c;
        c = b;
        b = next;
    }
    m_state[0] += a;
    m_state[1] += b;
    m_state[2] += c;
    m_state[3] += d;
}

void MD5::Update(std::span<const uint8_t> data) {
    // An empty span may carry a null pointer (an empty vector's data()),
    // which memcpy must never see, not even with a length of 0.
    if (data.empty()) return;
    const uint8_t* p = data.data();
    size_t n = data.size();
    m_length += n;
    if (m_used > 0) {
        size_t take = std::min(n, sizeof(m_buffer) - m_used);
        std::memcpy(m_buffer + m_used, p, take);
        m_used += take;
        p += take;
        n -= take;
        if (m_used < sizeof(m_buffer)) return;
        Block(m_buffer);
        m_used = 0;
    }
    for (; n >= 64; n -= 64, p += 64) Block(p);
    if (n > 0) {
        std::memcpy(m_buffer, p, n);
        m_used = n;
    }
}

void MD5::Update(std::string_view text) {
    Update(std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
}

MD5::Digest MD5::Final() {
    const uint64_t bits = m_length * 8;
    uint8_t pad[72] = {0x80};
    // Pad to 56 bytes modulo 64, leaving room for the 8-byte length.
    size_t padLen = (m_used < 56) ? 56 - m_used : 120 - m_used;
    uint8_t lengthBytes[8];
    for (int i = 0; i < 8; ++i) lengthBytes[i] = uint8_t(bits >> (8 * i));
    Update(std::span<const uint8_t>(pad, padLen));
    Update(std::span<const uint8_t>(lengthBytes, 8));
    Digest out;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) out[size_t(i * 4 + j)] = uint8_t(m_state[i] >> (8 * j));
    return out;
}

MD5::Digest MD5::Of(std::span<const uint8_t> data) {
    MD5 md5;
    md5.Update(data);
    return md5.Final();
}

MD5::Digest MD5::Of(std::string_view text) {
    MD5 md5;
    md5.Update(text);
    return md5.Final();
}
