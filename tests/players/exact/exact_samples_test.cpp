// mp4box.js, which reads MP4 by code of its own, finds every sample of fmp4 and hmp4 where it lies, with its times.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "exact/exact_clip.h"
#include "exact/exact_formats.h"
#include "support/clip.h"
#include "support/process.h"

namespace {

using test::ExactFrame;
using Bytes = std::vector<uint8_t>;

struct Listed {
    uint32_t track = 0;
    uint32_t scale = 0;
    size_t offset = 0;
    size_t size = 0;
    int64_t dts = 0;
    int64_t cts = 0;
    int64_t duration = 0;
    bool sync = false;
};

std::vector<Listed> List(const std::string& text, uint32_t track) {
    std::vector<Listed> samples;
    std::istringstream lines(text);
    for (Listed one;
         lines >> one.track >> one.scale >> one.offset >> one.size >> one.dts >> one.cts >> one.duration >> one.sync;) {
        if (one.track == track) samples.push_back(one);
    }
    EXPECT_TRUE(lines.eof()) << text.substr(0, 500);
    return samples;
}

// A picture is its NAL units with lengths of four bytes ahead of them, and ends as the frame does; sound is what stands
// behind the ADTS header of seven bytes.
void ExpectBytes(const Bytes& file, const Listed& sample, const ExactFrame& frame) {
    ASSERT_LE(sample.offset + sample.size, file.size());
    const auto begin = file.begin() + static_cast<std::ptrdiff_t>(sample.offset);
    const Bytes own(begin, begin + static_cast<std::ptrdiff_t>(sample.size));
    if (!frame.IsVideo()) {
        EXPECT_EQ(own, Bytes(frame.bytes.begin() + 7, frame.bytes.end()));
        return;
    }
    size_t at = 0;
    size_t length = 0;
    while (at + 4 <= own.size()) {
        length = size_t{own[at]} << 24 | size_t{own[at + 1]} << 16 | size_t{own[at + 2]} << 8 | own[at + 3];
        at += 4 + length;
    }
    ASSERT_EQ(at, own.size());
    ASSERT_LE(length, frame.bytes.size());
    EXPECT_TRUE(std::equal(own.end() - static_cast<std::ptrdiff_t>(length), own.end(),
                           frame.bytes.end() - static_cast<std::ptrdiff_t>(length)));
}

struct Case {
    uint32_t format;
    const char* encode;
};

class ExactSamples : public testing::TestWithParam<Case> {};
INSTANTIATE_TEST_SUITE_P(All, ExactSamples,
                         testing::Values(Case{MX_FORMAT_FMP4, "film_23976_open_gop"},
                                         Case{MX_FORMAT_HMP4, "film_23976_open_gop"},
                                         Case{MX_FORMAT_FMP4, "variable_rate"}, Case{MX_FORMAT_HMP4, "variable_rate"},
                                         Case{MX_FORMAT_FMP4, "hevc_23976"}, Case{MX_FORMAT_HMP4, "hevc_23976"}),
                         [](const auto& row) {
                             return std::string(row.param.format == MX_FORMAT_FMP4 ? "fmp4_" : "hmp4_") +
                                    row.param.encode;
                         });

TEST_P(ExactSamples, AreWhereMp4BoxFindsThem) {
    ASSERT_TRUE(std::filesystem::exists(std::string(BROWSER_MODULES) + "/node_modules/mp4box"))
        << "scripts/setup.sh installs what this test needs";
    const auto frames = test::ReadExact(test::MakeEncode(test::EncodeNamed(GetParam().encode)));
    const std::string path = test::WorkPath("samples.mp4");
    ASSERT_EQ(test::PackExact(GetParam().format, frames, path).refused, 0u);
    const Bytes file = test::ReadFile(path);
    const auto run = test::Run({"node", SAMPLES_SCRIPT, BROWSER_MODULES, path});
    ASSERT_TRUE(run.Ok()) << run.err;
    for (const bool video : {true, false}) {
        SCOPED_TRACE(video ? "pictures" : "sound");
        std::vector<const ExactFrame*> expected;
        for (const ExactFrame& frame : frames) {
            if (frame.IsVideo() == video) expected.push_back(&frame);
        }
        const std::vector<Listed> samples = List(run.out, video ? 1 : 2);
        ASSERT_EQ(samples.size(), expected.size());
        ASSERT_FALSE(samples.empty());
        // Media times are not negative; an edit list takes the rest off again.
        const int64_t shift = std::max<int64_t>(-expected.front()->dts, 0);
        for (size_t i = 0; i < samples.size(); ++i) {
            SCOPED_TRACE(i);
            const Listed& sample = samples[i];
            const ExactFrame& frame = *expected[i];
            ASSERT_EQ(sample.scale, frame.scale);
            ASSERT_EQ(sample.dts, frame.dts + shift);
            ASSERT_EQ(sample.cts, frame.pts + shift);
            ASSERT_EQ(sample.sync, !video || frame.IsKey());
            if (i + 1 < samples.size()) {
                ASSERT_EQ(sample.duration, expected[i + 1]->dts - frame.dts);
            }
            ExpectBytes(file, sample, frame);
            if (HasFatalFailure()) return;
        }
    }
}

}  // namespace
