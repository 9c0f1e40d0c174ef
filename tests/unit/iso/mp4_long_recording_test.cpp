// What a recording costs over its length: memory, and the cost of keeping the index current.
#include <gtest/gtest.h>

#include "mp4_recording.h"
#include "support/allocation_counter.h"

namespace Orvane::Muxora {
namespace {

// A million samples: 25 video and 47 audio frames a second, a key frame each second.
struct Million {
    explicit Million(uint32_t format) : packet(format) {
        packet.init();
        packet.createHeader(nullptr, 0);
        Give();  // the tracks open
    }
    void Give() {
        MXFrameInfo video = test::VideoFrame(given % 72 == 0 ? key : picture, 2, given % 72 == 0 ? 0 : 1);
        MXFrameInfo sound = test::AudioFrame(audio, 26);
        MXFrameInfo& frame = given % 72 == 0 || given % 72 > 48 ? video : sound;
        EXPECT_EQ(packet.inputFrame(&frame, 0), 0u);
        if (given % 72 == 0) ++keys;
        ++given;
    }

    CMp4Packet packet;
    ByteVector key = KeyFrame();
    ByteVector picture = PFrame();
    ByteVector audio = AdtsFrame(30);
    uint32_t given = 0;
    uint32_t keys = 0;
};

TEST(LongRecording, TakesEightBytesASampleAndFourAKeyFrame) {
    for (const uint32_t format : {0U, 6U, 7U, 12U}) {
        Million recording(format);
        const test::AllocationCounter allocations;
        while (recording.given < 1000000)
            recording.Give();
        // Each of the five tables may have one block of 64 KB begun; the lists of blocks take 16 bytes a block.
        const uint64_t tables = 8ULL * recording.given + 4ULL * recording.keys;
        EXPECT_GE(allocations.Bytes(), tables - 5 * 65536);
        EXPECT_LE(allocations.Bytes(), tables + 5 * 65536 + 16384);
    }
}

TEST(LongRecording, TakesTwelveBytesASampleWith64BitOffsets) {
    for (const uint32_t format : {14U, 15U}) {
        Million recording(format);
        const test::AllocationCounter allocations;
        while (recording.given < 1000000)
            recording.Give();
        const uint64_t tables = 12ULL * recording.given + 4ULL * recording.keys;
        EXPECT_GE(allocations.Bytes(), tables - 5 * 65536);
        EXPECT_LE(allocations.Bytes(), tables + 5 * 65536 + 16384);
    }
}

TEST(LongRecording, AllocatesNothingBetweenTheBlocksOfItsTables) {
    Million recording(0);
    while (recording.given < 3200)
        recording.Give();
    const test::AllocationCounter allocations;
    while (recording.given < 6000)
        recording.Give();
    EXPECT_EQ(allocations.Count(), 0u);
}

}  // namespace
}  // namespace Orvane::Muxora
