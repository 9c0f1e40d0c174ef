// The two records that travel down the box tree.
#pragma once

#include <cstdint>
#include <variant>

namespace Orvane::Muxora {

enum TrackType : uint32_t { kVideoTrack = 1, kAudioTrack = 2, kExtTrack = 3 };

// What opens a video track: its first key frame, which also holds the parameter sets.
struct VideoTrackInfo {
    const uint8_t* data = nullptr;
    uint32_t length = 0;
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t frame_rate = 0;  // never 0
    uint32_t encode_type = 0;
};

struct AudioTrackInfo {
    uint32_t encode_type = 0;
    uint32_t channels = 0;
    uint32_t bits_per_sample = 0;
    uint32_t samples_per_sec = 0;
};

// std::get_if picks the one that a box understands; it gives null for a null record, too.
using TrackInfo = std::variant<VideoTrackInfo, AudioTrackInfo>;

// One sample. CBox_trak narrows `data` and `length` to what the file is to hold.
struct SampleInfo {
    const uint8_t* data = nullptr;
    uint32_t length = 0;
    uint32_t frame_sub_type = 0;
    uint32_t frame_rate = 0;  // 0: as the sample before
    uint64_t offset = 0;      // of the sample's first byte in the file
};

}  // namespace Orvane::Muxora
