// The kernels behind Crc32. All give the same results; tests run each one that the processor has.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "codec/kernels/choice.h"
#include "codec/kernels/target.h"

namespace Orvane::Muxora::Kernels {

struct Crc32Kernel {
    const char* name;
    bool (*supported)();
    // `state` is the running value without the inversions at the beginning and at the end.
    uint32_t (*update)(uint32_t state, const uint8_t* data, size_t length);
    // The same, with the bytes copied to `out` on the way: the copy costs little beside the multiplications.
    uint32_t (*copy)(uint32_t state, uint8_t* out, const uint8_t* data, size_t length);
};

// Every kernel of this build, the fastest first. The last one is the table kernel, which every processor has.
std::span<const Crc32Kernel> Crc32Kernels();

inline constinit KernelChoice<Crc32Kernel, Crc32Kernels> crc32_choice;

uint32_t Crc32Table(uint32_t state, const uint8_t* data, size_t length);

#if defined(MUXORA_ARM_KERNELS)
uint32_t Crc32UpdateByPmull(uint32_t state, const uint8_t* data, size_t length);
uint32_t Crc32CopyByPmull(uint32_t state, uint8_t* out, const uint8_t* data, size_t length);
uint32_t Crc32UpdateByInstruction(uint32_t state, const uint8_t* data, size_t length);
uint32_t Crc32CopyByInstruction(uint32_t state, uint8_t* out, const uint8_t* data, size_t length);
#endif

// x to the power of `exponent` modulo the CRC's polynomial, as a carry-less multiplication of reflected operands wants
// it: bits reversed, one place to the left.
constexpr uint64_t Crc32FoldConstant(uint32_t exponent) {
    constexpr uint32_t kReflectedPolynomial = 0xEDB88320;
    uint32_t remainder = 0x80000000;  // x to the power of 0, reflected
    for (uint32_t i = 0; i < exponent; ++i)
        remainder = (remainder >> 1) ^ ((remainder & 1) != 0 ? kReflectedPolynomial : 0);
    return static_cast<uint64_t>(remainder) << 1;
}

}  // namespace Orvane::Muxora::Kernels
