#include "exact/mp4_fragment.h"

#include <gtest/gtest.h>

#include "MuxoraAPI.h"
#include "core/clock.h"
#include "exact/mp4_boxes.h"
#include "support/hex.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::Text;
using test::operator+;

Mp4Track Video() {
    Mp4Track track;
    track.present = true;
    track.video = true;
    track.time_scale = 90000;
    Mp4Entry entry;
    entry.encode_type = MX_VIDEO_H264;
    entry.config = Bytes("01 42 C0 1E FF E0 00");
    entry.width = 640;
    entry.height = 360;
    track.entries = {entry};
    return track;
}

void Put(FragmentTrack& track, const ByteVector& bytes, const Mp4Sample& sample) {
    std::copy(bytes.begin(), bytes.end(), track.Place(bytes.size()));
    track.Add(sample);
}

ByteVector Head(const std::vector<FragmentPart>& parts) {
    ByteVector bytes;
    BoxWriter out(bytes);
    WriteFragmentHead(out, 7, parts);
    return bytes;
}

// Version 1 has 64 bits of each time (ISO/IEC 14496-12 8.2.2).
TEST(MovieHeader, ALongDurationTakesWideFields) {
    const auto written = [](uint64_t duration) {
        ByteVector bytes;
        BoxWriter out(bytes);
        WriteMovieHeader(out, 1000, duration);
        return bytes;
    };
    const ByteVector narrow = written(0xFFFFFFFE);
    ASSERT_EQ(narrow.size(), 108u);
    EXPECT_EQ(test::Slice(narrow, 0, 12), Bytes("0000006C") + Text("mvhd") + Bytes("00 000000"));
    EXPECT_EQ(test::Slice(narrow, 20, 8), Bytes("000003E8 FFFFFFFE"));
    const ByteVector wide = written(0x100000000);
    ASSERT_EQ(wide.size(), 120u);
    EXPECT_EQ(test::Slice(wide, 0, 12), Bytes("00000078") + Text("mvhd") + Bytes("01 000000"));
    EXPECT_EQ(test::Slice(wide, 28, 12), Bytes("000003E8 00000001 00000000"));
}

// 8.8.4 to 8.8.8: a key picture and two others, of one duration, without reordering.
TEST(FragmentHead, EqualDurationsNeedNoColumn) {
    const Mp4Track track = Video();
    FragmentTrack samples;
    Put(samples, Bytes("01 02 03"), {5000000000, 0, 0, 3, true});
    Put(samples, Bytes("04"), {5000003600, 0, 0, 1, false});
    Put(samples, Bytes("05 06"), {5000007200, 0, 3600, 2, false});
    samples.End(nullptr);
    EXPECT_EQ(samples.Duration(), 10800u);
    EXPECT_EQ(Head({{&track, &samples, 1}}),
              Bytes("00 00 00 70") + Text("moof") + Bytes("00 00 00 10") + Text("mfhd") + Bytes("00000000 00000007") +
                  Bytes("00 00 00 58") + Text("traf") +
                  // default-base-is-moof, default duration and flags
                  Bytes("00 00 00 18") + Text("tfhd") + Bytes("00 02 00 28 00000001 00000E10 01010000") +
                  Bytes("00 00 00 14") + Text("tfdt") + Bytes("01000000 00000001 2A05F200") +
                  // data offset, flags of the first sample, sizes; 112 + 8
                  Bytes("00 00 00 24") + Text("trun") + Bytes("01 00 02 05 00000003 00000078 02000000") +
                  Bytes("00000003 00000001 00000002") + Bytes("00 00 00 0E") + Text("mdat"));
}

TEST(FragmentHead, ColumnsWhereSamplesDiffer) {
    const Mp4Track track = Video();
    FragmentTrack samples;
    Put(samples, Bytes("01"), {0, 3000, 0, 1, true});
    Put(samples, Bytes("02"), {1500, 6000, 0, 1, false});
    Put(samples, Bytes("03"), {4500, 0, 0, 1, true});
    const int64_t next = 6000;
    samples.End(&next);
    const ByteVector head = Head({{&track, &samples, 2}});
    const ByteVector tail = Bytes("00 00 00 14") + Text("tfhd") + Bytes("00 02 00 02 00000001 00000002") +
                            Bytes("00 00 00 14") + Text("tfdt") + Bytes("01000000 00000000 00000000") +
                            Bytes("00 00 00 44") + Text("trun") + Bytes("01 00 0F 01 00000003 00000094") +
                            Bytes("000005DC 00000001 02000000 00000BB8") +
                            Bytes("00000BB8 00000001 01010000 00001770") +
                            Bytes("000005DC 00000001 02000000 00000000") + Bytes("00 00 00 0B") + Text("mdat");
    ASSERT_GT(head.size(), tail.size());
    EXPECT_EQ(test::Slice(head, head.size() - tail.size(), tail.size()), tail);
}

// The second part's samples lie behind the first one's.
TEST(FragmentHead, TwoTracks) {
    const Mp4Track video = Video();
    Mp4Track audio;
    FragmentTrack pictures;
    FragmentTrack sound;
    Put(pictures, ByteVector(100), {0, 0, 3600, 100, true});
    Put(sound, ByteVector(20), {0, 0, 1024, 20, true});
    pictures.End(nullptr);
    sound.End(nullptr);
    const ByteVector head = Head({{&video, &pictures, 1}, {&audio, &sound, 1}});
    // mfhd 16, traf 8 + 24 + 20 + 24 each, and moof's own 8
    ASSERT_EQ(head.size(), 8u + 16u + 2 * 76u + 8u);
    EXPECT_EQ(test::Slice(head, 8 + 16 + 8 + 24 + 20 + 16, 4), Bytes("000000B8"));       // 184
    EXPECT_EQ(test::Slice(head, 8 + 16 + 76 + 8 + 24 + 20 + 16, 4), Bytes("0000011C"));  // 184 + 100
    EXPECT_EQ(test::Slice(head, head.size() - 8, 4), Bytes("00000080"));
}

TEST(FragmentTrack, TheLastSampleLastsAsItSaysOrAsTheOneBefore) {
    FragmentTrack track;
    Put(track, Bytes("01"), {0, 0, 0, 1, true});
    track.End(nullptr);
    EXPECT_EQ(track.Samples()[0].duration, 1u);
    track.Clear();
    Put(track, Bytes("01"), {100, 0, 0, 1, true});
    Put(track, Bytes("01"), {150, 0, 0, 1, true});
    track.End(nullptr);
    EXPECT_EQ(track.Samples()[1].duration, 50u);
    track.Clear();
    Put(track, Bytes("01"), {200, 0, 0, 1, true});
    track.End(nullptr);
    EXPECT_EQ(track.Samples()[0].duration, 50u);
    Put(track, Bytes("01"), {270, 0, 33, 1, true});
    EXPECT_EQ(track.Samples()[0].duration, 70u);
    track.End(nullptr);
    EXPECT_EQ(track.Samples()[1].duration, 33u);
}

// 8.16.3
TEST(SegmentIndex, PointsToOneSegment) {
    const Mp4Track track = Video();
    FragmentTrack samples;
    Put(samples, Bytes("01"), {7200, 3600, 3600, 1, true});
    Put(samples, Bytes("01"), {10800, 0, 3600, 1, false});
    ByteVector bytes;
    BoxWriter out(bytes);
    WriteSegmentIndex(out, {&track, &samples, 1}, 0x1234);
    EXPECT_EQ(bytes, Bytes("00 00 00 34") + Text("sidx") +
                         Bytes("01000000 00000001 00015F90 00000000 00002A30 00000000 00000000 0000 0001") +
                         Bytes("00001234 00001C20 90000000"));
}

// 8.16.5: NTP counts from 1900.
TEST(ProducerTime, IsTheWallClock) {
    const ScopedClock clock(1700000000);
    const Mp4Track track = Video();
    FragmentTrack samples;
    Put(samples, Bytes("01"), {7200, 0, 3600, 1, true});
    ByteVector bytes;
    BoxWriter out(bytes);
    WriteProducerTime(out, {&track, &samples, 1});
    EXPECT_EQ(bytes,
              Bytes("00 00 00 20") + Text("prft") + Bytes("01000002 00000001 E8FE6F80 00000000 00000000 00001C20"));
}

TEST(Edits, NarrowAndWide) {
    const auto written = [](std::vector<Mp4Edit> edits) {
        ByteVector bytes;
        BoxWriter out(bytes);
        WriteEdits(out, edits);
        return bytes;
    };
    EXPECT_EQ(written({}), ByteVector{});
    EXPECT_EQ(written({{1000, -1}, {5000, 2002}}),
              Bytes("00 00 00 30") + Text("edts") + Bytes("00 00 00 28") + Text("elst") +
                  Bytes("00000000 00000002 000003E8 FFFFFFFF 00010000 00001388 000007D2 00010000"));
    EXPECT_EQ(written({{0x100000000, 1024}}),
              Bytes("00 00 00 2C") + Text("edts") + Bytes("00 00 00 24") + Text("elst") +
                  Bytes("01000000 00000001 00000001 00000000 00000000 00000400 00010000"));
}

TEST(TrackHeader, ShowsThePictureAsItIsMeant) {
    const ScopedClock clock(0);  // 1970, 2082844800 s behind 1904
    Mp4Track track = Video();
    track.entries[0].sar_width = 4;
    track.entries[0].sar_height = 3;
    track.rotation = 90;
    ByteVector bytes;
    BoxWriter out(bytes);
    WriteTrackHeader(out, track, 5000);
    EXPECT_EQ(bytes, Bytes("00 00 00 5C") + Text("tkhd") +
                         Bytes("00000003 7C25B080 7C25B080 00000001 00000000 00001388 00000000 00000000") +
                         Bytes("0000 0000 0000 0000") +
                         Bytes("00000000 00010000 00000000 FFFF0000 00000000 00000000 01680000 00000000 40000000") +
                         Bytes("03550000 01680000"));  // 853 x 360
}

TEST(SampleDescriptions, ShapeAndColourBesideTheRecord) {
    Mp4Track track = Video();
    track.entries[0].sar_width = 4;
    track.entries[0].sar_height = 3;
    track.entries[0].has_colour = true;
    track.entries[0].colour_primaries = 9;
    track.entries[0].transfer_characteristics = 16;
    track.entries[0].matrix_coefficients = 9;
    track.entries[0].full_range = true;
    ByteVector bytes;
    BoxWriter out(bytes);
    WriteSampleDescriptions(out, track, true);
    EXPECT_EQ(bytes, Bytes("00 00 00 98") + Text("stsd") + Bytes("00000000 00000001") + Bytes("00 00 00 88") +
                         Text("avc1") + Bytes("000000000000 0001") + ByteVector(16) +
                         Bytes("0280 0168 00480000 00480000 00000000 0001") + ByteVector(32) + Bytes("0018 FFFF") +
                         Bytes("00 00 00 0F") + Text("avcC") + Bytes("01 42 C0 1E FF E0 00") + Bytes("00 00 00 10") +
                         Text("pasp") + Bytes("00000004 00000003") + Bytes("00 00 00 13") + Text("colr") +
                         Text("nclx") + Bytes("0009 0010 0009 80"));
}

TEST(SampleDescriptions, AacAndPcm) {
    Mp4Track track;
    Mp4Entry aac;
    aac.encode_type = MX_AUDIO_AAC;
    aac.sample_rate = 44100;
    aac.channels = 2;
    aac.config = Bytes("12 10");
    Mp4Entry pcm;
    pcm.encode_type = MX_AUDIO_PCM16;
    pcm.sample_rate = 48000;
    pcm.channels = 1;
    track.entries = {aac, pcm};
    ByteVector bytes;
    BoxWriter out(bytes);
    WriteSampleDescriptions(out, track, true);
    EXPECT_EQ(bytes, Bytes("00 00 00 8B") + Text("stsd") + Bytes("00000000 00000002") + Bytes("00 00 00 57") +
                         Text("mp4a") + Bytes("000000000000 0001 0000000000000000 0002 0010 00000000 AC440000") +
                         Bytes("00 00 00 33") + Text("esds") +
                         Bytes("00000000 03 80808022 0000 00 04 80808014 40 15 000000 00000000 00000000") +
                         Bytes("05 80808002 12 10 06 80808001 02") + Bytes("00 00 00 24") + Text("sowt") +
                         Bytes("000000000000 0001 0000000000000000 0001 0010 00000000 BB800000"));
    bytes.clear();
    track.entry = 1;
    WriteSampleDescriptions(out, track, false);
    EXPECT_EQ(test::Slice(bytes, 12, 12), Bytes("00000001 00000024") + Text("sowt"));
}

}  // namespace
}  // namespace Orvane::Muxora
