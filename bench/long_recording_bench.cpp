// A recording of 28 hours in one handle, at one key frame a second: what a frame costs in its last hour against its
// first. The frames are small, so that the packager's own work shows, and so are the tables that grow with the hours.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "MuxoraAPI.h"
#include "workload.h"

namespace bench {
namespace {

constexpr uint32_t kHours = 28;
constexpr uint32_t kSecondsPerHour = 3600;
constexpr uint32_t kFrameRate = 25;
constexpr uint32_t kFrameSize = 64;

struct LongRow {
    const char* name;
    uint32_t format;
};
constexpr LongRow kRows[] = {{"mkv", MX_FORMAT_MKV}};

int32_t DropBlock(const MXOutputBlock* block, void* /*user*/) {
    benchmark::DoNotOptimize(block->data);
    return 0;
}

// One second of H.264: a key frame with its parameter sets and 24 others.
bool RecordSecond(void* handle, std::array<uint8_t, kFrameSize>& bytes) {
    constexpr uint8_t kKeyStart[] = {0, 0, 0, 1, 0x67, 0x64, 0x00, 0x28, 0, 0, 0, 1, 0x68, 0xEB, 0, 0, 0, 1, 0x65};
    constexpr uint8_t kOtherStart[] = {0, 0, 0, 1, 0x41};
    MXFrameInfo frame{};
    frame.size = sizeof frame;
    frame.frame_pointer = bytes.data();
    frame.frame_size = kFrameSize;
    frame.frame_type = MX_FRAME_VIDEO;
    frame.encode_type = MX_VIDEO_H264;
    frame.width = 1920;
    frame.height = 1080;
    frame.frame_rate = kFrameRate;
    bool ok = true;
    for (uint32_t i = 0; i < kFrameRate; ++i) {
        // The packager may have written over the start codes.
        if (i == 0) {
            std::memcpy(bytes.data(), kKeyStart, sizeof kKeyStart);
        } else {
            std::memcpy(bytes.data(), kOtherStart, sizeof kOtherStart);
        }
        frame.frame_sub_type = i == 0 ? MX_SUB_I : MX_SUB_P;
        ok = ok && MX_InputFrame(handle, &frame) == MX_OK;
    }
    return ok;
}

void BenchLongRecording(benchmark::State& state, const LongRow& row) {
    std::array<uint8_t, kFrameSize> bytes{};
    bytes.fill(0xAB);
    // The best of the rounds, as other programs may disturb any of them.
    std::vector<double> hours(kHours, std::numeric_limits<double>::max());
    double tail = std::numeric_limits<double>::max();
    for ([[maybe_unused]] auto step : state) {
        MXCreateParam param{};
        param.output = DropBlock;
        const std::unique_ptr<void, decltype(&MX_DestroyHandle)> handle(MX_CreateHandle(row.format, &param),
                                                                        MX_DestroyHandle);
        if (handle == nullptr) return state.SkipWithError("not in this build");
        bool ok = MX_CreateHeader(handle.get(), nullptr) == MX_OK;
        double total = 0;
        for (double& hour : hours) {
            const double seconds = Seconds([&] {
                for (uint32_t i = 0; i < kSecondsPerHour; ++i)
                    ok = RecordSecond(handle.get(), bytes) && ok;
            });
            hour = std::min(hour, seconds);
            total += seconds;
        }
        tail = std::min(tail, Seconds([&] { ok = MX_CreateTailer(handle.get(), nullptr) == MX_OK && ok; }));
        if (!ok) return state.SkipWithError("a call failed");
        state.SetIterationTime(total);
    }
    constexpr double kFramesPerHour = kSecondsPerHour * kFrameRate;
    state.counters["ns/frame_hour_1"] = hours.front() * 1e9 / kFramesPerHour;
    state.counters["ns/frame_hour_28"] = hours.back() * 1e9 / kFramesPerHour;
    state.counters["x_hour_1"] = hours.back() / hours.front();
    state.counters["tail_ms"] = tail * 1e3;
}

const bool kRegistered = [] {
    for (const LongRow& row : kRows) {
        benchmark::RegisterBenchmark((std::string("28_hours/") + row.name).c_str(),
                                     [&row](benchmark::State& state) { BenchLongRecording(state, row); })
            ->UseManualTime()
            ->Unit(benchmark::kMillisecond)
            ->Iterations(10);
    }
    return true;
}();

}  // namespace
}  // namespace bench
