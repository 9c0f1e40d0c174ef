#include "hub/time_repair.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>

using Orvane::Muxora::Gateway::Frame;
using Orvane::Muxora::Gateway::TimeRepair;

namespace {

Frame Picture(int64_t dts, int64_t pts, int64_t duration = 40) {
    Frame frame;
    frame.media.type = MX_FRAME_VIDEO;
    frame.time_scale = 1000;
    frame.dts = dts;
    frame.pts = pts;
    frame.duration = duration;
    return frame;
}

Frame Sound(int64_t dts, uint32_t scale = 48000) {
    Frame frame;
    frame.media.type = MX_FRAME_AUDIO;
    frame.time_scale = scale;
    frame.dts = frame.pts = dts;
    frame.duration = 1024;
    return frame;
}

Frame Repaired(TimeRepair& repair, Frame frame) {
    repair.Take(frame);
    return frame;
}

}  // namespace

TEST(TimeRepair, GoodTimesStay) {
    TimeRepair repair;
    EXPECT_EQ(Repaired(repair, Picture(-80, 0)).dts, -80);
    const Frame second = Repaired(repair, Picture(-40, 120));
    EXPECT_EQ(second.dts, -40);
    EXPECT_EQ(second.pts, 120);
    EXPECT_EQ(repair.Video().not_rising + repair.Video().jumps + repair.Video().early, 0U);
}

TEST(TimeRepair, ASmallStepBackBecomesOneTickMore) {
    TimeRepair repair;
    Repaired(repair, Picture(1000, 1000));
    EXPECT_EQ(Repaired(repair, Picture(1000, 1000)).dts, 1001);
    EXPECT_EQ(Repaired(repair, Picture(500, 500)).dts, 1002);
    EXPECT_EQ(Repaired(repair, Picture(1080, 1080)).dts, 1080);
    EXPECT_EQ(Repaired(repair, Picture(1080, 1160)).pts, 1160);
    EXPECT_EQ(repair.Video().not_rising, 3U);
    EXPECT_EQ(repair.Video().jumps, 0U);
}

TEST(TimeRepair, AStepBackByASecondGoesOnWhereTheFrameBeforeEnded) {
    TimeRepair repair;
    Repaired(repair, Picture(5000, 5080));
    const Frame first = Repaired(repair, Picture(100, 180));
    EXPECT_EQ(first.dts, 5040);
    EXPECT_EQ(first.pts, 5120);
    EXPECT_EQ(Repaired(repair, Picture(140, 140)).dts, 5080);  // the offset keeps what follows in step
    EXPECT_EQ(repair.Video().jumps, 1U);
}

TEST(TimeRepair, AMinuteAheadIsAJumpAndLessIsNot) {
    TimeRepair repair;
    Repaired(repair, Picture(0, 0));
    EXPECT_EQ(Repaired(repair, Picture(60040, 60040)).dts, 60040);
    EXPECT_EQ(Repaired(repair, Picture(120081, 120081)).dts, 60080);
    EXPECT_EQ(repair.Video().jumps, 1U);
}

TEST(TimeRepair, TheOtherStreamTakesTheSameOffsetWhenItJumps) {
    TimeRepair repair;
    Repaired(repair, Picture(10000, 10000));
    Repaired(repair, Sound(10 * 48000));
    // Both begin again at 0, the sound 20 ms later.
    EXPECT_EQ(Repaired(repair, Picture(0, 0)).dts, 10040);
    EXPECT_EQ(Repaired(repair, Sound(960)).dts, 10040 * 48 + 960);
    EXPECT_EQ(repair.Audio().jumps, 1U);
}

// Under UndefinedBehaviorSanitizer: no sum and no conversion leaves its type, and times rise all the same.
TEST(TimeRepair, TimesAtTheEndOfTheirTypeRiseAndOverflowNothing) {
    constexpr int64_t kTimes[] = {INT64_MIN,     INT64_MAX,    0, INT64_MAX - 1, INT64_MIN + 1, -1,
                                  INT64_MAX / 2, INT64_MIN / 2};
    for (const uint32_t scale : {1U, 1000U, 90000U, 1000000U, UINT32_MAX}) {
        TimeRepair repair;
        double last = -1e300;
        for (int round = 0; round < 3; ++round) {
            for (const int64_t dts : kTimes) {
                for (const int64_t pts : kTimes) {
                    Frame frame = Picture(dts, pts, dts);
                    frame.time_scale = scale;
                    const Frame repaired = Repaired(repair, frame);
                    EXPECT_GE(repaired.DtsSeconds(), last);
                    EXPECT_GE(repaired.pts, repaired.dts);
                    EXPECT_LT(std::abs(repaired.DtsSeconds()), 2e11);
                    EXPECT_LT(std::abs(static_cast<double>(repaired.pts) / scale), 4e11);
                    last = repaired.DtsSeconds();
                    Repaired(repair, Sound(pts, scale));
                }
            }
        }
    }
    // A scale that changes at the far end does not leave it.
    TimeRepair repair;
    for (const uint32_t scale : {1U, UINT32_MAX, 1000U, UINT32_MAX})
        EXPECT_LE(Repaired(repair, Sound(INT64_MAX, scale)).dts, INT64_MAX / 4) << scale;
}

TEST(TimeRepair, APictureShownBeforeItIsDecodedIsShownThen) {
    TimeRepair repair;
    const Frame frame = Repaired(repair, Picture(1000, 960));
    EXPECT_EQ(frame.dts, 1000);
    EXPECT_EQ(frame.pts, 1000);
    EXPECT_EQ(repair.Video().early, 1U);
}
