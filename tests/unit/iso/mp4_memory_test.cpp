// What a recording does when memory runs out in the middle of it.
#include <gtest/gtest.h>

#include "mp4_recording.h"
#include "support/allocation_counter.h"
#include "support/untouched_memory.h"

namespace Orvane::Muxora {
namespace {

using test::IsoFile;

TEST(Mp4Memory, ATailThatFailedFindsItsGapAgain) {
    test::Sink sink;
    const MXCreateParam param = sink.Param();
    CMp4Packet packet(0, &param);
    packet.init();
    MXHeaderInfo header{};
    header.reserved_gap = 100000;
    {
        const test::FailingAllocations no_memory;
        EXPECT_EQ(packet.createHeader(&header, 0), 4u);
        EXPECT_EQ(packet.createTailer(nullptr, 0), 4u);
    }
    EXPECT_TRUE(sink.blocks.empty());
    EXPECT_EQ(packet.createHeader(nullptr, 0), 0u);
    EXPECT_EQ(packet.createTailer(nullptr, 0), 0u);
    const IsoFile file(sink.file);
    EXPECT_EQ(file.Layout(), "ftyp free moov mdat");
    EXPECT_EQ(file.Size("free") + file.Size("moov"), 8u + 100000);
}

// Offsets and lengths of what went out.
struct Places {
    std::vector<std::pair<int64_t, uint32_t>> blocks;
    ByteVector last_short;

    static int32_t Output(const MXOutputBlock* block, void* user) {
        auto& self = *static_cast<Places*>(user);
        self.blocks.emplace_back(block->offset, block->length);
        const auto* const data = static_cast<const uint8_t*>(block->data);
        if (block->length <= 16) self.last_short.assign(data, data + block->length);
        return 0;
    }
};

// Memory that nobody has touched: the library looks at none of it, and neither does the sink.
class HugeFrame {
  public:
    static constexpr size_t kSize = 0x80000000;

    bool Mapped() const { return bytes_.Get() != nullptr; }
    MXFrameInfo Of(uint32_t frame_type, uint32_t codec) const {
        MXFrameInfo frame{};
        frame.size = sizeof frame;
        frame.frame_pointer = bytes_.Get();
        frame.frame_size = kSize;
        frame.frame_type = frame_type;
        frame.encode_type = codec;
        frame.samples_per_sec = 48000;
        return frame;
    }

  private:
    test::UntouchedMemory bytes_{kSize};
};

TEST(Mp4Memory, ASampleBeyondTheWorkBufferGoesOutFromWhereItLies) {
    const HugeFrame huge;
    ASSERT_TRUE(huge.Mapped());
    for (const auto& [frame_type, codec] : {std::pair{2U, 31U}, std::pair{3U, 0U}}) {
        Recording recording(14);
        recording.Key();
        Places places;
        recording.packet.setCallback(Places::Output, &places);
        MXFrameInfo frame = huge.Of(frame_type, codec);
        EXPECT_EQ(recording.packet.inputFrame(&frame, 0), 0u);
        // 56 bytes of head and 32 of the key frame.
        ASSERT_EQ(places.blocks.size(), 1u);
        EXPECT_EQ(places.blocks[0], (std::pair<int64_t, uint32_t>{88, 0x80000000}));
        recording.Video(PFrame());
        EXPECT_EQ(places.blocks[1].first, 88 + int64_t{0x80000000});
        recording.packet.createTailer(nullptr, 0);
        // mdat counts what is there: its head, the key frame, the large one and a last one of 10 bytes.
        EXPECT_EQ(places.last_short,
                  test::operator+(test::Bytes("00 00 00 01 6D 64 61 74"), test::Bytes("00 00 00 00 80 00 00 3A")));
    }
}

TEST(Mp4Memory, WithoutSeekingItsHeaderGoesAhead) {
    const HugeFrame huge;
    ASSERT_TRUE(huge.Mapped());
    Recording recording(12);
    recording.Key();
    Places places;
    recording.packet.setCallback(Places::Output, &places);
    MXFrameInfo frame = huge.Of(2, 31);
    EXPECT_EQ(recording.packet.inputFrame(&frame, 0), 0u);
    ASSERT_EQ(places.blocks.size(), 2u);
    EXPECT_EQ(places.blocks[0], (std::pair<int64_t, uint32_t>{80, 8}));
    EXPECT_EQ(places.last_short, test::Bytes("80 00 00 08 6D 64 61 74"));
    EXPECT_EQ(places.blocks[1], (std::pair<int64_t, uint32_t>{88, 0x80000000}));
    EXPECT_EQ(recording.Backup().Offsets(1), std::vector<uint64_t>{88});
}

TEST(Mp4Memory, AVideoFrameThatCannotBeConvertedIsRefused) {
    const HugeFrame huge;
    ASSERT_TRUE(huge.Mapped());
    Recording recording(0);
    recording.Key();
    MXFrameInfo frame = huge.Of(1, 2);
    EXPECT_EQ(recording.packet.inputFrame(&frame, 0), 4u);
    recording.Video(PFrame(1));
    const IsoFile file = recording.Finish();
    EXPECT_EQ(file.Samples(0), (std::vector<ByteVector>{KeySample(), PSample(1)}));
}

}  // namespace
}  // namespace Orvane::Muxora
