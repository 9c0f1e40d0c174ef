#include "codec/audio_measures.h"

#include <gtest/gtest.h>

#include <memory>

#include "support/frames.h"
#include "support/hex.h"
#include "support/noise.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::operator+;

// A frame of `length` bytes with a header FF F1 that states them.
ByteVector Adts(uint32_t length, uint8_t second = 0xF1) {
    ByteVector frame(length, 0x21);
    const ByteVector header = {0xFF,
                               second,
                               0x50,
                               static_cast<uint8_t>(0x80 | length >> 11),
                               static_cast<uint8_t>(length >> 3),
                               static_cast<uint8_t>((length & 7) << 5 | 0x1F),
                               0xFC};
    std::copy(header.begin(), header.end(), frame.begin());
    return frame;
}

double Duration(ByteVector data, uint32_t encode_type, uint32_t rate) {
    MXFrameInfo frame = test::AudioFrame(data, encode_type);
    frame.samples_per_sec = rate;
    return GetAudioFrameDuration(frame);
}

struct MpegCount {
    uint32_t frames = 0;
    uint32_t nVersionID = 77;
    uint32_t nLayerID = 77;
};

MpegCount CountMpeg(const ByteVector& data, uint32_t rate) {
    const auto block = std::make_unique<uint8_t[]>(data.size());
    std::copy(data.begin(), data.end(), block.get());
    MpegCount count;
    count.frames =
        CountMpegAudioFrames(block.get(), static_cast<uint32_t>(data.size()), rate, &count.nVersionID, &count.nLayerID);
    return count;
}

uint32_t CountAdts(const ByteVector& data) {
    const auto block = std::make_unique<uint8_t[]>(data.size());
    std::copy(data.begin(), data.end(), block.get());
    return CountAdtsFrames(block.get(), static_cast<uint32_t>(data.size()));
}

// A frame of MPEG-1 Layer II at 192 kbit/s and 48000 Hz: 576 bytes.
ByteVector LayerTwo(uint8_t second = 0xFD) {
    ByteVector frame(576, 0x33);
    frame[0] = 0xFF;
    frame[1] = second;
    frame[2] = 0xA4;
    return frame;
}

TEST(AudioDuration, Pcm) {
    EXPECT_EQ(Duration(ByteVector(320), 16, 8000), 20.0);
    EXPECT_EQ(Duration(ByteVector(320), 7, 8000), 40.0);
    EXPECT_EQ(Duration(ByteVector(320), 14, 8000), 40.0);
    EXPECT_EQ(Duration(ByteVector(320), 22, 8000), 40.0);
    EXPECT_DOUBLE_EQ(Duration(ByteVector(100), 14, 44100), 100000.0 / 44100.0);
}

TEST(AudioDuration, Aac) {
    EXPECT_EQ(Duration(Adts(100) + Adts(100), 26, 8000), 256.0);
    EXPECT_DOUBLE_EQ(Duration(Adts(341), 26, 44100), 1024000.0 / 44100.0);
}

TEST(AudioDuration, MpegAudio) {
    EXPECT_EQ(Duration(LayerTwo() + LayerTwo(), 31, 48000), 48.0);
}

TEST(AudioDuration, NothingToMeasure) {
    EXPECT_EQ(Duration(ByteVector(320), 16, 0), 0.0);
    EXPECT_EQ(Duration(Adts(100), 26, 0), 0.0);
    EXPECT_EQ(Duration(ByteVector(320), 10, 8000), 0.0);
    EXPECT_EQ(Duration(ByteVector(320), 31, 48000), 0.0);
    EXPECT_EQ(Duration(ByteVector(320), 26, 48000), 0.0);
}

TEST(AudioDuration, TheProductsWrapAt32Bits) {
    ByteVector data(1);
    MXFrameInfo frame = test::AudioFrame(data, 14);
    frame.frame_size = 4294968;  // times 1000 is 704 above 2^32
    frame.samples_per_sec = 1000;
    EXPECT_EQ(GetAudioFrameDuration(frame), 0.704);
}

TEST(AdtsFrames, AreCountedByTheirLengths) {
    EXPECT_EQ(CountAdts(Adts(100) + Adts(100)), 2u);
    EXPECT_EQ(CountAdts(Adts(8191)), 1u);
    // A sync pattern inside a frame is not seen.
    ByteVector frame = Adts(100);
    frame[50] = 0xFF;
    frame[51] = 0xF1;
    EXPECT_EQ(CountAdts(frame + Adts(100)), 2u);
    EXPECT_EQ(CountAdts(Bytes("00 FF 12") + Adts(100)), 1u);
    EXPECT_EQ(AdtsFrameLength(Adts(5000).data()), 5000u);
}

TEST(AdtsPayload, IsTheFirstFrameBehindItsHeader) {
    const ByteVector data = Bytes("FF F1 50 80 01 7F FC 11 22 33 44 FF F1 50 80");
    const std::span<const uint8_t> payload = AdtsPayload(data.data(), static_cast<uint32_t>(data.size()));
    EXPECT_EQ(payload.data(), data.data() + 7);
    EXPECT_EQ(payload.size(), 4u);
    // Neither the ID bit nor the layer is looked at.
    for (const uint8_t second : Bytes("F3 F5 F9 FF")) {
        ByteVector other = data;
        other[1] = second;
        EXPECT_EQ(AdtsPayload(other.data(), 11).size(), 4u);
    }
    // A header with nothing behind it has an empty frame.
    const ByteVector header = Bytes("FF F1 50 80 00 FF FC");
    EXPECT_EQ(AdtsPayload(header.data(), 7).data(), header.data() + 7);
    EXPECT_TRUE(AdtsPayload(header.data(), 7).empty());
}

TEST(AdtsPayload, IsNullWithoutASoundHeader) {
    // No sync word; a CRC; lengths of 6, 0, 12 of 11 and 8191; headers that are cut off.
    for (const char* const hex :
         {"FE F1 50 80 01 7F FC 11 22 33 44", "FF E1 50 80 01 7F FC 11 22 33 44", "FF F0 50 80 01 7F FC 11 22 33 44",
          "FF F1 50 80 00 DF FC 11 22 33 44", "FF F1 50 80 00 1F FC 11 22 33 44", "FF F1 50 80 01 9F FC 11 22 33 44",
          "FF F1 50 83 FF FF FC 11 22 33 44", "FF F1 50 80 00 DF", "FF F1", "FF"}) {
        const ByteVector data = Bytes(hex);
        EXPECT_EQ(AdtsPayload(data.data(), static_cast<uint32_t>(data.size())).data(), nullptr) << hex;
    }
    EXPECT_EQ(AdtsPayload(nullptr, 0).data(), nullptr);
}

TEST(AdtsFrames, OnlyTheHeaderF1Counts) {
    for (const int second : {0xF0, 0xF8, 0xF9})
        EXPECT_EQ(CountAdts(Adts(100, static_cast<uint8_t>(second))), 0u);
}

TEST(AdtsFrames, BadInputEnds) {
    EXPECT_EQ(CountAdtsFrames(nullptr, 10), 0u);
    EXPECT_EQ(CountAdts({}), 0u);
    EXPECT_EQ(CountAdts(Bytes("FF F1 50 80 00 1F FC")), 0u);
    EXPECT_EQ(CountAdts(Bytes("FF")), 0u);
    EXPECT_EQ(CountAdts(Bytes("FF F1")), 1u);
    std::mt19937 random(20);
    for (int round = 0; round < 2000; ++round) {
        ByteVector data = test::RandomBytes(random, random() % 60);
        for (size_t i = 0; i + 1 < data.size(); i += 1 + random() % 9) {
            data[i] = 0xFF;
            data[i + 1] = 0xF1;
        }
        EXPECT_LE(CountAdts(data), data.size());
    }
}

TEST(MpegFrames, LayerTwoIsCounted) {
    const MpegCount count = CountMpeg(LayerTwo() + LayerTwo() + LayerTwo(), 48000);
    EXPECT_EQ(count.frames, 3u);
    EXPECT_EQ(count.nVersionID, 3u);
    EXPECT_EQ(count.nLayerID, 2u);
}

TEST(MpegFrames, VersionTwoHasItsOwnRatesAndScale) {
    // 64 kbit/s (index 8) at 24000 Hz: 72000 * 64 / 24000 = 192 bytes.
    ByteVector frame(192, 0x11);
    frame[0] = 0xFF;
    frame[1] = 0xF5;
    frame[2] = 0x84;
    const MpegCount count = CountMpeg(frame + frame, 24000);
    EXPECT_EQ(count.frames, 2u);
    EXPECT_EQ(count.nVersionID, 2u);
}

TEST(MpegFrames, ThePaddingBitIsReadFromTheSecondByte) {
    // 128 kbit/s at 44100 Hz: 417 bytes. The bit that is looked at is the lower bit of the layer field, 0 in Layer II,
    // so the padding_bit of the third byte adds nothing.
    ByteVector frame(417, 0x11);
    frame[0] = 0xFF;
    frame[1] = 0xFD;
    frame[2] = 0x82;  // padding_bit set
    EXPECT_EQ(CountMpeg(frame + frame, 44100).frames, 2u);
}

TEST(MpegFrames, OtherLayersAndVersionsDoNotCount) {
    EXPECT_EQ(CountMpeg(LayerTwo(0xFB), 48000).frames, 0u);  // Layer III
    EXPECT_EQ(CountMpeg(LayerTwo(0xFF), 48000).frames, 0u);  // Layer I
    EXPECT_EQ(CountMpeg(LayerTwo(0xE5), 48000).frames, 0u);  // version 2.5
    const MpegCount reserved = CountMpeg(LayerTwo(0xED), 48000);
    EXPECT_EQ(reserved.frames, 0u);
    EXPECT_EQ(reserved.nVersionID, 1u);
    EXPECT_EQ(reserved.nLayerID, 77u);  // the scan did not come that far
    // The reserved version takes the class of the header before.
    EXPECT_EQ(CountMpeg(LayerTwo() + LayerTwo(0xED), 48000).frames, 2u);
    // The reserved layer as well.
    EXPECT_EQ(CountMpeg(LayerTwo() + LayerTwo(0xF9), 48000).frames, 2u);
}

TEST(MpegFrames, BadInputEnds) {
    EXPECT_EQ(CountMpeg({}, 48000).frames, 0u);
    EXPECT_EQ(CountMpeg(LayerTwo(), 0).frames, 0u);
    EXPECT_EQ(CountMpeg(Bytes("FF"), 48000).frames, 0u);
    EXPECT_EQ(CountMpeg(Bytes("FF FD"), 48000).frames, 0u);
    EXPECT_EQ(CountMpeg(Bytes("FF FD"), 48000).nLayerID, 2u);
    // A rate that makes every frame 0 bytes long.
    EXPECT_EQ(CountMpeg(LayerTwo(), 0xFFFFFFFF).frames, 1u);
    uint32_t version = 0;
    uint32_t layer = 0;
    EXPECT_EQ(CountMpegAudioFrames(nullptr, 100, 48000, &version, &layer), 0u);
    std::mt19937 random(21);
    for (int round = 0; round < 2000; ++round) {
        ByteVector data = test::RandomBytes(random, random() % 60);
        for (size_t i = 0; i + 1 < data.size(); i += 1 + random() % 9) {
            data[i] = 0xFF;
            data[i + 1] = static_cast<uint8_t>(0xE0 | random());
        }
        EXPECT_LE(CountMpeg(data, static_cast<uint32_t>(random() % 100000)).frames, data.size());
    }
}

TEST(MpegTables, SamplesPerFrame) {
    constexpr uint32_t kSamples[4][4] = {
        // nLayerID 0, 1, 2, 3
        {0, 576, 1152, 384},   // nVersionID 0
        {0, 0, 0, 0},          // 1
        {0, 576, 1152, 384},   // 2
        {0, 1152, 1152, 384},  // 3
    };
    for (uint32_t version = 0; version < 4; ++version) {
        for (uint32_t layer = 0; layer < 4; ++layer)
            EXPECT_EQ(MpegAudioSamplesPerFrame(version, layer), kSamples[version][layer]) << version << ", " << layer;
    }
    EXPECT_EQ(MpegAudioSamplesPerFrame(4, 2), 0u);
    EXPECT_EQ(MpegAudioSamplesPerFrame(3, 4), 0u);
}

TEST(MpegTables, Bitrates) {
    constexpr uint32_t kFirst[] = {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384, 0, 0};
    constexpr uint32_t kSecond[] = {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160, 0, 0};
    for (uint32_t index = 0; index <= 16; ++index) {
        EXPECT_EQ(MpegAudioBitrate(1, 2, index), kFirst[index]);
        EXPECT_EQ(MpegAudioBitrate(2, 2, index), kSecond[index]);
        EXPECT_EQ(MpegAudioBitrate(25, 2, index), 0u);
        EXPECT_EQ(MpegAudioBitrate(1, 1, index), 0u);
        EXPECT_EQ(MpegAudioBitrate(1, 3, index), 0u);
    }
}

// The length stands in the fourth to sixth byte. Where those are not all there, what is there counts as a frame.
TEST(AdtsFrames, AHeaderThatIsCutOffCounts) {
    EXPECT_EQ(CountAdts(Bytes("FF F1 4C 80 00")), 1u);
    EXPECT_EQ(CountAdts(Bytes("FF F1 4C 80 00 00")), 0u) << "all there, and 0";
    EXPECT_EQ(CountAdts(Bytes("FF F1 4C 80 00 1F")), 0u);
    EXPECT_EQ(CountAdts(Bytes("FF F1 4C 80 00 20")), 1u);
}

}  // namespace
}  // namespace Orvane::Muxora
