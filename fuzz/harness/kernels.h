// The kernels that this processor has, each in its turn: whichever runs, the bytes are the same.
#pragma once

#include <cstddef>
#include <span>

#include "codec/fragments.h"
#include "codec/full_packets.h"
#include "codec/kernels/crc32_kernels.h"
#include "codec/kernels/start_code_kernels.h"
#include "codec/piece_copy.h"
#include "ovx/aes_kernels.h"

namespace fuzz {

// The one behind `rank` others, counted from the best, or the last one: that is the portable one.
template <typename Choice, typename Kernel>
void UseRanked(Choice& choice, std::span<const Kernel> kernels, size_t rank) {
    for (const Kernel& kernel : kernels) {
        if (!kernel.supported()) continue;
        choice.Use(kernel.name);
        if (rank-- == 0) return;
    }
}

inline void UseKernels(size_t rank) {
    using namespace Orvane::Muxora;
    static size_t before = ~size_t{0};
    if (rank == before) return;
    before = rank;
    UseRanked(fragment_choice, FragmentKernels(), rank);
    UseRanked(piece_choice, PieceKernels(), rank);
    UseRanked(cut_choice, CutKernels(), rank);
    UseRanked(Kernels::crc32_choice, Kernels::Crc32Kernels(), rank);
    UseRanked(Kernels::start_code_choice, Kernels::StartCodeKernels(), rank);
    UseRanked(Kernels::aes_choice, Kernels::AesKernels(), rank);
}

}  // namespace fuzz
