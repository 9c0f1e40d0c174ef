// DASH manifests (ISO/IEC 23009-1) as text.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Orvane::Muxora::Gateway {

struct ManifestSegment {
    int64_t time = 0;  // ticks
    int64_t duration = 0;
};

struct ManifestTrack {
    bool video = false;
    std::string prefix;  // of the files' names
    unsigned init = 0;
    std::string codec;  // RFC 6381
    uint64_t bandwidth = 0;
    uint32_t time_scale = 1000;
    uint64_t first_number = 0;
    std::vector<ManifestSegment> segments;
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t sample_rate = 0;
    uint32_t channels = 0;
};

struct Manifest {
    std::string carried;   // query of all addresses, with its '?', or empty
    int64_t start_ms = 0;  // wall clock at media time 0, since 1970
    int64_t now_ms = 0;
    double target = 2;  // seconds of a segment
    double depth = 0;   // seconds of all segments
    bool ended = false;
    std::vector<ManifestTrack> tracks;
};

std::string PrintManifest(const Manifest& manifest);

}  // namespace Orvane::Muxora::Gateway
