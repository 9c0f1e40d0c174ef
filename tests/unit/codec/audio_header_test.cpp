#include "codec/audio_header.h"

#include <gtest/gtest.h>

#include "support/hex.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;

TEST(AdtsHeader, LcStereo) {
    // AAC LC, 44.1 kHz, two channels, 10 bytes in all.
    const auto header = ReadAdtsHeader(Bytes("FF F1 50 80 01 5F FC 21 10 04"));
    ASSERT_TRUE(header);
    EXPECT_EQ(header->header_size, 7u);
    EXPECT_EQ(header->frame_size, 10u);
    EXPECT_EQ(header->object_type, 2);
    EXPECT_EQ(header->sample_rate, 44100u);
    EXPECT_EQ(header->channel_configuration, 2);
    EXPECT_EQ(header->samples, 1024u);
    EXPECT_EQ(header->AudioSpecificConfig(), 0x1210);
}

TEST(AdtsHeader, MonoAt48WithCrc) {
    const auto header = ReadAdtsHeader(Bytes("FF F0 4C 40 01 7F FC AA BB 21 10 04"));
    ASSERT_TRUE(header);
    EXPECT_EQ(header->header_size, 9u);
    EXPECT_EQ(header->frame_size, 11u);
    EXPECT_EQ(header->sample_rate, 48000u);
    EXPECT_EQ(header->AudioSpecificConfig(), 0x1188);
}

TEST(AdtsHeader, SeveralBlocks) {
    const auto header = ReadAdtsHeader(Bytes("FF F9 50 80 01 1F FE 21"));
    ASSERT_TRUE(header);
    EXPECT_EQ(header->samples, 3072u);
}

TEST(AdtsHeader, None) {
    EXPECT_FALSE(ReadAdtsHeader({}));
    EXPECT_FALSE(ReadAdtsHeader(Bytes("FF F1 50 80 01 5F")));
    EXPECT_FALSE(ReadAdtsHeader(Bytes("FF F1 50 80 01 5F FC 21 10")));     // one byte is missing
    EXPECT_FALSE(ReadAdtsHeader(Bytes("FF F1 50 80 00 DF FC 21 10 04")));  // shorter than its header
    EXPECT_FALSE(ReadAdtsHeader(Bytes("FF F3 50 80 01 5F FC 21 10 04")));  // a layer
    EXPECT_FALSE(ReadAdtsHeader(Bytes("FF F1 74 80 01 5F FC 21 10 04")));  // no such frequency
}

TEST(MpegAudioHeader, Layers) {
    const auto mp3 = ReadMpegAudioHeader(Bytes("FF FB 90 64"));
    ASSERT_TRUE(mp3);
    EXPECT_EQ(mp3->layer, 3u);
    EXPECT_EQ(mp3->sample_rate, 44100u);
    EXPECT_EQ(mp3->bitrate, 128000u);
    EXPECT_EQ(mp3->channels, 2u);
    EXPECT_EQ(mp3->samples, 1152u);

    const auto mp2 = ReadMpegAudioHeader(Bytes("FF FD 84 C4"));
    ASSERT_TRUE(mp2);
    EXPECT_EQ(mp2->layer, 2u);
    EXPECT_EQ(mp2->sample_rate, 48000u);
    EXPECT_EQ(mp2->bitrate, 128000u);
    EXPECT_EQ(mp2->channels, 1u);
    EXPECT_EQ(mp2->samples, 1152u);

    const auto low = ReadMpegAudioHeader(Bytes("FF F3 40 C4"));  // MPEG-2 layer III, 22050 Hz, 32 kbit/s
    ASSERT_TRUE(low);
    EXPECT_EQ(low->sample_rate, 22050u);
    EXPECT_EQ(low->bitrate, 32000u);
    EXPECT_EQ(low->samples, 576u);

    const auto layer1 = ReadMpegAudioHeader(Bytes("FF FF C8 04"));
    ASSERT_TRUE(layer1);
    EXPECT_EQ(layer1->layer, 1u);
    EXPECT_EQ(layer1->sample_rate, 32000u);
    EXPECT_EQ(layer1->bitrate, 384000u);
    EXPECT_EQ(layer1->samples, 384u);
}

TEST(MpegAudioHeader, None) {
    EXPECT_FALSE(ReadMpegAudioHeader(Bytes("FF FB 90")));
    EXPECT_FALSE(ReadMpegAudioHeader(Bytes("FE FB 90 64")));
    EXPECT_FALSE(ReadMpegAudioHeader(Bytes("FF EB 90 64")));  // reserved version
    EXPECT_FALSE(ReadMpegAudioHeader(Bytes("FF F9 90 64")));  // reserved layer
    EXPECT_FALSE(ReadMpegAudioHeader(Bytes("FF FB 00 64")));  // free format
    EXPECT_FALSE(ReadMpegAudioHeader(Bytes("FF FB 9C 64")));  // reserved rate
}

}  // namespace
}  // namespace Orvane::Muxora
