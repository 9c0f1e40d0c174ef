#include "mpeg2/stds_ps_packet.h"

#include "core/package.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kVideoCodecs[] = {MX_VIDEO_H264_ALT, MX_VIDEO_H264,  MX_VIDEO_H265,
                                     MX_VIDEO_MPEG4,    MX_VIDEO_MPEG2, MX_VIDEO_STREAM_TYPE_80};
constexpr uint32_t kAudioCodecs[] = {MX_AUDIO_AAC, MX_AUDIO_MPEG};
constexpr AcceptedCodecs kAccepted{kVideoCodecs, kAudioCodecs};

constexpr StreamTypeRow kVideoTypes[] = {
    {MX_VIDEO_H264_ALT, kStreamH264},    {MX_VIDEO_H264_STREAM, kStreamH264},
    {MX_VIDEO_H264, kStreamH264},        {MX_VIDEO_H265, kStreamH265},
    {MX_VIDEO_MPEG4, kStreamMpeg4},      {MX_VIDEO_STREAM_TYPE_80, kStreamPrivate80},
    {MX_VIDEO_MPEG2, kStreamMpeg2Video},
};
constexpr StreamTypeRow kAudioTypes[] = {{MX_AUDIO_AAC, kStreamAac}, {MX_AUDIO_MPEG, kStreamMpegAudio}};

constexpr MXCapacityEntry kEncodeVideo[] = {Codec(MX_VIDEO_H264_ALT), Codec(MX_VIDEO_MPEG4), Codec(MX_VIDEO_H265),
                                            Codec(MX_VIDEO_MPEG2)};
constexpr MXCapacityEntry kEncodeAudio[] = {Codec(MX_AUDIO_AAC), Codec(MX_AUDIO_MPEG)};
constexpr MXCapacityEntry kCodecVideo[] = {Codec(2), Codec(1), Codec(5), Codec(6)};
constexpr MXCapacityEntry kCodecAudio[] = {Codec(33), Codec(38)};

}  // namespace

bool CStdsPsPacket::checkFrame(const MXFrameInfo* frame) const {
    return kAccepted.Take(*frame);
}

uint32_t CStdsPsPacket::getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const {
    return CPackage::Capacity(type, kEncodeVideo, kEncodeAudio, table, count);
}

uint32_t CStdsPsPacket::getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const {
    return CPackage::Capacity(type, kCodecVideo, kCodecAudio, table, count);
}

int64_t CStdsPsPacket::packageVideo(const MXFrameInfo* frame, CGrowBuffer* out) {
    const StreamType type = FindStreamType(kVideoTypes, frame->encode_type);
    if (type == kStreamNone) return kNotPacked;
    video_stream_type_ = type;
    return CPSPackaging::packageVideo(frame, out);
}

int64_t CStdsPsPacket::packageAudio(const MXFrameInfo* frame, CGrowBuffer* out) {
    const StreamType type = FindStreamType(kAudioTypes, frame->encode_type);
    if (type == kStreamNone) return kNotPacked;
    audio_stream_type_ = type;
    return CPSPackaging::packageAudio(frame, out);
}

int64_t CStdsPsPacket::writeStreamMap(const MXFrameInfo* /*frame*/, CGrowBuffer* out) {
    // Readers rely on this: the version counts to 4 and stands two bits higher than program_stream_map_version does.
    CountMapVersion(4);
    return WriteMap(static_cast<uint8_t>(0xE0 | map_version_ << 3), {}, {}, out);
}

}  // namespace Orvane::Muxora
