// The sets of picture kinds that packagers test for. Which kinds count as a key frame differs from format to format;
// each set has a name and stands here once.
#pragma once

#include <cstdint>

#include "MuxoraAPI.h"

namespace Orvane::Muxora {

// The four kinds at which a packager refreshes its video parameters, and at which most formats may start.
inline bool IsKeyFrame(uint32_t sub_type) {
    return sub_type == MX_SUB_I || sub_type == MX_SUB_LAYERED_KEY || sub_type == MX_SUB_LAYERED_KEY2 ||
           sub_type == MX_SUB_KEY;
}

// The three kinds that indexes mark as places to seek to; MX_SUB_KEY is not among them.
inline bool IsSyncFrame(uint32_t sub_type) {
    return sub_type == MX_SUB_I || sub_type == MX_SUB_LAYERED_KEY || sub_type == MX_SUB_LAYERED_KEY2;
}

inline bool IsH264(uint32_t encode_type) {
    return encode_type == MX_VIDEO_H264 || encode_type == MX_VIDEO_H264_ALT;
}

}  // namespace Orvane::Muxora
