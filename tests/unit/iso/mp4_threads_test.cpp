// Snapshots on a second thread while a first one records; most telling under ThreadSanitizer.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "mp4_recording.h"

namespace Orvane::Muxora {
namespace {

using test::IsoFile;
using Numbers = std::vector<uint64_t>;

constexpr uint32_t kFrames = 6000;

class Mp4Threads : public testing::TestWithParam<uint32_t> {
  protected:
    // Blocks until a snapshot has been begun and ended since the call.
    void AwaitSnapshot() {
        const uint32_t now = snapshots;
        while (snapshots < now + 2)
            std::this_thread::yield();
    }

    void TakeSnapshots() {
        Numbers last[2];
        uint32_t last_position = 0;
        while (!done) {
            MXOutputBlock block{};
            const uint32_t size = recording.packet.getBackup(&block);
            const auto* const bytes = static_cast<const uint8_t*>(block.data);
            const IsoFile snapshot(ByteVector(bytes, bytes + size));
            EXPECT_GE(block.offset32, last_position);
            last_position = block.offset32;
            for (size_t track = 0; track < snapshot.TrackCount(); ++track) {
                const Numbers sizes = snapshot.Sizes(track);
                const Numbers offsets = snapshot.Offsets(track);
                ASSERT_EQ(sizes.size(), offsets.size());
                // What was there stays, and nothing lies behind the end of the file.
                ASSERT_GE(offsets.size(), last[track].size());
                EXPECT_TRUE(std::equal(last[track].begin(), last[track].end(), offsets.begin()));
                last[track] = offsets;
                if (sizes.empty()) continue;
                EXPECT_LE(offsets.back() + sizes.back(), block.offset32);
            }
            ++snapshots;
        }
    }

    Recording recording{GetParam()};
    std::atomic<uint32_t> snapshots{0};
    std::atomic<bool> done{false};
};

TEST_P(Mp4Threads, NoSnapshotIsTornAndNoSampleIsLost) {
    std::thread second([this] { TakeSnapshots(); });
    std::vector<ByteVector> pictures;
    std::vector<ByteVector> sounds;
    for (uint32_t i = 0; i < kFrames; ++i) {
        const auto number = static_cast<uint8_t>(i);
        if (i % 3 == 1) {
            EXPECT_EQ(recording.Audio(AdtsFrame(30, number)), 0u);
            sounds.emplace_back(30, number);
        } else if (i % 25 == 0) {
            EXPECT_EQ(recording.Key(), 0u);
            pictures.push_back(KeySample());
        } else {
            EXPECT_EQ(recording.Video(PFrame(number)), 0u);
            pictures.push_back(PSample(number));
        }
        if (i % 500 == 0) AwaitSnapshot();
    }
    done = true;
    second.join();
    EXPECT_GE(snapshots, kFrames / 500);
    const IsoFile file = recording.Finish();
    EXPECT_EQ(file.Samples(0), pictures);
    EXPECT_EQ(file.Samples(1), sounds);
}

INSTANTIATE_TEST_SUITE_P(Forms, Mp4Threads, testing::Values(0U, 6U, 12U, 14U),
                         [](const auto& form) { return "Format" + std::to_string(form.param); });

}  // namespace
}  // namespace Orvane::Muxora
