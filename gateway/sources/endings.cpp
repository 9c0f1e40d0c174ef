#include "sources/endings.h"

#include <system_error>
#include <thread>
#include <utility>

namespace Orvane::Muxora::Gateway {

void Endings::Begin(std::function<void()> end) {
    {
        const std::lock_guard lock(shared_->mutex);
        ++shared_->running;
    }
    // What `end` holds is let go before it counts as done.
    auto run = [shared = shared_, task = std::make_shared<std::function<void()>>(std::move(end))] {
        (*task)();
        *task = nullptr;
        const std::lock_guard lock(shared->mutex);
        --shared->running;
        shared->changed.notify_all();
    };
    try {
        std::thread(run).detach();
    } catch (const std::system_error&) {
        run();  // the system has no threads left
    }
}

bool Endings::Wait(std::chrono::milliseconds patience) {
    std::unique_lock lock(shared_->mutex);
    return shared_->changed.wait_for(lock, patience, [this] { return shared_->running == 0; });
}

}  // namespace Orvane::Muxora::Gateway
