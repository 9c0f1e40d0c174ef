#include "hub/time_repair.h"

#include <algorithm>
#include <cmath>

namespace Orvane::Muxora::Gateway {

namespace {

constexpr double kBackJump = 1;
constexpr double kForwardJump = 60;

// No time lies further from 0, in seconds and in ticks: sums of two, and conversions, stay in their types.
constexpr double kFurthest = 1e11;
constexpr int64_t kFurthestTicks = int64_t{1} << 60;

int64_t Limit(uint32_t scale) {
    const double ticks = kFurthest * scale;
    return ticks < static_cast<double>(kFurthestTicks) ? static_cast<int64_t>(ticks) : kFurthestTicks;
}

int64_t Bounded(int64_t ticks, uint32_t scale) {
    return std::clamp(ticks, -Limit(scale), Limit(scale));
}

int64_t Rounded(double ticks, uint32_t scale) {
    const auto limit = static_cast<double>(Limit(scale));
    return std::llround(std::clamp(ticks, -limit, limit));
}

int64_t Ticks(double seconds, uint32_t scale) {
    return Rounded(seconds * scale, scale);
}

}  // namespace

void TimeRepair::Rescale(Line& line, uint32_t scale) const {
    if (line.scale == scale || line.scale == 0) return;
    const double ratio = static_cast<double>(scale) / line.scale;
    line.last_dts = Rounded(static_cast<double>(line.last_dts) * ratio, scale);
    line.last_duration = Rounded(static_cast<double>(line.last_duration) * ratio, scale);
}

void TimeRepair::Take(Frame& frame) {
    Line& line = frame.IsVideo() ? video_ : audio_;
    if (frame.time_scale == 0) frame.time_scale = 1000;
    Rescale(line, frame.time_scale);
    line.scale = frame.time_scale;

    frame.dts = Bounded(frame.dts, line.scale);
    const int64_t composition = Bounded(frame.pts, line.scale) - frame.dts;
    int64_t dts = Bounded(frame.dts + Ticks(line.offset, line.scale), line.scale);
    int64_t pts = dts + composition;
    if (line.begun) {
        const int64_t end = line.last_dts + std::max<int64_t>(line.last_duration, 1);
        const double ahead = static_cast<double>(dts - end) / line.scale;
        const double since = static_cast<double>(dts - line.last_dts) / line.scale;
        if (since <= -kBackJump || ahead > kForwardJump) {
            ++line.counts.jumps;
            // The other stream has jumped already: its offset keeps both together, where it leads on from here.
            const int64_t together = Bounded(frame.dts + Ticks(shared_offset_, line.scale), line.scale);
            const double gap = static_cast<double>(together - line.last_dts) / line.scale;
            if (line.offsets < jumps_ && gap > -kBackJump && gap <= kForwardJump) {
                line.offset = shared_offset_;
                line.offsets = jumps_;
                dts = together;
            } else {
                line.offset = static_cast<double>(end - frame.dts) / line.scale;
                shared_offset_ = line.offset;
                line.offsets = ++jumps_;
                dts = end;
            }
        }
        pts = dts + composition;
        if (dts <= line.last_dts) {
            if (line.last_dts - dts < line.scale) ++line.counts.not_rising;
            dts = line.last_dts + 1;
        }
    }
    // A decoding time that was moved by a tick leaves the time at which the picture is shown.
    frame.pts = pts;
    frame.dts = dts;
    if (frame.pts < frame.dts) {
        ++line.counts.early;
        frame.pts = frame.dts;
    }
    // Where the input does not say how long a frame lasts, the distance to the one before is the best guess.
    int64_t duration = frame.duration;
    if (duration <= 0 && line.begun) duration = dts - line.last_dts;
    line.last_duration = std::clamp<int64_t>(duration, 0, static_cast<int64_t>(line.scale) * 10);
    line.last_dts = dts;
    line.begun = true;
}

}  // namespace Orvane::Muxora::Gateway
