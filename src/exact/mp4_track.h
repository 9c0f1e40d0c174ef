// What MP4 is told of a track: how its samples are coded, and where its time begins.
#pragma once

#include <cstdint>
#include <vector>

#include "codec/sps_details.h"

namespace Orvane::Muxora {

constexpr uint32_t kMp4VideoTrack = 1;  // track_ID
constexpr uint32_t kMp4AudioTrack = 2;

// One sample entry. Two that are equal need one entry only.
struct Mp4Entry {
    uint32_t encode_type = 0;     // MXVideoCodec or MXAudioCodec
    std::vector<uint8_t> config;  // avcC, hvcC, or what the decoder is told inside esds
    // Video
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t sar_width = 1;
    uint32_t sar_height = 1;
    bool has_colour = false;
    bool full_range = false;
    uint8_t colour_primaries = 2;
    uint8_t transfer_characteristics = 2;
    uint8_t matrix_coefficients = 2;
    // Audio
    uint32_t sample_rate = 0;
    uint32_t channels = 0;
    uint32_t bits_per_sample = 16;
    // The whole box, of an entry that was read from a file; of the rest only the size counts then.
    std::vector<uint8_t> box;

    bool operator==(const Mp4Entry&) const = default;
};

struct Mp4Track {
    bool present = false;
    bool video = false;
    uint32_t time_scale = 1;
    uint32_t rotation = 0;  // degrees clockwise
    std::vector<Mp4Entry> entries;
    uint32_t entry = 0;  // the one in force

    // The media's time is the clock's and this: media times are not negative. The edit list takes it off again.
    int64_t edit_shift = 0;
    uint32_t Id() const { return video ? kMp4VideoTrack : kMp4AudioTrack; }
};

}  // namespace Orvane::Muxora
