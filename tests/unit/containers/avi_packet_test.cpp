#include "containers/avi_packet.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "support/allocation_counter.h"
#include "support/frames.h"
#include "support/hex.h"
#include "support/sink.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::Sink;
using test::Slice;
using test::Text;
using test::operator+;

ByteVector Le32(uint32_t value) {
    return {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value >> 16),
            static_cast<uint8_t>(value >> 24)};
}

ByteVector Avih(const char* frame_time, const char* byte_rate, const char* frames, const char* streams,
                const char* buffer, const char* size) {
    return Text("avih") + Bytes("38 00 00 00") + Bytes(frame_time) + Bytes(byte_rate) + Bytes("00 00 00 00") +
           Bytes("10 08 00 00") + Bytes(frames) + Bytes("00 00 00 00") + Bytes(streams) + Bytes(buffer) + Bytes(size) +
           ByteVector(16);
}

// A super index without entries.
ByteVector EmptySuperIndex(const char* id) {
    return Text("JUNK") + Bytes("00 04 00 00  04 00 00 00  00 00 00 00") + Text(id) + ByteVector(1012);
}

// 1920 by 1080 at 25 frames a second.
ByteVector VideoList(const char* codec, const char* frames, const char* buffer) {
    return Text("LIST") + Bytes("7C 04 00 00") + Text("strl") + Text("strh") + Bytes("38 00 00 00") + Text("vids") +
           Text(codec) + ByteVector(12) + Bytes("01 00 00 00  19 00 00 00  00 00 00 00") + Bytes(frames) +
           Bytes(buffer) + Bytes("FF FF FF FF  02 00 00 00  00 00 00 00 80 07 38 04") + Text("strf") +
           Bytes("28 00 00 00  28 00 00 00  80 07 00 00  38 04 00 00  01 00  18 00") + Text(codec) +
           Bytes("00 EC 5E 00") + ByteVector(16) + EmptySuperIndex("00dc");
}

ByteVector AudioList(const char* list_size, const char* scale, const char* rate, const char* frames, const char* buffer,
                     const char* sample_size, const char* frame, const char* format) {
    const ByteVector wave = Bytes(format);
    return Text("LIST") + Bytes(list_size) + Text("strl") + Text("strh") + Bytes("38 00 00 00") + Text("auds") +
           Bytes("01 00 00 00") + ByteVector(12) + Bytes(scale) + Bytes(rate) + Bytes("00 00 00 00") + Bytes(frames) +
           Bytes(buffer) + Bytes("FF FF FF FF") + Bytes(sample_size) + Bytes(frame) + Text("strf") +
           Le32(static_cast<uint32_t>(wave.size())) + wave + EmptySuperIndex("01wb");
}

// The whole header list: the body is filled up to its 4092 bytes.
ByteVector HeaderList(const ByteVector& body) {
    const auto junk = static_cast<uint32_t>(4092 - 8 - body.size());
    return Text("LIST") + Bytes("00 10 00 00") + Text("hdrl") + body + Text("JUNK") + Le32(junk) + ByteVector(junk);
}

const char kAdtsFrame[] = "FF F1 4C 80 01 7F FC  21 10 04 60 33";

class AviPacket : public testing::Test {
  protected:
    uint32_t Video(ByteVector data, uint32_t sub_type = MX_SUB_I, uint32_t codec = MX_VIDEO_H264) {
        MXFrameInfo frame = test::VideoFrame(data, codec, sub_type);
        return packet.inputFrame(&frame, 0);
    }
    uint32_t Audio(ByteVector data, uint32_t codec = MX_AUDIO_ALAW, uint32_t rate = 8000, uint32_t bits = 16,
                   uint32_t channels = 1) {
        MXFrameInfo frame = test::AudioFrame(data, codec);
        frame.samples_per_sec = rate;
        frame.bits_per_sample = bits;
        frame.channels = channels;
        return packet.inputFrame(&frame, 0);
    }
    // The header list as the tail writes it.
    const ByteVector& TailList() {
        EXPECT_EQ(packet.createTailer(nullptr, 0), 0u);
        EXPECT_EQ(sink.blocks.back().offset, 12);
        return sink.Last();
    }

    Sink sink;
    MXCreateParam param = sink.Param();
    CAviPacket packet{MX_FORMAT_AVI, &param};
};

const ByteVector kEmptyList = HeaderList(
    Avih("00 00 00 00", "00 00 00 00", "00 00 00 00", "00 00 00 00", "00 00 00 00", "00 00 00 00 00 00 00 00"));

TEST_F(AviPacket, AHeaderWithoutStreamsAndItsTail) {
    EXPECT_EQ(packet.createHeader(nullptr, 0), 0u);
    ASSERT_EQ(sink.blocks.size(), 3u);
    EXPECT_EQ(sink.blocks[1].offset, 12);
    EXPECT_EQ(sink.blocks[2].offset, 4116);
    EXPECT_EQ(Slice(kEmptyList, 76, 8), Text("JUNK") + Bytes("B4 0F 00 00"));  // 4020
    EXPECT_EQ(sink.file, Text("RIFF") + Bytes("20 10 00 00") + Text("AVI ") + kEmptyList + Text("LIST") +
                             Bytes("04 00 00 00") + Text("movi"));
    EXPECT_EQ(packet.createTailer(nullptr, 0), 0u);
    // RIFF size 4136, its own header counted.
    EXPECT_EQ(sink.file, Text("RIFF") + Bytes("28 10 00 00") + Text("AVI ") + kEmptyList + Text("LIST") +
                             Bytes("04 00 00 00") + Text("movi") + Text("idx1") + Bytes("00 00 00 00"));
    std::vector<int64_t> offsets;
    for (const Sink::Block& block : sink.blocks)
        offsets.push_back(block.offset);
    EXPECT_EQ(offsets, (std::vector<int64_t>{0, 12, 4116, 4128, 0, 4116, 12}));
}

TEST_F(AviPacket, ABriefFile) {
    packet.createHeader(nullptr, 0);
    EXPECT_EQ(Video(Bytes("00 00 01 65 88")), 0u);
    EXPECT_EQ(sink.blocks[3].offset, 4128);
    EXPECT_EQ(sink.Last(), Text("00dc") + Bytes("05 00 00 00  00 00 01 65 88  00"));
    EXPECT_EQ(Audio(Bytes(kAdtsFrame), MX_AUDIO_AAC, 48000, 16, 2), 0u);
    EXPECT_EQ(sink.blocks[4].offset, 4142);
    EXPECT_EQ(sink.Last(), Text("01wb") + Bytes("05 00 00 00  21 10 04 60 33  00"));
    EXPECT_EQ(Video(Bytes("00 00 01 41"), MX_SUB_P), 0u);
    EXPECT_EQ(sink.blocks[5].offset, 4156);
    EXPECT_EQ(sink.Last(), Text("00dc") + Bytes("04 00 00 00  00 00 01 41"));

    packet.createTailer(nullptr, 0);
    EXPECT_EQ(Slice(sink.file, 0, 12), Text("RIFF") + Bytes("80 10 00 00") + Text("AVI "));  // 4224
    // 9 bytes of video in 2 frames at 25 a second: 112 bytes a second.
    EXPECT_EQ(Slice(sink.file, 12, 4104),
              HeaderList(Avih("40 9C 00 00", "70 00 00 00", "02 00 00 00", "02 00 00 00", "05 00 00 00",
                              "80 07 00 00 38 04 00 00") +
                         VideoList("H264", "02 00 00 00", "05 00 00 00") +
                         AudioList("68 04 00 00", "00 04 00 00", "80 BB 00 00", "01 00 00 00", "05 00 00 00",
                                   "00 00 00 00", "00 00 00 00 80 07 38 04",
                                   "FF 00  02 00  80 BB 00 00  00 77 01 00  00 06  10 00  02 00  09 90")));
    EXPECT_EQ(Slice(sink.file, 4116, 12), Text("LIST") + Bytes("2C 00 00 00") + Text("movi"));
    EXPECT_EQ(Slice(sink.file, 4168, sink.file.size() - 4168),
              Text("idx1") + Bytes("30 00 00 00") + Text("00dc") + Bytes("10 00 00 00  04 00 00 00  05 00 00 00") +
                  Text("01wb") + Bytes("10 00 00 00  12 00 00 00  05 00 00 00") + Text("00dc") +
                  Bytes("00 00 00 00  20 00 00 00  04 00 00 00"));
}

TEST_F(AviPacket, TheListsLengthsAreFixed) {
    EXPECT_EQ(kEmptyList.size(), 4104u);
    EXPECT_EQ(VideoList("H264", "00 00 00 00", "00 00 00 00").size(), 1156u);
    packet.createHeader(nullptr, 0);
    Video(ByteVector(1));
    Audio(Bytes(kAdtsFrame), MX_AUDIO_AAC);
    // 4020 - 1156 - 1136
    EXPECT_EQ(Slice(TailList(), 12 + 64 + 1156 + 1136, 8), Text("JUNK") + Bytes("C0 06 00 00"));
}

TEST_F(AviPacket, VideoAheadOfTheFirstKeyFrameIsDroppedUnlessItIsMotionJpeg) {
    packet.createHeader(nullptr, 0);
    for (const uint32_t sub_type : {1u, 2u, 3u, 8u, 19u})
        EXPECT_EQ(Video(ByteVector(4), sub_type), 0u);
    EXPECT_EQ(sink.blocks.size(), 3u);
    EXPECT_EQ(Video(ByteVector(4), MX_SUB_P, MX_VIDEO_MJPEG), 0u);
    EXPECT_EQ(sink.blocks.size(), 4u);
    EXPECT_EQ(Slice(TailList(), 12 + 64, 12 + 64), Slice(VideoList("MJPG", "01 00 00 00", "04 00 00 00"), 0, 76));
}

TEST_F(AviPacket, AudioAheadOfVideoIsDroppedAndNotCounted) {
    packet.createHeader(nullptr, 0);
    EXPECT_EQ(Audio(ByteVector(160)), 0u);
    EXPECT_EQ(sink.blocks.size(), 3u);
    Video(ByteVector(4));
    Audio(ByteVector(160));
    EXPECT_EQ(Slice(TailList(), 12 + 64 + 1156, 102),
              Slice(AudioList("66 04 00 00", "01 00 00 00", "40 1F 00 00", "01 00 00 00", "A0 00 00 00", "02 00 00 00",
                              "00 00 00 00 80 07 38 04", "06 00  01 00  40 1F 00 00  80 3E 00 00  01 00  10 00  00 00"),
                    0, 102));
}

TEST_F(AviPacket, AnOddFrameMovesTheNextOffsetByItsPad) {
    packet.createHeader(nullptr, 0);
    Video(Bytes("01 02 03"));
    Video(Bytes("04"));
    packet.createTailer(nullptr, 0);
    EXPECT_EQ(Slice(sink.file, 4128 + 12 + 10 + 8, 32), Text("00dc") + Bytes("10 00 00 00  04 00 00 00  03 00 00 00") +
                                                            Text("00dc") +
                                                            Bytes("10 00 00 00  10 00 00 00  01 00 00 00"));
    EXPECT_EQ(Slice(sink.file, 4116, 12), Text("LIST") + Bytes("1A 00 00 00") + Text("movi"));
}

TEST_F(AviPacket, TheLargestFrameOfBothStreamsSuggestsTheBuffer) {
    packet.createHeader(nullptr, 0);
    Video(ByteVector(8));
    Audio(ByteVector(6));
    EXPECT_EQ(Slice(TailList(), 12 + 36, 4), Bytes("08 00 00 00"));
    CAviPacket loud(MX_FORMAT_AVI, &param);
    loud.createHeader(nullptr, 0);
    ByteVector data(8);
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, MX_SUB_I);
    frame.frame_size = 4;
    loud.inputFrame(&frame, 0);
    frame = test::AudioFrame(data, MX_AUDIO_ALAW);
    loud.inputFrame(&frame, 0);
    loud.createTailer(nullptr, 0);
    EXPECT_EQ(Slice(sink.Last(), 12 + 36, 4), Bytes("08 00 00 00"));
}

TEST_F(AviPacket, AStreamStaysAsItOpened) {
    packet.createHeader(nullptr, 0);
    Video(ByteVector(4));
    Audio(ByteVector(160));
    ByteVector data(4);
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_MPEG4, MX_SUB_I);
    frame.width = 640;
    frame.frame_rate = 50;
    packet.inputFrame(&frame, 0);
    Audio(ByteVector(160), MX_AUDIO_PCM16, 48000, 8, 2);
    EXPECT_EQ(Slice(TailList(), 76, 1156 + 1134),
              VideoList("H264", "02 00 00 00", "04 00 00 00") +
                  AudioList("66 04 00 00", "01 00 00 00", "40 1F 00 00", "02 00 00 00", "A0 00 00 00", "02 00 00 00",
                            "00 00 00 00 80 07 38 04", "06 00  01 00  40 1F 00 00  80 3E 00 00  01 00  10 00  00 00"));
}

TEST_F(AviPacket, IndexFlagsByKindOfFrame) {
    packet.createHeader(nullptr, 0);
    Video(ByteVector(2));
    for (const uint32_t sub_type : {1u, 2u, 3u, 8u, 18u, 19u, 20u})
        Video(ByteVector(2), sub_type);
    Audio(ByteVector(2));
    packet.createTailer(nullptr, 0);
    const size_t first = 4128 + 9 * 10 + 8;
    std::vector<int> flags;
    for (size_t i = 0; i < 9; ++i)
        flags.push_back(sink.file.at(first + 16 * i + 4));
    EXPECT_EQ(flags, (std::vector<int>{16, 0, 0, 0, 0, 16, 0, 16, 16}));
}

TEST_F(AviPacket, AacWithoutSyncDoesNotOpenTheStreamAndIsWrittenOnceItIsOpen) {
    const ByteVector no_sync = Bytes("FF F0 4C 80 01 7F FC  21 10 04 60 33");
    packet.createHeader(nullptr, 0);
    Video(ByteVector(2));
    EXPECT_EQ(Audio(no_sync, MX_AUDIO_AAC), 0u);
    EXPECT_EQ(sink.blocks.size(), 4u);
    Audio(Bytes("FF F1 4C 80 01 7F FC  21 10"), MX_AUDIO_AAC);
    EXPECT_EQ(Audio(no_sync, MX_AUDIO_AAC), 0u);
    EXPECT_EQ(sink.Last(), Text("01wb") + Bytes("05 00 00 00  21 10 04 60 33  00"));
    const ByteVector& list = TailList();
    // dwLength 2, dwSuggestedBufferSize of the frame with sync alone.
    EXPECT_EQ(Slice(list, 12 + 64 + 1156 + 12 + 40, 8), Bytes("02 00 00 00  02 00 00 00"));
}

TEST_F(AviPacket, AnAdtsFrameShorterThanItsHeaderIsDropped) {
    packet.createHeader(nullptr, 0);
    Video(ByteVector(2));
    EXPECT_EQ(Audio(Bytes("FF F1 4C 80 01 7F"), MX_AUDIO_AAC), 0u);
    EXPECT_EQ(sink.blocks.size(), 4u);
    EXPECT_EQ(Audio(Bytes("FF F1 4C 80 01 7F FC"), MX_AUDIO_AAC), 0u);
    EXPECT_EQ(sink.Last(), Text("01wb") + Bytes("00 00 00 00"));
    EXPECT_EQ(Audio(Bytes("FF"), MX_AUDIO_AAC), 0u);
    EXPECT_EQ(Slice(TailList(), 12 + 64 + 1156 + 12 + 40, 4), Bytes("01 00 00 00"));
}

TEST_F(AviPacket, AnnouncedStreamsAreOpenFromTheStart) {
    MXHeaderInfo info{};
    info.video_present = 1;
    info.video_encode_type = MX_VIDEO_MPEG4;
    info.width = 1920;
    info.height = 1080;
    info.frame_rate = 25;
    info.audio_present = 1;
    info.audio_encode_type = MX_AUDIO_AAC;
    info.channels = 2;
    info.bits_per_sample = 16;
    info.samples_per_sec = 48000;
    packet.createHeader(&info, 0);
    // The buffer sizes of the start; no configuration.
    const ByteVector expected = HeaderList(
        Avih("40 9C 00 00", "00 00 00 00", "00 00 00 00", "02 00 00 00", "00 00 00 00", "80 07 00 00 38 04 00 00") +
        VideoList("XVID", "00 00 00 00", "00 00 10 00") +
        AudioList("66 04 00 00", "00 04 00 00", "80 BB 00 00", "00 00 00 00", "00 30 00 00", "00 00 00 00",
                  "00 00 00 00 80 07 38 04", "FF 00  02 00  80 BB 00 00  00 77 01 00  00 06  10 00  00 00"));
    EXPECT_EQ(sink.blocks[1].data, expected);
    EXPECT_EQ(Audio(Bytes("00 00 4C 80 01 7F FC  21"), MX_AUDIO_AAC), 0u);
    EXPECT_EQ(Video(Bytes("55"), MX_SUB_P, MX_VIDEO_MPEG4), 0u);
    EXPECT_EQ(sink.blocks.size(), 5u);
}

TEST_F(AviPacket, AnAnnouncedStreamWithoutANameStaysClosed) {
    MXHeaderInfo info{};
    info.video_present = 1;
    info.video_encode_type = MX_VIDEO_MPEG2;
    info.audio_present = 1;
    info.audio_encode_type = 31;
    packet.createHeader(&info, 0);
    EXPECT_EQ(sink.blocks[1].data, kEmptyList);
    Video(ByteVector(4));
    EXPECT_EQ(TailList()[12 + 32], 1);  // dwStreams
}

TEST_F(AviPacket, AnnouncedAudioAloneIsOneStream) {
    MXHeaderInfo info{};
    info.audio_present = 1;
    info.audio_encode_type = MX_AUDIO_PCM16;
    info.channels = 2;
    info.bits_per_sample = 16;
    info.samples_per_sec = 44100;
    packet.createHeader(&info, 0);
    EXPECT_EQ(
        sink.blocks[1].data,
        HeaderList(
            Avih("00 00 00 00", "00 00 00 00", "00 00 00 00", "01 00 00 00", "00 00 00 00", "00 00 00 00 00 00 00 00") +
            AudioList("66 04 00 00", "02 00 00 00", "88 58 01 00", "00 00 00 00", "00 30 00 00", "02 00 00 00",
                      "00 00 00 00 00 00 00 00", "01 00  02 00  44 AC 00 00  88 58 01 00  04 00  10 00  00 00")));
}

TEST_F(AviPacket, CodecNames) {
    for (const auto& [codec, name] : {std::pair(1u, "XVID"), {2u, "H264"}, {3u, "MJPG"}, {4u, "H264"}, {12u, "hev1"}}) {
        sink.Clear();
        CAviPacket fresh(MX_FORMAT_AVI, &param);
        fresh.createHeader(nullptr, 0);
        ByteVector data(4);
        MXFrameInfo frame = test::VideoFrame(data, codec, MX_SUB_I);
        fresh.inputFrame(&frame, 0);
        fresh.createTailer(nullptr, 0);
        EXPECT_EQ(Slice(sink.Last(), 76, 1156), VideoList(name, "01 00 00 00", "04 00 00 00")) << codec;
    }
}

TEST_F(AviPacket, WaveFormats) {
    struct Case {
        uint32_t codec, rate, bits, channels;
        const char *scale, *stream_rate, *format;
    };
    const Case cases[] = {
        {14, 8000, 8, 2, "01 00 00 00", "40 1F 00 00", "06 00  02 00  40 1F 00 00  40 1F 00 00  02 00  08 00  00 00"},
        {22, 8000, 16, 1, "01 00 00 00", "40 1F 00 00", "07 00  01 00  40 1F 00 00  80 3E 00 00  01 00  10 00  00 00"},
        {10, 8000, 16, 1, "01 00 00 00", "40 1F 00 00", "07 00  01 00  40 1F 00 00  80 3E 00 00  01 00  10 00  00 00"},
        {16, 8000, 16, 2, "02 00 00 00", "80 3E 00 00", "01 00  02 00  40 1F 00 00  80 3E 00 00  04 00  10 00  00 00"},
    };
    for (const Case& c : cases) {
        sink.Clear();
        CAviPacket fresh(MX_FORMAT_AVI, &param);
        fresh.createHeader(nullptr, 0);
        ByteVector data(4);
        MXFrameInfo video = test::VideoFrame(data, MX_VIDEO_H264, MX_SUB_I);
        fresh.inputFrame(&video, 0);
        MXFrameInfo audio = test::AudioFrame(data, c.codec);
        audio.samples_per_sec = c.rate;
        audio.bits_per_sample = c.bits;
        audio.channels = c.channels;
        fresh.inputFrame(&audio, 0);
        fresh.createTailer(nullptr, 0);
        EXPECT_EQ(Slice(sink.Last(), 76 + 1156, 1134),
                  AudioList("66 04 00 00", c.scale, c.stream_rate, "01 00 00 00", "04 00 00 00", "02 00 00 00",
                            "00 00 00 00 80 07 38 04", c.format))
            << c.codec;
    }
}

TEST_F(AviPacket, ARateOfZeroStaysZero) {
    packet.createHeader(nullptr, 0);
    ByteVector data(4);
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, MX_SUB_I);
    frame.frame_rate = 0;
    packet.inputFrame(&frame, 0);
    const ByteVector& list = TailList();
    EXPECT_EQ(Slice(list, 12 + 8, 8), ByteVector(8));
    EXPECT_EQ(Slice(list, 76 + 12 + 32, 4), ByteVector(4));
}

TEST_F(AviPacket, AnAnnouncedRateBelowZeroIsTakenAs32Bits) {
    MXHeaderInfo info{};
    info.video_present = 1;
    info.video_encode_type = MX_VIDEO_H264;
    info.frame_rate = -1;
    packet.createHeader(&info, 0);
    Video(ByteVector(4));
    const ByteVector& list = TailList();
    EXPECT_EQ(Slice(list, 12 + 8, 8), Bytes("00 00 00 00  FC FF FF FF"));  // 4 times 2^32 - 1 in 32 bits
    EXPECT_EQ(Slice(list, 76 + 12 + 32, 4), Bytes("FF FF FF FF"));         // dwRate
}

TEST_F(AviPacket, WhatItTakes) {
    ByteVector data(4);
    for (uint32_t codec = 0; codec < 256; ++codec) {
        MXFrameInfo frame = test::Frame(data, 1, codec);
        EXPECT_EQ(packet.checkFrame(&frame), codec == 4 || codec == 2 || codec == 1 || codec == 12 || codec == 3);
        frame.frame_type = 2;
        EXPECT_EQ(packet.checkFrame(&frame), codec == 14 || codec == 22 || codec == 26 || codec == 16 || codec == 10);
        frame.frame_type = 3;
        EXPECT_FALSE(packet.checkFrame(&frame));
    }
}

TEST_F(AviPacket, TheCodecIsCheckedAheadOfTheData) {
    packet.createHeader(nullptr, 0);
    EXPECT_EQ(packet.inputFrame(nullptr, 0), 3u);
    ByteVector data(4);
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_MPEG2, MX_SUB_I);
    frame.frame_pointer = nullptr;
    EXPECT_EQ(packet.inputFrame(&frame, 0), 5u);
    frame.encode_type = MX_VIDEO_H264;
    EXPECT_EQ(packet.inputFrame(&frame, 0), 0u);
    frame.frame_pointer = data.data();
    frame.frame_size = 0;
    EXPECT_EQ(packet.inputFrame(&frame, 0), 3u);
    frame.frame_type = 4;
    EXPECT_EQ(packet.inputFrame(&frame, 0), 5u);
    EXPECT_EQ(sink.blocks.size(), 3u);
}

TEST_F(AviPacket, NothingHappensAheadOfTheHeader) {
    EXPECT_EQ(Video(ByteVector(4)), 0u);
    EXPECT_EQ(packet.createTailer(nullptr, 0), 0u);
    EXPECT_TRUE(sink.blocks.empty());
}

TEST_F(AviPacket, ASecondHeaderChangesNothing) {
    packet.createHeader(nullptr, 0);
    Video(ByteVector(4));
    Audio(Bytes(kAdtsFrame), MX_AUDIO_AAC);
    EXPECT_EQ(packet.createHeader(nullptr, 0), 0u);
    Video(ByteVector(4));
    EXPECT_EQ(sink.blocks.back().offset, 4128 + 12 + 14);
    packet.createTailer(nullptr, 0);
    const ByteVector file = sink.file;
    EXPECT_EQ(packet.createHeader(nullptr, 0), 0u);
    EXPECT_EQ(sink.file, file);
}

TEST_F(AviPacket, AFrameWithoutMemoryIsDropped) {
    packet.createHeader(nullptr, 0);
    ByteVector data(4);
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, MX_SUB_I);
    {
        const test::FailingAllocations failing;
        EXPECT_EQ(packet.inputFrame(&frame, 0), 0u);
    }
    EXPECT_EQ(sink.blocks.size(), 3u);
    EXPECT_EQ(packet.inputFrame(&frame, 0), 0u);
    EXPECT_EQ(sink.blocks.back().offset, 4128);
    EXPECT_EQ(Slice(TailList(), 12 + 24, 4), Bytes("01 00 00 00"));  // dwTotalFrames
}

// A frame that is dropped opens no stream: the file begins with the next key frame.
TEST_F(AviPacket, AKeyFrameWithoutMemoryOpensNothing) {
    packet.createHeader(nullptr, 0);
    ByteVector data(4);
    MXFrameInfo key = test::VideoFrame(data, MX_VIDEO_H264, MX_SUB_I);
    MXFrameInfo other = test::VideoFrame(data, MX_VIDEO_H264, MX_SUB_P);
    {
        const test::FailingAllocations failing;
        EXPECT_EQ(packet.inputFrame(&key, 0), 0u);
    }
    EXPECT_EQ(packet.inputFrame(&other, 0), 0u);
    EXPECT_EQ(sink.blocks.size(), 3u);
}

// Frame by frame until idx1 has to grow and can't: the frame is dropped, and those before are still in the index.
TEST_F(AviPacket, AnIndexThatCannotGrowKeepsTheFile) {
    packet.createHeader(nullptr, 0);
    ByteVector data(4);
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, MX_SUB_I);
    for (int i = 0; i < 1023; ++i)  // 8 bytes and 16 each: the first 16384 bytes have no room for another
        ASSERT_EQ(packet.inputFrame(&frame, 0), 0u);
    const size_t end = sink.file.size();
    {
        const test::FailingAllocations failing;
        ASSERT_EQ(packet.inputFrame(&frame, 0), 0u);
    }
    EXPECT_EQ(sink.file.size(), end);
    ASSERT_EQ(packet.inputFrame(&frame, 0), 0u);
    packet.createTailer(nullptr, 0);
    EXPECT_EQ(sink.file.size(), end + 12 + 8 + 1024 * 16);
    EXPECT_EQ(Slice(sink.file, end + 12, 8), Text("idx1") + Bytes("00 40 00 00"));
}

// 16 bytes of idx1 and 8 of ix00 a frame: however many frames, each byte is moved a few times and no more.
TEST(AviPacketMemory, TheIndexesGrowByHalves) {
    CAviPacket packet(2);
    packet.createHeader(nullptr, 0);
    ByteVector data(4);
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, MX_SUB_I);
    const test::AllocationCounter allocations;
    for (int i = 0; i < 1000000; ++i)
        packet.inputFrame(&frame, 0);
    EXPECT_LE(allocations.Bytes(), 5u * 24 * 1000000);
}

TEST_F(AviPacket, BehindTheTailFramesAreDroppedAndTheTailMayBeRepeated) {
    packet.createHeader(nullptr, 0);
    Video(ByteVector(4));
    packet.createTailer(nullptr, 0);
    const ByteVector file = sink.file;
    EXPECT_EQ(Video(ByteVector(4)), 0u);
    EXPECT_EQ(packet.createTailer(nullptr, 0), 0u);
    EXPECT_EQ(sink.file, file);
}

TEST_F(AviPacket, AFrameBeyondTwoGibibytesIsDropped) {
    packet.createHeader(nullptr, 0);
    ByteVector data(4);
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, MX_SUB_I);
    // The bytes are not looked at.
    for (const uint32_t size : {0x7FFFFFF8u, 0x80000000u, 0xFFFFFFF7u, 0xFFFFFFFFu}) {
        frame.frame_size = size;
        EXPECT_EQ(packet.inputFrame(&frame, 0), 0u);
    }
    EXPECT_EQ(sink.blocks.size(), 3u);
}

TEST_F(AviPacket, TheSinksLengthIsNotRead) {
    sink.accept = {0, 0, 0, 0, 0};
    packet.createHeader(nullptr, 0);
    Video(ByteVector(4));
    Video(ByteVector(4));
    EXPECT_EQ(sink.blocks[4].offset, 4140);
}

int32_t DropBlock(const MXOutputBlock* /*block*/, void* /*user*/) {
    return 0;
}

TEST_F(AviPacket, ASteadyStreamAllocatesForItsIndexesAlone) {
    packet.setCallback(DropBlock, nullptr);
    packet.createHeader(nullptr, 0);
    ByteVector picture(40000);
    ByteVector sound = Bytes(kAdtsFrame);
    MXFrameInfo video = test::VideoFrame(picture, MX_VIDEO_H264, MX_SUB_I);
    MXFrameInfo audio = test::AudioFrame(sound, MX_AUDIO_AAC);
    packet.inputFrame(&video, 0);
    packet.inputFrame(&audio, 0);
    const test::AllocationCounter allocations;
    // 4000 frames take 96000 bytes of index: from 16384 on, idx1 grows twice, the standard indexes not at all.
    for (int i = 0; i < 2000; ++i) {
        packet.inputFrame(&video, 0);
        packet.inputFrame(&audio, 0);
    }
    EXPECT_EQ(allocations.Count(), 2u);
}

TEST_F(AviPacket, Capacity) {
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
    uint32_t result = packet.getEncodeCapacity(0, &table, &count);
    EXPECT_EQ(codecs(result, table, count), (std::vector<uint32_t>{4, 1, 12, 3}));
    result = packet.getEncodeCapacity(1, &table, &count);
    EXPECT_EQ(codecs(result, table, count), (std::vector<uint32_t>{14, 22, 26, 16, 10}));
    result = packet.getCodecCapacity(0, &table, &count);
    EXPECT_EQ(codecs(result, table, count), (std::vector<uint32_t>{2, 1, 5, 3}));
    result = packet.getCodecCapacity(1, &table, &count);
    EXPECT_EQ(codecs(result, table, count), (std::vector<uint32_t>{28, 31, 33, 30, 24}));
    EXPECT_EQ(packet.getEncodeCapacity(2, &table, &count), 3u);
    EXPECT_EQ(packet.getCodecCapacity(0, nullptr, &count), 3u);
    EXPECT_EQ(packet.getCodecCapacity(0, &table, nullptr), 3u);
}

}  // namespace
}  // namespace Orvane::Muxora
