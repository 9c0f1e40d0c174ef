// What a recording of a day costs in the MP4 family against a short one: the cost of a frame must not depend on how
// many came before it. 2,160,000 frames are 24 hours at 25 frames per second.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>

#include "MuxoraAPI.h"
#include "workload.h"

namespace bench {
namespace {

constexpr int64_t kShort = 10'000;
constexpr int64_t kDay = 2'160'000;

struct HandleRelease {
    void operator()(void* handle) const { MX_DestroyHandle(handle); }
};

int32_t DropBlock(const MXOutputBlock* block, void* /*user*/) {
    benchmark::DoNotOptimize(block->data);
    return 0;
}

void BenchLength(benchmark::State& state, uint32_t format) {
    const Workload workload(kSmall, {MX_VIDEO_H264, MX_AUDIO_AAC});
    const int64_t frames = state.range(0);
    const auto count = static_cast<int64_t>(workload.frames().size());
    double recording = 0;
    double last = 0;
    double backup = 0;
    double tail = 0;
    for ([[maybe_unused]] auto step : state) {
        MXCreateParam param{};
        param.output = DropBlock;
        const std::unique_ptr<void, HandleRelease> handle(MX_CreateHandle(format, &param));
        MX_CreateHeader(handle.get(), nullptr);
        const auto give = [&](int64_t from, int64_t to) {
            return Seconds([&] {
                for (int64_t i = from; i < to; ++i) {
                    const auto& frame = workload.frames()[static_cast<size_t>(i % count)];
                    MXFrameInfo info = workload.Next(frame, static_cast<uint32_t>(i / count));
                    MX_InputFrame(handle.get(), &info);
                }
            });
        };
        const double first = give(0, frames - kShort / 2);
        const double rest = give(frames - kShort / 2, frames);
        recording += first + rest;
        last += rest;
        state.SetIterationTime(first + rest);
        MXOutputBlock block{};
        backup += Seconds([&] { MX_GetBackup(handle.get(), &block); });
        tail += Seconds([&] { MX_CreateTailer(handle.get(), nullptr); });
    }
    const auto runs = static_cast<double>(state.iterations());
    state.counters["ns/frame"] = recording / runs / static_cast<double>(frames) * 1e9;
    state.counters["ns/last_frame"] = last / runs / (static_cast<double>(kShort) / 2) * 1e9;
    state.counters["backup_ms"] = backup / runs * 1e3;
    state.counters["tail_ms"] = tail / runs * 1e3;
}

const bool kRegistered = [] {
    for (const auto& [name, format] : {std::pair{"mp4", MX_FORMAT_MP4}, std::pair{"mp4_64", MX_FORMAT_MP4_64}}) {
        benchmark::RegisterBenchmark((std::string("recording_length/") + name).c_str(),
                                     [format = format](benchmark::State& state) { BenchLength(state, format); })
            ->Arg(kShort)
            ->Arg(kDay)
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond)
            ->MinTime(0.25);
    }
    return true;
}();

}  // namespace
}  // namespace bench
