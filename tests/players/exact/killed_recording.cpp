#include "exact/killed_recording.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

namespace test {

namespace {

void Require(bool holds, const char* otherwise) {
    if (!holds) throw std::runtime_error(otherwise);
}

int32_t WriteBlock(const MXOutputBlock* block, void* user) {
    const ssize_t written = pwrite(*static_cast<int*>(user), block->data, block->length, block->offset);
    return written == static_cast<ssize_t>(block->length) ? 0 : 1;
}

// Records the frames over and over, with times that go on, until it is killed; tells of each through `progress`, and
// takes a byte of `allowance` ahead of each. Nothing else bounds the file: a killer that waits for a processor would
// find hours of video.
[[noreturn]] void Record(std::vector<ExactFrame> frames, const std::string& path, int allowance, int progress) {
    int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    MXCreateParam param{};
    param.output = WriteBlock;
    param.user = &file;
    const MXHandle handle = MX_CreateHandle(MX_FORMAT_HMP4, &param);
    if (file < 0 || MX_CreateHeader(handle, nullptr) != MX_OK) _exit(1);
    for (uint32_t round = 0;; ++round) {
        for (ExactFrame& frame : frames) {
            char byte = 0;
            if (read(allowance, &byte, 1) != 1) _exit(4);
            MXFrameInfo record = frame.Record();
            if (MX_InputFrame(handle, &record) != MX_OK) _exit(2);
            if (write(progress, "", 1) != 1) _exit(3);
            frame.dts += int64_t{3} * frame.scale;
            frame.pts += int64_t{3} * frame.scale;
        }
    }
}

uint32_t BE32(const std::vector<uint8_t>& bytes, size_t at) {
    return static_cast<uint32_t>(bytes.at(at)) << 24 | static_cast<uint32_t>(bytes.at(at + 1)) << 16 |
           static_cast<uint32_t>(bytes.at(at + 2)) << 8 | bytes.at(at + 3);
}

}  // namespace

void RecordAndKill(const std::vector<ExactFrame>& frames, const std::string& path, uint32_t count) {
    int progress[2];
    int allowance[2];
    Require(pipe(progress) == 0 && pipe(allowance) == 0, "no pipes");
    const std::string allowed(count + kRecorderAhead, ' ');
    Require(write(allowance[1], allowed.data(), allowed.size()) == static_cast<ssize_t>(allowed.size()),
            "no allowance");
    const pid_t child = fork();
    Require(child >= 0, "no process");
    if (child == 0) Record(frames, path, allowance[0], progress[1]);
    close(progress[1]);
    char byte = 0;
    uint32_t seen = 0;
    while (seen < count && read(progress[0], &byte, 1) == 1)
        ++seen;
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    close(progress[0]);
    close(allowance[0]);
    close(allowance[1]);
    Require(seen == count && WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL, "the recorder ended by itself");
}

uint64_t WholePictures(const std::vector<uint8_t>& file) {
    uint64_t pictures = 0;
    uint64_t pending = 0;
    for (size_t at = 0; at + 8 <= file.size();) {
        const size_t end = at + BE32(file, at);
        if (end > file.size() || end < at + 8) break;
        const std::string type(file.begin() + static_cast<std::ptrdiff_t>(at) + 4,
                               file.begin() + static_cast<std::ptrdiff_t>(at) + 8);
        if (type == "moof") {
            const std::string run = "trun";
            const auto place =
                std::search(file.begin() + static_cast<std::ptrdiff_t>(at), file.end(), run.begin(), run.end());
            pending = BE32(file, static_cast<size_t>(place - file.begin()) + 8);
        }
        if (type == "mdat") pictures += pending;
        at = end;
    }
    return pictures;
}

}  // namespace test
