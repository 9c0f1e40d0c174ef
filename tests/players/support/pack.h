// Packs frames into a file through the C interface.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "media_input/media_input.h"

namespace test {

using Orvane::Muxora::Tools::MediaFrame;

struct PackOptions {
    PackOptions() { header.start_time_ms = MX_NO_START_TIME; }

    MXHeaderInfo header{};
    // Fill the header's stream fields, which AVI and TS read, from the first frames.
    bool describe = false;
    const MXRtpParam* rtp = nullptr;
    // Changes a record before it goes in: another codec number, no timestamp, ...
    std::function<void(MXFrameInfo&)> adjust;
};

struct PackResult {
    uint32_t header = 0;                // result of MX_CreateHeader
    uint32_t tailer = 0;                // result of MX_CreateTailer
    std::vector<uint32_t> frames;       // result of MX_InputFrame for each frame
    std::vector<uint32_t> block_sizes;  // length of each block of output, in order
    uint64_t size = 0;                  // of the finished file

    // Everything was taken.
    bool Ok() const;
};

// Packs copies of `frames` into `path`: absolute blocks go to their positions, the others to the end.
PackResult PackFile(uint32_t format, const std::vector<MediaFrame>& frames, const std::string& path,
                    const PackOptions& options = {});

}  // namespace test
