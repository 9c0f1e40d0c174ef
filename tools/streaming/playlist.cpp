#include "streaming/playlist.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>

namespace Orvane::Muxora::Streaming {

namespace {

std::string Seconds(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.5f", value);
    return text;
}

std::string Quoted(const std::string& text) {
    return "\"" + text + "\"";
}

// 4.2: a quoted string has no quotation mark and no line's end in it.
std::string QuotedName(std::string text) {
    for (char& c : text) {
        if (c == '"') c = '\'';
        if (static_cast<unsigned char>(c) < ' ') c = ' ';
    }
    return Quoted(text);
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
    const bool live = playlist.part_target.has_value();
    // 4.3.3.1: no segment is longer, when rounded to whole seconds.
    double longest = playlist.target;
    for (const PlaylistSegment& segment : playlist.segments)
        longest = std::max(longest, segment.duration);
    // Parts want version 9; initialisation segments of fragmented MP4 are of version 7.
    std::string text = live ? "#EXTM3U\n#EXT-X-VERSION:9\n" : "#EXTM3U\n#EXT-X-VERSION:7\n";
    text += "#EXT-X-TARGETDURATION:" + std::to_string(std::max(1LL, std::llround(std::ceil(longest - 0.5)))) + "\n";
    if (live) {
        text += "#EXT-X-SERVER-CONTROL:CAN-BLOCK-RELOAD=YES,PART-HOLD-BACK=" + Seconds(*playlist.part_target * 3) +
                "\n#EXT-X-PART-INF:PART-TARGET=" + Seconds(*playlist.part_target) + "\n";
    } else {
        text += "#EXT-X-PLAYLIST-TYPE:VOD\n";
    }
    if (playlist.independent) text += "#EXT-X-INDEPENDENT-SEGMENTS\n";
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
        if (segment.wall_ms) text += "#EXT-X-PROGRAM-DATE-TIME:" + DateText(*segment.wall_ms) + "\n";
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
    std::string text = "#EXTM3U\n#EXT-X-VERSION:" + std::to_string(playlist.version) + "\n";
    if (playlist.independent) text += "#EXT-X-INDEPENDENT-SEGMENTS\n";
    for (const AudioRendition& audio : playlist.audio) {
        text += "#EXT-X-MEDIA:TYPE=AUDIO,GROUP-ID=\"audio\",NAME=" + QuotedName(audio.name) +
                (&audio == &playlist.audio.front() ? ",DEFAULT=YES" : "") +
                ",AUTOSELECT=YES,CHANNELS=" + Quoted(std::to_string(audio.channels)) + ",URI=" + Quoted(audio.uri) +
                "\n";
    }
    for (const Variant& variant : playlist.variants) {
        text += "#EXT-X-STREAM-INF:BANDWIDTH=" + std::to_string(variant.bandwidth);
        if (variant.average != 0) text += ",AVERAGE-BANDWIDTH=" + std::to_string(variant.average);
        text += ",CODECS=" + Quoted(variant.codecs);
        if (variant.width != 0) {
            text += ",RESOLUTION=" + std::to_string(variant.width) + "x" + std::to_string(variant.height);
        }
        if (variant.frame_rate > 0) {
            char rate[32];
            std::snprintf(rate, sizeof rate, ",FRAME-RATE=%.3f", variant.frame_rate);
            text += rate;
        }
        if (!playlist.audio.empty()) text += ",AUDIO=\"audio\"";
        text += "\n" + variant.uri + "\n";
    }
    return text;
}

}  // namespace Orvane::Muxora::Streaming
