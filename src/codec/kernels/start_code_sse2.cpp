#include "codec/kernels/start_code_kernels.h"

#if defined(MUXORA_X86_KERNELS)

#include <emmintrin.h>

#include <bit>

namespace Orvane::Muxora::Kernels {

namespace {

constexpr int kStep = 16;

inline uint32_t Matches128(const uint8_t* p) {
    const __m128i byte0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    const __m128i byte1 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 1));
    const __m128i byte2 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 2));
    const __m128i mismatch = _mm_or_si128(_mm_or_si128(byte0, byte1), _mm_xor_si128(byte2, _mm_set1_epi8(1)));
    return static_cast<uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi8(mismatch, _mm_setzero_si128())));
}

// Copies a vector. Its pairs that are 00 00 or 00 01 are all ones in the result, the others are zero.
inline __m128i CopyPairs128(uint8_t* out, const uint8_t* p) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), bytes);
    return _mm_cmpeq_epi16(_mm_and_si128(bytes, _mm_set1_epi16(static_cast<int16_t>(0xFEFF))), _mm_setzero_si128());
}

}  // namespace

const uint8_t* FindStartCodeSse2(const uint8_t* begin, const uint8_t* end) {
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

const uint8_t* CopyToStartCodeSse2(uint8_t* out, const uint8_t* begin, const uint8_t* end) {
    if (end - begin < kStep) return CopyToStartCodeScalar(out, begin, end);
    if (_mm_movemask_epi8(CopyPairs128(out, begin)) != 0) {
        if (const uint8_t* const hit = LookAround(begin, begin, begin + kStep, end, FindStartCodeSse2)) return hit;
    }
    const auto to_aligned = kStep - static_cast<int>(reinterpret_cast<uintptr_t>(out) % kStep);
    const uint8_t* p = begin + to_aligned;
    out += to_aligned;
    for (; end - p >= 4 * kStep; p += 4 * kStep, out += 4 * kStep) {
        const __m128i first = _mm_or_si128(CopyPairs128(out, p), CopyPairs128(out + kStep, p + kStep));
        const __m128i second =
            _mm_or_si128(CopyPairs128(out + 2 * kStep, p + 2 * kStep), CopyPairs128(out + 3 * kStep, p + 3 * kStep));
        if (_mm_movemask_epi8(_mm_or_si128(first, second)) == 0) [[likely]]
            continue;
        if (const uint8_t* const hit = LookAround(begin, p, p + 4 * kStep, end, FindStartCodeSse2)) return hit;
    }
    const uint8_t* const rest = p;
    __m128i pairs = _mm_setzero_si128();
    for (; end - p >= kStep; p += kStep, out += kStep)
        pairs = _mm_or_si128(pairs, CopyPairs128(out, p));
    const int64_t back = kStep - (end - p);
    pairs = _mm_or_si128(pairs, CopyPairs128(out - back, p - back));
    if (_mm_movemask_epi8(pairs) == 0) return end;
    const uint8_t* const hit = LookAround(begin, rest, end, end, FindStartCodeSse2);
    return hit != nullptr ? hit : end;
}

}  // namespace Orvane::Muxora::Kernels

#endif
