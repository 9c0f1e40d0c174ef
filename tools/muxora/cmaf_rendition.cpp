#include "muxora/cmaf_rendition.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <utility>

#include "common/errors.h"
#include "streaming/codec_string.h"

namespace Orvane::Muxora::Tools {

namespace {

// Times are rounded to ticks.
constexpr double kNearly = 0.001;

// What browsers and set-top boxes play of what fragmented MP4 holds.
bool IsPlayed(const MediaStream& stream) {
    if (stream.type == MX_FRAME_VIDEO) return stream.codec == MX_VIDEO_H264 || stream.codec == MX_VIDEO_H265;
    return stream.codec == MX_AUDIO_AAC || stream.codec_name == "mp3";
}

const MediaStream& CheckPlayed(const MediaStream& stream) {
    if (IsPlayed(stream)) return stream;
    const std::string kind = stream.type == MX_FRAME_VIDEO ? "video" : "audio";
    throw Failure(stream.path + ": stream " + std::to_string(stream.number) + " is " + stream.codec_name +
                  ", which players of HLS and DASH do not take; " + kind + " may be " +
                  (kind == "video" ? "H.264 or H.265" : "AAC or MP3") + " (encode it anew, or leave it out with --no-" +
                  kind + ")");
}

// A frame rate as ISO/IEC 23009-1 writes it.
std::string RateText(double rate) {
    const auto near_whole = [](double value) { return std::abs(value - std::round(value)) < 0.0005; };
    if (rate <= 0) return "";
    if (near_whole(rate)) return std::to_string(std::lround(rate));
    if (near_whole(rate * 1.001)) return std::to_string(std::lround(rate * 1.001) * 1000) + "/1001";
    return std::to_string(std::lround(rate * 1000)) + "/1000";
}

}  // namespace

CmafRendition::CmafRendition(std::string folder, std::string name, const MediaStream& stream, int64_t target_ms)
    : folder_(std::move(folder)),
      name_(std::move(name)),
      about_(CheckPlayed(stream)),
      target_(static_cast<double>(target_ms) / 1000),
      packer_(*FormatByKey("fmp4"), Settings(target_ms), IsVideo() ? &stream : nullptr, IsVideo() ? nullptr : &stream,
              [this](const MXOutputBlock& block) {
                  Store(reinterpret_cast<const MXExactBlock&>(block));
                  return uint64_t{block.length};
              }) {
}

PackerSettings CmafRendition::Settings(int64_t target_ms) const {
    PackerSettings settings;
    MXFragmentParam& fragment = settings.fragment.emplace();
    fragment.size = sizeof fragment;
    fragment.mode = IsVideo() ? MX_FRAGMENT_GOP : MX_FRAGMENT_DURATION;
    fragment.duration_ms = static_cast<uint32_t>(target_ms);
    fragment.tracks = IsVideo() ? MX_TRACKS_VIDEO : MX_TRACKS_AUDIO;
    return settings;
}

void CmafRendition::Give(MediaFrame& frame) {
    if (frame.time_scale == 0) {
        frame.time_scale = 1000;
        frame.dts = frame.time_ms;
        frame.pts = frame.pts_ms;
    }
    packer_.Give(frame);
    // Pictures ahead of the first one that can be decoded are left out.
    if (inits_ != 0) Note(frame);
}

void CmafRendition::Note(const MediaFrame& frame) {
    if (!pending_) pending_ = Pending{frame.time_scale, frame.dts, frame.pts, frame.pts};
    pending_->earliest_pts = std::min(pending_->earliest_pts, frame.pts);
}

void CmafRendition::Finish() {
    packer_.Finish();
    if (segments_.empty()) {
        throw Failure(about_.path + ": stream " + std::to_string(about_.number) +
                      " holds no frame that decoding can begin with");
    }
}

void CmafRendition::Store(const MXExactBlock& block) {
    block.kind == MX_BLOCK_HEADER ? StoreInit(block) : StoreMedia(block);
}

void CmafRendition::StoreInit(const MXExactBlock& block) {
    const auto* bytes = static_cast<const uint8_t*>(block.block.data);
    codecs_.insert(Streaming::CodecString({bytes, block.block.length}));
    WriteFile(Streaming::InitName(inits_++), block.block, false);
    time_scale_ = block.time_scale;
}

void CmafRendition::StoreMedia(const MXExactBlock& block) {
    // The library may have moved the times; how far the pictures are out of order stays. Sound that begins ahead of 0
    // is priming and is not heard.
    const Pending frames = std::exchange(pending_, std::nullopt).value_or(Pending{});
    const int64_t wait = (frames.earliest_pts - frames.first_dts) * time_scale_ / frames.scale;
    const int64_t begin = block.dts + wait;
    const int64_t start = std::max<int64_t>(begin, 0);
    const bool key = (block.flags & MX_BLOCK_KEY) != 0;
    const bool new_init = segments_.empty() || segments_.back().init + 1 != inits_;
    const bool full = !segments_.empty() && SecondsAt(begin - begun_) >= target_ - kNearly;
    const bool begins = new_init || (key && full);
    if (begins) {
        if (!segments_.empty()) segments_.back().end = start;
        if (!key) sap_ = 0;
        if (sap_ == 1 && !segments_.empty() && frames.earliest_pts < frames.first_pts) sap_ = 3;
        segments_.push_back({start, start, 0, inits_ - 1});
        begun_ = begin;
    }
    Segment& segment = segments_.back();
    segment.end = std::max(segment.end, begin + block.duration);
    segment.bytes += block.block.length;
    WriteFile(Streaming::SegmentName(segments_.size() - 1), block.block, !begins);
}

void CmafRendition::WriteFile(const std::string& name, const MXOutputBlock& block, bool append) {
    const std::string path = folder_ + "/" + name_ + "-" + name;
    errno = 0;
    std::ofstream out(path, std::ios::binary | (append ? std::ios::app : std::ios::trunc));
    out.write(static_cast<const char*>(block.data), static_cast<std::streamsize>(block.length));
    out.close();
    if (!out) throw Failure("cannot write " + path + ": " + std::strerror(errno != 0 ? errno : EIO));
    bytes_ += block.length;
}

std::string CmafRendition::Codecs() const {
    std::string text;
    for (const std::string& codec : codecs_)
        text += (text.empty() ? "" : ",") + codec;
    return text;
}

double CmafRendition::LongestSegment() const {
    double longest = 0;
    for (const Segment& segment : segments_)
        longest = std::max(longest, Seconds(segment));
    return longest;
}

uint64_t CmafRendition::PeakBitRate(double target) const {
    double peak = 0;
    for (size_t first = 0; first < segments_.size(); ++first) {
        double seconds = 0;
        double bits = 0;
        for (size_t i = first; i < segments_.size(); ++i) {
            seconds += Seconds(segments_[i]);
            bits += static_cast<double>(segments_[i].bytes) * 8;
            if (seconds > target * 1.5) break;
            if (seconds >= target * 0.5) peak = std::max(peak, bits / seconds);
        }
    }
    return std::max({static_cast<uint64_t>(std::ceil(peak)), AverageBitRate(), uint64_t{1}});
}

uint64_t CmafRendition::AverageBitRate() const {
    double seconds = 0;
    double bits = 0;
    for (const Segment& segment : segments_) {
        seconds += Seconds(segment);
        bits += static_cast<double>(segment.bytes) * 8;
    }
    return seconds > 0 ? static_cast<uint64_t>(std::ceil(bits / seconds)) : 0;
}

Streaming::MediaPlaylist CmafRendition::Playlist(const std::string& prefix, double target) const {
    Streaming::MediaPlaylist playlist;
    playlist.prefix = prefix + name_ + "-";
    playlist.target = target;
    playlist.independent = IsIndependent();
    playlist.ended = true;
    for (const Segment& segment : segments_) {
        Streaming::PlaylistSegment& listed = playlist.segments.emplace_back();
        listed.number = playlist.segments.size() - 1;
        listed.duration = Seconds(segment);
        listed.init = segment.init;
        listed.discontinuity = listed.number != 0 && segment.init != segments_[listed.number - 1].init;
    }
    return playlist;
}

Streaming::Representation CmafRendition::Representation(const std::string& prefix, double target) const {
    Streaming::Representation one;
    one.id = name_;
    one.prefix = prefix + name_ + "-";
    one.codec = Codecs();
    one.bandwidth = PeakBitRate(target);
    one.time_scale = time_scale_;
    for (const Segment& segment : segments_)
        one.segments.push_back({segment.start, segment.end - segment.start});
    one.width = about_.width;
    one.height = about_.height;
    one.frame_rate = IsVideo() ? RateText(about_.exact_rate) : "";
    one.sample_rate = about_.samples_per_sec;
    one.channels = about_.channels;
    return one;
}

}  // namespace Orvane::Muxora::Tools
