// Options that more than one subcommand has.
#pragma once

#include <CLI/CLI.hpp>

#include <cstdint>
#include <string>
#include <vector>

#include "media_input/media_input.h"
#include "muxora/packer.h"

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

// Bytes from hex digits, blanks between them allowed. Throws WrongUsage.
std::vector<uint8_t> HexBytes(const std::string& text, const std::string& what);

// "12.3 MB"
std::string SizeText(uint64_t bytes);
// "0:01:02"
std::string ClockText(double seconds);

// A line on the terminal that is written over; nothing where there is no terminal.
class ProgressLine {
  public:
    explicit ProgressLine(bool quiet);
    ~ProgressLine();
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    // `total_ms` may be 0: not known.
    void Show(int64_t done_ms, int64_t total_ms, uint64_t bytes);
    double Seconds() const;

  private:
    bool active_;
    bool shown_ = false;
    double last_ = -1;
    int64_t start_ns_;
};

// Set by SIGINT and SIGTERM: finish what was begun and end.
bool Interrupted();
void CatchInterrupts();
// Sleeps until `ms` after the first call with this object, or until an interrupt.
class Pace {
  public:
    explicit Pace(double speed) : speed_(speed) {}
    void WaitFor(int64_t ms);

  private:
    double speed_;
    int64_t first_ms_ = -1;
    int64_t start_ns_ = 0;
};

}  // namespace Orvane::Muxora::Tools
