// Playlists out of what is no plain film: sound alone, a pipe, an encrypted recording.
#include <gtest/gtest.h>

#include "support/hex.h"
#include "tool.h"

namespace {

using test::Clip;
using test::Contains;
using test::Muxora;
using test::Pictures;
using test::WorkPath;

constexpr char kKey[] = "00112233445566778899aabbccddeeff";

// Of each frame of sound; ffprobe ends the line of one with side data with a comma and an empty line.
std::vector<int> Sizes(const std::string& path) {
    std::vector<int> sizes;
    std::istringstream lines(test::Probe(path, "a:0", "packet=size"));
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty()) sizes.push_back(std::stoi(line));
    }
    return sizes;
}

TEST(Presentation, OfSoundAlone) {
    test::ClipSpec spec;
    spec.video = "";
    spec.container = "mp4";
    const std::string sound = test::MakeClip(spec);
    const std::string folder = test::FreshDirectory("sound");
    for (const std::string& list : {folder + "/x.mpd", folder + "/x.m3u8"}) {
        const auto run = Muxora({"pack", sound, "-o", list, "--strict"});
        ASSERT_EQ(run.exit_code, 0) << run.err;
        EXPECT_GE(Sizes(list).size(), 93u);
        EXPECT_EQ(Sizes(list), Sizes(sound)) << list;
    }
}

TEST(Presentation, OutOfAPipe) {
    const std::string folder = test::FreshDirectory("piped");
    const auto run =
        test::Run({"sh", "-c", "cat " + Clip("mkv") + " | " MUXORA_TOOL " pack - -o " + folder + "/x.m3u8"});
    ASSERT_EQ(run.exit_code, 0) << run.err;
    EXPECT_EQ(Pictures(folder + "/x.m3u8"), Pictures(Clip("mkv")));
    EXPECT_EQ(Sizes(folder + "/x.m3u8"), Sizes(Clip("mkv")));
}

TEST(Presentation, OfAnEncryptedRecording) {
    const std::string ovx = WorkPath("secret.ovx");
    ASSERT_EQ(Muxora({"pack", Clip(), "-o", ovx, "--key", kKey, "--encrypt", "0:256"}).exit_code, 0);
    const std::string folder = test::FreshDirectory("decrypted");
    const auto closed = Muxora({"pack", ovx, "-o", folder + "/x.m3u8"});
    EXPECT_EQ(closed.exit_code, 1);
    EXPECT_TRUE(Contains(closed.err, "is encrypted; give its key")) << closed.err;
    EXPECT_TRUE(test::FilesIn(folder).empty());
    const auto open = Muxora({"pack", ovx, "-o", folder + "/x.m3u8", "--key", kKey});
    ASSERT_EQ(open.exit_code, 0) << open.err;
    EXPECT_EQ(Pictures(folder + "/x.m3u8"), Pictures(Clip()));
}

// What is told of B pictures depends on what the format states of times.
TEST(PackNotes, BPicturesInFormatsThatStateTheirTimes) {
    const char* const told = "the video has B pictures";
    for (const auto& [key, lost] :
         std::initializer_list<std::pair<const char*, bool>>{{"ovxalt", false}, {"rtp", false}, {"flv", true}}) {
        const auto run = Muxora({"pack", Clip("mp4", 2), "-o", WorkPath("notes.bin"), "-f", key});
        ASSERT_EQ(run.exit_code, 0) << run.err;
        EXPECT_EQ(Contains(run.out + run.err, told), lost) << key << run.out;
    }
}

// A byte changed inside a frame, and bytes of no unit between two.
TEST(Inspect, TellsWhatIsDamaged) {
    const std::string ovx = WorkPath("damaged.ovx");
    ASSERT_EQ(Muxora({"pack", Clip(), "-o", ovx}).exit_code, 0);
    auto bytes = test::ReadFile(ovx);
    const test::ByteVector tag = test::Bytes("4F 52 56 58");
    const auto second = std::search(bytes.begin() + 4, bytes.end(), tag.begin(), tag.end());
    ASSERT_NE(second, bytes.end());
    const auto place = second - bytes.begin();
    bytes[static_cast<size_t>(place) - 40] ^= 0x55;
    const test::ByteVector noise(16, 0x77);
    bytes.insert(bytes.begin() + place, noise.begin(), noise.end());
    test::WriteFile(ovx, bytes);
    const auto json = Muxora({"inspect", ovx, "--json", "--summary"});
    EXPECT_TRUE(Contains(json.out, "\"data_check\":\"wrong\"")) << json.out;
    EXPECT_TRUE(Contains(json.out, "\"unit\":false")) << json.out;
    EXPECT_FALSE(Contains(json.out, "\"data_check\":\"right\"")) << "intact ones are not listed";
    const auto table = Muxora({"inspect", ovx});
    EXPECT_TRUE(Contains(table.out, "WRONG")) << table.out;
    EXPECT_TRUE(Contains(table.out, "LOST: ")) << table.out;
}

}  // namespace
