// The units of a frame: what stands behind start codes in Annex-B form, or behind lengths in files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "media_input/frame_bytes.h"

namespace Orvane::Muxora::Tools {

using ByteSpan = std::span<const uint8_t>;

struct NalUnit {
    size_t at;    // of its start code
    size_t size;  // with the start code
    size_t code;  // the start code's own size: 3 or 4, or that of a length

    ByteSpan Body(ByteSpan frame) const { return frame.subspan(at + code, size - code); }
};
using NalUnits = std::vector<NalUnit>;

// Those of an Annex-B frame, of MPEG-4 and of MPEG-2 video as well. Units without a byte are left out, and zeros
// between them are part of none (trailing_zero_8bits).
NalUnits AnnexBUnits(ByteSpan frame);

// Those of a frame in which each has its length in front (ISO/IEC 14496-15 4.3), `length_size` bytes of it. Nothing if
// a length reaches over the frame's end.
std::optional<NalUnits> LengthUnits(ByteSpan frame, size_t length_size);

// Has the frame parameter sets of its own? `video_codec` is an MXVideoCodec.
bool HasParameterSets(uint32_t video_codec, ByteSpan frame, const NalUnits& units);

// Ahead of which unit others are to be put in: H.264 and H.265 want an access unit delimiter to stay in front.
size_t ParameterSetPlace(uint32_t video_codec, ByteSpan frame, const NalUnits& units);

// As much of a frame of H.264 or H.265 as tells its kind and its order, in Annex-B form: up to the first slice, and its
// header. All of any other codec's. What the units of the frame have in front is as with LengthUnits, or start codes
// for a `length_size` of 0; `room` is where the head is put together then.
ByteSpan FrameHead(uint32_t video_codec, ByteSpan frame, size_t length_size, std::vector<uint8_t>& room);

// Do the units fill the frame without a gap, each behind as much as a start code of four bytes takes?
bool HaveLongCodes(ByteSpan frame, const NalUnits& units);
// Puts 00 00 00 01 in front of each, where HaveLongCodes says that there is room.
void WriteStartCodes(std::span<uint8_t> frame, const NalUnits& units);

// The units behind start codes of four bytes, `sets` ahead of the unit `place`, `spare` zeros behind.
FrameBytes WithLongStartCodes(ByteSpan frame, const NalUnits& units, ByteSpan sets, size_t place, size_t spare);

}  // namespace Orvane::Muxora::Tools
