// Parameter sets as encoders wrote them, and units with start codes.
#pragma once

#include <vector>

#include "support/hex.h"

namespace test {

// x264, 1920x1080 high profile, and 322x242 baseline; x265, main 10.
inline ByteVector HighSps() {
    return Bytes("67 64 00 28 ac d9 40 78 02 27 e5 c0 5a 80 80 80 a0 00 00 7d 20 00 1d 4c 01 e3 06 32 c0");
}
inline ByteVector HighPps() {
    return Bytes("68 eb e3 cb 22 c0");
}
inline ByteVector BaselineSps() {
    return Bytes("67 42 c0 0d d9 01 50 87 88 88 c0 44 00 00 03 00 04 00 00 03 00 c8 3c 50 a9 20");
}
inline ByteVector BaselinePps() {
    return Bytes("68 cb 83 cb 20");
}
inline ByteVector HevcSets() {
    return Bytes(
        "00 00 00 01 40 01 0c 01 ff ff 02 20 00 00 03 00 90 00 00 03 00 00 03 00 78 95 98 09"
        "00 00 00 01 42 01 01 02 20 00 00 03 00 90 00 00 03 00 00 03 00 78 a0 03 c0 80 10 e4 d9 65 66 92 4c af"
        "0e 6e 12 20 12 08 00 00 03 00 08 00 00 03 00 c8 40"
        "00 00 00 01 44 01 c1 72 b4 62 40");
}

inline ByteVector Units(const std::vector<ByteVector>& units) {
    ByteVector out;
    for (const ByteVector& unit : units)
        out = out + Bytes("00 00 00 01") + unit;
    return out;
}

}  // namespace test
