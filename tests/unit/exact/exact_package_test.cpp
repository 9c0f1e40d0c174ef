#include "exact/exact_package.h"

#include <gtest/gtest.h>

#include <string>

#include "support/frames.h"
#include "support/hex.h"

namespace Orvane::Muxora {
namespace {

using test::ByteVector;

// Notes what the base calls, and hands the frame out as a block.
class CNotes : public CExactPackage {
  public:
    explicit CNotes(const MXCreateParam* param) : CExactPackage(MX_FORMAT_FMP4, param, 1000) {}
    bool checkFrame(const MXFrameInfo* frame) const override { return frame->frame_type != MX_FRAME_PRIVATE; }
    uint32_t getEncodeCapacity(uint32_t, const void**, uint32_t*) const override { return MX_OK; }
    uint32_t getCodecCapacity(uint32_t, const void**, uint32_t*) const override { return MX_OK; }

    std::string calls;

  protected:
    uint32_t PackVideo(const MXFrameInfo& frame) override {
        calls += 'v';
        const FrameTime time = VideoTime(frame, 0);
        EmitExactAt(frame.frame_pointer, frame.frame_size, 5000000000,
                    {MX_BLOCK_MEDIA, MX_BLOCK_KEY | MX_BLOCK_VIDEO, time.scale, time.dts, 40});
        return MX_OK;
    }
    uint32_t PackAudio(const MXFrameInfo& frame, const AudioMeasure& measure) override {
        calls += 'a';
        AudioTime(frame, measure);
        EmitExact(frame.frame_pointer, frame.frame_size, {MX_BLOCK_INDEX, 0, 0, 0, 0});
        return MX_OK;
    }
    uint32_t Finish() override {
        calls += 'f';
        return MX_OK;
    }
};

MXExactBlock g_block;
int32_t Keep(const MXOutputBlock* block, void* /*user*/) {
    g_block = *reinterpret_cast<const MXExactBlock*>(block);
    return 0;
}

struct ExactPackage : testing::Test {
    MXCreateParam param{0, nullptr, nullptr, nullptr, Keep};
    CNotes package{&param};
    ByteVector bytes{1, 2, 3};
    MXFrameInfo video = test::VideoFrame(bytes, MX_VIDEO_H264, MX_SUB_I, 1000);
    MXFrameInfo audio = test::AudioFrame(bytes, MX_AUDIO_ALAW, 1000);
};

TEST_F(ExactPackage, FramesAreTakenBetweenInitAndTheEnd) {
    EXPECT_EQ(package.inputFrame(&video, 0), 3u);
    EXPECT_EQ(package.createHeader(nullptr, 0), 3u);
    EXPECT_EQ(package.createTailer(nullptr, 0), 3u);
    EXPECT_EQ(package.init(), 0u);
    EXPECT_EQ(package.inputFrame(&video, 0), 0u);
    EXPECT_EQ(package.createHeader(nullptr, 0), 0u);
    EXPECT_EQ(package.inputFrame(&audio, 0), 0u);
    EXPECT_EQ(package.createTailer(nullptr, 0), 0u);
    EXPECT_EQ(package.createTailer(nullptr, 0), 3u);
    EXPECT_EQ(package.inputFrame(&video, 0), 3u);
    EXPECT_EQ(package.init(), 3u);
    EXPECT_EQ(package.calls, "vaf");
}

TEST_F(ExactPackage, RefusesWhatItCannotTake) {
    package.init();
    EXPECT_EQ(package.inputFrame(nullptr, 0), 3u);
    video.frame_size = 0;
    EXPECT_EQ(package.inputFrame(&video, 0), 3u);
    MXFrameInfo other = test::Frame(bytes, MX_FRAME_PRIVATE, 0);
    EXPECT_EQ(package.inputFrame(&other, 0), 5u);
    EXPECT_EQ(package.calls, "");
}

TEST_F(ExactPackage, OtherChannelsOfSoundVanish) {
    package.init();
    audio.ma_cur_channel = 2;
    EXPECT_EQ(package.inputFrame(&audio, 0), 0u);
    audio.ma_cur_channel = 1;
    EXPECT_EQ(package.inputFrame(&audio, 0), 0u);
    audio.ma_cur_channel = 2;
    EXPECT_EQ(package.inputFrame(&audio, 0), 0u);
    EXPECT_EQ(package.calls, "aa");
}

TEST_F(ExactPackage, BlocksAreOfSixtyFourBytes) {
    package.init();
    package.inputFrame(&video, 0);
    EXPECT_EQ(g_block.block.size, 64u);
    EXPECT_EQ(g_block.block.length, 3u);
    EXPECT_EQ(g_block.block.seek_type, 0u);
    EXPECT_EQ(g_block.block.offset, 5000000000);
    EXPECT_EQ(g_block.block.offset32, 705032704u);
    EXPECT_EQ(g_block.kind, 1u);
    EXPECT_EQ(g_block.flags, 3u);
    EXPECT_EQ(g_block.time_scale, 1000u);
    EXPECT_EQ(g_block.dts, 1000);
    EXPECT_EQ(g_block.duration, 40);
    package.inputFrame(&audio, 0);
    EXPECT_EQ(g_block.block.seek_type, 1u);
    EXPECT_EQ(g_block.block.offset, 0);
    EXPECT_EQ(g_block.kind, 2u);
}

TEST_F(ExactPackage, RepairsAreCountedByStream) {
    package.init();
    MXSetFrameTimes(&video, 1000, 100, 50, 0);
    package.inputFrame(&video, 0);
    package.inputFrame(&video, 0);
    MXSetFrameTimes(&audio, 1000, 100, 100, 20);
    package.inputFrame(&audio, 0);
    MXSetFrameTimes(&audio, 1000, 100000, 100000, 20);
    package.inputFrame(&audio, 0);
    MXTimeRepairs repairs{};
    package.GetTimeRepairs(repairs);
    EXPECT_EQ(repairs.size, 28u);
    EXPECT_EQ(repairs.video_not_rising, 1u);
    EXPECT_EQ(repairs.video_jumps, 0u);
    EXPECT_EQ(repairs.video_early_pictures, 2u);
    EXPECT_EQ(repairs.audio_not_rising, 0u);
    EXPECT_EQ(repairs.audio_jumps, 1u);
    EXPECT_EQ(repairs.audio_early_frames, 0u);
}

}  // namespace
}  // namespace Orvane::Muxora
