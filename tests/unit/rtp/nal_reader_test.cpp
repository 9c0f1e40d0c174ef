#include "rtp/nal_reader.h"

#include <gtest/gtest.h>

#include <random>

#include "support/hex.h"
#include "support/noise.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::operator+;

NalReader Reader(const ByteVector& frame, uint32_t skip = 1) {
    return {frame.data(), static_cast<uint32_t>(frame.size()), skip};
}

TEST(NalReader, GoesFromUnitToUnit) {
    const ByteVector frame = Bytes("AA 00 00 01 67 11 00 00 00 01 68 22 33");
    NalReader units = Reader(frame);
    ASSERT_TRUE(units.Next());
    EXPECT_EQ(units.Position(), 1);
    EXPECT_TRUE(units.IsShortCode());
    EXPECT_EQ(units.Start(), 4);
    EXPECT_TRUE(units.EndsBehind(5));
    EXPECT_FALSE(units.EndsBehind(6));
    EXPECT_EQ(units.End(), 6);
    EXPECT_FALSE(units.IsLast());
    ASSERT_TRUE(units.Next());
    EXPECT_FALSE(units.IsShortCode());
    EXPECT_EQ(units.Start(), 10);
    EXPECT_TRUE(units.EndsBehind(12));
    EXPECT_FALSE(units.EndsBehind(13));
    EXPECT_EQ(units.End(), 13);
    EXPECT_TRUE(units.IsLast());
    EXPECT_FALSE(units.Next());
}

TEST(NalReader, WithoutAStartCodeThereIsNoUnitAndTheEndIsTheFrames) {
    const ByteVector frame = Bytes("41 9A 00 00 02");
    NalReader units = Reader(frame);
    EXPECT_FALSE(units.Next());
    EXPECT_TRUE(units.EndsBehind(4));
    EXPECT_FALSE(units.EndsBehind(5));
    EXPECT_TRUE(units.IsLast());
}

TEST(NalReader, AStartCodeAtTheEndHasAnEmptyUnitBehindIt) {
    const ByteVector frame = Bytes("41 9A 00 00 00 01");
    NalReader units = Reader(frame);
    ASSERT_TRUE(units.Next());
    EXPECT_EQ(units.Start(), 6);
    EXPECT_FALSE(units.EndsBehind(6));
    EXPECT_EQ(units.End(), 6);
}

// Wherever the copies are cut, the end comes out the same.
TEST(NalReader, FindsTheEndAlongWithCopies) {
    const ByteVector body(200, 0x55);
    for (const char* code : {"00 00 01", "00 00 00 01"}) {
        for (size_t end = 0; end < body.size(); ++end) {
            ByteVector frame = Bytes("00 00 01") + body;
            const ByteVector inserted = Bytes(code);
            frame.insert(frame.begin() + 3 + static_cast<std::ptrdiff_t>(end), inserted.begin(), inserted.end());
            for (const int64_t piece : {33, 40, 64}) {
                NalReader units = Reader(frame, 0);
                ASSERT_TRUE(units.Next());
                ByteVector copy(frame.size());
                int64_t at = units.Start();
                while (!units.IsEndKnown()) {
                    const int64_t count = units.CopyAhead(copy.data() + at, at, piece);
                    if (units.IsEndKnown()) {
                        // Nothing of the unit is missing.
                        ASSERT_GE(at + count, units.End());
                    } else {
                        ASSERT_EQ(count, piece);
                    }
                    ASSERT_LE(at + count, static_cast<int64_t>(frame.size()));
                    ASSERT_EQ(test::Slice(copy, static_cast<size_t>(at), static_cast<size_t>(count)),
                              test::Slice(frame, static_cast<size_t>(at), static_cast<size_t>(count)));
                    at += count;
                }
                ASSERT_EQ(units.End(), 3 + static_cast<int64_t>(end));
                ASSERT_FALSE(units.IsLast());
            }
        }
    }
}

// The copy stops where the unit does, and what it finds is what a search finds.
TEST(NalReader, CopiesAgreeWithTheSearch) {
    std::mt19937 random(9);
    for (size_t round = 0; round < 5000; ++round) {
        const ByteVector frame = Bytes("00 00 01") + test::ZeroRichBytes(random, 4 + random() % 200);
        const uint32_t skip = random() % 2;
        NalReader copying = Reader(frame, skip);
        NalReader searching = Reader(frame, skip);
        while (copying.Next()) {
            ASSERT_TRUE(searching.Next());
            ASSERT_EQ(copying.Position(), searching.Position());
            int64_t at = copying.Start() + static_cast<int64_t>(random() % 3);
            const int64_t piece = 1 + random() % 70;
            while (!copying.IsEndKnown() && at < static_cast<int64_t>(frame.size())) {
                ByteVector out(static_cast<size_t>(piece));
                const int64_t count = copying.CopyAhead(out.data(), at, piece);
                ASSERT_EQ(test::Slice(out, 0, static_cast<size_t>(count)),
                          test::Slice(frame, static_cast<size_t>(at), static_cast<size_t>(count)));
                at += piece;
            }
            const auto length = static_cast<int64_t>(frame.size());
            EXPECT_FALSE(copying.EndsBehind(length));
            EXPECT_FALSE(searching.EndsBehind(length));
            ASSERT_EQ(copying.End(), searching.End()) << test::Hex(frame);
            ASSERT_EQ(copying.IsLast(), searching.IsLast()) << test::Hex(frame);
        }
        ASSERT_FALSE(searching.Next());
    }
}

TEST(NalReader, ACopyFromFurtherOnHidesNothing) {
    const ByteVector frame = Bytes("00 00 01 41 9A 00 00 01 42") + ByteVector(100, 0x55);
    NalReader units = Reader(frame);
    ASSERT_TRUE(units.Next());
    ByteVector copy(40);
    EXPECT_EQ(units.CopyAhead(copy.data(), 20, 40), 0);
    EXPECT_FALSE(units.EndsBehind(50));
    EXPECT_EQ(units.End(), 5);
}

}  // namespace
}  // namespace Orvane::Muxora
