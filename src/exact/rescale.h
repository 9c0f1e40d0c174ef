#pragma once

#include <algorithm>
#include <cstdint>

namespace Orvane::Muxora {

// Finer scales than this are reduced: with more ticks a second, fields of 32 bits hold too little time.
constexpr uint32_t kFinestScale = 1u << 25;

// Longer times than this, either way, are cut: 136 years in seconds.
constexpr int64_t kLongestTime = int64_t{1} << 32;

// `value` ticks of `from` a second in ticks of `to` a second, rounded to the nearest, halves up. `from` is not 0, `to`
// is kFinestScale at most.
inline int64_t Rescale(int64_t value, uint32_t from, uint32_t to) {
    if (from == to) return std::clamp(value, -kLongestTime * to, kLongestTime * to);
    int64_t seconds = value / from;
    int64_t rest = value % from;
    if (rest < 0) {
        rest += from;
        --seconds;
    }
    seconds = std::clamp(seconds, -kLongestTime, kLongestTime);
    return seconds * to + (rest * to + from / 2) / from;
}

}  // namespace Orvane::Muxora
