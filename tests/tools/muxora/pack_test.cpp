// muxora pack of inputs that nobody made ready: right output, or a clear error and nothing left behind.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <sstream>
#include <thread>

#include "support/hex.h"
#include "tool.h"

namespace {

namespace fs = std::filesystem;
using test::ClipSpec;
using test::Contains;
using test::FilesIn;
using test::MakeClip;
using test::Muxora;
using test::Pictures;
using test::WorkPath;

ClipSpec Clip(const std::string& container, int b_frames = 0) {
    ClipSpec spec;
    spec.container = container;
    spec.b_frames = b_frames;
    return spec;
}

// Files in which ffmpeg finds the pictures of any H.264 clip again.
const std::vector<std::string> kContainers{"mp4", "mov", "mp464", "mov64", "mp4noseek", "mkv",  "avi",  "asf", "flv",
                                           "ts",  "ps",  "ovps",  "fmp4",  "hmp4",      "xmkv", "xflv", "xts"};

// Large pictures of a file are never read, those of a pipe are.
TEST(LargePictures, AFileGivesTheBytesThatAPipeGives) {
    ClipSpec spec = Clip("mp4", 2);
    spec.noise = true;
    spec.slices = 3;
    spec.index_in_front = true;
    const std::string clip = MakeClip(spec);
    // Those that state no date.
    for (const std::string key : {"avi", "flv", "rtp", "ts", "ps", "xmkv", "xflv", "xts"}) {
        const std::string from_file = WorkPath("from_file." + key);
        const std::string from_pipe = WorkPath("from_pipe." + key);
        EXPECT_TRUE(Muxora({"pack", clip, "-f", key, "-o", from_file, "--quiet"}).Ok()) << key;
        const auto piped = test::Run(
            {"sh", "-c", "cat " + clip + " | " MUXORA_TOOL " pack - -f " + key + " -o " + from_pipe + " --quiet"});
        EXPECT_TRUE(piped.Ok()) << key << piped.err;
        EXPECT_GT(fs::file_size(from_file), 2000000u) << key;
        EXPECT_TRUE(test::ReadFile(from_file) == test::ReadFile(from_pipe)) << key;
        fs::remove(from_file);
        fs::remove(from_pipe);
    }
}

// Megabytes a picture.
std::string ClipOfMegabytes(const std::string& container, double seconds) {
    ClipSpec spec = Clip(container);
    spec.noise = true;
    spec.width = 2560;
    spec.height = 1440;
    spec.seconds = seconds;
    return MakeClip(spec);
}

TEST(LargePictures, OnesThatAFormatDoesNotTakeAreRefusedAsThat) {
    const std::string clip = ClipOfMegabytes("mp4", 0.2);
    for (const std::string key : {"mkv", "ts", "flv"}) {
        const auto run = Muxora({"pack", clip, "-f", key, "-o", WorkPath("large." + key)});
        EXPECT_EQ(run.exit_code, 1) << key;
        EXPECT_EQ(run.err.rfind("muxora: " + key + " does not take pictures as large as this one, of ", 0), 0u)
            << run.err;
        EXPECT_TRUE(Contains(run.err, " bytes (choose another format with -f, such as hmp4 or xmkv)\n")) << run.err;
    }
    EXPECT_TRUE(Muxora({"pack", clip, "-f", "xmkv", "-o", WorkPath("large.mkv")}).Ok());
}

// The first packets of the sound lie behind more bytes than libavformat looks into by itself.
TEST(LargePictures, SoundBehindThemIsFoundInATransportStream) {
    const auto run = Muxora({"pack", ClipOfMegabytes("ts", 0.4), "-o", WorkPath("large.mp4")});
    EXPECT_EQ(run.exit_code, 0) << run.err;
    EXPECT_TRUE(Contains(run.out, "AAC 48000 Hz, 1 ch")) << run.out;
}

struct InputCase {
    const char* name;
    ClipSpec spec;
};

class Inputs : public testing::TestWithParam<InputCase> {};

TEST_P(Inputs, EveryPictureComesBackFromEveryContainer) {
    const std::string clip = MakeClip(GetParam().spec);
    const auto expected = Pictures(clip);
    ASSERT_EQ(expected.size(), 50u);
    for (const std::string& key : kContainers) {
        const std::string out = WorkPath(std::string(GetParam().name) + "." + key);
        const auto run = Muxora({"pack", clip, "-o", out, "-f", key});
        EXPECT_EQ(run.exit_code, 0) << key << run.err;
        EXPECT_EQ(run.err, "") << key;
        EXPECT_TRUE(Contains(run.out, "50 given, 50 written, 0 dropped")) << key << run.out;
        EXPECT_EQ(Pictures(out), expected) << key;
        fs::remove(out);
    }
}

INSTANTIATE_TEST_SUITE_P(All, Inputs,
                         testing::Values(InputCase{"mp4_with_b_pictures", Clip("mp4", 2)},
                                         InputCase{"matroska", Clip("mkv")}, InputCase{"ts", Clip("ts")},
                                         InputCase{"avi", Clip("avi")},
                                         InputCase{"raw",
                                                   [] {
                                                       ClipSpec spec = Clip("h264");
                                                       spec.audio = "";
                                                       return spec;
                                                   }()}),
                         [](const auto& param) { return std::string(param.param.name); });

TEST(Pack, ShortStartCodes) {
    ClipSpec spec = Clip("h264");
    spec.audio = "";
    spec.slices = 3;
    const std::string clip = MakeClip(spec);
    // Every start code of the stream loses its leading zero.
    std::vector<uint8_t> bytes;
    const std::vector<uint8_t> source = test::ReadFile(clip);
    for (size_t i = 0; i < source.size(); ++i) {
        const bool code_of_four =
            i + 3 < source.size() && source[i] == 0 && source[i + 1] == 0 && source[i + 2] == 0 && source[i + 3] == 1;
        if (!code_of_four) bytes.push_back(source[i]);
    }
    ASSERT_LT(bytes.size() + 40, source.size());
    const std::string shorter = WorkPath("short.h264");
    test::WriteFile(shorter, bytes);
    const auto expected = Pictures(clip);
    ASSERT_EQ(expected.size(), 50u);
    for (const std::string key : {"mkv", "mp4", "flv", "avi", "ts", "ps"}) {
        const std::string out = WorkPath("short." + key);
        ASSERT_EQ(Muxora({"pack", shorter, "-o", out}).exit_code, 0);
        EXPECT_EQ(Pictures(out), expected) << key;
    }
}

TEST(Pack, SoundAtOddRates) {
    for (const int rate : {11025, 22050, 44100, 96000}) {
        ClipSpec spec = Clip("mkv");
        spec.sample_rate = rate;
        const std::string clip = MakeClip(spec);
        for (const std::string key : {"mp4", "mkv", "ts", "avi", "flv"}) {
            const std::string out = WorkPath("rate." + key);
            const auto run = Muxora({"pack", clip, "-o", out});
            ASSERT_EQ(run.exit_code, 0) << run.err;
            // FLV has four rates; the decoder learns the true one from the configuration.
            const std::string expected = "aac\n" + std::to_string(rate);
            // ffprobe lists the streams of a TS twice, once below their program.
            EXPECT_EQ(test::Probe(out, "a:0", "stream=codec_name,sample_rate").substr(0, expected.size()), expected)
                << key;
            const auto sound = test::DecodeAudio(out);
            EXPECT_GE(sound.frames.size(), static_cast<size_t>(rate) * 2 / 1024 - 1) << key;
        }
    }
}

TEST(Pack, OneStreamAlone) {
    ClipSpec video = Clip("mkv");
    video.audio = "";
    ClipSpec sound = Clip("aac");
    sound.video = "";
    ClipSpec telephone = Clip("wav");
    telephone.video = "";
    telephone.audio = "pcm";
    telephone.sample_rate = 8000;
    EXPECT_EQ(Muxora({"pack", MakeClip(video), "-o", WorkPath("video.mp4")}).exit_code, 0);
    EXPECT_EQ(test::Probe(WorkPath("video.mp4"), "", "stream=codec_name"), "h264");
    EXPECT_EQ(Muxora({"pack", MakeClip(sound), "-o", WorkPath("sound.ts")}).exit_code, 0);
    EXPECT_EQ(test::Probe(WorkPath("sound.ts"), "a:0", "stream=codec_name").substr(0, 3), "aac");
    EXPECT_EQ(test::DecodeAudio(WorkPath("sound.ts")).errors, "");
    EXPECT_EQ(Muxora({"pack", MakeClip(telephone), "-o", WorkPath("telephone.wav")}).exit_code, 0);
    EXPECT_EQ(test::Probe(WorkPath("telephone.wav"), "a:0", "stream=codec_name,sample_rate"), "pcm_s16le\n8000");
}

TEST(Pack, ATruncatedFileGivesWhatItHolds) {
    // A TS that ends in the middle of a frame, and an MP4 with its index in front and its media cut.
    const auto cut = [](const std::string& from, const std::string& name) {
        std::vector<uint8_t> bytes = test::ReadFile(from);
        bytes.resize(bytes.size() * 6 / 10);
        test::WriteFile(WorkPath(name), bytes);
        return WorkPath(name);
    };
    const std::string ts = cut(MakeClip(Clip("ts")), "cut.ts");
    ASSERT_EQ(Muxora({"pack", ts, "-o", WorkPath("cut.mkv")}).exit_code, 0);
    const auto whole = Pictures(MakeClip(Clip("ts")));
    // The last picture is a half one.
    const auto found = test::DecodeVideo(WorkPath("cut.mkv")).Hashes();
    EXPECT_GE(found.size(), 20u);
    EXPECT_LT(found.size(), 50u);
    EXPECT_TRUE(std::equal(found.begin(), found.end() - 1, whole.begin()));

    const std::string fast = WorkPath("fast.mp4");
    ASSERT_TRUE(test::Run({"ffmpeg", "-v", "error", "-y", "-i", MakeClip(Clip("mp4")), "-c", "copy", "-movflags",
                           "+faststart", fast})
                    .Ok());
    const auto run = Muxora({"pack", cut(fast, "cut.mp4"), "-o", WorkPath("cut2.mkv")});
    ASSERT_EQ(run.exit_code, 0) << run.err;
    const auto from_mp4 = Pictures(WorkPath("cut2.mkv"));
    EXPECT_GE(from_mp4.size(), 20u);
    EXPECT_TRUE(std::equal(from_mp4.begin(), from_mp4.end(), Pictures(MakeClip(Clip("mp4"))).begin()));

    // Without its index there is nothing to hold on to.
    const std::string folder = test::FreshDirectory("cut");
    const auto lost = Muxora({"pack", cut(MakeClip(Clip("mp4")), "lost.mp4"), "-o", folder + "/x.mkv"});
    EXPECT_EQ(lost.exit_code, 1);
    EXPECT_TRUE(test::IsOneLine(lost.err)) << lost.err;
    EXPECT_TRUE(FilesIn(folder).empty());
}

struct BadCase {
    const char* name;
    std::vector<std::string> words;  // {} stands for the output directory
    const char* says;
};

class Bad : public testing::TestWithParam<BadCase> {};

TEST_P(Bad, IsToldInOneLineAndLeavesNothing) {
    const std::string folder = test::FreshDirectory("bad");
    test::WriteFile(WorkPath("text.txt"), test::Text("This is a letter.\nIt is no film.\n"));
    test::WriteFile(WorkPath("noise.mp4"), std::vector<uint8_t>(5000, 0x5A));
    test::WriteFile(WorkPath("nothing.ts"), {});
    std::vector<std::string> words{"pack"};
    for (std::string word : GetParam().words) {
        if (word.rfind("{}", 0) == 0) word = folder + word.substr(2);
        if (word == "CLIP") word = MakeClip(Clip("mp4"));
        if (word == "SOUND") {
            ClipSpec sound = Clip("aac");
            sound.video = "";
            word = MakeClip(sound);
        }
        if (word == "MP3") {
            ClipSpec mp3 = Clip("mkv");
            mp3.audio = "mp3";
            word = MakeClip(mp3);
        }
        if (word == "HEVC") {
            ClipSpec hevc = Clip("mkv");
            hevc.video = "hevc";
            word = MakeClip(hevc);
        }
        if (word.rfind("@", 0) == 0) word = WorkPath(word.substr(1));
        words.push_back(word);
    }
    const auto run = Muxora(words);
    EXPECT_EQ(run.exit_code, 1);
    EXPECT_TRUE(test::IsOneLine(run.err)) << run.err;
    EXPECT_TRUE(Contains(run.err, GetParam().says)) << run.err;
    EXPECT_EQ(run.out, "");
    EXPECT_TRUE(FilesIn(folder).empty());
}

INSTANTIATE_TEST_SUITE_P(
    All, Bad,
    testing::Values(
        BadCase{"text", {"@text.txt", "-o", "{}/x.mp4"}, "text.txt"},
        BadCase{"noise", {"@noise.mp4", "-o", "{}/x.mp4"}, "is no media file that can be read"},
        BadCase{"empty", {"@nothing.ts", "-o", "{}/x.mp4"}, "is empty"},
        BadCase{"standard_input", {"-", "-o", "{}/x.mp4"}, "standard input: "},
        BadCase{"missing", {"/nowhere/x.mp4", "-o", "{}/x.mp4"}, "there is no such file"},
        BadCase{"directory_in", {"/tmp", "-o", "{}/x.mp4"}, "is a directory"},
        BadCase{"directory_out", {"CLIP", "-o", "{}", "-f", "ts"}, "is a directory"},
        BadCase{"no_directory", {"CLIP", "-o", "{}/no/x.ts"}, "make the directory first"},
        BadCase{"full_device", {"CLIP", "-o", "/dev/full", "-f", "ts"}, "No space left on device"},
        BadCase{"full_device_patched", {"CLIP", "-o", "/dev/full", "-f", "mp4"}, "/dev/full"},
        BadCase{"codec_of_video",
                {"HEVC", "-o", "{}/x.mkv", "-f", "mkv"},
                "mkv does not take H.265 video; its video: H.264, MPEG-4"},
        BadCase{"codec_of_audio", {"MP3", "-o", "{}/x.mkv", "-f", "mkv"}, "mkv does not take MPEG audio"},
        BadCase{
            "codec_late", {"HEVC", "-o", "{}/x.gaysps", "-f", "gaysps", "--no-audio"}, "gaysps does not take H.265"},
        BadCase{"sound_alone", {"SOUND", "-o", "{}/x.mp4", "-f", "mp4"}, "begins with a video key frame"},
        BadCase{"sound_alone_stream", {"SOUND", "-o", "{}/x.flv", "-f", "flv"}, "begins with a video key frame"},
        BadCase{"video_into_wav", {"CLIP", "-o", "{}/x.wav", "--no-audio"}, "wav does not take H.264 video"},
        BadCase{"nothing_chosen", {"CLIP", "-o", "{}/x.ts", "--no-audio", "--no-video"}, "neither a video nor"},
        BadCase{"no_such_stream", {"CLIP", "-o", "{}/x.ts", "--audio", "9"}, "no stream 9"}),
    [](const auto& param) { return std::string(param.param.name); });

TEST(Pack, AFullFileSystemLeavesNothing) {
    // A limit on the size of files stands for a full disk: the write fails half-way. Files that were there stay.
    const std::string folder = test::FreshDirectory("full");
    const std::string clip = MakeClip(Clip("mp4"));
    for (const std::string key : {"mp4", "ts", "mkv", "avi", "ovx"}) {
        const auto run = test::Run({"prlimit", "--fsize=60000", MUXORA_TOOL, "pack", clip, "-o", folder + "/x." + key});
        EXPECT_EQ(run.exit_code, 1) << key;
        EXPECT_TRUE(test::IsOneLine(run.err)) << run.err;
        EXPECT_TRUE(Contains(run.err, "cannot write " + folder + "/x." + key)) << run.err;
    }
    EXPECT_TRUE(FilesIn(folder).empty());
    test::WriteFile(folder + "/old.ts", {1, 2, 3});
    EXPECT_EQ(test::Run({"prlimit", "--fsize=60000", MUXORA_TOOL, "pack", clip, "-o", folder + "/old.ts"}).exit_code,
              1);
    EXPECT_EQ(test::ReadFile(folder + "/old.ts"), (std::vector<uint8_t>{1, 2, 3}));
    EXPECT_EQ(FilesIn(folder), std::vector<std::string>{"old.ts"});
}

TEST(Pack, APipeGetsTheBytesOfTheFile) {
    ClipSpec telephone = Clip("mov");
    telephone.audio = "pcm";
    telephone.sample_rate = 16000;
    for (const std::string key : {"ts", "ps", "ovps", "flvstream", "asfstream", "mp4noseek", "ovx", "fmp4", "xts"}) {
        const std::string out = WorkPath("piped." + key);
        const std::string clip = MakeClip(key == "asfstream" ? telephone : Clip("mp4"));
        ASSERT_EQ(Muxora({"pack", clip, "-o", out, "-f", key, "--quiet"}).exit_code, 0) << key;
        const auto run = Muxora({"pack", clip, "-o", "-", "-f", key});
        EXPECT_EQ(run.exit_code, 0);
        EXPECT_TRUE(Contains(run.err, "written")) << run.err;
        const auto file = test::ReadFile(out);
        // Some formats write the time of day.
        EXPECT_EQ(run.out.size(), file.size()) << key;
        if (key == "ts" || key == "flvstream") {
            EXPECT_EQ(run.out, std::string(file.begin(), file.end())) << key;
        }
    }
}

TEST(Pack, TheSummaryCountsFrames) {
    const std::string clip = MakeClip(Clip("mp4"));
    const std::string out = WorkPath("count.mp4");
    const auto text = Muxora({"pack", clip, "-o", out, "-f", "mp4"});
    // The sound of the clip begins a frame ahead of the pictures.
    EXPECT_TRUE(Contains(text.out, "frames: 50 given, 50 written, 0 dropped\n")) << text.out;
    EXPECT_TRUE(Contains(text.out, "given, 94 written, 1 dropped\n")) << text.out;
    EXPECT_EQ(text.err, "");
    EXPECT_EQ(test::Probe(out, "a:0", "stream=nb_frames"), "94");
    const auto json = Muxora({"pack", clip, "-o", out, "--json"});
    EXPECT_EQ(test::Probe(out, "a:0", "stream=nb_frames"), "95");
    EXPECT_TRUE(Contains(json.out, "\"format\":\"hmp4\",\"bytes\":" + std::to_string(fs::file_size(out)))) << json.out;
    EXPECT_TRUE(Contains(json.out, "\"given\":50,\"written\":50,\"dropped\":0")) << json.out;
    EXPECT_EQ(Muxora({"pack", clip, "-o", out, "--quiet"}).out, "");
}

TEST(Pack, SoundThatAFixedHeaderWouldMisstateIsRefused) {
    struct Sound {
        const char* codec;
        int rate;
        int channels;
        const char* form;
        bool taken;
    };
    const Sound sounds[] = {
        {"pcm", 8000, 1, "wav", true},        {"pcm", 8000, 2, "wav", false},
        {"pcm", 48000, 1, "wav", false},      {"alaw", 8000, 1, "wav", false},
        {"aac", 8000, 1, "wav", false},       {"pcm", 16000, 1, "asfstream", true},
        {"pcm", 8000, 1, "asfstream", false}, {"aac", 48000, 1, "asfstream", false},
    };
    for (const Sound& sound : sounds) {
        ClipSpec spec = Clip("mov");
        spec.audio = sound.codec;
        spec.sample_rate = sound.rate;
        spec.channels = sound.channels;
        const std::string name = std::string(sound.form) + "_" + sound.codec + std::to_string(sound.rate);
        const std::string folder = test::FreshDirectory(name + "x" + std::to_string(sound.channels));
        const bool wav = std::string(sound.form) == "wav";
        std::vector<std::string> words{"pack", MakeClip(spec), "-o", folder + "/out", "-f", sound.form};
        if (wav) words.emplace_back("--no-video");
        const auto run = Muxora(words);
        if (sound.taken) {
            EXPECT_EQ(run.exit_code, 0) << name << run.err;
            EXPECT_EQ(test::Probe(folder + "/out", "a:0", "stream=codec_name,sample_rate,channels"),
                      "pcm_s16le\n" + std::to_string(sound.rate) + "\n1");
            continue;
        }
        EXPECT_EQ(run.exit_code, 1) << name;
        EXPECT_TRUE(test::IsOneLine(run.err)) << run.err;
        EXPECT_TRUE(Contains(run.err, std::string(sound.form) + " always states 16 bit PCM, " +
                                          (wav ? "8000" : "16000") + " Hz, one channel, and players would take"))
            << run.err;
        EXPECT_TRUE(Contains(run.err, wav ? "-c:a pcm_s16le -ar 8000 -ac 1 sound.wav"
                                          : "-c:a pcm_s16le -ar 16000 -ac 1 -c:v copy converted.mov"))
            << run.err;
        EXPECT_TRUE(FilesIn(folder).empty()) << name;
        if (!wav) {
            words.emplace_back("--no-audio");
            EXPECT_EQ(Muxora(words).exit_code, 0) << name;
        }
    }
}

TEST(Pack, NotesTellWhatAFormatCannotSay) {
    const auto plain = Muxora({"pack", MakeClip(Clip("mp4")), "-o", WorkPath("note.mp4"), "-f", "mp4"});
    EXPECT_FALSE(Contains(plain.out, "note:")) << plain.out;
    const auto b_pictures = Muxora({"pack", MakeClip(Clip("mp4", 2)), "-o", WorkPath("note.mp4"), "-f", "mp4"});
    EXPECT_TRUE(Contains(b_pictures.out, "note: what mp4 loses of this input: the video has B pictures"))
        << b_pictures.out;
    EXPECT_TRUE(Contains(b_pictures.out, "(-f hmp4 keeps every time)")) << b_pictures.out;
    const auto exact = Muxora({"pack", MakeClip(Clip("mp4", 2)), "-o", WorkPath("note.mp4")});
    EXPECT_FALSE(Contains(exact.out, "note:")) << exact.out;
    // Frames of 21.333 ms at 48000 Hz.
    const auto flv = Muxora({"pack", MakeClip(Clip("mp4")), "-o", WorkPath("note.flv"), "-f", "flv"});
    EXPECT_TRUE(Contains(flv.out, "AAC frames of 21.333 ms are counted as 21, so sound runs ahead by 56.2 s an hour"))
        << flv.out;
    // 30000/1001 pictures a second.
    const std::string film = WorkPath("film.mp4");
    ASSERT_TRUE(test::Run({"ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i",
                           "testsrc2=size=160x120:rate=30000/1001:duration=1", "-c:v", "mpeg4", film})
                    .Ok());
    const auto rate = Muxora({"pack", film, "-o", WorkPath("note.mkv"), "-f", "mkv"});
    EXPECT_TRUE(Contains(rate.out, "29.970 frames a second are written as 30")) << rate.out;
}

TEST(Pack, FormsByPathKeepEveryTime) {
    struct Form {
        const char* extension;
        const char* key;
        double scale;  // seconds that a tick of the form lasts
    };
    const std::string film = WorkPath("exact.mkv");
    ASSERT_TRUE(test::Run({"ffmpeg",
                           "-v",
                           "error",
                           "-y",
                           "-f",
                           "lavfi",
                           "-i",
                           "testsrc2=size=160x120:rate=30000/1001:duration=3",
                           "-f",
                           "lavfi",
                           "-i",
                           "sine=sample_rate=44100:duration=3",
                           "-c:v",
                           "libx264",
                           "-preset",
                           "veryfast",
                           "-bf",
                           "3",
                           "-g",
                           "30",
                           "-c:a",
                           "aac",
                           "-video_track_timescale",
                           "30000",
                           film + ".mp4"})
                    .Ok());
    // Presentation times in order, in seconds from the first one.
    const auto times = [](const std::string& path, const std::string& stream) {
        std::istringstream lines(test::Probe(path, stream, "packet=pts_time"));
        std::vector<double> found;
        for (std::string line; std::getline(lines, line);) {
            if (!line.empty() && line.find_first_not_of("-.0123456789,") == std::string::npos)
                found.push_back(std::stod(line));
        }
        std::sort(found.begin(), found.end());
        const double first = found.empty() ? 0 : found.front();
        for (double& time : found)
            time -= first;
        return found;
    };
    for (const Form form : {Form{"mp4", "hmp4", 1e-5}, Form{"mkv", "xmkv", 2e-4}, Form{"flv", "xflv", 1e-3},
                            Form{"ts", "xts", 1.0 / 90000}, Form{"m4s", "fmp4", 1e-5}, Form{"cmfv", "fmp4", 1e-5}}) {
        const std::string out = WorkPath(std::string("exact.") + form.extension);
        const auto run = Muxora({"pack", film + ".mp4", "-o", out, "--strict"});
        ASSERT_EQ(run.exit_code, 0) << run.err;
        EXPECT_EQ(run.out.rfind(out + ": " + form.key + ", ", 0), 0u) << run.out;
        for (const std::string stream : {"v:0", "a:0"}) {
            const auto expected = times(film + ".mp4", stream);
            const auto found = times(out, stream);
            ASSERT_EQ(found.size(), expected.size()) << out << stream;
            for (size_t i = 0; i < found.size(); ++i)
                EXPECT_NEAR(found[i], expected[i], form.scale + 1e-6) << out << stream << " packet " << i;
        }
    }
}

TEST(Pack, ThePicturesTurnIsStatedWhereTheFormCan) {
    const std::string turned = WorkPath("turned_in.mp4");
    ASSERT_TRUE(test::Run({"ffmpeg", "-v", "error", "-y", "-i", MakeClip(Clip("mp4")), "-c", "copy", "-metadata:s:v:0",
                           "rotate=90", turned})
                    .Ok());
    const auto rotation = [](const std::string& path) {
        return test::Probe(path, "v:0", "stream_side_data=rotation").substr(0, 3);
    };
    const std::string expected = rotation(turned);
    ASSERT_FALSE(expected.empty());
    for (const std::string name : {"turned_out.mp4", "turned_out.mkv", "turned_out.m4s"}) {
        const auto run = Muxora({"pack", turned, "-o", WorkPath(name), "--strict"});
        EXPECT_EQ(run.exit_code, 0) << run.err;
        EXPECT_EQ(rotation(WorkPath(name)), expected) << name;
    }
    const auto classic = Muxora({"pack", turned, "-o", WorkPath("turned_out.mov")});
    EXPECT_TRUE(Contains(classic.out, "degrees, which mov does not state")) << classic.out;
}

TEST(Pack, ExactFormsGoThroughPipes) {
    const std::string clip = MakeClip(Clip("mp4", 2));
    for (const std::string key : {"xmkv", "xflv", "xts", "fmp4"}) {
        const std::string out = WorkPath("through_pipe." + key);
        const auto run = test::Run(
            {"sh", "-c", std::string(MUXORA_TOOL " pack ") + clip + " -f " + key + " -o - --quiet | cat > " + out});
        ASSERT_EQ(run.exit_code, 0) << run.err;
        EXPECT_EQ(Pictures(out), Pictures(clip)) << key;
    }
    const auto hybrid = Muxora({"pack", clip, "-o", "-", "-f", "hmp4"});
    EXPECT_EQ(hybrid.exit_code, 2);
    EXPECT_TRUE(Contains(hybrid.err, "choose fmp4")) << hybrid.err;
}

TEST(Pack, OptionsDoWhatTheySay) {
    const std::string clip = MakeClip(Clip("mp4"));
    const std::string out = WorkPath("options.mp4");
    ASSERT_EQ(Muxora({"pack", clip, "-o", out, "--duration", "1", "--no-audio"}).exit_code, 0);
    EXPECT_EQ(test::Probe(out, "", "stream=codec_name,nb_frames"), "h264\n25");
    // The index in front.
    ASSERT_EQ(Muxora({"pack", clip, "-o", out, "-f", "mp4", "--reserve", "20000"}).exit_code, 0);
    const auto bytes = test::ReadFile(out);
    const std::string text(bytes.begin(), bytes.end());
    EXPECT_LT(text.find("moov"), text.find("mdat"));
    EXPECT_EQ(Pictures(out).size(), 50u);
    // Two files, another rate.
    ClipSpec video = Clip("h264");
    video.audio = "";
    ClipSpec sound = Clip("aac");
    sound.video = "";
    ASSERT_EQ(Muxora({"pack", MakeClip(video), MakeClip(sound), "-o", out, "--fps", "50"}).exit_code, 0);
    EXPECT_EQ(test::Probe(out, "", "stream=codec_name,avg_frame_rate"), "h264\n50/1\naac\n0/0");
    // As fast as it plays.
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(Muxora({"pack", clip, "-o", out, "--realtime", "--duration", "1"}).exit_code, 0);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_GE(seconds, 0.95);
    EXPECT_LT(seconds, 5);
}

TEST(Pack, AnInterruptFinishesTheFile) {
    const std::string folder = test::FreshDirectory("interrupt");
    test::Background pack({MUXORA_TOOL, "pack", MakeClip(Clip("mp4")), "-o", folder + "/x.mp4", "--realtime"});
    std::this_thread::sleep_for(std::chrono::milliseconds(1000));
    pack.Signal(SIGINT);
    EXPECT_EQ(pack.Wait(), 0);
    const auto found = Pictures(folder + "/x.mp4");
    EXPECT_GT(found.size(), 5u);
    EXPECT_LT(found.size(), 50u);
    EXPECT_EQ(FilesIn(folder), std::vector<std::string>{"x.mp4"});
}

TEST(Pack, TwoHoursInFlatMemory) {
    // A low resolution clip, repeated by the demuxer's copy without coding anything again.
    ClipSpec spec;
    spec.width = 64;
    spec.height = 48;
    spec.seconds = 60;
    spec.fps = 10;
    spec.gop = 50;
    spec.sample_rate = 8000;
    const std::string clip = MakeClip(spec);
    const std::string ten_minutes = WorkPath("ten_minutes.mkv");
    const std::string two_hours = WorkPath("two_hours.mkv");
    const auto repeat = [&](const std::string& times, const std::string& out) {
        return test::Run({"ffmpeg", "-v", "error", "-y", "-stream_loop", times, "-i", clip, "-c", "copy", out}).Ok();
    };
    ASSERT_TRUE(repeat("9", ten_minutes));
    ASSERT_TRUE(repeat("119", two_hours));
    struct Limit {
        const char* key;
        long kib;  // what two hours may take above ten minutes
    };
    // The reader of Matroska keeps the places of the key frames that it saw. MP4 keeps its sample tables, which is its
    // index: 130000 frames and 20 to 40 bytes for each.
    for (const Limit limit : {Limit{"ts", 4000}, Limit{"mkv", 4000}, Limit{"flv", 4000}, Limit{"ovx", 4000},
                              Limit{"asf", 4000}, Limit{"mp4", 10000}}) {
        const std::string out = WorkPath(std::string("long.") + limit.key);
        const auto small = Muxora({"pack", ten_minutes, "-o", out, "--quiet"});
        const auto large = Muxora({"pack", two_hours, "-o", out, "--json"});
        ASSERT_EQ(small.exit_code, 0) << small.err;
        ASSERT_EQ(large.exit_code, 0) << large.err;
        EXPECT_TRUE(Contains(large.out, "\"given\":72000,\"written\":72000")) << large.out;
        EXPECT_LT(large.peak_kib - small.peak_kib, limit.kib) << limit.key << ": " << small.peak_kib << " KiB for ten "
                                                              << "minutes, " << large.peak_kib << " for two hours";
        fs::remove(out);
    }
}

}  // namespace
