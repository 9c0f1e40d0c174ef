// The formats with exact times through the stream component.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "Muxora.h"
#include "MuxoraExt.h"
#include "support/frames.h"
#include "support/iso_frames.h"

namespace {

using Orvane::Muxora::AttributeMap;
using Orvane::Muxora::CMuxora;
using Orvane::Muxora::IMuxoraData;
using test::Bytes;
using test::ByteVector;
using test::operator+;

// The bytes of a packet last until the next frame: also those of an initialisation segment.
TEST(ExactStream, AnInitialisationSegmentLastsUntilTheNextFrame) {
    CMuxora stream("fmp4");
    const ByteVector adts = test::AdtsFrame(60);
    AttributeMap sound = {{"frametype", 65},     {"encodetype", 33}, {"samplespersec", 48000},
                          {"bitspersample", 16}, {"channels", 2},    {"timestamp", 1000}};
    Basalt::TSharedPtr<IMuxoraData> packet;
    // A second of sound without a picture: there will be one track.
    for (int i = 0; i < 100 && packet == nullptr; ++i) {
        ASSERT_TRUE(stream.inputFrame(adts.data(), static_cast<unsigned>(adts.size()), sound));
        stream.getPacket(packet);
        sound["timestamp"] += 21;
    }
    ASSERT_NE(packet, nullptr);
    // Whatever the library gave back of its memory is taken, and written over.
    std::vector<ByteVector> others(200, ByteVector(packet->getLen(), 0xEE));
    const auto* const bytes = reinterpret_cast<const uint8_t*>(packet->getBuffer());
    const ByteVector data(bytes, bytes + packet->getLen());
    ASSERT_GT(data.size(), 400u);
    EXPECT_EQ(test::Slice(data, 0, 32),
              Bytes("00 00 00 20") + test::Text("ftypiso6") + ByteVector(4) + test::Text("iso6mp41dashcmfc"));
    EXPECT_EQ(test::Slice(data, 36, 4), test::Text("moov"));
    const size_t moov = size_t{data[32]} << 24 | size_t{data[33]} << 16 | size_t{data[34]} << 8 | data[35];
    EXPECT_EQ(32 + moov, data.size());
}

// The picture that ends a segment does not get into the segment's bytes.
TEST(ExactStream, ASegmentLastsUntilTheNextFrame) {
    CMuxora stream("fmp4");
    Basalt::TSharedPtr<IMuxoraData> packet;
    for (uint8_t i = 0; i < 60; ++i) {
        ByteVector picture = i % 30 == 0 ? test::KeyFrameOfAnEncoder() : test::PFrame(i);
        picture.resize(3000, static_cast<uint8_t>(0x40 + i));
        const AttributeMap video = {{"frametype", 86},
                                    {"framesubtype", i % 30 == 0 ? 1 : 2},
                                    {"encodetype", 2},
                                    {"width", 1920},
                                    {"height", 1080},
                                    {"rate", 25},
                                    {"timestamp", 1000 + 40 * i}};
        ASSERT_TRUE(stream.inputFrame(picture.data(), static_cast<unsigned>(picture.size()), video));
        Basalt::TSharedPtr<IMuxoraData> next;
        if (stream.getPacket(next)) packet = next;
        if (i == 30) break;
    }
    ASSERT_NE(packet, nullptr);
    const auto* const bytes = reinterpret_cast<const uint8_t*>(packet->getBuffer());
    const ByteVector data(bytes, bytes + packet->getLen());
    ASSERT_GT(data.size(), 29u * 2900);
    const auto holds = [&](uint8_t byte) {
        const ByteVector run(2000, byte);
        return std::search(data.begin(), data.end(), run.begin(), run.end()) != data.end();
    };
    EXPECT_TRUE(holds(0x40));
    EXPECT_TRUE(holds(0x40 + 29));
    EXPECT_FALSE(holds(0x40 + 30));
}

struct Handle {
    explicit Handle(uint32_t format) {
        MXCreateParam param{};
        param.output = [](const MXOutputBlock*, void*) -> int32_t { return 0; };
        handle = MX_CreateHandle(format, &param);
    }
    ~Handle() { MX_DestroyHandle(handle); }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    uint32_t Set(const void* param, size_t size) const {
        return MX_SetParam(handle, MX_PARAM_FRAGMENT, static_cast<const MXRtpParam*>(param),
                           static_cast<uint32_t>(size));
    }
    MXHandle handle;
};

TEST(ExactParams, FragmentsAreAskedForBySizeAheadOfTheHeader) {
    const MXFragmentParam good{sizeof(MXFragmentParam), MX_FRAGMENT_DURATION, 500, MX_TRACKS_VIDEO, 0, 0};
    MXFragmentParam wrong = good;
    wrong.size = sizeof wrong - 1;
    for (const uint32_t format : {MX_FORMAT_FMP4, MX_FORMAT_HMP4}) {
        const Handle one(format);
        EXPECT_EQ(one.Set(&good, sizeof good - 1), uint32_t{MX_FAILED});
        EXPECT_EQ(one.Set(&wrong, sizeof wrong), uint32_t{MX_FAILED});
        EXPECT_EQ(one.Set(nullptr, sizeof good), uint32_t{MX_FAILED});
        EXPECT_EQ(one.Set(&good, sizeof good), uint32_t{MX_OK});
        MXHeaderInfo info{};
        ASSERT_EQ(MX_CreateHeader(one.handle, &info), uint32_t{MX_OK});
        EXPECT_EQ(one.Set(&good, sizeof good), uint32_t{MX_FAILED});
    }
    // The others have none: nothing is read.
    const Handle classic(MX_FORMAT_TS);
    EXPECT_EQ(classic.Set(&wrong, 1), uint32_t{MX_OK});
}

TEST(ExactParams, RepairsAreTold) {
    const Handle exact(MX_FORMAT_FMP4);
    MXHeaderInfo info{};
    ASSERT_EQ(MX_CreateHeader(exact.handle, &info), uint32_t{MX_OK});
    ByteVector adts = test::AdtsFrame(60);
    for (const int64_t time : {0, 1024, 1024}) {
        MXFrameInfo frame = test::AudioFrame(adts, MX_AUDIO_AAC, 0);
        MXSetFrameTimes(&frame, 48000, time, time, 1024);
        ASSERT_EQ(MX_InputFrame(exact.handle, &frame), uint32_t{MX_OK});
    }
    MXTimeRepairs repairs{};
    auto* const place = reinterpret_cast<MXRtpParam*>(&repairs);
    uint32_t size = sizeof repairs - 1;
    EXPECT_EQ(MX_GetParam(exact.handle, MX_PARAM_TIME_REPAIRS, place, &size), uint32_t{MX_FAILED});
    ASSERT_EQ(MXGetTimeRepairs(exact.handle, &repairs), uint32_t{MX_OK});
    EXPECT_EQ(repairs.size, 28u);
    EXPECT_EQ(repairs.audio_not_rising, 1u);
    EXPECT_EQ(repairs.audio_jumps, 0u);
    EXPECT_EQ(repairs.video_not_rising, 0u);
    const Handle classic(MX_FORMAT_TS);
    ASSERT_EQ(MXGetTimeRepairs(classic.handle, &repairs), uint32_t{MX_OK});
    EXPECT_EQ(repairs.size, 0u);
}

}  // namespace
