#include "mpeg2/ov_ps_packet.h"

#include "core/clock.h"
#include "core/package.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kVideoCodecs[] = {MX_VIDEO_H264_ALT, MX_VIDEO_H264,  MX_VIDEO_STREAM_TYPE_B0, MX_VIDEO_H265,
                                     MX_VIDEO_MPEG4,    MX_VIDEO_MPEG2, MX_VIDEO_STREAM_TYPE_80, MX_VIDEO_MJPEG};
constexpr uint32_t kAudioCodecs[] = {MX_AUDIO_AAC, MX_AUDIO_MPEG};
constexpr AcceptedCodecs kAccepted{kVideoCodecs, kAudioCodecs};

// A codec with its stream type and with the number that its descriptor gives it.
struct CodecRow {
    uint32_t encode_type;
    StreamType stream_type;
    uint16_t codec_code;
};
constexpr CodecRow kVideoRows[] = {
    {MX_VIDEO_H264_ALT, kStreamH264, 8},
    {MX_VIDEO_H264_STREAM, kStreamH264, 8},
    {MX_VIDEO_H264, kStreamH264, 2},
    {MX_VIDEO_STREAM_TYPE_B0, kStreamPrivateB0, 2},
    {MX_VIDEO_H265, kStreamH265, 12},
    {MX_VIDEO_MPEG4, kStreamMpeg4, 1},
    {MX_VIDEO_STREAM_TYPE_80, kStreamPrivate80, 11},
    {MX_VIDEO_MJPEG, kStreamMjpeg, 5},
    {MX_VIDEO_MPEG2, kStreamMpeg2Video, 9},
};
constexpr CodecRow kAudioRows[] = {{MX_AUDIO_AAC, kStreamAac, 26}, {MX_AUDIO_MPEG, kStreamMpegAudio, 31}};

constexpr const CodecRow* FindRow(std::span<const CodecRow> rows, uint32_t encode_type) {
    for (const CodecRow& row : rows) {
        if (row.encode_type == encode_type) return &row;
    }
    return nullptr;
}

constexpr MXCapacityEntry kEncodeVideo[] = {Codec(MX_VIDEO_H264_ALT), Codec(MX_VIDEO_MPEG4), Codec(MX_VIDEO_H265),
                                            Codec(MX_VIDEO_MJPEG), Codec(MX_VIDEO_MPEG2)};
constexpr MXCapacityEntry kEncodeAudio[] = {Codec(MX_AUDIO_AAC), Codec(MX_AUDIO_MPEG)};
constexpr MXCapacityEntry kCodecVideo[] = {Codec(2), Codec(1), Codec(5), Codec(3), Codec(6)};
constexpr MXCapacityEntry kCodecAudio[] = {Codec(33), Codec(38)};

constexpr uint32_t kDescriptorSize = 20;
constexpr uint16_t kDescriptorVersion = 1;
constexpr uint16_t kRateScale = 10;
// Readers rely on this: what a descriptor measures is stored with this number on top.
constexpr uint32_t kBias = 0x1234;

constexpr uint16_t Biased16(uint32_t value) {
    return static_cast<uint16_t>(value + kBias);
}

}  // namespace

COvPsPacket::COvPsPacket() : start_time_(CurrentTime()), current_time_(start_time_) {
}

bool COvPsPacket::checkFrame(const MXFrameInfo* frame) const {
    return kAccepted.Take(*frame);
}

uint32_t COvPsPacket::getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const {
    return CPackage::Capacity(type, kEncodeVideo, kEncodeAudio, table, count);
}

uint32_t COvPsPacket::getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const {
    return CPackage::Capacity(type, kCodecVideo, kCodecAudio, table, count);
}

int64_t COvPsPacket::packagePFrame(const MXFrameInfo* frame, CGrowBuffer* out) {
    const int64_t pack = writePackHeader(frame, out, false);
    int64_t headers = 0;
    if (video_.date_word != date_word_sent_) {
        headers = Total({writeSystemHeader(frame, out), writeStreamMap(frame, out)});
    }
    // Readers rely on this: only P frames keep the date, so that the first of them repeats the map of the I frame.
    date_word_sent_ = video_.date_word;
    return Total({pack, headers, writeVideoFrame(frame, out)});
}

int64_t COvPsPacket::packageVideo(const MXFrameInfo* frame, CGrowBuffer* out) {
    const CodecRow* const row = FindRow(kVideoRows, frame->encode_type);
    if (row == nullptr) return kNotPacked;
    video_stream_type_ = row->stream_type;
    video_.codec_code = row->codec_code;
    // Readers rely on this: the size is that of the frame before; the base takes this frame's size afterwards.
    video_.width = Biased16(width_);
    video_.height = Biased16(height_);
    video_.rate = static_cast<uint16_t>(frame->frame_rate * kRateScale);
    video_.rate_scale = kRateScale;
    const bool timed = frame->timestamp != 0 || frame->frame_rate == 0;
    current_time_ = start_time_ + (timed ? frame->timestamp / 1000 : video_count_ / frame->frame_rate);
    video_.date_word = DateWord(*frame);
    return CPSPackaging::packageVideo(frame, out);
}

int64_t COvPsPacket::packageAudio(const MXFrameInfo* frame, CGrowBuffer* out) {
    const CodecRow* const row = FindRow(kAudioRows, frame->encode_type);
    if (row == nullptr) return kNotPacked;
    audio_stream_type_ = row->stream_type;
    audio_.codec_code = row->codec_code;
    audio_.sample_rate = frame->samples_per_sec + kBias;
    audio_.bits = Biased16(frame->bits_per_sample);
    audio_.channels = Biased16(frame->channels);
    audio_.date_word = DateWord(*frame);
    return CPSPackaging::packageAudio(frame, out);
}

// Readers rely on this: the descriptors stand in the map as they are, without tag and length.
int64_t COvPsPacket::writeStreamMap(const MXFrameInfo* /*frame*/, CGrowBuffer* out) {
    uint8_t video[kDescriptorSize];
    ByteCursor(video)
        .Text("OVES")
        .BE16(kDescriptorVersion)
        .BE16(video_.codec_code)
        .BE16(video_.width)
        .BE16(video_.height)
        .BE16(video_.rate)
        .BE16(video_.rate_scale)
        .LE32(video_.date_word);
    uint8_t audio[kDescriptorSize];
    ByteCursor(audio)
        .Text("OVES")
        .BE16(kDescriptorVersion)
        .BE16(audio_.codec_code)
        .BE32(audio_.sample_rate)
        .BE16(audio_.bits)
        .BE16(audio_.channels)
        .LE32(audio_.date_word);
    // Readers rely on this: the version counts to 4 and stands in bits 3 and 4.
    CountMapVersion(4);
    return WriteMap(static_cast<uint8_t>(0xE0 | map_version_ << 3), video, audio, out);
}

uint32_t COvPsPacket::DateWord(const MXFrameInfo& frame) const {
    return PackDateWord(frame.utc_time != 0 ? int64_t{frame.utc_time} : current_time_);
}

}  // namespace Orvane::Muxora
