// fmp4 when memory runs out in the middle of a frame: what has gone out stays right, and what could not go out follows.
#include <gtest/gtest.h>

#include "exact/fmp4_packet.h"
#include "support/allocation_counter.h"
#include "support/frames.h"
#include "support/parameter_sets.h"
#include "support/quiet_file.h"

namespace Orvane::Muxora {
namespace {

using test::Adts;
using test::Bytes;
using test::ByteVector;
using test::operator+;

constexpr uint64_t kNever = UINT64_MAX - 1;
constexpr uint64_t kPoints = 40;  // more allocations than any frame takes

// A stream of one track, of which one call has an allocation that fails.
class Stream {
  public:
    Stream(uint32_t mode, uint32_t tracks) {
        EXPECT_EQ(package_.SetFragmentParam({sizeof(MXFragmentParam), mode, 0, tracks, 0, 0}), 0u);
        EXPECT_EQ(package_.init(), 0u);
        EXPECT_EQ(package_.createHeader(nullptr, 0), 0u);
    }
    uint32_t Give(ByteVector bytes, bool video, int64_t time, int64_t duration, uint64_t failing = kNever,
                  uint32_t sub_type = MX_SUB_I) {
        MXFrameInfo frame =
            video ? test::VideoFrame(bytes, MX_VIDEO_H264, sub_type) : test::AudioFrame(bytes, MX_AUDIO_AAC);
        MXSetFrameTimes(&frame, video ? 90000 : 48000, time, time, duration);
        const test::FailingAllocations allocations(failing, 1);
        return package_.inputFrame(&frame, 0);
    }
    void Close() { EXPECT_EQ(package_.createTailer(nullptr, 0), 0u); }
    const ByteVector& Bytes() const { return file_.bytes; }

  private:
    test::QuietFile file_;
    MXCreateParam param_ = file_.Param();
    CFmp4Packet package_{MX_FORMAT_FMP4, &param_};
};

ByteVector Key(const ByteVector& sps, const ByteVector& pps) {
    return test::Units({sps, pps, Bytes("65 88") + ByteVector(20, 0x55)});
}

// The fragment must not end for a frame that is then not there.
TEST(Fmp4Memory, AFrameWithOtherParameterSetsLeavesNoTrace) {
    const ByteVector first = Key(test::HighSps(), test::HighPps());
    const ByteVector other = Key(test::BaselineSps(), test::BaselinePps());
    bool missing = false;
    for (uint64_t failing = 0; failing < kPoints; ++failing) {
        Stream stream(MX_FRAGMENT_GOP, MX_TRACKS_VIDEO);
        ASSERT_EQ(stream.Give(first, true, 0, 3600), 0u);
        const ByteVector before = stream.Bytes();
        const uint32_t result = stream.Give(other, true, 3600, 3600, failing);
        if (result == MX_OK) continue;
        missing = true;
        EXPECT_EQ(result, uint32_t{MX_NO_RESOURCES});
        EXPECT_EQ(stream.Bytes(), before) << failing;
    }
    EXPECT_TRUE(missing);
}

// Chunks: a frame that could not go out with its own call goes with the next one.
TEST(Fmp4Memory, AChunkThatIsOwedGoesOutWithTheNextFrame) {
    const ByteVector two = Adts(ByteVector(700, 1)) + Adts(ByteVector(800, 2));
    for (const int64_t duration : {0, 2048}) {
        const auto record = [&](uint64_t failing) {
            Stream stream(MX_FRAGMENT_CHUNK, MX_TRACKS_AUDIO);
            for (int64_t i = 0; i < 3; ++i) {
                uint32_t result = stream.Give(two, false, i * 2048, duration, i == 0 ? failing : kNever);
                if (result == MX_NO_RESOURCES) result = stream.Give(two, false, i * 2048, duration);
                EXPECT_EQ(result, 0u);
            }
            stream.Close();
            return stream.Bytes();
        };
        // Every sample once, whatever chunks they stand in.
        const auto count = [](const ByteVector& bytes, size_t size, uint8_t fill) {
            const ByteVector sample(size, fill);
            size_t found = 0;
            for (auto at = bytes.begin();
                 (at = std::search(at, bytes.end(), sample.begin(), sample.end())) != bytes.end();
                 at += static_cast<std::ptrdiff_t>(size))
                ++found;
            return found;
        };
        for (uint64_t failing = 0; failing < kPoints; ++failing) {
            const ByteVector bytes = record(failing);
            EXPECT_EQ(count(bytes, 700, 1), 3u) << duration << ' ' << failing;
            EXPECT_EQ(count(bytes, 800, 2), 3u) << duration << ' ' << failing;
        }
    }
}

}  // namespace
}  // namespace Orvane::Muxora
