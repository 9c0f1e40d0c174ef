// Slice segment headers of H.265, bit by bit (ITU-T H.265 7.3.6.1).
#include "codec/hevc_slice.h"

#include <gtest/gtest.h>

#include <array>

#include "support/bits.h"
#include "support/hex.h"

namespace Orvane::Muxora {
namespace {

using test::BitString;
using test::Bytes;
using test::ByteVector;
using test::WithEmulationPrevention;
using test::operator+;

// 8 bits, 4:2:0, no optional part; blocks of 1 << log2_ctb.
ByteVector Sps(uint32_t width, uint32_t height, uint32_t log2_ctb, uint32_t id = 0) {
    BitString bits;
    bits.Put(0, 4).Put(0, 3).Put(1, 1).Put(1, 8).Put(0x60000000, 32).Put(0x9000, 16).Put(0, 32).Put(93, 8);
    bits.Ue(id).Ue(1).Ue(width).Ue(height).Put(0, 1).Ue(0).Ue(0).Ue(4).Put(1, 1).Ue(4).Ue(2).Ue(0);
    bits.Ue(0).Ue(log2_ctb - 3).Ue(0).Ue(2).Ue(1).Ue(1).Put(0, 1).Put(0, 2).Put(0, 1).Ue(0).Put(0, 1).Put(0, 2);
    return Bytes("42 01") + WithEmulationPrevention(bits.Put(0, 1).Put(1, 1).Bytes());
}

struct PpsFields {
    uint32_t id = 0;
    uint32_t sps_id = 0;
    bool dependent = false;
    bool output_flag = true;
    uint32_t extra_bits = 0;
};

ByteVector Pps(const PpsFields& pps) {
    BitString bits;
    bits.Ue(pps.id).Ue(pps.sps_id).Put(pps.dependent ? 1 : 0, 1).Put(pps.output_flag ? 1 : 0, 1);
    return Bytes("44 01") + bits.Put(pps.extra_bits, 3).Put(0x2AA, 10).Bytes('1');
}

// What stands behind the header, then bits that are neither all zeros nor all ones.
ByteVector Segment(uint8_t type, const BitString& bits) {
    BitString whole = bits;
    return ByteVector{static_cast<uint8_t>(type << 1), 1} + WithEmulationPrevention(whole.Put(0x2D, 6).Bytes('1')) +
           ByteVector(30, 0x5A);
}

// slice_type: 0 is B, 1 is P, 2 is I (Table 7-7).
TEST(HevcSlice, TheKindBehindTheAddress) {
    struct Size {
        uint32_t width, height, log2_ctb, address_bits;
    };
    // Ceil(Log2(columns * rows)), where a block that lies in the picture in part counts.
    for (const Size& size : {Size{64, 64, 6, 0},
                             {65, 64, 6, 1},
                             {64, 65, 6, 1},
                             {66, 128, 6, 2},
                             {640, 360, 4, 10},
                             {640, 368, 4, 10},
                             {1920, 1080, 6, 9},
                             {512, 512, 4, 10},
                             {513, 512, 4, 11}}) {
        HevcParameterSets sets;
        sets.Enter(Sps(size.width, size.height, size.log2_ctb));
        sets.Enter(Pps({}));
        for (uint32_t type = 0; type < 3; ++type) {
            const SliceKind expected[] = {SliceKind::kB, SliceKind::kP, SliceKind::kI};
            BitString bits;
            bits.Put(0, 1).Ue(0).Put(0x15555, size.address_bits).Ue(type);
            const HevcSlice slice = ReadHevcSlice(Segment(1, bits), sets);
            EXPECT_FALSE(slice.first_in_picture);
            EXPECT_EQ(slice.nal_type, 1);
            ASSERT_NE(slice.sps, nullptr);
            EXPECT_EQ(slice.sps->coded_width, size.width);
            EXPECT_EQ(slice.kind, expected[type]) << size.width << " x " << size.height;
        }
    }
}

TEST(HevcSlice, WhatThePictureParameterSetSays) {
    HevcParameterSets sets;
    sets.Enter(Sps(640, 360, 4, 3));
    for (const bool output_flag : {false, true}) {
        for (const uint32_t extra : {0u, 1u, 2u, 7u}) {
            sets.Enter(Pps({.id = 5, .sps_id = 3, .output_flag = output_flag, .extra_bits = extra}));
            const BitString bits = BitString().Put(1, 1).Ue(5).Put(0x7F, extra).Ue(1);
            const HevcSlice slice = ReadHevcSlice(Segment(0, bits), sets);
            EXPECT_TRUE(slice.first_in_picture);
            EXPECT_EQ(slice.kind, SliceKind::kP) << extra;
        }
    }
    // dependent_slice_segment_flag stands where a segment is not the first, if the set allows it.
    sets.Enter(Pps({.id = 5, .sps_id = 3, .dependent = true}));
    EXPECT_EQ(ReadHevcSlice(Segment(0, BitString().Put(1, 1).Ue(5).Ue(2)), sets).kind, SliceKind::kI);
    EXPECT_EQ(ReadHevcSlice(Segment(0, BitString().Put(0, 1).Ue(5).Put(0, 1).Put(77, 10).Ue(2)), sets).kind,
              SliceKind::kI);
    const HevcSlice dependent = ReadHevcSlice(Segment(0, BitString().Put(0, 1).Ue(5).Put(1, 1).Put(77, 10)), sets);
    EXPECT_FALSE(dependent.kind) << "it goes on in the slice of the one before";
    EXPECT_NE(dependent.sps, nullptr);
    EXPECT_FALSE(ReadHevcSlice(Segment(0, BitString().Put(1, 1).Ue(5).Ue(3)), sets).kind) << "no such type";
}

// no_output_of_prior_pics_flag stands in random access pictures, types 16 to 23.
TEST(HevcSlice, RandomAccessPicturesHaveAFlagMore) {
    HevcParameterSets sets;
    sets.Enter(Sps(640, 360, 4));
    sets.Enter(Pps({}));
    for (uint8_t type = 0; type < 32; ++type) {
        BitString bits;
        bits.Put(1, 1);
        if (type >= 16 && type <= 23) bits.Put(0, 1);
        EXPECT_EQ(ReadHevcSlice(Segment(type, bits.Ue(0).Ue(1)), sets).kind, SliceKind::kP) << int{type};
        EXPECT_EQ(IsHevcSlice(type), type <= 9 || (type >= 16 && type <= 21)) << int{type};
    }
    for (uint8_t type = 32; type < 64; ++type)
        EXPECT_FALSE(IsHevcSlice(type)) << int{type};
}

TEST(HevcSlice, SetsThatAreNotThere) {
    HevcParameterSets sets;
    EXPECT_EQ(ReadHevcSlice(Segment(1, BitString().Put(1, 1).Ue(0).Ue(1)), sets).sps, nullptr);
    sets.Enter(Pps({.id = 63, .sps_id = 15}));
    const BitString last = BitString().Put(1, 1).Ue(63).Ue(1);
    EXPECT_EQ(ReadHevcSlice(Segment(1, last), sets).sps, nullptr) << "no SPS";
    sets.Enter(Sps(640, 360, 4, 15));
    EXPECT_EQ(ReadHevcSlice(Segment(1, last), sets).kind, SliceKind::kP);
    EXPECT_EQ(ReadHevcSlice(Segment(1, BitString().Put(1, 1).Ue(64).Ue(1)), sets).sps, nullptr);
    EXPECT_EQ(ReadHevcSlice(Bytes("02 01"), sets).sps, nullptr);
    EXPECT_EQ(ReadHevcSlice(Bytes("02 01"), sets).nal_type, 0);
    EXPECT_EQ(ReadHevcSlice(Bytes("02 01 80"), sets).nal_type, 1);
    // Numbers beyond the standard's, layers beyond the first, and other units leave the sets as they are.
    HevcParameterSets none;
    none.Enter(Pps({.id = 64}));
    none.Enter(Pps({.sps_id = 16}));
    none.Enter(Sps(640, 360, 4, 16));
    ByteVector other = Sps(640, 360, 4);
    other[1] = 0x09;  // nuh_layer_id 1
    none.Enter(other);
    other = Sps(640, 360, 4);
    other[0] = 0x40;
    none.Enter(other);
    none.Enter(Bytes("42"));
    none.Enter({});
    for (const auto& pps : none.pps)
        EXPECT_FALSE(pps);
    for (const auto& sps : none.sps)
        EXPECT_FALSE(sps);
}

// pic_timing (D.2.3) is message 1; pic_struct its first four bits.
TEST(HevcSlice, PictureTiming) {
    EXPECT_EQ(HevcPicStruct(Bytes("4E 01 01 02 A7 00 80")), 10u);
    EXPECT_EQ(HevcPicStruct(Bytes("4E 01 05 02 A7 00 01 01 B7 80")), 11u) << "behind another message";
    EXPECT_FALSE(HevcPicStruct(Bytes("4E 01 05 02 A7 00 80")));
    EXPECT_FALSE(HevcPicStruct(Bytes("4E 01 01 00 80"))) << "an empty message";
    EXPECT_FALSE(HevcPicStruct(Bytes("50 01 01 02 A7 00 80"))) << "a suffix";
    EXPECT_FALSE(HevcPicStruct(Bytes("4E 01")));
}

// A set that cannot be read leaves those that are there, and one of a number beyond the last touches nothing else.
TEST(HevcSlice, SetsThatCannotBeKept) {
    struct {
        HevcParameterSets sets;
        std::array<uint8_t, 1024> behind{};
    } memory;
    memory.sets.Enter(Sps(640, 360, 4, 0));
    memory.sets.Enter(Bytes("42 01 01"));
    EXPECT_TRUE(memory.sets.sps[0]);
    memory.sets.Enter(Sps(640, 360, 4, 16));
    for (size_t id = 1; id < memory.sets.sps.size(); ++id)
        EXPECT_FALSE(memory.sets.sps[id]) << id;
    for (const auto& pps : memory.sets.pps)
        EXPECT_FALSE(pps);
    EXPECT_EQ(memory.behind, decltype(memory.behind){});
}

// What a unit does not reach is 0, whatever lies behind it.
TEST(HevcSlice, NothingIsReadBehindTheUnit) {
    HevcParameterSets sets;
    // Number 0 of SPS 7 in eight bits.
    const ByteVector pps = Bytes("44 01 88 FF FF FF FF FF");
    sets.Enter(std::span(pps).first(3));
    ASSERT_TRUE(sets.pps[0]);
    EXPECT_EQ(sets.pps[0]->sps_id, 7);
    EXPECT_FALSE(sets.pps[0]->dependent_slice_segments_enabled);
    EXPECT_EQ(sets.pps[0]->num_extra_slice_header_bits, 0);
    // PPS 63, then 01 of slice_type: 010 is P, and 011 would be I.
    sets.Enter(Sps(640, 360, 4));
    sets.Enter(Pps({.id = 63}));
    const ByteVector slice = Bytes("02 01 81 01 FF FF FF FF");
    EXPECT_EQ(ReadHevcSlice(std::span(slice).first(4), sets).kind, SliceKind::kP);
}

}  // namespace
}  // namespace Orvane::Muxora
