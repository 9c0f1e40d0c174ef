// Frames that wait for a disk or a relay: bounded by their bytes, and cut where it can go on.
#pragma once

#include <cstddef>
#include <deque>
#include <optional>

#include "hub/frame.h"

namespace Orvane::Muxora::Gateway {

class FrameQueue {
  public:
    explicit FrameQueue(size_t max_bytes) : max_bytes_(max_bytes) {}

    // What became of a frame.
    enum class Taken {
        kWaits,
        kLost,         // the queue ran over, and has not come to a place where it goes on
        kWaitsBehind,  // the first one that is taken again behind lost ones
    };
    // Behind an overrun it goes on with a key frame, once half of the queue is free.
    Taken Put(const FramePtr& frame);
    // The frame stays counted until Done is called: its bytes are there as long as it is written.
    FramePtr Take();
    void Done(const FramePtr& frame) { bytes_ -= Weight(*frame); }

    bool Empty() const { return frames_.empty(); }
    size_t Bytes() const { return bytes_; }
    // What a frame counts: its bytes, and what it needs around them.
    static size_t Weight(const Frame& frame) { return frame.media.Size() + sizeof(Frame); }

  private:
    const size_t max_bytes_;
    std::deque<FramePtr> frames_;
    size_t bytes_ = 0;
    bool pictures_came_ = false;
    bool overrun_ = false;
};

}  // namespace Orvane::Muxora::Gateway
