// What a recording of a day costs in the MP4 family against a short one: the cost of a frame must not depend on how
// many came before it. 2,160,000 frames are 24 hours at 25 frames per second.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "MuxoraAPI.h"
#include "workload.h"

namespace bench {
namespace {

constexpr int64_t kShort = 10'000;
constexpr int64_t kDay = 2'160'000;
constexpr int64_t kSlice = 1'000;  // frames that are timed together

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
    // Other programs may disturb any round: the median of the slices, the best of the single figures.
    std::vector<double> slices;
    double last = std::numeric_limits<double>::max();
    double backup = last;
    double tail = last;
    for ([[maybe_unused]] auto step : state) {
        MXCreateParam param{};
        param.output = DropBlock;
        const std::unique_ptr<void, HandleRelease> handle(MX_CreateHandle(format, &param));
        MX_CreateHeader(handle.get(), nullptr);
        double total = 0;
        for (int64_t begin = 0; begin < frames; begin += kSlice) {
            slices.push_back(Seconds([&] {
                for (int64_t i = begin; i < begin + kSlice; ++i) {
                    const auto& frame = workload.frames()[static_cast<size_t>(i % count)];
                    MXFrameInfo info = workload.Next(frame, static_cast<uint32_t>(i / count));
                    MX_InputFrame(handle.get(), &info);
                }
            }));
            total += slices.back();
        }
        state.SetIterationTime(total);
        last = std::min(last, slices.back());
        MXOutputBlock block{};
        backup = std::min(backup, Seconds([&] { MX_GetBackup(handle.get(), &block); }));
        tail = std::min(tail, Seconds([&] { MX_CreateTailer(handle.get(), nullptr); }));
    }
    const auto middle = slices.begin() + static_cast<std::ptrdiff_t>(slices.size() / 2);
    std::nth_element(slices.begin(), middle, slices.end());
    state.counters["ns/frame"] = *middle / kSlice * 1e9;
    state.counters["ns/last_frame"] = last / kSlice * 1e9;
    state.counters["backup_ms"] = backup * 1e3;
    state.counters["tail_ms"] = tail * 1e3;
}

const bool kRegistered = [] {
    for (const auto& [name, format] : {std::pair{"mp4", MX_FORMAT_MP4}, std::pair{"mp4_64", MX_FORMAT_MP4_64}}) {
        for (const auto& [frames, rounds] : {std::pair{kShort, 200}, std::pair{kDay, 10}}) {
            benchmark::RegisterBenchmark((std::string("recording_length/") + name).c_str(),
                                         [format = format](benchmark::State& state) { BenchLength(state, format); })
                ->Arg(frames)
                ->UseManualTime()
                ->Unit(benchmark::kMillisecond)
                ->Iterations(rounds);
        }
    }
    return true;
}();

}  // namespace
}  // namespace bench
