#include "rtp_fixture.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;

// RTP times of frames, through the packager.
class RtpTime : public RtpTest {
  protected:
    MXFrameInfo VideoRecord(uint32_t timestamp, uint32_t rate) {
        MXFrameInfo frame = test::VideoFrame(picture_, MX_VIDEO_H264, MX_SUB_P, timestamp);
        frame.frame_rate = rate;
        return frame;
    }
    uint32_t VideoAt(uint32_t timestamp, uint32_t rate = 25) {
        MXFrameInfo frame = VideoRecord(timestamp, rate);
        EXPECT_EQ(packet.inputFrame(&frame, 0), 0u);
        return ReadPacket(sink.Last()).timestamp;
    }
    uint32_t AudioAt(uint32_t timestamp, size_t bytes = 320) {
        EXPECT_EQ(Audio(ByteVector(bytes), MX_AUDIO_ALAW, timestamp), 0u);
        return ReadPacket(sink.Last()).timestamp;
    }

  private:
    ByteVector picture_ = Bytes("00 00 00 01 41 9A 00");
};

TEST_F(RtpTime, TheFirstFrameTakesTheStartAndLaterOnesStepFromTheFrameBefore) {
    Set("rtp_timestamp", 1000);
    EXPECT_EQ(VideoAt(5000), 1000u);
    EXPECT_EQ(VideoAt(5040), 1000u + 3600u);
    EXPECT_EQ(VideoAt(5045), 1000u + 4050u);
    // Set in mid-stream, the start means nothing any more.
    Set("rtp_timestamp", 77);
    EXPECT_EQ(VideoAt(5055), 1000u + 4950u);
}

TEST_F(RtpTime, AllPacketsOfAFrameHaveOneTime) {
    ASSERT_EQ(Video(Bytes("00 00 00 01 67 AA 00 00 00 01 68 BB 00 00 00 01 65 CC"), 2), 0u);
    const std::vector<Packet> packets = Packets();
    ASSERT_EQ(packets.size(), 3u);
    EXPECT_EQ(packets[0].timestamp, packets[2].timestamp);
}

TEST_F(RtpTime, ASixteenBitClockWraps) {
    VideoAt(65530);
    EXPECT_EQ(VideoAt(5), 11u * 90u);
    EXPECT_EQ(VideoAt(45), 51u * 90u);
}

TEST_F(RtpTime, AWrapOfMoreThanTwoFramePeriodsIsNone) {
    VideoAt(65530, 10000);
    EXPECT_EQ(VideoAt(5, 10000), (5u - 65530u) * 90u);
}

TEST_F(RtpTime, TheLimitOfAWrapIsTwoFramePeriods) {
    VideoAt(65530);
    EXPECT_EQ(VideoAt(73), 79u * 90u);
    CRtpPacket other(MX_FORMAT_RTP, &param);
    MXFrameInfo frame = VideoRecord(65530, 25);
    other.inputFrame(&frame, 0);
    frame.timestamp = 74;  // 80 ms, not below 2000 / 25
    other.inputFrame(&frame, 0);
    EXPECT_EQ(ReadPacket(sink.Last()).timestamp, (74u - 65530u) * 90u);
}

TEST_F(RtpTime, AStepBackIsNoWrap) {
    VideoAt(1000);
    EXPECT_EQ(VideoAt(900), static_cast<uint32_t>(-100 * 90));
    // Nor is one of more than 16 bits.
    VideoAt(200000);
    EXPECT_EQ(VideoAt(100000), static_cast<uint32_t>(99000 * 90));
}

TEST_F(RtpTime, WithoutTimestampsThirtyFramesASecondStep33And33And34) {
    EXPECT_EQ(VideoAt(0, 30), 0u);
    EXPECT_EQ(VideoAt(0, 30), 2970u);
    EXPECT_EQ(VideoAt(0, 30), 5940u);
    EXPECT_EQ(VideoAt(0, 30), 9000u);
    EXPECT_EQ(VideoAt(0, 30), 11970u);
    EXPECT_EQ(VideoAt(0, 30), 14940u);
    EXPECT_EQ(VideoAt(0, 30), 18000u);
}

TEST_F(RtpTime, TheMadeUpTimestampIsWrittenBack) {
    VideoAt(100);
    MXFrameInfo frame = VideoRecord(0, 30);
    packet.inputFrame(&frame, 0);
    EXPECT_EQ(frame.timestamp, 133u);
    frame.timestamp = 0;
    packet.inputFrame(&frame, 0);
    EXPECT_EQ(frame.timestamp, 166u);
    frame.timestamp = 0;
    packet.inputFrame(&frame, 0);
    EXPECT_EQ(frame.timestamp, 200u);
    // The first frame of a stream keeps its 0.
    CRtpPacket other(MX_FORMAT_RTP, &param);
    frame.timestamp = 0;
    other.inputFrame(&frame, 0);
    EXPECT_EQ(frame.timestamp, 0u);
}

TEST_F(RtpTime, AFrameRateOf0Is25) {
    VideoAt(0, 0);
    EXPECT_EQ(VideoAt(0, 0), 3600u);
}

TEST_F(RtpTime, AnyFrameRateIsSafe) {
    VideoAt(0, 0xFFFFFFFF);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(VideoAt(0, 0xFFFFFFFF), 0u);
}

TEST_F(RtpTime, VideoThatComesSecondStartsWhereAudioStands) {
    Set("rtp_timestamp", 123456);
    Set("rtp_audio_sample", 8000);
    EXPECT_EQ(AudioAt(1000), 0u);
    EXPECT_EQ(AudioAt(1100), 800u);
    EXPECT_EQ(VideoAt(1100), 100u * 90u);
    int64_t start = 0;
    packet.GetRtpValue("rtp_timestamp", start);
    EXPECT_EQ(start, 9000);
}

TEST_F(RtpTime, TheDivisionComesFirstWhereVideoFollowsAudio) {
    Set("rtp_audio_sample", 8000);
    MXRtpParam record{};
    packet.GetRtpParam(record);
    record.rtp_audio_timestamp = 807;
    packet.SetRtpParam(record);
    EXPECT_EQ(AudioAt(1000), 807u);
    EXPECT_EQ(VideoAt(1000), 100u * 90u);
}

TEST_F(RtpTime, AudioThatComesSecondStartsWhereVideoStands) {
    Set("rtp_audio_sample", 48000);
    VideoAt(1000);
    VideoAt(1040);
    EXPECT_EQ(AudioAt(1040), 40u * 48u);
    MXRtpParam record{};
    packet.GetRtpParam(record);
    EXPECT_EQ(record.rtp_audio_timestamp, 1920u);
}

TEST_F(RtpTime, G711At8000HzSteps320In40Ms) {
    Set("rtp_audio_sample", 8000);
    EXPECT_EQ(AudioAt(40), 0u);
    EXPECT_EQ(AudioAt(80), 320u);
    EXPECT_EQ(AudioAt(120), 640u);
}

TEST_F(RtpTime, AudioOf16BitsWraps) {
    Set("rtp_audio_sample", 8000);
    AudioAt(65530);
    EXPECT_EQ(AudioAt(34), 40u * 8u);  // 40 ms, below twice the frame's 40
    AudioAt(65530);
    EXPECT_EQ(AudioAt(74), (40u + 65496u + 74u - 65530u) * 8u);  // 80 ms is not
}

TEST_F(RtpTime, AudioWithoutTimestampsStepsByWholeMilliseconds) {
    Set("rtp_audio_sample", 8000);
    // 324 bytes are 40.5 ms: half a millisecond is lost at every frame.
    EXPECT_EQ(AudioAt(0, 324), 0u);
    EXPECT_EQ(AudioAt(0, 324), 320u);
    EXPECT_EQ(AudioAt(0, 324), 640u);
    EXPECT_EQ(AudioAt(0, 324), 960u);
    // The step is the duration of the frame before.
    EXPECT_EQ(AudioAt(0, 80), 1280u);
    EXPECT_EQ(AudioAt(0, 324), 1360u);
}

TEST_F(RtpTime, TheMadeUpTimestampOfAudioIsWrittenBack) {
    Set("rtp_audio_sample", 8000);
    AudioAt(500);
    ByteVector data(320);
    MXFrameInfo frame = test::AudioFrame(data, MX_AUDIO_ALAW, 0);
    frame.samples_per_sec = 8000;
    packet.inputFrame(&frame, 0);
    EXPECT_EQ(frame.timestamp, 540u);
}

TEST_F(RtpTime, AClockThatIsNoMultipleOf1000Drifts) {
    testing::internal::CaptureStdout();
    Set("rtp_audio_sample", 44100);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "[Muxora] [WARN] AuidoSample is not multiple of 1000! May cause out-sync!\n");
    AudioAt(1000);
    EXPECT_EQ(AudioAt(2000), 44000u);
}

TEST_F(RtpTime, TheClocksWrapIn32Bits) {
    Set("rtp_timestamp", 0xFFFFFFFF);
    VideoAt(40);
    EXPECT_EQ(VideoAt(80), 3599u);
}

TEST_F(RtpTime, OnlyAClockThatIsNoMultipleOf1000IsWarnedOf) {
    testing::internal::CaptureStdout();
    Set("rtp_audio_sample", 48000);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    testing::internal::CaptureStdout();
    Set("rtp_audio_sample", 8001);
    EXPECT_NE(testing::internal::GetCapturedStdout(), "");
}

}  // namespace
}  // namespace Orvane::Muxora
