// What an OVX unit holds, as a reader sees it. All integers of the format are little-endian.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace Orvane::OvxReader {

using ByteSpan = std::span<const uint8_t>;

constexpr size_t kHeadSize = 24;
constexpr size_t kTailSize = 8;
constexpr size_t kFullExtensionSize = 256;  // does not fit into its length byte, which then says 0

// The kind byte of the head.
enum FrameKind : uint8_t {
    kKindOther = 0,  // video of a kind that has no byte of its own
    kKindAudio = 240,
    kKindJpeg = 251,
    kKindP = 252,
    kKindI = 253,
    kKindB = 254,
};

struct Head {
    uint8_t kind = 0;
    uint8_t sub_kind = 0;
    uint8_t channel = 0;
    uint8_t sub_channel = 0;
    uint32_t sequence = 0;
    uint32_t length = 0;  // of the whole unit
    uint32_t date = 0;    // packed; see Date
    uint16_t timestamp = 0;
    uint8_t extension_length = 0;

    bool IsAudio() const { return kind == kKindAudio; }
};

// The calendar time of the head's 32 bits.
struct Date {
    uint32_t year;
    uint32_t month;
    uint32_t day;
    uint32_t hour;
    uint32_t minute;
    uint32_t second;

    explicit Date(uint32_t packed)
        : year(2000 + (packed >> 26)),
          month(packed >> 22 & 0xF),
          day(packed >> 17 & 0x1F),
          hour(packed >> 12 & 0x1F),
          minute(packed >> 6 & 0x3F),
          second(packed & 0x3F) {}
};

inline uint16_t Load16(const uint8_t* p) {
    return static_cast<uint16_t>(p[0] | p[1] << 8);
}

inline uint32_t Load32(const uint8_t* p) {
    return Load16(p) | static_cast<uint32_t>(Load16(p + 2)) << 16;
}

}  // namespace Orvane::OvxReader
