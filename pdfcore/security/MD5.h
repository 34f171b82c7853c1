// MD5 message digest (RFC 1321), used by the standard security handler to
// derive keys.  Not for anything that needs a collision-resistant hash.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

class MD5 {
public:
    using Digest = std::array<uint8_t, 16>;

    MD5();
    void Update(std::span<const uint8_t> data);
    void Update(std::string_view text);
    // Pads, appends the bit length and returns the digest.  The object must
    // not be updated afterwards (Reset starts over).
    Digest Final();
    void Reset();

    static Digest Of(std::span<const uint8_t> data);
    static Digest Of(std::string_view text);

private:
    void Block(const uint8_t* block);

    uint32_t m_state[4];
    uint64_t m_length = 0;  // bytes hashed so far
    uint8_t m_buffer[64];
    size_t m_used = 0;      // bytes waiting in m_buffer
};
