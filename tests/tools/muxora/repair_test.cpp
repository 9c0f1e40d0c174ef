// A recording that is killed, and what muxora repair makes of it.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <memory>
#include <random>
#include <thread>

#include "support/hex.h"
#include "tool.h"

namespace {

namespace fs = std::filesystem;
using test::ClipSpec;
using test::Contains;
using test::FilesIn;
using test::Muxora;
using Clock = std::chrono::steady_clock;

std::string LongClip() {
    ClipSpec spec;
    spec.seconds = 8;
    spec.gop = 50;
    spec.container = "mp4";
    return test::MakeClip(spec);
}

struct Recording {
    std::string path;
    std::unique_ptr<test::Background> process;
    Clock::time_point start;
    double lived = 0;
};

Recording Start(const std::string& path, const std::string& key) {
    Recording recording{path, nullptr, {}, 0};
    recording.process = std::make_unique<test::Background>(std::vector<std::string>{
        MUXORA_TOOL, "pack", LongClip(), "-o", path, "-f", key, "--realtime", "--backup", "1"});
    // It lives from when there is something to lose.
    while (!fs::exists(path))
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    recording.start = Clock::now();
    return recording;
}

TEST(Repair, ARecordingKilledAtAnyMomentPlaysUpToASecondBefore) {
    const std::string folder = test::FreshDirectory("killed");
    LongClip();
    const std::vector<std::string> keys{"mp4", "mov", "mp464", "mov64", "mp4noseek"};
    std::mt19937 random(std::random_device{}());
    std::uniform_real_distribution<double> moment(0.5, 6.0);
    // Side by side: a recording in real time leaves the processor to the others.
    std::vector<std::pair<double, Recording>> recordings;
    for (int i = 0; i < 10; ++i) {
        const std::string key = keys[static_cast<size_t>(i) % keys.size()];
        recordings.emplace_back(moment(random), Start(folder + "/" + std::to_string(i) + "." + key, key));
    }
    std::sort(recordings.begin(), recordings.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    for (auto& [when, recording] : recordings) {
        std::this_thread::sleep_until(recording.start + std::chrono::duration<double>(when));
        recording.process->Signal(SIGKILL);
        recording.lived = std::chrono::duration<double>(Clock::now() - recording.start).count();
        EXPECT_EQ(recording.process->Wait(), 128 + SIGKILL);
    }
    const auto whole = test::Pictures(LongClip());
    ASSERT_EQ(whole.size(), 200u);
    for (const auto& [when, recording] : recordings) {
        const std::string about = recording.path + " after " + std::to_string(recording.lived) + " s";
        const auto run = Muxora({"repair", recording.path});
        ASSERT_EQ(run.exit_code, 0) << about << run.err;
        EXPECT_TRUE(Contains(run.out, "completed")) << about;
        const auto found = test::Pictures(recording.path);
        EXPECT_GE(static_cast<double>(found.size()) / 25, recording.lived - 1) << about;
        ASSERT_LE(found.size(), whole.size()) << about;
        EXPECT_TRUE(std::equal(found.begin(), found.end(), whole.begin())) << about;
        EXPECT_EQ(test::DecodeAudio(recording.path, {"-v", "error"}).errors, "") << about;
        EXPECT_FALSE(fs::exists(recording.path + ".snapshot"));
        // Once more does no harm.
        const auto again = Muxora({"repair", recording.path});
        EXPECT_EQ(again.exit_code, 0);
        EXPECT_TRUE(Contains(again.out, "is complete")) << again.out;
    }
    EXPECT_EQ(FilesIn(folder).size(), 10u);
}

TEST(Repair, AnExactFormPlaysAsItWasKilled) {
    const std::string folder = test::FreshDirectory("exact_killed");
    const auto whole = test::Pictures(LongClip());
    for (const std::string key : {"hmp4", "xmkv", "xts"}) {
        const Recording recording = Start(folder + "/x." + key, key);
        std::this_thread::sleep_until(recording.start + std::chrono::milliseconds(2500));
        recording.process->Signal(SIGKILL);
        EXPECT_EQ(recording.process->Wait(), 128 + SIGKILL);
        const auto found = test::DecodeVideo(recording.path).Hashes();
        // How far it came is the machine's matter; a busy one packs late.
        ASSERT_GE(found.size(), 10u) << recording.path;
        ASSERT_LE(found.size(), whole.size());
        // The last one may be a half one.
        EXPECT_TRUE(std::equal(found.begin(), found.end() - 1, whole.begin())) << recording.path;
    }
    EXPECT_EQ(FilesIn(folder), (std::vector<std::string>{"x.hmp4", "x.xmkv", "x.xts"}));
}

TEST(Repair, ARecordingThatEndsWellLeavesNoSnapshot) {
    const std::string folder = test::FreshDirectory("well");
    ClipSpec spec;
    spec.container = "mp4";
    const auto run = Muxora({"pack", test::MakeClip(spec), "-o", folder + "/x.mp4", "-f", "mp4", "--realtime",
                             "--backup", "0.2", "--json"});
    EXPECT_EQ(run.exit_code, 0);
    EXPECT_FALSE(Contains(run.out, "\"snapshots\":0")) << run.out;
    EXPECT_TRUE(Contains(run.out, "\"snapshots\":")) << run.out;
    EXPECT_EQ(FilesIn(folder), std::vector<std::string>{"x.mp4"});
    EXPECT_EQ(test::Pictures(folder + "/x.mp4").size(), 50u);
}

TEST(Repair, ADiskThatFillsUpLeavesARecordingThatCanBeCompleted) {
    const std::string folder = test::FreshDirectory("fills");
    const std::string path = folder + "/x.mp4";
    const auto run = test::Run({"prlimit", "--fsize=120000", MUXORA_TOOL, "pack", LongClip(), "-o", path, "-f", "mp4",
                                "--realtime", "--backup", "1"});
    EXPECT_EQ(run.exit_code, 1);
    EXPECT_TRUE(test::IsOneLine(run.err)) << run.err;
    EXPECT_TRUE(Contains(run.err, "muxora repair " + path)) << run.err;
    ASSERT_EQ(Muxora({"repair", path}).exit_code, 0);
    EXPECT_GT(test::Pictures(path).size(), 5u);
}

TEST(Repair, SaysWhatItCannotDo) {
    const std::string folder = test::FreshDirectory("cannot");
    const std::string path = folder + "/x.mp4";
    EXPECT_EQ(Muxora({"repair", path}).exit_code, 1);
    // A recording without snapshots.
    std::vector<uint8_t> bytes = test::ReadFile(LongClip());
    bytes.resize(100000);
    test::WriteFile(path, bytes);
    auto run = Muxora({"repair", path});
    EXPECT_EQ(run.exit_code, 1);
    EXPECT_TRUE(test::IsOneLine(run.err));
    EXPECT_TRUE(Contains(run.err, "record with --backup SECONDS")) << run.err;
    EXPECT_EQ(test::ReadFile(path), bytes);
    // A snapshot that is none, and one of which a bit has turned.
    test::WriteFile(path + ".snapshot", test::Text("not a snapshot"));
    run = Muxora({"repair", path});
    EXPECT_EQ(run.exit_code, 1);
    EXPECT_TRUE(Contains(run.err, "no whole snapshot")) << run.err;
    EXPECT_EQ(test::ReadFile(path), bytes);
}

TEST(Repair, WhatIsNoMp4IsNamed) {
    const std::string folder = test::FreshDirectory("kinds");
    const std::string clip = test::MakeClip({});
    struct Form {
        const char* key;
        const char* kind;
        const char* to_do;
    };
    const Form forms[] = {
        {"xmkv", "a Matroska file", "'muxora pack' reads this as far as it was written"},
        {"mkv", "a Matroska file", "'muxora pack' reads this as far as it was written"},
        {"xflv", "an FLV file", "'muxora pack' reads this as far as it was written"},
        {"avi", "an AVI file", "'muxora pack' reads this as far as it was written"},
        {"asf", "an ASF file", "'muxora pack' reads this as far as it was written"},
        {"xts", "an MPEG-2 transport stream", "plays as far as it was written"},
        {"ps", "an MPEG-2 program stream", "plays as far as it was written"},
        {"fmp4", "an MP4 or MOV file", nullptr},
        {"hmp4", "an MP4 or MOV file", nullptr},
    };
    for (const Form& form : forms) {
        const std::string path = folder + "/x." + form.key;
        ASSERT_EQ(Muxora({"pack", clip, "-o", path, "-f", form.key, "--quiet"}).exit_code, 0) << form.key;
        const auto bytes = test::ReadFile(path);
        const auto repair = Muxora({"repair", path});
        if (form.to_do == nullptr) {
            EXPECT_EQ(repair.out, path + " is complete; there is nothing to repair\n");
        } else {
            EXPECT_EQ(repair.exit_code, 1);
            EXPECT_TRUE(Contains(repair.err, path + " is " + form.kind + ", and repair completes MP4 and MOV alone"));
            EXPECT_TRUE(Contains(repair.err, form.to_do)) << repair.err;
        }
        const auto inspect = Muxora({"inspect", path});
        EXPECT_EQ(inspect.exit_code, 1);
        EXPECT_EQ(inspect.out, "");
        EXPECT_TRUE(Contains(inspect.err, path + " is " + form.kind + ", and inspect shows OVX")) << inspect.err;
        const auto unpack = Muxora({"unpack", path, "-o", folder + "/u"});
        EXPECT_EQ(unpack.exit_code, 1);
        EXPECT_TRUE(Contains(unpack.err, path + " is " + form.kind + ", and unpack takes OVX apart")) << unpack.err;
        EXPECT_EQ(test::ReadFile(path), bytes) << form.key;
        // As a killed process leaves it: what the words above say holds.
        if (form.to_do == nullptr || std::string(form.key) == "mkv") continue;
        test::WriteFile(path, {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(bytes.size() * 2 / 3)});
        EXPECT_EQ(Muxora({"pack", path, "-o", folder + "/whole.mkv", "--quiet"}).exit_code, 0) << form.key;
        const std::string packets = test::Probe(folder + "/whole.mkv", "v:0", "packet=flags");
        EXPECT_GT(std::count(packets.begin(), packets.end(), '\n'), 20) << form.key;
    }
}

TEST(Repair, DamagedSnapshotsAreNotUsed) {
    const std::string folder = test::FreshDirectory("damaged");
    const std::string path = folder + "/x.mp4";
    Recording recording = Start(path, "mp4");
    std::this_thread::sleep_for(std::chrono::milliseconds(1200));
    recording.process->Signal(SIGKILL);
    recording.process->Wait();
    const auto media = test::ReadFile(path);
    const auto snapshot = test::ReadFile(path + ".snapshot");
    for (const size_t at : {size_t{3}, size_t{9}, size_t{18}, size_t{34}, size_t{60}, snapshot.size() - 1}) {
        auto turned = snapshot;
        turned[at] ^= 0x10;
        test::WriteFile(path + ".snapshot", turned);
        const auto run = Muxora({"repair", path});
        EXPECT_EQ(run.exit_code, 1) << at;
        EXPECT_TRUE(test::IsOneLine(run.err)) << run.err;
        EXPECT_EQ(test::ReadFile(path), media) << at;
    }
    // Of another recording: longer than this one.
    test::WriteFile(path + ".snapshot", snapshot);
    test::WriteFile(path, {media.begin(), media.begin() + 2000});
    const auto run = Muxora({"repair", path});
    EXPECT_EQ(run.exit_code, 1);
    EXPECT_TRUE(Contains(run.err, "belongs to another recording")) << run.err;
    // A new recording does not wipe out one that waits for its repair.
    const auto refused = Muxora({"pack", LongClip(), "-o", path, "--backup", "1"});
    EXPECT_EQ(refused.exit_code, 1);
    EXPECT_TRUE(Contains(refused.err, "muxora repair")) << refused.err;
    // Whole again, with a snapshot beside it that was half written.
    test::WriteFile(path, media);
    test::WriteFile(folder + "/.x.mp4.snapshot.muxora-0123456789abcdef", test::Text("MXSNAP01"));
    EXPECT_EQ(Muxora({"repair", path}).exit_code, 0);
    EXPECT_EQ(FilesIn(folder), std::vector<std::string>{"x.mp4"});
    EXPECT_GE(test::Pictures(path).size(), 5u);
}

}  // namespace
