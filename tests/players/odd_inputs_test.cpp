// Inputs that are not what their name says, come from elsewhere than a file, or lack what a file ought to have.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <new>
#include <sstream>
#include <string_view>
#include <thread>

#include "media_input/media_input.h"
#include "support/clip.h"
#include "support/hex.h"
#include "support/libav_memory.h"
#include "support/process.h"

namespace Orvane::Muxora::Tools {
namespace {

using test::ByteVector;
using test::ClipSpec;

// What the input is refused with, at its beginning or on the way; "nothing" if it is read to its end.
std::string Refusal(const std::vector<std::string>& paths, const InputOptions& options = {}) {
    try {
        ReadAllFrames(paths, options);
    } catch (const InputError& error) {
        return error.what();
    }
    return "nothing";
}

// All that a format is given of each frame, its bytes as their hash.
std::vector<std::string> AllOf(const std::string& path, const InputOptions& options = {}) {
    std::vector<std::string> all;
    for (const MediaFrame& frame : ReadAllFrames({path}, options)) {
        const std::string_view bytes(reinterpret_cast<const char*>(frame.bytes.data()), frame.bytes.size());
        std::ostringstream text;
        text << frame.type << '.' << frame.sub_type << " at " << frame.time_ms << ", shown at " << frame.pts_ms << ": "
             << frame.Size() << " bytes, " << std::hash<std::string_view>()(bytes);
        all.push_back(text.str());
    }
    return all;
}

std::vector<std::string> NotesOf(const std::string& path, const InputOptions& options = {}) {
    MediaInput input({path}, options);
    MediaFrame frame;
    while (input.Next(frame)) {
    }
    return input.Notes();
}

std::string Ffmpeg(std::vector<std::string> words, const std::string& name) {
    const std::string path = test::WorkPath(name);
    words.insert(words.begin(), {"ffmpeg", "-nostdin", "-v", "error", "-y"});
    words.push_back(path);
    const auto run = test::Run(words);
    if (!run.Ok()) throw std::runtime_error(run.err);
    return path;
}

// The clip with `count` bytes at `offset` behind the first `word` changed to `value`.
std::string Changed(const std::string& clip, const std::string& name, const std::string& word, size_t offset,
                    const ByteVector& value) {
    ByteVector bytes = test::ReadFile(clip);
    const ByteVector wanted = test::Text(word);
    const auto found = std::search(bytes.begin(), bytes.end(), wanted.begin(), wanted.end());
    if (found == bytes.end()) throw std::runtime_error("no " + word + " in " + clip);
    std::copy(value.begin(), value.end(), found + static_cast<std::ptrdiff_t>(offset));
    test::WriteFile(test::WorkPath(name), bytes);
    return test::WorkPath(name);
}

// This process's standard input, until the end of its life.
class StandardInput {
  public:
    explicit StandardInput(int descriptor) : before_(dup(STDIN_FILENO)) { dup2(descriptor, STDIN_FILENO); }
    ~StandardInput() {
        dup2(before_, STDIN_FILENO);
        close(before_);
    }
    StandardInput(const StandardInput&) = delete;
    StandardInput& operator=(const StandardInput&) = delete;

  private:
    int before_;
};

// Where the standard input was closed, the next file that is opened would become it.
void HaveStandardInput() {
    while (fcntl(STDIN_FILENO, F_GETFD) < 0 && open("/dev/null", O_RDONLY) >= 0) {
    }
}

// Does `read` while these bytes come through the standard input, a pipe; signals interrupt it ahead of them.
template <typename Read>
auto Through(const ByteVector& bytes, Read read) {
    HaveStandardInput();
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    struct sigaction act {};
    act.sa_handler = [](int) {};  // without SA_RESTART
    sigaction(SIGUSR1, &act, nullptr);
    signal(SIGPIPE, SIG_IGN);
    const std::jthread writer([&bytes, end = ends[1], reader = pthread_self()] {
        size_t given = 0;
        for (const size_t until : {size_t{2}, bytes.size() / 2, bytes.size()}) {
            for (int i = 0; i < 5; ++i) {
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
                pthread_kill(reader, SIGUSR1);
            }
            while (given < until) {
                const ssize_t count = write(end, bytes.data() + given, until - given);
                if (count <= 0) break;  // nobody reads on
                given += static_cast<size_t>(count);
            }
        }
        close(end);
    });
    const StandardInput from_pipe(ends[0]);
    close(ends[0]);
    return read();
}

TEST(OddInputs, PathsThatLeadNowhere) {
    const std::string clip = test::MakeClip({});
    EXPECT_EQ(Refusal({clip + "/inner.mp4"}), clip + "/inner.mp4: there is no such file");
    const std::string longest = "/" + std::string(5000, 'a');
    EXPECT_EQ(Refusal({longest}), longest + ": cannot be opened: File name too long");
    EXPECT_EQ(Refusal({}), "no input: there is neither a video nor an audio stream to take");
    EXPECT_EQ(Refusal({"http://127.0.0.1:1/film.mp4"}),
              "http://127.0.0.1:1/film.mp4: cannot be opened: Connection refused");
    // No file but an address: its end decides nothing.
    EXPECT_EQ(Refusal({"http://127.0.0.1:1/film.ovx"}),
              "http://127.0.0.1:1/film.ovx: cannot be opened: Connection refused");
    EXPECT_EQ(AllOf("file://" + clip), AllOf(clip));
}

TEST(OddInputs, NamesThatPromiseAnotherFormat) {
    ClipSpec spec;
    spec.container = "mp4";
    const ByteVector film = test::ReadFile(test::MakeClip(spec));
    const std::string ovx = test::WorkPath("film.OVX");
    test::WriteFile(ovx, film);
    EXPECT_EQ(Refusal({ovx}), ovx + ": has no intact OVX unit in it");
    const std::string avi = test::WorkPath("film.avi");
    test::WriteFile(avi, film);
    EXPECT_EQ(AllOf(avi), AllOf(test::MakeClip(spec)));
    const std::string tiny = test::WorkPath("tiny.mp4");
    test::WriteFile(tiny, test::Bytes("00 00 00"));
    EXPECT_EQ(Refusal({tiny}), tiny + ": is no media file that can be read");
    const std::string cut = test::WorkPath("cut.mp4");
    test::WriteFile(cut, test::Slice(film, 0, film.size() / 2));
    EXPECT_EQ(Refusal({cut}),
              cut +
                  ": is an MP4 or MOV file without its index (moov), as a recording that was cut off; 'muxora repair' "
                  "completes it if a snapshot was kept");
}

TEST(OddInputs, StreamsThatAreNotThere) {
    ClipSpec sound;
    sound.video = "";
    sound.container = "aac";
    const std::string path = test::MakeClip(sound);
    InputOptions options;
    options.audio = 2;
    EXPECT_EQ(Refusal({path}, options), "there is no stream 2 in the inputs; they have stream 0 alone");
    EXPECT_EQ(Refusal({path, path}, options), "there is no stream 2 in the inputs; they have streams 0 to 1");
    options.audio = StreamChoice::kNone;
    EXPECT_EQ(Refusal({path}, options), path + ": there is neither a video nor an audio stream to take");
    options.video = StreamChoice::kNone;
    EXPECT_EQ(Refusal({path}, options),
              "there is neither a video nor an audio stream to take: both are left out by options");
}

TEST(OddInputs, ACoverPictureIsNoFilm) {
    const std::string cover = Ffmpeg({"-f", "lavfi", "-i", "testsrc2=s=64x64", "-frames:v", "1"}, "cover.jpg");
    ClipSpec sound;
    sound.video = "";
    sound.container = "mp4";
    const std::string song = Ffmpeg({"-i", test::MakeClip(sound), "-i", cover, "-map", "0", "-map", "1", "-c", "copy",
                                     "-disposition:v", "attached_pic"},
                                    "song.m4a");
    const MediaInput input({song});
    EXPECT_EQ(input.Video(), nullptr);
    ASSERT_NE(input.Audio(), nullptr);
    ASSERT_EQ(NotesOf(song).size(), 1u);
    EXPECT_EQ(NotesOf(song)[0], "left out of " + song +
                                    ": stream 1 (cover picture mjpeg); one video and one audio stream go in, chosen "
                                    "with --video N and --audio N");
    // It may be chosen all the same.
    InputOptions options;
    options.video = 1;
    const auto frames = ReadAllFrames({song}, options);
    EXPECT_EQ(std::count_if(frames.begin(), frames.end(), [](const MediaFrame& one) { return one.IsVideo(); }), 1);
}

TEST(OddInputs, ATrackOfAnUnknownKindIsToldOf) {
    ClipSpec spec;
    spec.container = "mp4";
    std::string path = Changed(test::MakeClip(spec), "kind.mp4", "soun", 0, test::Text("xxxx"));
    path = Changed(path, "kind.mp4", "mp4a", 0, test::Text("zzzz"));
    ASSERT_EQ(NotesOf(path).size(), 1u);
    EXPECT_NE(NotesOf(path)[0].find("stream 1 (data none"), std::string::npos) << NotesOf(path)[0];
}

// What the head of an MP4 file does not state is found out by reading on, and the frames are the same.
TEST(OddInputs, HeadsThatDoNotStateAll) {
    ClipSpec spec;
    spec.container = "mp4";
    spec.b_frames = 2;
    const std::string clip = test::MakeClip(spec);
    const auto expected = AllOf(clip);
    ASSERT_GE(expected.size(), 50u + 93u);
    EXPECT_EQ(AllOf(Changed(clip, "no_duration.mp4", "mdhd", 20, test::Bytes("00 00 00 00"))), expected);
    EXPECT_EQ(AllOf(Changed(clip, "no_width.mp4", "stsd", 44, test::Bytes("00 00"))), expected);
    EXPECT_EQ(AllOf(Changed(clip, "no_height.mp4", "stsd", 46, test::Bytes("00 00"))), expected);
    // Made of fragments, which list their frames as they come.
    EXPECT_EQ(AllOf(Ffmpeg({"-i", clip, "-c", "copy", "-movflags", "frag_keyframe+empty_moov+default_base_moof"},
                           "fragments.mp4"))
                  .size(),
              expected.size());
}

TEST(OddInputs, H264WithoutAConfigurationIsRefused) {
    ClipSpec spec;
    spec.container = "mp4";
    const std::string path = Changed(test::MakeClip(spec), "no_avcc.mp4", "avcC", 0, test::Text("xxxx"));
    EXPECT_EQ(Refusal({path}), path + ": its streams cannot be read: Invalid data found when processing input");
}

TEST(OddInputs, SoundWhoseConfigurationIsDamaged) {
    ClipSpec spec;
    spec.video = "";
    spec.container = "mp4";
    const std::string clip = test::MakeClip(spec);
    // The AudioSpecificConfig stands behind the tag 05 of the esds: 11 88, AAC LC at 48000 Hz, mono.
    const ByteVector bytes = test::ReadFile(clip);
    const ByteVector config = test::Bytes("05 80 80 80 05 11 88");
    const auto found = std::search(bytes.begin(), bytes.end(), config.begin(), config.end());
    ASSERT_NE(found, bytes.end());
    const auto with = [&](const ByteVector& changed) {
        ByteVector copy = bytes;
        std::copy(changed.begin(), changed.end(), copy.begin() + (found - bytes.begin()) + 5);
        const std::string path = test::WorkPath("config.mp4");
        test::WriteFile(path, copy);
        return path;
    };
    EXPECT_NE(Refusal({with(test::Bytes("11 80"))}).find("laid out by a program config element"), std::string::npos);
    // Object type 1 has a number as well; 22050 Hz might hide SBR, and is read further.
    EXPECT_EQ(Refusal({with(test::Bytes("09 88"))}), "nothing");
    EXPECT_EQ(Refusal({with(test::Bytes("13 88"))}), "nothing");
}

TEST(OddInputs, ThroughAPipeAllIsAsInAFile) {
    struct Case {
        const char* container;
        const char* video;
        int b_frames;
    };
    for (const Case& one : {Case{"h264", "h264", 2}, Case{"hevc", "hevc", 0}, Case{"ts", "h264", 0},
                            Case{"mkv", "mpeg2video", 0}, Case{"wav", "", 0}}) {
        SCOPED_TRACE(one.container);
        ClipSpec spec;
        spec.container = one.container;
        spec.video = one.video;
        spec.b_frames = one.b_frames;
        const bool raw = spec.container == spec.video;
        if (raw) spec.audio = "";
        if (spec.container == "wav") spec.audio = "alaw";
        const std::string clip = test::MakeClip(spec);
        auto expected = AllOf(clip);
        auto found = Through(test::ReadFile(clip), [] { return AllOf("-"); });
        EXPECT_EQ(found, expected);
    }
}

TEST(OddInputs, WhatAPipeCannotGiveIsRefused) {
    ClipSpec spec;
    spec.container = "mp4";
    const ByteVector film = test::ReadFile(test::MakeClip(spec));
    EXPECT_EQ(Through(film, [] { return Refusal({"-"}); }),
              "standard input: is an MP4 or MOV file whose index (moov) is missing or stands last, behind the media; "
              "from a pipe it has to stand in front: give the file by name, or move the index with 'ffmpeg -i IN -c "
              "copy -movflags +faststart OUT'");
    const auto fast =
        test::ReadFile(Ffmpeg({"-i", test::MakeClip(spec), "-c", "copy", "-movflags", "+faststart"}, "faststart.mp4"));
    EXPECT_EQ(Through(fast, [] { return AllOf("-"); }), AllOf(test::MakeClip(spec)));
    EXPECT_EQ(Through(test::Text(std::string(3000, 'a')), [] { return Refusal({"-"}); }),
              "standard input: is no media file that can be read");
    EXPECT_EQ(Through(test::Text("ORVX and no unit"), [] { return Refusal({"-"}); }),
              "standard input: has no intact OVX unit in it");
    // What cannot be read at all.
    HaveStandardInput();
    const int folder = open(test::WorkDirectory().c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(folder, 0);
    const StandardInput from_folder(folder);
    close(folder);
    EXPECT_EQ(Refusal({"-"}), "standard input: cannot be opened: Is a directory");
}

// A named pipe is opened once, and read as it comes.
TEST(OddInputs, RawVideoOutOfANamedPipe) {
    ClipSpec spec;
    spec.container = "h264";
    spec.audio = "";
    const std::string clip = test::MakeClip(spec);
    const std::string path = test::WorkPath("camera.h264");
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const ByteVector bytes = test::ReadFile(clip);
    signal(SIGPIPE, SIG_IGN);
    std::thread writer([&] { test::WriteFile(path, bytes); });
    const auto found = AllOf(path);
    writer.join();
    EXPECT_EQ(found, AllOf(clip));
}

// One stream ends early: of the other no more than some 32 MiB are held at a time, and all of it comes.
TEST(OddInputs, AStreamThatRunsFarAhead) {
    const std::string path = Ffmpeg({"-f", "lavfi", "-i", "testsrc2=s=64x64:r=25:d=0.04", "-f", "lavfi", "-i",
                                     "sine=r=48000:d=200", "-c:v", "mjpeg", "-c:a", "pcm_s16le", "-ac", "2"},
                                    "ahead.mkv");
    MediaInput input({path});
    MediaFrame frame;
    uint64_t sound = 0;
    while (input.Next(frame))
        sound += frame.IsVideo() ? 0 : frame.Size();
    EXPECT_EQ(sound, 200u * 48000 * 4);
}

// Whatever allocation of libav's fails on the way: a reason, or frames as ever; some it does without.
TEST(OddInputs, WithoutMemoryTheInputSaysSo) {
    ClipSpec spec;
    spec.container = "mp4";
    spec.seconds = 0.2;
    ClipSpec raw = spec;
    raw.container = "h264";
    raw.audio = "";
    for (const std::string& path : {test::MakeClip(spec), test::MakeClip(raw)}) {
        const size_t whole = AllOf(path).size();
        size_t refused = 0;
        for (size_t count = 1;; count += 1 + count / 50) {
            SCOPED_TRACE(path + " " + std::to_string(count));
            const test::FailingLibavAllocation failing(count);
            try {
                EXPECT_LE(AllOf(path).size(), whole);
            } catch (const InputError& error) {
                EXPECT_EQ(std::string(error.what()).rfind(path, 0), 0u) << error.what();
                ++refused;
            } catch (const std::bad_alloc&) {
                ++refused;
            }
            if (!failing.Failed()) break;
        }
        EXPECT_GE(refused, 10u);
    }
}

}  // namespace
}  // namespace Orvane::Muxora::Tools
