#include "ovx/aes_kernels.h"

#if defined(MUXORA_X86_KERNELS)
#include <immintrin.h>
#elif defined(MUXORA_ARM_KERNELS)
#include "codec/kernels/arm_features.h"
#endif

namespace Orvane::Muxora::Kernels {

namespace {

bool Always() {
    return true;
}

#if defined(MUXORA_X86_KERNELS)

#define MUXORA_AESNI MUXORA_TARGET("aes,sse2")

// A round has a latency of several cycles and one starts in each, so blocks go side by side.
constexpr size_t kSideBySide = 8;

struct RoundKeys {
    __m128i of[kMaxAesRounds + 1];  // in the order of use
};

bool HasAesNi() {
    return __builtin_cpu_supports("aes") != 0;
}

MUXORA_AESNI inline __m128i Load(const void* p) {
    return _mm_loadu_si128(static_cast<const __m128i*>(p));
}

MUXORA_AESNI inline void Store(uint8_t* p, __m128i value) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p), value);
}

template <bool kEncrypt, size_t kBlocks>
MUXORA_AESNI inline void Blocks(const RoundKeys& keys, uint32_t rounds, const uint8_t* source, uint8_t* destination) {
    __m128i state[kBlocks];
    for (size_t i = 0; i < kBlocks; ++i)
        state[i] = _mm_xor_si128(Load(source + 16 * i), keys.of[0]);
    for (uint32_t round = 1; round < rounds; ++round) {
        for (size_t i = 0; i < kBlocks; ++i)
            state[i] =
                kEncrypt ? _mm_aesenc_si128(state[i], keys.of[round]) : _mm_aesdec_si128(state[i], keys.of[round]);
    }
    for (size_t i = 0; i < kBlocks; ++i) {
        Store(destination + 16 * i, kEncrypt ? _mm_aesenclast_si128(state[i], keys.of[rounds])
                                             : _mm_aesdeclast_si128(state[i], keys.of[rounds]));
    }
}

template <bool kEncrypt>
MUXORA_AESNI void ByAesNi(const AesSchedule& schedule, const uint8_t* source, uint8_t* destination, size_t blocks) {
    const uint32_t rounds = schedule.rounds;
    RoundKeys keys;
    for (uint32_t round = 0; round <= rounds; ++round) {
        const __m128i key = Load(&schedule.round_keys[size_t{4} * round]);
        if constexpr (kEncrypt) {
            keys.of[round] = key;
        } else {
            // The equivalent inverse cipher, FIPS-197 5.3.5.
            keys.of[rounds - round] = round == 0 || round == rounds ? key : _mm_aesimc_si128(key);
        }
    }
    for (; blocks >= kSideBySide; blocks -= kSideBySide, source += 16 * kSideBySide, destination += 16 * kSideBySide)
        Blocks<kEncrypt, kSideBySide>(keys, rounds, source, destination);
    for (; blocks != 0; --blocks, source += 16, destination += 16)
        Blocks<kEncrypt, 1>(keys, rounds, source, destination);
}

#endif

constexpr AesKernel kKernels[] = {
#if defined(MUXORA_X86_KERNELS)
    {"aes-ni", HasAesNi, ByAesNi<true>, ByAesNi<false>},
#elif defined(MUXORA_ARM_KERNELS)
    {"armv8-aes", HasArmAes, EncryptByArm, DecryptByArm},
#endif
    {"table", Always, EncryptByTable, DecryptByTable},
};

}  // namespace

std::span<const AesKernel> AesKernels() {
    return kKernels;
}

}  // namespace Orvane::Muxora::Kernels
