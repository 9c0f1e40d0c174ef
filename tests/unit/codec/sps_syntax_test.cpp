// Sequence parameter sets with every optional part of their syntax, written field by field: what stands behind a part
// is only read right if the part was passed right.
#include <gtest/gtest.h>

#include "codec/sps_details.h"
#include "support/bits.h"
#include "support/hex.h"

namespace Orvane::Muxora {
namespace {

using test::BitString;
using test::Bytes;
using test::ByteVector;
using test::operator+;

ByteVector Unit(const char* header, const BitString& bits) {
    BitString whole = bits;
    return Bytes(header) + test::WithEmulationPrevention(whole.Put(1, 1).Bytes());
}

// A signed Exp-Golomb code (ITU-T H.264 9.1.1): 0, 1, -1, 2, -2 ... in this order.
BitString& Se(BitString& bits, int32_t value) {
    return bits.Ue(value > 0 ? 2 * static_cast<uint64_t>(value) - 1 : 2 * static_cast<uint64_t>(-value));
}

// ----------------------------------------------------------------------------------------------------- H.264

struct AvcParts {
    uint32_t profile = 77;
    uint32_t constraints = 0;
    uint32_t level = 30;
    uint32_t id = 0;
    BitString chroma = {};  // from chroma_format_idc to the scaling lists, where the profile has them
    uint32_t log2_frame_num_minus4 = 0;
    BitString order = BitString().Ue(2);  // pic_order_cnt_type and what goes with it
    uint32_t width_mbs = 40;
    uint32_t map_units = 30;
    bool frames_only = true;
    BitString crop = BitString().Put(0, 1);
    BitString vui = BitString().Put(0, 1);
};

BitString& operator<<(BitString& bits, const BitString& more) {
    for (const char bit : more.Text())
        bits.Put(bit == '1' ? 1 : 0, 1);
    return bits;
}

ByteVector AvcSps(const AvcParts& parts) {
    BitString bits;
    bits.Put(parts.profile, 8).Put(parts.constraints, 8).Put(parts.level, 8).Ue(parts.id);
    bits << parts.chroma;
    bits.Ue(parts.log2_frame_num_minus4);
    bits << parts.order;
    bits.Ue(4).Put(0, 1).Ue(parts.width_mbs - 1).Ue(parts.map_units - 1).Put(parts.frames_only ? 1 : 0, 1);
    if (!parts.frames_only) bits.Put(1, 1);
    bits.Put(1, 1);
    bits << parts.crop << parts.vui;
    return Unit("67", bits);
}

// vui_parameters() behind chroma_loc_info: timing, both HRDs of `counts` entries, and the restriction.
BitString AvcVui(uint32_t nal_hrd, uint32_t vcl_hrd, uint32_t reorder) {
    BitString bits;
    bits.Put(1, 1);                                                                // present
    bits.Put(1, 1).Put(255, 8).Put(1234, 16).Put(4321, 16);                        // Extended_SAR
    bits.Put(1, 1).Put(1, 1);                                                      // overscan
    bits.Put(1, 1).Put(5, 3).Put(1, 1).Put(1, 1).Put(9, 8).Put(16, 8).Put(10, 8);  // signal type, colours
    bits.Put(1, 1).Ue(3).Ue(5);                                                    // chroma location
    bits.Put(1, 1).Put(1001, 32).Put(120000, 32).Put(1, 1);                        // timing
    for (const uint32_t count : {nal_hrd, vcl_hrd}) {
        bits.Put(count != 0 ? 1 : 0, 1);
        if (count == 0) continue;
        bits.Ue(count - 1).Put(0x5A, 8);
        for (uint32_t i = 0; i < count; ++i)
            bits.Ue(1000 + i).Ue(7 * i + 2).Put(1, 1);
        bits.Put(0xFFFFF, 20);
    }
    if (nal_hrd != 0 || vcl_hrd != 0) bits.Put(1, 1);
    bits.Put(1, 1);                                                        // pic_struct_present_flag
    bits.Put(1, 1).Put(1, 1).Ue(2).Ue(1).Ue(15).Ue(14).Ue(reorder).Ue(9);  // bitstream_restriction
    return bits;
}

TEST(AvcSpsSyntax, EveryPartOfTheVui) {
    for (const auto& [nal, vcl] : {std::pair(0u, 0u), {1u, 0u}, {0u, 1u}, {3u, 2u}, {32u, 32u}}) {
        const auto sps = ReadAvcSps(AvcSps({.id = 5, .vui = AvcVui(nal, vcl, 3)}));
        ASSERT_TRUE(sps);
        EXPECT_EQ(sps->id, 5u);
        EXPECT_EQ(sps->sar_width, 1234u);
        EXPECT_EQ(sps->sar_height, 4321u);
        EXPECT_TRUE(sps->has_colour);
        EXPECT_TRUE(sps->full_range);
        EXPECT_EQ(sps->colour_primaries, 9);
        EXPECT_EQ(sps->transfer_characteristics, 16);
        EXPECT_EQ(sps->matrix_coefficients, 10);
        EXPECT_EQ(sps->num_units_in_tick, 1001u);
        EXPECT_EQ(sps->time_scale, 120000u);
        EXPECT_EQ(sps->max_reorder, 3u) << nal << " and " << vcl << " entries";
    }
    EXPECT_EQ(ReadAvcSps(AvcSps({.vui = AvcVui(0, 0, 16)}))->max_reorder, 16u);
    EXPECT_EQ(ReadAvcSps(AvcSps({.vui = AvcVui(0, 0, 17)}))->max_reorder, 16u) << "no stream has more";
}

TEST(AvcSpsSyntax, SampleAspectsOfNoMeaning) {
    const auto aspect = [](const BitString& tail) {
        BitString vui;
        vui.Put(1, 1).Put(1, 1);
        vui << tail;
        const auto sps = ReadAvcSps(AvcSps({.vui = vui.Put(0, 8)}));
        return std::pair(sps->sar_width, sps->sar_height);
    };
    EXPECT_EQ(aspect(BitString().Put(255, 8).Put(7, 16).Put(9, 16)), std::pair(7u, 9u));
    EXPECT_EQ(aspect(BitString().Put(255, 8).Put(0, 16).Put(9, 16)), std::pair(1u, 1u));
    EXPECT_EQ(aspect(BitString().Put(255, 8).Put(7, 16).Put(0, 16)), std::pair(1u, 1u));
    EXPECT_EQ(aspect(BitString().Put(17, 8)), std::pair(1u, 1u)) << "reserved";
    EXPECT_EQ(aspect(BitString().Put(254, 8)), std::pair(1u, 1u));
}

// ITU-T H.264 Table E-1.
TEST(AvcSpsSyntax, TableOfSampleAspects) {
    const std::pair<uint32_t, uint32_t> expected[] = {{1, 1},   {1, 1},    {12, 11}, {10, 11}, {16, 11}, {40, 33},
                                                      {24, 11}, {20, 11},  {32, 11}, {80, 33}, {18, 11}, {15, 11},
                                                      {64, 33}, {160, 99}, {4, 3},   {3, 2},   {2, 1}};
    for (uint32_t idc = 0; idc < std::size(expected); ++idc) {
        const auto sps = ReadAvcSps(AvcSps({.vui = BitString().Put(1, 1).Put(1, 1).Put(idc, 8).Put(0, 8)}));
        EXPECT_EQ(std::pair(sps->sar_width, sps->sar_height), expected[idc]) << idc;
    }
}

// The parts of a VUI are optional one by one.
TEST(AvcSpsSyntax, AVuiWithOnePart) {
    const auto read = [](const BitString& parts) {
        BitString vui;
        vui.Put(1, 1);
        vui << parts;
        return *ReadAvcSps(AvcSps({.vui = vui}));
    };
    // aspect, overscan, signal, chroma location, timing, HRDs, pic_struct, restriction
    SpsDetails sps = read(BitString().Put(0, 2).Put(1, 1).Put(2, 3).Put(0, 1).Put(0, 1).Put(0, 6));
    EXPECT_TRUE(sps.has_colour);
    EXPECT_FALSE(sps.full_range);
    EXPECT_EQ(sps.colour_primaries, 2) << "not described";
    EXPECT_EQ(sps.transfer_characteristics, 2);
    EXPECT_EQ(sps.matrix_coefficients, 2);
    sps = read(BitString().Put(0, 3).Put(0, 1).Put(1, 1).Put(1, 32).Put(50, 32).Put(0, 1).Put(0, 4));
    EXPECT_FALSE(sps.has_colour);
    EXPECT_EQ(sps.num_units_in_tick, 1u);
    EXPECT_EQ(sps.time_scale, 50u);
    sps = read(BitString().Put(0, 3).Put(0, 5).Put(1, 1).Put(0, 1).Ue(0).Ue(0).Ue(0).Ue(0).Ue(2).Ue(4));
    EXPECT_EQ(sps.time_scale, 0u);
    EXPECT_EQ(sps.max_reorder, 2u) << "stated, so it holds, though pictures of type 2 are in order";
}

// seq_parameter_set_data() of the profiles with chroma_format_idc.
BitString Chroma(uint32_t format, bool planes, const BitString& lists) {
    BitString bits;
    bits.Ue(format);
    if (format == 3) bits.Put(planes ? 1 : 0, 1);
    bits.Ue(2).Ue(4).Put(1, 1);
    bits << lists;
    return bits;
}

TEST(AvcSpsSyntax, ScalingListsArePassed) {
    // A list ends early where its next value comes to 0: 8 - 8.
    const auto list = [](BitString& bits, int size, int until) {
        bits.Put(1, 1);
        for (int i = 0; i < until; ++i)
            Se(bits, i % 2 == 0 ? 3 : -3);
        if (until == size) return;
        Se(bits, until % 2 == 0 ? -8 : -11);
    };
    for (const uint32_t format : {1u, 3u}) {
        BitString lists;
        lists.Put(1, 1);
        list(lists, 16, 16);
        list(lists, 16, 0);
        lists.Put(0, 1);
        list(lists, 16, 5);
        list(lists, 16, 6);
        list(lists, 16, 15);
        list(lists, 64, 64);
        list(lists, 64, 63);
        for (uint32_t i = 8; format == 3 && i < 12; ++i)
            list(lists, 64, 64);
        const auto sps = ReadAvcSps(AvcSps({.profile = 244, .chroma = Chroma(format, false, lists), .width_mbs = 11}));
        ASSERT_TRUE(sps);
        EXPECT_EQ(sps->chroma_format_idc, format);
        EXPECT_EQ(sps->bit_depth_luma, 10);
        EXPECT_EQ(sps->bit_depth_chroma, 12);
        EXPECT_EQ(sps->width, 176u);
        EXPECT_EQ(sps->height, 480u);
    }
}

// A list's values are counted modulo 256 (ITU-T H.264 7.3.2.1.1.1): 8 + 124 + 124 is 0, and 8 - 128 is not.
TEST(AvcSpsSyntax, AScalingListWrapsRound) {
    BitString ends;
    ends.Put(1, 1).Put(1, 1);
    Se(ends, 124);
    Se(ends, 124);
    ends.Put(0, 7);
    EXPECT_EQ(ReadAvcSps(AvcSps({.profile = 100, .chroma = Chroma(1, false, ends), .width_mbs = 11}))->width, 176u);
    BitString goes_on;
    goes_on.Put(1, 1).Put(1, 1);
    Se(goes_on, -128);
    for (int i = 1; i < 16; ++i)
        Se(goes_on, 0);
    goes_on.Put(0, 7);
    EXPECT_EQ(ReadAvcSps(AvcSps({.profile = 100, .chroma = Chroma(1, false, goes_on), .width_mbs = 11}))->width, 176u);
}

TEST(AvcSpsSyntax, TheProfilesWithAChromaFormat) {
    const BitString chroma = Chroma(2, false, BitString().Put(0, 1));
    for (const uint32_t profile : {100u, 110u, 122u, 244u, 44u, 83u, 86u, 118u, 128u, 138u, 139u, 134u, 135u}) {
        const auto sps = ReadAvcSps(AvcSps({.profile = profile, .chroma = chroma}));
        ASSERT_TRUE(sps) << profile;
        EXPECT_EQ(sps->chroma_format_idc, 2) << profile;
        EXPECT_EQ(sps->width, 640u) << profile;
    }
    for (const uint32_t profile : {66u, 77u, 88u}) {
        const auto sps = ReadAvcSps(AvcSps({.profile = profile}));
        ASSERT_TRUE(sps) << profile;
        EXPECT_EQ(sps->chroma_format_idc, 1) << profile;
        EXPECT_EQ(sps->width, 640u) << profile;
    }
    EXPECT_FALSE(ReadAvcSps(AvcSps({.profile = 100, .chroma = Chroma(4, false, BitString().Put(0, 1))})));
}

// frame_cropping, in units of Table 6-1 (7.4.2.1.1): left, right, top, bottom.
TEST(AvcSpsSyntax, CroppingUnits) {
    const auto size = [](uint32_t format, bool planes, bool frames_only, const BitString& crop) {
        const auto sps = ReadAvcSps(AvcSps({.profile = 244,
                                            .chroma = Chroma(format, planes, BitString().Put(0, 1)),
                                            .map_units = frames_only ? 30u : 15u,
                                            .frames_only = frames_only,
                                            .crop = crop}));
        EXPECT_EQ(sps->may_have_fields, !frames_only);
        EXPECT_EQ(sps->separate_planes, planes);
        return std::pair(sps->width, sps->height);
    };
    const BitString crop = BitString().Put(1, 1).Ue(1).Ue(2).Ue(4).Ue(8);
    EXPECT_EQ(size(0, false, true, crop), std::pair(637u, 468u)) << "monochrome";
    EXPECT_EQ(size(1, false, true, crop), std::pair(634u, 456u));
    EXPECT_EQ(size(2, false, true, crop), std::pair(634u, 468u));
    EXPECT_EQ(size(3, false, true, crop), std::pair(637u, 468u));
    EXPECT_EQ(size(3, true, true, crop), std::pair(637u, 468u));
    EXPECT_EQ(size(0, false, false, crop), std::pair(637u, 456u));
    EXPECT_EQ(size(1, false, false, crop), std::pair(634u, 432u));
    // A window that leaves nothing is not believed; one that leaves a sample is.
    EXPECT_EQ(size(0, false, true, BitString().Put(1, 1).Ue(639).Ue(0).Ue(0).Ue(479)), std::pair(1u, 1u));
    EXPECT_EQ(size(0, false, true, BitString().Put(1, 1).Ue(639).Ue(1).Ue(0).Ue(479)), std::pair(640u, 1u));
    EXPECT_EQ(size(0, false, true, BitString().Put(1, 1).Ue(639).Ue(0).Ue(1).Ue(479)), std::pair(1u, 480u));
}

TEST(AvcSpsSyntax, PictureOrder) {
    auto sps = ReadAvcSps(AvcSps({.log2_frame_num_minus4 = 12, .order = BitString().Ue(0).Ue(12)}));
    ASSERT_TRUE(sps);
    EXPECT_EQ(sps->log2_max_frame_num, 16);
    EXPECT_EQ(sps->pic_order_cnt_type, 0);
    EXPECT_EQ(sps->log2_max_pic_order_cnt_lsb, 16);
    EXPECT_EQ(sps->width, 640u);
    EXPECT_FALSE(ReadAvcSps(AvcSps({.log2_frame_num_minus4 = 13})));
    EXPECT_FALSE(ReadAvcSps(AvcSps({.order = BitString().Ue(0).Ue(13)})));
    EXPECT_FALSE(ReadAvcSps(AvcSps({.order = BitString().Ue(3)})));
    for (const uint32_t count : {0u, 3u, 255u}) {
        BitString order;
        order.Ue(1).Put(1, 1);
        Se(order, -5);
        Se(order, 6);
        order.Ue(count);
        for (uint32_t i = 0; i < count; ++i)
            Se(order, 2);
        sps = ReadAvcSps(AvcSps({.order = order, .width_mbs = 11}));
        ASSERT_TRUE(sps) << count;
        EXPECT_EQ(sps->pic_order_cnt_type, 1);
        EXPECT_TRUE(sps->delta_pic_order_always_zero);
        EXPECT_EQ(sps->width, 176u) << count;
    }
    BitString order;
    order.Ue(1).Put(0, 1).Ue(0).Ue(0).Ue(256);
    for (int i = 0; i < 256; ++i)
        order.Ue(0);
    EXPECT_FALSE(ReadAvcSps(AvcSps({.order = order}))) << "at most 255 (7.4.2.1.1)";
    order = BitString();
    order.Ue(1).Put(0, 1).Ue(0).Ue(0).Ue(0);
    EXPECT_FALSE(ReadAvcSps(AvcSps({.order = order}))->delta_pic_order_always_zero);
}

TEST(AvcSpsSyntax, TheLargestPicture) {
    EXPECT_EQ(ReadAvcSps(AvcSps({.width_mbs = 4095, .map_units = 4095}))->width, 65520u);
    EXPECT_EQ(ReadAvcSps(AvcSps({.width_mbs = 4095, .map_units = 4095}))->height, 65520u);
    EXPECT_FALSE(ReadAvcSps(AvcSps({.width_mbs = 4096})));
    EXPECT_FALSE(ReadAvcSps(AvcSps({.map_units = 4096})));
    EXPECT_FALSE(ReadAvcSps(AvcSps({.map_units = 2048, .frames_only = false}))) << "two fields";
}

// MaxDpbMbs (ITU-T H.264 Table A-1) over the macroblocks of a picture, 16 at most (A.3.1).
TEST(AvcSpsSyntax, ReorderingByLevel) {
    struct Row {
        uint32_t level;
        uint32_t max_dpb_mbs;
    };
    for (const Row& row :
         {Row{9, 396},  {10, 396},    {11, 900},    {12, 2376},   {13, 2376},   {20, 2376},  {21, 4752},
          {22, 8100},   {30, 8100},   {31, 18000},  {32, 20480},  {40, 32768},  {41, 32768}, {42, 34816},
          {50, 110400}, {51, 184320}, {52, 184320}, {60, 696320}, {61, 696320}, {62, 696320}}) {
        const auto reorder = [&](uint32_t width_mbs, uint32_t map_units) {
            const auto sps = ReadAvcSps(AvcSps({.level = row.level,
                                                .order = BitString().Ue(0).Ue(0),
                                                .width_mbs = width_mbs,
                                                .map_units = map_units}));
            return sps->max_reorder;
        };
        // One picture of exactly as many macroblocks fits, one of a macroblock more does not. The prime factors of each
        // number leave rows and columns within the bounds of a picture.
        uint32_t rows = 1;
        for (uint32_t i = 2; i * i <= row.max_dpb_mbs; ++i)
            if (row.max_dpb_mbs % i == 0) rows = i;
        EXPECT_EQ(reorder(row.max_dpb_mbs / rows, rows), 1u) << row.level;
        EXPECT_EQ(reorder(row.max_dpb_mbs / rows + 1, rows), 0u) << row.level;
        EXPECT_EQ(reorder(1, 1), 16u) << row.level;
        // The next number of macroblocks that is a picture.
        for (uint32_t more = row.max_dpb_mbs + 1;; ++more) {
            uint32_t factor = 1;
            for (uint32_t i = 1; i <= 4095; ++i)
                if (more % i == 0 && more / i <= 4095) factor = i;
            if (factor == 1 && more > 4095) continue;
            EXPECT_EQ(reorder(more / factor, factor), 0u) << row.level << ": " << more;
            break;
        }
    }
    EXPECT_EQ(ReadAvcSps(AvcSps({.level = 33, .order = BitString().Ue(0).Ue(0)}))->max_reorder, 16u) << "no level";
}

// Level 1b is level_idc 11 with constraint_set3_flag in Baseline, Main and Extended (A.3.1); in the High profiles the
// flag says that all pictures are intra. 19 x 20 macroblocks: two at level 1.1, one at 1b.
TEST(AvcSpsSyntax, ConstraintSet3) {
    const auto reorder = [](uint32_t profile, uint32_t constraints, const BitString& order) {
        const bool high = profile >= 100;
        return ReadAvcSps(AvcSps({.profile = profile,
                                  .constraints = constraints,
                                  .level = 11,
                                  .chroma = high ? Chroma(1, false, BitString().Put(0, 1)) : BitString(),
                                  .order = order,
                                  .width_mbs = 19,
                                  .map_units = 20}))
            ->max_reorder;
    };
    const BitString any = BitString().Ue(0).Ue(0);
    EXPECT_EQ(reorder(77, 0x00, any), 2u);
    EXPECT_EQ(reorder(77, 0xEF, any), 2u);
    EXPECT_EQ(reorder(77, 0x10, any), 1u);
    EXPECT_EQ(reorder(100, 0x00, any), 2u);
    EXPECT_EQ(reorder(100, 0x10, any), 0u);
    EXPECT_EQ(reorder(66, 0x00, any), 0u) << "Baseline has no B slices";
    EXPECT_EQ(reorder(77, 0x00, BitString().Ue(2)), 0u);
}

// ----------------------------------------------------------------------------------------------------- H.265

struct HevcParts {
    uint32_t sub_layers_minus1 = 0;
    BitString profile = BitString().Put(1, 8).Put(0x60000000, 32).Put(0x9000, 16).Put(0, 32).Put(93, 8);
    uint32_t id = 0;
    BitString chroma = BitString().Ue(1);
    uint32_t width = 640;
    uint32_t height = 360;
    BitString window = BitString().Put(0, 1);
    uint32_t log2_poc_lsb_minus4 = 4;
    BitString ordering = BitString().Put(1, 1).Ue(4).Ue(2).Ue(0);
    BitString ctb = BitString().Ue(0).Ue(3);
    BitString lists = BitString().Put(0, 1);
    BitString pcm = BitString().Put(0, 1);
    BitString sets = BitString().Ue(0);
    BitString long_term = BitString().Put(0, 1);
};

// The VUI at the end says 25 pictures of 1001 / 90000 seconds, in fields: what is read there was reached.
ByteVector HevcSps(const HevcParts& parts) {
    BitString bits;
    bits.Put(0, 4).Put(parts.sub_layers_minus1, 3).Put(1, 1);
    bits << parts.profile;
    bits.Ue(parts.id);
    bits << parts.chroma;
    bits.Ue(parts.width).Ue(parts.height);
    bits << parts.window;
    bits.Ue(2).Ue(4).Ue(parts.log2_poc_lsb_minus4);
    bits << parts.ordering << parts.ctb;
    bits.Ue(0).Ue(3).Ue(1).Ue(2);
    bits << parts.lists;
    bits.Put(2, 2);
    bits << parts.pcm << parts.sets << parts.long_term;
    bits.Put(3, 2);
    bits.Put(1, 1).Put(0, 3);                // VUI: no aspect, overscan or signal type
    bits.Put(1, 1).Ue(2).Ue(3);              // chroma location
    bits.Put(0, 1).Put(1, 1).Put(1, 1);      // field_seq_flag, frame_field_info_present_flag
    bits.Put(1, 1).Ue(1).Ue(2).Ue(3).Ue(4);  // default display window
    bits.Put(1, 1).Put(1001, 32).Put(90000, 32);
    return Unit("42 01", bits);
}

void ExpectRead(const HevcParts& parts, const char* what) {
    const auto sps = ReadHevcSps(HevcSps(parts));
    ASSERT_TRUE(sps) << what;
    EXPECT_EQ(sps->width, 640u) << what;
    EXPECT_EQ(sps->height, 360u) << what;
    EXPECT_EQ(sps->bit_depth_luma, 10) << what;
    EXPECT_EQ(sps->bit_depth_chroma, 12) << what;
    EXPECT_TRUE(sps->may_have_fields) << what;
    EXPECT_TRUE(sps->frame_field_info_present) << what;
    EXPECT_EQ(sps->num_units_in_tick, 1001u) << what;
    EXPECT_EQ(sps->time_scale, 90000u) << what;
}

void ExpectVuiNotReached(const HevcParts& parts, const char* what) {
    const auto sps = ReadHevcSps(HevcSps(parts));
    ASSERT_TRUE(sps) << what;
    EXPECT_EQ(sps->width, 640u) << what;
    EXPECT_EQ(sps->time_scale, 0u) << what;
    EXPECT_FALSE(sps->may_have_fields) << what;
}

TEST(HevcSpsSyntax, NoOptionalParts) {
    ExpectRead({}, "plain");
    const auto sps = ReadHevcSps(HevcSps({.id = 11}));
    EXPECT_EQ(sps->id, 11u);
    EXPECT_EQ(sps->max_reorder, 2u);
    EXPECT_EQ(sps->log2_ctb_size, 6);
    EXPECT_EQ(sps->coded_width, 640u);
    EXPECT_EQ(sps->coded_height, 360u);
}

// profile_tier_level() (ITU-T H.265 7.3.3) with each sub-layer's profile and level there or not.
TEST(HevcSpsSyntax, SubLayers) {
    for (uint32_t layers = 1; layers <= 6; ++layers) {
        for (uint32_t pattern = 0; pattern < 3; ++pattern) {
            HevcParts parts;
            parts.sub_layers_minus1 = layers;
            parts.ordering = BitString().Put(0, 1).Ue(4).Ue(2).Ue(0);
            const auto has_profile = [&](uint32_t i) { return (i + pattern) % 3 != 0; };
            const auto has_level = [&](uint32_t i) { return (i + pattern) % 3 != 1; };
            for (uint32_t i = 0; i < 8; ++i)
                parts.profile.Put(i < layers && has_profile(i) ? 1 : 0, 1).Put(i < layers && has_level(i) ? 1 : 0, 1);
            for (uint32_t i = 0; i < layers; ++i) {
                if (has_profile(i)) parts.profile.Put(0xFFFFFFFF, 32).Put(0xFFFFFFFF, 32).Put(0xFFFFFF, 24);
                if (has_level(i)) parts.profile.Put(90, 8);
            }
            ExpectRead(parts, "sub-layers");
            HevcProfile profile;
            ASSERT_TRUE(ReadHevcSps(HevcSps(parts), &profile));
            EXPECT_EQ(profile.sub_layers, layers + 1);
            EXPECT_TRUE(profile.temporal_id_nesting);
            EXPECT_EQ(profile.general_profile, 1);
            EXPECT_EQ(profile.compatibility_flags, 0x60000000u);
            EXPECT_EQ(profile.constraint_flags, 0x900000000000u);
            EXPECT_EQ(profile.level_idc, 93);
        }
    }
    // sub_layer_ordering_info_present_flag: three numbers for each, of which the last holds.
    HevcParts parts;
    parts.sub_layers_minus1 = 2;
    parts.profile.Put(0, 16);
    parts.ordering = BitString().Put(1, 1).Ue(1).Ue(0).Ue(0).Ue(3).Ue(1).Ue(0).Ue(5).Ue(4).Ue(0);
    ExpectRead(parts, "ordering");
    EXPECT_EQ(ReadHevcSps(HevcSps(parts))->max_reorder, 4u);
}

TEST(HevcSpsSyntax, ChromaAndWindow) {
    const auto size = [](const BitString& chroma, const BitString& window) {
        const auto sps = ReadHevcSps(HevcSps({.chroma = chroma, .window = window}));
        EXPECT_EQ(sps->coded_width, 640u);
        EXPECT_EQ(sps->coded_height, 360u);
        EXPECT_EQ(sps->time_scale, 90000u);
        return std::pair(sps->width, sps->height);
    };
    const BitString window = BitString().Put(1, 1).Ue(1).Ue(2).Ue(4).Ue(8);
    EXPECT_EQ(size(BitString().Ue(0), window), std::pair(637u, 348u));
    EXPECT_EQ(size(BitString().Ue(1), window), std::pair(634u, 336u));
    EXPECT_EQ(size(BitString().Ue(2), window), std::pair(634u, 348u));
    EXPECT_EQ(size(BitString().Ue(3).Put(0, 1), window), std::pair(637u, 348u));
    EXPECT_EQ(size(BitString().Ue(3).Put(1, 1), window), std::pair(637u, 348u));
    EXPECT_FALSE(ReadHevcSps(HevcSps({.chroma = BitString().Ue(4)})));
    EXPECT_FALSE(ReadHevcSps(HevcSps({.width = 0})));
    EXPECT_FALSE(ReadHevcSps(HevcSps({.height = 0})));
    EXPECT_FALSE(ReadHevcSps(HevcSps({.width = 65536})));
    EXPECT_FALSE(ReadHevcSps(HevcSps({.height = 65536})));
    EXPECT_EQ(ReadHevcSps(HevcSps({.width = 65535, .height = 65535}))->width, 65535u);
}

TEST(HevcSpsSyntax, WhatCannotBeTrueEndsTheReading) {
    ExpectRead({.log2_poc_lsb_minus4 = 12}, "16 bits of picture order");
    ExpectVuiNotReached({.log2_poc_lsb_minus4 = 13}, "17 bits of picture order");
    ExpectRead({.ctb = BitString().Ue(3).Ue(0)}, "blocks of 64");
    ExpectVuiNotReached({.ctb = BitString().Ue(2).Ue(2)}, "blocks of 128");
    EXPECT_EQ(ReadHevcSps(HevcSps({.ctb = BitString().Ue(0).Ue(1)}))->log2_ctb_size, 4);
    EXPECT_EQ(ReadHevcSps(HevcSps({.ordering = BitString().Put(1, 1).Ue(40).Ue(17).Ue(0)}))->max_reorder, 16u);
}

// scaling_list_data() (7.3.4): 6 matrices of 16, 6 of 64, 6 of 64 with a DC value, 2 of 64 with one.
TEST(HevcSpsSyntax, ScalingListsArePassed) {
    ExpectRead({.lists = BitString().Put(1, 1).Put(0, 1)}, "enabled, without data");
    BitString predicted;
    predicted.Put(3, 2);
    for (int i = 0; i < 20; ++i)
        predicted.Put(0, 1).Ue(static_cast<uint64_t>(i % 3));
    ExpectRead({.lists = predicted}, "predicted");
    BitString stated;
    stated.Put(3, 2);
    const auto matrices = [&](int count, int size, bool dc) {
        for (int matrix = 0; matrix < count; ++matrix) {
            stated.Put(1, 1);
            if (dc) Se(stated, -3);
            for (int i = 0; i < size; ++i)
                Se(stated, i % 5 - 2);
        }
    };
    matrices(6, 16, false);
    matrices(6, 64, false);
    matrices(6, 64, true);
    matrices(2, 64, true);
    ExpectRead({.lists = stated}, "stated");
}

TEST(HevcSpsSyntax, PcmAndLongTermPicturesArePassed) {
    ExpectRead({.pcm = BitString().Put(1, 1).Put(0xA5, 8).Ue(0).Ue(2).Put(1, 1)}, "PCM");
    for (const uint32_t count : {0u, 1u, 32u}) {
        BitString pictures = BitString().Put(1, 1).Ue(count);
        for (uint32_t i = 0; i < count; ++i)
            pictures.Put(0xFF, 8).Put(1, 1);
        ExpectRead({.long_term = pictures}, "long-term pictures");
    }
    ExpectVuiNotReached({.long_term = BitString().Put(1, 1).Ue(33).Put(0, 40 * 9)}, "33 long-term pictures");
}

// st_ref_pic_set() (7.3.7).
TEST(HevcSpsSyntax, ReferencePictureSets) {
    const auto stated = [](BitString& bits, uint32_t negative, uint32_t positive) {
        bits.Ue(negative).Ue(positive);
        for (uint32_t i = 0; i < negative + positive; ++i)
            bits.Ue(i).Put(i % 2, 1);
    };
    BitString sets = BitString().Ue(4);
    stated(sets, 2, 1);
    // Predicted of three: four entries, each used, or kept by use_delta_flag; then of those four, all but one dropped.
    sets.Put(1, 1).Put(1, 1).Ue(3).Put(1, 1).Put(1, 2).Put(1, 2).Put(1, 1);
    sets.Put(1, 1).Put(0, 1).Ue(0).Put(0, 2).Put(0, 2).Put(0, 2).Put(0, 2).Put(1, 1);
    sets.Put(0, 1);
    stated(sets, 0, 5);
    ExpectRead({.sets = sets}, "stated and predicted");

    const auto many = [&](uint32_t count) {
        BitString out = BitString().Ue(count);
        for (uint32_t i = 0; i < count; ++i) {
            if (i != 0) out.Put(0, 1);
            stated(out, 1, 0);
        }
        return out;
    };
    ExpectRead({.sets = many(64)}, "64 sets");
    ExpectVuiNotReached({.sets = many(65)}, "65 sets");
    const auto one = [&](uint32_t negative, uint32_t positive) {
        BitString out = BitString().Ue(1);
        stated(out, negative, positive);
        return out;
    };
    ExpectRead({.sets = one(16, 0)}, "16 pictures");
    ExpectRead({.sets = one(0, 16)}, "16 pictures");
    ExpectVuiNotReached({.sets = one(17, 0)}, "17 pictures");
    ExpectVuiNotReached({.sets = one(0, 17)}, "17 pictures");
    ExpectVuiNotReached({.sets = one(9, 8)}, "17 pictures");
}

}  // namespace
}  // namespace Orvane::Muxora
