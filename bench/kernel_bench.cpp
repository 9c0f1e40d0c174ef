// The kernels under the packagers, each against memcpy of the same bytes: the search for start codes, the conversion to
// length prefixes, the cut into transport packets, the CRC-32.
#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "codec/avc_convert.h"
#include "codec/crc32.h"
#include "codec/full_packets.h"
#include "codec/kernels/crc32_kernels.h"
#include "codec/kernels/start_code_kernels.h"
#include "reporter.h"
#include "workload.h"

namespace {

using namespace Orvane::Muxora;

constexpr uint16_t kPid = 0x100;

// One NAL unit of noise: like a coded slice it holds no start code, and the zeros and ones that noise has.
std::vector<uint8_t> Slice(size_t size) {
    std::mt19937 random(1);
    std::vector<uint8_t> data(size);
    for (uint8_t& byte : data)
        byte = static_cast<uint8_t>(random());
    for (size_t i = 2; i < size; ++i) {
        if (data[i] <= 3 && data[i - 1] == 0 && data[i - 2] == 0) data[i] = 0x80;
    }
    std::memcpy(data.data(), "\0\0\0\1\x41", 5);
    return data;
}

template <typename Operation>
void Measure(benchmark::State& state, Operation operation) {
    const auto size = static_cast<size_t>(state.range(0));
    const std::vector<uint8_t> data = Slice(size);
    std::vector<uint8_t> out(size + size / 16 + 256);
    for (auto _ : state) {
        benchmark::DoNotOptimize(operation(data.data(), static_cast<uint32_t>(size), out.data()));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

template <typename Operation>
void Register(const std::string& name, Operation operation) {
    benchmark::RegisterBenchmark(name.c_str(), [operation](benchmark::State& state) { Measure(state, operation); })
        ->Arg(341)
        ->Arg(4'000)
        ->Arg(33'000)
        ->Arg(200'000)
        ->Arg(1'500'000);
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    Register("memcpy", [](const uint8_t* data, uint32_t size, uint8_t* out) { return std::memcpy(out, data, size); });
    for (const Kernels::StartCodeKernel& kernel : Kernels::StartCodeKernels()) {
        if (!kernel.supported()) continue;
        // From behind the unit's own start code, so that all of it is searched.
        Register(
            std::string("start_code/") + kernel.name,
            [find = kernel.find](const uint8_t* data, uint32_t size, uint8_t*) { return find(data + 4, data + size); });
    }
    for (const Kernels::StartCodeKernel& kernel : Kernels::StartCodeKernels()) {
        if (!kernel.supported()) continue;
        Register(std::string("copy_to_start_code/") + kernel.name,
                 [copy = kernel.copy](const uint8_t* data, uint32_t size, uint8_t* out) {
                     return copy(out, data + 4, data + size);
                 });
    }
    Register("length_prefixed", [](const uint8_t* data, uint32_t size, uint8_t* out) {
        return CAvcConvert::ConvertToLengthPrefixed(data, size, out, size + 256);
    });
    for (const CutKernel& kernel : CutKernels()) {
        if (!kernel.supported()) continue;
        Register(std::string("ts_packets/") + kernel.name,
                 [cut = kernel.cut](const uint8_t* data, uint32_t size, uint8_t* out) {
                     cut(out, data, size / kFullPayload, kPid, 0);
                     return out;
                 });
    }
    for (const Kernels::Crc32Kernel& kernel : Kernels::Crc32Kernels()) {
        if (!kernel.supported()) continue;
        Register(
            std::string("crc32/") + kernel.name,
            [update = kernel.update](const uint8_t* data, uint32_t size, uint8_t*) { return update(0, data, size); });
    }
    for (const Kernels::Crc32Kernel& kernel : Kernels::Crc32Kernels()) {
        if (!kernel.supported()) continue;
        Register(std::string("crc32_copy/") + kernel.name,
                 [copy = kernel.copy](const uint8_t* data, uint32_t size, uint8_t* out) {
                     return copy(0, out, data, size);
                 });
    }
    bench::PinThread();
    bench::TableReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
