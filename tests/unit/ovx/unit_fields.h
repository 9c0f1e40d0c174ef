// Reads the fields of a finished unit, and a data check of its own kind.
#pragma once

#include <cstdint>

#include "support/hex.h"

namespace test {

inline uint32_t LittleEndian(const ByteVector& bytes, size_t offset, size_t width) {
    const ByteVector field = Slice(bytes, offset, width);
    uint32_t value = 0;
    for (size_t i = 0; i < width; ++i)
        value |= static_cast<uint32_t>(field[i]) << (8 * i);
    return value;
}

inline uint32_t UnitSequence(const ByteVector& unit) {
    return LittleEndian(unit, 8, 4);
}
inline uint32_t UnitDate(const ByteVector& unit) {
    return LittleEndian(unit, 16, 4);
}
inline uint32_t UnitTimestamp(const ByteVector& unit) {
    return LittleEndian(unit, 20, 2);
}

// CRC-32 of IEEE 802.3 by its definition: bit by bit, as a division of polynomials.
inline uint32_t BitwiseCrc32(const ByteVector& bytes) {
    uint32_t remainder = 0xFFFFFFFF;
    for (const uint8_t byte : bytes) {
        for (uint32_t bit = 0; bit < 8; ++bit) {
            const bool carry = ((remainder ^ (byte >> bit)) & 1) != 0;
            remainder >>= 1;
            if (carry) remainder ^= 0xEDB88320;
        }
    }
    return ~remainder;
}

}  // namespace test
