#pragma once

#include <cstdint>

namespace Orvane::Muxora {

// Reads fields of bits, most significant bit first, over a window of two 32-bit words. Bits behind the end of the data
// read as 0, and the data must stay in place while it is read.
class CBitReader {
  public:
    void Init(const uint8_t* data, uint32_t length);

    // The next `n` bits, 0 to 32, without moving. For more than 32 the value means nothing.
    uint32_t Peek(uint32_t n) const;
    // Moves on by `n` bits. Only one word is fetched per call, so that after more than 32 bits the window lags behind
    // until the next call.
    void Skip(uint32_t n);
    uint32_t Read(uint32_t n);
    uint32_t ReadBit() { return Read(1); }
    // Exp-Golomb values, ue(v) and se(v) (ITU-T H.264 9.1). More zeros than any legal value has give 0xFFFFFFFF.
    uint32_t ReadUe();
    int32_t ReadSe();
    // Moves on to the next byte.
    void ByteAlign();

  private:
    // The big-endian word at a byte offset.
    uint32_t Word(uint64_t offset) const;

    uint32_t cur_ = 0;
    uint32_t next_ = 0;
    uint32_t bitPos_ = 0;
    uint64_t ptr_ = 0;  // offset of the word in cur_
    const uint8_t* start_ = nullptr;
    uint32_t size_ = 0;
};

// The bits from `first` up to but not including `last`, counted from the most significant bit, right-aligned. The 16-
// and 32-bit forms take the value as it lies in big-endian memory and swap its bytes first. Bits that the value does
// not have are left out; an empty range gives 0.
uint8_t ExtractBits8(uint8_t value, uint32_t first, uint32_t last);
uint16_t ExtractBits16(uint16_t value, uint32_t first, uint32_t last);
uint32_t ExtractBits32(uint32_t value, uint32_t first, uint32_t last);

}  // namespace Orvane::Muxora
