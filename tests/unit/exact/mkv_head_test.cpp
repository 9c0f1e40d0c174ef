// Elements of the tracks (RFC 9559 5.1.4) that no stream of an encoder at hand brings.
#include "exact/mkv_head.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "support/hex.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;

bool Holds(const MkvTrack& video, const char* element) {
    const ByteVector head = MkvHead::Write(video, std::nullopt, std::nullopt);
    const ByteVector wanted = Bytes(element);
    return std::search(head.begin(), head.end(), wanted.begin(), wanted.end()) != head.end();
}

// 1920 pixels of 12:11 are 2094.5454 wide: 2095, which is 0x82F.
TEST(MkvHead, AWidthIsRoundedToTheNearest) {
    MkvTrack track;
    track.video.width = 1920;
    track.video.height = 1080;
    track.video.sar_width = 12;
    track.video.sar_height = 11;
    EXPECT_TRUE(Holds(track, "54 B0 82 08 2F"));
    // 1921: 2095.6364, 1917: 2091.2727
    track.video.width = 1921;
    EXPECT_TRUE(Holds(track, "54 B0 82 08 30"));
    track.video.width = 1917;
    EXPECT_TRUE(Holds(track, "54 B0 82 08 2B"));
}

// ProjectionPoseRoll is counter-clockwise, from -180 to 180: doubles of -90, -180 and 90.
TEST(MkvHead, ThreeTurns) {
    MkvTrack track;
    track.rotation = 90;
    EXPECT_TRUE(Holds(track, "76 75 88 C0 56 80 00 00 00 00 00"));
    track.rotation = 180;
    EXPECT_TRUE(Holds(track, "76 75 88 C0 66 80 00 00 00 00 00"));
    track.rotation = 270;
    EXPECT_TRUE(Holds(track, "76 75 88 40 56 80 00 00 00 00 00"));
    track.rotation = 360;
    EXPECT_FALSE(Holds(track, "76 75"));
}

}  // namespace
}  // namespace Orvane::Muxora
