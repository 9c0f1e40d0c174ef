#include "muxora/segment_names.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <vector>

#include "common/errors.h"

namespace Orvane::Muxora::Tools {

namespace {

struct Unit {
    const char* name;
    double factor;
    bool time;
};

constexpr Unit kUnits[] = {
    {"", 1e3, true},      {"ms", 1, true},         {"s", 1e3, true},           {"min", 60e3, true},
    {"h", 3600e3, true},  {"kB", 1e3, false},      {"MB", 1e6, false},         {"GB", 1e9, false},
    {"KiB", 1024, false}, {"MiB", 1048576, false}, {"GiB", 1073741824, false},
};

std::string Numbered(const std::string& path, unsigned number) {
    char text[16];
    std::snprintf(text, sizeof text, "-%03u", number);
    const std::filesystem::path whole(path);
    return (whole.parent_path() / (whole.stem().string() + text + whole.extension().string())).string();
}

// %d and %0Nd become the number; everything else is left to strftime.
std::string WithNumber(const std::string& pattern, unsigned number, bool& found) {
    std::string out;
    for (size_t i = 0; i < pattern.size();) {
        if (pattern[i] != '%') {
            out += pattern[i++];
            continue;
        }
        size_t end = i + 1;
        while (end < pattern.size() && std::isdigit(static_cast<unsigned char>(pattern[end])) != 0)
            ++end;
        // strftime has a %d as well; here it is the number, as everywhere else in the field, unless dates stand around.
        const bool digits = end > i + 1;
        if (end < pattern.size() && pattern[end] == 'd' && (digits || pattern.find("%m") == std::string::npos)) {
            unsigned width = 0;
            std::from_chars(pattern.data() + i + 1, pattern.data() + end, width);
            char text[32];
            std::snprintf(text, sizeof text, "%0*u", static_cast<int>(std::min(width, 20u)), number);
            out += text;
            i = end + 1;
            found = true;
            continue;
        }
        out += pattern[i++];
        if (i < pattern.size()) out += pattern[i++];
    }
    return out;
}

}  // namespace

SegmentRule ParseSegmentRule(const std::string& text) {
    double value = 0;
    const char* end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, value);
    const std::string unit(parsed.ptr, end);
    for (const Unit& known : kUnits) {
        if (parsed.ec != std::errc() || unit != known.name || !(value > 0) || value > 1e9) continue;
        SegmentRule rule;
        if (known.time) {
            rule.duration_ms = std::max<int64_t>(std::llround(value * known.factor), 1);
        } else {
            rule.bytes = static_cast<uint64_t>(value * known.factor);
        }
        return rule;
    }
    throw WrongUsage("--segment must be a duration (10s, 5min, 1h) or a size (500MB, 1GiB), and '" + text +
                     "' is neither");
}

std::string SegmentName(const std::string& pattern, unsigned number) {
    bool numbered = false;
    std::string name = WithNumber(pattern, number, numbered);
    if (name.find('%') == std::string::npos) return numbered ? name : Numbered(pattern, number);
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    std::vector<char> text(name.size() * 8 + 256);
    const size_t length = std::strftime(text.data(), text.size(), name.c_str(), &local);
    if (length == 0) throw WrongUsage("'" + pattern + "' is no name that strftime can fill in");
    return {text.data(), length};
}

std::string ContinuationName(const std::string& path, unsigned number) {
    return number == 0 ? path : Numbered(path, number + 1);
}

}  // namespace Orvane::Muxora::Tools
