#include "codec/crc32.h"

#include <algorithm>
#include <array>
#include <atomic>

#include "codec/kernels/crc32_kernels.h"

namespace Orvane::Muxora {

namespace {

// The best kernel of this processor, found by the first call. Threads that race for it all store the same.
std::atomic<const Kernels::Crc32Kernel*> g_kernel{nullptr};

const Kernels::Crc32Kernel& Choose() {
    const auto kernels = Kernels::Crc32Kernels();
    const auto best =
        std::find_if(kernels.begin(), kernels.end() - 1, [](const auto& kernel) { return kernel.supported(); });
    g_kernel.store(&*best, std::memory_order_relaxed);
    return *best;
}

const Kernels::Crc32Kernel& Kernel() {
    const Kernels::Crc32Kernel* const kernel = g_kernel.load(std::memory_order_relaxed);
    return kernel != nullptr ? *kernel : Choose();
}

constexpr uint32_t kMpeg2Polynomial = 0x04C11DB7;

constexpr std::array<uint32_t, 256> MakeMpeg2Table() {
    std::array<uint32_t, 256> table{};
    for (uint32_t i = 0; i < 256; ++i) {
        uint32_t remainder = i << 24;
        for (int bit = 0; bit < 8; ++bit)
            remainder = (remainder << 1) ^ ((remainder & 0x80000000) != 0 ? kMpeg2Polynomial : 0);
        table[i] = remainder;
    }
    return table;
}

constexpr std::array<uint32_t, 256> kMpeg2Table = MakeMpeg2Table();

}  // namespace

uint32_t Crc32(const uint8_t* data, uint32_t length) {
    return Crc32Update(0, data, length);
}

uint32_t Crc32Update(uint32_t crc, const uint8_t* data, size_t length) {
    return ~Kernel().update(~crc, data, length);
}

uint32_t Crc32Copy(uint32_t crc, uint8_t* out, const uint8_t* data, size_t length) {
    return ~Kernel().copy(~crc, out, data, length);
}

uint32_t Crc32Mpeg2(const uint8_t* data, uint32_t length) {
    uint32_t crc = 0xFFFFFFFF;
    for (uint32_t i = 0; i < length; ++i)
        crc = (crc << 8) ^ kMpeg2Table[(crc >> 24) ^ data[i]];
    return crc;
}

}  // namespace Orvane::Muxora
