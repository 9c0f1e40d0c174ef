// Times of frames that come without MXFrameTimes: presentation from `timestamp`, decoding order from arrival.
#pragma once

#include <algorithm>
#include <cstdint>

#include "MuxoraExt.h"

namespace Orvane::Muxora {

// How much sound a frame holds: see MeasureAudio in codec/audio_frames.h.
struct AudioMeasure;

// The milliseconds of a stream in 64 bits: the 32 bits of `timestamp` wrap after 49 days and go on.
class UnwrappedMilliseconds {
  public:
    int64_t Take(uint32_t timestamp);

  private:
    bool started_ = false;
    uint32_t last_ = 0;
    int64_t time_ = 0;
};

// A few times in rising order. A copy takes along those that are there, and not the room.
class RisingTimes {
  public:
    static constexpr uint32_t kMost = 18;

    RisingTimes() = default;
    RisingTimes(const RisingTimes& other) { *this = other; }
    RisingTimes& operator=(const RisingTimes& other) {
        if (this == &other) return *this;
        std::copy_n(other.times_, other.count_, times_);
        count_ = other.count_;
        return *this;
    }
    ~RisingTimes() = default;

    uint32_t Count() const { return count_; }
    void Clear() { count_ = 0; }
    // Only below kMost.
    void Insert(int64_t time);
    // Only where there is one.
    int64_t TakeFirst();

  private:
    uint32_t count_ = 0;
    int64_t times_[kMost] = {};
};

// Pictures, in 1/90000 s. A timestamp of 0 stands for one frame duration behind the frame that came before, the first
// one for 0. Decoding times are the presentation times in rising order, put ahead by as many frames as the stream
// reorders: what decoders need, and never behind the presentation.
class VideoArrival {
  public:
    static constexpr uint32_t kScale = 90000;

    // `reorder_depth`: how many pictures may come ahead of one that is shown earlier; 0 learns it from steps back.
    MXFrameTimes Take(const MXFrameInfo& frame, uint32_t reorder_depth);

  private:
    static constexpr uint32_t kLargestDepth = 16;
    static_assert(kLargestDepth < RisingTimes::kMost);

    int64_t Presentation(const MXFrameInfo& frame);
    void Refill(int64_t pts);

    UnwrappedMilliseconds milliseconds_;
    bool started_ = false;
    int64_t pts_ = 0;
    // While times are derived: the frames since `anchor_`, so that rates that do not divide the scale do not drift.
    int64_t anchor_ = 0;
    uint32_t rate_ = 0;
    int64_t frames_ = 0;
    uint32_t depth_ = 0;
    RisingTimes waiting_;  // presentation times that will be decoding times
    int64_t dts_ = 0;
    int64_t latest_ = 0;
};

// Sound, in samples. A timestamp that is right to its millisecond says nothing new: the samples count on.
class AudioArrival {
  public:
    MXFrameTimes Take(const MXFrameInfo& frame, const AudioMeasure& measure);

  private:
    UnwrappedMilliseconds milliseconds_;
    bool started_ = false;
    uint32_t rate_ = 0;
    int64_t end_ = 0;
};

}  // namespace Orvane::Muxora
