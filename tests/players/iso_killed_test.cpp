// A recording that is killed, and its completion from the last snapshot of its index.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <random>

#include "support/clip.h"
#include "support/decoded.h"
#include "support/iso_file.h"
#include "support/pack.h"

namespace {

using test::ByteVector;
using test::Decoded;
using test::IsoFile;
using test::MediaFrame;

int32_t WriteBlock(const MXOutputBlock* block, void* user) {
    const ssize_t written = pwrite(*static_cast<int*>(user), block->data, block->length, block->offset);
    return written == static_cast<ssize_t>(block->length) ? 0 : 1;
}

// Leaves `position` and the index in a file that is whole at any time.
void KeepSnapshot(MXHandle handle, const std::string& path) {
    MXOutputBlock block{};
    MX_GetBackup(handle, &block);
    ByteVector bytes(4 + block.length);
    std::memcpy(bytes.data(), &block.offset32, 4);
    std::memcpy(bytes.data() + 4, block.data, block.length);
    test::WriteFile(path + ".new", bytes);
    std::rename((path + ".new").c_str(), path.c_str());
}

// Records the frames over and over until it is killed, and tells of each frame through `progress`.
[[noreturn]] void Record(uint32_t format, uint32_t gap, std::vector<MediaFrame> frames, const std::string& path,
                         int progress) {
    int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    MXCreateParam param{};
    param.output = WriteBlock;
    param.user = &file;
    const MXHandle handle = MX_CreateHandle(format, &param);
    MXHeaderInfo header{};
    header.reserved_gap = gap;
    if (file < 0 || MX_CreateHeader(handle, &header) != MX_OK) _exit(1);
    for (uint32_t number = 0;; ++number) {
        MXFrameInfo info = frames[number % frames.size()].Record();
        if (MX_InputFrame(handle, &info) != MX_OK) _exit(2);
        if (number % 7 == 6) KeepSnapshot(handle, path + ".index");
        if (write(progress, "", 1) != 1) _exit(3);
    }
}

// Starts a recording in another process and kills it behind `count` frames, wherever it then is.
void RecordAndKill(uint32_t format, uint32_t gap, const std::vector<MediaFrame>& frames, const std::string& path,
                   uint32_t count) {
    int progress[2];
    ASSERT_EQ(pipe(progress), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) Record(format, gap, frames, path, progress[1]);
    close(progress[1]);
    char byte = 0;
    uint32_t seen = 0;
    while (seen < count && read(progress[0], &byte, 1) == 1)
        ++seen;
    EXPECT_EQ(seen, count);
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    close(progress[0]);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
}

// The index goes to its place, where the file then ends. Where one mdat holds all samples its header, which would have
// been written at the end, gets its size.
void Complete(uint32_t format, const std::string& path) {
    const ByteVector snapshot = test::ReadFile(path + ".index");
    ByteVector file = test::ReadFile(path);
    uint32_t position = 0;
    std::memcpy(&position, snapshot.data(), 4);
    ASSERT_LE(position, file.size());
    file.resize(position);
    file.insert(file.end(), snapshot.begin() + 4, snapshot.end());
    if (format != MX_FORMAT_MP4_NOSEEK) {
        const bool large = format == MX_FORMAT_MP4_64 || format == MX_FORMAT_MOV_64;
        const size_t ftyp = file[3];
        const size_t free_size =
            size_t{file[ftyp]} << 24 | size_t{file[ftyp + 1]} << 16 | size_t{file[ftyp + 2]} << 8 | file[ftyp + 3];
        const size_t mdat = ftyp + free_size;
        const uint64_t size = position - mdat;
        for (size_t i = 0; i < 4; ++i)
            file[mdat + (large ? 12 : 0) + i] = static_cast<uint8_t>(size >> (24 - 8 * i));
    }
    test::WriteFile(path, file);
}

// The first `count` frames of one kind, of the clip played over and over.
std::string Elementary(const std::vector<MediaFrame>& frames, bool video, size_t count, const std::string& path) {
    ByteVector bytes;
    for (size_t i = 0; count != 0; ++i) {
        const MediaFrame& frame = frames[i % frames.size()];
        if (frame.IsVideo() != video) continue;
        bytes.insert(bytes.end(), frame.bytes.begin(), frame.bytes.end() - MediaFrame::kSpare);
        --count;
    }
    test::WriteFile(path, bytes);
    return path;
}

struct Case {
    uint32_t format;
    uint32_t gap;
};

class KilledRecording : public testing::TestWithParam<Case> {};

TEST_P(KilledRecording, PlaysUpToItsLastSnapshot) {
    auto frames = test::ClipFrames({});
    // What comes ahead of the first key frame is not in the file.
    while (!frames.front().IsKey())
        frames.erase(frames.begin());
    std::random_device seed;
    const uint32_t count = 20 + seed() % 400;
    SCOPED_TRACE("killed behind frame " + std::to_string(count));
    const auto [format, gap] = GetParam();
    const std::string path = test::WorkPath("killed" + std::to_string(format) + "_" + std::to_string(gap) + ".mp4");
    RecordAndKill(format, gap, frames, path, count);
    Complete(format, path);

    const IsoFile file(test::ReadFile(path));
    const size_t pictures = file.Sizes(0).size();
    const size_t sounds = file.TrackCount() > 1 ? file.Sizes(1).size() : 0;
    // A snapshot is taken behind each seventh frame.
    EXPECT_GE(pictures + sounds, count - count % 7);
    ASSERT_GT(sounds, 0u);
    EXPECT_EQ(test::Probe(path, "v:0", "stream=nb_frames"), std::to_string(pictures));

    const Decoded video = test::DecodeVideo(path);
    EXPECT_TRUE(video.ok);
    EXPECT_EQ(video.errors, "");
    EXPECT_EQ(video.Hashes(),
              test::DecodeVideo(Elementary(frames, true, pictures, path + ".h264"), {"-f", "h264"}).Hashes());
    EXPECT_EQ(video.frames.size(), pictures);
    const Decoded audio = test::DecodeAudio(path);
    EXPECT_TRUE(audio.ok);
    EXPECT_EQ(audio.errors, "");
    EXPECT_EQ(audio.Hashes(),
              test::DecodeAudio(Elementary(frames, false, sounds, path + ".aac"), {"-f", "aac"}).Hashes());
    EXPECT_EQ(audio.frames.size(), sounds);
}

INSTANTIATE_TEST_SUITE_P(Forms, KilledRecording,
                         testing::Values(Case{MX_FORMAT_MP4, 0}, Case{MX_FORMAT_MP4, 100000}, Case{MX_FORMAT_MOV, 0},
                                         Case{MX_FORMAT_MP4_NOSEEK, 0}, Case{MX_FORMAT_MP4_64, 0},
                                         Case{MX_FORMAT_MOV_64, 0}),
                         [](const auto& form) {
                             return "Format" + std::to_string(form.param.format) + "Gap" +
                                    std::to_string(form.param.gap);
                         });

}  // namespace
