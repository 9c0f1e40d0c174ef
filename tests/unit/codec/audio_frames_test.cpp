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

TEST(MeasureAudio, MpegAudioIsAskedItself) {
    // MPEG-1 layer III, 128 kbit/s, 44100 Hz, mono: 417 bytes, then one of 418.
    ByteVector two(417 + 418);
    const ByteVector plain = Bytes("FF FB 90 C4");
    const ByteVector padded = Bytes("FF FB 92 C4");
    std::copy(plain.begin(), plain.end(), two.begin());
    std::copy(padded.begin(), padded.end(), two.begin() + 417);
    const AudioMeasure measure = MeasureAudio(test::AudioFrame(two, MX_AUDIO_MPEG));
    EXPECT_EQ(measure.samples, 2304u);
    EXPECT_EQ(measure.sample_rate, 44100u);
    EXPECT_EQ(measure.channels, 1u);
    ByteVector noise(300, 0x55);
    EXPECT_EQ(MeasureAudio(test::AudioFrame(noise, MX_AUDIO_MPEG)).samples, 0u);
    EXPECT_EQ(MeasureAudio(test::AudioFrame(noise, MX_AUDIO_AAC)).samples, 1024u);
}

TEST(SamplingFrequencyIndex, OfRates) {
    EXPECT_EQ(SamplingFrequencyIndex(96000), 0);
    EXPECT_EQ(SamplingFrequencyIndex(44100), 4);
    EXPECT_EQ(SamplingFrequencyIndex(7350), 12);
    EXPECT_EQ(SamplingFrequencyIndex(44000), 15);
}

// What a frame does not say is 8000 Hz for speech, 48000 for others, and one channel.
TEST(MeasureAudio, WhatIsNotStated) {
    ByteVector bytes(320, 0x55);
    const auto measure = [&](uint32_t codec, uint32_t rate, uint32_t channels) {
        MXFrameInfo frame = test::AudioFrame(bytes, codec);
        frame.samples_per_sec = rate;
        frame.channels = channels;
        return MeasureAudio(frame);
    };
    for (const uint32_t codec : {MX_AUDIO_ALAW, MX_AUDIO_MULAW, MX_AUDIO_MULAW_ALT, MX_AUDIO_PCM8}) {
        EXPECT_EQ(measure(codec, 0, 0).sample_rate, 8000u) << codec;
        EXPECT_EQ(measure(codec, 0, 0).channels, 1u) << codec;
        EXPECT_EQ(measure(codec, 0, 0).samples, 320u) << codec;
        EXPECT_EQ(measure(codec, 16000, 2).samples, 160u) << codec;
    }
    EXPECT_EQ(measure(MX_AUDIO_PCM16, 16000, 2).samples, 80u);
    const AudioMeasure other = measure(MX_AUDIO_WAVE_TAG_2, 0, 0);
    EXPECT_EQ(other.samples, 0u);
    EXPECT_EQ(other.sample_rate, 48000u);
    EXPECT_EQ(other.channels, 1u);
}

}  // namespace
}  // namespace Orvane::Muxora
