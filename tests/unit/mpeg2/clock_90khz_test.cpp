#include "mpeg2/clock_90khz.h"

#include <gtest/gtest.h>

#include "support/hex.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;

template <typename Put>
ByteVector Written(Put put) {
    uint8_t area[8];
    ByteCursor out(area);
    put(out);
    return {area, area + out.Size()};
}

// The bytes were worked out from the bit tables of ISO/IEC 13818-1: groups of 3, 15 and 15 bits with marker bits.
struct Coded {
    uint32_t ticks;
    const char* scr;
    const char* pts;
    const char* dts;
    const char* pts_alone;
    const char* pcr;
};
constexpr Coded kCoded[] = {
    {0, "44 00 04 00 04 01", "31 00 01 00 01", "11 00 01 00 01", "21 00 01 00 01", "00 00 00 00 7E 00"},
    {1, "44 00 04 00 0C 01", "31 00 01 00 03", "11 00 01 00 03", "21 00 01 00 03", "00 00 00 00 FE 00"},
    {180000, "44 00 2D F9 04 01", "31 00 0B 7E 41", "11 00 0B 7E 41", "21 00 0B 7E 41", "00 01 5F 90 7E 00"},
    {0x12345678, "45 23 46 B3 C4 01", "31 48 D1 AC F1", "11 48 D1 AC F1", "21 48 D1 AC F1", "09 1A 2B 3C 7E 00"},
    {0x80000000, "54 00 04 00 04 01", "35 00 01 00 01", "15 00 01 00 01", "25 00 01 00 01", "40 00 00 00 7E 00"},
    {0xFFFFFFFF, "5F FF FF FF FC 01", "37 FF FF FF FF", "17 FF FF FF FF", "27 FF FF FF FF", "7F FF FF FF FE 00"},
};

TEST(Clock90kHz, CodesItsValues) {
    for (const Coded& coded : kCoded) {
        const auto timestamp = [&](TimestampPrefix prefix) {
            return Written([&](ByteCursor& out) { PutTimestamp(out, prefix, coded.ticks); });
        };
        EXPECT_EQ(timestamp(TimestampPrefix::kPtsBeforeDts), Bytes(coded.pts)) << coded.ticks;
        EXPECT_EQ(timestamp(TimestampPrefix::kDts), Bytes(coded.dts)) << coded.ticks;
        EXPECT_EQ(timestamp(TimestampPrefix::kPtsAlone), Bytes(coded.pts_alone)) << coded.ticks;
        EXPECT_EQ(Written([&](ByteCursor& out) { PutScr(out, coded.ticks); }), Bytes(coded.scr)) << coded.ticks;
        EXPECT_EQ(Written([&](ByteCursor& out) { PutPcr(out, coded.ticks); }), Bytes(coded.pcr)) << coded.ticks;
    }
}

TEST(Clock90kHz, FrameRateStaysUntilAnotherIsGiven) {
    EXPECT_EQ(NextFrameRate(0, 0), 25u);
    EXPECT_EQ(NextFrameRate(0, 30), 30u);
    EXPECT_EQ(NextFrameRate(30, 0), 30u);
    EXPECT_EQ(NextFrameRate(30, 50), 50u);
}

TEST(Clock90kHz, TimesThatRunBackwardAreRepaired) {
    EXPECT_EQ(ForwardTime(1000, 960, 40), 1000u);
    EXPECT_EQ(ForwardTime(1000, 1000, 40), 1000u);
    EXPECT_EQ(ForwardTime(999, 1000, 40), 1040u);
    EXPECT_EQ(ForwardTime(0, 0xFFFFFFFF, 40), 39u);
}

TEST(Clock90kHz, AudioTicksAreCutToWholeOnes) {
    ByteVector data(320);
    MXFrameInfo frame{};
    frame.frame_pointer = data.data();
    frame.frame_size = 320;
    frame.encode_type = MX_AUDIO_ALAW;
    frame.samples_per_sec = 8000;
    EXPECT_EQ(AudioTicks(frame), 3600u);  // 40 ms
    frame.samples_per_sec = 44100;
    EXPECT_EQ(AudioTicks(frame), 653u);  // 653.06
    frame.samples_per_sec = 0;
    EXPECT_EQ(AudioTicks(frame), 0u);
    // The longest that there is: 32-bit milliseconds at 1 Hz are more than 32 bits of ticks hold.
    frame.samples_per_sec = 1;
    frame.frame_size = 4294967;  // times 1000 just fits
    EXPECT_EQ(AudioTicks(frame), static_cast<uint32_t>(4294967000ull * 90));
}

}  // namespace
}  // namespace Orvane::Muxora
