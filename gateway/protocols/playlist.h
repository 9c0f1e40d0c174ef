// HLS playlists (RFC 8216bis) as text.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Orvane::Muxora::Gateway {

struct PlaylistPart {
    double duration = 0;       // seconds
    bool independent = false;  // begins with a key frame
};

struct PlaylistSegment {
    uint64_t number = 0;
    double duration = 0;
    int64_t wall_ms = 0;  // when it began, since 1970
    unsigned init = 0;    // which initialisation segment
    bool complete = true;
    bool discontinuity = false;
    std::vector<PlaylistPart> parts;  // empty: not listed
};

// Another track of the same stream, for its clients' next request.
struct RenditionReport {
    std::string track;
    uint64_t last_segment = 0;
    size_t last_part = 0;
};

struct MediaPlaylist {
    std::string prefix;   // of the files' names: "video-GENERATION-"
    std::string carried;  // query of all addresses, with its '?', or empty
    double target = 2;
    double part_target = 0.25;
    uint64_t discontinuities = 0;  // that have left the playlist
    bool ended = false;
    std::vector<PlaylistSegment> segments;  // at least one; the last one may be incomplete
    std::vector<RenditionReport> reports;
};

// The names of the files, behind the prefix.
std::string SegmentName(uint64_t number);            // "12.m4s"
std::string PartName(uint64_t number, size_t part);  // "12.3.m4s"
std::string InitName(unsigned init);                 // "init0.mp4"

std::string PrintMediaPlaylist(const MediaPlaylist& playlist);

struct MasterPlaylist {
    std::string carried;
    std::string video_codec;  // RFC 6381; empty: there is none
    std::string audio_codec;
    uint64_t bandwidth = 0;  // bits a second
    uint32_t width = 0;
    uint32_t height = 0;
    double frame_rate = 0;
    uint32_t channels = 0;
};

std::string PrintMasterPlaylist(const MasterPlaylist& playlist);

// "2026-11-22T00:12:33.480Z"
std::string DateText(int64_t ms);

}  // namespace Orvane::Muxora::Gateway
