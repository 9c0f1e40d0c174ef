#include "codec/kernels/start_code_kernels.h"

#include <bit>
#include <cstring>

#include "codec/kernels/target.h"

#if defined(MUXORA_X86_KERNELS)
#include <immintrin.h>
#elif defined(MUXORA_ARM_KERNELS)
#include <arm_neon.h>
#endif

namespace Orvane::Muxora::Kernels {

namespace {

bool Always() {
    return true;
}

// The second look finds the bytes in the inner cache.
template <auto find>
const uint8_t* CopyThenFind(uint8_t* out, const uint8_t* begin, const uint8_t* end) {
    if (begin != end) std::memcpy(out, begin, static_cast<size_t>(end - begin));
    return find(begin, end);
}

#if defined(MUXORA_X86_KERNELS)

// A position holds a start code where byte 0 OR byte 1 OR (byte 2 XOR 1) is zero, so one comparison serves a whole
// vector of positions. Each kernel ends with a vector that overlaps the one before it, so that nothing is read behind
// the end; the positions that it looks at twice have already been found empty.

bool HasAvx2() {
    return __builtin_cpu_supports("avx2") != 0;
}

MUXORA_TARGET("avx2") inline __m256i Mismatch256(const uint8_t* p) {
    const __m256i byte0 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
    const __m256i byte1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + 1));
    const __m256i byte2 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + 2));
    return _mm256_or_si256(_mm256_or_si256(byte0, byte1), _mm256_xor_si256(byte2, _mm256_set1_epi8(1)));
}

MUXORA_TARGET("avx2") inline uint32_t Matches256(__m256i mismatch) {
    return static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(mismatch, _mm256_setzero_si256())));
}

// A sieve with one load a vector. Cut a start code's surroundings into pairs of bytes, from an even place or from an
// odd one: one pair within the code is 00 00 or 00 01, and a pair of either kind gives a zero here.
MUXORA_TARGET("avx2") inline __m256i Sieve256(__m256i pairs) {
    return _mm256_and_si256(pairs, _mm256_set1_epi16(static_cast<int16_t>(0xFEFF)));
}

MUXORA_TARGET("avx2") inline __m256i Sieve256(const uint8_t* p) {
    return Sieve256(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)));
}

MUXORA_TARGET("avx2") inline bool HasZeroPair256(__m256i sieved) {
    return _mm256_movemask_epi8(_mm256_cmpeq_epi16(sieved, _mm256_setzero_si256())) != 0;
}

// Copies a vector and gives its sieve.
MUXORA_TARGET("avx2") inline __m256i CopySieve256(uint8_t* out, const uint8_t* p) {
    const __m256i bytes = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), bytes);
    return Sieve256(bytes);
}

MUXORA_TARGET("avx2") const uint8_t* FindStartCodeAvx2(const uint8_t* begin, const uint8_t* end) {
    constexpr int kStep = 32;
    constexpr int kReach = kStep + 2;  // bytes that one vector of positions reads
    if (end - begin < kReach) return FindStartCodeScalar(begin, end);
    const uint8_t* p = begin;
    for (; end - p >= 3 * kStep + kReach; p += 4 * kStep) {
        // From p + 1 on, the pairs serve each code that begins in these four vectors, and none that began before.
        const uint8_t* const pairs = p + 1;
        const __m256i sieved =
            _mm256_min_epu16(_mm256_min_epu16(Sieve256(pairs), Sieve256(pairs + kStep)),
                             _mm256_min_epu16(Sieve256(pairs + 2 * kStep), Sieve256(pairs + 3 * kStep)));
        if (!HasZeroPair256(sieved)) [[likely]]
            continue;
        const __m256i m0 = Mismatch256(p);
        const __m256i m1 = Mismatch256(p + kStep);
        const __m256i m2 = Mismatch256(p + 2 * kStep);
        const __m256i m3 = Mismatch256(p + 3 * kStep);
        const __m256i least = _mm256_min_epu8(_mm256_min_epu8(m0, m1), _mm256_min_epu8(m2, m3));
        if (Matches256(least) == 0) continue;
        if (const uint32_t hits = Matches256(m0); hits != 0) return p + std::countr_zero(hits);
        if (const uint32_t hits = Matches256(m1); hits != 0) return p + kStep + std::countr_zero(hits);
        if (const uint32_t hits = Matches256(m2); hits != 0) return p + 2 * kStep + std::countr_zero(hits);
        return p + 3 * kStep + std::countr_zero(Matches256(m3));
    }
    for (; end - p >= kReach; p += kStep) {
        if (const uint32_t hits = Matches256(Mismatch256(p)); hits != 0) return p + std::countr_zero(hits);
    }
    p = end - kReach;
    if (const uint32_t hits = Matches256(Mismatch256(p)); hits != 0) return p + std::countr_zero(hits);
    return end;
}

// The copy ends with a vector that overlaps the one before it, so the range is at least one vector long. Of a code that
// lies across both, the first of the two or the second sees a pair.
MUXORA_TARGET("avx2") const uint8_t* CopyAndFindAvx2(uint8_t* out, const uint8_t* begin, const uint8_t* end) {
    constexpr int kStep = 32;
    if (end - begin < kStep) return CopyThenFind<FindStartCodeScalar>(out, begin, end);
    __m256i least = _mm256_set1_epi8(-1);
    const uint8_t* p = begin;
    for (; end - p >= 4 * kStep; p += 4 * kStep, out += 4 * kStep) {
        const __m256i first = _mm256_min_epu16(CopySieve256(out, p), CopySieve256(out + kStep, p + kStep));
        const __m256i second = _mm256_min_epu16(CopySieve256(out + 2 * kStep, p + 2 * kStep),
                                                CopySieve256(out + 3 * kStep, p + 3 * kStep));
        least = _mm256_min_epu16(least, _mm256_min_epu16(first, second));
    }
    for (; end - p >= kStep; p += kStep, out += kStep)
        least = _mm256_min_epu16(least, CopySieve256(out, p));
    const int64_t back = kStep - (end - p);
    least = _mm256_min_epu16(least, CopySieve256(out - back, p - back));
    return HasZeroPair256(least) ? FindStartCodeAvx2(begin, end) : end;
}

inline uint32_t Matches128(const uint8_t* p) {
    const __m128i byte0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    const __m128i byte1 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 1));
    const __m128i byte2 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 2));
    const __m128i mismatch = _mm_or_si128(_mm_or_si128(byte0, byte1), _mm_xor_si128(byte2, _mm_set1_epi8(1)));
    return static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(mismatch, _mm_setzero_si128())));
}

const uint8_t* FindStartCodeSse2(const uint8_t* begin, const uint8_t* end) {
    constexpr int kStep = 16;
    constexpr int kReach = kStep + 2;
    if (end - begin < kReach) return FindStartCodeScalar(begin, end);
    const uint8_t* p = begin;
    for (; end - p >= kReach; p += kStep) {
        if (const uint32_t hits = Matches128(p); hits != 0) return p + std::countr_zero(hits);
    }
    p = end - kReach;
    if (const uint32_t hits = Matches128(p); hits != 0) return p + std::countr_zero(hits);
    return end;
}

constexpr StartCodeKernel kKernels[] = {
    {"avx2", HasAvx2, FindStartCodeAvx2, CopyAndFindAvx2},
    {"sse2", Always, FindStartCodeSse2, CopyThenFind<FindStartCodeSse2>},
    {"scalar", Always, FindStartCodeScalar, CopyThenFind<FindStartCodeScalar>},
};

#elif defined(MUXORA_ARM_KERNELS)

// Four bits a position, as NEON has no instruction that takes one bit a byte.
inline uint64_t MatchesNeon(const uint8_t* p) {
    const uint8x16_t mismatch =
        vorrq_u8(vorrq_u8(vld1q_u8(p), vld1q_u8(p + 1)), veorq_u8(vld1q_u8(p + 2), vdupq_n_u8(1)));
    const uint8x16_t hits = vceqzq_u8(mismatch);
    return vget_lane_u64(vreinterpret_u64_u8(vshrn_n_u16(vreinterpretq_u16_u8(hits), 4)), 0);
}

const uint8_t* FindStartCodeNeon(const uint8_t* begin, const uint8_t* end) {
    constexpr int kStep = 16;
    constexpr int kReach = kStep + 2;
    if (end - begin < kReach) return FindStartCodeScalar(begin, end);
    const uint8_t* p = begin;
    for (; end - p >= kReach; p += kStep) {
        if (const uint64_t hits = MatchesNeon(p); hits != 0) return p + std::countr_zero(hits) / 4;
    }
    p = end - kReach;
    if (const uint64_t hits = MatchesNeon(p); hits != 0) return p + std::countr_zero(hits) / 4;
    return end;
}

constexpr StartCodeKernel kKernels[] = {
    {"neon", Always, FindStartCodeNeon, CopyThenFind<FindStartCodeNeon>},
    {"scalar", Always, FindStartCodeScalar, CopyThenFind<FindStartCodeScalar>},
};

#else

constexpr StartCodeKernel kKernels[] = {{"scalar", Always, FindStartCodeScalar, CopyThenFind<FindStartCodeScalar>}};

#endif

}  // namespace

std::span<const StartCodeKernel> StartCodeKernels() {
    return kKernels;
}

}  // namespace Orvane::Muxora::Kernels
