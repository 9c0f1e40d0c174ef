#include "containers/asf_packet.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "asf_fixture.h"
#include "support/allocation_counter.h"

namespace Orvane::Muxora::AsfTest {
namespace {

TEST_F(AsfPacket, TheFirstKeyFrameBringsTheHead) {
    EXPECT_EQ(file.createHeader(nullptr, 0), 0u);
    EXPECT_TRUE(sink.blocks.empty());
    EXPECT_EQ(Video(file, 3), 0u);
    ASSERT_EQ(sink.blocks.size(), 1u);
    EXPECT_EQ(kFirstHead.size(), kDataStart);
    EXPECT_EQ(sink.file,
              kFirstHead + PacketHead("FD 07", "00 00 00 00", "81", "01", "00 00 00 00", "03 00 00 00", "00 00 00 00") +
                  Bytes("55 55 55") + ByteVector(2045));
}

TEST_F(AsfPacket, TheStreamFormAnnouncesItsBroadcastValuesAndAudio) {
    EXPECT_EQ(Video(stream, 3), 0u);
    EXPECT_EQ(Slice(sink.file, 0, kDataStart),
              HeaderObject("04") + FileProperties(kOne8, kOne8, kOne8, kOne8, "03 00 00 00") +
                  HeaderExtension("85 01", "57 01", k400000, 216, 0) + kH264Stream +
                  AudioStream("01 00  01 00  80 3E 00 00  00 7D 00 00  02 00  10 00", "00 00") +
                  DataHead("32 00 00 00 00 00 00 00", kZero8));
    // What comes later changes nothing.
    Audio(stream, ByteVector(160));
    const size_t blocks = sink.blocks.size();
    EXPECT_EQ(stream.createTailer(nullptr, 0), 0u);
    EXPECT_EQ(sink.blocks.size(), blocks);
}

TEST_F(AsfPacket, AFrameOf2048BytesIsOnePacketAndOf2049Two) {
    Video(file, 100);
    EXPECT_EQ(Video(file, 2048, MX_SUB_P), 0u);
    EXPECT_EQ(sink.Last().size(), 2076u);
    EXPECT_EQ(Head(), PacketHead("00 00", "00 00 00 00", "01", "02", "00 00 00 00", "00 08 00 00", "28 00 00 00"));
    EXPECT_EQ(Video(file, 2049, MX_SUB_P), 0u);
    EXPECT_EQ(sink.Last().size(), 4152u);
    EXPECT_EQ(Head(0), PacketHead("00 00", "00 00 00 00", "01", "03", "00 00 00 00", "01 08 00 00", "50 00 00 00"));
    EXPECT_EQ(Head(1), PacketHead("FF 07", "00 00 00 00", "01", "03", "00 08 00 00", "01 08 00 00", "50 00 00 00"));
    EXPECT_EQ(Slice(sink.Last(), 2076 + 28, 2048), Bytes("55") + ByteVector(2047));
}

TEST_F(AsfPacket, PacketsStandAtTheirSpacing) {
    for (const size_t size : {1u, 2047u, 5000u, 4096u})
        Video(file, size);
    Audio(file, ByteVector(160));
    // 1, 1, 3, 2 and 1 packets.
    ASSERT_EQ(sink.file.size(), kDataStart + 8 * kPacket);
    for (size_t at = kDataStart; at < sink.file.size(); at += kPacket)
        EXPECT_EQ(Slice(sink.file, at, 5), Bytes("82 00 00 90 5D")) << at;
    EXPECT_EQ(sink.blocks[1].offset, static_cast<int64_t>(kDataStart + kPacket));
    EXPECT_EQ(sink.blocks[2].offset, static_cast<int64_t>(kDataStart + 2 * kPacket));
    EXPECT_EQ(sink.blocks[3].offset, static_cast<int64_t>(kDataStart + 5 * kPacket));
}

TEST_F(AsfPacket, EmptyFramesAreRefusedAndDoNotCount) {
    Video(file, 3);
    EXPECT_EQ(Video(file, 0), 3u);
    EXPECT_EQ(Video(file, 3, MX_SUB_P), 0u);
    EXPECT_EQ(PresentationTime(), 40u);
    EXPECT_EQ(Head()[14], 2);
}

TEST_F(AsfPacket, VideoAheadOfTheFirstKeyFrameIsAnEmptyBlock) {
    EXPECT_EQ(Video(file, 3, MX_SUB_P), 0u);
    ASSERT_EQ(sink.blocks.size(), 1u);
    EXPECT_EQ(sink.blocks[0].data.size(), 0u);
    EXPECT_EQ(sink.blocks[0].offset, 0);
    Video(file, 3);
    EXPECT_EQ(Word(kDataStart + 24), 0u);
    EXPECT_EQ(sink.blocks[1].offset, 0);
}

TEST_F(AsfPacket, AudioAheadOfTheFirstKeyFrameIsDropped) {
    EXPECT_EQ(Audio(file, ByteVector(160)), 0u);
    EXPECT_EQ(Audio(stream, ByteVector(160)), 0u);
    EXPECT_TRUE(sink.blocks.empty());
}

TEST_F(AsfPacket, AllFourKindsOfKeyFrameOpenTheFile) {
    for (const uint32_t sub_type : {0u, 8u, 18u, 20u}) {
        sink.Clear();
        CAsfPacket packet(MX_FORMAT_ASF, &param);
        EXPECT_EQ(Video(packet, 3, sub_type), 0u);
        EXPECT_EQ(sink.Last().size(), kDataStart + kPacket) << sub_type;
        EXPECT_EQ(sink.Last()[kDataStart + 13], 0x81) << sub_type;
    }
    for (const uint32_t sub_type : {1u, 2u, 3u, 19u}) {
        CAsfPacket packet(MX_FORMAT_ASF, &param);
        Video(packet, 3, sub_type);
        EXPECT_EQ(sink.Last().size(), 0u) << sub_type;
    }
}

TEST_F(AsfPacket, TheMediaObjectNumberWrapsInTheFileAlone) {
    for (int i = 0; i < 255; ++i)
        Video(file, 1);
    EXPECT_EQ(Head()[14], 255);
    Video(file, 1);
    EXPECT_EQ(Head()[14], 0);
    EXPECT_EQ(PresentationTime(), 255u * 40);
    Video(file, 1, MX_SUB_I, 777);
    // Number 1 again, and no new beginning.
    EXPECT_EQ(Head()[14], 1);
    EXPECT_EQ(PresentationTime(), 256u * 40);
}

TEST_F(AsfPacket, FrameDurationFollowsTheLastKeyFrame) {
    const auto give = [&](uint32_t sub_type, uint32_t rate) {
        ByteVector data(1);
        MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, sub_type);
        frame.frame_rate = rate;
        file.inputFrame(&frame, 0);
        return sink.Last().size() == kPacket ? PresentationTime() : Word(kDataStart + 24);
    };
    EXPECT_EQ(give(MX_SUB_I, 30), 0u);
    EXPECT_EQ(give(MX_SUB_P, 1), 33u);
    EXPECT_EQ(give(MX_SUB_KEY, 25), 73u);
    EXPECT_EQ(give(MX_SUB_P, 30), 113u);
    EXPECT_EQ(give(MX_SUB_I, 0), 153u);
    EXPECT_EQ(give(MX_SUB_I, 2000), 153u);
}

TEST_F(AsfPacket, ARateOfZeroHasNoAverageTime) {
    ByteVector data(1);
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, MX_SUB_I);
    frame.frame_rate = 0;
    file.inputFrame(&frame, 0);
    EXPECT_EQ(Slice(sink.file, 134 + 46 + 39 + 76, 8), ByteVector(8));
    file.inputFrame(&frame, 0);
    EXPECT_EQ(PresentationTime(), 40u);
    sink.Clear();
    frame.frame_rate = 25;
    stream.inputFrame(&frame, 0);
    EXPECT_EQ(Slice(sink.file, 134 + 46 + 39 + 76, 8), Bytes(k400000));
}

TEST_F(AsfPacket, TheTailWritesTheIndexAndTheFinalHead) {
    Video(file, 3);
    const ByteVector data = Slice(sink.file, kDataStart, kPacket);
    Video(file, 5000, MX_SUB_P);
    Audio(file, ByteVector(160, 0xD5));
    EXPECT_EQ(file.createTailer(nullptr, 0), 0u);
    ASSERT_EQ(sink.blocks.size(), 5u);
    // 818 + 5 * 2076
    EXPECT_EQ(sink.blocks[3].offset, 11198);
    EXPECT_EQ(sink.blocks[3].data, Bytes("90 08 00 33 B1 E5 CF 11 89 F4 00 A0 C9 03 49 CB  3E 00 00 00 00 00 00 00") +
                                       Bytes(kFileId) +
                                       Bytes("80 96 98 00 00 00 00 00  E8 A3 00 00  01 00 00 00  00 00 00 00 01 00"));
    EXPECT_EQ(sink.blocks[4].offset, 0);
    // 11260 bytes, 5 packets, 40 ms; 50 + 10380 bytes of data.
    EXPECT_EQ(sink.blocks[4].data, HeaderObject("04") +
                                       FileProperties("FC 2B 00 00 00 00 00 00", kNowBytes, "05 00 00 00 00 00 00 00",
                                                      k400000, "02 00 00 00") +
                                       HeaderExtension("85 01", "57 01", k400000, 216, 0) + kH264Stream +
                                       AudioStream("06 00  01 00  40 1F 00 00  80 3E 00 00  01 00  10 00", "00 00") +
                                       DataHead("BE 28 00 00 00 00 00 00", "05 00 00 00 00 00 00 00"));
    EXPECT_EQ(Slice(sink.file, kDataStart, kPacket), data);
}

TEST_F(AsfPacket, AFileThatNeverOpenedIsZeros) {
    Video(file, 3, MX_SUB_P);
    sink.Clear();
    EXPECT_EQ(file.createTailer(nullptr, 0), 0u);
    ASSERT_EQ(sink.blocks.size(), 2u);
    EXPECT_EQ(sink.blocks[0].data, ByteVector(56));
    EXPECT_EQ(sink.blocks[0].offset, 0);
    EXPECT_EQ(sink.blocks[1].data, ByteVector(818));
    EXPECT_EQ(sink.blocks[1].offset, 0);
}

TEST_F(AsfPacket, AnIndexEntryIsTheLastKeyFrameAtTheFirstFramePastItsSecond) {
    // A key frame of two packets each 12 frames (480 ms), single packets between them.
    for (int i = 0; i < 52; ++i)
        Video(file, i % 12 == 0 ? 2049 : 1, i % 12 == 0 ? MX_SUB_KEY : MX_SUB_P);
    file.createTailer(nullptr, 0);
    const ByteVector& index = sink.blocks[sink.blocks.size() - 2].data;
    // Frame 1 at 40 ms, frame 26 at 1040, frame 51 at 2040; the key frames before them are 0, 24 and 48.
    EXPECT_EQ(Slice(index, 48, 8), Bytes("E8 A3 00 00  03 00 00 00"));
    EXPECT_EQ(Slice(index, 56, index.size() - 56), Bytes("00 00 00 00 02 00  1A 00 00 00 02 00  34 00 00 00 02 00"));
}

// The entries go with the first tail; what the head counts of them does not.
TEST_F(AsfPacket, ASecondTailWritesTheIndexHeadWithTheCountOfBefore) {
    Video(file, 1);
    for (int i = 0; i < 27; ++i)
        Video(file, 1, MX_SUB_P);  // up to 1080 ms: two entries
    file.createTailer(nullptr, 0);
    EXPECT_EQ(sink.blocks[sink.blocks.size() - 2].data.size(), 56u + 2 * 6);
    const int64_t end = sink.blocks[sink.blocks.size() - 2].offset + 56 + 2 * 6;
    file.uninit();
    file.createTailer(nullptr, 0);
    const Sink::Block& second = sink.blocks[sink.blocks.size() - 2];
    EXPECT_EQ(second.offset, end);
    EXPECT_EQ(second.data.size(), 56u);
    EXPECT_EQ(Slice(second.data, 16, 8), Bytes("44 00 00 00 00 00 00 00"));  // 56 + 2 * 6
    EXPECT_EQ(Slice(second.data, 52, 4), Bytes("02 00 00 00"));
    // The next entry is due at the third second and counts on.
    for (int i = 0; i < 24; ++i)
        Video(file, 1, MX_SUB_P);
    file.createTailer(nullptr, 0);
    EXPECT_EQ(sink.blocks[sink.blocks.size() - 2].data.size(), 56u + 6);
    EXPECT_EQ(Slice(sink.blocks[sink.blocks.size() - 2].data, 52, 4), Bytes("03 00 00 00"));
}

TEST_F(AsfPacket, OnlyTimesPastASecondsStartMakeAnIndexEntry) {
    const auto entries = [&] {
        file.createTailer(nullptr, 0);
        const ByteVector& index = sink.blocks[sink.blocks.size() - 2].data;
        EXPECT_EQ(index.size(), 56u + 6u * index.at(52));
        return static_cast<int>(index.at(52));
    };
    Video(file, 1);
    EXPECT_EQ(entries(), 0);  // at 0 ms
    Video(file, 1, MX_SUB_P);
    EXPECT_EQ(entries(), 1);  // 40
    for (int i = 2; i <= 25; ++i)
        Video(file, 1, MX_SUB_P);
    EXPECT_EQ(PresentationTime(), 1000u);
    EXPECT_EQ(entries(), 1);
    Video(file, 1, MX_SUB_P);
    EXPECT_EQ(entries(), 2);  // 1040
}

TEST_F(AsfPacket, AFrameWhoseIndexEntryHasNoMemoryLeavesNoTrace) {
    ByteVector data(3, 0x55);
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, MX_SUB_I, 500);
    {
        const test::FailingAllocations failing;
        EXPECT_EQ(MX_InputFrame(&static_cast<CPackage&>(file), &frame), 4u);
    }
    EXPECT_TRUE(sink.blocks.empty());
    EXPECT_EQ(Audio(file, ByteVector(160)), 0u);
    EXPECT_TRUE(sink.blocks.empty());
    EXPECT_EQ(Video(file, 3), 0u);
    EXPECT_EQ(Slice(sink.file, 0, kDataStart), kFirstHead);
    EXPECT_EQ(Slice(sink.file, kDataStart + 14, 1), Bytes("01"));
    file.createTailer(nullptr, 0);
    EXPECT_EQ(Slice(sink.Last(), 768 + 40, 8), Bytes(kOne8));
}

TEST_F(AsfPacket, TheFinalHeaderTellsOfTheFirstFrames) {
    Video(file, 3);
    Audio(file, ByteVector(160));
    Audio(file, ByteVector(160), MX_AUDIO_PCM16);
    ByteVector data(3, 0x55);
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_MJPEG, MX_SUB_I);
    frame.width = 640;
    frame.height = 480;
    frame.frame_rate = 50;
    EXPECT_EQ(file.inputFrame(&frame, 0), 0u);
    clock.Set(kNow + 3600);
    file.createTailer(nullptr, 0);
    EXPECT_EQ(Slice(sink.Last(), 30 + 48, 8), Bytes(kNowBytes));
    EXPECT_EQ(Slice(sink.Last(), 134 + 46 + 39 + 76, 8), Bytes(k400000));
    EXPECT_EQ(Slice(sink.Last(), 768 - 129 - 116, 245),
              kH264Stream + AudioStream("06 00  01 00  40 1F 00 00  80 3E 00 00  01 00  10 00", "00 00"));
}

TEST_F(AsfPacket, UninitEmptiesTheIndex) {
    for (int i = 0; i < 30; ++i)
        Video(file, 1);
    EXPECT_EQ(file.uninit(), 0u);
    file.createTailer(nullptr, 0);
    EXPECT_EQ(sink.blocks[sink.blocks.size() - 2].data.size(), 56u);
}

TEST_F(AsfPacket, AudioTimeBeginsAtItsDistanceFromVideo) {
    Video(file, 1, MX_SUB_I, 1000);
    Audio(file, ByteVector(160), MX_AUDIO_ALAW, 1030);
    EXPECT_EQ(Head(), PacketHead("60 07", "00 00 00 00", "82", "01", "00 00 00 00", "A0 00 00 00", "1E 00 00 00"));
    // 160 bytes of G.711 are 20 ms.
    Audio(file, ByteVector(160), MX_AUDIO_ALAW, 9999);
    EXPECT_EQ(PresentationTime(), 50u);
    Video(file, 1, MX_SUB_P, 5);
    EXPECT_EQ(PresentationTime(), 40u);
    EXPECT_EQ(SendTime(), 40u);
    Video(file, 1, MX_SUB_P, 5);
    EXPECT_EQ(PresentationTime(), 80u);
    EXPECT_EQ(SendTime(), 50u);
    EXPECT_EQ(Head()[14], 3);
}

TEST_F(AsfPacket, AudioAheadOfVideoBeginsAtZero) {
    Video(file, 1, MX_SUB_I, 1000);
    Audio(file, ByteVector(160), MX_AUDIO_ALAW, 999);
    EXPECT_EQ(PresentationTime(), 0u);
}

TEST_F(AsfPacket, AFrameOfAnotherChannelMovesTimeOnly) {
    Video(file, 1);
    Audio(file, ByteVector(160), MX_AUDIO_ALAW, 0, 2);
    const size_t blocks = sink.blocks.size();
    EXPECT_EQ(Audio(file, ByteVector(800), MX_AUDIO_ALAW, 0, 3), 0u);
    EXPECT_EQ(sink.blocks.size(), blocks);
    Audio(file, ByteVector(160), MX_AUDIO_ALAW, 0, 2);
    EXPECT_EQ(PresentationTime(), 40u);
    EXPECT_EQ(Head()[14], 2);
}

TEST_F(AsfPacket, AudioDoesNotLengthenTheFile) {
    Video(file, 1);
    Audio(file, ByteVector(800), MX_AUDIO_ALAW, 5000);
    Video(file, 1, MX_SUB_P);
    Audio(file, ByteVector(800), MX_AUDIO_ALAW, 5000);
    file.createTailer(nullptr, 0);
    EXPECT_EQ(Slice(sink.Last(), 30 + 64, 16), Bytes(k400000) + Bytes(k400000));  // Play and Send Duration, 40 ms
}

TEST_F(AsfPacket, AudioDurationIsTruncated) {
    Video(file, 1);
    const auto give = [&] {
        ByteVector data(100);
        MXFrameInfo frame = test::AudioFrame(data, MX_AUDIO_ALAW);
        frame.samples_per_sec = 44100;  // 2.27 ms
        file.inputFrame(&frame, 0);
        return PresentationTime();
    };
    EXPECT_EQ(give(), 0u);
    EXPECT_EQ(give(), 2u);
    EXPECT_EQ(give(), 4u);
}

TEST_F(AsfPacket, AacKeepsItsHeaderAndGivesItsConfiguration) {
    const ByteVector adts = Bytes("FF F1 4C 80 01 7F FC  21 10 04 60");
    Video(file, 1);
    EXPECT_EQ(Audio(file, adts, MX_AUDIO_AAC), 0u);
    EXPECT_EQ(Slice(sink.Last(), 28, 12), adts + Bytes("00"));
    file.createTailer(nullptr, 0);
    EXPECT_EQ(Slice(sink.Last(), 768 - 116, 116),
              AudioStream("FF 00  01 00  40 1F 00 00  80 3E 00 00  00 03  10 00", "09 90"));
}

TEST_F(AsfPacket, TheAudioFormatsOfTheFinalHeader) {
    struct Case {
        uint32_t codec, channels, bits;
        const char* format;
    };
    const Case cases[] = {{14, 2, 16, "06 00  02 00  40 1F 00 00  00 7D 00 00  02 00  10 00"},
                          {22, 1, 8, "07 00  01 00  40 1F 00 00  40 1F 00 00  01 00  08 00"},
                          {10, 2, 8, "07 00  02 00  40 1F 00 00  80 3E 00 00  02 00  08 00"},
                          {16, 2, 16, "01 00  02 00  40 1F 00 00  00 7D 00 00  04 00  10 00"}};
    for (const Case& c : cases) {
        sink.Clear();
        CAsfPacket packet(MX_FORMAT_ASF, &param);
        Video(packet, 1);
        ByteVector data(160);
        MXFrameInfo frame = test::AudioFrame(data, c.codec);
        frame.samples_per_sec = 8000;
        frame.channels = c.channels;
        frame.bits_per_sample = c.bits;
        packet.inputFrame(&frame, 0);
        packet.createTailer(nullptr, 0);
        EXPECT_EQ(Slice(sink.Last(), 768 - 116, 116), AudioStream(c.format, "00 00")) << c.codec;
    }
}

TEST_F(AsfPacket, AnAdtsFrameShorterThanItsHeaderIsDropped) {
    Video(file, 1);
    const size_t blocks = sink.blocks.size();
    EXPECT_EQ(Audio(file, Bytes("FF F1 4C 80 01 7F"), MX_AUDIO_AAC), 0u);
    EXPECT_EQ(sink.blocks.size(), blocks);
    file.createTailer(nullptr, 0);
    EXPECT_EQ(sink.Last()[24], 3);  // no audio stream
}

TEST_F(AsfPacket, CompressionIds) {
    for (const auto& [codec, id] : {std::pair(1u, "M4S2"), {2u, "H264"}, {3u, "MJPG"}, {4u, "H264"}}) {
        sink.Clear();
        CAsfPacket packet(MX_FORMAT_ASF, &param);
        ByteVector data(4, 0x55);
        MXFrameInfo frame = test::VideoFrame(data, codec, MX_SUB_I);
        packet.inputFrame(&frame, 0);
        EXPECT_EQ(Slice(sink.file, 768 - 129, 129), VideoStream("81", "33", "28", id)) << codec;
    }
}

TEST_F(AsfPacket, AFrameMustFitTheWorkBufferWithItsHeaders) {
    // 1009 packets beside the head, 1010 without.
    EXPECT_EQ(Video(file, 1009 * 2048 + 1), 3u);
    EXPECT_EQ(Audio(file, ByteVector(160)), 0u);
    EXPECT_TRUE(sink.blocks.empty());
    EXPECT_EQ(Video(file, 1009 * 2048, MX_SUB_I, 500), 0u);
    EXPECT_EQ(sink.Last().size(), kDataStart + 1009 * kPacket);
    const size_t blocks = sink.blocks.size();
    EXPECT_EQ(Video(file, 1010 * 2048 + 1, MX_SUB_P), 3u);
    EXPECT_EQ(Audio(file, ByteVector(1010 * 2048 + 1), MX_AUDIO_ALAW, 900), 3u);
    EXPECT_EQ(sink.blocks.size(), blocks);
    // Nothing has moved.
    EXPECT_EQ(Video(file, 1010 * 2048, MX_SUB_P), 0u);
    EXPECT_EQ(PresentationTime(), 40u);
    EXPECT_EQ(sink.Last().size(), 1010 * kPacket);
    EXPECT_EQ(Audio(file, ByteVector(1010 * 2048), MX_AUDIO_ALAW, 510), 0u);
    EXPECT_EQ(PresentationTime(), 10u);
    EXPECT_EQ(Head()[14], 1);
}

TEST_F(AsfPacket, WhatItTakes) {
    ByteVector data(4);
    for (uint32_t codec = 0; codec < 256; ++codec) {
        MXFrameInfo frame = test::Frame(data, 1, codec);
        EXPECT_EQ(file.checkFrame(&frame), codec == 4 || codec == 2 || codec == 1 || codec == 3) << codec;
        frame.frame_type = 2;
        EXPECT_EQ(file.checkFrame(&frame), codec == 14 || codec == 22 || codec == 26 || codec == 16 || codec == 10)
            << codec;
        frame.frame_type = 3;
        EXPECT_FALSE(file.checkFrame(&frame)) << codec;
    }
}

TEST_F(AsfPacket, RefusedFramesAndBadArguments) {
    EXPECT_EQ(file.inputFrame(nullptr, 0), 3u);
    ByteVector data(4);
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H265, MX_SUB_I);
    EXPECT_EQ(file.inputFrame(&frame, 0), 5u);
    frame.frame_pointer = nullptr;
    EXPECT_EQ(file.inputFrame(&frame, 0), 3u);
    frame = test::Frame(data, 4, 2);
    EXPECT_EQ(file.inputFrame(&frame, 0), 5u);
    EXPECT_TRUE(sink.blocks.empty());
}

TEST_F(AsfPacket, ASinkThatTakesLessMovesTheNextPacket) {
    sink.accept = {100, 0};
    Video(file, 1);
    Video(file, 1, MX_SUB_P);
    Video(file, 1, MX_SUB_P);
    file.createTailer(nullptr, 0);
    EXPECT_EQ(sink.blocks[1].offset, 100);
    EXPECT_EQ(sink.blocks[2].offset, 100);
    // File Size: 100 + 2076 + 62
    EXPECT_EQ(Slice(sink.Last(), 70, 8), Bytes("BE 08 00 00 00 00 00 00"));
}

TEST_F(AsfPacket, WithoutAWorkBufferNothingIsTaken) {
    MXCreateParam no_memory = param;
    no_memory.alloc = [](int32_t) -> void* { return nullptr; };
    CAsfPacket packet(MX_FORMAT_ASF, &no_memory);
    EXPECT_EQ(Video(packet, 1), 4u);
    EXPECT_EQ(packet.createTailer(nullptr, 0), 4u);
    EXPECT_TRUE(sink.blocks.empty());
}

int32_t DropBlock(const MXOutputBlock* /*block*/, void* /*user*/) {
    return 0;
}

TEST_F(AsfPacket, ASteadyStreamAllocatesForItsIndexAlone) {
    ByteVector picture(10000);
    ByteVector sound(160);
    MXFrameInfo video = test::VideoFrame(picture, MX_VIDEO_H264, MX_SUB_I);
    MXFrameInfo audio = test::AudioFrame(sound, MX_AUDIO_ALAW);
    for (CAsfPacket* const packet : {&file, &stream}) {
        packet->setCallback(DropBlock, nullptr);
        packet->inputFrame(&video, 0);
        packet->inputFrame(&audio, 0);
        const test::AllocationCounter allocations;
        for (int i = 0; i < 25 * 3600; ++i) {
            packet->inputFrame(&video, 0);
            packet->inputFrame(&audio, 0);
        }
        // An hour's index of 21600 bytes doubles from 56 in nine steps; the stream form has none.
        EXPECT_LE(allocations.Count(), packet == &file ? 12u : 0u);
    }
}

TEST_F(AsfPacket, Capacity) {
    const auto codecs = [](uint32_t result, const void* table, uint32_t count) {
        EXPECT_EQ(result, 0u);
        const auto* entries = static_cast<const MXCapacityEntry*>(table);
        std::vector<uint32_t> out;
        std::transform(entries, entries + count, std::back_inserter(out), [](const MXCapacityEntry& e) {
            EXPECT_EQ(e.samples_per_sec + e.bits_per_sample + e.channels, 0u);
            return e.codec;
        });
        return out;
    };
    const void* table = nullptr;
    uint32_t count = 0;
    uint32_t result = file.getEncodeCapacity(0, &table, &count);
    EXPECT_EQ(codecs(result, table, count), (std::vector<uint32_t>{4, 1, 3}));
    result = file.getEncodeCapacity(1, &table, &count);
    EXPECT_EQ(codecs(result, table, count), (std::vector<uint32_t>{14, 22, 26, 16, 10}));
    result = file.getCodecCapacity(0, &table, &count);
    EXPECT_EQ(codecs(result, table, count), (std::vector<uint32_t>{2, 1, 3}));
    result = file.getCodecCapacity(1, &table, &count);
    EXPECT_EQ(codecs(result, table, count), (std::vector<uint32_t>{28, 31, 33, 30, 24}));
    EXPECT_EQ(file.getEncodeCapacity(2, &table, &count), 3u);
    EXPECT_EQ(file.getCodecCapacity(0, nullptr, &count), 3u);
    EXPECT_EQ(file.getCodecCapacity(0, &table, nullptr), 3u);
}

}  // namespace
}  // namespace Orvane::Muxora::AsfTest
