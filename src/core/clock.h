// The wall clock and the calendar: the only place of the library that asks the machine for the time.
#pragma once

#include <cstdint>
#include <ctime>

namespace Orvane::Muxora {

// Seconds since 1970, from the system clock or from the clock that a test has set.
int64_t CurrentTime();
// The same in microseconds; whole seconds of a clock that a test has set.
int64_t CurrentMicroseconds();

// The local calendar time of `seconds` since 1970. Times that the C library can't convert give the epoch's.
std::tm LocalTime(int64_t seconds);

// Seconds since 1970 of a local calendar time; out-of-range fields are normalised (mktime).
int64_t FromLocalTime(std::tm local);

// A local calendar time in 32 bits, low bits first: second 6, minute 6, hour 5, day 5, month 4, year minus 2000 6.
// A time of 0 packs the current time.
uint32_t PackDateWord(int64_t seconds);

// Replaces the clock for the life of the object; tests only, one at a time.
class ScopedClock {
  public:
    explicit ScopedClock(int64_t seconds);
    ~ScopedClock();
    ScopedClock(const ScopedClock&) = delete;
    ScopedClock& operator=(const ScopedClock&) = delete;
    void Set(int64_t seconds);
};

}  // namespace Orvane::Muxora
