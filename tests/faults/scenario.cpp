#include "faults/scenario.h"

#include <cstdlib>
#include <cstring>

#include "MuxoraExt.h"
#include "support/frames.h"
#include "support/iso_frames.h"

namespace test {

namespace {

using Lost = FormatUnderTest::Lost;

constexpr FormatUnderTest kFormats[] = {
    {MX_FORMAT_MP4, "mp4", Lost::kAsIfNotGiven, false},
    {MX_FORMAT_ASF, "asf", Lost::kAsIfNotGiven, false},
    {MX_FORMAT_AVI, "avi", Lost::kAsIfNotGiven, true},
    {MX_FORMAT_OVX, "ovx", Lost::kTimeGoesOn, true},
    {MX_FORMAT_FLV, "flv", Lost::kAsIfNotGiven, false},
    {MX_FORMAT_ASF_STREAM, "asf-stream", Lost::kAsIfNotGiven, false},
    {MX_FORMAT_MOV, "mov", Lost::kAsIfNotGiven, false},
    {MX_FORMAT_FLV_STREAM, "flv-stream", Lost::kAsIfNotGiven, false},
    {MX_FORMAT_RTP, "rtp", Lost::kTimeGoesOn, false},
    {MX_FORMAT_TS, "ts", Lost::kAsIfNotGiven, false},
    {MX_FORMAT_PS, "ps", Lost::kTimeGoesOn, false},
    {MX_FORMAT_MP4_NOSEEK, "mp4-noseek", Lost::kAsIfNotGiven, false},
    {MX_FORMAT_MKV, "mkv", Lost::kAsIfNotGiven, false},
    {MX_FORMAT_MP4_64, "mp4-64", Lost::kAsIfNotGiven, false},
    {MX_FORMAT_MOV_64, "mov-64", Lost::kAsIfNotGiven, false},
    {MX_FORMAT_WAV, "wav", Lost::kAsIfNotGiven, false},
    {MX_FORMAT_PS_OV, "ovps", Lost::kTimeGoesOn, false},
    {MX_FORMAT_PS_GAYS, "gaysps", Lost::kTimeGoesOn, false},
    {MX_FORMAT_OVX_ALT, "ovx-alt", Lost::kTimeGoesOn, true},
    {MX_FORMAT_PS_GD, "gdps", Lost::kTimeGoesOn, false},
    {MX_FORMAT_FMP4, "fmp4", Lost::kAsIfNotGiven, false, true},
    {MX_FORMAT_HMP4, "hmp4", Lost::kAsIfNotGiven, false, true},
    {MX_FORMAT_XMKV, "xmkv", Lost::kAsIfNotGiven, false, true},
    {MX_FORMAT_XFLV, "xflv", Lost::kAsIfNotGiven, false, true},
    {MX_FORMAT_XTS, "xts", Lost::kAsIfNotGiven, false, true},
};

// An H.264 picture of its own, with a payload that has no start code in it.
ByteVector Picture(bool key, uint32_t number, size_t size) {
    ByteVector bytes = key ? KeyFrameOfAnEncoder() : PFrame(static_cast<uint8_t>(number));
    bytes.resize(size, static_cast<uint8_t>(0x21 + number % 200));
    return bytes;
}

void Add(std::vector<ScenarioFrame>& frames, ByteVector bytes, const MXFrameInfo& record) {
    frames.push_back({record, std::move(bytes)});
    ScenarioFrame& frame = frames.back();
    frame.record.frame_size = static_cast<uint32_t>(frame.bytes.size());
    frame.record.utc_time = 1700000000;
    frame.bytes.push_back(0xA5);  // RTP looks there
}

}  // namespace

std::vector<FormatUnderTest> FormatsUnderTest() {
    return {std::begin(kFormats), std::end(kFormats)};
}

std::vector<FormatUnderTest> ClassicFormatsUnderTest() {
    std::vector<FormatUnderTest> out = FormatsUnderTest();
    std::erase_if(out, [](const FormatUnderTest& format) { return format.number >= MX_FORMAT_FMP4; });
    return out;
}

bool TryAllPoints() {
    const char* const choice = std::getenv("MUXORA_FAULTS");
    return choice != nullptr && std::strcmp(choice, "all") == 0;
}

std::vector<ScenarioFrame> Scenario(uint32_t format) {
    ByteVector none;
    std::vector<ScenarioFrame> frames;
    const bool exact = format >= MX_FORMAT_FMP4;
    // G.711 where AAC is not taken, and nothing else for WAV.
    const bool aac = exact || format == MX_FORMAT_MP4 || format == MX_FORMAT_MOV || format == MX_FORMAT_MP4_NOSEEK ||
                     format == MX_FORMAT_MP4_64 || format == MX_FORMAT_MOV_64 || format == MX_FORMAT_MKV ||
                     format == MX_FORMAT_FLV || format == MX_FORMAT_FLV_STREAM || format == MX_FORMAT_RTP ||
                     format == MX_FORMAT_TS || format == MX_FORMAT_AVI || format == MX_FORMAT_PS_OV ||
                     format == MX_FORMAT_PS;
    for (uint32_t i = 0; i < 30; ++i) {
        if (format != MX_FORMAT_WAV) {
            const bool key = i % 10 == 0;
            // Frames of growing size make work buffers grow, too; the rate changes now and then.
            MXFrameInfo video = VideoFrame(none, MX_VIDEO_H264, key ? MX_SUB_I : MX_SUB_P, 1000 + 40 * i);
            video.frame_seq = i + 1;
            if (i > 20 && format != MX_FORMAT_MKV) video.frame_rate = 30;
            // Of a frame that is not there the duration goes to the one before, unless that states its own.
            if (exact) MXSetFrameTimes(&video, 90000, 90000 + 3600 * i, 90000 + 3600 * i, 3600);
            Add(frames, Picture(key, i, 100 + i * i * i * 3), video);
        }
        MXFrameInfo sound = AudioFrame(none, aac ? MX_AUDIO_AAC : MX_AUDIO_ALAW, 1000 + 40 * i);
        if (!aac) {
            sound.samples_per_sec = 8000;
            sound.bits_per_sample = 8;
            sound.channels = 1;
        }
        if (exact) MXSetFrameTimes(&sound, 48000, 48000 + 1024 * i, 48000 + 1024 * i, 1024);
        Add(frames, aac ? AdtsFrame(60 + i, 0x31) : ByteVector(320 + i, 0x42), sound);
    }
    return frames;
}

}  // namespace test
