#include "codec/audio_frames.h"

#include <algorithm>
#include <span>

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kRawAacSamples = 1024;
constexpr uint32_t kDefaultSpeechRate = 8000;
constexpr uint32_t kDefaultRate = 48000;

void MeasureAac(std::span<const uint8_t> data, AudioMeasure& measure) {
    if (!measure.adts) {
        measure.samples = kRawAacSamples;
        return;
    }
    measure.sample_rate = measure.adts->sample_rate;
    measure.channels = measure.adts->channel_configuration;
    measure.samples = measure.adts->samples;
    data = data.subspan(measure.adts->frame_size);
    while (const auto next = ReadAdtsHeader(data)) {
        measure.samples += next->samples;
        data = data.subspan(next->frame_size);
    }
}

void MeasureMpegAudio(std::span<const uint8_t> data, AudioMeasure& measure) {
    auto header = ReadMpegAudioHeader(data);
    if (!header) return;
    measure.sample_rate = header->sample_rate;
    measure.channels = header->channels;
    for (; header; header = ReadMpegAudioHeader(data)) {
        measure.samples += header->samples;
        data = data.subspan(std::min(std::max<size_t>(header->frame_size, 4), data.size()));
    }
}

}  // namespace

AudioMeasure MeasureAudio(const MXFrameInfo& frame) {
    const std::span data(static_cast<const uint8_t*>(frame.frame_pointer), frame.frame_size);
    // Read into its place: a copy would wait for bytes that were only just written.
    AudioMeasure measure{0, frame.samples_per_sec, frame.channels,
                         frame.encode_type == MX_AUDIO_AAC ? ReadAdtsHeader(data) : std::optional<AdtsHeader>()};
    switch (frame.encode_type) {
        case MX_AUDIO_AAC:
            MeasureAac(data, measure);
            break;
        case MX_AUDIO_MPEG:
            MeasureMpegAudio(data, measure);
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

}  // namespace Orvane::Muxora
