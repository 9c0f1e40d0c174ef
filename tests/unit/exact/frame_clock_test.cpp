// The rule of repair in literal numbers.
#include "exact/frame_clock.h"

#include <gtest/gtest.h>

#include <limits>

#include "codec/audio_frames.h"
#include "exact/rescale.h"

namespace Orvane::Muxora {
namespace {

MXFrameInfo Timed(uint32_t scale, int64_t dts, int64_t pts, int64_t duration = 0) {
    MXFrameInfo frame{};
    frame.size = sizeof frame;
    MXSetFrameTimes(&frame, scale, dts, pts, duration);
    return frame;
}

MXFrameInfo Stamped(uint32_t timestamp, uint32_t rate = 25) {
    MXFrameInfo frame{};
    frame.size = sizeof frame;
    frame.timestamp = timestamp;
    frame.frame_rate = rate;
    return frame;
}

constexpr AudioMeasure kAac{1024, 44100, 2};

struct Pair {
    int64_t dts;
    int64_t pts;
    bool operator==(const Pair&) const = default;
    friend std::ostream& operator<<(std::ostream& out, const Pair& pair) { return out << pair.dts << '/' << pair.pts; }
};

Pair Video(FrameClock& clock, const MXFrameInfo& frame, uint32_t depth = 0) {
    const FrameTime time = clock.Video(frame, depth);
    return {time.dts, time.pts};
}

TEST(Rescale, RoundsToTheNearest) {
    EXPECT_EQ(Rescale(1001, 30000, 90000), 3003);
    EXPECT_EQ(Rescale(1, 3, 1000), 333);
    EXPECT_EQ(Rescale(2, 3, 1000), 667);
    EXPECT_EQ(Rescale(-1, 3, 1000), -333);
    EXPECT_EQ(Rescale(-1024, 44100, 1000), -23);
    EXPECT_EQ(Rescale(1, 2000, 1000), 1);
    EXPECT_EQ(Rescale(-1, 2000, 1000), 0);
    EXPECT_EQ(Rescale(std::numeric_limits<int64_t>::max(), 1, kFinestScale), int64_t{1} << 57);
    EXPECT_EQ(Rescale(std::numeric_limits<int64_t>::min(), 1, kFinestScale), -(int64_t{1} << 57));
}

TEST(FrameClock, GivenTimesStay) {
    FrameClock clock;
    FrameTime time = clock.Video(Timed(30000, -2002, 0, 1001), 0);
    EXPECT_EQ(time.scale, 30000u);
    EXPECT_EQ(time.dts, -2002);
    EXPECT_EQ(time.pts, 0);
    EXPECT_EQ(time.duration, 1001);
    EXPECT_EQ(Video(clock, Timed(30000, -1001, 4004)), (Pair{-1001, 4004}));
    EXPECT_EQ(Video(clock, Timed(30000, 0, 2002)), (Pair{0, 2002}));
    // Another scale in mid-stream is brought to the first.
    EXPECT_EQ(Video(clock, Timed(90000, 3003, 3003)), (Pair{1001, 1001}));
    EXPECT_EQ(clock.Repairs().video_not_rising, 0u);
    EXPECT_EQ(clock.Repairs().video_early_pictures, 0u);
}

TEST(FrameClock, AFixedScaleRoundsTimesAndEnds) {
    FrameClock clock(1000);
    const FrameTime first = clock.Video(Timed(30000, 1001, 2002, 1001), 0);
    EXPECT_EQ(first.scale, 1000u);
    EXPECT_EQ(first.dts, 33);
    EXPECT_EQ(first.pts, 67);
    EXPECT_EQ(first.duration, 34);  // 66.7 rounded, less 33
    EXPECT_EQ(clock.Audio(Timed(44100, 1024, 1024, 1024), kAac).dts, 23);
}

TEST(FrameClock, TooFineAScaleIsReduced) {
    FrameClock clock;
    const FrameTime time = clock.Video(Timed(1000000000, 33366667, 33366667, 33366667), 0);
    EXPECT_EQ(time.scale, 10000000u);
    EXPECT_EQ(time.dts, 333667);
    EXPECT_EQ(FrameClock().Video(Timed(27000000, 1, 1), 0).scale, 27000000u);
}

TEST(FrameClock, RepeatsAndSmallStepsBackBecomeOneTick) {
    FrameClock clock;
    EXPECT_EQ(Video(clock, Timed(90000, 3600, 3600)), (Pair{3600, 3600}));
    EXPECT_EQ(Video(clock, Timed(90000, 3600, 3600)), (Pair{3601, 3601}));
    EXPECT_EQ(Video(clock, Timed(90000, -86398, 7200)), (Pair{3602, 7200}));  // 89999 back
    EXPECT_EQ(Video(clock, Timed(90000, 7200, 7200)), (Pair{7200, 7200}));
    EXPECT_EQ(clock.Repairs().video_not_rising, 2u);
    EXPECT_EQ(clock.Repairs().video_jumps, 0u);
    EXPECT_EQ(clock.Repairs().video_early_pictures, 0u);
}

TEST(FrameClock, AStepBackByASecondIsAJump) {
    FrameClock clock;
    Video(clock, Timed(1000, 5000, 5000, 40));
    EXPECT_EQ(Video(clock, Timed(1000, 4000, 4080, 40)), (Pair{5040, 5120}));
    EXPECT_EQ(Video(clock, Timed(1000, 4040, 4040, 40)), (Pair{5080, 5080}));
    EXPECT_EQ(clock.Repairs().video_jumps, 1u);
    EXPECT_EQ(clock.Repairs().video_not_rising, 0u);
}

TEST(FrameClock, MoreThanAMinutePastTheEndIsAJump) {
    FrameClock clock;
    Video(clock, Timed(1000, 0, 0, 40));
    EXPECT_EQ(Video(clock, Timed(1000, 60040, 60040, 40)), (Pair{60040, 60040}));
    EXPECT_EQ(Video(clock, Timed(1000, 120081, 120081, 40)), (Pair{60080, 60080}));
    EXPECT_EQ(clock.Repairs().video_jumps, 1u);
}

TEST(FrameClock, WithoutDurationsTheIntervalBeforeTellsTheEnd) {
    FrameClock clock;
    Video(clock, Timed(1000, 0, 0));
    Video(clock, Timed(1000, 40, 40));
    EXPECT_EQ(Video(clock, Timed(1000, 100000, 100000)), (Pair{80, 80}));
}

TEST(FrameClock, TheOtherStreamTakesTheSameOffset) {
    FrameClock clock;
    Video(clock, Timed(1000, 10000, 10000, 40));
    clock.Audio(Timed(48000, 480000, 480000, 1024), kAac);
    // The source starts again: pictures at 500 ms, sound at 490 ms. The offset is 10040 - 500 = 9540 ms.
    EXPECT_EQ(Video(clock, Timed(1000, 500, 500, 40)), (Pair{10040, 10040}));
    EXPECT_EQ(clock.Audio(Timed(48000, 24480, 24480, 1024), kAac).dts, 482400);  // 510 + 9540 = 10050 ms
    EXPECT_EQ(clock.Repairs().video_jumps, 1u);
    EXPECT_EQ(clock.Repairs().audio_jumps, 1u);
    // A second jump begins with the sound: both stay together again.
    EXPECT_EQ(clock.Audio(Timed(48000, 48000 * 500, 48000 * 500, 1024), kAac).dts, 483424);
    // 483424 / 48000 = 10071.3 ms stands for 500000 ms, so 500010 is 10081.3.
    EXPECT_EQ(Video(clock, Timed(1000, 500010, 500010, 40)).dts, 10081);
}

TEST(FrameClock, AStreamThatBeginsLateTakesTheOffset) {
    FrameClock clock;
    Video(clock, Timed(1000, 10000, 10000, 40));
    Video(clock, Timed(1000, 0, 0, 40));
    EXPECT_EQ(clock.Audio(Timed(1000, 10, 10, 20), kAac).dts, 10050);
    EXPECT_EQ(clock.Repairs().audio_jumps, 0u);
}

TEST(FrameClock, PresentationIsNeverAheadOfDecodingNorAMinuteBehind) {
    FrameClock clock;
    EXPECT_EQ(Video(clock, Timed(1000, 1000, 960)), (Pair{1000, 1000}));
    EXPECT_EQ(Video(clock, Timed(1000, 1040, 61040)), (Pair{1040, 61040}));
    EXPECT_EQ(Video(clock, Timed(1000, 1080, 61081)), (Pair{1080, 1080}));
    EXPECT_EQ(clock.Repairs().video_early_pictures, 2u);
    clock.Audio(Timed(1000, 1000, 960), kAac);
    EXPECT_EQ(clock.Repairs().audio_early_frames, 1u);
}

TEST(FrameClock, NearZeroBringsAFarBeginningToZero) {
    FrameClock near(0, FrameClock::Origin::kNearZero);
    EXPECT_EQ(Video(near, Timed(1000, 60001, 60081)), (Pair{0, 80}));
    EXPECT_EQ(near.Audio(Timed(48000, 2880000, 2880000), kAac).dts, -48);
    EXPECT_EQ(near.Repairs().video_jumps, 0u);
    // A minute either way is near.
    for (const int64_t time : {60000, -60000}) {
        FrameClock kept(0, FrameClock::Origin::kNearZero);
        EXPECT_EQ(Video(kept, Timed(1000, time, time)), (Pair{time, time}));
    }
    FrameClock moved(0, FrameClock::Origin::kNearZero);
    EXPECT_EQ(Video(moved, Timed(1000, -60001, -60001)), (Pair{0, 0}));
}

TEST(FrameClock, ExtremeTimesAreSafe) {
    constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
    constexpr int64_t kMin = std::numeric_limits<int64_t>::min();
    for (const uint32_t scale : {1u, 1000u, 0xFFFFFFFFu}) {
        FrameClock clock(scale == 1000 ? 1000 : 0);
        int64_t last = kMin;
        for (const int64_t time : {kMin, kMax, int64_t{0}, kMax, kMin, int64_t{1}, kMax}) {
            const FrameTime frame = clock.Video(Timed(scale, time, ~time, kMax), 0);
            EXPECT_GT(frame.dts, last);
            EXPECT_GE(frame.pts, frame.dts);
            EXPECT_GE(frame.duration, 0);
            last = frame.dts;
        }
    }
}

TEST(FrameClock, ZeroedAndForeignRecordsGiveNoTimes) {
    EXPECT_FALSE(ReadFrameTimes(Stamped(7)));
    EXPECT_FALSE(ReadFrameTimes(Timed(0, 1, 1)));
    MXFrameInfo frame = Timed(1000, 1, 1);
    frame.reserved1[0] ^= 1;
    EXPECT_FALSE(ReadFrameTimes(frame));
}

// ----------------------------------------------------------------------- times by arrival

TEST(Arrival, TimestampsAreMilliseconds) {
    FrameClock clock;
    EXPECT_EQ(clock.Video(Stamped(0), 0).scale, 90000u);
    EXPECT_EQ(Video(clock, Stamped(33)), (Pair{2970, 2970}));
    EXPECT_EQ(Video(clock, Stamped(67)), (Pair{6030, 6030}));
}

TEST(Arrival, ZeroesCountOnByTheRate) {
    FrameClock clock;
    Video(clock, Stamped(1000, 7));
    for (int64_t frame = 1; frame <= 700; ++frame)
        EXPECT_EQ(Video(clock, Stamped(0, 7)).dts, 90000 + frame * 90000 / 7);
    FrameClock unset;
    Video(unset, Stamped(0, 0));
    EXPECT_EQ(Video(unset, Stamped(0, 0)).dts, 3600);
}

TEST(Arrival, TimestampsWrapAndGoOn) {
    FrameClock clock;
    EXPECT_EQ(Video(clock, Stamped(0xFFFFFFF0)).dts, int64_t{0xFFFFFFF0} * 90);
    EXPECT_EQ(Video(clock, Stamped(24)).dts, (int64_t{1} << 32) * 90 + 24 * 90);
    EXPECT_EQ(clock.Repairs().video_jumps, 0u);
}

// I P B B at 25 pictures a second, two of which may come early.
TEST(Arrival, DecodingTimesArePresentationTimesInOrder) {
    FrameClock clock;
    EXPECT_EQ(Video(clock, Stamped(1000), 2), (Pair{82800, 90000}));
    EXPECT_EQ(Video(clock, Stamped(1120), 2), (Pair{86400, 100800}));
    EXPECT_EQ(Video(clock, Stamped(1040), 2), (Pair{90000, 93600}));
    EXPECT_EQ(Video(clock, Stamped(1080), 2), (Pair{93600, 97200}));
    EXPECT_EQ(Video(clock, Stamped(1240), 2), (Pair{97200, 111600}));
    EXPECT_EQ(clock.Repairs().video_not_rising, 0u);
    EXPECT_EQ(clock.Repairs().video_early_pictures, 0u);
}

TEST(FrameClock, WhatIsTakenBackHasNotBeen) {
    FrameClock clock;
    EXPECT_EQ(Video(clock, Stamped(1000), 2), (Pair{82800, 90000}));
    EXPECT_EQ(Video(clock, Stamped(1120), 2), (Pair{86400, 100800}));
    for (const uint32_t other : {1160u, 900u, 1u, 4000000u}) {
        Video(clock, Stamped(other), 3);
        clock.Undo();
        clock.Undo();
    }
    EXPECT_EQ(Video(clock, Stamped(1040), 2), (Pair{90000, 93600}));
    EXPECT_EQ(Video(clock, Stamped(1080), 2), (Pair{93600, 97200}));
    EXPECT_EQ(Video(clock, Stamped(1240), 2), (Pair{97200, 111600}));
    const MXTimeRepairs repairs = clock.Repairs();
    EXPECT_EQ(repairs.video_not_rising + repairs.video_jumps + repairs.video_early_pictures, 0u);
}

TEST(Arrival, AStreamThatDoesNotSayIsLearned) {
    FrameClock clock;
    const uint32_t stamps[] = {1000, 1120, 1040, 1080, 1240, 1160, 1200, 1360, 1280, 1320};
    int64_t last = 0;
    uint32_t right = 0;
    for (const uint32_t stamp : stamps) {
        const Pair pair = Video(clock, Stamped(stamp));
        EXPECT_GT(pair.dts, last);
        last = pair.dts;
        if (pair.pts == int64_t{stamp} * 90) ++right;
    }
    EXPECT_EQ(right, 8u);  // the two B pictures of the first group come too late
}

TEST(Arrival, SoundCountsSamplesWhileTheStampsAgree) {
    FrameClock clock;
    const auto audio = [&](uint32_t stamp) {
        const FrameTime time = clock.Audio(Stamped(stamp), kAac);
        EXPECT_EQ(time.scale, 44100u);
        EXPECT_EQ(time.duration, 1024);
        return time.dts;
    };
    EXPECT_EQ(audio(1000), 44100);
    EXPECT_EQ(audio(1023), 45124);  // 1023.2 ms
    EXPECT_EQ(audio(1046), 46148);
    EXPECT_EQ(audio(0), 47172);
    EXPECT_EQ(audio(2000), 88200);  // a pause
}

// Each jumps on its own: the offset of the one is of no use to the other.
TEST(FrameClock, AJumpToSomewhereElseIsAnother) {
    FrameClock clock;
    Video(clock, Timed(1000, 0, 0));
    Video(clock, Timed(1000, 40, 40));
    clock.Audio(Timed(1000, 0, 0, 20), kAac);
    EXPECT_EQ(Video(clock, Timed(1000, 1000000, 1000000)), (Pair{80, 80}));
    EXPECT_EQ(clock.Audio(Timed(1000, 5000000, 5000000, 20), kAac).dts, 20);
    EXPECT_EQ(clock.Repairs().audio_jumps, 1u);
    EXPECT_EQ(Video(clock, Timed(1000, 1000040, 1000040)), (Pair{120, 120}));
}

TEST(FrameClock, TimesWhoseEndWouldWrapHaveNoDuration) {
    for (const int64_t time : {std::numeric_limits<int64_t>::max(), std::numeric_limits<int64_t>::min()}) {
        FrameClock clock;
        EXPECT_EQ(clock.Video(Timed(1000, time, time, 40), 0).duration, 0);
    }
}

TEST(Arrival, ZeroesGoOnAtAnotherRate) {
    FrameClock clock;
    EXPECT_EQ(Video(clock, Stamped(1000, 25)).dts, 90000);
    EXPECT_EQ(Video(clock, Stamped(0, 25)).dts, 93600);
    EXPECT_EQ(Video(clock, Stamped(0, 50)).dts, 97200) << "the frame before lasted a 25th";
    EXPECT_EQ(Video(clock, Stamped(0, 50)).dts, 99000);
}

// A second back is no reordering: the pictures that were waited for are forgotten, and the clock sees a jump.
TEST(Arrival, AStepBackByASecondBeginsAnew) {
    FrameClock clock;
    EXPECT_EQ(Video(clock, Stamped(10000), 2), (Pair{892800, 900000}));
    EXPECT_EQ(Video(clock, Stamped(9000), 2), (Pair{892801, 900001}));
    EXPECT_EQ(clock.Repairs().video_jumps, 1u);
    EXPECT_EQ(clock.Repairs().video_not_rising, 0u);
}

TEST(Arrival, SixteenPicturesAreReorderedAtMost) {
    FrameClock clock;
    EXPECT_EQ(Video(clock, Stamped(1000), 20), (Pair{90000 - 16 * 3600, 90000}));
}

// Five steps back in a row, and the sixth picture from then on is decoded where the first one is shown that waits.
TEST(Arrival, FourPicturesAreLearnedAtMost) {
    FrameClock clock;
    for (const uint32_t stamp : {1000u, 960u, 920u, 880u, 840u, 800u, 1400u, 1440u, 1480u, 1520u})
        Video(clock, Stamped(stamp));
    EXPECT_EQ(Video(clock, Stamped(1560)), (Pair{126000, 140400}));
}

// 45124 samples of 44100 a second are 49115 of 48000, and 1024 of those last 941 ticks.
TEST(Arrival, SoundGoesOnAtAnotherRate) {
    FrameClock clock;
    EXPECT_EQ(clock.Audio(Stamped(1000), kAac).dts, 44100);
    const FrameTime other = clock.Audio(Stamped(0), AudioMeasure{1024, 48000, 2});
    EXPECT_EQ(other.scale, 44100u);
    EXPECT_EQ(other.dts, 45124);
    EXPECT_EQ(other.duration, 941);
}

TEST(RisingTimes, ACopyIsTheSame) {
    RisingTimes times;
    for (const int64_t time : {3, 1, 2})
        times.Insert(time);
    RisingTimes& same = times;
    times = same;
    RisingTimes copy(times);
    for (const int64_t time : {1, 2, 3}) {
        EXPECT_EQ(times.TakeFirst(), time);
        EXPECT_EQ(copy.TakeFirst(), time);
    }
    EXPECT_EQ(copy.Count(), 0u);
}

}  // namespace
}  // namespace Orvane::Muxora
