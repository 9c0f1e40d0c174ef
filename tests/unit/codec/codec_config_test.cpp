// The small derivations that several containers share: AudioSpecificConfig, WAVE tags, MPEG-4 part 2 configurations.
#include <gtest/gtest.h>

#include <memory>

#include "codec/audio_specific_config.h"
#include "codec/mpeg4_config.h"
#include "codec/wave_tag.h"
#include "support/hex.h"
#include "support/noise.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;

TEST(AudioSpecificConfig, TakesTheProfileAsItStands) {
    // AAC LC (profile 1), 44100 Hz (index 4), stereo: 00001 0100 0010 000.
    EXPECT_EQ(AudioSpecificConfigFromAdts(Bytes("FF F1 50 80 2B 9F FC").data()), 0x0A10);
    // Main (0), 48000 Hz (3), mono.
    EXPECT_EQ(AudioSpecificConfigFromAdts(Bytes("FF F1 0C 40").data()), 0x0188);
    // The channel field crosses the byte border: 6 channels is 1 10.
    EXPECT_EQ(AudioSpecificConfigFromAdts(Bytes("FF F1 4D 80").data()), 0x09B0);
    EXPECT_EQ(AudioSpecificConfigFromAdts(Bytes("FF F1 FF FF").data()), 0x1FB8);
}

TEST(WaveFormatTag, EveryCodec) {
    constexpr uint16_t kTags[31] = {0, 0, 0, 0, 0, 0, 0, 0,  68, 0, 7,   64, 0, 2, 6, 0x4201,
                                    1, 0, 0, 0, 0, 0, 7, 20, 0,  0, 255, 0,  0, 0, 0};
    for (uint32_t type = 0; type < 31; ++type)
        EXPECT_EQ(WaveFormatTag(type), kTags[type]) << type;
    for (const uint32_t type : {31u, 34u, 255u, 0xFFFFFFFFu})
        EXPECT_EQ(WaveFormatTag(type), 0);
}

Mpeg4Config Find(const ByteVector& data) {
    const auto block = std::make_unique<uint8_t[]>(data.size());
    std::copy(data.begin(), data.end(), block.get());
    return FindMpeg4Config(block.get(), static_cast<uint32_t>(data.size()));
}

bool Code(const ByteVector& d, size_t i) {
    return d[i] == 0 && d[i + 1] == 0 && d[i + 2] == 1;
}

bool BeginsConfig(uint8_t value) {
    const ByteVector values = {0x00, 0x01, 0x20, 0xB0, 0xB2, 0xB3, 0xB5};
    return std::find(values.begin(), values.end(), value) != values.end();
}

// One position at a time, with the bound as it is told: a signed i below length - 4.
Mpeg4Config Model(const ByteVector& d) {
    const auto limit = static_cast<std::ptrdiff_t>(d.size()) - 4;
    std::ptrdiff_t i = 0;
    const auto at = [&] { return static_cast<size_t>(i); };
    while (i < limit && !(Code(d, at()) && BeginsConfig(d[at() + 3])))
        ++i;
    if (i >= limit) return {};
    const std::ptrdiff_t begin = i;
    while (i < limit && !(Code(d, at()) && d[at() + 3] == 0xB6))
        ++i;
    return {true, static_cast<uint32_t>(begin), i < limit ? static_cast<uint32_t>(i - begin) : 0};
}

bool operator==(const Mpeg4Config& a, const Mpeg4Config& b) {
    return a.found == b.found && a.offset == b.offset && a.length == b.length;
}

TEST(Mpeg4Config, RunsToTheFirstVop) {
    const ByteVector frame = Bytes("00 00 01 B0 01 00 00 01 B5 09 00 00 01 00 00 00 01 20 0A 00 00 01 B6 10 20 30");
    EXPECT_TRUE(Find(frame) == (Mpeg4Config{true, 0, 19}));
}

TEST(Mpeg4Config, WhatLiesAheadIsSkipped) {
    EXPECT_TRUE(Find(Bytes("47 11 00 00 01 20 AA 00 00 01 B6 11 22")) == (Mpeg4Config{true, 2, 5}));
}

TEST(Mpeg4Config, OnlyTheListedKindsBeginOne) {
    for (uint32_t value = 0; value < 256; ++value) {
        ByteVector frame = Bytes("00 00 01 FF 55 55 00 00 01 B6 11 22");
        frame[3] = static_cast<uint8_t>(value);
        EXPECT_EQ(Find(frame).found, BeginsConfig(frame[3])) << value;
    }
}

TEST(Mpeg4Config, StartCodesInTheLastFourBytesAreNotSeen) {
    EXPECT_FALSE(Find(Bytes("00 00 01 B0")).found);
    EXPECT_TRUE(Find(Bytes("00 00 01 B0 01")).found);
    EXPECT_EQ(Find(Bytes("00 00 01 B0 01 00 00 01 B6")).length, 0u);
    EXPECT_EQ(Find(Bytes("00 00 01 B0 01 00 00 01 B6 10")).length, 5u);
}

TEST(Mpeg4Config, WithoutAVopTheLengthIsZero) {
    EXPECT_TRUE(Find(Bytes("00 00 01 B0 01 02 03 04 05")) == (Mpeg4Config{true, 0, 0}));
    EXPECT_FALSE(Find(Bytes("00 00 01 B6 01 02 03 04 05")).found);
    EXPECT_FALSE(FindMpeg4Config(nullptr, 0).found);
}

TEST(Mpeg4Config, AgreesWithTheStepByStepRules) {
    std::mt19937 random(30);
    constexpr uint8_t kKinds[] = {0x00, 0x01, 0x20, 0xB0, 0xB2, 0xB3, 0xB5, 0xB6, 0xB6, 0xB6, 0xB3, 0xB7};
    for (int round = 0; round < 30000; ++round) {
        ByteVector data = test::ZeroRichBytes(random, random() % 70);
        for (uint8_t& byte : data) {
            if (random() % 8 == 0) byte = kKinds[random() % std::size(kKinds)];
        }
        ASSERT_TRUE(Find(data) == Model(data)) << test::Hex(data);
    }
}

}  // namespace
}  // namespace Orvane::Muxora
