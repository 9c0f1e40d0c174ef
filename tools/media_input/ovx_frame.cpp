#include "media_input/ovx_frame.h"

#include <algorithm>

#include "MuxoraAPI.h"

namespace Orvane::Muxora::Tools {

namespace {

uint32_t VideoCodecOf(uint8_t codec_byte) {
    switch (codec_byte) {
        case 1:
            return MX_VIDEO_MPEG4;
        case 2:
        case 8:
            return MX_VIDEO_H264;
        case 5:
            return MX_VIDEO_MJPEG;
        case 9:
            return MX_VIDEO_MPEG2;
        case 12:
            return MX_VIDEO_H265;
        default:
            return 0;
    }
}

uint32_t AudioCodecOf(uint8_t encode_type) {
    switch (encode_type) {
        case MX_AUDIO_PCM8:
        case MX_AUDIO_PCM16:
        case MX_AUDIO_ALAW:
        case MX_AUDIO_MULAW:
        case MX_AUDIO_AAC:
        case MX_AUDIO_MPEG:
            return encode_type;
        case MX_AUDIO_MULAW_ALT:
            return MX_AUDIO_MULAW;
        default:
            return 0;
    }
}

}  // namespace

std::optional<OvxPicture> PictureOf(const OvxReader::Piece& unit) {
    const auto play_back = unit.extension.Find(OvxReader::kPlayBack);
    if (!play_back) return std::nullopt;
    OvxPicture picture;
    picture.codec_byte = play_back->bytes[2];
    picture.codec = VideoCodecOf(picture.codec_byte);
    picture.frame_rate = play_back->bytes[3];
    if (const auto size = unit.extension.Find(OvxReader::kLongImageSize)) {
        picture.width = OvxReader::Load16(size->bytes.data() + 4);
        picture.height = OvxReader::Load16(size->bytes.data() + 6);
    } else if (const auto small = unit.extension.Find(OvxReader::kImageSize)) {
        picture.width = 8u * small->bytes[2];
        picture.height = 8u * small->bytes[3];
    }
    return picture;
}

OvxSound SoundOf(const OvxReader::Piece& unit) {
    OvxSound sound;
    uint8_t channels = 1;
    uint8_t rate_index = 0;
    if (const auto format = unit.extension.Find(OvxReader::kAudioFormat2)) {
        channels = format->bytes[2], sound.codec_byte = format->bytes[3], rate_index = format->bytes[4];
    } else if (const auto old = unit.extension.Find(OvxReader::kAudioFormat)) {
        channels = old->bytes[1], sound.codec_byte = old->bytes[2], rate_index = old->bytes[3];
    }
    sound.codec = AudioCodecOf(sound.codec_byte);
    sound.channels = std::max<uint32_t>(channels, 1);
    const bool wide = sound.codec == MX_AUDIO_PCM16 || sound.codec == MX_AUDIO_AAC || sound.codec == MX_AUDIO_MPEG;
    sound.bits_per_sample = wide ? 16 : 8;
    sound.samples_per_sec = OvxReader::SampleRate(rate_index);
    return sound;
}

uint32_t SubTypeOf(const OvxReader::Piece& unit) {
    switch (unit.head.kind) {
        case OvxReader::kKindI:
        case OvxReader::kKindJpeg:
            return MX_SUB_I;
        case OvxReader::kKindP:
            return MX_SUB_P;
        case OvxReader::kKindB:
            return MX_SUB_B;
        default:
            return MX_SUB_OTHER;
    }
}

}  // namespace Orvane::Muxora::Tools
