// What the three other dialects of the program stream do differently.
#include <gtest/gtest.h>

#include "core/clock.h"
#include "mpeg2/gays_ps_packet.h"
#include "mpeg2/gd_ps_packet.h"
#include "mpeg2/ov_ps_packet.h"
#include "mpeg2/ps_packet.h"
#include "mpeg2/stds_ps_packet.h"
#include "support/frames.h"
#include "support/hex.h"
#include "support/ps_reader.h"
#include "support/sink.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::PsUnit;
using test::Sink;
using test::operator+;

const ByteVector kNal = test::Bytes("00 00 00 01 65 AA");

template <uint32_t kFormat>
class Dialect : public testing::Test {
  protected:
    uint32_t Give(const MXFrameInfo& frame) {
        MXFrameInfo copy = frame;
        return packet.inputFrame(&copy, 0);
    }
    uint32_t Video(ByteVector data, uint32_t sub_type, uint32_t timestamp, uint32_t codec = MX_VIDEO_H264) {
        return Give(test::VideoFrame(data, codec, sub_type, timestamp));
    }
    uint32_t Audio(ByteVector data, uint32_t codec, uint32_t samples_per_sec, uint32_t timestamp = 0) {
        MXFrameInfo frame = test::AudioFrame(data, codec, timestamp);
        frame.samples_per_sec = samples_per_sec;
        return Give(frame);
    }
    std::vector<PsUnit> Last() const { return test::ReadPs(sink.Last()); }
    ByteVector LastKinds() const {
        ByteVector kinds;
        for (const PsUnit& unit : Last())
            kinds.push_back(unit.id);
        return kinds;
    }
    ByteVector LastMap() const {
        for (const PsUnit& unit : Last()) {
            if (unit.id == test::kPsMap) return unit.bytes;
        }
        throw std::runtime_error("no map");
    }
    // The stream type that a codec's first frame gets; -1 when the frame is refused or fails.
    int StreamTypeOf(uint32_t frame_type, uint32_t codec, uint32_t samples_per_sec = 8000) {
        Sink other;
        const MXCreateParam other_param = other.Param();
        CPsPacket fresh(kFormat, &other_param);
        ByteVector data = kNal;
        MXFrameInfo frame = frame_type == 1 ? test::VideoFrame(data, codec, 0) : test::AudioFrame(data, codec);
        frame.samples_per_sec = samples_per_sec;
        if (fresh.inputFrame(&frame, 0) != 0) return -1;
        for (const PsUnit& unit : test::ReadPs(other.Last())) {
            if (unit.id == test::kPsMap) return unit.bytes.at(12);
        }
        return -2;
    }
    void ExpectCapacity(uint32_t type, const std::vector<uint32_t>& encode, const std::vector<uint32_t>& codec,
                        uint32_t rate = 0, uint32_t channels = 0) {
        const void* table = nullptr;
        uint32_t count = 0;
        const auto expect = [&](const std::vector<uint32_t>& numbers) {
            ASSERT_EQ(count, numbers.size());
            const auto* entries = static_cast<const MXCapacityEntry*>(table);
            for (size_t i = 0; i < numbers.size(); ++i) {
                EXPECT_EQ(entries[i].codec, numbers[i]);
                EXPECT_EQ(entries[i].samples_per_sec, rate);
                EXPECT_EQ(entries[i].bits_per_sample, 0u);
                EXPECT_EQ(entries[i].channels, channels);
            }
        };
        ASSERT_EQ(packet.getEncodeCapacity(type, &table, &count), 0u);
        expect(encode);
        ASSERT_EQ(packet.getCodecCapacity(type, &table, &count), 0u);
        expect(codec);
        EXPECT_EQ(packet.getEncodeCapacity(2, &table, &count), 3u);
        EXPECT_EQ(packet.getCodecCapacity(type, nullptr, &count), 3u);
    }

    ScopedClock clock{1503619200};
    Sink sink;
    MXCreateParam param = sink.Param();
    CPsPacket packet{kFormat, &param};
};

using StdsPs = Dialect<11>;
using OvPs = Dialect<17>;
using GaysPs = Dialect<18>;
using GdPs = Dialect<20>;

TEST_F(StdsPs, Capacity) {
    ExpectCapacity(0, {4, 1, 12, 9}, {2, 1, 5, 6});
    ExpectCapacity(1, {26, 31}, {33, 38});
}

// ---------------------------------------------------------------------------------- the dialect with descriptors

TEST_F(OvPs, StreamTypes) {
    struct Row {
        uint32_t codec;
        int stream_type;
    };
    for (const Row row : {Row{4, 0x1B}, Row{2, 0x1B}, Row{129, 0xB0}, Row{12, 0x24}, Row{1, 0x10}, Row{11, 0x80},
                          Row{3, 0xB1}, Row{9, 0x02}, Row{8, -1}, Row{35, -1}, Row{0, -1}})
        EXPECT_EQ(StreamTypeOf(1, row.codec), row.stream_type) << row.codec;
    for (const Row row : {Row{26, 0x0F}, Row{31, 0x04}, Row{14, -1}, Row{22, -1}, Row{25, -1}, Row{0, -1}})
        EXPECT_EQ(StreamTypeOf(2, row.codec), row.stream_type) << row.codec;
    ExpectCapacity(0, {4, 1, 12, 3, 9}, {2, 1, 5, 3, 6});
    ExpectCapacity(1, {26, 31}, {33, 38});
}

// A date word, low bits first: second 6, minute 6, hour 5, day 5, month 4, year minus 2000 6.
uint32_t DateWord(int64_t seconds) {
    const std::tm local = LocalTime(seconds);
    return static_cast<uint32_t>(local.tm_sec + local.tm_min * 64 + local.tm_hour * 4096 + local.tm_mday * 131072 +
                                 (local.tm_mon + 1) * 4194304) +
           static_cast<uint32_t>(local.tm_year - 100) * 67108864u;
}

// 20 bytes of descriptor.
struct Descriptor {
    explicit Descriptor(const ByteVector& bytes) : info(bytes) { test::Require(bytes.size() == 20, "20 bytes"); }
    uint32_t At(size_t offset, size_t count) const { return test::ReadBE(info, offset, count); }
    // Low byte first.
    uint32_t Date() const { return At(16, 1) | At(17, 1) << 8 | At(18, 1) << 16 | At(19, 1) << 24; }
    ByteVector info;
};

Descriptor VideoDescriptor(const ByteVector& map) {
    return Descriptor(test::ReadPsMap(map).at(0).info);
}

TEST_F(OvPs, FirstMapByteForByte) {
    ByteVector data = kNal;
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, 0, 1000);
    ASSERT_EQ(Give(frame), 0u);
    ByteVector map = LastMap();
    ASSERT_EQ(map.size(), 40u);
    const uint32_t date = DateWord(1503619201);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(map[32 + static_cast<size_t>(i)], static_cast<uint8_t>(date >> 8 * i));
    std::fill(map.begin() + 32, map.begin() + 36, uint8_t{0});
    EXPECT_EQ(map, Bytes("00 00 01 BC  00 22  E0 FF  00 00  00 18"
                         "1B E0 00 14  4F 56 45 53  00 01  00 02  12 34  12 34  00 FA  00 0A  00 00 00 00"
                         "00 00 00 00"));
}

TEST_F(OvPs, BothStreamsAre48BytesOfMap) {
    Video(kNal, 0, 1000);
    ASSERT_EQ(Audio({1, 2}, MX_AUDIO_AAC, 48000, 1000), 0u);
    const ByteVector map = LastMap();
    EXPECT_EQ(test::ReadBE(map, 10, 2), 48u);
    EXPECT_EQ(map.size(), 64u);
    const std::vector<test::PsMapEntry> entries = test::ReadPsMap(map);
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[1].stream_type, 0x0F);
    EXPECT_EQ(entries[1].stream_id, 0xC0);
    // AAC, 48000 + 0x1234, 16 + 0x1234, 2 + 0x1234.
    EXPECT_EQ(test::Slice(entries[1].info, 0, 16), Bytes("4F 56 45 53  00 01  00 1A  00 00 CD B4  12 44  12 36"));
    EXPECT_EQ(map[6], 0xE8);  // audio joined
}

TEST_F(OvPs, AudioFirst) {
    Audio({1, 2}, MX_AUDIO_MPEG, 44100);
    const std::vector<test::PsMapEntry> entries = test::ReadPsMap(LastMap());
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].stream_type, 0x04);
    const Descriptor audio(entries[0].info);
    EXPECT_EQ(audio.At(6, 2), 31u);
    EXPECT_EQ(audio.At(8, 4), 44100u + 0x1234);
    EXPECT_EQ(audio.Date(), DateWord(1503619200));
}

TEST_F(OvPs, DescribesTheSizeOfTheFrameBefore) {
    Video(kNal, 0, 1000);
    EXPECT_EQ(VideoDescriptor(LastMap()).At(8, 4), 0x12341234u);
    Video(kNal, 0, 1040);
    const Descriptor second = VideoDescriptor(LastMap());
    EXPECT_EQ(second.At(8, 2), 0x19B4u);
    EXPECT_EQ(second.At(10, 2), 0x166Cu);
    EXPECT_EQ(second.At(12, 2), 250u);
    EXPECT_EQ(second.At(14, 2), 10u);
    ByteVector data = kNal;
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, 0, 1080);
    frame.width = 640;
    frame.frame_rate = 0;
    Give(frame);
    const Descriptor third = VideoDescriptor(LastMap());
    EXPECT_EQ(third.At(8, 2), 0x19B4u);
    EXPECT_EQ(third.At(12, 2), 0u);  // the frame's own rate
    Give(frame);
    EXPECT_EQ(VideoDescriptor(LastMap()).At(8, 2), 640u + 0x1234);
}

TEST_F(OvPs, CodecCodes) {
    struct Row {
        uint32_t codec;
        uint32_t code;
    };
    for (const Row row :
         {Row{4, 8}, Row{2, 2}, Row{129, 2}, Row{12, 12}, Row{1, 1}, Row{11, 11}, Row{3, 5}, Row{9, 9}}) {
        ASSERT_EQ(Video(kNal, 0, 1000, row.codec), 0u);
        EXPECT_EQ(VideoDescriptor(LastMap()).At(6, 2), row.code) << row.codec;
    }
}

TEST_F(OvPs, DatesComeFromTheFrameOrFromTheStartTime) {
    struct Row {
        uint32_t utc_time;
        uint32_t timestamp;
        int64_t seconds;
    };
    for (const Row row : {Row{1600000000, 5000, 1600000000}, Row{0, 5999, 1503619205}, Row{0, 6000, 1503619206},
                          Row{0, 4294967295, 1503619200 + 4294967}}) {
        ByteVector data = kNal;
        MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, 0, row.timestamp);
        frame.utc_time = row.utc_time;
        Give(frame);
        EXPECT_EQ(VideoDescriptor(LastMap()).Date(), DateWord(row.seconds)) << row.seconds;
    }
}

TEST_F(OvPs, DatesWithoutTimesComeFromTheFrameCount) {
    for (uint32_t number = 0; number < 60; ++number) {
        Video(kNal, 0, 0);
        EXPECT_EQ(VideoDescriptor(LastMap()).Date(), DateWord(1503619200 + number / 25)) << number;
    }
    // Neither a time nor a rate: the start time.
    ByteVector data = kNal;
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, 0, 0);
    frame.frame_rate = 0;
    Give(frame);
    EXPECT_EQ(VideoDescriptor(LastMap()).Date(), DateWord(1503619200));
}

TEST_F(OvPs, OnlyVideoMovesTheDateOfAudio) {
    Video(kNal, 0, 7000);
    Audio({1}, MX_AUDIO_AAC, 48000, 90000);
    EXPECT_EQ(Descriptor(test::ReadPsMap(LastMap()).at(1).info).Date(), DateWord(1503619207));
}

TEST_F(OvPs, AClockAtZeroFallsBackToTheMachines) {
    clock.Set(0);
    Sink other;
    const MXCreateParam other_param = other.Param();
    CPsPacket fresh(17, &other_param);
    clock.Set(1700000000);
    ByteVector data = kNal;
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, 0, 0);
    fresh.inputFrame(&frame, 0);
    EXPECT_EQ(VideoDescriptor(test::ReadPs(other.Last())[2].bytes).Date(), DateWord(1700000000));
}

TEST_F(OvPs, PFramesBringTheMapOncePerSecond) {
    EXPECT_EQ(Video(kNal, 0, 1000), 0u);
    EXPECT_EQ(LastKinds(), Bytes("BA BB BC E0"));
    // The I frame does not count as sent, so the first P frame repeats the map.
    for (uint32_t time = 1040; time < 4000; time += 40) {
        Video(kNal, 1, time);
        const bool map = time == 1040 || time == 2000 || time == 3000;
        EXPECT_EQ(LastKinds(), map ? Bytes("BA BB BC E0") : Bytes("BA E0")) << time;
    }
    Video(kNal, 0, 4000);
    Video(kNal, 1, 4040);
    EXPECT_EQ(LastKinds(), Bytes("BA BB BC E0"));
}

TEST_F(OvPs, VersionCountsToFour) {
    uint32_t codec = MX_VIDEO_H264;
    for (const uint32_t expected : {0xE0u, 0xE8u, 0xF0u, 0xF8u, 0xE0u}) {
        Video(kNal, 0, 1000, codec);
        EXPECT_EQ(LastMap()[6], expected);
        codec = codec == MX_VIDEO_H264 ? MX_VIDEO_H265 : MX_VIDEO_H264;
    }
}

// ------------------------------------------------------------------------------------------------------------ GAYS

TEST_F(GaysPs, StreamTypes) {
    struct Row {
        uint32_t codec;
        int stream_type;
    };
    for (const Row row : {Row{4, 0x1B}, Row{2, 0x1B}, Row{1, 0x10}, Row{11, 0x80}, Row{12, -1}, Row{9, -1}, Row{8, -1},
                          Row{3, -1}, Row{129, -1}})
        EXPECT_EQ(StreamTypeOf(1, row.codec), row.stream_type) << row.codec;
    for (const Row row :
         {Row{14, 0x90}, Row{25, 0x93}, Row{8, 0x99}, Row{34, -1}, Row{22, -1}, Row{26, -1}, Row{31, -1}})
        EXPECT_EQ(StreamTypeOf(2, row.codec), row.stream_type) << row.codec;
    for (const uint32_t codec : {14u, 25u, 8u}) {
        EXPECT_EQ(StreamTypeOf(2, codec, 16000), -1) << codec;
        EXPECT_EQ(StreamTypeOf(2, codec, 0), -1) << codec;
    }
    ExpectCapacity(0, {4, 1, 12}, {2, 1, 5});
    ExpectCapacity(1, {14, 25, 8}, {28, 32, 22}, 8000, 1);
}

TEST_F(GaysPs, H265IsAcceptedAndFails) {
    ByteVector data = kNal;
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H265, 0);
    EXPECT_TRUE(packet.checkFrame(&frame));
    EXPECT_EQ(Give(frame), 5u);
    CGaysPsPacket dialect;
    CGrowBuffer out;
    EXPECT_EQ(dialect.packageVideo(&frame, &out), -1);
}

TEST_F(GaysPs, UsesTheBasesMap) {
    Video(kNal, 0, 1000);
    EXPECT_EQ(LastMap(), Bytes("00 00 01 BC  00 0E  E0 FF  00 00  00 04  1B E0 00 00  00 00 00 00"));
    Audio({1, 2}, MX_AUDIO_ALAW, 8000, 1000);
    EXPECT_EQ(LastMap(), Bytes("00 00 01 BC  00 12  E1 FF  00 00  00 08  1B E0 00 00  90 C0 00 00  00 00 00 00"));
    EXPECT_EQ(LastKinds(), Bytes("BA BC C0"));
}

TEST_F(GaysPs, VersionCountsTo32) {
    uint32_t codec = MX_VIDEO_H264;
    for (uint32_t number = 0; number < 70; ++number) {
        Video(kNal, 0, 1000, codec);
        EXPECT_EQ(LastMap()[6], 0xE0 | number % 32);
        codec = codec == MX_VIDEO_H264 ? MX_VIDEO_MPEG4 : MX_VIDEO_H264;
    }
}

// -------------------------------------------------------------------------------------------------------------- GD

TEST_F(GdPs, StreamTypes) {
    // Every video codec is announced as H.264.
    for (const uint32_t codec : {4u, 2u, 1u})
        EXPECT_EQ(StreamTypeOf(1, codec), 0x1B) << codec;
    for (const uint32_t codec : {12u, 9u, 11u, 8u, 3u, 129u})
        EXPECT_EQ(StreamTypeOf(1, codec), -1) << codec;
    for (const uint32_t codec : {14u, 22u})
        EXPECT_EQ(StreamTypeOf(2, codec), 0x1B) << codec;  // the map's first entry: video, also when there is none
    for (const uint32_t codec : {26u, 31u, 25u, 8u, 34u})
        EXPECT_EQ(StreamTypeOf(2, codec), -1) << codec;
    ExpectCapacity(0, {4, 1}, {2, 1});
    ExpectCapacity(1, {14, 22}, {28, 31});
}

TEST_F(GdPs, FirstIFrameByteForByte) {
    ASSERT_EQ(Video(kNal, 0, 123456), 0u);
    // PTS 3600, SCR 0; 90000 / 50 is 1800, 1920 / 8 is 240, 1080 / 8 is 135. The packet is 14 + 6 bytes, no padding.
    EXPECT_EQ(sink.Last(), Bytes("00 00 01 BA  44 00 04 00 04 01  00 60 1B  FA  FF FF"
                                 "00 00 01 BC  00 1E  E1 FF  00 00  00 18  1B E0 00 0C"
                                 "2A 0A  7F FF  00 00 07 08  1F FE  F0 87  90 C0  00 00 00 00 00 00"
                                 "00 00 01 E0  00 0E  80 80 05  21 00 01 1C 21"
                                 "00 00 00 01 65 AA"));
}

TEST_F(GdPs, PacketsAreAMultipleOfFour) {
    for (uint32_t size = 990; size < 1010; ++size) {
        ByteVector data(size, 0x33);
        std::copy(kNal.begin(), kNal.end(), data.begin());
        ASSERT_EQ(Video(data, 1 - (size == 990), 0), 0u);
        const PsUnit video = Last().back();
        EXPECT_EQ(video.bytes.size() % 4, 0u) << size;
        EXPECT_EQ(video.pes.padding, (4 - (size + 10) % 4) % 4) << size;
        EXPECT_EQ(video.pes.payload, data);
        EXPECT_FALSE(video.pes.dts.has_value());
        ASSERT_EQ(Audio(data, MX_AUDIO_ALAW, 8000), 0u);
        const PsUnit audio = Last().back();
        EXPECT_EQ(audio.bytes.size() % 4, 0u) << size;
        EXPECT_EQ(audio.pes.padding, (4 - (size + 14) % 4) % 4) << size;
        EXPECT_EQ(audio.pes.payload, data);
    }
}

TEST_F(GdPs, A1000ByteFirstPacketHasPaddingTwo) {
    ByteVector data(1000, 0x33);
    std::copy(kNal.begin(), kNal.end(), data.begin());
    Video(data, 0, 0);
    EXPECT_EQ(test::Slice(Last().back().bytes, 0, 17),
              Bytes("00 00 01 E0  03 F2  80 80 07  21 00 01 1C 21  FF FF  00"));  // 1010
}

TEST_F(GdPs, LaterPacketsOfAFrame) {
    // Units of 6, 5, 7 and 8 bytes; the later ones have headers of 9 bytes and their padding.
    ASSERT_EQ(Video(kNal + Bytes("00 00 00 01 41  00 00 00 01 41 42 43  00 00 00 01 41 42 43 44"), 0, 0), 0u);
    const std::vector<PsUnit> units = Last();
    ASSERT_EQ(units.size(), 6u);
    EXPECT_EQ(units[3].bytes, Bytes("00 00 01 E0  00 0A  80 00 02  FF FF  00 00 00 01 41"));
    EXPECT_EQ(units[4].bytes, Bytes("00 00 01 E0  00 0A  80 00 00  00 00 00 01 41 42 43"));
    EXPECT_EQ(units[5].bytes, Bytes("00 00 01 E0  00 0E  80 00 03  FF FF FF  00 00 00 01 41 42 43 44"));
}

TEST_F(GdPs, OnlyLongStartCodesCount) {
    EXPECT_EQ(Video(Bytes("00 00 01 65 11 22  00 00 01 65 33"), 0, 0), 5u);
    ASSERT_EQ(Video(Bytes("00 00 01 67 11  00 00 00 01 65 22 00 00 01 41"), 0, 0), 0u);
    const std::vector<PsUnit> units = Last();
    ASSERT_EQ(units.size(), 3u);
    EXPECT_EQ(units[2].pes.payload, Bytes("00 00 00 01 65 22 00 00 01 41"));
    // The search goes on four bytes behind a hit, and a code in the last four bytes counts.
    ASSERT_EQ(Video(Bytes("00 00 00 01 00 00 00 01"), 0, 0), 0u);
    EXPECT_EQ(Last().size(), 4u);
    ASSERT_EQ(Video(Bytes("00 00 00 01 00 00 01 00 00 00 01"), 0, 0), 0u);
    EXPECT_EQ(Last().size(), 4u);
    EXPECT_EQ(Last()[2].pes.payload, Bytes("00 00 00 01 00 00 01"));
    for (const char* data : {"00", "00 00 00", "00 00 01", "65 66 67 68"})
        EXPECT_EQ(Video(Bytes(data), 0, 0), 5u) << data;
    // MPEG-4 is one unit.
    EXPECT_EQ(Video({0x42}, 0, 0, MX_VIDEO_MPEG4), 0u);
}

TEST_F(GdPs, LongUnitsAreCutAsElsewhere) {
    ByteVector data(61441, 0x33);
    std::copy(kNal.begin(), kNal.end(), data.begin());
    ASSERT_EQ(Video(data, 0, 0), 0u);
    const std::vector<PsUnit> units = Last();
    ASSERT_EQ(units.size(), 4u);
    EXPECT_EQ(units[2].pes.payload.size(), 61440u);
    EXPECT_EQ(units[2].pes.length_field, 61440u + 8 + 2);
    EXPECT_EQ(units[3].bytes, Bytes("00 00 01 E0  00 06  80 00 02  FF FF  33"));
}

// The padding depends on the length of the piece, which is known only when the piece has been copied.
TEST_F(GdPs, ShortUnitsAheadOfOthersArePaddedByTheirOwnLength) {
    for (size_t first = 1; first <= 12; ++first) {
        for (size_t second = 1; second <= 8; ++second) {
            const ByteVector head = Bytes("00 00 00 01") + ByteVector(first, 0x41);
            const ByteVector rest = Bytes("00 00 00 01") + ByteVector(second, 0x42);
            ASSERT_EQ(Video(head + rest, 0, 0), 0u);
            const std::vector<PsUnit> units = Last();
            ASSERT_EQ(units.size(), 4u);
            EXPECT_EQ(units[2].pes.payload, head);
            EXPECT_EQ(units[3].pes.payload, rest);
            EXPECT_EQ(units[2].bytes.size() % 4, 0u);
            EXPECT_EQ(units[3].bytes.size() % 4, 0u);
            EXPECT_EQ(units[2].bytes.size(), units[2].pes.length_field + 6u);
            EXPECT_LE(units[2].bytes.size(), 14u + head.size() + 3);
            EXPECT_LE(units[3].bytes.size(), 9u + rest.size() + 3);
        }
    }
}

TEST_F(GdPs, ClocksStepEvenly) {
    struct Row {
        uint32_t timestamp;
        uint32_t rate;
        uint64_t pts;
        uint64_t scr;
    };
    for (const Row row : {Row{0, 25, 3600, 0}, Row{0, 25, 7200, 3600}, Row{99999, 25, 10800, 7200},
                          Row{5, 0, 14400, 10800}, Row{5, 30, 17400, 14400}, Row{5, 29, 20503, 17400}}) {
        ByteVector data = kNal;
        MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, 0, row.timestamp);
        frame.frame_rate = row.rate;
        ASSERT_EQ(Give(frame), 0u);
        EXPECT_EQ(Last().front().scr, row.scr);
        EXPECT_EQ(Last().back().pes.pts, row.pts);
    }
    for (uint32_t number = 1; number < 30; ++number) {
        ASSERT_EQ(Audio({1, 2}, MX_AUDIO_MULAW, 8000, number * 777), 0u);
        EXPECT_EQ(Last().front().scr, (number - 1) * 3240);
        EXPECT_EQ(Last().back().pes.pts, number * 3240);
        EXPECT_EQ(LastKinds(), number == 1 || number == 26 ? Bytes("BA BC C0") : Bytes("BA C0"));
    }
}

TEST_F(GdPs, MapFields) {
    ByteVector data = kNal;
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, 0);
    frame.width = 704;
    frame.height = 576;
    frame.frame_rate = 30;
    Give(frame);
    EXPECT_EQ(test::Slice(LastMap(), 20, 8), Bytes("00 00 05 DC  1F FE  58 48"));
    // An absurd rate neither wraps nor divides by zero.
    frame.frame_rate = 0x80000000;
    Give(frame);
    EXPECT_EQ(test::Slice(LastMap(), 20, 4), Bytes("00 00 00 00"));
    // 4096 / 8 does not fit a byte.
    frame.width = 4096;
    frame.height = 2160;
    Give(frame);
    EXPECT_EQ(test::Slice(LastMap(), 26, 2), Bytes("00 0E"));
    // No rate, no picture: audio alone.
    Sink other;
    const MXCreateParam other_param = other.Param();
    CPsPacket fresh(20, &other_param);
    MXFrameInfo audio = test::AudioFrame(data, MX_AUDIO_ALAW);
    ASSERT_EQ(fresh.inputFrame(&audio, 0), 0u);
    EXPECT_EQ(test::Slice(test::ReadPs(other.Last())[1].bytes, 12, 18),
              Bytes("1B E0 00 0C  2A 0A  7F FF  00 00 00 00  1F FE  00 00  90 C0"));
}

TEST_F(GdPs, VersionCountsTo32OneBitUp) {
    uint32_t codec = MX_VIDEO_H264;
    for (uint32_t number = 0; number < 40; ++number) {
        Video(kNal, 0, 0, codec);
        EXPECT_EQ(LastMap()[6], 0xE1 | (number % 32) << 1);
        codec = codec == MX_VIDEO_H264 ? MX_VIDEO_MPEG4 : MX_VIDEO_H264;
    }
}

TEST_F(GdPs, WithoutOutputNothingIsWritten) {
    CGDPsPacket dialect;
    ByteVector data = kNal;
    const MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, 0);
    EXPECT_EQ(dialect.writeStreamMap(&frame, nullptr), -1);
    EXPECT_EQ(dialect.writeVideoFrame(&frame, nullptr), -1);
    EXPECT_EQ(dialect.writeSystemHeader(&frame, nullptr), 0);
}

// --------------------------------------------------------------------------- types that only a direct call can bring

TEST(PsDialects, MapTypesThatTheirCheckRefuses) {
    ByteVector data = kNal;
    CGrowBuffer out;
    MXFrameInfo video = test::VideoFrame(data, MX_VIDEO_H264_STREAM, 0);
    MXFrameInfo audio = test::AudioFrame(data, MX_AUDIO_STREAM_TYPE_92);
    CStdsPsPacket stds;
    COvPsPacket ov;
    CGaysPsPacket gays;
    CGDPsPacket gd;
    for (CPSPackaging* dialect : std::initializer_list<CPSPackaging*>{&stds, &ov, &gays, &gd}) {
        out.Reset();
        EXPECT_FALSE(dialect->checkFrame(&video));
        EXPECT_GT(dialect->package(&video, &out), 0);
        audio.encode_type = MX_AUDIO_PCM16;
        EXPECT_EQ(dialect->packageAudio(&audio, &out), -1);
        video.encode_type = MX_VIDEO_OVX_CODEC_13;
        EXPECT_EQ(dialect->packageVideo(&video, &out), -1);
        video.encode_type = MX_VIDEO_H264_STREAM;
        EXPECT_EQ(dialect->package(nullptr, &out), -1);
        MXFrameInfo other = video;
        other.frame_type = MX_FRAME_PRIVATE;
        EXPECT_EQ(dialect->package(&other, &out), -1);
    }
    // The third number of H.264 has start codes as the others have.
    ByteVector plain{0x65, 1, 2, 3, 4};
    const MXFrameInfo undivided = test::VideoFrame(plain, MX_VIDEO_H264_STREAM, 0);
    EXPECT_EQ(stds.package(&undivided, &out), -1);
    audio.encode_type = MX_AUDIO_STREAM_TYPE_92;
    EXPECT_FALSE(gays.checkFrame(&audio));
    EXPECT_GT(gays.packageAudio(&audio, &out), 0);  // of any sample rate: 8000 Hz is asked of A-law alone
    audio.encode_type = MX_AUDIO_ALAW;
    EXPECT_EQ(gays.packageAudio(&audio, &out), -1);
    audio.samples_per_sec = 8000;
    EXPECT_GT(gays.packageAudio(&audio, &out), 0);
}

}  // namespace
}  // namespace Orvane::Muxora
