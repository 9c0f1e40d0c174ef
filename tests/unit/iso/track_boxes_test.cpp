#include "iso/track_boxes.h"

#include <gtest/gtest.h>

#include "box_bytes.h"
#include "support/allocation_counter.h"
#include "support/iso_file.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::IsoFile;
using test::operator+;

// A key frame with an SPS of `s` and a PPS of `p` bytes.
ByteVector KeyFrame(size_t s, size_t p) {
    ByteVector sps = Bytes("67 64 00 28");
    sps.resize(s, 0xFF);
    ByteVector pps = Bytes("68 EE");
    pps.resize(p, 0xFF);
    return Bytes("00 00 00 01") + sps + Bytes("00 00 00 01") + pps + Bytes("00 00 00 01 65 88 84 00");
}

TrackInfo Video(const ByteVector& frame, uint32_t frame_rate = 25) {
    VideoTrackInfo info;
    info.data = frame.data();
    info.length = static_cast<uint32_t>(frame.size());
    info.width = 1280;
    info.height = 720;
    info.frame_rate = frame_rate;
    info.encode_type = 2;
    return info;
}

TrackInfo Audio(uint32_t rate = 48000, uint32_t encode_type = 26) {
    return AudioTrackInfo{encode_type, 2, 16, rate};
}

SampleInfo Sample(uint32_t length, uint32_t sub_type = 1, uint32_t frame_rate = 25, uint64_t offset = 0) {
    static const uint8_t kData[16] = {};
    return {kData, length, sub_type, frame_rate, offset};
}

void Give(CBox_moov& moov, uint32_t trackType, SampleInfo sample, int count = 1) {
    for (int i = 0; i < count; ++i) {
        SampleInfo copy = sample;
        moov.Update(trackType, copy);
    }
}

IsoFile Tree(const CBox& box) {
    return IsoFile(Written(box));
}

TEST(Moov, WithoutAFrameItHoldsMvhdAloneIn116Bytes) {
    CBox_moov moov(BoxVariant::kMp4);
    const IsoFile tree = Tree(moov);
    EXPECT_EQ(moov.GetSize(), 116u);
    EXPECT_EQ(IsoFile::Types(tree.At("moov").children), "mvhd");
    EXPECT_EQ(tree.Size("moov/mvhd"), 108u);
    EXPECT_EQ(tree.Number("moov/mvhd", 16, 4), 0u);
    EXPECT_EQ(tree.Number("moov/mvhd", 96, 4), 1u);
}

// An H.264 trak of S samples, K sync samples, E closed runs, an SPS of s and a PPS of p bytes takes
// 482 + s + p + 8 E + 4 K + 8 S bytes; with 64-bit offsets 4 more a sample.
TEST(Moov, SizeOfAnH264Track) {
    const ByteVector frame = KeyFrame(20, 5);
    const TrackInfo info = Video(frame);
    for (const BoxVariant variant : {BoxVariant::kMp4, BoxVariant::kMov, BoxVariant::kMp4NoSeek}) {
        CBox_moov moov(variant);
        moov.Init(1, &info);
        EXPECT_EQ(moov.GetSize(), 116u + 482 + 20 + 5);
        Give(moov, 1, Sample(9, 0));
        Give(moov, 1, Sample(9), 24);
        Give(moov, 1, Sample(9, 18, 50));
        Give(moov, 1, Sample(9, 1, 40), 2);
        // S = 28, K = 2, E = 2
        EXPECT_EQ(Tree(moov).Size("moov/trak"), 482u + 20 + 5 + 8 * 2 + 4 * 2 + 8 * 28);
        EXPECT_EQ(moov.GetSize(), 116u + 482 + 20 + 5 + 8 * 2 + 4 * 2 + 8 * 28);
    }
    for (const BoxVariant variant : {BoxVariant::kMp4Large, BoxVariant::kMovLarge}) {
        CBox_moov moov(variant);
        moov.Init(1, &info);
        Give(moov, 1, Sample(9, 0), 3);
        EXPECT_EQ(Tree(moov).Size("moov/trak"), 482u + 20 + 5 + 4 * 3 + 12 * 3);
    }
}

TEST(Trak, OnlyTheFirstFrameIsAskedWhatTheTrackIs) {
    CBox_trak trak(BoxVariant::kMp4);
    trak.Init(kAudioTrack, nullptr);
    EXPECT_FALSE(trak.IsPresent());
    const TrackInfo first = Audio(48000);
    trak.Init(kAudioTrack, &first);
    EXPECT_TRUE(trak.IsPresent());
    const ByteVector bytes = Written(trak);
    const TrackInfo second = Audio(8000, 7);
    trak.Init(kAudioTrack, &second);
    EXPECT_EQ(Written(trak), bytes);
}

// An AAC trak at a listed rate takes 444 + 8 S bytes in an MP4.
TEST(Moov, SizeOfAnAacTrack) {
    const ByteVector frame = KeyFrame(20, 5);
    const TrackInfo video = Video(frame);
    const TrackInfo audio = Audio();
    CBox_moov moov(BoxVariant::kMp4);
    moov.Init(1, &video);
    moov.Init(2, &audio);
    Give(moov, 2, Sample(16), 7);
    EXPECT_EQ(Tree(moov).Size("moov/trak:1"), 444u + 8 * 7);

    CBox_moov large(BoxVariant::kMp4Large);
    large.Init(1, &video);
    large.Init(2, &audio);
    Give(large, 2, Sample(16), 7);
    EXPECT_EQ(Tree(large).Size("moov/trak:1"), 444u + 12 * 7);
}

TEST(Moov, ShapeOfTheTree) {
    const ByteVector frame = KeyFrame(20, 5);
    const TrackInfo video = Video(frame);
    const TrackInfo audio = Audio();
    CBox_moov moov(BoxVariant::kMp4);
    // The order of the calls is not that of the file.
    moov.Init(2, &audio);
    moov.Init(1, &video);
    const IsoFile tree = Tree(moov);
    EXPECT_EQ(IsoFile::Types(tree.At("moov").children), "mvhd trak trak");
    EXPECT_EQ(IsoFile::Types(tree.At("moov/trak").children), "tkhd mdia");
    EXPECT_EQ(IsoFile::Types(tree.At("moov/trak/mdia").children), "mdhd hdlr minf");
    EXPECT_EQ(IsoFile::Types(tree.At("moov/trak/mdia/minf").children), "vmhd dinf stbl");
    EXPECT_EQ(IsoFile::Types(tree.At("moov/trak/mdia/minf/stbl").children), "stsd stts stss stsc stsz stco");
    EXPECT_EQ(IsoFile::Types(tree.At("moov/trak:1/mdia/minf").children), "smhd dinf stbl");
    EXPECT_EQ(IsoFile::Types(tree.At("moov/trak:1/mdia/minf/stbl").children), "stsd stts stsc stsz stco");
    EXPECT_EQ(tree.Number("moov/trak/tkhd", 12, 4), 1u);
    EXPECT_EQ(tree.Number("moov/trak:1/tkhd", 12, 4), 2u);
    EXPECT_EQ(tree.Number("moov/mvhd", 96, 4), 3u);
}

TEST(Moov, LargeVariantsTakeCo64) {
    const ByteVector frame = KeyFrame(20, 5);
    const TrackInfo video = Video(frame);
    CBox_moov moov(BoxVariant::kMovLarge);
    moov.Init(1, &video);
    Give(moov, 1, Sample(9, 0, 25, 0x123456789));
    const IsoFile tree = Tree(moov);
    EXPECT_EQ(IsoFile::Types(tree.At("moov/trak/mdia/minf/stbl").children), "stsd stts stss stsc stsz co64");
    EXPECT_EQ(tree.Offsets(0), std::vector<uint64_t>{0x123456789});
}

TEST(Moov, SmallVariantsCutOffsetsTo32Bits) {
    const ByteVector frame = KeyFrame(20, 5);
    const TrackInfo video = Video(frame);
    for (const BoxVariant variant : {BoxVariant::kMp4, BoxVariant::kMov, BoxVariant::kMp4NoSeek}) {
        CBox_moov moov(variant);
        moov.Init(1, &video);
        Give(moov, 1, Sample(9, 0, 25, 0x123456789));
        EXPECT_EQ(Tree(moov).Offsets(0), std::vector<uint64_t>{0x23456789});
    }
}

TEST(Moov, SyncSamplesAreThreeOfTheKinds) {
    const ByteVector frame = KeyFrame(20, 5);
    const TrackInfo video = Video(frame);
    CBox_moov moov(BoxVariant::kMp4);
    moov.Init(1, &video);
    EXPECT_TRUE(Tree(moov).SyncSamples(0).empty());
    for (const uint32_t sub_type : {8U, 1U, 0U, 2U, 18U, 3U, 19U, 20U, 21U})
        Give(moov, 1, Sample(9, sub_type));
    EXPECT_EQ(Tree(moov).SyncSamples(0), (std::vector<uint64_t>{3, 5, 8}));
}

TEST(Moov, DurationsAreThoseOfTheTablesAndTheLongestTrackCounts) {
    const ByteVector frame = KeyFrame(20, 5);
    const TrackInfo video = Video(frame);
    const TrackInfo audio = Audio(44100);
    CBox_moov moov(BoxVariant::kMp4);
    moov.Init(1, &video);
    moov.Init(2, &audio);
    Give(moov, 1, Sample(9), 100);
    Give(moov, 2, Sample(16), 100);
    IsoFile tree = Tree(moov);
    EXPECT_EQ(tree.Number("moov/trak/mdia/mdhd", 16, 4), 4000u);
    EXPECT_EQ(tree.Number("moov/trak/tkhd", 20, 4), 4000u);
    EXPECT_EQ(tree.Number("moov/trak:1/mdia/mdhd", 12, 4), 44100u);
    EXPECT_EQ(tree.Number("moov/trak:1/mdia/mdhd", 16, 4), 102400u);
    EXPECT_EQ(tree.Number("moov/trak:1/tkhd", 20, 4), 2321u);
    EXPECT_EQ(tree.Number("moov/mvhd", 16, 4), 4000u);
    Give(moov, 2, Sample(16), 100);
    tree = Tree(moov);
    EXPECT_EQ(tree.Number("moov/trak:1/tkhd", 20, 4), 4643u);
    EXPECT_EQ(tree.Number("moov/mvhd", 16, 4), 4643u);
}

// 16777217 is the first whole number that single precision can't hold.
TEST(Moov, DurationsPassThroughSinglePrecision) {
    const ByteVector frame = KeyFrame(20, 5);
    const TrackInfo video = Video(frame, 1000);
    CBox_moov moov(BoxVariant::kMp4);
    moov.Init(1, &video);
    // 16777 samples of 1000 ms and 217 of 1 ms.
    Give(moov, 1, Sample(9, 1, 1), 16777);
    Give(moov, 1, Sample(9, 1, 1000), 217);
    const IsoFile tree = Tree(moov);
    EXPECT_EQ(tree.Number("moov/trak/mdia/mdhd", 16, 4), 16777217u);
    EXPECT_EQ(tree.Number("moov/trak/tkhd", 20, 4), 16777216u);
    EXPECT_EQ(tree.Number("moov/mvhd", 16, 4), 16777216u);
}

// At one sample a second, 4194 AAC frames last 4294656000 ms, and one more passes the end of 32 bits.
TEST(Moov, MovieDurationNeverShrinks) {
    const TrackInfo audio = Audio(1);
    CBox_moov moov(BoxVariant::kMp4);
    moov.Init(2, &audio);
    Give(moov, 2, Sample(16), 4194);
    EXPECT_EQ(Tree(moov).Number("moov/mvhd", 16, 4), 4294656000u);
    Give(moov, 2, Sample(16), 1);
    const IsoFile tree = Tree(moov);
    EXPECT_EQ(tree.Number("moov/trak/mdia/mdhd", 16, 4), 4195u * 1024);
    EXPECT_EQ(tree.Number("moov/trak/tkhd", 20, 4), 712704u);
    EXPECT_EQ(tree.Number("moov/mvhd", 16, 4), 4294656000u);
}

TEST(Moov, ASampleRateOf0LeavesTheDurationsAlone) {
    const ByteVector frame = KeyFrame(20, 5);
    const TrackInfo video = Video(frame);
    const TrackInfo audio = Audio(0);
    CBox_moov moov(BoxVariant::kMp4);
    moov.Init(1, &video);
    moov.Init(2, &audio);
    Give(moov, 1, Sample(9), 1);
    Give(moov, 2, Sample(16), 100);
    const IsoFile tree = Tree(moov);
    EXPECT_EQ(tree.Number("moov/trak:1/mdia/mdhd", 12, 4), 0u);
    EXPECT_EQ(tree.Number("moov/trak:1/tkhd", 20, 4), 0u);
    EXPECT_EQ(tree.Number("moov/mvhd", 16, 4), 40u);
}

TEST(Moov, ATinySampleRateWrapsIn32Bits) {
    const ByteVector frame = KeyFrame(20, 5);
    const TrackInfo video = Video(frame);
    const TrackInfo audio = Audio(1);
    CBox_moov moov(BoxVariant::kMp4);
    moov.Init(1, &video);
    moov.Init(2, &audio);
    Give(moov, 2, Sample(16), 5000);  // 5120000 seconds
    // 5120000 * 1000 - 2^32
    EXPECT_EQ(Tree(moov).Number("moov/trak:1/tkhd", 20, 4), 825032704u);
}

TEST(Moov, WithoutARecordNoTrackOpens) {
    CBox_moov moov(BoxVariant::kMp4);
    for (const uint32_t type : {1U, 2U, 3U}) {
        moov.Init(type, nullptr);
        Give(moov, type, Sample(9));
    }
    EXPECT_EQ(moov.GetSize(), 116u);
}

TEST(Moov, TheExtTrackIsCompleteForWhoeverOpensIt) {
    const TrackInfo any = Audio();
    CBox_moov moov(BoxVariant::kMp4);
    moov.Init(3, &any);
    Give(moov, 3, Sample(9, 0, 25, 77), 2);
    const IsoFile tree = Tree(moov);
    EXPECT_EQ(tree.Number("moov/trak/tkhd", 12, 4), 3u);
    EXPECT_EQ(tree.Number("moov/trak/tkhd", 20, 4), 0u);
    EXPECT_EQ(test::Slice(tree.Payload("moov/trak/mdia/hdlr"), 8, 4), test::Text("ORVX"));
    EXPECT_EQ(IsoFile::Types(tree.At("moov/trak/mdia/minf").children), "dinf stbl");
    EXPECT_EQ(IsoFile::Types(tree.At("moov/trak/mdia/minf/stbl").children), "stsd stts stsc stsz stco");
    EXPECT_EQ(tree.Size("moov/trak/mdia/minf/stbl/stsd/ORVX"), 85u);
    EXPECT_EQ(tree.Sizes(0), (std::vector<uint64_t>{9, 9}));
    EXPECT_EQ(tree.Runs(0), (std::vector<std::pair<uint64_t, uint64_t>>{{2, 0}}));
}

TEST(Moov, WritingTwiceGivesTheSameBytes) {
    const ByteVector frame = KeyFrame(20, 5);
    const TrackInfo video = Video(frame);
    CBox_moov moov(BoxVariant::kMov);
    moov.Init(1, &video);
    Give(moov, 1, Sample(9, 0, 30), 1000);
    EXPECT_EQ(Written(moov), Written(moov));
}

TEST(Moov, ASizeThatDoesNotFitIsSaidAllTheWayUp) {
    ByteVector config = Bytes("00 00 01 B0");
    config.resize(128, 0x55);
    const ByteVector frame = config + Bytes("00 00 01 B6 10 11 12 13 14");
    VideoTrackInfo video = std::get<VideoTrackInfo>(Video(frame));
    video.encode_type = 1;
    const TrackInfo info = video;
    CBox_moov moov(BoxVariant::kMp4);
    moov.Init(1, &info);
    SampleInfo sample{frame.data(), static_cast<uint32_t>(frame.size()), 0, 25, 0};
    moov.Update(1, sample);
    const std::string sizes = std::to_string(moov.GetSize() - 8 + 3) + " != " + std::to_string(moov.GetSize() - 8);
    EXPECT_EQ(Complaints(moov),
              "CBox_esds::WriteData error!\nCBox_mp4v:WriteData error!\nCBox_stsd:WriteData error!\n"
              "CBox_stbl:WriteData error!\nCBox_minf:WriteData error!\nCBox_mdia:WriteData error!\n"
              "CBox_trak:WriteData error!\nCBox_moov:WriteData error! " +
                  sizes + " \n");
}

// --- ADTS headers

class AdtsSample : public testing::Test {
  protected:
    // What the track makes of the bytes.
    ByteVector Narrowed(const ByteVector& bytes, uint32_t encode_type = 26) {
        const TrackInfo info = Audio(48000, encode_type);
        CBox_trak trak(BoxVariant::kMp4);
        trak.Init(2, &info);
        SampleInfo sample{bytes.data(), static_cast<uint32_t>(bytes.size()), 0, 0, 0};
        trak.Update(sample);
        return {sample.data, sample.data + sample.length};
    }
};

TEST_F(AdtsSample, LosesItsHeader) {
    EXPECT_EQ(Narrowed(Bytes("FF F1 4C 80 01 7F FC 11 22 33 44")), Bytes("11 22 33 44"));
    // MPEG-2 has the other ID bit.
    EXPECT_EQ(Narrowed(Bytes("FF F9 4C 80 01 7F FC 11 22 33 44")), Bytes("11 22 33 44"));
}

TEST_F(AdtsSample, OfTwoFramesIsTheFirstAlone) {
    EXPECT_EQ(Narrowed(Bytes("FF F1 4C 80 01 7F FC 11 22 33 44  FF F1 4C 80 01 1F FC 55")), Bytes("11 22 33 44"));
}

TEST_F(AdtsSample, KeepsAHeaderWithACrc) {
    const ByteVector frame = Bytes("FF F0 4C 80 01 7F FC 11 22 33 44");
    EXPECT_EQ(Narrowed(frame), frame);
}

TEST_F(AdtsSample, WithoutAHeaderStaysAsItIs) {
    for (const char* bytes : {"21 10 04 60 8C 1C 11 22", "FF E1 4C 80 01 7F FC 11", "FF", "FF F1", "FF F1 4C 80 01 7F"})
        EXPECT_EQ(Narrowed(Bytes(bytes)), Bytes(bytes));
    EXPECT_EQ(Narrowed({}), ByteVector{});
}

TEST_F(AdtsSample, WithALengthThatCannotBeRightStaysAsItCame) {
    // 6, smaller than the header; 12, one more than there is; 0x1FFF.
    for (const char* bytes : {"FF F1 4C 80 00 DF FC 11 22 33 44", "FF F1 4C 80 01 9F FC 11 22 33 44",
                              "FF F1 4C 83 FF FF FC 11 22 33 44", "FF F1 4C 80 00 1F FC 11 22 33 44"})
        EXPECT_EQ(Narrowed(Bytes(bytes)), Bytes(bytes));
    // 7: a header with nothing behind it.
    EXPECT_EQ(Narrowed(Bytes("FF F1 4C 80 00 FF FC 11 22")), ByteVector{});
}

TEST_F(AdtsSample, OfMpegAudioIsNoneOfOurs) {
    const ByteVector frame = Bytes("FF F1 4C 80 01 7F FC 11 22 33 44");
    EXPECT_EQ(Narrowed(frame, 31), frame);
}

}  // namespace
}  // namespace Orvane::Muxora
