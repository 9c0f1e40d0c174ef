#include "iso/header_boxes.h"

#include <gtest/gtest.h>

#include "box_bytes.h"
#include "core/clock.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::operator+;

// 2024-01-02 03:04:05 UTC; with the seconds from 1904 to 1970 that is E1B92DA5.
constexpr int64_t kNow = 1704164645;
const char* const kTimes = "E1 B9 2D A5 E1 B9 2D A5";
const char* const kMatrix =
    "00 01 00 00 00 00 00 00 00 00 00 00  00 00 00 00 00 01 00 00 00 00 00 00  00 00 00 00 00 00 00 00 40 00 00 00";

TrackInfo Video(uint32_t width = 1280, uint32_t height = 720) {
    VideoTrackInfo info;
    info.width = width;
    info.height = height;
    info.frame_rate = 25;
    info.encode_type = 2;
    return info;
}

const TrackInfo kAudio = AudioTrackInfo{26, 2, 16, 44100};

TEST(BoxTime, CountsFrom1904) {
    const ScopedClock clock(0);
    EXPECT_EQ(CurrentBoxTime(), 2082844800u);
    const ScopedClock later(kNow);
    EXPECT_EQ(CurrentBoxTime(), 0xE1B92DA5u);
}

TEST(Mvhd, Layout) {
    const ScopedClock clock(kNow);
    CBox_mvhd mvhd;
    const ByteVector tail = Bytes("00 01 00 00 01 00") + ByteVector(10) + Bytes(kMatrix) + ByteVector(24);
    EXPECT_EQ(Written(mvhd), Bytes("00 00 00 6C 6D 76 68 64  00 00 00 00") + Bytes(kTimes) +
                                 Bytes("00 00 03 E8 00 00 00 00") + tail + Bytes("00 00 00 01"));
    mvhd.Init(2);
    mvhd.SetDuration(4000);
    EXPECT_EQ(Written(mvhd), Bytes("00 00 00 6C 6D 76 68 64  00 00 00 00") + Bytes(kTimes) +
                                 Bytes("00 00 03 E8 00 00 0F A0") + tail + Bytes("00 00 00 03"));
}

TEST(Mvhd, TimesStayThoseOfItsConstruction) {
    ScopedClock clock(kNow);
    const CBox_mvhd mvhd;
    const ByteVector first = Written(mvhd);
    clock.Set(kNow + 1000);
    EXPECT_EQ(Written(mvhd), first);
}

TEST(Tkhd, VideoEndsWithThePictureSize) {
    ScopedClock clock(kNow - 9);
    CBox_tkhd tkhd;
    clock.Set(kNow);  // the times are those of Init
    const TrackInfo info = Video();
    tkhd.Init(1, &info);
    tkhd.SetDuration(4000);
    EXPECT_EQ(Written(tkhd), Bytes("00 00 00 5C 74 6B 68 64  00 00 00 0F") + Bytes(kTimes) +
                                 Bytes("00 00 00 01  00 00 00 00  00 00 0F A0") + ByteVector(8) +
                                 Bytes("00 00 00 00 00 00 00 00") + Bytes(kMatrix) + Bytes("05 00 00 00 02 D0 00 00"));
}

TEST(Tkhd, AudioHasAVolumeAndNoPicture) {
    const ScopedClock clock(kNow);
    CBox_tkhd tkhd;
    tkhd.Init(2, &kAudio);
    EXPECT_EQ(Written(tkhd), Bytes("00 00 00 5C 74 6B 68 64  00 00 00 0F") + Bytes(kTimes) +
                                 Bytes("00 00 00 02  00 00 00 00  00 00 00 00") + ByteVector(8) +
                                 Bytes("00 00 00 00 01 00 00 00") + Bytes(kMatrix) + ByteVector(8));
}

TEST(Tkhd, ExtHasTheNumber3AndNoFlags) {
    const ScopedClock clock(kNow);
    CBox_tkhd tkhd;
    tkhd.Init(3, &kAudio);
    EXPECT_EQ(test::Slice(Written(tkhd), 8, 16), Bytes("00 00 00 00") + Bytes(kTimes) + Bytes("00 00 00 03"));
}

TEST(Tkhd, WithoutARecordItStaysEmpty) {
    CBox_tkhd tkhd;
    tkhd.Init(1, nullptr);
    EXPECT_EQ(test::Slice(Written(tkhd), 8, 16), ByteVector(16));
}

TEST(Mdhd, VideoCountsMilliseconds) {
    const ScopedClock clock(kNow);
    CBox_mdhd mdhd;
    const TrackInfo info = Video();
    mdhd.Init(1, &info);
    mdhd.SetDuration(4000);
    EXPECT_EQ(Written(mdhd), Bytes("00 00 00 20 6D 64 68 64  00 00 00 00") + Bytes(kTimes) +
                                 Bytes("00 00 03 E8  00 00 0F A0  55 C4 00 00"));
}

TEST(Mdhd, TimesAreThoseOfItsConstruction) {
    ScopedClock clock(kNow);
    CBox_mdhd mdhd;
    clock.Set(kNow + 1000);
    mdhd.Init(2, &kAudio);
    EXPECT_EQ(test::Slice(Written(mdhd), 12, 8), Bytes(kTimes));
}

TEST(Mdhd, AudioCountsSamples) {
    const ScopedClock clock(kNow);
    CBox_mdhd mdhd;
    mdhd.Init(2, &kAudio);
    EXPECT_EQ(test::Slice(Written(mdhd), 20, 12), Bytes("00 00 AC 44  00 00 00 00  55 C4 00 00"));
}

TEST(Hdlr, VideoHasAPayloadOf37Bytes) {
    CBox_hdlr hdlr;
    const TrackInfo info = Video();
    hdlr.Init(1, &info);
    EXPECT_EQ(hdlr.GetSize(), 45u);
    EXPECT_EQ(Written(hdlr), Bytes("00 00 00 2D") + test::Text("hdlr") + ByteVector(8) + test::Text("vide") +
                                 ByteVector(12) + test::Text("VideoHandler") + Bytes("00"));
}

TEST(Hdlr, AudioAndExt) {
    CBox_hdlr audio;
    audio.Init(2, &kAudio);
    EXPECT_EQ(test::Slice(Written(audio), 16, 29),
              test::Text("soun") + ByteVector(12) + test::Text("SoundHandler") + Bytes("00"));
    CBox_hdlr ext;
    ext.Init(3, &kAudio);
    EXPECT_EQ(ext.GetSize(), 47u);
    EXPECT_EQ(test::Slice(Written(ext), 16, 31),
              test::Text("ORVX") + ByteVector(12) + test::Text("ORVXExtHandler") + Bytes("00"));
}

TEST(MediaHeaders, Layout) {
    EXPECT_EQ(Written(CBox_vmhd{}), Bytes("00 00 00 14 76 6D 68 64  00 00 00 01  00 00 00 00 00 00 00 00"));
    EXPECT_EQ(Written(CBox_smhd{}), Bytes("00 00 00 10 73 6D 68 64  00 00 00 00  00 00 00 00"));
}

TEST(Dinf, SaysThatTheMediaIsInThisFile) {
    EXPECT_EQ(Written(CBox_dinf{}), Bytes("00 00 00 24 64 69 6E 66  00 00 00 1C 64 72 65 66  00 00 00 00 00 00 00 01"
                                          "00 00 00 0C 75 72 6C 20  00 00 00 01"));
}

}  // namespace
}  // namespace Orvane::Muxora
