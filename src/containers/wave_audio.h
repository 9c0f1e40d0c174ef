// The audio that AVI and ASF take alike: both describe it by a WAVEFORMATEX.
#pragma once

#include <cstdint>

#include "MuxoraAPI.h"
#include "codec/wave_tag.h"

namespace Orvane::Muxora {

inline bool IsG711(uint16_t tag) {
    return tag == kWaveTagAlaw || tag == kWaveTagMulaw;
}

// What both accept, and what both advertise, by MXAudioCodec and by public number.
inline bool IsWaveAudio(uint32_t encode_type) {
    return encode_type == MX_AUDIO_ALAW || encode_type == MX_AUDIO_MULAW || encode_type == MX_AUDIO_AAC ||
           encode_type == MX_AUDIO_PCM16 || encode_type == MX_AUDIO_MULAW_ALT;
}
inline constexpr MXCapacityEntry kWaveEncodeAudio[] = {{MX_AUDIO_ALAW, 0, 0, 0, {}},
                                                       {MX_AUDIO_MULAW, 0, 0, 0, {}},
                                                       {MX_AUDIO_AAC, 0, 0, 0, {}},
                                                       {MX_AUDIO_PCM16, 0, 0, 0, {}},
                                                       {MX_AUDIO_MULAW_ALT, 0, 0, 0, {}}};
inline constexpr MXCapacityEntry kWaveCodecAudio[] = {
    {28, 0, 0, 0, {}}, {31, 0, 0, 0, {}}, {33, 0, 0, 0, {}}, {30, 0, 0, 0, {}}, {24, 0, 0, 0, {}}};

// nBlockAlign, in the 16 bits that it has.
inline uint16_t WaveBlockAlign(uint16_t tag, uint32_t channels, uint32_t bits_per_sample) {
    constexpr uint32_t kAacBytesPerChannel = 768;
    if (tag == kWaveTagAac) return static_cast<uint16_t>(channels * kAacBytesPerChannel);
    if (IsG711(tag)) return static_cast<uint16_t>(channels);
    return static_cast<uint16_t>(bits_per_sample / 8 * channels);
}

}  // namespace Orvane::Muxora
