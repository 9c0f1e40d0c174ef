#include "rtp_fixture.h"

#include <cstdlib>

#include "MuxoraAPI.h"
#include "support/allocation_counter.h"
#include "support/noise.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::operator+;
using test::Slice;

const ByteVector kPicture = Bytes("00 00 00 01 41 9A 01");

class RtpPacket : public RtpTest {};

// ------------------------------------------------------------------------------------------------ the header

TEST_F(RtpPacket, ANewObjectSendsSequenceNumber1) {
    Video(kPicture, 2);
    EXPECT_EQ(Packets()[0].sequence, 1u);
}

TEST_F(RtpPacket, SequenceNumber100Sends101First) {
    Set("rtp_sequence_number", 100);
    Video(kPicture, 2);
    EXPECT_EQ(Packets()[0].sequence, 101u);
}

TEST_F(RtpPacket, TheSequenceNumberWrapsIn16Bits) {
    Set("rtp_sequence_number", 0x1FFFE);
    Video(kPicture, 2);
    Video(kPicture, 2);
    EXPECT_EQ(Packets()[0].sequence, 0xFFFFu);
    EXPECT_EQ(Packets()[1].sequence, 0u);
}

TEST_F(RtpPacket, ThePayloadTypeHas7Bits) {
    Set("rtp_payload_type", 0x1FF);
    Video(kPicture, 2);
    EXPECT_EQ(Slice(sink.Last(), 2, 2), Bytes("80 FF"));
    EXPECT_EQ(Packets()[0].payload_type, 0x7Fu);
}

TEST_F(RtpPacket, TheSsrcsComeFromRandAndVideosIsFirst) {
    std::srand(42);
    const auto video = static_cast<uint32_t>(std::rand());
    const auto audio = static_cast<uint32_t>(std::rand());
    std::srand(42);
    const CRtpPacket fresh(MX_FORMAT_RTP);
    MXRtpParam record{};
    fresh.GetRtpParam(record);
    EXPECT_EQ(record.rtp_ssrc, video);
    EXPECT_EQ(record.rtp_audio_ssrc, audio);
}

TEST_F(RtpPacket, TheExtensionStandsBehindTheFixedHeaderOfEachPacket) {
    packet.setExtData("12345", 5);
    Set("rtp_audio_sample", 8000);
    Video(kPicture + kPicture, 2);
    Audio(Bytes("D5 D5"), MX_AUDIO_ALAW);
    ASSERT_EQ(sink.blocks.size(), 3u);
    // What the packets leave open is 0: the two bytes "defined by profile" and the padding.
    EXPECT_EQ(sink.blocks[0].data, Bytes("00 1B  90 60 00 01 00 00 00 00 11 22 33 44") +
                                       Bytes("00 00 00 02 31 32 33 34 35 00 00 00") + Bytes("41 9A 01"));
    for (const Packet& one : Packets())
        EXPECT_EQ(one.extension, test::Text("12345") + Bytes("00 00 00"));
    packet.setExtData(nullptr, 5);
    Video(kPicture, 2);
    EXPECT_FALSE(ReadPacket(sink.Last()).extended);
    packet.setExtData("1234", 4);
    Video(kPicture, 2);
    EXPECT_EQ(ReadPacket(sink.Last()).extension, test::Text("1234"));
}

TEST_F(RtpPacket, AnEmptyExtensionIsNone) {
    packet.setExtData("1234", 4);
    packet.setExtData("", 0);
    Video(kPicture, 2);
    EXPECT_FALSE(ReadPacket(sink.Last()).extended);
}

// ------------------------------------------------------------------------------------------------ the data items

TEST_F(RtpPacket, DataItemsAreCopiesAndTheCopyItselfChangesNothing) {
    ByteVector bytes = test::Text("abcd");
    packet.setExtData(bytes.data(), 4);
    bytes[0] = 'X';
    const void* held = nullptr;
    uint32_t length = 0;
    EXPECT_EQ(packet.getExtData(&held, &length), 0u);
    ASSERT_EQ(length, 4u);
    EXPECT_EQ(std::string(static_cast<const char*>(held), 4), "abcd");
    packet.setExtData(held, 2);
    packet.getExtData(&held, &length);
    EXPECT_EQ(length, 4u);
    // A place inside the copy is a new item.
    packet.setExtData(static_cast<const char*>(held) + 1, 3);
    packet.getExtData(&held, &length);
    EXPECT_EQ(std::string(static_cast<const char*>(held), length), "bcd");
    packet.setExtData(nullptr, 7);
    packet.getExtData(&held, &length);
    EXPECT_EQ(held, nullptr);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(packet.getExtData(nullptr, nullptr), 0u);
}

TEST_F(RtpPacket, CustomDataHas8BitsOfLength) {
    EXPECT_FALSE(packet.SetCustomData(nullptr, 3));
    const ByteVector bytes = Counting(300);
    EXPECT_TRUE(packet.SetCustomData(bytes.data(), 258));
    Video(kPicture, 2);
    EXPECT_EQ(ReadPacket(sink.Last(), Prefixed::kYes, 2).custom, Slice(bytes, 0, 2));
    // The library's own copy leaves what is there.
    MXRtpParam record{};
    record.rtp_custom_data = &record;
    packet.GetRtpParam(record);
    EXPECT_TRUE(packet.SetCustomData(record.rtp_custom_data, 1));
    Video(kPicture, 2);
    EXPECT_EQ(sink.Last().size(), 19u);
    // So does null; a length of 0 takes it away.
    EXPECT_FALSE(packet.SetCustomData(nullptr, 3));
    Video(kPicture, 2);
    EXPECT_EQ(sink.Last().size(), 19u);
    EXPECT_TRUE(packet.SetCustomData(bytes.data(), 256));
    Video(kPicture, 2);
    EXPECT_EQ(sink.Last().size(), 17u);
}

TEST_F(RtpPacket, AudioCustomDataHasAtMost4Bytes) {
    Set("rtp_audio_sample", 8000);
    EXPECT_FALSE(packet.SetAudioCustomData("12345", 5));
    EXPECT_FALSE(packet.SetAudioCustomData("12345", 257));
    EXPECT_FALSE(packet.SetAudioCustomData(nullptr, 2));
    Audio(Bytes("D5"), MX_AUDIO_ALAW);
    EXPECT_EQ(sink.Last().size(), 15u);
    EXPECT_TRUE(packet.SetAudioCustomData("1234", 4));
    EXPECT_FALSE(packet.SetAudioCustomData("12345", 5));
    Audio(Bytes("D5"), MX_AUDIO_ALAW);
    EXPECT_EQ(ReadPacket(sink.Last(), Prefixed::kYes, 4).custom, test::Text("1234"));
}

// ------------------------------------------------------------------------------------------------ the parameters

TEST_F(RtpPacket, TheRecordSetsAndGivesEveryField) {
    const ByteVector custom = test::Text("custom!");
    MXRtpParam record{};
    record.max_rtp_packet_length = 1400;
    record.rtp_sequence_number = 0x12345;
    record.rtp_timestamp = 0xA0A1A2A3;
    record.rtp_ssrc = 0xB0B1B2B3;
    record.rtp_audio_sample = 48000;
    record.rtp_payload_type = 300;
    record.rtp_extension_data = "extension";
    record.rtp_extension_data_length = 9;
    record.rtp_custom_data = custom.data();
    record.rtp_custom_data_length = 0x107;
    record.rtp_packet_output_all_flag = 5;
    record.rtp_audio_payload_type = 301;
    record.rtp_audio_custom_data = "four";
    record.rtp_audio_custom_data_length = 4;
    record.rtp_audio_sequence_number = 0x54321;
    record.rtp_audio_timestamp = 0xC0C1C2C3;
    record.rtp_audio_ssrc = 0xD0D1D2D3;
    CRtpPacket fresh(MX_FORMAT_RTP, &param);
    ASSERT_EQ(MX_SetParam(static_cast<CPackage*>(&fresh), 0, &record, 96), 0u);

    MXRtpParam out{};
    uint32_t size = 96;
    ASSERT_EQ(MX_GetParam(static_cast<CPackage*>(&fresh), 0, &out, &size), 0u);
    EXPECT_EQ(size, 96u);
    EXPECT_EQ(out.size, 96u);
    EXPECT_EQ(out.max_rtp_packet_length, 1400u);
    EXPECT_EQ(out.rtp_sequence_number, 0x2345u);
    EXPECT_EQ(out.rtp_timestamp, 0xA0A1A2A3u);
    EXPECT_EQ(out.rtp_ssrc, 0xB0B1B2B3u);
    EXPECT_EQ(out.rtp_audio_sample, 48000u);
    EXPECT_EQ(out.rtp_payload_type, 300u);
    ASSERT_EQ(out.rtp_extension_data_length, 9u);
    EXPECT_NE(out.rtp_extension_data, record.rtp_extension_data);
    EXPECT_EQ(std::string(static_cast<const char*>(out.rtp_extension_data), 9), "extension");
    EXPECT_EQ(out.rtp_custom_data, nullptr) << "null on entry stays null";
    EXPECT_EQ(out.rtp_custom_data_length, 7u);
    EXPECT_EQ(out.rtp_packet_output_all_flag, 5u);
    EXPECT_EQ(out.rtp_audio_payload_type, 301u);
    EXPECT_EQ(out.rtp_audio_custom_data, nullptr);
    EXPECT_EQ(out.rtp_audio_custom_data_length, 0u);
    EXPECT_EQ(out.rtp_audio_sequence_number, 0x4321u);
    EXPECT_EQ(out.rtp_audio_timestamp, 0xC0C1C2C3u);
    EXPECT_EQ(out.rtp_audio_ssrc, 0xD0D1D2D3u);

    out.rtp_custom_data = &out;
    ASSERT_EQ(MX_GetParam(static_cast<CPackage*>(&fresh), 0, &out, &size), 0u);
    ASSERT_NE(out.rtp_custom_data, custom.data());
    EXPECT_EQ(std::string(static_cast<const char*>(out.rtp_custom_data), 7), "custom!");
}

TEST_F(RtpPacket, TheRecordClearsTheExtensionAndKeepsTheCustomData) {
    packet.setExtData("1234", 4);
    packet.SetCustomData("ab", 2);
    packet.SetAudioCustomData("cd", 2);
    MXRtpParam record{};
    packet.SetRtpParam(record);
    Video(kPicture, 2);
    const Packet one = ReadPacket(sink.Last(), Prefixed::kYes, 2);
    EXPECT_FALSE(one.extended);
    EXPECT_EQ(one.custom, test::Text("ab"));
}

TEST_F(RtpPacket, TheKeysSetAndGiveTheirWidths) {
    const struct {
        const char* key;
        int64_t expected;
    } rows[] = {{"max_rtp_packet_length", 0x89ABCDEF},
                {"rtp_sequence_number", 0xCDEF},
                {"rtp_timestamp", 0x89ABCDEF},
                {"rtp_ssrc", 0x89ABCDEF},
                {"rtp_audio_sample", 0x89ABCDEF},
                {"rtp_payload_type", 0x89ABCDEF},
                {"rtp_packet_output_all_flag", 0x89ABCDEF},
                {"rtp_audio_payload_type", 0x89ABCDEF}};
    CRtpPacket fresh(MX_FORMAT_RTP);
    testing::internal::CaptureStdout();
    for (const auto& row : rows)
        fresh.SetRtpValue(row.key, 0x7654321089ABCDEF);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "[Muxora] [WARN] AuidoSample is not multiple of 1000! May cause out-sync!\n");
    for (const auto& row : rows) {
        int64_t value = -1;
        fresh.GetRtpValue(row.key, value);
        EXPECT_EQ(value, row.expected) << row.key;
    }
}

TEST_F(RtpPacket, OtherKeysDoNothing) {
    MXRtpParam before{};
    packet.GetRtpParam(before);
    for (const char* key : {"rtp_encode_type", "unknown", "RTP_SSRC", "", "rtp_audio_ssrc"}) {
        packet.SetRtpValue(key, 5);
        int64_t value = -1;
        packet.GetRtpValue(key, value);
        EXPECT_EQ(value, -1) << key;
    }
    packet.SetRtpValue(nullptr, 5);
    int64_t value = -1;
    packet.GetRtpValue(nullptr, value);
    EXPECT_EQ(value, -1);
    MXRtpParam after{};
    packet.GetRtpParam(after);
    EXPECT_EQ(std::memcmp(&before, &after, sizeof before), 0);
}

TEST_F(RtpPacket, AMaximumLengthOf0Is1000) {
    Set("max_rtp_packet_length", 0);
    int64_t value = 0;
    packet.GetRtpValue("max_rtp_packet_length", value);
    EXPECT_EQ(value, 1000);
    MXRtpParam record{};
    packet.GetRtpParam(record);
    EXPECT_EQ(record.max_rtp_packet_length, 1000u);
    Video(Counting(1000), MX_VIDEO_MPEG4);
    EXPECT_EQ(sink.blocks[0].data.size(), 1000u);
}

// ------------------------------------------------------------------------------------------------ the output

TEST_F(RtpPacket, OneBlockHoldsAllPacketsWhenTheFlagIs1) {
    const ByteVector frame = Bytes("00 00 00 01 67 AA") + Bytes("00 00 00 01") + ByteVector{0x65} + Counting(2000);
    Video(frame, 2);
    ByteVector all;
    for (const auto& block : sink.blocks)
        all = all + block.data;
    ASSERT_EQ(sink.blocks.size(), 4u);

    for (const int64_t flag : {0, 2, 0xFFFF}) {
        sink.Clear();
        Set("rtp_packet_output_all_flag", flag);
        Video(frame, 2);
        EXPECT_EQ(sink.blocks.size(), 4u) << flag;
    }
    sink.Clear();
    Set("rtp_packet_output_all_flag", 1);
    Set("rtp_sequence_number", 0);
    Set("rtp_timestamp", 0);
    Video(frame, 2);
    ASSERT_EQ(sink.blocks.size(), 1u);
    EXPECT_EQ(sink.Last(), all);
    EXPECT_EQ(sink.blocks[0].seek_type, 1u);
    EXPECT_EQ(sink.blocks[0].offset, 0);
}

TEST_F(RtpPacket, ASinkThatTakesLessMovesNothing) {
    sink.accept = {0, 1};
    Video(kPicture + kPicture, 2);
    ASSERT_EQ(sink.blocks.size(), 2u);
    EXPECT_EQ(Packets()[1].payload, Bytes("41 9A 01"));
}

TEST_F(RtpPacket, IntoThePacketOfTheCaller) {
    for (const uint32_t codec : {2u, 4u, 1u}) {
        sink.Clear();
        ByteVector data = kPicture + kPicture;
        MXFrameInfo frame = test::VideoFrame(data, codec, MX_SUB_P, 40);
        Basalt::CPacket out(4096);
        ASSERT_EQ(packet.inputFrameEx(&frame, out), 0u);
        ByteVector sent;
        for (const auto& block : sink.blocks)
            sent = sent + block.data;
        EXPECT_FALSE(sent.empty());
        EXPECT_EQ(ByteVector(out.getBuffer(), out.getBuffer() + out.size()), sent);
    }
}

TEST_F(RtpPacket, H265AndJpegLeaveThePacketAtSize0) {
    const struct {
        uint32_t codec;
        ByteVector data;
    } frames[] = {
        {12, Bytes("00 00 00 01 26 01 AF")},
        {3, Bytes("FF D8 FF C0 00 07 08 00 10 00 10 FF DA 00 02 AA BB")},
    };
    for (const auto& [codec, bytes] : frames) {
        sink.Clear();
        ByteVector data = bytes;
        MXFrameInfo frame = test::VideoFrame(data, codec, MX_SUB_I, 40);
        Basalt::CPacket out(4096);
        out.resize(100);
        ASSERT_EQ(packet.inputFrameEx(&frame, out), 0u);
        EXPECT_EQ(out.size(), 0u);
        ASSERT_EQ(sink.blocks.size(), 1u);
        EXPECT_EQ(ByteVector(out.getBuffer(), out.getBuffer() + sink.Last().size()), sink.Last());
    }
    // An audio frame with one of these numbers is counted like any other.
    Set("rtp_audio_sample", 8000);
    ByteVector data = Bytes("AA");
    MXFrameInfo frame = test::AudioFrame(data, 12);
    Basalt::CPacket out(4096);
    ASSERT_EQ(packet.inputFrameEx(&frame, out), 0u);
    EXPECT_EQ(out.size(), 15u);
}

TEST_F(RtpPacket, APacketThatIsTooSmallIsRefused) {
    ByteVector data = kPicture;
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, MX_SUB_P, 40);
    Basalt::CPacket small(16);
    small.resize(16);
    EXPECT_EQ(packet.inputFrameEx(&frame, small), 3u);
    EXPECT_EQ(small.size(), 0u);
    EXPECT_EQ(small.capacity(), 16u);
    EXPECT_TRUE(sink.blocks.empty());
    Basalt::CPacket exact(17);
    EXPECT_EQ(packet.inputFrameEx(&frame, exact), 0u);
    EXPECT_EQ(exact.size(), 17u);
    Basalt::CPacket none;
    EXPECT_EQ(packet.inputFrameEx(&frame, none), 3u);
    for (const uint32_t codec : {1u, 3u, 12u}) {
        data = codec == 3 ? Bytes("FF DA 00 02 AA BB") : Bytes("00 00 01 02 01 AA");
        frame = test::VideoFrame(data, codec, MX_SUB_P, 40);
        EXPECT_EQ(packet.inputFrameEx(&frame, none), 3u);
        EXPECT_EQ(packet.inputFrameEx(&frame, small), codec == 12 ? 0u : 3u);
    }
}

TEST_F(RtpPacket, ARunBeyond3MiBIsRefusedAndTheStreamGoesOn) {
    Set("max_rtp_packet_length", 1400);
    // 3145728 bytes hold 2246 packets of 1400 bytes, 1386 of them payload, and one of 1328 with 1314.
    const size_t most = 2246u * 1386u + 1314u;
    EXPECT_EQ(Video(Counting(most), MX_VIDEO_MPEG4), 0u);
    EXPECT_EQ(sink.blocks.size(), 2247u);
    EXPECT_EQ(sink.file.size(), 0x300000u);
    sink.Clear();
    EXPECT_EQ(Video(Counting(most + 1), MX_VIDEO_MPEG4), 3u);
    EXPECT_TRUE(sink.blocks.empty());
    EXPECT_EQ(Video(kPicture, MX_VIDEO_H264), 0u);
    // 2247 and 2246 packets took their numbers.
    EXPECT_EQ(Packets()[0].sequence, 2247u + 2246u + 1u);
}

TEST_F(RtpPacket, LargeFramesOfTheOtherPayloadsAreRefusedToo) {
    EXPECT_EQ(Video(Bytes("00 00 00 01 65") + Counting(0x300000), 2), 3u);
    EXPECT_EQ(Video(Bytes("00 00 00 01 26 01") + Counting(0x300000), 12), 3u);
    EXPECT_EQ(Video(Bytes("FF DA 00 02") + Counting(0x300000), 3), 3u);
    Set("rtp_audio_sample", 8000);
    EXPECT_EQ(Audio(Counting(0x300000), MX_AUDIO_ALAW), 3u);
    EXPECT_TRUE(sink.blocks.empty());
}

TEST_F(RtpPacket, AFailedFrameMovesTheTimeAndUsesUpItsNumbers) {
    Video(kPicture, 2, MX_SUB_P, 40);
    EXPECT_EQ(Video(Bytes("FF D8 FF"), 3, MX_SUB_P, 80), 3u);
    Video(kPicture, 2, MX_SUB_P, 120);
    ASSERT_EQ(sink.blocks.size(), 2u);
    EXPECT_EQ(Packets()[1].timestamp, 80u * 90u);
    EXPECT_EQ(Packets()[1].sequence, 2u) << "the failed one had no packet yet";
}

// ------------------------------------------------------------------------------------------------ the operations

TEST_F(RtpPacket, BadFramesAndRefusedOnes) {
    EXPECT_EQ(packet.inputFrame(nullptr, 0), 3u);
    Basalt::CPacket out(100);
    EXPECT_EQ(packet.inputFrameEx(nullptr, out), 3u);
    ByteVector data = kPicture;
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, MX_SUB_I, 40);
    frame.frame_size = 0;
    EXPECT_EQ(packet.inputFrame(&frame, 0), 3u);
    EXPECT_EQ(packet.inputFrameEx(&frame, out), 3u);
    frame.frame_size = 7;
    frame.frame_pointer = nullptr;
    EXPECT_EQ(packet.inputFrame(&frame, 0), 3u);
    frame.frame_pointer = data.data();
    frame.frame_type = MX_FRAME_PRIVATE;
    EXPECT_EQ(packet.inputFrame(&frame, 0), 5u);
    EXPECT_EQ(packet.inputFrameEx(&frame, out), 5u);
    frame.frame_type = 4;
    EXPECT_EQ(packet.inputFrame(&frame, 0), 5u);
    frame.frame_type = MX_FRAME_VIDEO;
    for (const uint32_t codec : {0u, 8u, 9u, 11u, 35u, 129u}) {
        frame.encode_type = codec;
        EXPECT_EQ(packet.inputFrame(&frame, 0), 5u) << codec;
    }
    EXPECT_TRUE(sink.blocks.empty());
}

TEST_F(RtpPacket, ChecksTypeAndCodec) {
    ByteVector data = kPicture;
    for (const uint32_t codec : {4u, 2u, 1u, 3u, 12u}) {
        const MXFrameInfo frame = test::VideoFrame(data, codec, MX_SUB_I);
        EXPECT_TRUE(packet.checkFrame(&frame));
    }
    for (const uint32_t codec : {0u, 9u, 12u, 99u}) {
        const MXFrameInfo frame = test::AudioFrame(data, codec);
        EXPECT_TRUE(packet.checkFrame(&frame));
    }
}

TEST_F(RtpPacket, HeaderAndTailer) {
    EXPECT_EQ(packet.init(), 0u);
    EXPECT_EQ(packet.createHeader(nullptr, 0), 3u);
    MXHeaderInfo info{};
    EXPECT_EQ(packet.createHeader(&info, 0), 0u);
    EXPECT_EQ(packet.createTailer(nullptr, 0), 3u);
    EXPECT_EQ(packet.createTailer(&info, 0), 0u);
    EXPECT_EQ(packet.uninit(), 0u);
    EXPECT_EQ(MX_CreateTailer(static_cast<CPackage*>(&packet), &info), 3u);
    MXOutputBlock block{};
    block.length = 7;
    EXPECT_EQ(packet.getBackup(&block), 0u);
    EXPECT_EQ(block.length, 0u);
    EXPECT_EQ(packet.setEncryptType(9, nullptr, 0), 0u);
    EXPECT_TRUE(sink.blocks.empty());
}

TEST_F(RtpPacket, Capacity) {
    const auto codecs = [&](auto operation, uint32_t type) {
        const void* table = nullptr;
        uint32_t count = 0;
        EXPECT_EQ((packet.*operation)(type, &table, &count), 0u);
        std::vector<uint32_t> out;
        for (uint32_t i = 0; i < count; ++i)
            out.push_back(static_cast<const MXCapacityEntry*>(table)[i].codec);
        return out;
    };
    using Codecs = std::vector<uint32_t>;
    EXPECT_EQ(codecs(&CRtpPacket::getEncodeCapacity, 0), (Codecs{4, 12, 1, 3}));
    EXPECT_EQ(codecs(&CRtpPacket::getCodecCapacity, 0), (Codecs{2, 5, 1, 3}));
    EXPECT_EQ(codecs(&CRtpPacket::getEncodeCapacity, 1), (Codecs{14, 22, 26, 31, 7}));
    EXPECT_EQ(codecs(&CRtpPacket::getCodecCapacity, 1), (Codecs{28, 31, 33, 38, 21}));
    const void* table = nullptr;
    uint32_t count = 0;
    EXPECT_EQ(packet.getCodecCapacity(2, &table, &count), 3u);
}

// ------------------------------------------------------------------------------------------------ memory

struct Pool {
    inline static int32_t asked = 0;
    inline static int made = 0;
    inline static bool empty = false;

    static void* Alloc(int32_t size) {
        ++made;
        asked = size;
        return empty ? nullptr : std::malloc(static_cast<size_t>(size));
    }
    static void Free(void* buffer, uint32_t size) {
        EXPECT_EQ(size, 0x300000u);
        --made;
        std::free(buffer);
    }
};

TEST_F(RtpPacket, TheBufferComesWithTheFirstFrameAndGoesWithTheObject) {
    Pool::made = 0;
    Pool::empty = false;
    param.alloc = Pool::Alloc;
    param.free = Pool::Free;
    {
        CRtpPacket pooled(MX_FORMAT_RTP, &param);
        MXHeaderInfo info{};
        pooled.createHeader(&info, 0);
        EXPECT_EQ(Pool::made, 0);
        ByteVector data = kPicture;
        MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, MX_SUB_P, 40);
        Basalt::CPacket out(100);
        EXPECT_EQ(pooled.inputFrameEx(&frame, out), 0u);
        EXPECT_EQ(Pool::made, 0);
        EXPECT_EQ(pooled.inputFrame(&frame, 0), 0u);
        EXPECT_EQ(pooled.inputFrame(&frame, 0), 0u);
        EXPECT_EQ(Pool::made, 1);
        EXPECT_EQ(Pool::asked, 0x300000);
    }
    EXPECT_EQ(Pool::made, 0);
}

TEST_F(RtpPacket, WithoutABufferFramesFailAndTheNextOneAsksAgain) {
    Pool::made = 0;
    Pool::empty = true;
    param.alloc = Pool::Alloc;
    param.free = Pool::Free;
    CRtpPacket pooled(MX_FORMAT_RTP, &param);
    ByteVector data = kPicture;
    for (const uint32_t codec : {2u, 1u, 3u, 12u}) {
        data = codec == 3 ? Bytes("FF DA 00 02 AA BB") : Bytes("00 00 01 02 01 AA");
        MXFrameInfo frame = test::VideoFrame(data, codec, MX_SUB_P, 40);
        EXPECT_EQ(pooled.inputFrame(&frame, 0), 4u) << codec;
    }
    // So do frames that come to no packet at all.
    pooled.SetRtpValue("rtp_packet_output_all_flag", 1);
    for (const uint32_t codec : {3u, 12u}) {
        data = codec == 3 ? Bytes("FF DA 00 02") : Bytes("02 01 AA BB");
        MXFrameInfo frame = test::VideoFrame(data, codec, MX_SUB_P, 40);
        EXPECT_EQ(pooled.inputFrame(&frame, 0), 4u) << codec;
        Basalt::CPacket none;
        EXPECT_EQ(pooled.inputFrameEx(&frame, none), 3u) << codec;
    }
    // PCM that has no place to go to stays in the machine's order: the frame may be given again.
    pooled.SetRtpValue("rtp_audio_sample", 8000);
    ByteVector pcm = Bytes("01 02 03 04");
    MXFrameInfo sound = test::AudioFrame(pcm, MX_AUDIO_PCM16, 40);
    EXPECT_EQ(pooled.inputFrame(&sound, 0), 4u);
    EXPECT_EQ(pcm, Bytes("01 02 03 04"));
    EXPECT_TRUE(sink.blocks.empty());
    Pool::empty = false;
    Pool::made = 0;
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_MPEG4, MX_SUB_P, 40);
    EXPECT_EQ(pooled.inputFrame(&frame, 0), 0u);
    EXPECT_EQ(sink.blocks.size(), 1u);
}

TEST_F(RtpPacket, AWarmStreamDoesNotAllocate) {
    static uint64_t bytes = 0;
    param.output = [](const MXOutputBlock* block, void*) -> int32_t {
        bytes += block->length;
        return 0;
    };
    CRtpPacket quiet(MX_FORMAT_RTP, &param);
    quiet.SetRtpValue("rtp_audio_sample", 8000);
    quiet.setExtData("extension", 9);
    quiet.SetCustomData("custom", 6);
    ByteVector h264 = Bytes("00 00 00 01 67 AA 00 00 00 01 68 BB 00 00 01 65") + Counting(40000);
    ByteVector h265 = Bytes("00 00 00 01 40 01 AA 00 00 00 01 26 01") + Counting(40000);
    ByteVector jpeg = Bytes("FF D8 FF C0 00 07 08 00 10 00 10 FF DA 00 02") + Counting(40000);
    ByteVector mpeg4 = Counting(40000);
    ByteVector alaw = Counting(320);
    ByteVector aac = Bytes("FF F1 4C 80 26 1F FC") + Counting(300);
    const auto pass = [&](uint32_t time) {
        MXFrameInfo frames[] = {test::VideoFrame(h264, 2, MX_SUB_I, time), test::VideoFrame(h265, 12, MX_SUB_I, time),
                                test::VideoFrame(jpeg, 3, MX_SUB_I, time), test::VideoFrame(mpeg4, 1, MX_SUB_I, time),
                                test::AudioFrame(alaw, 14, time),          test::AudioFrame(aac, 26, time)};
        frames[0].frame_size -= 1;
        for (const int64_t flag : {0, 1}) {
            quiet.SetRtpValue("rtp_packet_output_all_flag", flag);
            for (MXFrameInfo& frame : frames)
                ASSERT_EQ(quiet.inputFrame(&frame, 0), 0u);
        }
    };
    pass(40);
    const test::AllocationCounter counter;
    bytes = 0;
    for (uint32_t i = 2; i < 20; ++i)
        pass(i * 40);
    EXPECT_GT(bytes, 18u * 2u * 160000u);
    EXPECT_EQ(counter.Count(), 0u);
}

// ------------------------------------------------------------------------------------------------ any input

TEST_F(RtpPacket, AnyMaximumLengthEnds) {
    std::mt19937 random(11);
    Set("rtp_audio_sample", 8000);
    const ByteVector jpeg = Bytes("FF D8 FF C0 00 07 08 00 10 00 10 FF DA 00 02") + Counting(300);
    const ByteVector long_extension = Counting(70);
    std::vector<int64_t> lengths = {999,      1000,     1400,       65535,      65536,      65538,
                                    0x2FFFFF, 0x300000, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFE, 0xFFFFFFFF};
    for (int64_t length = 1; length < 140; ++length)
        lengths.push_back(length);
    for (const uint32_t extension : {0u, 1u, 70u}) {
        packet.setExtData(long_extension.data(), extension);
        for (const uint32_t custom : {0u, 1u, 4u, 40u}) {
            packet.SetCustomData(long_extension.data(), custom);
            packet.SetAudioCustomData(long_extension.data(), std::min(custom, 4u));
            for (const int64_t length : lengths) {
                Set("max_rtp_packet_length", length);
                for (const uint32_t codec : {2u, 12u, 3u, 1u}) {
                    const ByteVector frame = codec == 3 ? jpeg : test::ZeroRichBytes(random, 300);
                    const uint32_t sub_type = static_cast<uint32_t>(random() % 3);
                    const uint32_t result = Video(frame, codec, sub_type);
                    ASSERT_TRUE(result == 0 || result == 3);
                    ASSERT_TRUE(result == 0 || sink.blocks.empty());
                    for (const auto& block : sink.blocks) {
                        ASSERT_LE(static_cast<int64_t>(block.data.size()), length + 5 + custom);
                    }
                    sink.Clear();
                }
                for (const uint32_t codec : {14u, 26u, 31u}) {
                    const uint32_t result = Audio(test::RandomBytes(random, 300), codec);
                    ASSERT_TRUE(result == 0 || result == 3);
                    sink.Clear();
                }
            }
        }
    }
}

TEST_F(RtpPacket, APacketBeyond16BitsHasItsLengthCut) {
    Set("max_rtp_packet_length", 100000);
    ASSERT_EQ(Video(Counting(70000), MX_VIDEO_MPEG4), 0u);
    ASSERT_EQ(sink.blocks.size(), 1u);
    EXPECT_EQ(sink.Last().size(), 70014u);
    EXPECT_EQ(Packets()[0].prefix, 70012u - 65536u);
}

}  // namespace
}  // namespace Orvane::Muxora
