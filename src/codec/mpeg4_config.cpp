#include "codec/mpeg4_config.h"

#include "codec/start_code.h"

namespace Orvane::Muxora {

namespace {

// Start code values of ISO/IEC 14496-2, table 6-3.
constexpr uint8_t kVideoObject0 = 0x00;
constexpr uint8_t kVideoObject1 = 0x01;
constexpr uint8_t kVideoObjectLayer0 = 0x20;
constexpr uint8_t kVisualObjectSequence = 0xB0;
constexpr uint8_t kUserData = 0xB2;
constexpr uint8_t kGroupOfVop = 0xB3;
constexpr uint8_t kVisualObject = 0xB5;
constexpr uint8_t kVop = 0xB6;

constexpr uint32_t kNone = 0xFFFFFFFF;

// The first start code in [from, limit) whose value is wanted. A byte follows each position below the limit by at least
// four, so its value can be read.
template <typename Wanted>
uint32_t FindValue(const uint8_t* data, uint32_t from, uint32_t limit, Wanted wanted) {
    if (from >= limit) return kNone;
    const uint8_t* const end = data + limit + 2;  // the last position is limit - 1
    for (const uint8_t* code = FindStartCode(data + from, end); code != end; code = FindStartCode(code + 3, end)) {
        if (wanted(code[3])) return static_cast<uint32_t>(code - data);
    }
    return kNone;
}

// Positions below this are looked at.
uint32_t Limit(const uint8_t* data, uint32_t length) {
    return data != nullptr && length > 4 ? length - 4 : 0;
}

}  // namespace

Mpeg4Config FindMpeg4Config(const uint8_t* data, uint32_t length) {
    const uint32_t limit = Limit(data, length);
    const uint32_t begin = FindValue(data, 0, limit, [](uint8_t value) {
        return value == kVideoObject0 || value == kVideoObject1 || value == kVideoObjectLayer0 ||
               value == kVisualObjectSequence || value == kUserData || value == kGroupOfVop || value == kVisualObject;
    });
    if (begin == kNone) return {};
    const uint32_t end = FindValue(data, begin, limit, [](uint8_t value) { return value == kVop; });
    return {true, begin, end == kNone ? 0 : end - begin};
}

}  // namespace Orvane::Muxora
