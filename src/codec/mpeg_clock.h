// The 90 kHz clock of MPEG-2 systems (ISO/IEC 13818-1 2.4.2): how its values of 33 bits are written. Higher bits are
// left out: the clock wraps.
#pragma once

#include <cstdint>

#include "core/byte_writer.h"

namespace Orvane::Muxora {

inline constexpr uint32_t kTicksPerSecond = 90000;

// The four bits in front of a time stamp in a PES header.
enum class TimestampPrefix : uint8_t {
    kDts = 0x10,           // a DTS, behind its PTS
    kPtsAlone = 0x20,      // a PTS without a DTS
    kPtsBeforeDts = 0x30,  // a PTS with a DTS behind it
};

// PTS or DTS, 5 bytes (2.4.3.6).
inline void PutTimestamp(ByteCursor& out, TimestampPrefix prefix, uint64_t ticks) {
    out.U8(static_cast<uint8_t>((ticks >> 29 & 0x0E) | static_cast<uint8_t>(prefix) | 0x01))
        .U8(static_cast<uint8_t>(ticks >> 22))
        .U8(static_cast<uint8_t>((ticks >> 14 & 0xFE) | 0x01))
        .U8(static_cast<uint8_t>(ticks >> 7))
        .U8(static_cast<uint8_t>(ticks << 1 | 0x01));
}

// The PCR of an adaptation field with an extension of 0, 6 bytes (2.4.3.4).
inline void PutPcr(ByteCursor& out, uint64_t ticks) {
    out.U8(static_cast<uint8_t>(ticks >> 25))
        .U8(static_cast<uint8_t>(ticks >> 17))
        .U8(static_cast<uint8_t>(ticks >> 9))
        .U8(static_cast<uint8_t>(ticks >> 1))
        .U8(static_cast<uint8_t>((ticks & 0x01) << 7 | 0x7E))
        .U8(0x00);
}

}  // namespace Orvane::Muxora
