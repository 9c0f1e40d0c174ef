#include "codec/kernels/start_code_kernels.h"

#if defined(MUXORA_X86_KERNELS)

#include <immintrin.h>

#include <bit>

#define MUXORA_AVX512 MUXORA_TARGET("avx512f,avx512bw,avx512vl")

namespace Orvane::Muxora::Kernels {

namespace {

constexpr int kStep = 64;

// The positions of the vector that hold a start code: byte 0, byte 1 and (byte 2 XOR 1) are zero there.
MUXORA_AVX512 inline uint64_t Matches512(const uint8_t* p) {
    constexpr int kOrWithXorOfTwo = 0xF6;  // a | (b ^ c)
    const __m512i bytes01 = _mm512_or_si512(_mm512_loadu_si512(p), _mm512_loadu_si512(p + 1));
    const __m512i mismatch =
        _mm512_ternarylogic_epi32(bytes01, _mm512_loadu_si512(p + 2), _mm512_set1_epi8(1), kOrWithXorOfTwo);
    return _mm512_testn_epi8_mask(mismatch, mismatch);
}

// One bit for each pair that is 00 00 or 00 01.
MUXORA_AVX512 inline uint32_t Pairs512(__m512i bytes) {
    return _mm512_testn_epi16_mask(bytes, _mm512_set1_epi16(static_cast<int16_t>(0xFEFF)));
}

MUXORA_AVX512 inline uint32_t Pairs512(const uint8_t* p) {
    return Pairs512(_mm512_loadu_si512(p));
}

MUXORA_AVX512 inline uint32_t CopyPairs512(uint8_t* out, const uint8_t* p) {
    const __m512i bytes = _mm512_loadu_si512(p);
    _mm512_storeu_si512(out, bytes);
    return Pairs512(bytes);
}

// Less than a vector.
MUXORA_AVX512 inline uint32_t CopyPairs512(uint8_t* out, const uint8_t* p, int64_t count) {
    const __mmask64 mask = (uint64_t{1} << count) - 1;
    const __m512i bytes = _mm512_mask_loadu_epi8(_mm512_set1_epi8(-1), mask, p);
    _mm512_mask_storeu_epi8(out, mask, bytes);
    return Pairs512(bytes);
}

}  // namespace

MUXORA_AVX512 const uint8_t* FindStartCodeAvx512(const uint8_t* begin, const uint8_t* end) {
    constexpr int kReach = kStep + 2;  // bytes that one vector of positions reads
    if (end - begin < kReach) return FindStartCodeAvx2(begin, end);
    const uint8_t* p = begin;
    for (; end - p >= 3 * kStep + kReach; p += 4 * kStep) {
        // From p + 1 on, the pairs serve each code that begins in these four vectors, and none that began before.
        const uint8_t* const pairs = p + 1;
        if ((Pairs512(pairs) | Pairs512(pairs + kStep) | Pairs512(pairs + 2 * kStep) | Pairs512(pairs + 3 * kStep)) ==
            0) [[likely]]
            continue;
        for (int at = 0; at < 4 * kStep; at += kStep) {
            if (const uint64_t hits = Matches512(p + at); hits != 0) return p + at + std::countr_zero(hits);
        }
    }
    for (; end - p >= kReach; p += kStep) {
        if (const uint64_t hits = Matches512(p); hits != 0) return p + std::countr_zero(hits);
    }
    p = end - kReach;
    if (const uint64_t hits = Matches512(p); hits != 0) return p + std::countr_zero(hits);
    return end;
}

MUXORA_AVX512 const uint8_t* CopyToStartCodeAvx512(uint8_t* out, const uint8_t* begin, const uint8_t* end) {
    const uint8_t* p = begin;
    if (end - begin >= kStep) {
        if (CopyPairs512(out, begin) != 0) {
            if (const uint8_t* const hit = LookAround(begin, begin, begin + kStep, end, FindStartCodeAvx512))
                return hit;
        }
        const auto to_aligned = kStep - static_cast<int>(reinterpret_cast<uintptr_t>(out) % kStep);
        p += to_aligned;
        out += to_aligned;
    }
    for (; end - p >= 4 * kStep; p += 4 * kStep, out += 4 * kStep) {
        FetchAhead(out, p, end, 4 * kStep);
        const uint32_t pairs = CopyPairs512(out, p) | CopyPairs512(out + kStep, p + kStep) |
                               CopyPairs512(out + 2 * kStep, p + 2 * kStep) |
                               CopyPairs512(out + 3 * kStep, p + 3 * kStep);
        if (pairs == 0) [[likely]]
            continue;
        if (const uint8_t* const hit = LookAround(begin, p, p + 4 * kStep, end, FindStartCodeAvx512)) return hit;
    }
    const uint8_t* const rest = p;
    uint32_t pairs = 0;
    for (; end - p >= kStep; p += kStep, out += kStep)
        pairs |= CopyPairs512(out, p);
    pairs |= CopyPairs512(out, p, end - p);
    if (pairs == 0) return end;
    const uint8_t* const hit = LookAround(begin, rest, end, end, FindStartCodeAvx512);
    return hit != nullptr ? hit : end;
}

}  // namespace Orvane::Muxora::Kernels

#endif
