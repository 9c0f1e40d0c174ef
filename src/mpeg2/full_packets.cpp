#include "mpeg2/full_packets.h"

#include <atomic>
#include <bit>
#include <cstring>

#include "codec/kernels/target.h"

#if defined(MUXORA_X86_KERNELS)
#include <immintrin.h>
#endif

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kHeadSize = kTsPacketSize - kFullPayload;

// sync_byte, PID, adaptation field and payload, continuity_counter; an adaptation field of one byte without flags. It
// is one store of eight bytes, the last two of which the payload covers: a store for each byte would cost as much as
// the payload.
inline void PutHead(uint8_t* at, uint16_t pid, uint8_t continuity) {
    const uint64_t head = kTsSyncByte | uint64_t{pid} >> 8 << 8 | (uint64_t{pid} & 0xFF) << 16 |
                          uint64_t{ControlByte(AdaptationControl::kFieldAndPayload, continuity)} << 24 |
                          uint64_t{1} << 32;
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
void CutPortable(uint8_t* out, const uint8_t* from, uint32_t count, uint16_t pid, uint8_t continuity) {
    constexpr uint32_t kMove = 16;
    for (; count != 0; --count, out += kTsPacketSize, from += kFullPayload, ++continuity) {
        PutHead(out, pid, continuity);
        uint8_t* const payload = out + kHeadSize;
        for (uint32_t i = 0; i + kMove <= kFullPayload; i += kMove)
            std::memcpy(payload + i, from + i, kMove);
        std::memcpy(payload + kFullPayload - kMove, from + kFullPayload - kMove, kMove);
    }
}

#if defined(MUXORA_X86_KERNELS)

bool HasAvx2() {
    return __builtin_cpu_supports("avx2") != 0;
}

MUXORA_TARGET("avx2") inline void Move32(uint8_t* to, const uint8_t* from) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from)));
}

MUXORA_TARGET("avx2")
void CutAvx2(uint8_t* out, const uint8_t* from, uint32_t count, uint16_t pid, uint8_t continuity) {
    for (; count != 0; --count, out += kTsPacketSize, from += kFullPayload, ++continuity) {
        PutHead(out, pid, continuity);
        uint8_t* const payload = out + kHeadSize;
        Move32(payload, from);
        Move32(payload + 32, from + 32);
        Move32(payload + 64, from + 64);
        Move32(payload + 96, from + 96);
        Move32(payload + 128, from + 128);
        Move32(payload + kFullPayload - 32, from + kFullPayload - 32);
    }
}

constexpr CutKernel kKernels[] = {{"avx2", HasAvx2, CutAvx2}, {"portable", Always, CutPortable}};

#else

constexpr CutKernel kKernels[] = {{"portable", Always, CutPortable}};

#endif

void ChooseAndCut(uint8_t* out, const uint8_t* from, uint32_t count, uint16_t pid, uint8_t continuity);

// The first call puts the best kernel here. Threads that race for it all store the same.
constinit std::atomic<CutFunction> g_cut{ChooseAndCut};

void ChooseAndCut(uint8_t* out, const uint8_t* from, uint32_t count, uint16_t pid, uint8_t continuity) {
    CutFunction best = CutPortable;
    for (const CutKernel& kernel : kKernels) {
        if (!kernel.supported()) continue;
        best = kernel.cut;
        break;
    }
    g_cut.store(best, std::memory_order_relaxed);
    best(out, from, count, pid, continuity);
}

}  // namespace

void CutFullPackets(uint8_t* out, const uint8_t* from, uint32_t count, uint16_t pid, uint8_t continuity) {
    g_cut.load(std::memory_order_relaxed)(out, from, count, pid, continuity);
}

std::span<const CutKernel> CutKernels() {
    return kKernels;
}

}  // namespace Orvane::Muxora
