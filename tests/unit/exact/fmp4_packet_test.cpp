#include "exact/fmp4_packet.h"

#include <gtest/gtest.h>

#include "exact_stream.h"
#include "support/iso_file.h"

namespace Orvane::Muxora {
namespace {

using test::Adts;
using test::Bytes;
using test::ByteVector;
using test::ExactStream;
using test::Text;
using test::operator+;

struct Fmp4Packet : testing::Test {
    std::unique_ptr<ExactStream> stream = ExactStream::Of<CFmp4Packet>(MX_FORMAT_FMP4);

    static ByteVector Key(uint8_t fill = 0x55) {
        return test::Units({Bytes("09 F0"), test::HighSps(), test::HighPps(), Bytes("65 88") + ByteVector(20, fill)});
    }
    static ByteVector Inter(uint8_t fill = 0x33) { return test::Units({Bytes("41 9A") + ByteVector(6, fill)}); }

    void Param(uint32_t mode, uint32_t duration_ms, uint32_t tracks, uint32_t boxes = 0) {
        const MXFragmentParam param{sizeof(MXFragmentParam), mode, duration_ms, tracks, boxes, 0};
        EXPECT_EQ(static_cast<CFmp4Packet&>(*stream->package).SetFragmentParam(param), 0u);
    }
    std::string Kinds() const {
        std::string out;
        for (const auto& block : stream->blocks)
            out += block.note.kind == MX_BLOCK_HEADER ? 'h' : 'm';
        return out;
    }
    static std::string Layout(const ByteVector& block) { return test::IsoFile(block).Layout(); }
    // Time of the first traf (or of the second) in a block.
    static ByteVector DecodeTime(const ByteVector& block) {
        const auto at = std::search(block.begin(), block.end(), std::begin("tfdt"), std::begin("tfdt") + 4);
        return {at + 8, at + 16};
    }
};

TEST_F(Fmp4Packet, InitialisationThenOneBlockAGroupOfPictures) {
    stream->Open();
    stream->Video(Key(), MX_SUB_I, 0, 0);
    stream->Audio(Adts(ByteVector(10, 0xAA)), 0, 1024);
    ASSERT_EQ(Kinds(), "h");
    EXPECT_EQ(Layout(stream->Last().data), "ftyp moov");
    stream->Video(Inter(), MX_SUB_P, 3600, 3600);
    stream->Audio(Adts(ByteVector(11, 0xBB)), 1024, 1024);
    ASSERT_EQ(Kinds(), "h");
    stream->Video(Key(), MX_SUB_I, 7300, 7300);
    ASSERT_EQ(Kinds(), "hm");
    const auto& block = stream->Last();
    EXPECT_EQ(Layout(block.data), "moof mdat");
    EXPECT_EQ(block.note.flags, static_cast<uint32_t>(MX_BLOCK_KEY | MX_BLOCK_VIDEO | MX_BLOCK_AUDIO));
    EXPECT_EQ(block.note.time_scale, 90000u);
    EXPECT_EQ(block.note.dts, 0);
    EXPECT_EQ(block.note.duration, 7300);
    EXPECT_EQ(block.note.block.seek_type, 1u);
    // Delimiter and parameter sets stay out of the samples; ADTS headers go.
    const ByteVector media = Bytes("00 00 00 16 65 88") + ByteVector(20, 0x55) + Bytes("00 00 00 08 41 9A") +
                             ByteVector(6, 0x33) + ByteVector(10, 0xAA) + ByteVector(11, 0xBB);
    EXPECT_EQ(test::IsoFile(block.data).Payload("mdat"), media);
    // sequence_number counts from 1 (ISO/IEC 14496-12 8.8.5).
    EXPECT_EQ(test::Slice(test::IsoFile(block.data).Payload("moof"), 4, 12), Text("mfhd") + Bytes("00000000 00000001"));
    stream->Close();
    EXPECT_EQ(Kinds(), "hmm");
    EXPECT_EQ(test::Slice(test::IsoFile(stream->Last().data).Payload("moof"), 4, 12),
              Text("mfhd") + Bytes("00000000 00000002"));
    EXPECT_EQ(stream->Last().note.dts, 7300);
    EXPECT_EQ(stream->Last().note.duration, 3700);  // as long as the one before
}

TEST_F(Fmp4Packet, PrimingAndReorderingGoIntoEditLists) {
    stream->Open();
    stream->Video(Key(), MX_SUB_I, -3003, 0, 1501);
    stream->Audio(Adts(ByteVector(10)), -1024, 1024);
    const ByteVector& init = stream->blocks.at(0).data;
    const auto elst = [&](size_t number) {
        auto at = init.begin();
        for (size_t i = 0; i <= number; ++i)
            at = std::search(at + 1, init.end(), std::begin("elst"), std::begin("elst") + 4);
        return ByteVector(at + 8, at + 24);
    };
    EXPECT_EQ(elst(0), Bytes("00000001 00000000 00000BBB 00010000"));
    EXPECT_EQ(elst(1), Bytes("00000001 00000000 00000400 00010000"));
    stream->Close();
    EXPECT_EQ(DecodeTime(stream->Last().data), ByteVector(8));
    EXPECT_EQ(stream->Last().note.dts, -3003);
}

TEST_F(Fmp4Packet, OneTrackIsNotWaitedForLongerThanASecond) {
    stream->Open();
    stream->Video(Key(), MX_SUB_I, 0, 0);
    stream->Video(Key(), MX_SUB_I, 45000, 45000);
    stream->Video(Key(), MX_SUB_I, 89999, 89999);
    EXPECT_EQ(Kinds(), "");
    stream->Video(Inter(), MX_SUB_P, 90000, 90000);
    EXPECT_EQ(Kinds(), "h");
    EXPECT_EQ(test::IsoFile(stream->Last().data).TrackCount(), 1u);
    // CMAF names itself where a file has one track.
    EXPECT_EQ(test::IsoFile(stream->Last().data).Payload("ftyp"),
              Text("iso6") + Bytes("00000000") + Text("iso6mp41dashcmfc"));
    // Sound that comes late brings a new initialisation segment.
    stream->Audio(Adts(ByteVector(10)), 48000, 1024);
    EXPECT_EQ(Kinds(), "hm");
    stream->Video(Inter(), MX_SUB_P, 93600, 93600);
    EXPECT_EQ(Kinds(), "hmh");
    EXPECT_EQ(test::IsoFile(stream->Last().data).TrackCount(), 2u);
}

TEST_F(Fmp4Packet, OtherParameterSetsEndTheFragmentAndBringANewInitialisationSegment) {
    Param(MX_FRAGMENT_GOP, 0, MX_TRACKS_VIDEO);
    stream->Open();
    stream->Video(Key(), MX_SUB_I, 0, 0);
    ASSERT_EQ(Kinds(), "h");
    const ByteVector first = stream->Last().data;
    stream->Video(Inter(), MX_SUB_P, 3600, 3600);
    stream->Video(test::Units({test::BaselineSps(), test::BaselinePps(), Bytes("65 88 01")}), MX_SUB_I, 7200, 7200);
    ASSERT_EQ(Kinds(), "hm");
    EXPECT_EQ(stream->Last().note.duration, 7200);
    stream->Video(Inter(), MX_SUB_P, 10800, 10800);
    ASSERT_EQ(Kinds(), "hmh");
    EXPECT_NE(stream->Last().data, first);
    // 322 x 242 in the sample entry
    const ByteVector size = Bytes("0142 00F2");
    const ByteVector& init = stream->Last().data;
    EXPECT_NE(std::search(init.begin(), init.end(), size.begin(), size.end()), init.end());
    stream->Close();
    EXPECT_EQ(Kinds(), "hmhm");
}

TEST_F(Fmp4Packet, ByDuration) {
    Param(MX_FRAGMENT_DURATION, 100, MX_TRACKS_VIDEO);
    stream->Open();
    stream->Video(Key(), MX_SUB_I, 0, 0);
    for (int64_t frame = 1; frame < 9; ++frame)
        stream->Video(Inter(), MX_SUB_P, frame * 3600, frame * 3600);
    ASSERT_EQ(Kinds(), "hmm");
    EXPECT_EQ(stream->blocks[1].note.duration, 10800);
    EXPECT_EQ(stream->blocks[2].note.dts, 10800);
    EXPECT_EQ(stream->blocks[2].note.flags, static_cast<uint32_t>(MX_BLOCK_VIDEO));
}

TEST_F(Fmp4Packet, ALongGroupIsCutWhereItWouldBeTooLong) {
    Param(MX_FRAGMENT_GOP, 100, MX_TRACKS_VIDEO);
    stream->Open();
    stream->Video(Key(), MX_SUB_I, 0, 0);
    for (int64_t frame = 1; frame < 5; ++frame)
        stream->Video(Inter(), MX_SUB_P, frame * 3600, frame * 3600);
    ASSERT_EQ(Kinds(), "hmm");
    EXPECT_EQ(stream->blocks[1].note.duration, 7200);  // 80 ms, where 120 would be too much
}

TEST_F(Fmp4Packet, ChunksComeWithTheFrameThatHasADuration) {
    Param(MX_FRAGMENT_CHUNK, 0, MX_TRACKS_VIDEO, MX_BOX_STYP | MX_BOX_SIDX | MX_BOX_PRFT);
    stream->Open();
    stream->Video(Key(), MX_SUB_I, 0, 0, 3600);
    ASSERT_EQ(Kinds(), "hm");
    EXPECT_EQ(Layout(stream->Last().data), "styp prft moof mdat");
    stream->Video(Inter(), MX_SUB_P, 3600, 3600, 3600);
    ASSERT_EQ(Kinds(), "hmm");
    EXPECT_EQ(Layout(stream->Last().data), "prft moof mdat");
    EXPECT_EQ(stream->Last().note.duration, 3600);
    // Without a duration the next frame has to tell it.
    stream->Video(Inter(), MX_SUB_P, 7200, 7200);
    ASSERT_EQ(Kinds(), "hmm");
    stream->Video(Inter(), MX_SUB_P, 9000, 9000);
    ASSERT_EQ(Kinds(), "hmmm");
    EXPECT_EQ(stream->Last().note.duration, 1800);
}

TEST_F(Fmp4Packet, SegmentBoxes) {
    Param(MX_FRAGMENT_GOP, 0, MX_TRACKS_VIDEO, MX_BOX_STYP | MX_BOX_SIDX | MX_BOX_PRFT);
    stream->Open();
    stream->Video(Key(), MX_SUB_I, 0, 0);
    stream->Video(Key(), MX_SUB_I, 3600, 3600);
    const test::IsoFile segment(stream->Last().data);
    EXPECT_EQ(segment.Layout(), "styp sidx prft moof mdat");
    const uint64_t referenced = segment.Size("prft") + segment.Size("moof") + segment.Size("mdat");
    EXPECT_EQ(segment.Number("sidx", 32, 4), referenced);
}

TEST_F(Fmp4Packet, SoundAloneIsCutEveryTwoSeconds) {
    Param(MX_FRAGMENT_GOP, 0, MX_TRACKS_AUDIO);
    stream->Open();
    for (int64_t frame = 0; frame < 100; ++frame)
        EXPECT_EQ(stream->Audio(Adts(ByteVector(5)), frame * 1024, 1024), 0u);
    ASSERT_EQ(Kinds(), "hm");
    EXPECT_EQ(stream->Last().note.duration, 94 * 1024);  // the first frame at 96000 or behind
    EXPECT_EQ(stream->Last().note.flags, static_cast<uint32_t>(MX_BLOCK_KEY | MX_BLOCK_AUDIO));
    EXPECT_EQ(stream->Video(Key(), MX_SUB_I, 0, 0), 5u);
}

TEST_F(Fmp4Packet, EachAdtsFrameIsASample) {
    Param(MX_FRAGMENT_GOP, 0, MX_TRACKS_AUDIO);
    stream->Open();
    stream->Audio(Adts(ByteVector(5, 1)) + Adts(ByteVector(6, 2)), 0, 2048);
    stream->Audio(Adts(ByteVector(7, 3)), 2048, 500);
    stream->Close();
    const ByteVector& block = stream->Last().data;
    EXPECT_EQ(test::IsoFile(block).Payload("mdat"), ByteVector(5, 1) + ByteVector(6, 2) + ByteVector(7, 3));
    const ByteVector rows = Bytes("00000400 00000005 00000400 00000006 000001F4 00000007");
    EXPECT_NE(std::search(block.begin(), block.end(), rows.begin(), rows.end()), block.end());
}

TEST_F(Fmp4Packet, PicturesBeginWithAKeyFrameThatSaysHowTheyAreCoded) {
    stream->Open();
    stream->Video(Inter(), MX_SUB_P, 0, 0);
    stream->Audio(Adts(ByteVector(5)), 0, 1024);
    stream->Video(test::Units({Bytes("65 88 01")}), MX_SUB_I, 3600, 3600);
    stream->Close();
    EXPECT_EQ(Kinds(), "");
    stream = ExactStream::Of<CFmp4Packet>(MX_FORMAT_FMP4);
    stream->Open();
    stream->Video(test::Units({test::HighSps(), test::HighPps()}), MX_SUB_I, 0, 0);
    stream->Video(test::Units({Bytes("65 88 01")}), MX_SUB_I, 3600, 3600);
    stream->Close();
    EXPECT_EQ(Kinds(), "hm");
    EXPECT_EQ(test::IsoFile(stream->Last().data).Payload("mdat"), Bytes("00 00 00 03 65 88 01"));
    EXPECT_EQ(stream->Last().note.dts, 3600) << "parameter sets alone are no picture";
}

// ISO/IEC 14496-2: what a decoder is told ends where the group of pictures begins.
TEST_F(Fmp4Packet, Mpeg4BeginsWithItsHeadersAndTellsOthersAnew) {
    const ByteVector headers = Bytes("00 00 01 B0 01 00 00 01 B5 89 13 00 00 01 00 00 00 01 20 00 C4 88");
    const ByteVector others = Bytes("00 00 01 B0 01 00 00 01 B5 89 13 00 00 01 00 00 00 01 20 00 C4 89");
    const ByteVector picture = Bytes("00 00 01 B3 00 10 07 00 00 01 B6 10 60 11");
    Param(MX_FRAGMENT_GOP, 0, MX_TRACKS_VIDEO);
    stream->Open(MX_VIDEO_MPEG4, 0);
    int64_t time = 0;
    const auto give = [&](const ByteVector& bytes) {
        EXPECT_EQ(stream->Video(bytes, MX_SUB_I, time, time, 3600, 90000, MX_VIDEO_MPEG4), 0u);
        time += 3600;
    };
    give(picture);
    for (const ByteVector& front : {headers, headers, others, ByteVector{}})
        give(front + picture);
    stream->Close();
    ASSERT_EQ(Kinds(), "hmmhmm");
    const auto tells = [&](size_t block, const ByteVector& what) {
        // DecSpecificInfoTag and its length (ISO/IEC 14496-1 7.2.6.7)
        const ByteVector info = Bytes("05 80 80 80 16") + what + Bytes("06");
        const ByteVector& bytes = stream->blocks[block].data;
        return std::search(bytes.begin(), bytes.end(), info.begin(), info.end()) != bytes.end();
    };
    EXPECT_TRUE(tells(0, headers));
    EXPECT_TRUE(tells(3, others));
    EXPECT_EQ(test::IsoFile(stream->blocks[1].data).Payload("mdat"), headers + picture);
    EXPECT_EQ(test::IsoFile(stream->blocks[5].data).Payload("mdat"), picture);
}

TEST_F(Fmp4Packet, ParametersAreCheckedAndComeAheadOfTheHeader) {
    auto& package = static_cast<CFmp4Packet&>(*stream->package);
    const auto set = [&](uint32_t mode, uint32_t ms, uint32_t tracks, uint32_t boxes) {
        return package.SetFragmentParam({sizeof(MXFragmentParam), mode, ms, tracks, boxes, 0});
    };
    EXPECT_EQ(set(3, 0, 0, 0), 3u);
    EXPECT_EQ(set(MX_FRAGMENT_DURATION, 0, 0, 0), 3u);
    EXPECT_EQ(set(0, 0, 3, 0), 3u);
    EXPECT_EQ(set(0, 0, 0, 8), 3u);
    EXPECT_EQ(set(0, 500, 0, 7), 0u);
    stream->Open();
    EXPECT_EQ(set(0, 500, 0, 7), 3u);
}

// ISO/IEC 14496-12 12.2.3: channelcount and samplesize stand 20 and 22 bytes behind the type.
TEST(Fmp4Sound, SamplesOfEightAndSixteenBits) {
    for (const auto& [codec, type, bits] :
         {std::tuple(MX_AUDIO_PCM8, "raw ", "0002 0008"), {MX_AUDIO_PCM16, "sowt", "0002 0010"}}) {
        const auto stream = ExactStream::Of<CFmp4Packet>(MX_FORMAT_FMP4);
        stream->Open(0, codec);
        ASSERT_EQ(stream->Audio(ByteVector(960, 0x55), 0, 0, 48000, codec), 0u);
        stream->Close();
        const ByteVector file = stream->Forward();
        const ByteVector name = test::Text(type);
        const auto at = std::search(file.begin(), file.end(), name.begin(), name.end());
        ASSERT_NE(at, file.end()) << type;
        EXPECT_EQ(test::Slice(file, static_cast<size_t>(at - file.begin()) + 20, 4), Bytes(bits));
    }
}

TEST_F(Fmp4Packet, WhatWasNotAskedForIsRefused) {
    EXPECT_EQ(stream->package->createHeader(nullptr, 0), 3u) << "ahead of init";
    Param(MX_FRAGMENT_GOP, 0, MX_TRACKS_VIDEO);
    stream->Open();
    EXPECT_EQ(stream->Audio(Adts(ByteVector(5)), 0, 1024), 5u);
    ByteVector bytes(64);
    MXFrameInfo picture = test::VideoFrame(bytes, MX_VIDEO_H264, MX_SUB_I);
    picture.frame_size = 512u << 20;
    EXPECT_TRUE(stream->package->checkFrame(&picture));
    ++picture.frame_size;
    EXPECT_FALSE(stream->package->checkFrame(&picture));
    stream->Video(Key(), MX_SUB_I, 0, 0);
    stream->Close();
    EXPECT_EQ(static_cast<CFmp4Packet&>(*stream->package).SetFragmentParam({sizeof(MXFragmentParam), 0, 0, 0, 0, 0}),
              3u);

    const auto sound = ExactStream::Of<CFmp4Packet>(MX_FORMAT_FMP4);
    for (const uint32_t codec : {MX_AUDIO_MULAW, MX_AUDIO_MULAW_ALT, MX_AUDIO_WAVE_TAG_64}) {
        const MXFrameInfo frame = test::AudioFrame(bytes, codec);
        EXPECT_EQ(sound->package->checkFrame(&frame), codec != MX_AUDIO_WAVE_TAG_64) << codec;
    }
}

TEST_F(Fmp4Packet, TheOtherTrackIsWaitedForAsLongAsIsSaid) {
    const MXFragmentParam param{sizeof(MXFragmentParam), MX_FRAGMENT_GOP, 0, MX_TRACKS_BOTH, 0, 100};
    EXPECT_EQ(static_cast<CFmp4Packet&>(*stream->package).SetFragmentParam(param), 0u);
    stream->Open();
    stream->Video(Key(), MX_SUB_I, 0, 0);
    stream->Video(Inter(), MX_SUB_P, 8999, 8999);
    EXPECT_EQ(Kinds(), "");
    stream->Video(Inter(), MX_SUB_P, 9000, 9000);
    EXPECT_EQ(Kinds(), "h");
}

TEST_F(Fmp4Packet, AFragmentHoldsAMinuteAtMost) {
    Param(MX_FRAGMENT_DURATION, 1000000, MX_TRACKS_VIDEO);
    stream->Open();
    stream->Video(Key(), MX_SUB_I, 0, 0);
    for (const int64_t time : {2700000, 5400000})
        stream->Video(Inter(), MX_SUB_P, time, time);
    EXPECT_EQ(Kinds(), "h");
    stream->Video(Inter(), MX_SUB_P, 5400001, 5400001);
    ASSERT_EQ(Kinds(), "hm");
    EXPECT_EQ(stream->Last().note.duration, 5400001);
}

TEST_F(Fmp4Packet, AFragmentHolds64MebibytesAtMost) {
    Param(MX_FRAGMENT_DURATION, 1000000, MX_TRACKS_VIDEO);
    stream->Open();
    stream->Video(Key(), MX_SUB_I, 0, 0);
    const ByteVector large = test::Units({Bytes("41 9A") + ByteVector((size_t{32} << 20) - 100, 0x33)});
    stream->Video(large, MX_SUB_P, 3600, 3600);
    EXPECT_EQ(Kinds(), "h");
    stream->Video(large, MX_SUB_P, 7200, 7200);
    EXPECT_EQ(Kinds(), "h");
    stream->Video(large, MX_SUB_P, 10800, 10800);
    ASSERT_EQ(Kinds(), "hm");
    EXPECT_EQ(stream->Last().note.duration, 10800);
    EXPECT_EQ(test::IsoFile(stream->Last().data).Size("mdat"), 8 + 26 + 2 * large.size());
}

// 1400 rows of a size are 5600 bytes ahead of the media.
TEST_F(Fmp4Packet, ALongHeadStandsWholeAheadOfTheMedia) {
    Param(MX_FRAGMENT_DURATION, 50000, MX_TRACKS_AUDIO);
    stream->Open(0, MX_AUDIO_ALAW);
    ByteVector media;
    for (int i = 0; i < 1400; ++i) {
        const ByteVector frame(160, static_cast<uint8_t>(i));
        stream->Audio(frame, i * 160, 160, 8000, MX_AUDIO_ALAW);
        media.insert(media.end(), frame.begin(), frame.end());
    }
    stream->Close();
    ASSERT_EQ(Kinds(), "hm");
    const test::IsoFile fragment(stream->Last().data);
    EXPECT_EQ(fragment.Layout(), "moof mdat");
    // moof 8, mfhd 16, traf 8, tfhd 24, tfdt 20, trun 20
    EXPECT_EQ(fragment.Size("moof"), 96u + 1400 * 4);
    EXPECT_EQ(fragment.Payload("mdat"), media);
}

// AudioSpecificConfig (ISO/IEC 14496-3 1.6.2.1) of AAC LC at 48000 Hz, behind its tag and length.
TEST_F(Fmp4Packet, SoundOfAnotherFormBringsANewInitialisationSegment) {
    Param(MX_FRAGMENT_GOP, 0, MX_TRACKS_AUDIO);
    stream->Open(0);
    ByteVector bytes(20, 0x21);  // no ADTS
    MXFrameInfo frame = test::AudioFrame(bytes, MX_AUDIO_AAC);
    for (int64_t i = 0; i < 4; ++i) {
        frame.channels = i < 2 ? 2 : 1;
        MXSetFrameTimes(&frame, 48000, i * 1024, i * 1024, 1024);
        EXPECT_EQ(stream->package->inputFrame(&frame, 0), 0u);
    }
    stream->Close();
    ASSERT_EQ(Kinds(), "hmhm");
    const auto tells = [&](size_t block, const char* config) {
        const ByteVector info = Bytes("05 80 80 80 02") + Bytes(config) + Bytes("06");
        const ByteVector& init = stream->blocks[block].data;
        return std::search(init.begin(), init.end(), info.begin(), info.end()) != init.end();
    };
    EXPECT_TRUE(tells(0, "11 90"));
    EXPECT_TRUE(tells(2, "11 88"));
    EXPECT_EQ(stream->blocks[1].note.duration, 2048);
    EXPECT_EQ(test::IsoFile(stream->Last().data).Payload("mdat"), bytes + bytes);
}

// Two frames of 1024 samples in one: the first lasts as long, and the last as the one before.
TEST_F(Fmp4Packet, SoundWithoutADurationCountsItsSamples) {
    Param(MX_FRAGMENT_GOP, 0, MX_TRACKS_AUDIO);
    stream->Open(0);
    stream->Audio(Adts(ByteVector(5, 1)) + Adts(ByteVector(6, 2)), 0);
    stream->Close();
    EXPECT_EQ(stream->Last().note.duration, 2048);
}

TEST_F(Fmp4Packet, ParameterSetsThatChangeBackAreNoNews) {
    Param(MX_FRAGMENT_GOP, 0, MX_TRACKS_VIDEO);
    stream->Open();
    stream->Video(Key(), MX_SUB_I, 0, 0);
    stream->Video(test::Units({test::BaselineSps(), test::BaselinePps()}), MX_SUB_I, 1800, 1800);
    stream->Video(Key(), MX_SUB_I, 3600, 3600);
    stream->Close();
    EXPECT_EQ(Kinds(), "hmm");
}

// Pictures that all stand alone end no fragment; two seconds do. Another size is another sample entry.
TEST_F(Fmp4Packet, MotionJpegIsCutByTime) {
    Param(MX_FRAGMENT_GOP, 0, MX_TRACKS_VIDEO);
    stream->Open(MX_VIDEO_MJPEG, 0);
    ByteVector bytes = Bytes("FF D8 FF DB 00 FF D9");
    MXFrameInfo frame = test::VideoFrame(bytes, MX_VIDEO_MJPEG, MX_SUB_I);
    const auto give = [&](int64_t time, uint32_t width, uint32_t height) {
        frame.width = width;
        frame.height = height;
        MXSetFrameTimes(&frame, 1000, time, time, 500);
        EXPECT_EQ(stream->package->inputFrame(&frame, 0), 0u);
    };
    for (int64_t time = 0; time < 2500; time += 500)
        give(time, 640, 480);
    ASSERT_EQ(Kinds(), "hm");
    EXPECT_EQ(stream->Last().note.duration, 2000);
    give(2500, 640, 400);
    EXPECT_EQ(Kinds(), "hmm");
    give(3000, 320, 400);
    EXPECT_EQ(Kinds(), "hmmhm");
    stream->Close();
    EXPECT_EQ(Kinds(), "hmmhmhm");
}

TEST_F(Fmp4Packet, Mpeg4PicturesBetweenKeyFramesTellNothing) {
    const ByteVector headers = Bytes("00 00 01 B0 01 00 00 01 B5 89 13 00 00 01 00 00 00 01 20 00 C4 88");
    const ByteVector picture = Bytes("00 00 01 B6 10 60 11");
    Param(MX_FRAGMENT_GOP, 0, MX_TRACKS_VIDEO);
    stream->Open(MX_VIDEO_MPEG4, 0);
    stream->Video(headers + picture, MX_SUB_I, 0, 0, 0, 90000, MX_VIDEO_MPEG4);
    stream->Video(picture, MX_SUB_P, 3600, 3600, 0, 90000, MX_VIDEO_MPEG4);
    stream->Close();
    ASSERT_EQ(Kinds(), "hm");
    EXPECT_EQ(test::IsoFile(stream->Last().data).Payload("mdat"), headers + picture + picture);
}

}  // namespace
}  // namespace Orvane::Muxora
