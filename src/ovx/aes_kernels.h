// The kernels behind CAes. All give the same results; tests run each one that the processor has.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "codec/kernels/choice.h"
#include "codec/kernels/target.h"

namespace Orvane::Muxora::Kernels {

constexpr uint32_t kMaxAesRounds = 14;

// The expanded key (FIPS-197 5.2): a word holds byte 0 in its low bits, so on a little-endian machine the bytes stand
// as the standard has them.
struct AesSchedule {
    uint32_t rounds;
    std::array<uint32_t, 4 * (kMaxAesRounds + 1)> round_keys;
};

// `length` is 16, 24 or 32.
void ExpandAesKey(AesSchedule& schedule, const uint8_t* key, uint32_t length);

// Takes `blocks` blocks of 16 bytes, each by itself. `source` and `destination` may be the same.
using AesFunction = void (*)(const AesSchedule& schedule, const uint8_t* source, uint8_t* destination, size_t blocks);

struct AesKernel {
    const char* name;
    bool (*supported)();
    AesFunction encrypt;
    AesFunction decrypt;
};

// Every kernel of this build, the fastest first. The last one is the table kernel, which every processor has.
std::span<const AesKernel> AesKernels();

inline constinit KernelChoice<AesKernel, AesKernels> aes_choice;

void EncryptByTable(const AesSchedule& schedule, const uint8_t* source, uint8_t* destination, size_t blocks);
void DecryptByTable(const AesSchedule& schedule, const uint8_t* source, uint8_t* destination, size_t blocks);

#if defined(MUXORA_ARM_KERNELS)
void EncryptByArm(const AesSchedule& schedule, const uint8_t* source, uint8_t* destination, size_t blocks);
void DecryptByArm(const AesSchedule& schedule, const uint8_t* source, uint8_t* destination, size_t blocks);
#endif

}  // namespace Orvane::Muxora::Kernels
