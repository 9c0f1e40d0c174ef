// Each format through the C interface, against memcpy of the same frames and against a general-purpose muxer
// (libavformat), in one process. In every iteration the two sides run in turn, so that a noisy machine hits both.
#include <benchmark/benchmark.h>

#include <array>
#include <memory>
#include <stdexcept>

#include "MuxoraAPI.h"
#include "avformat_muxer.h"
#include "workload.h"

namespace bench {
namespace {

struct FormatRow {
    const char* name;
    uint32_t format;
    Codecs codecs;
    const char* avformat;  // the general-purpose muxer's name for the format; null if it has none
};

constexpr Codecs kH264Aac{MX_VIDEO_H264, MX_AUDIO_AAC};
constexpr FormatRow kRows[] = {
    {"ovx", MX_FORMAT_OVX, kH264Aac, nullptr},
    {"wav", MX_FORMAT_WAV, {0, MX_AUDIO_PCM16}, "wav"},
    {"mp4", MX_FORMAT_MP4, kH264Aac, "mp4"},
    {"mov", MX_FORMAT_MOV, kH264Aac, "mov"},
    {"mp4_noseek", MX_FORMAT_MP4_NOSEEK, kH264Aac, nullptr},
    {"mp4_64", MX_FORMAT_MP4_64, kH264Aac, nullptr},
    {"mov_64", MX_FORMAT_MOV_64, kH264Aac, nullptr},
    {"avi", MX_FORMAT_AVI, kH264Aac, "avi"},
    {"asf", MX_FORMAT_ASF, kH264Aac, "asf"},
    {"asf_stream", MX_FORMAT_ASF_STREAM, kH264Aac, nullptr},
    {"flv", MX_FORMAT_FLV, kH264Aac, "flv"},
    {"flv_stream", MX_FORMAT_FLV_STREAM, kH264Aac, nullptr},
    {"mkv", MX_FORMAT_MKV, kH264Aac, "matroska"},
    {"ts", MX_FORMAT_TS, kH264Aac, "mpegts"},
    {"ps", MX_FORMAT_PS, kH264Aac, nullptr},
    {"ovps", MX_FORMAT_PS_OV, kH264Aac, nullptr},
    {"gaysps", MX_FORMAT_PS_GAYS, {MX_VIDEO_H264, MX_AUDIO_ALAW}, nullptr},
    {"gdps", MX_FORMAT_PS_GD, {MX_VIDEO_H264, MX_AUDIO_ALAW}, nullptr},
    {"rtp_packets", MX_FORMAT_RTP, kH264Aac, nullptr},
    {"rtp_frames", MX_FORMAT_RTP, kH264Aac, nullptr},
};

struct HandleRelease {
    void operator()(void* handle) const { MX_DestroyHandle(handle); }
};
using Handle = std::unique_ptr<void, HandleRelease>;

// What a caller's sink costs is not ours: it looks at the block and lets it go.
int32_t DropBlock(const MXOutputBlock* block, void* /*user*/) {
    benchmark::DoNotOptimize(block->data);
    return 0;
}

Handle Open(const FormatRow& row) {
    MXCreateParam param{};
    param.output = DropBlock;
    Handle handle(MX_CreateHandle(row.format, &param));
    if (handle == nullptr) return handle;
    if (row.format == MX_FORMAT_RTP) {
        MXRtpParam rtp{};
        rtp.size = sizeof rtp;
        rtp.max_rtp_packet_length = 1400;
        rtp.rtp_audio_sample = 48000;
        rtp.rtp_packet_output_all_flag = std::string_view(row.name) == "rtp_frames" ? 1 : 0;
        MX_SetParam(handle.get(), MX_PARAM_RTP, &rtp, sizeof rtp);
    }
    MXHeaderInfo info{};
    info.size = sizeof info;
    info.video_present = row.codecs.video != 0;
    info.video_encode_type = row.codecs.video;
    info.width = 1920;
    info.height = 1080;
    info.frame_rate = 25;
    info.audio_present = 1;
    info.audio_encode_type = row.codecs.audio;
    info.channels = 2;
    info.bits_per_sample = 16;
    info.samples_per_sec = 48000;
    info.start_time_ms = MX_NO_START_TIME;
    if (MX_CreateHeader(handle.get(), &info) != MX_OK) throw std::runtime_error("no header");
    return handle;
}

void Report(benchmark::State& state, const Workload& workload, const Ratio& ratio) {
    if (ratio.Ours() == 0) return;
    state.counters["GB/s"] = static_cast<double>(workload.bytes()) / ratio.Ours() / 1e9;
    state.counters["ns/frame"] = ratio.Ours() * 1e9 / static_cast<double>(workload.frames().size());
    state.counters["x_memcpy"] = ratio.Ours() / ratio.Reference();
}

// Runs passes of `pack(pass)` and of memcpy in turn.
template <typename Pack>
void Measure(benchmark::State& state, const Workload& workload, Pack pack) {
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
    Measure(state, workload, [&](uint32_t pass) {
        for (const auto& frame : workload.frames()) {
            MXFrameInfo info = workload.Next(frame, pass);
            MX_InputFrame(handle.get(), &info);
        }
    });
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
    const Workload workload(shape, kH264Aac);
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
        for (const FormatRow& row : kRows) {
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
