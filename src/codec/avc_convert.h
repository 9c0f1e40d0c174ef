// Scanners of H.264 frames in Annex-B form (ITU-T H.264 Annex B). They keep no state and allocate nothing.
#pragma once

#include <cstdint>

namespace Orvane::Muxora {

class CAvcConvert {
  public:
    virtual ~CAvcConvert() = default;

    // Rewrites the frame with a 4-byte big-endian length before each NAL unit instead of a start code. Bytes ahead of
    // the first start code are dropped. Stops in silence where `outCap` is used up.
    // Returns the number of bytes written; 0xFFFFFFFF if `out` is null or `outCap` is 0.
    static uint32_t ConvertToLengthPrefixed(const uint8_t* in, uint32_t inLen, uint8_t* out, uint32_t outCap);

    // Copies the first sequence (picture) parameter set, without a start code.
    // Returns its length; 0 if there is none or it is longer than `outCap`; -1 if GetSps gets a null `out` or an
    // `outCap` of 0, GetPps both.
    static int32_t GetSps(const uint8_t* in, uint32_t inLen, uint8_t* out, uint32_t outCap);
    static int32_t GetPps(const uint8_t* in, uint32_t inLen, uint8_t* out, uint32_t outCap);
};

}  // namespace Orvane::Muxora
