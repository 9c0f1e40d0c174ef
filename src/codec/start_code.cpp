#include "codec/start_code.h"

#include <algorithm>
#include <atomic>

#include "codec/kernels/start_code_kernels.h"

namespace Orvane::Muxora {

namespace {

// The best kernel, once somebody has asked for it. Threads that race for it all store the same.
constinit std::atomic<const Kernels::StartCodeKernel*> g_kernel{nullptr};

const Kernels::StartCodeKernel& ChooseKernel() {
    const auto kernels = Kernels::StartCodeKernels();
    const auto best =
        std::find_if(kernels.begin(), kernels.end(), [](const auto& kernel) { return kernel.supported(); });
    g_kernel.store(&*best, std::memory_order_relaxed);
    return *best;
}

const Kernels::StartCodeKernel& Kernel() {
    const Kernels::StartCodeKernel* const kernel = g_kernel.load(std::memory_order_relaxed);
    return kernel != nullptr ? *kernel : ChooseKernel();
}

}  // namespace

const uint8_t* FindStartCode(const uint8_t* begin, const uint8_t* end) {
    return Kernel().find(begin, end);
}

const uint8_t* CopyAndFindStartCode(uint8_t* out, const uint8_t* begin, const uint8_t* end) {
    return Kernel().copy(out, begin, end);
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
