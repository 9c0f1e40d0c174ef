// moov of a finished recording: written in pieces, as it may be large.
#pragma once

#include <cstdint>
#include <functional>
#include <span>

#include "exact/mp4_track.h"
#include "exact/sample_index.h"

namespace Orvane::Muxora {

// Takes the next bytes.
using PieceFunction = std::function<void(std::span<const uint8_t>)>;

// Hands out moov with the full sample tables (ISO/IEC 14496-12 8.5 to 8.7) of all tracks, in pieces of 64 KiB. Media
// begins at 0 in each track; what comes before time 0 of the stream, and a track that begins late, is told by edits.
void WriteIndexedMovie(std::span<const Mp4Track* const> tracks, const RecordingIndex& index, bool large_offsets,
                       const PieceFunction& take);

}  // namespace Orvane::Muxora
