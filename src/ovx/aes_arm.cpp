// The cryptographic extension of Armv8. Built with it switched on: only the dispatch may call what is in here.
#include "ovx/aes_kernels.h"

#if defined(MUXORA_ARM_KERNELS)
#include <arm_neon.h>

namespace Orvane::Muxora::Kernels {

namespace {

constexpr size_t kSideBySide = 4;

using RoundKeys = std::array<uint8x16_t, kMaxAesRounds + 1>;

uint8x16_t RoundKey(const AesSchedule& schedule, uint32_t round) {
    return vreinterpretq_u8_u32(vld1q_u32(&schedule.round_keys[size_t{4} * round]));
}

// `keys` in the order of use. The instructions add the round key first and have no MixColumns of their own.
template <bool kEncrypt, size_t kBlocks>
inline void Blocks(const RoundKeys& keys, uint32_t rounds, const uint8_t* source, uint8_t* destination) {
    uint8x16_t state[kBlocks];
    for (size_t i = 0; i < kBlocks; ++i)
        state[i] = vld1q_u8(source + 16 * i);
    for (uint32_t round = 0; round + 1 < rounds; ++round) {
        for (size_t i = 0; i < kBlocks; ++i) {
            state[i] =
                kEncrypt ? vaesmcq_u8(vaeseq_u8(state[i], keys[round])) : vaesimcq_u8(vaesdq_u8(state[i], keys[round]));
        }
    }
    for (size_t i = 0; i < kBlocks; ++i) {
        const uint8x16_t last =
            kEncrypt ? vaeseq_u8(state[i], keys[rounds - 1]) : vaesdq_u8(state[i], keys[rounds - 1]);
        vst1q_u8(destination + 16 * i, veorq_u8(last, keys[rounds]));
    }
}

template <bool kEncrypt>
void ByArm(const RoundKeys& keys, uint32_t rounds, const uint8_t* source, uint8_t* destination, size_t blocks) {
    for (; blocks >= kSideBySide; blocks -= kSideBySide, source += 16 * kSideBySide, destination += 16 * kSideBySide)
        Blocks<kEncrypt, kSideBySide>(keys, rounds, source, destination);
    for (; blocks != 0; --blocks, source += 16, destination += 16)
        Blocks<kEncrypt, 1>(keys, rounds, source, destination);
}

}  // namespace

void EncryptByArm(const AesSchedule& schedule, const uint8_t* source, uint8_t* destination, size_t blocks) {
    RoundKeys keys;
    for (uint32_t round = 0; round <= schedule.rounds; ++round)
        keys[round] = RoundKey(schedule, round);
    ByArm<true>(keys, schedule.rounds, source, destination, blocks);
}

// The equivalent inverse cipher, FIPS-197 5.3.5.
void DecryptByArm(const AesSchedule& schedule, const uint8_t* source, uint8_t* destination, size_t blocks) {
    const uint32_t rounds = schedule.rounds;
    RoundKeys keys;
    for (uint32_t round = 0; round <= rounds; ++round) {
        const uint8x16_t key = RoundKey(schedule, round);
        keys[rounds - round] = round == 0 || round == rounds ? key : vaesimcq_u8(key);
    }
    ByArm<false>(keys, rounds, source, destination, blocks);
}

}  // namespace Orvane::Muxora::Kernels

#endif
