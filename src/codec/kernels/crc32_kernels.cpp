// Folding with carry-less multiplication: V. Gopal et al., "Fast CRC Computation for Generic Polynomials Using
// PCLMULQDQ Instruction", Intel 2009. A block of 128 bits is moved D bits further on in the message by multiplying its
// halves with x^(D+32) and x^(D-32). What is left at the end, 16 bytes and a rest, goes through the tables.
#include "codec/kernels/crc32_kernels.h"

// g++ 12 takes the undefined registers inside its own AVX-512 header for uninitialised variables of ours (bug 105593).
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#include "codec/kernels/target.h"

#if defined(MUXORA_X86_KERNELS)
#include <immintrin.h>
#endif

namespace Orvane::Muxora::Kernels {

namespace {

bool Always() {
    return true;
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

MUXORA_CLMUL inline __m128i Load(const uint8_t* p) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

MUXORA_CLMUL inline __m128i Factors(FoldFactors factors) {
    return _mm_set_epi64x(static_cast<int64_t>(factors.high), static_cast<int64_t>(factors.low));
}

MUXORA_CLMUL inline __m128i Fold(__m128i block, __m128i factors, __m128i onto) {
    const __m128i low = _mm_clmulepi64_si128(block, factors, 0x00);
    const __m128i high = _mm_clmulepi64_si128(block, factors, 0x11);
    return _mm_xor_si128(_mm_xor_si128(low, high), onto);
}

// One block stands for all the bytes before `data`; takes in the rest.
MUXORA_CLMUL uint32_t Finish(__m128i block, const uint8_t* data, size_t length) {
    const __m128i by1 = Factors(kBy1Block);
    for (; length >= kBlock; length -= kBlock, data += kBlock)
        block = Fold(block, by1, Load(data));
    alignas(16) uint8_t bytes[kBlock];
    _mm_store_si128(reinterpret_cast<__m128i*>(bytes), block);
    return Crc32Table(Crc32Table(0, bytes, kBlock), data, length);
}

bool HasClmul() {
    return __builtin_cpu_supports("pclmul") != 0 && __builtin_cpu_supports("sse4.1") != 0;
}

MUXORA_CLMUL uint32_t Crc32Clmul(uint32_t state, const uint8_t* data, size_t length) {
    if (length < kBlock) return Crc32Table(state, data, length);
    // The state goes in as if it were added to the first four bytes.
    const __m128i start = _mm_cvtsi32_si128(static_cast<int32_t>(state));
    if (length < 4 * kBlock) return Finish(_mm_xor_si128(Load(data), start), data + kBlock, length - kBlock);

    __m128i x0 = _mm_xor_si128(Load(data), start);
    __m128i x1 = Load(data + kBlock);
    __m128i x2 = Load(data + 2 * kBlock);
    __m128i x3 = Load(data + 3 * kBlock);
    data += 4 * kBlock;
    length -= 4 * kBlock;
    const __m128i by4 = Factors(kBy4Blocks);
    for (; length >= 4 * kBlock; length -= 4 * kBlock, data += 4 * kBlock) {
        x0 = Fold(x0, by4, Load(data));
        x1 = Fold(x1, by4, Load(data + kBlock));
        x2 = Fold(x2, by4, Load(data + 2 * kBlock));
        x3 = Fold(x3, by4, Load(data + 3 * kBlock));
    }
    const __m128i by1 = Factors(kBy1Block);
    return Finish(Fold(Fold(Fold(x0, by1, x1), by1, x2), by1, x3), data, length);
}

bool HasWideClmul() {
    return HasClmul() && __builtin_cpu_supports("avx512f") != 0 && __builtin_cpu_supports("avx512vl") != 0 &&
           __builtin_cpu_supports("vpclmulqdq") != 0;
}

MUXORA_WIDE_CLMUL inline __m512i WideLoad(const uint8_t* p) {
    return _mm512_loadu_si512(p);
}

MUXORA_WIDE_CLMUL inline __m512i WideFactors(FoldFactors factors) {
    return _mm512_broadcast_i32x4(Factors(factors));
}

MUXORA_WIDE_CLMUL inline __m512i WideFold(__m512i block, __m512i factors, __m512i onto) {
    constexpr int kXorOfThree = 0x96;
    const __m512i low = _mm512_clmulepi64_epi128(block, factors, 0x00);
    const __m512i high = _mm512_clmulepi64_epi128(block, factors, 0x11);
    return _mm512_ternarylogic_epi64(low, high, onto, kXorOfThree);
}

MUXORA_WIDE_CLMUL uint32_t Crc32WideClmul(uint32_t state, const uint8_t* data, size_t length) {
    if (length < 4 * kWideBlock) return Crc32Clmul(state, data, length);
    const __m512i start = _mm512_zextsi128_si512(_mm_cvtsi32_si128(static_cast<int32_t>(state)));
    __m512i x0 = _mm512_xor_si512(WideLoad(data), start);
    __m512i x1 = WideLoad(data + kWideBlock);
    __m512i x2 = WideLoad(data + 2 * kWideBlock);
    __m512i x3 = WideLoad(data + 3 * kWideBlock);
    data += 4 * kWideBlock;
    length -= 4 * kWideBlock;
    const __m512i by16 = WideFactors(kBy16Blocks);
    for (; length >= 4 * kWideBlock; length -= 4 * kWideBlock, data += 4 * kWideBlock) {
        x0 = WideFold(x0, by16, WideLoad(data));
        x1 = WideFold(x1, by16, WideLoad(data + kWideBlock));
        x2 = WideFold(x2, by16, WideLoad(data + 2 * kWideBlock));
        x3 = WideFold(x3, by16, WideLoad(data + 3 * kWideBlock));
    }
    const __m512i by4 = WideFactors(kBy4Blocks);
    __m512i x = WideFold(WideFold(WideFold(x0, by4, x1), by4, x2), by4, x3);
    for (; length >= kWideBlock; length -= kWideBlock, data += kWideBlock)
        x = WideFold(x, by4, WideLoad(data));

    const __m128i by1 = Factors(kBy1Block);
    __m128i block = Fold(_mm512_extracti32x4_epi32(x, 0), by1, _mm512_extracti32x4_epi32(x, 1));
    block = Fold(block, by1, _mm512_extracti32x4_epi32(x, 2));
    block = Fold(block, by1, _mm512_extracti32x4_epi32(x, 3));
    return Finish(block, data, length);
}

constexpr Crc32Kernel kKernels[] = {
    {"vpclmulqdq", HasWideClmul, Crc32WideClmul},
    {"pclmulqdq", HasClmul, Crc32Clmul},
    {"table", Always, Crc32Table},
};

#else

constexpr Crc32Kernel kKernels[] = {{"table", Always, Crc32Table}};

#endif

}  // namespace

std::span<const Crc32Kernel> Crc32Kernels() {
    return kKernels;
}

}  // namespace Orvane::Muxora::Kernels
