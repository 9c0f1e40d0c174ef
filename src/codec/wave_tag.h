#pragma once

#include <cstdint>

namespace Orvane::Muxora {

// The tags that packagers treat in ways of their own (RFC 2361; 255 is "raw AAC").
constexpr uint16_t kWaveTagPcm = 1;
constexpr uint16_t kWaveTagAlaw = 6;
constexpr uint16_t kWaveTagMulaw = 7;
constexpr uint16_t kWaveTagAac = 255;

// The WAVE format tag that AVI and ASF give an audio codec; 0 for codecs without one.
uint16_t WaveFormatTag(uint32_t encode_type);

}  // namespace Orvane::Muxora
