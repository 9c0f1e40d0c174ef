#include "ovx/ovx_packet.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <vector>

#include "core/clock.h"
#include "support/allocation_counter.h"
#include "support/frames.h"
#include "support/hex.h"
#include "support/sink.h"
#include "support/time_zone.h"
#include "unit_fields.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::Slice;
using test::UnitDate;
using test::UnitSequence;
using test::UnitTimestamp;

constexpr int64_t kNow = 1'000'000'000;      // 2001-09-09 01:46:40 UTC
constexpr uint32_t kNowWord = 0x06521BA8;    // the same, packed
constexpr uint32_t kHourLater = 0x06522BA8;  // 02:46:40
constexpr uint32_t kUtc = 1'709'164'801;     // 2024-02-29 00:00:01 UTC
constexpr uint32_t kUtcWord = 0x60BA0001;

class OvxPacket : public testing::Test {
  protected:
    MXFrameInfo Video(uint32_t sub_type = MX_SUB_I, uint32_t timestamp = 0) {
        return test::VideoFrame(data, MX_VIDEO_H264, sub_type, timestamp);
    }
    MXFrameInfo Audio(uint32_t timestamp = 0) { return test::AudioFrame(data, MX_AUDIO_AAC, timestamp); }
    // Gives a frame and returns the unit that came out.
    ByteVector Unit(MXFrameInfo frame) {
        const size_t before = sink.blocks.size();
        EXPECT_EQ(packet.inputFrame(&frame, 0), 0u);
        EXPECT_EQ(sink.blocks.size(), before + 1);
        return sink.blocks.size() == before ? ByteVector{} : sink.Last();
    }
    uint32_t Give(MXFrameInfo frame) { return packet.inputFrame(&frame, 0); }
    void Header(uint32_t self_timed, uint32_t resync_period) {
        MXHeaderInfo info{};
        info.self_timed = self_timed;
        info.resync_period = resync_period;
        EXPECT_EQ(packet.createHeader(&info, 0), 0u);
    }

    ByteVector data = test::Text("123456789");  // its CRC-32 is CBF43926
    test::ScopedTimeZone zone{"UTC0"};
    ScopedClock clock{kNow};
    test::Sink sink;
    MXCreateParam param = sink.Param();
    COvxPacket packet{MX_FORMAT_OVX, &param};
};

TEST_F(OvxPacket, AKeyFrameByteByByte) {
    MXFrameInfo frame = Video(MX_SUB_I, 70000);
    frame.encode_type = MX_VIDEO_H264_ALT;
    EXPECT_EQ(Unit(frame), Bytes("4F 52 56 58  FD 00 01 00  01 00 00 00  39 00 00 00  F2 1B 52 06  70 11 10 7D"
                                 "80 02 F0 87  81 00 08 19  88 26 39 F4 CB 00 00 02"
                                 "31 32 33 34 35 36 37 38 39"
                                 "6F 72 76 78  39 00 00 00"));
    ASSERT_EQ(sink.blocks.size(), 1u);
    EXPECT_EQ(sink.blocks[0].seek_type, 1u);
    EXPECT_EQ(sink.blocks[0].offset, 0);
    EXPECT_EQ(sink.blocks[0].offset32, 0u);
    EXPECT_EQ(data, test::Text("123456789"));
}

TEST_F(OvxPacket, AnAudioFrameByteByByte) {
    MXFrameInfo frame = Audio(0xABCDE);
    frame.utc_time = kUtc;
    EXPECT_EQ(Unit(frame), Bytes("4F 52 56 58  F0 00 01 00  01 00 00 00  35 00 00 00  01 00 BA 60  DE BC 0C 37"
                                 "83 02 1A 09  88 26 39 F4 CB 00 00 02"
                                 "31 32 33 34 35 36 37 38 39"
                                 "6F 72 76 78  35 00 00 00"));
}

TEST_F(OvxPacket, NothingOfALayeredPictureStaysInTheNextUnit) {
    EXPECT_EQ(Unit(Video(MX_SUB_LAYERED_KEY2))[5], 2);
    const ByteVector sound = Unit(Audio());
    EXPECT_EQ(sound[4], 240);
    EXPECT_EQ(sound[5], 0);
}

TEST_F(OvxPacket, APredictedFrameByteByByte) {
    Give(Video());
    EXPECT_EQ(Unit(Video(MX_SUB_P, 65536)),
              Bytes("4F 52 56 58  FC 00 01 00  02 00 00 00  31 00 00 00  ED 1B 52 06  00 00 08 E7"
                    "88 26 39 F4 CB 00 00 02"
                    "31 32 33 34 35 36 37 38 39"
                    "6F 72 76 78  31 00 00 00"));
}

TEST_F(OvxPacket, UnitsFollowEachOtherWithNothingAround) {
    Header(0, 0);
    EXPECT_TRUE(sink.blocks.empty());
    const ByteVector first = Unit(Video());
    const ByteVector second = Unit(Audio());
    EXPECT_EQ(packet.createTailer(nullptr, 0), 0u);
    EXPECT_EQ(packet.init(), 0u);
    EXPECT_EQ(packet.uninit(), 0u);
    using test::operator+;
    EXPECT_EQ(sink.file, first + second);
    EXPECT_EQ(packet.totalWritten(), first.size() + second.size());
}

TEST_F(OvxPacket, CountsWhatTheCallbackTook) {
    sink.accept = {10, -1};
    Unit(Video());
    const ByteVector second = Unit(Video());
    EXPECT_EQ(packet.totalWritten(), 10 + second.size());
}

TEST_F(OvxPacket, TheLastHeadByteSumsTheOthers) {
    for (uint32_t i = 1; i < 300; ++i) {
        const ByteVector unit = Unit(Video(i % 3 == 0 ? MX_SUB_P : MX_SUB_I, i * 977));
        EXPECT_EQ(unit[23], std::accumulate(unit.begin(), unit.begin() + 23, 0u) % 256);
    }
}

TEST_F(OvxPacket, DataCheckIsTheFramesCrc32) {
    for (size_t size = 1; size < 3000; size += 97) {
        data.resize(size);
        for (size_t i = 0; i < size; ++i)
            data[i] = static_cast<uint8_t>(i * i + size);
        const ByteVector unit = Unit(Video());
        EXPECT_EQ(test::LittleEndian(unit, 33, 4), test::BitwiseCrc32(data)) << size;
        EXPECT_EQ(Slice(unit, 40, size), data);
    }
}

TEST_F(OvxPacket, KindsOfFrames) {
    struct Row {
        uint32_t sub_type;
        uint8_t kind;
        uint8_t sub_kind;
    };
    constexpr Row kRows[] = {{0, 253, 0},  {1, 252, 0},  {2, 254, 0}, {3, 0, 0},  {8, 0, 0},         {18, 253, 1},
                             {19, 252, 1}, {20, 253, 2}, {4, 0, 0},   {21, 0, 0}, {0xFFFFFFFF, 0, 0}};
    for (const Row& row : kRows) {
        Give(Video());
        ByteVector unit = Unit(Video(row.sub_type));
        EXPECT_EQ(unit[4], row.kind) << row.sub_type;
        EXPECT_EQ(unit[5], row.sub_kind) << row.sub_type;
        MXFrameInfo frame = Video(row.sub_type);
        frame.encode_type = MX_VIDEO_MJPEG;
        unit = Unit(frame);
        EXPECT_EQ(unit[4], 251) << row.sub_type;
        EXPECT_EQ(unit[5], row.sub_kind) << row.sub_type;
    }
    MXFrameInfo audio = Audio();
    audio.frame_sub_type = 1;
    const ByteVector unit = Unit(audio);
    EXPECT_EQ(unit[4], 240);
    EXPECT_EQ(unit[5], 0);
}

TEST_F(OvxPacket, VideoWantsAKeyFrameFirst) {
    for (const uint32_t sub_type : {1u, 2u, 3u, 19u, 77u})
        EXPECT_EQ(Give(Video(sub_type)), 3u) << sub_type;
    EXPECT_TRUE(sink.blocks.empty());
    EXPECT_EQ(UnitSequence(Unit(Video())), 1u);  // the refused ones did not count
    for (const uint32_t sub_type : {0u, 8u, 18u, 20u}) {
        COvxPacket fresh(MX_FORMAT_OVX, &param);
        MXFrameInfo frame = Video(sub_type);
        EXPECT_EQ(fresh.inputFrame(&frame, 0), 0u) << sub_type;
    }
}

TEST_F(OvxPacket, AKeyFrameOfKindEightRefreshesThePicture) {
    MXFrameInfo frame = Video(MX_SUB_KEY);
    frame.width = 640;
    frame.height = 480;
    frame.frame_rate = 10;
    ByteVector unit = Unit(frame);
    EXPECT_EQ(unit[4], 0);
    EXPECT_EQ(unit[22], 8);  // the data check alone
    // A layered picture that follows states the size and rate of the key frame, not its own.
    unit = Unit(Video(MX_SUB_LAYERED_P));
    EXPECT_EQ(Slice(unit, 24, 8), Bytes("80 02 50 3C  81 00 02 0A"));
    EXPECT_EQ(UnitTimestamp(unit), 100u);
}

TEST_F(OvxPacket, APredictedJpegCarriesItsFormat) {
    MXFrameInfo frame = Video();
    frame.encode_type = MX_VIDEO_MJPEG;
    Give(frame);
    frame.frame_sub_type = MX_SUB_P;
    const ByteVector unit = Unit(frame);
    EXPECT_EQ(unit[4], 251);
    EXPECT_EQ(Slice(unit, 24, 8), Bytes("80 02 F0 87  81 00 05 19"));
    EXPECT_EQ(unit[22], 16);
}

TEST_F(OvxPacket, AFullExtensionBlockSaysZero) {
    Give(Video());
    const ByteVector blocks(15 * 16, 0xB7);
    MXFrameInfo frame = Video(MX_SUB_P, 1);
    frame.has_blocks = 1;
    frame.n_slice = 15;
    frame.m_slice = 1;
    frame.blocks = reinterpret_cast<const MXBlockInfo*>(blocks.data());
    const ByteVector unit = Unit(frame);
    ASSERT_EQ(unit.size(), 24u + 256 + 9 + 8);
    EXPECT_EQ(unit[22], 0);
    EXPECT_EQ(test::LittleEndian(unit, 12, 4), 297u);
    EXPECT_EQ(Slice(unit, 40, 240), blocks);
    EXPECT_EQ(Slice(unit, 280, 9), data);
    EXPECT_EQ(Slice(unit, 289, 8), Bytes("6F 72 76 78 29 01 00 00"));
}

// ------------------------------------------------------------------------------------------------ refused frames

TEST_F(OvxPacket, CheckFrame) {
    for (uint32_t codec = 0; codec < 300; ++codec) {
        const bool video = codec == 1 || codec == 2 || codec == 3 || codec == 4 || codec == 9 || codec == 11 ||
                           codec == 12 || codec == 35 || codec == 129;
        MXFrameInfo frame = Video();
        frame.encode_type = codec;
        EXPECT_EQ(packet.checkFrame(&frame), video) << codec;
        EXPECT_EQ(Give(frame), video ? 0u : 5u) << codec;
        frame = Audio();
        frame.encode_type = codec;
        EXPECT_EQ(packet.checkFrame(&frame), codec != 0) << codec;
        EXPECT_EQ(Give(frame), codec != 0 ? 0u : 5u) << codec;
    }
    for (const uint32_t type : {0u, 4u, 0xFFFFFFFFu}) {
        MXFrameInfo frame = Video();
        frame.frame_type = type;
        EXPECT_FALSE(packet.checkFrame(&frame));
        EXPECT_EQ(Give(frame), 5u);
    }
}

TEST_F(OvxPacket, TheCodecIsCheckedBeforeTheData) {
    MXFrameInfo frame = Video();
    frame.frame_size = 0;
    EXPECT_EQ(Give(frame), 3u);
    frame.encode_type = 77;
    EXPECT_EQ(Give(frame), 5u);
    frame = Video();
    frame.frame_pointer = nullptr;
    EXPECT_EQ(Give(frame), 3u);
    frame = Audio();
    frame.frame_size = 0;
    EXPECT_EQ(Give(frame), 3u);
    frame = Audio();
    frame.frame_pointer = nullptr;
    EXPECT_EQ(Give(frame), 3u);
    EXPECT_EQ(packet.inputFrame(nullptr, 0), 3u);
    EXPECT_TRUE(sink.blocks.empty());
    // None of them moved a counter.
    EXPECT_EQ(UnitSequence(Unit(Video())), 1u);
    EXPECT_EQ(UnitSequence(Unit(Audio())), 1u);
}

TEST_F(OvxPacket, PrivateDataIsAcceptedAndDropped) {
    MXFrameInfo frame = Video();
    frame.frame_type = MX_FRAME_PRIVATE;
    frame.encode_type = 0;
    EXPECT_TRUE(packet.checkFrame(&frame));
    EXPECT_EQ(Give(frame), 0u);
    frame.frame_pointer = nullptr;
    EXPECT_EQ(Give(frame), 0u);
    EXPECT_TRUE(sink.blocks.empty());
}

TEST_F(OvxPacket, CreateHeaderWantsItsRecord) {
    EXPECT_EQ(packet.createHeader(nullptr, 0), 6u);
}

// ---------------------------------------------------------------------------------------------- sequence and time

TEST_F(OvxPacket, SequencesCountByMedium) {
    EXPECT_EQ(UnitSequence(Unit(Video())), 1u);
    EXPECT_EQ(UnitSequence(Unit(Audio())), 1u);
    EXPECT_EQ(UnitSequence(Unit(Audio())), 2u);
    EXPECT_EQ(UnitSequence(Unit(Video(MX_SUB_P))), 2u);
}

TEST_F(OvxPacket, TheCallersSequenceIsTakenAndContinued) {
    MXFrameInfo frame = Video();
    frame.frame_seq = 1000;
    EXPECT_EQ(UnitSequence(Unit(frame)), 1000u);
    EXPECT_EQ(UnitSequence(Unit(Video(MX_SUB_P))), 1001u);
    frame = Audio();
    frame.frame_seq = 500;
    EXPECT_EQ(UnitSequence(Unit(frame)), 500u);
    EXPECT_EQ(UnitSequence(Unit(Audio())), 501u);
    frame = Video();
    frame.frame_seq = 0xFFFFFFFF;
    EXPECT_EQ(UnitSequence(Unit(frame)), 0xFFFFFFFFu);
    EXPECT_EQ(UnitSequence(Unit(Video())), 0u);
}

TEST_F(OvxPacket, TimestampsAreDerivedFromTheCounter) {
    EXPECT_EQ(UnitTimestamp(Unit(Video())), 0u);
    const auto at = [&](uint32_t count) {
        MXFrameInfo frame = Video(MX_SUB_P);
        frame.frame_seq = count;
        return UnitTimestamp(Unit(frame));
    };
    EXPECT_EQ(at(26), 1000u);
    EXPECT_EQ(at(1639), 65520u);
    EXPECT_EQ(at(1640), 24u);
    EXPECT_EQ(UnitTimestamp(Unit(Video(MX_SUB_P))), 64u);
    // 32-bit arithmetic: 4294968 frames later the product is 4294967000 + 1000, which wraps to 704.
    EXPECT_EQ(at(4294969), 704u / 25);
}

TEST_F(OvxPacket, GivenTimestampsKeepTheirLow16Bits) {
    EXPECT_EQ(UnitTimestamp(Unit(Video(MX_SUB_I, 70000))), 4464u);
    EXPECT_EQ(UnitTimestamp(Unit(Video(MX_SUB_I, 65535))), 65535u);
    EXPECT_EQ(UnitTimestamp(Unit(Audio(70001))), 4465u);
}

TEST_F(OvxPacket, WithoutARateTheTimestampStaysZero) {
    MXFrameInfo frame = Video();
    frame.frame_rate = 0;
    Give(frame);
    const ByteVector unit = Unit(frame);
    EXPECT_EQ(UnitTimestamp(unit), 0u);
    EXPECT_EQ(UnitDate(unit), kNowWord);
}

TEST_F(OvxPacket, AudioWithoutATimestampTakesTheLastDerivedOne) {
    EXPECT_EQ(UnitTimestamp(Unit(Audio())), 0u);
    Give(Video());
    Give(Video(MX_SUB_P));
    EXPECT_EQ(UnitTimestamp(Unit(Audio())), 40u);
    // A given time of the video is not passed on.
    Give(Video(MX_SUB_P, 5000));
    EXPECT_EQ(UnitTimestamp(Unit(Audio())), 40u);
    EXPECT_EQ(UnitTimestamp(Unit(Audio(7))), 7u);
}

TEST_F(OvxPacket, UtcTimeGivesTheDateAndTheCounterTheTimestamp) {
    Give(Video());
    MXFrameInfo frame = Video(MX_SUB_P);
    frame.utc_time = kUtc;
    const ByteVector unit = Unit(frame);
    EXPECT_EQ(UnitDate(unit), kUtcWord);
    EXPECT_EQ(UnitTimestamp(unit), 40u);
    // It is not kept: the next frame without one goes by the clock.
    EXPECT_EQ(UnitDate(Unit(Audio())), kNowWord);
}

TEST_F(OvxPacket, AudioBeforeVideoIsDatedByTheConstruction) {
    clock.Set(kNow + 3600);
    EXPECT_EQ(UnitDate(Unit(Audio(5000))), kNowWord);
    MXFrameInfo frame = Audio();
    frame.utc_time = kUtc;
    EXPECT_EQ(UnitDate(Unit(frame)), kUtcWord);
}

TEST_F(OvxPacket, TimestampsCountFromTheConstruction) {
    clock.Set(kNow + 3600);
    EXPECT_EQ(UnitDate(Unit(Video(MX_SUB_I, 3'600'999))), kHourLater);
    // Audio takes the date that the video left.
    EXPECT_EQ(UnitDate(Unit(Audio(1))), kHourLater);
}

TEST_F(OvxPacket, WithoutTimestampsFramesAreCounted) {
    EXPECT_EQ(UnitDate(Unit(Video())), kNowWord);  // (1 - 1 + 1) / 25
    MXFrameInfo frame = Video(MX_SUB_P);
    frame.frame_seq = 24;
    EXPECT_EQ(UnitDate(Unit(frame)), kNowWord);
    // The first given number after the start moved the base to 24, so second by second from there.
    frame.frame_seq = 47;
    EXPECT_EQ(UnitDate(Unit(frame)), kNowWord);
    EXPECT_EQ(UnitDate(Unit(Video(MX_SUB_P))), kNowWord + 1);
    EXPECT_EQ(UnitDate(Unit(Audio())), kNowWord + 1);
}

TEST_F(OvxPacket, ANumberBehindTheBaseWrapsAt32Bits) {
    MXFrameInfo frame = Video();
    frame.frame_seq = 1000;
    Give(frame);
    frame.frame_seq = 500;  // (500 - 1000 + 1) mod 2^32 / 25 = 171798671 seconds
    EXPECT_EQ(UnitDate(Unit(frame)), PackDateWord(kNow + 171'798'671));
}

TEST_F(OvxPacket, SelfTimedIgnoresUtcTimeAndTimestamps) {
    Header(1, 0);
    Header(0, 0);  // never cleared
    MXFrameInfo frame = Video(MX_SUB_I, 3'600'000);
    frame.utc_time = kUtc;
    const ByteVector unit = Unit(frame);
    EXPECT_EQ(UnitDate(unit), kNowWord);
    EXPECT_EQ(UnitTimestamp(unit), 3'600'000u % 65536);
    frame = Audio(9);
    frame.utc_time = kUtc;
    EXPECT_EQ(UnitDate(Unit(frame)), kNowWord);
}

TEST_F(OvxPacket, TheClockIsReadAgainAfterEachPeriod) {
    Header(0, 10);
    Header(0, 0);  // never cleared
    clock.Set(kNow + 3600);
    for (uint32_t count = 1; count < 250; ++count)
        ASSERT_EQ(UnitDate(Unit(Video())), PackDateWord(kNow + count / 25)) << count;
    EXPECT_EQ(UnitDate(Unit(Video())), kHourLater);
    // Counted from the 250th frame on.
    for (uint32_t count = 251; count < 500; ++count)
        ASSERT_EQ(UnitDate(Unit(Video())), PackDateWord(kNow + 3600 + (count - 249) / 25)) << count;
    clock.Set(kNow + 7200);
    EXPECT_EQ(UnitDate(Unit(Video())), PackDateWord(kNow + 7200));
}

TEST_F(OvxPacket, APeriodThatWrapsToNoFramesNeverComes) {
    Header(0, 0x10000);
    MXFrameInfo frame = Video();
    frame.frame_rate = 0x10000;  // times the period: 0 in 32 bits
    clock.Set(kNow + 3600);
    EXPECT_EQ(UnitDate(Unit(frame)), kNowWord);
}

TEST_F(OvxPacket, ATimeOfZeroIsNow) {
    clock.Set(0);
    COvxPacket at_epoch(MX_FORMAT_OVX, &param);
    clock.Set(kNow);
    MXFrameInfo frame = Audio();
    EXPECT_EQ(at_epoch.inputFrame(&frame, 0), 0u);
    EXPECT_EQ(UnitDate(sink.Last()), kNowWord);
}

// ---------------------------------------------------------------------------------------- into the caller's packet

TEST_F(OvxPacket, InputFrameExFillsThePacketAndCallsBack) {
    Basalt::CPacket into(57);
    MXFrameInfo frame = Video();
    EXPECT_EQ(packet.inputFrameEx(&frame, into), 0u);
    ASSERT_EQ(sink.blocks.size(), 1u);
    ASSERT_EQ(into.size(), 57u);
    EXPECT_EQ(ByteVector(into.getBuffer(), into.getBuffer() + 57), sink.Last());
    COvxPacket other(MX_FORMAT_OVX, &param);
    EXPECT_EQ(other.inputFrame(&frame, 0), 0u);
    EXPECT_EQ(sink.blocks[1].data, sink.blocks[0].data);
}

TEST_F(OvxPacket, BothWaysMix) {
    Basalt::CPacket into(1000);
    Give(Video());
    MXFrameInfo frame = Video(MX_SUB_P);
    EXPECT_EQ(packet.inputFrameEx(&frame, into), 0u);
    EXPECT_EQ(UnitSequence(sink.Last()), 2u);
    EXPECT_EQ(UnitSequence(Unit(Video(MX_SUB_P))), 3u);
}

TEST_F(OvxPacket, APacketThatIsTooSmallIsLeftAlone) {
    Basalt::CPacket into(56);
    ASSERT_TRUE(into.resize(56));
    std::fill_n(into.getBuffer(), 56, uint8_t{0xCC});
    MXFrameInfo frame = Video();
    EXPECT_EQ(packet.inputFrameEx(&frame, into), 3u);
    EXPECT_EQ(ByteVector(into.getBuffer(), into.getBuffer() + 56), ByteVector(56, 0xCC));
    EXPECT_EQ(into.size(), 0u);
    EXPECT_TRUE(sink.blocks.empty());
    EXPECT_EQ(Give(Video(MX_SUB_P)), 3u);  // still no key frame
    Basalt::CPacket none;
    EXPECT_EQ(packet.inputFrameEx(&frame, none), 3u);
    frame = Audio();
    EXPECT_EQ(packet.inputFrameEx(&frame, none), 3u);
    EXPECT_EQ(UnitSequence(Unit(Video())), 1u);
    EXPECT_EQ(UnitSequence(Unit(Audio())), 1u);
}

TEST_F(OvxPacket, AFrameOfLessThanAPacketCanHoldInNumbers) {
    Basalt::CPacket into(100);
    MXFrameInfo frame = Video();
    frame.frame_size = 0xFFFFFFFF;  // plus head and tail: 2^32 and more
    EXPECT_EQ(packet.inputFrameEx(&frame, into), 3u);
    EXPECT_EQ(into.size(), 0u);
}

TEST_F(OvxPacket, AFailureEmptiesThePacketButARefusalDoesNot) {
    Basalt::CPacket into(100);
    into.resize(77);
    MXFrameInfo frame = Video();
    frame.encode_type = 77;
    EXPECT_EQ(packet.inputFrameEx(&frame, into), 5u);
    EXPECT_EQ(packet.inputFrameEx(nullptr, into), 3u);
    EXPECT_EQ(into.size(), 77u);
    frame = Video(MX_SUB_P);
    EXPECT_EQ(packet.inputFrameEx(&frame, into), 3u);
    EXPECT_EQ(into.size(), 0u);
    into.resize(77);
    frame.frame_type = MX_FRAME_PRIVATE;
    EXPECT_EQ(packet.inputFrameEx(&frame, into), 0u);
    EXPECT_EQ(into.size(), 0u);
}

// ---------------------------------------------------------------------------------------------------------- memory

TEST_F(OvxPacket, AWarmStreamDoesNotAllocate) {
    MXCreateParam quiet{};
    COvxPacket steady(MX_FORMAT_OVX, &quiet);
    data.resize(200000);
    const auto give = [&](uint32_t i) {
        MXFrameInfo frame = Video(i % 25 == 0 ? MX_SUB_I : MX_SUB_P, i * 40);
        frame.frame_size = i % 25 == 0 ? 200000 : 33000 + i % 7;
        ASSERT_EQ(steady.inputFrame(&frame, 0), 0u);
        frame = Audio(i * 40);
        frame.frame_size = 341;
        ASSERT_EQ(steady.inputFrame(&frame, 0), 0u);
    };
    for (uint32_t i = 0; i < 25; ++i)
        give(i);
    const test::AllocationCounter allocations;
    for (uint32_t i = 25; i < 500; ++i)
        give(i);
    EXPECT_EQ(allocations.Count(), 0u);
}

TEST_F(OvxPacket, AUnitWithoutMemoryIsLostAndTheStreamGoesOn) {
    const ByteVector first = Unit(Video());
    data.resize(100000);
    MXFrameInfo large = Video(MX_SUB_P);
    {
        const test::FailingAllocations none;
        EXPECT_EQ(packet.inputFrame(&large, 0), 0u);
    }
    EXPECT_EQ(sink.blocks.size(), 1u);
    EXPECT_EQ(packet.totalWritten(), first.size());
    EXPECT_EQ(UnitSequence(Unit(large)), 3u);
    // More than a buffer can hold, by its capacity and by its length field.
    for (const uint32_t size : {0x7FFFFFF0u, 0xFFFFFF00u, 0xFFFFFFFFu}) {
        large.frame_size = size;
        EXPECT_EQ(packet.inputFrame(&large, 0), 0u);
    }
    EXPECT_EQ(sink.blocks.size(), 2u);
    EXPECT_EQ(UnitSequence(Unit(Video())), 7u);
}

// -------------------------------------------------------------------------------------------------------- capacity

TEST_F(OvxPacket, Capacity) {
    const auto codecs = [&](bool encode, uint32_t type) {
        const void* table = nullptr;
        uint32_t count = 0;
        EXPECT_EQ(
            encode ? packet.getEncodeCapacity(type, &table, &count) : packet.getCodecCapacity(type, &table, &count),
            0u);
        std::vector<uint32_t> out;
        for (uint32_t i = 0; i < count; ++i) {
            const MXCapacityEntry& entry = static_cast<const MXCapacityEntry*>(table)[i];
            EXPECT_EQ(entry.samples_per_sec | entry.bits_per_sample | entry.channels, 0u);
            out.push_back(entry.codec);
        }
        return out;
    };
    EXPECT_EQ(codecs(true, 0), (std::vector<uint32_t>{4, 1, 12, 3, 9, 35}));
    EXPECT_EQ(codecs(false, 0), (std::vector<uint32_t>{2, 1, 5, 3, 6, 7}));
    EXPECT_EQ(codecs(true, 1), (std::vector<uint32_t>{14, 22, 26, 31, 7}));
    EXPECT_EQ(codecs(false, 1), (std::vector<uint32_t>{28, 31, 33, 38, 21}));
    const void* table = nullptr;
    uint32_t count = 0;
    EXPECT_EQ(packet.getEncodeCapacity(2, &table, &count), 3u);
    EXPECT_EQ(packet.getCodecCapacity(2, &table, &count), 3u);
}

TEST_F(OvxPacket, HasNoBackup) {
    MXOutputBlock block{};
    block.length = 5;
    EXPECT_EQ(packet.getBackup(&block), 0u);
    EXPECT_EQ(block.length, 0u);
}

TEST_F(OvxPacket, BothNumbersGiveTheSameBytes) {
    COvxPacket other(MX_FORMAT_OVX_ALT, &param);
    EXPECT_EQ(other.format(), 19u);
    MXFrameInfo frame = Video();
    const ByteVector unit = Unit(frame);
    EXPECT_EQ(other.inputFrame(&frame, 0), 0u);
    EXPECT_EQ(sink.Last(), unit);
}

}  // namespace
}  // namespace Orvane::Muxora
