#include "media_input/file_bytes.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "media_input/media_input.h"

namespace Orvane::Muxora::Tools {

namespace {

// Closes what it opened.
class Descriptor {
  public:
    explicit Descriptor(const std::string& path) : own_(path != "-") {
        number_ = own_ ? open(path.c_str(), O_RDONLY | O_CLOEXEC) : STDIN_FILENO;
        if (number_ < 0) throw InputError("cannot open " + path + ": " + std::strerror(errno));
    }
    ~Descriptor() {
        if (own_) close(number_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int Number() const { return number_; }

  private:
    bool own_;
    int number_;
};

// A mapping whose file shrinks ends in SIGBUS. The page that is gone then reads as zeros, and is remembered.
volatile std::sig_atomic_t g_shrunk = 0;
std::atomic<const uint8_t*> g_first{nullptr};
std::atomic<const uint8_t*> g_end{nullptr};

void OnBusError(int number, siginfo_t* info, void* /*context*/) {
    const long page = sysconf(_SC_PAGESIZE);
    const auto* at = static_cast<const uint8_t*>(info->si_addr);
    const bool ours = at >= g_first.load() && at < g_end.load();
    auto* const start =
        static_cast<uint8_t*>(info->si_addr) - reinterpret_cast<uintptr_t>(at) % static_cast<uintptr_t>(page);
    if (!ours || mmap(start, static_cast<size_t>(page), PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) ==
                     MAP_FAILED) {
        std::signal(number, SIG_DFL);
        return;
    }
    g_shrunk = 1;
}

void CatchBusErrors(const uint8_t* first, size_t size) {
    g_shrunk = 0;
    g_first = first;
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    g_end = first + (size + page - 1) / page * page;
    struct sigaction action {};
    action.sa_sigaction = OnBusError;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGBUS, &action, nullptr);
}

}  // namespace

void FileBytes::CheckWhole(const std::string& path) const {
    if (mapping_ != nullptr && g_shrunk != 0) throw InputError(path + " became shorter while it was read");
}

FileBytes::FileBytes(const std::string& path, std::vector<uint8_t> head) : read_(std::move(head)) {
    const Descriptor file(path);
    struct stat status {};
    if (read_.empty() && fstat(file.Number(), &status) == 0 && S_ISREG(status.st_mode) && status.st_size > 0) {
        const auto size = static_cast<size_t>(status.st_size);
        void* const mapping = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, file.Number(), 0);
        if (mapping != MAP_FAILED) {
            mapping_ = mapping;
            CatchBusErrors(static_cast<const uint8_t*>(mapping), size);
            bytes_ = {static_cast<const uint8_t*>(mapping), size};
            return;
        }
    }
    ReadAll(file.Number(), path);
    bytes_ = read_;
}

FileBytes::~FileBytes() {
    if (mapping_ != nullptr) munmap(mapping_, bytes_.size());
}

void FileBytes::ReadAll(int descriptor, const std::string& path) {
    constexpr size_t kPiece = size_t{1} << 20;
    for (size_t size = read_.size();;) {
        read_.resize(size + kPiece);
        const ssize_t count = read(descriptor, read_.data() + size, kPiece);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throw InputError("cannot read " + path + ": " + std::strerror(errno));
        size += static_cast<size_t>(count);
        read_.resize(size);
        if (count == 0) return;
    }
}

}  // namespace Orvane::Muxora::Tools
