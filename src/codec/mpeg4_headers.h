#pragma once

#include <cstdint>
#include <span>

namespace Orvane::Muxora {

// The headers that an MPEG-4 part 2 picture begins with (ISO/IEC 14496-2 6.2.1): from the first start code of a
// sequence, object or layer up to the first group_of_vop or vop. Empty unless a video object layer is among them.
std::span<const uint8_t> FindMpeg4Headers(std::span<const uint8_t> frame);

}  // namespace Orvane::Muxora
