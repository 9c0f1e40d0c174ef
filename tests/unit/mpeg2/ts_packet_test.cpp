// The transport stream through CTsPacket: the bytes of tables, packets and PES headers, the limits, results and order
// of calls.
#include "mpeg2/ts_packet.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "support/allocation_counter.h"
#include "support/frames.h"
#include "support/hex.h"
#include "support/sink.h"
#include "support/ts_reader.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::Sink;
using test::TsPacket;
using test::operator+;

constexpr uint16_t kPat = 0;
constexpr uint16_t kPmt = 16;
constexpr uint16_t kVideo = 18;
constexpr uint16_t kAudio = 19;

// What fits the 3 MiB that a frame may become: 16732 packets.
constexpr uint32_t kMostPackets = 3145728 / 188;

class TsStream : public testing::Test {
  protected:
    TsStream() { EXPECT_EQ(packet.init(), 0u); }

    uint32_t Give(const MXFrameInfo& frame) {
        MXFrameInfo copy = frame;
        return packet.inputFrame(&copy, 0);
    }
    // MPEG-2 video: a PES packet of 19 bytes and the frame.
    uint32_t Video(ByteVector data, uint32_t sub_type, uint32_t timestamp = 1000, uint32_t codec = MX_VIDEO_MPEG2) {
        return Give(test::VideoFrame(data, codec, sub_type, timestamp));
    }
    // A PES packet of 14 bytes and the frame.
    uint32_t Audio(ByteVector data, uint32_t timestamp = 1000, uint32_t codec = MX_AUDIO_AAC) {
        return Give(test::AudioFrame(data, codec, timestamp));
    }
    std::vector<TsPacket> Last() const { return test::ReadTs(sink.Last()); }
    std::vector<uint16_t> LastPids() const {
        std::vector<uint16_t> pids;
        for (const TsPacket& one : Last())
            pids.push_back(one.pid);
        return pids;
    }
    test::PesPacket LastPes(uint16_t pid) const {
        const std::vector<test::PesPacket> packets = test::ReadTsPes(Last(), pid);
        EXPECT_EQ(packets.size(), 1u);
        return packets.at(0);
    }
    ByteVector LastPmt() const {
        for (const TsPacket& one : Last()) {
            if (one.pid == kPmt) return test::ReadSection(one);
        }
        throw std::runtime_error("no PMT");
    }
    // Keeps tables out of what follows.
    void StartVideo() { ASSERT_EQ(Video({1, 2, 3}, 0), 0u); }

    Sink sink;
    MXCreateParam param = sink.Param();
    CTsPacket packet{MX_FORMAT_TS, &param};
};

TEST_F(TsStream, FirstIFrameByteForByte) {
    ASSERT_EQ(Video(Bytes("00 00 00 01 65 AA"), 0, 1000, MX_VIDEO_H264), 0u);
    const ByteVector pat = Bytes("47 40 00 10  00  00 B0 0D  00 01  C1  00 00  00 01  E0 10  76 F1 44 D1");
    const ByteVector pmt =
        Bytes("47 40 10 10  00  02 B0 12  00 01  C1  00 00  E0 12  F0 00  1B E0 12 F0 00  3F 70 F2 A6");
    // The PES packet: 19 bytes of header, the delimiter, the frame: 31. PTS and DTS 90000, PCR 89100.
    const ByteVector start = Bytes("47 40 12 30  98 10  00 00 AE 06 7E 00");
    const ByteVector pes = Bytes(
        "00 00 01 E0  00 19  84 C0 0A  31 00 05 BF 21  11 00 05 BF 21"
        "00 00 00 01 09 F0  00 00 00 01 65 AA");
    EXPECT_EQ(sink.Last(), pat + ByteVector(188 - pat.size(), 0xFF) + pmt + ByteVector(188 - pmt.size(), 0xFF) + start +
                               ByteVector(145, 0xFF) + pes);
}

TEST_F(TsStream, FirstAudioFrameByteForByte) {
    ASSERT_EQ(Audio({0xFF, 0xF1, 7}, 1000), 0u);
    EXPECT_EQ(LastPids(), (std::vector<uint16_t>{kPat, kPmt, kAudio}));
    EXPECT_EQ(test::Slice(sink.Last(), 188, 30), Bytes("47 40 10 10  00  02 B0 12  00 01  C1  00 00  E0 13  F0 00"
                                                       "0F E0 13 F0 00  C6 2F 0F 64  FF FF FF FF"));
    EXPECT_EQ(test::Slice(sink.Last(), 376, 12), Bytes("47 40 13 30  A6 10  00 00 AE 06 7E 00"));
    EXPECT_EQ(test::Slice(sink.Last(), 564 - 17, 17), Bytes("00 00 01 C0  00 0B  84 80 05  21 00 05 BF 21  FF F1 07"));
}

TEST_F(TsStream, PesSizesAroundThePacketSteps) {
    StartVideo();
    struct Row {
        uint32_t pes;
        std::vector<std::pair<uint32_t, size_t>> packets;  // adaptation_field_length, bytes of payload
    };
    for (const Row& row :
         {Row{20, {{163, 20}}}, Row{175, {{8, 175}}}, Row{176, {{7, 176}}}, Row{177, {{7, 176}, {182, 1}}},
          Row{178, {{7, 176}, {181, 2}}}, Row{357, {{7, 176}, {2, 181}}}, Row{358, {{7, 176}, {1, 182}}},
          Row{359, {{7, 176}, {1, 182}, {182, 1}}}, Row{540, {{7, 176}, {1, 182}, {1, 182}}},
          Row{541, {{7, 176}, {1, 182}, {1, 182}, {182, 1}}}}) {
        ByteVector data(row.pes - 19);
        for (size_t i = 0; i < data.size(); ++i)
            data[i] = static_cast<uint8_t>(i * 7 + 1);
        ASSERT_EQ(Video(data, 1), 0u);
        const std::vector<TsPacket> packets = Last();
        ASSERT_EQ(packets.size(), row.packets.size()) << row.pes;
        for (size_t i = 0; i < packets.size(); ++i) {
            EXPECT_EQ(packets[i].pid, kVideo);
            EXPECT_EQ(packets[i].unit_start, i == 0);
            EXPECT_EQ(packets[i].pcr.has_value(), i == 0);
            EXPECT_EQ(packets[i].adaptation_length, row.packets[i].first) << row.pes;
            EXPECT_EQ(packets[i].payload.size(), row.packets[i].second) << row.pes;
            EXPECT_EQ(packets[i].stuffing, row.packets[i].first - (i == 0 ? 7 : 1)) << row.pes;
        }
        EXPECT_EQ(LastPes(kVideo).payload, data);
        EXPECT_EQ(LastPes(kVideo).length_field, row.pes - 6);
        EXPECT_TRUE(LastPes(kVideo).aligned);
    }
}

TEST_F(TsStream, EveryFrameSizeComesThrough) {
    StartVideo();
    for (uint32_t size = 1; size < 1200; ++size) {
        ByteVector data(size);
        for (size_t i = 0; i < size; ++i)
            data[i] = static_cast<uint8_t>(i * 31 + size);
        ASSERT_EQ(Video(data, 1), 0u);
        ASSERT_EQ(LastPes(kVideo).payload, data);
        ASSERT_EQ(Audio(data), 0u);
        ASSERT_EQ(LastPes(kAudio).payload, data);
    }
    test::ReadTs(sink.file);  // and the counters never miss a packet
}

TEST_F(TsStream, CountersRunOverBlocksAndWrapAt16) {
    for (uint32_t number = 0; number < 100; ++number) {
        Video(ByteVector(1000, 7), number % 3 == 0 ? 0 : 1, 1000 + number * 40);
        Audio(ByteVector(500, 7), 1000 + number * 40);
    }
    EXPECT_NO_THROW(test::ReadTs(sink.file));
    const std::vector<TsPacket> packets = test::ReadTs(sink.file);
    uint32_t video = 0;
    for (const TsPacket& one : packets) {
        if (one.pid != kVideo) continue;
        EXPECT_EQ(one.continuity, video++ % 16);
    }
    EXPECT_EQ(video, 600u);
}

TEST_F(TsStream, TablesComeWithIFramesAndEveryTenthAudioFrame) {
    using Pids = std::vector<uint16_t>;
    Video({1}, 0);
    EXPECT_EQ(LastPids(), (Pids{kPat, kPmt, kVideo}));
    Video({1}, 1);
    EXPECT_EQ(LastPids(), Pids{kVideo});
    Video({1}, 2);
    EXPECT_EQ(LastPids(), Pids{kVideo});
    for (int number = 1; number <= 31; ++number) {
        Audio({1});
        EXPECT_EQ(LastPids(), number % 10 == 1 ? (Pids{kPat, kPmt, kAudio}) : Pids{kAudio}) << number;
    }
}

TEST_F(TsStream, AudioThatJoinsRaisesTheVersion) {
    Video(Bytes("00 00 00 01 65"), 0, 1000, MX_VIDEO_H264);
    EXPECT_EQ(LastPmt(), Bytes("02 B0 12  00 01  C1  00 00  E0 12  F0 00  1B E0 12 F0 00  3F 70 F2 A6"));
    Audio({1, 2});
    EXPECT_EQ(LastPmt(),
              Bytes("02 B0 17  00 01  C3  00 00  E0 12  F0 00  1B E0 12 F0 00  0F E0 13 F0 00  0E 9A DB F7"));
    Video(Bytes("00 00 00 01 65"), 0, 1000, MX_VIDEO_H264);
    EXPECT_EQ(LastPmt()[5], 0xC3);
}

TEST_F(TsStream, VersionCountsTo32) {
    uint32_t codec = MX_VIDEO_MPEG2;
    for (uint32_t number = 0; number < 70; ++number) {
        Video({1}, 0, 1000, codec);
        EXPECT_EQ(LastPmt()[5], 0xC1 | (number % 32) << 1);
        codec = codec == MX_VIDEO_MPEG2 ? MX_VIDEO_MPEG4 : MX_VIDEO_MPEG2;
    }
}

MXHeaderInfo Announce(uint32_t video, uint32_t audio) {
    MXHeaderInfo info{};
    info.size = sizeof info;
    info.video_present = video != 0;
    info.video_encode_type = video;
    info.frame_rate = 25;
    info.audio_present = audio != 0;
    info.audio_encode_type = audio;
    info.start_time_ms = MX_NO_START_TIME;
    return info;
}

TEST_F(TsStream, AnnouncedStreamsStandInTheFirstTable) {
    MXHeaderInfo info = Announce(MX_VIDEO_H264, MX_AUDIO_AAC);
    ASSERT_EQ(packet.createHeader(&info, 0), 0u);
    const ByteVector both =
        Bytes("02 B0 17  00 01  C1  00 00  E0 12  F0 00  1B E0 12 F0 00  0F E0 13 F0 00  21 3C B9 4D");
    Video(Bytes("00 00 00 01 65"), 0, 1000, MX_VIDEO_H264);
    EXPECT_EQ(LastPmt(), both);
    Audio({1, 2});
    EXPECT_EQ(LastPmt(), both);
    Audio({1, 2}, 1020, MX_AUDIO_MPEG);
    Video(Bytes("00 00 00 01 65"), 0, 1040, MX_VIDEO_H264);
    EXPECT_EQ(LastPmt()[5], 0xC3);  // another codec than announced
}

TEST_F(TsStream, AnAnnouncedVideoHoldsThePcr) {
    MXHeaderInfo info = Announce(MX_VIDEO_H265, 0);
    packet.createHeader(&info, 0);
    Audio({1, 2});
    EXPECT_EQ(test::Slice(LastPmt(), 8, 2), Bytes("E0 12"));
    EXPECT_EQ(test::Slice(LastPmt(), 12, 10), Bytes("24 E0 12 F0 00  0F E0 13 F0 00"));
}

TEST_F(TsStream, AnUnknownAnnouncementIsNoStream) {
    MXHeaderInfo info = Announce(MX_VIDEO_MJPEG, MX_AUDIO_PCM16);
    packet.createHeader(&info, 0);
    CStdTSPackage bare;
    uint8_t out[188];
    ASSERT_EQ(bare.writePmt(out, 188), 188);
    // No stream at all: the PID that stands for none.
    EXPECT_EQ(test::ReadSection(test::ReadTsPacket({out, out + 188})),
              Bytes("02 B0 0D  00 01  C1  00 00  FF FF  F0 00  1C C8 D7 3F"));
    Audio({1, 2});
    EXPECT_EQ(LastPmt().size(), 21u);
}

TEST_F(TsStream, StreamTypes) {
    struct Row {
        uint32_t codec;
        int stream_type;
    };
    const auto first = [&](uint32_t frame_type, uint32_t codec) -> int {
        Sink other;
        const MXCreateParam other_param = other.Param();
        CTsPacket fresh(MX_FORMAT_TS, &other_param);
        fresh.init();
        ByteVector data{1, 2, 3, 4, 5, 6};
        MXFrameInfo frame = frame_type == 1 ? test::VideoFrame(data, codec, 0) : test::AudioFrame(data, codec);
        EXPECT_EQ(fresh.checkFrame(&frame), fresh.inputFrame(&frame, 0) == 0);
        if (other.blocks.empty()) return -1;
        return test::ReadSection(test::ReadTs(other.Last()).at(1)).at(12);
    };
    for (const Row row : {Row{4, 0x1B}, Row{2, 0x1B}, Row{8, 0x1B}, Row{1, 0x10}, Row{12, 0x24}, Row{9, 0x02},
                          Row{11, -1}, Row{3, -1}, Row{129, -1}, Row{35, -1}, Row{0, -1}, Row{26, -1}})
        EXPECT_EQ(first(1, row.codec), row.stream_type) << row.codec;
    for (const Row row : {Row{26, 0x0F}, Row{31, 0x04}, Row{14, 0x90}, Row{22, 0x90}, Row{7, -1}, Row{16, -1},
                          Row{8, -1}, Row{0, -1}, Row{2, -1}})
        EXPECT_EQ(first(2, row.codec), row.stream_type) << row.codec;
}

TEST_F(TsStream, SubTypesOfTheTransportStream) {
    for (const uint32_t sub_type : {1u, 2u, 3u, 8u, 19u})
        EXPECT_EQ(Video({1}, sub_type), 5u) << "before the first I frame: " << sub_type;
    EXPECT_TRUE(sink.blocks.empty());
    for (const uint32_t sub_type : {0u, 18u, 20u}) {
        EXPECT_EQ(Video({1}, sub_type), 0u) << sub_type;
        EXPECT_EQ(LastPids().size(), 3u) << sub_type;
    }
    for (const uint32_t sub_type : {1u, 2u}) {
        EXPECT_EQ(Video({1}, sub_type), 0u) << sub_type;
        EXPECT_EQ(LastPids().size(), 1u) << sub_type;
    }
    for (const uint32_t sub_type : {3u, 8u, 19u, 21u})
        EXPECT_EQ(Video({1}, sub_type), 5u) << sub_type;
}

TEST_F(TsStream, AccessUnitDelimiterGoesInFrontOfH264Only) {
    StartVideo();
    const ByteVector delimiter = Bytes("00 00 00 01 09 F0");
    struct Row {
        uint32_t codec;
        const char* frame;
        bool delimited;
    };
    for (const Row& row :
         {Row{4, "00 00 00 01 65 11", true}, Row{2, "00 00 00 01 65 11", true}, Row{2, "00 00 00 01 09 F0", false},
          Row{4, "00 00 00 01 09 10 00 00 00 01 65", false}, Row{2, "00 00 00 01 29 11", true},
          Row{2, "00 00 01 65 11", false}, Row{2, "00 00 00 00 01 65", false}, Row{2, "00 00 00 01", false},
          Row{2, "00 00 00 01 65", true}, Row{2, "65", false}, Row{8, "00 00 00 01 65 11", false},
          Row{12, "00 00 00 01 26 11", false}, Row{1, "00 00 00 01 65 11", false}, Row{9, "00 00 00 01 65", false}}) {
        const ByteVector data = Bytes(row.frame);
        ASSERT_EQ(Video(data, 1, 1000, row.codec), 0u);
        EXPECT_EQ(LastPes(kVideo).payload, row.delimited ? delimiter + data : data) << row.codec << ' ' << row.frame;
        EXPECT_EQ(LastPes(kVideo).length_field, 13 + data.size() + (row.delimited ? 6 : 0));
    }
}

TEST_F(TsStream, LengthOfLongPackets) {
    StartVideo();
    for (const uint32_t size : {65521u, 65522u, 65523u, 70000u, 200000u}) {
        ASSERT_EQ(Video(ByteVector(size, 1), 1), 0u);
        EXPECT_EQ(LastPes(kVideo).length_field, size + 13 < 65536 ? size + 13 : 0) << size;
        EXPECT_EQ(LastPes(kVideo).payload.size(), size);
    }
    // The delimiter counts.
    ASSERT_EQ(Video(Bytes("00 00 00 01 65") + ByteVector(65511, 1), 1, 1000, MX_VIDEO_H264), 0u);
    EXPECT_EQ(LastPes(kVideo).length_field, 65535u);
    ASSERT_EQ(Video(Bytes("00 00 00 01 65") + ByteVector(65512, 1), 1, 1000, MX_VIDEO_H264), 0u);
    EXPECT_EQ(LastPes(kVideo).length_field, 0u);
    for (const uint32_t size : {65527u, 65528u, 65529u, 70000u, 200000u}) {
        ASSERT_EQ(Audio(ByteVector(size, 1)), 0u);
        EXPECT_EQ(LastPes(kAudio).length_field, (size + 8) % 65536) << size;
        EXPECT_EQ(LastPes(kAudio).payload.size(), size);
    }
}

TEST_F(TsStream, BeyondTheWorkBufferAFrameFails) {
    // Bytes of a frame in `packets` packets with 19 bytes of PES header.
    const auto most = [](uint32_t packets) { return 176 + (packets - 1) * 182 - 19; };
    ASSERT_EQ(most(kMostPackets - 2), 3044835u);
    ASSERT_EQ(Video(ByteVector(3044835, 1), 0, 1000), 0u);
    EXPECT_EQ(sink.Last().size(), kMostPackets * 188);
    EXPECT_EQ(Video(ByteVector(3044836, 1), 0, 1040), 5u);
    ASSERT_EQ(Video(ByteVector(most(kMostPackets), 1), 1, 1080), 0u);
    EXPECT_EQ(sink.Last().size(), kMostPackets * 188);
    EXPECT_EQ(Video(ByteVector(most(kMostPackets) + 1, 1), 1, 1120), 5u);
    EXPECT_EQ(sink.blocks.size(), 2u);
    // The failed frames moved the clock and the counters by all the packets that fitted.
    ASSERT_EQ(Video({1, 2, 3}, 0, 1160), 0u);
    const std::vector<TsPacket> packets = Last();
    EXPECT_EQ(LastPes(kVideo).pts, 1160u * 90);
    EXPECT_EQ(packets[0].continuity, 2u);  // two tables came before, one of them in the failed frame
    EXPECT_EQ(packets[1].continuity, 2u);
    EXPECT_EQ(packets[2].continuity, (2 * (kMostPackets - 2) + 2 * kMostPackets) % 16);
    // And the audio is untouched by all that.
    EXPECT_EQ(Audio(ByteVector(3100000, 1), 1000), 5u);
    EXPECT_EQ(Audio({1}, 1000), 0u);
}

TEST_F(TsStream, InputFrameExFillsTheCallersPacket) {
    ByteVector data(500, 0x77);
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_MPEG2, 0, 1000);
    Basalt::CPacket whole(188 * 5);
    ASSERT_EQ(packet.inputFrameEx(&frame, whole), 0u);  // 519 bytes of PES packet: three packets and the tables
    ASSERT_EQ(sink.blocks.size(), 1u);
    EXPECT_EQ(sink.blocks[0].data, ByteVector(whole.getBuffer(), whole.getBuffer() + 188 * 5));
    EXPECT_EQ(LastPes(kVideo).payload, data);

    // One packet less does not do: nothing comes out, and the counters have moved by the two that fitted.
    Basalt::CPacket small(188 * 5 - 1);
    EXPECT_EQ(packet.inputFrameEx(&frame, small), 5u);
    EXPECT_EQ(test::ReadTsPacket({small.getBuffer() + 188 * 3, small.getBuffer() + 188 * 4}).payload,
              ByteVector(182, 0x77));
    ASSERT_EQ(packet.inputFrameEx(&frame, whole), 0u);
    EXPECT_EQ(Last()[2].continuity, 5u);
    EXPECT_EQ(Last()[0].continuity, 2u);
    EXPECT_EQ(sink.blocks[1].offset, 188 * 5);

    // A size that was set is the limit.
    Basalt::CPacket sized(188 * 10);
    sized.resize(188 * 4);
    EXPECT_EQ(packet.inputFrameEx(&frame, sized), 5u);
    sized.resize(188 * 5);
    EXPECT_EQ(packet.inputFrameEx(&frame, sized), 0u);
}

TEST_F(TsStream, RoomForNoPacketAtAll) {
    ByteVector data{1, 2, 3};
    const MXFrameInfo video = test::VideoFrame(data, MX_VIDEO_MPEG2, 0, 1000);
    const MXFrameInfo audio = test::AudioFrame(data, MX_AUDIO_AAC, 1000);
    for (const uint32_t room : {1u, 187u, 188u, 375u, 376u, 563u}) {
        ByteVector area(room);
        CStdTSPackage fresh;
        EXPECT_EQ(fresh.package(area.data(), room, &video), -1) << room;
        EXPECT_EQ(fresh.package(area.data(), room, &audio), -1) << room;
        if (room < 188) {
            EXPECT_EQ(fresh.writePat(area.data(), room), -1);
            EXPECT_EQ(fresh.writePmt(area.data(), room), -1);
        }
    }
    ByteVector area(564);
    CStdTSPackage fresh;
    EXPECT_EQ(fresh.package(nullptr, 564, &video), -1);
    EXPECT_EQ(fresh.package(area.data(), 0, &video), -1);
    EXPECT_EQ(fresh.package(area.data(), 564, nullptr), -1);
    MXFrameInfo other = video;
    other.frame_type = MX_FRAME_PRIVATE;
    EXPECT_EQ(fresh.package(area.data(), 564, &other), -1);
    EXPECT_EQ(fresh.updateStreamType(&other), 0);
    EXPECT_EQ(fresh.writeAudioPes(area.data(), 564, nullptr), -1);
    EXPECT_EQ(fresh.package(area.data(), 564, &video), 564);
}

TEST_F(TsStream, BlocksFollowOneAnother) {
    sink.accept = {-1, 100, -1};
    Video(ByteVector(1000, 1), 0);
    Video(ByteVector(1000, 1), 1);
    Video(ByteVector(1000, 1), 1);
    ASSERT_EQ(sink.blocks.size(), 3u);
    EXPECT_EQ(sink.blocks[0].offset, 0);
    EXPECT_EQ(sink.blocks[1].offset, 188 * 8);
    EXPECT_EQ(sink.blocks[1].offset32, 188u * 8);
    EXPECT_EQ(sink.blocks[1].seek_type, 0u);
    EXPECT_EQ(sink.blocks[2].offset, 188 * 8 + 100);
}

TEST_F(TsStream, BadArguments) {
    EXPECT_EQ(packet.inputFrame(nullptr, 0), 3u);
    ByteVector data{1, 2, 3};
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_MPEG2, 0);
    frame.frame_size = 0;
    EXPECT_EQ(packet.inputFrame(&frame, 0), 3u);
    frame.frame_size = 3;
    frame.frame_pointer = nullptr;
    EXPECT_EQ(packet.inputFrame(&frame, 0), 3u);
    frame = test::VideoFrame(data, MX_VIDEO_MPEG2, 0);
    for (const uint32_t type : {0u, 3u, 4u}) {
        frame.frame_type = type;
        EXPECT_EQ(packet.inputFrame(&frame, 0), 5u) << type;
    }
    EXPECT_TRUE(sink.blocks.empty());
}

TEST_F(TsStream, OrderOfCalls) {
    CTsPacket early(MX_FORMAT_TS, &param);
    ByteVector data{1, 2, 3};
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_MPEG2, 0);
    EXPECT_EQ(early.inputFrame(&frame, 0), 3u);
    EXPECT_EQ(early.createHeader(nullptr, 0), 3u);
    EXPECT_FALSE(early.checkFrame(&frame));
    EXPECT_EQ(early.init(), 0u);
    EXPECT_EQ(early.createHeader(nullptr, 0), 0u);
    EXPECT_EQ(early.inputFrame(&frame, 0), 0u);
    EXPECT_EQ(early.createTailer(nullptr, 0), 0u);
    EXPECT_EQ(early.uninit(), 0u);
    EXPECT_EQ(sink.blocks.size(), 1u);

    CTsPacket other(MX_FORMAT_PS, &param);
    EXPECT_EQ(other.init(), 4u);
}

TEST_F(TsStream, Capacity) {
    const auto expect = [&](uint32_t type, const std::vector<uint32_t>& encode, const std::vector<uint32_t>& codec,
                            const CTsPacket& from) {
        const void* table = nullptr;
        uint32_t count = 0;
        for (const bool public_numbers : {false, true}) {
            ASSERT_EQ(public_numbers ? from.getCodecCapacity(type, &table, &count)
                                     : from.getEncodeCapacity(type, &table, &count),
                      0u);
            const std::vector<uint32_t>& numbers = public_numbers ? codec : encode;
            ASSERT_EQ(count, numbers.size());
            for (size_t i = 0; i < numbers.size(); ++i)
                EXPECT_EQ(static_cast<const MXCapacityEntry*>(table)[i].codec, numbers[i]);
        }
    };
    const CTsPacket before_init(MX_FORMAT_TS);
    for (const CTsPacket* from : {&before_init, static_cast<const CTsPacket*>(&packet)}) {
        expect(0, {4, 1, 12, 9}, {2, 1, 5, 6}, *from);
        expect(1, {14, 22, 26, 31}, {28, 31, 33, 38}, *from);
    }
    const void* table = nullptr;
    uint32_t count = 0;
    EXPECT_EQ(packet.getEncodeCapacity(2, &table, &count), 3u);
    EXPECT_EQ(packet.getCodecCapacity(0, nullptr, &count), 3u);
    EXPECT_EQ(packet.getCodecCapacity(0, &table, nullptr), 3u);
}

TEST(TsPacketMemory, TheWorkBufferComesFromAllocAndGoesBackToFree) {
    static int32_t taken;
    static uint32_t given_back;
    taken = 0;
    given_back = 0;
    MXCreateParam param{};
    param.alloc = [](int32_t size) -> void* {
        taken = size;
        return std::malloc(static_cast<size_t>(size));
    };
    param.free = [](void* buffer, uint32_t size) {
        given_back = size;
        std::free(buffer);
    };
    { const CTsPacket packet(MX_FORMAT_TS, &param); }
    EXPECT_EQ(taken, 0x300000);
    EXPECT_EQ(given_back, 0x300000u);
}

TEST(TsPacketMemory, WithoutTheWorkBufferEveryFrameFails) {
    MXCreateParam param{};
    param.alloc = [](int32_t) -> void* { return nullptr; };
    CTsPacket packet(MX_FORMAT_TS, &param);
    EXPECT_EQ(packet.init(), 0u);
    ByteVector data{1, 2, 3};
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_MPEG2, 0);
    EXPECT_EQ(packet.inputFrame(&frame, 0), 3u);
    Basalt::CPacket room(2000);
    EXPECT_EQ(packet.inputFrameEx(&frame, room), 3u);
}

TEST(TsPacketMemory, NoneIsAskedForPerFrame) {
    CTsPacket packet(MX_FORMAT_TS);
    packet.init();
    ByteVector picture = Bytes("00 00 00 01 65") + ByteVector(150000, 7);
    ByteVector sound(300, 3);
    const test::AllocationCounter allocations;
    for (uint32_t number = 0; number < 100; ++number) {
        MXFrameInfo frame = test::VideoFrame(picture, MX_VIDEO_H264, number % 25 == 0 ? 0 : 1, number * 40);
        EXPECT_EQ(packet.inputFrame(&frame, 0), 0u);
        frame = test::AudioFrame(sound, MX_AUDIO_AAC, number * 40);
        EXPECT_EQ(packet.inputFrame(&frame, 0), 0u);
    }
    EXPECT_EQ(allocations.Count(), 0u);
}

}  // namespace
}  // namespace Orvane::Muxora
