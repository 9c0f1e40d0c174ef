#include "codec/audio_frames.h"

#include <algorithm>
#include <iterator>
#include <span>

#include "codec/audio_header.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kSamplingFrequencies[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                             22050, 16000, 12000, 11025, 8000,  7350};
constexpr uint32_t kRawAacSamples = 1024;
constexpr uint32_t kDefaultSpeechRate = 8000;
constexpr uint32_t kDefaultRate = 48000;

// ISO/IEC 11172-3 2.4.3.1: a slot has four bytes in layer I, one in the others.
size_t MpegAudioFrameSize(const MpegAudioHeader& header, uint8_t third_byte) {
    const size_t slot = header.layer == 1 ? 4 : 1;
    const size_t padding = third_byte >> 1 & 1;
    return (header.samples / 8 * size_t{header.bitrate} / header.sample_rate / slot + padding) * slot;
}

AudioMeasure MeasureAac(std::span<const uint8_t> data, AudioMeasure measure) {
    auto header = ReadAdtsHeader(data);
    if (!header) {
        measure.samples = kRawAacSamples;
        return measure;
    }
    measure = {0, header->sample_rate, header->channel_configuration};
    for (; header; header = ReadAdtsHeader(data)) {
        measure.samples += header->samples;
        data = data.subspan(header->frame_size);
    }
    return measure;
}

AudioMeasure MeasureMpegAudio(std::span<const uint8_t> data, AudioMeasure measure) {
    auto header = ReadMpegAudioHeader(data);
    if (!header) return measure;
    measure = {0, header->sample_rate, header->channels};
    for (; header; header = ReadMpegAudioHeader(data)) {
        measure.samples += header->samples;
        data = data.subspan(std::min(std::max<size_t>(MpegAudioFrameSize(*header, data[2]), 4), data.size()));
    }
    return measure;
}

}  // namespace

AudioMeasure MeasureAudio(const MXFrameInfo& frame) {
    const std::span data(static_cast<const uint8_t*>(frame.frame_pointer), frame.frame_size);
    AudioMeasure measure{0, frame.samples_per_sec, frame.channels};
    switch (frame.encode_type) {
        case MX_AUDIO_AAC:
            measure = MeasureAac(data, measure);
            break;
        case MX_AUDIO_MPEG:
            measure = MeasureMpegAudio(data, measure);
            break;
        case MX_AUDIO_PCM16:
        case MX_AUDIO_PCM8:
        case MX_AUDIO_ALAW:
        case MX_AUDIO_MULAW:
        case MX_AUDIO_MULAW_ALT: {
            if (measure.sample_rate == 0) measure.sample_rate = kDefaultSpeechRate;
            if (measure.channels == 0) measure.channels = 1;
            const uint64_t sample_size = frame.encode_type == MX_AUDIO_PCM16 ? 2 : 1;
            measure.samples = static_cast<uint32_t>(frame.frame_size / (sample_size * measure.channels));
            break;
        }
        default:
            break;
    }
    if (measure.sample_rate == 0) measure.sample_rate = kDefaultRate;
    if (measure.channels == 0) measure.channels = 1;
    return measure;
}

uint8_t SamplingFrequencyIndex(uint32_t sample_rate) {
    const auto* const row = std::ranges::find(kSamplingFrequencies, sample_rate);
    return row != std::end(kSamplingFrequencies) ? static_cast<uint8_t>(row - std::begin(kSamplingFrequencies)) : 15;
}

}  // namespace Orvane::Muxora
