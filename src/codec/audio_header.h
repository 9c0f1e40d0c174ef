// Headers of compressed audio frames, read field by field, and what decoders are told from them.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

namespace Orvane::Muxora {

// The samples of an ADTS frame with one raw data block: no frame has fewer.
inline constexpr uint32_t kLeastAdtsSamples = 1024;

// An ADTS header (ISO/IEC 13818-7 6.2, ISO/IEC 14496-3 1.A.2.2).
struct AdtsHeader {
    uint32_t header_size = 0;  // 7 bytes, 9 with a CRC
    uint32_t frame_size = 0;   // header included
    uint8_t object_type = 0;   // audio object type of ISO/IEC 14496-3: the profile plus 1
    uint8_t frequency_index = 0;
    uint8_t channel_configuration = 0;
    uint32_t sample_rate = 0;  // of the core coder
    uint32_t samples = 0;      // 1024 for each raw data block

    // AudioSpecificConfig (ISO/IEC 14496-3 1.6.2.1): object type, frequency index, channel configuration.
    uint16_t AudioSpecificConfig() const {
        return static_cast<uint16_t>(object_type << 11 | frequency_index << 7 | channel_configuration << 3);
    }
    bool operator==(const AdtsHeader&) const = default;
};

// The header at the beginning of `data`, its first 7 bytes; nothing unless it is one. ReadAdtsHeader wants the whole of
// its frame to be there as well.
std::optional<AdtsHeader> ReadAdtsFields(std::span<const uint8_t> data);
std::optional<AdtsHeader> ReadAdtsHeader(std::span<const uint8_t> data);

// samplingFrequencyIndex of a rate (ISO/IEC 14496-3 1.6.3.4); 15 if it has none.
uint8_t SamplingFrequencyIndex(uint32_t sample_rate);

// An MPEG audio header (ISO/IEC 11172-3 2.4.1.3, 13818-3).
struct MpegAudioHeader {
    uint32_t layer = 0;       // 1 to 3
    uint32_t frame_size = 0;  // bytes, header included
    uint32_t sample_rate = 0;
    uint32_t channels = 0;
    uint32_t samples = 0;
    uint32_t bitrate = 0;  // bits a second
};

// The header at the beginning of `data`; nothing unless it is one with a stated bit rate.
std::optional<MpegAudioHeader> ReadMpegAudioHeader(std::span<const uint8_t> data);

}  // namespace Orvane::Muxora
