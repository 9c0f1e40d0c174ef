// Audio payloads: AAC (RFC 3640, AAC-hbr), MPEG audio (RFC 2250), and frames that go as they are.
#pragma once

#include <cstdint>

#include "MuxoraAPI.h"
#include "rtp/packet_run.h"

namespace Orvane::Muxora {

// The codecs that are sent as audio. Any other audio frame goes out under the video stream's identity.
bool IsRtpAudio(uint32_t encode_type);

// 16-bit PCM from the machine's order to the network's, in place. False for an odd number of bytes.
bool SwapPcm16(MXFrameInfo& frame);

// Cuts a frame into packets without regard to what is in it; MPEG-4 video goes this way too. MX_NO_RESOURCES for AAC
// and MPEG audio of 1500 bytes and more; MX_FAILED if the packets do not fit the area, or if the maximum length leaves
// no room for payload.
uint32_t packetiseGeneric(const MXFrameInfo& frame, PacketRun& run);

}  // namespace Orvane::Muxora
