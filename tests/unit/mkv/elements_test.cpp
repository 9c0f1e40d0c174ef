#include "mkv/elements.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "core/clock.h"
#include "support/hex.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::Text;
using test::operator+;

constexpr uint8_t kUntouched = 0xCC;

// What `write` puts at the start of an area; the rest of the area has to stay as it was.
template <typename Writer>
ByteVector Written(Writer write) {
    ByteVector area(4096, kUntouched);
    const uint32_t size = write(area.data());
    EXPECT_EQ(std::count(area.begin() + size, area.end(), kUntouched), static_cast<int>(area.size() - size));
    area.resize(size);
    return area;
}
ByteVector All(CBasicatom& element) {
    return Written([&](uint8_t* out) { return element.WriteAll(out); });
}
ByteVector Id(CBasicatom& element) {
    return Written([&](uint8_t* out) { return element.WriteId(out); });
}
ByteVector Body(CBasicatom& element) {
    return Written([&](uint8_t* out) { return element.WriteBody(out); });
}

const ByteVector kEmptySeekEntries = Bytes(
    "4D BB 8E 53 AB 84 15 49 A9 66 53 AC 84 00 00 00 00"
    "4D BB 8E 53 AB 84 16 54 AE 6B 53 AC 84 00 00 00 00"
    "4D BB 8E 53 AB 84 1C 53 BB 6B 53 AC 84 00 00 00 00");

TEST(Basicatom, TheBaseWritesAnIdOfZeros) {
    CBasicatom base;
    EXPECT_EQ(base.GetTotalSize(), 12u);
    EXPECT_EQ(Id(base), Bytes("00 00 00 00"));
    EXPECT_EQ(Body(base), ByteVector());
    EXPECT_EQ(All(base), Bytes("00 00 00 00"));
    base.SetTrackInfo(MkvTrackKind::kVideo, nullptr);
    base.SetFrame(1, nullptr);
    base.AddBodySize();
    EXPECT_EQ(base.GetTotalSize(), 12u);
}

TEST(MetaseekBox, AlwaysExactly500Bytes) {
    CMetaseekBox box;
    EXPECT_EQ(box.GetTotalSize(), 500u);
    const ByteVector bytes = All(box);
    EXPECT_EQ(bytes,
              Bytes("11 4D 9B 74 B3") + kEmptySeekEntries + Bytes("EC 01 00 00 00 00 00 01 B3") + ByteVector(435));
    EXPECT_EQ(bytes.size(), 500u);
    EXPECT_EQ(All(box), bytes);
    EXPECT_EQ(box.GetTotalSize(), 500u);
    EXPECT_EQ(Body(box), kEmptySeekEntries);
}

TEST(MetaseekBox, SeekEntriesWithPositions) {
    EXPECT_EQ(Written([](uint8_t* out) { return WriteSeekEntries(out, 500, 562, 0x89ABCDEF); }),
              Bytes("4D BB 8E 53 AB 84 15 49 A9 66 53 AC 84 00 00 01 F4"
                    "4D BB 8E 53 AB 84 16 54 AE 6B 53 AC 84 00 00 02 32"
                    "4D BB 8E 53 AB 84 1C 53 BB 6B 53 AC 84 89 AB CD EF"));
}

TEST(SegInfo, SecondsSince1970AndTheApplication) {
    const ScopedClock clock(0x66554433);
    CSegInfo info;
    EXPECT_EQ(info.GetTotalSize(), 12u);
    EXPECT_EQ(All(info), Bytes("15 49 A9 66 01 00 00 00 00 00 00 32"
                               "2A D7 B1 83 0F 42 40"
                               "44 61 88 00 00 00 00 66 55 44 33"
                               "4D 80 8D") +
                             Text("Lavf55.33.100") + Bytes("57 41 8D") + Text("Lavf55.33.100"));
    EXPECT_EQ(info.GetTotalSize(), 62u);
}

// ------------------------------------------------------------------------------------------------- CClusters

MkvBlock Block(const ByteVector& data, uint32_t kind, uint16_t timecode = 0) {
    return {data.data(), static_cast<uint32_t>(data.size()), kind, timecode};
}

TEST(Clusters, ABlockOfEachKind) {
    const ByteVector data = Bytes("AA BB CC");
    const auto written = [&](uint8_t track, uint32_t kind) {
        CClusters clusters;
        const MkvBlock block = Block(data, kind, 0x1234);
        clusters.SetFrame(track, &block);
        return Body(clusters);
    };
    EXPECT_EQ(written(1, 0), Bytes("A3 87 81 12 34 80 AA BB CC"));
    EXPECT_EQ(written(1, 18), Bytes("A3 87 81 12 34 80 AA BB CC"));
    EXPECT_EQ(written(1, 20), Bytes("A3 87 81 12 34 80 AA BB CC"));
    EXPECT_EQ(written(1, 1), Bytes("A3 87 81 12 34 00 AA BB CC"));
    EXPECT_EQ(written(1, 19), Bytes("A3 87 81 12 34 00 AA BB CC"));
    // Bi-predicted video and audio share a number, and with it the key flag.
    EXPECT_EQ(written(1, 2), Bytes("A3 87 81 12 34 80 AA BB CC"));
    EXPECT_EQ(written(2, 2), Bytes("A3 87 82 12 34 80 AA BB CC"));
}

TEST(Clusters, TheSizeIsCodedByItsLength) {
    const auto head = [](size_t length) {
        CClusters clusters;
        const ByteVector data(length, 0xDD);
        const MkvBlock block = Block(data, 1);
        clusters.SetFrame(1, &block);
        ByteVector out(length + 64);
        out.resize(clusters.WriteBody(out.data()));
        EXPECT_EQ(out.size(), CClusters::BlockSize(static_cast<uint32_t>(length)));
        out.resize(out.size() - length);
        return out;
    };
    EXPECT_EQ(head(0), Bytes("A3 84 81 00 00 00"));
    EXPECT_EQ(head(122), Bytes("A3 FE 81 00 00 00"));
    EXPECT_EQ(head(123), Bytes("A3 40 7F 81 00 00 00"));
    EXPECT_EQ(head(16378), Bytes("A3 7F FE 81 00 00 00"));
    EXPECT_EQ(head(16379), Bytes("A3 20 3F FF 81 00 00 00"));
    EXPECT_EQ(head(0x1FFFFA), Bytes("A3 3F FF FE 81 00 00 00"));
    EXPECT_EQ(head(0x1FFFFB), Bytes("A3 10 1F FF FF 81 00 00 00"));
}

TEST(Clusters, BlockSizeDoesNotWrap) {
    EXPECT_EQ(CClusters::BlockSize(0), 6u);
    EXPECT_GT(CClusters::BlockSize(0xFFFFFFFF), 0xFFFFFFFFu);
}

TEST(Clusters, OtherKindsWriteTheBlockBeforeOnceMore) {
    CClusters clusters;
    ByteVector area(64);
    const auto write = [&] { return ByteVector(area.data(), area.data() + clusters.WriteBody(area.data())); };
    ByteVector first = Bytes("01 02 03 04");
    MkvBlock block = Block(first, 0, 40);
    clusters.SetFrame(1, &block);
    const ByteVector expected = Bytes("A3 88 81 00 28 80 01 02 03 04");
    EXPECT_EQ(write(), expected);

    // The frame is the caller's: its bytes may be anything by now.
    std::fill(first.begin(), first.end(), 0xEE);
    const ByteVector second = Bytes("05 06");
    for (const uint32_t kind : {8u, 3u, 4u, 17u, 21u, 0xFFFFFFFFu}) {
        block = Block(second, kind, 80);
        clusters.SetFrame(2, &block);
        EXPECT_EQ(write(), expected) << kind;
    }
    clusters.SetFrame(2, nullptr);
    EXPECT_EQ(write(), expected);

    block = Block(second, 1, 80);
    clusters.SetFrame(2, &block);
    EXPECT_EQ(write(), Bytes("A3 86 82 00 50 00 05 06"));
}

TEST(Clusters, NothingBeforeTheFirstBlock) {
    CClusters clusters;
    EXPECT_EQ(Body(clusters), ByteVector());
    const ByteVector data = Bytes("01");
    const MkvBlock block = Block(data, 8);
    clusters.SetFrame(1, &block);
    EXPECT_EQ(Body(clusters), ByteVector());
    EXPECT_EQ(clusters.GetTotalSize(), 4u);
}

TEST(Clusters, SizesAddUp) {
    CClusters clusters;
    EXPECT_EQ(Id(clusters), Bytes("1F 43 B6 75"));
    const ByteVector data = Bytes("AA BB CC");
    const MkvBlock block = Block(data, 1);
    clusters.SetFrame(1, &block);
    ByteVector area(64);
    EXPECT_EQ(clusters.WriteBody(area.data()), 9u);
    EXPECT_EQ(clusters.GetTotalSize(), 9u + 4);
    // Once more, a few bytes further on in the same area.
    EXPECT_EQ(clusters.WriteAll(area.data()), 13u);
    EXPECT_EQ(test::Slice(area, 0, 13), Bytes("1F 43 B6 75 A3 87 81 00 00 00 AA BB CC"));
    EXPECT_EQ(clusters.GetTotalSize(), 18u + 4);
}

// --------------------------------------------------------------------------------------------------- CTracks

const std::string kAvcName("V_MPEG4/ISO/AVC", 16);

MkvTrackInfo VideoInfo(const ByteVector& configuration) {
    MkvTrackInfo info;
    info.number = 1;
    info.codec_id = kAvcName;
    info.codec_private = configuration;
    info.frame_rate = 25;
    info.width = 1920;
    info.height = 1080;
    return info;
}

MkvTrackInfo AudioInfo(const ByteVector& configuration) {
    MkvTrackInfo info;
    info.number = 2;
    info.codec_id = "A_AAC";
    info.codec_private = configuration;
    info.channels = 2;
    info.bit_depth = 16;
    info.sample_rate = 44100;
    return info;
}

TEST(Tracks, VideoEntry) {
    const ByteVector configuration = Bytes("01 02 03");
    const MkvTrackInfo info = VideoInfo(configuration);
    CTracks tracks;
    tracks.SetTrackInfo(MkvTrackKind::kVideo, &info);
    const ByteVector entry = Bytes(
                                 "AE 01 00 00 00 00 00 00 3B"
                                 "D7 81 01  73 C5 81 01  83 81 01"
                                 "86 90") +
                             Text("V_MPEG4/ISO/AVC") +
                             Bytes(
                                 "00  23 E3 83 84 02 62 5A 00  22 B5 9C 83 75 6E 64  63 A2 83 01 02 03"
                                 "E0 88 B0 82 07 80 BA 82 04 38");
    EXPECT_EQ(Body(tracks), entry);
    EXPECT_EQ(entry.size(), 9u + 0x3B);
    EXPECT_EQ(CTracks::EntrySize(MkvTrackKind::kVideo, info), entry.size());
    EXPECT_EQ(tracks.GetTotalSize(), entry.size() + 12);
    Body(tracks);
    EXPECT_EQ(tracks.GetTotalSize(), 2 * entry.size() + 12);
}

TEST(Tracks, AudioEntry) {
    const ByteVector configuration = Bytes("0A 10");
    const MkvTrackInfo info = AudioInfo(configuration);
    CTracks tracks;
    tracks.SetTrackInfo(MkvTrackKind::kAudio, &info);
    const ByteVector entry = Bytes(
                                 "AE 01 00 00 00 00 00 00 33"
                                 "D7 81 02  73 C5 81 02  9C 81 00  83 81 02"
                                 "86 85") +
                             Text("A_AAC") +
                             Bytes(
                                 "22 B5 9C 83 75 6E 64  63 A2 82 0A 10"
                                 "E1 91 B5 88 40 E5 88 80 00 00 00 00 9F 81 02 62 64 81 10");
    EXPECT_EQ(Body(tracks), entry);
    EXPECT_EQ(entry.size(), 60u);
    EXPECT_EQ(CTracks::EntrySize(MkvTrackKind::kAudio, info), 60u);
}

TEST(Tracks, OnlyAacHasAnAudioConfiguration) {
    const ByteVector configuration = Bytes("0A 10");
    MkvTrackInfo info = AudioInfo(configuration);
    info.codec_id = "A_PCM";
    CTracks tracks;
    tracks.SetTrackInfo(MkvTrackKind::kAudio, &info);
    const ByteVector body = Body(tracks);
    EXPECT_EQ(body.size(), 60u - 5);
    EXPECT_EQ(CTracks::EntrySize(MkvTrackKind::kAudio, info), 60u - 5);
    info.codec_id = "A_AAC/MPEG4/LC";
    tracks.SetTrackInfo(MkvTrackKind::kAudio, &info);
    EXPECT_EQ(Body(tracks).size(), 60u + 9);
}

TEST(Tracks, DurationOfAFrame) {
    const auto duration = [](uint32_t frame_rate) {
        MkvTrackInfo info = VideoInfo({});
        info.frame_rate = frame_rate;
        CTracks tracks;
        tracks.SetTrackInfo(MkvTrackKind::kVideo, &info);
        return test::Slice(Body(tracks), 9 + 10 + 18, 8);
    };
    EXPECT_EQ(duration(30), Bytes("23 E3 83 84 01 FC A0 55"));  // 33333333.3 ns
    EXPECT_EQ(duration(1), Bytes("23 E3 83 84 3B 9A CA 00"));
    EXPECT_EQ(duration(0), Bytes("23 E3 83 84 00 00 00 00"));
    EXPECT_EQ(duration(0xFFFFFFFF), Bytes("23 E3 83 84 00 00 00 00"));
}

TEST(Tracks, WithoutAKindTheEntryIsEmpty) {
    CTracks tracks;
    EXPECT_EQ(Body(tracks), Bytes("AE 01 00 00 00 00 00 00 00"));
    EXPECT_EQ(CTracks::EntrySize(MkvTrackKind::kNone, {}), 9u);
    EXPECT_EQ(Id(tracks), Bytes("16 54 AE 6B"));
    EXPECT_EQ(All(tracks), Bytes("16 54 AE 6B AE 01 00 00 00 00 00 00 00"));
}

TEST(Tracks, ANullRecordClearsTheEntry) {
    const ByteVector configuration = Bytes("01 02 03");
    const MkvTrackInfo info = VideoInfo(configuration);
    CTracks tracks;
    tracks.SetTrackInfo(MkvTrackKind::kVideo, &info);
    tracks.SetTrackInfo(MkvTrackKind::kVideo, nullptr);
    EXPECT_EQ(Body(tracks), Bytes("AE 01 00 00 00 00 00 00 28"
                                  "D7 81 00  73 C5 81 01  83 81 01  86 80"
                                  "23 E3 83 84 00 00 00 00  22 B5 9C 83 75 6E 64  63 A2 80"
                                  "E0 88 B0 82 00 00 BA 82 00 00"));
}

TEST(Tracks, KeepsItsOwnCopyOfTheRecord) {
    ByteVector configuration = Bytes("01 02 03");
    std::string name = kAvcName;
    MkvTrackInfo info = VideoInfo(configuration);
    info.codec_id = name;
    CTracks tracks;
    tracks.SetTrackInfo(MkvTrackKind::kVideo, &info);
    const ByteVector before = Body(tracks);
    configuration.assign(3, 0xEE);
    name.assign(16, 'X');
    EXPECT_EQ(Body(tracks), before);
}

TEST(Tracks, TheLargestConfigurationAndOneBeyond) {
    ByteVector configuration(351, 0x5A);
    MkvTrackInfo info = VideoInfo(configuration);
    CTracks tracks;
    tracks.SetTrackInfo(MkvTrackKind::kVideo, &info);
    const ByteVector body = Body(tracks);
    EXPECT_EQ(body.size(), 66u + 351);
    EXPECT_EQ(test::Slice(body, 52, 5), Bytes("63 A2 41 5F 5A"));
    EXPECT_EQ(CTracks::EntrySize(MkvTrackKind::kVideo, info), 66u + 351);

    configuration.push_back(0x5A);
    info = VideoInfo(configuration);
    EXPECT_EQ(CTracks::EntrySize(MkvTrackKind::kVideo, info), 66u + 352);
    const std::string long_name(21, 'N');
    info.codec_id = long_name;
    tracks.SetTrackInfo(MkvTrackKind::kVideo, &info);
    EXPECT_EQ(Body(tracks).size(), 65u - 16);
}

TEST(Elements, ANullPlaceGives3) {
    CBasicatom base;
    CMetaseekBox seek_head;
    CSegInfo info;
    CClusters clusters;
    CTracks tracks;
    EXPECT_EQ(clusters.WriteId(nullptr), 3u);
    EXPECT_EQ(clusters.WriteBody(nullptr), 3u);
    EXPECT_EQ(clusters.WriteAll(nullptr), 3u);
    EXPECT_EQ(tracks.WriteId(nullptr), 3u);
    EXPECT_EQ(tracks.WriteBody(nullptr), 3u);
    EXPECT_EQ(tracks.WriteAll(nullptr), 3u);
    EXPECT_EQ(seek_head.WriteAll(nullptr), 3u);
    EXPECT_EQ(seek_head.WriteBody(nullptr), 3u);
    EXPECT_EQ(info.WriteAll(nullptr), 3u);
    EXPECT_EQ(base.WriteId(nullptr), 3u);
    EXPECT_EQ(base.WriteAll(nullptr), 3u);
}

}  // namespace
}  // namespace Orvane::Muxora
