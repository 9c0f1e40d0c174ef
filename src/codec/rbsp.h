// The payload of an H.264 or H.265 NAL unit without its emulation prevention bytes.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>

#include "codec/bit_reader.h"

namespace Orvane::Muxora {

constexpr uint32_t kRbspCapacity = 1024;

// The first kRbspCapacity bytes of what is given, unescaped (ITU-T H.264 7.3.1, H.265 7.3.1.1). Holds a copy.
class Rbsp {
  public:
    explicit Rbsp(std::span<const uint8_t> nal) {
        uint32_t zeros = 0;
        for (const uint8_t byte : nal) {
            if (size_ == kRbspCapacity) break;
            if (zeros >= 2 && byte == 3) {
                zeros = 0;
                continue;
            }
            zeros = byte == 0 ? zeros + 1 : 0;
            bytes_[size_++] = byte;
        }
        bits_.Init(bytes_.data(), size_);
    }
    Rbsp(const Rbsp&) = delete;
    Rbsp& operator=(const Rbsp&) = delete;

    CBitReader& Bits() { return bits_; }
    std::span<const uint8_t> Bytes() const { return {bytes_.data(), size_}; }

  private:
    std::array<uint8_t, kRbspCapacity> bytes_;
    uint32_t size_ = 0;
    CBitReader bits_;
};

// The payload of the first message of a type among SEI messages (ITU-T H.264 7.3.2.3.1, H.265 7.3.5); what is cut off
// is not given. `messages` stands behind the NAL unit header.
std::optional<std::span<const uint8_t>> FindSeiMessage(std::span<const uint8_t> messages, uint32_t type);

}  // namespace Orvane::Muxora
