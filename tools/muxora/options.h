// Options that more than one subcommand has.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "MuxoraAPI.h"
#include "common/pace.h"
#include "common/text.h"
#include "media_input/media_input.h"

namespace CLI {
class App;
}

namespace Orvane::Muxora::Tools {

struct InputArguments {
    std::vector<std::string> paths;
    uint32_t fps = 0;
    double duration = 0;
    int video = StreamChoice::kFirst;
    int audio = StreamChoice::kFirst;
    bool no_video = false;
    bool no_audio = false;

    void AddTo(CLI::App& command);
    InputOptions Options() const;
};

// An AES key, which other users of the machine should not read off the list of processes.
struct KeyArguments {
    std::string key;
    std::string file;

    void AddTo(CLI::App& command);
    // By an option or by the variable MUXORA_KEY.
    bool Given() const;
    // Throws WrongUsage unless there are 16, 24 or 32 bytes.
    std::vector<uint8_t> Bytes() const;
};

struct RtpArguments {
    uint32_t max_length = 1400;
    uint32_t sequence = 0;
    uint32_t timestamp = 0;
    uint32_t ssrc = 0;
    uint32_t payload_type = 0;
    uint32_t audio_sample = 0;
    uint32_t audio_payload_type = 0;
    uint32_t audio_sequence = 0;
    uint32_t audio_timestamp = 0;
    uint32_t audio_ssrc = 0;

    void AddTo(CLI::App& command);
    // With the usual payload types and clock rates of the streams where none is named.
    MXRtpParam Param(const MediaStream* video, const MediaStream* audio) const;
};

// A line on the terminal that is written over; nothing where there is no terminal.
class ProgressLine {
  public:
    explicit ProgressLine(bool quiet);
    ~ProgressLine();
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    // `total_ms` may be 0: not known.
    void Show(int64_t done_ms, int64_t total_ms, uint64_t bytes);
    // So many files of so many.
    void ShowCount(size_t done, size_t total);
    double Seconds() const;

  private:
    bool active_;
    bool shown_ = false;
    double last_ = -1;
    int64_t start_ns_;
};

}  // namespace Orvane::Muxora::Tools
