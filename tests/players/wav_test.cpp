// WAV files in the hands of ffmpeg and mediainfo.
#include <gtest/gtest.h>

#include "support/clip.h"
#include "support/decoded.h"
#include "support/pack.h"
#include "support/process.h"

namespace {

using test::ClipSpec;

TEST(WavPlayers, EightKilohertzMonoPlaysAsItIs) {
    ClipSpec spec;
    spec.video = "";
    spec.audio = "pcm";
    spec.sample_rate = 8000;
    spec.container = "wav";
    const auto frames = test::ClipFrames(spec);
    ASSERT_EQ(frames.size(), 50u);
    const std::string path = test::WorkPath("mono.wav");
    const auto packed = test::PackFile(MX_FORMAT_WAV, frames, path);
    EXPECT_TRUE(packed.Ok());
    // The first frame is left out: 49 blocks of 320 samples.
    EXPECT_EQ(packed.size, 44u + 49 * 640);

    EXPECT_EQ(test::Probe(path, "a:0", "stream=codec_name,sample_rate,channels"), "pcm_s16le\n8000\n1");
    EXPECT_EQ(test::Probe(path, "a:0", "stream=duration"), "1.960000");
    std::vector<uint8_t> expected;
    for (size_t i = 1; i < frames.size(); ++i)
        expected.insert(expected.end(), frames[i].bytes.begin(), frames[i].bytes.end() - 64);
    const auto decoded = test::Run({"ffmpeg", "-v", "error", "-i", path, "-f", "s16le", "-"});
    EXPECT_EQ(decoded.err, "");
    EXPECT_EQ(decoded.out, std::string(expected.begin(), expected.end()));

    const auto info = test::Run({"mediainfo", "--Inform=Audio;%Format%,%SamplingRate%,%Channel(s)%,%Duration%", path});
    EXPECT_EQ(info.out, "PCM,8000,1,1960\n");
}

}  // namespace
