#include "exact/xts_packet.h"

#include <gtest/gtest.h>

#include "exact_stream.h"
#include "support/allocation_counter.h"
#include "support/quiet_file.h"
#include "support/ts_reader.h"
#include "support/untouched_memory.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::ExactStream;
using test::operator+;

constexpr uint16_t kVideo = 0x0100;
constexpr uint16_t kAudio = 0x0101;
constexpr uint16_t kPmt = 0x1000;

const ByteVector kDelimiter = Bytes("00 00 00 01 09 F0");

struct XtsPacket : testing::Test {
    std::unique_ptr<ExactStream> stream = ExactStream::Of<CXtsPacket>(MX_FORMAT_XTS);

    static ByteVector Key(size_t size = 300) {
        return test::Units({test::HighSps(), test::HighPps(), Bytes("65 88") + ByteVector(size, 0x55)});
    }
    static ByteVector Inter(size_t size = 100) { return test::Units({Bytes("41 9A") + ByteVector(size, 0x33)}); }

    std::vector<test::TsPacket> Packets() const { return test::ReadTs(stream->Forward()); }
    std::vector<test::PesPacket> Pes(uint16_t pid) const { return test::ReadTsPes(Packets(), pid); }
};

TEST_F(XtsPacket, AnnouncedStreamsGiveTheTablesAtOnce) {
    EXPECT_EQ(stream->Open(), 0u);
    ASSERT_EQ(stream->blocks.size(), 1u);
    EXPECT_EQ(stream->Last().note.kind, static_cast<uint32_t>(MX_BLOCK_HEADER));
    const auto packets = Packets();
    ASSERT_EQ(packets.size(), 2u);
    EXPECT_EQ(test::ReadSection(packets[0]), Bytes("00 B0 0D 00 01 C1 00 00 00 01 F0 00 2A B1 04 B2"));
    EXPECT_EQ(packets[1].pid, kPmt);
    EXPECT_EQ(test::ReadSection(packets[1]),
              Bytes("02 B0 17 00 01 C1 00 00 E1 00 F0 00 1B E1 00 F0 00 0F E1 01 F0 00 2F 44 B9 9B"));
}

TEST_F(XtsPacket, TimesOfAPictureAreItsOwnAndASecond) {
    stream->Open();
    EXPECT_EQ(stream->Video(Key(), MX_SUB_I, -3003, 0, 1501, 90000), 0u);
    const auto pes = Pes(kVideo);
    ASSERT_EQ(pes.size(), 1u);
    EXPECT_EQ(pes[0].stream_id, 0xE0);
    EXPECT_EQ(pes[0].pts, 90000u);
    EXPECT_EQ(pes[0].dts, 90000u - 3003);
    EXPECT_TRUE(pes[0].aligned);
    EXPECT_EQ(pes[0].payload, kDelimiter + Key());
    const MXExactBlock& note = stream->Last().note;
    EXPECT_EQ(note.block.size, 64u);
    EXPECT_EQ(note.kind, static_cast<uint32_t>(MX_BLOCK_MEDIA));
    EXPECT_EQ(note.flags, static_cast<uint32_t>(MX_BLOCK_KEY | MX_BLOCK_VIDEO));
    EXPECT_EQ(note.time_scale, 90000u);
    EXPECT_EQ(note.dts, -3003);
    EXPECT_EQ(note.duration, 1501);
}

TEST_F(XtsPacket, TheClockRunsHalfASecondAhead) {
    stream->Open();
    stream->Video(Key(), MX_SUB_I, 9000, 9000);
    const auto packets = Packets();
    // The tables again, then the picture.
    ASSERT_GE(packets.size(), 5u);
    EXPECT_EQ(packets[4].pid, kVideo);
    EXPECT_TRUE(packets[4].random_access);
    EXPECT_EQ(packets[4].pcr, 9000u + 90000 - 45000);
    EXPECT_FALSE(Pes(kVideo)[0].dts);
}

TEST_F(XtsPacket, TimesWrapAtThirtyThreeBits) {
    stream->Open();
    const int64_t late = (int64_t{1} << 33) - 90000 - 1800;
    stream->Video(Key(), MX_SUB_I, late, late + 3600);
    const auto pes = Pes(kVideo);
    EXPECT_EQ(pes[0].dts, (uint64_t{1} << 33) - 1800);
    EXPECT_EQ(pes[0].pts, 1800u);
}

TEST_F(XtsPacket, AFrameWithADelimiterKeepsIts) {
    stream->Open();
    const ByteVector frame =
        test::Units({Bytes("09 10"), test::HighSps(), test::HighPps(), Bytes("65 88 84"), Bytes("65 11 22")});
    stream->Video(frame, MX_SUB_I, 0, 0);
    EXPECT_EQ(Pes(kVideo)[0].payload, frame);
}

TEST_F(XtsPacket, AKeyFrameGetsTheSetsThatItLacks) {
    stream->Open();
    stream->Video(Key(), MX_SUB_I, 0, 0);
    stream->Video(Inter(), MX_SUB_P, 3600, 3600);
    stream->Video(test::Units({Bytes("09 30"), Bytes("65 88 84")}), MX_SUB_I, 7200, 7200);
    const auto pes = Pes(kVideo);
    ASSERT_EQ(pes.size(), 3u);
    EXPECT_EQ(pes[1].payload, kDelimiter + Inter());
    EXPECT_EQ(pes[2].payload, kDelimiter + test::Units({test::HighSps(), test::HighPps(), Bytes("65 88 84")}));
}

TEST_F(XtsPacket, SetsOnTheirOwnComeWithTheNextKeyFrame) {
    stream->Open();
    EXPECT_EQ(stream->Video(test::Units({test::BaselineSps(), test::BaselinePps()}), MX_SUB_I, 0, 0), 0u);
    EXPECT_TRUE(Pes(kVideo).empty());
    stream->Video(test::Units({Bytes("65 88 84")}), MX_SUB_I, 3600, 3600);
    EXPECT_EQ(Pes(kVideo)[0].payload,
              kDelimiter + test::Units({test::BaselineSps(), test::BaselinePps(), Bytes("65 88 84")}));
}

TEST_F(XtsPacket, HevcGetsADelimiterOfItsOwn) {
    stream->Open(MX_VIDEO_H265);
    const ByteVector frame = test::HevcSets() + test::Units({Bytes("26 01 AC 11")});
    EXPECT_EQ(stream->Video(frame, MX_SUB_I, 0, 0, 0, 90000, MX_VIDEO_H265), 0u);
    EXPECT_EQ(Pes(kVideo)[0].payload, Bytes("00 00 00 01 46 01 50") + frame);
    EXPECT_EQ(test::ReadSection(Packets()[1])[12], 0x24);
}

TEST_F(XtsPacket, SoundIsOnePesPacketAFrame) {
    stream->Open();
    const ByteVector frame = test::Adts(ByteVector(200, 0x21));
    EXPECT_EQ(stream->Audio(frame, -1024, 1024), 0u);
    EXPECT_EQ(stream->Audio(frame, 0, 1024), 0u);
    const auto pes = Pes(kAudio);
    ASSERT_EQ(pes.size(), 2u);
    EXPECT_EQ(pes[0].stream_id, 0xC0);
    EXPECT_EQ(pes[0].pts, 90000u - 1920);
    EXPECT_EQ(pes[1].pts, 90000u);
    EXPECT_FALSE(pes[1].dts);
    EXPECT_EQ(pes[0].length_field, 8u + frame.size());
    EXPECT_EQ(pes[0].payload, frame);
    EXPECT_EQ(stream->Last().note.flags, static_cast<uint32_t>(MX_BLOCK_AUDIO));
}

TEST_F(XtsPacket, SoundAloneCarriesTheClockAndStandsAlone) {
    stream->package->init();
    stream->Audio(test::Adts(ByteVector(100, 1)), 0);
    EXPECT_EQ(stream->blocks[0].note.kind, static_cast<uint32_t>(MX_BLOCK_HEADER));
    EXPECT_EQ(stream->Last().note.flags, static_cast<uint32_t>(MX_BLOCK_AUDIO | MX_BLOCK_KEY));
    const auto packets = Packets();
    EXPECT_EQ(packets.back().pid, kAudio);
    EXPECT_EQ(packets.back().pcr, 45000u);
    // PCR_PID, one stream.
    EXPECT_EQ(test::Slice(test::ReadSection(packets[1]), 8, 9), Bytes("E1 01 F0 00 0F E1 01 F0 00"));
}

TEST_F(XtsPacket, AStreamThatComesLaterIsANewVersionOfTheMap) {
    stream->package->init();
    stream->Audio(test::Adts(ByteVector(100, 1)), 0);
    stream->Video(Key(), MX_SUB_I, 900, 900);
    std::vector<uint8_t> versions;
    for (const auto& packet : Packets()) {
        if (packet.pid == kPmt) versions.push_back(test::ReadSection(packet)[5] >> 1 & 0x1F);
    }
    EXPECT_EQ(versions, (std::vector<uint8_t>{0, 0, 1, 1}));
}

TEST_F(XtsPacket, MpegAudioIsToldByItsRate) {
    stream->package->init();
    const ByteVector mp2 = Bytes("FF FD 84 C4") + ByteVector(380, 0);
    stream->Audio(mp2, 0, 0, 48000, MX_AUDIO_MPEG);
    const auto last_map = [&] {
        ByteVector section;
        for (const auto& packet : Packets()) {
            if (packet.pid == kPmt) section = test::ReadSection(packet);
        }
        return section;
    };
    EXPECT_EQ(last_map()[12], 0x03);
    const ByteVector low = Bytes("FF F3 40 C4") + ByteVector(100, 0);
    stream->Audio(low, 1152, 0, 48000, MX_AUDIO_MPEG);
    EXPECT_EQ(last_map()[12], 0x04);
}

// Clock and tables by the line of time, however far apart the frames are.
void ExpectPeriods(const std::vector<test::TsPacket>& packets) {
    std::optional<uint64_t> clock;
    std::optional<uint64_t> tables;
    for (const auto& packet : packets) {
        if (packet.pcr) {
            if (clock) {
                ASSERT_GT(*packet.pcr, *clock);
                ASSERT_LE(*packet.pcr - *clock, 3600u);
            }
            clock = packet.pcr;
        }
        // The tables' time is that of the clock behind them at the latest.
        if (packet.pid == 0 && clock) {
            if (tables) {
                ASSERT_LE(*clock - *tables, 9000u);
            }
            tables = clock;
        }
    }
    ASSERT_TRUE(clock && tables);
}

TEST_F(XtsPacket, TheClockComesEvery40MillisecondsAndTheTablesEvery100) {
    for (const int64_t step : {1, 900, 1501, 3003, 3600, 3754, 9000, 90000, 900000}) {
        stream = ExactStream::Of<CXtsPacket>(MX_FORMAT_XTS);
        stream->Open();
        for (int64_t i = 0; i < 60; ++i)
            stream->Video(i % 25 == 0 ? Key() : Inter(), i % 25 == 0 ? MX_SUB_I : MX_SUB_P, i * step, i * step);
        SCOPED_TRACE(step);
        ExpectPeriods(Packets());
    }
}

TEST_F(XtsPacket, SoundKeepsTheClockGoingWhereThePicturesAreRare) {
    stream->Open();
    stream->Video(Key(), MX_SUB_I, 0, 0);
    for (int64_t i = 0; i < 200; ++i)
        stream->Audio(test::Adts(ByteVector(50, 1)), i * 1024);
    stream->Video(Inter(), MX_SUB_P, 180000, 180000);
    ExpectPeriods(Packets());
    for (const auto& packet : Packets()) {
        if (packet.pid == kAudio) {
            EXPECT_FALSE(packet.pcr);
        }
    }
}

TEST_F(XtsPacket, StreamsThatBeginYearsApartAreNotFilledUp) {
    stream->Open();
    stream->Audio(test::Adts(ByteVector(50, 1)), 0);
    stream->Video(Key(), MX_SUB_I, int64_t{90000} * 86400 * 3650, int64_t{90000} * 86400 * 3650);
    stream->Audio(test::Adts(ByteVector(50, 1)), 1024);
    EXPECT_LT(stream->Forward().size(), 188u * 20);
}

// Every length around the borders of a packet comes back whole, in as few packets as hold it.
TEST_F(XtsPacket, EveryLengthIsCutRight) {
    for (size_t size = 1; size < 800; size += 1) {
        stream = ExactStream::Of<CXtsPacket>(MX_FORMAT_XTS);
        stream->Open();
        stream->Video(Key(), MX_SUB_I, 0, 0);
        const ByteVector frame = Inter(size);
        stream->Video(frame, MX_SUB_P, 1800, 1800);
        const auto pes = Pes(kVideo);
        ASSERT_EQ(pes.size(), 2u);
        ASSERT_EQ(pes[1].payload, kDelimiter + frame) << size;
        const size_t bytes = 8 + 14 + kDelimiter.size() + frame.size();  // adaptation field, PES header
        ASSERT_EQ(stream->Last().data.size(), (bytes + 183) / 184 * 188) << size;
    }
}

TEST_F(XtsPacket, ALongPictureStatesNoLength) {
    stream->Open();
    stream->Video(Key(70000), MX_SUB_I, 0, 0);
    EXPECT_EQ(Pes(kVideo)[0].length_field, 0u);
    EXPECT_EQ(Pes(kVideo)[0].payload, kDelimiter + Key(70000));
}

TEST_F(XtsPacket, Mpeg4KeyFramesGetTheirHeaders) {
    stream->Open(MX_VIDEO_MPEG4, 0);
    const ByteVector headers = Bytes("00 00 01 B0 01 00 00 01 B5 89 13 00 00 01 00 00 00 01 20 00 C4 88");
    const ByteVector picture = Bytes("00 00 01 B6 10 60 11");
    stream->Video(headers + picture, MX_SUB_I, 0, 0, 0, 90000, MX_VIDEO_MPEG4);
    stream->Video(picture, MX_SUB_I, 3600, 3600, 0, 90000, MX_VIDEO_MPEG4);
    const auto pes = Pes(kVideo);
    EXPECT_EQ(pes[0].payload, headers + picture);
    EXPECT_EQ(pes[1].payload, headers + picture);
}

TEST_F(XtsPacket, WhatIsRefused) {
    stream->Open();
    EXPECT_EQ(stream->Video(Inter(), MX_SUB_P, 0, 0), 5u);            // ahead of the first key frame
    EXPECT_EQ(stream->Video(ByteVector(50, 7), MX_SUB_I, 0, 0), 3u);  // no start code
    EXPECT_EQ(stream->Video(Key(), MX_SUB_I, 0, 0, 0, 90000, MX_VIDEO_MJPEG), 5u);
    EXPECT_EQ(stream->Audio(ByteVector(100, 0), 0, 0, 8000, MX_AUDIO_ALAW), 5u);
    EXPECT_EQ(stream->Audio(ByteVector(65528, 0), 0), 5u);
    EXPECT_EQ(stream->blocks.size(), 1u);
    EXPECT_EQ(stream->Audio(ByteVector(65527, 0), 0), 0u);
}

// Of a PES packet without a clock only the last packet has an adaptation field, for the bytes that are missing: 14
// bytes of header, 7 and 1000 of the frame are five times 184 and 101.
TEST_F(XtsPacket, OnlyTheLastPacketOfSoundIsFilled) {
    stream->Open();
    stream->Video(Key(), MX_SUB_I, 0, 0);
    stream->blocks.clear();
    stream->Audio(test::Adts(ByteVector(1000, 0x21)), 480);
    const ByteVector bytes = stream->Forward();
    std::vector<ByteVector> heads;
    for (size_t at = 0; at < bytes.size(); at += 188) {
        if ((test::ReadBE(bytes, at + 1, 2) & 0x1FFF) == kAudio) heads.push_back(test::Slice(bytes, at + 3, 3));
    }
    ASSERT_EQ(heads.size(), 6u);
    for (size_t i = 0; i < 5; ++i)
        EXPECT_EQ(heads[i][0], 0x10 + i) << "payload alone, and the counter";
    EXPECT_EQ(heads[5], Bytes("35 52 00")) << "83 bytes: one of length, one of flags, the rest to fill";
}

TEST_F(XtsPacket, OnlyKeyFramesAreMarkedSo) {
    stream->Open();
    stream->Video(Key(), MX_SUB_I, 0, 0);
    EXPECT_EQ(stream->Last().note.flags, static_cast<uint32_t>(MX_BLOCK_KEY | MX_BLOCK_VIDEO));
    stream->Video(Inter(), MX_SUB_P, 3600, 3600);
    EXPECT_EQ(stream->Last().note.flags, static_cast<uint32_t>(MX_BLOCK_VIDEO));
    stream->Audio(test::Adts(Bytes("21")), 0);
    EXPECT_EQ(stream->Last().note.flags, static_cast<uint32_t>(MX_BLOCK_AUDIO));
}

// ISO/IEC 13818-1 Table 2-34: 0x02 is MPEG-2 video.
TEST_F(XtsPacket, Mpeg2Video) {
    stream->Open(MX_VIDEO_MPEG2, 0);
    EXPECT_EQ(test::Slice(test::ReadSection(Packets().at(1)), 8, 9), Bytes("E1 00 F0 00 02 E1 00 F0 00"));
    const ByteVector picture = Bytes("00 00 01 B3 14 00 F0 13 FF FF E0 18 00 00 01 B8 00 08 00 40 00 00 01 00 00 0F");
    EXPECT_EQ(stream->Video(picture, MX_SUB_I, 3600, 3600, 0, 90000, MX_VIDEO_MPEG2), 0u);
    ASSERT_EQ(Pes(kVideo).size(), 1u);
    EXPECT_EQ(Pes(kVideo)[0].payload, picture);
}

TEST_F(XtsPacket, EveryNumberOfH264IsOneStreamType) {
    for (const uint32_t codec : {MX_VIDEO_H264, MX_VIDEO_H264_ALT, MX_VIDEO_H264_STREAM}) {
        stream = ExactStream::Of<CXtsPacket>(MX_FORMAT_XTS);
        EXPECT_EQ(stream->package->createHeader(nullptr, 0), 3u) << "ahead of init";
        stream->Open(codec, 0);
        EXPECT_EQ(test::Slice(test::ReadSection(Packets().at(1)), 12, 3), Bytes("1B E1 00")) << codec;
        EXPECT_EQ(stream->Video(Key(), MX_SUB_I, 0, 0, 0, 90000, codec), 0u);
        EXPECT_EQ(Pes(kVideo).at(0).payload, kDelimiter + Key());
    }
}

TEST_F(XtsPacket, Mpeg4PicturesBetweenKeyFramesStayAsTheyAre) {
    stream->Open(MX_VIDEO_MPEG4, 0);
    const ByteVector headers = Bytes("00 00 01 B0 01 00 00 01 B5 89 13 00 00 01 00 00 00 01 20 00 C4 88");
    const ByteVector picture = Bytes("00 00 01 B6 50 60 11");
    stream->Video(headers + picture, MX_SUB_I, 0, 0, 0, 90000, MX_VIDEO_MPEG4);
    stream->Video(picture, MX_SUB_P, 3600, 3600, 0, 90000, MX_VIDEO_MPEG4);
    EXPECT_EQ(Pes(kVideo).at(1).payload, picture);
}

// What stands ahead of a start code of three bytes goes, with the zero before it or without.
TEST_F(XtsPacket, WhatStandsAheadOfTheFirstStartCodeIsLeftOut) {
    stream->Open(MX_VIDEO_H264, 0);
    const ByteVector units = test::HighSps() + test::Units({test::HighPps(), Bytes("65 88 01")});
    stream->Video(Bytes("55 00 00 01") + units, MX_SUB_I, 0, 0);
    stream->Video(Bytes("55 00 00 00 01") + units, MX_SUB_I, 3600, 3600);
    const auto pes = Pes(kVideo);
    ASSERT_EQ(pes.size(), 2u);
    EXPECT_EQ(pes[0].payload, kDelimiter + Bytes("00 00 01") + units);
    EXPECT_EQ(pes[1].payload, kDelimiter + Bytes("00 00 00 01") + units);
}

// Sets that take more than a packet ahead of the picture.
TEST_F(XtsPacket, LongParameterSetsTakeSeveralPackets) {
    stream->Open(MX_VIDEO_H264, 0);
    const ByteVector sets = test::Units({test::HighSps(), test::HighPps() + ByteVector(600, 0x66)});
    const ByteVector picture = test::Units({Bytes("65 88") + ByteVector(400, 0x55)});
    stream->Video(sets + picture, MX_SUB_I, 0, 0);
    stream->Video(picture, MX_SUB_I, 3600, 3600);
    const auto pes = Pes(kVideo);
    ASSERT_EQ(pes.size(), 2u);
    EXPECT_EQ(pes[1].payload, kDelimiter + sets + picture);
}

TEST_F(XtsPacket, WithoutMemoryAFrameIsNotThere) {
    test::QuietFile file;
    const MXCreateParam param = file.Param();
    CXtsPacket package(MX_FORMAT_XTS, &param);
    package.init();
    ByteVector bytes = Key(20000);
    const MXFrameInfo picture = test::VideoFrame(bytes, MX_VIDEO_H264, MX_SUB_I);
    uint32_t missing = 0;
    for (uint64_t failing = 0; failing < 30; ++failing) {
        MXFrameInfo frame = picture;
        const test::FailingAllocations allocations(failing, 2);
        const size_t before = file.bytes.size();
        const uint32_t result = package.inputFrame(&frame, 0);
        EXPECT_EQ(file.bytes.size() == before, result == MX_NO_RESOURCES) << failing;
        if (result == MX_OK) break;
        EXPECT_EQ(result, uint32_t{MX_NO_RESOURCES});
        ++missing;
    }
    EXPECT_GT(missing, 0u);
    EXPECT_EQ(test::ReadTsPes(test::ReadTs(file.bytes), kVideo).size(), 1u);
}

// Nearly four gigabytes, which nobody looks at: the packets would take more than a block can hold.
TEST(TsMultiplex, WhatNoBlockHoldsIsRefused) {
    constexpr size_t kSize = 0xFFFFFFF0;
    const test::UntouchedMemory memory(kSize);
    ASSERT_NE(memory.Get(), nullptr);
    CTsMultiplex multiplex;
    multiplex.SetStreams(0x1B, 0);
    EXPECT_FALSE(multiplex.Reserve({.head = {}, .frame = {static_cast<const uint8_t*>(memory.Get()), kSize}}));
}

}  // namespace
}  // namespace Orvane::Muxora
