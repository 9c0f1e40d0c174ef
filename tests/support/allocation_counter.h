// Counts allocations, to show that a steady stream makes none, and lets them fail. Every test binary has the global
// operator new of allocation_counter.cpp. malloc is not counted, and with it the default of MXCreateParam::alloc.
#pragma once

#include <cstdint>

namespace test {

// Counts the allocations of this thread since it was made.
class AllocationCounter {
  public:
    AllocationCounter();
    uint64_t Count() const;
    // The bytes that they asked for; what has been released again counts, too.
    uint64_t Bytes() const;

  private:
    uint64_t start_;
    uint64_t start_bytes_;
};

// While it lives, `successes` more allocations of this thread succeed and the `failures` behind them fail. One at a
// time.
class FailingAllocations {
  public:
    explicit FailingAllocations(uint64_t successes = 0, uint64_t failures = UINT64_MAX);
    ~FailingAllocations();
    FailingAllocations(const FailingAllocations&) = delete;
    FailingAllocations& operator=(const FailingAllocations&) = delete;
};

}  // namespace test
