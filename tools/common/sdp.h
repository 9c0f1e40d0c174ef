// The session description (RFC 8866) of a stream that muxora sends.
#pragma once

#include <cstdint>
#include <string>

#include "media_input/media_input.h"

namespace Orvane::Muxora::Tools {

struct SdpStream {
    const MediaStream* stream = nullptr;
    // A key frame of the video, or any frame of the audio: what a player must know beforehand is in it.
    const MediaFrame* sample = nullptr;
    uint32_t payload_type = 0;
    uint32_t clock = 90000;
    uint16_t port = 0;
};

// Either stream may be missing.
std::string Sdp(const std::string& host, const SdpStream& video, const SdpStream& audio);

std::string Base64(const uint8_t* data, size_t size);

}  // namespace Orvane::Muxora::Tools
