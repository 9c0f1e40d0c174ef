// ASF: the configuration of MPEG-4 video moves from the key frames to the header.
#include <gtest/gtest.h>

#include "asf_fixture.h"

namespace Orvane::Muxora::AsfTest {
namespace {

class AsfMpeg4 : public AsfPacket {
  protected:
    // Gives the frame and what it has become.
    ByteVector Give(CAsfPacket& packet, ByteVector& data, uint32_t sub_type = MX_SUB_I) {
        MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_MPEG4, sub_type);
        EXPECT_EQ(packet.inputFrame(&frame, 0), 0u);
        const auto* first = static_cast<const uint8_t*>(frame.frame_pointer);
        return {first, first + frame.frame_size};
    }
    const ByteVector vop = Bytes("00 00 01 B6 11 22 33");
};

TEST_F(AsfMpeg4, TheConfigurationMovesToTheHeader) {
    const char config[] = "00 00 01 B0 01 00 00 01 B5 89";
    ByteVector data = Bytes("DE AD") + Bytes(config) + vop;
    EXPECT_EQ(Give(file, data), vop);
    EXPECT_EQ(Slice(sink.file, 0, kDataStart),
              HeaderObject("03") + FileProperties(kZero8, kNowBytes, kZero8, kZero8, "02 00 00 00") +
                  HeaderExtension("EF 01", "C1 01", k400000, 0x42, 1) + VideoStream("8B", "3D", "32", "M4S2", config) +
                  DataHead("32 00 00 00 00 00 00 00", kZero8));
    EXPECT_EQ(Slice(sink.file, kDataStart + 28, 8), vop + Bytes("00"));
    EXPECT_EQ(Slice(sink.file, kDataStart + 20, 4), Bytes("07 00 00 00"));
}

TEST_F(AsfMpeg4, LaterKeyFramesLoseTheirsAndTheHeaderKeepsTheFirst) {
    ByteVector first = Bytes("00 00 01 20 AA") + vop;
    Give(file, first);
    ByteVector second = Bytes("00 00 01 20 BB CC") + vop;
    EXPECT_EQ(Give(file, second, MX_SUB_LAYERED_KEY), vop);
    ByteVector third = second;
    EXPECT_EQ(Give(file, third, MX_SUB_P), third);
    file.createTailer(nullptr, 0);
    EXPECT_EQ(Slice(sink.Last(), 768 - 134, 134), VideoStream("86", "38", "2D", "M4S2", "00 00 01 20 AA"));
}

TEST_F(AsfMpeg4, AConfigurationOf64BytesIsTakenAndOf65IsNot) {
    ByteVector fits = Bytes("00 00 01 00") + ByteVector(60, 0x77) + vop;
    EXPECT_EQ(Give(file, fits), vop);
    EXPECT_EQ(Slice(sink.file, 768 - 64, 64), Slice(fits, 0, 64));
    sink.Clear();
    ByteVector too_long = Bytes("00 00 01 00") + ByteVector(61, 0x77) + vop;
    EXPECT_EQ(Give(stream, too_long), too_long);
    EXPECT_EQ(Slice(sink.file, 768 - 129 - 116, 129), VideoStream("81", "33", "28", "M4S2"));
    EXPECT_EQ(Slice(sink.file, kDataStart + 28, too_long.size()), too_long);
}

TEST_F(AsfMpeg4, TheLargestConfigurationLeavesPaddingBesideAudio) {
    ByteVector data = Bytes("00 00 01 00") + ByteVector(60, 0x77) + vop;
    Give(stream, data);
    // 216 - 64
    EXPECT_EQ(Slice(sink.file, 134 + 46 + 39 + 88, 24),
              Bytes("74 D4 06 18 DF CA 09 45 A4 BA 9A AB CB 96 AA E8  98 00 00 00 00 00 00 00"));
}

TEST_F(AsfMpeg4, WithoutAPictureStartThereIsNoConfiguration) {
    ByteVector data = Bytes("00 00 01 B0 01 02 03 04 05 06 07 08");
    EXPECT_EQ(Give(file, data), data);
    EXPECT_EQ(Slice(sink.file, 768 - 129, 129), VideoStream("81", "33", "28", "M4S2"));
}

TEST_F(AsfMpeg4, OtherCodecsKeepWhatLooksLikeAConfiguration) {
    ByteVector data = Bytes("00 00 01 20 AA") + vop;
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, MX_SUB_I);
    EXPECT_EQ(file.inputFrame(&frame, 0), 0u);
    EXPECT_EQ(frame.frame_size, 12u);
    EXPECT_EQ(Slice(sink.file, kDataStart + 28, 12), data);
    EXPECT_EQ(Slice(sink.file, 768 - 129, 129), kH264Stream);
}

TEST_F(AsfMpeg4, ARefusedFrameKeepsItsConfiguration) {
    ByteVector data = Bytes("00 00 01 20 AA") + vop + ByteVector(1009 * 2048);
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_MPEG4, MX_SUB_I);
    EXPECT_EQ(file.inputFrame(&frame, 0), 3u);
    const void* const pointer = frame.frame_pointer;
    EXPECT_EQ(pointer, data.data());
    EXPECT_EQ(frame.frame_size, data.size());
}

}  // namespace
}  // namespace Orvane::Muxora::AsfTest
