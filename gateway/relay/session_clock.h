// Where an origin is replaced by another, times go on: the new one's are moved as a whole, so that its first picture is
// shown when the last one of before has been.
#pragma once

#include <cstdint>
#include <string>

#include "hub/frame.h"

namespace Orvane::Muxora::Gateway {

class SessionClock {
  public:
    // Moves the frame's times. The first origin's stay.
    void Take(Frame& frame, const std::string& origin);

  private:
    std::string origin_;
    int64_t offset_us_ = 0;
    int64_t end_us_ = 0;  // of what was shown, as moved
};

}  // namespace Orvane::Muxora::Gateway
