#pragma once

#include <cstdint>

namespace Orvane::Muxora {

// The 16 bits of an AudioSpecificConfig (ISO/IEC 14496-3 1.6.2.1) from bytes 2 and 3 of an ADTS header: object type,
// frequency index, channel configuration, three zero bits. `adts` has at least 4 bytes.
// Readers rely on this: the ADTS profile goes in as the object type without the addition of 1, so AAC LC reads as 1.
uint16_t AudioSpecificConfigFromAdts(const uint8_t* adts);

}  // namespace Orvane::Muxora
