#include "ovx_reader/reader.h"

#include <gtest/gtest.h>

#include <numeric>

#include "ovx_reader/summary.h"
#include "support/allocation_counter.h"
#include "support/hex.h"

namespace Orvane::OvxReader {
namespace {

using test::Bytes;
using test::ByteVector;
using test::Slice;
using test::operator+;

// Three units as they stand in a file: a key frame, an audio frame, a predicted frame. Each frame is "123456789".
const ByteVector kKey = Bytes(
    "4F 52 56 58  FD 00 01 00  01 00 00 00  39 00 00 00  F2 1B 52 06  70 11 10 7D"
    "80 02 F0 87  81 00 08 19  88 26 39 F4 CB 00 00 02  31 32 33 34 35 36 37 38 39  6F 72 76 78  39 00 00 00");
const ByteVector kAudio = Bytes(
    "4F 52 56 58  F0 00 01 00  01 00 00 00  35 00 00 00  01 00 BA 60  DE BC 0C 37"
    "83 02 1A 09  88 26 39 F4 CB 00 00 02  31 32 33 34 35 36 37 38 39  6F 72 76 78  35 00 00 00");
const ByteVector kPredicted = Bytes(
    "4F 52 56 58  FC 00 01 00  02 00 00 00  31 00 00 00  ED 1B 52 06  00 00 08 E7"
    "88 26 39 F4 CB 00 00 02  31 32 33 34 35 36 37 38 39  6F 72 76 78  31 00 00 00");
const ByteVector kFrame = test::Text("123456789");

// The pieces point into the bytes.
std::vector<Piece> Read(const ByteVector&& bytes) = delete;
std::vector<Piece> Read(const ByteVector& bytes) {
    Reader reader(bytes);
    std::vector<Piece> pieces;
    uint64_t at = 0;
    while (const auto piece = reader.Next()) {
        EXPECT_EQ(piece->offset, at);
        EXPECT_GT(piece->length, 0u);
        at += piece->length;
        pieces.push_back(*piece);
    }
    EXPECT_EQ(at, bytes.size());
    return pieces;
}

void ExpectUnit(const Piece& piece, uint64_t offset, uint64_t length, int damage = kNoDamage) {
    EXPECT_TRUE(piece.is_unit);
    EXPECT_EQ(piece.offset, offset);
    EXPECT_EQ(piece.length, length);
    EXPECT_EQ(piece.damage, damage);
}

void ExpectLost(const Piece& piece, uint64_t offset, uint64_t length) {
    EXPECT_FALSE(piece.is_unit);
    EXPECT_FALSE(piece.Intact());
    EXPECT_FALSE(piece.Usable());
    EXPECT_EQ(piece.offset, offset);
    EXPECT_EQ(piece.length, length);
}

ByteVector FrameOf(const Piece& piece) {
    return {piece.frame.begin(), piece.frame.end()};
}

// A unit with a right head and data check around given parts.
ByteVector Unit(const ByteVector& extension, const ByteVector& frame, uint8_t extension_length) {
    const auto length = static_cast<uint32_t>(24 + extension.size() + frame.size() + 8);
    ByteVector unit = Bytes("4F 52 56 58  FC 00 01 00  02 00 00 00  00 00 00 00  ED 1B 52 06  00 00 00 00");
    ByteVector tail = Bytes("6F 72 76 78  00 00 00 00");
    for (size_t i = 0; i < 4; ++i)
        unit[12 + i] = tail[4 + i] = static_cast<uint8_t>(length >> (8 * i));
    unit[22] = extension_length;
    unit[23] = static_cast<uint8_t>(std::accumulate(unit.begin(), unit.begin() + 23, 0));
    return unit + extension + frame + tail;
}

TEST(OvxReader, ReadsUnitAfterUnit) {
    const ByteVector file = kKey + kAudio + kPredicted;
    const auto pieces = Read(file);
    ASSERT_EQ(pieces.size(), 3u);
    ExpectUnit(pieces[0], 0, 57);
    ExpectUnit(pieces[1], 57, 53);
    ExpectUnit(pieces[2], 110, 49);
    for (const Piece& piece : pieces) {
        EXPECT_TRUE(piece.Usable());
        EXPECT_EQ(piece.check, Check::kRight);
        EXPECT_EQ(FrameOf(piece), kFrame);
    }
    EXPECT_EQ(pieces[0].head.kind, kKindI);
    EXPECT_EQ(pieces[0].head.channel, 1);
    EXPECT_EQ(pieces[0].head.timestamp, 4464);
    EXPECT_EQ(pieces[0].extension.Block().size(), 16u);
    EXPECT_TRUE(pieces[1].head.IsAudio());
    EXPECT_EQ(pieces[2].head.sequence, 2u);
    EXPECT_FALSE(pieces[2].head.IsAudio());
}

TEST(OvxReader, Dates) {
    const Date date(0x60BA0001);
    EXPECT_EQ(date.year, 2024u);
    EXPECT_EQ(date.month, 2u);
    EXPECT_EQ(date.day, 29u);
    EXPECT_EQ(date.hour, 0u);
    EXPECT_EQ(date.minute, 0u);
    EXPECT_EQ(date.second, 1u);
    const Date other(0x06521BF2);
    EXPECT_EQ(other.hour, 1u);
    EXPECT_EQ(other.minute, 47u);
    EXPECT_EQ(other.second, 50u);
}

TEST(OvxReader, NothingIsNoDamage) {
    const ByteVector nothing;
    EXPECT_TRUE(Read(nothing).empty());
}

TEST(OvxReader, WhatIsNoOvxIsOneLostPiece) {
    const ByteVector text = test::Text("This is a text with ORVX and orvx in it, and 32 bytes at least.");
    const auto pieces = Read(text);
    ASSERT_EQ(pieces.size(), 1u);
    ExpectLost(pieces[0], 0, text.size());
    EXPECT_EQ(DamageText(pieces[0]), "no unit begins here");
    for (const size_t size : {1u, 7u, 8u, 23u, 31u, 32u}) {
        const ByteVector zeros(size);
        ASSERT_EQ(Read(zeros).size(), 1u);
    }
}

TEST(OvxReader, ADamagedHeadIsFoundFromItsTail) {
    for (const size_t at : {0u, 4u, 8u, 12u, 22u, 23u}) {
        ByteVector file = kKey + kAudio + kPredicted;
        file[57 + at] ^= 0x10;
        const auto pieces = Read(file);
        ASSERT_EQ(pieces.size(), 3u) << at;
        ExpectUnit(pieces[0], 0, 57);
        ExpectUnit(pieces[1], 57, 53, kDamagedHead);
        ExpectUnit(pieces[2], 110, 49);
        // The data check proves the frame all the same, but not whose it is.
        EXPECT_EQ(pieces[1].check, Check::kRight);
        EXPECT_EQ(FrameOf(pieces[1]), kFrame);
        EXPECT_FALSE(pieces[1].Usable());
        EXPECT_EQ(DamageText(pieces[1]), "a unit whose head is damaged; its frame is right");
    }
}

TEST(OvxReader, DamagedHeadsInARow) {
    ByteVector file = kKey + kAudio + kPredicted + kKey;
    file[0] ^= 1;
    file[57] ^= 1;
    file[110] ^= 1;
    const auto pieces = Read(file);
    ASSERT_EQ(pieces.size(), 4u);
    ExpectUnit(pieces[0], 0, 57, kDamagedHead);
    ExpectUnit(pieces[1], 57, 53, kDamagedHead);
    ExpectUnit(pieces[2], 110, 49, kDamagedHead);
    ExpectUnit(pieces[3], 159, 57);
}

TEST(OvxReader, ADamagedHeadAtTheEnd) {
    ByteVector file = kKey + kAudio;
    file[57] ^= 1;
    const auto pieces = Read(file);
    ASSERT_EQ(pieces.size(), 2u);
    ExpectUnit(pieces[1], 57, 53, kDamagedHead);
}

TEST(OvxReader, ADamagedTail) {
    for (size_t at = 49; at < 57; ++at) {
        ByteVector file = kKey + kAudio;
        file[at] ^= 0x40;
        auto pieces = Read(file);
        ASSERT_EQ(pieces.size(), 2u);
        ExpectUnit(pieces[0], 0, 57, kDamagedTail);
        EXPECT_TRUE(pieces[0].Usable());
        EXPECT_EQ(FrameOf(pieces[0]), kFrame);
        ExpectUnit(pieces[1], 57, 53);
        file.resize(57);
        pieces = Read(file);
        ASSERT_EQ(pieces.size(), 1u);
        ExpectUnit(pieces[0], 0, 57, kDamagedTail);
    }
}

TEST(OvxReader, ADamagedTailAndADamagedHeadBehindIt) {
    ByteVector file = kKey + kAudio + kPredicted;
    file[50] ^= 1;
    file[60] ^= 1;
    const auto pieces = Read(file);
    ASSERT_EQ(pieces.size(), 3u);
    ExpectUnit(pieces[0], 0, 57, kDamagedTail);
    ExpectUnit(pieces[1], 57, 53, kDamagedHead);
    ExpectUnit(pieces[2], 110, 49);
}

TEST(OvxReader, HeadAndTailDamagedIsLost) {
    ByteVector file = kKey + kAudio + kPredicted;
    file[60] ^= 1;
    file[103] ^= 1;
    const auto pieces = Read(file);
    ASSERT_EQ(pieces.size(), 3u);
    ExpectLost(pieces[1], 57, 53);
    ExpectUnit(pieces[2], 110, 49);
}

TEST(OvxReader, AWrongFrame) {
    ByteVector file = kKey + kAudio;
    file[41] ^= 1;
    const auto pieces = Read(file);
    ASSERT_EQ(pieces.size(), 2u);
    ExpectUnit(pieces[0], 0, 57, kDamagedFrame);
    EXPECT_FALSE(pieces[0].Usable());
    EXPECT_EQ(DamageText(pieces[0]), "its data check is wrong");
}

TEST(OvxReader, AnUnknownRecord) {
    ByteVector file = kKey;
    file[24] = 0x7F;  // in place of ImageSize
    auto pieces = Read(file);
    ASSERT_EQ(pieces.size(), 1u);
    ExpectUnit(pieces[0], 0, 57, kDamagedExtension);
    EXPECT_FALSE(pieces[0].Usable());  // the data check is behind it
    file = kKey;
    file[29] = 1;  // a zero byte of PlayBack
    pieces = Read(file);
    ExpectUnit(pieces[0], 0, 57, kDamagedExtension);
    EXPECT_TRUE(pieces[0].Usable());
}

TEST(OvxReader, ACutUnitInTheMiddle) {
    const ByteVector file = Slice(kKey, 0, 40) + Slice(kKey, 43, 14) + kAudio;
    const auto pieces = Read(file);
    ASSERT_EQ(pieces.size(), 2u);
    ExpectLost(pieces[0], 0, 54);
    EXPECT_EQ(pieces[0].head_length, 57u);
    EXPECT_EQ(pieces[0].tail_length, 57u);
    EXPECT_EQ(DamageText(pieces[0]), "a unit of 57 bytes begins here and is cut");
    ExpectUnit(pieces[1], 54, 53);
}

TEST(OvxReader, ACutUnitAtTheEnd) {
    const ByteVector file = kAudio + Slice(kKey, 0, 45);
    const auto pieces = Read(file);
    ASSERT_EQ(pieces.size(), 2u);
    ExpectLost(pieces[1], 53, 45);
    EXPECT_EQ(DamageText(pieces[1]), "a unit of 57 bytes begins here and is cut");
}

TEST(OvxReader, AUnitThatLacksOnlyOfItsTail) {
    for (size_t missing = 1; missing <= 8; ++missing) {
        const ByteVector cut = Slice(kKey, 0, 57 - missing);
        auto pieces = Read(cut);
        ASSERT_EQ(pieces.size(), 1u) << missing;
        ExpectUnit(pieces[0], 0, 57 - missing, kDamagedTail);
        EXPECT_TRUE(pieces[0].Usable());
        EXPECT_EQ(FrameOf(pieces[0]), kFrame);
        const ByteVector file = cut + kAudio;
        pieces = Read(file);
        ASSERT_EQ(pieces.size(), 2u) << missing;
        ExpectUnit(pieces[0], 0, 57 - missing, kDamagedTail);
        ExpectUnit(pieces[1], 57 - missing, 53);
    }
}

TEST(OvxReader, ACutAcrossUnits) {
    const ByteVector file = Slice(kKey, 0, 30) + Slice(kPredicted, 34, 15) + kAudio;
    const auto pieces = Read(file);
    ASSERT_EQ(pieces.size(), 2u);
    ExpectLost(pieces[0], 0, 45);
    EXPECT_EQ(pieces[0].head_length, 57u);
    EXPECT_EQ(pieces[0].tail_length, 49u);
    EXPECT_EQ(DamageText(pieces[0]),
              "a unit of 57 bytes begins here and is cut; a unit of 49 bytes ends here and is cut");
    ExpectUnit(pieces[1], 45, 53);
}

TEST(OvxReader, AUnitWithoutItsHead) {
    // Its first 20 bytes are gone: the records and what follows are all there.
    ByteVector file = Slice(kKey, 0, 30) + Slice(kPredicted, 20, 29) + kAudio;
    auto pieces = Read(file);
    ASSERT_EQ(pieces.size(), 3u);
    ExpectLost(pieces[0], 0, 34);
    ExpectUnit(pieces[1], 34, 25, kDamagedHead);
    EXPECT_EQ(FrameOf(pieces[1]), kFrame);
    ExpectUnit(pieces[2], 59, 53);
    // The file begins with the rest of a unit.
    file = Slice(kPredicted, 20, 29) + kAudio;
    pieces = Read(file);
    ASSERT_EQ(pieces.size(), 3u);
    ExpectLost(pieces[0], 0, 4);
    ExpectUnit(pieces[1], 4, 25, kDamagedHead);
    file = Slice(kPredicted, 24, 25);
    pieces = Read(file);
    ASSERT_EQ(pieces.size(), 1u);
    ExpectUnit(pieces[0], 0, 25, kDamagedHead);
    EXPECT_EQ(FrameOf(pieces[0]), kFrame);
}

TEST(OvxReader, BytesBetweenUnits) {
    const ByteVector file = kKey + test::Text("ORVX?") + kAudio + Bytes("00");
    const auto pieces = Read(file);
    ASSERT_EQ(pieces.size(), 4u);
    ExpectUnit(pieces[0], 0, 57);
    ExpectLost(pieces[1], 57, 5);
    ExpectUnit(pieces[2], 62, 53);
    ExpectLost(pieces[3], 115, 1);
}

TEST(OvxReader, BytesThatOnlyLookLikeATail) {
    // A tail in front of the damage that names more bytes than there are, and one that points at nothing.
    const ByteVector file = test::Text("orvx") + Bytes("FF FF 00 00") + ByteVector(60, 1) + test::Text("orvx") +
                            Bytes("28 00 00 00") + kAudio;
    const auto pieces = Read(file);
    ASSERT_EQ(pieces.size(), 2u);
    ExpectLost(pieces[0], 0, 76);
    ExpectUnit(pieces[1], 76, 53);
}

TEST(OvxReader, AUnitInsideAFrameIsNoUnit) {
    // CRC-32 of kAudio, by the definition.
    uint32_t crc = 0xFFFFFFFF;
    for (const uint8_t byte : kAudio) {
        for (uint32_t bit = 0; bit < 8; ++bit)
            crc = crc >> 1 ^ (((crc ^ byte >> bit) & 1) != 0 ? 0xEDB88320 : 0);
    }
    ByteVector check = Bytes("88 00 00 00 00 00 00 02");
    for (size_t i = 0; i < 4; ++i)
        check[1 + i] = static_cast<uint8_t>(~crc >> (8 * i));
    const ByteVector file = Unit(check, kAudio, 8);
    const auto pieces = Read(file);
    ASSERT_EQ(pieces.size(), 1u);
    ExpectUnit(pieces[0], 0, 24 + 8 + 53 + 8);
    EXPECT_EQ(FrameOf(pieces[0]), kAudio);
}

TEST(OvxReader, AFullExtensionBlockSaysZero) {
    const ByteVector block = Bytes("88 26 39 F4 CB 00 00 02  99 0F 01 80 07 38 04 00") + ByteVector(240, 0xB7);
    ByteVector file = Unit(block, kFrame, 0);
    auto pieces = Read(file);
    ASSERT_EQ(pieces.size(), 1u);
    ExpectUnit(pieces[0], 0, 24 + 256 + 9 + 8);
    EXPECT_EQ(pieces[0].extension.Block().size(), 256u);
    EXPECT_EQ(FrameOf(pieces[0]), kFrame);
    // With its head gone it is found too.
    file = kKey + file;
    file[58] ^= 2;
    pieces = Read(file);
    ASSERT_EQ(pieces.size(), 2u);
    ExpectUnit(pieces[1], 57, 297, kDamagedHead);
    EXPECT_EQ(FrameOf(pieces[1]), kFrame);
}

TEST(OvxReader, AUnitWithoutRecords) {
    const ByteVector frame(300, 7);
    const ByteVector file = Unit({}, frame, 0);
    const auto pieces = Read(file);
    ASSERT_EQ(pieces.size(), 1u);
    ExpectUnit(pieces[0], 0, 332);
    EXPECT_EQ(pieces[0].check, Check::kMissing);
    EXPECT_TRUE(pieces[0].Usable());
    EXPECT_EQ(FrameOf(pieces[0]), frame);
}

TEST(OvxReader, CraftedUnitsTakeMemoryInProportion) {
    constexpr size_t kUnits = 100000;
    // The smallest units there are: a head whose tail says something else, and a tail whose head is gone.
    const ByteVector headed = Bytes(
        "4F 52 56 58  FD 00 01 00  01 00 00 00  20 00 00 00  F2 1B 52 06  70 11 00 54"
        "6F 72 76 78  21 00 00 00");
    const ByteVector tailed = Bytes(
        "00 52 56 58  FD 00 01 00  01 00 00 00  20 00 00 00  F2 1B 52 06  70 11 00 54"
        "6F 72 76 78  20 00 00 00");
    for (const ByteVector& unit : {headed, tailed}) {
        ByteVector file;
        for (size_t i = 0; i < kUnits; ++i)
            file.insert(file.end(), unit.begin(), unit.end());
        Reader reader(file);
        size_t found = 0;
        const test::AllocationCounter counter;
        while (const auto piece = reader.Next())
            found += piece->is_unit && piece->length == unit.size();
        EXPECT_EQ(found, kUnits);
        // Some hundred bytes would be a piece as it is given out; its place is 24.
        EXPECT_LT(counter.Bytes(), 4 * file.size());
    }
}

TEST(OvxReader, Summary) {
    ByteVector file = kKey + kAudio + kPredicted + kAudio + kKey;
    file[57] ^= 1;     // the first audio unit's head
    file.resize(230);  // the last unit is cut
    class Summary summary;
    for (const Piece& piece : Read(file))
        summary.Add(piece);
    EXPECT_EQ(summary.bytes, 230u);
    EXPECT_EQ(summary.video.units, 2u);
    EXPECT_EQ(summary.video.first, 1u);
    EXPECT_EQ(summary.video.last, 2u);
    EXPECT_EQ(summary.video.jumps, 0u);
    EXPECT_EQ(summary.audio.units, 1u);
    EXPECT_TRUE(summary.Damaged());
    EXPECT_EQ(summary.DamageText(), "1 damaged unit (53 bytes), 1 lost stretch (18 bytes)");

    class Summary good;
    file = kKey + kKey;
    for (const Piece& piece : Read(file))
        good.Add(piece);
    EXPECT_FALSE(good.Damaged());
    EXPECT_EQ(good.video.jumps, 1u);
    EXPECT_EQ(good.DamageText(), "");
}

}  // namespace
}  // namespace Orvane::OvxReader
