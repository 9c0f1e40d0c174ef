// The streams that every format is measured on, and the memcpy that it is measured against.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "MuxoraAPI.h"

namespace bench {

// Sizes of a stream of 25 frames per second with a key frame every second.
struct WorkloadShape {
    const char* name;
    uint32_t key_frame_size;
    uint32_t other_frame_size;
    uint32_t seconds;  // length of the pass; long enough that the frames do not all sit in the inner caches
};

inline constexpr WorkloadShape kFullHd{"1080p25_8Mbit", 200'000, 33'000, 10};
inline constexpr WorkloadShape kSmall{"small_frames", 20'000, 4'000, 40};
inline constexpr WorkloadShape kLarge{"large_frames", 1'500'000, 250'000, 4};
// The first one's frames in a ring of 271 MB, as a recorder keeps them: none is in a cache when its turn comes.
inline constexpr WorkloadShape kCold{"cold_frames", 200'000, 33'000, 274};

// What a format is given. Without a video codec the video frames' bytes go in as audio.
struct Codecs {
    uint32_t video;
    uint32_t audio;
};

// Frames in the order in which they go in: H.264 with one slice a picture (access unit delimiter, parameter sets on key
// frames), and AAC of 341 bytes (or 320 bytes of telephone audio at 8000 Hz) beside it. The bytes behind each frame are
// readable.
class Workload {
  public:
    Workload(const WorkloadShape& shape, Codecs codecs);

    // One frame as it lies in memory, with the places of its start codes: packagers may write over them.
    struct Frame {
        MXFrameInfo info;
        std::vector<uint32_t> start_codes;
    };

    // The frame, with its start codes restored and its time moved to the given pass over the stream.
    MXFrameInfo Next(const Frame& frame, uint32_t pass) const;

    const std::vector<Frame>& frames() const { return frames_; }
    uint64_t bytes() const { return bytes_; }
    uint32_t largest() const { return largest_; }

  private:
    void AddVideo(uint32_t size, bool key, uint32_t timestamp, uint32_t codec);
    void AddAudio(uint32_t timestamp, uint32_t codec);
    uint8_t* Store(const std::vector<uint8_t>& bytes);

    WorkloadShape shape_;
    std::vector<std::vector<uint8_t>> storage_;
    std::vector<Frame> frames_;
    uint64_t bytes_ = 0;
    uint32_t largest_ = 0;
    uint32_t random_ = 1;
};

// One pass of plain memcpy over the frames into one reused buffer.
void CopyPass(const Workload& workload, std::vector<uint8_t>& buffer);

// Seconds of the processor that one call takes; what other programs take meanwhile does not count.
template <typename Call>
double Seconds(Call call);

// Keeps this thread on one processor, so that both sides of a comparison have the same caches.
void PinThread();

// Collects pairs of times (ours, memcpy's) of passes that ran in turn.
class Ratio {
  public:
    void Add(double ours, double reference);
    // Medians, in seconds.
    double Ours() const;
    double Reference() const;
    // The median of ours over memcpy's of the pairs, and half the distance between their quartiles.
    double Median() const;
    double Spread() const;

  private:
    std::vector<double> ours_;
    std::vector<double> reference_;
    std::vector<double> ratios_;
};

}  // namespace bench

#include <ctime>

template <typename Call>
double bench::Seconds(Call call) {
    const auto now = [] {
        timespec time{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
    };
    const double start = now();
    call();
    return now() - start;
}
