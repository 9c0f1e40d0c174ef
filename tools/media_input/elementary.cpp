#include "media_input/elementary.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace Orvane::Muxora::Tools {

namespace {

constexpr uint32_t kAdtsRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                   22050, 16000, 12000, 11025, 8000,  7350};
constexpr uint8_t kExplicitRate = 15;
constexpr uint8_t kSbr = 5;
constexpr uint8_t kParametricStereo = 29;
constexpr uint8_t kEscape = 31;

class Bits {
  public:
    explicit Bits(ByteSpan data) : data_(data) {}
    uint32_t Get(unsigned count) {
        uint32_t value = 0;
        while (count-- != 0) {
            const size_t byte = at_ / 8;
            const uint32_t bit = byte < data_.size() ? (data_[byte] >> (7 - at_ % 8)) & 1u : 0u;
            value = value << 1 | bit;
            ++at_;
        }
        return value;
    }
    bool Overrun() const { return at_ > data_.size() * 8; }

  private:
    ByteSpan data_;
    size_t at_ = 0;
};

uint8_t ObjectType(Bits& bits) {
    const auto type = static_cast<uint8_t>(bits.Get(5));
    return type == kEscape ? static_cast<uint8_t>(32 + bits.Get(6)) : type;
}

// An explicit rate counts when it is one of the indexed ones.
uint8_t RateIndex(Bits& bits) {
    const auto index = static_cast<uint8_t>(bits.Get(4));
    if (index != kExplicitRate) return index;
    const auto* found = std::find(std::begin(kAdtsRates), std::end(kAdtsRates), bits.Get(24));
    return static_cast<uint8_t>(found - std::begin(kAdtsRates));
}

void AppendS16(int32_t sample, std::vector<uint8_t>& out) {
    out.push_back(static_cast<uint8_t>(sample & 0xFF));
    out.push_back(static_cast<uint8_t>((sample >> 8) & 0xFF));
}

int32_t FromFloat(const uint8_t* p) {
    const uint32_t word = static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
                          static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
    const auto value = std::bit_cast<float>(word);
    if (std::isnan(value)) return 0;
    return static_cast<int32_t>(std::lround(std::clamp(value * 32768.0F, -32768.0F, 32767.0F)));
}

}  // namespace

uint32_t AdtsConfig::Rate() const {
    return rate_index < std::size(kAdtsRates) ? kAdtsRates[rate_index] : 0;
}

std::array<uint8_t, 7> AdtsConfig::Header(size_t payload_size) const {
    const auto size = static_cast<uint32_t>(payload_size + 7);
    return {0xFF,
            0xF1,
            static_cast<uint8_t>((object_type - 1) << 6 | rate_index << 2 | channel_config >> 2),
            static_cast<uint8_t>((channel_config & 3u) << 6 | (size >> 11 & 3u)),
            static_cast<uint8_t>(size >> 3 & 0xFF),
            static_cast<uint8_t>((size & 7) << 5 | 0x1F),
            0xFC};
}

std::optional<AdtsConfig> AdtsFromSpecificConfig(ByteSpan config, std::string& why) {
    Bits bits(config);
    AdtsConfig adts;
    adts.object_type = ObjectType(bits);
    adts.rate_index = RateIndex(bits);
    adts.channel_config = static_cast<uint8_t>(bits.Get(4));
    if (adts.object_type == kSbr || adts.object_type == kParametricStereo) {
        adts.extended = true;
        RateIndex(bits);  // the extension's rate: decoders find SBR by themselves
        adts.object_type = ObjectType(bits);
    }
    if (bits.Overrun()) {
        why = "its AudioSpecificConfig is cut short";
    } else if (adts.object_type < 1 || adts.object_type > 4) {
        why = "ADTS has no number for AAC object type " + std::to_string(adts.object_type);
    } else if (adts.Rate() == 0) {
        why = "ADTS has no number for its sample rate";
    } else if (adts.channel_config == 0 || adts.channel_config > 7) {
        why = "its channels are laid out by a program config element";
    } else {
        return adts;
    }
    return std::nullopt;
}

std::optional<ByteSpan> AdtsPayload(ByteSpan frame, AdtsConfig& config) {
    if (frame.size() < 7 || frame[0] != 0xFF || (frame[1] & 0xF6) != 0xF0) return std::nullopt;
    const size_t header = (frame[1] & 1) != 0 ? 7 : 9;
    const size_t length = static_cast<size_t>(frame[3] & 3) << 11 | static_cast<size_t>(frame[4]) << 3 | frame[5] >> 5;
    if (length < header || length > frame.size()) return std::nullopt;
    config.object_type = static_cast<uint8_t>((frame[2] >> 6) + 1);
    config.rate_index = frame[2] >> 2 & 15;
    config.channel_config = static_cast<uint8_t>((frame[2] & 1) << 2 | frame[3] >> 6);
    return frame.subspan(header, length - header);
}

size_t BytesPerSample(PcmForm form) {
    switch (form) {
        case PcmForm::kS16Le:
        case PcmForm::kS16Be:
            return 2;
        case PcmForm::kS24Le:
            return 3;
        case PcmForm::kS32Le:
        case PcmForm::kF32Le:
            return 4;
    }
    return 2;
}

void AppendAsS16Le(PcmForm form, ByteSpan samples, std::vector<uint8_t>& out) {
    const size_t step = BytesPerSample(form);
    if (form == PcmForm::kS16Le) {
        out.insert(out.end(), samples.begin(), samples.end());
        return;
    }
    for (size_t at = 0; at + step <= samples.size(); at += step) {
        const uint8_t* p = samples.data() + at;
        switch (form) {
            case PcmForm::kS16Be:
                AppendS16(p[0] << 8 | p[1], out);
                break;
            case PcmForm::kF32Le:
                AppendS16(FromFloat(p), out);
                break;
            default:  // the two upper bytes of a little-endian integer
                AppendS16(p[step - 1] << 8 | p[step - 2], out);
                break;
        }
    }
}

}  // namespace Orvane::Muxora::Tools
