// Which start codes begin the headers of MPEG-4 Visual, and which end them (ISO/IEC 14496-2 Table 6-3).
#include "codec/mpeg4_headers.h"

#include <gtest/gtest.h>

#include "support/hex.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::operator+;

ByteVector Found(const ByteVector& frame) {
    const std::span<const uint8_t> headers = FindMpeg4Headers(frame);
    return {headers.begin(), headers.end()};
}

ByteVector Unit(uint8_t code) {
    return ByteVector{0, 0, 1, code, 0x11, 0x22};
}

TEST(Mpeg4Headers, BeginWithAnyHeader) {
    for (const uint32_t code : {0x00u, 0x1Fu, 0xB0u, 0xB5u}) {
        const ByteVector headers = Unit(static_cast<uint8_t>(code)) + Unit(0x20);
        EXPECT_EQ(Found(Bytes("77") + headers + Unit(0xB6)), headers) << code;
        EXPECT_EQ(Found(headers + Unit(0xB3) + Unit(0xB6)), headers) << code;
    }
    EXPECT_EQ(Found(Unit(0x2F) + Unit(0xB6)), Unit(0x2F));
    // User data, the end of a sequence and what is reserved begin none, but stand among them.
    for (const uint32_t code : {0x30u, 0xB1u, 0xB2u, 0xB4u, 0xB7u, 0xC0u})
        EXPECT_EQ(Found(Unit(static_cast<uint8_t>(code)) + Unit(0x20) + Unit(static_cast<uint8_t>(code)) + Unit(0xB6)),
                  Unit(0x20) + Unit(static_cast<uint8_t>(code)))
            << code;
}

TEST(Mpeg4Headers, AreNoneWithoutALayerOrAPicture) {
    EXPECT_TRUE(Found(Unit(0xB0) + Unit(0xB5) + Unit(0x00) + Unit(0xB6)).empty());
    EXPECT_TRUE(Found(Unit(0xB0) + Unit(0x20)).empty());
    EXPECT_TRUE(Found(Unit(0xB6) + Unit(0x20)).empty());
    EXPECT_TRUE(Found({}).empty());
    // A start code whose value is not there any more.
    const ByteVector cut = Unit(0x20) + Bytes("00 00 01 B6");
    EXPECT_TRUE(FindMpeg4Headers({cut.data(), cut.size() - 1}).empty());
    EXPECT_EQ(Found(cut), Unit(0x20));
}

}  // namespace
}  // namespace Orvane::Muxora
