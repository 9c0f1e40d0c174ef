#include "codec/full_packets.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstring>
#include <iterator>

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

constexpr CutKernel kKernels[] = {{"avx2", HasAvx2, CutAvx2<kFullPayload>, CutAvx2<kPlainPayload>},
                                  {"portable", Always, CutPortable<kFullPayload>, CutPortable<kPlainPayload>}};

#else

constexpr CutKernel kKernels[] = {{"portable", Always, CutPortable<kFullPayload>, CutPortable<kPlainPayload>}};

#endif

// The first call puts the best kernel here. Threads that race for it all store the same.
constinit std::atomic<const CutKernel*> g_kernel{nullptr};

const CutKernel& Kernel() {
    const CutKernel* kernel = g_kernel.load(std::memory_order_relaxed);
    if (kernel == nullptr) {
        kernel =
            std::find_if(std::begin(kKernels), std::end(kKernels), [](const auto& each) { return each.supported(); });
        g_kernel.store(kernel, std::memory_order_relaxed);
    }
    return *kernel;
}

}  // namespace

void CutFullPackets(uint8_t* out, const uint8_t* from, uint32_t count, uint16_t pid, uint8_t continuity) {
    Kernel().cut(out, from, count, pid, continuity);
}

void CutPlainPackets(uint8_t* out, const uint8_t* from, uint32_t count, uint16_t pid, uint8_t continuity) {
    Kernel().cut_plain(out, from, count, pid, continuity);
}

std::span<const CutKernel> CutKernels() {
    return kKernels;
}

}  // namespace Orvane::Muxora
