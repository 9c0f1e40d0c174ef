#include "codec/audio_header.h"

#include <algorithm>
#include <iterator>

#include "codec/audio_measures.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kCrcSize = 2;
// samplingFrequencyIndex (ISO/IEC 14496-3 1.6.3.4).
constexpr uint32_t kFrequencies[16] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050,
                                       16000, 12000, 11025, 8000,  7350,  0,     0,     0};
constexpr uint8_t kNoFrequencyIndex = 15;

// bitrate_index in kbit/s: MPEG-1 layer I, II, III; MPEG-2 and 2.5 layer I, layers II and III.
constexpr uint16_t kBitrates[5][16] = {
    {0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448, 0},
    {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384, 0},
    {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 0},
    {0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256, 0},
    {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 0},
};
constexpr uint32_t kMpeg1Rates[4] = {44100, 48000, 32000, 0};

}  // namespace

std::optional<AdtsHeader> ReadAdtsFields(std::span<const uint8_t> data) {
    std::optional<AdtsHeader> found;
    if (data.size() < kAdtsHeaderSize || data[0] != 0xFF || (data[1] & 0xF6) != 0xF0) return found;
    AdtsHeader& header = found.emplace();
    header.header_size = kAdtsHeaderSize + ((data[1] & 1) != 0 ? 0 : kCrcSize);  // protection_absent
    header.frame_size = AdtsFrameLength(data.data());
    header.object_type = static_cast<uint8_t>((data[2] >> 6) + 1);
    header.frequency_index = data[2] >> 2 & 15;
    header.channel_configuration = static_cast<uint8_t>((data[2] & 1) << 2 | data[3] >> 6);
    header.sample_rate = kFrequencies[header.frequency_index];
    header.samples = ((data[6] & 3u) + 1) * kAdtsSamplesPerFrame;  // number_of_raw_data_blocks_in_frame
    if (header.frame_size < header.header_size || header.sample_rate == 0) found.reset();
    return found;
}

std::optional<AdtsHeader> ReadAdtsHeader(std::span<const uint8_t> data) {
    std::optional<AdtsHeader> header = ReadAdtsFields(data);
    if (header && header->frame_size > data.size()) header.reset();
    return header;
}

uint8_t SamplingFrequencyIndex(uint32_t sample_rate) {
    const auto* const place = std::ranges::find(kFrequencies, sample_rate);
    if (sample_rate == 0 || place == std::end(kFrequencies)) return kNoFrequencyIndex;
    return static_cast<uint8_t>(place - std::begin(kFrequencies));
}

std::optional<MpegAudioHeader> ReadMpegAudioHeader(std::span<const uint8_t> data) {
    if (data.size() < 4 || data[0] != 0xFF || (data[1] & 0xE0) != 0xE0) return std::nullopt;
    const uint32_t version = data[1] >> 3 & 3;  // 0: MPEG-2.5, 2: MPEG-2, 3: MPEG-1
    const uint32_t layer_id = data[1] >> 1 & 3;
    if (version == 1 || layer_id == 0) return std::nullopt;
    MpegAudioHeader header;
    header.layer = 4 - layer_id;
    const uint32_t table = version == 3 ? header.layer - 1 : header.layer == 1 ? 3 : 4;
    header.bitrate = kBitrates[table][data[2] >> 4] * 1000u;
    header.sample_rate = kMpeg1Rates[data[2] >> 2 & 3] >> (version == 3 ? 0 : version == 2 ? 1 : 2);
    header.channels = data[3] >> 6 == 3 ? 1 : 2;
    header.samples = MpegAudioSamplesPerFrame(version, layer_id);
    if (header.bitrate == 0 || header.sample_rate == 0) return std::nullopt;
    // In slots, of which Layer I has four bytes (ISO/IEC 11172-3 2.4.3.1).
    const uint32_t slot = header.layer == 1 ? 4 : 1;
    const uint32_t padding = data[2] >> 1 & 1;
    header.frame_size = (header.samples / 8 * header.bitrate / header.sample_rate / slot + padding) * slot;
    return header;
}

}  // namespace Orvane::Muxora
