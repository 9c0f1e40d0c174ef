// The base library, and the file component on its files: writes that fail, take part or are interrupted, targets
// without positions, memory that runs out. What each call says and what is left in the file are compared with a model
// of a few lines; the disk is one in memory, behind the calls of the system.
#include <fcntl.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "Muxora.h"
#include "basalt/factory.h"
#include "basalt/lfs_file.h"
#include "basalt/packet.h"
#include "core/clock.h"
#include "harness/component_frames.h"
#include "harness/file.h"
#include "harness/input.h"
#include "support/allocation_counter.h"

namespace {

using fuzz::Input;
using fuzz::Require;

// A file that stands in memory, and how it takes what is written.
struct Disk {
    static constexpr int kDescriptor = 1 << 20;
    static constexpr uint64_t kRoom = 1u << 20;

    // A write that the plan has no word for is good.
    enum class Answer { kGood, kPart, kInterrupted, kNothing, kFull, kTooLarge, kNoReader };

    int Open(int flags) {
        if (interrupted_opens != 0) {
            --interrupted_opens;
            errno = EINTR;
            return -1;
        }
        if (!opens) {
            errno = EACCES;
            return -1;
        }
        if ((flags & O_TRUNC) != 0) bytes.clear();
        return kDescriptor;
    }
    ssize_t Write(const void* data, size_t length, uint64_t at) {
        Answer answer = Answer::kGood;
        if (next < plan.size()) answer = static_cast<Answer>(plan[next++] % 16);
        if (length > kRoom || at > kRoom - length) answer = Answer::kTooLarge;
        switch (answer) {
            case Answer::kPart:
                length = (length + 1) / 2;
                break;
            case Answer::kInterrupted:
                errno = EINTR;
                return -1;
            case Answer::kNothing:
                refused = true;
                return 0;
            case Answer::kFull:
                refused = true;
                errno = ENOSPC;
                return -1;
            case Answer::kTooLarge:
                refused = true;
                return Signal(SIGXFSZ, EFBIG);
            case Answer::kNoReader:
                refused = true;
                return Signal(SIGPIPE, EPIPE);
            default:
                break;
        }
        bytes.resize(std::max(bytes.size(), static_cast<size_t>(at) + length));
        if (length != 0) std::memcpy(bytes.data() + at, data, length);
        taken += length;
        return static_cast<ssize_t>(length);
    }
    // As the system does: the thread that writes gets the signal, which ends the process where nobody holds it back.
    static ssize_t Signal(int number, int error) {
        pthread_kill(pthread_self(), number);
        errno = error;
        return -1;
    }

    std::vector<uint8_t> plan;
    bool opens = true;
    bool positions = true;
    uint8_t interrupted_opens = 0;
    int close_error = 0;
    size_t next = 0;
    uint64_t taken = 0;    // bytes, in all
    bool refused = false;  // a write, for good
    std::vector<uint8_t> bytes;
};
Disk* g_disk = nullptr;

constexpr const char* kPath = "/muxora-fuzz-disk";

}  // namespace

// In the place of the C library's.
extern "C" int open(const char* path, int flags, ...) {
    if (g_disk != nullptr && std::strcmp(path, kPath) == 0) return g_disk->Open(flags);
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, 0666));
}
extern "C" int open64(const char* path, int flags, ...) {
    return open(path, flags);
}
extern "C" int close(int file) {
    if (file != Disk::kDescriptor) return static_cast<int>(syscall(SYS_close, file));
    Require(g_disk != nullptr);
    if (g_disk->close_error == 0) return 0;
    errno = g_disk->close_error;
    return -1;
}
extern "C" off_t lseek(int file, off_t offset, int origin) noexcept {
    if (file != Disk::kDescriptor) return syscall(SYS_lseek, file, offset, origin);
    if (g_disk->positions) return 0;
    errno = ESPIPE;
    return -1;
}
extern "C" off64_t lseek64(int file, off64_t offset, int origin) noexcept {
    return lseek(file, offset, origin);
}
extern "C" ssize_t pwrite(int file, const void* data, size_t length, off_t at) {
    if (file != Disk::kDescriptor) return syscall(SYS_pwrite64, file, data, length, at);
    Require(g_disk->positions && at >= 0);
    return g_disk->Write(data, length, static_cast<uint64_t>(at));
}
extern "C" ssize_t pwrite64(int file, const void* data, size_t length, off64_t at) {
    return pwrite(file, data, length, at);
}
extern "C" ssize_t write(int file, const void* data, size_t length) {
    if (file != Disk::kDescriptor) return syscall(SYS_write, file, data, length);
    Require(!g_disk->positions);
    return g_disk->Write(data, length, g_disk->bytes.size());
}

namespace {

using Basalt::CLfsFile;
using Basalt::CPacket;
using Basalt::IFactoryUnknown;
using Orvane::Muxora::AttributeMap;
using Orvane::Muxora::CFilePackage;
using Orvane::Muxora::IMuxoraData;

constexpr uint32_t kNewFile = Basalt::LFS_CREATE | Basalt::LFS_WRITE | Basalt::LFS_BINARY;

// `gentle`: interruptions and parts alone, which are made up for.
Disk AnyDisk(Input& in, bool gentle) {
    Disk disk;
    const uint8_t kind = in.U8();
    disk.positions = gentle || (kind & 1) == 0;
    disk.interrupted_opens = kind / 64;
    disk.close_error = (kind & 2) != 0 ? EIO : 0;
    disk.plan = in.Bytes(in.U8() % 32);
    if (gentle) {
        for (uint8_t& answer : disk.plan)
            answer %= 3;
    }
    return disk;
}

struct UsesDisk {
    explicit UsesDisk(Disk& disk) { g_disk = &disk; }
    ~UsesDisk() { g_disk = nullptr; }
    UsesDisk(const UsesDisk&) = delete;
    UsesDisk& operator=(const UsesDisk&) = delete;
};

// What a CLfsFile should hold and say.
struct FileModel {
    bool open = false;
    int64_t position = 0;
    std::vector<uint8_t> bytes;

    bool Seek(int64_t offset, uint32_t origin) {
        if (!open || (origin != Basalt::LFS_FROM_START && origin != Basalt::LFS_FROM_CURRENT)) return false;
        int64_t to = offset;
        if (origin == Basalt::LFS_FROM_CURRENT && __builtin_add_overflow(position, offset, &to)) return false;
        if (to < 0) return false;
        position = to;
        return true;
    }
    void Write(const uint8_t* data, size_t length) {
        const auto at = static_cast<size_t>(position);
        if (length != 0) bytes.resize(std::max(bytes.size(), at + length));
        std::copy(data, data + length, bytes.begin() + static_cast<std::ptrdiff_t>(length == 0 ? 0 : at));
        position += static_cast<int64_t>(length);
    }
};

int64_t Distance(Input& in) {
    const uint8_t kind = in.U8();
    return kind < 100 ? kind : kind < 200 ? 150 - kind : kind < 240 ? in.U16() : static_cast<int64_t>(in.U64());
}

void UseLfsFile(Input& in) {
    Disk disk = AnyDisk(in, false);
    const UsesDisk uses(disk);
    FileModel model;
    CLfsFile file;
    while (!in.Empty()) {
        const uint8_t call = in.U8();
        if (call < 120) {
            const std::vector<uint8_t> bytes = in.Bytes(in.U8());
            const uint64_t before = disk.taken;
            // Where the bytes go one behind the other, only what follows the last ones can be written; nowhere what
            // ends beyond the last position.
            const bool reachable =
                (disk.positions || !model.open || static_cast<uint64_t>(model.position) == disk.bytes.size()) &&
                model.position <= std::numeric_limits<int64_t>::max() - std::ssize(bytes);
            disk.refused = false;
            const size_t written = file.write(bytes.data(), bytes.size());
            Require(written == disk.taken - before && (written == 0 || (model.open && reachable)));
            // It gives up for nothing less.
            Require(written == bytes.size() || disk.refused || !model.open || !reachable);
            model.Write(bytes.data(), written);
        } else if (call < 124) {
            // Past the last position the length alone must refuse the block.
            model.Seek(std::numeric_limits<int64_t>::max() - 3, Basalt::LFS_FROM_START);
            file.seek(std::numeric_limits<int64_t>::max() - 3, Basalt::LFS_FROM_START);
            Require(file.write("muxora", 6) == 0 && file.write(nullptr, 0) == 0);
        } else if (call < 200) {
            const int64_t offset = Distance(in);
            const uint32_t origin = in.U8() % 16 % 3;
            Require(file.seek(offset, origin) == model.Seek(offset, origin));
        } else if (call < 230) {
            const uint8_t how = in.U8();
            disk.opens = how % 8 != 7;
            const uint32_t mode = how < 200 ? kNewFile : how < 230 ? uint32_t{Basalt::LFS_WRITE} : in.U16();
            const bool writes = (mode & Basalt::LFS_WRITE) != 0;
            model.open = writes && disk.opens && how != 255;
            Require(file.open(how == 255 ? nullptr : kPath, mode) == model.open);
            model.position = 0;
            if (model.open && (mode & Basalt::LFS_CREATE) != 0) model.bytes.clear();
            // A pipe that is opened again goes on where it was; its reader took what came before.
            if (model.open && !disk.positions) {
                model.bytes.clear();
                disk.bytes.clear();
            }
        } else if (call < 245) {
            Require(file.close() == (!model.open || disk.close_error == 0));
            model.open = false;
        }
        Require(file.isOpen() == model.open);
    }
    file.close();
    Require(disk.bytes == model.bytes);
}

// The same frames into a file and into a function: a system that only ever interrupts makes no difference, and one that
// takes less leaves less.
void UseFilePackage(Input& in) {
    const bool gentle = in.U8() % 2 == 0;
    Disk disk = AnyDisk(in, gentle);
    const UsesDisk uses(disk);
    const char* const key = fuzz::kFileKeys[in.U8() % std::size(fuzz::kFileKeys)].key;
    // Formats that never go back may go into a pipe.
    const bool forward = std::strcmp(key, "ovx") == 0 || std::strcmp(key, "fmp4") == 0;
    if (forward && in.U8() % 2 != 0) disk.positions = false;
    CFilePackage on_disk(key);
    CFilePackage in_memory(key);
    fuzz::File file;
    const auto open = [&] {
        const bool opened = on_disk.open(kPath);
        Require(opened == in_memory.open(fuzz::WriteInto(file)));
        return opened;
    };
    if (!open()) return;
    while (!in.Empty()) {
        const uint8_t call = in.U8();
        if (call < 220) {
            const AttributeMap attributes = fuzz::Attributes(in);
            const fuzz::FrameBytes bytes(in);
            std::vector<uint8_t> copy = bytes.Copy();
            const bool took = on_disk.inputFrame(bytes.data, bytes.size, attributes);
            Require(took == in_memory.inputFrame(copy.data(), bytes.size, attributes));
        } else if (call < 240) {
            Basalt::TSharedPtr<IMuxoraData> one;
            Basalt::TSharedPtr<IMuxoraData> other;
            AttributeMap place;
            const bool got = on_disk.getbackup(one, place);
            Require(got == in_memory.getbackup(other, place));
            Require(!got || (one->getLen() == other->getLen() &&
                             std::memcmp(one->getBuffer(), other->getBuffer(), one->getLen()) == 0));
        } else {
            disk.opens = false;
            Require(!on_disk.open(kPath));
            break;
        }
    }
    // Also where the system's own close reports an error.
    Require(on_disk.close() && in_memory.close());
    if (file.overflown) return;
    Require(gentle && disk.opens ? disk.bytes == file.bytes : disk.bytes.size() <= file.bytes.size());
}

class NamedFactory : public IFactoryUnknown {
  public:
    Basalt::flex_string getName() override { return "fuzz"; }
};

void UseRegistry(Input& in) {
    NamedFactory factories[3];
    std::vector<std::pair<std::string, NamedFactory*>> entries;
    while (!in.Empty()) {
        const uint8_t call = in.U8();
        const std::string name(1, static_cast<char>('a' + call % 4));
        NamedFactory* const factory = &factories[in.U8() % std::size(factories)];
        const auto found =
            std::find_if(entries.begin(), entries.end(), [&](const auto& entry) { return entry.first == name; });
        Require(IFactoryUnknown::findFactory(name) == (found == entries.end() ? nullptr : found->second));
        if (call < 128) {
            IFactoryUnknown::registerFactory(name, factory);
            entries.emplace_back(name, factory);
        } else {
            IFactoryUnknown::unregisterFactory(name, factory);
            const auto entry = std::find(entries.begin(), entries.end(), std::pair(name, factory));
            if (entry != entries.end()) entries.erase(entry);
        }
    }
    for (const auto& [name, factory] : entries)
        IFactoryUnknown::unregisterFactory(name, factory);
}

template <typename Action>
auto WithMemory(bool enough, Action action) {
    const test::FailingAllocations failing(0, enough ? 0 : 1);
    return action();
}

void UsePacket(Input& in) {
    CPacket packet;
    std::vector<uint8_t> model;  // all of its buffer
    size_t size = 0;
    while (!in.Empty()) {
        const uint8_t call = in.U8();
        const size_t wanted = in.U16();
        const bool no_memory = call % 8 == 0;
        if (call < 128) {
            const bool fits = wanted <= model.size() || !no_memory;
            Require(WithMemory(!no_memory, [&] { return packet.resize(wanted); }) == fits);
            if (!fits) continue;
            if (wanted > model.size()) {
                // Made anew: only what was good comes along.
                model.resize(size);
                model.resize(wanted);
            }
            size = wanted;
        } else if (call < 160) {
            packet = WithMemory(!no_memory, [wanted] { return CPacket(wanted); });
            Require(packet.valid() == !no_memory);
            model.assign(no_memory ? 0 : wanted, 0);
            size = 0;
        } else if (call < 200) {
            CPacket other(std::move(packet));
            Require(!packet.valid() && packet.size() == 0 && packet.capacity() == 0);
            packet = std::move(other);
        } else if (!model.empty()) {
            const size_t at = wanted % model.size();
            model[at] = packet.getBuffer()[at] = call;
        }
        Require(packet.size() == size && packet.capacity() == model.size());
        Require(model.empty() || std::memcmp(packet.getBuffer(), model.data(), model.size()) == 0);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const Orvane::Muxora::ScopedClock clock(1700000000);
    std::srand(1);
    Input in(data + 1, size - 1);
    switch (data[0] % 8) {
        case 0:
            UseRegistry(in);
            break;
        case 1:
            UsePacket(in);
            break;
        case 2:
        case 3:
        case 4:
            UseLfsFile(in);
            break;
        default:
            UseFilePackage(in);
    }
    return 0;
}
