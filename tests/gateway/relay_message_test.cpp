// What goes between gateways: headers, units, addresses, and times where an origin is replaced.
#include "relay/message.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <stdexcept>
#include <string>

#include "header_map.h"
#include "relay/session_clock.h"
#include "relay/unit.h"
#include "sources/source.h"

using namespace Orvane::Muxora::Gateway;

namespace {

using test::HeaderMap;
using test::ParseHeaders;

const HeaderMap kGood = {
    {"Muxora-Origin", "660da85573019bd4"},
    {"Muxora-Number", "107"},
    {"Muxora-Since-Key", "7"},
    {"Muxora-Time-Scale", "90000"},
    {"Muxora-Dts", "-3600"},
    {"Muxora-Pts", "0"},
    {"Muxora-Duration", "3600"},
    {"Muxora-Arrival", "1795341517202000"},
};

Frame Picture(uint32_t codec, uint32_t sub_type, const std::string& bytes) {
    Frame frame;
    frame.media.type = MX_FRAME_VIDEO;
    frame.media.codec = codec;
    frame.media.sub_type = sub_type;
    frame.media.width = 1366;
    frame.media.height = 768;
    frame.media.frame_rate = 25;
    frame.media.SetBytes(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    return frame;
}

std::string Text(const Frame& frame) {
    return {reinterpret_cast<const char*>(frame.media.bytes.data()), frame.media.Size()};
}

}  // namespace

TEST(RelayNote, Headers) {
    RelayNote note;
    note.origin = "660da85573019bd4";
    note.number = 107;
    note.since_key = 7;
    note.time_scale = 90000;
    note.dts = -3600;
    note.duration = 3600;
    note.arrival_us = 1795341517202000;
    RelayHeaders wanted = {
        {"Nats-Msg-Id", "660da85573019bd4-107"},
        {"Muxora-Origin", "660da85573019bd4"},
        {"Muxora-Number", "107"},
        {"Muxora-Since-Key", "7"},
        {"Muxora-Time-Scale", "90000"},
        {"Muxora-Dts", "-3600"},
        {"Muxora-Pts", "0"},
        {"Muxora-Duration", "3600"},
        {"Muxora-Arrival", "1795341517202000"},
    };
    EXPECT_EQ(PrintNote(note), wanted);
    note.piece = 2;
    note.pieces = 3;
    note.samples_per_sec = 12000;
    wanted.emplace_back("Muxora-Piece", "3/3");
    wanted.emplace_back("Muxora-Sample-Rate", "12000");
    EXPECT_EQ(PrintNote(note), wanted);
}

TEST(RelayNote, IsReadBack) {
    RelayNote note;
    ASSERT_TRUE(ParseHeaders(kGood, note));
    EXPECT_EQ(note.origin, "660da85573019bd4");
    EXPECT_EQ(note.number, 107U);
    EXPECT_EQ(note.since_key, 7U);
    EXPECT_EQ(note.piece, 0U);
    EXPECT_EQ(note.pieces, 1U);
    EXPECT_EQ(note.time_scale, 90000U);
    EXPECT_EQ(note.dts, -3600);
    EXPECT_EQ(note.pts, 0);
    EXPECT_EQ(note.duration, 3600);
    EXPECT_EQ(note.arrival_us, 1795341517202000);
    EXPECT_EQ(note.samples_per_sec, 0U);
    HeaderMap more = kGood;
    more["Muxora-Piece"] = "2/3";
    more["Muxora-Sample-Rate"] = "12000";
    ASSERT_TRUE(ParseHeaders(more, note));
    EXPECT_EQ(note.piece, 1U);
    EXPECT_EQ(note.pieces, 3U);
    EXPECT_EQ(note.samples_per_sec, 12000U);
}

TEST(RelayNote, WhatIsNoneIsRefused) {
    RelayNote note;
    for (const auto& [name, value] : kGood) {
        HeaderMap without = kGood;
        without.erase(name);
        EXPECT_FALSE(ParseHeaders(without, note)) << name;
        for (const char* bad : {"", "x", "1x", " 1", "1 ", "99999999999999999999"}) {
            HeaderMap changed = kGood;
            changed[name] = bad;
            EXPECT_FALSE(ParseHeaders(changed, note)) << name << ": " << bad;
        }
    }
    const std::pair<const char*, const char*> bad[] = {
        {"Muxora-Piece", "0/3"},
        {"Muxora-Piece", "4/3"},
        {"Muxora-Piece", "1/0"},
        {"Muxora-Piece", "1"},
        {"Muxora-Piece", "/"},
        {"Muxora-Piece", "1/4097"},
        {"Muxora-Time-Scale", "0"},
        {"Muxora-Since-Key", "108"},
        {"Muxora-Dts", "9223372036854775807"},
        {"Muxora-Sample-Rate", "-1"},
        {"Muxora-Origin", "660DA85573019BD4"},
        {"Muxora-Origin", "660da85573019bd"},
    };
    for (const auto& [name, value] : bad) {
        HeaderMap changed = kGood;
        changed[name] = value;
        EXPECT_FALSE(ParseHeaders(changed, note)) << name << ": " << value;
    }
}

TEST(RelayNote, AnOriginThatBeginsLaterIsTheGreater) {
    // Microseconds, with twelve bits by chance behind them.
    EXPECT_EQ(OriginName(0x660da855730, 0xfffffabc), "00660da855730abc");
    EXPECT_LT(OriginName(1000000, 0xfff), OriginName(1000001, 0));
}

TEST(RelayAddress, ServersAndName) {
    const RelayAddress one = ParseRelayAddress("nats://a:4222");
    EXPECT_EQ(one.servers, std::vector<std::string>{"nats://a:4222"});
    EXPECT_EQ(one.name, "");
    const RelayAddress two = ParseRelayAddress("nats://u:p@a:4222,tls://b:4333/door");
    EXPECT_EQ(two.servers, (std::vector<std::string>{"nats://u:p@a:4222", "tls://b:4333"}));
    EXPECT_EQ(two.name, "door");
    for (const char* bad :
         {"", "a:4222", "nats://", "nats://a,", "nats://a,b", "nats:///x", "nats://a/b/c", "nats://a/>"})
        EXPECT_THROW(ParseRelayAddress(bad), std::runtime_error) << bad;
}

TEST(RelayAddress, SubjectAndStore) {
    EXPECT_EQ(RelaySubject("door"), "muxora.door");
    EXPECT_EQ(RelayStore("door"), "muxora-door");
    EXPECT_EQ(StreamOfStore("muxora-door-2"), "door-2");
    for (const char* other : {"", "door", "muxora", "muxora-", "muxora-a.b", "Muxora-door"})
        EXPECT_EQ(StreamOfStore(other), "") << other;
}

TEST(RelayAddress, OfAListShowsNoPassword) {
    EXPECT_EQ(WithoutSecrets("nats://u:secret@a:4222,nats://u:secret@b:4222").find("secret"), std::string::npos);
}

TEST(RelayUnit, OneOfAKeyFrame) {
    UnitWriter writer;
    Frame frame = Picture(MX_VIDEO_H264, MX_SUB_I, std::string("\0\0\0\1\x65rest", 9));
    frame.time_scale = 90000;
    frame.pts = 90000 * 3;
    frame.arrival_us = 1718454645000000;  // 2024-06-15 12:30:45 UTC
    const auto unit = writer.Write(frame);
    // Head of 24 bytes, records of 8 (the picture's size), 4 (codec 2, 25 a second) and 8 (check), the frame, a tail
    // of 8.
    ASSERT_EQ(unit.size(), 24U + 8 + 4 + 8 + 9 + 8);
    EXPECT_EQ(std::memcmp(unit.data(), "ORVX\xfd", 5), 0);
    EXPECT_EQ(unit[20] | unit[21] << 8, 3000);
    const uint8_t records[] = {0x82, 2, 0, 0, 0x56, 5, 0, 3, 0x81, 0, 2, 25, 0x88};
    EXPECT_EQ(std::memcmp(unit.data() + 24, records, sizeof records), 0);
    EXPECT_EQ(std::memcmp(unit.data() + 44, "\0\0\0\1\x65rest", 9), 0);
    EXPECT_EQ(std::memcmp(unit.data() + 53, "orvx\x3d\0\0\0", 8), 0);
}

TEST(RelayUnit, NoneAheadOfTheFirstKeyFrame) {
    UnitWriter writer;
    EXPECT_TRUE(writer.Write(Picture(MX_VIDEO_H264, MX_SUB_P, "abc")).empty());
    EXPECT_FALSE(writer.Write(Picture(MX_VIDEO_H264, MX_SUB_I, "abc")).empty());
    EXPECT_FALSE(writer.Write(Picture(MX_VIDEO_H264, MX_SUB_P, "abc")).empty());
}

TEST(RelayUnit, PicturesComeBackAsTheyWere) {
    for (const uint32_t codec : {MX_VIDEO_MPEG4, MX_VIDEO_H264, MX_VIDEO_H265, MX_VIDEO_MPEG2, MX_VIDEO_MJPEG}) {
        UnitWriter writer;
        UnitReader reader;
        RelayNote note;
        note.time_scale = 12800;
        note.dts = 512;
        note.pts = 1536;
        note.duration = 500;
        note.arrival_us = 77;
        for (const uint32_t sub_type : {MX_SUB_I, MX_SUB_P, MX_SUB_B}) {
            if (codec == MX_VIDEO_MJPEG && sub_type != MX_SUB_I) continue;
            const Frame given = Picture(codec, sub_type, "picture of some bytes");
            const auto got = reader.Read(writer.Write(given), note);
            ASSERT_TRUE(got) << codec << " " << sub_type;
            EXPECT_TRUE(got->IsVideo());
            EXPECT_EQ(got->media.codec, codec);
            EXPECT_EQ(got->media.sub_type, sub_type);
            EXPECT_EQ(got->media.width, 1366U);
            EXPECT_EQ(got->media.height, 768U);
            EXPECT_EQ(got->media.frame_rate, 25U);
            EXPECT_EQ(Text(*got), "picture of some bytes");
            EXPECT_EQ(got->time_scale, 12800U);
            EXPECT_EQ(got->dts, 512);
            EXPECT_EQ(got->pts, 1536);
            EXPECT_EQ(got->duration, 500);
            EXPECT_EQ(got->arrival_us, 77);
        }
    }
}

TEST(RelayUnit, SoundComesBackAsItWas) {
    UnitWriter writer;
    UnitReader reader;
    for (const uint32_t codec :
         {MX_AUDIO_AAC, MX_AUDIO_MPEG, MX_AUDIO_PCM16, MX_AUDIO_ALAW, MX_AUDIO_MULAW, MX_AUDIO_PCM8}) {
        Frame given;
        given.media.type = MX_FRAME_AUDIO;
        given.media.codec = codec;
        given.media.sub_type = 0;
        given.media.channels = 2;
        given.media.samples_per_sec = 12000;  // none that a unit knows
        given.media.bits_per_sample =
            codec == MX_AUDIO_AAC || codec == MX_AUDIO_MPEG || codec == MX_AUDIO_PCM16 ? 16 : 8;
        given.media.SetBytes(reinterpret_cast<const uint8_t*>("sound"), 5);
        RelayNote note;
        note.samples_per_sec = 12000;
        const auto got = reader.Read(writer.Write(given), note);
        ASSERT_TRUE(got) << codec;
        EXPECT_FALSE(got->IsVideo());
        EXPECT_EQ(got->media.codec, codec);
        EXPECT_EQ(got->media.channels, 2U);
        EXPECT_EQ(got->media.samples_per_sec, 12000U);
        EXPECT_EQ(got->media.bits_per_sample, given.media.bits_per_sample);
        EXPECT_EQ(Text(*got), "sound");
    }
}

TEST(RelayUnit, DamagedOnesAreRefused) {
    UnitWriter writer;
    const auto made = writer.Write(Picture(MX_VIDEO_H264, MX_SUB_I, "some bytes"));
    const std::vector<uint8_t> good(made.begin(), made.end());
    ASSERT_TRUE(UnitReader().Read(good, {}));
    for (size_t at = 0; at < good.size(); ++at) {
        std::vector<uint8_t> bad = good;
        bad[at] ^= 0x55;
        // Only the picture's own description has no check; whatever it says then, nothing breaks.
        const bool description = at >= 24 && at < 36;
        EXPECT_TRUE(!UnitReader().Read(bad, {}) || description) << at;
        EXPECT_FALSE(UnitReader().Read({good.data(), at}, {})) << at;
    }
    std::vector<uint8_t> longer = good;
    longer.push_back(0);
    EXPECT_FALSE(UnitReader().Read(longer, {}));
    // A picture whose form was never said.
    const auto between = writer.Write(Picture(MX_VIDEO_H264, MX_SUB_P, "some bytes"));
    EXPECT_FALSE(UnitReader().Read(between, {}));
}

namespace {

Frame Timed(uint32_t scale, int64_t dts, int64_t pts, int64_t duration) {
    Frame frame;
    frame.time_scale = scale;
    frame.dts = dts;
    frame.pts = pts;
    frame.duration = duration;
    return frame;
}

}  // namespace

TEST(SessionClock, TheFirstOriginsTimesStay) {
    SessionClock clock;
    Frame frame = Timed(90000, -3600, 123456789, 3600);
    clock.Take(frame, "a");
    EXPECT_EQ(frame.dts, -3600);
    EXPECT_EQ(frame.pts, 123456789);
}

TEST(SessionClock, AnotherOriginGoesOnWhereTheOneBeforeEnded) {
    SessionClock clock;
    Frame last = Timed(90000, 90000, 97200, 3600);  // shown from 1.08 s on, up to 1.12 s
    clock.Take(last, "a");
    Frame sound = Timed(48000, 48000, 48000, 1024);
    clock.Take(sound, "a");
    // From an hour to 1.12 s, and from there on with the same step for all.
    Frame first = Timed(12800, 12800 * 3600, 12800 * 3600 + 1024, 512);
    clock.Take(first, "b");
    EXPECT_EQ(first.pts, 14336);
    EXPECT_EQ(first.dts, 13312);
    Frame beside = Timed(48000, 48000LL * 3600 + 3840, 48000LL * 3600 + 3840, 1024);
    clock.Take(beside, "b");
    EXPECT_EQ(beside.dts, 53760);
    Frame next = Timed(12800, 12800 * 3600 + 512, 12800 * 3600 + 1536, 512);
    clock.Take(next, "b");
    EXPECT_EQ(next.pts, 14848);
}

TEST(SessionClock, TimesThatNoStreamComesTo) {
    SessionClock clock;
    for (const int64_t time : {std::numeric_limits<int64_t>::max() / 4, std::numeric_limits<int64_t>::min() / 4}) {
        for (const char* origin : {"a", "b", "c"}) {
            Frame frame = Timed(1, time, time, 1);
            clock.Take(frame, origin);
            Frame other = Timed(4000000000u, -time, -time, 0);
            clock.Take(other, origin);
        }
    }
}
