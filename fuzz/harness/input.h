// Reads a fuzzer's bytes as values; zeros behind the end.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace fuzz {

// What must hold of every input.
inline void Require(bool truth) {
    if (!truth) std::abort();
}

class Input {
  public:
    Input(const uint8_t* data, size_t size) : at_(data), end_(data + size) {}

    bool Empty() const { return at_ == end_; }
    uint8_t U8() { return at_ < end_ ? *at_++ : 0; }
    uint16_t U16() { return static_cast<uint16_t>(U8() | U8() << 8); }
    uint32_t U32() { return U16() | static_cast<uint32_t>(U16()) << 16; }
    uint64_t U64() { return U32() | static_cast<uint64_t>(U32()) << 32; }
    // One of the values, or now and then anything.
    template <size_t N>
    uint32_t Choose(const uint32_t (&values)[N]) {
        const uint8_t choice = U8();
        return choice < 240 ? values[choice % N] : U32();
    }
    // Seldom anything, mostly small.
    uint32_t Number() {
        const uint8_t kind = U8();
        return kind < 128 ? kind : kind < 224 ? U16() : U32();
    }
    // At most so many; at the end fewer.
    const uint8_t* Take(size_t& count) {
        const uint8_t* const first = at_;
        count = std::min(count, static_cast<size_t>(end_ - at_));
        at_ += count;
        return first;
    }
    std::vector<uint8_t> Bytes(size_t count) {
        const uint8_t* const first = Take(count);
        return {first, first + count};
    }

  private:
    const uint8_t* at_;
    const uint8_t* end_;
};

}  // namespace fuzz
