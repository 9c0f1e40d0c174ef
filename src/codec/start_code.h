// The one search for start codes of the whole library, and the rules that several scanners put on top of it.
#pragma once

#include <cstdint>

namespace Orvane::Muxora {

// The first place p with begin <= p, p + 3 <= end and the bytes 00 00 01 at p; `end` if there is none. Reads nothing
// outside [begin, end). Vectorised; the kernel is chosen once at run time.
const uint8_t* FindStartCode(const uint8_t* begin, const uint8_t* end);

// Returns what FindStartCode gives, with the bytes in front of that place copied to `out`, in one pass that costs
// little above the copy. Some of the bytes behind it may be copied, too, so `out` has room for all of [begin, end); the
// two do not overlap.
const uint8_t* CopyToStartCode(uint8_t* out, const uint8_t* begin, const uint8_t* end);

// As FindStartCode for the bytes 00 00 00 01, with p + 4 <= end.
const uint8_t* FindLongStartCode(const uint8_t* begin, const uint8_t* end);

// As CopyToStartCode for the bytes 00 00 00 01.
const uint8_t* CopyToLongStartCode(uint8_t* out, const uint8_t* begin, const uint8_t* end);

// A start code in a frame: 00 00 01 (size 3) or 00 00 00 01 (size 4). Size 0 says that there is none.
struct StartCode {
    uint32_t position = 0;
    uint32_t size = 0;

    // The first byte behind it.
    uint32_t Payload() const { return position + size; }
    explicit operator bool() const { return size != 0; }
};

// The start code that a scan meets first when it tries each position from `from` on and below length - 3, the four-byte
// form before the three-byte one. So a three-byte start code in the last three bytes is not seen, a four-byte one in
// the last four bytes is, and `from` may stand anywhere.
StartCode NextStartCode(const uint8_t* data, uint32_t length, uint32_t from);

}  // namespace Orvane::Muxora
