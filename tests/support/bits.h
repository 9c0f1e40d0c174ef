// Builds byte strings bit by bit for tests.
#pragma once

#include <cstdint>
#include <string>

#include "support/hex.h"

namespace test {

class BitString {
  public:
    // The low `width` bits of `value`, most significant first; zeros ahead of its 64.
    BitString& Put(uint64_t value, uint32_t width) {
        for (uint32_t i = width; i-- > 0;)
            text_ += i < 64 && ((value >> i) & 1) != 0 ? '1' : '0';
        return *this;
    }
    // An unsigned Exp-Golomb code: as many zeros as the binary text of value + 1 has digits behind its first.
    BitString& Ue(uint64_t value) {
        uint32_t digits = 0;
        for (uint64_t rest = value + 1; rest != 0; rest >>= 1)
            ++digits;
        return Put(0, digits - 1).Put(value + 1, digits);
    }
    size_t Size() const { return text_.size(); }
    const std::string& Text() const { return text_; }
    // The bytes, the last one filled with `fill` bits.
    ByteVector Bytes(char fill = '0') const {
        std::string text = text_;
        while (text.size() % 8 != 0)
            text += fill;
        ByteVector out;
        for (size_t i = 0; i < text.size(); i += 8)
            out.push_back(static_cast<uint8_t>(std::stoul(text.substr(i, 8), nullptr, 2)));
        return out;
    }

  private:
    std::string text_;
};

// With a 3 behind two zeros where the next byte is 3 or less, as an encoder would (ITU-T H.264 7.4.1, H.265 7.4.2).
inline ByteVector WithEmulationPrevention(const ByteVector& plain) {
    ByteVector out;
    size_t zeros = 0;
    for (const uint8_t byte : plain) {
        if (zeros >= 2 && byte <= 3) {
            out.push_back(3);
            zeros = 0;
        }
        out.push_back(byte);
        zeros = byte == 0 ? zeros + 1 : 0;
    }
    return out;
}

}  // namespace test
