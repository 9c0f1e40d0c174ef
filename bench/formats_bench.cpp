// Each format through the C interface, against memcpy of the same frames and against a general-purpose muxer
// (libavformat), in one process. In every iteration the two sides run in turn, so that a noisy machine hits both.
#include <benchmark/benchmark.h>

#include <array>
#include <memory>
#include <stdexcept>

#include "MuxoraAPI.h"
#include "avformat_muxer.h"
#include "format_rows.h"
#include "workload.h"

namespace bench {
namespace {

void Report(benchmark::State& state, const Workload& workload, const Ratio& ratio) {
    if (ratio.Ours() == 0) return;
    state.counters["GB/s"] = static_cast<double>(workload.bytes()) / ratio.Ours() / 1e9;
    state.counters["ns/frame"] = ratio.Ours() * 1e9 / static_cast<double>(workload.frames().size());
    state.counters["x_memcpy"] = ratio.Ours() / ratio.Reference();
}

// Runs passes of `pack(pass)` and of memcpy in turn.
template <typename PackPass>
void Measure(benchmark::State& state, const Workload& workload, PackPass pack) {
    Ratio ratio;
    std::vector<uint8_t> buffer;
    uint32_t pass = 0;
    CopyPass(workload, buffer);
    pack(pass++);
    for ([[maybe_unused]] auto step : state) {
        const double reference = Seconds([&] { CopyPass(workload, buffer); });
        const double ours = Seconds([&] { pack(pass++); });
        ratio.Add(ours, reference);
        state.SetIterationTime(ours);
    }
    Report(state, workload, ratio);
}

void BenchMuxora(benchmark::State& state, const FormatRow& row, const WorkloadShape& shape) {
    const Workload workload(shape, row.codecs);
    const Handle handle = Open(row);
    if (handle == nullptr) return state.SkipWithError("not in this build");
    Measure(state, workload, [&](uint32_t pass) { Pack(handle.get(), workload, pass); });
}

void BenchAvformat(benchmark::State& state, const FormatRow& row, const WorkloadShape& shape) {
    const Workload workload(shape, row.codecs);
    AvformatMuxer muxer(row.avformat, row.codecs);
    if (!muxer.Ok()) return state.SkipWithError(muxer.Error().c_str());
    Measure(state, workload, [&](uint32_t pass) {
        for (const auto& frame : workload.frames()) {
            const MXFrameInfo info = workload.Next(frame, pass);
            muxer.Write(info);
        }
    });
}

void BenchMemcpy(benchmark::State& state, const WorkloadShape& shape) {
    const Workload workload(shape, {MX_VIDEO_H264, MX_AUDIO_AAC});
    std::vector<uint8_t> copy;
    Measure(state, workload, [&](uint32_t) { CopyPass(workload, copy); });
}

const bool kRegistered = [] {
    for (const WorkloadShape* shape : {&kFullHd, &kSmall, &kLarge}) {
        const auto add = [&](const std::string& name, auto run) {
            benchmark::RegisterBenchmark((std::string(shape->name) + "/" + name).c_str(), run)
                ->UseManualTime()
                ->Unit(benchmark::kMillisecond)
                ->MinTime(0.25);
        };
        add("memcpy", [=](benchmark::State& state) { BenchMemcpy(state, *shape); });
        for (const FormatRow& row : FormatRows()) {
            add(row.name, [=, &row](benchmark::State& state) { BenchMuxora(state, row, *shape); });
            if (row.avformat == nullptr || shape != &kFullHd) continue;
            add(std::string(row.name) + "_general_purpose",
                [=, &row](benchmark::State& state) { BenchAvformat(state, row, *shape); });
        }
    }
    return true;
}();

}  // namespace
}  // namespace bench
