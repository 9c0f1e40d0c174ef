#include "codec/mpeg4_headers.h"

#include "codec/start_code.h"

namespace Orvane::Muxora {

namespace {

// Start code values of ISO/IEC 14496-2, table 6-3.
constexpr uint8_t kLastVideoObject = 0x1F;
constexpr uint8_t kFirstLayer = 0x20;
constexpr uint8_t kLastLayer = 0x2F;
constexpr uint8_t kVisualObjectSequence = 0xB0;
constexpr uint8_t kGroupOfVop = 0xB3;
constexpr uint8_t kVisualObject = 0xB5;
constexpr uint8_t kVop = 0xB6;

}  // namespace

std::span<const uint8_t> FindMpeg4Headers(std::span<const uint8_t> frame) {
    const uint8_t* const end = frame.data() + frame.size();
    const uint8_t* first = nullptr;
    bool has_layer = false;
    for (const uint8_t* code = FindStartCode(frame.data(), end); end - code > 3; code = FindStartCode(code + 3, end)) {
        const uint8_t value = code[3];
        if (value == kGroupOfVop || value == kVop) {
            if (first == nullptr || !has_layer) return {};
            return {first, code};
        }
        const bool layer = value >= kFirstLayer && value <= kLastLayer;
        has_layer = has_layer || layer;
        const bool header =
            layer || value <= kLastVideoObject || value == kVisualObjectSequence || value == kVisualObject;
        if (header && first == nullptr) first = code;
    }
    return {};
}

}  // namespace Orvane::Muxora
