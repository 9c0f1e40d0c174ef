#include "codec/psi_tables.h"

#include <gtest/gtest.h>

#include "codec/mpeg_clock.h"
#include "support/hex.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::operator+;

ByteVector Packet(const TsTable& table) {
    return {table.begin(), table.end()};
}

// The sections with their CRCs as other muxers write them for the same programs.
TEST(PsiTables, Pat) {
    EXPECT_EQ(Packet(MakePat(0x1000)),
              Bytes("47 40 00 10 00 00 B0 0D 00 01 C1 00 00 00 01 F0 00 2A B1 04 B2") + ByteVector(167, 0xFF));
}

TEST(PsiTables, PmtOfVideoAndAudio) {
    constexpr PsiStream kStreams[] = {{0x1B, 0x0100}, {0x0F, 0x0101}};
    EXPECT_EQ(Packet(MakePmt(0x1000, 0x0100, kStreams, 0)),
              Bytes("47 50 00 10 00 02 B0 17 00 01 C1 00 00 E1 00 F0 00 1B E1 00 F0 00 0F E1 01 F0 00 2F 44 B9 9B") +
                  ByteVector(157, 0xFF));
}

TEST(PsiTables, VersionHasFiveBits) {
    EXPECT_EQ(MakePmt(0x1000, kNoPid, {}, 31)[10], 0xFF);
    EXPECT_EQ(MakePmt(0x1000, kNoPid, {}, 32)[10], 0xC1);
}

TEST(PsiTables, CopiesCountOn) {
    const TsTable pat = MakePat(0x1000);
    uint8_t continuity = 15;
    uint8_t out[188];
    CopyTable(pat, continuity, out);
    EXPECT_EQ(out[3], 0x1F);
    EXPECT_EQ(continuity, 0);
    CopyTable(pat, continuity, out);
    EXPECT_EQ(out[3], 0x10);
}

template <typename Put>
ByteVector Written(Put put) {
    uint8_t area[8];
    ByteCursor out(area);
    put(out);
    return {area, area + out.Size()};
}

TEST(MpegClock, HasThirtyThreeBits) {
    const auto pts = [](uint64_t ticks) {
        return Written([=](ByteCursor& out) { PutTimestamp(out, TimestampPrefix::kPtsAlone, ticks); });
    };
    const auto pcr = [](uint64_t ticks) { return Written([=](ByteCursor& out) { PutPcr(out, ticks); }); };
    EXPECT_EQ(pts(0x100000000), Bytes("29 00 01 00 01"));
    EXPECT_EQ(pts(0x1FFFFFFFF), Bytes("2F FF FF FF FF"));
    EXPECT_EQ(pts(0x200000000), Bytes("21 00 01 00 01"));
    EXPECT_EQ(pcr(0x100000000), Bytes("80 00 00 00 7E 00"));
    EXPECT_EQ(pcr(0x1FFFFFFFF), Bytes("FF FF FF FF FE 00"));
    EXPECT_EQ(pcr(0x200000001), Bytes("00 00 00 00 FE 00"));
}

}  // namespace
}  // namespace Orvane::Muxora
