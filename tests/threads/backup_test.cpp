// Snapshots on a second thread while a first one records: the one case in which two threads may share a handle. Most
// telling under ThreadSanitizer.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "MuxoraAPI.h"
#include "support/frames.h"
#include "support/iso_file.h"
#include "support/iso_frames.h"
#include "support/sink.h"

namespace {

using test::ByteVector;
using test::IsoFile;
using Numbers = std::vector<uint64_t>;

constexpr uint32_t kFrames = 6000;

class BackupThread : public testing::TestWithParam<uint32_t> {
  protected:
    BackupThread() {
        const MXCreateParam param = sink.Param();
        handle = MX_CreateHandle(GetParam(), &param);
        EXPECT_EQ(MX_CreateHeader(handle, nullptr), 0u);
    }
    ~BackupThread() override { MX_DestroyHandle(handle); }

    void Video(ByteVector data, uint32_t sub_type) {
        MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, sub_type);
        EXPECT_EQ(MX_InputFrame(handle, &frame), 0u);
    }
    void Audio(ByteVector data) {
        MXFrameInfo frame = test::AudioFrame(data, MX_AUDIO_AAC);
        EXPECT_EQ(MX_InputFrame(handle, &frame), 0u);
    }

    // Blocks until a snapshot has been begun and ended since the call.
    void AwaitSnapshot() const {
        const uint32_t now = snapshots;
        while (snapshots < now + 2)
            std::this_thread::yield();
    }

    void TakeSnapshots() {
        Numbers last[2];
        uint32_t last_position = 0;
        while (!done) {
            MXOutputBlock block{};
            const uint32_t size = MX_GetBackup(handle, &block);
            const auto* const bytes = static_cast<const uint8_t*>(block.data);
            const IsoFile snapshot(ByteVector(bytes, bytes + size));
            const uint32_t position = block.offset32;
            EXPECT_GE(position, last_position);
            last_position = position;
            for (size_t track = 0; track < snapshot.TrackCount(); ++track) {
                const Numbers sizes = snapshot.Sizes(track);
                const Numbers offsets = snapshot.Offsets(track);
                // What was there stays, and nothing lies behind the end of the file.
                EXPECT_EQ(sizes.size(), offsets.size());
                EXPECT_GE(offsets.size(), last[track].size());
                EXPECT_TRUE(std::equal(last[track].begin(), last[track].end(), offsets.begin()));
                const uint64_t end = sizes.empty() ? 0 : offsets.back() + sizes.back();
                EXPECT_LE(end, position);
                last[track] = offsets;
            }
            ++snapshots;
        }
    }

    test::Sink sink;
    MXHandle handle = nullptr;
    std::atomic<uint32_t> snapshots{0};
    std::atomic<bool> done{false};
};

TEST_P(BackupThread, NoSnapshotIsTornAndNoSampleIsLost) {
    std::thread second([this] { TakeSnapshots(); });
    std::vector<ByteVector> pictures;
    std::vector<ByteVector> sounds;
    for (uint32_t i = 0; i < kFrames; ++i) {
        const auto number = static_cast<uint8_t>(i);
        if (i % 3 == 1) {
            Audio(test::AdtsFrame(30, number));
            sounds.emplace_back(30, number);
        } else if (i % 25 == 0) {
            Video(test::KeyFrame(), MX_SUB_I);
            pictures.push_back(test::KeySample());
        } else {
            Video(test::PFrame(number), MX_SUB_P);
            pictures.push_back(test::PSample(number));
        }
        if (i % 500 == 0) AwaitSnapshot();
    }
    done = true;
    second.join();
    EXPECT_GE(snapshots, kFrames / 500);
    EXPECT_EQ(MX_CreateTailer(handle, nullptr), 0u);
    const IsoFile file(sink.file);
    EXPECT_EQ(file.Samples(0), pictures);
    EXPECT_EQ(file.Samples(1), sounds);
}

INSTANTIATE_TEST_SUITE_P(Forms, BackupThread,
                         testing::Values(MX_FORMAT_MP4, MX_FORMAT_MOV, MX_FORMAT_MP4_NOSEEK, MX_FORMAT_MP4_64,
                                         MX_FORMAT_MOV_64),
                         [](const auto& form) { return "Format" + std::to_string(form.param); });

}  // namespace
