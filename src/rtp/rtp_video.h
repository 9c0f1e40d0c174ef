// H.264 (RFC 6184) and H.265 (RFC 7798) payloads.
#pragma once

#include <cstdint>

#include "MuxoraAPI.h"
#include "rtp/packet_run.h"

namespace Orvane::Muxora {

// Both cut the frame at its start codes and give each NAL unit packets of its own: no aggregation. The result is
// MX_FAILED if the packets do not fit the area, or if the maximum length leaves no room for payload.

// Reads one byte behind the frame when its last NAL unit is fragmented.
uint32_t packetiseH264(const MXFrameInfo& frame, PacketRun& run);
uint32_t packetiseH265(const MXFrameInfo& frame, PacketRun& run);

}  // namespace Orvane::Muxora
