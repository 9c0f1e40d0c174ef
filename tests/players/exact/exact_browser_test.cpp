// The formats with exact times in headless Chromium, with the number of each picture painted into it: none is missing,
// none comes twice or too early, and every seek lands on the picture that is shown at that time.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <numeric>
#include <random>

#include "exact/exact_clip.h"
#include "exact/killed_recording.h"
#include "support/clip.h"
#include "support/process.h"

namespace {

using test::ExactFrame;

constexpr int kPictures = 72;
constexpr double kRate = 24000.0 / 1001;

// 23.976 with B pictures, a group of pictures a second; picture n holds n in ten squares along its top, the lowest bit
// first.
test::Encode Numbered(const char* name, const char* video_source, const char* audio_source) {
    return {name,
            video_source,
            audio_source,
            {"-vf", "geq=lum='if(lt(Y,64),16+219*mod(floor(N/pow(2,floor(X/32))),2),128)':cb=128:cr=128", "-c:v",
             "libx264", "-pix_fmt", "yuv420p", "-g", "24", "-c:a", "aac"}};
}

const test::Encode& ThreeSeconds() {
    static const test::Encode encode = Numbered("numbered", "color=s=320x128:r=24000/1001:d=3.003", "sine=r=44100:d=3");
    return encode;
}

const test::Encode& EightSeconds() {
    static const test::Encode encode =
        Numbered("numbered_long", "color=s=320x128:r=24000/1001:d=8.008", "sine=r=44100:d=8");
    return encode;
}

// The list of numbers behind a name in the script's line.
std::vector<int> Numbers(const std::string& line, const std::string& name, char end = ']') {
    std::vector<int> numbers;
    size_t at = line.find("\"" + name + "\":");
    if (at == std::string::npos) return numbers;
    at = line.find('[', at);
    const size_t stop = line.find(end, at);
    while (at < stop) {
        at = line.find_first_of("0123456789", at);
        if (at == std::string::npos || at >= stop) break;
        size_t used = 0;
        numbers.push_back(std::stoi(line.substr(at), &used));
        at += used;
    }
    return numbers;
}

enum class End { kClosed, kKilled, kRepaired };

struct Case {
    const char* key;
    uint32_t format;
    const char* extension;
    const char* how;
    End end = End::kClosed;
};

// A hybrid MP4 that was killed half way through the write of its last fragment.
void WriteKilled(const std::vector<ExactFrame>& frames, const std::string& path) {
    auto writes = test::HybridWrites(frames);
    while (!writes.empty() && writes.back().kind != MX_BLOCK_MEDIA)
        writes.pop_back();
    ASSERT_FALSE(writes.empty());
    writes.back().bytes.resize(writes.back().bytes.size() / 2);
    std::vector<uint8_t> file;
    for (const test::Written& write : writes) {
        file.resize(std::max(file.size(), static_cast<size_t>(write.offset) + write.bytes.size()));
        std::copy(write.bytes.begin(), write.bytes.end(), file.begin() + write.offset);
    }
    test::WriteFile(path, file);
}

// The pictures ahead of the last group of pictures.
int PicturesOfWholeFragments(const std::vector<ExactFrame>& frames) {
    int pictures = 0;
    int whole = 0;
    for (const ExactFrame& frame : frames) {
        if (frame.IsKey()) whole = pictures;
        if (frame.IsVideo()) ++pictures;
    }
    return whole;
}

class ExactBrowser : public testing::TestWithParam<Case> {};
INSTANTIATE_TEST_SUITE_P(
    All, ExactBrowser,
    testing::Values(Case{"fmp4", MX_FORMAT_FMP4, "fmp4.mp4", "mse"}, Case{"hmp4", MX_FORMAT_HMP4, "hmp4.mp4", "native"},
                    Case{"hmp4_killed", MX_FORMAT_HMP4, "killed.mp4", "native", End::kKilled},
                    Case{"hmp4_repaired", MX_FORMAT_HMP4, "repaired.mp4", "native", End::kRepaired},
                    Case{"xmkv", MX_FORMAT_XMKV, "mkv", "native"}, Case{"xflv", MX_FORMAT_XFLV, "flv", "flv"},
                    Case{"xts", MX_FORMAT_XTS, "ts", "mpegts"}),
    [](const auto& row) { return std::string(row.param.key); });

TEST_P(ExactBrowser, ShowsEveryPictureInItsPlace) {
    ASSERT_TRUE(std::filesystem::exists(std::string(BROWSER_MODULES) + "/node_modules/mpegts.js"))
        << "scripts/setup.sh installs what this test needs";
    const auto frames = test::ReadExact(test::MakeEncode(ThreeSeconds()));
    ASSERT_EQ(std::count_if(frames.begin(), frames.end(), [](const auto& f) { return f.IsVideo(); }), kPictures);
    const std::string path = test::WorkPath(std::string("numbered.") + GetParam().extension);
    int pictures = kPictures;
    if (GetParam().end == End::kClosed) {
        ASSERT_EQ(test::PackExact(GetParam().format, frames, path).refused, 0u);
    } else {
        pictures = PicturesOfWholeFragments(frames);
        ASSERT_GT(pictures, 20);
        WriteKilled(frames, path);
        if (GetParam().end == End::kRepaired) {
            const auto repair = test::Run({MUXORA_TOOL, "repair", path});
            ASSERT_TRUE(repair.Ok()) << repair.err;
        }
    }
    // mpegts.js lets its clock begin at the first decoding time.
    double first = 0;
    const std::string how = GetParam().how;
    if (how != "native" && how != "mse") {
        for (const ExactFrame& frame : frames)
            first = std::min(first, static_cast<double>(frame.dts) / frame.scale);
    }
    const auto run = test::Run({"node", NUMBERS_SCRIPT, BROWSER_MODULES, path, GetParam().how, std::to_string(kRate),
                                std::to_string(pictures), std::to_string(-first)},
                               240);
    ASSERT_TRUE(run.Ok()) << run.err;
    EXPECT_NE(run.out.find("\"errors\":[]"), std::string::npos) << run.out;

    const auto played = Numbers(run.out, "played");
    EXPECT_GT(played.size(), 20u) << run.out;
    EXPECT_TRUE(std::is_sorted(played.begin(), played.end())) << run.out;
    std::vector<int> all(static_cast<size_t>(pictures));
    std::iota(all.begin(), all.end(), 0);
    EXPECT_EQ(Numbers(run.out, "stepped"), all) << run.out;
    const size_t sought = run.out.find("\"sought\":");
    ASSERT_NE(sought, std::string::npos);
    const auto pairs = Numbers(run.out.substr(sought), "sought");
    ASSERT_EQ(pairs.size(), 40u) << run.out;
    for (size_t i = 0; i < pairs.size(); i += 2)
        EXPECT_EQ(pairs[i], pairs[i + 1]) << "wanted, got";
}

// One browser for all of them: each shows its first picture, one in the middle and its last.
TEST(ExactBrowserKilled, ShowsEveryWholeFragmentWheneverItWasKilled) {
    ASSERT_TRUE(std::filesystem::exists(std::string(BROWSER_MODULES) + "/node_modules/playwright-core"))
        << "scripts/setup.sh installs what this test needs";
    const auto frames = test::ReadExact(test::MakeEncode(EightSeconds()));
    ASSERT_GT(frames.size(), 400u);
    std::mt19937 random(20);
    std::string files;
    std::string counts;
    for (int i = 0; i < 20; ++i) {
        const std::string path = test::WorkPath("killed_" + std::to_string(i) + ".mp4");
        const auto most = static_cast<uint32_t>(frames.size()) - test::kRecorderAhead;
        test::RecordAndKill(frames, path, 120 + static_cast<uint32_t>(random() % (most - 120)));
        const uint64_t pictures = test::WholePictures(test::ReadFile(path));
        ASSERT_GE(pictures, 24u) << i;
        files += (i == 0 ? "" : ",") + path;
        counts += (i == 0 ? "" : ",") + std::to_string(pictures);
    }
    const auto run =
        test::Run({"node", NUMBERS_SCRIPT, BROWSER_MODULES, files, "killed", std::to_string(kRate), counts, "0"}, 400);
    ASSERT_TRUE(run.Ok()) << run.err;
    EXPECT_NE(run.out.find("\"errors\":[]"), std::string::npos) << run.out;
    const auto pairs = Numbers(run.out, "shown");
    ASSERT_EQ(pairs.size(), 120u) << run.out;
    for (size_t i = 0; i < pairs.size(); i += 2)
        EXPECT_EQ(pairs[i], pairs[i + 1]) << counts << ": wanted, got, of file " << i / 6;
}

}  // namespace
