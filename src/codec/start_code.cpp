#include "codec/start_code.h"

#include <cstring>

#include "codec/kernels/start_code_kernels.h"

namespace Orvane::Muxora {

const uint8_t* FindStartCode(const uint8_t* begin, const uint8_t* end) {
    return Kernels::start_code_choice.Get().find(begin, end);
}

const uint8_t* CopyToStartCode(uint8_t* out, const uint8_t* begin, const uint8_t* end) {
    return Kernels::start_code_choice.Get().copy(out, begin, end);
}

const uint8_t* FindLongStartCode(const uint8_t* begin, const uint8_t* end) {
    const uint8_t* p = begin;
    while (end - p >= 4) {
        // The zero ahead of the three bytes must lie within the range.
        const uint8_t* const hit = FindStartCode(p + 1, end);
        if (hit == end) break;
        if (hit[-1] == 0) return hit - 1;
        p = hit + 2;
    }
    return end;
}

const uint8_t* CopyToLongStartCode(uint8_t* out, const uint8_t* begin, const uint8_t* end) {
    constexpr int kShortCode = 3;
    const uint8_t* p = begin;
    while (true) {
        const uint8_t* const hit = CopyToStartCode(out + (p - begin), p, end);
        if (hit == end) return end;
        if (hit != begin && hit[-1] == 0) return hit - 1;
        std::memcpy(out + (hit - begin), hit, kShortCode);
        p = hit + kShortCode;
    }
}

StartCode NextStartCode(const uint8_t* data, uint32_t length, uint32_t from) {
    if (data == nullptr || length < 4) return {};
    const uint32_t limit = length - 3;
    if (from >= limit) return {};
    const uint8_t* const hit = FindStartCode(data + from, data + length);
    if (hit == data + length) return {};
    const auto position = static_cast<uint32_t>(hit - data);
    if (position > from && hit[-1] == 0) return {position - 1, 4};
    if (position < limit) return {position, 3};
    return {};
}

}  // namespace Orvane::Muxora
