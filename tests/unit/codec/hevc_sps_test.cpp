#include "codec/hevc_sps.h"

#include <gtest/gtest.h>

#include <memory>

#include "support/bits.h"
#include "support/hex.h"
#include "support/noise.h"

namespace Orvane::Muxora {
namespace {

using test::BitString;
using test::Bytes;
using test::ByteVector;
using test::operator+;

struct Sps {
    uint32_t type = 33;
    uint32_t chroma_format_idc = 1;
    uint32_t bit_depth_luma = 8;
    uint32_t bit_depth_chroma = 8;
    bool window = false;
    uint32_t compatibility = 0x60000000;

    // Up to and with sps_temporal_id_nesting_flag.
    BitString Head(uint32_t max_sub_layers_minus1 = 0) const {
        BitString bits;
        bits.Put(0, 1).Put(type, 6).Put(0, 6).Put(1, 3).Put(0, 4).Put(max_sub_layers_minus1, 3).Put(1, 1);
        bits.Put(0x41, 8).Put(compatibility, 32).Put(0x9001, 16).Put(0x2345, 16).Put(0x6789, 16).Put(93, 8);
        return bits;
    }
    // From sps_seq_parameter_set_id on.
    void Tail(BitString& bits) const {
        bits.Ue(0).Ue(chroma_format_idc);
        if (chroma_format_idc == 3) bits.Put(0, 1);  // separate_colour_plane_flag
        bits.Ue(1920).Ue(1080).Put(window ? 1 : 0, 1);
        if (window) bits.Ue(0).Ue(1).Ue(0).Ue(4);
        bits.Ue(bit_depth_luma - 8).Ue(bit_depth_chroma - 8).Put(0xFF, 8);
    }
    ByteVector Data() const {
        BitString bits = Head();
        Tail(bits);
        return bits.Bytes();
    }
};

// On a heap block of exact size, so that a sanitizer sees any byte read outside.
int32_t Parse(const ByteVector& nal, HevcSpsSummary& out) {
    const auto block = std::make_unique<uint8_t[]>(nal.size());
    std::copy(nal.begin(), nal.end(), block.get());
    return ParseHevcSps(block.get(), static_cast<uint32_t>(nal.size()), &out);
}

HevcSpsSummary Parsed(const ByteVector& nal) {
    HevcSpsSummary out;
    EXPECT_EQ(Parse(nal, out), 0);
    return out;
}

void ExpectGeneral(const HevcSpsSummary& out) {
    EXPECT_EQ(out.general_profile, 0x41);
    EXPECT_EQ(out.general_profile_compatibility_flags, 0x60000000u);
    EXPECT_EQ(out.general_constraint_indicator_flags[0], 0x9001);
    EXPECT_EQ(out.general_constraint_indicator_flags[1], 0x2345);
    EXPECT_EQ(out.general_constraint_indicator_flags[2], 0x6789);
    EXPECT_EQ(out.general_level_idc, 93);
}

TEST(HevcSps, EightBits420) {
    const HevcSpsSummary out = Parsed(Sps{}.Data());
    ExpectGeneral(out);
    EXPECT_EQ(out.chromaFormat, 0xFD);
    EXPECT_EQ(out.bitDepthLumaMinus8, 0xF8);
    EXPECT_EQ(out.bitDepthChromaMinus8, 0xF8);
}

TEST(HevcSps, TenBitsAndAConformanceWindow) {
    const HevcSpsSummary out =
        Parsed(Sps{.chroma_format_idc = 2, .bit_depth_luma = 10, .bit_depth_chroma = 9, .window = true}.Data());
    EXPECT_EQ(out.chromaFormat, 0xFE);
    EXPECT_EQ(out.bitDepthLumaMinus8, 0xFA);
    EXPECT_EQ(out.bitDepthChromaMinus8, 0xF9);
}

// A set that an encoder made: 1280 by 720, Main 10, level 3.1, with emulation bytes in the profile block.
TEST(HevcSps, FromAnEncoder) {
    const HevcSpsSummary out =
        Parsed(Bytes("42 01 01 02 20 00 00 03 00 90 00 00 03 00 00 03 00 5D A0 02 80 80 2D 13 65 95 9A 49 32 BC 05 A0"
                     "20 00 00 03 00 20 00 00 03 03 21"));
    EXPECT_EQ(out.general_profile, 0x02);
    EXPECT_EQ(out.general_profile_compatibility_flags, 0x20000000u);
    EXPECT_EQ(out.general_constraint_indicator_flags[0], 0x9000);
    EXPECT_EQ(out.general_constraint_indicator_flags[1], 0);
    EXPECT_EQ(out.general_constraint_indicator_flags[2], 0);
    EXPECT_EQ(out.general_level_idc, 93);
    EXPECT_EQ(out.chromaFormat, 0xFD);
    EXPECT_EQ(out.bitDepthLumaMinus8, 0xFA);
    EXPECT_EQ(out.bitDepthChromaMinus8, 0xFA);
}

TEST(HevcSps, EmulationBytesMakeNoDifference) {
    const ByteVector plain = Sps{}.Data();
    ASSERT_EQ(test::Slice(plain, 3, 5), Bytes("41 60 00 00 00"));
    const ByteVector escaped = test::Slice(plain, 0, 7) + Bytes("03") + test::Slice(plain, 7, plain.size() - 7);
    const HevcSpsSummary out = Parsed(escaped);
    ExpectGeneral(out);
    EXPECT_EQ(out.chromaFormat, 0xFD);
    EXPECT_EQ(out.bitDepthLumaMinus8, 0xF8);
}

TEST(HevcSps, AnotherTypeIsRefused) {
    const HevcSpsSummary before = {1, 2, {3, 4, 5}, 6, 7, 8, 9};
    for (const uint32_t type : {32u, 34u, 1u}) {
        HevcSpsSummary out = before;
        EXPECT_EQ(Parse(Sps{.type = type}.Data(), out), -1);
        EXPECT_TRUE(out == before);
    }
    HevcSpsSummary out = before;
    EXPECT_EQ(ParseHevcSps(nullptr, 10, &out), -1);
    EXPECT_EQ(ParseHevcSps(Sps{}.Data().data(), 0, &out), -1);
    EXPECT_TRUE(out == before);
}

// A sub-layer with a level only, and one with nothing.
TEST(HevcSps, SubLayersArePassedOver) {
    BitString bits = Sps{}.Head(2);
    bits.Put(0b01, 2).Put(0b00, 2);
    bits.Put(0, 2 * 6);
    bits.Put(0xEE, 8);
    Sps{.bit_depth_luma = 10}.Tail(bits);
    const HevcSpsSummary out = Parsed(bits.Bytes());
    ExpectGeneral(out);
    EXPECT_EQ(out.chromaFormat, 0xFD);
    EXPECT_EQ(out.bitDepthLumaMinus8, 0xFA);
}

// 88 bits of a sub-layer's profile: behind the head of 120 bits, 2 flags and 14 reserved bits the long step begins at
// bit 180, 20 bits into its word, so that the reader's position becomes 32. The level byte behind it lets it catch up.
TEST(HevcSps, ASubLayerWithAProfileAndALevel) {
    BitString bits = Sps{}.Head(1);
    ASSERT_EQ(bits.Size(), 120u);
    bits.Put(0b11, 2).Put(0, 2 * 7);
    bits.Put(0x155, 8).Put(0xA5A5A5A5, 32).Put(0b1111, 4).Put(0x5A5A5A5A5A5, 44);
    bits.Put(0xEE, 8);
    Sps{.bit_depth_luma = 10}.Tail(bits);
    const HevcSpsSummary out = Parsed(bits.Bytes());
    EXPECT_EQ(out.chromaFormat, 0xFD);
    EXPECT_EQ(out.bitDepthLumaMinus8, 0xFA);
}

// Without the level byte the next bit, the first one of sps_seq_parameter_set_id, is read while the reader lags: the
// word that ends with the long step (bits 192 to 223) stands beside it, moved up by one.
TEST(HevcSps, ASubLayerWithAProfileAloneLetsTheLaggingWordIn) {
    const auto with_lagging_word = [](uint32_t word) {
        BitString bits = Sps{}.Head(1);
        bits.Put(0b10, 2).Put(0, 2 * 7);
        bits.Put(0x155, 8).Put(0xA5A5A5A5, 32).Put(0b1111, 4).Put(0, 12).Put(word, 32);
        // The set's id is 1, binary 010, then comes chroma_format_idc 1.
        bits.Ue(1).Ue(1).Ue(64).Ue(64).Put(0, 1).Ue(2).Ue(2).Put(0xFF, 8);
        return Parsed(bits.Bytes());
    };
    EXPECT_EQ(with_lagging_word(0).chromaFormat, 0xFD);
    EXPECT_EQ(with_lagging_word(0).bitDepthLumaMinus8, 0xFA);
    EXPECT_EQ(with_lagging_word(0x80000000).chromaFormat, 0xFD);
    // Any other bit of it turns that 0 into a 1: the id is 0 then, and chroma_format_idc the 0 that "1" spells.
    EXPECT_EQ(with_lagging_word(1).chromaFormat, 0xFC);
    EXPECT_EQ(with_lagging_word(0x40000000).chromaFormat, 0xFC);
}

TEST(HevcSps, In444TheFieldsAreReadOneBitOff) {
    BitString bits = Sps{}.Head();
    bits.Ue(0).Ue(3);
    bits.Put(0, 1).Ue(0).Ue(0).Put(0, 1).Ue(2).Ue(0);  // flag 0, width 1, height 1, window 0, luma 011, chroma 1
    bits.Put(0xFFFF, 16);
    // Read as: width 011, height 00111, window 1, and single ones from there on. In step luma would give 0xFA.
    const HevcSpsSummary out = Parsed(bits.Bytes());
    EXPECT_EQ(out.chromaFormat, 0xFF);
    EXPECT_EQ(out.bitDepthLumaMinus8, 0xF8);
}

// The longest set that can be read to its end: 7 sub-layers with profile and level, and values of 63 bits each. An
// emulation byte behind each pair of zeros makes 256 bytes of its 180.
TEST(HevcSps, TheFirst256BytesAreParsed) {
    constexpr uint32_t kLongest = 0x7FFFFFFF;  // 31 zeros, a one, 31 zeros
    BitString bits;
    bits.Put(0x4201, 16).Put(0, 4).Put(7, 3).Put(0, 1).Put(0, 12 * 8);
    bits.Put(0x3FFF, 14).Put(0, 2).Put(0, 7 * 96);
    bits.Ue(kLongest).Ue(kLongest).Ue(kLongest).Ue(kLongest).Put(1, 1);
    bits.Ue(kLongest).Ue(kLongest).Ue(kLongest).Ue(kLongest);
    bits.Ue(kLongest).Ue(uint64_t{kLongest} + 4);
    const ByteVector plain = bits.Bytes();
    ByteVector escaped;
    for (size_t i = 0, zeros = 0; i < plain.size(); ++i) {
        escaped.push_back(plain[i]);
        zeros = plain[i] == 0 ? zeros + 1 : 0;
        if (zeros != 2) continue;
        escaped.push_back(3);
        zeros = 0;
    }
    ASSERT_EQ(plain.size(), 180u);
    ASSERT_EQ(escaped.size(), 256u);
    EXPECT_EQ(Parsed(plain).bitDepthChromaMinus8, 0xFB);  // 0x80000003
    EXPECT_EQ(Parsed(escaped).bitDepthChromaMinus8, 0xFB);
    EXPECT_EQ(Parsed(escaped + ByteVector(44, 0xFF)).bitDepthChromaMinus8, 0xFB);
    // Without the last byte 0x7FFFFFFF is left.
    EXPECT_EQ(Parsed(test::Slice(escaped, 0, 255)).bitDepthChromaMinus8, 0xFF);
}

TEST(HevcSps, AnyBytesAreSafe) {
    std::mt19937 random(50);
    for (int round = 0; round < 20000; ++round) {
        ByteVector data = test::ZeroRichBytes(random, 1 + random() % 270);
        for (uint8_t& byte : data) {
            if (random() % 4 == 0) byte = 3;
        }
        data[0] = 0x42;
        HevcSpsSummary out;
        ASSERT_EQ(Parse(data, out), 0);
    }
    // Emulation pattern across the 256th byte.
    ByteVector data(258, 0x11);
    data[0] = 0x42;
    data[255] = data[256] = 0;
    data[257] = 3;
    HevcSpsSummary out;
    EXPECT_EQ(Parse(data, out), 0);
}

}  // namespace
}  // namespace Orvane::Muxora
