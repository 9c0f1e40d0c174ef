#include <algorithm>
#include <ctime>

#include "rtp_fixture.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::operator+;
using test::Slice;

// A NAL unit of `size` bytes, its header included.
ByteVector Nal(uint8_t header, size_t size) {
    return ByteVector{header} + Counting(size - 1);
}

class RtpH264 : public RtpTest {};

TEST_F(RtpH264, ASmallUnitIsOnePacketBehindItsLength) {
    Set("rtp_timestamp", 0x01020304);
    Set("rtp_sequence_number", 100);
    ASSERT_EQ(Video(Bytes("00 00 00 01 65 88 84"), 2), 0u);
    ASSERT_EQ(sink.blocks.size(), 1u);
    EXPECT_EQ(sink.Last(), Bytes("00 0F  80 E0 00 65  01 02 03 04  11 22 33 44  65 88 84"));
    EXPECT_EQ(sink.blocks[0].seek_type, 1u);
    EXPECT_EQ(sink.blocks[0].offset32, 0u);
    EXPECT_EQ(sink.blocks[0].offset, 0);
}

TEST_F(RtpH264, BothNumbersOfTheCodecAreTheSame) {
    Video(Bytes("00 00 00 01 65 88 84"), 2);
    Video(Bytes("00 00 01 65 88 84"), 4);
    EXPECT_EQ(Packets()[0].payload, Bytes("65 88 84"));
    EXPECT_EQ(Packets()[1].payload, Bytes("65 88 84"));
}

TEST_F(RtpH264, BytesAheadOfTheFirstStartCodeAreDropped) {
    Video(Bytes("AA BB 00 00 01 41 9A"), 2);
    ASSERT_EQ(sink.blocks.size(), 1u);
    EXPECT_EQ(Packets()[0].payload, Bytes("41 9A"));
}

TEST_F(RtpH264, AFrameWithoutStartCodeIsOneUnit) {
    Video(Bytes("41 9A BB"), 2);
    ASSERT_EQ(sink.blocks.size(), 1u);
    EXPECT_EQ(Packets()[0].payload, Bytes("41 9A BB"));
    EXPECT_TRUE(Packets()[0].marker);
}

TEST_F(RtpH264, FramesBelowFourBytesAreOneUnit) {
    for (const char* bytes : {"00", "00 00", "00 00 01"}) {
        sink.Clear();
        ASSERT_EQ(Video(Bytes(bytes), 2), 0u);
        ASSERT_EQ(sink.blocks.size(), 1u);
        EXPECT_EQ(Packets()[0].payload, Bytes(bytes));
    }
}

TEST_F(RtpH264, AnIntraPictureIsTwoSinglePacketsAndThenFragments) {
    const ByteVector sps = Nal(0x67, 20);
    const ByteVector pps = Nal(0x68, 5);
    const ByteVector slice = Nal(0x65, 5000);
    const ByteVector code = Bytes("00 00 00 01");
    ASSERT_EQ(Video(code + sps + code + pps + code + slice, 2, MX_SUB_I, 40, 0xEE), 0u);

    const std::vector<Packet> packets = Packets();
    ASSERT_EQ(packets.size(), 8u);
    EXPECT_EQ(packets[0].payload, sps);
    EXPECT_EQ(packets[1].payload, pps);
    // Room 998, less 12 and 2: 984 bytes a fragment. 5 x 984 + 80 = 5000: one byte more than stands behind the header.
    const ByteVector sent = Slice(slice, 1, 4999) + Bytes("EE");
    for (size_t i = 0; i < 6; ++i) {
        const Packet& fragment = packets[2 + i];
        const size_t count = i < 5 ? 984 : 80;
        const ByteVector fu = i == 0 ? Bytes("7C 85") : i < 5 ? Bytes("7C 05") : Bytes("7C 45");
        EXPECT_EQ(fragment.payload, fu + Slice(sent, i * 984, count)) << i;
        EXPECT_EQ(fragment.prefix, 14 + count);
        EXPECT_EQ(sink.blocks[2 + i].data.size(), 16 + count);
    }
    for (size_t i = 0; i < packets.size(); ++i) {
        EXPECT_EQ(packets[i].marker, i == 7) << i;
        EXPECT_EQ(packets[i].sequence, i + 1);
    }
}

TEST_F(RtpH264, TheUnitBehindAFragmentedOneLosesItsFirstByte) {
    ByteVector second = Nal(0x61, 2000);
    second[1] = 0x9B;
    ASSERT_EQ(Video(Bytes("00 00 01") + Nal(0x41, 2000) + Bytes("00 00 01") + second, 2, MX_SUB_P), 0u);
    const std::vector<Packet> packets = Packets();
    // 2000 = 984 + 984 + 32; the second unit has 1999 bytes left: 984 + 984 + 31.
    ASSERT_EQ(packets.size(), 6u);
    EXPECT_EQ(Slice(packets[0].payload, 0, 2), Bytes("5C 81"));
    EXPECT_EQ(Slice(packets[2].payload, 0, 2), Bytes("5C 41"));
    EXPECT_EQ(packets[2].payload.size(), 34u);
    EXPECT_EQ(packets[2].payload.back(), 0x00) << "the first byte of the start code behind the unit";
    EXPECT_FALSE(packets[2].marker);
    // The FU headers come from 9B, which stood behind the lost header 61.
    EXPECT_EQ(Slice(packets[3].payload, 0, 2), Bytes("9C 9B"));
    EXPECT_EQ(Slice(packets[3].payload, 2, 984), Slice(second, 2, 984));
    EXPECT_EQ(Slice(packets[5].payload, 0, 2), Bytes("9C 5B"));
    EXPECT_EQ(packets[5].payload.size(), 33u);
    EXPECT_EQ(packets[5].payload.back(), 0xEE) << "the byte behind the frame";
    EXPECT_TRUE(packets[5].marker);
}

TEST_F(RtpH264, ASmallUnitBehindAFragmentedOneLosesItsFirstByteToo) {
    Video(Bytes("00 00 00 01") + Nal(0x65, 1000) + Bytes("00 00 00 01 06 AA BB"), 2);
    const std::vector<Packet> packets = Packets();
    ASSERT_EQ(packets.size(), 3u);
    EXPECT_EQ(packets[2].payload, Bytes("AA BB"));
}

TEST_F(RtpH264, AUnitOfOneByteBehindAFragmentedOneVanishesAndTheMarkerWithIt) {
    Video(Bytes("00 00 00 01") + Nal(0x65, 1000) + Bytes("00 00 00 01 09"), 2);
    const std::vector<Packet> packets = Packets();
    ASSERT_EQ(packets.size(), 2u);
    EXPECT_FALSE(packets[1].marker);
    sink.Clear();
    Video(Bytes("00 00 01") + Nal(0x65, 1000) + Bytes("00 00 01 09 00 00 01 41 AA"), 2);
    ASSERT_EQ(sink.blocks.size(), 3u);
    EXPECT_EQ(Packets()[2].payload, Bytes("41 AA")) << "the damage reaches no further";
}

TEST_F(RtpH264, AStartCodeAroundTheEndOfAPacketEndsTheUnitWhereItBegins) {
    // The second packet of the first unit ends 2 * 984 bytes behind its header.
    for (size_t size = 2 * 984 - 6; size <= 2 * 984 + 6; ++size) {
        for (const char* code : {"00 00 01", "00 00 00 01"}) {
            sink.Clear();
            const ByteVector first = Nal(0x65, size);
            ASSERT_EQ(Video(Bytes(code) + first + Bytes(code) + Nal(0x65, 3000), 2), 0u);
            const std::vector<Packet> packets = Packets();
            // One byte too many, as ever: the header is gone, and its place is filled from behind.
            const ByteVector sent = Slice(first, 1, size - 1) + Bytes("00");
            const size_t count = (size + 983) / 984;
            for (size_t i = 0; i < count; ++i) {
                const size_t length = std::min<size_t>(984, size - i * 984);
                const ByteVector fu = i + 1 == count ? Bytes("7C 45") : i == 0 ? Bytes("7C 85") : Bytes("7C 05");
                ASSERT_EQ(packets[i].payload, fu + Slice(sent, i * 984, length)) << size << ' ' << code << ' ' << i;
            }
            // The unit behind it: 2999 bytes are left of it.
            ASSERT_EQ(packets.size(), count + 4) << size;
            EXPECT_TRUE(packets.back().marker);
        }
    }
}

TEST_F(RtpH264, OtherKindsOfPicturesAreCutIntoPlainPackets) {
    for (const uint32_t sub_type : {2u, 3u, 8u, 18u, 19u, 20u}) {
        sink.Clear();
        const ByteVector slice = Nal(0x01, 5000);
        ASSERT_EQ(Video(Bytes("00 00 00 01") + slice, 2, sub_type), 0u);
        const std::vector<Packet> packets = Packets();
        // Room 998, less 12: 986 bytes a packet. 5 x 986 + 70 = 5000.
        ASSERT_EQ(packets.size(), 6u) << sub_type;
        for (size_t i = 0; i < 6; ++i) {
            EXPECT_EQ(packets[i].payload, Slice(slice, i * 986, i < 5 ? 986 : 70));
            EXPECT_EQ(packets[i].marker, i == 5);
        }
    }
}

TEST_F(RtpH264, TheLargestUnitInOnePacket) {
    Video(Bytes("00 00 00 01") + Nal(0x65, 986), 2);
    ASSERT_EQ(sink.blocks.size(), 1u);
    EXPECT_EQ(sink.Last().size(), 1000u);
    sink.Clear();
    Video(Bytes("00 00 00 01") + Nal(0x65, 987), 2);
    ASSERT_EQ(sink.blocks.size(), 2u);
    EXPECT_EQ(sink.blocks[0].data.size(), 1000u);
    EXPECT_EQ(Packets()[1].payload.size(), 2u + 3u);
}

TEST_F(RtpH264, TheExtensionCountsTwiceInTheChoiceOfFragments) {
    const ByteVector extension = Counting(400);
    packet.setExtData(extension.data(), 400);
    // 998 - 12 - 400 - 400 = 186.
    Video(Bytes("00 00 00 01") + Nal(0x65, 186), 2);
    ASSERT_EQ(sink.blocks.size(), 1u);
    EXPECT_EQ(Packets()[0].payload, Nal(0x65, 186));
    EXPECT_EQ(Packets()[0].extension, extension);
    // It would fit (12 + 404 of headers), yet goes as a fragment: one with the end bit alone.
    sink.Clear();
    Video(Bytes("00 00 00 01") + Nal(0x65, 187), 2);
    ASSERT_EQ(sink.blocks.size(), 1u);
    EXPECT_EQ(Slice(Packets()[0].payload, 0, 2), Bytes("7C 45"));
    EXPECT_EQ(Packets()[0].payload.size(), 2u + 187u);
    EXPECT_TRUE(Packets()[0].marker);
}

TEST_F(RtpH264, AnOddExtensionCountsWithAndWithoutItsPadding) {
    const ByteVector extension = Counting(5);
    packet.setExtData(extension.data(), 5);
    // 998 - 12 - 5 - 8 = 973; a packet itself has room for 998 - 24 = 974.
    Video(Bytes("00 00 00 01") + Nal(0x65, 973), 2);
    EXPECT_EQ(Packets()[0].payload, Nal(0x65, 973));
    sink.Clear();
    Video(Bytes("00 00 00 01") + Nal(0x65, 974), 2);
    ASSERT_EQ(sink.blocks.size(), 2u);
    EXPECT_EQ(Slice(Packets()[0].payload, 0, 2), Bytes("7C 85"));
    EXPECT_EQ(Packets()[0].payload.size(), 2u + 972u);
}

TEST_F(RtpH264, CustomDataGoesInFrontAndCountsTwiceFromTheSecondPacketOn) {
    packet.SetCustomData("abc", 3);
    // The first choice: 983 + 12 + 3 = 998 is not above the room.
    const ByteVector unit = Nal(0x61, 983);
    ASSERT_EQ(Video(Bytes("00 00 00 01") + unit + Bytes("00 00 00 01") + unit, 2), 0u);
    const std::vector<Packet> packets = Packets(Prefixed::kYes, 3);
    ASSERT_EQ(packets.size(), 3u);
    for (const Packet& one : packets) {
        EXPECT_EQ(one.custom, test::Text("abc"));
        EXPECT_EQ(one.prefix, one.rtp_length);
    }
    EXPECT_EQ(packets[0].payload, unit);
    EXPECT_EQ(sink.blocks[0].data.size(), 1000u);
    // The second choice stands against 995, so the same unit is fragmented: 981 bytes and 2.
    EXPECT_EQ(packets[1].payload, Bytes("7C 81") + Slice(unit, 1, 981));
    EXPECT_EQ(sink.blocks[1].data.size(), 1000u);
    EXPECT_EQ(packets[2].payload, Bytes("7C 41") + Slice(unit, 982, 1) + Bytes("EE"));
}

TEST_F(RtpH264, TheByteBehindAStartCodeNeverBeginsAnother) {
    Video(Bytes("00 00 01 00 00 01 41"), 2);
    ASSERT_EQ(sink.blocks.size(), 1u);
    EXPECT_EQ(Packets()[0].payload, Bytes("00 00 01 41"));
    sink.Clear();
    Video(Bytes("00 00 00 01 00 00 01 41"), 2);
    ASSERT_EQ(sink.blocks.size(), 1u);
    EXPECT_EQ(Packets()[0].payload, Bytes("00 00 01 41"));
}

TEST_F(RtpH264, ZerosAheadOfAStartCodeStayInTheUnitButForOne) {
    Video(Bytes("00 00 00 00 01 67 AA 00 00 00 00 01 68 BB"), 2);
    ASSERT_EQ(sink.blocks.size(), 2u);
    EXPECT_EQ(Packets()[0].payload, Bytes("67 AA 00"));
    EXPECT_EQ(Packets()[1].payload, Bytes("68 BB"));
}

TEST_F(RtpH264, AShortStartCodeAtTheVeryEndIsNone) {
    Video(Bytes("00 00 00 01 41 AA 00 00 01"), 2);
    ASSERT_EQ(sink.blocks.size(), 1u);
    EXPECT_EQ(Packets()[0].payload, Bytes("41 AA 00 00 01"));
    EXPECT_TRUE(Packets()[0].marker);
}

TEST_F(RtpH264, ALongStartCodeAtTheVeryEndTakesTheMarkerAway) {
    Video(Bytes("00 00 00 01 41 AA 00 00 00 01"), 2);
    ASSERT_EQ(sink.blocks.size(), 1u);
    EXPECT_EQ(Packets()[0].payload, Bytes("41 AA"));
    EXPECT_FALSE(Packets()[0].marker);
}

TEST_F(RtpH264, AMaximumLengthWithoutRoomForPayloadIsRefused) {
    // Prefix 2, header 12, FU 2: 16 leaves nothing for a fragment, 17 leaves one byte.
    Set("max_rtp_packet_length", 16);
    EXPECT_EQ(Video(Bytes("00 00 00 01 65 AA BB"), 2), 3u);
    EXPECT_TRUE(sink.blocks.empty());
    Set("max_rtp_packet_length", 17);
    EXPECT_EQ(Video(Bytes("00 00 00 01 65 AA BB CC"), 2), 0u);
    // 4 bytes from AA on: A, B, C and the byte behind.
    ASSERT_EQ(sink.blocks.size(), 4u);
    EXPECT_EQ(Packets()[0].payload, Bytes("7C 85 AA"));
    EXPECT_EQ(Packets()[1].payload, Bytes("7C 05 BB"));
    EXPECT_EQ(Packets()[3].payload, Bytes("7C 45 EE"));
}

// Work grows with the frame, not with the frame times the length of a packet: that would be some hundred times as much.
TEST_F(RtpH264, ManySmallUnitsUnderAHugeMaximumLength) {
    constexpr size_t kUnits = 180000;
    ByteVector frame;
    for (size_t i = 0; i < kUnits; ++i)
        frame.insert(frame.end(), {0, 0, 1, 0x41, 0x9A});
    Set("rtp_packet_output_all_flag", 1);
    const auto ticks = [&](uint32_t longest, uint32_t sub_type) {
        Set("max_rtp_packet_length", longest);
        const std::clock_t start = std::clock();
        EXPECT_EQ(Video(frame, 2, sub_type), 0u);
        const std::clock_t taken = std::clock() - start;
        EXPECT_EQ(sink.Last().size(), kUnits * 16);
        sink.Clear();
        return taken;
    };
    for (const uint32_t sub_type : {MX_SUB_P, MX_SUB_B}) {
        const std::clock_t usual = ticks(1400, sub_type);
        EXPECT_LT(ticks(400000, sub_type), 20 * usual + CLOCKS_PER_SEC / 10);
    }
}

}  // namespace
}  // namespace Orvane::Muxora
