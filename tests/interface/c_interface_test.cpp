// The C interface as a caller sees it: order of calls, result codes, lifetimes.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <regex>
#include <string>

#include "MuxoraExt.h"
#include "support/frames.h"
#include "support/hex.h"
#include "support/sink.h"

namespace {

using test::ByteVector;
using test::Sink;

struct Destroy {
    void operator()(void* handle) const { MX_DestroyHandle(handle); }
};
using Handle = std::unique_ptr<void, Destroy>;

Handle Create(uint32_t format, Sink& sink) {
    const MXCreateParam param = sink.Param();
    return Handle(MX_CreateHandle(format, &param));
}

constexpr uint32_t kCreatable[] = {0,
                                   1,
                                   2,
                                   3,
                                   4,
                                   5,
                                   6,
                                   8,
                                   9,
                                   10,
                                   11,
                                   12,
                                   13,
                                   14,
                                   15,
                                   16,
                                   17,
                                   18,
                                   19,
                                   20,
                                   MX_FORMAT_FMP4,
                                   MX_FORMAT_HMP4,
                                   MX_FORMAT_XFLV,
                                   MX_FORMAT_XMKV,
                                   MX_FORMAT_XTS};

class EveryFormat : public testing::TestWithParam<uint32_t> {
  protected:
    void SetUp() override {
        handle = Create(GetParam(), sink);
        ASSERT_NE(handle, nullptr);
    }
    uint32_t Start() {
        MXHeaderInfo info{};
        info.size = sizeof info;
        info.video_present = 1;
        info.video_encode_type = MX_VIDEO_H264;
        info.width = 1920;
        info.height = 1080;
        info.frame_rate = 25;
        return MX_CreateHeader(handle.get(), &info);
    }

    Sink sink;
    Handle handle;
};

INSTANTIATE_TEST_SUITE_P(All, EveryFormat, testing::ValuesIn(kCreatable));

TEST(CreateHandle, RefusesThreeGpAndUnknownNumbers) {
    EXPECT_EQ(MX_CreateHandle(7, nullptr), nullptr);
    for (const uint32_t number : {21u, 22u, 100u, 0xFFFFu, 0x10005u, 0xFFFFFFFFu})
        EXPECT_EQ(MX_CreateHandle(number, nullptr), nullptr);
}

TEST(NullHandle, EveryFunctionSaysSo) {
    ByteVector data{1};
    MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, MX_SUB_I);
    MXRtpParam param{};
    uint32_t size = 96;
    const void* table = nullptr;
    MXOutputBlock block{};
    EXPECT_EQ(MX_DestroyHandle(nullptr), 1u);
    EXPECT_EQ(MX_CreateHeader(nullptr, nullptr), 1u);
    EXPECT_EQ(MX_InputFrame(nullptr, &frame), 1u);
    EXPECT_EQ(MX_CreateTailer(nullptr, nullptr), 1u);
    EXPECT_EQ(MX_SetParam(nullptr, 0, &param, 96), 1u);
    EXPECT_EQ(MX_GetParam(nullptr, 0, &param, &size), 1u);
    EXPECT_EQ(MX_SetEncryptType(nullptr, 0, "k", 1), 1u);
    EXPECT_EQ(MX_GetPacketCapacity(nullptr, 0, &table, &size), 1u);
    EXPECT_EQ(MX_GetBackup(nullptr, &block), 1u);
}

TEST(Version, IsTheTextWithADate) {
    EXPECT_TRUE(std::regex_match(MX_GetVersion(), std::regex(R"(\[version\] KMPT \d{4}-\d{2}-\d{2})")));
    EXPECT_EQ(MX_GetVersion(), MX_GetVersion());
    EXPECT_STREQ(MX_VERSION_MISMATCH_TEXT, "<MuxoraAPI> not match! May cause unknown exception, Please update!\n");
}

TEST_P(EveryFormat, DestroyedAtOnceWritesNothing) {
    EXPECT_EQ(MX_DestroyHandle(handle.release()), 0u);
    EXPECT_TRUE(sink.blocks.empty());
}

TEST_P(EveryFormat, WrongRecordSizeGivesThreeAndNoOutput) {
    ASSERT_EQ(Start(), 0u);
    const size_t before = sink.blocks.size();
    ByteVector data = test::Bytes("00 00 00 01 65 11 22 33 44");
    for (const uint32_t size : {263u, 265u, 0u}) {
        MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, MX_SUB_I);
        frame.size = size;
        EXPECT_EQ(MX_InputFrame(handle.get(), &frame), 3u);
    }
    EXPECT_EQ(MX_InputFrame(handle.get(), nullptr), 3u);
    EXPECT_EQ(sink.blocks.size(), before);
}

TEST_P(EveryFormat, NoDataGivesThree) {
    ASSERT_EQ(Start(), 0u);
    ByteVector data{0, 0, 0, 1, 0x65, 1, 2, 3};
    const bool audio = GetParam() == MX_FORMAT_WAV;
    MXFrameInfo frame =
        audio ? test::AudioFrame(data, MX_AUDIO_PCM16) : test::VideoFrame(data, MX_VIDEO_H264, MX_SUB_I);
    frame.frame_size = 0;
    EXPECT_EQ(MX_InputFrame(handle.get(), &frame), 3u);
    frame.frame_pointer = nullptr;
    const size_t before = sink.blocks.size();
    for (const uint32_t size : {8u, 5000u}) {
        frame.frame_size = size;
        EXPECT_EQ(MX_InputFrame(handle.get(), &frame), GetParam() == MX_FORMAT_AVI ? 0u : 3u);  // AVI drops it
        EXPECT_EQ(sink.blocks.size(), before);
    }
    // A bad codec beside it: OVX and AVI look at that first.
    frame.encode_type = 200;
    const bool checks_codec_first =
        GetParam() == MX_FORMAT_OVX || GetParam() == MX_FORMAT_OVX_ALT || GetParam() == MX_FORMAT_AVI;
    EXPECT_EQ(MX_InputFrame(handle.get(), &frame), checks_codec_first ? 5u : 3u);
}

TEST_P(EveryFormat, UnknownFrameTypeIsRefused) {
    ASSERT_EQ(Start(), 0u);
    ByteVector data{0, 0, 0, 1, 0x65, 1, 2, 3};
    for (const uint32_t type : {0u, 4u, 77u}) {
        MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, MX_SUB_I);
        frame.frame_type = type;
        const uint32_t result = MX_InputFrame(handle.get(), &frame);
        EXPECT_TRUE(result == 5 || result == 3) << result;
    }
}

TEST_P(EveryFormat, AFrameOfNoTypeGivesFive) {
    ASSERT_EQ(Start(), 0u);
    ByteVector data{0, 0, 0, 1, 0x65, 1, 2, 3};
    MXFrameInfo frame = test::Frame(data, 0, 0);
    frame.frame_sub_type = 21;
    EXPECT_EQ(MX_InputFrame(handle.get(), &frame), 5u);
}

TEST_P(EveryFormat, OnlyOvxLooksAtTheTypeOfACipher) {
    const bool ovx = GetParam() == MX_FORMAT_OVX || GetParam() == MX_FORMAT_OVX_ALT;
    const uint8_t key[16] = {};
    EXPECT_EQ(MX_SetEncryptType(handle.get(), 0, key, 16), 0u);
    EXPECT_EQ(MX_SetEncryptType(handle.get(), 0, nullptr, 0), 0u);
    EXPECT_EQ(MX_SetEncryptType(handle.get(), 1, key, 16), ovx ? 3u : 0u);
}

TEST_P(EveryFormat, UnknownVideoCodecIsRefused) {
    ASSERT_EQ(Start(), 0u);
    ByteVector data{0, 0, 0, 1, 0x65, 1, 2, 3};
    MXFrameInfo frame = test::VideoFrame(data, 0, MX_SUB_I);
    EXPECT_EQ(MX_InputFrame(handle.get(), &frame), 5u);
    frame.encode_type = 36;
    EXPECT_EQ(MX_InputFrame(handle.get(), &frame), 5u);
}

TEST_P(EveryFormat, PrivateDataIsForOvxAndIsoAlone) {
    ASSERT_EQ(Start(), 0u);
    ByteVector data{1, 2, 3, 4, 5, 6, 7, 8};
    MXFrameInfo frame = test::Frame(data, MX_FRAME_PRIVATE, 0);
    const uint32_t format = GetParam();
    const bool taken =
        format == 3 || format == 19 || format == 0 || format == 6 || format == 12 || format == 14 || format == 15;
    EXPECT_EQ(MX_InputFrame(handle.get(), &frame) == 0u, taken);
}

TEST_P(EveryFormat, HeaderOfNullIsForThoseThatNeedNone) {
    const bool needs = GetParam() == MX_FORMAT_OVX || GetParam() == MX_FORMAT_OVX_ALT || GetParam() == MX_FORMAT_RTP;
    EXPECT_EQ(MX_CreateHeader(handle.get(), nullptr), needs ? 3u : 0u);
}

TEST_P(EveryFormat, TailOfAnEmptyStream) {
    ASSERT_EQ(Start(), 0u);
    const uint32_t result = MX_CreateTailer(handle.get(), nullptr);
    EXPECT_EQ(result, GetParam() == MX_FORMAT_RTP ? 3u : 0u);
}

TEST_P(EveryFormat, SetAndGetParamOfTheWrongTypeDoNothing) {
    MXRtpParam param{};
    param.rtp_ssrc = 5;
    EXPECT_EQ(MX_SetParam(handle.get(), 0, nullptr, 96), 3u);
    // To formats with exact times the types 1 and 2 mean something.
    const uint32_t wrong = GetParam() < MX_FORMAT_FMP4 ? 1 : 3;
    EXPECT_EQ(MX_SetParam(handle.get(), wrong, &param, 96), 0u);
    uint32_t size = 96;
    EXPECT_EQ(MX_GetParam(handle.get(), wrong, &param, &size), 0u);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(MX_GetParam(handle.get(), 0, nullptr, &size), 3u);
    EXPECT_EQ(MX_GetParam(handle.get(), 0, &param, nullptr), 3u);
    if (GetParam() == MX_FORMAT_RTP) return;
    EXPECT_EQ(MX_SetParam(handle.get(), 0, &param, 96), 0u);
    EXPECT_EQ(MX_SetParam(handle.get(), 0, &param, 0), 0u);
    size = 96;
    EXPECT_EQ(MX_GetParam(handle.get(), 0, &param, &size), 0u);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(param.rtp_ssrc, 5u);
}

TEST(RtpParam, ARecordThatIsTooSmallIsRefused) {
    Sink sink;
    const Handle handle = Create(MX_FORMAT_RTP, sink);
    MXRtpParam param{};
    param.rtp_ssrc = 5;
    EXPECT_EQ(MX_SetParam(handle.get(), 0, &param, 96), 0u);
    param.rtp_ssrc = 6;
    EXPECT_EQ(MX_SetParam(handle.get(), 0, &param, 95), 3u);
    // Another type has no effect.
    EXPECT_EQ(MX_SetParam(handle.get(), 1, &param, 96), 0u);
    uint32_t size = 95;
    EXPECT_EQ(MX_GetParam(handle.get(), 0, &param, &size), 3u);
    EXPECT_EQ(size, 95u);
    EXPECT_EQ(param.rtp_ssrc, 6u);
    size = 1000;
    EXPECT_EQ(MX_GetParam(handle.get(), 0, &param, &size), 0u);
    EXPECT_EQ(size, 96u);
    EXPECT_EQ(param.rtp_ssrc, 5u);
}

TEST_P(EveryFormat, CapacityTablesNameWhatTheFormatTakes) {
    const void* table = nullptr;
    uint32_t count = 77;
    EXPECT_EQ(MX_GetPacketCapacity(handle.get(), 2, &table, &count), 3u);
    EXPECT_EQ(table, nullptr);
    EXPECT_EQ(count, 77u);
    EXPECT_EQ(MX_GetPacketCapacity(handle.get(), 0, nullptr, &count), 3u);
    EXPECT_EQ(MX_GetPacketCapacity(handle.get(), 0, &table, nullptr), 3u);

    struct Expected {
        std::vector<uint32_t> video, audio;
    };
    const auto expected = [&]() -> Expected {
        switch (GetParam()) {
            case 3:
            case 19:
                return {{4, 1, 12, 3, 9, 35}, {14, 22, 26, 31, 7}};
            case 1:
            case 5:
                return {{4, 1, 3}, {14, 22, 26, 16, 10}};
            case 2:
                return {{4, 1, 12, 3}, {14, 22, 26, 16, 10}};
            case 4:
            case 8:
                return {{4}, {26, 7, 16}};
            case 13:
                return {{4, 1}, {26}};
            case 0:
            case 6:
            case 12:
            case 14:
            case 15:
                return {{4, 1, 12, 3}, {26, 31}};
            case 9:
                return {{4, 12, 1, 3}, {14, 22, 26, 31, 7}};
            case 16:
                return {{}, {14, 16}};
            case 11:
                return {{4, 1, 12, 9}, {26, 31}};
            case 17:
                return {{4, 1, 12, 3, 9}, {26, 31}};
            case 18:
                return {{4, 1, 12}, {14, 25, 8}};
            case 20:
                return {{4, 1}, {14, 22}};
            case 10:
                return {{4, 1, 12, 9}, {14, 22, 26, 31}};
            case MX_FORMAT_XFLV:
                return {{4, 12}, {26, 31, 14, 22, 7, 16}};
            case MX_FORMAT_FMP4:
            case MX_FORMAT_HMP4:
                return {{2, 4, 12, 1, 3, 9}, {26, 31, 14, 22, 16, 7}};
            case MX_FORMAT_XMKV:
                return {{4, 12, 1, 3}, {26, 31, 14, 22, 7, 16}};
            case MX_FORMAT_XTS:
                return {{4, 12, 1, 9}, {26, 31}};
            default:
                return {};
        }
    }();
    for (const uint32_t type : {0u, 1u}) {
        ASSERT_EQ(MX_GetPacketCapacity(handle.get(), type, &table, &count), 0u);
        const std::vector<uint32_t>& codecs = type == 0 ? expected.video : expected.audio;
        ASSERT_EQ(count, codecs.size());
        const auto* entries = static_cast<const MXCapacityEntry*>(table);
        for (size_t i = 0; i < codecs.size(); ++i) {
            EXPECT_EQ(entries[i].codec, codecs[i]) << "entry " << i;
            // Any rate, width and channels, but for the PCM of FLV and the audio of GAYS.
            const bool flv = GetParam() == MX_FORMAT_FLV || GetParam() == MX_FORMAT_FLV_STREAM;
            const bool flv_pcm = flv && type == 1 && codecs[i] != 26;
            const bool gays = GetParam() == MX_FORMAT_PS_GAYS && type == 1;
            EXPECT_EQ(entries[i].samples_per_sec, flv_pcm ? 11000u : gays ? 8000u : 0u) << "entry " << i;
            EXPECT_EQ(entries[i].bits_per_sample, flv_pcm ? 8u : 0u) << "entry " << i;
            EXPECT_EQ(entries[i].channels, flv_pcm || gays ? 1u : 0u) << "entry " << i;
            for (const uint32_t reserved : entries[i].reserved)
                EXPECT_EQ(reserved, 0u);
        }
    }
}

TEST_P(EveryFormat, BackupOfNothing) {
    ASSERT_EQ(Start(), 0u);
    MXOutputBlock block;
    std::memset(&block, 0x5A, sizeof block);
    const uint32_t format = GetParam();
    const bool iso = format == 0 || format == 6 || format == 12 || format == 14 || format == 15;
    EXPECT_EQ(MX_GetBackup(handle.get(), nullptr), 0u);
    if (iso) {
        EXPECT_EQ(MX_GetBackup(handle.get(), &block), 116u);  // moov with mvhd alone
        EXPECT_EQ(block.length, 116u);
        return;
    }
    EXPECT_EQ(MX_GetBackup(handle.get(), &block), 0u);
    const bool left_alone =
        format == 13 || format == 16 || format == 11 || format == 17 || format == 18 || format == 20;
    EXPECT_EQ(block.length, left_alone ? 0x5A5A5A5Au : 0u);
    EXPECT_EQ(block.seek_type, left_alone ? 0x5A5A5A5Au : 0u);
    EXPECT_EQ(block.offset32, left_alone ? 0x5A5A5A5Au : 0u);
    EXPECT_EQ(block.data == nullptr, !left_alone);
    EXPECT_EQ(block.offset, 0x5A5A5A5A5A5A5A5A);
}

TEST_P(EveryFormat, CallsInAnyOrderAreSafe) {
    ByteVector data =
        test::Bytes("00 00 00 01 67 64 00 28 AC  00 00 00 01 68 EE 3C  00 00 00 01 65 88 84 00 11 22 33 44 00");
    ByteVector sound = test::Bytes("FF F1 4C 80 01 7F FC 11 22 33 44 00");
    const auto frames = [&] {
        ByteVector copy = data;
        MXFrameInfo video = test::VideoFrame(copy, MX_VIDEO_H264, MX_SUB_I, 40);
        video.frame_size -= 1;
        MX_InputFrame(handle.get(), &video);
        MXFrameInfo audio = test::AudioFrame(sound, MX_AUDIO_AAC, 40);
        audio.frame_size -= 1;
        MX_InputFrame(handle.get(), &audio);
    };
    frames();
    MX_CreateTailer(handle.get(), nullptr);
    frames();
    Start();
    frames();
    Start();
    frames();
    MX_CreateTailer(handle.get(), nullptr);
    frames();
    MX_CreateTailer(handle.get(), nullptr);
}

TEST(Allocators, ServeTheLargeBuffersAsAPair) {
    static int64_t balance;
    static uint32_t largest;
    balance = 0;
    largest = 0;
    MXCreateParam param{};
    param.alloc = [](int32_t size) -> void* {
        balance += size;
        largest = std::max(largest, static_cast<uint32_t>(size));
        return std::malloc(static_cast<size_t>(size));
    };
    param.free = [](void* buffer, uint32_t size) {
        if (buffer != nullptr) balance -= size;
        std::free(buffer);
    };
    for (const uint32_t format : kCreatable) {
        largest = 0;
        Handle handle(MX_CreateHandle(format, &param));
        ASSERT_NE(handle, nullptr);
        const bool two = format == 1 || format == 5 || format == 4 || format == 8 || format == 13;
        EXPECT_EQ(largest, two ? 0x200000u : format == MX_FORMAT_TS ? 0x300000u : 0u) << format;
        handle.reset();
        EXPECT_EQ(balance, 0) << format;
    }
}

TEST(Allocators, ThatHaveNoMemoryNeverCrash) {
    MXCreateParam param{};
    param.alloc = [](int32_t) -> void* { return nullptr; };
    param.free = [](void* buffer, uint32_t) { EXPECT_EQ(buffer, nullptr); };
    for (const uint32_t format : kCreatable) {
        const Handle handle(MX_CreateHandle(format, &param));
        if (handle == nullptr) continue;
        MXHeaderInfo info{};
        MX_CreateHeader(handle.get(), &info);
        ByteVector data = test::Bytes("00 00 00 01 67 64 00 28 AC  00 00 00 01 65 88 84 00 11 22 33 44 00");
        for (uint32_t time = 40; time < 200; time += 40) {
            ByteVector copy = data;
            MXFrameInfo video = test::VideoFrame(copy, MX_VIDEO_H264, MX_SUB_I, time);
            video.frame_size -= 1;
            MX_InputFrame(handle.get(), &video);
            MXFrameInfo audio = test::AudioFrame(copy, MX_AUDIO_AAC, time);
            MX_InputFrame(handle.get(), &audio);
        }
        MX_CreateTailer(handle.get(), nullptr);
    }
}

TEST(CreateParam, NullMembersKeepTheirDefaults) {
    // Only `output` is given: frames arrive with a null user value, and the allocator still works.
    static int blocks;
    blocks = 0;
    MXCreateParam param{};
    param.output = [](const MXOutputBlock*, void* user) -> int32_t {
        EXPECT_EQ(user, nullptr);
        ++blocks;
        return 0;
    };
    const Handle handle(MX_CreateHandle(MX_FORMAT_WAV, &param));
    EXPECT_EQ(MX_CreateHeader(handle.get(), nullptr), 0u);
    EXPECT_EQ(blocks, 1);
    // And without any record the output is dropped.
    const Handle silent(MX_CreateHandle(MX_FORMAT_WAV, nullptr));
    EXPECT_EQ(MX_CreateHeader(silent.get(), nullptr), 0u);
    EXPECT_EQ(blocks, 1);
}

TEST(OutputBlock, IsFilledInOneWay) {
    static MXOutputBlock seen;
    MXCreateParam param{};
    param.output = [](const MXOutputBlock* block, void*) -> int32_t {
        seen = *block;
        return 0;
    };
    const Handle wav(MX_CreateHandle(MX_FORMAT_WAV, &param));
    MX_CreateHeader(wav.get(), nullptr);
    EXPECT_EQ(seen.size, 32u);
    EXPECT_EQ(seen.length, 44u);
    EXPECT_EQ(seen.seek_type, 0u);
    EXPECT_EQ(seen.offset, 0);

    const Handle ovx(MX_CreateHandle(MX_FORMAT_OVX, &param));
    MXHeaderInfo info{};
    ASSERT_EQ(MX_CreateHeader(ovx.get(), &info), 0u);
    ByteVector data(100);
    for (int i = 0; i < 2; ++i) {
        MXFrameInfo frame = test::VideoFrame(data, MX_VIDEO_H264, MX_SUB_I);
        ASSERT_EQ(MX_InputFrame(ovx.get(), &frame), 0u);
        EXPECT_EQ(seen.size, 32u);
        EXPECT_EQ(seen.seek_type, 1u);
        EXPECT_EQ(seen.offset, 0);
        EXPECT_EQ(seen.offset32, 0u);
    }
}

TEST(Ovx, EmptyAudioCodecIsRefusedAndTheTailIsEmpty) {
    Sink sink;
    const Handle handle = Create(MX_FORMAT_OVX, sink);
    EXPECT_EQ(MX_CreateHeader(handle.get(), nullptr), 3u);
    MXHeaderInfo info{};
    EXPECT_EQ(MX_CreateHeader(handle.get(), &info), 0u);
    ByteVector data{1, 2, 3};
    MXFrameInfo frame = test::AudioFrame(data, 0);
    EXPECT_EQ(MX_InputFrame(handle.get(), &frame), 5u);
    EXPECT_EQ(MX_CreateTailer(handle.get(), nullptr), 0u);
    EXPECT_TRUE(sink.blocks.empty());
}

TEST(Wav, TakesNothingAheadOfItsHeader) {
    Sink sink;
    const Handle handle = Create(MX_FORMAT_WAV, sink);
    ByteVector data{1, 2, 3, 4};
    MXFrameInfo frame = test::AudioFrame(data, MX_AUDIO_PCM16);
    EXPECT_EQ(MX_InputFrame(handle.get(), &frame), 3u);
    EXPECT_EQ(MX_CreateTailer(handle.get(), nullptr), 3u);
    EXPECT_TRUE(sink.blocks.empty());
}

}  // namespace
