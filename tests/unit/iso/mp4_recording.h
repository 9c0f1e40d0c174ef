// A recording for tests: a packager of the MP4 family, its sink and frames to give.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "iso/mp4_packet.h"
#include "support/frames.h"
#include "support/hex.h"
#include "support/iso_file.h"
#include "support/iso_frames.h"
#include "support/sink.h"

namespace Orvane::Muxora {

using test::ByteVector;

using test::AdtsFrame;
using test::KeyFrame;
using test::KeySample;
using test::PFrame;
using test::PSample;

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
