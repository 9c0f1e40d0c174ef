// The formats of the library as the tool names them.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "MuxoraExt.h"

namespace Orvane::Muxora::Tools {

struct Format {
    uint32_t number;  // MXFormat
    std::string_view key;
    std::string_view extensions;  // separated by blanks
    bool stream;                  // made for sending while it grows
    bool seeks;                   // goes back to patch what it wrote
    std::string_view about;

    // The number that MX_CreateHandle knows.
    uint32_t Maker() const { return number == MX_FORMAT_3GP ? static_cast<uint32_t>(MX_FORMAT_MP4) : number; }
    bool IsIso() const;
    // Keeps every time exactly.
    bool IsExact() const { return number >= MX_FORMAT_FMP4; }
    // Key of the format that keeps what a classic one cannot say of times.
    std::string_view ExactKin() const;
    // Can it say that pictures are to be turned, clockwise, when they are shown?
    bool StatesRotation(uint32_t degrees) const;
};

std::span<const Format> Formats();
// Null if there is none. Keys and extensions in any case.
const Format* FormatByKey(std::string_view key);
const Format* FormatByPath(std::string_view path);
// All keys, for messages.
std::string FormatKeys();

std::string VideoCodecName(uint32_t codec);
std::string AudioCodecName(uint32_t codec);
// The codecs that the library advertises for a format: numbers and names. `type` is an MXCapacityType.
std::vector<MXCapacityEntry> Capacity(const Format& format, uint32_t type);
// "H.264, MPEG-4", or "none".
std::string CapacityText(const Format& format, uint32_t type);

}  // namespace Orvane::Muxora::Tools
