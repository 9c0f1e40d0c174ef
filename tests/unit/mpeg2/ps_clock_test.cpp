// The clocks of the program stream, frame by frame: what goes in, and the PTS, DTS and SCR that come out.
#include <gtest/gtest.h>

#include <optional>

#include "mpeg2/ps_packet.h"
#include "support/frames.h"
#include "support/hex.h"
#include "support/ps_reader.h"
#include "support/sink.h"

namespace Orvane::Muxora {
namespace {

using test::ByteVector;

constexpr uint32_t kI = 0;
constexpr uint32_t kP = 1;

struct Step {
    char kind;  // V or A
    uint32_t sub_type;
    uint32_t timestamp;
    std::optional<uint32_t> pts;  // none: the frame is to fail
    uint32_t seq = 0;
    uint32_t rate = 25;
    bool rebase = false;
    uint32_t size = 3;  // too little for a tick of arrival
};

Step V(uint32_t sub_type, uint32_t timestamp, uint32_t pts, uint32_t seq = 0, uint32_t rate = 25) {
    return {'V', sub_type, timestamp, pts, seq, rate};
}
// A picture of a kind that is not packed, though it moves the clock.
Step FailingV(uint32_t timestamp) {
    return {'V', MX_SUB_OTHER, timestamp, std::nullopt};
}
// Without start codes, an I frame fails; the clock has moved by then.
Step FailingI(uint32_t timestamp) {
    return {'V', kI, timestamp, std::nullopt};
}
Step HeldBack(uint32_t timestamp) {
    return {'V', kP, timestamp, std::nullopt};
}
Step A(uint32_t timestamp, uint32_t pts, bool rebase = false) {
    return {'A', 0, timestamp, pts, 0, 0, rebase};
}

struct Case {
    const char* name;
    std::vector<Step> steps;
};

class PsClock : public testing::TestWithParam<Case> {};

TEST_P(PsClock, PtsFollows) {
    test::Sink sink;
    const MXCreateParam param = sink.Param();
    CPsPacket packet(MX_FORMAT_PS, &param);
    int number = 0;
    for (const Step& step : GetParam().steps) {
        SCOPED_TRACE(testing::Message() << "step " << number++);
        ByteVector data(step.size, 0x11);
        const bool failing_i = step.sub_type == kI && !step.pts;
        MXFrameInfo frame = step.kind == 'V'
                                ? test::VideoFrame(data, failing_i ? MX_VIDEO_H264 : MX_VIDEO_MPEG4, step.sub_type)
                                : test::AudioFrame(data, MX_AUDIO_AAC);
        // One ADTS frame: 1024 samples at 48000 Hz, 1920 ticks.
        if (step.kind == 'A') data[0] = 0xFF, data[1] = 0xF1;
        frame.timestamp = step.timestamp;
        frame.frame_seq = step.seq;
        frame.frame_rate = step.rate;
        frame.ps_clock_rebase = step.rebase;
        ASSERT_EQ(packet.inputFrame(&frame, 0), step.pts ? 0u : 5u);
        if (!step.pts) continue;
        const std::vector<test::PsUnit> units = test::ReadPs(sink.Last());
        EXPECT_EQ(units.back().pes.pts, *step.pts);
        if (step.kind == 'A') {
            EXPECT_EQ(units.front().scr, *step.pts);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Table, PsClock,
    testing::Values(
        Case{"Start", {V(kI, 1000, 180000), V(kP, 1040, 183600), V(kP, 1080, 187200)}},
        Case{"StartAtZero", {V(kI, 0, 90000), V(kP, 40, 93600)}},
        Case{"EqualTimesGoBySequence",
             {V(kI, 1000, 180000, 10), V(kP, 1000, 183600, 11), V(kP, 1000, 194400, 14), V(kP, 1000, 190800, 13),
              V(kP, 1000, 190800, 13), V(kP, 1040, 194400, 14)}},
        Case{"EqualTimesCutTheFraction",
             {V(kI, 0, 90000, 5, 29), V(kP, 0, 93103, 6, 29), V(kP, 0, 99309, 8, 29), V(kP, 0, 96206, 7, 29)}},
        Case{"SequenceThatRunsOver", {V(kI, 0, 90000, 0xFFFFFFFF), V(kP, 0, 93600, 0), V(kP, 0, 97200, 1)}},
        Case{"BackwardStepsAreOnePeriod",
             {V(kI, 1000, 180000), V(kP, 1040, 183600), V(kP, 500, 187200), V(kP, 580, 194400), V(kP, 579, 198000)}},
        Case{"BackwardStepOfAnotherRate", {V(kI, 1000, 180000, 0, 30), V(kP, 10, 182970, 0, 30)}},  // 33 ms
        Case{"BackwardStepOfAPictureASecond", {V(kI, 1000, 180000, 0, 1), V(kP, 10, 270000, 0, 1)}},
        Case{"WrapAt32Bits", {V(kI, 47720858, 4294967220), V(kP, 47720898, 3524), V(kP, 47720938, 7124)}},
        Case{"AudioNearTheStartKeepsItsTime", {V(kI, 1000, 180000), A(1127, 191430)}},
        Case{"AudioFarFromTheStartTakesTheBase", {V(kI, 1000, 180000), A(1128, 180000)}},
        Case{"AudioNearBelow", {V(kI, 1000, 180000), A(873, 168570)}},
        Case{"AudioFarBelow", {V(kI, 1000, 180000), A(872, 180000)}},
        Case{"VideoJoinsAudio", {A(1000, 180000), A(1020, 181800), V(kI, 1100, 189000)}},
        Case{"VideoJoinsAudioFromAfar", {A(1000, 180000), A(1020, 181800), V(kI, 5000, 181800), V(kP, 5040, 185400)}},
        Case{"AudioWithoutTimesGoesByItsLength", {A(0, 90000), A(0, 91920), A(0, 93840), A(100, 102840), A(0, 104760)}},
        Case{"AudioBackwardIsOneLength", {A(1000, 180000), A(1021, 181890), A(500, 183780), A(600, 192780)}},  // 21 ms
        Case{"RebaseAfterABreak",
             {V(kI, 0, 90000), A(0, 90000), A(20, 91800), A(5000, 540000, true), V(kP, 40, 93600), A(5020, 541800),
              V(kI, 80, 97200), A(9999, 549000), A(10019, 550800)}},
        Case{"RebaseNeedsAnIFrame", {V(kI, 0, 90000), A(0, 90000), A(20, 91800, true), V(kP, 40, 93600), A(40, 93600)}},
        Case{"RebaseMarkedAgain",
             {V(kI, 0, 90000), A(0, 90000), A(20, 91800, true), V(kI, 40, 93600), A(40, 93600, true), V(kI, 80, 97200),
              A(80, 100800)}},
        Case{"FailedFramesMoveTheClock", {V(kI, 1000, 180000), FailingV(500), V(kP, 540, 187200)}},
        Case{"FailedIFramesMoveTheClock", {V(kI, 1000, 180000), FailingI(500), V(kP, 540, 187200)}},
        Case{"AFailedStartStartsAgain", {FailingI(1000), V(kI, 500, 135000)}},
        Case{"AFailedStartBesideAudio", {A(1000, 180000), FailingI(5000), V(kI, 5040, 180000)}},
        Case{"HeldBackFramesLeaveTheClock", {HeldBack(7000), V(kI, 1000, 180000)}},
        Case{"RebaseOfTheFirstAudio", {A(0, 90000, true), V(kI, 40, 93600), A(40, 93600), A(60, 95400)}}),
    [](const auto& test) { return test.param.name; });

class PsTimes : public testing::Test {
  protected:
    const test::PsUnit& Give(uint32_t sub_type, uint32_t timestamp, uint32_t rate, uint32_t size = 3) {
        ByteVector data(size, 0x11);
        MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_MPEG4, sub_type, timestamp);
        frame.frame_rate = rate;
        EXPECT_EQ(packet.inputFrame(&frame, 0), 0u);
        units = test::ReadPs(sink.Last());
        for (const test::PsUnit& unit : units) {
            if (!unit.pes.dts) continue;
            pts = *unit.pes.pts;
            dts = *unit.pes.dts;
        }
        return units.front();
    }

    test::Sink sink;
    MXCreateParam param = sink.Param();
    CPsPacket packet{MX_FORMAT_PS, &param};
    std::vector<test::PsUnit> units;
    uint64_t pts = 0;
    uint64_t dts = 0;
};

TEST_F(PsTimes, DtsIsOneFramePeriodEarlier) {
    Give(kI, 1000, 0);
    EXPECT_EQ(dts, 176400u);  // no rate known: 25
    Give(kP, 1040, 50);
    EXPECT_EQ(pts, 183600u);
    EXPECT_EQ(dts, 181800u);
    Give(kP, 1060, 0);
    EXPECT_EQ(pts, 185400u);
    EXPECT_EQ(dts, 183600u);  // stays 50
    Give(kP, 1080, 29);
    EXPECT_EQ(dts, 187200u - 3103);
    Give(kP, 1100, 1);
    EXPECT_EQ(dts, 189000u - 90000);
    Give(kP, 1120, 90001);
    EXPECT_EQ(dts, pts);
    Give(kP, 10, 0xFFFFFFFF);  // backward: 1000 / rate is 0
    EXPECT_EQ(pts, 190800u);
}

TEST_F(PsTimes, DtsWrapsBelowZero) {
    Give(kI, 4294967295u / 90 - 999, 1);  // 47721858 - 999 ms
    EXPECT_EQ(pts, (47720859ull * 90 + 90000) % 4294967296);
    EXPECT_EQ(dts, (pts + 4294967296 - 90000) % 4294967296);
}

TEST_F(PsTimes, ScrLeavesTheFrameTimeToArrive) {
    struct Row {
        uint32_t size;
        uint32_t ticks;
    };
    // ticks = size * 90000 / 307500, the product in 32 bits.
    for (const Row row :
         {Row{3, 0}, Row{4, 1}, Row{1000, 292}, Row{47721, 13967}, Row{47722, 0}, Row{50000, 666}, Row{61440, 4015}}) {
        const test::PsUnit& pack = Give(kI, 1000, 25, row.size);
        EXPECT_EQ(pack.scr, dts - row.ticks) << row.size;
    }
}

}  // namespace
}  // namespace Orvane::Muxora
