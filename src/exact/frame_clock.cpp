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
    Remember(video_);
    if (given) return Apply(video_, *given);
    before_.video = video_arrival_;
    before_.arrived = true;
    return Apply(video_, video_arrival_.Take(frame, reorder_depth));
}

FrameTime FrameClock::Audio(const MXFrameInfo& frame, const AudioMeasure& measure) {
    const auto given = ReadFrameTimes(frame);
    Remember(audio_);
    if (given) return Apply(audio_, *given);
    before_.audio = audio_arrival_;
    before_.arrived = true;
    return Apply(audio_, audio_arrival_.Take(frame, measure));
}

void FrameClock::Remember(Stream& stream) {
    before_.stream = &stream;
    before_.was = stream;
    before_.arrived = false;
    before_.jump = jump_;
}

void FrameClock::Undo() {
    if (before_.stream == nullptr) return;
    *before_.stream = before_.was;
    jump_ = before_.jump;
    if (before_.arrived && before_.stream == &video_) video_arrival_ = before_.video;
    if (before_.arrived && before_.stream == &audio_) audio_arrival_ = before_.audio;
    before_.stream = nullptr;
}

MXTimeRepairs FrameClock::Repairs() const {
    const Repaired& video = video_.repaired;
    const Repaired& audio = audio_.repaired;
    return {sizeof(MXTimeRepairs), video.not_rising, video.jumps, video.early,
            audio.not_rising,      audio.jumps,      audio.early};
}

FrameTime FrameClock::Apply(Stream& stream, const MXFrameTimes& times) {
    if (!stream.started) Begin(stream, times);
    const auto convert = [&](int64_t value) { return Rescale(value, times.time_scale, stream.scale); };
    const int64_t given_dts = convert(times.dts);
    const int64_t given_pts = times.pts == times.dts ? given_dts : convert(times.pts);

    if (stream.started && IsJump(stream, given_dts + stream.offset)) {
        Jump(stream, given_dts);
        ++stream.repaired.jumps;
    }
    int64_t dts = given_dts + stream.offset;
    if (stream.started && dts <= stream.dts) {
        dts = stream.dts + 1;
        ++stream.repaired.not_rising;
    }
    if (given_pts < given_dts || given_pts > given_dts + kLongestStepSeconds * stream.scale) {
        ++stream.repaired.early;
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
    if (jump_.epoch != 0) stream.offset = Rescale(jump_.offset, jump_.scale, stream.scale);
    stream.epoch = jump_.epoch;
}

void FrameClock::Jump(Stream& stream, int64_t dts) {
    if (stream.epoch != jump_.epoch) {
        const int64_t offset = Rescale(jump_.offset, jump_.scale, stream.scale);
        if (!IsJump(stream, dts + offset)) {
            stream.offset = offset;
            stream.epoch = jump_.epoch;
            return;
        }
    }
    stream.offset = stream.end - dts;
    jump_.offset = stream.offset;
    jump_.scale = stream.scale;
    stream.epoch = ++jump_.epoch;
}

bool FrameClock::IsJump(const Stream& stream, int64_t dts) {
    return stream.dts - dts >= stream.scale || dts - stream.end > kLongestStepSeconds * stream.scale;
}

}  // namespace Orvane::Muxora
