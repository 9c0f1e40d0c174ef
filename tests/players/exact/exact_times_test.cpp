// Every packet of real encodes keeps its times through the formats with exact times: ffprobe lists what the source's
// file says, rounded to the scale of the format and nothing else.
#include <gtest/gtest.h>

extern "C" {
#include <libavutil/mathematics.h>
}

#include <algorithm>
#include <fstream>

#include "exact/exact_clip.h"
#include "exact/exact_formats.h"
#include "support/clip.h"

namespace {

using test::ExactFormat;
using test::ExactFrame;
using test::PacketList;

// To the nearest, halves up: below 0 the libav function rounds halves down, so it is asked above.
int64_t Rounded(int64_t ticks, uint32_t scale, const PacketList& list) {
    constexpr int64_t kSeconds = 1000;
    const int64_t up = av_rescale_rnd(ticks + kSeconds * scale, list.scale_den,
                                      static_cast<int64_t>(scale) * list.scale_num, AV_ROUND_NEAR_INF);
    return up - kSeconds * list.scale_den / list.scale_num;
}

// One encode through every format.
class ExactTimes : public testing::TestWithParam<std::string> {};

void ExpectTimes(const ExactFormat& format, const std::vector<ExactFrame>& frames, const PacketList& list, bool video) {
    std::vector<ExactFrame> expected;
    std::copy_if(frames.begin(), frames.end(), std::back_inserter(expected),
                 [=](const ExactFrame& frame) { return frame.IsVideo() == video; });
    ASSERT_EQ(list.packets.size(), expected.size());
    const int64_t offset = format.offset_seconds * list.scale_den / list.scale_num;
    for (size_t i = 0; i < expected.size(); ++i) {
        const ExactFrame& frame = expected[i];
        const auto& packet = list.packets[i];
        ASSERT_EQ(packet.pts - offset, Rounded(frame.pts, frame.scale, list)) << "packet " << i;
        if (format.lists_dts) {
            ASSERT_EQ(packet.dts - offset, Rounded(frame.dts, frame.scale, list)) << "packet " << i;
        }
        if (format.lists_durations) {
            const int64_t wanted =
                Rounded(frame.dts + frame.duration, frame.scale, list) - Rounded(frame.dts, frame.scale, list);
            // ffprobe asks the header of MPEG audio, which does not know that the last frame was cut short.
            const bool cut = frame.info.encode_type == MX_AUDIO_MPEG && i + 1 == expected.size();
            ASSERT_LE(std::abs(packet.duration - wanted), cut ? packet.duration : format.duration_slack)
                << "packet " << i;
        }
        if (video && format.lists_keys) {
            ASSERT_EQ(packet.key, frame.IsKey()) << "packet " << i;
        }
    }
}

void Check(const ExactFormat& format, const std::vector<ExactFrame>& frames, const std::string& name) {
    const std::string path = test::WorkPath(name + "." + format.extension);
    const auto result = test::PackExact(format.number, frames, path);
    const auto foreign = std::count_if(frames.begin(), frames.end(), [&](const auto& f) { return !format.takes(f); });
    ASSERT_EQ(result.refused, foreign);
    const MXTimeRepairs& repairs = result.repairs;
    EXPECT_EQ(repairs.video_not_rising + repairs.video_jumps + repairs.video_early_pictures + repairs.audio_not_rising +
                  repairs.audio_jumps + repairs.audio_early_frames,
              0u);
    for (const bool video : {true, false}) {
        const bool has = std::any_of(frames.begin(), frames.end(),
                                     [&](const auto& f) { return f.IsVideo() == video && format.takes(f); });
        if (!has || (video && !std::all_of(frames.begin(), frames.end(), format.lists))) continue;
        ExpectTimes(format, frames, test::ListPackets(path, video ? "v:0" : "a:0"), video);
    }
}

TEST_P(ExactTimes, AreTheSources) {
    const auto frames = test::ReadExact(test::MakeEncode(test::EncodeNamed(GetParam())));
    for (const ExactFormat& format : test::ExactFormats()) {
        SCOPED_TRACE(format.key);
        Check(format, frames, GetParam());
    }
}

std::vector<std::string> EncodeNames() {
    std::vector<std::string> names;
    for (const auto& encode : test::Encodes())
        names.emplace_back(encode.name);
    return names;
}

INSTANTIATE_TEST_SUITE_P(All, ExactTimes, testing::ValuesIn(EncodeNames()), [](const auto& row) { return row.param; });

}  // namespace
