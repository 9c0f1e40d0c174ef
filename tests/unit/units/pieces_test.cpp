// A stream gives the same units however it is cut into pieces, and what cannot be a unit is thrown away.
#include <gtest/gtest.h>

#include "support/allocation_counter.h"
#include "support/avc_stream.h"
#include "support/bits.h"
#include "support/frames.h"
#include "support/parameter_sets.h"
#include "units_fixture.h"

namespace Orvane::Muxora {
namespace {

using test::Adts;
using test::AvcPps;
using test::AvcSlice;
using test::AvcSps;
using test::Bytes;
using test::ByteVector;
using test::Idr;
using test::kStartCode;
using test::operator+;

std::vector<ByteVector> InPieces(uint32_t type, uint32_t codec, const ByteVector& stream, size_t step,
                                 uint32_t flags = 0) {
    Units units(type, codec, flags);
    std::vector<ByteVector> out;
    const auto take = [&](const std::vector<Given>& given) {
        for (const Given& one : given)
            out.push_back(one.bytes);
    };
    for (size_t at = 0; at < stream.size(); at += step)
        take(units.Put(test::Slice(stream, at, std::min(step, stream.size() - at))));
    take(units.End());
    return out;
}

ByteVector Joined(const std::vector<ByteVector>& parts) {
    ByteVector all;
    for (const ByteVector& part : parts)
        all = all + part;
    return all;
}

TEST(Pieces, OfH264) {
    const ByteVector short_slice = test::Slice(AvcSlice({.frame_num = 2}), 1, AvcSlice({.frame_num = 2}).size() - 1);
    const std::vector<ByteVector> pictures{
        kStartCode + Bytes("09 F0") + AvcSps() + AvcPps() + AvcSlice(Idr()) +
            AvcSlice({.header = 0x65, .first_mb = 9, .type = 7}),
        kStartCode + Bytes("6E 40 00 00") + AvcSlice({.frame_num = 1}) + kStartCode + Bytes("0C FF FF 80"), short_slice,
        AvcSlice({.frame_num = 3}) + kStartCode + Bytes("0A"), AvcSlice({.frame_num = 3})};
    const ByteVector noise = Bytes("47 11 22 00 01 00 00 02");
    const ByteVector stream = noise + Joined(pictures);
    for (size_t step = 1; step < stream.size(); step += step < 80 ? 1 : 37) {
        EXPECT_EQ(InPieces(MX_FRAME_VIDEO, MX_VIDEO_H264, stream, step), pictures) << step;
        std::vector<ByteVector> rewritten = pictures;
        rewritten[2] = AvcSlice({.frame_num = 2});
        EXPECT_EQ(InPieces(MX_FRAME_VIDEO, MX_VIDEO_H264, stream, step, MX_UNITS_LONG_START_CODES), rewritten) << step;
    }
}

TEST(Pieces, OfH265) {
    const auto slice = [](uint8_t type, bool first) {
        return kStartCode + ByteVector{static_cast<uint8_t>(type << 1), 1, static_cast<uint8_t>(first ? 0xAF : 0x2F)} +
               ByteVector(40, 0x5A);
    };
    const std::vector<ByteVector> pictures{kStartCode + Bytes("40 01 0C") + slice(19, true) + slice(19, false),
                                           slice(1, true) + kStartCode + Bytes("50 01 80"),
                                           kStartCode + Bytes("4E 01 05 00 80") + slice(0, true),
                                           slice(1, true) + kStartCode + Bytes("4A 01"), slice(1, false)};
    const ByteVector stream = Joined(pictures);
    for (size_t step = 1; step < stream.size(); step += step < 80 ? 1 : 37)
        EXPECT_EQ(InPieces(MX_FRAME_VIDEO, MX_VIDEO_H265, stream, step), pictures) << step;
}

TEST(Pieces, OfSound) {
    // AAC LC, 48000 Hz, stereo: 16, 40 and 200 bytes with the header.
    std::vector<ByteVector> frames;
    for (const uint32_t size : {16u, 40u, 200u})
        frames.push_back(Adts(ByteVector(size - 7u, 0x21)));
    const ByteVector stream = Bytes("49 44 33 FF F1 00 FF") + Joined(frames) + Joined(frames) + Bytes("FF F1 4C 80 02");
    std::vector<ByteVector> expected = frames;
    expected.insert(expected.end(), frames.begin(), frames.end());
    for (size_t step = 1; step < stream.size(); ++step)
        EXPECT_EQ(InPieces(MX_FRAME_AUDIO, MX_AUDIO_AAC, stream, step), expected) << step;
    // MPEG-1 Layer II, 32 kbit/s, 48000 Hz, mono: 96 bytes.
    const ByteVector mp2 = Bytes("FF FD 14 C0") + ByteVector(92, 0x11);
    for (size_t step = 1; step < 300; ++step)
        EXPECT_EQ(InPieces(MX_FRAME_AUDIO, MX_AUDIO_MPEG, mp2 + mp2 + Bytes("FF 11") + mp2 + mp2, step),
                  (std::vector<ByteVector>{mp2, mp2, mp2, mp2}))
            << step;
}

// Seven bits of the fixed header tell streams apart: ID, profile, frequency, channels (ISO/IEC 13818-7 6.2.1).
TEST(Pieces, AnotherStreamsHeaderIsNone) {
    const auto frame = [](uint8_t second, uint8_t third, uint8_t fourth) {
        return ByteVector{0xFF, second, third, fourth, 0x02, 0x9F, 0xFC} + ByteVector(13, 0x21);
    };
    const ByteVector own = frame(0xF1, 0x4C, 0x80);
    for (const ByteVector& other :
         {frame(0xF9, 0x4C, 0x80), frame(0xF1, 0xCC, 0x80), frame(0xF1, 0x0C, 0x80), frame(0xF1, 0x50, 0x80),
          frame(0xF1, 0x48, 0x80), frame(0xF1, 0x4C, 0x40), frame(0xF1, 0x4C, 0xC0), frame(0xF1, 0x4D, 0x80)})
        EXPECT_EQ(InPieces(MX_FRAME_AUDIO, MX_AUDIO_AAC, other + own + own, 1000), (std::vector<ByteVector>{own, own}));
    // private_bit, original_copy and home may change.
    for (const ByteVector& same : {frame(0xF1, 0x4E, 0x80), frame(0xF1, 0x4C, 0xA0), frame(0xF1, 0x4C, 0x90)})
        EXPECT_EQ(InPieces(MX_FRAME_AUDIO, MX_AUDIO_AAC, same + own + own, 1000),
                  (std::vector<ByteVector>{same, own, own}));
}

TEST(Pieces, WhatAUnitDoesNotTellIsZero) {
    const std::vector<Given> given = Units(MX_FRAME_VIDEO, MX_VIDEO_H264).All(AvcSlice({.first_mb = 0}));
    ASSERT_EQ(given.size(), 1u);
    const MXAccessUnit& picture = given[0].unit;
    EXPECT_EQ(picture.width, 0u);
    EXPECT_EQ(picture.height, 0u);
    EXPECT_EQ(picture.field, 0u);
    EXPECT_EQ(picture.rate_numerator, 0u);
    EXPECT_EQ(picture.rate_denominator, 0u);
    EXPECT_EQ(picture.samples_per_sec, 0u);
    EXPECT_EQ(picture.channels, 0u);
    EXPECT_EQ(picture.samples, 0u);
    const ByteVector mp2 = Bytes("FF FD 14 C0") + ByteVector(92, 0x11);
    const std::vector<Given> sound = Units(MX_FRAME_AUDIO, MX_AUDIO_MPEG).All(mp2);
    ASSERT_EQ(sound.size(), 1u);
    EXPECT_EQ(sound[0].unit.width, 0u);
    EXPECT_EQ(sound[0].unit.height, 0u);
    EXPECT_EQ(sound[0].unit.field, 0u);
    EXPECT_EQ(sound[0].unit.rate_numerator, 0u);
    EXPECT_EQ(sound[0].unit.rate_denominator, 0u);
    EXPECT_EQ(sound[0].unit.picture_kind, MX_SUB_OTHER);
}

// Channel configuration 7 is 7.1 (ISO/IEC 14496-3 Table 1.19).
TEST(Pieces, ChannelsOfAac) {
    for (uint32_t configuration = 0; configuration < 8; ++configuration) {
        const ByteVector frame = ByteVector{0xFF,
                                            0xF1,
                                            static_cast<uint8_t>(0x4C | configuration >> 2),
                                            static_cast<uint8_t>((configuration & 3) << 6),
                                            0x02,
                                            0x9F,
                                            0xFC} +
                                 ByteVector(13, 0x21);
        const std::vector<Given> given = Units(MX_FRAME_AUDIO, MX_AUDIO_AAC).All(frame + frame);
        ASSERT_EQ(given.size(), 2u);
        EXPECT_EQ(given[0].unit.channels, configuration == 7 ? 8u : configuration);
    }
}

// An SPS of 640 by 360 whose VUI states fields, and `scale` / `ticks` pictures a second.
ByteVector HevcSpsWithTiming(uint32_t ticks, uint32_t scale) {
    test::BitString sps;
    sps.Put(0, 4).Put(0, 3).Put(1, 1).Put(1, 8).Put(0x60000000, 32).Put(0x9000, 16).Put(0x11111111, 32).Put(93, 8);
    sps.Ue(0).Ue(1).Ue(640).Ue(360).Put(0, 1).Ue(0).Ue(0).Ue(4).Put(1, 1).Ue(4).Ue(2).Ue(0);
    sps.Ue(0).Ue(3).Ue(0).Ue(3).Ue(1).Ue(2).Put(0, 1).Put(2, 2).Put(0, 1).Ue(0).Put(0, 1).Put(3, 2);
    sps.Put(1, 1).Put(0, 4).Put(0, 1).Put(1, 1).Put(1, 1).Put(0, 1);  // VUI: fields, and frame_field_info
    sps.Put(1, 1).Put(ticks, 32).Put(scale, 32).Put(0, 2).Put(0, 1).Put(1, 1);
    return kStartCode + Bytes("42 01") + test::WithEmulationPrevention(sps.Bytes());
}

// pic_struct (ITU-T H.265 Table D.2) of a stream whose SPS says that it is stated.
TEST(Pieces, FieldsOfH265) {
    const ByteVector sets = HevcSpsWithTiming(1, 50) + kStartCode + Bytes("44 01 C1 72");
    const ByteVector slice = kStartCode + Bytes("26 01 AF") + ByteVector(40, 0x5A);
    for (uint32_t value = 0; value < 16; ++value) {
        const ByteVector timing =
            kStartCode + Bytes("4E 01 01 01") + ByteVector{static_cast<uint8_t>(value << 4 | 3), 0x80};
        const std::vector<Given> given = Units(MX_FRAME_VIDEO, MX_VIDEO_H265).All(sets + timing + slice + slice);
        ASSERT_EQ(given.size(), 2u);
        const bool top = value == 1 || value == 9 || value == 11;
        const bool bottom = value == 2 || value == 10 || value == 12;
        EXPECT_EQ(given[0].unit.field, top      ? MX_UNIT_TOP_FIELD
                                       : bottom ? MX_UNIT_BOTTOM_FIELD
                                                : MX_UNIT_FRAME)
            << value;
        EXPECT_EQ(given[1].unit.field, MX_UNIT_FRAME) << "the message is of the first picture";
        EXPECT_EQ(given[0].unit.rate_numerator, 50u);
        EXPECT_EQ(given[0].unit.rate_denominator, 1u);
        EXPECT_EQ(given[0].unit.width, 640u);
        EXPECT_EQ(given[0].unit.height, 360u);
    }
}

// A rate of which one part is 0 is none.
TEST(Pieces, ARateThatIsNotStated) {
    for (const auto& [ticks, scale] : {std::pair(1u, 0u), {0u, 50u}}) {
        const ByteVector stream = HevcSpsWithTiming(ticks, scale) + kStartCode + Bytes("44 01 C1 72") + kStartCode +
                                  Bytes("26 01 AF") + ByteVector(40, 0x5A);
        const std::vector<Given> given = Units(MX_FRAME_VIDEO, MX_VIDEO_H265).All(stream);
        ASSERT_EQ(given.size(), 1u);
        EXPECT_EQ(given[0].unit.width, 640u);
        EXPECT_EQ(given[0].unit.rate_numerator, 0u);
        EXPECT_EQ(given[0].unit.rate_denominator, 0u);
    }
}

// 64 MiB without an end are no unit; the stream goes on behind them.
TEST(Pieces, AUnitWithoutAnEndIsThrownAway) {
    const ByteVector picture = AvcSps() + AvcPps() + AvcSlice(Idr());
    const ByteVector filler(32u << 20, 0x55);
    Units units(MX_FRAME_VIDEO, MX_VIDEO_H264);
    EXPECT_TRUE(units.Put(picture).empty());
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(units.Put(filler).empty());
    std::vector<Given> given = units.All(picture + AvcSlice({.frame_num = 1}));
    ASSERT_EQ(given.size(), 2u);
    EXPECT_EQ(given[0].bytes, picture);
    // And in one piece.
    given = units.All(picture + filler + filler + filler);
    EXPECT_TRUE(given.empty());
    given = units.All(picture + AvcSlice({.frame_num = 1}));
    ASSERT_EQ(given.size(), 2u);
    EXPECT_EQ(given[0].bytes, picture);
}

TEST(Pieces, WithoutMemoryForLongStartCodes) {
    const ByteVector slice = AvcSlice(Idr());
    const ByteVector stream =
        AvcSps() + AvcPps() + test::Slice(slice, 1, slice.size() - 1) + AvcSlice({.frame_num = 1});
    {
        Units units(MX_FRAME_VIDEO, MX_VIDEO_H264, MX_UNITS_LONG_START_CODES);
        ASSERT_EQ(MX_PutBytes(units.handle(), stream.data(), static_cast<uint32_t>(stream.size())), 0u);
        MXAccessUnit unit{};
        unit.size = sizeof unit;
        const test::FailingAllocations failing;
        EXPECT_EQ(MX_GetAccessUnit(units.handle(), &unit), 4u);
    }
    const test::FailingAllocations failing;
    EXPECT_EQ(MX_CreateAccessUnits(MX_FRAME_VIDEO, MX_VIDEO_H264, 0), nullptr);
    EXPECT_EQ(MX_CreateAccessUnits(MX_FRAME_AUDIO, MX_AUDIO_AAC, 0), nullptr);
}

TEST(Pieces, AnotherLayersHeaderIsNone) {
    // All of 96 bytes: 144 * 32000 / 48000 with Layers II and III, 144 * 16000 / 24000 with MPEG-2.
    const auto frame = [](const char* header) { return Bytes(header) + ByteVector(92, 0x11); };
    const ByteVector own = frame("FF FD 14 C0");
    for (const char* other : {"FF FB 14 C0", "FF F5 24 C0"})
        EXPECT_EQ(InPieces(MX_FRAME_AUDIO, MX_AUDIO_MPEG, frame(other) + own + own, 1000),
                  (std::vector<ByteVector>{own, own}))
            << other;
    for (const char* same : {"FF FC 14 C0", "FF FD 14 80"})  // a checksum; another mode
        EXPECT_EQ(InPieces(MX_FRAME_AUDIO, MX_AUDIO_MPEG, frame(same) + own + own, 1000),
                  (std::vector<ByteVector>{frame(same), own, own}))
            << same;
}

// The bytes behind a piece are none of the stream's.
TEST(Pieces, NothingIsLookedAtBehindAPiece) {
    const ByteVector frame = Bytes("FF F1 4C 80 02 9F FC") + ByteVector(13, 0x21);
    const ByteVector memory = Bytes("FF 00 00 00 00 00 00 00 00 00 00") + frame + frame + frame;
    Units units(MX_FRAME_AUDIO, MX_AUDIO_AAC);
    ASSERT_EQ(MX_PutBytes(units.handle(), memory.data(), 10), 0u);
    MXAccessUnit unit{};
    unit.size = sizeof unit;
    EXPECT_EQ(MX_GetAccessUnit(units.handle(), &unit), 16u);
    EXPECT_TRUE(units.End().empty());
}

// A NAL unit that comes by itself gets a start code unless it has one: what only begins like one is the unit.
TEST(Pieces, NalUnitsThatBeginLikeStartCodes) {
    const ByteVector slice = AvcSlice(Idr());
    const ByteVector bare = test::Slice(slice, 4, slice.size() - 4);
    for (const char* other : {"00", "00 00", "00 00 00", "00 05 06 07", "00 00 02 03", "00 00 00 02", "0C FF"}) {
        Units units(MX_FRAME_VIDEO, MX_VIDEO_H264_STREAM);
        EXPECT_TRUE(units.PutNal(bare).empty());
        EXPECT_TRUE(units.PutNal(Bytes(other)).empty()) << other;
        const std::vector<Given> given = units.End();
        ASSERT_EQ(given.size(), 1u) << other;
        EXPECT_EQ(test::Slice(given[0].bytes, 0, slice.size()), slice) << other;
        EXPECT_EQ(test::Slice(given[0].bytes, slice.size(), 4), kStartCode) << other;
    }
    for (const char* whole : {"00 00 01 0C FF", "00 00 00 01 0C FF"}) {
        Units units(MX_FRAME_VIDEO, MX_VIDEO_H264);
        EXPECT_TRUE(units.PutNal(bare).empty());
        EXPECT_TRUE(units.PutNal(Bytes(whole)).empty());
        const std::vector<Given> given = units.End();
        ASSERT_EQ(given.size(), 1u);
        EXPECT_EQ(given[0].bytes, slice + Bytes(whole));
    }
}

// Data partition A carries the slice header (ITU-T H.264 7.3.2.9.1); B and C go with it.
TEST(Pieces, DataPartitions) {
    const auto partitioned = [](uint32_t frame_num) {
        return AvcSlice({.header = 0x42, .frame_num = frame_num}) + kStartCode + Bytes("43 80 11") + kStartCode +
               Bytes("44 80 22");
    };
    const ByteVector first = AvcSps() + AvcPps() + AvcSlice(Idr());
    EXPECT_EQ(InPieces(MX_FRAME_VIDEO, MX_VIDEO_H264, first + partitioned(1) + partitioned(2), 1000),
              (std::vector<ByteVector>{first, partitioned(1), partitioned(2)}));
}

// The length of a frame is no sign of its stream, not even its highest bits.
TEST(Pieces, LongAndShortFramesOfSound) {
    const auto frame = [](uint32_t size) { return Adts(ByteVector(size - 7, 0x21)); };
    const std::vector<ByteVector> frames{frame(16), frame(2100), frame(4200), frame(8191), frame(16)};
    EXPECT_EQ(InPieces(MX_FRAME_AUDIO, MX_AUDIO_AAC, Joined(frames), 20000), frames);
}

// What is reserved is no slice, whatever its third byte says (ITU-T H.265 Table 7-1).
TEST(Pieces, ReservedTypesGoWithThePicture) {
    const auto unit = [](uint8_t type) {
        return kStartCode + ByteVector{static_cast<uint8_t>(type << 1), 1, 0xAF} + ByteVector(20, 0x5A);
    };
    std::vector<ByteVector> pictures;
    for (const uint32_t type : {10u, 15u, 22u, 23u, 24u, 31u})
        pictures.push_back(unit(1) + unit(static_cast<uint8_t>(type)));
    EXPECT_EQ(InPieces(MX_FRAME_VIDEO, MX_VIDEO_H265, Joined(pictures), 1000), pictures);
}

// Of the first unit, brought into form with long start codes.
void ExpectNoMemoryForTheSecondPart(const ByteVector& stream) {
    Units units(MX_FRAME_VIDEO, MX_VIDEO_H264, MX_UNITS_LONG_START_CODES);
    ASSERT_EQ(MX_PutBytes(units.handle(), stream.data(), static_cast<uint32_t>(stream.size())), 0u);
    MXAccessUnit unit{};
    unit.size = sizeof unit;
    const test::FailingAllocations failing(1);
    EXPECT_EQ(MX_GetAccessUnit(units.handle(), &unit), 4u);
}

TEST(Pieces, WithoutMemoryForTheRestOfALongUnit) {
    const ByteVector slice = AvcSlice(Idr()) + ByteVector(100000, 0x77);
    const ByteVector stream =
        AvcSps() + AvcPps() + test::Slice(slice, 1, slice.size() - 1) + AvcSlice({.frame_num = 1});
    ExpectNoMemoryForTheSecondPart(stream);
}

TEST(Pieces, WithoutMemoryWhatIsKeptIsGone) {
    const ByteVector picture = AvcSps() + AvcPps() + AvcSlice(Idr());
    const ByteVector bare = test::Slice(AvcSlice(Idr()), 4, AvcSlice(Idr()).size() - 4);
    const ByteVector more(100000, 0x77);
    Units units(MX_FRAME_VIDEO, MX_VIDEO_H264);
    MXAccessUnit unit{};
    unit.size = sizeof unit;
    {
        const test::FailingAllocations failing;
        EXPECT_EQ(MX_PutNal(units.handle(), bare.data(), static_cast<uint32_t>(bare.size())), 4u) << "the start code";
    }
    EXPECT_TRUE(units.Put(picture).empty());
    ASSERT_EQ(MX_PutBytes(units.handle(), more.data(), static_cast<uint32_t>(more.size())), 0u);
    {
        const test::FailingAllocations failing;
        EXPECT_EQ(MX_GetAccessUnit(units.handle(), &unit), 4u) << "behind what was kept";
    }
    EXPECT_EQ(units.All(picture).size(), 1u);
}

// A short start code whose longer form begins where the memory for the first part ends.
TEST(Pieces, WithoutMemoryForTheZeroThatIsMissing) {
    const ByteVector sets = AvcSps() + AvcPps();
    const ByteVector slice = AvcSlice(Idr());
    const ByteVector stream = sets + kStartCode + Bytes("0C") + ByteVector(70000, 0x77) +
                              test::Slice(slice, 1, slice.size() - 1) + AvcSlice({.frame_num = 1});
    ExpectNoMemoryForTheSecondPart(stream);
}

// The bit rate of MPEG audio is no sign of its stream: 144 * 48000 / 48000 bytes, then 144 * 32000 / 48000.
TEST(Pieces, MpegAudioOfAnyBitRateIsOneStream) {
    const std::vector<ByteVector> frames{Bytes("FF FD 24 C0") + ByteVector(140, 0x11),
                                         Bytes("FF FD 14 C0") + ByteVector(92, 0x11),
                                         Bytes("FF FD 24 C0") + ByteVector(140, 0x11)};
    EXPECT_EQ(InPieces(MX_FRAME_AUDIO, MX_AUDIO_MPEG, Joined(frames), 1000), frames);
}

TEST(Pieces, AnotherStreamBehindFramesInStep) {
    const ByteVector own = Adts(ByteVector(13, 0x21));
    ByteVector other = own;
    other[2] = 0x50;  // 44100 Hz
    EXPECT_EQ(InPieces(MX_FRAME_AUDIO, MX_AUDIO_AAC, own + own + other + other, 1000),
              (std::vector<ByteVector>{own, own, other, other}));
}

TEST(Pieces, OneFrameWithOtherBytesBehindItMayBeChance) {
    const ByteVector frame = Adts(ByteVector(13, 0x21));
    EXPECT_TRUE(InPieces(MX_FRAME_AUDIO, MX_AUDIO_AAC, frame + Bytes("01 02 03"), 1000).empty());
    EXPECT_TRUE(InPieces(MX_FRAME_AUDIO, MX_AUDIO_AAC, frame + ByteVector(10), 1000).empty());
}

// A picture whose primary slices were lost begins with a redundant one; several prefixes go with one slice; and a NAL
// unit without a byte goes with the picture before.
TEST(Pieces, OddUnitsOfH264) {
    const ByteVector redundant = AvcSps() + AvcPps(true) + AvcSlice({.header = 0x65, .type = 7, .redundant = 1});
    const ByteVector prefix = kStartCode + Bytes("6E 40 00 00");
    const std::vector<ByteVector> pictures{redundant, AvcSlice({.frame_num = 1, .redundant = 0}) + Bytes("00 00 01"),
                                           prefix + prefix + AvcSlice({.frame_num = 2, .redundant = 0})};
    EXPECT_EQ(InPieces(MX_FRAME_VIDEO, MX_VIDEO_H264, Joined(pictures), 1000), pictures);
}

TEST(Pieces, ShortUnitsOfH265) {
    const ByteVector slice = kStartCode + Bytes("02 01 AF") + ByteVector(40, 0x5A);
    Units units(MX_FRAME_VIDEO, MX_VIDEO_H265);
    EXPECT_TRUE(units.PutNal(slice).empty());
    EXPECT_TRUE(units.PutNal(Bytes("02")).empty()) << "half a header";
    EXPECT_TRUE(units.PutNal(Bytes("02 01")).empty()) << "a slice that does not say that it is the first one";
    EXPECT_EQ(units.End().size(), 1u);
    EXPECT_TRUE(units.All(kStartCode + Bytes("40 01 0C")).empty()) << "no picture";
}

// slice_type (ITU-T H.265 7.4.7.1): 0 is B, 1 is P, 2 is I.
TEST(Pieces, TheMostGeneralSliceOfH265IsTheKindOfThePicture) {
    // 1920 by 1080 in units of 64: 30 by 17 of them, so slice_segment_address has 9 bits.
    const auto slice = [](bool first, uint32_t type) {
        test::BitString bits;
        bits.Put(first ? 1 : 0, 1).Ue(0);
        if (!first) bits.Put(1, 9);
        return kStartCode + Bytes("02 01") + bits.Ue(type).Put(0x2A, 7).Bytes('1') + ByteVector(40, 0x5A);
    };
    const auto kind = [&](uint32_t first, uint32_t second) {
        const std::vector<Given> given =
            Units(MX_FRAME_VIDEO, MX_VIDEO_H265).All(test::HevcSets() + slice(true, first) + slice(false, second));
        EXPECT_EQ(given.size(), 1u);
        EXPECT_EQ(given.at(0).unit.field, MX_UNIT_FRAME) << "pic_struct is not stated";
        return given.at(0).unit.picture_kind;
    };
    EXPECT_EQ(kind(2, 2), MX_SUB_I);
    EXPECT_EQ(kind(2, 1), MX_SUB_P);
    EXPECT_EQ(kind(1, 2), MX_SUB_P);
    EXPECT_EQ(kind(0, 1), MX_SUB_B);
    EXPECT_EQ(kind(1, 0), MX_SUB_B);
}

}  // namespace
}  // namespace Orvane::Muxora
