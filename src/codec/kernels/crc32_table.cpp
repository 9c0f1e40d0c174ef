#include <array>

#include "codec/kernels/crc32_kernels.h"

namespace Orvane::Muxora::Kernels {

namespace {

constexpr uint32_t kReflectedPolynomial = 0xEDB88320;
constexpr size_t kSlices = 8;

// Slice n tells what a byte does to the state when n more bytes follow it.
using Slices = std::array<std::array<uint32_t, 256>, kSlices>;

constexpr Slices MakeSlices() {
    Slices slices{};
    for (uint32_t i = 0; i < 256; ++i) {
        uint32_t remainder = i;
        for (int bit = 0; bit < 8; ++bit)
            remainder = (remainder >> 1) ^ ((remainder & 1) != 0 ? kReflectedPolynomial : 0);
        slices[0][i] = remainder;
    }
    for (size_t slice = 1; slice < kSlices; ++slice) {
        for (size_t i = 0; i < 256; ++i) {
            const uint32_t before = slices[slice - 1][i];
            slices[slice][i] = (before >> 8) ^ slices[0][before & 0xFF];
        }
    }
    return slices;
}

constexpr Slices kSlice = MakeSlices();

// Little-endian by definition of the reflected form; compilers turn it into one load.
uint32_t Load32(const uint8_t* p) {
    return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
           static_cast<uint32_t>(p[3]) << 24;
}

}  // namespace

uint32_t Crc32Table(uint32_t state, const uint8_t* data, size_t length) {
    for (; length >= kSlices; length -= kSlices, data += kSlices) {
        const uint32_t low = Load32(data) ^ state;
        const uint32_t high = Load32(data + 4);
        state = kSlice[7][low & 0xFF] ^ kSlice[6][(low >> 8) & 0xFF] ^ kSlice[5][(low >> 16) & 0xFF] ^
                kSlice[4][low >> 24] ^ kSlice[3][high & 0xFF] ^ kSlice[2][(high >> 8) & 0xFF] ^
                kSlice[1][(high >> 16) & 0xFF] ^ kSlice[0][high >> 24];
    }
    for (; length != 0; --length, ++data)
        state = (state >> 8) ^ kSlice[0][(state ^ *data) & 0xFF];
    return state;
}

}  // namespace Orvane::Muxora::Kernels
