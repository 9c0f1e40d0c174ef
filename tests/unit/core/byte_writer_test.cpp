#include "core/byte_writer.h"

#include <gtest/gtest.h>

#include "support/hex.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;

// What a writer leaves in an area of 20 bytes of CC: the bytes that it says it wrote. Fails when it wrote more.
template <typename Writer>
ByteVector Written(Writer write) {
    ByteVector area(20, 0xCC);
    const uint32_t count = write(area.data());
    for (size_t i = count; i < area.size(); ++i)
        EXPECT_EQ(area[i], 0xCC);
    area.resize(count);
    return area;
}

TEST(ByteWriter, BigEndian) {
    EXPECT_EQ(Written([](uint8_t* p) { return PutU8(p, 0xA1); }), Bytes("A1"));
    EXPECT_EQ(Written([](uint8_t* p) { return PutBE16(p, 0xA1B2); }), Bytes("A1 B2"));
    EXPECT_EQ(Written([](uint8_t* p) { return PutBE24(p, 0xFFA1B2C3); }), Bytes("A1 B2 C3"));
    EXPECT_EQ(Written([](uint8_t* p) { return PutBE32(p, 0xA1B2C3D4); }), Bytes("A1 B2 C3 D4"));
    EXPECT_EQ(Written([](uint8_t* p) { return PutBE64(p, 0xA1B2C3D4E5F60718); }), Bytes("A1 B2 C3 D4 E5 F6 07 18"));
}

TEST(ByteWriter, DoublesAreIeee754) {
    EXPECT_EQ(Written([](uint8_t* p) { return PutBEDouble(p, 0.0); }), Bytes("00 00 00 00 00 00 00 00"));
    EXPECT_EQ(Written([](uint8_t* p) { return PutBEDouble(p, 1.0); }), Bytes("3F F0 00 00 00 00 00 00"));
    EXPECT_EQ(Written([](uint8_t* p) { return PutBEDouble(p, -2.5); }), Bytes("C0 04 00 00 00 00 00 00"));
}

TEST(ByteWriter, LittleEndian) {
    EXPECT_EQ(Written([](uint8_t* p) { return PutLE16(p, 0xA1B2); }), Bytes("B2 A1"));
    EXPECT_EQ(Written([](uint8_t* p) { return PutLE32(p, 0xA1B2C3D4); }), Bytes("D4 C3 B2 A1"));
    EXPECT_EQ(Written([](uint8_t* p) { return PutLE64(p, 0xA1B2C3D4E5F60718); }), Bytes("18 07 F6 E5 D4 C3 B2 A1"));
}

TEST(ByteWriter, GuidStandsAsItIs) {
    const ByteVector guid = Bytes("30 26 B2 75 8E 66 CF 11 A6 D9 00 AA 00 62 CE 6C");
    EXPECT_EQ(Written([&](uint8_t* p) { return PutGuid(p, guid.data()); }), guid);
}

TEST(ByteWriter, DescriptorLengthInGroupsOfSevenBits) {
    const auto written = [](uint32_t value) {
        return Written([=](uint8_t* p) { return PutDescriptorLength(p, value); });
    };
    EXPECT_EQ(written(0), Bytes("00"));
    EXPECT_EQ(written(127), Bytes("7F"));
    EXPECT_EQ(written(128), Bytes("81 00"));
    EXPECT_EQ(written(16383), Bytes("FF 7F"));
    EXPECT_EQ(written(16384), Bytes("81 80 00"));
    EXPECT_EQ(written(0x1FFFFF), Bytes("FF FF 7F"));
    EXPECT_EQ(written(0x200000), Bytes("81 80 80 00"));
    EXPECT_EQ(written(0x0FFFFFFF), Bytes("FF FF FF 7F"));
    EXPECT_EQ(written(0xFFFFFFFF), Bytes("FF FF FF 7F"));
}

TEST(ByteWriter, NullWritesNothing) {
    const uint8_t guid[16] = {};
    EXPECT_EQ(PutU8(nullptr, 1), 0u);
    EXPECT_EQ(PutBE16(nullptr, 1), 0u);
    EXPECT_EQ(PutBE24(nullptr, 1), 0u);
    EXPECT_EQ(PutBE32(nullptr, 1), 0u);
    EXPECT_EQ(PutBE64(nullptr, 1), 0u);
    EXPECT_EQ(PutBEDouble(nullptr, 1), 0u);
    EXPECT_EQ(PutLE16(nullptr, 1), 0u);
    EXPECT_EQ(PutLE32(nullptr, 1), 0u);
    EXPECT_EQ(PutLE64(nullptr, 1), 0u);
    EXPECT_EQ(PutGuid(nullptr, guid), 0u);
    EXPECT_EQ(PutDescriptorLength(nullptr, 1), 0u);
}

TEST(ByteCursor, PutsFieldBehindField) {
    uint8_t area[64];
    const uint8_t guid[16] = {0x10, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17,
                              0x18, 0x19, 0x1A, 0x1B, 0x1C, 0x1D, 0x1E, 0x1F};
    ByteCursor out(area);
    out.U8(1).BE16(2).BE24(3).BE32(4).BE64(5).LE16(6).LE32(7).LE64(8).Text("mdat").Guid(guid).Zeros(2).Bytes("xy", 2);
    EXPECT_TRUE(out.Ok());
    EXPECT_EQ(out.Data(), area);
    EXPECT_EQ(ByteVector(area, area + out.Size()),
              Bytes("01  00 02  00 00 03  00 00 00 04  00 00 00 00 00 00 00 05"
                    "06 00  07 00 00 00  08 00 00 00 00 00 00 00  6D 64 61 74"
                    "10 11 12 13 14 15 16 17 18 19 1A 1B 1C 1D 1E 1F  00 00  78 79"));
    ByteCursor value(area);
    value.BEDouble(1.0);
    EXPECT_EQ(ByteVector(area, area + 8), Bytes("3F F0 00 00 00 00 00 00"));
}

TEST(ByteCursor, LeavesOutWhatDoesNotFit) {
    uint8_t area[6] = {0xCC, 0xCC, 0xCC, 0xCC, 0xCC, 0xCC};
    ByteCursor out(area, 5);
    out.BE32(0x01020304).BE16(0x0506);
    EXPECT_FALSE(out.Ok());
    EXPECT_EQ(out.Size(), 4u);
    EXPECT_EQ(ByteVector(area, area + 6), Bytes("01 02 03 04 CC CC"));
}

TEST(ByteCursor, NothingFromNowhereIsFine) {
    ByteCursor out(nullptr, 0);
    out.Bytes(nullptr, 0).Zeros(0);
    EXPECT_TRUE(out.Ok());
    out.U8(1);
    EXPECT_FALSE(out.Ok());
    EXPECT_EQ(out.Size(), 0u);
    // Whatever room it is said to have.
    ByteCursor null(nullptr, 100);
    null.U8(1).BE32(2).Zeros(3).Bytes("four", 4);
    EXPECT_FALSE(null.Ok());
    EXPECT_EQ(null.Size(), 0u);
}

}  // namespace
}  // namespace Orvane::Muxora
