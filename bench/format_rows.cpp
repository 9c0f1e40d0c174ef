#include "format_rows.h"

#include <benchmark/benchmark.h>

#include <stdexcept>
#include <string_view>

namespace bench {

namespace {

constexpr Codecs kH264Aac{MX_VIDEO_H264, MX_AUDIO_AAC};
constexpr char kFragments[] = "frag_keyframe+empty_moov+default_base_moof";
constexpr FormatRow kRows[] = {
    {"ovx", MX_FORMAT_OVX, kH264Aac, {}},
    {"wav", MX_FORMAT_WAV, {0, MX_AUDIO_PCM16}, {"wav"}},
    {"mp4", MX_FORMAT_MP4, kH264Aac, {"mp4"}},
    {"mov", MX_FORMAT_MOV, kH264Aac, {"mov"}},
    {"mp4_noseek", MX_FORMAT_MP4_NOSEEK, kH264Aac, {}},
    {"mp4_64", MX_FORMAT_MP4_64, kH264Aac, {}},
    {"mov_64", MX_FORMAT_MOV_64, kH264Aac, {}},
    {"fmp4", MX_FORMAT_FMP4, kH264Aac, {"mp4", kFragments}},
    {"hmp4", MX_FORMAT_HMP4, kH264Aac, {"mp4", kFragments}},
    {"avi", MX_FORMAT_AVI, kH264Aac, {"avi"}},
    {"asf", MX_FORMAT_ASF, kH264Aac, {"asf"}},
    {"asf_stream", MX_FORMAT_ASF_STREAM, kH264Aac, {"asf_stream"}},
    {"flv", MX_FORMAT_FLV, kH264Aac, {"flv"}},
    {"flv_stream", MX_FORMAT_FLV_STREAM, kH264Aac, {}},
    {"mkv", MX_FORMAT_MKV, kH264Aac, {"matroska"}},
    {"ts", MX_FORMAT_TS, kH264Aac, {"mpegts"}},
    {"xflv", MX_FORMAT_XFLV, kH264Aac, {"flv"}},
    {"xmkv", MX_FORMAT_XMKV, kH264Aac, {"matroska"}},
    {"xts", MX_FORMAT_XTS, kH264Aac, {"mpegts"}},
    {"ps", MX_FORMAT_PS, kH264Aac, {"vob"}},
    {"ovps", MX_FORMAT_PS_OV, kH264Aac, {}},
    {"gaysps", MX_FORMAT_PS_GAYS, {MX_VIDEO_H264, MX_AUDIO_ALAW}, {}},
    {"gdps", MX_FORMAT_PS_GD, {MX_VIDEO_H264, MX_AUDIO_ALAW}, {}},
    {"rtp_packets", MX_FORMAT_RTP, kH264Aac, {"rtp"}},
    {"rtp_frames", MX_FORMAT_RTP, kH264Aac, {}},
};

// What a caller's sink costs is not ours: it looks at the block and lets it go.
int32_t DropBlock(const MXOutputBlock* block, void* /*user*/) {
    benchmark::DoNotOptimize(block->data);
    return 0;
}

}  // namespace

std::span<const FormatRow> FormatRows() {
    return kRows;
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

}  // namespace bench
