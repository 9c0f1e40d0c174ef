#include "common/output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "common/errors.h"
#include "common/file_lock.h"
#include "common/working_file.h"

namespace Orvane::Muxora::Tools {

namespace {

std::string Reason() {
    return std::strerror(errno);
}

}  // namespace

OutputFile::OutputFile(std::string path, Growth growth) : path_(std::move(path)) {
    struct stat status {};
    const bool exists = stat(path_.c_str(), &status) == 0;
    if (exists && S_ISDIR(status.st_mode)) throw Failure(path_ + " is a directory; name a file in it");
    // Devices and pipes are written as they are: there is nothing to put in their place.
    const bool special = exists && !S_ISREG(status.st_mode);
    if (!special && growth == Growth::kBeside) {
        working_ = std::make_unique<WorkingFile>(path_);
        descriptor_ = dup(working_->Descriptor());
    } else {
        if (!special) CheckNotGrowing(path_);
        descriptor_ = open(path_.c_str(), O_WRONLY | O_CLOEXEC | O_CREAT, 0666);
    }
    if (descriptor_ < 0) throw Failure("cannot write " + path_ + ": " + Reason());
    if (special) {
        kept_ = true;
    } else if (!working_) {
        in_place_ = true;
        if (!TryLock(descriptor_)) {
            kept_ = true;
            throw Failure(path_ + " is being written by " + HolderOf(descriptor_) +
                          "; wait for its end, or write to another file");
        }
        if (ftruncate(descriptor_, 0) != 0) throw Failure("cannot write " + path_ + ": " + Reason());
    }
    seekable_ = lseek(descriptor_, 0, SEEK_CUR) >= 0 && (!special || !S_ISCHR(status.st_mode));
}

OutputFile::OutputFile(const OwnStdout& out)
    : path_("standard output"), descriptor_(dup(out.Descriptor())), kept_(true) {
    if (descriptor_ < 0) throw Failure("standard output is closed");
}

OutputFile::~OutputFile() {
    if (in_place_ && !kept_) unlink(path_.c_str());
    if (descriptor_ >= 0) close(descriptor_);
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
    if (in_place_) {
        struct stat ours {};
        struct stat named {};
        const bool there = fstat(descriptor_, &ours) == 0 && stat(path_.c_str(), &named) == 0;
        if (!there || ours.st_ino != named.st_ino || ours.st_dev != named.st_dev) {
            kept_ = true;
            throw Failure(path_ + " was replaced or removed while it grew; what was recorded is no longer there");
        }
    }
    kept_ = true;
    // Some file systems tell only here that there was no room.
    if (close(std::exchange(descriptor_, -1)) != 0) throw Failure("cannot write " + path_ + ": " + Reason());
    if (working_) working_->Publish();
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
