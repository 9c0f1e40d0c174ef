// Waiting for the clock, and for the user who wants no more.
#pragma once

#include <cstdint>

namespace Orvane::Muxora::Tools {

// Set by SIGINT and SIGTERM: finish what was begun and end.
bool Interrupted();
void CatchInterrupts();

// Sleeps until `ms` after the first call with this object, or until an interrupt.
class Pace {
  public:
    explicit Pace(double speed) : speed_(speed) {}
    void WaitFor(int64_t ms) { WaitForUs(ms * 1000); }
    void WaitForUs(int64_t us);

  private:
    double speed_;
    int64_t first_us_ = -1;
    int64_t start_ns_ = 0;
};

}  // namespace Orvane::Muxora::Tools
