// Snapshots of a recording's index, in a file beside it, from which a killed recording is completed.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "common/output.h"
#include "common/packer.h"

namespace Orvane::Muxora::Tools {

struct Snapshot {
    uint32_t format = 0;    // MXFormat of the recording
    uint64_t position = 0;  // where the index belongs: one behind the media data it describes
    std::vector<uint8_t> index;
};

std::string SnapshotPath(const std::string& recording);
// Replaces the file in one step, so that there is always a whole one. Throws Failure.
void WriteSnapshot(const std::string& path, const Snapshot& snapshot);
// Nothing if there is no file; throws Failure if it is damaged.
std::optional<Snapshot> ReadSnapshot(const std::string& path);
// Removes the file, and one that was being written when the process was killed.
void RemoveSnapshot(const std::string& path);

// Takes a snapshot every now and then on a thread of its own, as MX_GetBackup allows.
class SnapshotTaker {
  public:
    SnapshotTaker(const Format& format, MXHandle handle, const OutputFile& output, std::chrono::milliseconds period);
    ~SnapshotTaker();
    SnapshotTaker(const SnapshotTaker&) = delete;
    SnapshotTaker& operator=(const SnapshotTaker&) = delete;

    // Takes no more; the last one stays.
    void Stop();
    // The recording is whole and needs no snapshot.
    void Remove();
    uint64_t Taken() const { return taken_; }
    // Why no snapshot could be written, or empty.
    std::string Trouble();

  private:
    void Loop();
    void Take();

    const Format& format_;
    MXHandle handle_;
    const OutputFile& output_;
    std::chrono::milliseconds period_;
    std::string path_;
    std::mutex mutex_;
    std::condition_variable wake_;
    bool stop_ = false;
    std::string trouble_;
    std::atomic<uint64_t> taken_{0};
    std::thread thread_;
};

}  // namespace Orvane::Muxora::Tools
