// What a block of RTP begins with, codec by codec: the table of docs/RTP.md.
#include <gtest/gtest.h>

#include <memory>

#include "MuxoraAPI.h"
#include "support/frames.h"
#include "support/hex.h"
#include "support/sink.h"

namespace {

using test::Bytes;
using test::ByteVector;

struct Case {
    uint32_t frame_type;
    uint32_t encode_type;
    const char* frame;
    bool prefixed;
};

const Case kCases[] = {
    {MX_FRAME_VIDEO, MX_VIDEO_H264, "00 00 00 01 65 88 84", true},
    {MX_FRAME_VIDEO, MX_VIDEO_H264_ALT, "00 00 00 01 65 88 84", true},
    {MX_FRAME_VIDEO, MX_VIDEO_MPEG4, "00 00 01 B6 10 20", true},
    {MX_FRAME_VIDEO, MX_VIDEO_H265, "00 00 00 01 26 01 AF 08", false},
    {MX_FRAME_VIDEO, MX_VIDEO_MJPEG, "FF D8 FF DA 00 04 11 22 33 44", false},
    {MX_FRAME_AUDIO, MX_AUDIO_AAC, "FF F1 4C 80 01 7F FC 21 10 04 60", true},
    {MX_FRAME_AUDIO, MX_AUDIO_MPEG, "FF FD 14 C0 11 22", true},
    {MX_FRAME_AUDIO, MX_AUDIO_ALAW, "D5 D5 D5 D5", true},
    {MX_FRAME_AUDIO, MX_AUDIO_PCM16, "01 02 03 04", true},
};

// The blocks of one frame, with custom data "$" and channel 7 or without.
ByteVector FirstBlock(const Case& one, bool interleaved) {
    test::Sink sink;
    const MXCreateParam create = sink.Param();
    const std::unique_ptr<void, uint32_t (*)(void*)> rtp(MX_CreateHandle(MX_FORMAT_RTP, &create), MX_DestroyHandle);
    MXRtpParam param{};
    param.rtp_audio_sample = 8000;
    if (interleaved) {
        param.rtp_custom_data = param.rtp_audio_custom_data = "$\x07";
        param.rtp_custom_data_length = param.rtp_audio_custom_data_length = 2;
    }
    MXHeaderInfo header{};
    MX_SetParam(rtp.get(), MX_PARAM_RTP, &param, sizeof param);
    MX_CreateHeader(rtp.get(), &header);
    ByteVector data = Bytes(one.frame);
    data.push_back(0);  // the byte behind
    MXFrameInfo frame = one.frame_type == MX_FRAME_VIDEO ? test::VideoFrame(data, one.encode_type, MX_SUB_I)
                                                         : test::AudioFrame(data, one.encode_type);
    --frame.frame_size;
    EXPECT_EQ(MX_InputFrame(rtp.get(), &frame), 0u) << one.encode_type;
    EXPECT_EQ(sink.blocks.size(), 1u) << one.encode_type;
    return sink.blocks.empty() ? ByteVector{} : sink.blocks[0].data;
}

TEST(RtpFraming, ALengthStandsInFrontOfEachPacketButH265AndJpeg) {
    for (const Case& one : kCases) {
        const ByteVector block = FirstBlock(one, false);
        const size_t packet = one.prefixed ? 2 : 0;
        ASSERT_GT(block.size(), packet + 12) << one.encode_type;
        EXPECT_EQ(block[packet], 0x80) << one.encode_type;
        if (one.prefixed) {
            EXPECT_EQ(static_cast<size_t>(block[0] << 8 | block[1]), block.size() - 2) << one.encode_type;
        }
    }
}

TEST(RtpFraming, CustomDataOfTwoBytesMakesAnInterleavedFrame) {
    for (const Case& one : kCases) {
        const ByteVector block = FirstBlock(one, true);
        ASSERT_GT(block.size(), 4u + 12) << one.encode_type;
        EXPECT_EQ(block[0], '$') << one.encode_type;
        EXPECT_EQ(block[1], 7) << one.encode_type;
        EXPECT_EQ(static_cast<size_t>(block[2] << 8 | block[3]), block.size() - 4) << one.encode_type;
        EXPECT_EQ(block[4], 0x80) << one.encode_type;
    }
}

}  // namespace
