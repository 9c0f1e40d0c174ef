// The rules by which access units of H.264 and H.265 begin, on streams of a few bytes a NAL unit.
#include <gtest/gtest.h>

#include "support/allocation_counter.h"
#include "support/avc_stream.h"
#include "units/unit_cutter.h"
#include "units_fixture.h"

namespace Orvane::Muxora {
namespace {

using test::AvcPps;
using test::AvcSlice;
using test::AvcSps;
using test::Bytes;
using test::ByteVector;
using test::Idr;
using test::kStartCode;
using test::operator+;

// ----------------------------------------------------------------------------------------------------- H.264

class AvcUnits : public testing::Test {
  protected:
    // Each element is to come out as a unit.
    void ExpectUnits(const std::vector<ByteVector>& expected) {
        ByteVector stream;
        for (const ByteVector& unit : expected)
            stream = stream + unit;
        const std::vector<Given> given = units.All(stream);
        ASSERT_EQ(given.size(), expected.size());
        for (size_t i = 0; i < given.size(); ++i)
            EXPECT_EQ(given[i].bytes, expected[i]) << i;
    }

    Units units{MX_FRAME_VIDEO, MX_VIDEO_H264};
    const ByteVector sets = AvcSps() + AvcPps();
};

TEST_F(AvcUnits, EachFieldOfASliceHeaderTellsPicturesApart) {
    ExpectUnits({
        sets + AvcSlice(Idr(0)) + AvcSlice({.header = 0x65, .first_mb = 9, .type = 7}),
        AvcSlice({.header = 0x65, .first_mb = 7, .type = 7, .idr_pic_id = 1}),   // idr_pic_id
        AvcSlice({.first_mb = 9, .frame_num = 0, .poc = 0}),                     // IdrPicFlag
        AvcSlice({.first_mb = 9, .frame_num = 1, .poc = 0}),                     // frame_num
        AvcSlice({.first_mb = 9, .frame_num = 1, .poc = 2}),                     // pic_order_cnt_lsb
        AvcSlice({.header = 0x01, .first_mb = 9, .frame_num = 1, .poc = 2}),     // nal_ref_idc 0
        AvcSlice({.header = 0x21, .first_mb = 9, .frame_num = 1, .poc = 2}) +    // and back
            AvcSlice({.header = 0x61, .first_mb = 9, .frame_num = 1, .poc = 2})  // 1 and 3 are the same
    });
}

TEST_F(AvcUnits, AFieldIsAPictureOfItsOwn) {
    const ByteVector fields = AvcSps(true) + AvcPps();
    const std::vector<Given> given =
        units.All(fields + AvcSlice({.header = 0x65, .type = 7, .field = 1}) +
                  AvcSlice({.header = 0x65, .first_mb = 40, .type = 7, .field = 1}) + AvcSlice({.field = 2, .poc = 1}) +
                  AvcSlice({.frame_num = 1, .field = 0, .poc = 2}));
    ASSERT_EQ(given.size(), 3u);
    EXPECT_EQ(given[0].unit.field, MX_UNIT_TOP_FIELD);
    EXPECT_EQ(given[0].unit.key_frame, 1u);
    EXPECT_EQ(given[1].unit.field, MX_UNIT_BOTTOM_FIELD);
    EXPECT_EQ(given[1].unit.key_frame, 0u);
    EXPECT_EQ(given[2].unit.field, MX_UNIT_FRAME);
    for (const Given& one : given) {
        EXPECT_EQ(one.unit.width, 640u);
        EXPECT_EQ(one.unit.height, 480u);
        EXPECT_EQ(one.unit.rate_numerator, 30000u);
        EXPECT_EQ(one.unit.rate_denominator, 1001u);
    }
}

TEST_F(AvcUnits, PicturesWithTheSameHeadersBeginWithMacroblock0) {
    ExpectUnits({sets + AvcSlice(Idr()), AvcSlice(Idr()),
                 AvcSlice(Idr()) + AvcSlice({.header = 0x65, .first_mb = 5, .type = 7})});
}

TEST_F(AvcUnits, RedundantSlicesBelongToThePicture) {
    const ByteVector with_redundant = AvcSps() + AvcPps(true);
    ExpectUnits({with_redundant + AvcSlice({.header = 0x65, .type = 7, .redundant = 0}) +
                     AvcSlice({.header = 0x65, .type = 7, .redundant = 1}),
                 AvcSlice({.frame_num = 1, .redundant = 0}) + AvcSlice({.frame_num = 1, .redundant = 2})});
}

TEST_F(AvcUnits, NalUnitsOfOtherTypesBeginOneBehindAPicture) {
    const ByteVector slice = AvcSlice(Idr());
    for (const char* first : {"06 01 01 80", "07 4D 00", "08 80", "09 F0", "0F 00", "10 00", "12 00"})
        ExpectUnits({sets + slice, kStartCode + Bytes(first) + AvcSlice({.frame_num = 1})});
    // Filler data, the ends, auxiliary and extension slices go with the picture before.
    for (const char* behind : {"0C FF 80", "0A", "0B", "13 88", "74 80 00"})
        ExpectUnits({sets + slice + kStartCode + Bytes(behind), AvcSlice({.frame_num = 1})});
}

TEST_F(AvcUnits, BehindTheEndOfASequenceAnotherUnitBegins) {
    // The same slice again would belong to the picture, were it not for the end.
    const ByteVector slice = AvcSlice({.header = 0x65, .first_mb = 3, .type = 7});
    ExpectUnits({sets + slice + slice + kStartCode + Bytes("0A") + kStartCode + Bytes("0B"), slice});
}

TEST_F(AvcUnits, APrefixGoesWithTheSliceBehindIt) {
    const ByteVector prefix = kStartCode + Bytes("6E 40 00 00");
    const ByteVector second = AvcSlice({.header = 0x65, .first_mb = 9, .type = 7});
    ExpectUnits({sets + prefix + AvcSlice(Idr()) + prefix + second, prefix + AvcSlice({.frame_num = 1}),
                 prefix + AvcSlice({.frame_num = 2})});
}

TEST_F(AvcUnits, WithoutParameterSetsTheFirstMacroblockTells) {
    ExpectUnits({AvcSlice({.first_mb = 2}) + AvcSlice({.first_mb = 7}), AvcSlice({.first_mb = 0, .frame_num = 1}),
                 AvcSlice({.first_mb = 0, .frame_num = 2})});
}

TEST_F(AvcUnits, TheMostGeneralSliceIsTheKindOfThePicture) {
    const auto kind = [&](uint32_t first, uint32_t second) {
        const std::vector<Given> given =
            units.All(sets + AvcSlice({.type = first}) + AvcSlice({.first_mb = 5, .type = second}));
        EXPECT_EQ(given.size(), 1u);
        EXPECT_EQ(given[0].unit.key_frame, 0u);
        return given[0].unit.picture_kind;
    };
    EXPECT_EQ(kind(7, 7), MX_SUB_I);
    EXPECT_EQ(kind(7, 5), MX_SUB_P);
    EXPECT_EQ(kind(6, 7), MX_SUB_B);
    EXPECT_EQ(kind(0, 1), MX_SUB_B);
    EXPECT_EQ(kind(2, 4), MX_SUB_I);  // SI
    EXPECT_EQ(kind(2, 3), MX_SUB_P);  // SP
}

TEST_F(AvcUnits, ARecoveryPointOfNoFramesIsAKeyFrame) {
    const ByteVector recovery = kStartCode + Bytes("06 06 01 C4 80");  // recovery_frame_cnt 0
    const ByteVector later = kStartCode + Bytes("06 06 01 24 80");     // 3
    const ByteVector behind_another = kStartCode + Bytes("06 05 02 AA BB 06 01 C4 80");
    const std::vector<Given> given =
        units.All(sets + recovery + AvcSlice({.type = 7}) + later + AvcSlice({.type = 7, .frame_num = 1}) +
                  behind_another + AvcSlice({.type = 7, .frame_num = 2}));
    ASSERT_EQ(given.size(), 3u);
    EXPECT_EQ(given[0].unit.key_frame, 1u);
    EXPECT_EQ(given[0].unit.frame_sub_type, MX_SUB_I);
    EXPECT_EQ(given[1].unit.key_frame, 0u);
    EXPECT_EQ(given[1].unit.picture_kind, MX_SUB_I);
    EXPECT_EQ(given[1].unit.frame_sub_type, MX_SUB_P) << "packagers take I for a key frame";
    EXPECT_EQ(given[2].unit.key_frame, 1u);
}

TEST_F(AvcUnits, WhatComesAheadOfTheFirstStartCodeIsLeftOut) {
    const ByteVector picture = sets + AvcSlice(Idr());
    const std::vector<Given> given = units.All(Bytes("12 34 00 00 02 00") + picture);
    ASSERT_EQ(given.size(), 1u);
    EXPECT_EQ(given[0].bytes, picture);
    EXPECT_TRUE(units.All(Bytes("01 02 03 04 05 06 07 08")).empty());
    EXPECT_TRUE(units.All(kStartCode + Bytes("09 F0") + AvcSps() + AvcPps()).empty()) << "no picture";
    EXPECT_EQ(units.All(AvcSlice(Idr()) + Bytes("00 00 01")).size(), 1u) << "a start code and nothing behind it";
}

TEST_F(AvcUnits, SingleNalUnitsComeWithStartCodesOrWithout) {
    const ByteVector slice = AvcSlice(Idr());
    const auto bare = [](const ByteVector& nal) { return test::Slice(nal, 4, nal.size() - 4); };
    EXPECT_TRUE(units.PutNal(bare(AvcSps())).empty());
    EXPECT_TRUE(units.PutNal(test::Slice(AvcPps(), 1, AvcPps().size() - 1)).empty());  // 00 00 01
    EXPECT_TRUE(units.PutNal(slice).empty());
    const std::vector<Given> first = units.PutNal(bare(AvcSlice({.frame_num = 1})));
    ASSERT_EQ(first.size(), 1u);
    EXPECT_EQ(first[0].bytes, AvcSps() + test::Slice(AvcPps(), 1, AvcPps().size() - 1) + slice);
    const std::vector<Given> second = units.End();
    ASSERT_EQ(second.size(), 1u);
    EXPECT_EQ(second[0].bytes, AvcSlice({.frame_num = 1}));
    EXPECT_EQ(second[0].unit.picture_kind, MX_SUB_P);
}

TEST_F(AvcUnits, AUnitInOnePieceIsGivenInPlace) {
    const ByteVector stream = sets + AvcSlice(Idr()) + AvcSlice({.frame_num = 1});
    ASSERT_EQ(MX_PutBytes(units.handle(), stream.data(), static_cast<uint32_t>(stream.size())), 0u);
    MXAccessUnit unit{};
    unit.size = sizeof unit;
    ASSERT_EQ(MX_GetAccessUnit(units.handle(), &unit), 0u);
    EXPECT_EQ(unit.data, stream.data());
    EXPECT_EQ(MX_PutBytes(units.handle(), stream.data(), 1), 3u) << "there is more to look at";
    EXPECT_EQ(MX_PutNal(units.handle(), stream.data(), 1), 3u);
    EXPECT_EQ(MX_EndAccessUnits(units.handle()), 3u);
    EXPECT_EQ(MX_GetAccessUnit(units.handle(), &unit), 16u);
}

TEST_F(AvcUnits, LongStartCodesAreMadeWhereTheyAreMissing) {
    Units rewriting(MX_FRAME_VIDEO, MX_VIDEO_H264, MX_UNITS_LONG_START_CODES);
    const auto shortened = [](const ByteVector& nal) { return test::Slice(nal, 1, nal.size() - 1); };
    const ByteVector first = AvcSlice(Idr());
    const ByteVector next = AvcSlice({.frame_num = 1});
    const std::vector<Given> given =
        rewriting.All(shortened(AvcSps()) + AvcPps() + shortened(first) + shortened(next) + AvcSlice({.frame_num = 2}));
    ASSERT_EQ(given.size(), 3u);
    EXPECT_EQ(given[0].bytes, AvcSps() + AvcPps() + first);
    EXPECT_EQ(given[1].bytes, next);
    EXPECT_EQ(given[2].bytes, AvcSlice({.frame_num = 2}));
}

TEST_F(AvcUnits, ASteadyStreamAllocatesNothing) {
    ByteVector stream = sets;
    for (uint32_t i = 0; i < 12; ++i)
        stream = stream + AvcSlice({.frame_num = i}) + ByteVector(3000, 0x77);
    Units rewriting(MX_FRAME_VIDEO, MX_VIDEO_H264, MX_UNITS_LONG_START_CODES);
    MXAccessUnit unit{};
    unit.size = sizeof unit;
    uint32_t count = 0;
    const auto play = [&](Units& through) {
        for (size_t at = 0; at < stream.size(); at += 1000) {
            const auto size = static_cast<uint32_t>(std::min<size_t>(1000, stream.size() - at));
            MX_PutBytes(through.handle(), stream.data() + at, size);
            while (MX_GetAccessUnit(through.handle(), &unit) == MX_OK)
                ++count;
        }
    };
    play(units);
    play(rewriting);
    count = 0;
    const test::AllocationCounter allocations;
    for (int i = 0; i < 10; ++i) {
        play(units);
        play(rewriting);
    }
    EXPECT_EQ(allocations.Count(), 0u);
    EXPECT_EQ(count, 240u);
}

TEST_F(AvcUnits, WithoutMemoryAUnitIsGoneAndTheNextOneCounts) {
    const ByteVector slice = AvcSlice(Idr()) + ByteVector(100000, 0x77);
    MXAccessUnit unit{};
    unit.size = sizeof unit;
    {
        const test::FailingAllocations failing;
        EXPECT_EQ(MX_PutNal(units.handle(), slice.data(), static_cast<uint32_t>(slice.size())), 4u);
        MX_PutBytes(units.handle(), slice.data(), static_cast<uint32_t>(slice.size()));
        EXPECT_EQ(MX_GetAccessUnit(units.handle(), &unit), 4u);
    }
    ExpectUnits({sets + slice, AvcSlice({.frame_num = 1})});
}

TEST(UnitInfo, ARateIsInLowestTermsOrNotStated) {
    const auto rate = [](uint64_t numerator, uint64_t denominator) {
        UnitInfo info;
        info.SetRate(numerator, denominator);
        return std::pair(info.rate_numerator, info.rate_denominator);
    };
    EXPECT_EQ(rate(60000, 2002), std::pair(30000u, 1001u));
    EXPECT_EQ(rate(50, 2), std::pair(25u, 1u));
    EXPECT_EQ(rate(0, 25), std::pair(0u, 0u));
    EXPECT_EQ(rate(25, 0), std::pair(0u, 0u));
    EXPECT_EQ(rate(0, 0), std::pair(0u, 0u));
    EXPECT_EQ(rate(1, 0xFFFFFFFF), std::pair(1u, 0xFFFFFFFFu));
    EXPECT_EQ(rate(1, 0x100000000), std::pair(0u, 0u));
    EXPECT_EQ(rate(2, 0x100000000), std::pair(1u, 0x80000000u));
}

TEST(Units, WhatTheCIsAskedWrongly) {
    EXPECT_EQ(MX_CreateAccessUnits(MX_FRAME_VIDEO, MX_VIDEO_MJPEG, 0), nullptr);
    EXPECT_EQ(MX_CreateAccessUnits(MX_FRAME_AUDIO, MX_VIDEO_H264, 0), nullptr);
    EXPECT_EQ(MX_CreateAccessUnits(MX_FRAME_PRIVATE, MX_VIDEO_H264, 0), nullptr);
    EXPECT_EQ(MX_DestroyAccessUnits(nullptr), 1u);
    EXPECT_EQ(MX_PutBytes(nullptr, "", 1), 1u);
    EXPECT_EQ(MX_PutNal(nullptr, "", 1), 1u);
    EXPECT_EQ(MX_EndAccessUnits(nullptr), 1u);
    MXAccessUnit unit{};
    EXPECT_EQ(MX_GetAccessUnit(nullptr, &unit), 1u);
    Units units(MX_FRAME_VIDEO, MX_VIDEO_H264_ALT);
    EXPECT_EQ(MX_PutBytes(units.handle(), nullptr, 1), 3u);
    EXPECT_EQ(MX_PutNal(units.handle(), nullptr, 1), 3u);
    EXPECT_EQ(MX_PutNal(units.handle(), "", 0), 3u);
    EXPECT_EQ(MX_GetAccessUnit(units.handle(), &unit), 3u);
    EXPECT_EQ(MX_GetAccessUnit(units.handle(), nullptr), 3u);
    Units sound(MX_FRAME_AUDIO, MX_AUDIO_AAC);
    EXPECT_EQ(MX_PutNal(sound.handle(), "x", 1), 3u);
}

// ----------------------------------------------------------------------------------------------------- H.265

// A slice segment of the base layer: first_slice_segment_in_pic_flag, and bytes.
ByteVector HevcSlice(uint8_t type, bool first) {
    return kStartCode + ByteVector{static_cast<uint8_t>(type << 1), 1, static_cast<uint8_t>(first ? 0xAF : 0x2F)} +
           ByteVector(60, 0x5A);
}

TEST(HevcUnits, TheFirstSegmentAndWhatStandsAheadOfItBeginAUnit) {
    const ByteVector vps = kStartCode + Bytes("40 01 0C");
    std::vector<ByteVector> expected{vps + HevcSlice(19, true) + HevcSlice(19, false), HevcSlice(1, true)};
    for (const char* first :
         {"40 01 0C", "42 01 01", "44 01 C1", "46 01 50", "4E 01 05 00 80", "52 01", "58 01", "60 01", "6E 01"})
        expected.push_back(kStartCode + Bytes(first) + HevcSlice(1, true));
    // Suffix SEI, filler, reserved and unspecified units, units of other layers and the end go with the picture.
    for (const char* behind : {"50 01 05 00 80", "4C 01", "5A 01", "70 01", "02 09 80", "40 09", "46 09", "4A 01"})
        expected.push_back(HevcSlice(0, true) + kStartCode + Bytes(behind));
    expected.push_back(HevcSlice(1, true) + kStartCode + Bytes("48 01") + kStartCode + Bytes("4A 01"));
    expected.push_back(HevcSlice(1, false));  // its sequence has ended, so it is another picture
    ByteVector stream;
    for (const ByteVector& unit : expected)
        stream = stream + unit;
    Units units(MX_FRAME_VIDEO, MX_VIDEO_H265);
    const std::vector<Given> given = units.All(stream);
    ASSERT_EQ(given.size(), expected.size());
    for (size_t i = 0; i < given.size(); ++i)
        EXPECT_EQ(given[i].bytes, expected[i]) << i;
}

TEST(HevcUnits, EveryRandomAccessPictureIsAKeyFrame) {
    Units units(MX_FRAME_VIDEO, MX_VIDEO_H265);
    for (const uint8_t type : Bytes("00 01 06 09 10 11 12 13 14 15")) {
        const std::vector<Given> given = units.All(HevcSlice(type, true));
        ASSERT_EQ(given.size(), 1u);
        EXPECT_EQ(given[0].unit.key_frame, type >= 16 ? 1u : 0u) << int{type};
        EXPECT_EQ(given[0].unit.frame_sub_type, type >= 16 ? MX_SUB_I : MX_SUB_P);
        EXPECT_EQ(given[0].unit.picture_kind, type >= 16 ? MX_SUB_I : MX_SUB_OTHER) << "there is no PPS";
    }
}

}  // namespace
}  // namespace Orvane::Muxora
