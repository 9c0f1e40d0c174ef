// Where packed bytes go: a file with positions, or a pipe.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace Orvane::Muxora::Tools {

// Takes the process's standard output for itself: what the library prints goes to the standard error meanwhile, so
// that it does not come between the bytes of a pipe or of a JSON text.
class OwnStdout {
  public:
    OwnStdout();
    ~OwnStdout();
    OwnStdout(const OwnStdout&) = delete;
    OwnStdout& operator=(const OwnStdout&) = delete;

    void Print(const std::string& text) const;
    int Descriptor() const { return descriptor_; }

  private:
    int descriptor_;
};

class WorkingFile;

// The file appears under its name only when it is finished: it grows under another name beside it, and nothing is left
// of it when the work fails. Recordings with snapshots are the exception, they grow in place. Both are locked as long
// as they grow.
class OutputFile {
  public:
    enum class Growth { kBeside, kInPlace };

    // Throws Failure.
    OutputFile(std::string path, Growth growth);
    // The standard output.
    explicit OutputFile(const OwnStdout& out);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // Writes at `position`, or at the end. The first failure is kept, and what follows is not written.
    void Write(const void* data, size_t size, std::optional<uint64_t> position);
    // The text of the first failure, or empty.
    const std::string& Trouble() const { return trouble_; }
    // One behind the last byte; may be read by a second thread.
    uint64_t End() const { return end_; }
    int Descriptor() const { return descriptor_; }
    const std::string& Path() const { return path_; }
    // Can it be patched?
    bool Seekable() const { return seekable_; }

    // Makes the finished file appear under its name. Throws Failure.
    void Publish();
    // What is there stays, unfinished (in place only).
    void Leave() { kept_ = true; }

  private:
    void Append(const char* data, size_t size);
    void WriteAt(const char* data, size_t size, uint64_t position);

    std::string path_;
    std::unique_ptr<WorkingFile> working_;  // null: grows under its own name
    bool in_place_ = false;
    std::string trouble_;
    int descriptor_ = -1;
    bool seekable_ = false;
    bool kept_ = false;
    std::atomic<uint64_t> end_{0};
};

}  // namespace Orvane::Muxora::Tools
