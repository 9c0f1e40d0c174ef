// OVX files through muxora inspect and muxora unpack: no other program reads them. What comes back is what went in, and
// plays.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "support/clip.h"
#include "support/decoded.h"
#include "support/hex.h"
#include "support/pack.h"
#include "support/process.h"

namespace {

using test::ByteVector;
using test::ClipSpec;
using test::MediaFrame;
using test::RunResult;

RunResult Muxora(std::vector<std::string> words) {
    words.insert(words.begin(), MUXORA_TOOL);
    return test::Run(words);
}

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// The bytes of one stream as they went into the library.
ByteVector Stream(const std::vector<MediaFrame>& frames, bool video) {
    ByteVector out;
    for (const MediaFrame& frame : frames) {
        if (frame.IsVideo() != video) continue;
        const auto end = frame.bytes.begin() + static_cast<std::ptrdiff_t>(frame.Size());
        out.insert(out.end(), frame.bytes.begin(), end);
    }
    return out;
}

struct Row {
    const char* video;
    const char* audio;
    const char* video_suffix;
    const char* audio_suffix;
};

class OvxCodecs : public testing::TestWithParam<Row> {};

TEST_P(OvxCodecs, ComeBackBitForBit) {
    ClipSpec spec;
    spec.video = GetParam().video;
    spec.audio = GetParam().audio;
    const auto frames = test::ClipFrames(spec);
    const std::string path = test::WorkPath(std::string(spec.video) + ".ovx");
    ASSERT_TRUE(test::PackFile(MX_FORMAT_OVX, frames, path).Ok());

    const RunResult inspected = Muxora({"inspect", path, "--summary"});
    EXPECT_EQ(inspected.exit_code, 0) << inspected.err;
    EXPECT_TRUE(Contains(inspected.out, "video: 50 units, sequence 1 to 50\n")) << inspected.out;
    EXPECT_TRUE(Contains(inspected.out, "all of them in intact units\n")) << inspected.out;

    const std::string prefix = test::WorkPath(std::string(spec.video) + "-unpacked");
    const RunResult unpacked = Muxora({"unpack", path, "-o", prefix});
    EXPECT_EQ(unpacked.exit_code, 0) << unpacked.err;
    const std::string video = prefix + "." + GetParam().video_suffix;
    EXPECT_EQ(test::ReadFile(video), Stream(frames, true));
    EXPECT_EQ(test::ReadFile(prefix + "." + GetParam().audio_suffix), Stream(frames, false));
    EXPECT_EQ(test::DecodeVideo(video).Hashes(), test::DecodeVideo(test::MakeClip(spec)).Hashes());
}

INSTANTIATE_TEST_SUITE_P(All, OvxCodecs,
                         testing::Values(Row{"h264", "aac", "h264", "aac"}, Row{"hevc", "mp2", "h265", "mpa"},
                                         Row{"mpeg4", "alaw", "m4v", "alaw"}, Row{"mpeg2video", "mulaw", "m2v", "ulaw"},
                                         Row{"mjpeg", "pcm", "mjpeg", "s16le"}),
                         [](const auto& row) { return std::string(row.param.video); });

class OvxTool : public testing::Test {
  protected:
    void SetUp() override {
        clip = test::MakeClip({});
        path = test::WorkPath("plain.ovx");
        ASSERT_TRUE(test::PackFile(MX_FORMAT_OVX, test::ClipFrames({}), path).Ok());
        bytes = test::ReadFile(path);
    }
    std::string Write(const std::string& name, const ByteVector& content) {
        const std::string file = test::WorkPath(name);
        test::WriteFile(file, content);
        return file;
    }
    // An empty directory, and what a failed command must leave in it: nothing.
    std::string Folder() {
        const std::string folder = test::WorkPath("folder");
        std::filesystem::remove_all(folder);
        std::filesystem::create_directories(folder);
        return folder;
    }

    std::string clip;
    std::string path;
    ByteVector bytes;
};

TEST_F(OvxTool, EncryptedFilesOpenWithTheirKey) {
    const std::string key = "000102030405060708090a0b0c0d0e0f1011121314151617";
    const std::string file = test::WorkPath("encrypted.ovx");
    ASSERT_EQ(Muxora({"pack", clip, "-o", file, "--key", key, "--encrypt", "16:700"}).exit_code, 0);
    const std::string folder = Folder();
    RunResult result = Muxora({"unpack", file, "-o", folder + "/out"});
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_TRUE(Contains(result.err, "is encrypted; give its key with --key-file FILE, --key HEX or MUXORA_KEY"))
        << result.err;
    EXPECT_TRUE(std::filesystem::is_empty(folder));
    result = Muxora({"unpack", file, "-o", folder + "/out", "--key", "0001"});
    EXPECT_EQ(result.exit_code, 2);
    EXPECT_TRUE(std::filesystem::is_empty(folder));
    result = Muxora({"unpack", file, "-o", folder + "/out", "--key", key, "--quiet"});
    EXPECT_EQ(result.exit_code, 0) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(test::ReadFile(folder + "/out.h264"), Stream(test::ClipFrames({}), true));
    EXPECT_EQ(test::ReadFile(folder + "/out.aac"), Stream(test::ClipFrames({}), false));
    // With another key the frames are others.
    result = Muxora({"unpack", file, "-o", folder + "/other", "--key", key.substr(16)});
    EXPECT_NE(test::ReadFile(folder + "/other.h264"), test::ReadFile(folder + "/out.h264"));
}

TEST_F(OvxTool, DamageIsToldToTheByte) {
    const auto length_at = [&](size_t at) { return bytes[at + 12] | bytes[at + 13] << 8 | bytes[at + 14] << 16; };
    const auto first = static_cast<size_t>(length_at(0));
    const auto second = static_cast<size_t>(length_at(first));
    ByteVector damaged = bytes;
    damaged[1] ^= 1;                    // the first unit's head
    damaged[first + second - 20] ^= 1;  // the second unit's frame
    damaged.resize(damaged.size() - 50);
    const std::string file = Write("damaged.ovx", damaged);
    RunResult result = Muxora({"inspect", file, "--summary"});
    EXPECT_EQ(result.exit_code, 1);
    char line[80];
    std::snprintf(line, sizeof line, "%12u %9zu  ", 0u, first);
    EXPECT_TRUE(Contains(result.out, line)) << result.out;
    EXPECT_TRUE(Contains(result.out, "a unit whose head is damaged; its frame is right")) << result.out;
    std::snprintf(line, sizeof line, "%12zu %9zu  ", first, second);
    EXPECT_TRUE(Contains(result.out, line)) << result.out;
    EXPECT_TRUE(Contains(result.out, "its data check is wrong")) << result.out;
    EXPECT_TRUE(Contains(result.out, "LOST: a unit of ")) << result.out;
    EXPECT_TRUE(Contains(result.err, "2 damaged units (" + std::to_string(first + second) + " bytes), 1 lost stretch"))
        << result.err;
    EXPECT_EQ(Muxora({"inspect", file}).exit_code, 1);

    const std::string folder = Folder();
    result = Muxora({"unpack", file, "-o", folder + "/out"});
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_TRUE(Contains(result.err, "every frame that is known to be right was written")) << result.err;
    EXPECT_TRUE(Contains(result.out, "out.aac: ")) << result.out;
}

TEST_F(OvxTool, JsonIsJson) {
    ByteVector damaged = bytes;
    damaged[1] ^= 1;
    const std::string file = Write("damaged.ovx", damaged);
    const RunResult result = Muxora({"inspect", file, "--json"});
    const std::string json = Write("damaged.json", test::Text(result.out));
    const std::string script =
        "import json, sys\n"
        "d = json.load(open(sys.argv[1]))\n"
        "p = d['pieces']\n"
        "assert all(a['offset'] + a['length'] == b['offset'] for a, b in zip(p, p[1:]))\n"
        "print(len(p), sum(x['intact'] for x in p), d['damaged_units'], d['bytes'], d['video']['units'])\n";
    const RunResult checked = test::Run({"python3", "-c", script, json});
    EXPECT_EQ(checked.err, "");
    const size_t units = test::ClipFrames({}).size();
    EXPECT_TRUE(Contains(checked.out, std::to_string(units) + " " + std::to_string(units - 1) + " 1 " +
                                          std::to_string(bytes.size()) + " "))
        << checked.out;
}

TEST_F(OvxTool, WhatCannotBeReadIsOneClearLine) {
    const std::string folder = Folder();
    struct Case {
        std::string file;
        const char* says;
    };
    const Case cases[] = {
        {test::WorkPath("nowhere.ovx"), "cannot open "},
        {folder, "Is a directory"},
        {Write("empty.ovx", {}), ""},
        {Write("text.ovx", test::Text("This is a text with ORVX in it.")), "OVX unit in it"},
        {clip, " is a Matroska file, and "},
    };
    for (const Case& bad : cases) {
        for (const RunResult& result :
             {Muxora({"inspect", bad.file}), Muxora({"unpack", bad.file, "-o", folder + "/out"})}) {
            EXPECT_EQ(result.exit_code, 1) << bad.file;
            EXPECT_EQ(result.err.rfind("muxora: ", 0), 0u) << result.err;
            EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
            EXPECT_TRUE(Contains(result.err, bad.says)) << result.err;
        }
    }
    EXPECT_EQ(Muxora({"inspect"}).exit_code, 2);
    EXPECT_EQ(Muxora({"unpack", path}).exit_code, 2);
    EXPECT_EQ(Muxora({"unpack", path, "-o", folder + "/nowhere/out"}).exit_code, 1);
    EXPECT_TRUE(std::filesystem::is_empty(folder));
    EXPECT_TRUE(Contains(Muxora({"inspect", "--help"}).out, "Example:"));
    EXPECT_TRUE(Contains(Muxora({"unpack", "--help"}).out, "Example:"));
}

}  // namespace
