// One recording: a file that plays while it grows, and after a kill, and has its index when it was ended.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "MuxoraExt.h"
#include "hub/frame.h"

namespace Orvane::Muxora::Gateway {

class RecordingFile {
  public:
    // Makes the file; throws std::runtime_error. There must be none of that name.
    RecordingFile(std::string path, const MXHeaderInfo& header);
    // Ends the file, if that was not done.
    ~RecordingFile();
    RecordingFile(const RecordingFile&) = delete;
    RecordingFile& operator=(const RecordingFile&) = delete;

    // Throws std::runtime_error when the disk takes no more: what was written before stays readable.
    void Give(const Frame& frame);
    // Writes the index. Throws as Give.
    void Finish();

    const std::string& Path() const { return path_; }

  private:
    static int32_t Output(const MXOutputBlock* block, void* user);
    void Write(const MXOutputBlock& block);
    void CheckTrouble() const;

    std::string path_;
    int descriptor_ = -1;
    std::unique_ptr<void, decltype(&MX_DestroyHandle)> handle_{nullptr, MX_DestroyHandle};
    int64_t end_ = 0;
    int trouble_ = 0;  // errno of the first write that failed
    bool finished_ = false;
};

}  // namespace Orvane::Muxora::Gateway
