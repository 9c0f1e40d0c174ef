// The clocks of the transport stream, frame by frame: what goes in, and the PTS and PCR that come out.
#include <gtest/gtest.h>

#include <optional>

#include "mpeg2/ts_packet.h"
#include "support/frames.h"
#include "support/hex.h"
#include "support/sink.h"
#include "support/ts_reader.h"

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
};

Step V(uint32_t sub_type, uint32_t timestamp, uint32_t pts, uint32_t seq = 0, uint32_t rate = 25) {
    return {'V', sub_type, timestamp, pts, seq, rate};
}
Step FailingV(uint32_t sub_type, uint32_t timestamp) {
    return {'V', sub_type, timestamp, std::nullopt};
}
Step A(uint32_t timestamp, uint32_t pts, bool rebase = false) {
    return {'A', 0, timestamp, pts, 0, 0, rebase};
}

struct Case {
    const char* name;
    std::optional<uint32_t> start_time;
    std::vector<Step> steps;
};

class TsClock : public testing::TestWithParam<Case> {};

TEST_P(TsClock, PtsAndPcrFollow) {
    test::Sink sink;
    const MXCreateParam param = sink.Param();
    CTsPacket packet(MX_FORMAT_TS, &param);
    packet.init();
    if (GetParam().start_time) {
        MXHeaderInfo info{};
        info.start_time_ms = *GetParam().start_time;
        packet.createHeader(&info, 0);
    }
    int number = 0;
    for (const Step& step : GetParam().steps) {
        SCOPED_TRACE(testing::Message() << "step " << number++);
        // One ADTS frame: 1024 samples at 48000 Hz, 1920 ticks.
        ByteVector data{0xFF, 0xF1, 0x11};
        MXFrameInfo frame = step.kind == 'V' ? test::VideoFrame(data, MX_VIDEO_MPEG2, step.sub_type)
                                             : test::AudioFrame(data, MX_AUDIO_AAC);
        frame.timestamp = step.timestamp;
        frame.frame_seq = step.seq;
        frame.frame_rate = step.rate;
        frame.ps_clock_rebase = step.rebase;
        ASSERT_EQ(packet.inputFrame(&frame, 0), step.pts ? 0u : 5u);
        if (!step.pts) continue;
        const std::vector<test::TsPacket> packets = test::ReadTs(sink.Last());
        const uint16_t pid = step.kind == 'V' ? 18 : 19;
        EXPECT_EQ(packets.back().pid, pid);
        EXPECT_EQ(packets.back().pcr, (*step.pts + 4294967296 - 900) % 4294967296);
        const test::PesPacket pes = test::ReadTsPes(packets, pid).at(0);
        EXPECT_EQ(pes.pts, *step.pts);
        if (step.kind == 'V') {
            EXPECT_EQ(pes.dts, *step.pts);
        } else {
            EXPECT_FALSE(pes.dts.has_value());
        }
    }
}

constexpr std::nullopt_t kNone = std::nullopt;

INSTANTIATE_TEST_SUITE_P(
    Start, TsClock,
    testing::Values(
        Case{"AtTheFirstTimestamp", kNone, {V(kI, 1000, 90000), V(kP, 1040, 93600), V(kP, 1080, 97200)}},
        Case{"BelowTenMs", kNone, {V(kI, 5, 450)}}, Case{"GivenAsZero", 0, {V(kI, 1000, 0), V(kP, 1040, 3600)}},
        Case{"Given", 500, {V(kI, 1000, 45000), V(kP, 1040, 48600)}},
        Case{"AllOnesIsNone", 0xFFFFFFFF, {V(kI, 1000, 90000)}},
        Case{"GivenForAudio", 500, {A(1000, 45000), A(1020, 46800)}},
        Case{"UsedUpByAHeldBackFrame", 500, {FailingV(kP, 1000), V(kI, 1040, 93600)}},
        Case{"AudioBesideVideoAfter", 500, {V(kI, 1000, 45000), A(1100, 54000)}},
        Case{"AudioBesideVideoBefore", 500, {V(kI, 1000, 45000), A(950, 40500)}},
        Case{"AudioBesideVideoAtTheEdge", 500, {V(kI, 1000, 45000), A(1127, 56430)}},
        Case{"AudioFarFromVideo", 500, {V(kI, 1000, 45000), A(1128, 45000)}},
        Case{"AudioFarBeforeVideo", 500, {V(kI, 1000, 45000), A(872, 45000)}},
        Case{"AudioBelowTheStart", 0, {V(kI, 1000, 0), A(950, 0)}},
        Case{"AudioJustAtTheStart", 50, {V(kI, 1000, 4500), A(950, 0)}},
        Case{"AudioJustAboveTheStart", 50, {V(kI, 1000, 4500), A(951, 90)}},
        Case{"VideoBesideAudio", kNone, {A(1000, 90000), A(1020, 91800), V(kI, 1040, 93600)}},
        Case{"VideoBesideAudioBefore", kNone, {A(1000, 90000), A(1020, 91800), V(kI, 1000, 90000)}},
        Case{"VideoFarFromAudio", kNone, {A(1000, 90000), A(1020, 91800), V(kI, 2000, 91800), V(kP, 2040, 95400)}},
        Case{"TheOtherStreamsTimeIsItsLast", kNone, {V(kI, 1000, 90000), V(kP, 5000, 450000), A(5040, 453600)}}),
    [](const auto& test) { return test.param.name; });

INSTANTIATE_TEST_SUITE_P(
    Run, TsClock,
    testing::Values(
        Case{"EqualTimesStandStill", kNone, {V(kI, 1000, 90000, 10), V(kP, 1000, 90000, 11), V(kP, 1040, 93600, 12)}},
        Case{"BackwardStepsAreOnePeriod",
             kNone,
             {V(kI, 1000, 90000), V(kP, 1040, 93600), V(kP, 500, 97200), V(kP, 580, 104400), V(kP, 579, 108000)}},
        Case{"BackwardStepOfAnotherRate", kNone, {V(kI, 1000, 90000, 0, 30), V(kP, 10, 92970, 0, 30)}},
        Case{"RateStaysWhenNoneIsGiven", kNone, {V(kI, 1000, 90000, 0, 50), V(kP, 10, 91800, 0, 0)}},
        Case{"RateIs25WhenNoneIsKnown", kNone, {V(kI, 1000, 90000, 0, 0), V(kP, 10, 93600, 0, 0)}},
        Case{"WrapAt32Bits", kNone, {V(kI, 47721858, 4294967220), V(kP, 47721898, 3524), V(kP, 47721938, 7124)}},
        Case{"WithoutTimes", kNone, {V(kI, 0, 0, 7), V(kP, 0, 3600, 8), V(kP, 0, 7200, 9), V(kP, 40, 10800, 10)}},
        Case{"SequenceSteps",
             kNone,
             {V(kI, 0, 0, 7), V(kP, 0, 7200, 9), V(kP, 0, 7200, 9), V(kP, 0, 10800, 3), V(kP, 0, 18000, 5)}},
        Case{"SequenceThatRunsOver", kNone, {V(kI, 0, 0, 0xFFFFFFFF), V(kP, 0, 3600, 0), V(kP, 0, 7200, 1)}},
        Case{"At30EachStepIs3000",
             kNone,
             {V(kI, 0, 0, 0, 30), V(kP, 0, 3000, 1, 30), V(kP, 0, 6000, 2, 30), V(kP, 0, 9000, 3, 30),
              V(kP, 0, 15000, 5, 30)}},
        // 90000 / 29 is 3103.448: the fractions add up to 0.448, 0.896, 1.345, 0.793, 1.241, 0.689 and so on.
        Case{"At29TheFractionIsCarried",
             kNone,
             {V(kI, 0, 0, 0, 29), V(kP, 0, 3103, 1, 29), V(kP, 0, 6206, 2, 29), V(kP, 0, 9310, 3, 29),
              V(kP, 0, 12413, 4, 29), V(kP, 0, 15517, 5, 29), V(kP, 0, 18620, 6, 29), V(kP, 0, 21724, 7, 29),
              V(kP, 0, 27931, 9, 29)}},
        Case{"RateChange",
             kNone,
             {V(kI, 0, 0, 0, 25), V(kP, 0, 1800, 1, 50), V(kP, 0, 91800, 2, 1), V(kP, 0, 181800, 3, 0)}},
        // 2^31 in single precision, times 90000: a multiple of 2^32.
        Case{"HugeSequenceSteps", kNone, {V(kI, 0, 0, 0, 1), V(kP, 0, 0, 0x7FFFFFFF, 1)}},
        Case{"AudioWithoutTimes", kNone, {A(0, 0), A(0, 1920), A(0, 3840), A(100, 12840), A(0, 14760)}},
        Case{"AudioBackwardIsOneLength", kNone, {A(1000, 90000), A(1021, 91890), A(500, 93780), A(600, 102780)}},
        Case{"RebaseAfterABreak",
             kNone,
             {V(kI, 1000, 90000), A(1000, 90000), A(1020, 91800), A(9000, 810000, true), V(kP, 1040, 93600),
              A(9020, 811800), V(kI, 1080, 97200), A(5, 97200), A(25, 99000)}},
        Case{"RebaseNeedsAnIFrame",
             kNone,
             {V(kI, 1000, 90000), A(1000, 90000), A(1020, 91800, true), V(kP, 1040, 93600), A(2000, 180000)}},
        Case{"RebaseByAnIFrameOfAnotherKind",
             kNone,
             {V(kI, 1000, 90000), A(1000, 90000), A(1020, 91800, true), V(18, 1040, 93600), A(2000, 93600)}},
        Case{"RebaseMarkedAgain",
             kNone,
             {V(kI, 1000, 90000), A(1000, 90000), A(1020, 91800, true), V(20, 1040, 93600), A(1040, 93600, true),
              V(kI, 1080, 97200), A(3000, 97200)}},
        Case{"FailedFramesMoveTheClock", kNone, {V(kI, 1000, 90000), FailingV(3, 500), V(kP, 540, 97200)}},
        Case{"HeldBackFramesBesideAudio", kNone, {A(1000, 90000), FailingV(kP, 1020), V(kI, 1060, 95400)}},
        Case{"SequenceOverFailedFrames", kNone, {V(kI, 0, 0, 1), Step{'V', 3, 0, kNone, 2}, V(kP, 0, 7200, 3)}}),
    [](const auto& test) { return test.param.name; });

// The frame that marks the break finds no room, so the one behind the resync is the first that goes out.
TEST(TsClockFirstFrame, AFirstFrameBehindAResyncIsPlacedBesideTheVideo) {
    test::Sink sink;
    const MXCreateParam param = sink.Param();
    CTsPacket packet(MX_FORMAT_TS, &param);
    packet.init();
    ByteVector data{0xFF, 0xF1, 0x11};
    MXFrameInfo sound = test::AudioFrame(data, MX_AUDIO_AAC, 50);
    sound.ps_clock_rebase = 1;
    Basalt::CPacket small(100);
    ASSERT_EQ(packet.inputFrameEx(&sound, small), 5u);
    MXFrameInfo picture = test::VideoFrame(data, MX_VIDEO_MPEG2, kI, 200);
    ASSERT_EQ(packet.inputFrame(&picture, 0), 0u);
    EXPECT_EQ(test::ReadTsPes(test::ReadTs(sink.Last()), 18).at(0).pts, 18000u);
    sound.timestamp = 230;
    sound.ps_clock_rebase = 0;
    ASSERT_EQ(packet.inputFrame(&sound, 0), 0u);
    EXPECT_EQ(test::ReadTsPes(test::ReadTs(sink.Last()), 19).at(0).pts, 20700u);  // 30 ms behind the picture
    sound.timestamp = 250;
    ASSERT_EQ(packet.inputFrame(&sound, 0), 0u);
    EXPECT_EQ(test::ReadTsPes(test::ReadTs(sink.Last()), 19).at(0).pts, 22500u);
}

TEST(TsClockMean, At29TheMeanIsKept) {
    test::Sink sink;
    const MXCreateParam param = sink.Param();
    CTsPacket packet(MX_FORMAT_TS, &param);
    packet.init();
    uint64_t last = 0;
    ByteVector data{1, 2, 3};
    for (uint32_t number = 0; number <= 2900; ++number) {
        MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_MPEG2, number == 0 ? kI : kP);
        frame.frame_seq = number;
        frame.frame_rate = 29;
        ASSERT_EQ(packet.inputFrame(&frame, 0), 0u);
        const uint64_t pts = *test::ReadTsPes(test::ReadTs(sink.Last()), 18).at(0).pts;
        if (number != 0) {
            EXPECT_TRUE(pts - last == 3103 || pts - last == 3104) << pts - last;
        }
        last = pts;
        sink.Clear();
    }
    // 100 seconds; single precision loses a tick of them.
    EXPECT_EQ(last, 8999999u);
}

TEST(TsClockHeader, AStartTimeOfZeroWrapsTheFirstPcr) {
    test::Sink sink;
    const MXCreateParam param = sink.Param();
    CTsPacket packet(MX_FORMAT_TS, &param);
    packet.init();
    MXHeaderInfo info{};
    packet.createHeader(&info, 0);
    ByteVector data{1, 2, 3};
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_MPEG2, kI, 77777);
    packet.inputFrame(&frame, 0);
    EXPECT_EQ(test::ReadTs(sink.Last()).at(2).pcr, 0xFFFFFC7Cu);
}

TEST(TsClockHeader, TheAnnouncedRateServesUntilAFrameBringsOne) {
    for (const int32_t announced : {50, 0, -1}) {
        test::Sink sink;
        const MXCreateParam param = sink.Param();
        CTsPacket packet(MX_FORMAT_TS, &param);
        packet.init();
        MXHeaderInfo info{};
        info.video_present = 1;
        info.video_encode_type = MX_VIDEO_MPEG2;
        info.frame_rate = announced;
        packet.createHeader(&info, 0);
        ByteVector data{1, 2, 3};
        for (uint32_t number = 0; number < 2; ++number) {
            MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_MPEG2, kI);
            frame.frame_rate = 0;
            frame.frame_seq = number;
            packet.inputFrame(&frame, 0);
        }
        EXPECT_EQ(test::ReadTsPes(test::ReadTs(sink.Last()), 18).at(0).pts, announced == 50 ? 1800u : 3600u);
    }
}

}  // namespace
}  // namespace Orvane::Muxora
