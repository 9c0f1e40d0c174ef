// The program stream through CPsPacket: the bytes of each unit, how frames are divided, results and order of calls. The
// plain dialect stands for all, but for what is marked otherwise.
#include "mpeg2/ps_packet.h"

#include <gtest/gtest.h>

#include <random>

#include "support/allocation_counter.h"
#include "support/frames.h"
#include "support/hex.h"
#include "support/noise.h"
#include "support/ps_reader.h"
#include "support/sink.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::PsUnit;
using test::Sink;
using test::operator+;

const ByteVector kNal = test::Bytes("00 00 00 01 65 AA");

class PsPacket : public testing::Test {
  protected:
    uint32_t Video(ByteVector data, uint32_t sub_type, uint32_t timestamp, uint32_t codec = MX_VIDEO_H264) {
        MXFrameInfo frame = test::VideoFrame(data, codec, sub_type, timestamp);
        return packet.inputFrame(&frame, 0);
    }
    uint32_t Audio(ByteVector data, uint32_t timestamp, uint32_t codec = MX_AUDIO_AAC) {
        MXFrameInfo frame = test::AudioFrame(data, codec, timestamp);
        return packet.inputFrame(&frame, 0);
    }
    std::vector<PsUnit> Last() const { return test::ReadPs(sink.Last()); }
    // The kinds of the last block's units, as the fourth bytes of their start codes.
    ByteVector LastKinds() const {
        ByteVector kinds;
        for (const PsUnit& unit : Last())
            kinds.push_back(unit.id);
        return kinds;
    }
    // The payloads of the last block's packets.
    std::vector<ByteVector> LastPayloads() const {
        std::vector<ByteVector> payloads;
        for (const PsUnit& unit : Last()) {
            if (unit.id == test::kPsVideo || unit.id == test::kPsAudio) payloads.push_back(unit.pes.payload);
        }
        return payloads;
    }

    Sink sink;
    MXCreateParam param = sink.Param();
    CPsPacket packet{MX_FORMAT_PS, &param};
};

TEST_F(PsPacket, FirstIFrameByteForByte) {
    ASSERT_EQ(Video(kNal, 0, 1000), 0u);
    EXPECT_EQ(sink.Last(), Bytes("00 00 01 BA  44 00 2D 88 7C 01  00 60 1B  F8"  // SCR 176399
                                 "00 00 01 BB  00 0C  A1 9A C9  04 21 FF  E0 E0 E6  C0 C0 20"
                                 "00 00 01 BC  00 0E  E0 FF  00 00  00 04  1B E0 00 00  00 00 00 00"
                                 "00 00 01 E0  00 13  80 C0 0A  31 00 0B 7E 41  11 00 0B 62 21"  // 180000, 176400
                                 "00 00 00 01 65 AA"));
    EXPECT_EQ(sink.blocks[0].seek_type, 0u);
}

TEST_F(PsPacket, PFrameIsAPackAndItsPackets) {
    Video(kNal, 0, 1000);
    ASSERT_EQ(Video(Bytes("00 00 00 01 41 BB CC"), 1, 1040), 0u);
    // PTS 183600, DTS 180000, SCR 180000 less 7 * 90000 / 307500.
    EXPECT_EQ(sink.Last(), Bytes("00 00 01 BA  44 00 2D F8 F4 01  00 60 1B  F8"
                                 "00 00 01 E0  00 14  80 C0 0A  31 00 0B 9A 61  11 00 0B 7E 41"
                                 "00 00 00 01 41 BB CC"));
}

TEST_F(PsPacket, FirstAudioFrameByteForByte) {
    ASSERT_EQ(Audio(Bytes("FF F1 4C 80 01 1F FC AB"), 1000), 0u);
    // PTS 180000, SCR 2 ticks before: 8 * 90000 / 307500.
    EXPECT_EQ(sink.Last(), Bytes("00 00 01 BA  44 00 2D F8 F4 01  00 60 1B  F8"
                                 "00 00 01 BC  00 0E  E0 FF  00 00  00 04  0F C0 00 00  00 00 00 00"
                                 "00 00 01 C0  00 10  80 80 05  21 00 0B 7E 41"
                                 "FF F1 4C 80 01 1F FC AB"));
}

TEST_F(PsPacket, NothingComesOutBeforeTheFirstIFrame) {
    for (uint32_t time = 0; time < 200; time += 40)
        EXPECT_EQ(Video(kNal, 1, time), 5u);
    EXPECT_TRUE(sink.blocks.empty());
    EXPECT_EQ(Audio({1, 2, 3}, 5000), 0u);  // audio is not held back, and sets the time base at once
    EXPECT_EQ(Last().back().pes.pts, 5000u * 90 + 90000);
    EXPECT_EQ(Video(kNal, 1, 5000), 5u);
    EXPECT_EQ(Video(kNal, 0, 5000), 0u);
    EXPECT_EQ(Video(kNal, 1, 5040), 0u);
    EXPECT_EQ(sink.blocks.size(), 3u);
}

TEST_F(PsPacket, SubTypesOfTheProgramStream) {
    struct Row {
        uint32_t sub_type;
        bool key;
    };
    for (const Row row :
         {Row{0, true}, Row{18, true}, Row{20, true}, Row{8, true}, Row{1, false}, Row{19, false}, Row{2, false}}) {
        Sink other;
        const MXCreateParam other_param = other.Param();
        CPsPacket fresh(MX_FORMAT_PS, &other_param);
        ByteVector data = kNal;
        MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, row.sub_type, 40);
        EXPECT_EQ(fresh.inputFrame(&frame, 0), row.key ? 0u : 5u) << row.sub_type;
        Video(kNal, 0, 0);
        EXPECT_EQ(Video(kNal, row.sub_type, 0), 0u) << row.sub_type;
        EXPECT_EQ(LastKinds(), row.key ? Bytes("BA BB BC E0") : Bytes("BA E0")) << row.sub_type;
    }
    for (const uint32_t sub_type : {3u, 21u, 255u})
        EXPECT_EQ(Video(kNal, sub_type, 0), 5u) << sub_type;
}

TEST_F(PsPacket, EachNalUnitIsAPacketAndOnlyTheFirstIsTimed) {
    ASSERT_EQ(Video(Bytes("00 00 00 01 67 11 22  00 00 01 68 33  00 00 00 01 65 44 55"), 0, 0), 0u);
    const std::vector<PsUnit> units = Last();
    ASSERT_EQ(units.size(), 6u);
    EXPECT_EQ(units[3].pes.payload, Bytes("00 00 00 01 67 11 22"));
    EXPECT_TRUE(units[3].pes.pts.has_value());
    EXPECT_TRUE(units[3].pes.dts.has_value());
    EXPECT_EQ(units[4].bytes, Bytes("00 00 01 E0  00 08  80 00 00  00 00 01 68 33"));
    EXPECT_EQ(units[5].bytes, Bytes("00 00 01 E0  00 0A  80 00 00  00 00 00 01 65 44 55"));
}

TEST_F(PsPacket, DividesAsTheScanMeetsTheStartCodes) {
    struct Row {
        const char* name;
        const char* frame;
        std::vector<const char*> units;
    };
    const Row rows[] = {
        {"bytes in front are left out", "AA BB 00 00 01 65 11", {"00 00 01 65 11"}},
        {"a zero too many in front", "00 00 00 00 01 65 11", {"00 00 00 01 65 11"}},
        {"a short code in the last three bytes is not seen", "00 00 01 65 11 00 00 01", {"00 00 01 65 11 00 00 01"}},
        {"a byte behind it and it is", "00 00 01 65 11 00 00 01 41", {"00 00 01 65 11", "00 00 01 41"}},
        {"a long code in the last four bytes is seen", "00 00 01 65 11 00 00 00 01", {"00 00 01 65 11", "00 00 00 01"}},
        {"the search skips the byte behind a short code", "00 00 01 00 00 01 65", {"00 00 01 00 00 01 65"}},
        {"an empty unit behind a long code", "00 00 00 01 00 00 01 65", {"00 00 00 01", "00 00 01 65"}},
        {"a long code behind a short one", "00 00 01 00 00 00 01 65", {"00 00 01 00", "00 00 01 65"}},
        {"zeros behind a unit stay with it", "00 00 01 65 00 00 00 00 01 41", {"00 00 01 65 00", "00 00 00 01 41"}},
        {"four bytes are a unit", "00 00 01 65", {"00 00 01 65"}},
    };
    for (const Row& row : rows) {
        ASSERT_EQ(Video(Bytes(row.frame), 0, 0), 0u) << row.name;
        std::vector<ByteVector> expected;
        for (const char* unit : row.units)
            expected.push_back(Bytes(unit));
        EXPECT_EQ(LastPayloads(), expected) << row.name;
    }
}

// The search again, as it is told: each position in turn, four bytes further behind a hit.
TEST_F(PsPacket, DividesRandomFramesAsAPlainScanDoes) {
    std::mt19937 random(8);
    for (int round = 0; round < 2000; ++round) {
        const ByteVector data = test::ZeroRichBytes(random, 1 + random() % 60);
        std::vector<size_t> hits;
        for (size_t i = 0; i + 3 < data.size();) {
            const bool three = data[i] == 0 && data[i + 1] == 0 && data[i + 2] == 1;
            const bool four = data[i] == 0 && data[i + 1] == 0 && data[i + 2] == 0 && data[i + 3] == 1;
            if (three || four) hits.push_back(i);
            i += three || four ? 4 : 1;
        }
        ASSERT_EQ(Video(data, 0, 0), hits.empty() ? 5u : 0u) << test::Hex(data);
        if (hits.empty()) continue;
        std::vector<ByteVector> expected;
        for (size_t k = 0; k < hits.size(); ++k) {
            const size_t end = k + 1 < hits.size() ? hits[k + 1] : data.size();
            expected.push_back(test::Slice(data, hits[k], end - hits[k]));
        }
        ASSERT_EQ(LastPayloads(), expected) << test::Hex(data);
    }
}

TEST_F(PsPacket, FramesWithoutStartCodesFailAndTheStreamGoesOn) {
    Video(kNal, 0, 0);
    for (const char* data : {"65", "65 11 22 33", "00 00 01", "00 00", "00", "01 00 00 02 65"})
        EXPECT_EQ(Video(Bytes(data), 0, 0), 5u) << data;
    EXPECT_EQ(Video(Bytes("65 11 22 33"), 1, 0, MX_VIDEO_H265), 5u);
    EXPECT_EQ(Video(Bytes("65 11 22 33"), 1, 0, MX_VIDEO_H264_ALT), 5u);
    EXPECT_EQ(sink.blocks.size(), 1u);
    EXPECT_EQ(Video(kNal, 1, 40), 0u);
}

TEST_F(PsPacket, OtherVideoIsOneUnitStartCodesOrNot) {
    const ByteVector data = Bytes("00 00 01 B6 10 00 00 01 B6 20");
    ASSERT_EQ(Video(data, 0, 0, MX_VIDEO_MPEG4), 0u);
    EXPECT_EQ(LastPayloads(), std::vector<ByteVector>{data});
    ASSERT_EQ(Video({0x42}, 0, 40, MX_VIDEO_MPEG2), 0u);
    EXPECT_EQ(LastPayloads(), std::vector<ByteVector>{{0x42}});
}

TEST_F(PsPacket, UnitsAbove61440BytesAreCut) {
    struct Row {
        uint32_t size;
        std::vector<size_t> pieces;
    };
    for (const Row& row : {Row{61439, {61439}}, Row{61440, {61440}}, Row{61441, {61440, 1}}, Row{65535, {61440, 4095}},
                           Row{122880, {61440, 61440}}, Row{122881, {61440, 61440, 1}}}) {
        ByteVector data(row.size, 0x5A);
        std::copy(kNal.begin(), kNal.end(), data.begin());
        ASSERT_EQ(Video(data, 0, 0), 0u);
        const std::vector<PsUnit> units = Last();
        ASSERT_EQ(units.size(), 3 + row.pieces.size()) << row.size;
        ByteVector joined;
        for (size_t i = 0; i < row.pieces.size(); ++i) {
            const test::PesPacket& pes = units[3 + i].pes;
            EXPECT_EQ(pes.payload.size(), row.pieces[i]) << row.size;
            EXPECT_EQ(pes.length_field, row.pieces[i] + (i == 0 ? 13 : 3)) << row.size;
            EXPECT_EQ(pes.pts.has_value(), i == 0) << row.size;
            joined = joined + pes.payload;
        }
        EXPECT_EQ(joined, data);
    }
}

TEST_F(PsPacket, EveryNalUnitIsCutByItself) {
    ByteVector data = kNal + ByteVector(61440, 0x11) + kNal + ByteVector(10, 0x22);
    ASSERT_EQ(Video(data, 0, 0), 0u);
    const std::vector<ByteVector> payloads = LastPayloads();
    ASSERT_EQ(payloads.size(), 3u);
    EXPECT_EQ(payloads[0].size(), 61440u);
    EXPECT_EQ(payloads[1].size(), 6u);
    EXPECT_EQ(payloads[2].size(), 16u);
}

// The pieces of a frame, found step by step as the rule is told: a unit reaches to the next start code that begins four
// bytes on or later, and a unit is cut every 61440 bytes.
std::vector<ByteVector> NaivePieces(const ByteVector& data) {
    const auto begins = [&](size_t i) {
        if (i + 3 >= data.size() || data[i] != 0 || data[i + 1] != 0) return false;
        return data[i + 2] == 1 || (data[i + 2] == 0 && data[i + 3] == 1);
    };
    std::vector<ByteVector> pieces;
    size_t at = 0;
    while (at < data.size() && !begins(at))
        ++at;
    while (at < data.size()) {
        size_t end = std::min(at + 4, data.size());
        while (end < data.size() && !begins(end))
            ++end;
        for (; at < end; at += std::min<size_t>(61440, end - at))
            pieces.emplace_back(data.begin() + static_cast<std::ptrdiff_t>(at),
                                data.begin() + static_cast<std::ptrdiff_t>(std::min(end, at + 61440)));
    }
    return pieces;
}

TEST_F(PsPacket, UnitsAreFoundAcrossThePlaceWhereOneIsCut) {
    for (const ByteVector& code : {Bytes("00 00 01 41"), Bytes("00 00 00 01 41"), Bytes("00 00 00 00 00 01 41")}) {
        for (size_t at = 61440 - 8; at <= 61440 + 8; ++at) {
            for (const size_t behind : {size_t{0}, size_t{2}, size_t{500}, size_t{61440}}) {
                ByteVector data = kNal + ByteVector(at - kNal.size(), 0x5A) + code + ByteVector(behind, 0x33);
                ASSERT_EQ(Video(data, 0, 0), 0u);
                ASSERT_EQ(LastPayloads(), NaivePieces(data)) << "at " << at << ", " << behind << " bytes behind";
            }
        }
    }
}

TEST_F(PsPacket, UnitsOfAnyLengthAgreeWithTheStepByStepRule) {
    std::mt19937 random(7);
    for (size_t round = 0; round < 3000; ++round) {
        const ByteVector data = kNal + test::ZeroRichBytes(random, random() % 300);
        ASSERT_EQ(Video(data, 0, 0), 0u);
        ASSERT_EQ(LastPayloads(), NaivePieces(data)) << test::Hex(data);
    }
}

TEST_F(PsPacket, AudioLengthWrapsAbove65527Bytes) {
    ASSERT_EQ(Audio(ByteVector(65527, 1), 0), 0u);
    EXPECT_EQ(Last().back().pes.length_field, 65535u);
    for (const uint32_t size : {65528u, 65529u, 70000u, 200000u}) {
        ASSERT_EQ(Audio(ByteVector(size, 1), 0), 0u);
        // Behind the pack header: 14 bytes of header, then the whole frame in one packet.
        ASSERT_EQ(sink.Last().size(), 14u + 14 + size);
        EXPECT_EQ(test::ReadBE(sink.Last(), 18, 2), (size + 8) % 65536) << size;
    }
}

TEST_F(PsPacket, MapsComeWithTheFirstAndEvery25thAudioFrame) {
    for (int number = 1; number <= 76; ++number) {
        ASSERT_EQ(Audio({1, 2, 3}, 0), 0u);
        const bool map = number == 1 || number == 26 || number == 51 || number == 76;
        EXPECT_EQ(LastKinds(), map ? Bytes("BA BC C0") : Bytes("BA C0")) << number;
    }
}

TEST_F(PsPacket, AFailedAudioFrameDoesNotCountForTheMap) {
    // Refused frames do not reach the counter.
    EXPECT_EQ(Audio({1}, 0, MX_AUDIO_ALAW), 5u);
    EXPECT_EQ(Audio({1}, 0), 0u);
    EXPECT_EQ(LastKinds(), Bytes("BA BC C0"));
}

uint8_t MapVersionByte(const std::vector<PsUnit>& units) {
    for (const PsUnit& unit : units) {
        if (unit.id == test::kPsMap) return unit.bytes.at(6);
    }
    throw std::runtime_error("no map");
}

TEST_F(PsPacket, MapVersionCountsChangesToFourTwoBitsUp) {
    Video(kNal, 0, 0);
    EXPECT_EQ(MapVersionByte(Last()), 0xE0);
    Video(kNal, 0, 0);
    EXPECT_EQ(MapVersionByte(Last()), 0xE0);
    uint32_t codec = MX_VIDEO_H264;
    for (const int expected : {0xE8, 0xF0, 0xF8, 0xE0, 0xE8}) {
        codec = codec == MX_VIDEO_H264 ? MX_VIDEO_H265 : MX_VIDEO_H264;
        Video(kNal, 0, 0, codec);
        EXPECT_EQ(MapVersionByte(Last()), expected);
    }
}

TEST_F(PsPacket, AudioThatJoinsIsAChangeOfTheMap) {
    Video(kNal, 0, 0);
    Audio({1, 2}, 0, MX_AUDIO_MPEG);
    EXPECT_EQ(Last()[1].bytes, Bytes("00 00 01 BC  00 12  E8 FF  00 00  00 08  1B E0 00 00  04 C0 00 00  00 00 00 00"));
    // The other number of H.264 has the same stream type.
    Video(kNal, 0, 0, MX_VIDEO_H264_ALT);
    EXPECT_EQ(MapVersionByte(Last()), 0xE8);
}

TEST_F(PsPacket, StreamTypesOfThePlainDialect) {
    struct Row {
        uint32_t codec;
        int stream_type;  // -1: refused
    };
    for (const Row row : {Row{4, 0x1B}, Row{2, 0x1B}, Row{12, 0x24}, Row{1, 0x10}, Row{9, 0x02}, Row{11, 0x80},
                          Row{8, -1}, Row{3, -1}, Row{129, -1}, Row{35, -1}, Row{0, -1}, Row{26, -1}}) {
        const uint32_t result = Video(kNal, 0, 0, row.codec);
        ASSERT_EQ(result, row.stream_type < 0 ? 5u : 0u) << row.codec;
        if (result == 0) {
            EXPECT_EQ(test::ReadPsMap(Last()[2].bytes)[0].stream_type, row.stream_type) << row.codec;
        }
    }
    Sink other;
    const MXCreateParam other_param = other.Param();
    for (const Row row :
         {Row{26, 0x0F}, Row{31, 0x04}, Row{14, -1}, Row{22, -1}, Row{7, -1}, Row{16, -1}, Row{2, -1}}) {
        CPsPacket fresh(MX_FORMAT_PS, &other_param);
        ByteVector data{1, 2};
        MXFrameInfo frame = test::AudioFrame(data, row.codec);
        const uint32_t result = fresh.inputFrame(&frame, 0);
        ASSERT_EQ(result, row.stream_type < 0 ? 5u : 0u) << row.codec;
        if (result == 0) {
            EXPECT_EQ(test::ReadPsMap(test::ReadPs(other.Last())[1].bytes)[0].stream_type, row.stream_type);
        }
    }
}

TEST_F(PsPacket, BlocksFollowOneAnother) {
    Video(kNal, 0, 1000);
    Video(kNal, 1, 1040);
    Audio({1, 2, 3}, 1000);
    int64_t offset = 0;
    for (const Sink::Block& block : sink.blocks) {
        EXPECT_EQ(block.offset, offset);
        EXPECT_EQ(block.offset32, static_cast<uint32_t>(offset));
        EXPECT_EQ(block.seek_type, 0u);
        offset += static_cast<int64_t>(block.data.size());
    }
}

TEST_F(PsPacket, ASinkThatTakesLessMovesTheNextBlock) {
    sink.accept = {7, 0, -1};
    Video(kNal, 0, 1000);
    Video(kNal, 1, 1040);
    Video(kNal, 1, 1080);
    EXPECT_EQ(sink.blocks[1].offset, 7);
    EXPECT_EQ(sink.blocks[2].offset, 7);
}

TEST_F(PsPacket, InputFrameExIsTheSameAndLeavesThePacketAlone) {
    Basalt::CPacket untouched(16);
    ByteVector data = kNal;
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, 0, 1000);
    EXPECT_EQ(packet.inputFrameEx(&frame, untouched), 0u);
    EXPECT_EQ(untouched.size(), 0u);
    EXPECT_EQ(LastKinds(), Bytes("BA BB BC E0"));
    EXPECT_EQ(packet.inputFrameEx(nullptr, untouched), 3u);
}

TEST_F(PsPacket, BadArguments) {
    EXPECT_EQ(packet.inputFrame(nullptr, 0), 3u);
    ByteVector data = kNal;
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, 0);
    frame.frame_size = 0;
    EXPECT_EQ(packet.inputFrame(&frame, 0), 3u);
    frame.frame_size = 6;
    frame.frame_pointer = nullptr;
    EXPECT_EQ(packet.inputFrame(&frame, 0), 3u);
    frame = test::VideoFrame(data, MX_VIDEO_H264, 0);
    for (const uint32_t type : {0u, 3u, 4u}) {
        frame.frame_type = type;
        EXPECT_EQ(packet.inputFrame(&frame, 0), 5u) << type;
    }
    EXPECT_TRUE(sink.blocks.empty());
}

TEST_F(PsPacket, HasNoHeadAndNoTail) {
    EXPECT_EQ(packet.init(), 0u);
    EXPECT_EQ(packet.createHeader(nullptr, 0), 0u);
    EXPECT_EQ(packet.createTailer(nullptr, 0), 0u);
    EXPECT_EQ(packet.uninit(), 0u);
    EXPECT_EQ(packet.setExtData("x", 1), 0u);
    EXPECT_TRUE(sink.blocks.empty());
    MXOutputBlock block{};
    block.length = 77;
    EXPECT_EQ(packet.getBackup(&block), 0u);
    EXPECT_EQ(block.length, 77u);
}

TEST_F(PsPacket, ANumberThatIsNoProgramStreamMakesNothingThatCrashes) {
    CPsPacket none(MX_FORMAT_TS, &param);
    ByteVector data = kNal;
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, 0);
    const void* table = nullptr;
    uint32_t count = 0;
    EXPECT_EQ(none.inputFrame(&frame, 0), 5u);
    EXPECT_FALSE(none.checkFrame(&frame));
    EXPECT_EQ(none.getEncodeCapacity(0, &table, &count), 3u);
    EXPECT_EQ(none.getCodecCapacity(0, &table, &count), 3u);
}

TEST_F(PsPacket, MemoryThatRunsOutFailsTheFrameAlone) {
    Video(kNal, 0, 0);
    {
        ByteVector large = kNal + ByteVector(100000, 7);
        MXFrameInfo frame = test::VideoFrame(large, MX_VIDEO_H264, 1, 40);
        const test::FailingAllocations none;
        EXPECT_EQ(packet.inputFrame(&frame, 0), 5u);
    }
    EXPECT_EQ(sink.blocks.size(), 1u);
    EXPECT_EQ(Video(kNal, 1, 80), 0u);
    EXPECT_EQ(LastPayloads(), std::vector<ByteVector>{kNal});
}

// The buffer's own steps would move a frame of 8 MB 130 times.
TEST(PsPacketMemory, ALargeFrameIsAskedForInOneStep) {
    for (const uint32_t format : {11u, 20u}) {
        CPsPacket packet(format);
        ByteVector picture = kNal + ByteVector(8000000, 7);
        MXFrameInfo frame = test::VideoFrame(picture, MX_VIDEO_H264, 0, 0);
        const test::AllocationCounter allocations;
        EXPECT_EQ(packet.inputFrame(&frame, 0), 0u);
        EXPECT_LE(allocations.Count(), 2u);  // the headers may take one more
    }
}

// Units of one byte become packets: what comes out is several times the frame, and its buffer grows on
// the way. However large the frame, each byte is moved a few times and no more.
TEST(PsPacketMemory, AFrameOfSmallUnitsIsMovedAFewTimes) {
    for (const uint32_t format : {11u, 17u, 18u, 20u}) {
        CPsPacket packet(format);
        ByteVector picture;
        for (int i = 0; i < 800000; ++i)
            picture.insert(picture.end(), {0, 0, 0, 1, 0x41});
        MXFrameInfo frame = test::VideoFrame(picture, MX_VIDEO_H264, 0, 0);
        const test::AllocationCounter allocations;
        EXPECT_EQ(packet.inputFrame(&frame, 0), 0u);
        EXPECT_LE(allocations.Bytes(), 24u * picture.size());
    }
}

TEST(PsPacketMemory, NoneIsAskedForOnceWarm) {
    for (const uint32_t format : {11u, 17u, 18u, 20u}) {
        CPsPacket packet(format);
        ByteVector picture = kNal + ByteVector(150000, 7);
        ByteVector sound(300, 3);
        const auto give = [&](uint32_t number) {
            MXFrameInfo frame = test::VideoFrame(picture, MX_VIDEO_H264, number % 25 == 0 ? 0 : 1, number * 40);
            EXPECT_EQ(packet.inputFrame(&frame, 0), 0u);
            const bool telephone = format == 18 || format == 20;
            frame = test::AudioFrame(sound, telephone ? MX_AUDIO_ALAW : MX_AUDIO_AAC, number * 40);
            if (telephone) frame.samples_per_sec = 8000;
            EXPECT_EQ(packet.inputFrame(&frame, 0), 0u);
        };
        give(0);
        const test::AllocationCounter allocations;
        for (uint32_t number = 1; number < 200; ++number)
            give(number);
        EXPECT_EQ(allocations.Count(), 0u) << format;
    }
}

}  // namespace
}  // namespace Orvane::Muxora
