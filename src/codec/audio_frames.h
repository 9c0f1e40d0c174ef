// Audio frames taken apart: the headers that AAC and MPEG audio carry, and how many samples a frame holds. All are safe
// on any bytes.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "MuxoraAPI.h"

namespace Orvane::Muxora {

// The header of an ADTS frame (ISO/IEC 14496-3 1.A.2.2).
struct AdtsHeader {
    uint8_t object_type = 2;       // MPEG-4 audio object type: the profile plus 1
    uint8_t sampling_index = 4;    // samplingFrequencyIndex
    uint8_t channels = 2;          // channel_configuration
    uint32_t sample_rate = 44100;  // of that index
    uint32_t header_size = 7;      // 9 with a CRC
    uint32_t frame_length = 0;     // header included; not longer than what is there
    uint32_t samples = 1024;
};

// The header at `data`; none if it is not one or if its frame is cut off.
std::optional<AdtsHeader> ReadAdtsHeader(const uint8_t* data, uint32_t length);

// What a decoder is told of AAC: AudioSpecificConfig (ISO/IEC 14496-3 1.6.2.1), two bytes.
std::array<uint8_t, 2> AudioSpecificConfig(const AdtsHeader& header);

// samplingFrequencyIndex of a rate; 15 if it has none.
uint8_t SamplingFrequencyIndex(uint32_t sample_rate);

// The header of an MPEG audio frame (ISO/IEC 11172-3 2.4.2.3, 13818-3, and the lower rates of "2.5").
struct MpegAudioHeader {
    uint8_t layer = 2;  // 1 to 3
    bool mpeg1 = true;  // else the lower sampling frequencies
    uint8_t channels = 2;
    uint32_t sample_rate = 48000;
    uint32_t frame_length = 0;  // in bytes; may reach behind what is there
    uint32_t samples = 1152;
};
std::optional<MpegAudioHeader> ReadMpegAudioHeader(const uint8_t* data, uint32_t length);

// How much sound a frame holds.
struct AudioMeasure {
    uint32_t samples = 0;      // a channel; 0: not known
    uint32_t sample_rate = 0;  // from the frame's own header where it has one; never 0 once measured
    uint32_t channels = 0;     // likewise
};
AudioMeasure MeasureAudio(const MXFrameInfo& frame);

}  // namespace Orvane::Muxora
