#pragma once

#include <cstdint>

namespace Orvane::Muxora {

// Where the decoder configuration of an MPEG-4 part 2 frame lies (ISO/IEC 14496-2 6.2.1).
struct Mpeg4Config {
    bool found = false;   // a configuration start code was met
    uint32_t offset = 0;  // of its first byte
    uint32_t length = 0;  // up to the first VOP start code behind it; 0 if there is none
};

// Looks for the first of the start codes 00, 01, 20, B0, B2, B3, B5, and from there for the VOP (B6). A start code is
// only seen where its first byte lies below length - 4.
Mpeg4Config FindMpeg4Config(const uint8_t* data, uint32_t length);

}  // namespace Orvane::Muxora
