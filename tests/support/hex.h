// Byte literals for tests: Bytes("00 00 01 B6").
#pragma once

#include <cctype>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace test {

using ByteVector = std::vector<uint8_t>;

inline ByteVector Bytes(std::string_view hex) {
    ByteVector out;
    int high = -1;
    for (const char c : hex) {
        if (std::isspace(static_cast<unsigned char>(c))) continue;
        const char lower = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        const int digit = lower >= '0' && lower <= '9'   ? lower - '0'
                          : lower >= 'a' && lower <= 'f' ? lower - 'a' + 10
                                                         : -1;
        if (digit < 0) throw std::invalid_argument("not a hex digit");
        if (high < 0) {
            high = digit;
        } else {
            out.push_back(static_cast<uint8_t>(high << 4 | digit));
            high = -1;
        }
    }
    if (high >= 0) throw std::invalid_argument("odd number of hex digits");
    return out;
}

inline ByteVector Text(std::string_view text) {
    return {text.begin(), text.end()};
}

inline ByteVector operator+(ByteVector left, const ByteVector& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

inline std::string Hex(const ByteVector& bytes) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string out;
    for (const uint8_t byte : bytes) {
        if (!out.empty()) out += ' ';
        out += kDigits[byte >> 4];
        out += kDigits[byte & 15];
    }
    return out;
}

// `count` bytes of `bytes` from `offset` on; fails the test by an exception when they are not there.
inline ByteVector Slice(const ByteVector& bytes, size_t offset, size_t count) {
    if (offset > bytes.size() || count > bytes.size() - offset) throw std::out_of_range("slice behind the end");
    const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(offset);
    return {first, first + static_cast<std::ptrdiff_t>(count)};
}

}  // namespace test
