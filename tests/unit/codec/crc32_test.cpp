#include "codec/crc32.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "codec/kernels/crc32_kernels.h"
#include "support/hex.h"
#include "support/kernels.h"
#include "support/noise.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::Text;

// One bit at a time, as the standards draw the shift register.
uint32_t BitwiseReflected(uint32_t state, const uint8_t* data, size_t length) {
    for (size_t i = 0; i < length; ++i) {
        state ^= data[i];
        for (int bit = 0; bit < 8; ++bit)
            state = (state & 1) != 0 ? (state >> 1) ^ 0xEDB88320u : state >> 1;
    }
    return state;
}

uint32_t BitwiseMpeg2(const ByteVector& data) {
    uint32_t state = 0xFFFFFFFF;
    for (const uint8_t byte : data) {
        for (int bit = 7; bit >= 0; --bit) {
            const uint32_t feedback = (state >> 31) ^ ((byte >> bit) & 1u);
            state = (state << 1) ^ (feedback != 0 ? 0x04C11DB7u : 0);
        }
    }
    return state;
}

class Crc32Kernels : public testing::TestWithParam<Kernels::Crc32Kernel> {};

TEST_P(Crc32Kernels, GivesTheCheckValue) {
    const ByteVector digits = Text("123456789");
    EXPECT_EQ(~GetParam().update(0xFFFFFFFF, digits.data(), digits.size()), 0xCBF43926u);
}

TEST_P(Crc32Kernels, AgreesWithTheTablesOnEveryLength) {
    std::mt19937 random(10);
    const ByteVector data = test::RandomBytes(random, 4096);
    for (size_t length = 0; length <= 4096; ++length) {
        const auto state = static_cast<uint32_t>(random());
        ASSERT_EQ(GetParam().update(state, data.data(), length), Kernels::Crc32Table(state, data.data(), length))
            << length;
    }
}

TEST_P(Crc32Kernels, AgreesWithTheTablesOnEveryAlignment) {
    std::mt19937 random(11);
    const ByteVector data = test::RandomBytes(random, 4096 + 64);
    for (size_t align = 0; align < 64; ++align) {
        for (size_t length = 0; length <= 4096; length += 1 + random() % 61) {
            ASSERT_EQ(GetParam().update(0xFFFFFFFF, data.data() + align, length),
                      Kernels::Crc32Table(0xFFFFFFFF, data.data() + align, length))
                << align << ", " << length;
        }
    }
}

// The exact heap block lets a sanitizer see any byte read outside the range.
TEST_P(Crc32Kernels, ReadsNothingOutside) {
    for (size_t length = 0; length <= 600; ++length) {
        const auto block = std::make_unique<uint8_t[]>(length);
        std::memset(block.get(), 0xA5, length);
        ASSERT_EQ(GetParam().update(7, block.get(), length), BitwiseReflected(7, block.get(), length));
    }
}

TEST_P(Crc32Kernels, CopiesEveryLengthAndWritesNothingOutside) {
    std::mt19937 random(16);
    const ByteVector data = test::RandomBytes(random, 4096);
    for (size_t length = 0; length <= 4096; length += length < 700 ? 1 : 61) {
        const auto out = std::make_unique<uint8_t[]>(length);
        ASSERT_EQ(GetParam().copy(7, out.get(), data.data(), length), Kernels::Crc32Table(7, data.data(), length));
        ASSERT_EQ(std::memcmp(out.get(), data.data(), length), 0) << length;
    }
}

INSTANTIATE_TEST_SUITE_P(All, Crc32Kernels, testing::ValuesIn(test::Supported(Kernels::Crc32Kernels())),
                         [](const auto& kernel) { return std::string(kernel.param.name); });

TEST(Crc32, TheTablesAgreeWithTheShiftRegister) {
    std::mt19937 random(12);
    const ByteVector data = test::RandomBytes(random, 300);
    for (size_t length = 0; length <= data.size(); ++length) {
        const auto state = static_cast<uint32_t>(random());
        ASSERT_EQ(Kernels::Crc32Table(state, data.data(), length), BitwiseReflected(state, data.data(), length));
    }
}

TEST(Crc32, KnownValues) {
    EXPECT_EQ(Crc32(nullptr, 0), 0u);
    EXPECT_EQ(Crc32(Text("123456789").data(), 9), 0xCBF43926u);
    EXPECT_EQ(Crc32(Bytes("00 00 00 00").data(), 4), 0x2144DF1Cu);
    EXPECT_EQ(Crc32(Text("The quick brown fox jumps over the lazy dog").data(), 43), 0x414FA339u);
}

TEST(Crc32, PiecesGiveTheSameAsTheWhole) {
    std::mt19937 random(13);
    const ByteVector data = test::RandomBytes(random, 100000);
    const uint32_t whole = Crc32(data.data(), 100000);
    for (int round = 0; round < 50; ++round) {
        uint32_t crc = 0;
        for (size_t at = 0; at < data.size();) {
            const size_t piece = std::min<size_t>(data.size() - at, random() % 5000);
            crc = Crc32Update(crc, data.data() + at, piece);
            at += piece;
        }
        ASSERT_EQ(crc, whole);
    }
}

TEST(Crc32, CopyCopiesAndChecksumsAtOnce) {
    std::mt19937 random(14);
    for (const size_t length : {0u, 1u, 341u, 8191u, 8192u, 8193u, 50000u}) {
        const ByteVector data = test::RandomBytes(random, length);
        const auto out = std::make_unique<uint8_t[]>(length);
        EXPECT_EQ(Crc32Copy(0, out.get(), data.data(), length), Crc32Update(0, data.data(), length));
        EXPECT_EQ(ByteVector(out.get(), out.get() + length), data);
        EXPECT_EQ(Crc32Copy(5, out.get(), data.data(), length), Crc32Update(5, data.data(), length));
    }
}

TEST(Crc32Mpeg2, KnownValues) {
    EXPECT_EQ(Crc32Mpeg2(nullptr, 0), 0xFFFFFFFFu);
    EXPECT_EQ(Crc32Mpeg2(Text("123456789").data(), 9), 0x0376E6E7u);
    // A program association table as it goes over the air: its CRC closes the section to 0.
    const ByteVector section = Bytes("00 B0 0D 00 01 C1 00 00 00 01 F0 00 2A B1 04 B2");
    EXPECT_EQ(Crc32Mpeg2(section.data(), 12), 0x2AB104B2u);
    EXPECT_EQ(Crc32Mpeg2(section.data(), 16), 0u);
}

TEST(Crc32Mpeg2, AgreesWithTheShiftRegister) {
    std::mt19937 random(15);
    for (size_t length = 0; length < 300; ++length) {
        const ByteVector data = test::RandomBytes(random, length);
        ASSERT_EQ(Crc32Mpeg2(data.data(), static_cast<uint32_t>(length)), BitwiseMpeg2(data));
    }
}

}  // namespace
}  // namespace Orvane::Muxora
