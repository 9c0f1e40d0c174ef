// Frames with all their fields, out of a fuzzer's bytes.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "MuxoraExt.h"
#include "harness/frame_memory.h"
#include "harness/input.h"

namespace fuzz {

inline constexpr uint32_t kSubTypes[] = {0, 1, 2, 3, 8, 18, 19, 20, 21};
inline constexpr uint32_t kVideoCodecs[] = {2, 4, 12, 1, 3, 8, 9, 11, 35, 129, 0};
inline constexpr uint32_t kAudioCodecs[] = {26, 31, 14, 22, 16, 7, 10, 8, 25, 34, 0};
inline constexpr uint32_t kRates[] = {8000, 48000, 44100, 16000, 11000, 22000, 5500, 44000, 0};

// How far from the end of its memory a frame ends, so that it can be aligned otherwise, and what may be read behind it:
// one byte by RTP behind an H.264 frame; its public header says so.
struct Placement {
    size_t offset = 0;
    size_t spare = 0;
};

class Frame {
  public:
    // `large` frames may have megabytes: that is rare, or nothing else would be tried. `times` adds exact ones, which
    // rise from `clock` on.
    Frame(Input& in, bool large, Placement placement, int64_t* clock);
    Frame(const Frame&) = delete;
    Frame& operator=(const Frame&) = delete;

    // Null now and then: where a caller has none.
    MXFrameInfo* Record() { return missing_ ? nullptr : &record_; }
    // Always there.
    MXFrameInfo& Fields() { return record_; }

  private:
    MXFrameInfo record_{};
    std::optional<FrameMemory> memory_;
    std::vector<MXBlockInfo> blocks_;
    bool missing_ = false;
};

}  // namespace fuzz
