#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "core/clock.h"
#include "mkv_packet_fixture.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::Sink;
using test::Slice;
using test::Text;
using test::operator+;
using namespace MkvTest;

// The 633 bytes up to the first TrackEntry, with what the tail fills in.
ByteVector Head(const char* segment_size, const char* info, const char* tracks, const char* cues, const char* date,
                const char* tracks_size) {
    return Bytes(
               "1A 45 DF A3 01 00 00 00 00 00 00 23"
               "42 86 81 01  42 F7 81 01  42 F2 81 04  42 F3 81 08  42 82 88") +
           Text("matroska") + Bytes("42 87 81 04  42 85 81 02  18 53 80 67") + Bytes(segment_size) +
           Bytes(
               "11 4D 9B 74 B3"
               "4D BB 8E 53 AB 84 15 49 A9 66 53 AC 84") +
           Bytes(info) + Bytes("4D BB 8E 53 AB 84 16 54 AE 6B 53 AC 84") + Bytes(tracks) +
           Bytes("4D BB 8E 53 AB 84 1C 53 BB 6B 53 AC 84") + Bytes(cues) + Bytes("EC 01 00 00 00 00 00 01 B3") +
           ByteVector(435) + Bytes("15 49 A9 66 01 00 00 00 00 00 00 32  2A D7 B1 83 0F 42 40  44 61 88") +
           Bytes(date) + Bytes("4D 80 8D") + Text("Lavf55.33.100") + Bytes("57 41 8D") + Text("Lavf55.33.100") +
           Bytes("16 54 AE 6B") + Bytes(tracks_size);
}

// ------------------------------------------------------------------------------------------- the whole file

TEST_F(MkvPacket, HeaderGoesOutPieceByPiece) {
    const ScopedClock clock(0x66554433);
    ASSERT_EQ(packet.init(), 0u);
    ASSERT_EQ(packet.createHeader(nullptr, 0), 0u);
    const int64_t offsets[] = {0, 47, 51, 59, 559, 621};
    const size_t sizes[] = {47, 4, 8, 500, 62, 4};
    ASSERT_EQ(sink.blocks.size(), 6u);
    for (size_t i = 0; i < 6; ++i) {
        EXPECT_EQ(sink.blocks[i].offset, offsets[i]);
        EXPECT_EQ(sink.blocks[i].data.size(), sizes[i]);
        EXPECT_EQ(sink.blocks[i].seek_type, 0u);
    }
    EXPECT_EQ(sink.file, Head("00 00 00 00 00 00 00 00", "00 00 00 00", "00 00 00 00", "00 00 00 00",
                              "00 00 00 00 66 55 44 33", ""));
}

TEST_F(MkvPacket, HeaderAndTailAlone) {
    const ScopedClock clock(1);
    Start();
    Finish();
    EXPECT_EQ(sink.file, Head("01 00 00 00 00 00 03 F4", "00 00 01 F4", "00 00 02 32", "00 00 03 E8",
                              "00 00 00 00 00 00 00 01", "01 00 00 00 00 00 00 00") +
                             Bytes("EC 01 00 00 00 00 00 01 A1") + ByteVector(417) +
                             Bytes("1C 53 BB 6B 01 00 00 00 00 00 00 00"));
    EXPECT_EQ(sink.file.size(), 1059u + 12);
    EXPECT_EQ(sink.file.size() - 59, 1012u);
}

TEST_F(MkvPacket, VideoWithAudio) {
    const ScopedClock clock(1);
    Start();
    EXPECT_EQ(Key(), 0u);
    EXPECT_EQ(Audio(Bytes(kAacFrame)), 0u);
    EXPECT_EQ(P(), 0u);
    EXPECT_EQ(Audio(Bytes(kAacFrame)), 0u);
    Finish();

    // The video entry has 84 bytes, the audio one 60.
    const ByteVector entries = Bytes("AE 01 00 00 00 00 00 00 4B  D7 81 01  73 C5 81 01  83 81 01  86 90") +
                               Text("V_MPEG4/ISO/AVC") +
                               Bytes(
                                   "00  23 E3 83 84 02 62 5A 00  22 B5 9C 83 75 6E 64"
                                   "63 A2 93 01 64 00 28 FF E1 00 05 67 64 00 28 AC 01 00 03 68 EE 3C"
                                   "E0 88 B0 82 07 80 BA 82 04 38"
                                   "AE 01 00 00 00 00 00 00 33  D7 81 02  73 C5 81 02  9C 81 00  83 81 02  86 85") +
                               Text("A_AAC") +
                               Bytes(
                                   "22 B5 9C 83 75 6E 64  63 A2 82 0A 10"
                                   "E1 91 B5 88 40 E5 88 80 00 00 00 00 9F 81 02 62 64 81 10");
    ASSERT_EQ(entries.size(), 144u);
    const ByteVector cluster = Bytes(
        "1F 43 B6 75 01 00 00 00 00 00 00 42 E7 82 00 00"
        "A3 9B 81 00 00 80  00 00 00 05 67 64 00 28 AC  00 00 00 03 68 EE 3C  00 00 00 03 65 88 84"
        "A3 88 82 00 00 80  DE AD BE EF"
        "A3 8B 81 00 28 00  00 00 00 03 41 9A 02"
        "A3 88 82 00 17 80  DE AD BE EF");
    ASSERT_EQ(cluster.size(), 78u);
    const ByteVector cues = Bytes(
        "1C 53 BB 6B 01 00 00 00 00 00 00 17"
        "BB 96 B3 84 00 00 00 00 B7 8D F7 81 01 F1 84 00 00 04 23 F0 82 00 04");
    // 78 bytes of cluster, 35 of Cues and the two spans of 500; the Void has 417 - 144 bytes.
    EXPECT_EQ(sink.file, Head("01 00 00 00 00 00 04 59", "00 00 01 F4", "00 00 02 32", "00 00 04 36",
                              "00 00 00 00 00 00 00 01", "01 00 00 00 00 00 00 90") +
                             entries + Bytes("EC 01 00 00 00 00 00 01 11") + ByteVector(273) + cluster + cues);
}

TEST_F(MkvPacket, TwoOutputCallsForEachBlock) {
    Start();
    Key();
    ASSERT_EQ(sink.blocks.size(), 5u + 2);
    const int64_t cluster_head[] = {1059, 1063, 1071, 1072, 1073};
    for (size_t i = 0; i < 5; ++i)
        EXPECT_EQ(sink.blocks[i].offset, cluster_head[i]);
    EXPECT_EQ(sink.blocks[5].offset, 1075);
    EXPECT_EQ(sink.blocks[6].offset, 1063);
    EXPECT_EQ(sink.blocks[6].data, Bytes("01 00 00 00 00 00 00 21"));
    P();
    ASSERT_EQ(sink.blocks.size(), 9u);
    EXPECT_EQ(sink.blocks[7].offset, 1104);
    EXPECT_EQ(sink.blocks[7].data, Bytes("A3 8B 81 00 28 00  00 00 00 03 41 9A 02"));
    EXPECT_EQ(sink.blocks[8].offset, 1063);
    EXPECT_EQ(sink.blocks[8].data, Bytes("01 00 00 00 00 00 00 2E"));
}

TEST_F(MkvPacket, TheTailGoesOutPieceByPiece) {
    Start();
    Key();
    Audio(Bytes(kAacFrame));
    sink.blocks.clear();
    Finish();
    // The entries, the size around them, the Void's ID and its size, the Seek entries, the Cues, the Segment's size.
    const int64_t offsets[] = {633, 625, 777, 778, 64, 1059 + 16 + 29 + 10, 51};
    const size_t sizes[] = {144, 8, 1, 8, 51, 12 + 23, 8};
    ASSERT_EQ(sink.blocks.size(), 7u);
    for (size_t i = 0; i < 7; ++i) {
        EXPECT_EQ(sink.blocks[i].offset, offsets[i]) << i;
        EXPECT_EQ(sink.blocks[i].offset32, offsets[i]) << i;
        EXPECT_EQ(sink.blocks[i].data.size(), sizes[i]) << i;
    }
}

// -------------------------------------------------------------------------------------- clusters and times

TEST_F(MkvPacket, TheTwentySixthFrameOpensTheNextCluster) {
    Start();
    Key();
    for (int i = 1; i < 25; ++i)
        P();
    EXPECT_EQ(LastBlock().data, Bytes("A3 8B 81 03 C0 00  00 00 00 03 41 9A 02"));
    // 16 bytes of head, a block of 29 and 24 of 13.
    const int64_t second = 1059 + 16 + 29 + 24 * 13;
    sink.blocks.clear();
    Key();
    EXPECT_EQ(sink.blocks[0].offset, second);
    EXPECT_EQ(At(static_cast<size_t>(second), 16), Bytes("1F 43 B6 75 01 00 00 00 00 00 00 21 E7 82 03 E8"));
    EXPECT_EQ(Slice(LastBlock().data, 0, 6), Bytes("A3 9B 81 00 00 80"));
    P();
    Finish();
    // Two cues, the second one at 1000 ms and 1416.
    const size_t cues = static_cast<size_t>(second) + 16 + 29 + 13;
    EXPECT_EQ(At(cues, sink.file.size() - cues),
              Bytes("1C 53 BB 6B 01 00 00 00 00 00 00 2E"
                    "BB 96 B3 84 00 00 00 00 B7 8D F7 81 01 F1 84 00 00 04 23 F0 82 00 04"
                    "BB 96 B3 84 00 00 03 E8 B7 8D F7 81 01 F1 84 00 00 05 88 F0 82 00 04"));
}

TEST_F(MkvPacket, KeyFramesWithinAClusterHaveTheirCues) {
    Start();
    Key();
    P();
    Video(Bytes(kKeyFrame), MX_SUB_LAYERED_KEY);
    Video(Bytes(kKeyFrame), MX_SUB_LAYERED_KEY2);
    Video(Bytes(kKeyFrame), MX_SUB_KEY);
    Finish();
    const size_t cues = 1059 + 16 + 29 + 13 + 29 + 29 + 29;
    // 80 ms at total 58 plus 4, 120 ms at total 87 plus 4; kind 8 has none.
    EXPECT_EQ(At(cues, sink.file.size() - cues),
              Bytes("1C 53 BB 6B 01 00 00 00 00 00 00 45"
                    "BB 96 B3 84 00 00 00 00 B7 8D F7 81 01 F1 84 00 00 04 23 F0 82 00 04"
                    "BB 96 B3 84 00 00 00 50 B7 8D F7 81 01 F1 84 00 00 04 23 F0 82 00 3E"
                    "BB 96 B3 84 00 00 00 78 B7 8D F7 81 01 F1 84 00 00 04 23 F0 82 00 5B"));
}

TEST_F(MkvPacket, TheClusterTimecodeWrapsAt16Bits) {
    Start();
    for (int i = 0; i < 67; ++i)
        Key(1);
    const int64_t cluster = 1059 + 66 * (16 + 29);
    EXPECT_EQ(At(static_cast<size_t>(cluster) + 12, 4), Bytes("E7 82 01 D0"));  // 66000 - 65536
    Finish();
    const size_t cue = static_cast<size_t>(cluster) + 45 + 12 + 66 * 23;
    EXPECT_EQ(At(cue, 8), Bytes("BB 96 B3 84 00 01 01 D0"));
}

TEST_F(MkvPacket, AFrameRateThatFallsMovesThePaceAtOnce) {
    Start();
    Key(25);
    for (int i = 1; i < 10; ++i)
        P(25);
    sink.blocks.clear();
    P(10);  // the tenth frame behind the first: a cluster, one second of 10 frames behind the first
    ASSERT_EQ(sink.blocks.size(), 7u);
    const int64_t second = 1059 + 16 + 29 + 9 * 13;
    EXPECT_EQ(sink.blocks[0].offset, second);
    EXPECT_EQ(At(static_cast<size_t>(second) + 12, 4), Bytes("E7 82 03 E8"));
    EXPECT_EQ(Slice(LastBlock().data, 3, 2), Bytes("00 00"));
    P(10);
    EXPECT_EQ(Slice(LastBlock().data, 3, 2), Bytes("00 64"));
}

TEST_F(MkvPacket, AFrameRateThatRisesWrapsIn32Bits) {
    Start();
    Key(5);
    for (int i = 1; i < 6; ++i)
        P(5);
    sink.blocks.clear();
    P(25);  // frame 6 in cluster 1: (6 - 25) * 1000 in 32 bits is 4294948296, by 25 is 171797931
    ASSERT_EQ(sink.blocks.size(), 2u);
    EXPECT_EQ(Slice(LastBlock().data, 3, 2), Bytes("6D AB"));
}

TEST_F(MkvPacket, AtTheLargestFrameRateAllIsInOneCluster) {
    Start();
    Key(0xFFFFFFFF);
    ASSERT_EQ(sink.blocks.size(), 7u);
    EXPECT_EQ(sink.blocks[0].offset, 1059);
    sink.blocks.clear();
    P(0xFFFFFFFF);
    ASSERT_EQ(sink.blocks.size(), 2u);
    EXPECT_EQ(Slice(LastBlock().data, 3, 2), Bytes("00 00"));
}

TEST_F(MkvPacket, WithoutAFrameRateThereIsNoCluster) {
    Start();
    Key(0);
    ASSERT_EQ(sink.blocks.size(), 1u);
    EXPECT_EQ(sink.blocks[0].offset, 633);
    EXPECT_EQ(Slice(sink.blocks[0].data, 0, 6), Bytes("A3 9B 81 00 00 80"));
    P(0);
    ASSERT_EQ(sink.blocks.size(), 2u);
    EXPECT_EQ(sink.blocks[1].offset, 633 + 29);
    EXPECT_EQ(sink.blocks[1].data, Bytes("A3 8B 81 00 00 00  00 00 00 03 41 9A 02"));
    Audio(Bytes(kAacFrame));
    ASSERT_EQ(sink.blocks.size(), 3u);
    EXPECT_EQ(sink.blocks[2].offset, 633 + 29 + 13);
    Finish();
    // The blocks are counted all the same: 52 bytes and 16, then the Cues.
    EXPECT_EQ(At(51, 8), Bytes("01 00 00 00 00 00 04 4F"));
    EXPECT_EQ(At(1059 + 68, 35), Bytes("1C 53 BB 6B 01 00 00 00 00 00 00 17"
                                       "BB 96 B3 84 00 00 00 00 B7 8D F7 81 01 F1 84 00 00 04 23 F0 82 00 04"));
    // DefaultDuration.
    EXPECT_EQ(At(633 + 37, 8), Bytes("23 E3 83 84 00 00 00 00"));
}

TEST_F(MkvPacket, AFrameRateThatComesLateStartsBehindWhatWasCounted) {
    Start();
    Key(0);
    P(0);
    sink.blocks.clear();
    Key(2);  // the third frame
    EXPECT_EQ(sink.blocks[0].offset, 1059 + 16 + 29 + 13);
    EXPECT_EQ(sink.blocks.size(), 7u);
}

TEST_F(MkvPacket, AFrameRateThatGoesAwayStaysInItsCluster) {
    Start();
    Key(25);
    P(25);
    P(0);
    EXPECT_EQ(LastBlock().data, Bytes("A3 8B 81 00 00 00  00 00 00 03 41 9A 02"));
    EXPECT_EQ(sink.blocks.back().offset, 1063);
    EXPECT_EQ(sink.blocks.back().data, Bytes("01 00 00 00 00 00 00 3B"));
}

TEST_F(MkvPacket, PositionsWrapAt4GiB) {
    Start();
    struct Places {
        std::vector<int64_t> offsets;
        static int32_t Output(const MXOutputBlock* block, void* user) {
            static_cast<Places*>(user)->offsets.push_back(block->offset);
            return 0;
        }
    } places;
    packet.setCallback(Places::Output, &places);
    // A block of 2 MiB, and kinds without a block, which repeat it: 2048 clusters, 4 GiB and 32768 bytes.
    ASSERT_EQ(Video(ByteVector(kWorkBufferSize - 8, 0xAB), MX_SUB_I, 1), 0u);
    for (int i = 1; i < 2048; ++i)
        ASSERT_EQ(Video(Bytes(kPFrame), MX_SUB_KEY, 1), 0u);
    places.offsets.clear();
    P(1);
    ASSERT_EQ(places.offsets.size(), 7u);
    EXPECT_EQ(places.offsets[0], 1059 + 32768);       // the cluster
    EXPECT_EQ(places.offsets[5], 1059 + 32768 + 16);  // its block
    EXPECT_EQ(places.offsets[6], 1059 + 32768 + 4);   // its size
    places.offsets.clear();
    Finish();
    // The Cues go where all of that ends.
    EXPECT_EQ(*std::max_element(places.offsets.begin(), places.offsets.end()),
              1059 + (int64_t{1} << 32) + 32768 + 16 + 13);
}

// ------------------------------------------------------------------------------------------- what is dropped

TEST_F(MkvPacket, NothingBeforeTheFirstKeyFrame) {
    Start();
    EXPECT_EQ(P(), 0u);
    EXPECT_EQ(Audio(Bytes(kAacFrame)), 0u);
    EXPECT_EQ(Video(Bytes(kKeyFrame), MX_SUB_KEY), 0u);
    EXPECT_EQ(Video(Bytes(kKeyFrame), MX_SUB_OTHER), 0u);
    EXPECT_EQ(Video(Bytes(kKeyFrame), MX_SUB_B), 0u);
    EXPECT_EQ(Video(Bytes(kKeyFrame), MX_SUB_LAYERED_P), 0u);
    EXPECT_TRUE(sink.blocks.empty());
    EXPECT_EQ(Video(Bytes(kKeyFrame), MX_SUB_LAYERED_KEY), 0u);
    EXPECT_EQ(LastBlock().offset, 1075);
}

TEST_F(MkvPacket, ParameterSetsCountFromDroppedFramesToo) {
    Start();
    Video(Bytes(kSpsPps), MX_SUB_P);
    Video(Bytes("00 00 00 01 65 88 84"), MX_SUB_I);
    Finish();
    EXPECT_EQ(At(633 + 52, 22), Bytes("63 A2 93 01 64 00 28 FF E1 00 05 67 64 00 28 AC 01 00 03 68 EE 3C"));
}

TEST_F(MkvPacket, AnotherCodecThanTheTracksIsDropped) {
    Start();
    Key();
    const ByteVector before = sink.file;
    EXPECT_EQ(Video(Bytes(kKeyFrame), MX_SUB_I, 25, MX_VIDEO_H264_ALT), 0u);
    EXPECT_EQ(Video(Bytes("00 00 01 B6 10 20 30 40"), MX_SUB_I, 25, MX_VIDEO_MPEG4), 0u);
    EXPECT_EQ(sink.file, before);
    P();
    EXPECT_EQ(LastBlock().data, Bytes("A3 8B 81 00 28 00  00 00 00 03 41 9A 02"));
}

TEST_F(MkvPacket, TheOtherH264NumberMakesTheSameFile) {
    Start();
    EXPECT_EQ(Video(Bytes(kKeyFrame), MX_SUB_I, 25, MX_VIDEO_H264_ALT), 0u);
    EXPECT_EQ(LastBlock().data,
              Bytes("A3 9B 81 00 00 80  00 00 00 05 67 64 00 28 AC  00 00 00 03 68 EE 3C  00 00 00 03 65 88 84"));
    EXPECT_EQ(P(), 0u);
    EXPECT_EQ(LastBlock().offset, 1075);
}

TEST_F(MkvPacket, RefusesOtherCodecsAndFrameTypes) {
    Start();
    const auto result = [&](uint32_t frame_type, uint32_t codec) {
        ByteVector data = Bytes(kKeyFrame);
        MXFrameInfo frame = test::Frame(data, frame_type, codec);
        return packet.inputFrame(&frame, 0);
    };
    for (const uint32_t codec : {0u, 3u, 8u, 9u, 11u, 12u, 26u, 35u, 129u})
        EXPECT_EQ(result(1, codec), 5u) << codec;
    for (const uint32_t codec : {0u, 1u, 2u, 4u, 7u, 14u, 16u, 22u, 31u})
        EXPECT_EQ(result(2, codec), 5u) << codec;
    for (const uint32_t frame_type : {0u, 3u, 4u, 0xFFFFFFFFu})
        EXPECT_EQ(result(frame_type, 2), 5u) << frame_type;
    EXPECT_TRUE(sink.blocks.empty());
}

TEST_F(MkvPacket, NullsAndEmptyFramesAreBadArguments) {
    Start();
    EXPECT_EQ(packet.inputFrame(nullptr, 0), 3u);
    ByteVector data = Bytes(kKeyFrame);
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_MJPEG, MX_SUB_I);
    frame.frame_size = 0;
    EXPECT_EQ(packet.inputFrame(&frame, 0), 3u);
    frame.frame_size = 1;
    frame.frame_pointer = nullptr;
    EXPECT_EQ(packet.inputFrame(&frame, 0), 3u);
}

TEST_F(MkvPacket, WithoutInitEveryFrameIsDropped) {
    EXPECT_EQ(packet.createHeader(nullptr, 0), 3u);
    EXPECT_EQ(Key(), 0u);
    EXPECT_EQ(Audio(Bytes(kAacFrame)), 0u);
    // What is refused is refused all the same.
    EXPECT_EQ(packet.inputFrame(nullptr, 0), 3u);
    EXPECT_EQ(Video(Bytes(kKeyFrame), MX_SUB_I, 25, MX_VIDEO_MJPEG), 5u);
    EXPECT_EQ(packet.createTailer(nullptr, 0), 3u);
    EXPECT_TRUE(sink.blocks.empty());
    EXPECT_EQ(packet.uninit(), 0u);
}

// --------------------------------------------------------------------------------------------- kinds of video

TEST_F(MkvPacket, ThreeByteStartCodesAreCopiedAsTheyStand) {
    Start();
    ByteVector data = Bytes("00 00 01 67 64 00 28  00 00 01 68 EE  00 00 01 65 88");
    const ByteVector before = data;
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, MX_SUB_I);
    EXPECT_EQ(packet.inputFrame(&frame, 0), 0u);
    EXPECT_EQ(data, before);
    EXPECT_EQ(LastBlock().data, Bytes("A3 95 81 00 00 80") + before);
    Finish();
    EXPECT_EQ(At(633 + 52, 14), Bytes("63 A2 8B 00 00 00 00 FF E0 00 00 00 00 00"));
}

TEST_F(MkvPacket, TheCallersFrameIsConverted) {
    Start();
    ByteVector data = Bytes(kKeyFrame);
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, MX_SUB_I);
    packet.inputFrame(&frame, 0);
    EXPECT_EQ(data, Bytes("00 00 00 05 67 64 00 28 AC  00 00 00 03 68 EE 3C  00 00 00 03 65 88 84"));
    EXPECT_EQ(FrameBytes(frame), data.data());
    EXPECT_EQ(frame.frame_size, 23u);
}

TEST_F(MkvPacket, TheMpeg4ConfigurationMovesOutOfTheFirstKeyFrame) {
    Start();
    ByteVector data = Bytes("00 00 01 B0 F5 00 00 01 B5 09 00 00 01 20 00 84  00 00 01 B6 10 20 30 40");
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_MPEG4, MX_SUB_I);
    EXPECT_EQ(packet.inputFrame(&frame, 0), 0u);
    EXPECT_EQ(FrameBytes(frame), data.data() + 16);
    EXPECT_EQ(frame.frame_size, 8u);
    EXPECT_EQ(LastBlock().data, Bytes("A3 8C 81 00 00 80  00 00 01 B6 10 20 30 40"));

    // Only there: later ones keep theirs.
    frame = test::VideoFrame(data, MX_VIDEO_MPEG4, MX_SUB_I);
    EXPECT_EQ(packet.inputFrame(&frame, 0), 0u);
    EXPECT_EQ(FrameBytes(frame), data.data());
    EXPECT_EQ(LastBlock().data, Bytes("A3 9C 81 00 28 80") + data);

    Finish();
    EXPECT_EQ(At(633 + 19, 18), Bytes("86 90") + Text("V_MPEG4/ISO/ASP") + Bytes("00"));
    EXPECT_EQ(At(633 + 52, 19), Bytes("63 A2 90 00 00 01 B0 F5 00 00 01 B5 09 00 00 01 20 00 84"));
}

TEST_F(MkvPacket, BiPredictedVideoHasTheKeyFlag) {
    Start();
    Key();
    Video(Bytes(kPFrame), MX_SUB_B);
    EXPECT_EQ(LastBlock().data, Bytes("A3 8B 81 00 28 80  00 00 00 03 41 9A 02"));
    Video(Bytes(kPFrame), MX_SUB_LAYERED_P);
    EXPECT_EQ(LastBlock().data, Bytes("A3 8B 81 00 50 00  00 00 00 03 41 9A 02"));
}

TEST_F(MkvPacket, KindsWithoutABlockRepeatTheOneBefore) {
    Start();
    Key();
    P();
    const ByteVector p_block = Bytes("A3 8B 81 00 28 00  00 00 00 03 41 9A 02");
    // The bytes given for the block before are gone by now.
    for (const uint32_t kind : {MX_SUB_OTHER, MX_SUB_KEY}) {
        EXPECT_EQ(Video(Bytes("00 00 00 01 65 11 22 33 44 55 66"), kind), 0u);
        EXPECT_EQ(LastBlock().data, p_block);
    }
    EXPECT_EQ(LastBlock().offset, 1104 + 26);
    EXPECT_EQ(sink.blocks.back().data, Bytes("01 00 00 00 00 00 00 48"));
    // They count as frames.
    P();
    EXPECT_EQ(Slice(LastBlock().data, 3, 2), Bytes("00 A0"));
    // The one before may be audio.
    Audio(Bytes(kAacFrame));
    const ByteVector audio_block = LastBlock().data;
    Video(Bytes(kKeyFrame), MX_SUB_KEY);
    EXPECT_EQ(LastBlock().data, audio_block);
    EXPECT_EQ(audio_block, Bytes("A3 88 82 00 00 80  DE AD BE EF"));
    // The tail leaves the last block alone.
    Finish();
    sink.blocks.clear();
    Video(Bytes(kKeyFrame), MX_SUB_KEY);
    EXPECT_EQ(LastBlock().data, audio_block);
}

// -------------------------------------------------------------------------------------------- the interface

TEST_F(MkvPacket, ASinkThatTakesLessMovesTheNextBlock) {
    Start();
    sink.accept = {-1, -1, -1, -1, -1, 10};
    Key();
    P();
    EXPECT_EQ(LastBlock().offset, 1085);
}

// A SeekPosition counts from byte 59, which is the start of the Segment's data in a head that was written whole.
TEST_F(MkvPacket, SeekPositionsCountFromTheSameByteWhenTheSinkTakesLessOfTheHead) {
    const auto seek = [](const char* info, const char* tracks, const char* cues) {
        return Bytes("4D BB 8E 53 AB 84 15 49 A9 66 53 AC 84") + Bytes(info) +
               Bytes("4D BB 8E 53 AB 84 16 54 AE 6B 53 AC 84") + Bytes(tracks) +
               Bytes("4D BB 8E 53 AB 84 1C 53 BB 6B 53 AC 84") + Bytes(cues);
    };
    // 7 bytes less of the EBML header, 2 of the Segment's size: its data at 50, Info at 550, Tracks at 612, no cluster
    // and Cues at 1050.
    sink.accept = {40, -1, 6};
    Start();
    Finish();
    EXPECT_EQ(At(50 + 5, 51), seek("00 00 01 EB", "00 00 02 29", "00 00 03 DF"));
}

TEST_F(MkvPacket, TheTailMayBeRepeatedAndFramesMayFollow) {
    Start();
    Key();
    Finish();
    const ByteVector first = sink.file;
    Finish();
    EXPECT_EQ(sink.file, first);
    P();
    EXPECT_EQ(LastBlock().offset, 1104);
    Finish();
    EXPECT_EQ(At(1104 + 13, 4), Bytes("1C 53 BB 6B"));
    EXPECT_EQ(packet.uninit(), 0u);
}

TEST_F(MkvPacket, ASecondHeaderMovesOnlyAFirstClusterThatIsStillToCome) {
    Start();
    ASSERT_EQ(packet.createHeader(nullptr, 0), 0u);
    // The second head begins behind the first one's Tracks size.
    EXPECT_EQ(sink.blocks[0].offset, 633);
    sink.blocks.clear();
    Key(1);
    EXPECT_EQ(sink.blocks[0].offset, 633 + 1059);
    P(1);
    EXPECT_EQ(LastBlock().offset, 633 + 1059 + 16 + 29 + 16);
    // In the second cluster it is the next one that counts, and that begins where the second one ends.
    ASSERT_EQ(packet.createHeader(nullptr, 0), 0u);
    sink.blocks.clear();
    P(1);
    EXPECT_EQ(sink.blocks[0].offset, 633 + 1059 + 16 + 29 + 16 + 13);
}

TEST_F(MkvPacket, BackupLeavesTheBlockAlone) {
    MXOutputBlock block{};
    block.length = 77;
    EXPECT_EQ(packet.getBackup(&block), 0u);
    EXPECT_EQ(block.length, 77u);
}

TEST_F(MkvPacket, Capacity) {
    const auto codecs = [&](auto get, uint32_t type) {
        const void* table = nullptr;
        uint32_t count = 0;
        EXPECT_EQ((packet.*get)(type, &table, &count), 0u);
        std::vector<uint32_t> out;
        for (uint32_t i = 0; i < count; ++i) {
            const auto& entry = static_cast<const MXCapacityEntry*>(table)[i];
            EXPECT_EQ(entry.samples_per_sec + entry.bits_per_sample + entry.channels, 0u);
            out.push_back(entry.codec);
        }
        return out;
    };
    EXPECT_EQ(codecs(&CMkvPacket::getEncodeCapacity, 0), (std::vector<uint32_t>{4, 1}));
    EXPECT_EQ(codecs(&CMkvPacket::getEncodeCapacity, 1), (std::vector<uint32_t>{26}));
    EXPECT_EQ(codecs(&CMkvPacket::getCodecCapacity, 0), (std::vector<uint32_t>{2, 1}));
    EXPECT_EQ(codecs(&CMkvPacket::getCodecCapacity, 1), (std::vector<uint32_t>{33}));
    const void* table = &sink;
    uint32_t count = 9;
    EXPECT_EQ(packet.getEncodeCapacity(2, &table, &count), 3u);
    EXPECT_EQ(packet.getCodecCapacity(2, &table, &count), 3u);
    EXPECT_EQ(packet.getEncodeCapacity(0, nullptr, &count), 3u);
    EXPECT_EQ(packet.getEncodeCapacity(0, &table, nullptr), 3u);
    EXPECT_EQ(table, &sink);
    EXPECT_EQ(count, 9u);
}

}  // namespace
}  // namespace Orvane::Muxora
