#include "core/clock.h"

#include <atomic>
#include <chrono>
#include <limits>

namespace Orvane::Muxora {

namespace {

constexpr int64_t kSystemClock = std::numeric_limits<int64_t>::min();
std::atomic<int64_t> g_fixed_time{kSystemClock};

}  // namespace

int64_t CurrentTime() {
    const int64_t fixed = g_fixed_time.load(std::memory_order_relaxed);
    return fixed != kSystemClock ? fixed : static_cast<int64_t>(std::time(nullptr));
}

int64_t CurrentMicroseconds() {
    const int64_t fixed = g_fixed_time.load(std::memory_order_relaxed);
    if (fixed != kSystemClock) return fixed * 1000000;
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
}

std::tm LocalTime(int64_t seconds) {
    std::tm local{};
    const auto time = static_cast<std::time_t>(seconds);
#if defined(_WIN32)
    if (localtime_s(&local, &time) == 0) return local;
#else
    if (localtime_r(&time, &local) != nullptr) return local;
#endif
    local = {};
    local.tm_year = 70;
    local.tm_mday = 1;
    return local;
}

int64_t FromLocalTime(std::tm local) {
    return static_cast<int64_t>(std::mktime(&local));
}

uint32_t PackDateWord(int64_t seconds) {
    // The conversion is far dearer than all else a packager does for a small frame, and the second seldom changes.
    struct Last {
        int64_t seconds = kSystemClock;
        uint32_t word = 0;
    };
    thread_local Last last;
    if (seconds == 0) seconds = CurrentTime();
    if (seconds == last.seconds) return last.word;
    const std::tm local = LocalTime(seconds);
    const auto bits = [](int value, uint32_t width, uint32_t shift) {
        return (static_cast<uint32_t>(value) & ((1u << width) - 1)) << shift;
    };
    const uint32_t word = bits(local.tm_sec, 6, 0) | bits(local.tm_min, 6, 6) | bits(local.tm_hour, 5, 12) |
                          bits(local.tm_mday, 5, 17) | bits(local.tm_mon + 1, 4, 22) | bits(local.tm_year - 100, 6, 26);
    last = {seconds, word};
    return word;
}

ScopedClock::ScopedClock(int64_t seconds) {
    Set(seconds);
}

ScopedClock::~ScopedClock() {
    g_fixed_time.store(kSystemClock, std::memory_order_relaxed);
}

void ScopedClock::Set(int64_t seconds) {
    g_fixed_time.store(seconds, std::memory_order_relaxed);
}

}  // namespace Orvane::Muxora
