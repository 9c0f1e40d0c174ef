#include "codec/piece_copy.h"

#include <cstring>

#include "codec/kernels/target.h"

#if defined(MUXORA_X86_KERNELS)
#include <immintrin.h>
#endif

namespace Orvane::Muxora {

namespace {

bool Always() {
    return true;
}

void CopyPortable(uint8_t* out, const uint8_t* from, uint32_t length) {
    if (length != 0) std::memcpy(out, from, length);
}

#if defined(MUXORA_X86_KERNELS)

bool HasAvx2() {
    return __builtin_cpu_supports("avx2") != 0;
}

MUXORA_TARGET("avx2") inline void Move32(uint8_t* to, const uint8_t* from) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from)));
}

// The last vector overlaps the one before it.
MUXORA_TARGET("avx2") void CopyAvx2(uint8_t* out, const uint8_t* from, uint32_t length) {
    constexpr uint32_t kStep = 32;
    if (length < kStep) return CopyPortable(out, from, length);
    uint32_t at = 0;
    for (; at + 4 * kStep <= length; at += 4 * kStep) {
        for (uint32_t i = 0; i < 4; ++i)
            Move32(out + at + i * kStep, from + at + i * kStep);
    }
    for (; at + kStep < length; at += kStep)
        Move32(out + at, from + at);
    Move32(out + length - kStep, from + length - kStep);
}

bool HasAvx512() {
    return __builtin_cpu_supports("avx512f") != 0;
}

MUXORA_TARGET("avx512f") inline void Move64(uint8_t* to, const uint8_t* from) {
    _mm512_storeu_si512(to, _mm512_loadu_si512(from));
}

MUXORA_TARGET("avx512f") void CopyAvx512(uint8_t* out, const uint8_t* from, uint32_t length) {
    constexpr uint32_t kStep = 64;
    if (length < kStep) return CopyPortable(out, from, length);
    for (uint32_t at = 0; at + kStep < length; at += kStep)
        Move64(out + at, from + at);
    Move64(out + length - kStep, from + length - kStep);
}

#endif

constexpr PieceKernel kKernels[] = {
#if defined(MUXORA_X86_KERNELS)
    {"avx512f", HasAvx512, CopyAvx512},
    {"avx2", HasAvx2, CopyAvx2},
#endif
    {"portable", Always, CopyPortable},
};

}  // namespace

void CopyPiece(uint8_t* out, const uint8_t* from, uint32_t length) {
    piece_choice.Get().copy(out, from, length);
}

std::span<const PieceKernel> PieceKernels() {
    return kKernels;
}

}  // namespace Orvane::Muxora
