#include "common/pace.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <thread>

namespace Orvane::Muxora::Tools {

namespace {

volatile std::sig_atomic_t g_interrupted = 0;

void OnInterrupt(int /*signal*/) {
    g_interrupted = 1;
}

int64_t NowNs() {
    return std::chrono::steady_clock::now().time_since_epoch() / std::chrono::nanoseconds(1);
}

}  // namespace

bool Interrupted() {
    return g_interrupted != 0;
}

void CatchInterrupts() {
    struct sigaction action {};
    action.sa_handler = OnInterrupt;
    // The second signal ends the process at once.
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

void Pace::WaitForUs(int64_t us) {
    if (first_us_ < 0) {
        first_us_ = us;
        start_ns_ = NowNs();
        return;
    }
    const auto due = start_ns_ + static_cast<int64_t>(static_cast<double>(us - first_us_) * 1e3 / speed_);
    while (!Interrupted()) {
        const int64_t left = due - NowNs();
        if (left <= 0) return;
        std::this_thread::sleep_for(std::chrono::nanoseconds(std::min<int64_t>(left, 50000000)));
    }
}

}  // namespace Orvane::Muxora::Tools
