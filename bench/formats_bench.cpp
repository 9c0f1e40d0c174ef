// Each format through the C interface, against memcpy of the same frames and against a general-purpose muxer
// (libavformat).
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "MuxoraAPI.h"
#include "avformat_muxer.h"
#include "format_rows.h"
#include "measure.h"
#include "workload.h"

namespace bench {
namespace {

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
        AddRow(*shape, "memcpy", [=](benchmark::State& state) { BenchMemcpy(state, *shape); });
        for (const FormatRow& row : FormatRows()) {
            AddRow(*shape, row.name, [=, &row](benchmark::State& state) { BenchMuxora(state, row, *shape); });
            if (row.avformat.name == nullptr) continue;
            AddRow(*shape, row.name + std::string(kGeneralPurpose),
                   [=, &row](benchmark::State& state) { BenchAvformat(state, row, *shape); });
        }
    }
    return true;
}();

}  // namespace
}  // namespace bench
