#include "rtp/rtp_jpeg.h"

#include <algorithm>
#include <memory>

#include "rtp_fixture.h"
#include "support/noise.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::operator+;
using test::Slice;

// Segments of ISO/IEC 10918-1, annex B.
ByteVector Sof0(uint16_t width, uint16_t height) {
    return Bytes("FF C0 00 11 08") +
           ByteVector{static_cast<uint8_t>(height >> 8), static_cast<uint8_t>(height), static_cast<uint8_t>(width >> 8),
                      static_cast<uint8_t>(width)} +
           Bytes("03 01 22 00 02 11 01 03 11 01");
}
ByteVector Table(uint8_t number) {
    return ByteVector{number} + ByteVector(64, static_cast<uint8_t>(0x40 + number));
}
ByteVector Dqt(const ByteVector& tables) {
    const size_t length = tables.size() + 2;
    return ByteVector{0xFF, 0xDB, static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length)} + tables;
}
const ByteVector kTwoTables = Dqt(Table(0) + Table(1));
const ByteVector kDri = Bytes("FF DD 00 04 00 28");
const ByteVector kSos = Bytes("FF DA 00 0C 03 01 00 02 11 03 11 00 3F 00");
const ByteVector kSoi = Bytes("FF D8");
const ByteVector kEoi = Bytes("FF D9");

class RtpJpeg : public RtpTest {
  protected:
    std::vector<Packet> Plain() const { return Packets(Prefixed::kNo); }
};

TEST_F(RtpJpeg, OneSegmentOfTwoTables) {
    Set("rtp_timestamp", 0x01020304);
    const ByteVector scan = Counting(2000) + kEoi;
    ASSERT_EQ(Video(kSoi + kTwoTables + Sof0(1920, 1080) + kSos + scan, 3), 0u);
    // Room 1000 - 12 - 8 = 980, in the first packet 132 less: 2002 = 848 + 980 + 174.
    ASSERT_EQ(sink.blocks.size(), 3u);
    EXPECT_EQ(sink.blocks[0].data, Bytes("80 60 00 01 01 02 03 04 11 22 33 44  00 00 00 00 01 80 F0 87  00 00 00 80") +
                                       ByteVector(64, 0x40) + ByteVector(64, 0x41) + Slice(scan, 0, 848));
    EXPECT_EQ(sink.blocks[1].data,
              Bytes("80 60 00 02 01 02 03 04 11 22 33 44  00 00 03 50 01 80 F0 87") + Slice(scan, 848, 980));
    EXPECT_EQ(sink.blocks[2].data,
              Bytes("80 E0 00 03 01 02 03 04 11 22 33 44  00 00 07 24 01 80 F0 87") + Slice(scan, 1828, 174));
}

TEST_F(RtpJpeg, TwoSegmentsOfOneTableEachFail) {
    EXPECT_EQ(Video(kSoi + Dqt(Table(0)) + Dqt(Table(1)) + Sof0(64, 64) + kSos + Counting(10), 3), 3u);
    EXPECT_TRUE(sink.blocks.empty());
    EXPECT_EQ(Video(kSoi + Dqt(Table(0)) + Sof0(64, 64) + kSos + Counting(10), 3), 0u);
}

TEST_F(RtpJpeg, ASegmentThatCoversAnEarlierOneFailsToo) {
    EXPECT_EQ(Video(kSoi + kTwoTables + Dqt(Table(0)) + Sof0(64, 64) + kSos + Counting(10), 3), 3u);
    EXPECT_EQ(Video(kSoi + Dqt(Table(0)) + kTwoTables + Sof0(64, 64) + kSos + Counting(10), 3), 3u);
}

TEST_F(RtpJpeg, WithoutTablesQIs0) {
    ASSERT_EQ(Video(kSoi + Sof0(64, 48) + kSos + Counting(10), 3), 0u);
    ASSERT_EQ(sink.blocks.size(), 1u);
    EXPECT_EQ(Plain()[0].payload, Bytes("00 00 00 00 01 00 08 06") + Counting(10));
}

TEST_F(RtpJpeg, TablesOf16BitsAreMarkedInPrecision) {
    const ByteVector wide = ByteVector{0x11} + ByteVector(128, 0x55);
    ASSERT_EQ(Video(kSoi + Dqt(Table(0) + wide) + Sof0(64, 48) + kSos + Counting(10), 3), 0u);
    EXPECT_EQ(Plain()[0].payload, Bytes("00 00 00 00 01 80 08 06  00 02 00 C0") + ByteVector(64, 0x40) +
                                      ByteVector(128, 0x55) + Counting(10));
}

TEST_F(RtpJpeg, FourTablesAreTheMost) {
    const ByteVector four = Table(0) + Table(1) + Table(2) + Table(3);
    EXPECT_EQ(Video(kSoi + Dqt(four) + Sof0(64, 48) + kSos + Counting(10), 3), 0u);
    EXPECT_EQ(Slice(Plain()[0].payload, 8, 4), Bytes("00 00 01 00"));
    const ByteVector five = kSoi + Dqt(four + Table(0)) + Sof0(64, 48) + kSos + Counting(10);
    EXPECT_EQ(Video(five, 3), 3u);
    JpegHeaders headers;
    EXPECT_FALSE(parseJpegHeaders(five.data(), static_cast<uint32_t>(five.size()), headers));
}

TEST_F(RtpJpeg, RestartMarkersPutAHeaderIntoEachPacketAndLeaveTheType) {
    ASSERT_EQ(Video(kSoi + kTwoTables + kDri + Sof0(64, 48) + kSos + Counting(1000), 3), 0u);
    ASSERT_EQ(sink.blocks.size(), 2u);
    EXPECT_EQ(Slice(Plain()[0].payload, 0, 16), Bytes("00 00 00 00 01 80 08 06  00 28 FF FF  00 00 00 80"));
    // 1000 - 12 - 8 - 4 - 132 = 844 = 34C
    EXPECT_EQ(Plain()[1].payload, Bytes("00 00 03 4C 01 80 08 06  00 28 FF FF") + Slice(Counting(1000), 844, 156));
}

TEST_F(RtpJpeg, ALargePictureTakesTheRecordsSize) {
    const auto size_fields = [&](uint16_t width, uint16_t height, uint32_t frame_width, uint32_t frame_height) {
        ByteVector data = kSoi + Sof0(width, height) + kSos + Counting(10);
        MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_MJPEG, MX_SUB_I, 40);
        frame.width = frame_width;
        frame.height = frame_height;
        EXPECT_EQ(packet.inputFrame(&frame, 0), 0u);
        return Slice(ReadPacket(sink.Last(), Prefixed::kNo).payload, 6, 2);
    };
    EXPECT_EQ(size_fields(1920, 1080, 640, 480), Bytes("F0 87"));
    // 2048 / 8 is 0 in 8 bits, in the record as well.
    EXPECT_EQ(size_fields(2048, 1080, 2048, 1080), Bytes("00 87"));
    EXPECT_EQ(size_fields(2048, 1080, 640, 480), Bytes("50 3C"));
    EXPECT_EQ(size_fields(7, 1080, 640, 480), Bytes("50 3C"));
    EXPECT_EQ(size_fields(1920, 7, 640, 480), Bytes("50 3C"));
}

TEST_F(RtpJpeg, AFrameWithoutSof0TakesTheRecordsSize) {
    ASSERT_EQ(Video(kSoi + kSos + Counting(10), 3), 0u);
    EXPECT_EQ(Slice(Plain()[0].payload, 6, 2), Bytes("F0 87"));
}

TEST_F(RtpJpeg, ALastPacketThatIsExactlyFullHasTheMarker) {
    ASSERT_EQ(Video(kSoi + Sof0(64, 48) + kSos + Counting(1960), 3), 0u);
    ASSERT_EQ(sink.blocks.size(), 2u);
    EXPECT_EQ(sink.blocks[1].data.size(), 1000u);
    EXPECT_FALSE(Plain()[0].marker);
    EXPECT_TRUE(Plain()[1].marker);
}

TEST_F(RtpJpeg, CustomDataBringsTheLengthAndCountsTwice) {
    packet.SetCustomData("ab", 2);
    ASSERT_EQ(Video(kSoi + Sof0(64, 48) + kSos + Counting(1000), 3), 0u);
    const std::vector<Packet> packets = Packets(Prefixed::kYes, 2);
    // 1000 - 4 - 4 - 12 - 8 = 972
    ASSERT_EQ(packets.size(), 2u);
    EXPECT_EQ(packets[0].custom, test::Text("ab"));
    EXPECT_EQ(packets[0].prefix, 992u);
    EXPECT_EQ(packets[0].payload.size(), 8u + 972u);
    EXPECT_EQ(packets[1].payload.size(), 8u + 28u);
}

TEST_F(RtpJpeg, TheScanMayBeEmpty) {
    EXPECT_EQ(Video(kSoi + Sof0(64, 48) + kSos, 3), 0u);
    EXPECT_TRUE(sink.blocks.empty());
}

TEST_F(RtpJpeg, OtherSegmentsAreSearchedThrough) {
    // The application segment holds something that looks like a DRI segment, and it counts.
    ASSERT_EQ(Video(kSoi + Bytes("FF E0 00 08") + kDri + Sof0(64, 48) + kSos + Counting(10), 3), 0u);
    EXPECT_EQ(Slice(Plain()[0].payload, 8, 4), Bytes("00 28 FF FF"));
}

TEST_F(RtpJpeg, BadSegmentsFail) {
    const ByteVector rest = kSos + Counting(10);
    EXPECT_EQ(Video(kSoi + Bytes("FF C0 00 06 08 00 40 00") + rest, 3), 3u) << "SOF0 of 8 bytes";
    EXPECT_EQ(Video(kSoi + Bytes("FF C0 00 07 08 00 30 00 40") + rest, 3), 0u) << "SOF0 of 9 bytes";
    EXPECT_EQ(Video(kSoi + Bytes("FF DD 00 05 00 28 00") + rest, 3), 3u) << "DRI of 7 bytes";
    EXPECT_EQ(Video(kSoi + Bytes("FF DD 00 03 28") + rest, 3), 3u) << "DRI of 5 bytes";
    EXPECT_EQ(Video(kSoi + Dqt(Slice(Table(0), 0, 40)) + rest, 3), 3u) << "a table that ends a byte behind the frame";
    EXPECT_EQ(Video(kSoi + Bytes("FF DB FF FF") + rest, 3), 3u) << "DQT beyond the frame";
    EXPECT_EQ(Video(kSoi + Bytes("FF DA FF FF") + rest, 3), 3u) << "SOS beyond the frame";
    EXPECT_EQ(Video(kSoi + Sof0(64, 48) + Counting(100), 3), 3u) << "no SOS";
    EXPECT_EQ(Video(Bytes("FF"), 3), 3u);
    EXPECT_EQ(Video(Bytes("FF DA"), 3), 3u);
}

// The length of the segment says what is read on from, not what there is of its last table.
TEST_F(RtpJpeg, ATableMayReachBeyondItsSegment) {
    const ByteVector cut = Slice(Table(0), 0, 39);  // 38 bytes of table, 26 more behind them
    ASSERT_EQ(Video(kSoi + Dqt(cut) + Sof0(64, 48) + kSos + Counting(10), 3), 0u);
    const ByteVector behind = Slice(Sof0(64, 48) + kSos, 0, 26);
    EXPECT_EQ(Plain()[0].payload,
              Bytes("00 00 00 00 01 80 08 06  00 00 00 40") + Slice(cut, 1, 38) + behind + Counting(10));
    sink.Clear();
    // The frame may end with the table: 14 bytes of SOS and 12 of the scan.
    ASSERT_EQ(Video(kSoi + Dqt(cut) + kSos + Counting(12), 3), 0u);
    EXPECT_EQ(Slice(Plain()[0].payload, 12, 64), Slice(cut, 1, 38) + kSos + Counting(12));
}

TEST_F(RtpJpeg, SegmentsWithoutALengthAreStepped) {
    ASSERT_EQ(Video(kSoi + Bytes("FF DB 00 00 FF DB 00 00") + Sof0(64, 48) + kSos + Counting(10), 3), 0u);
    EXPECT_EQ(sink.blocks.size(), 1u);
}

// Each frame is cut into a block of its own, so that the memory checker sees a byte too many.
std::optional<uint32_t> ParseExact(const ByteVector& bytes) {
    const auto exact = std::make_unique<uint8_t[]>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), exact.get());
    JpegHeaders headers;
    const std::optional<uint32_t> scan = parseJpegHeaders(exact.get(), static_cast<uint32_t>(bytes.size()), headers);
    for (uint32_t i = 0; i < JpegHeaders::kMaxTables; ++i) {
        EXPECT_LE(headers.qtable_header.address[i] + size_t{headers.qtable_header.size[i]}, bytes.size());
    }
    return scan;
}

TEST_F(RtpJpeg, AFrameCutAtAnyByteIsSafe) {
    const ByteVector headers = kSoi + kTwoTables + kDri + Sof0(64, 48) + kSos;
    const ByteVector frame = headers + Counting(300) + kEoi;
    for (size_t length = 0; length <= frame.size(); ++length) {
        const std::optional<uint32_t> scan = ParseExact(Slice(frame, 0, length));
        ASSERT_EQ(scan.has_value(), length >= headers.size()) << length;
        if (scan) {
            ASSERT_EQ(*scan, headers.size());
        }
    }
    JpegHeaders none;
    EXPECT_FALSE(parseJpegHeaders(nullptr, 100, none));
}

TEST_F(RtpJpeg, AFrameWithAnyByteChangedIsSafe) {
    const ByteVector frame = kSoi + kTwoTables + kDri + Sof0(64, 48) + kSos + Counting(20);
    for (size_t at = 0; at < frame.size(); ++at) {
        for (const uint8_t value : Bytes("00 01 7F C0 DA DB DD FF")) {
            ByteVector changed = frame;
            changed[at] = value;
            const std::optional<uint32_t> scan = ParseExact(changed);
            ASSERT_LE(scan.value_or(0), frame.size());
            Video(changed, 3);
        }
    }
}

TEST_F(RtpJpeg, NoiseOfMarkersIsSafe) {
    std::mt19937 random(7);
    static constexpr uint8_t kBytes[] = {0xFF, 0xFF, 0xC0, 0xDB, 0xDB, 0xDD, 0xDA, 0x00, 0x00, 0x04, 0x06, 0x43, 0x10};
    for (int i = 0; i < 3000; ++i) {
        ByteVector noise(random() % 400 + 1);
        for (uint8_t& byte : noise)
            byte = kBytes[random() % std::size(kBytes)];
        const std::optional<uint32_t> scan = ParseExact(noise);
        ASSERT_LE(scan.value_or(0), noise.size());
        Video(noise, 3);
        sink.Clear();
    }
}

TEST_F(RtpJpeg, AFirstPacketMayBeFullOfTables) {
    // 12 + 8 + 132: the tables fit and nothing else does. The scan begins in the second packet.
    Set("max_rtp_packet_length", 152);
    ASSERT_EQ(Video(kSoi + kTwoTables + Sof0(64, 48) + kSos + Counting(10), 3), 0u);
    ASSERT_EQ(sink.blocks.size(), 2u);
    EXPECT_EQ(sink.blocks[0].data.size(), 152u);
    EXPECT_EQ(Plain()[1].payload, Bytes("00 00 00 00 01 80 08 06") + Counting(10));
    EXPECT_TRUE(Plain()[1].marker);
    sink.Clear();
    Set("max_rtp_packet_length", 151);
    EXPECT_EQ(Video(kSoi + kTwoTables + Sof0(64, 48) + kSos + Counting(10), 3), 3u);
    EXPECT_TRUE(sink.blocks.empty());
}

// The packet is begun by the time its headers do not fit: nothing is sent, and one number is gone.
TEST_F(RtpJpeg, HeadersWithoutRoomUseUpTheNumberOfThePacketBegun) {
    const auto sequence = [&] {
        MXRtpParam read{};
        packet.GetRtpParam(read);
        return read.rtp_sequence_number;
    };
    const ByteVector four = Dqt(Table(0) + Table(1) + Table(2) + Table(3));
    Set("max_rtp_packet_length", 200);
    EXPECT_EQ(Video(kSoi + four + Sof0(64, 48) + kSos + Counting(10), 3), 3u);
    EXPECT_EQ(sequence(), 1u) << "the tables";
    EXPECT_EQ(Video(kSoi + Dqt(Table(0)) + Dqt(Table(1)) + Sof0(64, 48) + kSos + Counting(10), 3), 3u);
    EXPECT_EQ(sequence(), 2u) << "tables in two segments";
    Set("max_rtp_packet_length", 19);
    EXPECT_EQ(Video(kSoi + Sof0(64, 48) + kSos + Counting(10), 3), 3u);
    EXPECT_EQ(sequence(), 3u) << "the main header";
    Set("max_rtp_packet_length", 23);
    EXPECT_EQ(Video(kSoi + kDri + Sof0(64, 48) + kSos + Counting(10), 3), 3u);
    EXPECT_EQ(sequence(), 4u) << "the restart header";
    // Headers that leave no byte for the scan would be sent for ever.
    Set("max_rtp_packet_length", 20);
    EXPECT_EQ(Video(kSoi + Sof0(64, 48) + kSos + Counting(10), 3), 3u);
    EXPECT_EQ(sequence(), 5u) << "the scan";
    // A frame that can't be read, or that comes to no packet, begins none.
    EXPECT_EQ(Video(kSoi + Sof0(64, 48) + Counting(10), 3), 3u);
    EXPECT_EQ(Video(kSoi + Sof0(64, 48) + kSos, 3), 0u);
    Set("max_rtp_packet_length", 0x300001);
    EXPECT_EQ(Video(kSoi + Sof0(64, 48) + kSos + Counting(10), 3), 3u);
    EXPECT_EQ(sequence(), 5u);
    EXPECT_TRUE(sink.blocks.empty());
    Set("max_rtp_packet_length", 1000);
    EXPECT_EQ(Video(kSoi + four + Sof0(64, 48) + kSos + Counting(10), 3), 0u);
    EXPECT_EQ(Plain().at(0).sequence, 6u);
}

TEST_F(RtpJpeg, AMaximumLengthWithoutRoomForPayloadIsRefused) {
    const ByteVector frame = kSoi + Sof0(64, 48) + kSos + Counting(10);
    for (const int64_t length : {1, 12, 19, 20}) {
        Set("max_rtp_packet_length", length);
        EXPECT_EQ(Video(frame, 3), 3u) << length;
    }
    EXPECT_TRUE(sink.blocks.empty());
    Set("max_rtp_packet_length", 21);
    EXPECT_EQ(Video(frame, 3), 0u);
    EXPECT_EQ(sink.blocks.size(), 10u);
}

TEST_F(RtpJpeg, AMaximumLengthBeyondTheBufferIsRefusedOnBothPaths) {
    ByteVector data = kSoi + Sof0(64, 48) + kSos + Counting(10);
    Set("max_rtp_packet_length", 0x300001);
    EXPECT_EQ(Video(data, 3), 3u);
    Basalt::CPacket out(0x400000);
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_MJPEG, MX_SUB_I, 40);
    EXPECT_EQ(packet.inputFrameEx(&frame, out), 3u);
    EXPECT_TRUE(sink.blocks.empty());
    Set("max_rtp_packet_length", 0x300000);
    EXPECT_EQ(Video(data, 3), 0u);
}

}  // namespace
}  // namespace Orvane::Muxora
