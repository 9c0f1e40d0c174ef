// The transport packet (ISO/IEC 13818-1 2.4.3.2).
#pragma once

#include <cstdint>

#include "core/byte_writer.h"

namespace Orvane::Muxora {

inline constexpr uint32_t kTsPacketSize = 188;
inline constexpr uint32_t kTsHeaderSize = 4;
inline constexpr uint8_t kTsSyncByte = 0x47;

inline constexpr uint16_t kPatPid = 0x0000;
inline constexpr uint16_t kNoPid = 0x1FFF;

enum class AdaptationControl : uint8_t { kPayloadOnly = 0x10, kFieldOnly = 0x20, kFieldAndPayload = 0x30 };

inline constexpr uint32_t kContinuityAt = 3;
inline constexpr uint8_t kContinuityMask = 0x0F;

inline uint8_t ControlByte(AdaptationControl control, uint32_t continuity) {
    return static_cast<uint8_t>(static_cast<uint8_t>(control) | (continuity & kContinuityMask));
}

// The first four bytes of a packet.
inline void PutTsHeader(uint8_t* packet, bool unit_start, uint16_t pid, AdaptationControl control,
                        uint32_t continuity) {
    PutU8(packet, kTsSyncByte);
    PutBE16(packet + 1, static_cast<uint16_t>((unit_start ? 0x4000 : 0x0000) | pid));  // flags, PID
    PutU8(packet + kContinuityAt, ControlByte(control, continuity));
}

// What stands behind them.
inline ByteCursor BehindTsHeader(uint8_t* packet) {
    return {packet + kTsHeaderSize, kTsPacketSize - kTsHeaderSize};
}

}  // namespace Orvane::Muxora
