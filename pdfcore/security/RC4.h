// The RC4 stream cipher.  Encryption and decryption are the same operation.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

class RC4 {
public:
    // Keys of 1 to 256 bytes; an empty key raises "bad parameter".
    explicit RC4(std::span<const uint8_t> key);
    // XORs the key stream into `data` in place, continuing where the last
    // call stopped.
    void Process(std::span<uint8_t> data);
    // One-shot helper: a fresh cipher over `key` applied to `data`.
    static void Apply(std::span<const uint8_t> key, std::span<uint8_t> data);

private:
    uint8_t m_s[256];
    uint8_t m_i = 0;
    uint8_t m_j = 0;
};
