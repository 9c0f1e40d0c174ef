// One CMAF track as segments and parts (ISO/IEC 23000-19): cut where players may begin, kept while they may ask.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "hub/block.h"
#include "streaming/playlist.h"

namespace Orvane::Muxora::Gateway {

struct SegmentSettings {
    double segment = 2;  // seconds; a segment ends at the next key frame behind them
    double part = 0.25;  // no part is longer
    size_t listed = 6;   // segments in a playlist
    size_t kept = 10;    // segments that can be fetched
};

class SegmentList {
  public:
    struct Part {
        std::vector<BlockPtr> blocks;
        double duration = 0;
        bool independent = false;
    };
    struct Segment {
        uint64_t number = 0;
        int64_t time = 0;  // ticks
        int64_t length = 0;
        uint32_t time_scale = 1000;
        double duration = 0;
        int64_t wall_ms = 0;
        unsigned init = 0;
        bool discontinuity = false;
        bool complete = false;
        uint64_t bytes = 0;
        std::vector<Part> parts;  // all but the one that grows
    };

    // `paced` tracks are cut by CutAt alone, so that sound is cut where the pictures are.
    SegmentList(const SegmentSettings& settings, bool paced) : settings_(settings), paced_(paced) {}

    // From now on: there are pictures after all.
    void Pace() { paced_ = true; }

    // Gives whether a part was finished by it.
    bool Add(const BlockPtr& block);
    // The segment ends at the first block at or behind this time, in seconds.
    void CutAt(double seconds) { cut_at_ = seconds; }
    // Where the latest segment begins, in seconds: set anew by each cut.
    std::optional<double> LatestCut() const { return latest_cut_; }
    // The segment that grows is complete; nothing follows.
    void End();

    bool Empty() const { return segments_.empty() || (segments_.size() == 1 && segments_.back().parts.empty()); }
    bool Ended() const { return ended_; }
    const std::deque<Segment>& Segments() const { return segments_; }
    // The number of the segment that grows, and how many parts it has.
    uint64_t NextNumber() const;
    size_t NextPart() const;
    // Is this part there? Without a part: is this segment complete?
    bool Has(uint64_t number, std::optional<size_t> part) const;

    // Empty when they are not, or no longer, there.
    std::vector<BlockPtr> SegmentBlocks(uint64_t number) const;
    std::vector<BlockPtr> PartBlocks(uint64_t number, size_t part) const;
    std::vector<BlockPtr> InitBlocks(unsigned init) const;
    unsigned LatestInit() const { return init_; }
    // Bits a second of the largest segment.
    uint64_t Bandwidth() const;

    // What a playlist lists; the caller adds what it knows besides. Not when Empty.
    Streaming::MediaPlaylist Playlist() const;

  private:
    bool CutsBefore(const Block& block) const;
    void ClosePart();
    void Begin(const Block& block);
    void Drop();

    SegmentSettings settings_;
    bool paced_;
    std::deque<Segment> segments_;
    Part growing_;
    std::map<unsigned, std::vector<BlockPtr>> inits_;
    unsigned init_ = 0;
    bool init_open_ = false;
    bool new_init_ = false;
    uint64_t next_number_ = 0;
    uint64_t discontinuities_ = 0;
    std::optional<double> cut_at_;
    std::optional<double> latest_cut_;
    bool ended_ = false;
};

}  // namespace Orvane::Muxora::Gateway
