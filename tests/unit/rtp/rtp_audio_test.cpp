#include "rtp_fixture.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::operator+;
using test::Slice;

// `size` bytes with the header.
ByteVector Adts(size_t size) {
    return test::Adts(Counting(size - 7));
}

class RtpAudio : public RtpTest {
  protected:
    RtpAudio() {
        Set("rtp_audio_sample", 48000);
        MXRtpParam record{};
        packet.GetRtpParam(record);
        record.rtp_audio_ssrc = 0x55667788;
        record.rtp_audio_sequence_number = 500;
        packet.SetRtpParam(record);
    }
};

TEST_F(RtpAudio, AnAacFrameOf500Bytes) {
    const ByteVector frame = Adts(500);
    ASSERT_EQ(Audio(frame, MX_AUDIO_AAC), 0u);
    ASSERT_EQ(sink.blocks.size(), 1u);
    EXPECT_EQ(Slice(sink.Last(), 0, 14), Bytes("01 FD  80 88 01 F5  00 00 00 00  55 66 77 88"));
    EXPECT_EQ(ReadPacket(sink.Last()).payload, Bytes("00 10 0F 68") + Slice(frame, 7, 493));
    EXPECT_EQ(sink.blocks[0].seek_type, 1u);
}

TEST_F(RtpAudio, AnAacFrameThatNeedsTwoPacketsGoesOutRawFirst) {
    const ByteVector frame = Adts(1499);
    ASSERT_EQ(Audio(frame, MX_AUDIO_AAC), 0u);
    const std::vector<Packet> packets = Packets();
    // 1496 bytes of payload against a room of 998 - 12 = 986.
    ASSERT_EQ(packets.size(), 2u);
    EXPECT_EQ(packets[0].payload, Slice(frame, 0, 986)) << "ADTS header and all";
    EXPECT_EQ(packets[0].rtp_length, 998u);
    EXPECT_FALSE(packets[0].marker);
    // The rest comes from the beginning of the payload again: AU of 1492 bytes, 2E A0.
    EXPECT_EQ(packets[1].payload, Bytes("00 10 2E A0") + Slice(frame, 7, 506));
    EXPECT_TRUE(packets[1].marker);
}

TEST_F(RtpAudio, AnAacFrameOf1500BytesIsTooLong) {
    EXPECT_EQ(Audio(Adts(1500), MX_AUDIO_AAC), 4u);
    EXPECT_TRUE(sink.blocks.empty());
    EXPECT_EQ(Audio(Adts(100), MX_AUDIO_AAC), 0u);
    EXPECT_EQ(ReadPacket(sink.Last()).sequence, 502u) << "the packet begun took its number";
}

TEST_F(RtpAudio, AnAacFrameWithoutAWholeHeaderIsRefused) {
    for (const size_t size : {1u, 3u, 4u, 6u})
        EXPECT_EQ(Audio(ByteVector(size, 0xFF), MX_AUDIO_AAC), 3u);
    EXPECT_TRUE(sink.blocks.empty());
    EXPECT_EQ(Audio(Bytes("FF F1 4C 80 00 FF FC"), MX_AUDIO_AAC), 0u);
    EXPECT_EQ(ReadPacket(sink.Last()).payload, Bytes("00 10 00 00"));
}

TEST_F(RtpAudio, MpegAudioGoesBehindFourZeroBytes) {
    const ByteVector frame = Bytes("FF FD A4 00") + Counting(572);
    ASSERT_EQ(Audio(frame, MX_AUDIO_MPEG, 0, 48000), 0u);
    EXPECT_EQ(ReadPacket(sink.Last()).payload, Bytes("00 00 00 00") + frame);
    EXPECT_TRUE(ReadPacket(sink.Last()).marker);
}

TEST_F(RtpAudio, AnMpegAudioFrameOf1496BytesIsTooLong) {
    EXPECT_EQ(Audio(Counting(1496), MX_AUDIO_MPEG), 4u);
    EXPECT_TRUE(sink.blocks.empty());
    EXPECT_EQ(Audio(Counting(1495), MX_AUDIO_MPEG), 0u);
    ASSERT_EQ(sink.blocks.size(), 2u);
    EXPECT_EQ(Packets()[0].payload, Slice(Counting(1495), 0, 986));
    // 1499 - 986 = 513 bytes from the beginning of the payload.
    EXPECT_EQ(Packets()[1].payload, Bytes("00 00 00 00") + Slice(Counting(1495), 0, 509));
}

TEST_F(RtpAudio, RawBytesBehindTheEndOfAnMpegAudioFrameAreZero) {
    // 304 bytes of payload, 303 of room, 300 of frame: exactly as large as it is for the memory checker.
    Set("max_rtp_packet_length", 303 + 14);
    const ByteVector frame = Counting(300);
    ASSERT_EQ(Audio(frame, MX_AUDIO_MPEG), 0u);
    ASSERT_EQ(sink.blocks.size(), 2u);
    EXPECT_EQ(Packets()[0].payload, frame + Bytes("00 00 00"));
    EXPECT_EQ(Packets()[1].payload, Bytes("00"));
    EXPECT_TRUE(Packets()[1].marker);
}

TEST_F(RtpAudio, RawBytesThatStartBehindTheEndOfAnMpegAudioFrameAreZero) {
    // One byte a packet: 8 of payload from a frame of 4.
    Set("max_rtp_packet_length", 15);
    ASSERT_EQ(Audio(Bytes("A1 A2 A3 A4"), MX_AUDIO_MPEG), 0u);
    ByteVector sent;
    for (const Packet& one : Packets())
        sent = sent + one.payload;
    // The last byte of payload fills its packet, so an empty one follows.
    EXPECT_EQ(sent, Bytes("A1 A2 A3 A4 00 00 00 00"));
    EXPECT_EQ(sink.blocks.size(), 9u);
}

TEST_F(RtpAudio, APayloadThatFillsItsPacketIsFollowedByAnEmptyOne) {
    const ByteVector frame = Counting(986);
    ASSERT_EQ(Audio(frame, MX_AUDIO_ALAW), 0u);
    const std::vector<Packet> packets = Packets();
    ASSERT_EQ(packets.size(), 2u);
    EXPECT_EQ(packets[0].payload, frame);
    EXPECT_FALSE(packets[0].marker);
    EXPECT_EQ(sink.Last(), Bytes("00 0C  80 88 01 F6  00 00 00 00  55 66 77 88"));
    sink.Clear();
    Audio(Counting(985), MX_AUDIO_ALAW);
    ASSERT_EQ(sink.blocks.size(), 1u);
    EXPECT_TRUE(Packets()[0].marker);
}

TEST_F(RtpAudio, AnAacPayloadThatFillsItsPacketIsWhole) {
    const ByteVector frame = Adts(989);
    ASSERT_EQ(Audio(frame, MX_AUDIO_AAC), 0u);
    ASSERT_EQ(sink.blocks.size(), 2u);
    EXPECT_EQ(Packets()[0].payload, Bytes("00 10 1E B0") + Slice(frame, 7, 982));
    EXPECT_TRUE(Packets()[1].payload.empty());
    EXPECT_TRUE(Packets()[1].marker);
}

TEST_F(RtpAudio, LinearPcmIsSwappedInTheCallersFrame) {
    ByteVector data = Bytes("01 02 03 04");
    MXFrameInfo frame = test::AudioFrame(data, MX_AUDIO_PCM16);
    ASSERT_EQ(packet.inputFrame(&frame, 0), 0u);
    EXPECT_EQ(ReadPacket(sink.Last()).payload, Bytes("02 01 04 03"));
    EXPECT_EQ(data, Bytes("02 01 04 03"));
}

TEST_F(RtpAudio, LinearPcmOfAnOddLength) {
    ByteVector data = Bytes("01 02 03");
    MXFrameInfo frame = test::AudioFrame(data, MX_AUDIO_PCM16);
    EXPECT_EQ(packet.inputFrame(&frame, 0), 3u);
    EXPECT_TRUE(sink.blocks.empty());
    EXPECT_EQ(data, Bytes("01 02 03"));
    Basalt::CPacket out(2000);
    EXPECT_EQ(packet.inputFrameEx(&frame, out), 0u);
    EXPECT_EQ(out.size(), 17u);
    EXPECT_EQ(ReadPacket(sink.Last()).payload, Bytes("01 02 03"));
    EXPECT_EQ(data, Bytes("01 02 03"));
}

TEST_F(RtpAudio, LinearPcmOfAnOddLengthMovesTheTimeAndIsNotTheFrameBefore) {
    Set("rtp_audio_sample", 8000);
    ASSERT_EQ(Audio(Bytes("01 02"), MX_AUDIO_PCM16, 1000), 0u);
    EXPECT_EQ(Audio(Bytes("01 02 03"), MX_AUDIO_PCM16, 1040), 3u);
    ASSERT_EQ(Audio(Bytes("01 02"), MX_AUDIO_PCM16, 1080), 0u);
    // 40 ms, and then 80 from the frame of 1000 ms on.
    EXPECT_EQ(ReadPacket(sink.Last()).timestamp, 120u * 8u);
    EXPECT_EQ(ReadPacket(sink.Last()).sequence, 502u) << "no packet was begun";
}

TEST_F(RtpAudio, LinearPcmIsNotSwappedIntoThePacket) {
    ByteVector data = Bytes("01 02 03 04");
    MXFrameInfo frame = test::AudioFrame(data, MX_AUDIO_PCM16);
    Basalt::CPacket out(2000);
    ASSERT_EQ(packet.inputFrameEx(&frame, out), 0u);
    EXPECT_EQ(ReadPacket(sink.Last()).payload, Bytes("01 02 03 04"));
}

TEST_F(RtpAudio, WithoutAClockRateAudioIsRefused) {
    const uint32_t rates[] = {0, 999};
    const char* const texts[] = {"[Muxora] [ERROR] AudioSample(0), AudioGranularity(0) should not be 0.\n",
                                 "[Muxora] [ERROR] AudioSample(999), AudioGranularity(0) should not be 0.\n"};
    for (int i = 0; i < 2; ++i) {
        Set("rtp_audio_sample", rates[i]);
        testing::internal::CaptureStdout();
        EXPECT_EQ(Audio(Counting(10), MX_AUDIO_ALAW), 3u);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), texts[i]);
    }
    EXPECT_TRUE(sink.blocks.empty());
    Set("rtp_audio_sample", 1000);
    EXPECT_EQ(Audio(Counting(10), MX_AUDIO_ALAW), 0u);
}

TEST_F(RtpAudio, SixCodecsAreSentAsAudio) {
    for (const uint32_t codec : {14u, 7u, 16u, 22u, 26u, 31u}) {
        ASSERT_EQ(Audio(Counting(40), codec), 0u);
        EXPECT_EQ(ReadPacket(sink.Last()).ssrc, 0x55667788u) << codec;
        EXPECT_EQ(ReadPacket(sink.Last()).payload_type, 8u);
    }
    EXPECT_EQ(ReadPacket(sink.Last()).sequence, 506u);
}

TEST_F(RtpAudio, OtherCodecsGoOutUnderTheVideoIdentity) {
    packet.SetCustomData("vid", 3);
    packet.SetAudioCustomData("au", 2);
    Set("rtp_timestamp", 9000);
    ASSERT_EQ(Video(Bytes("00 00 00 01 41 9A"), 2), 0u);
    for (const uint32_t codec : {0u, 10u, 34u, 12345u}) {
        ASSERT_EQ(Audio(Counting(40), codec), 0u);
        const Packet one = ReadPacket(sink.Last(), Prefixed::kYes, 3);
        EXPECT_EQ(one.custom, test::Text("vid"));
        EXPECT_EQ(one.ssrc, 0x11223344u);
        EXPECT_EQ(one.payload_type, 96u);
        EXPECT_EQ(one.timestamp, 9000u);
        EXPECT_EQ(one.payload, Counting(40));
    }
    EXPECT_EQ(ReadPacket(sink.Last(), Prefixed::kYes, 3).sequence, 5u);
}

TEST_F(RtpAudio, TheRecordBringsAudioCustomData) {
    MXRtpParam record{};
    record.rtp_audio_sample = 8000;
    record.rtp_audio_custom_data = "four";
    record.rtp_audio_custom_data_length = 4;
    packet.SetRtpParam(record);
    ASSERT_EQ(Audio(Counting(40), MX_AUDIO_ALAW), 0u);
    EXPECT_EQ(ReadPacket(sink.Last(), Prefixed::kYes, 4).custom, test::Text("four"));
    EXPECT_EQ(ReadPacket(sink.Last(), Prefixed::kYes, 4).payload, Counting(40));
    // Five bytes are not taken: the four stay.
    record.rtp_audio_custom_data = "fives";
    record.rtp_audio_custom_data_length = 5;
    packet.SetRtpParam(record);
    ASSERT_EQ(Audio(Counting(40), MX_AUDIO_ALAW), 0u);
    EXPECT_EQ(ReadPacket(sink.Last(), Prefixed::kYes, 4).custom, test::Text("four"));
}

TEST_F(RtpAudio, AudioHasItsOwnCustomData) {
    packet.SetCustomData("video", 5);
    packet.SetAudioCustomData("$A", 2);
    // Room 1000 - 2 - 2 - 12 = 984.
    ASSERT_EQ(Audio(Counting(1000), MX_AUDIO_ALAW), 0u);
    const std::vector<Packet> packets = Packets(Prefixed::kYes, 2);
    ASSERT_EQ(packets.size(), 2u);
    EXPECT_EQ(packets[0].custom, test::Text("$A"));
    EXPECT_EQ(packets[0].prefix, 996u);
    EXPECT_EQ(packets[0].payload, Slice(Counting(1000), 0, 984));
    EXPECT_EQ(packets[1].payload, Slice(Counting(1000), 984, 16));
    EXPECT_EQ(packets[1].prefix, 28u);
}

TEST_F(RtpAudio, TheExtensionIsSharedAndTakesRoom) {
    packet.setExtData("ext", 3);
    ASSERT_EQ(Audio(Counting(978), MX_AUDIO_ALAW), 0u);
    const std::vector<Packet> packets = Packets();
    ASSERT_EQ(packets.size(), 2u);
    EXPECT_EQ(packets[0].extension, test::Text("ext") + Bytes("00"));
    EXPECT_EQ(packets[0].payload.size(), 978u);
    EXPECT_TRUE(packets[1].payload.empty());
}

TEST_F(RtpAudio, Mpeg4VideoIsCutTheSameWay) {
    const ByteVector frame = Counting(2000);
    ASSERT_EQ(Video(frame, MX_VIDEO_MPEG4), 0u);
    const std::vector<Packet> packets = Packets();
    ASSERT_EQ(packets.size(), 3u);
    EXPECT_EQ(packets[0].payload, Slice(frame, 0, 986));
    EXPECT_EQ(packets[1].payload, Slice(frame, 986, 986));
    EXPECT_EQ(packets[2].payload, Slice(frame, 1972, 28));
    EXPECT_EQ(packets[2].prefix, 40u);
    EXPECT_EQ(packets[2].ssrc, 0x11223344u);
    EXPECT_EQ(packets[2].payload_type, 96u);
    for (size_t i = 0; i < 3; ++i)
        EXPECT_EQ(packets[i].marker, i == 2);
}

TEST_F(RtpAudio, FailedFramesMoveTheTime) {
    ASSERT_EQ(Audio(Adts(100), MX_AUDIO_AAC, 1000), 0u);
    ASSERT_EQ(Audio(Adts(1500), MX_AUDIO_AAC, 1100), 4u);
    ASSERT_EQ(Audio(Adts(100), MX_AUDIO_AAC, 1200), 0u);
    EXPECT_EQ(Packets()[1].timestamp, 200u * 48u);
}

TEST_F(RtpAudio, AMaximumLengthWithoutRoomForPayloadIsRefused) {
    Set("max_rtp_packet_length", 14);
    EXPECT_EQ(Audio(Bytes("D5 D5"), MX_AUDIO_ALAW), 3u);
    EXPECT_TRUE(sink.blocks.empty());
    Set("max_rtp_packet_length", 15);
    EXPECT_EQ(Audio(Bytes("D5 D5"), MX_AUDIO_ALAW), 0u);
    EXPECT_EQ(sink.blocks.size(), 3u);
}

}  // namespace
}  // namespace Orvane::Muxora
