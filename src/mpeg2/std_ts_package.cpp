#include "mpeg2/std_ts_package.h"

#include "core/package.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kVideoCodecs[] = {MX_VIDEO_H264_ALT, MX_VIDEO_H264, MX_VIDEO_H264_STREAM,
                                     MX_VIDEO_MPEG4,    MX_VIDEO_H265, MX_VIDEO_MPEG2};
constexpr uint32_t kAudioCodecs[] = {MX_AUDIO_AAC, MX_AUDIO_MPEG, MX_AUDIO_ALAW, MX_AUDIO_MULAW};
constexpr AcceptedCodecs kAccepted{kVideoCodecs, kAudioCodecs};

constexpr MXCapacityEntry kEncodeVideo[] = {Codec(MX_VIDEO_H264_ALT), Codec(MX_VIDEO_MPEG4), Codec(MX_VIDEO_H265),
                                            Codec(MX_VIDEO_MPEG2)};
constexpr MXCapacityEntry kEncodeAudio[] = {Codec(MX_AUDIO_ALAW), Codec(MX_AUDIO_MULAW), Codec(MX_AUDIO_AAC),
                                            Codec(MX_AUDIO_MPEG)};
constexpr MXCapacityEntry kCodecVideo[] = {Codec(2), Codec(1), Codec(5), Codec(6)};
constexpr MXCapacityEntry kCodecAudio[] = {Codec(28), Codec(31), Codec(33), Codec(38)};

}  // namespace

bool CStdTSPackage::checkFrame(const MXFrameInfo* frame) const {
    return kAccepted.Take(*frame);
}

uint32_t CStdTSPackage::getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const {
    return CPackage::Capacity(type, kEncodeVideo, kEncodeAudio, table, count);
}

uint32_t CStdTSPackage::getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const {
    return CPackage::Capacity(type, kCodecVideo, kCodecAudio, table, count);
}

}  // namespace Orvane::Muxora
