// The stream component as a caller sees it, through the public headers alone.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "Muxora.h"
#include "MuxoraAPI.h"
#include "support/allocation_counter.h"
#include "support/hex.h"
#include "support/slot.h"
#include "support/time_zone.h"

namespace {

using Basalt::CPacket;
using Basalt::getLastError;
using Basalt::IFactoryUnknown;
using Basalt::setLastError;
using Basalt::TSharedPtr;
using Orvane::Muxora::AttributeMap;
using Orvane::Muxora::CMuxora;
using Orvane::Muxora::CMuxoraDataImpl;
using Orvane::Muxora::IMuxora;
using Orvane::Muxora::IMuxoraData;
using test::Bytes;
using test::ByteVector;
using test::operator+;
using test::Text;

constexpr uint32_t kNothing = 0xABCD;  // a last error that nobody sets

AttributeMap KeyFrame(long long codec = 2) {
    return {{"frametype", 86}, {"framesubtype", 1}, {"encodetype", codec}, {"width", 1920},
            {"height", 1080},  {"rate", 25},        {"timestamp", 1000}};
}

AttributeMap AudioFrame(long long codec = 28) {
    return {{"frametype", 65},       {"framesubtype", 0},   {"encodetype", codec},
            {"samplespersec", 8000}, {"bitspersample", 16}, {"channels", 1}};
}

ByteVector BytesOf(const IMuxoraData& data) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(data.getBuffer());
    return {bytes, bytes + data.getLen()};
}

class StreamComponent : public testing::Test {
  protected:
    void SetUp() override { setLastError(kNothing); }

    bool Give(IMuxora& stream, const ByteVector& data, const AttributeMap& attributes) {
        // One readable byte behind the frame, as RTP wants it.
        frame = data;
        frame.push_back(0);
        return stream.inputFrame(frame.data(), static_cast<unsigned>(data.size()), attributes);
    }
    ByteVector Fetch(IMuxora& stream) {
        TSharedPtr<IMuxoraData> packet;
        EXPECT_TRUE(stream.getPacket(packet));
        return packet != nullptr ? BytesOf(*packet) : ByteVector{};
    }
    // 3000 bytes that do not look like start codes.
    ByteVector Nal(size_t size = 3000) {
        ByteVector data = Bytes("00 00 00 01 65");
        data.resize(size, 0x77);
        return data;
    }

    ByteVector frame;
};

TEST_F(StreamComponent, MakesOneUnitOfTheWholeDescription) {
    const test::ScopedTimeZone zone("UTC0");
    CMuxora stream("OVX");
    AttributeMap attributes = KeyFrame();
    attributes.insert({{"deinterlace", 1},
                       {"year", 2017},
                       {"month", 8},
                       {"day", 25},
                       {"rotationangle", 0x15A},
                       {"tpcompanytype", 7},
                       {"tpstreamheaderlen", 40},
                       {"matotalchannels", 4},
                       {"macurchannel", 2},
                       {"n_slice", 2},
                       {"m_slice", 1},
                       {"blockpos_left_1", 1},
                       {"blockpos_top_1", 2},
                       {"blockpos_right_1", 3},
                       {"blockpos_bottom_1", 4},
                       {"blockdata_offset_1", 5},
                       {"blockpos_left_2", 6}});
    ASSERT_TRUE(Give(stream, Text("123456789"), attributes));
    const ByteVector unit =
        // Head: I frame, channel 1, first in sequence, 113 bytes in all, 2017-08-25 00:00:00, 1000 ms, 72 bytes of
        // records.
        Text("ORVX") + Bytes("FD 00 01 00  01 00 00 00  71 00 00 00  00 00 32 46  E8 03  48  6A") +
        Bytes("80 01 F0 87") +              // picture size in eighths, interlaced
        Bytes("81 00 02 19") +              // H.264 at 25 frames per second
        Bytes("88 26 39 F4 CB 00 00 02") +  // CRC-32 of "123456789"
        Bytes("99 02 01 80 07 38 04 00") +  // two by one blocks of 1920 by 1080
        Bytes("01 00 02 00 03 00 04 00 05 00 00 00 00 00 00 00") +
        Bytes("06 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00") +  // absent fields are 0
        Bytes("8B 5A 00 00") + Bytes("92 00 07 00 28 00 00 00") + Bytes("96 04 02 00") + Text("123456789") +
        Text("orvx") + Bytes("71 00 00 00");
    EXPECT_EQ(test::Hex(Fetch(stream)), test::Hex(unit));
    EXPECT_EQ(getLastError(), kNothing);
}

TEST_F(StreamComponent, TheDefaultIsOvx) {
    CMuxora stream;
    ASSERT_TRUE(Give(stream, Nal(100), KeyFrame()));
    EXPECT_EQ(test::Slice(Fetch(stream), 0, 4), Text("ORVX"));
}

TEST_F(StreamComponent, KnowsEachKeyInTwoSpellings) {
    for (const char* key : {"asf", "ASF", "flv", "FLV", "ovx", "OVX", "rtp", "RTP", "ts", "TS", "ps", "PS", "ovps",
                            "OVPS", "gaysps", "GAYSPS", "gdps", "GDPS"}) {
        CMuxora stream(key);
        const void* table = nullptr;
        int count = 0;
        EXPECT_TRUE(stream.getPacketCapacity(Orvane::Muxora::CAPACITY_AUDIO, &table, &count)) << key;
        EXPECT_GT(count, 0) << key;
        EXPECT_TRUE(stream.setParam("anything", 1)) << key;
    }
}

TEST_F(StreamComponent, AnUnknownKeyMakesAnObjectThatFails) {
    for (const char* key : {"Ts", "", "mp4", "MKV", "wav", "ovx ", "Ovx"}) {
        setLastError(kNothing);
        CMuxora stream(key);
        EXPECT_FALSE(Give(stream, Nal(), KeyFrame())) << key;
        CPacket packet(100000);
        EXPECT_FALSE(stream.inputFrameEx(frame.data(), 10, KeyFrame(), packet));
        const void* table = nullptr;
        int count = 0;
        EXPECT_FALSE(stream.getPacketCapacity(Orvane::Muxora::CAPACITY_VIDEO, &table, &count));
        EXPECT_FALSE(stream.setParam("rtp_ssrc", 5));
        long long value = 3;
        EXPECT_FALSE(stream.getParam("rtp_ssrc", value));
        EXPECT_EQ(value, 3);
        EXPECT_FALSE(stream.setExtInfo("rtp_custom_data", "x", 1));
        TSharedPtr<IMuxoraData> out;
        EXPECT_FALSE(stream.getExtInfo(CMuxora::extensionDataKey(), out));
        EXPECT_EQ(getLastError(), kNothing);
        EXPECT_FALSE(stream.getPacket(out));
        EXPECT_EQ(getLastError(), 10u);
        EXPECT_EQ(out, nullptr);
    }
}

TEST_F(StreamComponent, APacketIsFetchedOnce) {
    CMuxora stream("ovx");
    TSharedPtr<IMuxoraData> packet;
    EXPECT_FALSE(stream.getPacket(packet));
    EXPECT_EQ(getLastError(), 10u);
    setLastError(kNothing);
    ASSERT_TRUE(Give(stream, Nal(), KeyFrame()));
    EXPECT_TRUE(stream.getPacket(packet));
    EXPECT_EQ(getLastError(), kNothing);
    EXPECT_FALSE(stream.getPacket(packet));
    EXPECT_EQ(getLastError(), 10u);
    // It came at the first fetch and stays.
    EXPECT_NE(packet, nullptr);
}

TEST_F(StreamComponent, AFrameWithoutABlockLeavesThePacketOfTheFrameBefore) {
    CMuxora stream("ovx");
    ASSERT_TRUE(Give(stream, Text("123456789"), KeyFrame()));
    // Private data is taken by OVX and gives nothing.
    ASSERT_TRUE(Give(stream, Text("private"), {{"frametype", 88}, {"framesubtype", 0}, {"encodetype", 1}}));
    EXPECT_EQ(Fetch(stream).size(), 24u + 16 + 9 + 8);
}

TEST_F(StreamComponent, AFrameWithoutMemoryLeavesThePacketOfTheFrameBefore) {
    for (const char* key : {"ovx", "ps"}) {
        CMuxora stream(key);
        CMuxora same(key);
        const AttributeMap attributes = KeyFrame();
        ASSERT_TRUE(Give(stream, Nal(100), attributes));
        ASSERT_TRUE(Give(same, Nal(100), attributes));
        const ByteVector large = Nal(100000);
        {
            const test::FailingAllocations failing;
            stream.inputFrame(large.data(), static_cast<unsigned>(large.size()), attributes);
        }
        const ByteVector kept = Fetch(stream);
        EXPECT_EQ(test::Slice(kept, 28, kept.size() - 28), test::Slice(Fetch(same), 28, kept.size() - 28)) << key;
        EXPECT_EQ(test::Slice(kept, 0, 4), std::strcmp(key, "ps") == 0 ? Bytes("00 00 01 BA") : Text("ORVX"));
    }
}

TEST_F(StreamComponent, ALaterPacketReplacesAnEarlierOne) {
    CMuxora stream("ovx");
    unsigned char bytes[] = {1, 2, 3};
    EXPECT_TRUE(stream.setPacket(bytes, 3));
    EXPECT_TRUE(stream.setPacket(bytes + 1, 1));
    EXPECT_EQ(Fetch(stream), Bytes("02"));
}

TEST_F(StreamComponent, RefusalsSetTheLastError) {
    CMuxora stream("ovx");
    // OVX waits for a key frame.
    AttributeMap predicted = KeyFrame();
    predicted["framesubtype"] = 2;
    EXPECT_FALSE(Give(stream, Nal(), predicted));
    EXPECT_EQ(getLastError(), 4u);
    setLastError(kNothing);
    EXPECT_FALSE(Give(stream, Nal(), {}));
    EXPECT_EQ(getLastError(), 4u);
    setLastError(kNothing);
    EXPECT_FALSE(stream.inputFrame(nullptr, 10, KeyFrame()));
    EXPECT_EQ(getLastError(), 4u);
    setLastError(kNothing);
    EXPECT_FALSE(stream.inputFrame("x", 0, KeyFrame()));
    EXPECT_EQ(getLastError(), 4u);
    // The next frame may be given.
    EXPECT_TRUE(Give(stream, Nal(), KeyFrame()));
}

TEST_F(StreamComponent, MissingKeysAreEnteredIntoTheCallersMap) {
    CMuxora stream("ovx");
    const AttributeMap attributes;
    EXPECT_FALSE(stream.inputFrame("x", 1, attributes));
    EXPECT_EQ(attributes, (AttributeMap{{"frametype", 0}, {"framesubtype", 0}, {"encodetype", 0}}));
}

TEST_F(StreamComponent, PacksIntoTheCallersPacket) {
    CMuxora stream("OVX");
    CMuxora same("OVX");
    const AttributeMap attributes = KeyFrame();
    ASSERT_TRUE(Give(same, Text("123456789"), attributes));
    const ByteVector unit = Fetch(same);
    CPacket packet(1000);
    ASSERT_TRUE(stream.inputFrameEx("123456789", 9, attributes, packet));
    ByteVector got(packet.getBuffer(), packet.getBuffer() + packet.size());
    // The two were packed within the same second or on either side of its end: the date word may differ.
    ASSERT_EQ(got.size(), unit.size());
    std::copy(unit.begin() + 16, unit.begin() + 20, got.begin() + 16);
    got[23] = unit[23];
    EXPECT_EQ(got, unit);
}

TEST_F(StreamComponent, WhatEachFormatMakesOfTheCallersPacket) {
    const ByteVector nal = Nal(3000);
    const auto length = static_cast<unsigned>(nal.size() - 1);  // RTP wants one more readable byte
    constexpr long long kH265 = 5;
    struct Case {
        const char* key;
        long long codec;
        bool in_packet;  // the block that getPacket gives lies within the packet
        bool sized;      // size() tells how much was filled
    };
    for (const Case& c : {Case{"ovx", 2, true, true}, Case{"rtp", 2, true, true}, Case{"rtp", kH265, true, false},
                          Case{"ts", 2, true, false}, Case{"ps", 2, false, false}, Case{"gdps", 2, false, false}}) {
        CMuxora stream(c.key);
        CPacket packet(100000);
        ASSERT_TRUE(stream.inputFrameEx(nal.data(), length, KeyFrame(c.codec), packet)) << c.key;
        TSharedPtr<IMuxoraData> out;
        ASSERT_TRUE(stream.getPacket(out)) << c.key;
        const auto* const block = reinterpret_cast<const uint8_t*>(out->getBuffer());
        const uint8_t* const first = packet.getBuffer();
        EXPECT_EQ(block >= first && block + out->getLen() <= first + packet.capacity(), c.in_packet) << c.key;
        EXPECT_EQ(packet.size() > 3000, c.sized) << c.key;
        EXPECT_EQ(packet.size() == 0, !c.sized) << c.key;
        // The last block ends where the packet does.
        EXPECT_EQ(block + out->getLen() == first + packet.size(), c.sized) << c.key;
    }
}

TEST_F(StreamComponent, APacketWithoutABufferIsRefusedWithoutALastError) {
    CMuxora stream("OVX");
    CPacket packet;
    EXPECT_FALSE(stream.inputFrameEx("123456789", 9, KeyFrame(), packet));
    EXPECT_EQ(getLastError(), kNothing);
    // One that is too small is refused by the format.
    CPacket small(40);
    EXPECT_FALSE(stream.inputFrameEx("123456789", 9, KeyFrame(), small));
    EXPECT_EQ(getLastError(), 4u);
}

TEST_F(StreamComponent, FormatsWithoutThePacketFormGiveTrueAndNothing) {
    CMuxora stream("flv");
    CPacket packet(1000);
    EXPECT_TRUE(stream.inputFrameEx("123456789", 9, KeyFrame(), packet));
    EXPECT_EQ(packet.size(), 0u);
    TSharedPtr<IMuxoraData> out;
    EXPECT_FALSE(stream.getPacket(out));
}

TEST_F(StreamComponent, CapacitiesAreInPublicNumbers) {
    CMuxora stream("ovx");
    const void* table = nullptr;
    int count = 0;
    ASSERT_TRUE(stream.getPacketCapacity(Orvane::Muxora::CAPACITY_VIDEO, &table, &count));
    ASSERT_EQ(count, 6);
    const auto* entries = static_cast<const MXCapacityEntry*>(table);
    const uint32_t video[] = {2, 1, 5, 3, 6, 7};
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(entries[i].codec, video[i]);
    ASSERT_TRUE(stream.getPacketCapacity(Orvane::Muxora::CAPACITY_AUDIO, &table, &count));
    EXPECT_EQ(count, 5);
    EXPECT_EQ(static_cast<const MXCapacityEntry*>(table)[0].codec, 28u);
    EXPECT_FALSE(stream.getPacketCapacity(Orvane::Muxora::CAPACITY_AUDIO, nullptr, &count));
    EXPECT_FALSE(stream.getPacketCapacity(Orvane::Muxora::CAPACITY_AUDIO, &table, nullptr));
    EXPECT_EQ(getLastError(), kNothing);
    const void* untouched = &stream;
    count = 77;
    EXPECT_FALSE(stream.getPacketCapacity(static_cast<Orvane::Muxora::CapacityType>(2), &untouched, &count));
    EXPECT_EQ(getLastError(), 4u);
    EXPECT_EQ(untouched, &stream);
    EXPECT_EQ(count, 77);
}

TEST_F(StreamComponent, ParametersOfOtherFormatsDoNothing) {
    CMuxora stream("ovx");
    EXPECT_TRUE(stream.setParam("rtp_ssrc", 5));
    long long value = 99;
    EXPECT_TRUE(stream.getParam("rtp_ssrc", value));
    EXPECT_EQ(value, 99);
    EXPECT_TRUE(stream.setExtInfo("rtp_extension_data", "abcd", 4));
    EXPECT_TRUE(stream.setExtInfo("rtp_custom_data", nullptr, 0));
    TSharedPtr<IMuxoraData> out;
    EXPECT_TRUE(stream.getExtInfo(CMuxora::extensionDataKey(), out));
    EXPECT_EQ(out, nullptr);
}

TEST_F(StreamComponent, RtpParameters) {
    CMuxora stream("rtp");
    long long value = -1;
    EXPECT_TRUE(stream.getParam("max_rtp_packet_length", value));
    EXPECT_EQ(value, 1000);
    const std::pair<const char*, long long> given[] = {
        {"max_rtp_packet_length", 1400},   {"rtp_sequence_number", 0x12345},
        {"rtp_timestamp", 0x123456789},    {"rtp_ssrc", 5},
        {"rtp_audio_sample", 8000},        {"rtp_payload_type", 96},
        {"rtp_packet_output_all_flag", 1}, {"rtp_audio_payload_type", 97}};
    for (const auto& [key, number] : given)
        EXPECT_TRUE(stream.setParam(key, number)) << key;
    const long long read_back[] = {1400, 0x2345, 0x23456789, 5, 8000, 96, 1, 97};
    for (size_t i = 0; i < std::size(given); ++i) {
        // A copy of the key: it is its spelling that counts.
        const std::string key = given[i].first;
        EXPECT_TRUE(stream.getParam(key.c_str(), value));
        EXPECT_EQ(value, read_back[i]) << key;
    }
    value = 42;
    EXPECT_TRUE(stream.setParam("rtp_encode_type", 7));
    EXPECT_TRUE(stream.getParam("rtp_encode_type", value));
    EXPECT_EQ(value, 42);
    EXPECT_TRUE(stream.setParam("unknown", 5));
    EXPECT_TRUE(stream.getParam("unknown", value));
    EXPECT_TRUE(stream.setParam(nullptr, 5));
    EXPECT_TRUE(stream.getParam(nullptr, value));
    EXPECT_EQ(value, 42);
    EXPECT_EQ(getLastError(), kNothing);
}

TEST_F(StreamComponent, ManyRtpPacketsLeaveTheLastOne) {
    CMuxora stream("rtp");
    stream.setParam("rtp_sequence_number", 100);
    ASSERT_TRUE(Give(stream, Nal(3000), KeyFrame()));
    const ByteVector last = Fetch(stream);
    // A two-byte length, then the header with the marker; 3000 bytes make four packets of at most 1000.
    ASSERT_GT(last.size(), 14u);
    EXPECT_EQ(last[2], 0x80);
    EXPECT_EQ(last[3] & 0x80, 0x80);
    EXPECT_EQ(last[4] << 8 | last[5], 104);
    // All of them in one block.
    CMuxora all("rtp");
    all.setParam("rtp_packet_output_all_flag", 1);
    ASSERT_TRUE(Give(all, Nal(3000), KeyFrame()));
    EXPECT_GT(Fetch(all).size(), 3000u);
}

TEST_F(StreamComponent, CustomDataIsCopied) {
    CMuxora stream("rtp");
    ByteVector custom = Text("wxyz");
    EXPECT_TRUE(stream.setExtInfo("rtp_custom_data", custom.data(), 4));
    custom.assign(4, 0);
    ASSERT_TRUE(Give(stream, Nal(100), KeyFrame()));
    EXPECT_EQ(test::Slice(Fetch(stream), 0, 4), Text("wxyz"));
    // 256 more is the same length.
    EXPECT_TRUE(stream.setExtInfo("rtp_custom_data", "kl", 258));
    ASSERT_TRUE(Give(stream, Nal(100), KeyFrame()));
    const ByteVector packet = Fetch(stream);
    EXPECT_EQ(test::Slice(packet, 0, 2), Text("kl"));
    EXPECT_EQ(packet[4], 0x80);
    EXPECT_FALSE(stream.setExtInfo("rtp_custom_data", nullptr, 4));
    EXPECT_EQ(getLastError(), kNothing);
}

TEST_F(StreamComponent, AudioCustomDataHasAtMostFourBytes) {
    CMuxora stream("rtp");
    stream.setParam("rtp_audio_sample", 8000);
    const ByteVector sound(160, 0x55);
    EXPECT_FALSE(stream.setExtInfo("rtp_audio_custom_data", "abcde", 5));
    EXPECT_FALSE(stream.setExtInfo("rtp_audio_custom_data", nullptr, 2));
    ASSERT_TRUE(Give(stream, sound, AudioFrame()));
    EXPECT_EQ(Fetch(stream)[2], 0x80);  // length, then the header: nothing was stored
    EXPECT_TRUE(stream.setExtInfo("rtp_audio_custom_data", "abcd", 4));
    ASSERT_TRUE(Give(stream, sound, AudioFrame()));
    EXPECT_EQ(test::Slice(Fetch(stream), 0, 4), Text("abcd"));
}

TEST_F(StreamComponent, TheExtensionIsStoredAndTheResultIsFalse) {
    CMuxora stream("rtp");
    EXPECT_FALSE(stream.setExtInfo("rtp_extension_data", "abcd", 4));
    EXPECT_EQ(getLastError(), kNothing);
    TSharedPtr<IMuxoraData> out;
    // Another pointer, whatever it spells, is not the key.
    EXPECT_TRUE(stream.getExtInfo("rtp_extension_data", out));
    EXPECT_EQ(out, nullptr);
    EXPECT_TRUE(stream.getExtInfo(nullptr, out));
    EXPECT_EQ(out, nullptr);
    EXPECT_STREQ(CMuxora::extensionDataKey(), "rtp_extension_data");
    EXPECT_TRUE(stream.getExtInfo(CMuxora::extensionDataKey(), out));
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(BytesOf(*out), Text("abcd"));
    // It stands in every packet: extension bit, one word of data behind four bytes of header.
    ASSERT_TRUE(Give(stream, Nal(100), KeyFrame()));
    const ByteVector packet = Fetch(stream);
    EXPECT_EQ(packet[2], 0x90);
    EXPECT_EQ(test::Slice(packet, 16, 6), Bytes("00 01") + Text("abcd"));
    // The library's own key works for setting, too.
    EXPECT_FALSE(stream.setExtInfo(CMuxora::extensionDataKey(), "efghij", 6));
    EXPECT_TRUE(stream.getExtInfo(CMuxora::extensionDataKey(), out));
    EXPECT_EQ(BytesOf(*out), Text("efghij"));
    EXPECT_TRUE(stream.setExtInfo("unknown", "abcd", 4));
    EXPECT_TRUE(stream.setExtInfo(nullptr, "abcd", 4));
}

TEST_F(StreamComponent, CopiesShareOnePackager) {
    auto first = std::make_unique<CMuxora>("rtp");
    CMuxora second(*first);
    first->setParam("rtp_ssrc", 77);
    long long value = 0;
    EXPECT_TRUE(second.getParam("rtp_ssrc", value));
    EXPECT_EQ(value, 77);
    CMuxora third("ovx");
    third = second;
    first.reset();
    ASSERT_TRUE(Give(third, Nal(100), KeyFrame()));
    EXPECT_GT(Fetch(third).size(), 100u);
    TSharedPtr<IMuxoraData> out;
    EXPECT_FALSE(second.getPacket(out));
}

TEST_F(StreamComponent, TellsItsVersion) {
    CMuxora stream;
    const Basalt::CVersion version = stream.getVersion();
    EXPECT_EQ(version.getName(), "Application");
    EXPECT_EQ(version.getMajor(), 1u);
    EXPECT_EQ(version.getMinor(), 0u);
    EXPECT_EQ(version.getRevision(), 0u);
    EXPECT_FALSE(version.getRevisionControl().empty());
    EXPECT_TRUE(std::regex_match(version.getBuildDate(), std::regex("[0-9]{4}-[0-9]{2}-[0-9]{2}")));
}

TEST_F(StreamComponent, WithoutMemory) {
    CMuxora stream("ovx");
    ASSERT_TRUE(Give(stream, Nal(100), KeyFrame()));
    TSharedPtr<IMuxoraData> out;
    {
        const test::FailingAllocations failing;
        EXPECT_FALSE(stream.getPacket(out));
    }
    EXPECT_EQ(getLastError(), kNothing);
    EXPECT_EQ(out, nullptr);
    EXPECT_TRUE(stream.getPacket(out));
}

TEST(MuxoraData, PointsAndDoesNotOwn) {
    char bytes[] = "abc";
    CMuxoraDataImpl data;
    EXPECT_EQ(data.getBuffer(), nullptr);
    EXPECT_EQ(data.getLen(), 0u);
    data.setBuffer(bytes, 3);
    const CMuxoraDataImpl copy(data);
    EXPECT_EQ(copy.getBuffer(), bytes);
    EXPECT_EQ(copy.getLen(), 3u);
    data.setPointer(bytes + 1);
    data.setLen(2);
    EXPECT_EQ(data.getBuffer(), bytes + 1);
    EXPECT_EQ(data.getLen(), 2u);
    CMuxoraDataImpl assigned;
    assigned = copy;
    EXPECT_EQ(assigned.getBuffer(), bytes);
}

TEST(StreamInterface, HasNoOperationOfItsOwn) {
    IMuxora base;
    const IMuxora& constant = base;
    TSharedPtr<IMuxoraData> out;
    CPacket packet;
    const AttributeMap attributes;
    long long value = 0;
    const void* table = nullptr;
    int count = 0;
    const auto fails = [](bool result) {
        const bool failed = !result && getLastError() == 0x10030010;
        setLastError(0);
        return failed;
    };
    setLastError(0);
    EXPECT_TRUE(fails(base.inputFrame("x", 1, attributes)));
    EXPECT_TRUE(fails(base.getPacket(out)));
    EXPECT_TRUE(fails(base.inputFrameEx("x", 1, attributes, packet)));
    EXPECT_TRUE(fails(base.setParam("k", 1)));
    EXPECT_TRUE(fails(base.getParam("k", value)));
    EXPECT_TRUE(fails(base.setExtInfo("k", "x", 1)));
    EXPECT_TRUE(fails(base.getExtInfo("k", out)));
    EXPECT_TRUE(fails(constant.getPacketCapacity(Orvane::Muxora::CAPACITY_VIDEO, &table, &count)));
    EXPECT_TRUE(attributes.empty());
    using Reserved = bool (IMuxora::*)();
    const Reserved reserved[] = {&IMuxora::rev_func24, &IMuxora::rev_func23, &IMuxora::rev_func22, &IMuxora::rev_func21,
                                 &IMuxora::rev_func20, &IMuxora::rev_func19, &IMuxora::rev_func18, &IMuxora::rev_func17,
                                 &IMuxora::rev_func16, &IMuxora::rev_func15, &IMuxora::rev_func14, &IMuxora::rev_func13,
                                 &IMuxora::rev_func12, &IMuxora::rev_func11, &IMuxora::rev_func10, &IMuxora::rev_func9,
                                 &IMuxora::rev_func8,  &IMuxora::rev_func7,  &IMuxora::rev_func6,  &IMuxora::rev_func5,
                                 &IMuxora::rev_func4,  &IMuxora::rev_func3,  &IMuxora::rev_func2,  &IMuxora::rev_func1};
    // The component does not have them either.
    CMuxora stream;
    for (const Reserved operation : reserved) {
        EXPECT_TRUE(fails((base.*operation)()));
        EXPECT_TRUE(fails((stream.*operation)()));
    }
}

#if defined(__GNUC__) && defined(__x86_64__)

using test::Slot;

TEST(StreamInterface, TheOrderOfItsOperationsIsFixed) {
    // The destructor has the first two places.
    EXPECT_EQ(Slot(&IMuxora::destroy), 2u);
    EXPECT_EQ(Slot(&IMuxora::getVersion), 3u);
    EXPECT_EQ(Slot(&IMuxora::addRef), 4u);
    EXPECT_EQ(Slot(&IMuxora::release), 5u);
    EXPECT_EQ(Slot(&IMuxora::inputFrame), 6u);
    EXPECT_EQ(Slot(&IMuxora::getPacket), 7u);
    EXPECT_EQ(Slot(&IMuxora::inputFrameEx), 8u);
    EXPECT_EQ(Slot(&IMuxora::setParam), 9u);
    EXPECT_EQ(Slot(&IMuxora::getParam), 10u);
    EXPECT_EQ(Slot(&IMuxora::setExtInfo), 11u);
    EXPECT_EQ(Slot(&IMuxora::getExtInfo), 12u);
    EXPECT_EQ(Slot(&IMuxora::getPacketCapacity), 13u);
    EXPECT_EQ(Slot(&IMuxora::rev_func24), 14u);
    EXPECT_EQ(Slot(&IMuxora::rev_func1), 37u);
    EXPECT_EQ(Slot(&CMuxora::getPacketCapacity), 13u);
    EXPECT_EQ(Slot(&IMuxoraData::getBuffer), 2u);
    EXPECT_EQ(Slot(&IMuxoraData::getLen), 3u);
    EXPECT_EQ(Slot(&IMuxora::IFactory::getName), 2u);
    EXPECT_EQ(Slot(&IMuxora::IFactory::create), 3u);
}

#endif

TEST(StreamFactory, WithoutMemoryNothingIsThrown) {
    const test::FailingAllocations failing;
    EXPECT_NO_THROW(Orvane::Muxora::initMuxoraComponentLibrary());
}

TEST(StreamFactory, IsFoundByNameAndMakesComponents) {
    // Any number of threads may ask for it at once.
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back(Orvane::Muxora::initMuxoraComponentLibrary);
    for (std::thread& thread : threads)
        thread.join();
    IFactoryUnknown* const found = IFactoryUnknown::findFactory("Muxora");
    ASSERT_NE(found, nullptr);
    Orvane::Muxora::initMuxoraComponentLibrary();
    EXPECT_EQ(IFactoryUnknown::findFactory("Muxora"), found);
    EXPECT_EQ(found->getName(), "Local");

    auto* const factory = dynamic_cast<IMuxora::IFactory*>(found);
    ASSERT_NE(factory, nullptr);
    IMuxora* const stream = factory->create("ovx");
    ASSERT_NE(stream, nullptr);
    ASSERT_TRUE(stream->inputFrame("123456789", 9, KeyFrame()));
    TSharedPtr<IMuxoraData> packet;
    EXPECT_TRUE(stream->getPacket(packet));
    EXPECT_EQ(stream->addRef(), 2u);
    EXPECT_EQ(stream->release(), 1u);
    EXPECT_EQ(stream->release(), 0u);
    factory->create("rtp")->destroy();
    // Unknown keys make an object as well.
    IMuxora* const unknown = factory->create("Ts");
    ASSERT_NE(unknown, nullptr);
    unknown->destroy();
    const Basalt::flex_string key = "ovx";
    const test::FailingAllocations failing;
    EXPECT_EQ(factory->create(key), nullptr);
}

TEST(StreamFactory, OneOfTheCallersOwnDoesNotDriveOutTheOther) {
    Orvane::Muxora::initMuxoraComponentLibrary();
    IFactoryUnknown* const found = IFactoryUnknown::findFactory("Muxora");
    {
        CMuxora::CFactory own;
        EXPECT_EQ(own.getName(), "Local");
        EXPECT_EQ(IFactoryUnknown::findFactory("Muxora"), found);
    }
    EXPECT_EQ(IFactoryUnknown::findFactory("Muxora"), found);
    IMuxora::IFactory* const base = dynamic_cast<IMuxora::IFactory*>(found);
    setLastError(0);
    EXPECT_EQ(base->IMuxora::IFactory::create("ovx"), nullptr);
    EXPECT_EQ(getLastError(), 0x10030010u);
}

}  // namespace
