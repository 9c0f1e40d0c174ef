#include "rtp_fixture.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::operator+;
using test::Slice;

// A NAL unit of `size` bytes, its two header bytes included.
ByteVector Nal(uint8_t first, size_t size) {
    return ByteVector{first, 0x01} + Counting(size - 2);
}

class RtpH265 : public RtpTest {
  protected:
    std::vector<Packet> Plain() const { return Packets(Prefixed::kNo); }
};

TEST_F(RtpH265, ASmallUnitHasNeitherLengthNorMarker) {
    Set("rtp_timestamp", 0x01020304);
    ASSERT_EQ(Video(Bytes("00 00 00 01 26 01 AF"), 12), 0u);
    ASSERT_EQ(sink.blocks.size(), 1u);
    EXPECT_EQ(sink.Last(), Bytes("80 60 00 01  01 02 03 04  11 22 33 44  26 01 AF"));
}

TEST_F(RtpH265, AUnitOf990BytesIsOnePacketOf1002) {
    const ByteVector unit = Nal(0x26, 990);
    ASSERT_EQ(Video(Bytes("00 00 00 01") + unit, 12), 0u);
    ASSERT_EQ(sink.blocks.size(), 1u);
    EXPECT_EQ(sink.Last().size(), 1002u);
    EXPECT_EQ(Plain()[0].payload, unit);
    EXPECT_FALSE(Plain()[0].marker);
}

TEST_F(RtpH265, AUnitOf991BytesIsTwoFragments) {
    const ByteVector unit = Nal(0x26, 991);
    ASSERT_EQ(Video(Bytes("00 00 00 01") + unit, 12), 0u);
    ASSERT_EQ(sink.blocks.size(), 2u);
    EXPECT_EQ(sink.blocks[0].data.size(), 1003u);
    // IDR_W_RADL, type 19, in fragments of type 49.
    EXPECT_EQ(Plain()[0].payload, Bytes("62 01 93") + Slice(unit, 2, 988));
    EXPECT_EQ(Plain()[1].payload, Bytes("62 01 53") + Slice(unit, 990, 1));
    EXPECT_FALSE(Plain()[0].marker);
    EXPECT_TRUE(Plain()[1].marker);
}

TEST_F(RtpH265, ALargeUnitHasPlainFragmentsInTheMiddle) {
    const ByteVector unit = Nal(0x02, 3000);
    ASSERT_EQ(Video(Bytes("00 00 00 01") + unit, 12), 0u);
    // 2998 = 3 x 988 + 34
    ASSERT_EQ(sink.blocks.size(), 4u);
    EXPECT_EQ(Plain()[0].payload, Bytes("62 01 81") + Slice(unit, 2, 988));
    EXPECT_EQ(Plain()[1].payload, Bytes("62 01 01") + Slice(unit, 990, 988));
    EXPECT_EQ(Plain()[2].payload, Bytes("62 01 01") + Slice(unit, 1978, 988));
    EXPECT_EQ(Plain()[3].payload, Bytes("62 01 41") + Slice(unit, 2966, 34));
}

TEST_F(RtpH265, TheForbiddenAndTheLayerBitAreKept) {
    Video(Bytes("00 00 00 01") + Nal(0xA7, 1000), 12);
    EXPECT_EQ(Slice(Plain()[0].payload, 0, 3), Bytes("E3 01 93"));
}

TEST_F(RtpH265, OnlyTheLastUnitOfAFrameHasTheMarker) {
    Video(Bytes("00 00 00 01") + Nal(0x02, 1000) + Bytes("00 00 00 01") + Nal(0x02, 1000), 12);
    ASSERT_EQ(sink.blocks.size(), 4u);
    EXPECT_FALSE(Plain()[1].marker);
    EXPECT_TRUE(Plain()[3].marker);
    sink.Clear();
    Video(Bytes("00 00 00 01") + Nal(0x02, 1000) + Bytes("00 00 00 01 02 01 AA"), 12);
    ASSERT_EQ(sink.blocks.size(), 3u);
    for (const Packet& one : Plain())
        EXPECT_FALSE(one.marker);
}

TEST_F(RtpH265, AfterAShortStartCodeAllAreTakenForShort) {
    Video(Bytes("00 00 00 01 40 01 AA  00 00 01 42 01 BB  00 00 00 01 44 01 CC"), 12);
    ASSERT_EQ(sink.blocks.size(), 3u);
    EXPECT_EQ(Plain()[0].payload, Bytes("40 01 AA"));
    EXPECT_EQ(Plain()[1].payload, Bytes("42 01 BB"));
    EXPECT_EQ(Plain()[2].payload, Bytes("01 44 01 CC"));
    // The next frame begins with four again.
    Video(Bytes("00 00 00 01 40 01 AA"), 12);
    EXPECT_EQ(Plain()[3].payload, Bytes("40 01 AA"));
}

TEST_F(RtpH265, AfterAShortStartCodeFragmentsOfALongOneCarryTheWrongHeader) {
    Video(Bytes("00 00 01 4E 01 AA  00 00 00 01") + Nal(0x26, 1000), 12);
    ASSERT_EQ(sink.blocks.size(), 3u);
    // The header is read as 01 26: layer bit kept, second byte 26, type 0.
    EXPECT_EQ(Slice(Plain()[1].payload, 0, 4), Bytes("63 26 80 01"));
}

TEST_F(RtpH265, UnitsWithoutABodyDisappear) {
    Video(Bytes("00 00 00 01 46 01  00 00 00 01 46  00 00 00 01 00 00 00 01 02 01 AA"), 12);
    ASSERT_EQ(sink.blocks.size(), 1u);
    EXPECT_EQ(Plain()[0].payload, Bytes("02 01 AA"));
    sink.Clear();
    EXPECT_EQ(Video(Bytes("00 00 00 01 46 01"), 12), 0u);
    EXPECT_EQ(Video(Bytes("00 00 00 01 46"), 12), 0u);
    EXPECT_EQ(Video(Bytes("00 00 00 01"), 12), 0u);
    EXPECT_TRUE(sink.blocks.empty());
}

TEST_F(RtpH265, TheSearchGoesOnRightBehindAStartCode) {
    // Three positions, and only the last has a unit behind it; the one of four bytes is taken for three.
    Video(Bytes("00 00 01 00 00 01 02 01 AA"), 12);
    ASSERT_EQ(sink.blocks.size(), 1u);
    EXPECT_EQ(Plain()[0].payload, Bytes("02 01 AA"));
}

TEST_F(RtpH265, AFrameWithoutStartCodeHasNoPackets) {
    EXPECT_EQ(Video(Bytes("26 01 AF 08 42 00"), 12), 0u);
    EXPECT_TRUE(sink.blocks.empty());
    Set("rtp_packet_output_all_flag", 1);
    EXPECT_EQ(Video(Bytes("26 01 AF 08 42 00"), 12), 0u);
    ASSERT_EQ(sink.blocks.size(), 1u);
    EXPECT_TRUE(sink.Last().empty());
}

TEST_F(RtpH265, CustomDataBringsTheLength) {
    packet.SetCustomData("ab", 2);
    // Room 1000 - 2 - 2 - 12 = 984.
    const ByteVector fits = Nal(0x02, 986);
    Video(Bytes("00 00 00 01") + fits, 12);
    ASSERT_EQ(sink.blocks.size(), 1u);
    Packet one = ReadPacket(sink.Last(), Prefixed::kYes, 2);
    EXPECT_EQ(one.custom, test::Text("ab"));
    EXPECT_EQ(one.prefix, 998u);
    EXPECT_EQ(one.payload, fits);
    sink.Clear();
    Video(Bytes("00 00 00 01") + Nal(0x02, 987), 12);
    ASSERT_EQ(sink.blocks.size(), 2u);
    one = ReadPacket(sink.blocks[0].data, Prefixed::kYes, 2);
    EXPECT_EQ(one.prefix, 999u);
    EXPECT_EQ(Slice(one.payload, 0, 3), Bytes("62 01 81"));
}

TEST_F(RtpH265, AMaximumLengthWithoutRoomForPayloadIsRefused) {
    Set("max_rtp_packet_length", 12);
    EXPECT_EQ(Video(Bytes("00 00 00 01 02 01 AA"), 12), 3u);
    EXPECT_TRUE(sink.blocks.empty());
    Set("max_rtp_packet_length", 13);
    EXPECT_EQ(Video(Bytes("00 00 00 01 02 01 AA BB"), 12), 0u);
    ASSERT_EQ(sink.blocks.size(), 2u);
    EXPECT_EQ(Plain()[0].payload, Bytes("62 01 81 AA"));
    EXPECT_EQ(Plain()[1].payload, Bytes("62 01 41 BB"));
}

}  // namespace
}  // namespace Orvane::Muxora
