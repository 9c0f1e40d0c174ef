#include "codec/audio_frames.h"

#include <gtest/gtest.h>

#include "support/frames.h"
#include "support/hex.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::operator+;

// AAC LC, 44100 Hz, stereo, 9 bytes: a header and two of payload.
const ByteVector kAdts = Bytes("FF F1 50 80 01 3F FC AA BB");

TEST(AdtsHeader, Fields) {
    const auto header = ReadAdtsHeader(kAdts.data(), 9);
    ASSERT_TRUE(header);
    EXPECT_EQ(header->object_type, 2);
    EXPECT_EQ(header->sampling_index, 4);
    EXPECT_EQ(header->sample_rate, 44100u);
    EXPECT_EQ(header->channels, 2);
    EXPECT_EQ(header->header_size, 7u);
    EXPECT_EQ(header->frame_length, 9u);
    EXPECT_EQ(header->samples, 1024u);
    // object type 2 (00010), index 4 (0100), channels 2 (0010), 000
    EXPECT_EQ(AudioSpecificConfig(*header), (std::array<uint8_t, 2>{0x12, 0x10}));
}

TEST(AdtsHeader, RefusesWhatIsCutOffOrNotOne) {
    EXPECT_FALSE(ReadAdtsHeader(kAdts.data(), 8));
    EXPECT_FALSE(ReadAdtsHeader(kAdts.data(), 6));
    EXPECT_FALSE(ReadAdtsHeader(nullptr, 9));
    ByteVector other = kAdts;
    other[1] = 0xFB;  // layer III
    EXPECT_FALSE(ReadAdtsHeader(other.data(), 9));
    other = kAdts;
    other[2] = 0x74;  // a reserved sampling frequency
    EXPECT_FALSE(ReadAdtsHeader(other.data(), 9));
}

TEST(MpegAudioHeader, LayersAndVersions) {
    const auto read = [](const ByteVector& bytes) { return ReadMpegAudioHeader(bytes.data(), 4); };
    const auto layer2 = read(Bytes("FF FD 84 04"));  // MPEG-1 layer II, 128 kbit/s, 48000 Hz
    ASSERT_TRUE(layer2);
    EXPECT_EQ(layer2->layer, 2);
    EXPECT_EQ(layer2->samples, 1152u);
    EXPECT_EQ(layer2->sample_rate, 48000u);
    EXPECT_EQ(layer2->frame_length, 384u);
    const auto layer3 = read(Bytes("FF FB 92 C4"));  // MPEG-1 layer III, 128 kbit/s, 44100 Hz, padded, mono
    ASSERT_TRUE(layer3);
    EXPECT_EQ(layer3->layer, 3);
    EXPECT_EQ(layer3->frame_length, 418u);
    EXPECT_EQ(layer3->channels, 1);
    const auto low = read(Bytes("FF F3 80 00"));  // MPEG-2 layer III, 64 kbit/s, 22050 Hz
    ASSERT_TRUE(low);
    EXPECT_EQ(low->sample_rate, 22050u);
    EXPECT_EQ(low->samples, 576u);
    EXPECT_EQ(low->frame_length, 208u);
    EXPECT_FALSE(read(Bytes("FF FB 02 00")));  // free format
    EXPECT_FALSE(read(Bytes("FF FB 9C 00")));  // a reserved rate
    EXPECT_FALSE(read(Bytes("FF F1 50 80")));  // ADTS
}

TEST(MeasureAudio, SamplesAndRateOfTheFrame) {
    ByteVector two = kAdts + kAdts;
    MXFrameInfo frame = test::AudioFrame(two, MX_AUDIO_AAC);
    AudioMeasure measure = MeasureAudio(frame);
    EXPECT_EQ(measure.samples, 2048u);
    EXPECT_EQ(measure.sample_rate, 44100u);

    ByteVector pcm(1920);
    frame = test::AudioFrame(pcm, MX_AUDIO_PCM16);
    EXPECT_EQ(MeasureAudio(frame).samples, 480u);
    frame.encode_type = MX_AUDIO_ALAW;
    frame.channels = 0;
    frame.samples_per_sec = 0;
    measure = MeasureAudio(frame);
    EXPECT_EQ(measure.samples, 1920u);
    EXPECT_EQ(measure.sample_rate, 8000u);
    EXPECT_EQ(measure.channels, 1u);
}

}  // namespace
}  // namespace Orvane::Muxora
