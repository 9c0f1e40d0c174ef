// The boxes of moov that do not list samples (ISO/IEC 14496-12 8.2 to 8.6, 12; 14496-14; 14496-15).
#pragma once

#include <cstdint>
#include <span>

#include "exact/box_writer.h"
#include "exact/mp4_track.h"

namespace Orvane::Muxora {

// mvhd. Version 1 where a duration wants it.
void WriteMovieHeader(BoxWriter& out, uint32_t time_scale, uint64_t duration);
// tkhd, with the picture as it is shown: sample shape and rotation. `duration` is in the movie's scale.
void WriteTrackHeader(BoxWriter& out, const Mp4Track& track, uint64_t duration);

struct Mp4Edit {
    uint64_t duration = 0;    // in the movie's scale; 0 in a fragmented file: all
    int64_t media_time = -1;  // in the track's scale; -1: nothing is shown
};
// edts; nothing without an edit.
void WriteEdits(BoxWriter& out, std::span<const Mp4Edit> edits);

// mdhd and hdlr.
void WriteMediaHeader(BoxWriter& out, const Mp4Track& track, uint64_t duration);
// vmhd or smhd, and dinf: what stands ahead of stbl in minf.
void WriteMediaInformation(BoxWriter& out, const Mp4Track& track);
// stsd with all entries, or with the one in force.
void WriteSampleDescriptions(BoxWriter& out, const Mp4Track& track, bool all);

// moov of a fragmented file: no samples, but mvex.
void WriteFragmentedMovie(BoxWriter& out, std::span<const Mp4Track* const> tracks, bool all_entries);

}  // namespace Orvane::Muxora
