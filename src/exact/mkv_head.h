// The head of a Matroska file with exact times (RFC 9559): everything ahead of the first cluster. It has one size from
// beginning to end, so that the end can complete it in place; until then it is the head of a stream.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "codec/sps_details.h"

namespace Orvane::Muxora {

struct MkvTrack {
    std::string_view codec_id;  // a literal
    std::vector<uint8_t> codec_private;
    uint64_t default_duration = 0;  // ns; 0: not stated
    uint64_t codec_delay = 0;       // ns
    // Video
    SpsDetails video;
    uint32_t rotation = 0;  // degrees, clockwise
    // Audio
    uint32_t sample_rate = 0;
    uint32_t channels = 0;
    uint32_t bit_depth = 0;
};

// What is known at the end.
struct MkvClosing {
    uint64_t segment_size = 0;
    uint64_t cues_position = 0;  // in the Segment's data; 0: there are none
    double duration = 0;         // in ticks
};

class MkvHead {
  public:
    static constexpr uint32_t kTimestampScale = 200000;  // ns a tick
    static constexpr uint8_t kVideoTrack = 1;
    static constexpr uint8_t kAudioTrack = 2;

    // Writes the head; without `closing` sizes are unknown and the duration is left open.
    static std::vector<uint8_t> Write(const std::optional<MkvTrack>& video, const std::optional<MkvTrack>& audio,
                                      const std::optional<MkvClosing>& closing);
    // Where the Segment's data begin.
    static uint32_t SegmentStart();
};

}  // namespace Orvane::Muxora
