#include "mkv/avc_record.h"

#include <gtest/gtest.h>

#include <memory>

#include "support/hex.h"
#include "support/noise.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::operator+;

const ByteVector kCode = Bytes("00 00 00 01");
const ByteVector kSps = Bytes("67 64 00 28 AC");
const ByteVector kPps = Bytes("68 EE 3C");

class AvcRecord : public testing::Test {
  protected:
    // The frame as the scan leaves it. Its memory ends where the frame ends, so that sanitizers see a step too far.
    ByteVector Scan(const ByteVector& frame) {
        const auto exact = std::make_unique<uint8_t[]>(frame.size());
        std::copy(frame.begin(), frame.end(), exact.get());
        const auto copy = std::make_unique<uint8_t[]>(frame.size());
        CAvcRecord copying = record;
        record.ScanAvcFrame(exact.get(), static_cast<uint32_t>(frame.size()));
        const ByteVector scanned(exact.get(), exact.get() + frame.size());
        // With a copy all is the same, and the copy is what became of the frame.
        std::copy(frame.begin(), frame.end(), exact.get());
        copying.ScanAvcFrame(exact.get(), static_cast<uint32_t>(frame.size()), copy.get());
        EXPECT_EQ(ByteVector(exact.get(), exact.get() + frame.size()), scanned);
        EXPECT_EQ(ByteVector(copy.get(), copy.get() + frame.size()), scanned);
        EXPECT_EQ(Configuration(copying), Configuration());
        return scanned;
    }
    static ByteVector Configuration(const CAvcRecord& of) {
        uint8_t area[CAvcRecord::kMaxConfiguration];
        return {area, area + of.WriteConfiguration(area)};
    }
    ByteVector Configuration() const { return Configuration(record); }

    CAvcRecord record;
};

TEST_F(AvcRecord, StartCodesBecomeLengths) {
    EXPECT_EQ(Scan(Bytes("00 00 00 01 67 64 00 28 AC  00 00 00 01 68 EE 3C  00 00 00 01 65 88 84 00 11")),
              Bytes("00 00 00 05 67 64 00 28 AC  00 00 00 03 68 EE 3C  00 00 00 05 65 88 84 00 11"));
    EXPECT_EQ(Configuration(), Bytes("01 64 00 28 FF E1 00 05 67 64 00 28 AC 01 00 03 68 EE 3C"));
}

TEST_F(AvcRecord, ACopyIsWhatBecameOfAnyFrame) {
    std::mt19937 random(8);
    for (size_t round = 0; round < 3000; ++round)
        Scan(test::ZeroRichBytes(random, random() % 400));
}

TEST_F(AvcRecord, TheLastNalUnitHasItsTrueLength) {
    EXPECT_EQ(Scan(Bytes("00 00 00 01 41 9A")), Bytes("00 00 00 02 41 9A"));
    EXPECT_EQ(Scan(Bytes("00 00 00 01 41 9A 00 00 00")), Bytes("00 00 00 05 41 9A 00 00 00"));
    EXPECT_EQ(Scan(Bytes("00 00 00 01 41")), Bytes("00 00 00 01 41"));
    const ByteVector data(70000, 0xAB);
    EXPECT_EQ(Scan(kCode + data), Bytes("00 01 11 70") + data);
}

TEST_F(AvcRecord, EmptyNalUnits) {
    EXPECT_EQ(Scan(Bytes("00 00 00 01 00 00 00 01 41 9A")), Bytes("00 00 00 00 00 00 00 02 41 9A"));
    EXPECT_EQ(Scan(Bytes("00 00 00 01")), Bytes("00 00 00 00"));
    EXPECT_EQ(Scan(Bytes("00 00 00 01 41 9A 00 00 00 01")), Bytes("00 00 00 02 41 9A 00 00 00 00"));
}

TEST_F(AvcRecord, ThreeByteStartCodesAreData) {
    const ByteVector three = Bytes("00 00 01 67 64 00 28 00 00 01 68 EE 3C 00 00 01 65 88");
    EXPECT_EQ(Scan(three), three);
    EXPECT_EQ(Scan(Bytes("00 00 00 01 06 05 00 00 01 65 88 00 00 00 01 41")),
              Bytes("00 00 00 07 06 05 00 00 01 65 88 00 00 00 01 41"));
    EXPECT_EQ(Configuration(), Bytes("00 00 00 00 FF E0 00 00 00 00 00"));
}

TEST_F(AvcRecord, AZeroAheadOfAStartCodeIsTheNalUnits) {
    EXPECT_EQ(Scan(Bytes("00 00 00 01 41 9A 00 00 00 00 01 41 9B")), Bytes("00 00 00 03 41 9A 00 00 00 00 02 41 9B"));
}

TEST_F(AvcRecord, WhatStandsAheadOfTheFirstStartCodeIsOverwritten) {
    EXPECT_EQ(Scan(Bytes("AA BB 00 00 00 01 41 9A 00 00 00 01 41 9B 9C")),
              Bytes("00 00 00 02 00 01 41 9A 00 00 00 03 41 9B 9C"));
    EXPECT_EQ(Scan(Bytes("AA BB CC DD EE 00 00 00 01 41 9A")), Bytes("00 00 00 02 EE 00 00 00 01 41 9A"));
}

TEST_F(AvcRecord, FramesTooShortForAStartCode) {
    EXPECT_EQ(Scan(Bytes("00")), Bytes("00"));
    EXPECT_EQ(Scan(Bytes("00 00 00")), Bytes("00 00 00"));
    EXPECT_EQ(Scan(Bytes("00 00 01")), Bytes("00 00 01"));
}

TEST_F(AvcRecord, ALaterPairReplacesTheSetsButNotTheProfile) {
    Scan(kCode + kSps + kCode + kPps);
    Scan(kCode + Bytes("27 42 80 1E") + kCode + Bytes("28 CE"));
    EXPECT_EQ(Configuration(), Bytes("01 64 00 28 FF E1 00 04 27 42 80 1E 01 00 02 28 CE"));
}

TEST_F(AvcRecord, TheProfileIsTakenWhenBothSetsAreThere) {
    Scan(kCode + kSps);
    EXPECT_EQ(Configuration(), Bytes("00 00 00 00 FF E0 00 05 67 64 00 28 AC 00 00 00"));
    Scan(kCode + Bytes("67 42 80 1E"));
    Scan(kCode + kPps);
    EXPECT_EQ(Configuration(), Bytes("01 42 80 1E FF E1 00 04 67 42 80 1E 01 00 03 68 EE 3C"));
}

TEST_F(AvcRecord, ParameterSetsOf1To255Bytes) {
    ByteVector sps(255, 0x11);
    sps[0] = 0x67;
    ByteVector pps(255, 0x22);
    pps[0] = 0x68;
    Scan(kCode + sps + kCode + pps);
    const ByteVector both = Bytes("01 11 11 11 FF E1 00 FF") + sps + Bytes("01 00 FF") + pps;
    EXPECT_EQ(Configuration(), both);
    EXPECT_EQ(both.size(), 521u);

    sps.push_back(0x33);
    pps.push_back(0x33);
    Scan(kCode + sps + kCode + pps);
    EXPECT_EQ(Configuration(), both);
    // One byte is enough; the profile stays.
    Scan(kCode + Bytes("67") + kCode + Bytes("68"));
    EXPECT_EQ(Configuration(), Bytes("01 11 11 11 FF E1 00 01 67 01 00 01 68"));
}

TEST_F(AvcRecord, TheLowFiveBitsTellTheType) {
    Scan(kCode + Bytes("E7 01 02 03") + kCode + Bytes("08 09"));
    EXPECT_EQ(Configuration(), Bytes("01 01 02 03 FF E1 00 04 E7 01 02 03 01 00 02 08 09"));
}

}  // namespace
}  // namespace Orvane::Muxora
