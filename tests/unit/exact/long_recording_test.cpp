// Hours in each of the formats with exact times: the last hour costs what the second one did, and holds no more.
#include <gtest/gtest.h>

#include "exact/fmp4_packet.h"
#include "exact/hmp4_packet.h"
#include "exact/xflv_packet.h"
#include "exact/xmkv_packet.h"
#include "exact/xts_packet.h"
#include "exact_stream.h"
#include "support/allocation_counter.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::operator+;

constexpr int64_t kRate = 25;
constexpr int64_t kGop = 50;
constexpr int64_t kFramesAnHour = kRate * 3600;

struct Format {
    const char* name;
    uint32_t number;
    std::unique_ptr<CPackage> (*make)(uint32_t number, const MXCreateParam* param);
    // What an index takes for an hour: bytes a picture with its sound, bytes a key frame, and bytes now and then.
    uint64_t bytes_a_picture;
    uint64_t bytes_a_key;
    uint64_t bytes_at_once;
};

template <typename Packager>
std::unique_ptr<CPackage> Make(uint32_t number, const MXCreateParam* param) {
    return std::make_unique<Packager>(number, param);
}

// What goes out, without keeping it.
struct Written {
    uint64_t blocks = 0;
    uint64_t bytes = 0;
};

struct Hour {
    uint64_t allocations = 0;
    uint64_t allocated = 0;  // bytes, those released again included
    Written written;
};

class LongRecording : public testing::TestWithParam<Format> {
  protected:
    void SetUp() override {
        MXCreateParam param{};
        param.user = &written_;
        param.output = [](const MXOutputBlock* block, void* user) {
            Written& to = *static_cast<Written*>(user);
            ++to.blocks;
            to.bytes += block->length;
            return int32_t{0};
        };
        package_ = GetParam().make(GetParam().number, &param);
        MXHeaderInfo info{};
        info.video_present = 1;
        info.video_encode_type = MX_VIDEO_H264;
        info.audio_present = 1;
        info.audio_encode_type = MX_AUDIO_AAC;
        info.samples_per_sec = 48000;
        package_->init();
        ASSERT_EQ(package_->createHeader(&info, 0), 0u);
    }

    // Pictures of 25 a second, each with a frame of sound behind it.
    void Play(int64_t count) {
        for (const int64_t end = picture_ + count; picture_ < end; ++picture_) {
            const bool is_key = picture_ % kGop == 0;
            MXFrameInfo video = test::VideoFrame(is_key ? key_ : inter_, MX_VIDEO_H264, is_key ? MX_SUB_I : MX_SUB_P);
            MXSetFrameTimes(&video, 90000, picture_ * 3600, picture_ * 3600, 3600);
            ASSERT_EQ(package_->inputFrame(&video, 0), 0u);
            MXFrameInfo audio = test::AudioFrame(sound_, MX_AUDIO_AAC);
            MXSetFrameTimes(&audio, 48000, picture_ * 1920, picture_ * 1920, 1920);
            ASSERT_EQ(package_->inputFrame(&audio, 0), 0u);
        }
    }
    Hour PlayHour() {
        const Written before = written_;
        const test::AllocationCounter counter;
        Play(kFramesAnHour);
        return {counter.Count(), counter.Bytes(), {written_.blocks - before.blocks, written_.bytes - before.bytes}};
    }

    std::unique_ptr<CPackage> package_;

  private:
    Written written_;
    int64_t picture_ = 0;
    ByteVector key_ = test::Units({test::HighSps(), test::HighPps(), Bytes("65 88") + ByteVector(60, 0x55)});
    ByteVector inter_ = test::Units({Bytes("41 9A") + ByteVector(20, 0x33)});
    ByteVector sound_ = test::Adts(ByteVector(16, 0x21));
};

// hmp4 remembers 16 bytes a sample at most and has two samples a picture. xmkv has a cue a key frame in a list that
// doubles; xflv an index of a fixed size. fmp4 and xts remember nothing.
INSTANTIATE_TEST_SUITE_P(All, LongRecording,
                         testing::Values(Format{"fmp4", MX_FORMAT_FMP4, Make<CFmp4Packet>, 0, 0, 0},
                                         Format{"hmp4", MX_FORMAT_HMP4, Make<CHmp4Packet>, 32, 0, 65536},
                                         Format{"xmkv", MX_FORMAT_XMKV, Make<CXmkvPacket>, 0, 48, 400000},
                                         Format{"xflv", MX_FORMAT_XFLV, Make<CXflvPacket>, 0, 0, 0},
                                         Format{"xts", MX_FORMAT_XTS, Make<CXtsPacket>, 0, 0, 0}),
                         [](const auto& row) { return std::string(row.param.name); });

// hmp4 alone takes memory for what it remembers; the room for the first cues of xmkv is there at once.
TEST_P(LongRecording, ASteadyStreamDoesNotAllocate) {
    if (GetParam().bytes_a_picture != 0) return;
    Play(10 * kGop);
    const test::AllocationCounter counter;
    Play(40 * kGop);
    EXPECT_EQ(counter.Count(), 0u);
}

TEST_P(LongRecording, TheLastHourCostsWhatTheSecondDid) {
    constexpr int kHours = 4;
    const Format& format = GetParam();
    Play(10 * kGop);
    Hour second;
    for (int hour = 1; hour <= kHours; ++hour) {
        SCOPED_TRACE(hour);
        const Hour now = PlayHour();
        EXPECT_LE(now.allocated, format.bytes_a_picture * kFramesAnHour + format.bytes_a_key * (kFramesAnHour / kGop) +
                                     format.bytes_at_once);
        // A block of an index at a time: never one a frame, nor one a fragment.
        EXPECT_LE(now.allocations, now.allocated / 4096 + 8);
        if (format.bytes_a_picture + format.bytes_a_key == 0) {
            EXPECT_EQ(now.allocations, 0u);
        }
        if (hour == 2) second = now;
        if (hour > 2) {
            EXPECT_EQ(now.written.blocks, second.written.blocks);
            EXPECT_LE(now.written.bytes, second.written.bytes + second.written.bytes / 1000);
            EXPECT_GE(now.written.bytes, second.written.bytes - second.written.bytes / 1000);
        }
    }
    EXPECT_EQ(package_->createTailer(nullptr, 0), 0u);
}

}  // namespace
}  // namespace Orvane::Muxora
