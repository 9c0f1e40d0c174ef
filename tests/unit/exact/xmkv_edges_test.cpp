// What of the streams that Matroska takes is rare: other codecs, late sound, refusals, times at the edge of a block.
#include <gtest/gtest.h>

#include "support/allocation_counter.h"
#include "support/quiet_file.h"
#include "support/untouched_memory.h"
#include "xmkv_fixture.h"

namespace Orvane::Muxora {
namespace {

using namespace XmkvTest;

const ByteVector kMpeg4Headers = Bytes("00 00 01 B0 01 00 00 01 B5 89 13 00 00 01 00 00 00 01 20 00 C4 88");
const ByteVector kMpeg4Picture = Bytes("00 00 01 B6 10 60 11");

struct XmkvEdges : XmkvPacket {
    static std::vector<uint64_t> ClusterTimes(const Element& segment) {
        std::vector<uint64_t> times;
        for (const Element* cluster : segment.All(0x1F43B675))
            times.push_back(cluster->One(0xE7).UInt());
        return times;
    }
};

TEST_F(XmkvEdges, Mpeg4StatesItsHeadersAndKeepsItsFrames) {
    stream->Open(MX_VIDEO_MPEG4, 0);
    const ByteVector key = kMpeg4Headers + kMpeg4Picture;
    EXPECT_EQ(stream->Video(key, MX_SUB_I, 0, 0, 3600, 90000, MX_VIDEO_MPEG4), 0u);
    EXPECT_EQ(stream->Video(kMpeg4Picture, MX_SUB_P, 3600, 3600, 3600, 90000, MX_VIDEO_MPEG4), 0u);
    const Element segment = Segment();
    EXPECT_EQ(Track(segment, 0).One(0x86).value, test::Text("V_MPEG4/ISO/ASP"));
    EXPECT_EQ(Track(segment, 0).One(0x63A2).value, kMpeg4Headers);
    EXPECT_EQ(Track(segment, 0).One(0xE0).One(0xB0).UInt(), 1920u) << "of the record";
    const auto blocks = segment.One(0x1F43B675).All(0xA3);
    ASSERT_EQ(blocks.size(), 2u);
    EXPECT_EQ(blocks[0]->value, Bytes("81 00 00 80") + key);
    EXPECT_EQ(blocks[1]->value, Bytes("81 00 C8 00") + kMpeg4Picture);
}

TEST_F(XmkvEdges, MotionJpegHasNothingToState) {
    stream->Open(MX_VIDEO_MJPEG, 0);
    const ByteVector picture = Bytes("FF D8 FF DB 00 FF D9");
    EXPECT_EQ(stream->Video(picture, MX_SUB_I, 0, 0, 3600, 90000, MX_VIDEO_MJPEG), 0u);
    const Element segment = Segment();
    EXPECT_EQ(Track(segment, 0).One(0x86).value, test::Text("V_MJPEG"));
    EXPECT_FALSE(Track(segment, 0).Has(0x63A2));
    EXPECT_EQ(segment.One(0x1F43B675).One(0xA3).value, Bytes("81 00 00 80") + picture);
}

TEST_F(XmkvEdges, ASecondIsTheDefaultDurationOfAPictureASecond) {
    stream->Open(MX_VIDEO_H264, 0);
    stream->Video(Key(), MX_SUB_I, 0, 0, 90000);
    EXPECT_EQ(Track(Segment(), 0).One(0x23E383).UInt(), 1000000000u);
}

// A frame of a format is longer than any block, or comes ahead of what a block can state; sound is no MPEG audio.
TEST_F(XmkvEdges, WhatNoBlockHolds) {
    EXPECT_EQ(stream->package->createHeader(nullptr, 0), 3u) << "ahead of init";
    stream->Open();
    EXPECT_EQ(stream->Audio(ByteVector(40, 7), 0, 0, 48000, MX_AUDIO_MPEG), 3u);
    EXPECT_EQ(stream->Audio(ByteVector(40, 7), 0, 0, 8000, MX_AUDIO_WAVE_TAG_64), 5u);
    // 6.5536 s are 32768 ticks.
    EXPECT_EQ(stream->Video(Key(), MX_SUB_I, -32769, -32769, 100, 5000), 5u);
    EXPECT_TRUE(stream->blocks.empty());
    constexpr uint32_t kTooLarge = 0x0C000001;
    const test::UntouchedMemory memory(kTooLarge);
    ASSERT_NE(memory.Get(), nullptr);
    ByteVector none;
    MXFrameInfo picture = test::VideoFrame(none, MX_VIDEO_MJPEG, MX_SUB_I);
    MXFrameInfo sound = test::AudioFrame(none, MX_AUDIO_ALAW);
    for (MXFrameInfo* frame : {&picture, &sound}) {
        frame->frame_pointer = static_cast<uint8_t*>(memory.Get());
        frame->frame_size = kTooLarge;
        EXPECT_EQ(stream->package->inputFrame(frame, 0), 5u);
    }
    EXPECT_TRUE(stream->blocks.empty());
}

TEST_F(XmkvEdges, ThePictureThatABlockCanJustState) {
    stream->Open(MX_VIDEO_H264, 0);
    EXPECT_EQ(stream->Video(Key(), MX_SUB_I, -32768, -32768, 100, 5000), 0u);
    const Element segment = Segment();
    EXPECT_EQ(segment.One(0x1F43B675).One(0xE7).UInt(), 0u);
    EXPECT_EQ(segment.One(0x1F43B675).One(0xA3).value.at(1), 0x80);
}

TEST_F(XmkvEdges, ASecondHeaderChangesNothing) {
    stream->Open(MX_VIDEO_H264, 0);
    stream->Video(Key(), MX_SUB_I, 0, 0);
    EXPECT_EQ(stream->Open(0, MX_AUDIO_AAC), 0u);
    EXPECT_EQ(stream->Video(Inter(), MX_SUB_P, 3600, 3600), 0u);
    EXPECT_EQ(Segment().One(0x1F43B675).All(0xA3).size(), 2u);
}

TEST_F(XmkvEdges, WithoutAHeaderAndWithoutAFrameThereIsNothing) {
    stream->package->init();
    EXPECT_EQ(stream->Close(), 0u);
    EXPECT_TRUE(stream->blocks.empty());
}

TEST_F(XmkvEdges, AnEmptyFrameOfSoundWaitsToo) {
    stream->Open();
    EXPECT_EQ(stream->Audio(test::Adts({}), 0), 0u);
    EXPECT_EQ(stream->Video(Key(), MX_SUB_I, 0, 0), 0u);
    const Element segment = Segment();
    // Sound alone has a cluster; the key frame begins another.
    const auto clusters = segment.All(0x1F43B675);
    ASSERT_EQ(clusters.size(), 2u);
    EXPECT_EQ(clusters[0]->One(0xA3).value, Bytes("82 00 00 80"));
}

// Sound that comes next may lie ahead of the key frame that begins a cluster, if it is less than a second behind.
TEST_F(XmkvEdges, AClusterBeginsWithTheSoundThatIsToCome) {
    stream->Open();
    stream->Video(Key(), MX_SUB_I, 0, 0, 100, 5000);
    stream->Audio(test::Adts(Bytes("21")), 0, 100, 5000);
    stream->Audio(test::Adts(Bytes("22")), 100, 100, 5000);
    stream->Video(Key(), MX_SUB_I, 5199, 5199, 100, 5000);
    stream->Video(Key(), MX_SUB_I, 5200, 5200, 100, 5000);
    stream->Close();
    EXPECT_EQ(ClusterTimes(Segment()), (std::vector<uint64_t>{0, 200, 5200}));
}

// Nine seconds behind: no block of the cluster reaches back so far.
TEST_F(XmkvEdges, SoundFarBehindBeginsACluster) {
    stream->Open();
    stream->Video(Key(), MX_SUB_I, 0, 0, 100, 5000);
    stream->Audio(test::Adts(Bytes("21")), 0, 100, 5000);
    stream->Video(Key(), MX_SUB_I, 50000, 50000, 100, 5000);
    stream->Audio(test::Adts(Bytes("22")), 5000, 100, 5000);
    stream->Close();
    EXPECT_EQ(ClusterTimes(Segment()), (std::vector<uint64_t>{0, 50000, 5000}));
}

// Shown eight seconds behind its decoding: the cluster has the picture's time.
TEST_F(XmkvEdges, APictureThatIsShownMuchLaterHasItsOwnCluster) {
    stream->Open(MX_VIDEO_H264, 0);
    stream->Video(Key(), MX_SUB_I, 0, 40000, 100, 5000);
    stream->Close();
    const Element segment = Segment();
    EXPECT_EQ(ClusterTimes(segment), std::vector<uint64_t>{40000});
    EXPECT_EQ(Slice(segment.One(0x1F43B675).One(0xA3).value, 0, 4), Bytes("81 00 00 80"));
}

// The pictures jump by 1000 s, which the sound that begins behind that is told off its times: a tenth of a second ahead
// of 0, and with no time of its own that could be finer.
TEST_F(XmkvEdges, TheDelayOfSoundWithOtherTimesThanGivenIsOfTicks) {
    for (const bool timed : {true, false}) {
        stream = ExactStream::Of<CXmkvPacket>(MX_FORMAT_XMKV);
        stream->Open();
        stream->Video(Key(), MX_SUB_I, 0, 0, 500, 5000);
        stream->Video(Inter(), MX_SUB_P, 5000500, 5000500, 500, 5000);
        if (timed) {
            stream->Audio(test::Adts(Bytes("21")), 4999500, 100, 5000);
        } else {
            ByteVector bytes = test::Adts(Bytes("21"));
            MXFrameInfo frame = test::AudioFrame(bytes, MX_AUDIO_AAC, 999900);
            EXPECT_EQ(stream->package->inputFrame(&frame, 0), 0u);
        }
        // 4999500 - 5000500 + 500
        EXPECT_EQ(Track(Segment(), 1).One(0x56AA).UInt(), 100000000u) << timed;
    }
}

// ------------------------------------------------------------------------------------------------- memory

// One frame of three of sound and the end of the stream, each with every allocation failing in turn.
TEST(XmkvMemory, AFrameIsWholeOrNotThere) {
    const auto record = [](uint64_t failing, bool at_the_end, bool& missing) {
        test::QuietFile file;
        const MXCreateParam param = file.Param();
        CXmkvPacket package(MX_FORMAT_XMKV, &param);
        MXHeaderInfo info{};
        info.audio_present = 1;
        package.init();
        EXPECT_EQ(package.createHeader(&info, 0), 0u);
        ByteVector bytes = test::Adts(Bytes("21"));
        ByteVector three = test::Adts(ByteVector(900, 1)) + test::Adts(ByteVector(6000, 2)) +
                           test::Adts(ByteVector(8000, 3)) + test::Adts(ByteVector(8000, 4));
        MXFrameInfo first = test::AudioFrame(bytes, MX_AUDIO_AAC);
        MXFrameInfo frame = test::AudioFrame(three, MX_AUDIO_AAC);
        const auto call = [&](bool fails, auto action) {
            uint32_t result = MX_NO_RESOURCES;
            if (fails) {
                const test::FailingAllocations allocations(failing, 2);
                result = action();
            } else {
                result = action();
            }
            missing = missing || result == MX_NO_RESOURCES;
            if (result == MX_NO_RESOURCES) result = action();
            EXPECT_EQ(result, 0u);
        };
        if (!at_the_end) {
            EXPECT_EQ(package.inputFrame(&first, 0), 0u);
            call(true, [&] { return package.inputFrame(&frame, 0); });
        }
        call(at_the_end, [&] { return package.createTailer(nullptr, 0); });
        return file.bytes;
    };
    for (const bool at_the_end : {false, true}) {
        bool missing = false;
        const ByteVector whole = record(UINT64_MAX - 1, at_the_end, missing);
        EXPECT_FALSE(missing);
        for (uint64_t failing = 0; failing < 30; ++failing)
            EXPECT_EQ(record(failing, at_the_end, missing), whole) << failing;
        EXPECT_TRUE(missing);
    }
}

}  // namespace
}  // namespace Orvane::Muxora
