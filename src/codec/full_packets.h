// The inner loop of the transport stream: packets that are full of payload.
#pragma once

#include <cstdint>
#include <span>

#include "codec/kernels/choice.h"
#include "codec/ts_format.h"

namespace Orvane::Muxora {

inline constexpr uint32_t kFullPayload = 182;   // behind the header and an adaptation field of one byte
inline constexpr uint32_t kPlainPayload = 184;  // behind the header alone

// Cuts `count` packets of kFullPayload bytes each from `from`. The continuity counter of the first is `continuity`, and
// no packet starts a PES packet. The kernel is chosen once at run time.
void CutFullPackets(uint8_t* out, const uint8_t* from, uint32_t count, uint16_t pid, uint8_t continuity);

// The same without adaptation fields, kPlainPayload bytes each.
void CutPlainPackets(uint8_t* out, const uint8_t* from, uint32_t count, uint16_t pid, uint8_t continuity);

using CutFunction = void (*)(uint8_t* out, const uint8_t* from, uint32_t count, uint16_t pid, uint8_t continuity);

struct CutKernel {
    const char* name;
    bool (*supported)();
    CutFunction cut;
    CutFunction cut_plain;
};

// Every kernel of this build, the fastest first; the last one serves every processor. All write the same bytes.
std::span<const CutKernel> CutKernels();

inline constinit Kernels::KernelChoice<CutKernel, CutKernels> cut_choice;

}  // namespace Orvane::Muxora
