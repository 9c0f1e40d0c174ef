#include "codec/fragments.h"

#include <bit>
#include <cstring>

#include "codec/kernels/target.h"
#include "codec/start_code.h"
#include "core/byte_writer.h"

#if defined(MUXORA_X86_KERNELS)
#include <immintrin.h>
#endif

namespace Orvane::Muxora {

namespace {

// The kernels copy a payload and tell whether one of its pairs of bytes is 00 00 or 00 01: the sieve of CopyToStartCode
// (kernels/start_code_kernels.h). The length is the same from packet to packet, so the branches of their loops are
// foreseen, and the stores need not be aligned.

bool Always() {
    return true;
}

// Copies a word. Not zero if one of its four pairs is 00 00 or 00 01.
inline uint64_t CopyPairs64(uint8_t* out, const uint8_t* from) {
    constexpr uint64_t kLow = 0x0001000100010001;
    constexpr uint64_t kHigh = 0x8000800080008000;
    constexpr uint64_t kMask = std::endian::native == std::endian::little ? 0xFEFFFEFFFEFFFEFF : 0xFFFEFFFEFFFEFFFE;
    uint64_t word = 0;
    std::memcpy(&word, from, sizeof word);
    std::memcpy(out, &word, sizeof word);
    word &= kMask;
    return (word - kLow) & ~word & kHigh;
}

bool CopyPortable(uint8_t* out, const uint8_t* from, uint32_t length) {
    constexpr uint32_t kStep = sizeof(uint64_t);
    uint64_t pairs = CopyPairs64(out + length - kStep, from + length - kStep);
    for (uint32_t at = 0; at + kStep <= length; at += kStep)
        pairs |= CopyPairs64(out + at, from + at);
    return pairs != 0;
}

#if defined(MUXORA_X86_KERNELS)

bool HasAvx2() {
    return __builtin_cpu_supports("avx2") != 0;
}

// Copies a vector. Its pairs that are 00 00 or 00 01 are zero in the result.
MUXORA_TARGET("avx2") inline __m256i CopySieve256(uint8_t* out, const uint8_t* from) {
    const __m256i bytes = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out), bytes);
    return _mm256_and_si256(bytes, _mm256_set1_epi16(static_cast<int16_t>(0xFEFF)));
}

MUXORA_TARGET("avx2") bool CopyAvx2(uint8_t* out, const uint8_t* from, uint32_t length) {
    constexpr uint32_t kStep = 32;
    __m256i least = CopySieve256(out + length - kStep, from + length - kStep);
    uint32_t at = 0;
    for (; at + 4 * kStep <= length; at += 4 * kStep) {
        for (uint32_t i = 0; i < 4; ++i)
            least = _mm256_min_epu16(least, CopySieve256(out + at + i * kStep, from + at + i * kStep));
    }
    for (; at + kStep <= length; at += kStep)
        least = _mm256_min_epu16(least, CopySieve256(out + at, from + at));
    return _mm256_movemask_epi8(_mm256_cmpeq_epi16(least, _mm256_setzero_si256())) != 0;
}

#define MUXORA_AVX512 MUXORA_TARGET("avx512f,avx512bw,avx512vl")

bool HasAvx512() {
    return __builtin_cpu_supports("avx512f") != 0 && __builtin_cpu_supports("avx512bw") != 0 &&
           __builtin_cpu_supports("avx512vl") != 0;
}

MUXORA_AVX512 inline __m512i CopySieve512(uint8_t* out, const uint8_t* from) {
    const __m512i bytes = _mm512_loadu_si512(from);
    _mm512_storeu_si512(out, bytes);
    return _mm512_and_si512(bytes, _mm512_set1_epi16(static_cast<int16_t>(0xFEFF)));
}

MUXORA_AVX512 bool CopyAvx512(uint8_t* out, const uint8_t* from, uint32_t length) {
    constexpr uint32_t kStep = 64;
    __m512i least = _mm512_set1_epi8(-1);
    uint32_t at = 0;
    for (; at + kStep <= length; at += kStep)
        least = _mm512_min_epu16(least, CopySieve512(out + at, from + at));
    least = _mm512_min_epu16(least, CopySieve512(out + length - kStep, from + length - kStep));
    return _mm512_testn_epi16_mask(least, least) != 0;
}

#endif

// Does a start code begin in the payload or right behind it? One across the end has a 0 or a 1 behind the end, and so
// has one that begins there.
inline bool MeetsStartCode(const FragmentRun& run, const uint8_t* payload, bool has_pair) {
    constexpr int kLongStartCode = 4;
    const uint8_t* const stop = payload + run.payload;
    if (!has_pair && *stop > 1) [[likely]]
        return false;
    const uint8_t* const last = run.end - stop > kLongStartCode ? stop + kLongStartCode : run.end;
    return FindStartCode(has_pair ? payload : stop - 2, last) != last;
}

template <bool (*kCopyHasPair)(uint8_t* out, const uint8_t* from, uint32_t length)>
uint32_t Cut(const FragmentRun& run) {
    uint8_t* out = run.out;
    const uint8_t* from = run.from;
    for (uint32_t done = 0; done != run.count; ++done) {
        std::memcpy(out, run.head, kFragmentHead);
        PutBE16(out + run.sequence_at, static_cast<uint16_t>(run.first_sequence + done));
        const bool has_pair = kCopyHasPair(out + run.head_length, from, run.payload);
        if (MeetsStartCode(run, from, has_pair)) return done;
        out += run.head_length + run.payload;
        from += run.payload;
    }
    return run.count;
}

constexpr FragmentKernel kKernels[] = {
#if defined(MUXORA_X86_KERNELS)
    {"avx512bw", HasAvx512, Cut<CopyAvx512>},
    {"avx2", HasAvx2, Cut<CopyAvx2>},
#endif
    {"portable", Always, Cut<CopyPortable>},
};

}  // namespace

uint32_t CutFragments(const FragmentRun& run) {
    return fragment_choice.Get().cut(run);
}

std::span<const FragmentKernel> FragmentKernels() {
    return kKernels;
}

}  // namespace Orvane::Muxora
