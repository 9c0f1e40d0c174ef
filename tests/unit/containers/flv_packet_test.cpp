#include "containers/flv_packet.h"

#include <gtest/gtest.h>

#include <cstdlib>

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
using test::operator+;

// SPS, PPS and a picture of three bytes, behind start codes.
const char kKeyFrame[] = "00 00 00 01 67 64 00 28 AA  00 00 00 01 68 EE 3C  00 00 00 01 65 88 84";
// The same behind lengths.
const char kKeyFrameConverted[] = "00 00 00 05 67 64 00 28 AA  00 00 00 03 68 EE 3C  00 00 00 03 65 88 84";
// AAC LC, 48000 Hz, stereo: an ADTS header and four bytes.
const char kAdtsFrame[] = "FF F1 4C 80 01 7F FC  21 10 04 60";

// The script tag with its PreviousTagSize, by the fields that differ between our tests.
ByteVector Metadata(const char* duration, const char* width, const char* height, const char* framerate,
                    const char* videocodecid, const char* audiosamplerate, const char* audiosamplesize,
                    const char* stereo, const char* audiocodecid, const char* filesize) {
    return Bytes("12 00 00 FB 00 00 00 00 00 00 00  02 00 0A 6F 6E 4D 65 74 61 44 61 74 61  08 00 00 00 0D") +
           Bytes("00 08 64 75 72 61 74 69 6F 6E  00") + Bytes(duration) + Bytes("00 05 77 69 64 74 68  00") +
           Bytes(width) + Bytes("00 06 68 65 69 67 68 74  00") + Bytes(height) +
           Bytes("00 0D 76 69 64 65 6F 64 61 74 61 72 61 74 65  00  00 00 00 00 00 00 00 00") +
           Bytes("00 09 66 72 61 6D 65 72 61 74 65  00") + Bytes(framerate) +
           Bytes("00 0C 76 69 64 65 6F 63 6F 64 65 63 69 64  00") + Bytes(videocodecid) +
           Bytes("00 0D 61 75 64 69 6F 64 61 74 61 72 61 74 65  00  00 00 00 00 00 00 00 00") +
           Bytes("00 0F 61 75 64 69 6F 73 61 6D 70 6C 65 72 61 74 65  00") + Bytes(audiosamplerate) + Bytes("00") +
           Bytes(audiosamplesize) +  // without its key
           Bytes("00 06 73 74 65 72 65 6F  01") + Bytes(stereo) +
           Bytes("00 0C 61 75 64 69 6F 63 6F 64 65 63 69 64  00") + Bytes(audiocodecid) +
           Bytes("00 08 66 69 6C 65 73 69 7A 65  00") + Bytes(filesize) + Bytes("00 00 09  00 00 01 06");
}

// IEEE doubles of the values that occur.
const char k0[] = "00 00 00 00 00 00 00 00";
const char k0_04[] = "3F A4 7A E1 47 AE 14 7B";
const char k0_08[] = "3F B4 7A E1 47 AE 14 7B";
const char k3[] = "40 08 00 00 00 00 00 00";
const char k7[] = "40 1C 00 00 00 00 00 00";
const char k8[] = "40 20 00 00 00 00 00 00";
const char k10[] = "40 24 00 00 00 00 00 00";
const char k16[] = "40 30 00 00 00 00 00 00";
const char k20[] = "40 34 00 00 00 00 00 00";
const char k25[] = "40 39 00 00 00 00 00 00";
const char k1080[] = "40 90 E0 00 00 00 00 00";
const char k1920[] = "40 9E 00 00 00 00 00 00";
const char k11000[] = "40 C5 7C 00 00 00 00 00";
const char k48000[] = "40 E7 70 00 00 00 00 00";

const ByteVector kOpeningMetadata = Metadata(k0, k1920, k1080, k25, k7, k0, k0, "00", k0, k0);

const ByteVector kAvcConfigTag = Bytes(
    "09 00 00 18 00 00 00 00 00 00 00  17 00 00 00 00  01 64 00 28 FF E1 00 05 67 64 00 28 AA 01 00 03 68 EE 3C"
    "00 00 00 23");

class FlvPacket : public testing::Test {
  protected:
    FlvPacket() : file(MX_FORMAT_FLV, &param), stream(MX_FORMAT_FLV_STREAM, &param) {}

    static uint32_t Video(CFlvPacket& packet, ByteVector data, uint32_t sub_type = MX_SUB_I, uint32_t rate = 25) {
        MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, sub_type);
        frame.frame_rate = rate;
        return packet.inputFrame(&frame, 0);
    }
    static uint32_t Aac(CFlvPacket& packet, ByteVector data, uint8_t channel = 0, uint32_t rate = 48000) {
        MXFrameInfo frame = test::AudioFrame(data, MX_AUDIO_AAC);
        frame.ma_cur_channel = channel;
        frame.samples_per_sec = rate;
        return packet.inputFrame(&frame, 0);
    }
    static uint32_t Pcm(CFlvPacket& packet, ByteVector data, uint32_t rate = 11000, uint32_t bits = 8,
                        uint32_t channels = 1, uint32_t codec = MX_AUDIO_PCM8) {
        MXFrameInfo frame = test::AudioFrame(data, codec);
        frame.samples_per_sec = rate;
        frame.bits_per_sample = bits;
        frame.channels = channels;
        return packet.inputFrame(&frame, 0);
    }
    // The time of the tag that the last block begins with.
    uint32_t LastTime() const {
        const ByteVector& tag = sink.Last();
        return uint32_t{tag.at(4)} << 16 | uint32_t{tag.at(5)} << 8 | tag.at(6);
    }

    Sink sink;
    MXCreateParam param = sink.Param();
    CFlvPacket file;
    CFlvPacket stream;
};

TEST_F(FlvPacket, TheFirstKeyFrameBringsTheHeadInOneBlock) {
    EXPECT_EQ(file.createHeader(nullptr, 0), 0u);
    EXPECT_TRUE(sink.blocks.empty());
    EXPECT_EQ(Video(file, Bytes(kKeyFrame)), 0u);
    ASSERT_EQ(sink.blocks.size(), 1u);
    EXPECT_EQ(sink.file, Bytes("46 4C 56 01 01 00 00 00 09 00 00 00 00") + kOpeningMetadata + kAvcConfigTag +
                             Bytes("09 00 00 1C 00 00 00 00 00 00 00  17 01 00 00 00") + Bytes(kKeyFrameConverted) +
                             Bytes("00 00 00 27"));
}

TEST_F(FlvPacket, HeadIsThirteenAndTwoHundredSixtySixBytes) {
    EXPECT_EQ(kOpeningMetadata.size(), 266u);
    Video(file, Bytes(kKeyFrame));
    EXPECT_EQ(Slice(sink.file, 279, 11), Bytes("09 00 00 18 00 00 00 00 00 00 00"));
}

TEST_F(FlvPacket, ThePacketsOfAFileInOrder) {
    Video(file, Bytes(kKeyFrame));
    const size_t head = sink.file.size();
    EXPECT_EQ(Video(file, Bytes("00 00 01 41 9A"), MX_SUB_P), 0u);
    EXPECT_EQ(Slice(sink.file, head, 26), Bytes("09 00 00 0B 00 00 28 00 00 00 00  27 01 00 00 00  00 00 00 02 41 9A"
                                                "00 00 00 16"));
    EXPECT_EQ(Aac(file, Bytes(kAdtsFrame)), 0u);
    EXPECT_EQ(sink.Last(), Bytes("08 00 00 04 00 00 00 00 00 00 00  AF 00 09 90  00 00 00 0F"
                                 "08 00 00 06 00 00 00 00 00 00 00  AF 01 21 10 04 60  00 00 00 11"));
    EXPECT_EQ(Aac(file, Bytes(kAdtsFrame)), 0u);
    EXPECT_EQ(sink.Last(), Bytes("08 00 00 06 00 00 15 00 00 00 00  AF 01 21 10 04 60  00 00 00 11"));
    for (const Sink::Block& block : sink.blocks)
        EXPECT_EQ(block.seek_type, 0u);
    EXPECT_EQ(sink.blocks[2].offset, static_cast<int64_t>(head) + 26);
}

TEST_F(FlvPacket, TheTailEndsTheSequenceAndCompletesTheHead) {
    Video(file, Bytes(kKeyFrame));
    Aac(file, Bytes(kAdtsFrame));
    const ByteVector before = sink.file;  // 279 + 39 + 43 + 19 + 21 bytes
    ASSERT_EQ(before.size(), 401u);
    EXPECT_EQ(file.createTailer(nullptr, 0), 0u);
    ASSERT_EQ(sink.blocks.size(), 4u);
    EXPECT_EQ(sink.blocks[2].offset, 401);
    EXPECT_EQ(sink.blocks[2].data, Bytes("09 00 00 05 00 00 28 00 00 00 00  17 02 00 00 00  00 00 00 10"));
    EXPECT_EQ(sink.blocks[3].offset, 0);
    // 421 bytes in all.
    EXPECT_EQ(sink.blocks[3].data,
              Bytes("46 4C 56 01 05 00 00 00 09 00 00 00 00") +
                  Metadata(k0_04, k1920, k1080, k25, k7, k48000, k16, "01", k10, "40 7A 50 00 00 00 00 00"));
    EXPECT_EQ(Slice(sink.file, 279, 122), Slice(before, 279, 122));
}

TEST_F(FlvPacket, WithoutAFrameTheTailWritesAHeadOfZeros) {
    EXPECT_EQ(file.createTailer(nullptr, 0), 0u);
    ASSERT_EQ(sink.blocks.size(), 2u);
    EXPECT_EQ(sink.blocks[0].offset, 0);
    EXPECT_EQ(sink.blocks[0].data, Bytes("09 00 00 05 00 00 00 00 00 00 00  17 02 00 00 00  00 00 00 10"));
    EXPECT_EQ(sink.blocks[1].offset, 0);
    // The end tag's own 20 bytes count.
    EXPECT_EQ(sink.blocks[1].data,
              Bytes("00 00 00 00 00 00 00 00 00 00 00 00 00") + Metadata(k0, k0, k0, k0, k0, k0, k0, "00", k0, k20));
}

TEST_F(FlvPacket, ATailAheadOfTheFirstKeyFrameCountsInTheFilesSize) {
    file.createTailer(nullptr, 0);
    Video(file, Bytes(kKeyFrame));
    EXPECT_EQ(sink.blocks.back().offset, 20);
    EXPECT_EQ(Slice(sink.Last(), 13, 266), Metadata(k0, k1920, k1080, k25, k7, k0, k0, "00", k0, k20));
    file.createTailer(nullptr, 0);
    // 20 of the first end tag, 361 of head and key frame, 20 of the second end tag: 401.
    EXPECT_EQ(Slice(sink.Last(), 13, 266),
              Metadata(k0_04, k1920, k1080, k25, k7, k0, k0, "00", k0, "40 79 10 00 00 00 00 00"));
}

TEST_F(FlvPacket, TheStreamFormHasNoTail) {
    Video(stream, Bytes(kKeyFrame));
    const size_t blocks = sink.blocks.size();
    EXPECT_EQ(stream.createTailer(nullptr, 0), 0u);
    EXPECT_EQ(sink.blocks.size(), blocks);
}

TEST_F(FlvPacket, TheStreamFormAlwaysAnnouncesBoth) {
    Video(stream, Bytes(kKeyFrame));
    EXPECT_EQ(Slice(sink.file, 0, 13), Bytes("46 4C 56 01 05 00 00 00 09 00 00 00 00"));
    EXPECT_EQ(Slice(sink.file, 13, 266), kOpeningMetadata);
}

TEST_F(FlvPacket, NothingGoesOutAheadOfTheFirstKeyFrame) {
    EXPECT_EQ(Video(file, Bytes("00 00 01 41 9A"), MX_SUB_P), 0u);
    EXPECT_EQ(Video(file, Bytes(kKeyFrame), MX_SUB_KEY), 0u);
    EXPECT_EQ(Aac(file, Bytes(kAdtsFrame), 1), 0u);
    EXPECT_TRUE(sink.blocks.empty());
    // The audio frame that was dropped has not picked its channel.
    Video(file, Bytes(kKeyFrame), MX_SUB_LAYERED_KEY2);
    Aac(file, Bytes(kAdtsFrame), 2);
    EXPECT_EQ(sink.blocks.size(), 2u);
    EXPECT_EQ(sink.Last().size(), 40u);
}

TEST_F(FlvPacket, AudioAloneGivesNothing) {
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(Aac(stream, Bytes(kAdtsFrame)), 0u);
        EXPECT_EQ(Pcm(stream, ByteVector(100)), 0u);
    }
    EXPECT_EQ(stream.createTailer(nullptr, 0), 0u);
    EXPECT_TRUE(sink.blocks.empty());
}

TEST_F(FlvPacket, OneAudioChannelIsTaken) {
    Video(file, Bytes(kKeyFrame));
    Aac(file, Bytes(kAdtsFrame), 3);
    const size_t blocks = sink.blocks.size();
    EXPECT_EQ(Aac(file, Bytes(kAdtsFrame), 4), 0u);
    EXPECT_EQ(sink.blocks.size(), blocks);
    // The dropped frame does not move the time.
    Aac(file, Bytes(kAdtsFrame), 3);
    EXPECT_EQ(LastTime(), 21u);
}

TEST_F(FlvPacket, BothNumbersOfH264ReadAsAvc) {
    ByteVector data = Bytes(kKeyFrame);
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264_ALT, MX_SUB_I);
    file.inputFrame(&frame, 0);
    const ByteVector with4 = sink.file;
    sink.Clear();
    Video(stream, Bytes(kKeyFrame));
    EXPECT_EQ(Slice(sink.file, 13, sink.file.size() - 13), Slice(with4, 13, with4.size() - 13));
}

TEST_F(FlvPacket, LayeredKeyFramesAreKeyFramesAndKind8IsNone) {
    Video(file, Bytes(kKeyFrame));
    for (const auto& [sub_type, first] :
         {std::pair(0u, 0x17), {18u, 0x17}, {20u, 0x17}, {8u, 0x27}, {2u, 0x27}, {19u, 0x27}}) {
        Video(file, Bytes("00 00 01 41 9A"), sub_type);
        EXPECT_EQ(sink.Last()[11], first) << sub_type;
    }
}

TEST_F(FlvPacket, MissingParameterSetsLeaveTheirFieldsZero) {
    Video(file, Bytes("00 00 00 01 65 88 84"));
    EXPECT_EQ(Slice(sink.file, 279, 31),
              Bytes("09 00 00 10 00 00 00 00 00 00 00  17 00 00 00 00  00 00 00 00 FF E0 00 00 00 00 00  00 00 00 1B"));
}

TEST_F(FlvPacket, AParameterSetOf257BytesCountsAsMissing) {
    const ByteVector sps = Bytes("67 64 00 28") + ByteVector(252, 0xAA);
    Video(file, Bytes("00 00 00 01") + sps + Bytes("00 00 00 01 68 EE 3C"));
    EXPECT_EQ(Slice(sink.file, 279, 4), Bytes("09 00 01 13"));  // 16 + 256 + 3
    sink.Clear();
    Video(stream, Bytes("00 00 00 01") + sps + Bytes("AA 00 00 00 01 68 EE 3C"));
    EXPECT_EQ(Slice(sink.file, 279, 4), Bytes("09 00 00 13"));
}

TEST_F(FlvPacket, AFrameWithoutANalUnitStillMakesItsTag) {
    Video(file, Bytes(kKeyFrame));
    EXPECT_EQ(Video(file, Bytes("41 42 43 44 45 46"), MX_SUB_P), 0u);
    EXPECT_EQ(sink.Last(), Bytes("09 00 00 05 00 00 28 00 00 00 00  27 01 00 00 00  00 00 00 10"));
}

TEST_F(FlvPacket, VideoTimeIsCountedAtTheFirstKeyFramesRate) {
    Video(file, Bytes(kKeyFrame), MX_SUB_I, 30);
    const uint32_t expected[] = {33, 66, 100, 133, 166, 200};
    for (const uint32_t time : expected) {
        ByteVector data = Bytes("00 00 01 41 9A");
        MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, MX_SUB_P, 99999);
        file.inputFrame(&frame, 0);
        EXPECT_EQ(LastTime(), time);
    }
}

TEST_F(FlvPacket, ARateOfZeroCountsAs25) {
    Video(file, Bytes(kKeyFrame), MX_SUB_I, 0);
    EXPECT_EQ(Slice(sink.file, 13, 266), kOpeningMetadata);
    Video(file, Bytes("00 00 01 41 9A"), MX_SUB_P, 0);
    EXPECT_EQ(LastTime(), 40u);
    file.createTailer(nullptr, 0);
    EXPECT_EQ(Slice(sink.Last(), 53, 8), Bytes(k0_08));
}

TEST_F(FlvPacket, TagTimesStartAgainPast24Bits) {
    // One frame a second: frame 16778 is at 16778000 ms, which is 784 past 2^24.
    Video(file, Bytes(kKeyFrame), MX_SUB_I, 1);
    for (int i = 0; i < 16776; ++i)
        Video(file, Bytes("00 00 01 41 9A"), MX_SUB_P, 1);
    Video(file, Bytes("00 00 01 41 9A"), MX_SUB_P, 1);
    EXPECT_EQ(Slice(sink.Last(), 4, 4), Bytes("FF FF 28 00"));  // 16777000
    Video(file, Bytes("00 00 01 41 9A"), MX_SUB_P, 1);
    EXPECT_EQ(Slice(sink.Last(), 4, 4), Bytes("00 03 10 00"));
    file.createTailer(nullptr, 0);
    EXPECT_EQ(Slice(sink.blocks[sink.blocks.size() - 2].data, 4, 4), Bytes("00 06 F8 00"));  // 16779000
}

TEST_F(FlvPacket, TheProductOfATimeHas32Bits) {
    static uint32_t time;
    stream.setCallback(
        [](const MXOutputBlock* block, void* /*user*/) {
            const auto* const tag = static_cast<const uint8_t*>(block->data);
            time = uint32_t{tag[4]} << 16 | uint32_t{tag[5]} << 8 | tag[6];
            return 0;
        },
        nullptr);
    ByteVector data = Bytes("00 00 01 41 9A");
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, MX_SUB_I);
    for (uint32_t i = 0; i <= 4294967; ++i)
        stream.inputFrame(&frame, 0);
    EXPECT_EQ(time, 4026520u);  // 171798680 ms in 24 bits
    // Frame 4294968, two days on: times 1000 it is 704 past 2^32.
    stream.inputFrame(&frame, 0);
    EXPECT_EQ(time, 28u);
}

TEST_F(FlvPacket, AacTimeAddsWholeMilliseconds) {
    Video(file, Bytes(kKeyFrame));
    const uint32_t expected[] = {0, 23, 46, 69};  // 1024000 / 44100
    for (const uint32_t time : expected) {
        Aac(file, Bytes(kAdtsFrame), 0, 44100);
        if (time != 0) {
            EXPECT_EQ(LastTime(), time);
        }
        Video(file, Bytes("00 00 01 41 9A"), MX_SUB_P);
    }
    Aac(file, Bytes(kAdtsFrame), 0, 0);
    EXPECT_EQ(LastTime(), 92u);
    Aac(file, Bytes(kAdtsFrame), 0, 0);
    EXPECT_EQ(LastTime(), 92u);
}

TEST_F(FlvPacket, TheAacSoundByteFollowsTheBitDepthAlone) {
    Video(file, Bytes(kKeyFrame));
    for (const auto& [bits, sound] : {std::pair(16u, 0xAF), {0u, 0xAF}, {8u, 0xAD}}) {
        ByteVector data = Bytes(kAdtsFrame);
        MXFrameInfo frame = test::AudioFrame(data, MX_AUDIO_AAC);
        frame.bits_per_sample = bits;
        frame.channels = 1;
        file.inputFrame(&frame, 0);
        const ByteVector& last = sink.Last();
        EXPECT_EQ(last[last.size() - 10], sound) << bits;
    }
    file.createTailer(nullptr, 0);
    // audiosamplesize 8, stereo 0
    EXPECT_EQ(Slice(sink.Last(), 13 + 29 + 169, 9), Bytes("00") + Bytes(k8));
    EXPECT_EQ(Slice(sink.Last(), 13 + 29 + 169 + 9 + 8, 2), Bytes("01 00"));
}

TEST_F(FlvPacket, AnAdtsFrameShorterThanItsHeaderIsDropped) {
    Video(file, Bytes(kKeyFrame));
    const size_t blocks = sink.blocks.size();
    EXPECT_EQ(Aac(file, Bytes("FF F1 4C 80 01 7F"), 7), 0u);
    EXPECT_EQ(sink.blocks.size(), blocks);
    // It has not picked the channel; a header alone makes an empty tag.
    EXPECT_EQ(Aac(file, Bytes("FF F1 4C 80 01 7F FC"), 1), 0u);
    EXPECT_EQ(sink.Last(), Bytes("08 00 00 04 00 00 00 00 00 00 00  AF 00 09 90  00 00 00 0F"
                                 "08 00 00 02 00 00 00 00 00 00 00  AF 01  00 00 00 0D"));
}

TEST_F(FlvPacket, PcmTags) {
    struct Case {
        uint32_t codec, rate, bits, channels;
        const char* sound;
    };
    const Case cases[] = {{7, 5500, 8, 1, "30"},    {7, 11000, 8, 1, "34"},   {16, 22000, 16, 1, "3A"},
                          {16, 44000, 16, 2, "3F"}, {16, 11000, 16, 2, "37"}, {7, 44000, 8, 2, "3D"}};
    Video(file, Bytes(kKeyFrame));
    for (const Case& c : cases) {
        EXPECT_EQ(Pcm(file, Bytes("01 02 03"), c.rate, c.bits, c.channels, c.codec), 0u);
        EXPECT_EQ(Slice(sink.Last(), 0, 4), Bytes("08 00 00 04"));
        EXPECT_EQ(Slice(sink.Last(), 11, 8), Bytes(c.sound) + Bytes("01 02 03  00 00 00 0F"));
        Video(file, Bytes("00 00 01 41 9A"), MX_SUB_P);
    }
}

TEST_F(FlvPacket, PcmTimeLagsByAFrameAndStartsAgainBehindEachVideoFrame) {
    Video(file, Bytes(kKeyFrame));
    const uint32_t times[] = {0, 0, 100, 200};
    for (const uint32_t time : times) {
        Pcm(file, ByteVector(1100));  // 100 ms
        EXPECT_EQ(LastTime(), time);
    }
    Video(file, Bytes("00 00 01 41 9A"), MX_SUB_P);
    const uint32_t again[] = {300, 0, 100};
    for (const uint32_t time : again) {
        Pcm(file, ByteVector(1100));
        EXPECT_EQ(LastTime(), time);
    }
}

TEST_F(FlvPacket, AacCountsTowardsThePcmTimeWithoutItsHeader) {
    Video(file, Bytes(kKeyFrame));
    Aac(file, Bytes("FF F1 4C 80 8A 7F FC") + ByteVector(1100));
    const uint32_t times[] = {21, 100, 200};  // 1100 bytes are 100 ms
    for (const uint32_t time : times) {
        Pcm(file, ByteVector(1100));
        EXPECT_EQ(LastTime(), time);
    }
}

TEST_F(FlvPacket, TheMetadataDescribesTheLastAudioFrameThatWasTaken) {
    Video(file, Bytes(kKeyFrame));
    Aac(file, Bytes(kAdtsFrame), 1);
    ByteVector data = Bytes(kAdtsFrame);
    MXFrameInfo frame = test::AudioFrame(data, MX_AUDIO_AAC);
    frame.ma_cur_channel = 1;
    frame.samples_per_sec = 11000;
    frame.bits_per_sample = 8;
    frame.channels = 6;  // neither mono nor stereo: the word before stays
    file.inputFrame(&frame, 0);
    Aac(file, Bytes(kAdtsFrame), 2);
    file.createTailer(nullptr, 0);
    // 361 + 40 + 21 + 20 bytes
    EXPECT_EQ(Slice(sink.Last(), 13, 266),
              Metadata(k0_04, k1920, k1080, k25, k7, k11000, k8, "01", k10, "40 7B A0 00 00 00 00 00"));
}

TEST_F(FlvPacket, ThePcmFileAtItsEnd) {
    Video(file, Bytes(kKeyFrame));
    Pcm(file, Bytes("01 02 03"));
    file.createTailer(nullptr, 0);
    // 361 bytes with the key frame, 19 of audio, 20 of the end tag.
    EXPECT_EQ(sink.Last(), Bytes("46 4C 56 01 05 00 00 00 09 00 00 00 00") +
                               Metadata(k0_04, k1920, k1080, k25, k7, k11000, k8, "00", k3, "40 79 00 00 00 00 00 00"));
}

TEST_F(FlvPacket, AacBehindPcmHasNoSequenceHeader) {
    Video(file, Bytes(kKeyFrame));
    Pcm(file, Bytes("01"));
    Aac(file, Bytes(kAdtsFrame));
    EXPECT_EQ(sink.Last(), Bytes("08 00 00 06 00 00 00 00 00 00 00  AF 01 21 10 04 60  00 00 00 11"));
}

TEST_F(FlvPacket, WhatItTakes) {
    ByteVector data(4);
    const auto takes = [&](uint32_t type, uint32_t codec, uint32_t rate = 0, uint32_t bits = 0, uint32_t channels = 0) {
        MXFrameInfo frame = test::Frame(data, type, codec);
        frame.samples_per_sec = rate;
        frame.bits_per_sample = bits;
        frame.channels = channels;
        return file.checkFrame(&frame);
    };
    for (uint32_t codec = 0; codec < 256; ++codec) {
        EXPECT_EQ(takes(1, codec), codec == 2 || codec == 4) << codec;
        EXPECT_EQ(takes(2, codec), codec == 26) << codec;
        EXPECT_EQ(takes(2, codec, 11000, 16, 1), codec == 26 || codec == 7 || codec == 16) << codec;
        EXPECT_FALSE(takes(3, codec)) << codec;
    }
    for (const uint32_t rate : {5500u, 11000u, 22000u, 44000u})
        EXPECT_TRUE(takes(2, 16, rate, 8, 2)) << rate;
    for (const uint32_t rate : {0u, 5512u, 8000u, 11025u, 22050u, 44100u, 48000u})
        EXPECT_FALSE(takes(2, 16, rate, 8, 2)) << rate;
    EXPECT_FALSE(takes(2, 7, 11000, 24, 1));
    EXPECT_FALSE(takes(2, 7, 11000, 0, 1));
    EXPECT_FALSE(takes(2, 7, 11000, 8, 0));
    EXPECT_FALSE(takes(2, 7, 11000, 8, 3));
}

TEST_F(FlvPacket, RefusedFramesAndBadArguments) {
    EXPECT_EQ(file.inputFrame(nullptr, 0), 3u);
    EXPECT_EQ(Video(file, {}), 3u);
    ByteVector data(4);
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H265, MX_SUB_I);
    EXPECT_EQ(file.inputFrame(&frame, 0), 5u);
    frame.frame_pointer = nullptr;
    EXPECT_EQ(file.inputFrame(&frame, 0), 3u);
    frame = test::Frame(data, MX_FRAME_PRIVATE, 2);
    EXPECT_EQ(file.inputFrame(&frame, 0), 5u);
    frame.frame_type = 4;
    EXPECT_EQ(file.inputFrame(&frame, 0), 5u);
    EXPECT_EQ(Pcm(file, ByteVector(4), 44100), 5u);
    EXPECT_TRUE(sink.blocks.empty());
}

TEST_F(FlvPacket, ASinkThatTakesLessMovesTheNextTag) {
    sink.accept = {100, 0};
    Video(file, Bytes(kKeyFrame));
    Video(file, Bytes("00 00 01 41 9A"), MX_SUB_P);
    Video(file, Bytes("00 00 01 41 9A"), MX_SUB_P);
    EXPECT_EQ(sink.blocks[1].offset, 100);
    EXPECT_EQ(sink.blocks[2].offset, 100);
    // `filesize` is what was composed: 361 + 26 + 26 + 20.
    file.createTailer(nullptr, 0);
    EXPECT_EQ(Slice(sink.Last(), 264, 8), Bytes("40 7B 10 00 00 00 00 00"));
}

TEST_F(FlvPacket, TheTailResetsNothing) {
    Video(file, Bytes(kKeyFrame));
    file.createTailer(nullptr, 0);
    EXPECT_EQ(Video(file, Bytes("00 00 01 41 9A"), MX_SUB_P), 0u);
    EXPECT_EQ(sink.blocks.back().offset, 361 + 20);
    EXPECT_EQ(LastTime(), 40u);
    EXPECT_EQ(file.createTailer(nullptr, 0), 0u);
    const Sink::Block& end = sink.blocks[sink.blocks.size() - 2];
    EXPECT_EQ(end.offset, 361 + 20 + 26);
    EXPECT_EQ(Slice(end.data, 4, 3), Bytes("00 00 50"));
}

// A picture of one NAL unit behind a 4-byte start code, `size` bytes in all.
ByteVector Picture(size_t size, bool short_start_code = false) {
    ByteVector data(size, 0xAA);
    const ByteVector start = Bytes(short_start_code ? "00 00 01 41" : "00 00 00 01 41");
    std::copy(start.begin(), start.end(), data.begin());
    return data;
}

TEST_F(FlvPacket, AVideoFrameMustFitTheWorkBufferWithItsHeaders) {
    Video(file, Bytes(kKeyFrame));
    const size_t blocks = sink.blocks.size();
    const ByteVector before = sink.file;
    // 2 MiB less tag header, AVC header and PreviousTagSize.
    EXPECT_EQ(Video(file, Picture(2097133), MX_SUB_P), 3u);
    EXPECT_EQ(Video(file, Picture(2097132, true), MX_SUB_P), 3u);
    EXPECT_EQ(Video(file, Picture(4 << 20), MX_SUB_P), 3u);
    EXPECT_EQ(sink.blocks.size(), blocks);
    EXPECT_EQ(Video(file, Picture(2097131, true), MX_SUB_P), 0u);
    EXPECT_EQ(sink.Last().size(), 2097152u);
    EXPECT_EQ(LastTime(), 40u);
    EXPECT_EQ(Slice(sink.Last(), 16, 6), Bytes("00 1F FF E8 41 AA"));
    EXPECT_EQ(Slice(sink.Last(), 2097147, 5), Bytes("AA 00 1F FF FC"));
    EXPECT_EQ(Video(file, Picture(2097132), MX_SUB_P), 0u);
    EXPECT_EQ(sink.Last().size(), 2097152u);
    EXPECT_EQ(Video(file, Picture(2097032), MX_SUB_P), 0u);
    EXPECT_EQ(sink.Last().size(), 2097052u);
}

TEST_F(FlvPacket, AFirstKeyFrameThatDoesNotFitLeavesTheFileClosed) {
    // 13 + 266 + 31 bytes of head without parameter sets.
    EXPECT_EQ(Video(file, Picture(2096823)), 3u);
    EXPECT_EQ(Video(file, Bytes("00 00 01 41 9A"), MX_SUB_P), 0u);
    EXPECT_EQ(Aac(file, Bytes(kAdtsFrame)), 0u);
    EXPECT_TRUE(sink.blocks.empty());
    EXPECT_EQ(Video(file, Picture(2096822)), 0u);
    EXPECT_EQ(sink.Last().size(), 2097152u);
}

TEST_F(FlvPacket, AnAudioFrameMustFitTheWorkBufferWithItsHeaders) {
    Video(file, Bytes(kKeyFrame));
    const size_t blocks = sink.blocks.size();
    EXPECT_EQ(Pcm(file, ByteVector(2097137)), 3u);
    // An AAC sequence header takes 19 bytes more.
    const ByteVector header = Bytes("FF F1 4C 80 01 7F FC");
    EXPECT_EQ(Aac(file, header + ByteVector(2097117)), 3u);
    EXPECT_EQ(sink.blocks.size(), blocks);
    EXPECT_EQ(Aac(file, header + ByteVector(2097116)), 0u);
    EXPECT_EQ(sink.Last().size(), 2097152u);
    EXPECT_EQ(Aac(file, header + ByteVector(2097136)), 3u);
    EXPECT_EQ(Aac(file, header + ByteVector(2097135)), 0u);
    EXPECT_EQ(LastTime(), 21u);
    EXPECT_EQ(Pcm(file, ByteVector(2097136)), 0u);
    EXPECT_EQ(sink.Last().size(), 2097152u);
}

TEST_F(FlvPacket, AConversionMayGrowByAHundredBytes) {
    Video(file, Bytes(kKeyFrame));
    // 120 NAL units of one byte behind 3-byte start codes: 480 bytes, of which 116 units of five bytes fit in 580.
    ByteVector data;
    for (int i = 0; i < 120; ++i)
        data = data + Bytes("00 00 01 41");
    EXPECT_EQ(Video(file, data, MX_SUB_P), 0u);
    EXPECT_EQ(sink.Last().size(), 16u + 580 + 4);
}

TEST_F(FlvPacket, WithoutAWorkBufferNothingIsTaken) {
    MXCreateParam no_memory = param;
    no_memory.alloc = [](int32_t) -> void* { return nullptr; };
    no_memory.free = [](void*, uint32_t) { FAIL() << "nothing to release"; };
    CFlvPacket packet(MX_FORMAT_FLV, &no_memory);
    EXPECT_EQ(Video(packet, Bytes(kKeyFrame)), 4u);
    EXPECT_EQ(packet.createTailer(nullptr, 0), 4u);
    EXPECT_TRUE(sink.blocks.empty());
}

TEST_F(FlvPacket, TheWorkBufferIsTheCallersTwoMebibytes) {
    static uint32_t taken, released;
    taken = released = 0;
    MXCreateParam counted = param;
    counted.alloc = [](int32_t size) {
        taken += static_cast<uint32_t>(size);
        return std::malloc(static_cast<size_t>(size));
    };
    counted.free = [](void* buffer, uint32_t size) {
        released += size;
        std::free(buffer);
    };
    {
        const CFlvPacket packet(MX_FORMAT_FLV, &counted);
        EXPECT_EQ(taken, 2097152u);
    }
    EXPECT_EQ(released, 2097152u);
}

int32_t DropBlock(const MXOutputBlock* /*block*/, void* /*user*/) {
    return 0;
}

TEST_F(FlvPacket, ASteadyStreamDoesNotAllocate) {
    file.setCallback(DropBlock, nullptr);
    ByteVector picture = Picture(10000);
    ByteVector sound = Bytes(kAdtsFrame);
    MXFrameInfo video = test::VideoFrame(picture, MX_VIDEO_H264, MX_SUB_I);
    MXFrameInfo audio = test::AudioFrame(sound, MX_AUDIO_AAC);
    file.inputFrame(&video, 0);
    const test::AllocationCounter allocations;
    for (int i = 0; i < 1000; ++i) {
        file.inputFrame(&video, 0);
        file.inputFrame(&audio, 0);
    }
    EXPECT_EQ(allocations.Count(), 0u);
}

TEST_F(FlvPacket, BackupClearsTheBlock) {
    MXOutputBlock block{};
    block.data = &block;
    block.length = 77;
    block.seek_type = 1;
    block.offset32 = 5;
    EXPECT_EQ(file.getBackup(&block), 0u);
    const void* const bytes = block.data;
    EXPECT_EQ(bytes, nullptr);
    EXPECT_EQ(block.length, 0u);
    EXPECT_EQ(block.seek_type, 0u);
    EXPECT_EQ(block.offset32, 0u);
}

TEST_F(FlvPacket, Capacity) {
    struct Row {
        uint32_t codec, rate, bits, channels;
    };
    const auto expect = [](const void* table, uint32_t count, std::initializer_list<Row> rows) {
        ASSERT_EQ(count, rows.size());
        const auto* entry = static_cast<const MXCapacityEntry*>(table);
        for (const Row& row : rows) {
            EXPECT_EQ(entry->codec, row.codec);
            EXPECT_EQ(entry->samples_per_sec, row.rate);
            EXPECT_EQ(entry->bits_per_sample, row.bits);
            EXPECT_EQ(entry->channels, row.channels);
            ++entry;
        }
    };
    const void* table = nullptr;
    uint32_t count = 0;
    EXPECT_EQ(file.getEncodeCapacity(0, &table, &count), 0u);
    expect(table, count, {{4, 0, 0, 0}});
    EXPECT_EQ(file.getEncodeCapacity(1, &table, &count), 0u);
    expect(table, count, {{26, 0, 0, 0}, {7, 11000, 8, 1}, {16, 11000, 8, 1}});
    EXPECT_EQ(file.getCodecCapacity(0, &table, &count), 0u);
    expect(table, count, {{2, 0, 0, 0}});
    EXPECT_EQ(file.getCodecCapacity(1, &table, &count), 0u);
    expect(table, count, {{33, 0, 0, 0}, {21, 11000, 8, 1}, {30, 11000, 8, 1}});
    EXPECT_EQ(file.getCodecCapacity(2, &table, &count), 3u);
    EXPECT_EQ(file.getEncodeCapacity(0, nullptr, &count), 3u);
    EXPECT_EQ(file.getEncodeCapacity(0, &table, nullptr), 3u);
}

}  // namespace
}  // namespace Orvane::Muxora
