// Allocations that fail one after the other: a frame without memory is refused and is as if it had not been given.
#include <gtest/gtest.h>

#include <cstring>
#include <new>

#include "mp4_recording.h"
#include "support/allocation_counter.h"
#include "support/quiet_file.h"

namespace Orvane::Muxora {
namespace {

using test::IsoFile;

constexpr uint32_t kFormats[] = {0, 6, 7, 12, 14, 15};

class QuietRecording {
  public:
    explicit QuietRecording(uint32_t format) : packet(format, &param_) {
        packet.init();
        packet.createHeader(nullptr, 0);
    }
    uint32_t Video(ByteVector data, uint32_t sub_type, uint32_t frame_rate = 25) {
        MXFrameInfo frame = test::VideoFrame(data, 2, sub_type);
        frame.frame_rate = frame_rate;
        return packet.inputFrame(&frame, 0);
    }
    uint32_t Audio(ByteVector data) {
        MXFrameInfo frame = test::AudioFrame(data, 26);
        return packet.inputFrame(&frame, 0);
    }
    IsoFile Finish() {
        EXPECT_EQ(packet.createTailer(nullptr, 0), 0u);
        return IsoFile(file_.bytes);
    }

  private:
    test::QuietFile file_;
    MXCreateParam param_ = file_.Param();

  public:
    CMp4Packet packet;
};

// The result of a frame that finds memory for `successes` allocations.
uint32_t InputWith(uint64_t successes, CMp4Packet& packet, MXFrameInfo frame) {
    const test::FailingAllocations failing(successes);
    try {
        return packet.inputFrame(&frame, 0);
    } catch (const std::bad_alloc&) {
        return MX_NO_RESOURCES;
    }
}

TEST(Mp4Faults, AnAudioTrackThatCouldNotOpenOpensWithTheNextFrame) {
    for (const uint32_t format : kFormats) {
        uint32_t result = MX_NO_RESOURCES;
        for (uint64_t successes = 0; result != MX_OK; ++successes) {
            SCOPED_TRACE("format " + std::to_string(format) + ", " + std::to_string(successes) + " allocations");
            QuietRecording recording(format);
            recording.Video(KeyFrame(), 0);
            ByteVector bytes = AdtsFrame(20, 0x31);
            result = InputWith(successes, recording.packet, test::AudioFrame(bytes, 26));
            ASSERT_TRUE(result == MX_OK || result == MX_NO_RESOURCES);
            EXPECT_EQ(recording.Audio(AdtsFrame(30, 0x32)), 0u);

            std::vector<ByteVector> expected;
            if (result == MX_OK) expected.emplace_back(20, 0x31);
            expected.emplace_back(30, 0x32);
            EXPECT_EQ(recording.Finish().Samples(1), expected);
        }
    }
}

TEST(Mp4Faults, AVideoTrackThatCouldNotOpenOpensWithTheNextKeyFrame) {
    for (const uint32_t format : kFormats) {
        uint32_t result = MX_NO_RESOURCES;
        for (uint64_t successes = 0; result != MX_OK; ++successes) {
            SCOPED_TRACE("format " + std::to_string(format) + ", " + std::to_string(successes) + " allocations");
            QuietRecording recording(format);
            ByteVector bytes = KeyFrame();
            result = InputWith(successes, recording.packet, test::VideoFrame(bytes, 2, 0));
            ASSERT_TRUE(result == MX_OK || result == MX_NO_RESOURCES);
            // Without a track this one is dropped: nothing goes ahead of a key frame.
            EXPECT_EQ(recording.Video(PFrame(1), 1), 0u);
            EXPECT_EQ(recording.Video(KeyFrame(), 0), 0u);
            std::vector<ByteVector> expected;
            if (result == MX_OK) expected = {KeySample(), PSample(1)};
            expected.push_back(KeySample());
            EXPECT_EQ(recording.Finish().Samples(0), expected);
        }
    }
}

// Each table grows for the first time behind 2048 words. At 30 frames per second stts has a run for nearly every frame,
// so that it grows, too. A frame without memory for one of its tables is in none of them.
TEST(Mp4Faults, ASampleIsInAllTablesOrInNone) {
    for (const uint32_t format : kFormats) {
        uint32_t refused = 0;
        for (const uint64_t successes : {0u, 1u, 2u, 3u, 4u, 5u}) {
            SCOPED_TRACE("format " + std::to_string(format) + ", " + std::to_string(successes) + " allocations");
            QuietRecording recording(format);
            std::vector<ByteVector> expected;
            for (uint32_t i = 0; i < 2200; ++i) {
                // Key frames alone, so that stss is as long as the others.
                ByteVector bytes = PFrame(static_cast<uint8_t>(i));
                MXFrameInfo frame = test::VideoFrame(bytes, 2, 0);
                frame.frame_rate = 29 + i % 2;
                const uint32_t result = InputWith(successes, recording.packet, frame);
                if (result == MX_OK) expected.push_back(PSample(static_cast<uint8_t>(i)));
                if (result != MX_OK) {
                    ASSERT_EQ(result, uint32_t{MX_NO_RESOURCES});
                    ++refused;
                    ASSERT_EQ(InputWith(100, recording.packet, frame), uint32_t{MX_OK});
                    expected.push_back(PSample(static_cast<uint8_t>(i)));
                }
            }
            const IsoFile file = recording.Finish();
            EXPECT_EQ(file.Samples(0), expected);
            EXPECT_EQ(file.SyncSamples(0).size(), expected.size());
        }
        EXPECT_GE(refused, 8u);
    }
}

// What the frame came to before is not in the file either: the next one has its number, time and place.
TEST(Mp4Faults, ARefusedFrameLeavesNoTrace) {
    for (const uint32_t format : kFormats) {
        QuietRecording with(format);
        QuietRecording without(format);
        for (QuietRecording* recording : {&with, &without}) {
            for (uint32_t i = 0; i < 2048; ++i)
                ASSERT_EQ(recording->Video(i == 0 ? KeyFrame() : PFrame(1), i == 0 ? 0 : 1, 30), 0u);
        }
        ByteVector lost = PFrame(7);
        EXPECT_EQ(InputWith(0, with.packet, test::VideoFrame(lost, 2, 0)), uint32_t{MX_NO_RESOURCES});
        for (QuietRecording* recording : {&with, &without})
            ASSERT_EQ(recording->Video(PFrame(2), 1, 30), 0u);
        const IsoFile file = with.Finish();
        const IsoFile expected = without.Finish();
        EXPECT_EQ(file.Samples(0), expected.Samples(0));
        EXPECT_EQ(file.Runs(0), expected.Runs(0));
        EXPECT_EQ(file.SyncSamples(0), expected.SyncSamples(0));
        EXPECT_EQ(file.Offsets(0), expected.Offsets(0));
    }
}

// A frame that outgrows the work buffer and finds no memory leaves the buffer as wide as it was.
TEST(Mp4Faults, AFrameTooLargeForTheMemoryIsRefused) {
    QuietRecording recording(0);
    recording.Video(KeyFrame(), 0);
    ByteVector large = PFrame(1);
    large.resize(100000, 0xFF);
    EXPECT_EQ(InputWith(0, recording.packet, test::VideoFrame(large, 2, 1)), uint32_t{MX_NO_RESOURCES});
    ByteVector small = PFrame(2);
    EXPECT_EQ(InputWith(0, recording.packet, test::VideoFrame(small, 2, 1)), uint32_t{MX_OK});
    EXPECT_EQ(recording.Finish().Samples(0), (std::vector<ByteVector>{KeySample(), PSample(2)}));
}

// Half of the boxes are none: whatever comes behind a start without memory is refused.
TEST(Mp4Faults, AStartWithoutMemory) {
    test::QuietFile file;
    const MXCreateParam param = file.Param();
    bool whole = false;
    for (uint64_t fault = 0; !whole; ++fault) {
        ASSERT_LT(fault, 1000u);
        CMp4Packet packet(0, &param);
        whole = true;
        try {
            const test::FailingAllocations failing(fault, 1);
            packet.init();
        } catch (const std::bad_alloc&) {
            whole = false;
        }
        EXPECT_EQ(packet.createHeader(nullptr, 0) == MX_OK, whole) << fault;
        if (!whole) {
            EXPECT_NE(packet.createTailer(nullptr, 0), 0u) << fault;
        }
    }
}

}  // namespace
}  // namespace Orvane::Muxora
