// Scanners of H.265 frames in Annex-B form (ITU-T H.265 Annex B), the twins of those in avc_convert.h.
#pragma once

#include <cstdint>

namespace Orvane::Muxora {

// As CAvcConvert::ConvertToLengthPrefixed.
uint32_t HevcConvertToLengthPrefixed(const uint8_t* in, uint32_t inLen, uint8_t* out, uint32_t outCap);

// Copy the first NAL unit of a kind behind its 2-byte big-endian length.
// Return its length plus 2; 0 if there is none or that is more than `outCap`; -1 if Vps and Sps get a null `out` or an
// `outCap` of 0, Pps and PrefixSei both.
int32_t HevcGetVps(const uint8_t* in, uint32_t inLen, uint8_t* out, uint32_t outCap);
int32_t HevcGetSps(const uint8_t* in, uint32_t inLen, uint8_t* out, uint32_t outCap);
int32_t HevcGetPps(const uint8_t* in, uint32_t inLen, uint8_t* out, uint32_t outCap);
int32_t HevcGetPrefixSei(const uint8_t* in, uint32_t inLen, uint8_t* out, uint32_t outCap);

}  // namespace Orvane::Muxora
