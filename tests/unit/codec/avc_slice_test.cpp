#include "codec/avc_slice.h"

#include <gtest/gtest.h>

#include <functional>

#include "support/avc_stream.h"
#include "support/bits.h"
#include "support/hex.h"

namespace Orvane::Muxora {
namespace {

using test::BitString;
using test::Bytes;
using test::ByteVector;

// A signed Exp-Golomb code (ITU-T H.264 9.1.1).
BitString& Se(BitString& bits, int32_t value) {
    return bits.Ue(value > 0 ? 2 * static_cast<uint64_t>(value) - 1 : 2 * static_cast<uint64_t>(-value));
}

// 320 x 240 with frame numbers and order counts of 4 bits.
ByteVector Sps(uint32_t order_type, bool always_zero = false, bool fields = false) {
    BitString bits;
    bits.Put(0x67, 8).Put(77, 8).Put(0, 8).Put(30, 8).Ue(0).Ue(0).Ue(order_type);
    if (order_type == 0) bits.Ue(0);
    if (order_type == 1) {
        bits.Put(always_zero, 1);
        Se(bits, -3);
        Se(bits, 4);
        bits.Ue(2);
        Se(bits, 1);
        Se(bits, -1);
    }
    bits.Ue(1).Put(0, 1).Ue(19).Ue(fields ? 7 : 14).Put(!fields, 1);
    if (fields) bits.Put(0, 1);
    bits.Put(1, 1).Put(0, 1).Put(0, 1).Put(1, 1);
    return bits.Bytes();
}

using Groups = std::function<void(BitString&)>;

// `groups` writes what stands behind num_slice_groups_minus1.
ByteVector Pps(bool bottom, bool redundant, uint32_t groups_minus1 = 0, const Groups& groups = nullptr, uint32_t id = 0,
               uint32_t sps_id = 0) {
    BitString bits;
    bits.Put(0x68, 8).Ue(id).Ue(sps_id).Put(0, 1).Put(bottom, 1).Ue(groups_minus1);
    if (groups) groups(bits);
    bits.Ue(0).Ue(0).Put(0, 3).Ue(0).Ue(0).Ue(0).Put(0, 2).Put(redundant, 1).Put(1, 1);
    return bits.Bytes();
}

AvcParameterSets Sets(const ByteVector& sps, const ByteVector& pps) {
    AvcParameterSets sets;
    sets.Enter(sps);
    sets.Enter(pps);
    return sets;
}

// What stands behind the slice groups is read at its place, whatever kind of map there is (ITU-T H.264 7.3.2.2).
TEST(AvcParameterSets, ReadsOnBehindSliceGroups) {
    struct Map {
        const char* what;
        uint32_t groups_minus1;
        Groups write;
        bool known;
    };
    const auto repeated = [](uint32_t type, int count) {
        return [=](BitString& bits) {
            bits.Ue(type);
            for (int i = 0; i < count; ++i)
                bits.Ue(5);
        };
    };
    const auto change = [](uint32_t type) { return [=](BitString& bits) { bits.Ue(type).Put(1, 1).Ue(9); }; };
    const auto explicit_ids = [](uint32_t units, uint32_t width) {
        return [=](BitString& bits) {
            bits.Ue(6).Ue(units - 1);
            for (uint32_t i = 0; i < units; ++i)
                bits.Put(1, width);
        };
    };
    const Map maps[] = {
        {"interleaved", 3, repeated(0, 4), true},
        {"dispersed", 3, repeated(1, 0), true},
        {"foreground", 3, repeated(2, 6), true},
        {"box-out", 1, change(3), true},
        {"raster", 1, change(4), true},
        {"wipe", 1, change(5), true},
        {"two groups by unit", 1, explicit_ids(10, 1), true},
        {"three by unit", 2, explicit_ids(10, 2), true},
        {"four by unit", 3, explicit_ids(10, 2), true},
        {"five by unit", 4, explicit_ids(10, 3), true},
        {"eight by unit", 7, explicit_ids(10, 3), true},
        {"an unknown map", 1, repeated(7, 0), false},
        {"nine groups", 8, repeated(1, 0), false},
        {"more units than a set holds", 1, [](BitString& bits) { bits.Ue(6).Ue(0xFFFFFFF0); }, false},
    };
    for (const Map& map : maps) {
        for (const bool redundant : {false, true}) {
            SCOPED_TRACE(map.what);
            AvcParameterSets sets;
            sets.Enter(Pps(true, redundant, map.groups_minus1, map.write));
            ASSERT_EQ(sets.pps[0].has_value(), map.known);
            if (!map.known) continue;
            EXPECT_EQ(sets.pps[0]->redundant_pic_cnt_present, redundant);
            EXPECT_TRUE(sets.pps[0]->bottom_field_pic_order_in_frame_present);
        }
    }
}

TEST(AvcParameterSets, NumbersThatNoStreamHasArePassedOver) {
    AvcParameterSets sets;
    sets.Enter({});
    sets.Enter(Bytes("09 F0"));
    // Whole but for the number.
    sets.Enter(Pps(false, false, 0, nullptr, 256, 0));
    sets.Enter(Pps(false, false, 0, nullptr, 0, 32));
    sets.Enter(Pps(false, false, 0, nullptr, 256, 32));
    const ByteVector sps = test::AvcSps(false, 32);
    sets.Enter(std::span(sps).subspan(test::kStartCode.size()));
    for (const auto& set : sets.pps)
        EXPECT_FALSE(set);
    for (const auto& set : sets.sps)
        EXPECT_FALSE(set);
}

TEST(AvcSlice, OrderCountOfBothFields) {
    const AvcParameterSets sets = Sets(Sps(0), Pps(true, true));
    BitString bits;
    bits.Put(0x41, 8).Ue(7).Ue(6).Ue(0).Put(9, 4).Put(11, 4);
    Se(bits, -2).Ue(3).Put(1, 1);
    const AvcSlice slice = ReadAvcSlice(bits.Bytes(), sets);
    EXPECT_EQ(slice.nal_type, kAvcSliceNal);
    EXPECT_EQ(slice.nal_ref_idc, 2);
    EXPECT_EQ(slice.first_mb, 7u);
    EXPECT_EQ(slice.kind, SliceKind::kB);
    EXPECT_NE(slice.sps, nullptr);
    EXPECT_EQ(slice.frame_num, 9u);
    EXPECT_EQ(slice.pic_order_cnt_lsb, 11u);
    EXPECT_EQ(slice.delta_pic_order_cnt_bottom, -2);
    EXPECT_EQ(slice.redundant_pic_cnt, 3u);
}

TEST(AvcSlice, AFieldStatesItsOwnOrderCountAlone) {
    const AvcParameterSets sets = Sets(Sps(0, false, true), Pps(true, true));
    BitString bits;
    bits.Put(0x65, 8).Ue(0).Ue(7).Ue(0).Put(0, 4).Put(1, 1).Put(1, 1).Ue(5).Put(3, 4).Ue(0).Put(1, 1);
    const AvcSlice slice = ReadAvcSlice(bits.Bytes(), sets);
    EXPECT_TRUE(slice.IsIdr());
    EXPECT_TRUE(slice.field);
    EXPECT_TRUE(slice.bottom);
    EXPECT_EQ(slice.idr_pic_id, 5u);
    EXPECT_EQ(slice.pic_order_cnt_lsb, 3u);
    EXPECT_EQ(slice.delta_pic_order_cnt_bottom, 0);
    EXPECT_EQ(slice.redundant_pic_cnt, 0u);
    EXPECT_EQ(slice.kind, SliceKind::kI);
}

// pic_order_cnt_type 1: the differences are in the slice unless the set says that they are always 0.
TEST(AvcSlice, OrderCountByDifferences) {
    for (const bool both : {false, true}) {
        const AvcParameterSets sets = Sets(Sps(1), Pps(both, true));
        BitString bits;
        bits.Put(0x41, 8).Ue(0).Ue(5).Ue(0).Put(1, 4);
        Se(bits, 6);
        if (both) Se(bits, -7);
        bits.Ue(2).Put(1, 1);
        const AvcSlice slice = ReadAvcSlice(bits.Bytes(), sets);
        EXPECT_EQ(slice.kind, SliceKind::kP);
        EXPECT_EQ(slice.delta_pic_order_cnt[0], 6);
        EXPECT_EQ(slice.delta_pic_order_cnt[1], both ? -7 : 0);
        EXPECT_EQ(slice.redundant_pic_cnt, 2u);
    }
    for (const ByteVector& sps : {Sps(1, true), Sps(2)}) {
        const AvcParameterSets sets = Sets(sps, Pps(true, true));
        BitString bits;
        bits.Put(0x41, 8).Ue(0).Ue(5).Ue(0).Put(1, 4).Ue(4).Put(1, 1);
        const AvcSlice slice = ReadAvcSlice(bits.Bytes(), sets);
        EXPECT_EQ(slice.frame_num, 1u);
        EXPECT_EQ(slice.delta_pic_order_cnt[0], 0);
        EXPECT_EQ(slice.redundant_pic_cnt, 4u);
    }
}

TEST(AvcSlice, WithoutItsSetsTheFirstFieldsAreRead) {
    BitString bits;
    bits.Put(0x41, 8).Ue(12).Ue(2).Ue(0).Put(0xFF, 8);
    AvcParameterSets sets;
    EXPECT_EQ(ReadAvcSlice(bits.Bytes(), sets).sps, nullptr);
    sets.Enter(Pps(false, false));
    const AvcSlice slice = ReadAvcSlice(bits.Bytes(), sets);
    EXPECT_EQ(slice.sps, nullptr);
    EXPECT_EQ(slice.first_mb, 12u);
    EXPECT_EQ(slice.kind, SliceKind::kI);
    BitString far;
    far.Put(0x41, 8).Ue(12).Ue(2).Ue(256).Put(0xFF, 8);
    EXPECT_EQ(ReadAvcSlice(far.Bytes(), sets).sps, nullptr);
    EXPECT_EQ(ReadAvcSlice({}, sets).nal_type, 0);
}

// Each condition of ITU-T H.264 7.4.1.2.4 by itself.
TEST(AvcSlice, WhatBeginsANewPicture) {
    const SpsDetails sps;
    AvcSlice before;
    before.nal_type = kAvcIdrNal;
    before.nal_ref_idc = 3;
    before.sps = &sps;
    EXPECT_FALSE(AvcPicturesDiffer(before, before));
    AvcSlice same = before;
    same.nal_ref_idc = 1;  // only whether it is 0 counts
    same.first_mb = 100;
    same.kind = SliceKind::kB;
    EXPECT_FALSE(AvcPicturesDiffer(before, same));
    const std::function<void(AvcSlice&)> changes[] = {
        [](AvcSlice& slice) { slice.nal_ref_idc = 0; },
        [](AvcSlice& slice) { slice.nal_type = kAvcSliceNal; },
        [](AvcSlice& slice) { slice.pps_id = 1; },
        [](AvcSlice& slice) { slice.frame_num = 1; },
        [](AvcSlice& slice) { slice.field = true; },
        [](AvcSlice& slice) { slice.bottom = true; },
        [](AvcSlice& slice) { slice.idr_pic_id = 1; },
        [](AvcSlice& slice) { slice.pic_order_cnt_lsb = 1; },
        [](AvcSlice& slice) { slice.delta_pic_order_cnt_bottom = 1; },
        [](AvcSlice& slice) { slice.delta_pic_order_cnt[0] = 1; },
        [](AvcSlice& slice) { slice.delta_pic_order_cnt[1] = 1; },
    };
    for (size_t i = 0; i < std::size(changes); ++i) {
        AvcSlice slice = before;
        changes[i](slice);
        EXPECT_TRUE(AvcPicturesDiffer(before, slice)) << i;
        EXPECT_TRUE(AvcPicturesDiffer(slice, before)) << i;
    }
    // idr_pic_id says nothing of other pictures.
    AvcSlice plain = before;
    plain.nal_type = kAvcSliceNal;
    AvcSlice other = plain;
    other.idr_pic_id = 1;
    EXPECT_FALSE(AvcPicturesDiffer(plain, other));
    // Where the sets are not known, a picture begins where the macroblocks do not go on.
    for (const bool first : {false, true}) {
        AvcSlice unknown = before;
        unknown.first_mb = 5;
        unknown.sps = nullptr;
        AvcSlice next = before;
        next.sps = first ? &sps : nullptr;
        next.first_mb = 6;
        EXPECT_FALSE(AvcPicturesDiffer(unknown, next));
        next.first_mb = 5;
        EXPECT_TRUE(AvcPicturesDiffer(unknown, next));
        EXPECT_TRUE(AvcPicturesDiffer(next, unknown));
    }
}

TEST(AvcSlice, RecoveryPoint) {
    // payloadType 6, one byte: recovery_frame_cnt 5 (00110), exact_match, broken_link, and half of the last field.
    EXPECT_EQ(AvcRecoveryFrames(Bytes("06 06 01 34 80")), std::optional(5u));
    EXPECT_EQ(AvcRecoveryFrames(Bytes("06 05 01 34 06 01 A4 80")), std::optional(0u));
    EXPECT_EQ(AvcRecoveryFrames(Bytes("06 05 01 34 80")), std::nullopt);
    EXPECT_EQ(AvcRecoveryFrames(Bytes("07 06 01 34 80")), std::nullopt);
    EXPECT_EQ(AvcRecoveryFrames({}), std::nullopt);
}

}  // namespace
}  // namespace Orvane::Muxora
