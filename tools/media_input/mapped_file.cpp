#include "media_input/mapped_file.h"

#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>

namespace Orvane::Muxora::Tools {

namespace {

// A mapping whose file shrinks ends in SIGBUS. The page that is gone then reads as zeros, and that is remembered.
struct Watched {
    std::atomic<bool> taken{false};
    std::atomic<uintptr_t> first{0};
    std::atomic<uintptr_t> end{0};
    std::atomic<bool> shrunk{false};
};
std::array<Watched, 8> g_watched;

size_t PageSize() {
    static const auto size = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    return size;
}

void OnBusError(int number, siginfo_t* info, void* /*context*/) {
    const auto at = reinterpret_cast<uintptr_t>(info->si_addr);
    for (Watched& watched : g_watched) {
        if (at < watched.first || at >= watched.end) continue;
        auto* const page = static_cast<uint8_t*>(info->si_addr) - at % PageSize();
        if (mmap(page, PageSize(), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) ==
            MAP_FAILED) {
            break;
        }
        watched.shrunk = true;
        return;
    }
    std::signal(number, SIG_DFL);
}

void CatchBusErrors() {
    PageSize();  // not for the first time in the handler
    struct sigaction action {};
    action.sa_sigaction = OnBusError;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGBUS, &action, nullptr);
}

}  // namespace

InputError BecameShorter(const std::string& path) {
    return InputError(path + " became shorter while it was read");
}

std::unique_ptr<MappedFile> MappedFile::Map(int descriptor, size_t size) {
    for (size_t place = 0; place < g_watched.size(); ++place) {
        Watched& watched = g_watched[place];
        if (watched.taken.exchange(true)) continue;
        // Only what is written takes memory, and that is little.
        void* const data = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_NORESERVE, descriptor, 0);
        if (data == MAP_FAILED) {
            watched.taken = false;
            return nullptr;
        }
        watched.shrunk = false;
        watched.first = reinterpret_cast<uintptr_t>(data);
        watched.end = watched.first + (size + PageSize() - 1) / PageSize() * PageSize();
        CatchBusErrors();
        return std::unique_ptr<MappedFile>(new MappedFile(static_cast<uint8_t*>(data), size, place));
    }
    return nullptr;
}

MappedFile::~MappedFile() {
    Watched& watched = g_watched[place_];
    watched.end = 0;
    munmap(data_, size_);
    watched.taken = false;
}

bool MappedFile::Shrunk() const {
    return g_watched[place_].shrunk;
}

void MappedFile::Fetch(size_t from, size_t to) const {
    const size_t first = from / PageSize() * PageSize();
    madvise(data_ + first, to - first, MADV_POPULATE_READ);
}

void MappedFile::Forget(size_t from, size_t to) const {
    const size_t first = (from + PageSize() - 1) / PageSize() * PageSize();
    const size_t end = to / PageSize() * PageSize();
    if (first < end) madvise(data_ + first, end - first, MADV_DONTNEED);
}

}  // namespace Orvane::Muxora::Tools
