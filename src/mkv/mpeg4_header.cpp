#include "mkv/mpeg4_header.h"

#include "codec/start_code.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kStartCodeSize = 4;  // with the byte that tells what begins
constexpr uint8_t kVisualObjectSequence = 0xB0;
constexpr uint8_t kGroupOfVop = 0xB3;
constexpr uint8_t kVisualObject = 0xB5;
constexpr uint8_t kVop = 0xB6;

}  // namespace

std::span<const uint8_t> FindMpeg4Header(const uint8_t* data, uint32_t length) {
    if (length <= kStartCodeSize) return {};
    const uint8_t* const limit = data + length - kStartCodeSize;  // a start code begins ahead of it

    const uint8_t* begin = data;
    for (;; ++begin) {
        begin = FindStartCode(begin, data + length);
        if (begin >= limit) return {};
        if (begin[3] == kVisualObjectSequence || begin[3] == kVisualObject) break;
    }

    const uint8_t* end = begin;
    for (; end != limit; ++end) {
        // Readers rely on this: a byte with the value of a VOP's start code ends the header whatever stands before it.
        if (end[3] == kVop) break;
        if (end[3] == kGroupOfVop && end[0] == 0 && end[1] == 0 && end[2] == 1) break;
    }
    return {begin, end};
}

}  // namespace Orvane::Muxora
