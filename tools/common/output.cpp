#include "common/output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <utility>

#include "common/errors.h"

namespace Orvane::Muxora::Tools {

namespace {

std::string Reason() {
    return std::strerror(errno);
}

std::string Advice(const std::string& path) {
    switch (errno) {
        case ENOENT:
            return "; make the directory first";
        case EACCES:
        case EROFS:
            return "; choose a directory that you may write to";
        case EISDIR:
            return "; name a file in " + path;
        default:
            return "";
    }
}

}  // namespace

OutputFile::OutputFile(std::string path, Growth growth) : path_(std::move(path)) {
    struct stat status {};
    const bool exists = stat(path_.c_str(), &status) == 0;
    if (exists && S_ISDIR(status.st_mode)) throw Failure(path_ + " is a directory; name a file in it");
    // Devices and pipes are written as they are: there is nothing to put in their place.
    const bool special = exists && !S_ISREG(status.st_mode);
    std::string target = path_;
    int flags = O_WRONLY | O_CLOEXEC | O_CREAT;
    if (!special) {
        flags |= O_TRUNC;
        if (growth == Growth::kBeside) {
            const std::filesystem::path whole(path_);
            target =
                (whole.parent_path() / ("." + whole.filename().string() + "." + std::to_string(getpid()))).string();
        }
    }
    descriptor_ = open(target.c_str(), flags, 0666);
    if (descriptor_ < 0) throw Failure("cannot write " + path_ + ": " + Reason() + Advice(path_));
    if (special) {
        kept_ = true;
    } else {
        working_path_ = target;
    }
    seekable_ = lseek(descriptor_, 0, SEEK_CUR) >= 0 && (!special || !S_ISCHR(status.st_mode));
}

OutputFile::OutputFile(const OwnStdout& out)
    : path_("standard output"), descriptor_(dup(out.Descriptor())), kept_(true) {
    if (descriptor_ < 0) throw Failure("standard output is closed");
}

OutputFile::~OutputFile() {
    if (descriptor_ >= 0) close(descriptor_);
    if (!kept_ && !working_path_.empty()) unlink(working_path_.c_str());
}

void OutputFile::Append(const char* data, size_t size) {
    while (size != 0) {
        const ssize_t written = write(descriptor_, data, size);
        if (written < 0) {
            if (errno == EINTR) continue;
            trouble_ = "cannot write " + path_ + ": " + Reason();
            return;
        }
        data += written;
        size -= static_cast<size_t>(written);
        end_ += static_cast<uint64_t>(written);
    }
}

void OutputFile::WriteAt(const char* data, size_t size, uint64_t position) {
    while (size != 0) {
        const ssize_t written = pwrite(descriptor_, data, size, static_cast<off_t>(position));
        if (written < 0) {
            if (errno == EINTR) continue;
            trouble_ = "cannot write " + path_ + ": " + Reason();
            return;
        }
        data += written;
        size -= static_cast<size_t>(written);
        position += static_cast<uint64_t>(written);
        end_ = std::max(end_.load(), position);
    }
}

void OutputFile::Write(const void* data, size_t size, std::optional<uint64_t> position) {
    if (!trouble_.empty() || size == 0) return;
    const auto* bytes = static_cast<const char*>(data);
    if (seekable_) {
        WriteAt(bytes, size, position.value_or(end_));
    } else if (position.value_or(end_) == end_) {
        Append(bytes, size);
    } else {
        trouble_ = path_ + " cannot be patched, and this format goes back in its output; write to a file";
    }
}

void OutputFile::Publish() {
    if (!trouble_.empty()) throw Failure(trouble_);
    // Some file systems tell only here that there was no room.
    const int result = close(std::exchange(descriptor_, -1));
    if (result != 0) throw Failure("cannot write " + path_ + ": " + Reason());
    if (!working_path_.empty() && working_path_ != path_ && rename(working_path_.c_str(), path_.c_str()) != 0) {
        throw Failure("cannot write " + path_ + ": " + Reason());
    }
    kept_ = true;
}

OwnStdout::OwnStdout() : descriptor_(dup(STDOUT_FILENO)) {
    std::fflush(stdout);
    dup2(STDERR_FILENO, STDOUT_FILENO);
}

OwnStdout::~OwnStdout() {
    std::fflush(stdout);
    if (descriptor_ < 0) return;
    dup2(descriptor_, STDOUT_FILENO);
    close(descriptor_);
}

void OwnStdout::Print(const std::string& text) const {
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t written = write(descriptor_, text.data() + done, text.size() - done);
        if (written < 0) {
            if (errno == EINTR) continue;
            return;
        }
        done += static_cast<size_t>(written);
    }
}

}  // namespace Orvane::Muxora::Tools
