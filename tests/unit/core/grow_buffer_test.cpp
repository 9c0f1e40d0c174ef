#include "core/grow_buffer.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "support/allocation_counter.h"
#include "support/hex.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;

ByteVector Content(const CGrowBuffer& buffer) {
    return {buffer.Data(), buffer.Data() + buffer.Size()};
}

TEST(GrowBuffer, AFreshOneHasNothing) {
    const CGrowBuffer buffer;
    EXPECT_EQ(buffer.Data(), nullptr);
    EXPECT_EQ(buffer.Size(), 0u);
    EXPECT_EQ(buffer.Capacity(), 0);
}

TEST(GrowBuffer, TwentyThousandBytesTakeTwoSteps) {
    CGrowBuffer buffer;
    const ByteVector data(20000, 7);
    EXPECT_EQ(buffer.Append(data.data(), 16384), 0u);
    EXPECT_EQ(buffer.Capacity(), 16384);
    CGrowBuffer other;
    EXPECT_EQ(other.Append(data.data(), 20000), 0u);
    EXPECT_EQ(other.Capacity(), 32768);
    EXPECT_EQ(other.Size(), 20000u);
    EXPECT_EQ(Content(other), data);
}

TEST(GrowBuffer, DoublesUpTo256000AndGrowsBy65536FromThere) {
    const uint8_t byte = 1;
    const auto after_one_more = [&](int32_t capacity) {
        CGrowBuffer buffer;
        buffer.Create(capacity);
        buffer.Extend(static_cast<uint32_t>(capacity));
        EXPECT_EQ(buffer.Capacity(), capacity);
        buffer.Append(&byte, 1);
        EXPECT_EQ(buffer.Size(), static_cast<uint32_t>(capacity) + 1);
        return buffer.Capacity();
    };
    EXPECT_EQ(after_one_more(1), 2);
    EXPECT_EQ(after_one_more(256000), 512000);
    EXPECT_EQ(after_one_more(256001), 321537);
    EXPECT_EQ(after_one_more(300000), 365536);
}

TEST(GrowBuffer, KeepsItsContentWhenItGrows) {
    CGrowBuffer buffer;
    ByteVector expected;
    for (uint32_t i = 0; i < 3000; ++i) {
        const ByteVector piece(1 + i % 300, static_cast<uint8_t>(i));
        ASSERT_EQ(buffer.Append(piece.data(), static_cast<uint32_t>(piece.size())), 0u);
        expected.insert(expected.end(), piece.begin(), piece.end());
        ASSERT_LE(buffer.Size(), static_cast<uint32_t>(buffer.Capacity()));
    }
    EXPECT_EQ(Content(buffer), expected);
}

TEST(GrowBuffer, AppendTellsNullFromNothing) {
    CGrowBuffer buffer;
    const uint8_t byte = 1;
    EXPECT_EQ(buffer.Append(nullptr, 1), 6u);
    EXPECT_EQ(buffer.Append(nullptr, 0), 6u);
    EXPECT_EQ(buffer.Append(&byte, 0), 0u);
    EXPECT_EQ(buffer.Size(), 0u);
    EXPECT_EQ(buffer.Capacity(), 0);
}

TEST(GrowBuffer, CreateDropsEverythingAndZeroes) {
    CGrowBuffer buffer;
    const ByteVector data(500, 0xEE);
    buffer.Append(data.data(), 500);
    ASSERT_EQ(buffer.Create(1000), 0u);
    EXPECT_EQ(buffer.Size(), 0u);
    EXPECT_EQ(buffer.Capacity(), 1000);
    EXPECT_TRUE(std::all_of(buffer.Data(), buffer.Data() + 1000, [](uint8_t byte) { return byte == 0; }));
}

TEST(GrowBuffer, CreateOfNothingAndOfLessThanNothing) {
    CGrowBuffer buffer;
    EXPECT_EQ(buffer.Create(0), 0u);
    EXPECT_EQ(buffer.Capacity(), 0);
    const uint8_t byte = 9;
    EXPECT_EQ(buffer.Append(&byte, 1), 0u);
    EXPECT_EQ(buffer.Capacity(), 16384);
    EXPECT_EQ(buffer.Create(-1), 4u);
    EXPECT_EQ(buffer.Capacity(), 0);
    EXPECT_EQ(buffer.Size(), 0u);
}

TEST(GrowBuffer, ResetKeepsBytesAndCapacity) {
    CGrowBuffer buffer;
    const ByteVector data = Bytes("01 02 03");
    buffer.Append(data.data(), 3);
    const uint8_t* const place = buffer.Data();
    EXPECT_EQ(buffer.Reset(), 0u);
    EXPECT_EQ(buffer.Size(), 0u);
    EXPECT_EQ(buffer.Capacity(), 16384);
    EXPECT_EQ(buffer.Data(), place);
    EXPECT_EQ(place[2], 3);
}

TEST(GrowBuffer, ExtendGivesRoomBehindTheLastByte) {
    CGrowBuffer buffer;
    buffer.Append("ab", 2);
    uint8_t* const room = buffer.Extend(3);
    ASSERT_NE(room, nullptr);
    EXPECT_EQ(room, buffer.Data() + 2);
    room[0] = room[1] = room[2] = 'c';
    EXPECT_EQ(Content(buffer), test::Text("abccc"));
}

TEST(GrowBuffer, IsEmptyWhenMemoryRunsOutAndKeepsItsBlock) {
    CGrowBuffer buffer;
    const ByteVector data(20000, 7);
    buffer.Append(data.data(), 10);
    const uint8_t* const block = buffer.Data();
    {
        const test::FailingAllocations none;
        EXPECT_EQ(buffer.Append(data.data(), 20000), 4u);
    }
    EXPECT_EQ(buffer.Size(), 0u);
    EXPECT_EQ(buffer.Capacity(), 16384);
    ASSERT_EQ(buffer.Data(), block);
    EXPECT_EQ(block[9], 7);
    {
        const test::FailingAllocations none;
        EXPECT_EQ(buffer.Create(100), 4u);
        EXPECT_EQ(buffer.Append(data.data(), 1), 4u);
        EXPECT_EQ(buffer.Extend(1), nullptr);
    }
    EXPECT_EQ(buffer.Append(data.data(), 20000), 0u);
    EXPECT_EQ(Content(buffer), data);
}

TEST(GrowBuffer, MoreThanASignedCapacityCanSayIsRefused) {
    CGrowBuffer buffer;
    buffer.Append("ab", 2);
    EXPECT_EQ(buffer.Extend(0x80000000u), nullptr);
    EXPECT_EQ(buffer.Size(), 0u);
    EXPECT_EQ(buffer.Capacity(), 16384);
    buffer.Append("ab", 2);
    EXPECT_EQ(buffer.Extend(0xFFFFFFFFu), nullptr);
    EXPECT_EQ(buffer.Size(), 0u);
}

TEST(GrowBuffer, ReservedRoomIsThereWithoutAStep) {
    CGrowBuffer buffer;
    buffer.Append("ab", 2);
    EXPECT_EQ(buffer.Reserve(300000), 0u);
    EXPECT_EQ(buffer.Size(), 2u);
    EXPECT_EQ(buffer.Capacity(), 16384 * 16 + 65536);
    const uint8_t* const block = buffer.Data();
    const test::AllocationCounter allocations;
    for (int i = 0; i < 30; ++i)
        ASSERT_NE(buffer.Extend(10000), nullptr);
    EXPECT_EQ(allocations.Count(), 0u);
    EXPECT_EQ(buffer.Data(), block);
    EXPECT_EQ(buffer.Size(), 300002u);
    EXPECT_EQ(buffer.Reserve(0x80000000u), 4u);
    EXPECT_EQ(buffer.Size(), 300002u);
}

TEST(GrowBuffer, AReserveThatFindsNoMemoryChangesNothing) {
    CGrowBuffer buffer;
    buffer.Append("ab", 2);
    {
        const test::FailingAllocations none;
        EXPECT_EQ(buffer.Reserve(300000), 4u);
    }
    EXPECT_EQ(Content(buffer), test::Text("ab"));
    EXPECT_EQ(buffer.Capacity(), 16384);
}

// The capacity goes on in its small steps; the bytes are moved a number of times that grows with the logarithm.
TEST(GrowBuffer, TheMemoryBehindItGrowsByHalves) {
    CGrowBuffer buffer;
    const ByteVector piece(1000, 7);
    const test::AllocationCounter allocations;
    for (int i = 0; i < 64000; ++i)
        ASSERT_EQ(buffer.Append(piece.data(), 1000), 0u);
    EXPECT_LE(allocations.Count(), 20u);
    EXPECT_LE(allocations.Bytes(), 4u * 64000 * 1000);
    // 524288 by doubling, and 65536 at a time from there.
    EXPECT_EQ(buffer.Capacity(), 524288 + 969 * 65536);
}

// Where half as much again is not to be had, what is needed may be.
TEST(GrowBuffer, TakesWhatIsNeededWhenThereIsNoMore) {
    CGrowBuffer buffer;
    buffer.Create(1000000);
    buffer.Extend(1000000);
    {
        const test::FailingAllocations one_fails(0, 1);
        ASSERT_NE(buffer.Extend(1), nullptr);
    }
    EXPECT_EQ(buffer.Capacity(), 1065536);
    EXPECT_EQ(buffer.Size(), 1000001u);
    const test::AllocationCounter allocations;
    ASSERT_NE(buffer.Extend(65535), nullptr);
    EXPECT_EQ(allocations.Count(), 0u);
    ASSERT_NE(buffer.Extend(1), nullptr);
    EXPECT_EQ(allocations.Count(), 1u);
}

TEST(GrowBuffer, AWarmOneDoesNotAllocate) {
    CGrowBuffer buffer;
    const ByteVector data(100000, 7);
    buffer.Append(data.data(), 100000);
    const test::AllocationCounter allocations;
    for (int i = 0; i < 100; ++i) {
        buffer.Reset();
        buffer.Append(data.data(), 60000);
        buffer.Append(data.data(), 40000);
    }
    EXPECT_EQ(allocations.Count(), 0u);
}

TEST(GrowBuffer, ShrinksToNothingAtMost) {
    CGrowBuffer buffer;
    buffer.Append("abcdef", 6);
    buffer.Shrink(2);
    EXPECT_EQ(buffer.Size(), 4u);
    buffer.Shrink(5);
    EXPECT_EQ(buffer.Size(), 0u);
}

}  // namespace
}  // namespace Orvane::Muxora
