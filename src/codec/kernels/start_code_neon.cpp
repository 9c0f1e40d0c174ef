#include "codec/kernels/start_code_kernels.h"

#if defined(MUXORA_ARM_KERNELS)

#include <arm_neon.h>

#include <bit>

namespace Orvane::Muxora::Kernels {

namespace {

constexpr int kStep = 16;

// Four bits a position, as NEON has no instruction that takes one bit a byte.
inline uint64_t MatchesNeon(const uint8_t* p) {
    const uint8x16_t mismatch =
        vorrq_u8(vorrq_u8(vld1q_u8(p), vld1q_u8(p + 1)), veorq_u8(vld1q_u8(p + 2), vdupq_n_u8(1)));
    const uint8x16_t hits = vceqzq_u8(mismatch);
    return vget_lane_u64(vreinterpret_u64_u8(vshrn_n_u16(vreinterpretq_u16_u8(hits), 4)), 0);
}

// Copies a vector. Its pairs that are 00 00 or 00 01 are zero in the result.
inline uint16x8_t CopySieveNeon(uint8_t* out, const uint8_t* p) {
    // FF FE in memory, whatever the byte order of the lanes.
    const uint8x16_t mask =
        vreinterpretq_u8_u16(vdupq_n_u16(std::endian::native == std::endian::little ? 0xFEFF : 0xFFFE));
    const uint8x16_t bytes = vld1q_u8(p);
    vst1q_u8(out, bytes);
    return vreinterpretq_u16_u8(vandq_u8(bytes, mask));
}

inline bool HasZeroPairNeon(uint16x8_t sieved) {
    return vminvq_u16(sieved) == 0;
}

}  // namespace

const uint8_t* FindStartCodeNeon(const uint8_t* begin, const uint8_t* end) {
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

const uint8_t* CopyToStartCodeNeon(uint8_t* out, const uint8_t* begin, const uint8_t* end) {
    if (end - begin < kStep) return CopyToStartCodeScalar(out, begin, end);
    if (HasZeroPairNeon(CopySieveNeon(out, begin))) {
        if (const uint8_t* const hit = LookAround(begin, begin, begin + kStep, end, FindStartCodeNeon)) return hit;
    }
    const auto to_aligned = kStep - static_cast<int>(reinterpret_cast<uintptr_t>(out) % kStep);
    const uint8_t* p = begin + to_aligned;
    out += to_aligned;
    for (; end - p >= 4 * kStep; p += 4 * kStep, out += 4 * kStep) {
        const uint16x8_t first = vminq_u16(CopySieveNeon(out, p), CopySieveNeon(out + kStep, p + kStep));
        const uint16x8_t second =
            vminq_u16(CopySieveNeon(out + 2 * kStep, p + 2 * kStep), CopySieveNeon(out + 3 * kStep, p + 3 * kStep));
        if (!HasZeroPairNeon(vminq_u16(first, second))) [[likely]]
            continue;
        if (const uint8_t* const hit = LookAround(begin, p, p + 4 * kStep, end, FindStartCodeNeon)) return hit;
    }
    const uint8_t* const rest = p;
    uint16x8_t least = vdupq_n_u16(0xFFFF);
    for (; end - p >= kStep; p += kStep, out += kStep)
        least = vminq_u16(least, CopySieveNeon(out, p));
    const int64_t back = kStep - (end - p);
    least = vminq_u16(least, CopySieveNeon(out - back, p - back));
    if (!HasZeroPairNeon(least)) return end;
    const uint8_t* const hit = LookAround(begin, rest, end, end, FindStartCodeNeon);
    return hit != nullptr ? hit : end;
}

}  // namespace Orvane::Muxora::Kernels

#endif
