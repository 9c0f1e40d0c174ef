#include "codec/audio_frames.h"

#include <algorithm>
#include <iterator>

#include "codec/audio_measures.h"

namespace Orvane::Muxora {

namespace {

// ISO/IEC 14496-3 1.6.3.4.
constexpr uint32_t kSamplingFrequencies[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                             22050, 16000, 12000, 11025, 8000,  7350};
constexpr uint32_t kAdtsHeaderWithCrc = 9;
constexpr uint32_t kRawBlockSamples = 1024;

constexpr uint32_t kMpegAudioHeaderSize = 4;
// kbit/s by bitrate index: layers I, II, III of MPEG-1, then layer I and layers II and III of the lower frequencies.
constexpr uint16_t kBitrates[5][16] = {
    {0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448, 0},
    {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384, 0},
    {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 0},
    {0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256, 0},
    {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 0},
};
constexpr uint32_t kMpeg1Rates[] = {44100, 48000, 32000};

constexpr uint32_t kDefaultSpeechRate = 8000;
constexpr uint32_t kDefaultRate = 48000;

uint32_t BytesPerSample(const MXFrameInfo& frame) {
    return frame.encode_type == MX_AUDIO_PCM16 ? 2 : 1;
}

// All ADTS frames of one input.
uint32_t CountAacSamples(const uint8_t* data, uint32_t length) {
    uint32_t samples = 0;
    while (const auto header = ReadAdtsHeader(data, length)) {
        samples += header->samples;
        data += header->frame_length;
        length -= header->frame_length;
    }
    return samples;
}

uint32_t CountMpegAudioSamples(const uint8_t* data, uint32_t length) {
    uint32_t samples = 0;
    while (const auto header = ReadMpegAudioHeader(data, length)) {
        samples += header->samples;
        if (header->frame_length >= length) break;
        data += header->frame_length;
        length -= header->frame_length;
    }
    return samples;
}

}  // namespace

std::optional<AdtsHeader> ReadAdtsHeader(const uint8_t* data, uint32_t length) {
    // syncword, layer 0
    if (data == nullptr || length < kAdtsHeaderSize || data[0] != 0xFF || (data[1] & 0xF6) != 0xF0) return std::nullopt;
    AdtsHeader header;
    header.object_type = static_cast<uint8_t>((data[2] >> 6) + 1);
    header.sampling_index = data[2] >> 2 & 15;
    header.channels = static_cast<uint8_t>((data[2] & 1) << 2 | data[3] >> 6);
    header.header_size = (data[1] & 1) != 0 ? kAdtsHeaderSize : kAdtsHeaderWithCrc;
    header.frame_length = AdtsFrameLength(data);
    if (header.sampling_index >= std::size(kSamplingFrequencies)) return std::nullopt;
    if (header.frame_length < header.header_size || header.frame_length > length) return std::nullopt;
    header.sample_rate = kSamplingFrequencies[header.sampling_index];
    header.samples = kRawBlockSamples * ((data[6] & 3u) + 1);  // number_of_raw_data_blocks_in_frame
    return header;
}

std::array<uint8_t, 2> AudioSpecificConfig(const AdtsHeader& header) {
    // audioObjectType (5), samplingFrequencyIndex (4), channelConfiguration (4), frameLengthFlag, dependsOnCoreCoder,
    // extensionFlag
    const uint32_t config = header.object_type << 11 | header.sampling_index << 7 | header.channels << 3;
    return {static_cast<uint8_t>(config >> 8), static_cast<uint8_t>(config)};
}

uint8_t SamplingFrequencyIndex(uint32_t sample_rate) {
    const auto* const row = std::ranges::find(kSamplingFrequencies, sample_rate);
    return row != std::end(kSamplingFrequencies) ? static_cast<uint8_t>(row - std::begin(kSamplingFrequencies)) : 15;
}

std::optional<MpegAudioHeader> ReadMpegAudioHeader(const uint8_t* data, uint32_t length) {
    if (data == nullptr || length < kMpegAudioHeaderSize || data[0] != 0xFF || (data[1] & 0xE0) != 0xE0) {
        return std::nullopt;
    }
    const uint32_t version = data[1] >> 3 & 3;  // 3: MPEG-1, 2: MPEG-2, 0: "2.5"
    const uint32_t layer_bits = data[1] >> 1 & 3;
    const uint32_t bitrate_index = data[2] >> 4;
    const uint32_t rate_index = data[2] >> 2 & 3;
    if (version == 1 || layer_bits == 0 || rate_index == 3) return std::nullopt;

    MpegAudioHeader header;
    header.layer = static_cast<uint8_t>(4 - layer_bits);
    header.mpeg1 = version == 3;
    header.sample_rate = kMpeg1Rates[rate_index] >> (version == 3 ? 0 : version == 2 ? 1 : 2);
    header.channels = data[3] >> 6 == 3 ? 1 : 2;
    header.samples = header.layer == 1 ? 384 : header.layer == 3 && !header.mpeg1 ? 576 : 1152;
    const uint32_t row = header.mpeg1 ? header.layer - 1u : header.layer == 1 ? 3u : 4u;
    const uint32_t bitrate = kBitrates[row][bitrate_index] * 1000u;
    if (bitrate == 0) return std::nullopt;  // free format has no length of its own
    const uint32_t padding = data[2] >> 1 & 1;
    header.frame_length = header.layer == 1 ? (12 * bitrate / header.sample_rate + padding) * 4
                                            : header.samples / 8 * bitrate / header.sample_rate + padding;
    return header;
}

AudioMeasure MeasureAudio(const MXFrameInfo& frame) {
    const auto* const data = static_cast<const uint8_t*>(frame.frame_pointer);
    const uint32_t length = frame.frame_size;
    AudioMeasure measure{0, frame.samples_per_sec, frame.channels};
    switch (frame.encode_type) {
        case MX_AUDIO_AAC:
            if (const auto header = ReadAdtsHeader(data, length)) {
                measure = {CountAacSamples(data, length), header->sample_rate, header->channels};
            } else {
                measure.samples = kRawBlockSamples;
            }
            break;
        case MX_AUDIO_MPEG:
            if (const auto header = ReadMpegAudioHeader(data, length)) {
                measure = {CountMpegAudioSamples(data, length), header->sample_rate, header->channels};
            }
            break;
        case MX_AUDIO_PCM16:
        case MX_AUDIO_PCM8:
        case MX_AUDIO_ALAW:
        case MX_AUDIO_MULAW:
        case MX_AUDIO_MULAW_ALT:
            if (measure.sample_rate == 0) measure.sample_rate = kDefaultSpeechRate;
            if (measure.channels == 0) measure.channels = 1;
            measure.samples = static_cast<uint32_t>(length / (uint64_t{BytesPerSample(frame)} * measure.channels));
            break;
        default:
            break;
    }
    if (measure.sample_rate == 0) measure.sample_rate = kDefaultRate;
    if (measure.channels == 0) measure.channels = 1;
    return measure;
}

}  // namespace Orvane::Muxora
