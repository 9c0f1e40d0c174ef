// The one search for start codes of the whole library.
#pragma once

#include <cstdint>

namespace Orvane::Muxora {

// The first place p with begin <= p, p + 3 <= end and the bytes 00 00 01 at p; `end` if there is none. Reads nothing
// outside [begin, end). Vectorised; the kernel is chosen once at run time.
const uint8_t* FindStartCode(const uint8_t* begin, const uint8_t* end);

}  // namespace Orvane::Muxora
