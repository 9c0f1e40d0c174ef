// What the RTP tests share: a packager with its sink, and a reader of packets.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <vector>

#include "rtp/rtp_packet.h"
#include "support/frames.h"
#include "support/hex.h"
#include "support/sink.h"

namespace Orvane::Muxora {

// A packet taken apart.
struct Packet {
    test::ByteVector custom;
    uint32_t prefix = 0;  // the length in front, where there is one
    bool extended = false;
    bool marker = false;
    uint32_t payload_type = 0;
    uint32_t sequence = 0;
    uint32_t timestamp = 0;
    uint32_t ssrc = 0;
    test::ByteVector extension;  // behind its 4-byte head
    test::ByteVector payload;
    size_t rtp_length = 0;
};

enum class Prefixed { kNo, kYes };

inline uint32_t Number(const test::ByteVector& bytes, size_t at, size_t width) {
    uint32_t value = 0;
    for (const uint8_t byte : test::Slice(bytes, at, width))
        value = value << 8 | byte;
    return value;
}

// RFC 3550 5.1 and 5.3.1, without CSRC entries.
inline Packet ReadPacket(const test::ByteVector& bytes, Prefixed prefixed = Prefixed::kYes, size_t custom = 0) {
    Packet packet;
    packet.custom = test::Slice(bytes, 0, custom);
    size_t at = custom;
    if (prefixed == Prefixed::kYes) {
        packet.prefix = Number(bytes, at, 2);
        at += 2;
    }
    packet.rtp_length = bytes.size() - at;
    if ((bytes.at(at) & ~0x10) != 0x80) throw std::runtime_error("not version 2");
    packet.extended = (bytes.at(at) & 0x10) != 0;
    packet.marker = (bytes.at(at + 1) & 0x80) != 0;
    packet.payload_type = bytes.at(at + 1) & 0x7F;
    packet.sequence = Number(bytes, at + 2, 2);
    packet.timestamp = Number(bytes, at + 4, 4);
    packet.ssrc = Number(bytes, at + 8, 4);
    at += 12;
    if (packet.extended) {
        const size_t length = 4 * Number(bytes, at + 2, 2);
        packet.extension = test::Slice(bytes, at + 4, length);
        at += 4 + length;
    }
    packet.payload = test::Slice(bytes, at, bytes.size() - at);
    return packet;
}

// `count` bytes that count up from `first`, none of them below 4: there is no start code in them.
inline test::ByteVector Counting(size_t count, uint8_t first = 4) {
    test::ByteVector bytes(count);
    uint8_t next = first;
    for (uint8_t& byte : bytes) {
        byte = next;
        next = next == 0xFE ? uint8_t{4} : static_cast<uint8_t>(next + 1);
    }
    return bytes;
}

class RtpTest : public testing::Test {
  protected:
    RtpTest() {
        Set("rtp_ssrc", 0x11223344);
        Set("rtp_payload_type", 96);
        Set("rtp_audio_payload_type", 8);
    }

    void Set(const char* key, int64_t value) { packet.SetRtpValue(key, value); }

    // One byte behind the frame is readable and holds `behind`.
    uint32_t Video(test::ByteVector data, uint32_t codec, uint32_t sub_type = MX_SUB_I, uint32_t timestamp = 40,
                   uint8_t behind = 0xEE) {
        data.push_back(behind);
        MXFrameInfo frame = test::VideoFrame(data, codec, sub_type, timestamp);
        --frame.frame_size;
        return packet.inputFrame(&frame, 0);
    }

    uint32_t Audio(test::ByteVector data, uint32_t codec, uint32_t timestamp = 0, uint32_t rate = 8000) {
        MXFrameInfo frame = test::AudioFrame(data, codec, timestamp);
        frame.samples_per_sec = rate;
        return packet.inputFrame(&frame, 0);
    }

    // All packets so far.
    std::vector<Packet> Packets(Prefixed prefixed = Prefixed::kYes, size_t custom = 0) const {
        std::vector<Packet> packets;
        for (const auto& block : sink.blocks)
            packets.push_back(ReadPacket(block.data, prefixed, custom));
        return packets;
    }

    test::Sink sink;
    MXCreateParam param = sink.Param();
    CRtpPacket packet{MX_FORMAT_RTP, &param};
};

}  // namespace Orvane::Muxora
