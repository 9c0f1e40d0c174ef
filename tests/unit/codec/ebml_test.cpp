#include "codec/ebml.h"

#include <gtest/gtest.h>

#include "support/hex.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;

ByteVector Coded(uint64_t value) {
    uint32_t length = 99;
    const uint8_t* const code = EbmlCodeSize(value, &length);
    return {code, code + length};
}

TEST(EbmlCodeSize, OneByteBelow127) {
    EXPECT_EQ(Coded(0), Bytes("80"));
    EXPECT_EQ(Coded(1), Bytes("81"));
    EXPECT_EQ(Coded(22), Bytes("96"));
    EXPECT_EQ(Coded(126), Bytes("FE"));
}

TEST(EbmlCodeSize, TwoBytesBelow16383) {
    EXPECT_EQ(Coded(127), Bytes("40 7F"));
    EXPECT_EQ(Coded(128), Bytes("40 80"));
    EXPECT_EQ(Coded(16382), Bytes("7F FE"));
}

TEST(EbmlCodeSize, ThreeBytesBelow0x1FFFFF) {
    EXPECT_EQ(Coded(16383), Bytes("20 3F FF"));
    EXPECT_EQ(Coded(0x1FFFFE), Bytes("3F FF FE"));
}

TEST(EbmlCodeSize, FourBytesBelow0xFFFFFFF) {
    EXPECT_EQ(Coded(0x1FFFFF), Bytes("10 1F FF FF"));
    EXPECT_EQ(Coded(0x200000), Bytes("10 20 00 00"));
    EXPECT_EQ(Coded(0xFFFFFFE), Bytes("1F FF FF FE"));
}

TEST(EbmlCodeSize, LargerValuesCodeTheirUpperHalf) {
    EXPECT_EQ(Coded(0xFFFFFFF), Bytes("80 0F FF FF FF"));
    EXPECT_EQ(Coded(0x100000000), Bytes("81 00 00 00 00"));
    EXPECT_EQ(Coded(0x0000007F'12345678), Bytes("40 7F 12 34 56 78"));
    EXPECT_EQ(Coded(0x0FFFFFFE'00000001), Bytes("1F FF FF FE 00 00 00 01"));
    EXPECT_EQ(Coded(0x0FFFFFFF'00000000), ByteVector());
    EXPECT_EQ(Coded(0xFFFFFFFF'FFFFFFFF), ByteVector());
}

TEST(EbmlCodeSize, LengthAlone) {
    EXPECT_EQ(EbmlCodeLength(126), 1u);
    EXPECT_EQ(EbmlCodeLength(127), 2u);
    EXPECT_EQ(EbmlCodeLength(16383), 3u);
    EXPECT_EQ(EbmlCodeLength(0x1FFFFF), 4u);
}

TEST(EbmlSize8, AOneAheadOfSevenBytes) {
    uint8_t out[8];
    PutBE64(out, EbmlSize8(50));
    EXPECT_EQ(ByteVector(out, out + 8), Bytes("01 00 00 00 00 00 00 32"));
    PutBE64(out, EbmlSize8(0x00123456789ABCDE));
    EXPECT_EQ(ByteVector(out, out + 8), Bytes("01 12 34 56 78 9A BC DE"));
}

TEST(EbmlHeads, AnIdIsAsLongAsItsNumber) {
    uint8_t area[64];
    ByteCursor out(area);
    PutElement(out, ElementId::kTrackNumber, 1).U8(7);
    PutElement(out, ElementId::kTrackUid, 1).U8(2);
    PutElement(out, ElementId::kLanguage, 3).Text("und");
    PutMaster(out, ElementId::kCues, 5);
    EXPECT_EQ(ByteVector(area, area + out.Size()),
              Bytes("D7 81 07  73 C5 81 02  22 B5 9C 83 75 6E 64  1C 53 BB 6B 01 00 00 00 00 00 00 05"));
}

}  // namespace
}  // namespace Orvane::Muxora
