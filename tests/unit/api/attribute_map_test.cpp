#include "api/attribute_map.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <string>

#include "MuxoraExt.h"
#include "support/allocation_counter.h"
#include "support/time_zone.h"

namespace Orvane::Muxora {
namespace {

// The record's pointers may stand at odd places: they are compared by value, never bound to a reference.
MXFrameInfo Converted(const AttributeMap& attributes, CFrameAttributes& converter) {
    MXFrameInfo frame{};
    converter.Fill(attributes, frame);
    return frame;
}

// Not for blocks, which last no longer than the converter.
MXFrameInfo Converted(const AttributeMap& attributes) {
    CFrameAttributes converter;
    return Converted(attributes, converter);
}

AttributeMap Video() {
    return {{"frametype", 86}, {"framesubtype", 1}, {"encodetype", 2}};
}

AttributeMap Audio() {
    return {{"frametype", 65}, {"framesubtype", 0}, {"encodetype", 33}};
}

TEST(AttributeMap, AnEmptyMapGetsTheThreeKeys) {
    AttributeMap attributes;
    const MXFrameInfo frame = Converted(attributes);
    EXPECT_EQ(frame.size, 264u);
    EXPECT_EQ(frame.frame_type, 0u);
    EXPECT_EQ(frame.frame_sub_type, 21u);
    EXPECT_EQ(frame.encode_type, 0u);
    EXPECT_EQ(attributes, (AttributeMap{{"frametype", 0}, {"framesubtype", 0}, {"encodetype", 0}}));
}

TEST(AttributeMap, OnlyMissingKeysAreEntered) {
    AttributeMap attributes = {{"frametype", 65}, {"width", 5}};
    Converted(attributes);
    EXPECT_EQ(attributes, (AttributeMap{{"frametype", 65}, {"framesubtype", 0}, {"encodetype", 0}, {"width", 5}}));
}

TEST(AttributeMap, WithoutMemoryNothingIsEntered) {
    AttributeMap attributes;
    CFrameAttributes converter;
    MXFrameInfo frame{};
    {
        const test::FailingAllocations failing;
        converter.Fill(attributes, frame);
    }
    EXPECT_EQ(frame.frame_sub_type, 21u);
    EXPECT_TRUE(attributes.empty());
}

TEST(AttributeMap, FrameTypes) {
    const std::map<long long, uint32_t> types = {{86, 1}, {65, 2}, {88, 3}, {0, 0}, {1, 0}, {87, 0}, {-1, 0}};
    for (const auto& [given, type] : types)
        EXPECT_EQ(Converted({{"frametype", given}}).frame_type, type) << given;
}

TEST(AttributeMap, SubTypes) {
    const std::map<long long, uint32_t> types = {{1, 0},  {2, 1},  {3, 2},  {9, 8},   {25, 18}, {26, 19}, {27, 20},
                                                 {0, 21}, {4, 21}, {8, 21}, {10, 21}, {24, 21}, {28, 21}, {-1, 21}};
    for (const auto& [given, type] : types)
        EXPECT_EQ(Converted({{"framesubtype", given}}).frame_sub_type, type) << given;
}

TEST(AttributeMap, Codecs) {
    const std::map<long long, uint32_t> known = {{1, 1},   {2, 2},   {3, 3},   {4, 11},   {25, 11}, {5, 12},  {26, 12},
                                                 {6, 9},   {23, 9},  {7, 35},  {13, 129}, {21, 7},  {22, 8},  {24, 10},
                                                 {27, 13}, {28, 14}, {29, 15}, {30, 16},  {31, 22}, {33, 26}, {34, 27},
                                                 {35, 28}, {36, 29}, {37, 30}, {38, 31},  {39, 32}, {40, 33}, {41, 34}};
    for (long long codec = -2; codec < 300; ++codec) {
        const auto entry = known.find(codec);
        EXPECT_EQ(Converted({{"encodetype", codec}}).encode_type, entry != known.end() ? entry->second : 0u) << codec;
    }
    EXPECT_EQ(Converted({{"encodetype", 32}}).encode_type, 0u);
}

TEST(AttributeMap, VideoKeys) {
    AttributeMap attributes = Video();
    attributes.insert({{"timestamp", 40},
                       {"width", 1920},
                       {"height", 1080},
                       {"rate", 25},
                       {"deinterlace", 1},
                       {"rotationangle", 90},
                       {"samplespersec", 48000},
                       {"bitspersample", 16},
                       {"channels", 2},
                       {"bitrate", 64000},
                       {"unknown", 1},
                       {"zzz", 2},
                       {"", 3}});
    const MXFrameInfo frame = Converted(attributes);
    EXPECT_EQ(frame.frame_type, 1u);
    EXPECT_EQ(frame.frame_sub_type, 0u);
    EXPECT_EQ(frame.encode_type, 2u);
    EXPECT_EQ(frame.timestamp, 40u);
    EXPECT_EQ(frame.width, 1920u);
    EXPECT_EQ(frame.height, 1080u);
    EXPECT_EQ(frame.frame_rate, 25u);
    EXPECT_EQ(frame.deinterlace, 1u);
    EXPECT_EQ(frame.rotation_angle, 90u);
    EXPECT_EQ(frame.samples_per_sec, 0u);
    EXPECT_EQ(frame.bits_per_sample, 0u);
    EXPECT_EQ(frame.channels, 0u);
    EXPECT_EQ(frame.bitrate, 0u);
}

TEST(AttributeMap, AudioKeys) {
    AttributeMap attributes = Audio();
    attributes.insert({{"samplespersec", 48000},
                       {"bitspersample", 16},
                       {"channels", 2},
                       {"bitrate", 64000},
                       {"width", 1920},
                       {"height", 1080},
                       {"rate", 25},
                       {"deinterlace", 1},
                       {"matotalchannels", 4},
                       {"macurchannel", 3},
                       {"rotationangle", 180}});
    const MXFrameInfo frame = Converted(attributes);
    EXPECT_EQ(frame.frame_type, 2u);
    EXPECT_EQ(frame.encode_type, 26u);
    EXPECT_EQ(frame.samples_per_sec, 48000u);
    EXPECT_EQ(frame.bits_per_sample, 16u);
    EXPECT_EQ(frame.channels, 2u);
    EXPECT_EQ(frame.bitrate, 64000u);
    EXPECT_EQ(frame.ma_total_channels, 4);
    EXPECT_EQ(frame.ma_cur_channel, 3);
    EXPECT_EQ(frame.rotation_angle, 180u);
    EXPECT_EQ(frame.width, 0u);
    EXPECT_EQ(frame.height, 0u);
    EXPECT_EQ(frame.frame_rate, 0u);
    EXPECT_EQ(frame.deinterlace, 0u);
}

TEST(AttributeMap, PrivateFramesTakeNeither) {
    const MXFrameInfo frame = Converted({{"frametype", 88}, {"width", 7}, {"channels", 2}});
    EXPECT_EQ(frame.frame_type, 3u);
    EXPECT_EQ(frame.width, 0u);
    EXPECT_EQ(frame.channels, 0u);
}

TEST(AttributeMap, ValuesAreCutToTheirWidth) {
    AttributeMap attributes = Video();
    attributes.insert({{"tpcompanytype", 0x1FFFF},
                       {"tpstreamheaderlen", 0x12345},
                       {"timestamp", 0x123456789},
                       {"width", -1},
                       {"matotalchannels", 0x104},
                       {"macurchannel", 0x1FF}});
    attributes["frametype"] = 0x100000000 + 86;
    const MXFrameInfo frame = Converted(attributes);
    EXPECT_EQ(frame.tp_company_type, 0xFFFF);
    EXPECT_EQ(frame.tp_stream_header_len, 0x2345);
    EXPECT_EQ(frame.timestamp, 0x23456789u);
    EXPECT_EQ(frame.width, 0xFFFFFFFFu);
    EXPECT_EQ(frame.ma_total_channels, 4);
    EXPECT_EQ(frame.ma_cur_channel, 255);
    EXPECT_EQ(frame.frame_type, 1u);
}

TEST(AttributeMap, WhatHasNoKeyStaysZero) {
    AttributeMap attributes = Video();
    attributes.insert({{"encrypt_offset", 1},
                       {"encrypt_length", 16},
                       {"frame_seq", 9},
                       {"ps_clock_rebase", 1},
                       {"svc_head_0", 1},
                       {"svc_head_1", 1}});
    const MXFrameInfo frame = Converted(attributes);
    EXPECT_EQ(frame.encrypt_offset, 0);
    EXPECT_EQ(frame.encrypt_length, 0u);
    EXPECT_EQ(frame.frame_seq, 0u);
    EXPECT_EQ(frame.ps_clock_rebase, 0u);
    EXPECT_EQ(frame.svc_head_0, 0);
    EXPECT_EQ(frame.svc_head_1, 0);
    EXPECT_TRUE(frame.frame_pointer == nullptr);
    EXPECT_EQ(frame.frame_size, 0u);
}

TEST(AttributeMapDate, LocalMidnight) {
    const test::ScopedTimeZone zone("EST5");
    // 2017-08-25 00:00 five hours west of Greenwich is 05:00 UTC.
    EXPECT_EQ(Converted({{"year", 2017}, {"month", 8}, {"day", 25}}).utc_time, 1503637200u);
    EXPECT_EQ(
        Converted({{"year", 2017}, {"month", 8}, {"day", 25}, {"hour", 1}, {"minute", 2}, {"second", 3}}).utc_time,
        1503637200u + 3723);
}

TEST(AttributeMapDate, DaylightSavingCountsAsOff) {
    const test::ScopedTimeZone zone("EST5EDT,M3.2.0,M11.1.0");
    // Clocks show EDT on that day; the numbers are taken as EST.
    EXPECT_EQ(Converted({{"year", 2017}, {"month", 8}, {"day", 25}}).utc_time, 1503637200u);
}

TEST(AttributeMapDate, WithoutAYearThereIsNone) {
    EXPECT_EQ(Converted({{"month", 8}}).utc_time, 0u);
    EXPECT_EQ(Converted({{"year", 0}, {"month", 8}, {"day", 25}, {"hour", 1}}).utc_time, 0u);
}

TEST(AttributeMapDate, OutOfRangeValuesAreNormalised) {
    const test::ScopedTimeZone zone("UTC0");
    // The 32nd of month 13 of 2016 is 2017-02-01; 25:61:61 is 02:02:01 of the day after.
    EXPECT_EQ(Converted({{"year", 2016}, {"month", 13}, {"day", 32}}).utc_time, 1485907200u);
    EXPECT_EQ(
        Converted({{"year", 2017}, {"month", 2}, {"day", 1}, {"hour", 25}, {"minute", 61}, {"second", 61}}).utc_time,
        1485907200u + 86400 + 2 * 3600 + 2 * 60 + 1);
    // A missing month is December of the year before, a missing day its last but one month's end: 2016-11-30.
    EXPECT_EQ(Converted({{"year", 2017}}).utc_time, 1480464000u);
}

TEST(AttributeMapDate, AbsurdNumbersAreSafe) {
    for (const long long value : {-2147483648LL, 2147483647LL, 0x7FFFFFFFFFFFFFFFLL, -1LL}) {
        EXPECT_NO_FATAL_FAILURE(Converted({{"year", value}, {"month", value}, {"day", value}, {"second", value}}));
    }
    // Cut to 32 bits, this year is 0.
    EXPECT_EQ(Converted({{"year", 0x100000000}, {"month", 8}, {"day", 25}}).utc_time, 0u);
}

TEST(AttributeMapDate, TheSameConverterFollowsTheClock) {
    const test::ScopedTimeZone zone("UTC0");
    CFrameAttributes converter;
    AttributeMap attributes = {{"year", 2017}, {"month", 8}, {"day", 25}, {"second", 5}};
    EXPECT_EQ(Converted(attributes, converter).utc_time, 1503619205u);
    EXPECT_EQ(Converted(attributes, converter).utc_time, 1503619205u);
    attributes["second"] = 6;
    EXPECT_EQ(Converted(attributes, converter).utc_time, 1503619206u);
    attributes.erase("year");
    EXPECT_EQ(Converted(attributes, converter).utc_time, 0u);
}

TEST(AttributeMapBlocks, KeysCountFromOne) {
    CFrameAttributes converter;
    AttributeMap attributes = Video();
    attributes.insert({{"n_slice", 2},
                       {"m_slice", 1},
                       {"blockpos_left_1", 1},
                       {"blockpos_top_1", 2},
                       {"blockpos_right_1", 3},
                       {"blockpos_bottom_1", 4},
                       {"blockdata_offset_1", 5},
                       {"blockpos_left_2", 0x1000B},
                       {"blockdata_offset_2", 0x10000000C},
                       {"blockpos_left_0", 99},
                       {"blockpos_left_3", 99},
                       {"blockpos_left_", 99}});
    const MXFrameInfo frame = Converted(attributes, converter);
    EXPECT_EQ(frame.has_blocks, 1u);
    EXPECT_EQ(frame.n_slice, 2u);
    EXPECT_EQ(frame.m_slice, 1u);
    ASSERT_TRUE(frame.blocks != nullptr);
    EXPECT_EQ(frame.blocks[0].left, 1);
    EXPECT_EQ(frame.blocks[0].top, 2);
    EXPECT_EQ(frame.blocks[0].right, 3);
    EXPECT_EQ(frame.blocks[0].bottom, 4);
    EXPECT_EQ(frame.blocks[0].data_offset, 5u);
    EXPECT_EQ(frame.blocks[0].reserved, 0u);
    EXPECT_EQ(frame.blocks[1].left, 0x0B);
    EXPECT_EQ(frame.blocks[1].top, 0);
    EXPECT_EQ(frame.blocks[1].right, 0);
    EXPECT_EQ(frame.blocks[1].bottom, 0);
    EXPECT_EQ(frame.blocks[1].data_offset, 12u);
    EXPECT_EQ(frame.blocks[1].reserved, 0u);
}

TEST(AttributeMapBlocks, AbsentFieldsAreZeroAlsoInABufferThatWasUsed) {
    CFrameAttributes converter;
    AttributeMap full = {{"n_slice", 1}, {"m_slice", 1}, {"blockpos_left_1", 7}, {"blockdata_offset_1", 8}};
    EXPECT_EQ(Converted(full, converter).blocks[0].left, 7);
    const AttributeMap bare = {{"n_slice", 1}, {"m_slice", 1}};
    const MXFrameInfo frame = Converted(bare, converter);
    EXPECT_EQ(frame.has_blocks, 1u);
    EXPECT_EQ(frame.blocks[0].left, 0);
    EXPECT_EQ(frame.blocks[0].data_offset, 0u);
}

TEST(AttributeMapBlocks, BothSlicesAreNeeded) {
    const MXFrameInfo frame = Converted({{"n_slice", 2}, {"blockpos_left_1", 1}});
    EXPECT_EQ(frame.n_slice, 2u);
    EXPECT_EQ(frame.m_slice, 0u);
    EXPECT_EQ(frame.has_blocks, 0u);
    EXPECT_TRUE(frame.blocks == nullptr);
    EXPECT_EQ(Converted({{"m_slice", 2}}).has_blocks, 0u);
}

TEST(AttributeMapBlocks, ManyBlocks) {
    CFrameAttributes converter;
    AttributeMap attributes = {{"n_slice", 64}, {"m_slice", 64}, {"blockpos_left_4096", 5}, {"blockpos_left_10", 6}};
    const MXFrameInfo frame = Converted(attributes, converter);
    ASSERT_EQ(frame.has_blocks, 1u);
    EXPECT_EQ(frame.blocks[4095].left, 5);
    EXPECT_EQ(frame.blocks[9].left, 6);
}

TEST(AttributeMapBlocks, AbsurdNumbersGiveNone) {
    for (const long long slices : {65LL, 65536LL, 0xFFFFFFFFLL}) {
        const MXFrameInfo frame = Converted({{"n_slice", slices}, {"m_slice", slices}});
        EXPECT_EQ(frame.has_blocks, 0u);
        EXPECT_TRUE(frame.blocks == nullptr);
        EXPECT_EQ(frame.n_slice, static_cast<uint32_t>(slices));
    }
    // 65536 squared is 0 in 32 bits; so is this in both factors.
    EXPECT_EQ(Converted({{"n_slice", 0x100000000}, {"m_slice", 1}}).has_blocks, 0u);
}

TEST(AttributeMapBlocks, WithoutMemoryThereAreNone) {
    const AttributeMap attributes = {{"frametype", 86}, {"framesubtype", 1}, {"encodetype", 2},
                                     {"n_slice", 2},    {"m_slice", 2},      {"rotationangle", 3}};
    CFrameAttributes converter;
    MXFrameInfo frame{};
    {
        const test::FailingAllocations failing;
        converter.Fill(attributes, frame);
    }
    EXPECT_EQ(frame.has_blocks, 0u);
    EXPECT_TRUE(frame.blocks == nullptr);
    EXPECT_EQ(frame.n_slice, 2u);
    EXPECT_EQ(frame.rotation_angle, 3u);
}

// MXFrameTimes stands in the record from byte 84 on.
MXFrameTimes TimesOf(const MXFrameInfo& frame) {
    MXFrameTimes times;
    std::memcpy(&times, reinterpret_cast<const uint8_t*>(&frame) + 84, sizeof times);
    return times;
}

TEST(AttributeMap, ExactTimes) {
    CFrameAttributes converter;
    AttributeMap attributes = Video();
    attributes.insert({{"timescale", 30000}, {"dts", -1001}, {"pts", 5000000000}, {"duration", 1001}});
    const MXFrameTimes times = TimesOf(Converted(attributes, converter));
    EXPECT_EQ(times.tag, 0x5446584Du);
    EXPECT_EQ(times.time_scale, 30000u);
    EXPECT_EQ(times.dts, -1001);
    EXPECT_EQ(times.pts, 5000000000);
    EXPECT_EQ(times.duration, 1001);
}

TEST(AttributeMap, OneTimeStandsForBothAndAScaleIsNeeded) {
    CFrameAttributes converter;
    AttributeMap attributes = Video();
    attributes["pts"] = 7;
    EXPECT_EQ(TimesOf(Converted(attributes, converter)).tag, 0u);
    attributes["timescale"] = 1000;
    EXPECT_EQ(TimesOf(Converted(attributes, converter)).dts, 7);
    EXPECT_EQ(TimesOf(Converted(attributes, converter)).pts, 7);
    EXPECT_EQ(TimesOf(Converted(attributes, converter)).duration, 0);
    attributes.erase("pts");
    EXPECT_EQ(TimesOf(Converted(attributes, converter)).tag, 0u);
    attributes["dts"] = 8;
    EXPECT_EQ(TimesOf(Converted(attributes, converter)).pts, 8);
    for (const long long scale : {1LL, 4294967295LL}) {
        attributes["timescale"] = scale;
        EXPECT_EQ(TimesOf(Converted(attributes, converter)).tag, MX_FRAME_TIMES_TAG) << scale;
        EXPECT_EQ(TimesOf(Converted(attributes, converter)).time_scale, static_cast<uint32_t>(scale));
    }
    for (const long long scale : {0LL, -1LL, 4294967296LL}) {
        attributes["timescale"] = scale;
        EXPECT_EQ(TimesOf(Converted(attributes, converter)).tag, 0u) << scale;
    }
}

TEST(AttributeMap, ASteadyStreamDoesNotAllocate) {
    AttributeMap attributes = Video();
    attributes.insert({{"timestamp", 0},
                       {"year", 2017},
                       {"month", 8},
                       {"day", 25},
                       {"tpstreamheaderlen", 3},
                       {"n_slice", 2},
                       {"m_slice", 2},
                       {"blockpos_bottom_1", 1},
                       {"blockdata_offset_4", 1}});
    CFrameAttributes converter;
    Converted(attributes, converter);
    const test::AllocationCounter allocations;
    for (int i = 0; i < 100; ++i) {
        attributes["timestamp"] = 40 * i;
        Converted(attributes, converter);
    }
    EXPECT_EQ(allocations.Count(), 0u);
}

}  // namespace
}  // namespace Orvane::Muxora
