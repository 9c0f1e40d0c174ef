// Reads media files of any kind that libavformat knows, raw elementary streams among them, and gives their frames in
// the form that the library takes, interleaved by time.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "media_input/media_frame.h"

namespace Orvane::Muxora::Tools {

// What went wrong, in one line for the user: the file's name and what to do.
class InputError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

struct StreamChoice {
    static constexpr int kFirst = -1;
    static constexpr int kNone = -2;
};

struct InputOptions {
    // The number of a stream, counted from 0 through all inputs, or kFirst, or kNone.
    int video = StreamChoice::kFirst;
    int audio = StreamChoice::kFirst;
    // Frames per second; 0 takes what the file says. It also times raw video streams, which have no clock.
    uint32_t frame_rate = 0;
    // Time of the first frame. 0 would tell the library that a time is not given.
    int64_t start_ms = 1000;
    // Stop after this much media; 0 reads to the end.
    int64_t duration_ms = 0;
    // Length of the blocks into which PCM and G.711 are cut.
    int64_t block_ms = 40;
    // The frames of a large file may lie in its mapping: their spare bytes then are what follows there, no zeros.
    bool lend_frames = false;
    // Gives the AES key of encrypted OVX units when one is met; unset, or giving nothing, there is none.
    std::function<std::vector<uint8_t>()> ovx_key;
};

// A chosen stream, as far as it is known before the first frame.
struct MediaStream {
    uint32_t type = MX_FRAME_VIDEO;
    uint32_t codec = 0;
    std::string codec_name;
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t frame_rate = 0;  // whole frames per second, as the library takes it
    double exact_rate = 0;    // what the file says
    uint32_t rotation = 0;    // degrees clockwise by which the pictures are to be turned when they are shown
    uint32_t samples_per_sec = 0;
    uint32_t bits_per_sample = 0;
    uint32_t channels = 0;
    int number = 0;  // counted from 0 through all inputs
    std::string path;
    int64_t duration_ms = 0;  // 0 if the file does not say
};

class MediaInput {
  public:
    // Opens the files and chooses the streams; throws InputError.
    explicit MediaInput(const std::vector<std::string>& paths, const InputOptions& options = {});
    ~MediaInput();
    MediaInput(const MediaInput&) = delete;
    MediaInput& operator=(const MediaInput&) = delete;

    // Null where there is none.
    const MediaStream* Video() const;
    const MediaStream* Audio() const;

    // The next frame by time; false at the end. Throws InputError.
    bool Next(MediaFrame& frame);

    // Length of the longest chosen stream, or 0 where no file says it.
    int64_t DurationMs() const;
    // What of the inputs does not reach the library, or not whole, each in a line: streams left out, samples narrowed,
    // damage. Whole at the end.
    std::vector<std::string> Notes() const;
    // Frames that the demuxer marked as damaged or cut; they are left out.
    uint64_t DamagedFrames() const;

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// All frames of the inputs at once, for tests.
std::vector<MediaFrame> ReadAllFrames(const std::vector<std::string>& paths, const InputOptions& options = {});

}  // namespace Orvane::Muxora::Tools
