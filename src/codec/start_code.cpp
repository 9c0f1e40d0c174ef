#include "codec/start_code.h"

#include <atomic>

#include "codec/kernels/start_code_kernels.h"

namespace Orvane::Muxora {

namespace {

using FindFunction = const uint8_t* (*)(const uint8_t* begin, const uint8_t* end);

const uint8_t* ChooseAndFind(const uint8_t* begin, const uint8_t* end);

// The first call puts the best kernel here. Threads that race for it all store the same.
constinit std::atomic<FindFunction> g_find{ChooseAndFind};

const uint8_t* ChooseAndFind(const uint8_t* begin, const uint8_t* end) {
    for (const Kernels::StartCodeKernel& kernel : Kernels::StartCodeKernels()) {
        if (!kernel.supported()) continue;
        g_find.store(kernel.find, std::memory_order_relaxed);
        return kernel.find(begin, end);
    }
    return Kernels::FindStartCodeScalar(begin, end);
}

}  // namespace

const uint8_t* FindStartCode(const uint8_t* begin, const uint8_t* end) {
    return g_find.load(std::memory_order_relaxed)(begin, end);
}

const uint8_t* FindLongStartCode(const uint8_t* begin, const uint8_t* end) {
    const uint8_t* p = begin;
    while (end - p >= 4) {
        // The zero ahead of the three bytes must lie within the range.
        const uint8_t* const hit = FindStartCode(p + 1, end);
        if (hit == end) break;
        if (hit[-1] == 0) return hit - 1;
        p = hit + 2;
    }
    return end;
}

StartCode NextStartCode(const uint8_t* data, uint32_t length, uint32_t from) {
    if (data == nullptr || length < 4) return {};
    const uint32_t limit = length - 3;
    if (from >= limit) return {};
    const uint8_t* const hit = FindStartCode(data + from, data + length);
    if (hit == data + length) return {};
    const auto position = static_cast<uint32_t>(hit - data);
    if (position > from && hit[-1] == 0) return {position - 1, 4};
    if (position < limit) return {position, 3};
    return {};
}

}  // namespace Orvane::Muxora
