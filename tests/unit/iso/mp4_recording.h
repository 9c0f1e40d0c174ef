// A recording for tests: a packager of the MP4 family, its sink and frames to give.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "iso/mp4_packet.h"
#include "support/frames.h"
#include "support/hex.h"
#include "support/iso_file.h"
#include "support/sink.h"

namespace Orvane::Muxora {

using test::ByteVector;

// An H.264 key frame with an SPS of 8 and a PPS of 4 bytes, and its form in the file.
inline ByteVector KeyFrame() {
    return test::Bytes(
        "00 00 00 01 67 64 00 28 AC D9 40 78  00 00 00 01 68 EE 3C 80  00 00 01 65 88 84 01 02 03 04 05");
}
inline ByteVector KeySample() {
    return test::Bytes(
        "00 00 00 08 67 64 00 28 AC D9 40 78  00 00 00 04 68 EE 3C 80  00 00 00 08 65 88 84 01 02 03 04 05");
}
inline ByteVector PFrame(uint8_t number = 0) {
    return {0, 0, 0, 1, 0x41, 0x9A, 0x11, 0x22, 0x33, number};
}
inline ByteVector PSample(uint8_t number = 0) {
    return {0, 0, 0, 6, 0x41, 0x9A, 0x11, 0x22, 0x33, number};
}
// An ADTS frame without CRC, 7 bytes of header and `payload` bytes of `fill`.
inline ByteVector AdtsFrame(uint32_t payload, uint8_t fill = 0x21) {
    const uint32_t length = payload + 7;
    ByteVector out{0xFF,
                   0xF1,
                   0x4C,
                   static_cast<uint8_t>(0x80 | length >> 11),
                   static_cast<uint8_t>(length >> 3),
                   static_cast<uint8_t>((length & 7) << 5 | 0x1F),
                   0xFC};
    out.resize(length, fill);
    return out;
}

struct Recording {
    explicit Recording(uint32_t format, uint32_t gap = 0) : packet(format, &param), header{} {
        header.reserved_gap = gap;
        EXPECT_EQ(packet.init(), 0u);
        EXPECT_EQ(packet.createHeader(&header, 0), 0u);
    }

    uint32_t Video(ByteVector data, uint32_t sub_type = 1, uint32_t codec = 2, uint32_t frame_rate = 25) {
        MXFrameInfo frame = test::VideoFrame(data, codec, sub_type);
        frame.frame_rate = frame_rate;
        return packet.inputFrame(&frame, 0);
    }
    uint32_t Key() { return Video(KeyFrame(), 0); }
    uint32_t Audio(ByteVector data, uint32_t codec = 26, uint8_t channel = 0) {
        MXFrameInfo frame = test::AudioFrame(data, codec);
        frame.ma_cur_channel = channel;
        return packet.inputFrame(&frame, 0);
    }
    uint32_t Ext(ByteVector data) {
        MXFrameInfo frame = test::Frame(data, 3, 0);
        return packet.inputFrame(&frame, 0);
    }
    test::IsoFile Finish() {
        EXPECT_EQ(packet.createTailer(nullptr, 0), 0u);
        return test::IsoFile(sink.file);
    }
    // The snapshot as a tree of its own.
    test::IsoFile Backup() {
        MXOutputBlock block{};
        const uint32_t size = packet.getBackup(&block);
        EXPECT_EQ(size, block.length);
        const auto* const bytes = static_cast<const uint8_t*>(block.data);
        return test::IsoFile(ByteVector(bytes, bytes + size));
    }

    test::Sink sink;
    MXCreateParam param = sink.Param();
    CMp4Packet packet;
    MXHeaderInfo header;
};

}  // namespace Orvane::Muxora
