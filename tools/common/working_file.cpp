#include "common/working_file.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <utility>

#include "common/errors.h"
#include "common/file_lock.h"

namespace Orvane::Muxora::Tools {

namespace {

namespace fs = std::filesystem;

constexpr size_t kRandomDigits = 16;

std::string Prefix(const std::string& target) {
    return "." + fs::path(target).filename().string() + ".muxora-";
}

std::string Folder(const std::string& target) {
    const std::string folder = fs::path(target).parent_path().string();
    return folder.empty() ? "." : folder;
}

std::string RandomName(const std::string& target) {
    uint64_t number = 0;
    while (getrandom(&number, sizeof number, 0) != static_cast<ssize_t>(sizeof number)) {
    }
    char digits[kRandomDigits + 1];
    std::snprintf(digits, sizeof digits, "%016" PRIx64, number);
    return (fs::path(target).parent_path() / (Prefix(target) + digits)).string();
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

bool IsWorkingFileOf(const std::string& prefix, const std::string& name) {
    return name.size() == prefix.size() + kRandomDigits && name.compare(0, prefix.size(), prefix) == 0 &&
           name.find_first_not_of("0123456789abcdef", prefix.size()) == std::string::npos;
}

[[noreturn]] void Held(const std::string& target, const std::string& holder) {
    throw Failure(target + " is being written by " + holder + "; wait for its end, or write to another file");
}

}  // namespace

void CheckNotGrowing(const std::string& target) {
    if (const auto holder = HolderOf(target)) Held(target, *holder);
    const std::string prefix = Prefix(target);
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(Folder(target), error)) {
        if (!IsWorkingFileOf(prefix, entry.path().filename().string())) continue;
        const int descriptor = open(entry.path().c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
        if (descriptor < 0) continue;
        struct stat status {};
        const bool ours = fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == geteuid();
        const bool held = !TryLock(descriptor);
        const std::string holder = held ? HolderOf(descriptor) : "";
        // Left by a run that was killed.
        if (ours && !held) unlink(entry.path().c_str());
        close(descriptor);
        if (held) Held(target, holder);
    }
}

WorkingFile::WorkingFile(const std::string& target) : target_(target) {
    CheckNotGrowing(target);
    for (;;) {
        path_ = RandomName(target);
        descriptor_ = open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
        if (descriptor_ < 0 && errno == EEXIST) continue;
        if (descriptor_ < 0) {
            throw Failure("cannot write " + target_ + ": " + std::strerror(errno) + Advice(target_));
        }
        // Another run that clears away may have come between the two steps.
        struct stat status {};
        if (TryLock(descriptor_) && fstat(descriptor_, &status) == 0 && status.st_nlink != 0) return;
        close(std::exchange(descriptor_, -1));
    }
}

WorkingFile::~WorkingFile() {
    if (descriptor_ < 0) return;
    unlink(path_.c_str());
    close(descriptor_);
}

void WorkingFile::Publish() {
    // A recording may have begun under the target's name meanwhile.
    if (const auto holder = HolderOf(target_)) Held(target_, *holder);
    if (rename(path_.c_str(), target_.c_str()) != 0) {
        throw Failure("cannot write " + target_ + ": " + std::strerror(errno));
    }
    // Some file systems tell only here that there was no room.
    if (close(std::exchange(descriptor_, -1)) != 0) {
        throw Failure("cannot write " + target_ + ": " + std::strerror(errno));
    }
}

}  // namespace Orvane::Muxora::Tools
