// Repairs the times of a stream before anybody sees them, by the rule of the formats with exact times (MXFrameTimes),
// so that all outputs of a stream agree.
#pragma once

#include <cstdint>
#include <optional>

#include "hub/frame.h"

namespace Orvane::Muxora::Gateway {

struct RepairCounts {
    uint64_t not_rising = 0;
    uint64_t jumps = 0;
    uint64_t early = 0;
};

class TimeRepair {
  public:
    // Rewrites the frame's times where they break the rule.
    void Take(Frame& frame);

    const RepairCounts& Video() const { return video_.counts; }
    const RepairCounts& Audio() const { return audio_.counts; }

  private:
    struct Line {
        bool begun = false;
        uint32_t scale = 0;
        int64_t last_dts = 0;  // as given out, in ticks
        int64_t last_duration = 0;
        double offset = 0;    // seconds added to what comes in
        int64_t offsets = 0;  // how many jumps this line has followed
        RepairCounts counts;
    };
    void Rescale(Line& line, uint32_t scale) const;

    Line video_;
    Line audio_;
    // The offset of the latest jump, which the other stream takes when its own times jump.
    double shared_offset_ = 0;
    int64_t jumps_ = 0;
};

}  // namespace Orvane::Muxora::Gateway
