// The optional instructions of Armv8 for CRC-32: the carry-less multiplication PMULL, and CRC32 itself, which has this
// polynomial. Built with both switched on: only the dispatch may call what is in here.
#include "codec/kernels/crc32_kernels.h"
#include "codec/kernels/target.h"

#if defined(MUXORA_ARM_KERNELS)
#include <arm_acle.h>
#include <arm_neon.h>

#include <cstring>

namespace Orvane::Muxora::Kernels {

namespace {

constexpr size_t kBlock = 16;

uint64_t Load64(const uint8_t* p) {
    uint64_t value = 0;
    std::memcpy(&value, p, sizeof value);
    return value;
}

// The factors that move a block by `distance` bits, for its low and its high half; see crc32_kernels.cpp.
struct Factors {
    explicit constexpr Factors(uint32_t distance)
        : low(Crc32FoldConstant(distance + 32)), high(Crc32FoldConstant(distance - 32)) {}
    uint64_t low;
    uint64_t high;
};

constexpr Factors kBy1Block(128);
constexpr Factors kBy4Blocks(512);

inline uint64x2_t Fold(uint64x2_t block, const Factors& factors, uint64x2_t onto) {
    const poly128_t low = vmull_p64(vgetq_lane_u64(block, 0), factors.low);
    const poly128_t high = vmull_p64(vgetq_lane_u64(block, 1), factors.high);
    return veorq_u64(veorq_u64(vreinterpretq_u64_p128(low), vreinterpretq_u64_p128(high)), onto);
}

// What is left of the message, and where its copy goes.
template <bool kCopy>
struct Rest {
    const uint8_t* data;
    size_t length;
    uint8_t* out;  // null without a copy

    uint64x2_t Next() {
        const uint8x16_t block = vld1q_u8(data);
        if constexpr (kCopy) {
            vst1q_u8(out, block);
            out += kBlock;
        }
        data += kBlock;
        length -= kBlock;
        return vreinterpretq_u64_u8(block);
    }
};

template <bool kCopy>
uint32_t ByCrc32(uint32_t state, uint8_t* out, const uint8_t* data, size_t length) {
    for (; length >= 8; length -= 8, data += 8) {
        const uint64_t word = Load64(data);
        if constexpr (kCopy) {
            std::memcpy(out, &word, sizeof word);
            out += sizeof word;
        }
        state = __crc32d(state, word);
    }
    for (; length != 0; --length, ++data) {
        if constexpr (kCopy) *out++ = *data;
        state = __crc32b(state, *data);
    }
    return state;
}

template <bool kCopy>
uint32_t ByPmull(uint32_t state, uint8_t* out, const uint8_t* data, size_t length) {
    if (length < 4 * kBlock) return ByCrc32<kCopy>(state, out, data, length);
    Rest<kCopy> rest{data, length, out};
    // The state goes in as if it were added to the first four bytes.
    uint64x2_t x0 = veorq_u64(rest.Next(), vsetq_lane_u64(state, vdupq_n_u64(0), 0));
    uint64x2_t x1 = rest.Next();
    uint64x2_t x2 = rest.Next();
    uint64x2_t x3 = rest.Next();
    while (rest.length >= 4 * kBlock) {
        x0 = Fold(x0, kBy4Blocks, rest.Next());
        x1 = Fold(x1, kBy4Blocks, rest.Next());
        x2 = Fold(x2, kBy4Blocks, rest.Next());
        x3 = Fold(x3, kBy4Blocks, rest.Next());
    }
    uint64x2_t x = Fold(Fold(Fold(x0, kBy1Block, x1), kBy1Block, x2), kBy1Block, x3);
    while (rest.length >= kBlock)
        x = Fold(x, kBy1Block, rest.Next());
    // One block stands for all the bytes before the rest.
    const uint32_t folded = __crc32d(__crc32d(0, vgetq_lane_u64(x, 0)), vgetq_lane_u64(x, 1));
    return ByCrc32<kCopy>(folded, rest.out, rest.data, rest.length);
}

}  // namespace

uint32_t Crc32UpdateByPmull(uint32_t state, const uint8_t* data, size_t length) {
    return ByPmull<false>(state, nullptr, data, length);
}

uint32_t Crc32CopyByPmull(uint32_t state, uint8_t* out, const uint8_t* data, size_t length) {
    return ByPmull<true>(state, out, data, length);
}

uint32_t Crc32UpdateByInstruction(uint32_t state, const uint8_t* data, size_t length) {
    return ByCrc32<false>(state, nullptr, data, length);
}

uint32_t Crc32CopyByInstruction(uint32_t state, uint8_t* out, const uint8_t* data, size_t length) {
    return ByCrc32<true>(state, out, data, length);
}

}  // namespace Orvane::Muxora::Kernels

#endif
