#include "ovx/ovx_extension.h"

#include <gtest/gtest.h>

#include <array>

#include "support/frames.h"
#include "support/hex.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::operator+;

const ByteVector kCheck = Bytes("88 00 00 00 00 00 00 02");  // the data check, its value not set

class OvxExtension : public testing::Test {
  protected:
    ByteVector Video(uint32_t sub_type = MX_SUB_I, bool encrypted = false) {
        frame.frame_type = MX_FRAME_VIDEO;
        frame.frame_sub_type = sub_type;
        frame.encode_type = video.encode_type;
        return Built(encrypted);
    }
    ByteVector Audio(bool encrypted = false) {
        frame.frame_type = MX_FRAME_AUDIO;
        return Built(encrypted);
    }
    ByteVector Built(bool encrypted) {
        extension.Build(frame, video, audio, encrypted, 0);
        return {extension.Data(), extension.Data() + extension.Size()};
    }
    ByteVector ImageSize(uint32_t width, uint32_t height) {
        video.width = width;
        video.height = height;
        const ByteVector block = Video();
        return test::Slice(block, 0, block.size() - 12);  // PlayBack and DataCheck follow
    }
    void Split(uint32_t columns, uint32_t rows) {
        frame.has_blocks = 1;
        frame.n_slice = columns;
        frame.m_slice = rows;
        frame.blocks = blocks.data();
    }

    MXFrameInfo frame{};
    OvxVideoInfo video{true, MX_VIDEO_H264, 0, 1920, 1080, 25};
    OvxAudioInfo audio{true, MX_AUDIO_AAC, 2, 48000, 16, 0};
    std::array<MXBlockInfo, 16> blocks{};
    COvxExtension extension;
};

TEST_F(OvxExtension, KeyFrame) {
    EXPECT_EQ(Video(), Bytes("80 02 F0 87  81 00 02 19") + kCheck);
}

TEST_F(OvxExtension, ImageSizeShortForm) {
    EXPECT_EQ(ImageSize(1920, 1080), Bytes("80 02 F0 87"));
    EXPECT_EQ(ImageSize(1000, 1000), Bytes("80 02 7D 7D"));
    EXPECT_EQ(ImageSize(2040, 2040), Bytes("80 02 FF FF"));
    EXPECT_EQ(ImageSize(0, 0), Bytes("80 02 00 00"));
}

TEST_F(OvxExtension, ImageSizeLongForm) {
    EXPECT_EQ(ImageSize(2048, 1080), Bytes("82 02 00 00 00 08 38 04"));
    EXPECT_EQ(ImageSize(1080, 2048), Bytes("82 02 00 00 38 04 00 08"));
    EXPECT_EQ(ImageSize(1002, 1000), Bytes("82 02 00 00 EA 03 E8 03"));
    EXPECT_EQ(ImageSize(1000, 1002), Bytes("82 02 00 00 E8 03 EA 03"));
    EXPECT_EQ(ImageSize(0x12345, 8), Bytes("82 02 00 00 45 23 08 00"));
}

TEST_F(OvxExtension, ScanByteIsTwoMinusDeinterlace) {
    video.deinterlace = 1;
    EXPECT_EQ(ImageSize(640, 480), Bytes("80 01 50 3C"));
    EXPECT_EQ(ImageSize(2048, 480), Bytes("82 01 00 00 00 08 E0 01"));
    video.deinterlace = 3;
    EXPECT_EQ(ImageSize(640, 480), Bytes("80 FF 50 3C"));
}

TEST_F(OvxExtension, WhichPicturesCarryTheirFormat) {
    const ByteVector with = Bytes("80 02 F0 87  81 00 02 19") + kCheck;
    for (const uint32_t sub_type : {0u, 18u, 19u, 20u})
        EXPECT_EQ(Video(sub_type), with) << sub_type;
    for (const uint32_t sub_type : {1u, 2u, 3u, 8u, 4u, 17u, 21u, 0xFFFFFFFFu})
        EXPECT_EQ(Video(sub_type), kCheck) << sub_type;
    video.encode_type = MX_VIDEO_MJPEG;
    for (const uint32_t sub_type : {0u, 1u, 2u, 8u, 77u})
        EXPECT_EQ(Video(sub_type), Bytes("80 02 F0 87  81 00 05 19") + kCheck) << sub_type;
}

TEST_F(OvxExtension, PlayBackCodecByte) {
    const auto codec_byte = [&](uint32_t encode_type) {
        video.encode_type = encode_type;
        return Video()[6];
    };
    EXPECT_EQ(codec_byte(1), 1);
    EXPECT_EQ(codec_byte(2), 2);
    EXPECT_EQ(codec_byte(3), 5);
    EXPECT_EQ(codec_byte(4), 8);
    EXPECT_EQ(codec_byte(9), 9);
    EXPECT_EQ(codec_byte(11), 11);
    EXPECT_EQ(codec_byte(12), 12);
    EXPECT_EQ(codec_byte(35), 13);
    EXPECT_EQ(codec_byte(129), 14);
    EXPECT_EQ(codec_byte(8), 0);
    EXPECT_EQ(codec_byte(77), 0);
}

TEST_F(OvxExtension, PlayBackKeepsTheLowByteOfTheRate) {
    video.frame_rate = 0x1F0;
    EXPECT_EQ(Video()[7], 0xF0);
}

TEST_F(OvxExtension, AudioFormat) {
    EXPECT_EQ(Audio(), Bytes("83 02 1A 09") + kCheck);
    audio = {true, 0x10E, 0x101, 8000, 16, 0};
    EXPECT_EQ(Audio(), Bytes("83 01 0E 02") + kCheck);
}

TEST_F(OvxExtension, AudioFormatWithABitRate) {
    audio.bitrate = 64000;
    EXPECT_EQ(Audio(), Bytes("83 02 1A 09  8C 08 02 1A 09 0A 00 00") + kCheck);
    audio.bitrate = 65000;
    EXPECT_EQ(Audio(), Bytes("83 02 1A 09  8C 08 02 1A 09 00 00 00") + kCheck);
}

TEST_F(OvxExtension, SampleRateIndex) {
    const uint32_t rates[] = {0, 4000, 8000, 11025, 16000, 20000, 22050, 32000, 44100, 48000};
    for (uint8_t i = 0; i < 10; ++i) {
        audio.samples_per_sec = rates[i];
        EXPECT_EQ(Audio()[3], i);
    }
    for (const uint32_t rate : {12000u, 1u, 96000u, 47999u}) {
        audio.samples_per_sec = rate;
        EXPECT_EQ(Audio()[3], 0) << rate;
    }
}

TEST_F(OvxExtension, BitRateIndex) {
    const uint32_t rates[] = {0,     16000, 32000,  5300,   6300,   8000,   24000,  40000,  48000,  56000,  64000,
                              80000, 96000, 112000, 128000, 144000, 160000, 192000, 224000, 256000, 320000, 384000};
    for (uint8_t i = 1; i < 22; ++i) {
        audio.bitrate = rates[i];
        EXPECT_EQ(Audio()[9], i);
    }
    audio.bitrate = 384001;
    EXPECT_EQ(Audio()[9], 0);
}

TEST_F(OvxExtension, APredictedPictureHasTheDataCheckOnly) {
    EXPECT_EQ(Video(MX_SUB_P).size(), 8u);
}

TEST_F(OvxExtension, CheckValueIsLittleEndian) {
    Video();
    extension.SetCheckValue(0xA1B2C3D4);
    EXPECT_EQ(ByteVector(extension.Data(), extension.Data() + extension.Size()),
              Bytes("80 02 F0 87  81 00 02 19  88 D4 C3 B2 A1 00 00 02"));
    Video(MX_SUB_P);
    extension.SetCheckValue(1);
    EXPECT_EQ(ByteVector(extension.Data(), extension.Data() + extension.Size()), Bytes("88 01 00 00 00 00 00 02"));
}

TEST_F(OvxExtension, Encrypt) {
    frame.encrypt_offset = 0x1234;
    frame.encrypt_length = 0x56789ABC;
    EXPECT_EQ(Video(MX_SUB_P, true), kCheck + Bytes("95 00 34 12 BC 9A 00 00"));
    EXPECT_EQ(Audio(true), Bytes("83 02 1A 09") + kCheck + Bytes("95 00 34 12 BC 9A 00 00"));
    EXPECT_EQ(Video(MX_SUB_P, false), kCheck);
}

TEST_F(OvxExtension, SplitInfo) {
    blocks[0] = {0, 0, 960, 540, 0, 0};
    blocks[1] = {960, 0, 1920, 540, 0x01020304, 0};
    Split(2, 1);
    EXPECT_EQ(Video(MX_SUB_P), kCheck + Bytes("99 02 01 80 07 38 04 00"
                                              "00 00 00 00 C0 03 1C 02 00 00 00 00 00 00 00 00"
                                              "C0 03 00 00 80 07 1C 02 04 03 02 01 00 00 00 00"));
}

TEST_F(OvxExtension, SplitInfoWithoutBlocks) {
    Split(0, 5);
    frame.blocks = nullptr;
    EXPECT_EQ(Video(MX_SUB_P), kCheck + Bytes("99 00 05 80 07 38 04 00"));
    Split(2, 1);
    frame.blocks = nullptr;
    EXPECT_EQ(Video(MX_SUB_P), kCheck);
    Split(2, 1);
    frame.has_blocks = 0;
    EXPECT_EQ(Video(MX_SUB_P), kCheck);
}

TEST_F(OvxExtension, FifteenBlocksFillTheStore) {
    Split(5, 3);
    blocks[14].reserved = 0xFFFFFFFF;
    const ByteVector block = Video(MX_SUB_P);
    ASSERT_EQ(block.size(), 256u);
    EXPECT_EQ(test::Slice(block, 8, 8), Bytes("99 05 03 80 07 38 04 00"));
    EXPECT_EQ(test::Slice(block, 252, 4), Bytes("FF FF FF FF"));
    // On a key frame they no longer fit; what comes behind them does.
    frame.tp_company_type = 7;
    EXPECT_EQ(Video(MX_SUB_I), Bytes("80 02 F0 87  81 00 02 19") + kCheck + Bytes("92 00 07 00 00 00 00 00"));
}

TEST_F(OvxExtension, SixteenBlocksAndMoreAreLeftOut) {
    frame.svc_head_0 = 1;
    const ByteVector without = kCheck + Bytes("94 01 00 00");
    Split(4, 4);  // 8 + 256: a length of 8 in one byte
    EXPECT_EQ(Video(MX_SUB_P), without);
    Split(16, 2);
    EXPECT_EQ(Video(MX_SUB_P), without);
    Split(0x10000, 0x10000);  // 0 in 32 bits
    EXPECT_EQ(Video(MX_SUB_P), without);
    Split(0xFFFFFFFF, 0xFFFFFFFF);
    EXPECT_EQ(Video(MX_SUB_P), without);
}

TEST_F(OvxExtension, RotationInfo) {
    frame.rotation_angle = 90;
    EXPECT_EQ(Video(MX_SUB_I), Bytes("80 02 F0 87  81 00 02 19") + kCheck + Bytes("8B 5A 00 00"));
    EXPECT_EQ(Video(MX_SUB_P), kCheck);
    EXPECT_EQ(Video(MX_SUB_LAYERED_KEY), Bytes("80 02 F0 87  81 00 02 19") + kCheck);
    frame.frame_sub_type = 0;
    EXPECT_EQ(Audio(), Bytes("83 02 1A 09") + kCheck + Bytes("8B 5A 00 00"));
    frame.rotation_angle = 270;
    EXPECT_EQ(Audio(), Bytes("83 02 1A 09") + kCheck + Bytes("8B 0E 00 00"));
}

TEST_F(OvxExtension, CompanyType) {
    frame.tp_company_type = 0x0102;
    frame.tp_stream_header_len = 0x0304;
    EXPECT_EQ(Video(MX_SUB_P), kCheck + Bytes("92 00 02 01 04 03 00 00"));
    frame.tp_company_type = 0;
    EXPECT_EQ(Video(MX_SUB_P), kCheck);
}

TEST_F(OvxExtension, MultiChannel) {
    frame.ma_cur_channel = 5;
    frame.ma_total_channels = 1;
    EXPECT_EQ(Video(MX_SUB_P), kCheck);
    frame.ma_total_channels = 2;
    EXPECT_EQ(Video(MX_SUB_P), kCheck + Bytes("96 02 05 00"));
}

TEST_F(OvxExtension, SvcHead) {
    frame.svc_head_1 = 9;
    EXPECT_EQ(Video(MX_SUB_P), kCheck);
    frame.svc_head_0 = 8;
    EXPECT_EQ(Video(MX_SUB_P), kCheck + Bytes("94 08 09 00"));
}

TEST_F(OvxExtension, AllRecordsInTheirOrder) {
    Split(1, 1);
    frame.encrypt_length = 16;
    frame.rotation_angle = 1;
    frame.tp_company_type = 2;
    frame.ma_total_channels = 3;
    frame.svc_head_0 = 4;
    EXPECT_EQ(Video(MX_SUB_I, true),
              Bytes("80 02 F0 87  81 00 02 19") + kCheck +
                  Bytes("95 00 00 00 10 00 00 00"
                        "99 01 01 80 07 38 04 00  00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"
                        "8B 01 00 00  92 00 02 00 00 00 00 00  96 03 00 00  94 04 00 00"));
}

TEST_F(OvxExtension, ARecordWithoutRoomIsLeftOutAndTheNextMayFit) {
    Split(14, 1);  // 16 + 232 bytes
    frame.rotation_angle = 1;
    frame.tp_company_type = 2;
    frame.ma_total_channels = 3;
    frame.svc_head_0 = 4;
    const ByteVector block = Video(MX_SUB_I);
    ASSERT_EQ(block.size(), 256u);
    EXPECT_EQ(test::Slice(block, 248, 8), Bytes("8B 01 00 00  96 03 00 00"));
}

}  // namespace
}  // namespace Orvane::Muxora
