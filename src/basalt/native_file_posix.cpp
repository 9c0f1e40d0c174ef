#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <ctime>

#include "basalt/native_file.h"

namespace Basalt::NativeFile {

namespace {

static_assert(sizeof(off_t) == 8, "build with _FILE_OFFSET_BITS=64");

constexpr mode_t kEveryoneMayReadAndWrite = 0666;  // less what the umask takes away

int Descriptor(Handle file) {
    return static_cast<int>(file);
}

// Keeps a write from raising a signal in the process: SIGPIPE for a pipe without a reader, SIGXFSZ for a file at the
// limit of its size. Both go to the thread that writes; they are held back in it, and the one that the write raised is
// taken out of its queue.
class SignalGuard {
  public:
    SignalGuard() {
        sigset_t held;
        sigemptyset(&held);
        sigaddset(&held, SIGPIPE);
        sigaddset(&held, SIGXFSZ);
        sigemptyset(&waiting_);
        pthread_sigmask(SIG_BLOCK, &held, &before_);
        // One that the caller holds back may wait already, and is the caller's.
        if (sigismember(&before_, SIGPIPE) == 1 || sigismember(&before_, SIGXFSZ) == 1) sigpending(&waiting_);
    }
    ~SignalGuard() {
        const int error = errno;
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
        errno = error;
    }
    SignalGuard(const SignalGuard&) = delete;
    SignalGuard& operator=(const SignalGuard&) = delete;

    // After a write that failed: takes back what it raised.
    void TakeBack(int error) const {
        const int signal = error == EPIPE ? SIGPIPE : error == EFBIG ? SIGXFSZ : 0;
        if (signal == 0 || sigismember(&waiting_, signal) == 1) return;
        sigset_t raised;
        sigemptyset(&raised);
        sigaddset(&raised, signal);
        constexpr timespec kNow{};
        sigtimedwait(&raised, nullptr, &kNow);
        errno = error;
    }

  private:
    sigset_t before_;
    sigset_t waiting_;
};

// Calls `put(data, length, done)` until all is written, an interrupted call being made again. Gives the bytes written.
template <typename Put>
size_t WriteAll(const uint8_t* data, size_t length, Put put) {
    const SignalGuard guard;
    size_t done = 0;
    while (done < length) {
        const ssize_t count = put(data + done, length - done, done);
        if (count > 0) {
            done += static_cast<size_t>(count);
        } else if (count == 0 || errno != EINTR) {
            if (count < 0) guard.TakeBack(errno);
            break;
        }
    }
    return done;
}

}  // namespace

Handle Open(const char* path, bool create) {
    const int flags = O_WRONLY | O_CLOEXEC | (create ? O_CREAT | O_TRUNC : 0);
    int descriptor = -1;
    do {
        descriptor = ::open(path, flags, kEveryoneMayReadAndWrite);
    } while (descriptor == -1 && errno == EINTR);
    return descriptor == -1 ? kClosed : descriptor;
}

bool Close(Handle file) {
    return ::close(Descriptor(file)) == 0;
}

bool HasPositions(Handle file) {
    return ::lseek(Descriptor(file), 0, SEEK_CUR) >= 0;
}

size_t WriteAt(Handle file, const uint8_t* data, size_t length, int64_t position) {
    return WriteAll(data, length, [=](const uint8_t* from, size_t count, size_t done) {
        return ::pwrite(Descriptor(file), from, count, position + static_cast<int64_t>(done));
    });
}

size_t WriteNext(Handle file, const uint8_t* data, size_t length) {
    return WriteAll(data, length, [=](const uint8_t* from, size_t count, size_t /*done*/) {
        return ::write(Descriptor(file), from, count);
    });
}

}  // namespace Basalt::NativeFile
