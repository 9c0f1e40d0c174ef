#pragma once

#include <array>
#include <bit>
#include <cstdint>

namespace Orvane::Muxora {

// All tables come from the powers of 3 in GF(2^8) with the polynomial x^8 + x^4 + x^3 + x + 1 (FIPS-197 4.2).
struct AesTables {
    std::array<uint8_t, 256> power{};      // power[i]: 3 to the i
    std::array<uint8_t, 256> logarithm{};  // its inverse; 0 has none
    std::array<uint8_t, 256> sbox{};
    std::array<uint8_t, 256> inverse_sbox{};
    // A byte of row 0 on its way through SubBytes and MixColumns: what it adds to its column. The other rows add the
    // same, rotated.
    std::array<uint32_t, 256> sub_mix{};
    // A byte of row 0 on its way through InvMixColumns.
    std::array<uint32_t, 256> inverse_mix{};

    constexpr AesTables() {
        uint32_t value = 1;
        for (uint32_t i = 0; i < 255; ++i) {
            power[i] = static_cast<uint8_t>(value);
            logarithm[value] = static_cast<uint8_t>(i);
            value ^= value << 1 ^ ((value & 0x80) != 0 ? 0x11B : 0);
        }
        for (uint32_t i = 0; i < 256; ++i) {
            const uint8_t inverse = i == 0 ? 0 : power[(255 - logarithm[i]) % 255];
            const auto s = static_cast<uint8_t>(inverse ^ std::rotl(inverse, 1) ^ std::rotl(inverse, 2) ^
                                                std::rotl(inverse, 3) ^ std::rotl(inverse, 4) ^ 0x63);
            sbox[i] = s;
            inverse_sbox[s] = static_cast<uint8_t>(i);
        }
        for (uint32_t i = 0; i < 256; ++i) {
            sub_mix[i] = Column(sbox[i], 2, 1, 1, 3);
            inverse_mix[i] = Column(static_cast<uint8_t>(i), 14, 9, 13, 11);
        }
    }

  private:
    constexpr uint32_t Multiply(uint8_t a, uint8_t b) const {
        return a == 0 || b == 0 ? 0 : power[(logarithm[a] + logarithm[b]) % 255];
    }
    constexpr uint32_t Column(uint8_t byte, uint8_t c0, uint8_t c1, uint8_t c2, uint8_t c3) const {
        return Multiply(byte, c0) | Multiply(byte, c1) << 8 | Multiply(byte, c2) << 16 | Multiply(byte, c3) << 24;
    }
};

inline constexpr AesTables kAesTables;

// Words hold byte 0 in the low bits.
inline uint32_t LoadWord(const uint8_t* bytes) {
    return bytes[0] | uint32_t{bytes[1]} << 8 | uint32_t{bytes[2]} << 16 | uint32_t{bytes[3]} << 24;
}

inline uint8_t Row(uint32_t column, int row) {
    return static_cast<uint8_t>(column >> (8 * row));
}

inline uint32_t Substitute(uint32_t word, const std::array<uint8_t, 256>& box) {
    return box[Row(word, 0)] | uint32_t{box[Row(word, 1)]} << 8 | uint32_t{box[Row(word, 2)]} << 16 |
           uint32_t{box[Row(word, 3)]} << 24;
}

}  // namespace Orvane::Muxora
