// Ends what may take a moment to end, each on a thread of its own, so that it holds up nobody.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>

namespace Orvane::Muxora::Gateway {

class Endings {
  public:
    // Any thread. `end` may come to its end after this object.
    void Begin(std::function<void()> end);
    // Waits until all that were begun are done; false when that takes longer.
    bool Wait(std::chrono::milliseconds patience);

  private:
    struct Shared {
        std::mutex mutex;
        std::condition_variable changed;
        size_t running = 0;
    };
    std::shared_ptr<Shared> shared_ = std::make_shared<Shared>();
};

}  // namespace Orvane::Muxora::Gateway
