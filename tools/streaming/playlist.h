// HLS playlists (RFC 8216, and RFC 8216bis where they are live) as text.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Orvane::Muxora::Streaming {

struct PlaylistPart {
    double duration = 0;       // seconds
    bool independent = false;  // begins with a key frame
};

struct PlaylistSegment {
    uint64_t number = 0;
    double duration = 0;
    std::optional<int64_t> wall_ms;  // when it began, since 1970
    unsigned init = 0;               // which initialisation segment
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
    double target = 2;    // of a segment, in seconds; it becomes longer where a segment is
    // Parts at the live edge of a stream that grows; without, the playlist is whole and will not change.
    std::optional<double> part_target;
    bool independent = false;      // every segment can be decoded by itself
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

// Sound that goes with every variant of pictures.
struct AudioRendition {
    std::string name;  // no two have the same
    std::string uri;
    uint32_t channels = 0;
};

struct Variant {
    std::string uri;
    std::string codecs;      // RFC 6381, of the sound that goes with it as well
    uint64_t bandwidth = 0;  // bits a second, of the sound as well: at most
    uint64_t average = 0;    // and on average; 0: not stated
    uint32_t width = 0;      // 0: sound alone
    uint32_t height = 0;
    double frame_rate = 0;  // 0: not known
};

struct MasterPlaylist {
    int version = 7;
    bool independent = true;            // every segment of every playlist can be decoded by itself
    std::vector<AudioRendition> audio;  // the first one is the default
    std::vector<Variant> variants;
};

std::string PrintMasterPlaylist(const MasterPlaylist& playlist);

// "2026-11-22T00:12:33.480Z"
std::string DateText(int64_t ms);

}  // namespace Orvane::Muxora::Streaming
