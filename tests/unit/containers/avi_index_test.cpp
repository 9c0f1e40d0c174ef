#include "containers/avi_index.h"

#include <gtest/gtest.h>

#include "support/allocation_counter.h"
#include "support/hex.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::Slice;
using test::Text;
using test::operator+;

TEST(AviSuperIndex, KeepsTheFirst62Entries) {
    AviSuperIndex index(AviStream::Audio);
    for (uint32_t i = 1; i <= 62; ++i)
        index.Add(uint64_t{i} << 32, i, 1000);
    std::vector<uint8_t> area(1032);
    ByteCursor full(area.data(), 1032);
    index.Write(full);
    EXPECT_EQ(full.Size(), 1032u);
    EXPECT_EQ(Slice(area, 0, 32),
              Text("indx") + Bytes("00 04 00 00  04 00 00 00  3E 00 00 00") + Text("01wb") + ByteVector(12));
    EXPECT_EQ(Slice(area, 32, 16), Bytes("00 00 00 00 01 00 00 00  01 00 00 00  E8 03 00 00"));
    EXPECT_EQ(Slice(area, 1008, 24), Bytes("00 00 00 00 3E 00 00 00  3E 00 00 00  E8 03 00 00") + ByteVector(8));
    EXPECT_EQ(index.Duration(), 62000u);

    index.Add(99, 99, 99);
    std::vector<uint8_t> again(1032);
    ByteCursor out(again.data(), 1032);
    index.Write(out);
    EXPECT_EQ(again, area);
    EXPECT_EQ(index.Entries(), 62u);
    EXPECT_EQ(index.Duration(), 62000u);
}

TEST(AviStandardIndex, Bytes) {
    AviStandardIndex index(AviStream::Audio);
    EXPECT_EQ(index.Entries(), 0u);
    index.Add(12, 5);
    index.Add(26, 0x80000004);
    EXPECT_EQ(index.Entries(), 2u);
    const auto chunk = index.Compose(0x0000000140000014);
    EXPECT_EQ(ByteVector(chunk.begin(), chunk.end()),
              Text("ix01") + Bytes("28 00 00 00  02 00 00 01  02 00 00 00") + Text("01wb") +
                  Bytes("14 00 00 40 01 00 00 00  00 00 00 00  0C 00 00 00 05 00 00 00  1A 00 00 00 04 00 00 80"));
}

TEST(AviStandardIndex, AnEmptyOneIsAHeader) {
    AviStandardIndex index(AviStream::Video);
    const auto chunk = index.Compose(4124);
    EXPECT_EQ(ByteVector(chunk.begin(), chunk.end()), Text("ix00") + Bytes("18 00 00 00  02 00 00 01  00 00 00 00") +
                                                          Text("00dc") + Bytes("1C 10 00 00 00 00 00 00  00 00 00 00"));
}

TEST(AviStandardIndex, OneThatCannotGrowKeepsWhatItHas) {
    AviStandardIndex index(AviStream::Video);
    for (uint32_t i = 0; i < 2044; ++i)  // fills the first 16384 bytes
        index.Add(i, i);
    {
        const test::FailingAllocations failing;
        EXPECT_FALSE(index.Reserve());
        index.Add(1, 1);
        EXPECT_EQ(index.Entries(), 2044u);
        EXPECT_EQ(index.Compose(0).size(), 16384u);
    }
    EXPECT_TRUE(index.Reserve());
    index.Add(7, 8);
    EXPECT_EQ(index.Entries(), 2045u);
    const auto chunk = index.Compose(0);
    ASSERT_EQ(chunk.size(), 16392u);
    EXPECT_EQ(ByteVector(chunk.end() - 16, chunk.end()), Bytes("FB 07 00 00 FB 07 00 00  07 00 00 00 08 00 00 00"));
}

TEST(AviLegacyIndex, OneThatCannotGrowKeepsWhatItHas) {
    AviLegacyIndex index;
    for (uint32_t i = 0; i < 1023; ++i)  // 16376 bytes
        index.Add(AviStream::Video, 16, i, i);
    {
        const test::FailingAllocations failing;
        EXPECT_FALSE(index.Reserve());
        index.Add(AviStream::Audio, 1, 1, 1);
        EXPECT_EQ(index.Compose().size(), 16376u);
    }
    index.Add(AviStream::Audio, 16, 7, 8);
    const auto chunk = index.Compose();
    ASSERT_EQ(chunk.size(), 16392u);
    EXPECT_EQ(ByteVector(chunk.begin(), chunk.begin() + 8), Text("idx1") + Bytes("00 40 00 00"));
    EXPECT_EQ(ByteVector(chunk.end() - 32, chunk.end()), Text("00dc") + Bytes("10 00 00 00 FE 03 00 00 FE 03 00 00") +
                                                             Text("01wb") +
                                                             Bytes("10 00 00 00 07 00 00 00 08 00 00 00"));
}

// What a file without sound, or without frames, ends with takes no memory.
TEST(AviIndex, AnEmptyOneNeedsNoMemory) {
    AviStandardIndex standard(AviStream::Video);
    AviLegacyIndex legacy;
    const test::FailingAllocations failing;
    EXPECT_EQ(standard.Compose(0).size(), 32u);
    EXPECT_EQ(legacy.Compose().size(), 8u);
}

}  // namespace
}  // namespace Orvane::Muxora
