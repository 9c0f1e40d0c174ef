// Parameter sets as x264 and x265 wrote them; sizes, shapes and colours as ffprobe reads them, the decoder
// configuration records as another muxer writes them for the same streams.
#include "codec/parameter_sets.h"

#include <gtest/gtest.h>
#if !defined(_WIN32)
#include <sys/mman.h>
#include <unistd.h>
#endif

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "support/avc_stream.h"
#include "support/hex.h"
#include "support/noise.h"
#include "support/parameter_sets.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::operator+;

const ByteVector kHighSps = test::HighSps();
const ByteVector kHighPps = test::HighPps();
const ByteVector kInterlacedSps =
    Bytes("67 7a 00 1e b6 cd 94 0b 42 4d 82 08 00 00 03 00 08 00 00 03 01 90 f8 a1 4c b0");
const ByteVector kInterlacedPps = Bytes("68 fb a3 cb 22 c0");
const ByteVector kBaselineSps = test::BaselineSps();
const ByteVector kBaselinePps = test::BaselinePps();
const ByteVector kMain10Vps = Bytes("40 01 0c 01 ff ff 02 20 00 00 03 00 90 00 00 03 00 00 03 00 78 95 98 09");
const ByteVector kMain10Sps = Bytes(
    "42 01 01 02 20 00 00 03 00 90 00 00 03 00 00 03 00 78 a0 03 c0 80 10 e4 d9 65 66 92 4c af 0e 6e 12 20 12 08"
    "00 00 03 00 08 00 00 03 00 c8 40");
const ByteVector kMain10Pps = Bytes("44 01 c1 72 b4 62 40");
const ByteVector kHevc444Sps = Bytes(
    "42 01 01 04 08 00 00 03 00 9e 08 00 00 03 00 00 3c 90 01 49 01 f3 9e 7c b2 54 92 72 bc 05 a0 20 00 00 03 00"
    "20 00 00 03 03 21");

ByteVector Prefixed(const std::vector<ByteVector>& units) {
    ByteVector out;
    for (const auto& unit : units)
        out = out + ByteVector{0, 0, 0, static_cast<uint8_t>(unit.size())} + unit;
    return out;
}

// On a heap block of exact size, so that a sanitizer sees any byte read outside.
FrameNals Scan(CParameterSets& sets, const ByteVector& frame, bool annex_b = true) {
    const auto block = std::make_unique<uint8_t[]>(frame.size());
    std::copy(frame.begin(), frame.end(), block.get());
    const std::span<const uint8_t> bytes(block.get(), frame.size());
    return annex_b ? sets.ScanAnnexB(bytes) : sets.ScanLengthPrefixed(bytes);
}

template <typename Write>
ByteVector Written(Write write) {
    uint8_t area[4096];
    ByteCursor out(area);
    write(out);
    EXPECT_TRUE(out.Ok());
    return {area, area + out.Size()};
}

ByteVector Configuration(const CParameterSets& sets, bool only_here = false) {
    const ByteVector bytes = Written([&](ByteCursor& out) { sets.WriteConfiguration(out, only_here); });
    EXPECT_EQ(sets.ConfigurationSize(), bytes.size());
    return bytes;
}

TEST(SpsDetails, AvcHighProfile) {
    const auto sps = ReadAvcSps(kHighSps);
    ASSERT_TRUE(sps);
    EXPECT_EQ(sps->width, 1920u);
    EXPECT_EQ(sps->height, 1080u);  // 1088 without the cropping
    EXPECT_EQ(sps->sar_width, 1u);
    EXPECT_EQ(sps->sar_height, 1u);
    EXPECT_EQ(sps->chroma_format_idc, 1);
    EXPECT_EQ(sps->bit_depth_luma, 8);
    EXPECT_FALSE(sps->may_have_fields);
    EXPECT_TRUE(sps->has_colour);
    EXPECT_FALSE(sps->full_range);
    EXPECT_EQ(sps->colour_primaries, 1);
    EXPECT_EQ(sps->transfer_characteristics, 1);
    EXPECT_EQ(sps->matrix_coefficients, 1);
    EXPECT_EQ(sps->max_reorder, 2u);
}

TEST(SpsDetails, AvcInterlacedTenBit) {
    const auto sps = ReadAvcSps(kInterlacedSps);
    ASSERT_TRUE(sps);
    EXPECT_EQ(sps->width, 720u);
    EXPECT_EQ(sps->height, 576u);
    EXPECT_EQ(sps->sar_width, 16u);
    EXPECT_EQ(sps->sar_height, 11u);
    EXPECT_EQ(sps->chroma_format_idc, 2);
    EXPECT_EQ(sps->bit_depth_luma, 10);
    EXPECT_EQ(sps->bit_depth_chroma, 10);
    EXPECT_TRUE(sps->may_have_fields);
    EXPECT_FALSE(sps->has_colour);
    EXPECT_EQ(sps->max_reorder, 2u);
}

TEST(SpsDetails, AvcBaselineCropsBothSides) {
    const auto sps = ReadAvcSps(kBaselineSps);
    ASSERT_TRUE(sps);
    EXPECT_EQ(sps->width, 322u);
    EXPECT_EQ(sps->height, 242u);
    EXPECT_EQ(sps->max_reorder, 0u);
}

TEST(SpsDetails, HevcMain10) {
    HevcProfile profile;
    const auto sps = ReadHevcSps(kMain10Sps, &profile);
    ASSERT_TRUE(sps);
    EXPECT_EQ(sps->width, 1920u);
    EXPECT_EQ(sps->height, 1080u);
    EXPECT_EQ(sps->sar_width, 4u);
    EXPECT_EQ(sps->sar_height, 3u);
    EXPECT_EQ(sps->bit_depth_luma, 10);
    EXPECT_TRUE(sps->has_colour);
    EXPECT_TRUE(sps->full_range);
    EXPECT_EQ(sps->colour_primaries, 9);
    EXPECT_EQ(sps->transfer_characteristics, 16);
    EXPECT_EQ(sps->matrix_coefficients, 9);
    EXPECT_EQ(sps->max_reorder, 2u);
    EXPECT_EQ(profile.general_profile, 2);
    EXPECT_EQ(profile.level_idc, 120);
}

TEST(SpsDetails, Hevc444WithScalingLists) {
    const auto sps = ReadHevcSps(kHevc444Sps);
    ASSERT_TRUE(sps);
    EXPECT_EQ(sps->width, 322u);
    EXPECT_EQ(sps->height, 242u);
    EXPECT_EQ(sps->chroma_format_idc, 3);
    EXPECT_EQ(sps->bit_depth_luma, 8);
    EXPECT_TRUE(sps->has_colour);  // the range alone: video_full_range_flag 0
    EXPECT_EQ(sps->colour_primaries, 2);
    EXPECT_EQ(sps->max_reorder, 0u);
}

TEST(SpsDetails, AnotherUnitIsNone) {
    EXPECT_FALSE(ReadAvcSps(kHighPps));
    EXPECT_FALSE(ReadAvcSps({}));
    EXPECT_FALSE(ReadHevcSps(kMain10Pps));
    EXPECT_FALSE(ReadHevcSps(kHighSps));
}

TEST(SpsDetails, AnyBytesAreSafe) {
    std::mt19937 random(7);
    for (uint32_t seed = 1; seed <= 3000; ++seed) {
        ByteVector noise = test::RandomBytes(random, seed % 200);
        if (!noise.empty()) noise[0] = seed % 2 != 0 ? 0x67 : 0x42;
        ReadAvcSps(noise);
        ReadHevcSps(noise);
    }
    for (const ByteVector* sps : {&kHighSps, &kInterlacedSps, &kMain10Sps, &kHevc444Sps}) {
        for (size_t length = 0; length < sps->size(); ++length) {
            ReadAvcSps({sps->data(), length});
            ReadHevcSps({sps->data(), length});
        }
    }
}

TEST(ParameterSets, AvcConfigurationOfHighProfile) {
    CParameterSets sets(NalCodec::kAvc);
    EXPECT_FALSE(sets.Complete());
    const FrameNals found = Scan(sets, test::Units({Bytes("09 F0"), kHighSps, kHighPps, Bytes("65 88 84")}));
    EXPECT_TRUE(found.changed);
    EXPECT_TRUE(found.has_delimiter);
    EXPECT_TRUE(found.has_parameter_sets);
    EXPECT_TRUE(found.has_picture);
    EXPECT_TRUE(found.random_access);
    EXPECT_EQ(found.rest, 4u + 2 + 4 + 29 + 4 + 6);
    EXPECT_TRUE(sets.Complete());
    EXPECT_EQ(Configuration(sets),
              Bytes("01 64 00 28 ff e1 00 1d 67 64 00 28 ac d9 40 78 02 27 e5 c0 5a 80 80 80 a0 00 00 7d 20 00 1d 4c 01"
                    "e3 06 32 c0 01 00 06 68 eb e3 cb 22 c0 fd f8 f8 00"));
}

TEST(ParameterSets, AvcConfigurationStatesChromaAndDepth) {
    CParameterSets sets(NalCodec::kAvc);
    Scan(sets, Prefixed({kInterlacedSps, kInterlacedPps, Bytes("41 9A")}), false);
    EXPECT_EQ(Configuration(sets),
              Bytes("01 7a 00 1e ff e1 00 1a 67 7a 00 1e b6 cd 94 0b 42 4d 82 08 00 00 03 00 08 00 00 03 01 90 f8 a1 4c"
                    "b0 01 00 06 68 fb a3 cb 22 c0 fe fa fa 00"));
}

TEST(ParameterSets, AvcBaselineHasNoTrailer) {
    CParameterSets sets(NalCodec::kAvc);
    Scan(sets, test::Units({kBaselineSps, kBaselinePps}));
    EXPECT_EQ(Configuration(sets), Bytes("01 42 c0 0d ff e1 00 1a") + kBaselineSps + Bytes("01 00 05") + kBaselinePps);
}

// ISO/IEC 14496-15 5.3.3.1.2: profiles 66, 77 and 88 end behind the picture parameter sets, all others state the chroma
// format and the depths.
TEST(ParameterSets, AvcProfilesWithoutATrailer) {
    for (const uint8_t profile : Bytes("42 4D 58 59")) {
        ByteVector sps = kBaselineSps;
        sps[1] = profile;
        CParameterSets sets(NalCodec::kAvc);
        Scan(sets, test::Units({sps, kBaselinePps}));
        const ByteVector trailer = profile == 0x59 ? Bytes("FD F8 F8 00") : ByteVector();
        EXPECT_EQ(Configuration(sets), ByteVector{1} + test::Slice(sps, 1, 3) + Bytes("FF E1 00 1A") + sps +
                                           Bytes("01 00 05") + kBaselinePps + trailer)
            << int{profile};
    }
}

TEST(ParameterSets, HevcConfiguration) {
    CParameterSets sets(NalCodec::kHevc);
    const FrameNals found =
        Scan(sets, Prefixed({Bytes("46 01 10"), kMain10Vps, kMain10Sps, kMain10Pps, Bytes("2A 01 AC")}), false);
    EXPECT_TRUE(found.has_delimiter && found.has_parameter_sets && found.random_access);
    EXPECT_EQ(found.rest, 7u + 28 + 51 + 11);
    // Three bytes after the level: no segmentation, no parallelism stated. Then 4:2:0 of ten bits.
    EXPECT_EQ(Configuration(sets), Bytes("01 02 20 00 00 00 90 00 00 00 00 00 78 f0 00 fc fd fa fa 00 00 0f 03"
                                         "20 00 01 00 18") +
                                       kMain10Vps + Bytes("21 00 01 00 2f") + kMain10Sps + Bytes("22 00 01 00 07") +
                                       kMain10Pps);
    const ByteVector complete = Configuration(sets, true);
    EXPECT_EQ(complete[23], 0xA0);
}

TEST(ParameterSets, ARepeatedSetIsNoChange) {
    CParameterSets sets(NalCodec::kAvc);
    const ByteVector frame = test::Units({kHighSps, kHighPps, Bytes("65 88")});
    EXPECT_TRUE(Scan(sets, frame).changed);
    EXPECT_FALSE(Scan(sets, frame).changed);
    // The same number, other bytes.
    EXPECT_TRUE(Scan(sets, test::Units({kInterlacedSps, kInterlacedPps, Bytes("65 88")})).changed);
    ASSERT_TRUE(sets.Details());
    EXPECT_EQ(sets.Details()->width, 720u);
    EXPECT_EQ(Configuration(sets)[5], 0xE1);
}

TEST(ParameterSets, SeveralPpsAreKeptByNumber) {
    CParameterSets sets(NalCodec::kAvc);
    const ByteVector second = Bytes("68 53 88 80");  // ue 1: pic_parameter_set_id 1
    EXPECT_TRUE(Scan(sets, test::Units({kBaselineSps, kBaselinePps, second, Bytes("65 88")})).changed);
    EXPECT_EQ(Configuration(sets), Bytes("01 42 c0 0d ff e1 00 1a") + kBaselineSps + Bytes("02 00 05") + kBaselinePps +
                                       Bytes("00 04") + second);
    EXPECT_EQ(sets.UnitsSize(), 4 + 26 + 4 + 5 + 4 + 4u);
    EXPECT_EQ(Written([&](ByteCursor& out) { sets.WriteAnnexB(out); }),
              test::Units({kBaselineSps, kBaselinePps, second}));
    EXPECT_EQ(Written([&](ByteCursor& out) { sets.WriteLengthPrefixed(out); }),
              Prefixed({kBaselineSps, kBaselinePps, second}));
}

// vps_video_parameter_set_id is the upper half of the third byte (ITU-T H.265 7.3.2.1).
TEST(ParameterSets, SeveralVpsAreKeptByNumber) {
    CParameterSets sets(NalCodec::kHevc);
    ByteVector other = kMain10Vps;
    other[2] = 0x1c;  // number 1
    ByteVector changed = kMain10Vps;
    changed[2] = 0x0d;  // number 0, another count of layers
    Scan(sets, test::Units({kMain10Vps, other, kMain10Sps, kMain10Pps}));
    EXPECT_EQ(Written([&](ByteCursor& out) { sets.WriteAnnexB(out); }),
              test::Units({kMain10Vps, other, kMain10Sps, kMain10Pps}));
    Scan(sets, test::Units({changed}));
    EXPECT_EQ(Written([&](ByteCursor& out) { sets.WriteAnnexB(out); }),
              test::Units({changed, other, kMain10Sps, kMain10Pps}));
}

TEST(ParameterSets, ZerosBehindASetAreNotPartOfIt) {
    CParameterSets sets(NalCodec::kAvc);
    Scan(sets, test::Units({kBaselineSps, kBaselinePps, Bytes("65 88")}));
    EXPECT_FALSE(
        Scan(sets, test::Units({kBaselineSps + Bytes("00 00"), kBaselinePps + Bytes("00"), Bytes("65 88")})).changed);
}

TEST(ParameterSets, WhatStandsBehindThePictureIsNotLookedAt) {
    CParameterSets sets(NalCodec::kAvc);
    const FrameNals found =
        Scan(sets, test::Units({Bytes("06 05 01 AA 80"), Bytes("41 9A 00 11"), kHighSps, kHighPps}));
    EXPECT_FALSE(found.changed || found.has_delimiter || found.has_parameter_sets || found.random_access);
    EXPECT_TRUE(found.has_picture);
    EXPECT_EQ(found.rest, 0u);
    EXPECT_FALSE(sets.Complete());
}

#if !defined(_WIN32)
// A page of memory, and one behind it that cannot be read.
class GuardedPage {
  public:
    GuardedPage() : memory_(mmap(nullptr, 2 * size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) {
        if (memory_ == MAP_FAILED || mprotect(Data() + size_, size_, PROT_NONE) != 0) std::abort();
    }
    ~GuardedPage() { munmap(memory_, 2 * size_); }
    GuardedPage(const GuardedPage&) = delete;
    GuardedPage& operator=(const GuardedPage&) = delete;

    uint8_t* Data() const { return static_cast<uint8_t*>(memory_); }
    size_t Size() const { return size_; }

  private:
    size_t size_ = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    void* memory_;
};

TEST(ParameterSets, APictureIsNotLookedAtToItsEnd) {
    const GuardedPage page;
    const ByteVector front = test::Units({kHighSps, kHighPps, Bytes("65 88 84 00")});
    std::ranges::copy(front, page.Data());
    CParameterSets sets(NalCodec::kAvc);
    const FrameNals found = sets.ScanAnnexB({page.Data(), 2 * page.Size()});
    EXPECT_TRUE(found.has_picture);
    EXPECT_TRUE(found.random_access);
    EXPECT_EQ(found.rest, front.size() - 8);
}

TEST(ParameterSets, NothingIsReadBehindAStartCodeAtTheEnd) {
    const GuardedPage page;
    const ByteVector code = Bytes("00 00 00 01");
    uint8_t* const begin = page.Data() + page.Size() - code.size();
    std::ranges::copy(code, begin);
    CParameterSets sets(NalCodec::kAvc);
    EXPECT_TRUE(sets.ScanAnnexB({begin, code.size()}).has_start_code);
}
#endif

TEST(ParameterSets, NoFrameAtAll) {
    CParameterSets sets(NalCodec::kAvc);
    EXPECT_FALSE(Scan(sets, {}).has_picture);
    EXPECT_FALSE(Scan(sets, Bytes("00 00 01")).has_picture);
    EXPECT_FALSE(Scan(sets, Bytes("00 00 00 09 65 88"), false).has_picture);
    EXPECT_FALSE(sets.Details());
    EXPECT_EQ(Configuration(sets), ByteVector{});
    EXPECT_EQ(sets.UnitsSize(), 0u);
}

TEST(ParameterSets, KeepsNoMoreThanTheirNumber) {
    CParameterSets sets(NalCodec::kAvc);
    std::mt19937 random(7);
    for (uint32_t round = 0; round < 4000; ++round) {
        Scan(sets,
             test::Units({Bytes("68") + test::RandomBytes(random, 8), Bytes("67") + test::RandomBytes(random, 40)}));
    }
    uint8_t area[65536];
    ByteCursor out(area);
    sets.WriteConfiguration(out);
    EXPECT_TRUE(out.Ok());
    EXPECT_LE(sets.UnitsSize(), CParameterSets::kMostSets * 45);
}

TEST(ParameterSets, AStartCodeAtTheEndIsAllThatIsRead) {
    const ByteVector bytes = Bytes("00 00 00 01 65 88");
    CParameterSets sets(NalCodec::kAvc);
    const FrameNals found = sets.ScanAnnexB({bytes.data(), 4});
    EXPECT_TRUE(found.has_start_code);
    EXPECT_FALSE(found.has_picture);
}

TEST(ParameterSets, TheLongestSet) {
    for (const size_t size : {size_t{4095}, size_t{4096}, size_t{4097}}) {
        ByteVector sps = kHighSps;
        sps.resize(size, 0x55);
        CParameterSets sets(NalCodec::kAvc);
        sets.ScanAnnexB(test::Units({sps, kHighPps, Bytes("65 88 84")}));
        EXPECT_EQ(sets.Complete(), size <= 4096) << size;
    }
}

// All four bytes of a length count: behind 16 MiB of padding the sets are found.
TEST(ParameterSets, BehindALongUnit) {
    const auto unit = [](const ByteVector& nal) {
        return ByteVector{static_cast<uint8_t>(nal.size() >> 24), static_cast<uint8_t>(nal.size() >> 16),
                          static_cast<uint8_t>(nal.size() >> 8), static_cast<uint8_t>(nal.size())} +
               nal;
    };
    ByteVector filler(0x01020304, 0xFF);
    filler[0] = 0x0C;
    CParameterSets sets(NalCodec::kAvc);
    const FrameNals found =
        sets.ScanLengthPrefixed(unit(filler) + unit(kHighSps) + unit(kHighPps) + unit(Bytes("65 88 84")));
    EXPECT_TRUE(found.has_parameter_sets);
    EXPECT_TRUE(found.has_picture);
}

// Types 16 to 23 are random access pictures (ITU-T H.265 Table 7-1), also those that are reserved.
TEST(ParameterSets, RandomAccessOfH265) {
    for (uint32_t type = 0; type < 32; ++type) {
        CParameterSets sets(NalCodec::kHevc);
        const FrameNals found =
            sets.ScanAnnexB(Bytes("00 00 00 01") + ByteVector{static_cast<uint8_t>(type << 1), 1, 0x80});
        EXPECT_TRUE(found.has_picture) << type;
        EXPECT_EQ(found.random_access, type >= 16 && type <= 23) << type;
    }
}

TEST(ParameterSets, AUnitThatIsLongerThanItsFrameIsNone) {
    for (const char* frame : {"00 00 00 05 65 88 84 21", "00 00 00 0C 65 88 84 21"}) {
        const ByteVector memory = Bytes(frame) + ByteVector(20, 0x11);
        CParameterSets sets(NalCodec::kAvc);
        EXPECT_FALSE(sets.ScanLengthPrefixed({memory.data(), 8}).has_picture) << frame;
    }
    CParameterSets sets(NalCodec::kAvc);
    EXPECT_TRUE(sets.ScanLengthPrefixed(Bytes("00 00 00 04 65 88 84 21")).has_picture);
    EXPECT_FALSE(sets.ScanLengthPrefixed(Bytes("00 00 00 01 09  00 00 00 05 65 88 84 21")).has_picture);
    EXPECT_TRUE(sets.ScanLengthPrefixed(Bytes("00 00 00 01 09  00 00 00 04 65 88 84 21")).has_picture);
    // Nothing in it, and less than a length behind it.
    const FrameNals empty = sets.ScanLengthPrefixed(Bytes("00 00 00 00  00 00 00 02 09 F0  00 00 00"));
    EXPECT_TRUE(empty.has_delimiter);
    EXPECT_FALSE(empty.has_picture);
}

// pps_pic_parameter_set_id stands behind the two bytes of the header (ITU-T H.265 7.3.2.3.1): both are number 0.
TEST(ParameterSets, APpsOfH265IsReplacedByItsNumber) {
    CParameterSets sets(NalCodec::kHevc);
    ByteVector other = kMain10Pps;
    other[3] = 0xF2;
    Scan(sets, test::Units({kMain10Vps, kMain10Sps, kMain10Pps}));
    EXPECT_TRUE(Scan(sets, test::Units({other})).changed);
    EXPECT_EQ(Written([&](ByteCursor& out) { sets.WriteAnnexB(out); }), test::Units({kMain10Vps, kMain10Sps, other}));
}

// Zeros, a set without a body, one of nothing but zeros; then what is missing of a whole stream.
TEST(ParameterSets, UnitsWithoutABodyAreNoSets) {
    CParameterSets avc(NalCodec::kAvc);
    Scan(avc, Bytes("00 00 01 00 00 00 00 01 68 00 00 00 00 01 68 CE 00 00 00 01"));
    EXPECT_EQ(avc.UnitsSize(), 0u);
    avc.ScanLengthPrefixed(Bytes("00 00 00 05 68 00 00 00 00  00 00 00 05 68 CE 3C 80 00"));
    EXPECT_EQ(Written([&](ByteCursor& out) { avc.WriteAnnexB(out); }), test::Units({Bytes("68 CE 3C 80")}));
    EXPECT_FALSE(avc.Complete());
    EXPECT_EQ(Configuration(avc), ByteVector{});
    Scan(avc, test::Units({kHighSps}));
    EXPECT_TRUE(avc.Complete());

    CParameterSets hevc(NalCodec::kHevc);
    EXPECT_EQ(Configuration(hevc), ByteVector{});
    Scan(hevc, test::Units({kMain10Sps}));
    EXPECT_FALSE(hevc.Complete());
    // numOfArrays (ISO/IEC 14496-15 8.3.3.1.2), and the one there is.
    EXPECT_EQ(test::Slice(Configuration(hevc), 22, 4), Bytes("01 21 00 01"));
    Scan(hevc, test::Units({kMain10Pps}));
    EXPECT_FALSE(hevc.Complete());
    Scan(hevc, test::Units({Bytes("4E 01 05 00 80"), kMain10Vps}));
    EXPECT_TRUE(hevc.Complete());
}

// numOfSequenceParameterSets has five bits.
TEST(ParameterSets, ThirtyOneSpsAtMost) {
    CParameterSets sets(NalCodec::kAvc);
    for (uint32_t id = 0; id < 32; ++id)
        EXPECT_EQ(Scan(sets, test::AvcSps(false, id)).changed, id < 31) << id;
}

// What stands directly ahead of a start code of three bytes.
TEST(ParameterSets, TheRestBeginsAtItsStartCode) {
    CParameterSets sets(NalCodec::kAvc);
    EXPECT_EQ(Scan(sets, Bytes("00 00 01 09 F0 00 00 01 65 88"), false).rest, 0u);
    EXPECT_EQ(sets.ScanAnnexB(Bytes("00 00 01 09 F0 00 00 01 65 88")).rest, 5u);
    EXPECT_EQ(sets.ScanAnnexB(Bytes("00 00 01 09 F0 00 00 00 01 65 88")).rest, 5u);
}

}  // namespace
}  // namespace Orvane::Muxora
