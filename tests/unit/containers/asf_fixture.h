// The objects of an ASF file as literals, and the two forms of the packager with a sink behind them.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>

#include "containers/asf_packet.h"
#include "core/clock.h"
#include "support/frames.h"
#include "support/hex.h"
#include "support/sink.h"

namespace Orvane::Muxora::AsfTest {

using test::Bytes;
using test::ByteVector;
using test::Sink;
using test::Slice;
using test::operator+;

inline constexpr size_t kDataStart = 818;
inline constexpr size_t kPacket = 2076;

// 2026-11-21 00:00:00 UTC.
inline constexpr int64_t kNow = 0x6A1F9500;
inline constexpr char kNowBytes[] = "00 95 1F 6A 00 00 00 00";

inline constexpr char kFileId[] = "92 8C 60 DF EA 71 FE 43 81 04 22 51 D3 94 F3 9D";

inline ByteVector HeaderObject(const char* objects) {
    return Bytes("30 26 B2 75 8E 66 CF 11 A6 D9 00 AA 00 62 CE 6C  00 03 00 00 00 00 00 00") + Bytes(objects) +
           Bytes("00 00 00 01 02");
}

inline ByteVector FileProperties(const char* size, const char* date, const char* packets, const char* duration,
                                 const char* flags) {
    return Bytes("A1 DC AB 8C 47 A9 CF 11 8E E4 00 C0 0C 20 53 65  68 00 00 00 00 00 00 00") + Bytes(kFileId) +
           Bytes(size) + Bytes(date) + Bytes(packets) + Bytes(duration) + Bytes(duration) +
           Bytes("00 00 00 00 00 00 00 00") + Bytes(flags) + Bytes("1C 08 00 00  1C 08 00 00  20 11 17 00");
}

// With the language list, the extended stream properties and the padding.
inline ByteVector HeaderExtension(const char* size, const char* data_size, const char* frame_time, uint8_t padding_size,
                                  uint8_t padding_high) {
    return Bytes("B5 03 BF 5F 2E A9 CF 11 8E E3 00 C0 0C 20 53 65") + Bytes(size) + Bytes("00 00 00 00 00 00") +
           Bytes("11 D2 D3 AB BA A9 CF 11 8E E6 00 C0 0C 20 53 65  06 00") + Bytes(data_size) + Bytes("00 00") +
           Bytes(
               "A9 46 43 7C E0 EF FC 4B B2 29 39 3E DE 41 5C 85  27 00 00 00 00 00 00 00"
               "01 00  0C  7A 00 68 00 2D 00 63 00 6E 00 00 00") +
           Bytes("CB A5 E6 14 72 C6 32 43 83 99 A9 69 52 06 5B 5A  58 00 00 00 00 00 00 00") + ByteVector(16) +
           ByteVector(28) + Bytes("02 00 00 00  01 00  00 00") + Bytes(frame_time) + Bytes("00 00 00 00") +
           Bytes("74 D4 06 18 DF CA 09 45 A4 BA 9A AB CB 96 AA E8") + ByteVector{padding_size, padding_high} +
           Bytes("00 00 00 00 00 00") + ByteVector(static_cast<size_t>(padding_high * 256 + padding_size - 24));
}

// 1920 by 1080.
inline ByteVector VideoStream(const char* size, const char* type_size, const char* format_size, const char* codec,
                              const char* config = "") {
    return Bytes("91 07 DC B7 B7 A9 CF 11 8E E6 00 C0 0C 20 53 65") + Bytes(size) + Bytes("00 00 00 00 00 00 00") +
           Bytes("C0 EF 19 BC 4D 5B CF 11 A8 FD 00 80 5F 5C 44 2B  00 57 FB 20 55 5B CF 11 A8 FD 00 80 5F 5C 44 2B") +
           ByteVector(8) + Bytes(type_size) + Bytes("00 00 00  00 00 00 00  01 00  00 00 00 00") +
           Bytes("80 07 00 00  38 04 00 00  02") + Bytes(format_size) + Bytes("00") + Bytes(format_size) +
           Bytes("00 00 00  80 07 00 00  38 04 00 00  01 00  18 00") + test::Text(codec) + ByteVector(20) +
           Bytes(config);
}
inline const ByteVector kH264Stream = VideoStream("81", "33", "28", "H264");

inline ByteVector AudioStream(const char* format, const char* config) {
    return Bytes("91 07 DC B7 B7 A9 CF 11 8E E6 00 C0 0C 20 53 65  74 00 00 00 00 00 00 00") +
           Bytes("40 9E 69 F8 4D 5B CF 11 A8 FD 00 80 5F 5C 44 2B  50 CD C3 BF 8F 61 CF 11 8B B2 00 AA 00 B4 E2 20") +
           ByteVector(8) + Bytes("1E 00 00 00  08 00 00 00  02 00  00 00 00 00") + Bytes(format) + Bytes("02 00") +
           Bytes(config) + ByteVector(10) + Bytes("01  00 08  00 08  01 00  00");
}

inline ByteVector DataHead(const char* size, const char* packets) {
    return Bytes("36 26 B2 75 8E 66 CF 11 A6 D9 00 AA 00 62 CE 6C") + Bytes(size) + Bytes(kFileId) + Bytes(packets) +
           Bytes("01 01");
}

inline ByteVector PacketHead(const char* padding, const char* send, const char* stream, const char* number,
                             const char* offset, const char* size, const char* time) {
    return Bytes("82 00 00 90 5D") + Bytes(padding) + Bytes(send) + Bytes("00 00") + Bytes(stream) + Bytes(number) +
           Bytes(offset) + Bytes("08") + Bytes(size) + Bytes(time);
}

inline constexpr char kZero8[] = "00 00 00 00 00 00 00 00";
inline constexpr char kOne8[] = "01 00 00 00 00 00 00 00";
inline constexpr char k400000[] = "80 1A 06 00 00 00 00 00";

inline const ByteVector kFirstHead =
    HeaderObject("03") + FileProperties(kZero8, kNowBytes, kZero8, kZero8, "02 00 00 00") +
    HeaderExtension("F9 01", "CB 01", k400000, 0x4C, 1) + kH264Stream + DataHead("32 00 00 00 00 00 00 00", kZero8);

class AsfPacket : public testing::Test {
  protected:
    AsfPacket() : file(MX_FORMAT_ASF, &param), stream(MX_FORMAT_ASF_STREAM, &param) {}

    static uint32_t Video(CAsfPacket& packet, size_t size, uint32_t sub_type = MX_SUB_I, uint32_t timestamp = 0) {
        ByteVector data(size, 0x55);
        MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, sub_type, timestamp);
        return packet.inputFrame(&frame, 0);
    }
    static uint32_t Audio(CAsfPacket& packet, ByteVector data, uint32_t codec = MX_AUDIO_ALAW, uint32_t timestamp = 0,
                          uint8_t channel = 0) {
        MXFrameInfo frame = test::AudioFrame(data, codec, timestamp);
        frame.samples_per_sec = 8000;
        frame.channels = 1;
        frame.ma_cur_channel = channel;
        return packet.inputFrame(&frame, 0);
    }
    // The head of a packet of the last block.
    ByteVector Head(size_t packet = 0) const { return Slice(sink.Last(), packet * kPacket, 28); }
    uint32_t Word(size_t at) const {
        const ByteVector& last = sink.Last();
        return last.at(at) | uint32_t{last.at(at + 1)} << 8 | uint32_t{last.at(at + 2)} << 16 |
               uint32_t{last.at(at + 3)} << 24;
    }
    uint32_t SendTime() const { return Word(7); }
    uint32_t PresentationTime() const { return Word(24); }

    ScopedClock clock{kNow};
    Sink sink;
    MXCreateParam param = sink.Param();
    CAsfPacket file;
    CAsfPacket stream;
};

}  // namespace Orvane::Muxora::AsfTest
