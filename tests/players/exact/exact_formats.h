// The formats with exact times, and what ffprobe can list of each.
#pragma once

#include <ostream>
#include <vector>

#include "MuxoraExt.h"

namespace test {

struct ExactFormat {
    const char* key;
    uint32_t number;
    const char* extension;
    bool (*takes)(const MXFrameInfo& frame);
    int64_t offset_seconds = 0;   // what the format adds to all times
    bool lists_dts = true;        // false: ffprobe guesses decoding times
    bool lists_durations = true;  // false: the format has no durations
    int64_t duration_slack = 0;   // ticks
    bool lists_keys = true;
};

inline bool XtsTakes(const MXFrameInfo& frame) {
    return frame.frame_type == MX_FRAME_VIDEO ? frame.encode_type != MX_VIDEO_MJPEG
                                              : frame.encode_type == MX_AUDIO_AAC || frame.encode_type == MX_AUDIO_MPEG;
}

inline std::vector<ExactFormat> ExactFormats() {
    return {
        {"xts", MX_FORMAT_XTS, "ts", XtsTakes, 1, true, false, 0, true},
    };
}

inline void PrintTo(const ExactFormat& format, std::ostream* out) {
    *out << format.key;
}

}  // namespace test
