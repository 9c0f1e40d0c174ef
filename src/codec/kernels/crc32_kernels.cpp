// Folding with carry-less multiplication: V. Gopal et al., "Fast CRC Computation for Generic Polynomials Using
// PCLMULQDQ Instruction", Intel 2009. A block of 128 bits is moved D bits further on in the message by multiplying its
// halves with x^(D+32) and x^(D-32). What is left at the end, 16 bytes and a rest, goes through the tables.
#include "codec/kernels/crc32_kernels.h"

#include <cstring>

#include "codec/kernels/target.h"

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

uint32_t CopyByTable(uint32_t state, uint8_t* out, const uint8_t* data, size_t length) {
    if (length != 0) std::memcpy(out, data, length);
    return Crc32Table(state, data, length);
}

#if defined(MUXORA_X86_KERNELS)

constexpr size_t kBlock = 16;
constexpr size_t kWideBlock = 64;

// The factors that move a block by `distance` bits.
struct FoldFactors {
    uint64_t low;
    uint64_t high;
};

constexpr FoldFactors FactorsFor(uint32_t distance) {
    return {Crc32FoldConstant(distance + 32), Crc32FoldConstant(distance - 32)};
}

// These two are printed in the paper.
static_assert(FactorsFor(512).low == 0x154442BD4 && FactorsFor(512).high == 0x1C6E41596);
static_assert(FactorsFor(128).low == 0x1751997D0 && FactorsFor(128).high == 0x0CCAA009E);

constexpr FoldFactors kBy1Block = FactorsFor(128);
constexpr FoldFactors kBy4Blocks = FactorsFor(512);
constexpr FoldFactors kBy16Blocks = FactorsFor(2048);

#define MUXORA_CLMUL MUXORA_TARGET("pclmul,sse4.1")
#define MUXORA_WIDE_CLMUL MUXORA_TARGET("avx512f,avx512vl,vpclmulqdq,pclmul,sse4.1")

MUXORA_CLMUL inline __m128i Factors(FoldFactors factors) {
    return _mm_set_epi64x(static_cast<int64_t>(factors.high), static_cast<int64_t>(factors.low));
}

// What is left of the message, and where its copy goes.
template <bool kCopy>
struct Rest {
    const uint8_t* data;
    size_t length;
    uint8_t* out;  // null without a copy
};

template <bool kCopy>
MUXORA_CLMUL inline __m128i Next(Rest<kCopy>& rest) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(rest.data));
    if constexpr (kCopy) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(rest.out), block);
        rest.out += kBlock;
    }
    rest.data += kBlock;
    rest.length -= kBlock;
    return block;
}

MUXORA_CLMUL inline __m128i Fold(__m128i block, __m128i factors, __m128i onto) {
    const __m128i low = _mm_clmulepi64_si128(block, factors, 0x00);
    const __m128i high = _mm_clmulepi64_si128(block, factors, 0x11);
    return _mm_xor_si128(_mm_xor_si128(low, high), onto);
}

// One block stands for all the bytes before the rest.
template <bool kCopy>
MUXORA_CLMUL inline uint32_t Finish(__m128i block, Rest<kCopy>& rest) {
    const __m128i by1 = Factors(kBy1Block);
    while (rest.length >= kBlock)
        block = Fold(block, by1, Next(rest));
    if constexpr (kCopy) {
        // The last 16 bytes once more, so that no odd bytes are left.
        const auto* const last = reinterpret_cast<const __m128i*>(rest.data + rest.length - kBlock);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(rest.out + rest.length - kBlock), _mm_loadu_si128(last));
    }
    alignas(16) uint8_t bytes[kBlock];
    _mm_store_si128(reinterpret_cast<__m128i*>(bytes), block);
    return Crc32Table(Crc32Table(0, bytes, kBlock), rest.data, rest.length);
}

bool HasClmul() {
    return __builtin_cpu_supports("pclmul") != 0 && __builtin_cpu_supports("sse4.1") != 0;
}

template <bool kCopy>
MUXORA_CLMUL uint32_t ByClmul(uint32_t state, uint8_t* out, const uint8_t* data, size_t length) {
    if (length < kBlock) {
        if constexpr (kCopy) return CopyByTable(state, out, data, length);
        return Crc32Table(state, data, length);
    }
    Rest<kCopy> rest{data, length, out};
    // The state goes in as if it were added to the first four bytes.
    __m128i x0 = _mm_xor_si128(Next(rest), _mm_cvtsi32_si128(static_cast<int32_t>(state)));
    if (rest.length < 3 * kBlock) return Finish(x0, rest);

    __m128i x1 = Next(rest);
    __m128i x2 = Next(rest);
    __m128i x3 = Next(rest);
    const __m128i by4 = Factors(kBy4Blocks);
    while (rest.length >= 4 * kBlock) {
        x0 = Fold(x0, by4, Next(rest));
        x1 = Fold(x1, by4, Next(rest));
        x2 = Fold(x2, by4, Next(rest));
        x3 = Fold(x3, by4, Next(rest));
    }
    const __m128i by1 = Factors(kBy1Block);
    return Finish(Fold(Fold(Fold(x0, by1, x1), by1, x2), by1, x3), rest);
}

bool HasWideClmul() {
    return HasClmul() && __builtin_cpu_supports("avx512f") != 0 && __builtin_cpu_supports("avx512vl") != 0 &&
           __builtin_cpu_supports("vpclmulqdq") != 0;
}

template <bool kCopy>
MUXORA_WIDE_CLMUL inline __m512i WideNext(Rest<kCopy>& rest) {
    const __m512i block = _mm512_loadu_si512(rest.data);
    if constexpr (kCopy) {
        _mm512_storeu_si512(rest.out, block);
        rest.out += kWideBlock;
    }
    rest.data += kWideBlock;
    rest.length -= kWideBlock;
    return block;
}

// The masked forms of two intrinsics stand here because g++ 12 warns of an uninitialised value inside the plain ones.
MUXORA_WIDE_CLMUL inline __m512i WideFactors(FoldFactors factors) {
    return _mm512_maskz_broadcast_i32x4(0xFFFF, Factors(factors));
}

template <int kPart>
MUXORA_WIDE_CLMUL inline __m128i Part(__m512i block) {
    return _mm512_maskz_extracti32x4_epi32(0xF, block, kPart);
}

MUXORA_WIDE_CLMUL inline __m512i WideFold(__m512i block, __m512i factors, __m512i onto) {
    constexpr int kXorOfThree = 0x96;
    const __m512i low = _mm512_clmulepi64_epi128(block, factors, 0x00);
    const __m512i high = _mm512_clmulepi64_epi128(block, factors, 0x11);
    return _mm512_ternarylogic_epi64(low, high, onto, kXorOfThree);
}

template <bool kCopy>
MUXORA_WIDE_CLMUL uint32_t ByWideClmul(uint32_t state, uint8_t* out, const uint8_t* data, size_t length) {
    if (length < 4 * kWideBlock) return ByClmul<kCopy>(state, out, data, length);
    Rest<kCopy> rest{data, length, out};
    const __m512i start = _mm512_zextsi128_si512(_mm_cvtsi32_si128(static_cast<int32_t>(state)));
    __m512i x0 = _mm512_xor_si512(WideNext(rest), start);
    __m512i x1 = WideNext(rest);
    __m512i x2 = WideNext(rest);
    __m512i x3 = WideNext(rest);
    const __m512i by16 = WideFactors(kBy16Blocks);
    while (rest.length >= 4 * kWideBlock) {
        x0 = WideFold(x0, by16, WideNext(rest));
        x1 = WideFold(x1, by16, WideNext(rest));
        x2 = WideFold(x2, by16, WideNext(rest));
        x3 = WideFold(x3, by16, WideNext(rest));
    }
    const __m512i by4 = WideFactors(kBy4Blocks);
    __m512i x = WideFold(WideFold(WideFold(x0, by4, x1), by4, x2), by4, x3);
    while (rest.length >= kWideBlock)
        x = WideFold(x, by4, WideNext(rest));

    const __m128i by1 = Factors(kBy1Block);
    return Finish(Fold(Fold(Fold(Part<0>(x), by1, Part<1>(x)), by1, Part<2>(x)), by1, Part<3>(x)), rest);
}

template <uint32_t (*kByKernel)(uint32_t, uint8_t*, const uint8_t*, size_t)>
uint32_t Update(uint32_t state, const uint8_t* data, size_t length) {
    return kByKernel(state, nullptr, data, length);
}

#elif defined(MUXORA_ARM_KERNELS)

bool HasPmullAndCrc32() {
    return HasArmPmull() && HasArmCrc32();
}

#endif

constexpr Crc32Kernel kKernels[] = {
#if defined(MUXORA_X86_KERNELS)
    {"vpclmulqdq", HasWideClmul, Update<ByWideClmul<false>>, ByWideClmul<true>},
    {"pclmulqdq", HasClmul, Update<ByClmul<false>>, ByClmul<true>},
#elif defined(MUXORA_ARM_KERNELS)
    {"pmull", HasPmullAndCrc32, Crc32UpdateByPmull, Crc32CopyByPmull},
    {"crc32", HasArmCrc32, Crc32UpdateByInstruction, Crc32CopyByInstruction},
#endif
    {"table", Always, Crc32Table, CopyByTable},
};

}  // namespace

std::span<const Crc32Kernel> Crc32Kernels() {
    return kKernels;
}

}  // namespace Orvane::Muxora::Kernels
