// The kernels behind FindStartCode and CopyToStartCode. All give the same results; tests run each one that the
// processor has.
//
// How the copies search: cut a start code's surroundings into pairs of bytes, from an even place or from an odd one.
// One pair within the code is 00 00 or 00 01, so a vector of pairs with bit 0 of each second byte masked away has a
// zero. That costs one instruction on a vector that is loaded anyway. Only where it finds one, the neighbourhood is
// searched byte by byte, from two bytes ahead of the vectors to two behind them, as the code may lie across their edge.
// Each copy ends with a vector that overlaps the one before it, and most begin so, to have the stores aligned.
#pragma once

#include <cstdint>
#include <span>

#include "codec/kernels/choice.h"
#include "codec/kernels/target.h"

namespace Orvane::Muxora::Kernels {

struct StartCodeKernel {
    const char* name;
    bool (*supported)();
    const uint8_t* (*find)(const uint8_t* begin, const uint8_t* end);
    // The same, with the bytes in front of the place found copied to `out`. Some behind it may be copied, too: never
    // more than end - begin in all.
    const uint8_t* (*copy)(uint8_t* out, const uint8_t* begin, const uint8_t* end);
};

// Every kernel of this build, the fastest first. The last one is the scalar kernel, which every processor has.
std::span<const StartCodeKernel> StartCodeKernels();

inline constinit KernelChoice<StartCodeKernel, StartCodeKernels> start_code_choice;

const uint8_t* FindStartCodeScalar(const uint8_t* begin, const uint8_t* end);
const uint8_t* CopyToStartCodeScalar(uint8_t* out, const uint8_t* begin, const uint8_t* end);
#if defined(MUXORA_X86_KERNELS)
const uint8_t* FindStartCodeAvx512(const uint8_t* begin, const uint8_t* end);
const uint8_t* CopyToStartCodeAvx512(uint8_t* out, const uint8_t* begin, const uint8_t* end);
const uint8_t* FindStartCodeAvx2(const uint8_t* begin, const uint8_t* end);
const uint8_t* CopyToStartCodeAvx2(uint8_t* out, const uint8_t* begin, const uint8_t* end);
const uint8_t* FindStartCodeSse2(const uint8_t* begin, const uint8_t* end);
const uint8_t* CopyToStartCodeSse2(uint8_t* out, const uint8_t* begin, const uint8_t* end);
#elif defined(MUXORA_ARM_KERNELS)
const uint8_t* FindStartCodeNeon(const uint8_t* begin, const uint8_t* end);
const uint8_t* CopyToStartCodeNeon(uint8_t* out, const uint8_t* begin, const uint8_t* end);
#endif

// Has the lines on their way that a copy reaches `kFetchAhead` bytes later, both those that it reads and those that it
// writes: the processor's own prefetchers stop at each page's end. For `count` bytes from `from` on, which end ahead of
// `end`; a copy with less in front of it fetches nothing, so that no line is taken that nobody wants.
inline constexpr int kFetchAhead = 2048;
[[gnu::always_inline]] inline void FetchAhead([[maybe_unused]] const uint8_t* out, const uint8_t* from,
                                              const uint8_t* end, int count) {
    constexpr int kLine = 64;
    if (end - from < kFetchAhead + count) return;
    for (int at = kFetchAhead; at < kFetchAhead + count; at += kLine) {
#if defined(__GNUC__)
        __builtin_prefetch(from + at);
        __builtin_prefetch(out + at);
#endif
    }
}

// Where a copy has met a pair in [from, to): the start code that it belongs to, or null. `find` searches; nothing
// outside [begin, end) is read.
template <typename Find>
const uint8_t* LookAround(const uint8_t* begin, const uint8_t* from, const uint8_t* to, const uint8_t* end, Find find) {
    const uint8_t* const first = from - begin > 2 ? from - 2 : begin;
    const uint8_t* const last = end - to > 2 ? to + 2 : end;
    const uint8_t* const hit = find(first, last);
    return hit != last ? hit : nullptr;
}

}  // namespace Orvane::Muxora::Kernels
