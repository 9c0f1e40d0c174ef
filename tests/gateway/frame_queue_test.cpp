#include "hub/frame_queue.h"

#include <gtest/gtest.h>

#include <vector>

using namespace Orvane::Muxora::Gateway;

namespace {

using Taken = FrameQueue::Taken;

FramePtr Of(uint32_t type, uint32_t sub_type, size_t size) {
    auto frame = std::make_shared<Frame>();
    frame->media.type = type;
    frame->media.sub_type = sub_type;
    const std::vector<uint8_t> bytes(size);
    frame->media.SetBytes(bytes.data(), size);
    return frame;
}

FramePtr Key(size_t size) {
    return Of(MX_FRAME_VIDEO, MX_SUB_I, size);
}

FramePtr Between(size_t size) {
    return Of(MX_FRAME_VIDEO, MX_SUB_P, size);
}

FramePtr Sound(size_t size) {
    return Of(MX_FRAME_AUDIO, 0, size);
}

constexpr size_t kAround = sizeof(Frame);

void Write(FrameQueue& queue) {
    queue.Done(queue.Take());
}

}  // namespace

TEST(FrameQueue, CountsBytesAndNotFrames) {
    FrameQueue queue(1000000);
    // Some large pictures fill it, and so do very many small frames.
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(queue.Put(Key(250000)), Taken::kWaits);
    EXPECT_EQ(queue.Bytes(), 750000 + 3 * kAround);
    EXPECT_EQ(queue.Put(Key(250000)), Taken::kLost);
    FrameQueue other(1000000);
    size_t count = 0;
    while (other.Put(Sound(1)) == Taken::kWaits)
        ++count;
    EXPECT_EQ(count, 1000000 / (kAround + 1));
}

TEST(FrameQueue, GoesOnWithAKeyFrameOnceHalfOfItIsFree) {
    FrameQueue queue(10000 + 5 * kAround);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(queue.Put(i == 0 ? Key(2000) : Between(2000)), Taken::kWaits);
    EXPECT_EQ(queue.Put(Between(2000)), Taken::kLost);
    Write(queue);
    EXPECT_EQ(queue.Put(Key(2000)), Taken::kLost);  // four of five are still there
    Write(queue);
    Write(queue);
    EXPECT_EQ(queue.Put(Between(2000)), Taken::kLost);
    EXPECT_EQ(queue.Put(Sound(10)), Taken::kLost);
    EXPECT_EQ(queue.Put(Key(2000)), Taken::kWaitsBehind);
    EXPECT_EQ(queue.Put(Between(2000)), Taken::kWaits);
}

TEST(FrameQueue, WhatIsBeingWrittenCountsUntilItIsDone) {
    FrameQueue queue(10000);
    EXPECT_EQ(queue.Put(Key(9000)), Taken::kWaits);
    const FramePtr frame = queue.Take();
    EXPECT_TRUE(queue.Empty());
    EXPECT_EQ(queue.Put(Key(9000)), Taken::kLost);
    queue.Done(frame);
    EXPECT_EQ(queue.Put(Key(9000)), Taken::kWaitsBehind);
}

TEST(FrameQueue, OneFrameHasItsPlaceHoweverLarge) {
    FrameQueue queue(1000);
    EXPECT_EQ(queue.Put(Key(5000)), Taken::kWaits);
    EXPECT_EQ(queue.Put(Sound(1)), Taken::kLost);
}

TEST(FrameQueue, SoundAloneGoesOnAnywhere) {
    FrameQueue queue(1000 + 2 * kAround);
    EXPECT_EQ(queue.Put(Sound(500)), Taken::kWaits);
    EXPECT_EQ(queue.Put(Sound(500)), Taken::kWaits);
    EXPECT_EQ(queue.Put(Sound(500)), Taken::kLost);
    Write(queue);
    EXPECT_EQ(queue.Put(Sound(500)), Taken::kWaitsBehind);
}
