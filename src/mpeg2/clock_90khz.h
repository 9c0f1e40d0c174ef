// The 90 kHz clock of MPEG-2 systems (ISO/IEC 13818-1 2.4.2): how its values are written, and the steps that program
// and transport streams take alike. Ticks are 32 bits wide, so bit 32 of each coded value is 0 and every clock wraps at
// 2^32.
#pragma once

#include <cstdint>

#include "MuxoraAPI.h"
#include "codec/audio_measures.h"
#include "core/byte_writer.h"

namespace Orvane::Muxora {

inline constexpr uint32_t kTicksPerSecond = 90000;
inline constexpr uint32_t kTicksPerMs = 90;

// The four bits in front of a time stamp in a PES header.
enum class TimestampPrefix : uint8_t {
    kDts = 0x10,           // a DTS, behind its PTS
    kPtsAlone = 0x20,      // a PTS without a DTS
    kPtsBeforeDts = 0x30,  // a PTS with a DTS behind it
};

// PTS or DTS, 5 bytes (2.4.3.6).
inline void PutTimestamp(ByteCursor& out, TimestampPrefix prefix, uint32_t ticks) {
    out.U8(static_cast<uint8_t>((ticks >> 29 & 0x06) | static_cast<uint8_t>(prefix) | 0x01))
        .U8(static_cast<uint8_t>(ticks >> 22))
        .U8(static_cast<uint8_t>((ticks >> 14 & 0xFE) | 0x01))
        .U8(static_cast<uint8_t>(ticks >> 7))
        .U8(static_cast<uint8_t>(ticks << 1 | 0x01));
}

// The SCR of a pack header with its marker bits and an extension of 0, 6 bytes (2.5.3.3).
inline void PutScr(ByteCursor& out, uint32_t ticks) {
    out.U8(static_cast<uint8_t>((ticks >> 27 & 0x38) | (ticks >> 28 & 0x03) | 0x44))
        .U8(static_cast<uint8_t>(ticks >> 20))
        .U8(static_cast<uint8_t>((ticks >> 12 & 0xF8) | (ticks >> 13 & 0x03) | 0x04))
        .U8(static_cast<uint8_t>(ticks >> 5))
        .U8(static_cast<uint8_t>(ticks << 3 | 0x04))
        .U8(0x01);
}

// The PCR of an adaptation field with an extension of 0, 6 bytes (2.4.3.4).
inline void PutPcr(ByteCursor& out, uint32_t ticks) {
    out.U8(static_cast<uint8_t>(ticks >> 25))
        .U8(static_cast<uint8_t>(ticks >> 17))
        .U8(static_cast<uint8_t>(ticks >> 9))
        .U8(static_cast<uint8_t>(ticks >> 1))
        .U8(static_cast<uint8_t>((ticks & 0x01) << 7 | 0x7E))
        .U8(0x00);
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
