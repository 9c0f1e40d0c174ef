// What the H.264 and the H.265 scanners share: Annex-B frames taken apart into NAL units.
#pragma once

#include <cstdint>

namespace Orvane::Muxora {

// A NAL unit inside a frame, without its start code. Null data says that there is none.
struct NalUnit {
    const uint8_t* data = nullptr;
    uint32_t length = 0;
};

// The first NAL unit whose first byte gives `value` under `mask`. The value is not 0.
NalUnit FindFirstNal(const uint8_t* in, uint32_t inLen, uint8_t mask, uint8_t value);

// Copies a NAL unit behind its length in `prefix` big-endian bytes (0 or 2). Returns the bytes written; 0 with nothing
// written if there is no NAL unit, or if it does not fit.
uint32_t CopyNal(const NalUnit& nal, uint32_t prefix, uint8_t* out, uint32_t outCap);

// Every NAL unit behind a 4-byte big-endian length; see CAvcConvert::ConvertToLengthPrefixed.
uint32_t AnnexBToLengthPrefixed(const uint8_t* in, uint32_t inLen, uint8_t* out, uint32_t outCap);

}  // namespace Orvane::Muxora
