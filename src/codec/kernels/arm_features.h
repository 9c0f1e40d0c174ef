// What a 64-bit Arm processor can do beyond its baseline.
#pragma once

#include <cstdint>

#include "codec/kernels/target.h"

#if defined(MUXORA_ARM_KERNELS)

#if defined(__linux__)
#include <sys/auxv.h>
#endif

namespace Orvane::Muxora::Kernels {

#if defined(__linux__)

// The bits of AT_HWCAP, as the kernel's documentation numbers them (arm64/elf_hwcaps).
inline bool HasArmFeature(uint32_t bit) {
    return (getauxval(AT_HWCAP) >> bit & 1) != 0;
}
inline bool HasArmAes() {
    return HasArmFeature(3);
}
inline bool HasArmPmull() {
    return HasArmFeature(4);
}
inline bool HasArmCrc32() {
    return HasArmFeature(7);
}

#else

// Every 64-bit processor of Apple has all three; elsewhere there is no common way to ask.
inline constexpr bool kAppleProcessor =
#if defined(__APPLE__)
    true;
#else
    false;
#endif
inline bool HasArmAes() {
    return kAppleProcessor;
}
inline bool HasArmPmull() {
    return kAppleProcessor;
}
inline bool HasArmCrc32() {
    return kAppleProcessor;
}

#endif

}  // namespace Orvane::Muxora::Kernels

#endif
