// Numbers and bytes in words, and back.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Orvane::Muxora::Tools {

// Bytes from hex digits, blanks and colons between them allowed. Throws WrongUsage.
std::vector<uint8_t> HexBytes(const std::string& text, const std::string& what);

// "12.3 MB"
std::string SizeText(uint64_t bytes);
// "0:01:02"
std::string ClockText(double seconds);

}  // namespace Orvane::Muxora::Tools
