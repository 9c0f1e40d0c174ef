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
    // Makes the file, whose time 0 is the decoding of `first`; throws std::runtime_error. There must be none of
    // that name.
    RecordingFile(std::string path, const MXHeaderInfo& header, const Frame& first);
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
    int64_t Start(uint32_t time_scale) const;

    std::string path_;
    // The decoding time of the first frame: seconds, and what is left in ticks of the scale.
    int64_t start_seconds_;
    int64_t start_ticks_;
    uint32_t start_scale_;
    int descriptor_ = -1;
    std::unique_ptr<void, decltype(&MX_DestroyHandle)> handle_{nullptr, MX_DestroyHandle};
    int64_t end_ = 0;
    int trouble_ = 0;  // errno of the first write that failed
    bool finished_ = false;
};

}  // namespace Orvane::Muxora::Gateway
