// Where a recording goes on in its next file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace Orvane::Muxora::Tools {

// One of both is above 0.
struct SegmentRule {
    int64_t duration_ms = 0;
    uint64_t bytes = 0;
};

// "10s", "1.5min", "2h", "90" (seconds); "500MB", "1GiB". Throws WrongUsage.
SegmentRule ParseSegmentRule(const std::string& text);

// The name of file `number`, counted from 0: %d or %03d is the number, strftime's conversions are the local time;
// without either "-000" stands ahead of the extension. Throws WrongUsage for a pattern that is none.
std::string SegmentName(const std::string& pattern, unsigned number);

// The file behind a full one: film.mp4, film-002.mp4, film-003.mp4.
std::string ContinuationName(const std::string& path, unsigned number);

}  // namespace Orvane::Muxora::Tools
