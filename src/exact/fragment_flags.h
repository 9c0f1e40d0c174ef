#pragma once

#include <cstdint>

namespace Orvane::Muxora {

// Bits of the flags of a fragment's boxes (ISO/IEC 14496-12, 8.8.7 and 8.8.8), for who writes them and who reads them.
// tfhd
inline constexpr uint32_t kHasDescriptionIndex = 0x2;
inline constexpr uint32_t kHasDefaultDuration = 0x8;
inline constexpr uint32_t kHasDefaultFlags = 0x20;
// trun
inline constexpr uint32_t kHasDataOffset = 0x1;
inline constexpr uint32_t kHasFirstFlags = 0x4;
inline constexpr uint32_t kHasDurations = 0x100;
inline constexpr uint32_t kHasSizes = 0x200;
inline constexpr uint32_t kHasFlags = 0x400;
inline constexpr uint32_t kHasCompositionOffsets = 0x800;

}  // namespace Orvane::Muxora
