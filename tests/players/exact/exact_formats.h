// The formats with exact times, and what ffprobe can list of each.
#pragma once

#include <ostream>
#include <vector>

#include "exact/exact_clip.h"

namespace test {

struct ExactFormat {
    const char* key;
    uint32_t number;
    const char* extension;
    bool (*takes)(const ExactFrame& frame);
    int64_t offset_seconds = 0;   // what the format adds to all times
    bool lists_dts = true;        // false: ffprobe guesses decoding times
    bool lists_durations = true;  // false: the format has no durations
    int64_t duration_slack = 0;   // ticks
    bool lists_keys = true;
    // Does the ffprobe of Debian know this codec in the format?
    bool (*lists)(const ExactFrame& frame) = [](const ExactFrame&) { return true; };
};

inline bool XtsTakes(const ExactFrame& exact) {
    const MXFrameInfo& frame = exact.info;
    return frame.frame_type == MX_FRAME_VIDEO ? frame.encode_type != MX_VIDEO_MJPEG
                                              : frame.encode_type == MX_AUDIO_AAC || frame.encode_type == MX_AUDIO_MPEG;
}

inline bool IsMp3(const ExactFrame& frame) {
    return frame.info.encode_type == MX_AUDIO_MPEG && (frame.bytes.at(1) & 6) == 2;
}

inline bool XflvTakes(const ExactFrame& exact) {
    const MXFrameInfo& frame = exact.info;
    return frame.frame_type == MX_FRAME_VIDEO ? frame.encode_type != MX_VIDEO_MPEG4
                                              : frame.encode_type == MX_AUDIO_AAC || IsMp3(exact);
}

// H.265 came to FLV later.
inline bool XflvLists(const ExactFrame& frame) {
    return frame.info.encode_type != MX_VIDEO_H265;
}

inline bool TakesAll(const ExactFrame& /*frame*/) {
    return true;
}

inline std::vector<ExactFormat> ExactFormats() {
    return {
        {"xflv", MX_FORMAT_XFLV, "flv", XflvTakes, 0, true, false, 0, true, XflvLists},
        {"xmkv", MX_FORMAT_XMKV, "mkv", TakesAll, 0, false, true, 1, true},
        // Of fragments ffprobe lists no duration of the first and of the last packet.
        {"fmp4", MX_FORMAT_FMP4, "fmp4.mp4", TakesAll, 0, true, false, 0, true},
        {"hmp4", MX_FORMAT_HMP4, "hmp4.mp4", TakesAll, 0, true, true, 0, true},
        {"xts", MX_FORMAT_XTS, "ts", XtsTakes, 1, true, false, 0, true},
    };
}

inline void PrintTo(const ExactFormat& format, std::ostream* out) {
    *out << format.key;
}

}  // namespace test
