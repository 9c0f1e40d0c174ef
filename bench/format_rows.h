// The formats as the benchmarks run them: through the C interface, into a sink that drops what it is given.
#pragma once

#include <memory>
#include <span>

#include "MuxoraExt.h"
#include "workload.h"

namespace bench {

// A format of the general-purpose muxer, with the `movflags` that make it the same kind of file. No name: it has none.
struct GeneralPurpose {
    const char* name = nullptr;
    const char* movflags = nullptr;
};

struct FormatRow {
    const char* name;
    uint32_t format;
    Codecs codecs;
    GeneralPurpose avformat;
};

// Every format, and RTP in both forms of its output.
std::span<const FormatRow> FormatRows();

struct HandleRelease {
    void operator()(void* handle) const { MX_DestroyHandle(handle); }
};
using Handle = std::unique_ptr<void, HandleRelease>;

// A handle with its header written; null if this build lacks the format.
Handle Open(const FormatRow& row);

// Packs the frames once; `pass` counts from 0. Inline, so that what is counted or timed is the loop of a caller's own.
inline void Pack(void* handle, const Workload& workload, uint32_t pass) {
    for (const auto& frame : workload.frames()) {
        MXFrameInfo info = workload.Next(frame, pass);
        MX_InputFrame(handle, &info);
    }
}

}  // namespace bench
