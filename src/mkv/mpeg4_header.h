#pragma once

#include <cstdint>
#include <span>

namespace Orvane::Muxora {

// The configuration ahead of an MPEG-4 part 2 picture as Matroska files carry it (ISO/IEC 14496-2 6.2.1): from the
// first visual_object_sequence or visual_object start code (00 00 01 B0, B5) to a group_of_vop start code (00 00 01 B3)
// or to the place three bytes ahead of any byte B6. Both are looked for up to 4 bytes ahead of the end, where the
// header ends at the latest. Empty if there is none.
std::span<const uint8_t> FindMpeg4Header(const uint8_t* data, uint32_t length);

}  // namespace Orvane::Muxora
