// What every kind of input is to those who read frames from it.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "media_input/media_input.h"

namespace Orvane::Muxora::Tools {

// One chosen stream: its frames that wait to be given out.
class StreamQueue {
  public:
    StreamQueue(MediaStream about, uint32_t time_scale) : about_(std::move(about)), time_scale_(time_scale) {}
    virtual ~StreamQueue() = default;
    StreamQueue(const StreamQueue&) = delete;
    StreamQueue& operator=(const StreamQueue&) = delete;

    // Frames that are ready, with times in microseconds on the file's clock.
    struct Timed {
        int64_t time_us;  // decoding order, moved so that the first frame's is when it is shown
        int64_t pts_us;
        MediaFrame frame;
        int64_t dts_us;       // the decoding time as the file has it
        int64_t duration_us;  // 0 where the file does not say
    };
    std::deque<Timed> ready;
    size_t ready_bytes = 0;
    uint64_t damaged = 0;
    // Milliseconds of the frame handed out last, so that times rise.
    int64_t last_ms = -1;
    // What the frames lose on the way to the library, each in a line.
    std::vector<std::string> notes;

    const MediaStream& About() const { return about_; }
    // Ticks a second of the file's own clock: the microseconds above are rounded from it.
    uint32_t TimeScale() const { return time_scale_; }

  protected:
    MediaStream about_;
    uint32_t time_scale_;
};

class MediaSource {
  public:
    virtual ~MediaSource() = default;

    virtual int StreamCount() const = 0;
    // Takes the stream of the type (MXFrameType) on which the choice falls; null if it is none of this source. Throws
    // InputError.
    virtual StreamQueue* Choose(uint32_t type, int choice) = 0;
    // All that is wanted has been chosen.
    virtual void Begin() = 0;
    // Reads until each chosen stream has a frame, as far as that goes within bounds.
    virtual void Fill() = 0;
    virtual const std::vector<std::unique_ptr<StreamQueue>>& Chosen() const = 0;
    // What of the source does not reach the library, each in a line; whole at the end.
    virtual std::vector<std::string> Notes() const = 0;
};

std::unique_ptr<MediaSource> OpenFileSource(const std::string& path, int first_number, const InputOptions& options,
                                            std::vector<uint8_t> head);
std::unique_ptr<MediaSource> OpenOvxSource(const std::string& path, int first_number, const InputOptions& options,
                                           std::vector<uint8_t> head);

// How far one stream may run ahead while the other has nothing to give.
constexpr size_t kReadAheadBytes = 32u << 20;

}  // namespace Orvane::Muxora::Tools
