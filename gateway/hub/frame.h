// A frame on its way through the gateway: made once by a source, shared by all, changed by nobody.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "media_input/media_frame.h"

namespace Orvane::Muxora::Gateway {

struct Frame {
    // Codec, kind and bytes; its own millisecond times are not used here.
    Tools::MediaFrame media;
    // Ticks a second of the times below, above 0.
    uint32_t time_scale = 1000;
    int64_t dts = 0;
    int64_t pts = 0;
    int64_t duration = 0;  // 0: up to the next frame
    // Wall clock when the frame came to this gateway, or to the one it was relayed from: microseconds since 1970.
    int64_t arrival_us = 0;

    bool IsVideo() const { return media.IsVideo(); }
    // Decoding may begin here. Every frame of sound is such a place.
    bool IsKey() const { return !media.IsVideo() || media.IsKey(); }
    double DtsSeconds() const { return static_cast<double>(dts) / time_scale; }
};

using FramePtr = std::shared_ptr<const Frame>;

// Wall clock in microseconds since 1970.
int64_t WallClockUs();

}  // namespace Orvane::Muxora::Gateway
