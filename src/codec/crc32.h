#pragma once

#include <cstddef>
#include <cstdint>

namespace Orvane::Muxora {

// CRC-32 of IEEE 802.3: reflected, initial value all ones, final inversion. Carry-less multiplication where the
// processor has it, slicing tables where not; chosen once at run time.
uint32_t Crc32(const uint8_t* data, uint32_t length);

// The same over data that comes in pieces: `crc` is 0 ahead of the first piece, then what the call before returned.
uint32_t Crc32Update(uint32_t crc, const uint8_t* data, size_t length);

// Copies `length` bytes to `out` and returns Crc32Update over them, in one pass that costs little above the copy.
uint32_t Crc32Copy(uint32_t crc, uint8_t* out, const uint8_t* data, size_t length);

// CRC-32 of MPEG-2 systems (ISO/IEC 13818-1 Annex A): most significant bit first, initial value all ones, no inversion.
uint32_t Crc32Mpeg2(const uint8_t* data, uint32_t length);

}  // namespace Orvane::Muxora
