#include "units/kept_bytes.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "support/allocation_counter.h"
#include "support/hex.h"
#include "support/noise.h"

namespace Orvane::Muxora {
namespace {

using test::ByteVector;
using test::operator+;

ByteVector Held(const KeptBytes& kept) {
    const std::span<const uint8_t> bytes = kept.Bytes();
    EXPECT_EQ(bytes.size(), kept.Size());
    return {bytes.begin(), bytes.end()};
}

ByteVector Numbers(size_t count, uint8_t first) {
    ByteVector out(count);
    for (size_t i = 0; i < count; ++i)
        out[i] = static_cast<uint8_t>(first + i * 7);
    return out;
}

TEST(KeptBytes, EachAmountMovesAsAWhole) {
    // What is there when the memory grows, and when it is moved to the front: nothing, one byte, and more.
    for (const size_t there : {size_t{0}, size_t{1}, size_t{2}, size_t{65535}, size_t{65536}}) {
        for (const size_t more : {size_t{1}, size_t{65534}, size_t{65535}, size_t{65536}, size_t{200000}}) {
            for (const size_t taken : {size_t{0}, size_t{1}, size_t{40000}}) {
                KeptBytes kept;
                const ByteVector first = Numbers(taken + there, 1);
                const ByteVector second = Numbers(more, 77);
                ASSERT_TRUE(kept.Append(first));
                kept.Take(taken);
                ASSERT_TRUE(kept.Append(second));
                EXPECT_TRUE(Held(kept) == test::Slice(first, taken, there) + second)
                    << there << ' ' << more << ' ' << taken;
                EXPECT_EQ(kept.Bytes().data()[kept.Size()], 0) << "a byte behind the last one";
            }
        }
    }
}

TEST(KeptBytes, TheMemoryStaysAndServesAgain) {
    KeptBytes kept;
    ASSERT_TRUE(kept.Append(Numbers(1000, 0)));
    const uint8_t* const memory = kept.Bytes().data();
    const test::AllocationCounter allocations;
    for (int i = 0; i < 200; ++i) {
        kept.Take(1000);
        ASSERT_TRUE(kept.Append(Numbers(1000, static_cast<uint8_t>(i))));
    }
    kept.Clear();
    EXPECT_EQ(kept.Size(), 0u);
    ASSERT_TRUE(kept.Append(Numbers(65535, 3)));
    EXPECT_EQ(kept.Bytes().data(), memory);
    EXPECT_EQ(allocations.Count(), 201u) << "those of the test itself";
}

TEST(KeptBytes, NothingIsAlwaysTaken) {
    KeptBytes kept;
    const test::FailingAllocations failing;
    EXPECT_TRUE(kept.Append({}));
    const uint8_t byte = 5;
    EXPECT_FALSE(kept.Append({&byte, 1}));
    EXPECT_EQ(kept.Size(), 0u);
}

TEST(KeptBytes, WithoutMemoryWhatIsThereStays) {
    KeptBytes kept;
    const ByteVector first = Numbers(1000, 9);
    const ByteVector large = Numbers(70000, 1);
    ASSERT_TRUE(kept.Append(first));
    {
        const test::FailingAllocations failing;
        EXPECT_FALSE(kept.Append(large));
    }
    EXPECT_EQ(Held(kept), first);
    EXPECT_TRUE(kept.Append(large));
    EXPECT_TRUE(Held(kept) == first + large);
}

}  // namespace
}  // namespace Orvane::Muxora
