// The steps on the 90 kHz clock that program and transport streams take alike. Ticks are 32 bits wide here, so bit 32
// of each coded value is 0 and every clock wraps at 2^32.
#pragma once

#include <cstdint>

#include "MuxoraAPI.h"
#include "codec/audio_measures.h"
#include "codec/mpeg_clock.h"
#include "core/byte_writer.h"

namespace Orvane::Muxora {

inline constexpr uint32_t kTicksPerMs = 90;

// The SCR of a pack header with its marker bits and an extension of 0, 6 bytes (2.5.3.3).
inline void PutScr(ByteCursor& out, uint32_t ticks) {
    out.U8(static_cast<uint8_t>((ticks >> 27 & 0x38) | (ticks >> 28 & 0x03) | 0x44))
        .U8(static_cast<uint8_t>(ticks >> 20))
        .U8(static_cast<uint8_t>((ticks >> 12 & 0xF8) | (ticks >> 13 & 0x03) | 0x04))
        .U8(static_cast<uint8_t>(ticks >> 5))
        .U8(static_cast<uint8_t>(ticks << 3 | 0x04))
        .U8(0x01);
}

// The rate to go on with: a frame without one keeps the rate known so far, and 25 stands in when there is none.
inline uint32_t NextFrameRate(uint32_t known, uint32_t given) {
    constexpr uint32_t kDefaultFrameRate = 25;
    if (given != 0) return given;
    return known != 0 ? known : kDefaultFrameRate;
}

// A time that runs backward is replaced by one that lies `step` behind the last one.
inline uint32_t ForwardTime(uint32_t time, uint32_t last, uint32_t step) {
    return time < last ? last + step : time;
}

inline uint32_t Distance(uint32_t a, uint32_t b) {
    return a > b ? a - b : b - a;
}

// How long an audio frame plays, in whole ticks.
inline uint32_t AudioTicks(const MXFrameInfo& frame) {
    return static_cast<uint32_t>(static_cast<int64_t>(GetAudioFrameDuration(frame) * 90.0));
}

}  // namespace Orvane::Muxora
