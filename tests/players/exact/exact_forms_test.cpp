// The formats with exact times as other programs see them: streams without patches, an hour of 29.97 with 44.1 kHz,
// Matroska through mkvtoolnix, transport streams through an analyser.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "exact/exact_clip.h"
#include "exact/exact_formats.h"
#include "support/clip.h"
#include "support/decoded.h"
#include "support/process.h"

namespace {

using test::ExactFormat;
using test::ExactFrame;

std::vector<ExactFrame> Frames(const char* encode) {
    return test::ReadExact(test::MakeEncode(test::EncodeNamed(encode)));
}

class ExactForms : public testing::TestWithParam<ExactFormat> {
  protected:
    std::string Path(const std::string& name) const { return test::WorkPath(name + "." + GetParam().extension); }
};

std::string Name(const testing::TestParamInfo<ExactFormat>& info) {
    return info.param.key;
}

INSTANTIATE_TEST_SUITE_P(All, ExactForms, testing::ValuesIn(test::ExactFormats()), Name);

// A sink that cannot go back leaves the patches out; what it has lists and decodes as the file does.
TEST_P(ExactForms, AStreamHasTheTimesOfTheFile) {
    const auto frames = Frames("ntsc_2997");
    const std::string file = Path("as_file");
    const std::string stream = Path("as_stream");
    EXPECT_EQ(test::PackExact(GetParam().number, frames, file).refused, 0u);
    EXPECT_EQ(test::PackExact(GetParam().number, frames, stream, test::Sink::kForwardOnly).refused, 0u);
    for (const char* kind : {"v:0", "a:0"}) {
        const auto one = test::ListPackets(file, kind);
        const auto other = test::ListPackets(stream, kind);
        ASSERT_EQ(one.packets.size(), other.packets.size());
        for (size_t i = 0; i < one.packets.size(); ++i) {
            ASSERT_EQ(one.packets[i].pts, other.packets[i].pts) << kind << i;
            ASSERT_EQ(one.packets[i].size, other.packets[i].size) << kind << i;
        }
    }
}

TEST_P(ExactForms, EveryPictureDecodesAsTheSourceDoes) {
    const std::string source = test::MakeEncode(test::EncodeNamed("film_23976_open_gop"));
    const std::string path = Path("decoded");
    EXPECT_EQ(test::PackExact(GetParam().number, test::ReadExact(source), path).refused, 0u);
    const auto expected = test::DecodeVideo(source);
    const auto decoded = test::DecodeVideo(path);
    EXPECT_TRUE(decoded.ok) << decoded.errors;
    EXPECT_EQ(decoded.errors, "");
    EXPECT_EQ(decoded.Hashes(), expected.Hashes());
}

// Small pictures over and over, each with the time that 30000/1001 and 44100 give it.
TEST_P(ExactForms, AnHourEndsWithBothStreamsInPlace) {
    static const test::Encode kStill{"still_2997",
                                     "color=s=64x64:r=30000/1001:d=2",
                                     "anullsrc=r=44100:cl=mono:d=2",
                                     {"-c:v", "libx264", "-bf", "0", "-g", "30", "-c:a", "aac", "-b:a", "16k"}};
    const auto clip = test::ReadExact(test::MakeEncode(kStill));
    std::vector<const ExactFrame*> pictures;
    std::vector<const ExactFrame*> sounds;
    for (const ExactFrame& frame : clip)
        (frame.IsVideo() ? pictures : sounds).push_back(&frame);
    pictures.resize(30);
    const int64_t seconds = 3600;
    std::vector<ExactFrame> hour;
    int64_t picture = 0;
    int64_t sound = 0;
    while (picture * 1001 < seconds * 30000 || sound * 1024 < seconds * 44100) {
        const bool video = picture * 1001 * 44100 <= sound * 1024 * 30000;
        ExactFrame frame =
            video ? *pictures[static_cast<size_t>(picture % 30)] : *sounds[static_cast<size_t>(sound) % sounds.size()];
        frame.scale = video ? 30000 : 44100;
        frame.duration = video ? 1001 : 1024;
        frame.dts = frame.pts = (video ? picture++ : sound++) * frame.duration;
        hour.push_back(std::move(frame));
    }
    const std::string path = Path("hour");
    EXPECT_EQ(test::PackExact(GetParam().number, hour, path).refused, 0u);
    for (const bool video : {true, false}) {
        const auto list = test::ListPackets(path, video ? "v:0" : "a:0");
        ASSERT_EQ(list.packets.size(), static_cast<size_t>(video ? picture : sound));
        const double scale = static_cast<double>(list.scale_num) / static_cast<double>(list.scale_den);
        const double end =
            static_cast<double>(list.packets.back().pts) * scale - static_cast<double>(GetParam().offset_seconds);
        const double source =
            video ? static_cast<double>(picture - 1) * 1001 / 30000 : static_cast<double>(sound - 1) * 1024 / 44100;
        EXPECT_NEAR(end, source, 0.001);
        if (GetParam().lists_durations) {
            const double last = static_cast<double>(list.packets.back().duration) * scale;
            EXPECT_NEAR(end + last, source + (video ? 1001.0 / 30000 : 1024.0 / 44100), 0.001);
        }
        EXPECT_GT(source, 3599.9);
    }
}

// ------------------------------------------------------------------------------------------------- Matroska

class ExactMatroska : public testing::TestWithParam<const char*> {};
INSTANTIATE_TEST_SUITE_P(All, ExactMatroska,
                         testing::Values("film_23976_open_gop", "ntsc_2997", "deep_pyramid_50", "variable_rate",
                                         "hevc_23976", "part2_25", "sound_alone"),
                         [](const auto& row) { return std::string(row.param); });

TEST_P(ExactMatroska, GoesThroughMkvmergeWithoutAWarning) {
    for (const auto sink : {test::Sink::kFile, test::Sink::kForwardOnly}) {
        const std::string path = test::WorkPath(std::string(GetParam()) + "_mkvmerge.mkv");
        test::PackExact(MX_FORMAT_XMKV, Frames(GetParam()), path, sink);
        // Its exit code is 1 after a warning.
        const auto run = test::Run({"mkvmerge", "-o", path + ".out.mkv", path});
        EXPECT_EQ(run.exit_code, 0) << run.out;
        EXPECT_EQ(run.out.find("Warning"), std::string::npos) << run.out;
        const auto info = test::Run({"mkvinfo", "--all", path});
        EXPECT_EQ(info.exit_code, 0) << info.out;
        EXPECT_EQ(info.out.find("(Unknown element"), std::string::npos) << info.out;
        EXPECT_NE(info.out.find("Timestamp scale: 200000"), std::string::npos) << info.out.substr(0, 2000);
    }
}

TEST(ExactMatroskaHead, StatesShapeColourAndDuration) {
    const std::string path = test::WorkPath("described.mkv");
    auto frames = Frames("ntsc_2997");
    for (ExactFrame& frame : frames)
        frame.info.rotation_angle = 90;
    test::PackExact(MX_FORMAT_XMKV, frames, path);
    const auto info = test::Run({"mkvinfo", "--all", path});
    EXPECT_NE(info.out.find("Duration: 00:00:04.0"), std::string::npos) << info.out.substr(0, 3000);
    EXPECT_NE(info.out.find("Pixel width: 320"), std::string::npos);
    EXPECT_NE(info.out.find("Projection's roll rotation: -90"), std::string::npos) << info.out.substr(0, 3000);
    EXPECT_NE(info.out.find("Codec-inherent delay"), std::string::npos);
    EXPECT_NE(info.out.find("Cue point"), std::string::npos);
}

// ------------------------------------------------------------------------------------------ transport stream

class ExactTransport : public testing::TestWithParam<const char*> {};
INSTANTIATE_TEST_SUITE_P(All, ExactTransport,
                         testing::Values("film_23976_open_gop", "fast_5994", "variable_rate", "stereo_22050",
                                         "sound_alone", "hevc_open_25"),
                         [](const auto& row) { return std::string(row.param); });

TEST_P(ExactTransport, AnAnalyserFindsNothing) {
    const std::string path = test::WorkPath(std::string(GetParam()) + "_analysed.ts");
    test::PackExact(MX_FORMAT_XTS, Frames(GetParam()), path);
    const auto drops = test::Run({"tshark", "-r", path, "-Y", "mp2t.cc.drop || _ws.malformed || mp2t.tei == 1"});
    EXPECT_EQ(drops.exit_code, 0) << drops.err;
    EXPECT_EQ(drops.out, "");
    const auto clock = test::Run({"tshark", "-r", path, "-Y", "mp2t.af.pcr", "-T", "fields", "-e", "mp2t.af.pcr"});
    EXPECT_EQ(clock.exit_code, 0) << clock.err;
    std::istringstream lines(clock.out);
    uint64_t last = 0;
    size_t count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        const uint64_t ticks = std::stoull(line, nullptr, 0);  // of 27 MHz
        if (count != 0) {
            ASSERT_GT(ticks, last);
            ASSERT_LE(ticks - last, 27000000u / 25) << "PCR " << count;
        }
        last = ticks;
    }
    EXPECT_GT(count, 50u);
}

}  // namespace
