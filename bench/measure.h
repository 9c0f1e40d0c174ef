// A row of the table: passes over a stream and memcpy of the same frames, in turn, in one thread on one processor, so
// that a noisy machine hits both.
#pragma once

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "reporter.h"
#include "workload.h"

namespace bench {

// The streams of one shape, which many rows share. A row of another shape frees them.
const Workload& StreamOf(const WorkloadShape& shape, Codecs codecs);

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

// Registers a row of one shape.
template <typename Run>
void AddRow(const WorkloadShape& shape, const std::string& name, Run run) {
    benchmark::RegisterBenchmark((std::string(shape.name) + "/" + name).c_str(), run)
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond)
        ->MinTime(shape.seconds == kCold.seconds ? 0.5 : 0.25);
}

}  // namespace bench
