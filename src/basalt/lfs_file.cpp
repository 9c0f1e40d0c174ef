#include "basalt/lfs_file.h"

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <ctime>
#include <limits>

namespace Basalt {

namespace {

static_assert(sizeof(off_t) == 8, "build with _FILE_OFFSET_BITS=64");

constexpr int kClosed = -1;
constexpr mode_t kEveryoneMayReadAndWrite = 0666;  // less what the umask takes away
constexpr int64_t kLastPosition = std::numeric_limits<int64_t>::max();

// Keeps a pipe without a reader from killing the process: the signal is held back for this thread, and taken out of its
// queue if the write raised it.
class BrokenPipeGuard {
  public:
    BrokenPipeGuard() {
        sigemptyset(&pipe_);
        sigaddset(&pipe_, SIGPIPE);
        sigset_t waiting;
        sigemptyset(&waiting);
        sigpending(&waiting);
        was_waiting_ = sigismember(&waiting, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &pipe_, &before_);
    }
    ~BrokenPipeGuard() {
        const int error = errno;
        if (!was_waiting_) {
            constexpr timespec kNow{};
            sigtimedwait(&pipe_, nullptr, &kNow);
        }
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
        errno = error;
    }
    BrokenPipeGuard(const BrokenPipeGuard&) = delete;
    BrokenPipeGuard& operator=(const BrokenPipeGuard&) = delete;

  private:
    sigset_t pipe_;
    sigset_t before_;
    bool was_waiting_ = false;
};

// Calls `put(data, length, done)` until all is written, an interrupted call being made again. Gives the bytes written.
template <typename Put>
size_t WriteAll(const uint8_t* data, size_t length, Put put) {
    size_t done = 0;
    while (done < length) {
        const ssize_t count = put(data + done, length - done, done);
        if (count > 0) {
            done += static_cast<size_t>(count);
        } else if (count == 0 || errno != EINTR) {
            break;
        }
    }
    return done;
}

}  // namespace

CLfsFile::CLfsFile() = default;

CLfsFile::~CLfsFile() {
    close();
}

bool CLfsFile::open(const char* path, uint32_t mode) {
    close();
    if (path == nullptr || (mode & LFS_WRITE) == 0) return false;
    const int flags = O_WRONLY | O_CLOEXEC | ((mode & LFS_CREATE) != 0 ? O_CREAT | O_TRUNC : 0);
    do {
        descriptor_ = ::open(path, flags, kEveryoneMayReadAndWrite);
    } while (descriptor_ == kClosed && errno == EINTR);
    if (descriptor_ == kClosed) return false;
    positioned_ = ::lseek(descriptor_, 0, SEEK_CUR) >= 0;
    position_ = 0;
    streamed_ = 0;
    return true;
}

bool CLfsFile::close() {
    if (descriptor_ == kClosed) return true;
    const int result = ::close(descriptor_);
    descriptor_ = kClosed;
    return result == 0;
}

bool CLfsFile::isOpen() const {
    return descriptor_ != kClosed;
}

bool CLfsFile::seek(int64_t offset, uint32_t origin) {
    if (!isOpen()) return false;
    if (origin != LFS_FROM_START && origin != LFS_FROM_CURRENT) return false;
    const int64_t base = origin == LFS_FROM_START ? 0 : position_;
    if (offset < -base || offset > kLastPosition - base) return false;
    position_ = base + offset;
    return true;
}

size_t CLfsFile::write(const void* data, size_t length) {
    if (!isOpen() || data == nullptr || length > static_cast<uint64_t>(kLastPosition - position_)) return 0;
    const auto* const bytes = static_cast<const uint8_t*>(data);
    size_t written = 0;
    if (positioned_) {
        written = WriteAll(bytes, length, [this](const uint8_t* from, size_t count, size_t done) {
            return ::pwrite(descriptor_, from, count, position_ + static_cast<int64_t>(done));
        });
    } else if (position_ == streamed_) {
        const BrokenPipeGuard guard;
        written = WriteAll(bytes, length, [this](const uint8_t* from, size_t count, size_t /*done*/) {
            return ::write(descriptor_, from, count);
        });
        streamed_ += static_cast<int64_t>(written);
    }
    position_ += static_cast<int64_t>(written);
    return written;
}

}  // namespace Basalt
