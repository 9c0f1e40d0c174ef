// Callbacks that come back to the handle that calls them, and callbacks that throw.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "Muxora.h"
#include "MuxoraAPI.h"
#include "support/frames.h"
#include "support/hex.h"
#include "support/iso_frames.h"
#include "support/sink.h"

namespace {

using test::ByteVector;
using test::Sink;

// Head, two pictures, sound between them, private data and tail; what a format does not take it refuses.
std::vector<uint32_t> GiveStream(MXHandle handle) {
    std::vector<uint32_t> results;
    MXHeaderInfo info{};
    info.size = sizeof info;
    results.push_back(MX_CreateHeader(handle, &info));
    MXRtpParam param{};
    param.rtp_audio_sample = 48000;
    param.rtp_ssrc = 1;
    param.rtp_audio_ssrc = 2;
    results.push_back(MX_SetParam(handle, MX_PARAM_RTP, &param, sizeof param));
    for (uint32_t i = 0; i < 4; ++i) {
        ByteVector picture = i == 0 ? test::KeyFrame() : test::PFrame(static_cast<uint8_t>(i));
        picture.reserve(picture.size() + 1);  // RTP looks one byte behind it
        MXFrameInfo video = test::VideoFrame(picture, MX_VIDEO_H264, i == 0 ? MX_SUB_I : MX_SUB_P, 1000 + 40 * i);
        video.utc_time = 1700000000;
        results.push_back(MX_InputFrame(handle, &video));
        ByteVector aac = test::AdtsFrame(30 + i);
        MXFrameInfo audio = test::AudioFrame(aac, MX_AUDIO_AAC, 1000 + 21 * i);
        audio.utc_time = 1700000000;
        results.push_back(MX_InputFrame(handle, &audio));
        ByteVector samples(320, static_cast<uint8_t>(i));
        MXFrameInfo g711 = test::AudioFrame(samples, MX_AUDIO_ALAW, 1000 + 21 * i);
        g711.utc_time = 1700000000;
        results.push_back(MX_InputFrame(handle, &g711));
        ByteVector note{1, 2, 3};
        MXFrameInfo other = test::Frame(note, MX_FRAME_PRIVATE, 0);
        results.push_back(MX_InputFrame(handle, &other));
    }
    results.push_back(MX_CreateTailer(handle, nullptr));
    return results;
}

// Tries every function on its own handle from inside each of its blocks.
struct Intruder {
    MXHandle handle = nullptr;
    Sink sink;
    uint32_t calls = 0;

    static int32_t Output(const MXOutputBlock* block, void* user) {
        auto& self = *static_cast<Intruder*>(user);
        Sink::Output(block, &self.sink);
        if (self.handle != nullptr) self.Intrude();
        return 0;
    }
    void Intrude() {
        ++calls;
        ByteVector picture = test::KeyFrame();
        picture.reserve(picture.size() + 1);
        MXFrameInfo frame = test::VideoFrame(picture, MX_VIDEO_H264, MX_SUB_I, 5000);
        MXHeaderInfo info{};
        MXRtpParam param{};
        uint32_t size = sizeof param;
        const void* table = nullptr;
        MXOutputBlock snapshot{};
        EXPECT_EQ(MX_InputFrame(handle, &frame), 3u);
        EXPECT_EQ(MX_CreateHeader(handle, &info), 3u);
        EXPECT_EQ(MX_CreateTailer(handle, nullptr), 3u);
        EXPECT_EQ(MX_SetParam(handle, MX_PARAM_RTP, &param, sizeof param), 3u);
        EXPECT_EQ(MX_GetParam(handle, MX_PARAM_RTP, &param, &size), 3u);
        EXPECT_EQ(MX_SetEncryptType(handle, MX_ENCRYPT_AES, "0123456789ABCDEF", 16), 3u);
        EXPECT_EQ(MX_GetPacketCapacity(handle, MX_CAPACITY_VIDEO, &table, &size), 3u);
        EXPECT_EQ(MX_GetBackup(handle, &snapshot), snapshot.length);
        EXPECT_EQ(MX_DestroyHandle(handle), 3u);
    }
};

class HostileCallback : public testing::TestWithParam<uint32_t> {};

INSTANTIATE_TEST_SUITE_P(All, HostileCallback,
                         testing::Values(0, 1, 2, 3, 4, 5, 6, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20));

// Bytes 100 to 160 of an MP4, and some of others, hold the wall clock; so the files are compared by their lengths and
// by all blocks but those that hold a head or an index.
TEST_P(HostileCallback, ACallInsideACallIsRefusedAndTheStreamIsAsWithoutIt) {
    Sink plain;
    const MXCreateParam plain_param = plain.Param();
    const MXHandle undisturbed = MX_CreateHandle(GetParam(), &plain_param);
    const std::vector<uint32_t> expected = GiveStream(undisturbed);

    Intruder intruder;
    MXCreateParam param{};
    param.user = &intruder;
    param.output = Intruder::Output;
    const MXHandle handle = MX_CreateHandle(GetParam(), &param);
    intruder.handle = handle;
    EXPECT_EQ(GiveStream(handle), expected);
    EXPECT_NE(intruder.calls, 0u);
    ASSERT_EQ(intruder.sink.blocks.size(), plain.blocks.size());
    for (size_t i = 0; i < plain.blocks.size(); ++i) {
        EXPECT_EQ(intruder.sink.blocks[i].offset, plain.blocks[i].offset);
        EXPECT_EQ(intruder.sink.blocks[i].data.size(), plain.blocks[i].data.size());
    }
    // From outside everything is as ever.
    const void* table = nullptr;
    uint32_t count = 0;
    EXPECT_EQ(MX_GetPacketCapacity(handle, MX_CAPACITY_AUDIO, &table, &count), 0u);
    EXPECT_EQ(MX_DestroyHandle(undisturbed), 0u);
    EXPECT_EQ(MX_DestroyHandle(handle), 0u);
}

int32_t TakeAndThrow(const MXOutputBlock* block, void* user) {
    Sink::Output(block, user);
    throw std::runtime_error("no more room");
}

// What a callback throws ends in the library: the block counts as taken, the call is carried out and says 3.
TEST_P(HostileCallback, OneThatThrowsLosesNothingButTheResult) {
    Sink plain;
    Sink throwing;
    const MXCreateParam plain_param = plain.Param();
    MXCreateParam param = throwing.Param();
    param.output = TakeAndThrow;
    const MXHandle undisturbed = MX_CreateHandle(GetParam(), &plain_param);
    const MXHandle handle = MX_CreateHandle(GetParam(), &param);
    const std::vector<uint32_t> expected = GiveStream(undisturbed);
    const std::vector<uint32_t> results = GiveStream(handle);
    ASSERT_EQ(results.size(), expected.size());
    uint32_t told = 0;
    for (size_t i = 0; i < results.size(); ++i) {
        if (results[i] == expected[i]) continue;
        EXPECT_EQ(expected[i], 0u);
        EXPECT_EQ(results[i], 3u);
        ++told;
    }
    EXPECT_NE(told, 0u);
    ASSERT_EQ(throwing.blocks.size(), plain.blocks.size());
    for (size_t i = 0; i < plain.blocks.size(); ++i) {
        EXPECT_EQ(throwing.blocks[i].offset, plain.blocks[i].offset);
        EXPECT_EQ(throwing.blocks[i].data.size(), plain.blocks[i].data.size());
    }
    EXPECT_EQ(throwing.file.size(), plain.file.size());
    MX_DestroyHandle(undisturbed);
    MX_DestroyHandle(handle);
}

void* ThrowingAlloc(int32_t /*size*/) {
    throw std::runtime_error("no pool");
}

TEST_P(HostileCallback, AnAllocThatThrowsHasNoMemory) {
    Sink sink;
    MXCreateParam param = sink.Param();
    param.alloc = ThrowingAlloc;
    const MXHandle handle = MX_CreateHandle(GetParam(), &param);
    ASSERT_NE(handle, nullptr);
    GiveStream(handle);
    EXPECT_EQ(MX_DestroyHandle(handle), 0u);
}

using Orvane::Muxora::AttributeMap;
using Orvane::Muxora::CFilePackage;
using Orvane::Muxora::IMuxoraData;

AttributeMap Picture() {
    return {{"frametype", 86}, {"framesubtype", 1}, {"encodetype", 2},
            {"width", 1920},   {"height", 1080},    {"framerate", 25}};
}

TEST(HostileWriteFunction, TheComponentRefusesItToo) {
    for (const char* key : {"mp4", "mov", "3gp", "mp464", "mov64", "mp4noseek", "asf", "mkv", "avi", "ovx", "flv"}) {
        auto* const package = new CFilePackage(key);
        uint32_t calls = 0;
        const auto intrude = [&](AttributeMap& /*place*/, IMuxoraData& /*data*/) {
            ++calls;
            ByteVector picture = test::KeyFrame();
            AttributeMap attributes = Picture();
            EXPECT_FALSE(package->inputFrame(picture.data(), static_cast<unsigned>(picture.size()), attributes));
            EXPECT_EQ(Basalt::getLastError(), uint32_t{Orvane::Muxora::MUXORA_REFUSED});
            EXPECT_FALSE(package->close());
            EXPECT_FALSE(package->open([](AttributeMap&, IMuxoraData&) { return true; }));
            EXPECT_FALSE(package->open("/nowhere/at/all"));
            Basalt::TSharedPtr<IMuxoraData> out;
            package->getbackup(out, attributes);
            const void* table = nullptr;
            int count = 0;
            EXPECT_FALSE(package->getPacketCapacity(Orvane::Muxora::CAPACITY_VIDEO, &table, &count));
            package->destroy();
            return true;
        };
        ASSERT_TRUE(package->open(intrude));
        ByteVector picture = test::KeyFrame();
        EXPECT_TRUE(package->inputFrame(picture.data(), static_cast<unsigned>(picture.size()), Picture())) << key;
        EXPECT_TRUE(package->close());
        EXPECT_NE(calls, 0u) << key;
        package->destroy();
    }
}

}  // namespace
