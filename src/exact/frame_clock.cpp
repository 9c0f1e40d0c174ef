#include "exact/frame_clock.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>

#include "codec/audio_frames.h"
#include "exact/rescale.h"

namespace Orvane::Muxora {

static_assert(sizeof(MXFrameTimes) == 32);
static_assert(offsetof(MXFrameInfo, reserved1) == 84);
static_assert(sizeof(MXFrameTimes) <= sizeof MXFrameInfo::reserved1);
static_assert(sizeof(MXTimeRepairs) == 28);

namespace {

constexpr int64_t kLongestStepSeconds = 60;
constexpr int64_t kLongestDuration = std::numeric_limits<int32_t>::max();
// Given times beyond this have no duration: their sum must not wrap.
constexpr int64_t kFarthest = std::numeric_limits<int64_t>::max() / 2;

uint32_t BoundedScale(uint32_t scale) {
    while (scale > kFinestScale)
        scale /= 10;
    return scale;
}

}  // namespace

std::optional<MXFrameTimes> ReadFrameTimes(const MXFrameInfo& frame) {
    MXFrameTimes times;
    std::memcpy(&times, frame.reserved1, sizeof times);
    if (times.tag != MX_FRAME_TIMES_TAG || times.time_scale == 0) return std::nullopt;
    return times;
}

FrameClock::FrameClock(uint32_t scale, Origin origin) : scale_(scale), origin_(origin) {
}

FrameTime FrameClock::Video(const MXFrameInfo& frame, uint32_t reorder_depth) {
    const auto given = ReadFrameTimes(frame);
    before_.kind = Before::Kind::kVideo;
    before_.common = common_;
    before_.stream = video_;
    before_.arrival = !given;
    if (!given) before_.video = video_arrival_;
    return Apply(video_, given ? *given : video_arrival_.Take(frame, reorder_depth),
                 {common_.repairs.video_not_rising, common_.repairs.video_jumps, common_.repairs.video_early_pictures});
}

FrameTime FrameClock::Audio(const MXFrameInfo& frame, const AudioMeasure& measure) {
    const auto given = ReadFrameTimes(frame);
    before_.kind = Before::Kind::kAudio;
    before_.common = common_;
    before_.stream = audio_;
    before_.arrival = !given;
    if (!given) before_.audio = audio_arrival_;
    return Apply(audio_, given ? *given : audio_arrival_.Take(frame, measure),
                 {common_.repairs.audio_not_rising, common_.repairs.audio_jumps, common_.repairs.audio_early_frames});
}

void FrameClock::Undo() {
    if (before_.kind == Before::Kind::kNothing) return;
    common_ = before_.common;
    if (before_.kind == Before::Kind::kVideo) {
        video_ = before_.stream;
        if (before_.arrival) video_arrival_ = before_.video;
    } else {
        audio_ = before_.stream;
        if (before_.arrival) audio_arrival_ = before_.audio;
    }
    before_.kind = Before::Kind::kNothing;
}

FrameTime FrameClock::Apply(Stream& stream, const MXFrameTimes& times, Counters counters) {
    if (!stream.started) Begin(stream, times);
    const auto convert = [&](int64_t value) { return Rescale(value, times.time_scale, stream.scale); };
    const int64_t given_dts = convert(times.dts);
    const int64_t given_pts = times.pts == times.dts ? given_dts : convert(times.pts);

    if (stream.started && IsJump(stream, given_dts + stream.offset)) {
        Jump(stream, given_dts);
        ++counters.jumps;
    }
    int64_t dts = given_dts + stream.offset;
    if (stream.started && dts <= stream.dts) {
        dts = stream.dts + 1;
        ++counters.not_rising;
    }
    if (given_pts < given_dts || given_pts > given_dts + kLongestStepSeconds * stream.scale) {
        ++counters.early;
    }
    int64_t pts = given_pts + stream.offset;
    if (pts < dts || pts > dts + kLongestStepSeconds * stream.scale) pts = dts;

    // The end is rounded and not the duration, so that it meets the next frame.
    int64_t duration = 0;
    if (times.duration > 0 && times.duration < kFarthest && times.dts > -kFarthest && times.dts < kFarthest) {
        duration = std::clamp<int64_t>(convert(times.dts + times.duration) - given_dts, 0, kLongestDuration);
    }
    if (stream.started) stream.interval = dts - stream.dts;
    stream.dts = dts;
    stream.end = dts + std::max<int64_t>(duration > 0 ? duration : stream.interval, 1);
    stream.started = true;
    return {stream.scale, dts, pts, duration};
}

void FrameClock::Begin(Stream& stream, const MXFrameTimes& times) {
    stream.scale = scale_ != 0 ? scale_ : BoundedScale(times.time_scale);
    const bool first = !video_.started && !audio_.started;
    if (first && origin_ == Origin::kNearZero) {
        const int64_t dts = Rescale(times.dts, times.time_scale, stream.scale);
        const int64_t bound = kLongestStepSeconds * stream.scale;
        if (dts > bound || dts < -bound) Jump(stream, dts);
    }
    if (common_.epoch != 0) stream.offset = Rescale(common_.offset, common_.offset_scale, stream.scale);
    stream.epoch = common_.epoch;
}

void FrameClock::Jump(Stream& stream, int64_t dts) {
    if (stream.epoch != common_.epoch) {
        const int64_t offset = Rescale(common_.offset, common_.offset_scale, stream.scale);
        if (!IsJump(stream, dts + offset)) {
            stream.offset = offset;
            stream.epoch = common_.epoch;
            return;
        }
    }
    stream.offset = stream.end - dts;
    common_.offset = stream.offset;
    common_.offset_scale = stream.scale;
    stream.epoch = ++common_.epoch;
}

bool FrameClock::IsJump(const Stream& stream, int64_t dts) {
    return stream.dts - dts >= stream.scale || dts - stream.end > kLongestStepSeconds * stream.scale;
}

}  // namespace Orvane::Muxora
