// Movie fragments as this library writes them, read back.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "exact/mp4_fragment.h"
#include "exact/mp4_track.h"

namespace Orvane::Muxora {

// What a moof says of one track.
struct FragmentRun {
    bool video = false;
    uint32_t description = 1;
    std::vector<Mp4Sample> samples;  // one at least
};

struct FragmentHead {
    std::vector<FragmentRun> runs;  // of different tracks, pictures first, one at least
    uint64_t media_size = 0;        // of all samples, which follow the head of the mdat behind the moof
};

// Reads a moof (ISO/IEC 14496-12 8.8.4) with its head. False if it does not hold together: then `head` is of no use.
// Every sample is smaller than 1 GiB, and the decoding times rise. Safe on any bytes.
bool ReadFragmentHead(std::span<const uint8_t> moof, FragmentHead& head);

}  // namespace Orvane::Muxora
