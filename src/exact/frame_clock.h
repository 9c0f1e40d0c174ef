// The times of frames as the formats with exact times write them: read from MXFrameTimes or derived, brought to the
// scale of the output, and repaired by the one rule that MuxoraExt.h documents.
#pragma once

#include <cstdint>
#include <optional>

#include "MuxoraExt.h"
#include "exact/arrival_times.h"

namespace Orvane::Muxora {

// The record that stands in a frame, if it gives times.
std::optional<MXFrameTimes> ReadFrameTimes(const MXFrameInfo& frame);

struct FrameTime {
    uint32_t scale = 1;    // ticks a second of all that follows; the same for all frames of a stream
    int64_t dts = 0;       // rising
    int64_t pts = 0;       // dts or later, by a minute at most
    int64_t duration = 0;  // up to 0x7FFFFFFF; 0: up to the next frame
};

class FrameClock {
  public:
    // What becomes of times that begin far from 0.
    enum class Origin {
        kAsGiven,   // they stay
        kNearZero,  // more than a minute away from 0, the first frame goes to 0 and all others with it
    };

    // `scale`: ticks a second of the output, up to kFinestScale; 0: each stream keeps the scale of its first frame.
    explicit FrameClock(uint32_t scale = 0, Origin origin = Origin::kAsGiven);

    // `reorder_depth` serves frames without times: see VideoArrival.
    FrameTime Video(const MXFrameInfo& frame, uint32_t reorder_depth);
    FrameTime Audio(const MXFrameInfo& frame, const AudioMeasure& measure);

    // Takes back what Video or Audio did last.
    void Undo();

    MXTimeRepairs Repairs() const;

  private:
    // Frames, by the rule that they needed.
    struct Repaired {
        uint32_t not_rising = 0;
        uint32_t jumps = 0;
        uint32_t early = 0;
    };
    struct Stream {
        bool started = false;
        uint32_t scale = 1;
        int64_t dts = 0;       // of the frame before, as written
        int64_t end = 0;       // of the frame before
        int64_t interval = 1;  // between the two frames before
        int64_t offset = 0;    // from given to written times
        uint32_t epoch = 0;    // the jump that gave the offset
        Repaired repaired;
    };
    // The jump that came last: how many there were, and the offset that keeps the streams together behind it.
    struct LastJump {
        uint32_t epoch = 0;
        uint32_t scale = 1;
        int64_t offset = 0;
    };

    void Remember(Stream& stream);
    FrameTime Apply(Stream& stream, const MXFrameTimes& times);
    void Begin(Stream& stream, const MXFrameTimes& times);
    void Jump(Stream& stream, int64_t dts);
    static bool IsJump(const Stream& stream, int64_t dts);

    const uint32_t scale_;
    const Origin origin_;
    Stream video_;
    Stream audio_;
    VideoArrival video_arrival_;
    AudioArrival audio_arrival_;
    LastJump jump_;

    // How all was before the last frame, of which much stands still: that is not remembered.
    struct Before {
        Stream* stream = nullptr;  // of the frame
        bool arrived = false;      // it was given no times
        Stream was;
        LastJump jump;
        VideoArrival video;
        AudioArrival audio;
    };
    Before before_;
};

}  // namespace Orvane::Muxora
