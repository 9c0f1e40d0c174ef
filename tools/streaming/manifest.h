// DASH manifests (ISO/IEC 23009-1) as text.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Orvane::Muxora::Streaming {

struct ManifestSegment {
    int64_t time = 0;  // ticks
    int64_t duration = 0;
};

struct Representation {
    std::string id;
    std::string prefix;  // of the files' names
    unsigned init = 0;
    std::string codec;  // RFC 6381
    uint64_t bandwidth = 0;
    uint32_t time_scale = 1000;
    uint64_t first_number = 0;
    std::vector<ManifestSegment> segments;
    uint32_t width = 0;
    uint32_t height = 0;
    std::string frame_rate;  // "25" or "30000/1001"; empty: not stated
    uint32_t sample_rate = 0;
    uint32_t channels = 0;
};

// Representations of the same content, between which a player may switch.
struct AdaptationSet {
    bool video = false;
    std::string label;        // for a choice by the viewer; empty: none
    bool aligned = true;      // the segments of all representations begin at the same times
    int begins_with_sap = 1;  // ISO/IEC 14496-12 annex I; 3: an open group of pictures
    std::vector<Representation> representations;
};

struct Manifest {
    std::string carried;   // query of all addresses, with its '?', or empty
    int64_t start_ms = 0;  // wall clock at media time 0, since 1970
    int64_t now_ms = 0;
    double target = 2;  // seconds of a segment
    double depth = 0;   // seconds of all segments
    bool ended = false;
    std::vector<AdaptationSet> sets;
};

std::string PrintManifest(const Manifest& manifest);

}  // namespace Orvane::Muxora::Streaming
