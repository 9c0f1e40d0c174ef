// A packager with a sink behind it, and frames to give it.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>

#include "mkv/mkv_packet.h"
#include "support/frames.h"
#include "support/hex.h"
#include "support/sink.h"

namespace Orvane::Muxora::MkvTest {

inline constexpr uint32_t kWorkBufferSize = 0x200000;

inline constexpr char kSpsPps[] = "00 00 00 01 67 64 00 28 AC  00 00 00 01 68 EE 3C";
inline constexpr char kKeyFrame[] = "00 00 00 01 67 64 00 28 AC  00 00 00 01 68 EE 3C  00 00 00 01 65 88 84";
inline constexpr char kPFrame[] = "00 00 00 01 41 9A 02";
// AAC LC at 44100 Hz, two channels, four bytes of payload.
inline constexpr char kAacFrame[] = "FF F1 50 80 01 7F FC  DE AD BE EF";

class MkvPacket : public testing::Test {
  protected:
    void Start() {
        ASSERT_EQ(packet.init(), 0u);
        ASSERT_EQ(packet.createHeader(nullptr, 0), 0u);
        sink.blocks.clear();
    }
    void Finish() { ASSERT_EQ(packet.createTailer(nullptr, 0), 0u); }

    uint32_t Video(const test::ByteVector& bytes, uint32_t sub_type, uint32_t frame_rate = 25,
                   uint32_t codec = MX_VIDEO_H264) {
        test::ByteVector data = bytes;
        MXFrameInfo frame = test::VideoFrame(data, codec, sub_type);
        frame.frame_rate = frame_rate;
        return packet.inputFrame(&frame, 0);
    }
    uint32_t Key(uint32_t frame_rate = 25) { return Video(test::Bytes(kKeyFrame), MX_SUB_I, frame_rate); }
    uint32_t P(uint32_t frame_rate = 25) { return Video(test::Bytes(kPFrame), MX_SUB_P, frame_rate); }
    uint32_t Audio(const test::ByteVector& bytes, uint32_t sample_rate = 44100) {
        test::ByteVector data = bytes;
        MXFrameInfo frame = test::AudioFrame(data, MX_AUDIO_AAC);
        frame.samples_per_sec = sample_rate;
        return packet.inputFrame(&frame, 0);
    }
    // The block of the last frame: the block goes out first, its cluster's size behind it.
    const test::Sink::Block& LastBlock() const { return sink.blocks.at(sink.blocks.size() - 2); }
    test::ByteVector At(size_t offset, size_t count) const { return test::Slice(sink.file, offset, count); }

    test::Sink sink;
    MXCreateParam param = sink.Param();
    CMkvPacket packet{MX_FORMAT_MKV, &param};
};

}  // namespace Orvane::Muxora::MkvTest
