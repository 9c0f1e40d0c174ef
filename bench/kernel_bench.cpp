// The kernels under the packagers, each against memcpy of the same bytes: the search for start codes, the conversion to
// length prefixes, the cut into transport packets and RTP packets, the CRC-32. With --kernels=NAME (avx512, avx2 or
// portable) everything takes the kernels of that instruction set, the rows of the formats, which are here as well, too.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "codec/avc_convert.h"
#include "codec/crc32.h"
#include "codec/fragments.h"
#include "codec/full_packets.h"
#include "codec/kernels/crc32_kernels.h"
#include "codec/kernels/start_code_kernels.h"
#include "codec/piece_copy.h"
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
void MeasureKernel(benchmark::State& state, Operation operation) {
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
    benchmark::RegisterBenchmark(name.c_str(),
                                 [operation](benchmark::State& state) { MeasureKernel(state, operation); })
        ->Arg(341)
        ->Arg(4'000)
        ->Arg(33'000)
        ->Arg(200'000)
        ->Arg(1'500'000);
}

struct InstructionSet {
    std::string_view name;
    const char* start_code;
    const char* fragments;
    const char* pieces;
    const char* cut;
    const char* crc32;
};
constexpr InstructionSet kInstructionSets[] = {
    {"avx512", "avx512bw", "avx512bw", "avx512f", "avx512f", "vpclmulqdq"},
    {"avx2", "avx2", "avx2", "avx2", "avx2", "pclmulqdq"},
    {"portable", "scalar", "portable", "portable", "portable", "table"},
};

// False if the processor or the build lacks one of the kernels.
bool UseKernels(std::string_view name) {
    for (const InstructionSet& set : kInstructionSets) {
        if (set.name != name) continue;
        return Kernels::start_code_choice.Use(set.start_code) && fragment_choice.Use(set.fragments) &&
               piece_choice.Use(set.pieces) && cut_choice.Use(set.cut) && Kernels::crc32_choice.Use(set.crc32);
    }
    return false;
}

// Takes --kernels=NAME out of the arguments.
bool TakeKernels(int& argc, char** argv) {
    constexpr std::string_view kOption = "--kernels=";
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument.substr(0, kOption.size()) != kOption) continue;
        std::copy(argv + i + 1, argv + argc, argv + i);
        --argc;
        return UseKernels(argument.substr(kOption.size()));
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (!TakeKernels(argc, argv)) {
        std::fputs("no such kernels\n", stderr);
        return 2;
    }
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
    for (const PieceKernel& kernel : PieceKernels()) {
        if (!kernel.supported()) continue;
        Register(std::string("piece_copy/") + kernel.name,
                 [copy = kernel.copy](const uint8_t* data, uint32_t size, uint8_t* out) {
                     copy(out, data, size);
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
