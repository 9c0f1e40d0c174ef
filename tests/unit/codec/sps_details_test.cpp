// The sets come from two encoders that we did not write; what they say was asked of them on their command lines.
#include "codec/sps_details.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "support/bits.h"
#include "support/hex.h"
#include "support/noise.h"

namespace Orvane::Muxora {
namespace {

using test::BitString;
using test::Bytes;
using test::ByteVector;

// 1918 x 1078 of samples 4:3, BT.709, studio range, B pictures as references.
const ByteVector kAvcSps = Bytes("67 4D 40 28 EC A0 3C 01 13 D4 D8 73 50 10 10 14 00 00 0F A4 00 03 A9 80 3C 60 C6 58");
// 720 x 576 interlaced, 4:2:2, samples 64:45, full range, no B pictures.
const ByteVector kFieldSps =
    Bytes("67 7A 00 1E BC E4 02 D0 93 7F E0 08 00 05 AD 90 00 00 03 00 10 00 00 03 03 21 F1 42 A4 80");
// 320 x 180 of 10 bits, BT.2020 with the PQ curve.
const ByteVector kHevcSps = Bytes(
    "42 01 01 02 20 00 00 03 00 90 00 00 03 00 00 03 00 3C A0 0A 08 0B 9F 6D 96 56 59 24 CA F0 16 A1 22 01 20 80 00 00 "
    "03 00 80 00 00 0C 84");

TEST(AvcSps, CroppedSizeAspectColourAndReordering) {
    const auto sps = ReadAvcSps(kAvcSps);
    ASSERT_TRUE(sps);
    EXPECT_EQ(sps->width, 1918u);
    EXPECT_EQ(sps->height, 1078u);
    EXPECT_EQ(sps->sar_width, 4u);
    EXPECT_EQ(sps->sar_height, 3u);
    EXPECT_TRUE(sps->has_colour);
    EXPECT_FALSE(sps->full_range);
    EXPECT_EQ(sps->colour_primaries, 1);
    EXPECT_EQ(sps->transfer_characteristics, 1);
    EXPECT_EQ(sps->matrix_coefficients, 1);
    EXPECT_EQ(sps->chroma_format_idc, 1);
    EXPECT_EQ(sps->bit_depth_luma, 8);
    EXPECT_EQ(sps->max_reorder, 2u);
}

TEST(AvcSps, FieldsAnd422) {
    const auto sps = ReadAvcSps(kFieldSps);
    ASSERT_TRUE(sps);
    EXPECT_EQ(sps->width, 720u);
    EXPECT_EQ(sps->height, 576u);
    EXPECT_EQ(sps->sar_width, 64u);
    EXPECT_EQ(sps->sar_height, 45u);
    EXPECT_TRUE(sps->has_colour);
    EXPECT_TRUE(sps->full_range);
    EXPECT_EQ(sps->colour_primaries, 2);
    EXPECT_EQ(sps->chroma_format_idc, 2);
    EXPECT_EQ(sps->max_reorder, 0u);
}

TEST(AvcSps, BaselineCannotReorder) {
    const auto set = [](uint32_t profile) {
        BitString bits;
        bits.Put(0x67, 8).Put(profile, 8).Put(0, 8).Put(30, 8).Ue(0).Ue(0).Ue(0).Ue(0).Ue(1).Put(0, 1);
        bits.Ue(19).Ue(14).Put(1, 1).Put(1, 1).Put(0, 1).Put(0, 1).Put(1, 1);  // 320 x 240
        return bits.Bytes();
    };
    EXPECT_EQ(ReadAvcSps(set(66))->max_reorder, 0u);
    EXPECT_EQ(ReadAvcSps(set(77))->width, 320u);
    EXPECT_EQ(ReadAvcSps(set(77))->height, 240u);
    EXPECT_EQ(ReadAvcSps(set(77))->sar_width, 1u);
}

// aspect_ratio_idc (ITU-T H.264 Table E-1): 0 says nothing, and 17 to 254 are reserved.
TEST(AvcSps, EachSampleAspect) {
    struct Aspect {
        uint32_t width;
        uint32_t height;
    };
    const Aspect aspects[] = {{1, 1},   {1, 1},   {12, 11}, {10, 11}, {16, 11},  {40, 33}, {24, 11}, {20, 11}, {32, 11},
                              {80, 33}, {18, 11}, {15, 11}, {64, 33}, {160, 99}, {4, 3},   {3, 2},   {2, 1},   {1, 1}};
    for (uint32_t idc = 0; idc < std::size(aspects); ++idc) {
        BitString bits;
        bits.Put(0x67, 8).Put(77, 8).Put(0, 8).Put(30, 8).Ue(0).Ue(0).Ue(0).Ue(0).Ue(1).Put(0, 1);
        bits.Ue(19).Ue(14).Put(1, 1).Put(1, 1).Put(0, 1).Put(1, 1).Put(1, 1).Put(idc, 8).Put(0, 8).Put(1, 1);
        const auto sps = ReadAvcSps(bits.Bytes());
        ASSERT_TRUE(sps);
        EXPECT_EQ(sps->sar_width, aspects[idc].width) << idc;
        EXPECT_EQ(sps->sar_height, aspects[idc].height) << idc;
    }
}

// MaxDpbMbs (ITU-T H.264 Table A-1): as many pictures may be held back as fit, 16 at most.
TEST(AvcSps, AStreamThatDoesNotSayReordersAsFarAsItsLevelAllows) {
    struct Level {
        uint32_t level_idc;
        uint32_t macroblocks;
    };
    const Level levels[] = {{9, 396},     {10, 396},    {11, 900},    {12, 2376},   {13, 2376},
                            {20, 2376},   {21, 4752},   {22, 8100},   {30, 8100},   {31, 18000},
                            {32, 20480},  {40, 32768},  {41, 32768},  {42, 34816},  {50, 110400},
                            {51, 184320}, {52, 184320}, {60, 696320}, {61, 696320}, {62, 696320}};
    const auto reorder = [](uint32_t level_idc, uint32_t width, uint32_t height) {
        BitString bits;
        bits.Put(0x67, 8).Put(77, 8).Put(0, 8).Put(level_idc, 8).Ue(0).Ue(0).Ue(0).Ue(0).Ue(1).Put(0, 1);
        bits.Ue(width - 1).Ue(height - 1).Put(1, 1).Put(1, 1).Put(0, 1).Put(0, 1).Put(1, 1);
        const auto sps = ReadAvcSps(bits.Bytes());
        return sps ? sps->max_reorder : ~0u;
    };
    for (const Level& level : levels) {
        int tried = 0;
        for (uint32_t width = 10; width <= 250; ++width) {
            for (uint32_t height = 10; height <= 250; ++height) {
                const uint32_t size = width * height;
                const uint32_t over = level.macroblocks % size;
                // Where one macroblock more or less makes a picture.
                if (over != 0 && over != size - 1) continue;
                ASSERT_EQ(reorder(level.level_idc, width, height), std::min(level.macroblocks / size, 16u))
                    << level.level_idc << ": " << width << " x " << height;
                ++tried;
            }
        }
        EXPECT_GT(tried, 2) << level.level_idc;
    }
    EXPECT_EQ(reorder(99, 20, 15), 16u) << "no level";
}

TEST(AvcSps, RefusesOtherUnitsAndSizesThatNoStreamHas) {
    EXPECT_FALSE(ReadAvcSps(Bytes("68 CE 0F C8 00")));
    EXPECT_FALSE(ReadAvcSps({}));
    BitString huge;
    huge.Put(0x67, 8).Put(66, 8).Put(0, 8).Put(30, 8).Ue(0).Ue(0).Ue(0).Ue(0).Ue(1).Put(0, 1).Ue(0xFFFFFFFE).Ue(1);
    huge.Put(0xFF, 8);
    EXPECT_FALSE(ReadAvcSps(huge.Bytes()));
}

TEST(HevcSps, SizeColourDepthAndLayers) {
    HevcProfile profile;
    const auto sps = ReadHevcSps(kHevcSps, &profile);
    ASSERT_TRUE(sps);
    EXPECT_EQ(sps->width, 320u);
    EXPECT_EQ(sps->height, 180u);
    EXPECT_EQ(sps->sar_width, 1u);
    EXPECT_EQ(sps->sar_height, 1u);
    EXPECT_EQ(sps->bit_depth_luma, 10);
    EXPECT_EQ(sps->bit_depth_chroma, 10);
    EXPECT_EQ(sps->chroma_format_idc, 1);
    EXPECT_TRUE(sps->has_colour);
    EXPECT_EQ(sps->colour_primaries, 9);
    EXPECT_EQ(sps->transfer_characteristics, 16);
    EXPECT_EQ(sps->matrix_coefficients, 9);
    EXPECT_EQ(sps->max_reorder, 2u);
    EXPECT_EQ(profile.sub_layers, 1);
    EXPECT_TRUE(profile.temporal_id_nesting);
    EXPECT_EQ(profile.general_profile, 2);
    EXPECT_EQ(profile.compatibility_flags, 0x20000000u);
    EXPECT_EQ(profile.constraint_flags, 0x900000000000u);
    EXPECT_EQ(profile.level_idc, 60);
}

// Of three sub-layers the first states profile and level, the second its profile, the third its level (ITU-T
// H.265 7.3.3).
TEST(HevcSps, ReadsOnBehindSubLayers) {
    const auto profile_bits = [](BitString& bits) { bits.Put(0xFFFFFFFF, 32).Put(0xFFFFFFFF, 32).Put(0xFFFFFF, 24); };
    BitString bits;
    bits.Put(0x4201, 16).Put(0, 4).Put(3, 3).Put(1, 1).Put(1, 8).Put(0, 32).Put(0, 48).Put(93, 8);
    bits.Put(0b111001, 6).Put(0, 10);
    profile_bits(bits);
    bits.Put(0xFF, 8);
    profile_bits(bits);
    bits.Put(0xFF, 8);
    bits.Ue(0).Ue(1).Ue(640).Ue(368).Put(1, 1).Ue(0).Ue(0).Ue(0).Ue(4).Ue(0).Ue(0).Ue(4);
    bits.Put(0, 1).Ue(4).Ue(3).Ue(0).Put(0x80, 8).Put(0, 32);  // of the highest sub-layer alone
    HevcProfile profile;
    const auto sps = ReadHevcSps(bits.Bytes(), &profile);
    ASSERT_TRUE(sps);
    EXPECT_EQ(sps->width, 640u);
    EXPECT_EQ(sps->height, 360u);
    EXPECT_EQ(sps->max_reorder, 3u);
    EXPECT_EQ(profile.sub_layers, 4);
    EXPECT_EQ(profile.level_idc, 93);
}

// The VUI stands behind the reference picture sets: one of them predicted from the one before must not lose the place.
TEST(HevcSps, ReadsOnBehindPredictedPictureSets) {
    BitString bits;
    bits.Put(0x4201, 16).Put(0, 4).Put(0, 3).Put(1, 1).Put(1, 8).Put(0, 32).Put(0, 48).Put(93, 8);
    bits.Ue(0).Ue(1).Ue(640).Ue(368).Put(1, 1).Ue(0).Ue(0).Ue(0).Ue(4).Ue(0).Ue(0).Ue(4);
    bits.Put(1, 1).Ue(4).Ue(1).Ue(0);                        // ordering information
    bits.Ue(0).Ue(0).Ue(0).Ue(0).Ue(0).Ue(0).Put(0, 1);      // block sizes, no scaling lists
    bits.Put(0, 2).Put(0, 1);                                // amp, sao, pcm
    bits.Ue(2).Ue(1).Ue(1).Ue(0).Put(1, 1).Ue(0).Put(1, 1);  // distances -1 and 1
    bits.Put(1, 1).Put(1, 1).Ue(0);                          // predicted, delta_rps -1: -2, 0 and -1
    bits.Put(1, 1).Put(1, 1).Put(0, 1).Put(1, 1);            // -1 - 1 used; 1 - 1 used; -1 not used, kept
    bits.Put(0, 1).Put(0, 2);                                // long-term, mvp, smoothing
    bits.Put(1, 1).Put(1, 1).Put(255, 8).Put(10, 16).Put(11, 16).Put(0, 1).Put(0, 1).Put(0, 1).Put(0x80, 8);
    const auto sps = ReadHevcSps(bits.Bytes());
    ASSERT_TRUE(sps);
    EXPECT_EQ(sps->width, 640u);
    EXPECT_EQ(sps->height, 360u);
    EXPECT_EQ(sps->max_reorder, 1u);
    EXPECT_EQ(sps->sar_width, 10u);
    EXPECT_EQ(sps->sar_height, 11u);
}

TEST(Sps, AnyBytesAreSafe) {
    std::mt19937 random(12);
    for (uint32_t seed = 0; seed < 2000; ++seed) {
        ByteVector noise = test::RandomBytes(random, 40 + seed % 60);
        noise[0] = 0x67;
        ReadAvcSps(noise);
        noise[0] = 0x42;
        ReadHevcSps(noise);
        ByteVector cut = seed % 2 != 0 ? kHevcSps : kAvcSps;
        cut.resize(seed % cut.size());
        ReadAvcSps(cut);
        ReadHevcSps(cut);
    }
}

}  // namespace
}  // namespace Orvane::Muxora
