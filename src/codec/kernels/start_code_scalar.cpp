#include <bit>
#include <cstring>

#include "codec/kernels/start_code_kernels.h"

namespace Orvane::Muxora::Kernels {

// Looks at the third byte of each candidate: above 1 it rules out three positions at once.
const uint8_t* FindStartCodeScalar(const uint8_t* begin, const uint8_t* end) {
    if (end - begin < 3) return end;
    const uint8_t* const last = end - 3;
    for (const uint8_t* p = begin; p <= last;) {
        if (p[2] > 1) {
            p += 3;
        } else if (p[2] == 1) {
            if (p[0] == 0 && p[1] == 0) return p;
            p += 3;
        } else {
            p += p[1] == 0 ? 1 : 2;
        }
    }
    return end;
}

namespace {

constexpr int kWord = 8;
constexpr int kBlock = 4 * kWord;

// Copies a word. Not zero if one of its four pairs is 00 00 or 00 01.
inline uint64_t CopyWord(uint8_t* out, const uint8_t* p) {
    constexpr uint64_t kLow = 0x0001000100010001;
    constexpr uint64_t kHigh = 0x8000800080008000;
    constexpr uint64_t kPairs = std::endian::native == std::endian::little ? 0xFEFFFEFFFEFFFEFF : 0xFFFEFFFEFFFEFFFE;
    uint64_t word = 0;
    std::memcpy(&word, p, sizeof word);
    std::memcpy(out, &word, sizeof word);
    word &= kPairs;
    return (word - kLow) & ~word & kHigh;
}

}  // namespace

const uint8_t* CopyToStartCodeScalar(uint8_t* out, const uint8_t* begin, const uint8_t* end) {
    const uint8_t* p = begin;
    if (end - begin < kWord) {
        for (; p != end; ++p)
            *out++ = *p;
        return FindStartCodeScalar(begin, end);
    }
    for (; end - p >= kBlock; p += kBlock, out += kBlock) {
        const uint64_t pairs = CopyWord(out, p) | CopyWord(out + kWord, p + kWord) |
                               CopyWord(out + 2 * kWord, p + 2 * kWord) | CopyWord(out + 3 * kWord, p + 3 * kWord);
        if (pairs == 0) [[likely]]
            continue;
        if (const uint8_t* const hit = LookAround(begin, p, p + kBlock, end, FindStartCodeScalar)) return hit;
    }
    const uint8_t* const rest = p;
    uint64_t pairs = 0;
    for (; end - p >= kWord; p += kWord, out += kWord)
        pairs |= CopyWord(out, p);
    const int64_t back = kWord - (end - p);
    pairs |= CopyWord(out - back, p - back);
    if (pairs == 0) return end;
    const uint8_t* const hit = LookAround(begin, rest, end, end, FindStartCodeScalar);
    return hit != nullptr ? hit : end;
}

}  // namespace Orvane::Muxora::Kernels
