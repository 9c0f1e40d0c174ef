// What a recording of any length asks of the machine: memory and rows of the tables.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>

#include "mkv/mkv_packet.h"
#include "support/allocation_counter.h"
#include "support/frames.h"
#include "support/hex.h"
#include "support/mkv_file.h"
#include "support/sink.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using namespace MkvTest;

constexpr uint32_t kRows = 102400;

// Records `frames` key frames and checks the file around the end of the tables.
void RunPastTheLastRow(uint32_t frames, uint32_t frame_rate) {
    const uint32_t clusters = (frames + frame_rate - 1) / frame_rate;
    const size_t cues = 1059 + size_t{clusters} * 16 + size_t{frames} * kBlock;
    const size_t cue_bytes = size_t{std::min(frames, kRows)} * 23;
    File file(cues + 12 + cue_bytes);
    MXCreateParam param = file.Param();
    const auto packet = std::make_unique<CMkvPacket>(MX_FORMAT_MKV, &param);
    Start(*packet);
    for (uint32_t i = 0; i < frames; ++i)
        ASSERT_EQ(Give(*packet, MX_SUB_I, frame_rate), 0u);
    ASSERT_EQ(packet->createTailer(nullptr, 0), 0u);

    const Clusters read = ReadClusters(file);
    EXPECT_EQ(read.count, clusters);
    EXPECT_EQ(read.blocks, frames);
    EXPECT_EQ(read.end, cues);
    EXPECT_EQ(file.Size(), cues + 12 + cue_bytes);
    EXPECT_EQ(file.Number(51, 8), 0x0100000000000000 | (file.Size() - 59));  // Segment size
    EXPECT_EQ(file.Number(111, 4), cues - 59);                               // where SeekHead says the Cues are
    EXPECT_EQ(file.Number(cues, 4), 0x1C53BB6Bu);
    EXPECT_EQ(file.Number(cues + 4, 8), 0x0100000000000000 | cue_bytes);
    for (size_t i = 0; i < std::min(frames, kRows); ++i) {
        const size_t cue = cues + 12 + i * 23;
        const size_t cluster = i / frame_rate;
        const size_t within = i % frame_rate;
        ASSERT_EQ(file.Number(cue + 4, 4), cluster * 1000 + within * 1000 / frame_rate);
        ASSERT_EQ(file.Number(cue + 15, 4), 1059 + cluster * (16 + frame_rate * kBlock));
        ASSERT_EQ(file.Number(cue + 21, 2), within == 0 ? 4 : within * kBlock + 20);
    }
}

TEST(MkvResources, KeyFramesPastTheLastCue) {
    RunPastTheLastRow(kRows + 5000, 50);
}

TEST(MkvResources, ClustersPastTheLastRow) {
    RunPastTheLastRow(kRows + 500, 1);
}

TEST(MkvResources, TheLastRowIsUsed) {
    RunPastTheLastRow(kRows, 25);
}

TEST(MkvResources, OnlyTheTailAllocates) {
    MXCreateParam param{};
    const auto packet = std::make_unique<CMkvPacket>(MX_FORMAT_MKV, &param);
    ByteVector aac = Bytes("FF F1 50 80 01 7F FC DE AD BE EF");
    MXFrameInfo audio = test::AudioFrame(aac, MX_AUDIO_AAC);
    const test::AllocationCounter counter;
    Start(*packet);
    for (int i = 0; i < 250; ++i) {
        ASSERT_EQ(Give(*packet, i % 25 == 0 ? MX_SUB_I : MX_SUB_P, 25), 0u);
        ASSERT_EQ(packet->inputFrame(&audio, 0), 0u);
    }
    EXPECT_EQ(counter.Count(), 0u);
    packet->createTailer(nullptr, 0);
    EXPECT_EQ(counter.Count(), 1u);  // the Cues
}

TEST(MkvResources, ATailWithoutMemoryWritesNothingAndMayBeRepeated) {
    File file(4096);
    const MXCreateParam param = file.Param();
    const auto packet = std::make_unique<CMkvPacket>(MX_FORMAT_MKV, &param);
    Start(*packet);
    Give(*packet, MX_SUB_I, 25);
    {
        const test::FailingAllocations no_memory;
        EXPECT_THROW(packet->createTailer(nullptr, 0), std::bad_alloc);
    }
    EXPECT_EQ(file.Number(625, 8), 0u);  // the size of Tracks
    EXPECT_EQ(packet->createTailer(nullptr, 0), 0u);
    EXPECT_NE(file.Number(625, 8), 0u);
    EXPECT_EQ(file.Number(1059 + 16 + kBlock, 4), 0x1C53BB6Bu);
}

// About 3.5 MiB are the most that a handle may take beside its work buffer.
TEST(MkvResources, TheTablesLieInTheHandle) {
    EXPECT_GE(sizeof(CMkvPacket), kRows * size_t{4 + 4 + 2});
    EXPECT_LE(sizeof(CMkvPacket), kRows * size_t{36});
}

struct Pool {
    static inline int taken = 0;
    static inline int given_back = 0;
    static inline int32_t taken_size = 0;
    static inline uint32_t given_back_size = 0;
    static void* Take(int32_t size) {
        ++taken;
        taken_size = size;
        return std::malloc(static_cast<size_t>(size));
    }
    static void GiveBack(void* buffer, uint32_t size) {
        ++given_back;
        given_back_size = size;
        std::free(buffer);
    }
};

TEST(MkvResources, TheWorkBufferIsTheCallers) {
    Pool::taken = Pool::given_back = 0;
    MXCreateParam param{};
    param.alloc = Pool::Take;
    param.free = Pool::GiveBack;
    {
        const auto packet = std::make_unique<CMkvPacket>(MX_FORMAT_MKV, &param);
        EXPECT_EQ(Pool::taken, 1);
        EXPECT_EQ(Pool::taken_size, 0x200000);
        Start(*packet);
        Give(*packet, MX_SUB_I, 25);
        packet->createTailer(nullptr, 0);
        packet->uninit();
        EXPECT_EQ(Pool::given_back, 0);
    }
    EXPECT_EQ(Pool::taken, 1);
    EXPECT_EQ(Pool::given_back, 1);
    EXPECT_EQ(Pool::given_back_size, 0x200000u);
}

TEST(MkvResources, WithoutAWorkBufferNothingStarts) {
    test::Sink sink;
    MXCreateParam param = sink.Param();
    param.alloc = [](int32_t) -> void* { return nullptr; };
    param.free = Pool::GiveBack;
    Pool::given_back = 0;
    {
        const auto packet = std::make_unique<CMkvPacket>(MX_FORMAT_MKV, &param);
        EXPECT_EQ(packet->init(), 0u);
        EXPECT_EQ(packet->createHeader(nullptr, 0), 3u);
        EXPECT_EQ(Give(*packet, MX_SUB_I, 25), 4u);
        EXPECT_EQ(packet->createTailer(nullptr, 0), 3u);
    }
    EXPECT_TRUE(sink.blocks.empty());
    EXPECT_EQ(Pool::given_back, 0);
}

}  // namespace
}  // namespace Orvane::Muxora
