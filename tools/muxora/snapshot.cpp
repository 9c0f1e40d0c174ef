#include "muxora/snapshot.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "common/errors.h"
#include "common/working_file.h"

namespace Orvane::Muxora::Tools {

namespace {

// The file: "MXSNAP01", then little-endian u32 format, u32 CRC of the index, u64 position, u64 length of the index,
// u32 CRC of these 32 bytes, then the index.
constexpr char kMagic[] = "MXSNAP01";
constexpr size_t kMagicSize = 8;
constexpr size_t kChecked = 32;
constexpr size_t kHeaderSize = kChecked + 4;
constexpr std::chrono::milliseconds kFirstPause{50};

uint32_t Crc32(const uint8_t* data, size_t size) {
    static const auto table = [] {
        std::array<uint32_t, 256> made{};
        for (uint32_t i = 0; i < 256; ++i) {
            uint32_t word = i;
            for (int bit = 0; bit < 8; ++bit)
                word = (word & 1) != 0 ? 0xEDB88320u ^ word >> 1 : word >> 1;
            made[i] = word;
        }
        return made;
    }();
    uint32_t crc = 0xFFFFFFFFu;
    for (size_t i = 0; i < size; ++i)
        crc = table[(crc ^ data[i]) & 0xFF] ^ crc >> 8;
    return ~crc;
}

void PutLittle(std::vector<uint8_t>& out, uint64_t value, int bytes) {
    for (int i = 0; i < bytes; ++i)
        out.push_back(static_cast<uint8_t>(value >> 8 * i & 0xFF));
}

uint64_t GetLittle(const uint8_t* at, int bytes) {
    uint64_t value = 0;
    for (int i = bytes; i-- > 0;)
        value = value << 8 | at[i];
    return value;
}

class Descriptor {
  public:
    explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
    ~Descriptor() {
        if (descriptor_ >= 0) close(descriptor_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int Get() const { return descriptor_; }

  private:
    int descriptor_;
};

bool WriteAll(int descriptor, const std::vector<uint8_t>& bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t written = write(descriptor, bytes.data() + done, bytes.size() - done);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        done += static_cast<size_t>(written);
    }
    return true;
}

}  // namespace

std::string SnapshotPath(const std::string& recording) {
    return recording + ".snapshot";
}

void WriteSnapshot(const std::string& path, const Snapshot& snapshot) {
    std::vector<uint8_t> bytes;
    bytes.reserve(kHeaderSize + snapshot.index.size());
    bytes.insert(bytes.end(), kMagic, kMagic + kMagicSize);
    PutLittle(bytes, snapshot.format, 4);
    PutLittle(bytes, Crc32(snapshot.index.data(), snapshot.index.size()), 4);
    PutLittle(bytes, snapshot.position, 8);
    PutLittle(bytes, snapshot.index.size(), 8);
    PutLittle(bytes, Crc32(bytes.data(), kChecked), 4);
    bytes.insert(bytes.end(), snapshot.index.begin(), snapshot.index.end());

    WorkingFile working(path);
    if (!WriteAll(working.Descriptor(), bytes) || fsync(working.Descriptor()) != 0) {
        throw Failure("cannot write " + path + ": " + std::strerror(errno));
    }
    working.Publish();
    std::string folder = std::filesystem::path(path).parent_path().string();
    if (folder.empty()) folder = ".";
    const Descriptor directory(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory.Get() >= 0) fsync(directory.Get());
}

std::optional<Snapshot> ReadSnapshot(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    const std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    const bool whole = bytes.size() >= kHeaderSize && std::memcmp(bytes.data(), kMagic, kMagicSize) == 0 &&
                       GetLittle(bytes.data() + kChecked, 4) == Crc32(bytes.data(), kChecked) &&
                       GetLittle(bytes.data() + 24, 8) == bytes.size() - kHeaderSize;
    if (!whole) throw Failure(path + " is no whole snapshot");
    Snapshot snapshot;
    snapshot.format = static_cast<uint32_t>(GetLittle(bytes.data() + 8, 4));
    snapshot.position = GetLittle(bytes.data() + 16, 8);
    snapshot.index.assign(bytes.begin() + kHeaderSize, bytes.end());
    if (GetLittle(bytes.data() + 12, 4) != Crc32(snapshot.index.data(), snapshot.index.size())) {
        throw Failure(path + " is damaged: its check sum is wrong");
    }
    return snapshot;
}

void RemoveSnapshot(const std::string& path) {
    unlink(path.c_str());
    CheckNotGrowing(path);
}

SnapshotTaker::SnapshotTaker(const Format& format, MXHandle handle, const OutputFile& output,
                             std::chrono::milliseconds period)
    : format_(format),
      handle_(handle),
      output_(output),
      period_(period),
      path_(SnapshotPath(output.Path())),
      thread_([this] { Loop(); }) {
}

SnapshotTaker::~SnapshotTaker() {
    Stop();
}

void SnapshotTaker::Stop() {
    {
        const std::lock_guard lock(mutex_);
        stop_ = true;
    }
    wake_.notify_all();
    if (thread_.joinable()) thread_.join();
}

void SnapshotTaker::Remove() {
    Stop();
    RemoveSnapshot(path_);
}

std::string SnapshotTaker::Trouble() {
    const std::lock_guard lock(mutex_);
    return trouble_;
}

void SnapshotTaker::Loop() {
    // The first ones come fast, for recordings that are killed early; the index is short then.
    std::chrono::milliseconds pause = std::min(kFirstPause, period_);
    auto next = std::chrono::steady_clock::now();
    std::unique_lock lock(mutex_);
    while (!stop_) {
        next = std::max(next + pause, std::chrono::steady_clock::now());
        pause = std::min(2 * pause, period_);
        if (wake_.wait_until(lock, next, [this] { return stop_; })) return;
        lock.unlock();
        std::string trouble;
        try {
            Take();
        } catch (const std::exception& error) {
            trouble = error.what();
        }
        lock.lock();
        trouble_ = trouble;
    }
}

void SnapshotTaker::Take() {
    MXOutputBlock block{};
    const uint32_t size = MX_GetBackup(handle_, &block);
    // Every index is longer than the two error codes that share this number.
    if (size <= MX_NULL_RECORD || block.data == nullptr) return;
    const uint64_t end = output_.End();
    Snapshot snapshot;
    snapshot.format = format_.Maker();
    const auto* bytes = static_cast<const uint8_t*>(block.data);
    snapshot.index.assign(bytes, bytes + block.length);
    // The block tells the low half of the position; the output has grown since by far less than 4 GiB.
    snapshot.position = end - static_cast<uint32_t>(static_cast<uint32_t>(end) - block.offset32);
    // The media data must be on the disk before an index that speaks of it.
    fdatasync(output_.Descriptor());
    WriteSnapshot(path_, snapshot);
    ++taken_;
}

}  // namespace Orvane::Muxora::Tools
