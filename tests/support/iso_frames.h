// Frames for tests of the ISO media files, and what becomes of them in the file.
#pragma once

#include <cstdint>

#include "support/hex.h"
#include "support/parameter_sets.h"

namespace test {

// An H.264 key frame with an SPS of 8 and a PPS of 4 bytes, and its form in the file.
inline ByteVector KeyFrame() {
    return Bytes("00 00 00 01 67 64 00 28 AC D9 40 78  00 00 00 01 68 EE 3C 80  00 00 01 65 88 84 01 02 03 04 05");
}
inline ByteVector KeySample() {
    return Bytes("00 00 00 08 67 64 00 28 AC D9 40 78  00 00 00 04 68 EE 3C 80  00 00 00 08 65 88 84 01 02 03 04 05");
}
// One with whole parameter sets, of 1920x1080 in the high profile as x264 makes them.
inline ByteVector KeyFrameOfAnEncoder() {
    return Units({HighSps(), HighPps(), Bytes("65 88 84 01 02 03 04 05")});
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

}  // namespace test
