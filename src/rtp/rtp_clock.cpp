#include "rtp/rtp_clock.h"

#include "core/messages.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kVideoTicksPerMs = 90;
constexpr uint32_t kSamplesGranule = 1000;
constexpr uint32_t kDefaultFrameRate = 25;
// Callers whose clock has 16 bits wrap here.
constexpr uint32_t kShortClock = 0x10000;

bool IsNegative(uint32_t step) {
    return static_cast<int32_t>(step) < 0;
}

uint32_t Truncate(double ms) {
    return static_cast<uint32_t>(static_cast<int64_t>(ms));
}

}  // namespace

uint32_t RtpClock::StepVideo(MXFrameInfo& frame) {
    if (!video_seen_) {
        if (audio_seen_ && audio_granularity_ != 0) {
            video_start = audio_timestamp_ / audio_granularity_ * kVideoTicksPerMs;
        }
        return video_timestamp_ = video_start;
    }
    const uint32_t rate = frame.frame_rate != 0 ? frame.frame_rate : kDefaultFrameRate;
    uint32_t step = 0;
    if (frame.timestamp != 0) {
        step = frame.timestamp - last_video_ts_;
        // A 16-bit clock that wrapped: the step is below two frame periods then.
        if (IsNegative(step) && step + kShortClock < 2000 / rate) step += kShortClock;
    } else {
        const double period = 1000.0 / rate;
        video_fraction_ += period - Truncate(period);
        const uint32_t whole = Truncate(video_fraction_);
        video_fraction_ -= whole;
        step = Truncate(period) + whole;
        // Receivers rely on this: the caller's record takes the time that was made up for it.
        frame.timestamp = last_video_ts_ + step;
    }
    return video_timestamp_ += step * kVideoTicksPerMs;
}

void RtpClock::EndVideo(const MXFrameInfo& frame) {
    last_video_ts_ = frame.timestamp;
    video_seen_ = true;
}

uint32_t RtpClock::StepAudio(MXFrameInfo& frame, double duration) {
    if (!audio_seen_) {
        if (video_seen_) audio_start = video_timestamp_ / kVideoTicksPerMs * audio_granularity_;
        return audio_timestamp_ = audio_start;
    }
    uint32_t step = 0;
    if (frame.timestamp != 0) {
        step = frame.timestamp - last_audio_ts_;
        if (IsNegative(step) && 2.0 * duration > static_cast<double>(step + kShortClock)) step += kShortClock;
    } else {
        // Receivers rely on this: audio carries no fraction, so the part of a millisecond is lost at every frame.
        step = Truncate(last_audio_duration_);
        // Receivers rely on this: the caller's record takes the time that was made up for it.
        frame.timestamp = last_audio_ts_ + step;
    }
    return audio_timestamp_ += step * audio_granularity_;
}

void RtpClock::EndAudio(const MXFrameInfo& frame, double duration) {
    last_audio_ts_ = frame.timestamp;
    last_audio_duration_ = duration;
    audio_seen_ = true;
}

void RtpClock::SetAudioSample(uint32_t rate) {
    audio_sample_ = rate;
    audio_granularity_ = rate / kSamplesGranule;
    if (rate % kSamplesGranule != 0) {
        Say("[Muxora] [WARN] AuidoSample is not multiple of 1000! May cause out-sync!\n");
    }
}

}  // namespace Orvane::Muxora
