#include "codec/audio_measures.h"

namespace Orvane::Muxora {

namespace {

// The bytes of a header; those behind the end of the data read as 0.
class PaddedBytes {
  public:
    PaddedBytes(const uint8_t* data, uint32_t length) : data_(data), length_(length) {}
    uint8_t operator[](uint64_t index) const { return index < length_ ? data_[index] : uint8_t{0}; }

  private:
    const uint8_t* data_;
    uint32_t length_;
};

// What the counter makes of the two header fields. Unlisted values keep what the header before gave.
constexpr uint32_t kVersion1 = 1;
constexpr uint32_t kVersion2 = 2;
constexpr uint32_t kVersion25 = 25;
constexpr uint32_t kLayer2 = 2;

// ISO/IEC 11172-3 2.4.2.3 and ISO/IEC 13818-3 2.4.2.3, Layer II, by bitrate index.
constexpr uint32_t kBitratesVersion1[] = {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384, 0};
constexpr uint32_t kBitratesVersion2[] = {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 0};

}  // namespace

double GetAudioFrameDuration(const MXFrameInfo& frame) {
    const uint32_t rate = frame.samples_per_sec;
    if (rate == 0) return 0;
    const auto* const data = static_cast<const uint8_t*>(frame.frame_pointer);
    const uint32_t length = frame.frame_size;
    // The products are of 32 bits and wrap; only the division is done in doubles.
    switch (frame.encode_type) {
        case MX_AUDIO_MPEG: {
            uint32_t version = 0;
            uint32_t layer = 0;
            const uint32_t frames = CountMpegAudioFrames(data, length, rate, &version, &layer);
            return static_cast<double>(frames * MpegAudioSamplesPerFrame(version, layer) * 1000u) / rate;
        }
        case MX_AUDIO_AAC:
            return static_cast<double>(CountAdtsFrames(data, length) * kAdtsSamplesPerFrame * 1000u) / rate;
        case MX_AUDIO_PCM16:
            return static_cast<double>(length * 1000u) / (2.0 * rate);
        case MX_AUDIO_ALAW:
        case MX_AUDIO_MULAW:
        case MX_AUDIO_PCM8:
            return static_cast<double>(length * 1000u) / rate;
        default:
            return 0;
    }
}

std::span<const uint8_t> AdtsPayload(const uint8_t* data, uint32_t length) {
    if (length < kAdtsHeaderSize || data[0] != 0xFF || (data[1] & 0xF1) != 0xF1) return {};
    const uint32_t frame_length = AdtsFrameLength(data);
    if (frame_length < kAdtsHeaderSize || frame_length > length) return {};
    return {data + kAdtsHeaderSize, frame_length - kAdtsHeaderSize};
}

uint32_t CountAdtsFrames(const uint8_t* data, uint32_t length) {
    if (data == nullptr) return 0;
    const PaddedBytes bytes(data, length);
    uint32_t frames = 0;
    for (uint64_t i = 0; i < length;) {
        uint32_t step = 1;
        if (bytes[i] == 0xFF && bytes[i + 1] == 0xF1) {
            const uint8_t header[] = {0xFF, 0xF1, bytes[i + 2], bytes[i + 3], bytes[i + 4], bytes[i + 5]};
            const uint32_t stated = AdtsFrameLength(header);
            const bool cut_off = i + 6 > length;
            if (stated != 0 || cut_off) ++frames;
            if (stated != 0) step = stated;
        }
        i += step;
    }
    return frames;
}

uint32_t CountMpegAudioFrames(const uint8_t* data, uint32_t length, uint32_t sample_rate, uint32_t* nVersionID,
                              uint32_t* nLayerID) {
    if (data == nullptr || length == 0 || sample_rate == 0) return 0;
    const PaddedBytes bytes(data, length);
    uint32_t frames = 0;
    uint32_t version_class = 0;
    uint32_t layer_class = 0;
    uint64_t i = 0;
    while (i <= length) {
        const uint64_t at = i++;
        const uint32_t b1 = bytes[at + 1];
        if (bytes[at] != 0xFF || (b1 & 0xE0) != 0xE0) continue;
        // Readers rely on this: the padding bit is taken from the second header byte and not from the third.
        const uint32_t padding = (b1 & 2) >> 1;

        *nVersionID = (b1 & 0x18) >> 3;
        if (*nVersionID == 0) version_class = kVersion25;
        if (*nVersionID == 2) version_class = kVersion2;
        if (*nVersionID == 3) version_class = kVersion1;
        if (version_class == kVersion25 || version_class == 0) continue;

        *nLayerID = (b1 & 6) >> 1;
        if (*nLayerID != 0) layer_class = 4 - *nLayerID;
        if (layer_class != kLayer2) continue;

        const uint32_t kbps = MpegAudioBitrate(version_class, kLayer2, bytes[at + 2] >> 4u);
        if (kbps == 0) continue;
        const uint32_t scale = version_class == kVersion1 ? 144000 : 72000;
        const uint32_t frame_length = scale * kbps / sample_rate + padding;
        ++frames;
        // An absurd sample rate gives a length of 0: the scan moves on by one byte all the same.
        if (frame_length != 0) i = at + frame_length;
    }
    return frames;
}

uint32_t MpegAudioSamplesPerFrame(uint32_t nVersionID, uint32_t nLayerID) {
    const bool known = nVersionID == 0 || nVersionID == 2 || nVersionID == 3;
    if (!known) return 0;
    switch (nLayerID) {
        case 3:
            return 384;
        case 2:
            return 1152;
        case 1:
            return nVersionID == 3 ? 1152 : 576;
        default:
            return 0;
    }
}

uint32_t MpegAudioBitrate(uint32_t version_class, uint32_t layer_class, uint32_t bitrate_index) {
    if (layer_class != kLayer2 || bitrate_index > 15) return 0;
    if (version_class == kVersion1) return kBitratesVersion1[bitrate_index];
    if (version_class == kVersion2) return kBitratesVersion2[bitrate_index];
    return 0;
}

}  // namespace Orvane::Muxora
