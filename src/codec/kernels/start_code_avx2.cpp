#include "codec/kernels/start_code_kernels.h"

#if defined(MUXORA_X86_KERNELS)

#include <immintrin.h>

#include <bit>

namespace Orvane::Muxora::Kernels {

namespace {

constexpr int kStep = 32;

// A position holds a start code where byte 0 OR byte 1 OR (byte 2 XOR 1) is zero, so one comparison serves a whole
// vector of positions. Each kernel ends with a vector that overlaps the one before it, so that nothing is read behind
// the end; the positions that it looks at twice have already been found empty.

MUXORA_TARGET("avx2") inline __m256i Mismatch256(const uint8_t* p) {
    const __m256i byte0 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
    const __m256i byte1 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + 1));
    const __m256i byte2 = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + 2));
    return _mm256_or_si256(_mm256_or_si256(byte0, byte1), _mm256_xor_si256(byte2, _mm256_set1_epi8(1)));
}

MUXORA_TARGET("avx2") inline uint32_t Matches256(__m256i mismatch) {
    return static_cast<uint32_t>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(mismatch, _mm256_setzero_si256())));
}

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

}  // namespace

MUXORA_TARGET("avx2") const uint8_t* FindStartCodeAvx2(const uint8_t* begin, const uint8_t* end) {
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

MUXORA_TARGET("avx2") const uint8_t* CopyToStartCodeAvx2(uint8_t* out, const uint8_t* begin, const uint8_t* end) {
    if (end - begin < kStep) return CopyToStartCodeScalar(out, begin, end);
    if (HasZeroPair256(CopySieve256(out, begin))) {
        if (const uint8_t* const hit = LookAround(begin, begin, begin + kStep, end, FindStartCodeAvx2)) return hit;
    }
    const auto to_aligned = kStep - static_cast<int>(reinterpret_cast<uintptr_t>(out) % kStep);
    const uint8_t* p = begin + to_aligned;
    out += to_aligned;
    for (; end - p >= 4 * kStep; p += 4 * kStep, out += 4 * kStep) {
        FetchAhead(out, p, end, 4 * kStep);
        const __m256i first = _mm256_min_epu16(CopySieve256(out, p), CopySieve256(out + kStep, p + kStep));
        const __m256i second = _mm256_min_epu16(CopySieve256(out + 2 * kStep, p + 2 * kStep),
                                                CopySieve256(out + 3 * kStep, p + 3 * kStep));
        if (!HasZeroPair256(_mm256_min_epu16(first, second))) [[likely]]
            continue;
        if (const uint8_t* const hit = LookAround(begin, p, p + 4 * kStep, end, FindStartCodeAvx2)) return hit;
    }
    const uint8_t* const rest = p;
    __m256i least = _mm256_set1_epi8(-1);
    for (; end - p >= kStep; p += kStep, out += kStep)
        least = _mm256_min_epu16(least, CopySieve256(out, p));
    const int64_t back = kStep - (end - p);
    least = _mm256_min_epu16(least, CopySieve256(out - back, p - back));
    if (!HasZeroPair256(least)) return end;
    const uint8_t* const hit = LookAround(begin, rest, end, end, FindStartCodeAvx2);
    return hit != nullptr ? hit : end;
}

}  // namespace Orvane::Muxora::Kernels

#endif
