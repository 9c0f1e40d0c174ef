// A moof as ISO/IEC 14496-12 8.8.4 to 8.8.12 has it, and what of it holds together.
#include "exact/fragment_reader.h"

#include <gtest/gtest.h>

#include "support/box_literal.h"
#include "support/hex.h"

namespace Orvane::Muxora {
namespace {

using test::Box;
using test::Bytes;
using test::ByteVector;
using test::operator+;

// Track 1 with default-base-is-moof alone.
const ByteVector kPictures = Bytes("00020000 00000001");
const ByteVector kSound = Bytes("00020000 00000002");

ByteVector Track(const ByteVector& header, const ByteVector& time, const ByteVector& run) {
    return Box("traf", Box("tfhd", header) + Box("tfdt", time) + Box("trun", run));
}
ByteVector Fragment(const ByteVector& tracks) {
    return Box("moof", Box("mfhd", Bytes("00000000 00000001")) + tracks);
}
bool Holds(const ByteVector& moof) {
    FragmentHead head;
    return ReadFragmentHead(moof, head);
}

const ByteVector kZero = Bytes("00000000 00000000");
// Durations and sizes: one sample of 3 bytes that lasts 1000 ticks, in a moof of 92 bytes with 8 of mdat behind it.
const ByteVector kOneSample = Bytes("00000301 00000001 00000064 000003E8 00000003");

TEST(FragmentReader, WhatHoldsTogetherIsRead) {
    const ByteVector moof = Fragment(Track(kPictures, kZero, kOneSample));
    ASSERT_EQ(moof.size(), 92u);
    FragmentHead head;
    ASSERT_TRUE(ReadFragmentHead(moof, head));
    ASSERT_EQ(head.runs.size(), 1u);
    EXPECT_TRUE(head.runs[0].video);
    EXPECT_EQ(head.runs[0].description, 1u);
    EXPECT_EQ(head.media_size, 3u);
    ASSERT_EQ(head.runs[0].samples.size(), 1u);
    EXPECT_EQ(head.runs[0].samples[0].dts, 0);
    EXPECT_EQ(head.runs[0].samples[0].duration, 1000u);
    EXPECT_EQ(head.runs[0].samples[0].size, 3u);
    EXPECT_TRUE(head.runs[0].samples[0].key);
}

// A default size is passed over: each sample states its own. The flags behind it say that none is a sync sample.
TEST(FragmentReader, DefaultsStandInTheirOrder) {
    const ByteVector header = Bytes("0002003A 00000002 00000004 00000190 00000007 00010000");
    const ByteVector moof = Fragment(Track(header, kZero, Bytes("00000201 00000002 00000074 00000005 00000006")));
    ASSERT_EQ(moof.size(), 108u);
    FragmentHead head;
    ASSERT_TRUE(ReadFragmentHead(moof, head));
    ASSERT_EQ(head.runs.size(), 1u);
    EXPECT_FALSE(head.runs[0].video);
    EXPECT_EQ(head.runs[0].description, 4u);
    ASSERT_EQ(head.runs[0].samples.size(), 2u);
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(head.runs[0].samples[i].duration, 400u);
        EXPECT_EQ(head.runs[0].samples[i].size, 5 + i);
        EXPECT_FALSE(head.runs[0].samples[i].key);
    }
}

TEST(FragmentReader, AHeaderThatEndsEarlyHoldsNothing) {
    EXPECT_FALSE(Holds(Fragment(Track(Bytes("00020020 00000001"), kZero, kOneSample))));
    EXPECT_FALSE(Holds(Fragment(Track(Bytes("00020002 00000001 00000000"), kZero, kOneSample)))) << "no entry 0";
    EXPECT_FALSE(Holds(Fragment(Track(Bytes("00020001 00000001 0000000000000000"), kZero, kOneSample))));
}

// Without an offset or without sizes the same numbers mean something else.
TEST(FragmentReader, ARunStatesWhereItsBytesAreAndHowMany) {
    const auto holds = [](const char* flags) {
        return Holds(Fragment(Track(kPictures, kZero, Bytes(flags) + test::Slice(kOneSample, 4, 16))));
    };
    EXPECT_TRUE(holds("00000301"));
    EXPECT_FALSE(holds("00000300"));
    EXPECT_FALSE(holds("00000101"));
}

// 2^32 seconds of 2^25 ticks: 2^57.
TEST(FragmentReader, TimesHaveAnEnd) {
    const auto holds = [](const char* time) {
        const ByteVector run = Bytes("00000301 00000001 00000068 000003E8 00000003");
        return Holds(Fragment(Track(kPictures, Bytes("01000000") + Bytes(time), run)));
    };
    EXPECT_TRUE(holds("00000002 00000000"));
    EXPECT_TRUE(holds("01FFFFFF FFFFFC18")) << "1000 ticks before the end";
    EXPECT_FALSE(holds("01FFFFFF FFFFFC19"));
    EXPECT_FALSE(holds("02000000 00000001"));
}

TEST(FragmentReader, PicturesComeAheadOfSound) {
    const auto run = [](const char* offset) {
        return Bytes("00000301 00000001") + Bytes(offset) + Bytes("000003E8 00000003");
    };
    const auto holds = [&](const ByteVector& first, const ByteVector& second, const char* place) {
        return Holds(Fragment(Track(first, kZero, run("000000A8")) + Track(second, kZero, run(place))));
    };
    EXPECT_TRUE(holds(kPictures, kSound, "000000AB"));
    EXPECT_FALSE(holds(kSound, kPictures, "000000AB"));
    EXPECT_FALSE(holds(kPictures, kPictures, "000000AB"));
    EXPECT_FALSE(holds(kPictures, kSound, "000000AC")) << "one of two tracks does not hold together";
    EXPECT_FALSE(Holds(Fragment({})));
}

}  // namespace
}  // namespace Orvane::Muxora
