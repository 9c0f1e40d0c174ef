#pragma once

#include <cstdint>

namespace Orvane::Muxora {

// The WAVE format tag (RFC 2361) that AVI and ASF give an audio codec; 0 for codecs without one.
uint16_t WaveFormatTag(uint32_t encode_type);

}  // namespace Orvane::Muxora
