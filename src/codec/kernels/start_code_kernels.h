// The kernels behind FindStartCode and CopyAndFindStartCode. All give the same results; tests run each one that the
// processor has.
#pragma once

#include <cstdint>
#include <span>

namespace Orvane::Muxora::Kernels {

struct StartCodeKernel {
    const char* name;
    bool (*supported)();
    const uint8_t* (*find)(const uint8_t* begin, const uint8_t* end);
    // The same, with the bytes copied to `out` on the way.
    const uint8_t* (*copy)(uint8_t* out, const uint8_t* begin, const uint8_t* end);
};

// Every kernel of this build, the fastest first. The last one is the scalar kernel, which every processor has.
std::span<const StartCodeKernel> StartCodeKernels();

const uint8_t* FindStartCodeScalar(const uint8_t* begin, const uint8_t* end);

}  // namespace Orvane::Muxora::Kernels
