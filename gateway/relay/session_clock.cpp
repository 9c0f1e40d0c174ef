#include "relay/session_clock.h"

#include <algorithm>
#include <cmath>

namespace Orvane::Muxora::Gateway {

namespace {

// For a frame that does not say how long it lasts.
constexpr int64_t kUsualDurationUs = 20000;
// No time lies further from 0: times that no stream comes to are the origin's mistake, and bridged as a jump later.
constexpr double kFurthestUs = 9e15;

int64_t Us(int64_t ticks, uint32_t scale) {
    return std::llround(std::clamp(static_cast<double>(ticks) / scale * 1e6, -kFurthestUs, kFurthestUs));
}

}  // namespace

void SessionClock::Take(Frame& frame, const std::string& origin) {
    if (origin != origin_) {
        if (!origin_.empty()) offset_us_ = end_us_ - Us(frame.pts, frame.time_scale);
        origin_ = origin;
    }
    const int64_t offset = std::llround(static_cast<double>(offset_us_) / 1e6 * frame.time_scale);
    frame.dts += offset;
    frame.pts += offset;
    const int64_t lasts = frame.duration > 0 ? Us(frame.duration, frame.time_scale) : kUsualDurationUs;
    end_us_ = std::max(end_us_, Us(frame.pts, frame.time_scale) + lasts);
}

}  // namespace Orvane::Muxora::Gateway
