// What a format cannot say of the media that went into it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/format_list.h"
#include "media_input/media_input.h"

namespace Orvane::Muxora::Tools {

struct PackFacts {
    const MediaStream* video = nullptr;  // null: none
    const MediaStream* audio = nullptr;
    bool has_b_pictures = false;
    int64_t media_ms = 0;       // 0: not known yet
    double uneven_seconds = 0;  // how far a picture is from where an even rate would have it
};

// Each in a line, true, and only where it bears on this input.
std::vector<std::string> FormatNotes(const Format& format, const PackFacts& facts);
// Of streams that are whole and right in the file, and that ffmpeg does not find there: for those who look with it.
std::vector<std::string> PlayerNotes(const Format& format, const PackFacts& facts);

}  // namespace Orvane::Muxora::Tools
