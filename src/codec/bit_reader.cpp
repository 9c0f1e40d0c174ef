#include "codec/bit_reader.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kWordBits = 32;

// Shift counts act modulo 32: after a step of more than 32 bits the position may stand at 32 or above, and what is read
// there is part of the outcome.
constexpr uint32_t ShiftLeft(uint32_t value, uint32_t count) {
    return value << (count & 31);
}
constexpr uint32_t ShiftRight(uint32_t value, uint32_t count) {
    return value >> (count & 31);
}

uint32_t ExtractBits(uint32_t value, uint32_t width, uint32_t first, uint32_t last) {
    if (last > width) last = width;
    if (first >= last) return 0;
    const uint32_t count = last - first;
    return (value >> (width - last)) & (0xFFFFFFFF >> (kWordBits - count));
}

}  // namespace

void CBitReader::Init(const uint8_t* data, uint32_t length) {
    start_ = data;
    size_ = data != nullptr ? length : 0;
    ptr_ = 0;
    bitPos_ = 0;
    cur_ = Word(0);
    next_ = Word(4);
}

uint32_t CBitReader::Peek(uint32_t n) const {
    if (n == 0) return 0;
    const uint32_t rest = cur_ & ShiftRight(0xFFFFFFFF, bitPos_);
    const uint32_t wanted = n + bitPos_;
    if (wanted <= kWordBits) return ShiftRight(rest, kWordBits - wanted);
    const uint32_t over = wanted - kWordBits;
    return ShiftLeft(rest, over) | ShiftRight(next_, kWordBits - over);
}

void CBitReader::Skip(uint32_t n) {
    bitPos_ += n;
    if (bitPos_ < kWordBits) return;
    cur_ = next_;
    next_ = Word(ptr_ + 8);
    ptr_ += 4;
    bitPos_ -= kWordBits;
}

uint32_t CBitReader::Read(uint32_t n) {
    const uint32_t value = Peek(n);
    Skip(n);
    return value;
}

uint32_t CBitReader::ReadUe() {
    uint32_t zeros = 0;
    while (ReadBit() == 0) {
        if (++zeros == kWordBits) return 0xFFFFFFFF;
    }
    if (zeros == 0) return 0;
    return (1u << zeros) + Read(zeros) - 1;
}

int32_t CBitReader::ReadSe() {
    const uint32_t value = ReadUe();
    const auto magnitude = static_cast<int32_t>(value / 2 + value % 2);
    return value % 2 != 0 ? magnitude : -magnitude;
}

void CBitReader::ByteAlign() {
    Skip((8 - bitPos_ % 8) % 8);
}

uint32_t CBitReader::Word(uint64_t offset) const {
    uint32_t word = 0;
    for (uint64_t i = 0; i < 4; ++i)
        word = word << 8 | (offset + i < size_ ? start_[offset + i] : 0u);
    return word;
}

uint8_t ExtractBits8(uint8_t value, uint32_t first, uint32_t last) {
    return static_cast<uint8_t>(ExtractBits(value, 8, first, last));
}

uint16_t ExtractBits16(uint16_t value, uint32_t first, uint32_t last) {
    const uint32_t swapped = (value & 0xFFu) << 8 | value >> 8;
    return static_cast<uint16_t>(ExtractBits(swapped, 16, first, last));
}

uint32_t ExtractBits32(uint32_t value, uint32_t first, uint32_t last) {
    const uint32_t swapped = value << 24 | (value & 0xFF00) << 8 | (value >> 8 & 0xFF00) | value >> 24;
    return ExtractBits(swapped, 32, first, last);
}

}  // namespace Orvane::Muxora
