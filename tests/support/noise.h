// Random bytes for tests; the same on every run and every machine.
#pragma once

#include <cstdint>
#include <random>

#include "support/hex.h"

namespace test {

// Bytes of which most are 0 or 1, so that start codes, near misses and runs of zeros are frequent.
inline ByteVector ZeroRichBytes(std::mt19937& random, size_t count) {
    ByteVector out(count);
    for (uint8_t& byte : out) {
        const auto draw = static_cast<uint32_t>(random());
        const uint32_t kind = draw & 15;
        byte = kind < 9 ? 0 : kind < 12 ? 1 : static_cast<uint8_t>(draw >> 8);
    }
    return out;
}

inline ByteVector RandomBytes(std::mt19937& random, size_t count) {
    ByteVector out(count);
    for (uint8_t& byte : out)
        byte = static_cast<uint8_t>(random());
    return out;
}

}  // namespace test
