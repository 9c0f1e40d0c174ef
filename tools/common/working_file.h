// A file that grows beside the one it will replace.
#pragma once

#include <string>

namespace Orvane::Muxora::Tools {

// Opened under a name that nobody can guess (".NAME.muxora-" and 16 random digits), new, never through a link, locked.
class WorkingFile {
  public:
    // Clears away what killed runs left of the same target. Throws Failure: the target grows in another process, or
    // the file cannot be made.
    explicit WorkingFile(const std::string& target);
    // Removes the file unless it took the target's place.
    ~WorkingFile();
    WorkingFile(const WorkingFile&) = delete;
    WorkingFile& operator=(const WorkingFile&) = delete;

    int Descriptor() const { return descriptor_; }
    // Puts the file in the target's place, in one step. Throws Failure.
    void Publish();

  private:
    std::string target_;
    std::string path_;
    int descriptor_ = -1;
};

// Throws Failure when `target`, or a working file of it, is being written by another process; removes working files
// that no process holds.
void CheckNotGrowing(const std::string& target);

}  // namespace Orvane::Muxora::Tools
