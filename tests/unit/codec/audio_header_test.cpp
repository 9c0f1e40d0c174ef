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

// Table 1.18 of ISO/IEC 14496-3: indices 13 and 14 are reserved, 15 has no place in ADTS.
TEST(AdtsHeader, EachFrequency) {
    const uint32_t frequencies[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                    22050, 16000, 12000, 11025, 8000,  7350};
    for (uint32_t index = 0; index < 16; ++index) {
        SCOPED_TRACE(index);
        const auto second = static_cast<uint8_t>(0x40 | index << 2);
        const auto header = ReadAdtsFields(ByteVector{0xFF, 0xF1, second, 0x80, 0x01, 0x1F, 0xFC});
        ASSERT_EQ(header.has_value(), index < 13);
        if (!header) continue;
        EXPECT_EQ(header->sample_rate, frequencies[index]);
        EXPECT_EQ(header->frequency_index, index);
        EXPECT_EQ(SamplingFrequencyIndex(frequencies[index]), index);
    }
    for (const uint32_t none : {0u, 1u, 7351u, 96001u})
        EXPECT_EQ(SamplingFrequencyIndex(none), 15) << none;
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

// The bit rates of ISO/IEC 11172-3 2.4.2.3 and 13818-3 2.4.2.3, in kbit/s, and the lengths of 11172-3 2.4.3.1.
TEST(MpegAudioHeader, EachBitRate) {
    struct Row {
        uint8_t id;  // the header's second byte
        uint32_t rate;
        uint32_t samples;
        uint32_t slot;
        uint32_t bitrates[14];
    };
    const Row rows[] = {
        {0xFF, 44100, 384, 4, {32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448}},
        {0xFD, 44100, 1152, 1, {32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384}},
        {0xFB, 44100, 1152, 1, {32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320}},
        {0xF7, 22050, 384, 4, {32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256}},
        {0xF5, 22050, 1152, 1, {8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160}},
        {0xF3, 22050, 576, 1, {8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160}},
        {0xE3, 11025, 576, 1, {8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160}},  // MPEG-2.5
    };
    for (const Row& row : rows) {
        for (uint32_t index = 0; index < 16; ++index) {
            for (const uint32_t padding : {0u, 1u}) {
                SCOPED_TRACE(testing::Message() << int{row.id} << " " << index << " " << padding);
                const auto third = static_cast<uint8_t>(index << 4 | padding << 1);
                const auto header = ReadMpegAudioHeader(ByteVector{0xFF, row.id, third, 0x00});
                ASSERT_EQ(header.has_value(), index != 0 && index != 15);
                if (!header) continue;
                const uint32_t bitrate = row.bitrates[index - 1] * 1000;
                EXPECT_EQ(header->bitrate, bitrate);
                EXPECT_EQ(header->sample_rate, row.rate);
                EXPECT_EQ(header->samples, row.samples);
                // Whole slots that fit into the time of the samples, and one more with padding.
                const auto slots = uint64_t{row.samples} * bitrate / (uint64_t{row.rate} * 8 * row.slot);
                EXPECT_EQ(header->frame_size, (slots + padding) * row.slot);
            }
        }
    }
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
