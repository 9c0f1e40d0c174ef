// What may not happen in silence: recordings destroyed, streams left out, samples narrowed, times that are not held.
#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <sstream>
#include <thread>

#include "media_input/file_bytes.h"
#include "media_input/media_input.h"
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

void Ffmpeg(std::vector<std::string> words) {
    words.insert(words.begin(), {"ffmpeg", "-v", "error", "-nostdin", "-y"});
    const auto run = test::Run(words);
    ASSERT_EQ(run.exit_code, 0) << run.err;
}

bool WaitFor(const std::string& path) {
    for (int i = 0; i < 2000 && !fs::exists(path); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return fs::exists(path);
}

TEST(Locks, ALiveRecordingIsNeitherRepairedNorReplaced) {
    const std::string folder = test::FreshDirectory("live");
    const std::string path = folder + "/cam.mp4";
    ClipSpec spec;
    spec.container = "mp4";
    spec.seconds = 60;
    spec.width = 64;
    spec.height = 48;
    const std::string clip = MakeClip(spec);
    test::Background recording({MUXORA_TOOL, "pack", clip, "-o", path, "-f", "mp4", "--realtime", "--backup", "1"});
    ASSERT_TRUE(WaitFor(path + ".snapshot"));
    const auto before = fs::file_size(path);
    for (const auto& words : std::vector<std::vector<std::string>>{
             {"pack", Clip(), "-o", path, "--backup", "1"}, {"pack", Clip(), "-o", path}, {"repair", path}}) {
        const auto run = Muxora(words);
        EXPECT_EQ(run.exit_code, 1) << words[0];
        EXPECT_TRUE(test::IsOneLine(run.err)) << run.err;
        EXPECT_TRUE(Contains(run.err, "being written by process ")) << run.err;
        EXPECT_TRUE(Contains(run.err, "(muxora)")) << run.err;
    }
    // It goes on, and what it leaves is the clip's beginning.
    for (int i = 0; i < 2000 && fs::file_size(path) < before + fs::file_size(clip) / 100; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    recording.Signal(SIGINT);
    EXPECT_EQ(recording.Wait(), 0);
    const auto pictures = Pictures(path);
    auto first = Pictures(clip);
    ASSERT_GT(pictures.size(), 5u);
    ASSERT_LT(pictures.size(), first.size());
    first.resize(pictures.size());
    EXPECT_EQ(pictures, first);
    EXPECT_EQ(FilesIn(folder), std::vector<std::string>{"cam.mp4"});
}

TEST(Locks, TwoRunsDoNotWriteOneFile) {
    const std::string folder = test::FreshDirectory("two");
    const std::string path = folder + "/x.ts";
    ClipSpec spec;
    spec.container = "mp4";
    spec.seconds = 60;
    spec.width = 64;
    spec.height = 48;
    test::Background first({MUXORA_TOOL, "pack", MakeClip(spec), "-o", path, "--realtime"});
    for (int i = 0; i < 2000 && FilesIn(folder).empty(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    const auto second = Muxora({"pack", Clip(), "-o", path});
    EXPECT_EQ(second.exit_code, 1);
    EXPECT_TRUE(Contains(second.err, "being written by process ")) << second.err;
    first.Signal(SIGINT);
    EXPECT_EQ(first.Wait(), 0);
    EXPECT_GT(Pictures(path).size(), 0u);
}

TEST(WorkingFiles, WhatAKilledRunLeftGoesAndLinksAreNotFollowed) {
    const std::string folder = test::FreshDirectory("left");
    const std::string path = folder + "/x.ts";
    test::Background killed({MUXORA_TOOL, "pack", Clip(), "-o", path, "--realtime"});
    for (int i = 0; i < 2000 && FilesIn(folder).empty(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    killed.Signal(SIGKILL);
    killed.Wait();
    ASSERT_EQ(FilesIn(folder).size(), 1u);
    const std::string left = FilesIn(folder)[0];
    EXPECT_EQ(left.substr(0, 13), ".x.ts.muxora-");
    EXPECT_EQ(left.size(), 13u + 16u);
    // A link that somebody planted leads nowhere and stays as it is.
    const std::string victim = folder + "/victim";
    test::WriteFile(victim, {1, 2, 3});
    fs::create_symlink(victim, folder + "/.x.ts.muxora-0123456789abcdef");
    fs::create_symlink(victim, folder + "/.x.ts." + std::to_string(getpid()));
    ASSERT_EQ(Muxora({"pack", Clip(), "-o", path}).exit_code, 0);
    EXPECT_FALSE(fs::exists(folder + "/" + left));
    EXPECT_EQ(test::ReadFile(victim), (std::vector<uint8_t>{1, 2, 3}));
    EXPECT_EQ(Pictures(path).size(), 50u);
}

TEST(OvxInput, GivesEveryPictureBack) {
    for (const int b_frames : {0, 2}) {
        const std::string clip = Clip("mp4", b_frames);
        const std::string ovx = WorkPath("in.ovx");
        ASSERT_EQ(Muxora({"pack", clip, "-o", ovx}).exit_code, 0);
        for (const std::string key : {"mp4", "ts", "xts", "mkv"}) {
            const std::string out = WorkPath("from_ovx." + key);
            const auto run = Muxora({"pack", ovx, "-o", out, "-f", key});
            ASSERT_EQ(run.exit_code, 0) << run.err;
            EXPECT_TRUE(Contains(run.out, "50 given, 50 written")) << run.out;
            EXPECT_EQ(Pictures(out), Pictures(clip)) << key;
            const std::string direct = WorkPath("direct." + key);
            ASSERT_EQ(Muxora({"pack", clip, "-o", direct, "-f", key}).exit_code, 0);
            EXPECT_EQ(test::SoundHash(out), test::SoundHash(direct)) << key;
        }
    }
    // Through a pipe as well, under any name.
    const std::string other = WorkPath("piped.bin");
    fs::copy_file(WorkPath("in.ovx"), other, fs::copy_options::overwrite_existing);
    const auto piped = test::Run({"sh", "-c", "cat " + other + " | " MUXORA_TOOL " pack - -o " + WorkPath("p.ts")});
    ASSERT_EQ(piped.exit_code, 0) << piped.err;
    EXPECT_EQ(Pictures(WorkPath("p.ts")), Pictures(Clip("mp4", 2)));
}

TEST(OvxInput, EncryptedAndDamaged) {
    const std::string key = "00112233445566778899aabbccddeeff";
    const std::string key_file = WorkPath("key.txt");
    test::WriteFile(key_file, test::Text(key + "\n"));
    const std::string ovx = WorkPath("secret.ovx");
    ASSERT_EQ(Muxora({"pack", Clip(), "-o", ovx, "--key-file", key_file, "--encrypt", "0:256"}).exit_code, 0);
    const auto closed = Muxora({"pack", ovx, "-o", WorkPath("closed.ts")});
    EXPECT_EQ(closed.exit_code, 1);
    EXPECT_TRUE(Contains(closed.err, "is encrypted; give its key")) << closed.err;
    EXPECT_FALSE(fs::exists(WorkPath("closed.ts")));
    for (const std::string out : {"wrong.mkv", "wrong.ovx"}) {
        const auto wrong = Muxora({"pack", ovx, "-o", WorkPath(out), "--key", "00112233445566778899aabbccddee00"});
        EXPECT_EQ(wrong.exit_code, 1);
        EXPECT_TRUE(Contains(wrong.err, ovx + ": this key does not decrypt it")) << wrong.err;
        EXPECT_FALSE(fs::exists(WorkPath(out)));
    }
    ASSERT_EQ(Muxora({"pack", ovx, "-o", WorkPath("a.ts"), "--key-file", key_file}).exit_code, 0);
    EXPECT_EQ(Pictures(WorkPath("a.ts")), Pictures(Clip()));
    const auto by_variable =
        test::Run({"env", "MUXORA_KEY=" + key, MUXORA_TOOL, "pack", ovx, "-o", WorkPath("b.ts"), "--quiet"});
    ASSERT_EQ(by_variable.exit_code, 0) << by_variable.err;
    EXPECT_EQ(test::ReadFile(WorkPath("a.ts")), test::ReadFile(WorkPath("b.ts")));
    // A damaged file tells what was skipped, and --strict does not take it.
    const std::string plain = WorkPath("plain.ovx");
    ASSERT_EQ(Muxora({"pack", Clip(), "-o", plain}).exit_code, 0);
    auto bytes = test::ReadFile(plain);
    std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(bytes.size() / 2),
              bytes.begin() + static_cast<std::ptrdiff_t>(bytes.size() / 2 + 200), uint8_t{0});
    test::WriteFile(plain, bytes);
    const auto damaged = Muxora({"pack", plain, "-o", WorkPath("damaged.ts")});
    EXPECT_EQ(damaged.exit_code, 0) << damaged.err;
    EXPECT_TRUE(Contains(damaged.out, "note: " + plain + " is damaged: ")) << damaged.out;
    const auto strict = Muxora({"pack", plain, "-o", WorkPath("strict.ts"), "--strict"});
    EXPECT_EQ(strict.exit_code, 1);
    EXPECT_FALSE(fs::exists(WorkPath("strict.ts")));
}

TEST(OvxInput, ACraftedFileTakesNoMemoryBeyondItself) {
    // Nothing but the tags that units begin with; the file itself is mapped.
    const auto peak_kib = [](size_t mebibytes) {
        std::vector<uint8_t> bytes(mebibytes << 20);
        for (size_t i = 0; i < bytes.size(); ++i)
            bytes[i] = static_cast<uint8_t>("ORVX"[i % 4]);
        const std::string path = WorkPath("tags.ovx");
        test::WriteFile(path, bytes);
        const auto run = Muxora({"pack", path, "-o", WorkPath("tags.ts")});
        EXPECT_EQ(run.exit_code, 1);
        EXPECT_TRUE(Contains(run.err, "has no intact OVX unit in it")) << run.err;
        fs::remove(path);
        return run.peak_kib;
    };
    EXPECT_LT(peak_kib(64) - peak_kib(1), (64 + 8) * 1024);
}

TEST(Files, OneThatShrinksIsToldAndDoesNoHarm) {
    const std::string path = WorkPath("shrinks");
    test::WriteFile(path, std::vector<uint8_t>(1 << 20, 7));
    const Orvane::Muxora::Tools::FileBytes file(path);
    file.CheckWhole(path);
    ASSERT_EQ(truncate(path.c_str(), 5000), 0);
    EXPECT_EQ(file.All()[100], 7);
    EXPECT_EQ(file.All()[900000], 0);
    EXPECT_THROW(file.CheckWhole(path), Orvane::Muxora::Tools::InputError);
}

TEST(Notes, StreamsThatAreLeftOutAreNamed) {
    const std::string two = WorkPath("two.mkv");
    const std::string words = WorkPath("words.srt");
    test::WriteFile(words, test::Text("1\n00:00:00,000 --> 00:00:01,000\nHello\n"));
    Ffmpeg({"-i", Clip("mkv"), "-i", words, "-map", "0:v", "-map", "0:a", "-map", "0:a", "-map", "1:s", "-c", "copy",
            "-metadata:s:a:1", "language=deu", two});
    const auto run = Muxora({"pack", two, "-o", WorkPath("two.ts")});
    EXPECT_EQ(run.exit_code, 0) << run.err;
    EXPECT_TRUE(Contains(run.out, "note: left out of " + two + ": stream 2 (audio aac ger), 3 (subtitle subrip)") ||
                Contains(run.out, "note: left out of " + two + ": stream 2 (audio aac deu), 3 (subtitle subrip)"))
        << run.out;
    EXPECT_EQ(Muxora({"pack", two, "-o", WorkPath("strict2.ts"), "--strict"}).exit_code, 1);
    EXPECT_FALSE(fs::exists(WorkPath("strict2.ts")));
    EXPECT_EQ(Muxora({"pack", Clip("mkv"), "-o", WorkPath("strict3.ts"), "--strict"}).exit_code, 0);
}

TEST(Notes, NarrowSamplesAndTurnedPicturesAreTold) {
    const std::string wide = WorkPath("wide.wav");
    Ffmpeg({"-f", "lavfi", "-i", "sine=duration=1:sample_rate=8000", "-c:a", "pcm_s24le", wide});
    const auto pcm = Muxora({"pack", wide, "-o", WorkPath("narrow.wav")});
    EXPECT_TRUE(Contains(pcm.out, "note: pcm_s24le sound is narrowed to 16 bits")) << pcm.out << pcm.err;
    const std::string turned = WorkPath("turned.mp4");
    Ffmpeg({"-i", Clip(), "-c", "copy", "-metadata:s:v:0", "rotate=90", turned});
    const auto picture = Muxora({"pack", turned, "-o", WorkPath("turned.ts")});
    EXPECT_TRUE(Contains(picture.out, "note: the pictures are to be shown turned by")) << picture.out << picture.err;
}

TEST(Notes, TimesThatAFormCannotHold) {
    const std::string film = WorkPath("ntsc.mp4");
    Ffmpeg({"-f", "lavfi", "-i", "testsrc2=size=160x120:rate=30000/1001:duration=1", "-c:v", "mpeg4", film});
    const auto rate = Muxora({"pack", film, "-o", WorkPath("ntsc.mov"), "-f", "mov"});
    EXPECT_TRUE(Contains(rate.out, "29.970 frames a second are written as 30")) << rate.out;
    EXPECT_TRUE(Contains(rate.out, "by 3.6 s an hour")) << rate.out;
    EXPECT_EQ(Muxora({"pack", film, "-o", WorkPath("n.mov"), "-f", "mov", "--strict"}).exit_code, 1);
    const auto order = Muxora({"pack", Clip("mp4", 2), "-o", WorkPath("b.mp4"), "-f", "mp4"});
    EXPECT_TRUE(Contains(order.out, "those that go by the file's times (browsers) do not")) << order.out;
    ClipSpec longer;
    longer.container = "mp4";
    longer.seconds = 70;
    longer.width = 64;
    longer.height = 48;
    const auto mkv = Muxora({"pack", MakeClip(longer), "-o", WorkPath("longer.mkv"), "-f", "mkv"});
    EXPECT_TRUE(Contains(mkv.out, "time has 16 bits of milliseconds")) << mkv.out;
    // The exact form of TS holds all of it.
    const auto exact = Muxora({"pack", Clip("mp4", 2), "-o", WorkPath("b.xts"), "-f", "xts", "--strict"});
    EXPECT_EQ(exact.exit_code, 0) << exact.err;
}

// Right in the file, and no loss: told, and nothing that --strict refuses.
TEST(Notes, StreamsThatFfmpegDoesNotFindAreNamed) {
    const std::string film = WorkPath("telephone.mov");
    Ffmpeg({"-i", Clip(), "-c:v", "copy", "-c:a", "pcm_alaw", "-ar", "8000", "-ac", "1", film});
    for (const std::string key : {"ts", "gaysps"}) {
        const auto run = Muxora({"pack", film, "-o", WorkPath("telephone." + key), "-f", key, "--strict"});
        EXPECT_EQ(run.exit_code, 0) << run.err;
        EXPECT_TRUE(Contains(run.out, "note: G.711 has no public number in " + key)) << run.out;
    }
    ClipSpec mpeg4;
    mpeg4.video = "mpeg4";
    mpeg4.audio = "";
    const auto part2 = Muxora({"pack", MakeClip(mpeg4), "-o", WorkPath("part2.mpg"), "-f", "gdps"});
    EXPECT_TRUE(Contains(part2.out, "note: MPEG-4 has no public number in gdps: ")) << part2.out << part2.err;
    EXPECT_EQ(test::Probe(WorkPath("part2.mpg"), "", "stream=codec_name"), "h264") << "the note says so";
    const std::string pictures = WorkPath("pictures.avi");
    Ffmpeg({"-i", Clip(), "-an", "-c:v", "mjpeg", pictures});
    const auto jpeg = Muxora({"pack", pictures, "-o", WorkPath("pictures.mpg"), "-f", "ovps", "--json"});
    EXPECT_TRUE(Contains(jpeg.out, "Motion JPEG has no public number in ovps")) << jpeg.out << jpeg.err;
    const auto none = Muxora({"pack", Clip(), "-o", WorkPath("plain.ts"), "-f", "ts"});
    EXPECT_FALSE(Contains(none.out, "public number")) << none.out;
}

TEST(Notes, WhatLiesBehindTheEndOfACutMp4IsCounted) {
    const std::string whole = WorkPath("whole.mp4");
    Ffmpeg({"-i", Clip(), "-c", "copy", "-movflags", "+faststart", whole});
    const auto listed = test::Run({"ffprobe", "-v", "error", "-show_entries", "packet=pos", "-of", "csv=p=0", whole});
    std::vector<size_t> begins;
    std::istringstream lines(listed.out);
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty()) begins.push_back(std::stoul(line));
    }
    std::sort(begins.begin(), begins.end());
    ASSERT_GT(begins.size(), 100u);
    auto bytes = test::ReadFile(whole);
    bytes.resize(begins[begins.size() - 7]);  // exactly between two frames
    const std::string cut = WorkPath("cut.mp4");
    test::WriteFile(cut, bytes);
    const auto run = Muxora({"pack", cut, "-o", WorkPath("cut.ts")});
    EXPECT_EQ(run.exit_code, 0) << run.err;
    EXPECT_TRUE(Contains(run.out, "note: " + cut + " is cut off: 7 of the frames that it lists lie behind its end"))
        << run.out;
    EXPECT_EQ(Muxora({"pack", cut, "-o", WorkPath("cut2.ts"), "--strict"}).exit_code, 1);
    const auto good = Muxora({"pack", whole, "-o", WorkPath("whole.ts"), "--strict"});
    EXPECT_EQ(good.exit_code, 0) << good.err;
}

TEST(Notes, AStreamThatBeginsLate) {
    const std::string late = WorkPath("late.mkv");
    Ffmpeg({"-itsoffset", "2", "-i", Clip(), "-i", Clip(), "-map", "0:v", "-map", "1:a", "-c", "copy", late});
    const auto fragmented = Muxora({"pack", late, "-o", WorkPath("late.mp4"), "-f", "fmp4"});
    EXPECT_EQ(fragmented.exit_code, 0) << fragmented.err;
    EXPECT_EQ(Pictures(WorkPath("late.mp4")), Pictures(Clip()));
    const auto matroska = Muxora({"pack", late, "-o", WorkPath("late2.mkv")});
    EXPECT_EQ(matroska.exit_code, 1);
    EXPECT_TRUE(Contains(matroska.err, "the video begins more than a second behind the rest (choose -f hmp4"))
        << matroska.err;
}

TEST(Small, ALimitIsNamedAndNotTheCodec) {
    const std::string fast = WorkPath("fast.wav");
    Ffmpeg({"-f", "lavfi", "-i", "sine=duration=1:sample_rate=48000", fast});
    const auto run = Muxora({"pack", fast, "-o", WorkPath("fast.flv")});
    EXPECT_EQ(run.exit_code, 1);
    EXPECT_TRUE(Contains(run.err, "FLV has numbers for PCM at 5512, 11025, 22050 and 44100 Hz, in one or two channels"))
        << run.err;
}

TEST(Small, ThingsAUserTypes) {
    const auto bogus = Muxora({"bogus"});
    EXPECT_EQ(bogus.exit_code, 2);
    EXPECT_TRUE(Contains(bogus.err, "there is no command 'bogus'; there are: formats, inspect, pack")) << bogus.err;
    const auto version = Muxora({"--version"});
    EXPECT_EQ(version.out.rfind("muxora 1.", 0), 0u) << version.out;
    EXPECT_TRUE(Contains(version.out, " (")) << version.out;
    const auto negative = Muxora({"pack", Clip(), "-o", "x.ts", "--duration", "-1"});
    EXPECT_EQ(negative.exit_code, 2);
    EXPECT_LT(negative.err.size(), 160u) << negative.err;
    const auto target = Muxora({"send", Clip(), "--to", "foo://127.0.0.1:5000"});
    EXPECT_EQ(target.exit_code, 2);
    EXPECT_TRUE(Contains(target.err, "is no rtp://HOST:PORT, udp://HOST:PORT or srt://HOST:PORT")) << target.err;
    const std::string telephone = WorkPath("mulaw.wav");
    Ffmpeg({"-f", "lavfi", "-i", "sine=duration=1:sample_rate=8000", "-c:a", "pcm_mulaw", telephone});
    const auto sound = Muxora({"send", telephone, "--to", "udp://127.0.0.1:9"});
    EXPECT_TRUE(Contains(sound.err, "(send it to rtp://, or leave the stream out with --no-audio)")) << sound.err;
    const auto stream = Muxora({"pack", Clip(), "-o", WorkPath("x.ts"), "--audio", "9"});
    EXPECT_TRUE(Contains(stream.err, "there is no stream 9 in the inputs; they have streams 0 to 1")) << stream.err;
    const auto nothing = Muxora({"pack", Clip(), "-o", WorkPath("x.ts"), "--no-video", "--no-audio"});
    EXPECT_TRUE(Contains(nothing.err, "both are left out by options")) << nothing.err;
    const auto playlist = Muxora({"pack", Clip(), "-o", WorkPath("x.m3u8"), "-f", "ts"});
    EXPECT_EQ(playlist.exit_code, 2);
    EXPECT_TRUE(Contains(playlist.err, "makes a playlist over CMAF segments")) << playlist.err;
    EXPECT_FALSE(fs::exists(WorkPath("x.m3u8")));
    const auto m2ts = Muxora({"pack", Clip(), "-o", WorkPath("x.m2ts")});
    EXPECT_EQ(m2ts.exit_code, 2);
    EXPECT_TRUE(Contains(m2ts.err, "192 bytes")) << m2ts.err;
    const auto json = Muxora({"pack", "/nowhere.mp4", "-o", WorkPath("x.ts"), "--json"});
    EXPECT_EQ(json.exit_code, 1);
    EXPECT_EQ(json.err, "{\"error\":\"/nowhere.mp4: there is no such file\",\"exit_code\":1}\n");
    ClipSpec mp2;
    mp2.audio = "mp2";
    const auto twice = Muxora({"pack", MakeClip(mp2), "-o", WorkPath("x.flv"), "-f", "flv"});
    EXPECT_TRUE(Contains(twice.err, "MPEG audio (")) << twice.err;
    EXPECT_FALSE(Contains(twice.err, "audio audio")) << twice.err;
}

TEST(Small, AnMp4WithoutItsIndexIsToldAsThat) {
    auto bytes = test::ReadFile(Clip());
    bytes.resize(bytes.size() / 2);
    const std::string cut = WorkPath("noindex.mp4");
    test::WriteFile(cut, bytes);
    const auto run = Muxora({"pack", cut, "-o", WorkPath("noindex.ts")});
    EXPECT_EQ(run.exit_code, 1);
    EXPECT_TRUE(Contains(run.err, "without its index (moov)")) << run.err;
    const auto piped =
        test::Run({"sh", "-c", "cat " + Clip() + " | " MUXORA_TOOL " pack - -o " + WorkPath("pipe.ts") + " --quiet"});
    EXPECT_EQ(piped.exit_code, 1);
    EXPECT_TRUE(Contains(piped.err, "stands last, behind the media")) << piped.err;
}

TEST(Segments, EachIsCompleteAndTogetherTheyHoldAll) {
    const std::string folder = test::FreshDirectory("segments");
    ClipSpec spec;
    spec.container = "mp4";
    spec.seconds = 6;
    const std::string clip = MakeClip(spec);
    const auto whole = Pictures(clip);
    ASSERT_EQ(whole.size(), 150u);
    for (const std::string key : {"mp4", "mkv", "avi", "hmp4", "xmkv", "xts"}) {
        const auto run =
            Muxora({"pack", clip, "-o", folder + "/" + key + "-%02d." + key, "-f", key, "--segment", "2s"});
        ASSERT_EQ(run.exit_code, 0) << run.err;
        std::vector<std::string> pictures;
        for (const std::string number : {"00", "01", "02"}) {
            const auto part = Pictures(folder + "/" + key + "-" + number + "." + key);
            EXPECT_EQ(part.size(), 50u) << key << number;
            pictures.insert(pictures.end(), part.begin(), part.end());
        }
        EXPECT_EQ(pictures, whole) << key;
        EXPECT_FALSE(fs::exists(folder + "/" + key + "-03." + key));
    }
    EXPECT_EQ(Muxora({"pack", clip, "-o", folder + "/one.ts", "--segment", "2s"}).exit_code, 0);
    EXPECT_TRUE(fs::exists(folder + "/one-002.ts"));
    EXPECT_EQ(Muxora({"pack", clip, "-o", folder + "/%Y-%03d.ts", "--segment", "100kB"}).exit_code, 0);
    EXPECT_EQ(Muxora({"pack", clip, "-o", folder + "/same-%Y.ts", "--segment", "2s"}).exit_code, 2);
    EXPECT_EQ(Muxora({"pack", clip, "-o", folder + "/x.ts", "--segment", "much"}).exit_code, 2);
}

TEST(Jobs, OneThatFailsDoesNotStopTheOthers) {
    const std::string in = test::FreshDirectory("jobs_in");
    const std::string out = test::FreshDirectory("jobs_out");
    for (const std::string name : {"a", "b", "d"})
        fs::copy_file(Clip(), in + "/" + name + ".mp4");
    test::WriteFile(in + "/c.mp4", test::Text("This is no film."));
    const auto run = Muxora({"pack", "--jobs", "2", "-f", "ts", "-o", out + "/", "--json", in + "/a.mp4", in + "/b.mp4",
                             in + "/c.mp4", in + "/d.mp4"});
    EXPECT_EQ(run.exit_code, 1);
    EXPECT_TRUE(Contains(run.out, "\"done\":3,\"failed\":1,\"not_begun\":0")) << run.out;
    EXPECT_TRUE(Contains(run.out, "c.mp4: is no media file that can be read")) << run.out;
    EXPECT_EQ(FilesIn(out), (std::vector<std::string>{"a.ts", "b.ts", "d.ts"}));
    for (const std::string name : {"a", "b", "d"})
        EXPECT_EQ(Pictures(out + "/" + name + ".ts").size(), 50u);
    EXPECT_EQ(Muxora({"pack", "--jobs", "2", "-f", "ts", "-o", out + "/no", in + "/a.mp4"}).exit_code, 2);
    // Without a summary, failures are told all the same.
    const auto quiet = Muxora({"pack", "--jobs", "2", "-f", "ts", "-o", out, "--quiet", in + "/a.mp4", in + "/c.mp4"});
    EXPECT_EQ(quiet.out, "");
    EXPECT_EQ(quiet.err, "failed " + in + "/c.mp4: " + in + "/c.mp4: is no media file that can be read\n" +
                             "muxora: 1 of 2 files failed\n");
}

}  // namespace
