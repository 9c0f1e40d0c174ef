#include "exact/xmkv_packet.h"

#include <gtest/gtest.h>

#include "xmkv_fixture.h"

namespace Orvane::Muxora {
namespace {

using namespace XmkvTest;

TEST_F(XmkvPacket, TheHeadWaitsForBothStreams) {
    stream->Open();
    EXPECT_EQ(stream->Video(Key(), MX_SUB_I, 0, 0), 0u);
    EXPECT_TRUE(stream->blocks.empty());
    EXPECT_EQ(stream->Audio(test::Adts(Bytes("21 10 04")), 0), 0u);
    ASSERT_EQ(stream->blocks.size(), 3u);
    EXPECT_EQ(stream->blocks[0].note.kind, static_cast<uint32_t>(MX_BLOCK_HEADER));
    EXPECT_EQ(stream->blocks[1].note.flags, static_cast<uint32_t>(MX_BLOCK_VIDEO | MX_BLOCK_KEY));
    EXPECT_EQ(stream->blocks[2].note.flags, static_cast<uint32_t>(MX_BLOCK_AUDIO));
    EXPECT_EQ(stream->blocks[2].note.time_scale, 5000u);
    // A head, a cluster of unknown size at a known time, blocks.
    EXPECT_EQ(Slice(stream->blocks[1].data, 0, 22),
              Bytes("1F 43 B6 75 01 FF FF FF FF FF FF FF E7 88 00 00 00 00 00 00 00 00"));
    EXPECT_EQ(Slice(stream->blocks[1].data, 22, 9), Bytes("A3") + Bytes("10 00 00 33") + Bytes("81 00 00 80"));
    EXPECT_EQ(stream->blocks[2].data, Bytes("A3 10 00 00 07 82 00 00 80 21 10 04"));
}

TEST_F(XmkvPacket, TheTracksAreTold) {
    stream->Open();
    ByteVector key = Key();
    MXFrameInfo frame = test::VideoFrame(key, MX_VIDEO_H264, MX_SUB_I);
    frame.rotation_angle = 90;
    MXSetFrameTimes(&frame, 30000, 0, 0, 1001);
    EXPECT_EQ(stream->package->inputFrame(&frame, 0), 0u);
    stream->Audio(test::Adts(Bytes("21")), -1024, 1024);
    const Element segment = Segment();
    const Element& video = Track(segment, 0);
    EXPECT_EQ(video.One(0x86).value, test::Text("V_MPEG4/ISO/AVC"));
    EXPECT_EQ(video.One(0x63A2).value, Configuration());
    EXPECT_EQ(video.One(0x23E383).UInt(), 33366667u);
    EXPECT_EQ(video.One(0xE0).One(0xB0).UInt(), 322u);
    EXPECT_EQ(video.One(0xE0).One(0xBA).UInt(), 242u);
    EXPECT_EQ(video.One(0xE0).One(0x7670).One(0x7675).Float(), -90.0);
    EXPECT_TRUE(video.All(0x56AA).empty());
    const Element& audio = Track(segment, 1);
    EXPECT_EQ(audio.One(0x86).value, test::Text("A_AAC"));
    EXPECT_EQ(audio.One(0x63A2).value, Bytes("11 90"));
    EXPECT_EQ(audio.One(0xE1).One(0xB5).Float(), 48000.0);
    EXPECT_EQ(audio.One(0xE1).One(0x9F).UInt(), 2u);
    // 1024 samples of sound ahead of 0.
    EXPECT_EQ(audio.One(0x56AA).UInt(), 21333333u);
    EXPECT_EQ(segment.One(0x1549A966).One(0x2AD7B1).UInt(), 200000u);
}

TEST_F(XmkvPacket, ShapeAndColourOfThePixels) {
    stream->Open(MX_VIDEO_H265, 0);
    EXPECT_EQ(
        stream->Video(test::HevcSets() + test::Units({Bytes("26 01 AC 11")}), MX_SUB_I, 0, 0, 0, 90000, MX_VIDEO_H265),
        0u);
    const Element segment = Segment();
    const Element& video = Track(segment, 0).One(0xE0);
    EXPECT_EQ(Track(segment, 0).One(0x86).value, test::Text("V_MPEGH/ISO/HEVC"));
    EXPECT_EQ(video.One(0xB0).UInt(), 1920u);
    EXPECT_EQ(video.One(0x54B0).UInt(), 2560u);  // 4:3 pixels
    EXPECT_EQ(video.One(0x54BA).UInt(), 1080u);
    const Element& colour = video.One(0x55B0);
    EXPECT_EQ(colour.One(0x55B1).UInt(), 9u);
    EXPECT_EQ(colour.One(0x55B9).UInt(), 2u);
    EXPECT_EQ(colour.One(0x55BA).UInt(), 16u);
    EXPECT_EQ(colour.One(0x55BB).UInt(), 9u);
}

TEST_F(XmkvPacket, BlocksHoldPresentationTimes) {
    stream->Open(MX_VIDEO_H264, 0);
    stream->Video(Key(), MX_SUB_I, 0, 2002, 1001, 30000);
    stream->Video(Inter(), MX_SUB_P, 1001, 5005, 1001, 30000);
    stream->Video(Inter(), MX_SUB_B, 2002, 3003, 1001, 30000);
    const Element segment = Segment();
    const Element& cluster = segment.One(0x1F43B675);
    EXPECT_EQ(cluster.One(0xE7).UInt(), 0u);
    const auto blocks = cluster.All(0xA3);
    ASSERT_EQ(blocks.size(), 3u);
    // 66.73, 166.83 and 100.1 ms.
    EXPECT_EQ(Slice(blocks[0]->value, 0, 4), Bytes("81 01 4E 80"));
    EXPECT_EQ(Slice(blocks[1]->value, 0, 4), Bytes("81 03 42 00"));
    EXPECT_EQ(Slice(blocks[2]->value, 0, 4), Bytes("81 01 F5 00"));
    EXPECT_EQ(Slice(blocks[1]->value, 4, 13), Bytes("00 00 00 03 41 9A 02 00 00 00 02 41 11"));
}

TEST_F(XmkvPacket, AnotherDurationThanTheTracksIsStated) {
    stream->Open(MX_VIDEO_H264, 0);
    stream->Video(Key(), MX_SUB_I, 0, 0, 3600);
    stream->Video(Inter(), MX_SUB_P, 3600, 3600, 7200);
    const Element segment = Segment();
    const Element& cluster = segment.One(0x1F43B675);
    EXPECT_EQ(cluster.All(0xA3).size(), 1u);
    const Element& group = cluster.One(0xA0);
    EXPECT_EQ(Slice(group.One(0xA1).value, 0, 4), Bytes("81 00 C8 00"));
    EXPECT_EQ(group.One(0x9B).UInt(), 400u);
    EXPECT_EQ(static_cast<int64_t>(group.One(0xFB).UInt()), -200);
}

// 25 pictures a second: one cluster a GOP, and of a GOP of eight seconds one of five and one of three.
TEST_F(XmkvPacket, ClustersAreGopsOfFiveSecondsAtMost) {
    stream->Open(MX_VIDEO_H264, 0);
    for (int i = 0; i < 450; ++i) {
        const bool key = i == 0 || i == 200 || i == 325 || i == 449;
        stream->Video(key ? Key() : Inter(), key ? MX_SUB_I : MX_SUB_P, i * 3600, i * 3600, 3600);
    }
    stream->Close();
    const Element segment = Segment();
    std::vector<uint64_t> times;
    std::vector<size_t> pictures;
    for (const Element* cluster : segment.All(0x1F43B675)) {
        times.push_back(cluster->One(0xE7).UInt());
        pictures.push_back(cluster->All(0xA3).size());
        EXPECT_NE(cluster->size, kUnknown);
    }
    EXPECT_EQ(times, (std::vector<uint64_t>{0, 25000, 40000, 65000, 89800}));
    EXPECT_EQ(pictures, (std::vector<size_t>{125, 75, 125, 124, 1}));
}

// A GOP of five seconds with sound between its pictures is one cluster; so is sound alone, five seconds at a time.
TEST_F(XmkvPacket, SoundDividesNoGop) {
    stream->Open();
    int64_t samples = 0;
    for (int i = 0; i < 251; ++i) {
        stream->Video(i % 125 == 0 ? Key() : Inter(), i % 125 == 0 ? MX_SUB_I : MX_SUB_P, i * 3600, i * 3600, 3600);
        for (; samples < (i + 1) * 1920; samples += 1024)
            stream->Audio(test::Adts(Bytes("21")), samples, 1024);
    }
    stream->Close();
    std::vector<uint64_t> times;
    const Element both = Segment();
    for (const Element* cluster : both.All(0x1F43B675))
        times.push_back(cluster->One(0xE7).UInt());
    EXPECT_EQ(times, (std::vector<uint64_t>{0, 25000, 50000}));

    stream = ExactStream::Of<CXmkvPacket>(MX_FORMAT_XMKV);
    stream->Open(0, MX_AUDIO_ALAW);
    for (int i = 0; i < 501; ++i)  // 20 ms each
        stream->Audio(ByteVector(160, 0x55), i * 160, 160, 8000, MX_AUDIO_ALAW);
    stream->Close();
    times.clear();
    const Element alone = Segment();
    for (const Element* cluster : alone.All(0x1F43B675))
        times.push_back(cluster->One(0xE7).UInt());
    EXPECT_EQ(times, (std::vector<uint64_t>{0, 25000, 50000}));
}

// 6.5534 s behind its cluster is the last place that a block can state; the picture behind that gets its own cluster.
TEST_F(XmkvPacket, WhatSixteenBitsDoNotReachBeginsACluster) {
    stream->Open(MX_VIDEO_H264, 0);
    stream->Video(Key(), MX_SUB_I, 0, 0, 100, 5000);
    stream->Video(Inter(), MX_SUB_P, 100, 32767, 100, 5000);
    stream->Video(Inter(), MX_SUB_P, 200, 32768, 100, 5000);
    stream->Video(Inter(), MX_SUB_B, 300, 300, 100, 5000);
    stream->Close();
    const Element segment = Segment();
    const auto clusters = segment.All(0x1F43B675);
    ASSERT_EQ(clusters.size(), 2u);
    EXPECT_EQ(Slice(clusters[0]->All(0xA3).at(1)->value, 0, 4), Bytes("81 7F FF 00"));
    EXPECT_EQ(clusters[1]->One(0xE7).UInt(), 200u);
    EXPECT_EQ(Slice(clusters[1]->All(0xA3).at(0)->value, 0, 4), Bytes("81 7F 38 00"));
    EXPECT_EQ(Slice(clusters[1]->All(0xA3).at(1)->value, 0, 4), Bytes("81 00 64 00"));
}

TEST_F(XmkvPacket, LongTimesKeepTheirBits) {
    stream->Open(MX_VIDEO_H264, 0);
    const int64_t year = int64_t{90000} * 86400 * 365;
    for (int i = 0; i < 5; ++i)
        stream->Video(i == 0 ? Key() : Inter(), i == 0 ? MX_SUB_I : MX_SUB_P, year + i * 3600, year + i * 3600, 3600);
    const Element segment = Segment();
    EXPECT_EQ(segment.One(0x1F43B675).One(0xE7).UInt(), uint64_t{5000} * 86400 * 365);
}

TEST_F(XmkvPacket, TheEndCompletesTheFile) {
    stream->Open(MX_VIDEO_H264, 0);
    for (int i = 0; i < 50; ++i)
        stream->Video(i % 25 == 0 ? Key() : Inter(), i % 25 == 0 ? MX_SUB_I : MX_SUB_P, i * 3600, i * 3600, 3600);
    EXPECT_EQ(stream->Close(), 0u);
    const ByteVector file = stream->File();
    const Element segment = Segment();
    EXPECT_EQ(segment.data + segment.size, file.size());
    EXPECT_EQ(segment.One(0x1549A966).One(0x4489).Float(), 10000.0);
    // Every place of the SeekHead is that of its element.
    for (const Element* seek : segment.One(0x114D9B74).All(0x4DBB)) {
        const auto id = static_cast<uint32_t>(seek->One(0x53AB).UInt());
        EXPECT_EQ(segment.One(id).position, segment.data + seek->One(0x53AC).UInt());
    }
    EXPECT_EQ(segment.One(0x114D9B74).All(0x4DBB).size(), 3u);
    const auto cues = segment.One(0x1C53BB6B).All(0xBB);
    const auto clusters = segment.All(0x1F43B675);
    ASSERT_EQ(cues.size(), 2u);
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(cues[i]->One(0xB3).UInt(), i * 5000);
        const Element& place = cues[i]->One(0xB7);
        EXPECT_EQ(place.One(0xF7).UInt(), 1u);
        EXPECT_EQ(segment.data + place.One(0xF1).UInt(), clusters[i]->position);
        EXPECT_EQ(clusters[i]->data + place.One(0xF0).UInt(), clusters[i]->All(0xA3)[0]->position);
    }
}

TEST_F(XmkvPacket, WhatASinkThatOnlyGoesForwardHasIsWhole) {
    stream->Open(MX_VIDEO_H264, 0);
    for (int i = 0; i < 50; ++i)
        stream->Video(i % 25 == 0 ? Key() : Inter(), i % 25 == 0 ? MX_SUB_I : MX_SUB_P, i * 3600, i * 3600, 3600);
    stream->Close();
    const Element segment = ReadFile(stream->Forward()).One(0x18538067);
    EXPECT_EQ(segment.size, kUnknown);
    EXPECT_FALSE(segment.One(0x1549A966).Has(0x4489));
    ASSERT_EQ(segment.All(0x1F43B675).size(), 2u);
    EXPECT_EQ(segment.All(0x1F43B675)[1]->size, kUnknown);
    EXPECT_EQ(segment.All(0x1F43B675)[1]->All(0xA3).size(), 25u);
}

TEST_F(XmkvPacket, WithoutAHeaderTheFirstBlockHoldsAllThatWaited) {
    stream->package->init();
    stream->Video(Key(), MX_SUB_I, 0, 0);
    stream->Video(Inter(), MX_SUB_P, 3600, 3600);
    EXPECT_TRUE(stream->blocks.empty());
    stream->Audio(test::Adts(Bytes("21")), 0);
    ASSERT_EQ(stream->blocks.size(), 1u);
    stream->Video(Inter(), MX_SUB_P, 7200, 7200);
    ASSERT_EQ(stream->blocks.size(), 2u);
    EXPECT_EQ(stream->blocks[1].note.block.seek_type, static_cast<uint32_t>(MX_SEEK_NEXT));
    stream->Close();
    EXPECT_EQ(stream->blocks.size(), 2u);
    EXPECT_EQ(Segment().One(0x1F43B675).All(0xA3).size(), 4u);
}

TEST_F(XmkvPacket, AStreamThatDoesNotComeIsWaitedForASecond) {
    stream->Open();
    int i = 0;
    for (; stream->blocks.empty() && i < 100; ++i)
        stream->Video(i == 0 ? Key() : Inter(), i == 0 ? MX_SUB_I : MX_SUB_P, i * 3600, i * 3600);
    EXPECT_EQ(i, 26);
    EXPECT_EQ(stream->blocks.size(), 27u);
    EXPECT_EQ(stream->Audio(test::Adts(Bytes("21")), 48000), 5u);
}

TEST_F(XmkvPacket, ChangedParameterSetsStandInEveryKeyFrame) {
    stream->Open(MX_VIDEO_H264, 0);
    stream->Video(Key(), MX_SUB_I, 0, 0);
    const ByteVector bare = test::Units({Bytes("65 88 80")});
    stream->Video(bare, MX_SUB_I, 3600, 3600);
    stream->Video(test::Units({test::HighSps(), test::HighPps()}), MX_SUB_I, 7200, 7200);
    stream->Video(bare, MX_SUB_I, 7200, 7200);
    const Element segment = Segment();
    EXPECT_EQ(Track(segment, 0).One(0x63A2).value, Configuration());
    const auto clusters = segment.All(0x1F43B675);
    ASSERT_EQ(clusters.size(), 3u);
    EXPECT_EQ(clusters[1]->One(0xA3).value, Bytes("81 00 00 80 00 00 00 03 65 88 80"));
    EXPECT_EQ(clusters[2]->One(0xA3).value, Bytes("81 00 00 80 00 00 00 1D") + test::HighSps() + Bytes("00 00 00 06") +
                                                test::HighPps() + Bytes("00 00 00 03 65 88 80"));
}

TEST_F(XmkvPacket, SoundOfOtherKinds) {
    const auto track = [&](uint32_t codec, ByteVector bytes) {
        stream = ExactStream::Of<CXmkvPacket>(MX_FORMAT_XMKV);
        stream->Open(0, codec);
        EXPECT_EQ(stream->Audio(bytes, 0, 0, 48000, codec), 0u);
        const Element segment = Segment();
        return Track(segment, 0);
    };
    const ByteVector some(64, 0x55);
    EXPECT_EQ(track(MX_AUDIO_ALAW, some).One(0x86).value, test::Text("A_MS/ACM"));
    EXPECT_EQ(track(MX_AUDIO_ALAW, some).One(0x63A2).value,
              Bytes("06 00 02 00 80 BB 00 00 00 77 01 00 02 00 08 00 00 00"));
    EXPECT_EQ(track(MX_AUDIO_PCM16, some).One(0x86).value, test::Text("A_PCM/INT/LIT"));
    EXPECT_EQ(track(MX_AUDIO_PCM16, some).One(0xE1).One(0x6264).UInt(), 16u);
    EXPECT_EQ(track(MX_AUDIO_MPEG, Bytes("FF FB 90 64 00")).One(0x86).value, test::Text("A_MPEG/L3"));
    EXPECT_EQ(track(MX_AUDIO_MPEG, Bytes("FF FD 84 C4 00")).One(0x86).value, test::Text("A_MPEG/L2"));
}

TEST_F(XmkvPacket, WhatIsRefused) {
    stream->Open();
    EXPECT_EQ(stream->Video(Inter(), MX_SUB_P, 0, 0), 5u);
    EXPECT_EQ(stream->Video(test::Units({Bytes("65 88")}), MX_SUB_I, 0, 0), 5u);  // no parameter sets
    EXPECT_EQ(stream->Video(ByteVector(40, 7), MX_SUB_I, 0, 0), 3u);
    EXPECT_EQ(stream->Audio(ByteVector(40, 7), 0), 3u);
    EXPECT_EQ(stream->Video(Key(), MX_SUB_I, 0, 0), 0u);
    EXPECT_EQ(
        stream->Video(test::HevcSets() + test::Units({Bytes("26 01 AC")}), MX_SUB_I, 1, 1, 0, 90000, MX_VIDEO_H265),
        5u);
}

TEST_F(XmkvPacket, AnEmptyFileHasAHead) {
    stream->Open();
    EXPECT_EQ(stream->Close(), 0u);
    EXPECT_TRUE(Segment().One(0x1654AE6B).children.empty());
}

// Start codes of three bytes take more room as lengths, and what was too much is given back: each frame stays whole.
TEST_F(XmkvPacket, WhatWaitsKeepsItsBytes) {
    stream->Open();
    const auto shortened = [](uint8_t fill) { return Bytes("00 00 01 41 9A") + ByteVector(20, fill); };
    stream->Video(Key(), MX_SUB_I, 0, 0);
    for (int i = 1; i < 4; ++i)
        EXPECT_EQ(stream->Video(shortened(static_cast<uint8_t>(i)), MX_SUB_P, i * 3600, i * 3600), 0u);
    EXPECT_TRUE(stream->blocks.empty());
    stream->Audio(test::Adts(Bytes("21 10 04")), 0);
    std::vector<ByteVector> pictures;
    const Element segment = Segment();
    for (const Element* block : segment.One(0x1F43B675).All(0xA3)) {
        if (block->value.at(0) == 0x81) pictures.push_back(Slice(block->value, 4, block->value.size() - 4));
    }
    ASSERT_EQ(pictures.size(), 4u);
    for (uint8_t i = 1; i < 4; ++i)
        EXPECT_EQ(pictures[i], Bytes("00 00 00 16 41 9A") + ByteVector(20, i));
}

TEST_F(XmkvPacket, SeveralAdtsFramesAreSeveralBlocks) {
    stream->Open(0);
    const ByteVector frames[] = {Bytes("21"), Bytes("22 23"), Bytes("24")};
    EXPECT_EQ(stream->Audio(test::Adts(frames[0]) + test::Adts(frames[1]) + test::Adts(frames[2]), 0), 0u);
    EXPECT_EQ(stream->Audio(test::Adts(Bytes("25")), 3072), 0u);
    const Element segment = Segment();
    std::vector<ByteVector> blocks;
    for (const Element& child : segment.One(0x1F43B675).children) {
        if (child.id == 0xA3) blocks.push_back(child.value);
        if (child.id == 0xA0) blocks.push_back(child.One(0xA1).value);
    }
    // 1024 samples of 48000 are 106.7 fifths of a millisecond.
    ASSERT_EQ(blocks.size(), 4u);
    EXPECT_EQ(Slice(blocks[0], 1, 2), Bytes("00 00"));
    EXPECT_EQ(Slice(blocks[1], 1, 2), Bytes("00 6B"));
    EXPECT_EQ(Slice(blocks[2], 1, 2), Bytes("00 D5"));
    EXPECT_EQ(Slice(blocks[3], 1, 2), Bytes("01 40"));
    for (size_t i = 0; i < 3; ++i)
        EXPECT_EQ(Slice(blocks[i], 4, blocks[i].size() - 4), frames[i]);
}

TEST_F(XmkvPacket, WhatIsNotMediaHasNoFlags) {
    stream->Open(MX_VIDEO_H264, 0);
    for (int i = 0; i < 3; ++i)
        stream->Video(Key(), MX_SUB_I, i * 90000, i * 90000, 90000);
    stream->Close();
    bool has_index = false;
    for (const ExactStream::Block& block : stream->blocks) {
        if (block.note.kind != MX_BLOCK_INDEX) continue;
        has_index = true;
        EXPECT_EQ(block.note.flags, 0u);
        EXPECT_EQ(block.note.time_scale, 5000u);
        EXPECT_EQ(block.note.dts, 15000) << "three seconds";
        EXPECT_EQ(block.note.duration, 0);
    }
    EXPECT_TRUE(has_index);
}

TEST_F(XmkvPacket, SoundOfEightBits) {
    const ByteVector some(64, 0x55);
    for (const auto& [codec, id, bits] :
         {std::tuple(MX_AUDIO_PCM8, "A_PCM/INT/LIT", 8u), {MX_AUDIO_MULAW, "A_MS/ACM", 8u}}) {
        stream = ExactStream::Of<CXmkvPacket>(MX_FORMAT_XMKV);
        stream->Open(0, codec);
        ASSERT_EQ(stream->Audio(some, 0, 0, 8000, codec), 0u);
        const Element segment = Segment();
        const Element& track = Track(segment, 0);
        EXPECT_EQ(track.One(0x86).value, test::Text(id));
        EXPECT_EQ(track.One(0xE1).One(0x6264).UInt(), bits);
        EXPECT_EQ(track.One(0x83).UInt(), 2u) << "TrackType: audio";
    }
}

TEST_F(XmkvPacket, EightMebibytesAreNotKeptWaiting) {
    stream->Open();
    int frames = 0;
    for (; stream->blocks.empty() && frames < 20; ++frames) {
        const ByteVector picture = test::Units({Bytes("41 9A") + ByteVector((1u << 20) - 6, 0x55)});
        ASSERT_EQ(
            stream->Video(frames == 0 ? Key() : picture, frames == 0 ? MX_SUB_I : MX_SUB_P, frames * 90, frames * 90),
            0u);
    }
    EXPECT_EQ(frames, 9) << "a key frame of a few bytes, and eight of a mebibyte";
}

// The EBML head (RFC 8794 11.2).
TEST_F(XmkvPacket, Versions) {
    stream->Open(0);
    stream->Audio(test::Adts(Bytes("21")), 0);
    const Element file = ReadFile(stream->File());
    const Element& head = file.One(0x1A45DFA3);
    for (const auto& [id, value] :
         {std::pair(0x4286u, 1u), {0x42F7u, 1u}, {0x42F2u, 4u}, {0x42F3u, 8u}, {0x4287u, 4u}, {0x4285u, 2u}})
        EXPECT_EQ(head.One(id).UInt(), value) << id;
}

}  // namespace
}  // namespace Orvane::Muxora
