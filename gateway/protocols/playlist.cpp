#include "protocols/playlist.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>

namespace Orvane::Muxora::Gateway {

namespace {

std::string Seconds(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.5f", value);
    return text;
}

std::string Quoted(const std::string& text) {
    return "\"" + text + "\"";
}

void AddParts(const MediaPlaylist& playlist, const PlaylistSegment& segment, std::string& text) {
    for (size_t i = 0; i < segment.parts.size(); ++i) {
        const PlaylistPart& part = segment.parts[i];
        text += "#EXT-X-PART:DURATION=" + Seconds(part.duration) +
                ",URI=" + Quoted(playlist.prefix + PartName(segment.number, i) + playlist.carried) +
                (part.independent ? ",INDEPENDENT=YES" : "") + "\n";
    }
}

}  // namespace

std::string SegmentName(uint64_t number) {
    return std::to_string(number) + ".m4s";
}

std::string PartName(uint64_t number, size_t part) {
    return std::to_string(number) + "." + std::to_string(part) + ".m4s";
}

std::string InitName(unsigned init) {
    return "init" + std::to_string(init) + ".mp4";
}

std::string DateText(int64_t ms) {
    const std::time_t seconds = static_cast<std::time_t>(ms / 1000);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    char text[64];
    const size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
    std::snprintf(text + length, sizeof text - length, ".%03dZ", static_cast<int>(ms % 1000));
    return text;
}

std::string PrintMediaPlaylist(const MediaPlaylist& playlist) {
    // 4.4.3.1: no segment is longer, when rounded to whole seconds.
    double longest = playlist.target;
    for (const PlaylistSegment& segment : playlist.segments)
        longest = std::max(longest, segment.duration);
    std::string text = "#EXTM3U\n#EXT-X-VERSION:9\n";
    text += "#EXT-X-TARGETDURATION:" + std::to_string(std::llround(std::ceil(longest - 0.5))) + "\n";
    text += "#EXT-X-SERVER-CONTROL:CAN-BLOCK-RELOAD=YES,PART-HOLD-BACK=" + Seconds(playlist.part_target * 3) + "\n";
    text += "#EXT-X-PART-INF:PART-TARGET=" + Seconds(playlist.part_target) + "\n";
    text += "#EXT-X-MEDIA-SEQUENCE:" + std::to_string(playlist.segments.front().number) + "\n";
    if (playlist.discontinuities != 0) {
        text += "#EXT-X-DISCONTINUITY-SEQUENCE:" + std::to_string(playlist.discontinuities) + "\n";
    }
    const PlaylistSegment* before = nullptr;
    for (const PlaylistSegment& segment : playlist.segments) {
        if (segment.discontinuity) text += "#EXT-X-DISCONTINUITY\n";
        if (before == nullptr || before->init != segment.init) {
            text += "#EXT-X-MAP:URI=" + Quoted(playlist.prefix + InitName(segment.init) + playlist.carried) + "\n";
        }
        text += "#EXT-X-PROGRAM-DATE-TIME:" + DateText(segment.wall_ms) + "\n";
        AddParts(playlist, segment, text);
        if (segment.complete) {
            text += "#EXTINF:" + Seconds(segment.duration) + ",\n" + playlist.prefix + SegmentName(segment.number) +
                    playlist.carried + "\n";
        }
        before = &segment;
    }
    if (playlist.ended) return text + "#EXT-X-ENDLIST\n";
    const PlaylistSegment& last = playlist.segments.back();
    const std::string next = last.complete ? PartName(last.number + 1, 0) : PartName(last.number, last.parts.size());
    text += "#EXT-X-PRELOAD-HINT:TYPE=PART,URI=" + Quoted(playlist.prefix + next + playlist.carried) + "\n";
    for (const RenditionReport& report : playlist.reports) {
        text += "#EXT-X-RENDITION-REPORT:URI=" + Quoted(report.track + ".m3u8" + playlist.carried) +
                ",LAST-MSN=" + std::to_string(report.last_segment) + ",LAST-PART=" + std::to_string(report.last_part) +
                "\n";
    }
    return text;
}

std::string PrintMasterPlaylist(const MasterPlaylist& playlist) {
    std::string text = "#EXTM3U\n#EXT-X-VERSION:9\n#EXT-X-INDEPENDENT-SEGMENTS\n";
    const bool video = !playlist.video_codec.empty();
    const bool audio = !playlist.audio_codec.empty();
    if (video && audio) {
        text += "#EXT-X-MEDIA:TYPE=AUDIO,GROUP-ID=\"audio\",NAME=\"audio\",DEFAULT=YES,AUTOSELECT=YES,CHANNELS=\"" +
                std::to_string(playlist.channels) + "\",URI=" + Quoted("audio.m3u8" + playlist.carried) + "\n";
    }
    text += "#EXT-X-STREAM-INF:BANDWIDTH=" + std::to_string(playlist.bandwidth) +
            ",CODECS=" + Quoted(playlist.video_codec + (video && audio ? "," : "") + playlist.audio_codec);
    if (video) {
        text += ",RESOLUTION=" + std::to_string(playlist.width) + "x" + std::to_string(playlist.height);
        if (playlist.frame_rate > 0) {
            char rate[32];
            std::snprintf(rate, sizeof rate, ",FRAME-RATE=%.3f", playlist.frame_rate);
            text += rate;
        }
        if (audio) text += ",AUDIO=\"audio\"";
    }
    return text + "\n" + (video ? "video" : "audio") + ".m3u8" + playlist.carried + "\n";
}

}  // namespace Orvane::Muxora::Gateway
