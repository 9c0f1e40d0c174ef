#include "common/text.h"

#include <cctype>
#include <cmath>
#include <cstdio>
#include <iterator>

#include "common/errors.h"

namespace Orvane::Muxora::Tools {

std::vector<uint8_t> HexBytes(const std::string& text, const std::string& what) {
    std::vector<uint8_t> bytes;
    int high = -1;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (std::isspace(byte) != 0 || c == ':') continue;
        if (std::isxdigit(byte) == 0) throw WrongUsage(what + " must be hex digits, and '" + c + "' is none");
        const int digit = std::isdigit(byte) != 0 ? c - '0' : std::tolower(byte) - 'a' + 10;
        if (high < 0) {
            high = digit;
        } else {
            bytes.push_back(static_cast<uint8_t>(high << 4 | digit));
            high = -1;
        }
    }
    if (high >= 0) throw WrongUsage(what + " has an odd number of hex digits");
    return bytes;
}

std::string SizeText(uint64_t bytes) {
    const char* const units[] = {"bytes", "kB", "MB", "GB", "TB"};
    auto value = static_cast<double>(bytes);
    size_t unit = 0;
    while (value >= 1000 && unit + 1 < std::size(units)) {
        value /= 1000;
        ++unit;
    }
    char text[40];
    std::snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", value, units[unit]);
    return text;
}

std::string ClockText(double seconds) {
    const auto whole = static_cast<int64_t>(std::llround(seconds));
    char text[40];
    std::snprintf(text, sizeof text, "%d:%02d:%02d", static_cast<int>(whole / 3600), static_cast<int>(whole / 60 % 60),
                  static_cast<int>(whole % 60));
    return text;
}

}  // namespace Orvane::Muxora::Tools
