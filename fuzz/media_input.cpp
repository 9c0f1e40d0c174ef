// The tool's reader of media files on any bytes: elementary streams, OVX, and containers by way of libavformat. What it
// gives must be frames that the library may be given.
#include "media_input/media_input.h"

#include "harness/input.h"
#include "harness/temp_folder.h"

extern "C" {
#include <libavutil/log.h>
}

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    av_log_set_level(AV_LOG_QUIET);
    return 0;
}

// The first byte chooses the name's ending, which decides how raw streams are read.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace Orvane::Muxora::Tools;
    static constexpr const char* kEndings[] = {"ovx",   "h264", "h265", "mp4", "aac", "m4v",
                                               "mjpeg", "mkv",  "ts",   "wav", "m2v", "flv"};
    static const fuzz::TempFolder folder;
    if (size < 2) return 0;
    const std::string path = folder.Write(std::string("in.") + kEndings[data[0] % 12], data + 1, size - 1);
    InputOptions options;

    options.frame_rate = data[0] & 32 ? 25 : 0;
    options.duration_ms = 10000;
    try {
        MediaInput input({path}, options);
        int64_t last[2] = {-1, -1};
        MediaFrame frame;
        for (int count = 0; count < 200 && input.Next(frame); ++count) {
            int64_t& before = last[frame.IsVideo() ? 0 : 1];
            fuzz::Require(frame.Size() != 0 && frame.time_ms > before);
            before = frame.time_ms;
        }
        input.Notes();
    } catch (const InputError& error) {
        fuzz::Require(error.what()[0] != 0);
    }
    std::remove(path.c_str());
    return 0;
}
