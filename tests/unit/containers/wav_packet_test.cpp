#include "containers/wav_packet.h"

#include <gtest/gtest.h>

#include "support/frames.h"
#include "support/hex.h"
#include "support/sink.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::Sink;

// The 44 bytes, with the two sizes given as they stand in the file.
ByteVector Header(const char* riff_size, const char* data_size) {
    using test::operator+;
    return Bytes("52 49 46 46") + Bytes(riff_size) +
           Bytes(
               "57 41 56 45  66 6D 74 20  10 00 00 00  01 00  01 00  40 1F 00 00  80 3E 00 00  02 00  10 00"
               "64 61 74 61") +
           Bytes(data_size);
}

class WavPacket : public testing::Test {
  protected:
    uint32_t Give(ByteVector data, uint32_t codec = MX_AUDIO_PCM16) {
        MXFrameInfo frame = test::AudioFrame(data, codec);
        return packet.inputFrame(&frame, 0);
    }

    Sink sink;
    MXCreateParam param = sink.Param();
    CWavPacket packet{MX_FORMAT_WAV, &param};
};

TEST_F(WavPacket, HeaderWithoutFramesWrapsItsSizesAndTheTailPutsThemRight) {
    ASSERT_EQ(packet.createHeader(nullptr, 0), 0u);
    EXPECT_EQ(sink.file, Header("F8 FF FF FF", "D4 FF FF FF"));
    ASSERT_EQ(packet.createTailer(nullptr, 0), 0u);
    EXPECT_EQ(sink.file, Header("24 00 00 00", "00 00 00 00"));
}

TEST_F(WavPacket, TheFirstFrameIsLeftOut) {
    packet.createHeader(nullptr, 0);
    EXPECT_EQ(Give({1, 2, 3, 4}), 0u);
    packet.createTailer(nullptr, 0);
    EXPECT_EQ(sink.file, Header("24 00 00 00", "00 00 00 00"));
    EXPECT_EQ(sink.blocks.size(), 3u);
}

TEST_F(WavPacket, FramesFollowTheHeader) {
    packet.createHeader(nullptr, 0);
    for (uint8_t i = 0; i < 3; ++i)
        EXPECT_EQ(Give({i, i, i, i, i}), 0u);
    packet.createTailer(nullptr, 0);
    using test::operator+;
    EXPECT_EQ(sink.file, Header("2E 00 00 00", "0A 00 00 00") + Bytes("01 01 01 01 01 02 02 02 02 02"));
    EXPECT_EQ(sink.blocks[2].offset, 44);
    EXPECT_EQ(sink.blocks[3].offset, 49);
    EXPECT_EQ(sink.blocks[3].offset32, 49u);
}

TEST_F(WavPacket, RefusesWhatIsNoAlawOrPcmAudio) {
    packet.createHeader(nullptr, 0);
    Give({1, 2});
    const ByteVector before = sink.file;
    EXPECT_EQ(Give({1, 2}, MX_AUDIO_AAC), 5u);
    ByteVector data{1, 2, 3};
    MXFrameInfo video = test::VideoFrame(data, MX_VIDEO_H264, MX_SUB_I);
    EXPECT_EQ(packet.inputFrame(&video, 0), 5u);
    EXPECT_EQ(sink.file, before);
    EXPECT_EQ(Give({1, 2}, MX_AUDIO_ALAW), 0u);
}

TEST_F(WavPacket, WantsItsHeaderFirst) {
    EXPECT_EQ(Give({1, 2}), 3u);
    EXPECT_EQ(Give({1, 2}, MX_AUDIO_AAC), 3u);  // the codec is looked at later
    EXPECT_EQ(packet.createTailer(nullptr, 0), 3u);
    EXPECT_TRUE(sink.blocks.empty());
}

TEST_F(WavPacket, ASecondHeaderCountsAsMuchAsTheFirst) {
    packet.createHeader(nullptr, 0);
    packet.createHeader(nullptr, 0);
    EXPECT_EQ(sink.file, Header("24 00 00 00", "00 00 00 00"));
    Give({9});
    Give({1, 2, 3});
    ASSERT_EQ(sink.blocks.size(), 4u);
    EXPECT_EQ(sink.blocks[3].offset, 88);
}

TEST_F(WavPacket, NullsAndEmptyFramesAreBadArguments) {
    packet.createHeader(nullptr, 0);
    EXPECT_EQ(packet.inputFrame(nullptr, 0), 3u);
    ByteVector data{1};
    MXFrameInfo frame = test::AudioFrame(data, MX_AUDIO_PCM16);
    frame.frame_size = 0;
    EXPECT_EQ(packet.inputFrame(&frame, 0), 3u);
    frame.frame_size = 1;
    frame.frame_pointer = nullptr;
    EXPECT_EQ(packet.inputFrame(&frame, 0), 3u);
    frame.encode_type = MX_AUDIO_AAC;  // the data is looked at first
    EXPECT_EQ(packet.inputFrame(&frame, 0), 3u);
}

TEST_F(WavPacket, SixteenKilohertzStereoReadsAsEightMono) {
    packet.createHeader(nullptr, 0);
    ByteVector data(640);
    MXFrameInfo frame = test::AudioFrame(data, MX_AUDIO_PCM16);
    frame.samples_per_sec = 16000;
    EXPECT_EQ(packet.inputFrame(&frame, 0), 0u);
    EXPECT_EQ(packet.inputFrame(&frame, 0), 0u);
    packet.createTailer(nullptr, 0);
    EXPECT_EQ(test::Slice(sink.file, 0, 44), Header("A4 02 00 00", "80 02 00 00"));
}

TEST_F(WavPacket, ASinkThatTakesLessMovesTheNextFrame) {
    sink.accept = {-1, -1, 1};
    packet.createHeader(nullptr, 0);
    Give({9});
    Give({1, 2, 3});
    Give({4, 5, 6});
    EXPECT_EQ(sink.blocks[3].offset, 45);
}

TEST_F(WavPacket, TheTailMayBeRepeated) {
    packet.createHeader(nullptr, 0);
    packet.createTailer(nullptr, 0);
    const ByteVector first = sink.file;
    EXPECT_EQ(packet.createTailer(nullptr, 0), 0u);
    EXPECT_EQ(sink.file, first);
}

TEST_F(WavPacket, BackupLeavesTheBlockAlone) {
    MXOutputBlock block{};
    block.length = 77;
    EXPECT_EQ(packet.getBackup(&block), 0u);
    EXPECT_EQ(block.length, 77u);
}

TEST_F(WavPacket, Capacity) {
    const void* table = &sink;
    uint32_t count = 9;
    EXPECT_EQ(packet.getEncodeCapacity(0, &table, &count), 0u);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(table, &sink);
    EXPECT_EQ(packet.getEncodeCapacity(1, &table, &count), 0u);
    ASSERT_EQ(count, 2u);
    const auto* entries = static_cast<const MXCapacityEntry*>(table);
    EXPECT_EQ(entries[0].codec, 14u);
    EXPECT_EQ(entries[1].codec, 16u);
    EXPECT_EQ(packet.getCodecCapacity(1, &table, &count), 0u);
    entries = static_cast<const MXCapacityEntry*>(table);
    EXPECT_EQ(entries[0].codec, 28u);
    EXPECT_EQ(entries[1].codec, 30u);
    count = 9;
    EXPECT_EQ(packet.getCodecCapacity(2, &table, &count), 3u);
    EXPECT_EQ(count, 9u);
    EXPECT_EQ(packet.getEncodeCapacity(1, nullptr, &count), 3u);
    EXPECT_EQ(packet.getEncodeCapacity(1, &table, nullptr), 3u);
}

TEST_F(WavPacket, AheadOfTheHeaderThereIsNothing) {
    EXPECT_EQ(Give({1, 2, 3, 4}), 3u);
    EXPECT_EQ(packet.createTailer(nullptr, 0), 3u);
    EXPECT_TRUE(sink.blocks.empty());
}

}  // namespace
}  // namespace Orvane::Muxora
