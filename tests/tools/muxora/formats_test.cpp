// muxora formats, and what the tool says to wrong usage.
#include <gtest/gtest.h>

#include <sstream>

#include "tool.h"

namespace {

using test::Contains;
using test::Muxora;

TEST(Formats, TheTableHasEveryFormat) {
    const auto run = Muxora({"formats"});
    EXPECT_EQ(run.exit_code, 0);
    EXPECT_EQ(run.err, "");
    std::istringstream lines(run.out);
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(line.substr(0, 3), "No ");
    std::vector<std::string> rows;
    while (std::getline(lines, line)) {
        std::string number;
        std::string key;
        std::istringstream(line) >> number >> key;
        rows.push_back(number + " " + key);
    }
    const std::vector<std::string> expected{
        "0 mp4",      "1 asf",       "2 avi",      "3 ovx",      "4 flv",     "5 asfstream",  "6 mov",
        "7 3gp",      "8 flvstream", "9 rtp",      "10 ts",      "11 ps",     "12 mp4noseek", "13 mkv",
        "14 mp464",   "15 mov64",    "16 wav",     "17 ovps",    "18 gaysps", "19 ovxalt",    "20 gdps",
        "65536 fmp4", "65537 hmp4",  "65538 xmkv", "65539 xflv", "65540 xts"};
    EXPECT_EQ(rows, expected);
}

TEST(Formats, CodecsComeFromTheLibrary) {
    const std::string json = Muxora({"formats", "--json"}).out;
    EXPECT_TRUE(Contains(json, R"({"number":0,"key":"mp4","extensions":"","kind":"file","seeks":true,)"
                               R"("video":[{"number":4,"name":"H.264"},{"number":1,"name":"MPEG-4"},)"
                               R"({"number":12,"name":"H.265"},{"number":3,"name":"MJPEG"}],)"
                               R"("audio":[{"number":26,"name":"AAC"},{"number":31,"name":"MPEG audio"}])"));
    EXPECT_TRUE(Contains(json, R"("key":"xts","extensions":"ts m2ts mts","kind":"stream","seeks":false)"));
    EXPECT_TRUE(Contains(json, R"({"number":7,"name":"PCM 8 bit","samples_per_sec":11000,"bits_per_sample":8)"));
}

TEST(Usage, EachCommandHasHelpWithAnExample) {
    for (const std::string command : {"formats", "pack", "repair", "inspect", "unpack", "send"}) {
        const auto run = Muxora({command, "--help"});
        EXPECT_EQ(run.exit_code, 0) << command;
        EXPECT_TRUE(Contains(run.out, "Example")) << command;
        EXPECT_TRUE(Contains(run.out, "muxora " + command)) << command;
    }
    EXPECT_TRUE(Contains(Muxora({"--version"}).out, "[version] KMPT 20"));
}

TEST(Usage, WrongUsageIsOneLineAndTwo) {
    const std::string clip = test::MakeClip({});
    const std::vector<std::vector<std::string>> wrong{
        {},
        {"frobnicate"},
        {"pack"},
        {"pack", clip},
        {"pack", clip, "-o", "x.unknown"},
        {"pack", clip, "-o", "x", "-f", "nothing"},
        {"pack", clip, "-o", "-", "-f", "mp4"},
        {"pack", clip, "-o", "-", "-f", "mp4noseek", "--reserve", "1000"},
        {"pack", clip, "-o", "x.mkv", "-f", "mkv", "--backup", "1"},
        {"pack", clip, "-o", "x.ts", "--reserve", "100"},
        {"pack", clip, "-o", "x.mp4", "--key", "00", "--encrypt", "0:16"},
        {"pack", clip, "-o", "x.ovx", "--key", "00112233445566778899aabbccddeeff"},
        {"pack", clip, "-o", "x.ovx", "--key", "0011", "--encrypt", "0:16"},
        {"pack", clip, "-o", "x.ovx", "--key", "zz", "--encrypt", "0:16"},
        {"pack", clip, "-o", "x.ovx", "--key", "00112233445566778899aabbccddeeff", "--encrypt", "16"},
        {"pack", clip, "-o", clip},
        {"pack", clip, "-o", "x.ts", "--fps", "0"},
        {"pack", clip, "-o", "x.ts", "--video", "0", "--no-video"},
        {"repair"},
        {"send", clip},
        {"send", clip, "--to", "127.0.0.1:5004"},
        {"send", clip, "--to", "rtp://127.0.0.1:5005"},
        {"send", clip, "--to", "rtp://127.0.0.1:banana"},
    };
    for (const auto& words : wrong) {
        const auto run = Muxora(words);
        std::string line;
        for (const std::string& word : words)
            line += word + " ";
        EXPECT_EQ(run.exit_code, 2) << line << run.err;
        EXPECT_TRUE(test::IsOneLine(run.err)) << line << run.err;
        EXPECT_EQ(run.out, "") << line;
    }
    EXPECT_FALSE(std::filesystem::exists("x.ts"));
}

}  // namespace
