#include "exact/arrival_times.h"

#include <algorithm>

#include "codec/audio_frames.h"
#include "exact/rescale.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kMillisecond = VideoArrival::kScale / 1000;
constexpr uint32_t kDefaultFrameRate = 25;
// The same bounds as in the rule of repair: a step back as long is no reordering, one forward as long no pause.
constexpr int64_t kLongestStepBack = VideoArrival::kScale;
constexpr int64_t kLongestStep = int64_t{60} * VideoArrival::kScale;
// A stream that does not say how far it reorders is taken for one of simple B pictures once it does.
constexpr uint32_t kLargestLearned = 4;

uint32_t FrameRate(const MXFrameInfo& frame) {
    return frame.frame_rate != 0 ? frame.frame_rate : kDefaultFrameRate;
}

}  // namespace

int64_t UnwrappedMilliseconds::Take(uint32_t timestamp) {
    if (started_) {
        time_ += static_cast<int32_t>(timestamp - last_);
    } else {
        time_ = timestamp;
    }
    started_ = true;
    last_ = timestamp;
    return time_;
}

int64_t VideoArrival::Presentation(const MXFrameInfo& frame) {
    const uint32_t rate = FrameRate(frame);
    const bool derived = frame.timestamp == 0;
    if (!derived || !started_ || rate != rate_) {
        if (!derived) {
            pts_ = milliseconds_.Take(frame.timestamp) * kMillisecond;
        } else if (started_) {
            pts_ = anchor_ + (frames_ + 1) * kScale / rate_;
        }
        anchor_ = pts_;
        rate_ = rate;
        frames_ = 0;
        return pts_;
    }
    ++frames_;
    pts_ = anchor_ + frames_ * kScale / rate_;
    return pts_;
}

MXFrameTimes VideoArrival::Take(const MXFrameInfo& frame, uint32_t reorder_depth) {
    const int64_t pts = Presentation(frame);
    const uint32_t wanted = std::min(reorder_depth, kLargestDepth);
    if (!started_ || pts <= latest_ - kLongestStepBack || pts > latest_ + kLongestStep) {
        depth_ = std::max(depth_, wanted);
        Refill(pts);
        latest_ = pts;
    } else {
        if (wanted > depth_) {
            depth_ = wanted;
        } else if (pts <= dts_ && depth_ < kLargestLearned) {
            ++depth_;
        }
        latest_ = std::max(latest_, pts);
    }
    started_ = true;
    while (waiting_.Count() < depth_)
        waiting_.Insert(dts_ + 1);
    waiting_.Insert(pts);
    dts_ = waiting_.TakeFirst();
    return {MX_FRAME_TIMES_TAG, kScale, dts_, pts, 0};
}

void RisingTimes::Insert(int64_t time) {
    int64_t* const place = std::upper_bound(times_, times_ + count_, time);
    std::copy_backward(place, times_ + count_, times_ + count_ + 1);
    *place = time;
    ++count_;
}

int64_t RisingTimes::TakeFirst() {
    const int64_t first = times_[0];
    std::copy(times_ + 1, times_ + count_, times_);
    --count_;
    return first;
}

// As if the pictures before had come at the stream's rate.
void VideoArrival::Refill(int64_t pts) {
    waiting_.Clear();
    for (uint32_t ahead = depth_; ahead > 0; --ahead)
        waiting_.Insert(pts - int64_t{ahead} * kScale / rate_);
}

MXFrameTimes AudioArrival::Take(const MXFrameInfo& frame, const AudioMeasure& measure) {
    const uint32_t rate = std::clamp(measure.sample_rate, 1u, kFinestScale);
    if (started_ && rate != rate_) end_ = Rescale(end_, rate_, rate);
    int64_t pts = end_;
    if (frame.timestamp != 0) {
        const int64_t stated = Rescale(milliseconds_.Take(frame.timestamp), 1000, rate);
        const int64_t off = stated - end_;
        if (!started_ || off > rate / 1000 + 1 || off < -int64_t{rate / 1000 + 1}) pts = stated;
    }
    started_ = true;
    rate_ = rate;
    end_ = pts + measure.samples;
    return {MX_FRAME_TIMES_TAG, rate, pts, pts, measure.samples};
}

}  // namespace Orvane::Muxora
