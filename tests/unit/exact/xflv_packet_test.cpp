#include "exact/xflv_packet.h"

#include <gtest/gtest.h>

#include <bit>

#include "exact_stream.h"
#include "support/allocation_counter.h"
#include "support/pes_reader.h"
#include "support/quiet_file.h"
#include "support/untouched_memory.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::ExactStream;
using test::ReadBE;
using test::Slice;
using test::operator+;

struct Tag {
    uint32_t type;
    int32_t time;
    ByteVector data;
    size_t position;
};

// The tags of a file, each with its PreviousTagSize.
std::vector<Tag> ReadTags(const ByteVector& file) {
    test::Require(Slice(file, 0, 4) == Bytes("46 4C 56 01"), "signature");
    test::Require(Slice(file, 5, 8) == Bytes("00 00 00 09 00 00 00 00"), "file header");
    std::vector<Tag> tags;
    for (size_t at = 13; at < file.size();) {
        const uint32_t size = ReadBE(file, at + 1, 3);
        const uint32_t time = ReadBE(file, at + 7, 1) << 24 | ReadBE(file, at + 4, 3);
        test::Require(ReadBE(file, at + 8, 3) == 0, "StreamID");
        test::Require(ReadBE(file, at + 11 + size, 4) == 11 + size, "PreviousTagSize");
        tags.push_back({ReadBE(file, at, 1), static_cast<int32_t>(time), Slice(file, at + 11, size), at});
        at += 15 + size;
    }
    return tags;
}

double Double(const ByteVector& bytes, size_t at) {
    return std::bit_cast<double>(uint64_t{ReadBE(bytes, at, 4)} << 32 | ReadBE(bytes, at + 4, 4));
}

size_t Find(const ByteVector& bytes, const std::string& name) {
    const ByteVector key = ByteVector{0, static_cast<uint8_t>(name.size())} + test::Text(name);
    const auto at = std::search(bytes.begin(), bytes.end(), key.begin(), key.end());
    return at == bytes.end() ? SIZE_MAX : static_cast<size_t>(at - bytes.begin()) + key.size();
}

// A number of the metadata.
double Number(const ByteVector& metadata, const std::string& name) {
    const size_t at = Find(metadata, name);
    test::Require(at != SIZE_MAX && metadata.at(at) == 0, "a number of that name");
    return Double(metadata, at + 1);
}

std::vector<double> Numbers(const ByteVector& metadata, const std::string& name) {
    const size_t at = Find(metadata, name);
    test::Require(at != SIZE_MAX && metadata.at(at) == 10, "a strict array of that name");
    std::vector<double> values;
    for (uint32_t i = 0; i < ReadBE(metadata, at + 1, 4); ++i)
        values.push_back(Double(metadata, at + 5 + i * 9 + 1));
    return values;
}

struct XflvPacket : testing::Test, test::BaselinePictures {
    std::unique_ptr<ExactStream> stream = ExactStream::Of<CXflvPacket>(MX_FORMAT_XFLV);

    std::vector<Tag> Tags() const { return ReadTags(stream->File()); }
};

TEST_F(XflvPacket, HeadConfigurationsAndFrames) {
    stream->Open();
    EXPECT_TRUE(stream->blocks.empty());
    EXPECT_EQ(stream->Video(Key(), MX_SUB_I, -2002, 0, 1001, 30000), 0u);
    EXPECT_EQ(stream->Audio(test::Adts(Bytes("21 10 04")), -1024, 1024), 0u);
    EXPECT_EQ(stream->Video(Inter(), MX_SUB_P, -1001, 4004, 1001, 30000), 0u);
    ASSERT_EQ(stream->blocks.size(), 5u);
    const auto kind = [&](size_t i) { return stream->blocks[i].note.kind; };
    EXPECT_EQ(kind(0), static_cast<uint32_t>(MX_BLOCK_HEADER));
    EXPECT_EQ(kind(1), static_cast<uint32_t>(MX_BLOCK_MEDIA));
    EXPECT_EQ(kind(2), static_cast<uint32_t>(MX_BLOCK_HEADER));
    EXPECT_EQ(stream->blocks[1].note.flags, static_cast<uint32_t>(MX_BLOCK_VIDEO | MX_BLOCK_KEY));
    EXPECT_EQ(stream->blocks[1].note.dts, -67);
    EXPECT_EQ(stream->blocks[1].note.time_scale, 1000u);
    EXPECT_EQ(stream->blocks[4].note.flags, static_cast<uint32_t>(MX_BLOCK_VIDEO));

    EXPECT_EQ(stream->File()[4], 5);
    const auto tags = Tags();
    ASSERT_EQ(tags.size(), 6u);
    EXPECT_EQ(tags[0].type, 18u);
    EXPECT_EQ(tags[1].type, 9u);
    EXPECT_EQ(tags[1].data, Bytes("17 00 00 00 00") + Configuration());
    // -66.7 ms and 66.7 ms later.
    EXPECT_EQ(tags[2].time, -67);
    EXPECT_EQ(tags[2].data, Bytes("17 01 00 00 43  00 00 00 04 65 88 84 21"));
    EXPECT_EQ(tags[3].type, 8u);
    EXPECT_EQ(tags[3].data, Bytes("AF 00 11 90"));
    EXPECT_EQ(tags[4].time, -21);
    EXPECT_EQ(tags[4].data, Bytes("AF 01 21 10 04"));
    EXPECT_EQ(tags[5].time, -33);
    EXPECT_EQ(tags[5].data, Bytes("27 01 00 00 A6  00 00 00 03 41 9A 02 00 00 00 02 41 11"));
}

TEST_F(XflvPacket, TimesGoOnPast24Bits) {
    stream->Open();
    int64_t time = 0;
    for (int i = 0; i < 400; ++i, time += 50000)
        ASSERT_EQ(stream->Video(i == 0 ? Key() : Inter(), i == 0 ? MX_SUB_I : MX_SUB_P, time, time, 0, 1000), 0u);
    const auto tags = Tags();
    EXPECT_EQ(tags.back().time, 399 * 50000);  // more than 2^24
}

TEST_F(XflvPacket, TimesThatBeginFarFromZeroBeginAtZero) {
    stream->Open();
    stream->Video(Key(), MX_SUB_I, 90000 * 3600, 90000 * 3600 + 3600);
    stream->Audio(test::Adts(Bytes("21")), int64_t{48000} * 3600 + 480);
    const auto tags = Tags();
    EXPECT_EQ(tags[2].time, 0);
    EXPECT_EQ(tags[4].time, 10);
}

TEST_F(XflvPacket, NewParameterSetsAreANewSequenceHeader) {
    stream->Open();
    stream->Video(Key(), MX_SUB_I, 0, 0);
    stream->Audio(test::Adts(Bytes("21")), 0);
    const ByteVector other = test::Units({test::HighSps(), test::HighPps(), Bytes("65 88 80")});
    stream->Video(other, MX_SUB_I, 3600, 3600);
    stream->Video(other, MX_SUB_I, 7200, 7200);
    const auto tags = Tags();
    ASSERT_EQ(tags.size(), 9u);
    EXPECT_EQ(Slice(tags[5].data, 0, 9), Bytes("17 00 00 00 00 01 64 00 28"));
    EXPECT_EQ(tags[6].data, Bytes("AF 00 11 90"));  // a late reader has all of it in one block
    EXPECT_EQ(tags[7].data, Bytes("17 01 00 00 00 00 00 00 03 65 88 80"));
    EXPECT_EQ(tags[8].data, Bytes("17 01 00 00 00 00 00 00 03 65 88 80"));
}

TEST_F(XflvPacket, HevcByEnhancedRtmp) {
    stream->Open(MX_VIDEO_H265);
    const ByteVector frame = test::HevcSets() + test::Units({Bytes("26 01 AC 11")});
    EXPECT_EQ(stream->Video(frame, MX_SUB_I, 0, 7200, 0, 90000, MX_VIDEO_H265), 0u);
    EXPECT_EQ(stream->Video(test::Units({Bytes("02 01 D0")}), MX_SUB_P, 3600, 3600, 0, 90000, MX_VIDEO_H265), 0u);
    EXPECT_EQ(stream->Close(), 0u);
    const auto tags = Tags();
    ASSERT_EQ(tags.size(), 5u);
    EXPECT_EQ(Slice(tags[1].data, 0, 7), Bytes("90 68 76 63 31 01 02"));
    EXPECT_EQ(tags[2].data, Bytes("91 68 76 63 31 00 00 50 00 00 00 04 26 01 AC 11"));
    EXPECT_EQ(tags[3].data, Bytes("A1 68 76 63 31 00 00 00 00 00 00 03 02 01 D0"));
    EXPECT_EQ(tags[4].data, Bytes("92 68 76 63 31"));
    EXPECT_EQ(Number(tags[0].data, "videocodecid"), 1752589105.0);
}

TEST_F(XflvPacket, TheEndCompletesTheHeadInPlace) {
    stream->Open(MX_VIDEO_H264, MX_AUDIO_AAC);
    for (int i = 0; i < 50; ++i)
        stream->Video(i % 10 == 0 ? Key() : Inter(), i % 10 == 0 ? MX_SUB_I : MX_SUB_P, i * 3600, i * 3600, 3600);
    const ByteVector before = stream->File();
    EXPECT_EQ(stream->Close(), 0u);
    EXPECT_EQ(stream->Last().note.kind, static_cast<uint32_t>(MX_BLOCK_PATCH));
    EXPECT_EQ(stream->Last().note.block.offset, 0);
    EXPECT_EQ(stream->Forward(), before + Bytes("09 00 00 05 00 07 D0 00 00 00 00 17 02 00 00 00 00 00 00 10"));
    const ByteVector file = stream->File();
    EXPECT_EQ(file[4], 1);  // the sound never came
    const auto tags = ReadTags(file);
    const ByteVector& metadata = tags[0].data;
    EXPECT_EQ(Number(metadata, "duration"), 2.0);
    EXPECT_EQ(Number(metadata, "filesize"), static_cast<double>(file.size()));
    EXPECT_EQ(Number(metadata, "width"), 322.0);
    EXPECT_EQ(Number(metadata, "height"), 242.0);
    EXPECT_EQ(Number(metadata, "framerate"), 25.0);
    EXPECT_EQ(Number(metadata, "videocodecid"), 7.0);
    // The sequence header first, then the key frames.
    EXPECT_EQ(Numbers(metadata, "times"), (std::vector<double>{0, 0, 0.4, 0.8, 1.2, 1.6}));
    const auto positions = Numbers(metadata, "filepositions");
    ASSERT_EQ(positions.size(), 6u);
    EXPECT_EQ(positions[0], static_cast<double>(tags[1].position));
    for (size_t i = 0; i < 5; ++i)
        EXPECT_EQ(positions[i + 1], static_cast<double>(tags[2 + i * 10].position));
}

TEST_F(XflvPacket, AFullIndexKeepsEverySecondKeyFrame) {
    CFlvIndex index(4);
    for (uint32_t i = 0; i < 9; ++i)
        index.Add(i, i * 100);
    std::vector<double> times;
    for (const auto& entry : index.Entries())
        times.push_back(entry.time);
    EXPECT_EQ(times, (std::vector<double>{0, 4, 8}));
}

// Readers have a buffer of 1024 bytes for a string.
TEST_F(XflvPacket, TheFillerIsOfShortStrings) {
    for (const uint32_t gap : {18u, 36u, 990u, 1008u, 1026u, 5000u, 60000u, 1000000u}) {
        stream = ExactStream::Of<CXflvPacket>(MX_FORMAT_XFLV);
        stream->Open(MX_VIDEO_H264, 0, gap);
        stream->Video(Key(), MX_SUB_I, 0, 0, 3600);
        const size_t size = Tags()[0].data.size();
        stream->Close();
        const ByteVector metadata = Tags()[0].data;
        EXPECT_EQ(metadata.size(), size);
        const size_t filler = Find(metadata, "spacer");
        ASSERT_NE(filler, SIZE_MAX);
        size_t at = filler - 8;
        while (Slice(metadata, at, 3) != Bytes("00 00 09")) {
            ASSERT_EQ(Slice(metadata, at, 9), Bytes("00 06") + test::Text("spacer") + Bytes("02")) << gap;
            const uint32_t length = ReadBE(metadata, at + 9, 2);
            ASSERT_LT(length, 1024u);
            at += 11 + length;
        }
        EXPECT_EQ(at + 3, metadata.size());
    }
}

TEST_F(XflvPacket, NoRoomIsNoIndex) {
    stream->Open(MX_VIDEO_H264, 0, 1);
    stream->Video(Key(), MX_SUB_I, 0, 0, 3600);
    stream->Close();
    EXPECT_EQ(Find(stream->File(), "keyframes"), SIZE_MAX);
    EXPECT_EQ(Find(stream->File(), "spacer"), SIZE_MAX);
    EXPECT_EQ(stream->File()[4], 1);
    EXPECT_EQ(Number(Tags()[0].data, "duration"), 0.04);
}

TEST_F(XflvPacket, WithoutAHeaderEverythingComesInOneBlockAFrame) {
    stream->package->init();
    stream->Video(Key(), MX_SUB_I, 0, 0);
    stream->Audio(test::Adts(Bytes("21")), 0);
    ASSERT_EQ(stream->blocks.size(), 2u);
    EXPECT_EQ(stream->blocks[0].note.block.seek_type, static_cast<uint32_t>(MX_SEEK_NEXT));
    EXPECT_EQ(Tags().size(), 5u);
    stream->Close();
    EXPECT_EQ(stream->blocks.size(), 2u);
}

TEST_F(XflvPacket, SeveralAdtsFramesAreSeveralTags) {
    stream->Open(0);
    stream->Audio(test::Adts(Bytes("21")) + test::Adts(Bytes("22 23")) + test::Adts(Bytes("24")), 0);
    const auto tags = Tags();
    ASSERT_EQ(tags.size(), 5u);
    EXPECT_EQ(tags[2].data, Bytes("AF 01 21"));
    EXPECT_EQ(tags[3].data, Bytes("AF 01 22 23"));
    EXPECT_EQ(tags[3].time, 21);
    EXPECT_EQ(tags[4].time, 43);
    EXPECT_EQ(stream->Last().note.flags, static_cast<uint32_t>(MX_BLOCK_AUDIO | MX_BLOCK_KEY));
}

uint8_t SoundOf(uint32_t codec, uint32_t rate, uint32_t bits, uint32_t channels, ByteVector bytes) {
    const auto stream = ExactStream::Of<CXflvPacket>(MX_FORMAT_XFLV);
    stream->Open(0, codec);
    MXFrameInfo frame = test::AudioFrame(bytes, codec);
    frame.samples_per_sec = rate;
    frame.bits_per_sample = bits;
    frame.channels = channels;
    if (stream->package->inputFrame(&frame, 0) != 0) return 0;
    return ReadTags(stream->File()).back().data.at(0);
}

TEST_F(XflvPacket, SoundFormats) {
    const ByteVector some(64, 0x55);
    EXPECT_EQ(SoundOf(MX_AUDIO_ALAW, 8000, 8, 1, some), 0x72);
    EXPECT_EQ(SoundOf(MX_AUDIO_MULAW, 8000, 8, 2, some), 0x83);
    EXPECT_EQ(SoundOf(MX_AUDIO_PCM16, 44100, 16, 2, some), 0x3F);
    EXPECT_EQ(SoundOf(MX_AUDIO_PCM16, 11025, 16, 1, some), 0x36);
    EXPECT_EQ(SoundOf(MX_AUDIO_PCM8, 22050, 8, 1, some), 0x38);
    EXPECT_EQ(SoundOf(MX_AUDIO_MPEG, 44100, 16, 2, Bytes("FF FB 90 64 00")), 0x2F);
    EXPECT_EQ(SoundOf(MX_AUDIO_MPEG, 22050, 16, 1, Bytes("FF F3 40 C4 00")), 0x2A);
    // What FLV has no name for is refused.
    EXPECT_EQ(SoundOf(MX_AUDIO_ALAW, 16000, 8, 1, some), 0);
    EXPECT_EQ(SoundOf(MX_AUDIO_PCM16, 48000, 16, 2, some), 0);
    EXPECT_EQ(SoundOf(MX_AUDIO_MPEG, 48000, 16, 2, Bytes("FF FD 84 C4 00")), 0);  // layer II
}

TEST_F(XflvPacket, WhatIsRefused) {
    stream->Open();
    EXPECT_EQ(stream->Video(Inter(), MX_SUB_P, 0, 0), 5u);
    EXPECT_EQ(stream->Video(test::Units({Bytes("65 88")}), MX_SUB_I, 0, 0), 5u);  // no parameter sets
    EXPECT_EQ(stream->Video(ByteVector(40, 7), MX_SUB_I, 0, 0), 3u);
    EXPECT_EQ(stream->Audio(ByteVector(40, 7), 0), 3u);
    EXPECT_TRUE(stream->blocks.empty());
}

TEST_F(XflvPacket, AnEmptyFileIsOneAllTheSame) {
    stream->Open();
    EXPECT_EQ(stream->Close(), 0u);
    EXPECT_EQ(Tags().size(), 1u);
    EXPECT_EQ(stream->File()[4], 0);
}

// The whole of onMetaData where there is no room for an index: a name, a marker, a value (the AMF 0 format, 2.2
// to 2.10).
TEST_F(XflvPacket, MetadataOfSoundAlone) {
    const auto property = [](const char* name, double value) {
        const auto bits = std::bit_cast<uint64_t>(value);
        ByteVector out =
            ByteVector{0, static_cast<uint8_t>(std::string(name).size())} + test::Text(name) + ByteVector{0};
        for (int shift = 56; shift >= 0; shift -= 8)
            out.push_back(static_cast<uint8_t>(bits >> shift));
        return out;
    };
    const auto flag = [](const char* name, bool value) {
        return ByteVector{0, static_cast<uint8_t>(std::string(name).size())} + test::Text(name) +
               ByteVector{1, static_cast<uint8_t>(value ? 1 : 0)};
    };
    const auto expected = [&](double duration, double rate, double file_size, double sample_rate, bool stereo) {
        return Bytes("02 00 0A") + test::Text("onMetaData") + Bytes("08 00 00 00 0F") + property("duration", duration) +
               property("width", 0) + property("height", 0) + property("framerate", 0) + property("videocodecid", 0) +
               property("videodatarate", 0) + property("audiocodecid", stereo ? 8 : 7) +
               property("audiosamplerate", sample_rate) + property("audiosamplesize", 16) +
               property("audiodatarate", rate) + property("filesize", file_size) + property("lasttimestamp", duration) +
               flag("stereo", stereo) + flag("hasVideo", false) + flag("hasAudio", true) + Bytes("00 00 09");
    };
    for (const bool stereo : {false, true}) {
        const uint32_t codec = stereo ? MX_AUDIO_MULAW : MX_AUDIO_ALAW;
        stream = ExactStream::Of<CXflvPacket>(MX_FORMAT_XFLV);
        stream->Open(0, codec, 17);  // one entry takes 18
        // Two frames of 20 ms: 64 kbit/s a channel.
        ByteVector bytes(stereo ? 320 : 160, 0xD5);
        MXFrameInfo frame = test::AudioFrame(bytes, codec);
        frame.samples_per_sec = 8000;
        frame.channels = stereo ? 2 : 1;
        for (int64_t i = 0; i < 2; ++i) {
            MXSetFrameTimes(&frame, 8000, i * 160, i * 160, 160);
            ASSERT_EQ(stream->package->inputFrame(&frame, 0), 0u);
        }
        EXPECT_EQ(Tags().at(0).data, expected(0, 0, 0, 8000, stereo));
        EXPECT_EQ(stream->Close(), 0u);
        const auto size = static_cast<double>(stream->File().size());
        EXPECT_EQ(Tags().at(0).data, expected(0.04, stereo ? 128 : 64, size, 8000, stereo));
        EXPECT_EQ(Tags().at(1).data, ByteVector{static_cast<uint8_t>(stereo ? 0x83 : 0x72)} + bytes);
    }
}

TEST_F(XflvPacket, MetadataOfAPictureWithoutSound) {
    stream->Open(MX_VIDEO_H264, 0);
    // 25 frames of 40 ms and 1000 bytes each: 200 kbit/s.
    for (int i = 0; i < 25; ++i) {
        ByteVector bytes = i == 0 ? Key() : Inter();
        bytes.resize(1000, 0x55);
        ASSERT_EQ(stream->Video(bytes, i == 0 ? MX_SUB_I : MX_SUB_P, i * 3600, i * 3600, 3600), 0u);
    }
    stream->Close();
    const ByteVector metadata = Tags()[0].data;
    EXPECT_EQ(Slice(metadata, 13, 5), Bytes("08 00 00 00 11"));
    EXPECT_EQ(Number(metadata, "duration"), 1.0);
    EXPECT_EQ(Number(metadata, "videodatarate"), 200.0);
    for (const char* name : {"audiocodecid", "audiosamplerate", "audiosamplesize", "audiodatarate"})
        EXPECT_EQ(Number(metadata, name), 0.0) << name;
    for (const auto& [name, value] : {std::pair("stereo", "01 00"), {"hasVideo", "01 01"}, {"hasAudio", "01 00"}})
        EXPECT_EQ(Slice(metadata, Find(metadata, name), 2), Bytes(value)) << name;
}

TEST_F(XflvPacket, FramesWithoutDurationsLastAsLongAsTheOnesBefore) {
    stream->Open(MX_VIDEO_H264, 0);
    for (int i = 0; i < 25; ++i)
        ASSERT_EQ(stream->Video(i == 0 ? Key() : Inter(), i == 0 ? MX_SUB_I : MX_SUB_P, i * 3600, i * 3600), 0u);
    stream->Close();
    EXPECT_EQ(Number(Tags()[0].data, "duration"), 1.0);
    for (const ExactStream::Block& block : stream->blocks) {
        if (block.note.kind == MX_BLOCK_MEDIA) continue;
        EXPECT_EQ(block.note.flags, 0u);
        EXPECT_EQ(block.note.duration, 0);
    }
}

// What FLV has no name for is refused, and a second header changes nothing.
TEST_F(XflvPacket, WhatItTakes) {
    ByteVector bytes(64, 0x55);
    const auto accepts = [&](uint32_t codec, uint32_t rate, uint32_t channels) {
        MXFrameInfo frame = test::AudioFrame(bytes, codec);
        frame.samples_per_sec = rate;
        frame.channels = channels;
        return stream->package->checkFrame(&frame);
    };
    for (const uint32_t rate : {5500u, 5512u, 11025u, 22050u, 44100u}) {
        EXPECT_TRUE(accepts(MX_AUDIO_PCM16, rate, 1)) << rate;
        EXPECT_TRUE(accepts(MX_AUDIO_PCM8, rate, 2)) << rate;
        EXPECT_FALSE(accepts(MX_AUDIO_PCM16, rate, 3)) << rate;
    }
    EXPECT_FALSE(accepts(MX_AUDIO_PCM16, 48000, 1));
    EXPECT_FALSE(accepts(MX_AUDIO_ALAW, 16000, 1));
    EXPECT_TRUE(accepts(MX_AUDIO_ALAW, 8000, 2));
    EXPECT_FALSE(accepts(MX_AUDIO_MULAW, 8000, 3));
    EXPECT_TRUE(accepts(MX_AUDIO_AAC, 96000, 6));
    EXPECT_FALSE(accepts(MX_AUDIO_MULAW_ALT, 8000, 1));
    for (const uint32_t codec : {MX_VIDEO_H264, MX_VIDEO_H264_ALT, MX_VIDEO_H264_STREAM, MX_VIDEO_H265}) {
        const MXFrameInfo frame = test::VideoFrame(bytes, codec, MX_SUB_I);
        EXPECT_TRUE(stream->package->checkFrame(&frame)) << codec;
    }
    for (const uint32_t codec : {MX_VIDEO_MPEG4, MX_VIDEO_MJPEG, MX_VIDEO_MPEG2}) {
        const MXFrameInfo frame = test::VideoFrame(bytes, codec, MX_SUB_I);
        EXPECT_FALSE(stream->package->checkFrame(&frame)) << codec;
    }
}

TEST_F(XflvPacket, AStreamThatBeginsLaterHasItsRate) {
    stream->Open(MX_VIDEO_H264, 0);
    for (int i = 25; i < 50; ++i)
        ASSERT_EQ(stream->Video(i == 25 ? Key() : Inter(), i == 25 ? MX_SUB_I : MX_SUB_P, i * 3600, i * 3600, 3600),
                  0u);
    stream->Close();
    EXPECT_EQ(Number(Tags()[0].data, "framerate"), 25.0);
}

TEST_F(XflvPacket, AnIndexOfOneEntry) {
    CFlvIndex index(1);
    index.Add(5, 100);
    ASSERT_EQ(index.Entries().size(), 1u);
    EXPECT_EQ(index.Entries()[0].time, 5.0);
    EXPECT_EQ(index.Entries()[0].position, 100.0);
    CFlvIndex none(0);
    none.Add(5, 100);
    EXPECT_TRUE(none.Entries().empty());
}

TEST_F(XflvPacket, WhatATagDoesNotHold) {
    EXPECT_EQ(stream->package->createHeader(nullptr, 0), 3u) << "ahead of init";
    stream->Open();
    EXPECT_EQ(stream->Audio(ByteVector(40, 7), 0, 0, 48000, MX_AUDIO_MPEG), 5u) << "no header of MPEG audio";
    const test::UntouchedMemory memory(size_t{20} << 20);
    ASSERT_NE(memory.Get(), nullptr);
    ByteVector none;
    MXFrameInfo sound = test::AudioFrame(none, MX_AUDIO_ALAW);
    sound.samples_per_sec = 8000;
    sound.frame_pointer = static_cast<uint8_t*>(memory.Get());
    // DataSize has 24 bits, of which two bytes may go ahead of the sound.
    sound.frame_size = 0xFFFFFE;
    EXPECT_EQ(stream->package->inputFrame(&sound, 0), 5u);
    // A start code of three bytes becomes a length of four: three quarters are let in.
    ByteVector picture = Key();
    picture.resize(12582909, 0x55);
    EXPECT_EQ(stream->Video(picture, MX_SUB_I, 0, 0), 5u);
    EXPECT_TRUE(stream->blocks.empty());
    picture.pop_back();
    picture.resize(picture.size() - 8);
    EXPECT_EQ(stream->Video(picture, MX_SUB_I, 0, 0), 0u);
    EXPECT_EQ(Tags().back().data.size(), 5 + picture.size() - 30 - 9);
}

TEST_F(XflvPacket, ParameterSetsAloneAreNoTag) {
    stream->Open(MX_VIDEO_H264, 0);
    EXPECT_EQ(stream->Video(test::Units({test::BaselineSps(), test::BaselinePps()}), MX_SUB_I, 0, 0), 0u);
    EXPECT_TRUE(stream->blocks.empty());
    EXPECT_EQ(stream->Video(test::Units({Bytes("65 88 84 21")}), MX_SUB_I, 3600, 3600), 0u);
    EXPECT_EQ(Tags().back().time, 40);
    EXPECT_EQ(stream->Open(MX_VIDEO_H264, 0), 0u) << "a second header changes nothing";
    EXPECT_EQ(stream->Video(Inter(), MX_SUB_P, 7200, 7200), 0u);
    EXPECT_EQ(Tags().back().time, 80);
}

// 8 kHz has a number of its own; of the other rates the nearest name is taken.
TEST_F(XflvPacket, Mp3AtEveryRate) {
    EXPECT_EQ(SoundOf(MX_AUDIO_MPEG, 8000, 16, 1, Bytes("FF E3 48 C4 00")), 0xE2);
    EXPECT_EQ(SoundOf(MX_AUDIO_MPEG, 11025, 16, 1, Bytes("FF E3 40 C4 00")), 0x26);
    EXPECT_EQ(SoundOf(MX_AUDIO_MPEG, 16000, 16, 1, Bytes("FF F3 48 C4 00")), 0x2A);
    EXPECT_EQ(SoundOf(MX_AUDIO_MPEG, 32000, 16, 2, Bytes("FF FB 98 64 00")), 0x2F);
}

TEST_F(XflvPacket, SoundOfAnotherFormIsTold) {
    stream->Open(0);
    // Mono has 1 in channel_configuration, and 0x1188 for its AudioSpecificConfig.
    ByteVector mono = test::Adts(Bytes("22"));
    mono[3] = static_cast<uint8_t>(mono[3] - 0x40);
    stream->Audio(test::Adts(Bytes("21")), 0, 1024);
    stream->Audio(mono, 1024, 1024);
    stream->Audio(mono, 2048, 1024);
    const auto tags = Tags();
    ASSERT_EQ(tags.size(), 6u);
    EXPECT_EQ(tags[1].data, Bytes("AF 00 11 90"));
    EXPECT_EQ(tags[3].data, Bytes("AF 00 11 88"));
    EXPECT_EQ(tags[4].data, Bytes("AF 01 22"));
    EXPECT_EQ(tags[5].data, Bytes("AF 01 22"));

    stream = ExactStream::Of<CXflvPacket>(MX_FORMAT_XFLV);
    stream->Open(0, MX_AUDIO_PCM16);
    ByteVector bytes(64, 0x55);
    MXFrameInfo frame = test::AudioFrame(bytes, MX_AUDIO_PCM16);
    for (const uint32_t rate : {44100u, 22050u}) {
        frame.samples_per_sec = rate;
        EXPECT_EQ(stream->package->inputFrame(&frame, 0), 0u);
    }
    const auto other = Tags();
    ASSERT_EQ(other.size(), 3u) << "only AAC has a tag for it";
    EXPECT_EQ(other[1].data.at(0), 0x3F);
    EXPECT_EQ(other[2].data.at(0), 0x3B);
    EXPECT_EQ(stream->blocks.size(), 3u);
}

TEST_F(XflvPacket, WithoutMemoryTheEndComesAgain) {
    test::QuietFile file;
    const MXCreateParam param = file.Param();
    CXflvPacket package(MX_FORMAT_XFLV, &param);
    package.init();
    EXPECT_EQ(package.createHeader(nullptr, 0), 0u);
    {
        const test::FailingAllocations failing;
        EXPECT_EQ(package.createTailer(nullptr, 0), 4u);
    }
    EXPECT_TRUE(file.bytes.empty());
    EXPECT_EQ(package.createTailer(nullptr, 0), 0u);
    EXPECT_EQ(ReadTags(file.bytes).size(), 1u);
}

}  // namespace
}  // namespace Orvane::Muxora
