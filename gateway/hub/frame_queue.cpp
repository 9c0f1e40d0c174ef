#include "hub/frame_queue.h"

#include <utility>

namespace Orvane::Muxora::Gateway {

FrameQueue::Taken FrameQueue::Put(const FramePtr& frame) {
    pictures_came_ = pictures_came_ || frame->IsVideo();
    // One frame has its place, however large.
    if (bytes_ != 0 && bytes_ + Weight(*frame) > max_bytes_) overrun_ = true;
    Taken taken = Taken::kWaits;
    if (overrun_) {
        const bool may_begin = frame->IsKey() && (frame->IsVideo() || !pictures_came_);
        if (bytes_ > max_bytes_ / 2 || !may_begin) return Taken::kLost;
        overrun_ = false;
        taken = Taken::kWaitsBehind;
    }
    frames_.push_back(frame);
    bytes_ += Weight(*frame);
    return taken;
}

FramePtr FrameQueue::Take() {
    FramePtr frame = std::move(frames_.front());
    frames_.pop_front();
    return frame;
}

}  // namespace Orvane::Muxora::Gateway
