// Frame records for tests.
#pragma once

#include <cstdint>

#include "MuxoraAPI.h"
#include "support/hex.h"

namespace test {

// An ADTS frame of AAC LC, 48 kHz stereo (ISO/IEC 13818-7 6.2).
inline ByteVector Adts(const ByteVector& payload) {
    const auto size = static_cast<uint32_t>(payload.size() + 7);
    return ByteVector{0xFF,
                      0xF1,
                      0x4C,
                      static_cast<uint8_t>(0x80 | size >> 11),
                      static_cast<uint8_t>(size >> 3),
                      static_cast<uint8_t>((size & 7) << 5 | 0x1F),
                      0xFC} +
           payload;
}

inline MXFrameInfo Frame(ByteVector& data, uint32_t frame_type, uint32_t encode_type) {
    MXFrameInfo frame{};
    frame.size = sizeof frame;
    frame.frame_pointer = data.data();
    frame.frame_size = static_cast<uint32_t>(data.size());
    frame.frame_type = frame_type;
    frame.encode_type = encode_type;
    return frame;
}

// A video frame of 1920 by 1080 at 25 frames per second. The bytes stay the caller's.
inline MXFrameInfo VideoFrame(ByteVector& data, uint32_t encode_type, uint32_t sub_type, uint32_t timestamp = 0) {
    MXFrameInfo frame = Frame(data, MX_FRAME_VIDEO, encode_type);
    frame.frame_sub_type = sub_type;
    frame.timestamp = timestamp;
    frame.width = 1920;
    frame.height = 1080;
    frame.frame_rate = 25;
    return frame;
}

// A stereo audio frame of 16 bits at 48000 Hz.
inline MXFrameInfo AudioFrame(ByteVector& data, uint32_t encode_type, uint32_t timestamp = 0) {
    MXFrameInfo frame = Frame(data, MX_FRAME_AUDIO, encode_type);
    frame.timestamp = timestamp;
    frame.samples_per_sec = 48000;
    frame.bits_per_sample = 16;
    frame.channels = 2;
    return frame;
}

}  // namespace test
