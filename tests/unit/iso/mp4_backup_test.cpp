// Snapshots of the index, and what they and other large blocks do to the room that a conversion has.
#include <gtest/gtest.h>

#include "core/clock.h"
#include "mp4_recording.h"
#include "support/allocation_counter.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::IsoFile;
using test::operator+;
using Numbers = std::vector<uint64_t>;

constexpr uint32_t kFormats[] = {0, 6, 7, 12, 14, 15};

// A frame of `units` empty NAL units behind three-byte start codes, and a last one of `tail` bytes: each start code
// grows by one byte.
ByteVector ManyUnits(uint32_t units, uint32_t tail) {
    ByteVector frame;
    for (uint32_t i = 0; i < units; ++i)
        frame = frame + Bytes("00 00 01 41");
    frame.resize(frame.size() + tail, 0xFF);
    return frame;
}

TEST(ConversionRoom, IsThatOfTheWorkBuffer) {
    Recording recording(0);
    recording.Key();
    // 4300 units of 4 bytes: 17200 bytes come in, 21500 would go out. 17200 + 256 bytes of room take 3491 units.
    recording.Video(ManyUnits(4300, 0));
    EXPECT_EQ(recording.Backup().Sizes(0).back(), 3491u * 5);
    // A frame that is smaller than the 16384 bytes of a fresh buffer has room for all.
    Recording small(0);
    small.Key();
    small.Video(ManyUnits(3000, 0));
    EXPECT_EQ(small.Backup().Sizes(0).back(), 15000u);
}

TEST(ConversionRoom, WithoutSeekingIs8BytesLess) {
    Recording recording(12);
    recording.Key();
    // 17456 - 8 bytes take 3489 units.
    recording.Video(ManyUnits(4300, 0));
    EXPECT_EQ(recording.Backup().Sizes(0).back(), 3489u * 5);
}

TEST(ConversionRoom, GrowsWithLargerFramesAndWithAudioAndStays) {
    Recording recording(0);
    recording.Key();
    recording.Video(PFrame() + ByteVector(40000, 0xFF));
    recording.Video(ManyUnits(4300, 0));
    EXPECT_EQ(recording.Backup().Sizes(0).back(), 21500u);

    Recording audio(0);
    audio.Key();
    // 16384 bytes become 32768.
    audio.Audio(ByteVector(20000, 0x55), 31);
    audio.Video(ManyUnits(4300, 0));
    EXPECT_EQ(audio.Backup().Sizes(0).back(), 21500u);
}

TEST(ConversionRoom, GrowsWithASnapshotToo) {
    Recording recording(0);
    recording.Key();
    for (int i = 1; i < 3000; ++i)
        recording.Video(PFrame());
    recording.Backup();  // of 24612 bytes, for which 16384 become 32768
    recording.Video(ManyUnits(4300, 0));
    EXPECT_EQ(recording.Backup().Sizes(0).back(), 21500u);
}

// --- snapshots

TEST(Backup, DescribesWhatHasBeenWrittenAndWhereItBelongs) {
    for (const uint32_t format : kFormats) {
        Recording recording(format);
        recording.Key();
        recording.Audio(AdtsFrame(9, 0xA1));
        recording.Video(PFrame(1));
        MXOutputBlock block{};
        block.size = 5;
        block.offset = 9;
        block.seek_type = 3;
        const uint32_t size = recording.packet.getBackup(&block);
        EXPECT_EQ(block.length, size);
        EXPECT_EQ(block.seek_type, 0u);
        EXPECT_EQ(block.offset32, recording.sink.file.size());
        EXPECT_EQ(block.size, 5u);
        EXPECT_EQ(block.offset, 9);
        // It is the index that the tail writes.
        const auto* const bytes = static_cast<const uint8_t*>(block.data);
        const ByteVector snapshot(bytes, bytes + size);
        const IsoFile file = recording.Finish();
        EXPECT_EQ(snapshot, file.Whole("moov"));
    }
}

TEST(Backup, ChangesNeitherTheFileNorWhatIsToCome) {
    const ScopedClock clock(1700000000);
    ByteVector files[2];
    for (const bool with_backups : {false, true}) {
        Recording recording(0);
        recording.Key();
        for (uint8_t i = 0; i < 100; ++i) {
            recording.Video(PFrame(i));
            recording.Audio(AdtsFrame(i));
            if (with_backups) recording.Backup();
        }
        files[with_backups] = recording.Finish().Bytes();
    }
    EXPECT_EQ(files[0], files[1]);
}

TEST(Backup, StaysGoodUntilTheNext) {
    Recording recording(0);
    recording.Key();
    MXOutputBlock block{};
    const uint32_t size = recording.packet.getBackup(&block);
    const auto* const bytes = static_cast<const uint8_t*>(block.data);
    const ByteVector snapshot(bytes, bytes + size);
    for (int i = 0; i < 100; ++i)
        recording.Video(PFrame() + ByteVector(1000 * static_cast<size_t>(i), 0xFF));
    recording.Finish();
    recording.packet.uninit();
    EXPECT_EQ(ByteVector(bytes, bytes + size), snapshot);
}

TEST(Backup, MayBeTakenFromWithinTheCallback) {
    struct Caller {
        CMp4Packet* packet;
        uint32_t blocks;
        Numbers sizes;
        ByteVector last;
    } caller{};
    MXCreateParam param{};
    param.user = &caller;
    param.output = [](const MXOutputBlock* out, void* user) -> int32_t {
        auto& self = *static_cast<Caller*>(user);
        if (self.blocks++ % 1000 == 0) {
            MXOutputBlock block{};
            const uint32_t size = self.packet->getBackup(&block);
            const auto* const bytes = static_cast<const uint8_t*>(block.data);
            const IsoFile snapshot(ByteVector(bytes, bytes + size));
            if (snapshot.TrackCount() != 0) self.sizes = snapshot.Sizes(0);
        }
        const auto* const data = static_cast<const uint8_t*>(out->data);
        self.last.assign(data, data + out->length);
        return 0;
    };
    CMp4Packet packet(0, &param);
    caller.packet = &packet;
    packet.init();
    packet.createHeader(nullptr, 0);
    ByteVector data = KeyFrame();
    MXFrameInfo frame = test::VideoFrame(data, 2, 0);
    for (int i = 0; i < 5000; ++i)
        packet.inputFrame(&frame, 0);
    // The block of the callback was not touched, and the frame that was going out is in the snapshot's tables.
    EXPECT_EQ(caller.last, KeySample());
    EXPECT_EQ(caller.sizes.size(), 5000u);
}

TEST(Backup, WithoutMemoryThereIsNone) {
    Recording recording(0);
    recording.Key();
    MXOutputBlock block{};
    {
        const test::FailingAllocations no_memory;
        EXPECT_EQ(recording.packet.getBackup(&block), 0u);
    }
    EXPECT_EQ(recording.Backup().Sizes(0).size(), 1u);
}

}  // namespace
}  // namespace Orvane::Muxora
