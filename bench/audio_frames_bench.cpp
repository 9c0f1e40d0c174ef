// What one small audio frame costs in the program and transport streams, where the packager's own work shows.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

#include "MuxoraAPI.h"
#include "workload.h"

namespace bench {
namespace {

struct AudioRow {
    const char* name;
    uint32_t format;
    uint32_t codec;
};
constexpr AudioRow kRows[] = {{"ts", MX_FORMAT_TS, MX_AUDIO_AAC},
                              {"ps", MX_FORMAT_PS, MX_AUDIO_AAC},
                              {"ovps", MX_FORMAT_PS_OV, MX_AUDIO_AAC},
                              {"gaysps", MX_FORMAT_PS_GAYS, MX_AUDIO_ALAW},
                              {"gdps", MX_FORMAT_PS_GD, MX_AUDIO_ALAW}};

struct HandleRelease {
    void operator()(void* handle) const { MX_DestroyHandle(handle); }
};

int32_t DropBlock(const MXOutputBlock* block, void* /*user*/) {
    benchmark::DoNotOptimize(block->data);
    return 0;
}

void BenchAudioFrames(benchmark::State& state, const AudioRow& row) {
    const Workload workload(kFullHd, {MX_VIDEO_H264, row.codec});
    std::vector<MXFrameInfo> frames;
    for (const auto& frame : workload.frames()) {
        if (frame.info.frame_type == MX_FRAME_AUDIO) frames.push_back(frame.info);
    }
    MXCreateParam param{};
    param.output = DropBlock;
    const std::unique_ptr<void, HandleRelease> handle(MX_CreateHandle(row.format, &param));
    MX_CreateHeader(handle.get(), nullptr);
    for ([[maybe_unused]] auto step : state) {
        for (MXFrameInfo& frame : frames) {
            if (MX_InputFrame(handle.get(), &frame) != MX_OK) return state.SkipWithError("a frame was refused");
        }
    }
    using benchmark::Counter;
    state.counters["s/frame"] =
        Counter(static_cast<double>(frames.size()), Counter::kIsIterationInvariantRate | Counter::kInvert);
}

const bool kRegistered = [] {
    for (const AudioRow& row : kRows) {
        benchmark::RegisterBenchmark((std::string("audio_frames/") + row.name).c_str(),
                                     [&row](benchmark::State& state) { BenchAudioFrames(state, row); });
    }
    return true;
}();

}  // namespace
}  // namespace bench
