#include "packaging/segment_list.h"

#include <algorithm>

namespace Orvane::Muxora::Gateway {

namespace {

constexpr double kNearly = 0.001;
// Pictures without a key frame are cut all the same, so that no segment grows for ever.
constexpr double kLongestSegments = 5;
// RFC 8216bis 6.2.2: parts are listed for the last three target durations.
constexpr size_t kSegmentsWithParts = 3;

}  // namespace

bool SegmentList::Add(const BlockPtr& block) {
    if (ended_) return false;
    if (block->kind == Block::Kind::kHeader) {
        if (!init_open_) {
            if (!inits_.empty()) ++init_;
            new_init_ = !segments_.empty();
            init_open_ = true;
        }
        inits_[init_].push_back(block);
        return false;
    }
    init_open_ = false;
    bool closed = false;
    if (segments_.empty()) {
        if (!block->key) return false;
        Begin(*block);
    } else if (CutsBefore(*block)) {
        closed = !growing_.blocks.empty();
        ClosePart();
        Segment& last = segments_.back();
        last.length = block->dts - last.time;
        last.duration = static_cast<double>(last.length) / last.time_scale;
        last.complete = true;
        Begin(*block);
    }
    const double length = block->duration > 0 ? static_cast<double>(block->duration) / block->time_scale : 0;
    if (growing_.blocks.empty()) growing_.independent = block->key;
    growing_.blocks.push_back(block);
    growing_.duration += length;
    Segment& segment = segments_.back();
    segment.bytes += block->bytes.size();
    // One more like this would be too much.
    if (growing_.duration + length > settings_.part + kNearly) {
        ClosePart();
        closed = true;
    }
    return closed;
}

bool SegmentList::CutsBefore(const Block& block) const {
    const Segment& last = segments_.back();
    if (new_init_ || block.time_scale != last.time_scale) return true;
    const double since = static_cast<double>(block.dts - last.time) / last.time_scale;
    if (since > settings_.segment * kLongestSegments) return true;
    if (paced_) return cut_at_ && block.DtsSeconds() >= *cut_at_ - kNearly;
    return block.key && since >= settings_.segment - kNearly;
}

void SegmentList::Begin(const Block& block) {
    Segment segment;
    segment.number = next_number_++;
    segment.time = block.dts;
    segment.time_scale = block.time_scale;
    segment.wall_ms = block.arrival_us / 1000;
    segment.init = init_;
    segment.discontinuity = new_init_;
    new_init_ = false;
    segments_.push_back(std::move(segment));
    latest_cut_ = block.DtsSeconds();
    cut_at_.reset();
    Drop();
}

void SegmentList::ClosePart() {
    if (growing_.blocks.empty()) return;
    segments_.back().parts.push_back(std::move(growing_));
    growing_ = Part{};
}

void SegmentList::Drop() {
    while (segments_.size() > std::max(settings_.kept, settings_.listed) + 1) {
        segments_.pop_front();
        const unsigned oldest = segments_.front().init;
        inits_.erase(inits_.begin(), inits_.lower_bound(oldest));
    }
    // Counted where segments leave the playlist, not the memory.
    if (segments_.size() > settings_.listed + 1 && segments_[segments_.size() - settings_.listed - 2].discontinuity) {
        ++discontinuities_;
    }
}

void SegmentList::End() {
    if (ended_) return;
    ended_ = true;
    ClosePart();
    if (segments_.empty()) return;
    Segment& last = segments_.back();
    if (last.parts.empty()) {
        segments_.pop_back();
        return;
    }
    for (const Part& part : last.parts)
        last.duration += part.duration;
    last.length = static_cast<int64_t>(last.duration * last.time_scale);
    last.complete = true;
}

uint64_t SegmentList::NextNumber() const {
    return segments_.empty() ? next_number_ : segments_.back().complete ? next_number_ : segments_.back().number;
}

size_t SegmentList::NextPart() const {
    return segments_.empty() || segments_.back().complete ? 0 : segments_.back().parts.size();
}

bool SegmentList::Has(uint64_t number, std::optional<size_t> part) const {
    const uint64_t next = NextNumber();
    if (number < next) return true;
    return number == next && part && *part < NextPart();
}

std::vector<BlockPtr> SegmentList::SegmentBlocks(uint64_t number) const {
    std::vector<BlockPtr> blocks;
    for (const Segment& segment : segments_) {
        if (segment.number != number || !segment.complete) continue;
        for (const Part& part : segment.parts)
            blocks.insert(blocks.end(), part.blocks.begin(), part.blocks.end());
    }
    return blocks;
}

std::vector<BlockPtr> SegmentList::PartBlocks(uint64_t number, size_t part) const {
    for (const Segment& segment : segments_) {
        if (segment.number == number && part < segment.parts.size()) return segment.parts[part].blocks;
    }
    return {};
}

std::vector<BlockPtr> SegmentList::InitBlocks(unsigned init) const {
    const auto found = inits_.find(init);
    return found != inits_.end() ? found->second : std::vector<BlockPtr>{};
}

uint64_t SegmentList::Bandwidth() const {
    double most = 0;
    for (const Segment& segment : segments_) {
        if (segment.complete && segment.duration > 0) {
            most = std::max(most, static_cast<double>(segment.bytes) * 8 / segment.duration);
        }
    }
    return static_cast<uint64_t>(most);
}

Streaming::MediaPlaylist SegmentList::Playlist() const {
    Streaming::MediaPlaylist playlist;
    playlist.target = settings_.segment;
    playlist.part_target = settings_.part;
    playlist.ended = ended_;
    playlist.discontinuities = discontinuities_;
    const size_t count = std::min(segments_.size(), settings_.listed + 1);
    for (size_t i = segments_.size() - count; i < segments_.size(); ++i) {
        const Segment& segment = segments_[i];
        if (!segment.complete && segment.parts.empty()) continue;
        Streaming::PlaylistSegment listed;
        listed.number = segment.number;
        listed.duration = segment.duration;
        listed.wall_ms = segment.wall_ms;
        listed.init = segment.init;
        listed.complete = segment.complete;
        listed.discontinuity = segment.discontinuity;
        if (i + kSegmentsWithParts >= segments_.size() || !segment.complete) {
            for (const Part& part : segment.parts)
                listed.parts.push_back({part.duration, part.independent});
        }
        playlist.segments.push_back(std::move(listed));
    }
    return playlist;
}

}  // namespace Orvane::Muxora::Gateway
