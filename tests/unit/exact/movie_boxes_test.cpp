// The boxes of a movie without samples, whole: each literal is a field of ISO/IEC 14496-12, in the order of its clause.
#include <gtest/gtest.h>

#include <algorithm>

#include "MuxoraAPI.h"
#include "core/clock.h"
#include "exact/mp4_boxes.h"
#include "support/box_literal.h"
#include "support/hex.h"

namespace Orvane::Muxora {
namespace {

using test::Box;
using test::Bytes;
using test::ByteVector;
using test::Text;
using test::operator+;

template <typename Write>
ByteVector Written(Write write) {
    ByteVector bytes;
    BoxWriter out(bytes);
    write(out);
    return bytes;
}

Mp4Track Video(uint32_t codec) {
    Mp4Track track;
    track.present = true;
    track.video = true;
    track.time_scale = 90000;
    Mp4Entry entry;
    entry.encode_type = codec;
    entry.width = 640;
    entry.height = 360;
    track.entries = {entry};
    return track;
}

Mp4Track Sound(uint32_t codec, uint32_t rate, const ByteVector& config = {}) {
    Mp4Track track;
    track.present = true;
    track.time_scale = rate;
    Mp4Entry entry;
    entry.encode_type = codec;
    entry.sample_rate = rate;
    entry.channels = 2;
    entry.config = config;
    track.entries = {entry};
    return track;
}

const ByteVector kMatrix = Bytes("00010000 00000000 00000000 00000000 00010000 00000000 00000000 00000000 40000000");
// 1970, 2082844800 seconds behind 1904.
const ByteVector kTimes = Bytes("7C25B080 7C25B080");

ByteVector DataInformation() {
    return Box("dinf", Box("dref", Bytes("00000000 00000001") + Box("url ", Bytes("00000001"))));
}

ByteVector EmptyTables() {
    return Box("stts", Bytes("00000000 00000000")) + Box("stsc", Bytes("00000000 00000000")) +
           Box("stsz", Bytes("00000000 00000000 00000000")) + Box("stco", Bytes("00000000 00000000"));
}

TEST(FragmentedMovie, EveryBox) {
    const ScopedClock clock(0);
    Mp4Track video = Video(MX_VIDEO_H264);
    video.entries[0].config = Bytes("01 42 C0 1E");
    video.edit_shift = 3600;
    const Mp4Track sound = Sound(MX_AUDIO_ALAW, 8000);
    const Mp4Track* const tracks[] = {&video, &sound};
    const ByteVector written = Written([&](BoxWriter& out) { WriteFragmentedMovie(out, tracks, true); });

    const ByteVector movie_header = Box("mvhd", Bytes("00000000") + kTimes + Bytes("000003E8 00000000 00010000 0100") +
                                                    ByteVector(10) + kMatrix + ByteVector(24) + Bytes("00000003"));
    const ByteVector picture =
        Box("trak",
            Box("tkhd", Bytes("00000003") + kTimes + Bytes("00000001 00000000 00000000") + ByteVector(8) +
                            Bytes("0000 0000 0000 0000") + kMatrix + Bytes("02800000 01680000")) +
                Box("edts", Box("elst", Bytes("00000000 00000001 00000000 00000E10 00010000"))) +
                Box("mdia",
                    Box("mdhd", Bytes("00000000") + kTimes + Bytes("00015F90 00000000 55C4 0000")) +
                        Box("hdlr", Bytes("00000000 00000000") + Text("vide") + ByteVector(12) + Text("VideoHandler") +
                                        Bytes("00")) +
                        Box("minf",
                            Box("vmhd", Bytes("00000001") + ByteVector(8)) + DataInformation() +
                                Box("stbl", Box("stsd", Bytes("00000000 00000001") +
                                                            Box("avc1", ByteVector(6) + Bytes("0001") + ByteVector(16) +
                                                                            Bytes("0280 0168 00480000 00480000 "
                                                                                  "00000000 0001") +
                                                                            ByteVector(32) + Bytes("0018 FFFF") +
                                                                            Box("avcC", Bytes("01 42 C0 1E")))) +
                                                EmptyTables()))));
    const ByteVector audio =
        Box("trak",
            Box("tkhd", Bytes("00000003") + kTimes + Bytes("00000002 00000000 00000000") + ByteVector(8) +
                            Bytes("0000 0001 0100 0000") + kMatrix + Bytes("00000000 00000000")) +
                Box("mdia",
                    Box("mdhd", Bytes("00000000") + kTimes + Bytes("00001F40 00000000 55C4 0000")) +
                        Box("hdlr", Bytes("00000000 00000000") + Text("soun") + ByteVector(12) + Text("SoundHandler") +
                                        Bytes("00")) +
                        Box("minf",
                            Box("smhd", Bytes("00000000 0000 0000")) + DataInformation() +
                                Box("stbl", Box("stsd", Bytes("00000000 00000001") +
                                                            Box("alaw", ByteVector(6) + Bytes("0001") + ByteVector(8) +
                                                                            Bytes("0002 0010 00000000 1F400000"))) +
                                                EmptyTables()))));
    const ByteVector extends = Box("mvex", Box("trex", Bytes("00000000 00000001 00000001") + ByteVector(12)) +
                                               Box("trex", Bytes("00000000 00000002 00000001") + ByteVector(12)));
    EXPECT_EQ(written, Box("moov", movie_header + picture + audio + extends));
}

// The highest numbers of 32 bits and the lowest of 33, in each box that has both widths.
TEST(MovieTimes, AreWideWhereTheyHaveTo) {
    const auto version = [](const ByteVector& box) { return int{box.at(8)}; };
    const Mp4Track track = Video(MX_VIDEO_H264);
    for (const bool late : {false, true}) {
        // Seconds from 1904 pass 32 bits in 2040.
        const ScopedClock clock(late ? 0x100000000 - 2082844800 : 0xFFFFFFFF - 2082844800);
        for (const uint64_t duration : {uint64_t{0}, uint64_t{0xFFFFFFFF}, uint64_t{0x100000000}}) {
            const int expected = late || duration > 0xFFFFFFFF ? 1 : 0;
            const ByteVector movie = Written([&](BoxWriter& out) { WriteMovieHeader(out, 1000, duration); });
            const ByteVector header = Written([&](BoxWriter& out) { WriteTrackHeader(out, track, duration); });
            const ByteVector media = Written([&](BoxWriter& out) { WriteMediaHeader(out, track, duration); });
            EXPECT_EQ(version(movie), expected);
            EXPECT_EQ(version(header), expected);
            EXPECT_EQ(version(media), expected);
            EXPECT_EQ(movie.size(), expected == 1 ? 120u : 108u);
            EXPECT_EQ(header.size(), expected == 1 ? 104u : 92u);
            EXPECT_EQ(test::Slice(media, 0, 4), expected == 1 ? Bytes("00 00 00 2C") : Bytes("00 00 00 20"));
        }
    }
    const auto edit = [&](const Mp4Edit& one) {
        const ByteVector box = Written([&](BoxWriter& out) { WriteEdits(out, {&one, 1}); });
        return int{box.at(16)};
    };
    EXPECT_EQ(edit({0xFFFFFFFF, 0x7FFFFFFF}), 0);
    EXPECT_EQ(edit({0x100000000, 0}), 1);
    EXPECT_EQ(edit({0, 0x80000000}), 1);
}

TEST(TrackHeader, TurnsAndLargePictures) {
    const auto tail = [](uint32_t rotation, uint32_t width, uint32_t height, uint32_t sar_width, uint32_t sar_height) {
        Mp4Track track = Video(MX_VIDEO_H264);
        track.rotation = rotation;
        track.entries[0].width = width;
        track.entries[0].height = height;
        track.entries[0].sar_width = sar_width;
        track.entries[0].sar_height = sar_height;
        const ByteVector box = Written([&](BoxWriter& out) { WriteTrackHeader(out, track, 0); });
        return test::Slice(box, 48, 44);
    };
    EXPECT_EQ(tail(180, 640, 360, 1, 1),
              Bytes("FFFF0000 00000000 00000000 00000000 FFFF0000 00000000 02800000 01680000 "
                    "40000000 02800000 01680000"));
    EXPECT_EQ(tail(270, 640, 360, 1, 1),
              Bytes("00000000 FFFF0000 00000000 00010000 00000000 00000000 00000000 02800000 "
                    "40000000 02800000 01680000"));
    EXPECT_EQ(tail(45, 640, 360, 1, 1), kMatrix + Bytes("02800000 01680000")) << "a quarter turn at a time";
    EXPECT_EQ(tail(0, 0xFFFF, 0xFFFF, 1, 1), kMatrix + Bytes("FFFF0000 FFFF0000"));
    EXPECT_EQ(tail(0, 0x10000, 0x10001, 1, 1), kMatrix + Bytes("FFFF0000 FFFF0000"));
    EXPECT_EQ(tail(0, 721, 480, 1, 2), kMatrix + Bytes("01690000 01E00000")) << "360.5 is 361";
}

// objectTypeIndication (ISO/IEC 14496-1 7.2.6.6, as registered) and the descriptors around it.
TEST(SampleDescriptions, ObjectTypes) {
    const auto esds = [](const char* type_and_stream, const ByteVector& config) {
        const ByteVector specific =
            config.empty() ? config : Bytes("05 808080") + ByteVector{static_cast<uint8_t>(config.size())} + config;
        const auto size = [&](size_t more) { return ByteVector{static_cast<uint8_t>(specific.size() + more)}; };
        return Box("esds", Bytes("00000000 03 808080") + size(27) + Bytes("0000 00 04 808080") + size(13) +
                               Bytes(type_and_stream) + ByteVector(11) + specific + Bytes("06 80808001 02"));
    };
    const auto entry = [](const Mp4Track& track) {
        return Written([&](BoxWriter& out) { WriteSampleDescriptions(out, track, true); });
    };
    const auto video = [&](uint32_t codec, const char* type, const ByteVector& config) {
        Mp4Track track = Video(codec);
        track.entries[0].config = config;
        EXPECT_EQ(entry(track),
                  Box("stsd", Bytes("00000000 00000001") +
                                  Box("mp4v", ByteVector(6) + Bytes("0001") + ByteVector(16) +
                                                  Bytes("0280 0168 00480000 00480000 00000000 0001") + ByteVector(32) +
                                                  Bytes("0018 FFFF") + esds(type, config))));
    };
    video(MX_VIDEO_MPEG4, "20 11", Bytes("00 00 01 B0 01"));
    video(MX_VIDEO_MPEG2, "61 11", {});
    video(MX_VIDEO_MJPEG, "6C 11", {});
    const auto sound = [&](uint32_t codec, uint32_t rate, const char* type, const ByteVector& config, const char* hz) {
        EXPECT_EQ(entry(Sound(codec, rate, config)),
                  Box("stsd", Bytes("00000000 00000001") +
                                  Box("mp4a", ByteVector(6) + Bytes("0001") + ByteVector(8) +
                                                  Bytes("0002 0010 00000000") + Bytes(hz) + esds(type, config))));
    };
    sound(MX_AUDIO_AAC, 48000, "40 15", Bytes("11 90"), "BB800000");
    sound(MX_AUDIO_AAC, 96000, "40 15", Bytes("10 10"), "00000000");  // does not fit 16.16
    sound(MX_AUDIO_MPEG, 32000, "6B 15", {}, "7D000000");
    sound(MX_AUDIO_MPEG, 24000, "69 15", {}, "5DC00000");
    for (const auto& [codec, type] : {std::pair(MX_AUDIO_ALAW, "alaw"),
                                      {MX_AUDIO_MULAW, "ulaw"},
                                      {MX_AUDIO_MULAW_ALT, "ulaw"},
                                      {MX_AUDIO_PCM16, "sowt"},
                                      {MX_AUDIO_PCM8, "raw "}})
        EXPECT_EQ(test::Slice(entry(Sound(codec, 65535)), 16, 36),
                  Box(type, ByteVector(6) + Bytes("0001") + ByteVector(8) + Bytes("0002 0010 00000000 FFFF0000")));
}

// A length in four groups of seven bits (ISO/IEC 14496-1 8.3.3): 20480 is 1 * 128 * 128 + 32 * 128.
TEST(SampleDescriptions, ALongConfiguration) {
    const Mp4Track track = Sound(MX_AUDIO_AAC, 48000, ByteVector(20480, 0x55));
    const ByteVector bytes = Written([&](BoxWriter& out) { WriteSampleDescriptions(out, track, true); });
    const ByteVector expected = Bytes("05 80 81 A0 00 55");
    EXPECT_NE(std::search(bytes.begin(), bytes.end(), expected.begin(), expected.end()), bytes.end());
}

}  // namespace
}  // namespace Orvane::Muxora
