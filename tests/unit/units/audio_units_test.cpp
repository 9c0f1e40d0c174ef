// Frames of AAC and MPEG audio among bytes that are none.
#include <gtest/gtest.h>

#include "support/frames.h"
#include "units_fixture.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::operator+;

// AAC LC, 48000 Hz, stereo, `size` bytes with the header.
ByteVector Adts(uint8_t size, uint8_t fill = 0x21) {
    return test::Adts(ByteVector(size - 7u, fill));
}
// MPEG-1 Layer II, 32 kbit/s, 48000 Hz, mono: 144 * 32000 / 48000 = 96 bytes.
ByteVector Mp2(uint8_t fill = 0x11) {
    return Bytes("FF FD 14 C0") + ByteVector(92, fill);
}

std::vector<ByteVector> Cut(uint32_t codec, const ByteVector& stream) {
    std::vector<ByteVector> out;
    for (const Given& one : Units(MX_FRAME_AUDIO, codec).All(stream))
        out.push_back(one.bytes);
    return out;
}

TEST(AudioUnits, AdtsFrames) {
    Units units(MX_FRAME_AUDIO, MX_AUDIO_AAC);
    const std::vector<Given> given = units.All(Adts(20) + Adts(9) + Adts(7) + Adts(100));
    ASSERT_EQ(given.size(), 4u);
    EXPECT_EQ(given[0].bytes, Adts(20));
    EXPECT_EQ(given[2].bytes, Adts(7));
    EXPECT_EQ(given[3].bytes, Adts(100));
    const MXAccessUnit& unit = given[0].unit;
    EXPECT_EQ(unit.frame_type, MX_FRAME_AUDIO);
    EXPECT_EQ(unit.encode_type, MX_AUDIO_AAC);
    EXPECT_EQ(unit.key_frame, 1u);
    EXPECT_EQ(unit.frame_sub_type, MX_SUB_I);
    EXPECT_EQ(unit.samples_per_sec, 48000u);
    EXPECT_EQ(unit.channels, 2u);
    EXPECT_EQ(unit.samples, 1024u);
}

TEST(AudioUnits, AFrameIsOutWhenItsBytesAreThereOnceInStep) {
    Units units(MX_FRAME_AUDIO, MX_AUDIO_AAC);
    EXPECT_TRUE(units.Put(Adts(20)).empty()) << "it may be chance";
    EXPECT_EQ(units.Put(Adts(30)).size(), 2u);
    EXPECT_EQ(units.Put(Adts(40)).size(), 1u);
    EXPECT_TRUE(units.Put(test::Slice(Adts(40), 0, 39)).empty());
    EXPECT_EQ(units.Put(Bytes("21")).size(), 1u);
    EXPECT_TRUE(units.Put(test::Slice(Adts(40), 0, 20)).empty());
    EXPECT_TRUE(units.End().empty()) << "half a frame";
    EXPECT_EQ(units.All(Adts(20)).size(), 1u) << "one frame and the end";
}

TEST(AudioUnits, WhatIsNoFrameIsPassedOver) {
    const ByteVector noise = Bytes("49 44 33 FF FF F1 00 FF F1 4C 80 00 1F FC 00 FF");
    EXPECT_EQ(Cut(MX_AUDIO_AAC, noise + Adts(20) + Adts(21) + noise + Adts(22) + Adts(23)),
              (std::vector<ByteVector>{Adts(20), Adts(21), Adts(22), Adts(23)}));
    // A header whose frame is followed by another stream's is none.
    ByteVector other = Adts(20);
    other[2] = 0x50;  // 44100 Hz
    EXPECT_EQ(Cut(MX_AUDIO_AAC, other + Adts(20) + Adts(21)), (std::vector<ByteVector>{Adts(20), Adts(21)}));
    other[2] = 0xCC;  // another profile
    EXPECT_EQ(Cut(MX_AUDIO_AAC, other + Adts(20) + Adts(21)), (std::vector<ByteVector>{Adts(20), Adts(21)}));
    EXPECT_TRUE(Cut(MX_AUDIO_AAC, ByteVector(5000, 0xFF)).empty());
    EXPECT_TRUE(Cut(MX_AUDIO_MPEG, ByteVector(5000, 0xFF)).empty());
    EXPECT_TRUE(Cut(MX_AUDIO_AAC, ByteVector(5000, 0)).empty());
}

TEST(AudioUnits, MpegAudioFrames) {
    Units units(MX_FRAME_AUDIO, MX_AUDIO_MPEG);
    const std::vector<Given> given = units.All(Bytes("54 41 47") + Mp2(1) + Mp2(2) + Mp2(3) + Bytes("54 41 47 FF FD"));
    ASSERT_EQ(given.size(), 3u);
    EXPECT_EQ(given[2].bytes, Mp2(3));
    EXPECT_EQ(given[0].unit.samples_per_sec, 48000u);
    EXPECT_EQ(given[0].unit.channels, 1u);
    EXPECT_EQ(given[0].unit.samples, 1152u);
}

// Frame lengths of the standards' formulas, with padding and without.
TEST(AudioUnits, MpegAudioLengths) {
    struct Case {
        const char* header;
        size_t size;
        uint32_t samples;
    };
    for (const Case& one : {Case{"FF FB 90 00", 417, 1152},
                            {"FF FB 92 00", 418, 1152},  // Layer III, 128k, 44100
                            {"FF F3 40 C0", 104, 576},
                            {"FF F3 42 C0", 105, 576},  // MPEG-2 Layer III, 32k, 22050
                            {"FF E3 40 C0", 208, 576},  // MPEG-2.5, 32k, 11025
                            {"FF FF 10 00", 32, 384},
                            {"FF FF 12 00", 36, 384},       // Layer I, 32k, 44100
                            {"FF FD A4 00", 576, 1152}}) {  // Layer II, 192k, 48000
        const ByteVector frame = Bytes(one.header) + ByteVector(one.size - 4, 0x11);
        Units units(MX_FRAME_AUDIO, MX_AUDIO_MPEG);
        const std::vector<Given> given = units.All(frame + frame);
        ASSERT_EQ(given.size(), 2u) << one.header;
        EXPECT_EQ(given[1].bytes.size(), one.size);
        EXPECT_EQ(given[1].unit.samples, one.samples);
    }
}

}  // namespace
}  // namespace Orvane::Muxora
