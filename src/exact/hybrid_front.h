// The tracks of a hybrid MP4 as the moov in front of a growing one tells them.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "exact/mp4_track.h"

namespace Orvane::Muxora {

// The payload of moov in; pictures come first. Nothing if it is not as the packager writes it: one track of pictures,
// one of sound, or both, each with a sample entry at least. Safe on any bytes.
std::optional<std::vector<Mp4Track>> ReadHybridTracks(std::span<const uint8_t> movie);

}  // namespace Orvane::Muxora
