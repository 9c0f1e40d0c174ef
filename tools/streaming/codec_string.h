// The name of a codec as players are asked for it (RFC 6381).
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace Orvane::Muxora::Streaming {

// Reads it out of an initialisation segment (ISO/IEC 14496-12) with one track; empty when there is no sample entry.
std::string CodecString(std::span<const uint8_t> init);

}  // namespace Orvane::Muxora::Streaming
