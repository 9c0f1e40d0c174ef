#pragma once

#include <cstdint>

namespace Orvane::Muxora {

// Where the decoder configuration of an MPEG-4 part 2 frame lies (ISO/IEC 14496-2 6.2.1).
struct Mpeg4Config {
    bool found = false;   // a start code that begins a configuration was met
    uint32_t offset = 0;  // of its first byte
    uint32_t length = 0;  // up to where the configuration ends; 0 if its end was not met
};

// What MP4 and ASF take: from the first start code of the kinds 00, 01, 20 (object and layer), B0 and B5 (sequence and
// visual object), B2 (user data) or B3 (group of VOPs), up to the first VOP (B6). A start code is only seen where its
// first byte lies below length - 4.
Mpeg4Config FindMpeg4Config(const uint8_t* data, uint32_t length);

}  // namespace Orvane::Muxora
