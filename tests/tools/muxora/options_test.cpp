// What the options mean, and what is said where they make no sense: code, line, and no file left behind.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>

#include "support/hex.h"
#include "tool.h"

namespace {

namespace fs = std::filesystem;
using test::Clip;
using test::ClipSpec;
using test::Contains;
using test::FilesIn;
using test::MakeClip;
using test::Muxora;
using test::Pictures;
using test::WorkPath;

constexpr char kKey[] = "00112233445566778899aabbccddeeff";

struct Refusal {
    std::vector<std::string> words;  // IN is the clip, {} the folder
    int exit_code;
    std::string says;
};

// Runs each in an empty folder, which stays empty.
void ExpectRefusals(const std::string& command, const std::vector<Refusal>& refusals) {
    const std::string folder = test::FreshDirectory("refused");
    for (const Refusal& refusal : refusals) {
        std::vector<std::string> words{command};
        std::string line = command;
        for (std::string word : refusal.words) {
            if (word == "IN") word = Clip();
            if (word.rfind("{}", 0) == 0) word = folder + word.substr(2);
            words.push_back(word);
            line += " " + word;
        }
        const auto run = Muxora(words);
        EXPECT_EQ(run.exit_code, refusal.exit_code) << line << "\n" << run.err;
        EXPECT_TRUE(Contains(run.err, refusal.says)) << line << "\n" << run.err;
        EXPECT_TRUE(test::IsOneLine(run.err)) << line << "\n" << run.err;
        EXPECT_EQ(run.out, "") << line;
        EXPECT_TRUE(FilesIn(folder).empty()) << line << " left " << FilesIn(folder)[0];
    }
}

TEST(Options, PackTellsWhatDoesNotGoTogether) {
    test::WriteFile(WorkPath("short.key"), test::Text("0011\n"));
    test::WriteFile(WorkPath("letters.key"), test::Text("xyz\n"));
    ExpectRefusals(
        "pack",
        {{{"IN", "-o", "{}/x"}, 2, "the format cannot be told from '"},
         {{"IN", "-o", "{}/x.mp4", "-f", "mp5"}, 2, "there is no format 'mp5'; choose one of: "},
         {{"IN", "-o", "-", "-f", "avi"}, 2, "choose a forward-only format (see muxora formats)"},
         {{"IN", "-o", "-", "-f", "mov"}, 2, "choose fmp4 (mp4noseek is a classic form without going back)"},
         {{"IN", "-o", "{}/x.m2ts", "-f", "ts"}, 2, "and ts writes 188; name the output .ts"},
         {{"IN", "-o", "{}/x.mpd", "-f", "mp4"}, 2, ".mpd makes a playlist over CMAF segments, and mp4 is no form"},
         {{"IN", "-o", "{}/x.mp4", "--reserve", "9"}, 2, "--reserve is for the classic forms of mp4"},
         {{"IN", "-o", "-", "-f", "mp4noseek", "--reserve", "9"}, 2, "--reserve makes the format go back"},
         {{"IN", "-o", "{}/x.avi", "--backup", "1"}, 2, "avi has no index to lose, or no backup"},
         {{"IN", "-o", "-", "-f", "xts", "--backup", "1"}, 2, "--backup needs a file"},
         {{"IN", "-o", "-", "-f", "ts", "--segment", "2s"}, 2, "--segment makes files; a pipe is one stream"},
         {{"IN", "-o", "{}/x.ts", "--encrypt", "0:256"}, 2, "only ovx encrypts"},
         {{"IN", "-o", "{}/x.ovx", "--encrypt", "0:256"}, 2, "--encrypt OFFSET:LENGTH needs a key"},
         {{"IN", "-o", "{}/x.ovx", "--encrypt", "0:256", "--key-file", "/nowhere.key"},
          1,
          "cannot read the key from /nowhere.key"},
         {{"IN", "-o", "{}/x.ovx", "--encrypt", "0:256", "--key-file", WorkPath("short.key")},
          2,
          "short.key must have 32, 48 or 64 hex digits"},
         {{"IN", "-o", "{}/x.ovx", "--encrypt", "0:256", "--key-file", WorkPath("letters.key")}, 2, "letters.key"},
         {{"IN", "-o", "{}/x.ovx", "--key", kKey}, 2, "there is nothing for the key to do"},
         {{"IN", "-o", "{}/x.ovx", "--key-file", WorkPath("short.key")}, 2, "there is nothing for the key to do"},
         {{"IN", "-o", "{}/x.ovx", "--key", kKey, "--encrypt", "65536:16"}, 2, "--encrypt must be OFFSET:LENGTH"},
         {{"IN", "-o", "{}/x.ovx", "--key", kKey, "--encrypt", "0:15"}, 2, "--encrypt must be OFFSET:LENGTH"},
         {{"IN", "-o", "{}/x.ovx", "--key", kKey, "--encrypt", "0:16 "}, 2, "--encrypt must be OFFSET:LENGTH"},
         {{"IN", "-o", "{}/x.ts", "--segment", "0s"}, 2, "'0s' is neither"},
         {{"IN", "-o", "{}/x.ts", "--segment", "-2s"}, 2, "'-2s' is neither"},
         {{"IN", "-o", "{}/x.ts", "--segment", "2000000000s"}, 2, "'2000000000s' is neither"},
         {{"IN", "-o", "{}/x.ts", "--segment", "2 days"}, 2, "'2 days' is neither"},
         {{"IN", "-o", "{}/%1000Y.ts", "--segment", "1s"}, 2, "is no name that strftime can fill in"},
         {{"IN", "-o", "{}/x.ts", "--no-video", "--no-audio"}, 1, "both are left out by options"},
         {{"-", "-o", "{}/x.ts"}, 1, "standard input: "},
         {{"-", "-o", "{}/x.m3u8"}, 1, "standard input: "},
         {{"IN", "-o", "{}/no/x.m3u8"}, 1, "make the directory first"},
         {{"IN", "-o", "{}/x.m3u8", "--encrypt", "0:16"}, 2, "only ovx encrypts"},
         {{"IN", "-o", "{}/x.mpd", "--reserve", "100"}, 2, "a playlist appears when all is there"},
         {{"IN", "-o", "{}/x.mpd", "--segment", "0.1s"}, 2, "is a duration from 0.5s to 60s"},
         {{"IN", "-o", "{}/x.mpd", "--segment", "2min"}, 2, "is a duration from 0.5s to 60s"},
         {{"IN", "--jobs", "2", "-o", "{}"}, 2, "--jobs needs the format by name: -f KEY"},
         {{"IN", "--jobs", "2", "-o", "{}", "-f", "mp5"}, 2, "there is no format 'mp5'"},
         {{"IN", "--jobs", "2", "-o", "{}", "-f", "mp4", "--backup", "1"}, 2, "--jobs goes without --backup"},
         {{"IN", "--jobs", "2", "-o", "{}", "-f", "mp4", "--realtime"}, 2, "--jobs goes without --backup"},
         {{"IN", "--jobs", "2", "-o", "{}", "-f", "mp4", "--segment", "1s"}, 2, "--jobs goes without --backup"},
         {{"IN", "--jobs", "2", "-o", "{}", "-f", "mp4", "--key", kKey}, 2, "--jobs goes without --backup"},
         {{"IN", "IN", "--jobs", "2", "-o", "{}", "-f", "mp4"}, 2, "two of the inputs would both become "}});
    const auto itself = Muxora({"pack", Clip(), "-o", Clip()});
    EXPECT_EQ(itself.exit_code, 2);
    EXPECT_TRUE(Contains(itself.err, "is an input as well; write to another file")) << itself.err;
    // Under another name it is still the same file.
    const std::string link = WorkPath("link.m3u8");
    fs::remove(link);
    fs::create_hard_link(Clip(), link);
    const auto playlist = Muxora({"pack", Clip(), "-o", link});
    EXPECT_EQ(playlist.exit_code, 2);
    EXPECT_TRUE(Contains(playlist.err, "is an input as well; write to another file")) << playlist.err;
}

TEST(Options, WrongUsageIsJsonForPrograms) {
    const auto run = Muxora({"pack", Clip(), "-o", WorkPath("x.unknown"), "--json"});
    EXPECT_EQ(run.exit_code, 2);
    EXPECT_EQ(run.err.rfind("{\"error\":\"the format cannot be told from '", 0), 0u) << run.err;
    EXPECT_TRUE(Contains(run.err, ",\"exit_code\":2}\n")) << run.err;
    const auto parsed = Muxora({"pack", "--json", "--bogus"});
    EXPECT_EQ(parsed.exit_code, 2);
    EXPECT_EQ(parsed.err.front(), '{') << parsed.err;
    const auto nothing = Muxora({});
    EXPECT_EQ(nothing.exit_code, 2);
    EXPECT_TRUE(Contains(nothing.err, "a command is missing; there are: formats, inspect, pack")) << nothing.err;
}

// A key by the option, by a file and by the variable is one key, of any of AES's lengths.
TEST(Options, KeysComeByThreeWays) {
    for (const std::string& key : {std::string(kKey), kKey + std::string(16, 'a'), kKey + std::string(kKey)}) {
        test::WriteFile(WorkPath("a.key"), test::Text(key + "\n"));
        const std::string by_option = WorkPath("option.ovx");
        const std::string by_file = WorkPath("file.ovx");
        const std::string by_variable = WorkPath("variable.ovx");
        const auto pack = [&](const std::string& out, const std::vector<std::string>& more) {
            std::vector<std::string> words{"env", "MUXORA_KEY=" + key, MUXORA_TOOL, "pack", Clip(), "-o",
                                           out,   "--quiet",           "--encrypt", "0:512"};
            words.insert(words.end(), more.begin(), more.end());
            return test::Run(words);
        };
        ASSERT_EQ(pack(by_variable, {}).exit_code, 0);
        // What is said outright wins over the variable.
        ASSERT_EQ(test::Run({"env", "MUXORA_KEY=00", MUXORA_TOOL, "pack", Clip(), "-o", by_file, "--quiet", "--encrypt",
                             "0:512", "--key-file", WorkPath("a.key")})
                      .exit_code,
                  0);
        ASSERT_EQ(test::Run({"env", "MUXORA_KEY=00", MUXORA_TOOL, "pack", Clip(), "-o", by_option, "--quiet",
                             "--encrypt", "0:512", "--key", key})
                      .exit_code,
                  0);
        const std::string prefix = WorkPath("opened");
        const auto first = Muxora({"unpack", by_option, "-o", prefix, "--key-file", WorkPath("a.key"), "--quiet"});
        ASSERT_EQ(first.exit_code, 0) << first.err;
        EXPECT_EQ(first.out, "");
        const auto pictures = test::ReadFile(prefix + ".h264");
        EXPECT_EQ(Pictures(prefix + ".h264"), Pictures(Clip()));
        for (const std::string& other : {by_file, by_variable}) {
            ASSERT_EQ(test::Run({"env", "MUXORA_KEY=" + key, MUXORA_TOOL, "unpack", other, "-o", prefix}).exit_code, 0);
            EXPECT_EQ(test::ReadFile(prefix + ".h264"), pictures);
        }
    }
    const auto wrong =
        test::Run({"env", "MUXORA_KEY=0011", MUXORA_TOOL, "unpack", WorkPath("file.ovx"), "-o", WorkPath("opened")});
    EXPECT_EQ(wrong.exit_code, 2);
    EXPECT_TRUE(Contains(wrong.err, "MUXORA_KEY must have 32, 48 or 64 hex digits")) << wrong.err;
}

TEST(Options, NamesOfSegments) {
    ClipSpec spec;
    spec.container = "mp4";
    spec.seconds = 3;
    const std::string clip = MakeClip(spec);
    const auto names = [&](const std::string& pattern, const std::string& rule) {
        const std::string folder = test::FreshDirectory("names");
        const auto run = Muxora({"pack", clip, "-o", folder + "/" + pattern, "--segment", rule, "--json"});
        EXPECT_EQ(run.exit_code, 0) << run.err;
        return FilesIn(folder);
    };
    using Names = std::vector<std::string>;
    EXPECT_EQ(names("x%d.ts", "1500ms"), (Names{"x0.ts", "x1.ts"}));
    EXPECT_EQ(names("x%05d.ts", "1"), (Names{"x00000.ts", "x00001.ts", "x00002.ts"}));
    EXPECT_EQ(names("%d-%%.ts", "2s"), (Names{"0-%.ts", "1-%.ts"}));
    EXPECT_EQ(names("x.ts", "0.02min"), (Names{"x-000.ts", "x-001.ts"}));
    EXPECT_EQ(names("x.ts", "1h"), (Names{"x-000.ts"}));
    EXPECT_EQ(names("x.ts", "20KiB"), (Names{"x-000.ts", "x-001.ts", "x-002.ts"}));
    EXPECT_EQ(names("x.ts", "1GB"), (Names{"x-000.ts"}));
    // Among dates, %d is the day.
    const auto dated = names("%Y-%m-%d-%H%M%S-%02d.ts", "1h");
    ASSERT_EQ(dated.size(), 1u);
    EXPECT_EQ(dated[0].size(), std::string("2026-11-22-174500-00.ts").size());
    EXPECT_EQ(dated[0].substr(17), "-00.ts");
    const std::string folder = test::FreshDirectory("names");
    const auto same = Muxora({"pack", clip, "-o", folder + "/same-%Y.ts", "--segment", "1s"});
    EXPECT_EQ(same.exit_code, 2);
    EXPECT_TRUE(Contains(same.err, "two segments would both be ")) << same.err;
    EXPECT_TRUE(Contains(same.err, "; put %03d into the name")) << same.err;
}

// Notes of a form come together, and none of what a form leaves out passes --strict.
TEST(Options, WhatIsLostIsToldAtOnce) {
    ClipSpec spec;
    spec.b_frames = 2;
    spec.sample_rate = 44100;
    const auto flv = Muxora({"pack", MakeClip(spec), "-o", WorkPath("lost.flv"), "-f", "flv"});
    EXPECT_EQ(flv.exit_code, 0) << flv.err;
    EXPECT_TRUE(Contains(flv.out, "the video has B pictures")) << flv.out;
    EXPECT_TRUE(Contains(flv.out, "; AAC frames of 23.220 ms are counted as 23, so sound runs ahead by ")) << flv.out;
    const std::string folder = test::FreshDirectory("strict");
    const auto strict = Muxora({"pack", Clip(), "-o", folder + "/x.mp4", "-f", "mp4", "--strict"});
    EXPECT_EQ(strict.exit_code, 1);
    EXPECT_TRUE(Contains(strict.err, "--strict: mp4 left out 1 frames by its rules")) << strict.err;
    EXPECT_TRUE(FilesIn(folder).empty());
}

TEST(Options, SoundAloneIntoEachKindOfForm) {
    for (const std::string name : {"alone.mp4", "alone.m4s", "alone.mkv", "alone.ts"}) {
        const auto run = Muxora({"pack", Clip(), "-o", WorkPath(name), "--no-video", "--json"});
        EXPECT_EQ(run.exit_code, 0) << run.err;
        EXPECT_FALSE(Contains(run.out, "\"video\":")) << run.out;
        // A transport stream lists its streams once more, by programs.
        const std::string streams = test::Probe(WorkPath(name), "", "stream=codec_name");
        EXPECT_TRUE(streams == "aac" || streams == "aac\naac") << name << ": " << streams;
    }
}

TEST(Playlists, TakeWhatPlayersTake) {
    ClipSpec spec;
    spec.video = "hevc";
    spec.audio = "mp3";
    const std::string folder = test::FreshDirectory("playlists");
    const auto taken = Muxora({"pack", MakeClip(spec), "-o", folder + "/x.m3u8"});
    EXPECT_EQ(taken.exit_code, 0) << taken.err;
    EXPECT_EQ(test::Pictures(folder + "/x.m3u8"), Pictures(MakeClip(spec)));
    const std::string other = test::FreshDirectory("playlists_refused");
    spec.audio = "mp2";
    const auto refused = Muxora({"pack", MakeClip(spec), "-o", other + "/x.mpd"});
    EXPECT_EQ(refused.exit_code, 1);
    EXPECT_TRUE(Contains(refused.err, "is mp2, which players of HLS and DASH do not take; audio may be AAC or MP3"))
        << refused.err;
    EXPECT_TRUE(FilesIn(other).empty());
    const auto quiet = Muxora({"pack", Clip(), "-o", other + "/x.MPD", "--quiet"});
    EXPECT_EQ(quiet.exit_code, 0) << quiet.err;
    EXPECT_EQ(quiet.out + quiet.err, "");
}

// --fps, --duration, --video, --audio and their kin mean the same for many files.
TEST(Jobs, OptionsReachEachFile) {
    const std::string out = test::FreshDirectory("jobs_options");
    const auto pack = [&](std::vector<std::string> more) {
        more.insert(more.begin(), {"pack", "--jobs", "1", "-o", out, Clip()});
        return Muxora(more);
    };
    auto run = pack({"-f", "mp4", "--duration", "1", "--fps", "50", "--video", "0", "--audio", "1"});
    ASSERT_EQ(run.exit_code, 0) << run.out << run.err;
    const std::string stem = fs::path(Clip()).stem().string();
    EXPECT_EQ(test::Probe(out + "/" + stem + ".mp4", "", "stream=codec_name,nb_frames"), "h264\n25\naac\n46")
        << "the first of 47 sounds comes ahead of the pictures";
    run = pack({"-f", "mp4", "--no-audio", "--reserve", "5000"});
    ASSERT_EQ(run.exit_code, 0) << run.out << run.err;
    EXPECT_EQ(test::Probe(out + "/" + stem + ".mp4", "", "stream=codec_name"), "h264");
    run = pack({"-f", "mp4", "--no-video"});
    EXPECT_EQ(run.exit_code, 1);
    EXPECT_TRUE(Contains(run.out, "failed " + Clip() + ": ")) << run.out;
    EXPECT_TRUE(Contains(run.out, "0 of 1 files packed into " + out)) << run.out;
    EXPECT_EQ(run.err, "muxora: 1 of 1 files failed\n");
    test::WriteFile(WorkPath("jobs.key"), test::Text(kKey));
    run = pack({"-f", "ovx", "--encrypt", "0:256", "--key-file", WorkPath("jobs.key")});
    ASSERT_EQ(run.exit_code, 0) << run.out << run.err;
    EXPECT_TRUE(Contains(Muxora({"inspect", out + "/" + stem + ".ovx", "--summary"}).out, "encrypted: "));
    // Notes come with the name of their file; --strict makes failures of them.
    ClipSpec b_pictures;
    b_pictures.container = "mp4";
    b_pictures.b_frames = 2;
    run = Muxora({"pack", "--jobs", "1", "-o", out, "-f", "ts", MakeClip(b_pictures)});
    EXPECT_EQ(run.exit_code, 0) << run.err;
    EXPECT_TRUE(Contains(run.out, "note " + MakeClip(b_pictures) + ": what ts loses of this input")) << run.out;
    run = Muxora({"pack", "--jobs", "1", "-o", out, "-f", "ts", "--strict", MakeClip(b_pictures)});
    EXPECT_EQ(run.exit_code, 1);
    EXPECT_TRUE(Contains(run.out, ": --strict: what ts loses")) << run.out;
}

TEST(Jobs, WithoutDescriptorsIsAFailureAndNoHang) {
    const std::string out = test::FreshDirectory("jobs_descriptors");
    // What this process was given itself is not the tool's.
    ASSERT_EQ(close_range(3, ~0U, CLOSE_RANGE_CLOEXEC), 0);
    for (const int most : {4, 6}) {
        const auto run = test::Run({"prlimit", "--nofile=" + std::to_string(most), MUXORA_TOOL, "pack", "--jobs", "2",
                                    "-f", "ts", "-o", out, Clip()});
        EXPECT_EQ(run.exit_code, 1) << most;
        EXPECT_TRUE(test::IsOneLine(run.err)) << run.err;
        EXPECT_TRUE(Contains(run.err, "Too many open files")) << most << run.err;
    }
    EXPECT_TRUE(FilesIn(out).empty());
}

// An input that somebody holds open and gives nothing to.
class HeldPipe {
  public:
    explicit HeldPipe(const std::string& path) : path_(path) { mkfifo(path.c_str(), 0600); }
    ~HeldPipe() { Close(); }
    HeldPipe(const HeldPipe&) = delete;
    HeldPipe& operator=(const HeldPipe&) = delete;
    // When a reader has come.
    bool Open() {
        for (int i = 0; i < 3000 && descriptor_ < 0; ++i) {
            descriptor_ = open(path_.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
            if (descriptor_ < 0) usleep(10000);
        }
        return descriptor_ >= 0;
    }
    void Close() {
        if (descriptor_ >= 0) close(descriptor_);
        descriptor_ = -1;
    }

  private:
    std::string path_;
    int descriptor_ = -1;
};

TEST(Jobs, AnInterruptBeginsNoMore) {
    const std::string folder = test::FreshDirectory("jobs_interrupt");
    HeldPipe pipe(folder + "/pipe.ts");
    test::Background batch({"sh", "-c",
                            "exec " MUXORA_TOOL " pack --jobs 1 -f mkv --json -o " + folder + " " + folder +
                                "/pipe.ts " + Clip() + " > " + folder + "/said"});
    ASSERT_TRUE(pipe.Open());
    batch.Signal(SIGINT);
    usleep(300000);
    pipe.Close();
    EXPECT_EQ(batch.Wait(), 1);
    const auto bytes = test::ReadFile(folder + "/said");
    const std::string said(bytes.begin(), bytes.end());
    EXPECT_EQ(said.rfind("{\"done\":0,\"failed\":1,\"not_begun\":1,", 0), 0u) << said;
    EXPECT_EQ(FilesIn(folder), (std::vector<std::string>{"pipe.ts", "said"}));
}

TEST(Jobs, OneThatIsKilledIsTold) {
    const std::string folder = test::FreshDirectory("jobs_killed");
    HeldPipe pipe(folder + "/pipe.ts");
    const auto run = test::Run({"sh", "-c",
                                MUXORA_TOOL " pack --jobs 2 -f mkv -o " + folder + " " + folder +
                                    "/pipe.ts & p=$!; until grep -q . /proc/$p/task/$p/children; do sleep 0.02; done; "
                                    "kill -9 $(cat /proc/$p/task/$p/children); wait $p"});
    EXPECT_EQ(run.exit_code, 1);
    EXPECT_TRUE(Contains(run.out, "failed " + folder + "/pipe.ts: ended by a signal\n")) << run.out;
    EXPECT_TRUE(Contains(run.err, "muxora: 1 of 1 files failed")) << run.err;
}

TEST(Serve, BecomesTheGatewayBesideIt) {
    const std::string folder = test::FreshDirectory("serve");
    fs::copy_file(MUXORA_TOOL, folder + "/muxora");
    const auto none = test::Run({"env", "PATH=" + folder, folder + "/muxora", "serve", "--help"});
    EXPECT_EQ(none.exit_code, 1);
    EXPECT_EQ(none.err, "muxora: muxora-serve cannot be started: No such file or directory\n");
    test::WriteFile(folder + "/muxora-serve", test::Text("#!/bin/sh\necho \"$#:$1:$2\"\nexit 7\n"));
    fs::permissions(folder + "/muxora-serve", fs::perms::owner_all);
    const auto run = test::Run({folder + "/muxora", "serve", "--help", "a b"});
    EXPECT_EQ(run.exit_code, 7);
    EXPECT_EQ(run.out, "2:--help:a b\n");
    // Else the one that PATH has.
    fs::create_directory(folder + "/bin");
    fs::rename(folder + "/muxora-serve", folder + "/bin/muxora-serve");
    const auto found =
        test::Run({"env", "PATH=" + folder + "/bin:/usr/bin:/bin", folder + "/muxora", "serve", "1", "2"});
    EXPECT_EQ(found.exit_code, 7);
    EXPECT_EQ(found.out, "2:1:2\n");
}

// What a program writes to a terminal that is its standard error.
std::string OnTerminal(std::vector<std::string> words) {
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
    if (terminal < 0 || grantpt(terminal) != 0 || unlockpt(terminal) != 0) return "no terminal";
    words.insert(words.begin(), MUXORA_TOOL);
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, ptsname(terminal), O_WRONLY | O_NOCTTY, 0);
    pid_t process = -1;
    const int spawned = posix_spawn(&process, MUXORA_TOOL, &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    std::string text;
    if (spawned == 0) {
        // The last one who had it open has gone when nothing can be read any more.
        std::array<char, 4096> piece{};
        for (ssize_t got = 0; (got = read(terminal, piece.data(), piece.size())) > 0;)
            text.append(piece.data(), static_cast<size_t>(got));
        int status = 0;
        waitpid(process, &status, 0);
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) text += "failed";
    }
    close(terminal);
    return text;
}

// A line that is written over, and gone at the end; nothing with --quiet, and nothing for programs.
TEST(Progress, IsALineOnATerminal) {
    const std::string out = WorkPath("progress.ts");
    const std::string shown = OnTerminal({"pack", Clip(), "-o", out, "--realtime", "--duration", "1"});
    EXPECT_TRUE(Contains(shown, " %  0:00:0")) << shown;
    EXPECT_TRUE(Contains(shown, "x  0:00:0")) << shown;
    EXPECT_TRUE(Contains(shown, " left")) << shown;
    EXPECT_TRUE(shown.ends_with("\r\x1b[K")) << shown;
    EXPECT_EQ(OnTerminal({"pack", Clip(), "-o", out, "--quiet"}), "");
    EXPECT_EQ(OnTerminal({"pack", Clip(), "-o", out, "--json"}), "");
    const std::string folder = test::FreshDirectory("progress");
    const std::string counted = OnTerminal({"pack", "--jobs", "2", "-f", "ts", "-o", folder, Clip()});
    EXPECT_TRUE(Contains(counted, "1 of 1 files  0:00:00 left")) << counted;
    // A raw stream does not tell how long it is.
    ClipSpec raw;
    raw.container = "h264";
    raw.audio = "";
    const std::string open = OnTerminal({"pack", MakeClip(raw), "-o", out});
    EXPECT_TRUE(Contains(open, "x\r")) << open;
    EXPECT_FALSE(Contains(open, "left")) << open;
}

}  // namespace
