// The inner loop of RTP: the packets of a NAL unit that does not fit one.
#pragma once

#include <cstdint>
#include <span>

#include "codec/kernels/choice.h"

namespace Orvane::Muxora {

// The room of a template, and the least payload: a template is written whole, and the payload over what is too much.
inline constexpr uint32_t kFragmentHead = 64;

// Packets of the same length in a row: a head, which differs in its sequence number alone, and a part of the unit.
struct FragmentRun {
    uint8_t* out;         // room for `count` packets
    const uint8_t* from;  // the first payload; no start code begins in front of it that reaches into it
    const uint8_t* end;   // of what may be read, behind the last payload by a byte at least
    uint32_t payload;     // bytes of each packet, kFragmentHead or more
    uint32_t count;
    const uint8_t* head;   // kFragmentHead bytes, of which the packets have the first `head_length`
    uint32_t head_length;  // kFragmentHead at most
    uint32_t sequence_at;  // where the number stands in the head, in 16 bits
    uint16_t first_sequence;
};

// Writes the packets up to the first one in whose payload, or right behind it, a start code of three or four bytes
// begins; returns their number. More may have been written to `out`, within its room. Search, copy and cut are one
// pass; the kernel is chosen once at run time.
uint32_t CutFragments(const FragmentRun& run);

struct FragmentKernel {
    const char* name;
    bool (*supported)();
    uint32_t (*cut)(const FragmentRun& run);
};

// Every kernel of this build, the fastest first; the last one serves every processor. All give the same results.
std::span<const FragmentKernel> FragmentKernels();

inline constinit Kernels::KernelChoice<FragmentKernel, FragmentKernels> fragment_choice;

}  // namespace Orvane::Muxora
