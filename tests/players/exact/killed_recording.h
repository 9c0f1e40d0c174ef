// A recording of hybrid MP4 by a process of its own, which is killed in the midst of it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "exact/exact_clip.h"

namespace test {

// How far the recorder runs ahead of what was asked for: the moment of its death lies somewhere in there.
constexpr uint32_t kRecorderAhead = 12;

// Records the frames over and over, three seconds later each time, and kills the recorder by SIGKILL once it tells of
// `count` frames. Throws std::runtime_error if it ends in any other way.
void RecordAndKill(const std::vector<ExactFrame>& frames, const std::string& path, uint32_t count);

// Pictures in the fragments that are there to their last byte: the first trun of each moof is theirs.
uint64_t WholePictures(const std::vector<uint8_t>& file);

}  // namespace test
