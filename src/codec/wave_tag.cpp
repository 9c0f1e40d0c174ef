#include "codec/wave_tag.h"

#include "MuxoraAPI.h"

namespace Orvane::Muxora {

uint16_t WaveFormatTag(uint32_t encode_type) {
    switch (encode_type) {
        case MX_AUDIO_STREAM_TYPE_99:
            return 68;
        case MX_AUDIO_MULAW_ALT:
        case MX_AUDIO_MULAW:
            return kWaveTagMulaw;
        case MX_AUDIO_WAVE_TAG_64:
            return 64;
        case MX_AUDIO_WAVE_TAG_2:
            return 2;
        case MX_AUDIO_ALAW:
            return kWaveTagAlaw;
        case MX_AUDIO_WAVE_TAG_4201:
            return 0x4201;
        case MX_AUDIO_PCM16:
            return kWaveTagPcm;
        case MX_AUDIO_WAVE_TAG_20:
            return 20;
        case MX_AUDIO_AAC:
            return kWaveTagAac;
        default:
            return 0;
    }
}

}  // namespace Orvane::Muxora
