// Each format through the C interface, against memcpy of the same frames and against a general-purpose muxer
// (libavformat), in one thread on one processor. The two sides run in turn, so that a noisy machine hits both.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "MuxoraAPI.h"
#include "avformat_muxer.h"
#include "format_rows.h"
#include "reporter.h"
#include "workload.h"

namespace bench {
namespace {

// The streams of one shape, which many rows share. A row of another shape frees them.
const Workload& StreamOf(const WorkloadShape& shape, Codecs codecs) {
    static const WorkloadShape* kept_shape = nullptr;
    static std::vector<std::pair<Codecs, std::unique_ptr<Workload>>> kept;
    if (kept_shape != &shape) kept.clear();
    kept_shape = &shape;
    for (const auto& [its_codecs, workload] : kept) {
        if (its_codecs.video == codecs.video && its_codecs.audio == codecs.audio) return *workload;
    }
    return *kept.emplace_back(codecs, std::make_unique<Workload>(shape, codecs)).second;
}

// Runs passes of `pack(pass)` and of memcpy in turn, each first in every other pair.
template <typename PackPass>
void Measure(benchmark::State& state, const Workload& workload, PackPass pack) {
    Ratio ratio;
    std::vector<uint8_t> buffer;
    uint32_t pass = 0;
    CopyPass(workload, buffer);
    pack(pass++);
    for ([[maybe_unused]] auto step : state) {
        double reference = 0;
        const auto copy = [&] { reference = Seconds([&] { CopyPass(workload, buffer); }); };
        const bool copy_first = pass % 2 == 0;
        if (copy_first) copy();
        const double ours = Seconds([&] { pack(pass); });
        if (!copy_first) copy();
        ++pass;
        ratio.Add(ours, reference);
        state.SetIterationTime(ours);
    }
    if (ratio.Ours() == 0) return;
    state.counters[kNsPerFrame] = ratio.Ours() * 1e9 / static_cast<double>(workload.frames().size());
    state.counters[kTimesMemcpy] = ratio.Median();
    state.counters[kSpread] = ratio.Spread();
}

void BenchMuxora(benchmark::State& state, const FormatRow& row, const WorkloadShape& shape) {
    const Workload& workload = StreamOf(shape, row.codecs);
    const Handle handle = Open(row);
    if (handle == nullptr) return state.SkipWithError("not in this build");
    Measure(state, workload, [&](uint32_t pass) { Pack(handle.get(), workload, pass); });
}

void BenchAvformat(benchmark::State& state, const FormatRow& row, const WorkloadShape& shape) {
    const Workload& workload = StreamOf(shape, row.codecs);
    AvformatMuxer muxer(row.avformat, row.codecs);
    if (!muxer.Ok()) return state.SkipWithError("the muxer refuses the streams");
    Measure(state, workload, [&](uint32_t pass) {
        for (const auto& frame : workload.frames()) {
            const MXFrameInfo info = workload.Next(frame, pass);
            muxer.Write(info);
        }
    });
}

void BenchMemcpy(benchmark::State& state, const WorkloadShape& shape) {
    const Workload& workload = StreamOf(shape, {MX_VIDEO_H264, MX_AUDIO_AAC});
    std::vector<uint8_t> copy;
    Measure(state, workload, [&](uint32_t) { CopyPass(workload, copy); });
}

const bool kRegistered = [] {
    for (const WorkloadShape* shape : {&kFullHd, &kSmall, &kLarge, &kCold}) {
        const auto add = [&](const std::string& name, auto run) {
            benchmark::RegisterBenchmark((std::string(shape->name) + "/" + name).c_str(), run)
                ->UseManualTime()
                ->Unit(benchmark::kMillisecond)
                ->MinTime(shape == &kCold ? 0.5 : 0.25);
        };
        add("memcpy", [=](benchmark::State& state) { BenchMemcpy(state, *shape); });
        for (const FormatRow& row : FormatRows()) {
            add(row.name, [=, &row](benchmark::State& state) { BenchMuxora(state, row, *shape); });
            if (row.avformat == nullptr || shape != &kFullHd) continue;
            add(row.name + std::string(kGeneralPurpose),
                [=, &row](benchmark::State& state) { BenchAvformat(state, row, *shape); });
        }
    }
    return true;
}();

}  // namespace
}  // namespace bench
