#include "mpeg2/gays_ps_packet.h"

#include "core/package.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kSampleRate = 8000;

// Readers rely on this: H.265 is asked for and advertised, and yet has no stream type, so that its frames fail.
constexpr uint32_t kVideoCodecs[] = {MX_VIDEO_H264_ALT, MX_VIDEO_H264, MX_VIDEO_MPEG4, MX_VIDEO_H265,
                                     MX_VIDEO_STREAM_TYPE_80};
constexpr uint32_t kAudioCodecs[] = {MX_AUDIO_ALAW, MX_AUDIO_STREAM_TYPE_93, MX_AUDIO_STREAM_TYPE_99};
constexpr AcceptedCodecs kAccepted{kVideoCodecs, kAudioCodecs};

constexpr StreamTypeRow kVideoTypes[] = {
    {MX_VIDEO_H264_ALT, kStreamH264}, {MX_VIDEO_H264_STREAM, kStreamH264},         {MX_VIDEO_H264, kStreamH264},
    {MX_VIDEO_MPEG4, kStreamMpeg4},   {MX_VIDEO_STREAM_TYPE_80, kStreamPrivate80},
};
constexpr StreamTypeRow kAudioTypes[] = {
    {MX_AUDIO_ALAW, kStreamG711},
    {MX_AUDIO_STREAM_TYPE_92, kStreamPrivate92},
    {MX_AUDIO_STREAM_TYPE_93, kStreamPrivate93},
    {MX_AUDIO_STREAM_TYPE_99, kStreamPrivate99},
};

constexpr MXCapacityEntry Mono8k(uint32_t number) {
    return {number, kSampleRate, 0, 1, {}};
}
constexpr MXCapacityEntry kEncodeVideo[] = {Codec(MX_VIDEO_H264_ALT), Codec(MX_VIDEO_MPEG4), Codec(MX_VIDEO_H265)};
constexpr MXCapacityEntry kEncodeAudio[] = {Mono8k(MX_AUDIO_ALAW), Mono8k(MX_AUDIO_STREAM_TYPE_93),
                                            Mono8k(MX_AUDIO_STREAM_TYPE_99)};
constexpr MXCapacityEntry kCodecVideo[] = {Codec(2), Codec(1), Codec(5)};
constexpr MXCapacityEntry kCodecAudio[] = {Mono8k(28), Mono8k(32), Mono8k(22)};

}  // namespace

bool CGaysPsPacket::checkFrame(const MXFrameInfo* frame) const {
    if (frame->frame_type == MX_FRAME_AUDIO && frame->samples_per_sec != kSampleRate) return false;
    return kAccepted.Take(*frame);
}

uint32_t CGaysPsPacket::getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const {
    return CPackage::Capacity(type, kEncodeVideo, kEncodeAudio, table, count);
}

uint32_t CGaysPsPacket::getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const {
    return CPackage::Capacity(type, kCodecVideo, kCodecAudio, table, count);
}

int64_t CGaysPsPacket::packageVideo(const MXFrameInfo* frame, CGrowBuffer* out) {
    const StreamType type = FindStreamType(kVideoTypes, frame->encode_type);
    if (type == kStreamNone) return kNotPacked;
    video_stream_type_ = type;
    return CPSPackaging::packageVideo(frame, out);
}

int64_t CGaysPsPacket::packageAudio(const MXFrameInfo* frame, CGrowBuffer* out) {
    const StreamType type = FindStreamType(kAudioTypes, frame->encode_type);
    if (type == kStreamNone) return kNotPacked;
    if (type == kStreamG711 && frame->samples_per_sec != kSampleRate) return kNotPacked;
    audio_stream_type_ = type;
    return CPSPackaging::packageAudio(frame, out);
}

}  // namespace Orvane::Muxora
