#include "codec/bit_reader.h"

#include <gtest/gtest.h>

#include <memory>

#include "support/bits.h"
#include "support/hex.h"
#include "support/noise.h"

namespace Orvane::Muxora {
namespace {

using test::BitString;
using test::Bytes;
using test::ByteVector;

CBitReader Reader(const ByteVector& data) {
    CBitReader bits;
    bits.Init(data.data(), static_cast<uint32_t>(data.size()));
    return bits;
}

TEST(BitReader, ReadsFieldsFromTheMostSignificantBit) {
    const ByteVector data = Bytes("A5 0F 12 34 56 78 9A BC DE");
    CBitReader bits = Reader(data);
    EXPECT_EQ(bits.ReadBit(), 1u);
    EXPECT_EQ(bits.Peek(3), 2u);
    EXPECT_EQ(bits.Read(3), 2u);
    EXPECT_EQ(bits.Read(4), 5u);
    EXPECT_EQ(bits.Read(32), 0x0F123456u);
    EXPECT_EQ(bits.Read(0), 0u);
    EXPECT_EQ(bits.Read(8), 0x78u);
    EXPECT_EQ(bits.Read(24), 0x9ABCDEu);
}

TEST(BitReader, AgreesWithATextOfBits) {
    std::mt19937 random(40);
    for (int round = 0; round < 300; ++round) {
        const ByteVector data = test::RandomBytes(random, 40);
        std::string text;
        for (const uint8_t byte : data)
            text += BitString().Put(byte, 8).Text();
        CBitReader bits = Reader(data);
        for (size_t at = 0;;) {
            const size_t width = 1 + random() % 32;
            if (at + width > text.size()) break;
            ASSERT_EQ(bits.Read(static_cast<uint32_t>(width)), std::stoul(text.substr(at, width), nullptr, 2));
            at += width;
        }
    }
}

TEST(BitReader, UnsignedExpGolomb) {
    BitString text;
    constexpr uint32_t kValues[] = {0, 1, 2, 3, 4, 7, 8, 254, 255, 65535, 1919, 0x7FFFFFFE, 0xFFFFFFFE};
    for (const uint32_t value : kValues)
        text.Ue(value);
    const ByteVector data = text.Bytes();
    CBitReader bits = Reader(data);
    for (const uint32_t value : kValues)
        EXPECT_EQ(bits.ReadUe(), value);
}

TEST(BitReader, SignedExpGolomb) {
    BitString text;
    for (uint32_t code = 0; code <= 6; ++code)
        text.Ue(code);
    const ByteVector data = text.Bytes();
    CBitReader bits = Reader(data);
    for (const int32_t value : {0, 1, -1, 2, -2, 3, -3})
        EXPECT_EQ(bits.ReadSe(), value);
}

TEST(BitReader, ByteAlign) {
    const ByteVector data = Bytes("FF 01 02 03 04 05");
    CBitReader bits = Reader(data);
    bits.ByteAlign();
    EXPECT_EQ(bits.Peek(8), 0xFFu);
    bits.Skip(1);
    bits.ByteAlign();
    EXPECT_EQ(bits.Read(8), 1u);
    bits.Skip(15);
    bits.ByteAlign();
    EXPECT_EQ(bits.Read(8), 4u);
}

TEST(BitReader, BehindTheEndThereAreZeros) {
    for (size_t length = 0; length <= 9; ++length) {
        const auto block = std::make_unique<uint8_t[]>(length);
        std::fill_n(block.get(), length, uint8_t{0xFF});
        CBitReader bits;
        bits.Init(block.get(), static_cast<uint32_t>(length));
        for (size_t i = 0; i < length; ++i)
            EXPECT_EQ(bits.Read(8), 0xFFu);
        for (size_t i = 0; i < 10; ++i)
            EXPECT_EQ(bits.Read(32), 0u);
        EXPECT_EQ(bits.ReadUe(), 0xFFFFFFFFu);
    }
    CBitReader bits;
    EXPECT_EQ(bits.Read(32), 0u);
    bits.Init(nullptr, 100);
    EXPECT_EQ(bits.Read(32), 0u);
}

// A step of 44 bits fetches one word only: the window stands 32 bits behind until the next step, and shift counts wrap.
TEST(BitReader, ALongStepLagsBehind) {
    const ByteVector data = Bytes("00 11 22 33 44 55 66 77 88 99 AA BB CC DD EE FF");
    CBitReader bits = Reader(data);
    bits.Skip(24);
    bits.Skip(44);  // bit 68, but the window begins at 32: position 36 in it
    // (0x44556677 & (all ones >> 4)) << 12 | 0x8899AABB >> 20
    EXPECT_EQ(bits.Peek(8), 0x56677889u & 0xFFFFFFFF);
    bits.Skip(8);  // bit 76, and the window has caught up
    EXPECT_EQ(bits.Read(8), 0x9Au);
    CBitReader near = Reader(data);
    near.Skip(4);
    near.Skip(44);  // position 16 in the second word: nothing lags
    EXPECT_EQ(near.Read(8), 0x66u);
}

TEST(ExtractBits, CountFromTheMostSignificantBit) {
    EXPECT_EQ(ExtractBits8(0xB4, 0, 8), 0xB4);
    EXPECT_EQ(ExtractBits8(0xB4, 0, 3), 5);
    EXPECT_EQ(ExtractBits8(0xB4, 3, 6), 5);
    EXPECT_EQ(ExtractBits8(0xB4, 7, 8), 0);
    // 12 34 in memory, read by a little-endian machine.
    EXPECT_EQ(ExtractBits16(0x3412, 0, 16), 0x1234);
    EXPECT_EQ(ExtractBits16(0x3412, 4, 12), 0x23);
    EXPECT_EQ(ExtractBits32(0x78563412, 0, 32), 0x12345678u);
    EXPECT_EQ(ExtractBits32(0x78563412, 8, 24), 0x3456u);
    EXPECT_EQ(ExtractBits32(0x78563412, 31, 32), 0u);
}

TEST(ExtractBits, RangesBeyondTheValue) {
    EXPECT_EQ(ExtractBits8(0xFF, 4, 4), 0);
    EXPECT_EQ(ExtractBits8(0xFF, 5, 2), 0);
    EXPECT_EQ(ExtractBits8(0xFF, 4, 100), 0x0F);
    EXPECT_EQ(ExtractBits32(0xFFFFFFFF, 40, 50), 0u);
}

}  // namespace
}  // namespace Orvane::Muxora
