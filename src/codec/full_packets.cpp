#include "codec/full_packets.h"

#include <bit>
#include <cstring>

#include "codec/kernels/target.h"

#if defined(MUXORA_X86_KERNELS)
#include <immintrin.h>
#endif

namespace Orvane::Muxora {

namespace {

// sync_byte, PID, adaptation field and payload, continuity_counter, and with kFullPayload an adaptation field of one
// byte without flags. It is one store of eight bytes, of which the payload covers the last ones: a store for each byte
// would cost as much as the payload.
template <uint32_t kPayload>
inline void PutHead(uint8_t* at, uint16_t pid, uint8_t continuity) {
    constexpr bool kField = kPayload == kFullPayload;
    constexpr auto kControl = kField ? AdaptationControl::kFieldAndPayload : AdaptationControl::kPayloadOnly;
    const uint64_t head = kTsSyncByte | uint64_t{pid} >> 8 << 8 | (uint64_t{pid} & 0xFF) << 16 |
                          uint64_t{ControlByte(kControl, continuity)} << 24 | uint64_t{kField ? 1 : 0} << 32;
    if constexpr (std::endian::native == std::endian::little) {
        std::memcpy(at, &head, sizeof head);
    } else {
        PutLE64(at, head);
    }
}

bool Always() {
    return true;
}

// A fixed number of moves, the last of which overlaps the one before.
template <uint32_t kPayload>
void CutPortable(uint8_t* out, const uint8_t* from, uint32_t count, uint16_t pid, uint8_t continuity) {
    constexpr uint32_t kMove = 16;
    for (; count != 0; --count, out += kTsPacketSize, from += kPayload, ++continuity) {
        PutHead<kPayload>(out, pid, continuity);
        uint8_t* const payload = out + (kTsPacketSize - kPayload);
        for (uint32_t i = 0; i + kMove <= kPayload; i += kMove)
            std::memcpy(payload + i, from + i, kMove);
        std::memcpy(payload + kPayload - kMove, from + kPayload - kMove, kMove);
    }
}

#if defined(MUXORA_X86_KERNELS)

bool HasAvx2() {
    return __builtin_cpu_supports("avx2") != 0;
}

MUXORA_TARGET("avx2") inline void Move32(uint8_t* to, const uint8_t* from) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from)));
}

template <uint32_t kPayload>
MUXORA_TARGET("avx2")
void CutAvx2(uint8_t* out, const uint8_t* from, uint32_t count, uint16_t pid, uint8_t continuity) {
    for (; count != 0; --count, out += kTsPacketSize, from += kPayload, ++continuity) {
        PutHead<kPayload>(out, pid, continuity);
        uint8_t* const payload = out + (kTsPacketSize - kPayload);
        Move32(payload, from);
        Move32(payload + 32, from + 32);
        Move32(payload + 64, from + 64);
        Move32(payload + 96, from + 96);
        Move32(payload + 128, from + 128);
        Move32(payload + kPayload - 32, from + kPayload - 32);
    }
}

bool HasAvx512() {
    return __builtin_cpu_supports("avx512f") != 0;
}

MUXORA_TARGET("avx512f") inline void Move64(uint8_t* to, const uint8_t* from) {
    _mm512_storeu_si512(to, _mm512_loadu_si512(from));
}

template <uint32_t kPayload>
MUXORA_TARGET("avx512f")
void CutAvx512(uint8_t* out, const uint8_t* from, uint32_t count, uint16_t pid, uint8_t continuity) {
    for (; count != 0; --count, out += kTsPacketSize, from += kPayload, ++continuity) {
        PutHead<kPayload>(out, pid, continuity);
        uint8_t* const payload = out + (kTsPacketSize - kPayload);
        Move64(payload, from);
        Move64(payload + 64, from + 64);
        Move64(payload + kPayload - 64, from + kPayload - 64);
    }
}

constexpr CutKernel kKernels[] = {{"avx512f", HasAvx512, CutAvx512<kFullPayload>, CutAvx512<kPlainPayload>},
                                  {"avx2", HasAvx2, CutAvx2<kFullPayload>, CutAvx2<kPlainPayload>},
                                  {"portable", Always, CutPortable<kFullPayload>, CutPortable<kPlainPayload>}};

#else

constexpr CutKernel kKernels[] = {{"portable", Always, CutPortable<kFullPayload>, CutPortable<kPlainPayload>}};

#endif

}  // namespace

void CutFullPackets(uint8_t* out, const uint8_t* from, uint32_t count, uint16_t pid, uint8_t continuity) {
    cut_choice.Get().cut(out, from, count, pid, continuity);
}

void CutPlainPackets(uint8_t* out, const uint8_t* from, uint32_t count, uint16_t pid, uint8_t continuity) {
    cut_choice.Get().cut_plain(out, from, count, pid, continuity);
}

std::span<const CutKernel> CutKernels() {
    return kKernels;
}

}  // namespace Orvane::Muxora
