// libav's memory, for tests in which it runs out.
#pragma once

#include <cstddef>

namespace test {

// As long as this lives, the `count`-th allocation of libav's from here on fails, counted from 1.
class FailingLibavAllocation {
  public:
    explicit FailingLibavAllocation(size_t count);
    ~FailingLibavAllocation();
    FailingLibavAllocation(const FailingLibavAllocation&) = delete;
    FailingLibavAllocation& operator=(const FailingLibavAllocation&) = delete;

    // Have there been so many?
    bool Failed() const;
};

}  // namespace test
