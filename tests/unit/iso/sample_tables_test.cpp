#include "iso/sample_tables.h"

#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "box_bytes.h"
#include "support/allocation_counter.h"
#include "support/iso_file.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::operator+;
using Runs = std::vector<std::pair<uint32_t, uint32_t>>;

TrackInfo Video(uint32_t frame_rate) {
    VideoTrackInfo info;
    info.frame_rate = frame_rate;
    info.encode_type = 2;
    return info;
}

TrackInfo Audio(uint32_t encode_type) {
    return AudioTrackInfo{encode_type, 2, 16, 48000};
}

void Give(CBox_stts& stts, uint32_t frame_rate, int count) {
    SampleInfo sample;
    sample.frame_rate = frame_rate;
    for (int i = 0; i < count; ++i)
        stts.Update(sample);
}

uint32_t BE32(const ByteVector& bytes, size_t at) {
    return uint32_t{bytes[at]} << 24 | uint32_t{bytes[at + 1]} << 16 | uint32_t{bytes[at + 2]} << 8 | bytes[at + 3];
}

Runs RunsOf(const CBox_stts& stts) {
    const ByteVector bytes = Written(stts);
    const uint32_t count = BE32(bytes, 12);
    EXPECT_EQ(bytes.size(), 16 + 8 * count);
    Runs runs;
    for (uint32_t i = 0; i < count; ++i)
        runs.emplace_back(BE32(bytes, 16 + 8 * i), BE32(bytes, 20 + 8 * i));
    return runs;
}

TEST(Stts, HundredSamplesAt25AreOneRun) {
    CBox_stts stts;
    const TrackInfo info = Video(25);
    stts.Init(1, &info);
    Give(stts, 25, 100);
    EXPECT_EQ(Written(stts), Bytes("00 00 00 18 73 74 74 73  00 00 00 00  00 00 00 01  00 00 00 64 00 00 00 28"));
    EXPECT_EQ(stts.TotalDuration(), 4000u);
}

TEST(Stts, WithoutSamplesThereIsTheOpenRun) {
    CBox_stts stts;
    const TrackInfo info = Video(25);
    stts.Init(1, &info);
    EXPECT_EQ(RunsOf(stts), (Runs{{0, 40}}));
    EXPECT_EQ(stts.TotalDuration(), 0u);
}

TEST(Stts, ThirtyFramesPerSecondAlternate) {
    CBox_stts stts;
    const TrackInfo info = Video(30);
    stts.Init(1, &info);
    Give(stts, 30, 10);
    EXPECT_EQ(RunsOf(stts), (Runs{{3, 33}, {1, 34}, {2, 33}, {1, 34}, {2, 33}, {1, 34}}));
    Give(stts, 30, 20);
    EXPECT_EQ(stts.TotalDuration(), 999u);
    Give(stts, 30, 30 * 59);
    // 60 seconds stay close to 60000 ms.
    EXPECT_NEAR(stts.TotalDuration(), 60000.0, 34.0);
}

TEST(Stts, AFrameRateOf0KeepsTheDeltaOfTheOpenRun) {
    CBox_stts stts;
    const TrackInfo info = Video(25);
    stts.Init(1, &info);
    Give(stts, 50, 2);
    Give(stts, 0, 3);
    EXPECT_EQ(RunsOf(stts), (Runs{{5, 20}}));
    EXPECT_EQ(stts.TotalDuration(), 100u);
}

TEST(Stts, AnotherFrameRateOpensARun) {
    CBox_stts stts;
    const TrackInfo info = Video(25);
    stts.Init(1, &info);
    Give(stts, 25, 2);
    Give(stts, 50, 3);
    Give(stts, 25, 1);
    EXPECT_EQ(RunsOf(stts), (Runs{{2, 40}, {3, 20}, {1, 40}}));
    EXPECT_EQ(stts.TotalDuration(), 180u);
}

TEST(Stts, RatesAboveAThousandGetTheirMillisecondsFromTheFractions) {
    CBox_stts stts;
    const TrackInfo info = Video(2000);
    stts.Init(1, &info);
    Give(stts, 2000, 5);
    EXPECT_EQ(RunsOf(stts), (Runs{{1, 0}, {1, 1}, {1, 0}, {1, 1}, {1, 0}}));
    Give(stts, 0xFFFFFFFF, 1);
    EXPECT_EQ(stts.TotalDuration(), 2u);
}

TEST(Stts, AudioOnlyCounts) {
    CBox_stts aac;
    const TrackInfo info = Audio(26);
    aac.Init(2, &info);
    Give(aac, 25, 47);
    EXPECT_EQ(RunsOf(aac), (Runs{{47, 1024}}));
    EXPECT_EQ(aac.TotalDuration(), 48128u);

    CBox_stts mpeg;
    const TrackInfo mpeg_info = Audio(31);
    mpeg.Init(2, &mpeg_info);
    Give(mpeg, 0, 2);
    EXPECT_EQ(RunsOf(mpeg), (Runs{{2, 1152}}));
}

TEST(Stts, OtherTracksCountWithoutADelta) {
    CBox_stts stts;
    const TrackInfo info = Video(25);
    stts.Init(3, &info);
    Give(stts, 25, 3);
    EXPECT_EQ(RunsOf(stts), (Runs{{3, 0}}));
}

TEST(Stts, WithoutMemoryTheOpenRunGoesOnAndEverySampleStaysCounted) {
    CBox_stts stts;
    const TrackInfo info = Video(25);
    stts.Init(1, &info);
    Give(stts, 25, 2);
    {
        const test::FailingAllocations no_memory;
        Give(stts, 50, 3);
    }
    EXPECT_EQ(RunsOf(stts), (Runs{{5, 40}}));
    Give(stts, 50, 1);
    EXPECT_EQ(RunsOf(stts), (Runs{{5, 40}, {1, 20}}));
}

TEST(Stss, NumbersBehindTheirCount) {
    CBox_stss stss;
    EXPECT_EQ(Written(stss), Bytes("00 00 00 10 73 74 73 73  00 00 00 00  00 00 00 00"));
    stss.Update(1);
    stss.Update(51);
    EXPECT_EQ(Written(stss), Bytes("00 00 00 18 73 74 73 73  00 00 00 00  00 00 00 02  00 00 00 01  00 00 00 33"));
}

TEST(Stsz, SizesBehindTheirCount) {
    CBox_stsz stsz;
    EXPECT_EQ(Written(stsz), Bytes("00 00 00 14 73 74 73 7A  00 00 00 00  00 00 00 00  00 00 00 00"));
    stsz.Update(0x01020304);
    EXPECT_EQ(Written(stsz), Bytes("00 00 00 18 73 74 73 7A  00 00 00 00  00 00 00 00  00 00 00 01  01 02 03 04"));
}

TEST(Stsz, GrowsBehindEntry2048AndKeepsTheEarlierOnes) {
    for (const uint32_t count : {2048U, 2049U, 4097U, 40000U}) {
        CBox_stsz stsz;
        CBox_stss stss;
        ByteVector entries;
        for (uint32_t i = 0; i < count; ++i) {
            stsz.Update(i * 3);
            stss.Update(i * 3);
            for (const int shift : {24, 16, 8, 0})
                entries.push_back(static_cast<uint8_t>((i * 3) >> shift));
        }
        const ByteVector sizes = Written(stsz);
        ASSERT_EQ(sizes.size(), 20 + 4 * count);
        EXPECT_EQ(BE32(sizes, 16), count);
        EXPECT_EQ(test::Slice(sizes, 20, 4 * count), entries);
        const ByteVector numbers = Written(stss);
        EXPECT_EQ(BE32(numbers, 12), count);
        EXPECT_EQ(test::Slice(numbers, 16, 4 * count), entries);
    }
}

TEST(Stsz, WithoutMemoryItTakesNoMoreEntriesAndKeepsThoseItHas) {
    CBox_stsz stsz;
    for (uint32_t i = 0; i < 2048; ++i)
        stsz.Update(i);
    const ByteVector before = Written(stsz);
    {
        const test::FailingAllocations no_memory;
        for (uint32_t i = 0; i < 5000; ++i)
            stsz.Update(7);
    }
    EXPECT_EQ(Written(stsz), before);
    stsz.Update(9);
    const ByteVector after = Written(stsz);
    EXPECT_EQ(BE32(after, 16), 2049u);
    EXPECT_EQ(BE32(after, after.size() - 4), 9u);
}

TEST(Stco, OffsetsOf32Bits) {
    CBox_stco stco;
    stco.Update(48);
    stco.Update(0xFEDCBA98);
    EXPECT_EQ(Written(stco), Bytes("00 00 00 18 73 74 63 6F  00 00 00 00  00 00 00 02  00 00 00 30  FE DC BA 98"));
}

TEST(Co64, OffsetsOf64Bits) {
    CBox_co64 co64;
    co64.Update64(0x0000000123456789);
    EXPECT_EQ(Written(co64), Bytes("00 00 00 18 63 6F 36 34  00 00 00 00  00 00 00 01  00 00 00 01 23 45 67 89"));
}

TEST(Stsc, OneSampleAChunk) {
    EXPECT_EQ(Written(CBox_stsc{}), Bytes("00 00 00 1C 73 74 73 63  00 00 00 00  00 00 00 01  00 00 00 01"
                                          "00 00 00 01  00 00 00 01"));
}

TEST(EntryTable, HoldsWhatItsEntriesTakeAndOneBlockAtMost) {
    EntryTable words;
    EXPECT_EQ(words.Capacity(), 0u);
    auto fill = [&, next = 0U](uint32_t count) mutable {
        for (; next < count; ++next)
            ASSERT_TRUE(words.Append32(next));
    };
    fill(2048);
    EXPECT_EQ(words.Capacity(), 2048u * 4);
    fill(2049);
    EXPECT_EQ(words.Capacity(), 4096u * 4);
    fill(1000000);
    EXPECT_GE(words.Capacity(), 4000000u);
    EXPECT_LE(words.Capacity(), 4000000u + 65536u);
}

TEST(EntryTable, GrowingMovesNothing) {
    EntryTable longs;
    const test::AllocationCounter allocations;
    for (uint64_t i = 0; i < 8192 * 100; ++i)
        ASSERT_TRUE(longs.Append64(i << 33));
    // A block of 64 KB each 8192 entries, and the list of blocks now and then.
    EXPECT_LE(allocations.Count(), 120u);
    CGrowBuffer buffer;
    EXPECT_EQ(longs.Write(&buffer), 8192u * 100 * 8);
    EXPECT_EQ(buffer.Size(), 8192u * 100 * 8);
    EXPECT_EQ(test::Hex(ByteVector(buffer.Data() + 65536, buffer.Data() + 65544)), "00 00 40 00 00 00 00 00");
}

}  // namespace
}  // namespace Orvane::Muxora
