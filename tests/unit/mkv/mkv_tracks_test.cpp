// The audio track, and what has no room in the file.
#include <gtest/gtest.h>

#include <memory>

#include "mkv_packet_fixture.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::Sink;
using test::Slice;
using test::operator+;
using namespace MkvTest;

class MkvTracks : public MkvPacket {};

// ----------------------------------------------------------------------------------------------------- audio

TEST_F(MkvTracks, AudioTimesComeFromItsOwnCount) {
    Start();
    Key();
    for (int i = 1; i < 24; ++i)
        P();
    Key();  // 960 ms
    Audio(Bytes(kAacFrame));
    EXPECT_EQ(Slice(LastBlock().data, 3, 2), Bytes("03 C0"));
    Audio(Bytes(kAacFrame));
    EXPECT_EQ(Slice(LastBlock().data, 3, 2), Bytes("00 17"));  // 23.2 ms
    P();                                                       // the second cluster
    Audio(Bytes(kAacFrame));
    EXPECT_EQ(Slice(LastBlock().data, 3, 2), Bytes("FC 46"));  // 46 - 1000
    Audio(Bytes(kAacFrame), 8000);
    EXPECT_EQ(Slice(LastBlock().data, 3, 2), Bytes("FD 98"));  // 384 - 1000
    Audio(Bytes(kAacFrame), 0);
    EXPECT_EQ(Slice(LastBlock().data, 3, 2), Bytes("FC 18"));  // 0 - 1000
}

TEST_F(MkvTracks, TheFirstAudioTimeIsThatOfTheLastKeyFrameInTheFile) {
    Start();
    Key(2);
    P(2);
    P(2);  // the second cluster
    Key(2);
    Audio(Bytes(kAacFrame));
    EXPECT_EQ(Slice(LastBlock().data, 3, 2), Bytes("05 DC"));  // 1500, though the cluster stands at 1000
}

TEST_F(MkvTracks, AudioTakesTheLengthOfItsHeader) {
    Start();
    Key();
    const auto block = [&](const char* bytes) {
        EXPECT_EQ(Audio(Bytes(bytes)), 0u);
        return Slice(LastBlock().data, 1, LastBlock().data.size() - 1);
    };
    // One byte shorter than the frame.
    EXPECT_EQ(block("FF F1 50 80 01 5F FC DE AD BE EF"), Bytes("87 82 00 00 80 DE AD BE"));
    // 8191, the largest.
    ByteVector large = Bytes("FF F1 50 83 FF FF FC") + ByteVector(8184, 0x77);
    EXPECT_EQ(Audio(large), 0u);
    EXPECT_EQ(LastBlock().data, Bytes("A3 5F FC 82 00 17 80") + ByteVector(8184, 0x77));
    // MPEG-2 AAC, and a layer that should be zero, pass the test of the sync word.
    EXPECT_EQ(block("FF F9 50 80 01 1F FC DE"), Bytes("85 82 00 2E 80 DE"));
    EXPECT_EQ(block("FF FF 50 80 01 1F FC DE"), Bytes("85 82 00 45 80 DE"));
}

TEST_F(MkvTracks, AudioWithoutASoundHeaderGivesAnEmptyBlock) {
    Start();
    Key();
    const auto block = [&](const char* bytes) {
        EXPECT_EQ(Audio(Bytes(bytes), 1024000), 0u);
        return LastBlock().data;
    };
    EXPECT_EQ(block("DE AD BE EF 00 00 00 00 00"), Bytes("A3 84 82 00 00 80"));
    EXPECT_EQ(block("FF F0 50 80 01 7F FC DE AD BE EF"), Bytes("A3 84 82 00 01 80"));  // with a checksum
    EXPECT_EQ(block("FE F1 50 80 01 7F FC DE AD BE EF"), Bytes("A3 84 82 00 02 80"));
    EXPECT_EQ(block("FF F1 50 80 00 DF FC DE AD BE EF"), Bytes("A3 84 82 00 03 80"));  // length 6
    EXPECT_EQ(block("FF F1 50 80 00 1F FC DE AD BE EF"), Bytes("A3 84 82 00 04 80"));  // length 0
    EXPECT_EQ(block("FF F1 50 80 01 9F FC DE AD BE EF"), Bytes("A3 84 82 00 05 80"));  // length 12 of 11
    EXPECT_EQ(block("FF F1 50 80 00 FF FC DE AD BE EF"), Bytes("A3 84 82 00 06 80"));  // length 7
    EXPECT_EQ(block("FF F1 50 80 00 FF"), Bytes("A3 84 82 00 07 80"));
    EXPECT_EQ(block("FF"), Bytes("A3 84 82 00 08 80"));
}

TEST_F(MkvTracks, TheAudioEntryIsThatOfTheFirstFrame) {
    Start();
    Key();
    ByteVector data = Bytes("FF F1 4C 40 01 7F FC DE AD BE EF");  // LC, 48000 Hz, one channel
    MXFrameInfo frame = test::AudioFrame(data, MX_AUDIO_AAC);
    frame.bits_per_sample = 24;
    frame.channels = 0x101;
    packet.inputFrame(&frame, 0);
    Audio(Bytes(kAacFrame));
    Finish();
    EXPECT_EQ(At(633 + 84, 60),
              Bytes("AE 01 00 00 00 00 00 00 33  D7 81 02  73 C5 81 02  9C 81 00  83 81 02  86 85 41 5F 41 41 43"
                    "22 B5 9C 83 75 6E 64  63 A2 82 09 88"
                    "E1 91 B5 88 40 E7 70 00 00 00 00 00 9F 81 01 62 64 81 10"));
}

TEST_F(MkvTracks, AFirstAudioFrameOfTwoBytesHasWhatThereIs) {
    Start();
    Key();
    EXPECT_EQ(Audio(Bytes("FF F1")), 0u);
    Finish();
    EXPECT_EQ(At(633 + 84 + 36, 5), Bytes("63 A2 82 00 00"));
}

// ---------------------------------------------------------------------------------------------- what fits

TEST_F(MkvTracks, ABlockBeyondTheWorkBufferIsRefused) {
    Start();
    Key();
    const ByteVector before = sink.file;
    ByteVector large = Bytes("00 00 00 01 41") + ByteVector(kWorkBufferSize - 8 - 5 + 1, 0xAB);
    const ByteVector unchanged = large;
    MXFrameInfo frame = test::VideoFrame(large, MX_VIDEO_H264, MX_SUB_P);
    EXPECT_EQ(packet.inputFrame(&frame, 0), 3u);
    EXPECT_EQ(sink.file, before);
    EXPECT_EQ(large, unchanged);
    P();
    EXPECT_EQ(LastBlock().offset, 1104);
    EXPECT_EQ(LastBlock().data, Bytes("A3 8B 81 00 28 00  00 00 00 03 41 9A 02"));

    // The block that fills the buffer to its last byte.
    large.pop_back();
    EXPECT_EQ(Video(large, MX_SUB_P), 0u);
    EXPECT_EQ(LastBlock().data.size(), kWorkBufferSize);
    EXPECT_EQ(Slice(LastBlock().data, 0, 13), Bytes("A3 3F FF FC 81 00 50 00  00 1F FF F4 41"));
}

TEST_F(MkvTracks, ALargeFrameThatMakesNoBlockIsNotRefused) {
    Start();
    const ByteVector large(kWorkBufferSize, 0xAB);
    EXPECT_EQ(Video(large, MX_SUB_P), 0u);  // before the first key frame
    EXPECT_EQ(Video(large, MX_SUB_I), 3u);
    EXPECT_TRUE(sink.blocks.empty());
    Key();
    const ByteVector block = LastBlock().data;
    EXPECT_EQ(Video(large, MX_SUB_KEY), 0u);
    EXPECT_EQ(LastBlock().data, block);
    EXPECT_EQ(Video(large, MX_SUB_I, 25, MX_VIDEO_H264_ALT), 0u);
}

TEST_F(MkvTracks, TheMpeg4ConfigurationDoesNotCountForTheBlock) {
    Start();
    const ByteVector header = Bytes("00 00 01 B0 F5 00 00 01 B5 09");
    const ByteVector picture = Bytes("00 00 01 B6") + ByteVector(kWorkBufferSize - 8 - 4, 0xAB);
    ByteVector data = header + picture + Bytes("AB");
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_MPEG4, MX_SUB_I);
    EXPECT_EQ(packet.inputFrame(&frame, 0), 3u);
    EXPECT_EQ(FrameBytes(frame), data.data());
    EXPECT_EQ(frame.frame_size, data.size());
    data.pop_back();
    EXPECT_EQ(Video(data, MX_SUB_I, 25, MX_VIDEO_MPEG4), 0u);
    EXPECT_EQ(LastBlock().data.size(), kWorkBufferSize);
}

// An MPEG-4 key frame with a configuration of that length.
ByteVector Mpeg4Frame(size_t configuration) {
    return Bytes("00 00 01 B0") + ByteVector(configuration - 4, 0x11) + Bytes("00 00 01 B6 10 20 30 40");
}

TEST_F(MkvTracks, AVideoEntryThatFillsItsSpan) {
    Start();
    EXPECT_EQ(Video(Mpeg4Frame(351), MX_SUB_I, 25, MX_VIDEO_MPEG4), 0u);
    // There is no room left for audio, and the file goes on without.
    const size_t calls = sink.blocks.size();
    EXPECT_EQ(Audio(Bytes(kAacFrame)), 3u);
    EXPECT_EQ(sink.blocks.size(), calls);
    Finish();
    EXPECT_EQ(At(625, 8), Bytes("01 00 00 00 00 00 01 A1"));
    EXPECT_EQ(At(633 + 52, 4), Bytes("63 A2 41 5F"));
    EXPECT_EQ(At(633 + 417, 13), Bytes("EC 01 00 00 00 00 00 00 00  1F 43 B6 75"));
}

TEST_F(MkvTracks, AVideoEntryBeyondItsSpanOpensNoTrack) {
    Start();
    ByteVector data = Mpeg4Frame(352);
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_MPEG4, MX_SUB_I);
    EXPECT_EQ(packet.inputFrame(&frame, 0), 3u);
    EXPECT_EQ(FrameBytes(frame), data.data());
    EXPECT_EQ(frame.frame_size, data.size());
    EXPECT_TRUE(sink.blocks.empty());
    EXPECT_EQ(Video(Mpeg4Frame(40), MX_SUB_I, 25, MX_VIDEO_MPEG4), 0u);
    EXPECT_EQ(LastBlock().offset, 1075);
}

TEST_F(MkvTracks, APairThatFillsItsSpanAndOneBeyond) {
    for (const size_t configuration : {291u, 292u}) {
        Sink file;
        const MXCreateParam to_file = file.Param();
        const auto pair = std::make_unique<CMkvPacket>(MX_FORMAT_MKV, &to_file);
        pair->init();
        pair->createHeader(nullptr, 0);
        ByteVector data = Mpeg4Frame(configuration);
        MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_MPEG4, MX_SUB_I);
        EXPECT_EQ(pair->inputFrame(&frame, 0), 0u);
        ByteVector aac = Bytes(kAacFrame);
        frame = test::AudioFrame(aac, MX_AUDIO_AAC);
        EXPECT_EQ(pair->inputFrame(&frame, 0), configuration == 291 ? 0u : 3u);
        pair->createTailer(nullptr, 0);
        EXPECT_EQ(Slice(file.file, 625, 8),
                  configuration == 291 ? Bytes("01 00 00 00 00 00 01 A1") : Bytes("01 00 00 00 00 00 01 66"));
        EXPECT_EQ(Slice(file.file, 1059, 4), Bytes("1F 43 B6 75"));
    }
}

TEST_F(MkvTracks, TheLargestParameterSetsOpenNoTrack) {
    Start();
    ByteVector sps(255, 0x11);
    sps[0] = 0x67;
    ByteVector pps(255, 0x22);
    pps[0] = 0x68;
    const ByteVector code = Bytes("00 00 00 01");
    EXPECT_EQ(Video(code + sps + code + pps + code + Bytes("65 88"), MX_SUB_I), 3u);
    EXPECT_TRUE(sink.blocks.empty());
    EXPECT_EQ(Key(), 0u);
}

}  // namespace
}  // namespace Orvane::Muxora
