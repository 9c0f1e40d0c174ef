// The copy of a packet's part of a frame.
#pragma once

#include <cstdint>
#include <span>

#include "codec/kernels/choice.h"

namespace Orvane::Muxora {

// Copies `length` bytes; the two do not overlap. For pieces of one length, some hundreds or thousands of bytes, that
// end up apart from each other: the C library's copy makes up its mind anew for each of them, aligns its stores and
// takes up to twice as long. The kernel is chosen once at run time.
void CopyPiece(uint8_t* out, const uint8_t* from, uint32_t length);

struct PieceKernel {
    const char* name;
    bool (*supported)();
    void (*copy)(uint8_t* out, const uint8_t* from, uint32_t length);
};

// Every kernel of this build, the fastest first; the last one serves every processor.
std::span<const PieceKernel> PieceKernels();

inline constinit Kernels::KernelChoice<PieceKernel, PieceKernels> piece_choice;

}  // namespace Orvane::Muxora
