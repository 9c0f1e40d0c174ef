#include "muxora/pack_notes.h"

#include <cmath>
#include <cstdio>

#include "MuxoraExt.h"

namespace Orvane::Muxora::Tools {

namespace {

// Formats that count pictures by a whole frame rate; the others have the frames' own times.
bool CountsPictures(const Format& format) {
    switch (format.number) {
        case MX_FORMAT_OVX:
        case MX_FORMAT_OVX_ALT:
        case MX_FORMAT_RTP:
        case MX_FORMAT_TS:
        case MX_FORMAT_PS:
        case MX_FORMAT_PS_OV:
        case MX_FORMAT_PS_GAYS:
        case MX_FORMAT_FMP4:
        case MX_FORMAT_HMP4:
        case MX_FORMAT_XMKV:
        case MX_FORMAT_XFLV:
        case MX_FORMAT_XTS:
            return false;
        default:
            return true;
    }
}

bool StatesPresentationTimes(const Format& format) {
    return format.IsExact() || format.number == MX_FORMAT_OVX || format.number == MX_FORMAT_OVX_ALT ||
           format.number == MX_FORMAT_RTP;
}

// Formats that add up the lengths of AAC frames in whole milliseconds.
bool AddsUpMilliseconds(const Format& format) {
    return format.number == MX_FORMAT_FLV || format.number == MX_FORMAT_FLV_STREAM || format.number == MX_FORMAT_ASF;
}

template <typename... Values>
std::string Text(const char* form, Values... values) {
    char text[320];
    std::snprintf(text, sizeof text, form, values...);
    return text;
}

// What becomes of the input's times.
std::vector<std::string> LostTimes(const Format& format, const PackFacts& facts) {
    std::vector<std::string> lost;
    const MediaStream* video = facts.video;
    const MediaStream* audio = facts.audio;
    const bool counts = video != nullptr && CountsPictures(format);
    if (counts && std::abs(video->exact_rate - video->frame_rate) > 0.001) {
        const double seconds = std::abs(1 - video->exact_rate / video->frame_rate) * 3600;
        lost.push_back(Text("%.3f frames a second are written as %u, so pictures run %s of the sound by %.1f s an hour",
                            video->exact_rate, video->frame_rate,
                            video->exact_rate < video->frame_rate ? "ahead" : "behind", seconds));
    } else if (counts && facts.uneven_seconds > 0.1) {
        lost.push_back(Text("pictures that come at a varying rate are written as %u a second, up to %.1f s off",
                            video->frame_rate, facts.uneven_seconds));
    }
    if (facts.has_b_pictures && !StatesPresentationTimes(format)) {
        lost.emplace_back(
            "the video has B pictures, and only the time of decoding is stated: players that sort pictures by the "
            "codec's own order (ffmpeg) show them right, those that go by the file's times (browsers) do not");
    }
    if (audio != nullptr && audio->codec == MX_AUDIO_AAC && AddsUpMilliseconds(format) && audio->samples_per_sec != 0) {
        const double frame_ms = 1024000.0 / audio->samples_per_sec;
        const double seconds = (1 - std::floor(frame_ms) / frame_ms) * 3600;
        if (seconds > 0.05) {
            lost.push_back(Text("AAC frames of %.3f ms are counted as %.0f, so sound runs ahead by %.1f s an hour",
                                frame_ms, std::floor(frame_ms), seconds));
        }
    }
    // The block's time has 16 bits, and the cluster's starts again with it.
    constexpr int64_t kMatroskaEnd = 65535;
    if (format.number == MX_FORMAT_MKV && facts.media_ms > kMatroskaEnd) {
        lost.push_back(
            Text("time has 16 bits of milliseconds: what is past 65.5 s (this is %.1f s) starts again at 0, and "
                 "players jump back or stop there, unless it is cut with --segment 60s",
                 static_cast<double>(facts.media_ms) / 1000));
    }
    return lost;
}

}  // namespace

std::vector<std::string> FormatNotes(const Format& format, const PackFacts& facts) {
    std::vector<std::string> notes;
    const std::string key(format.key);
    std::string lost;
    for (const std::string& one : LostTimes(format, facts))
        lost += (lost.empty() ? "" : "; ") + one;
    if (!lost.empty()) {
        notes.push_back("what " + key + " loses of this input: " + lost + " (-f " + std::string(format.ExactKin()) +
                        " keeps every time)");
    }
    const MediaStream* video = facts.video;
    if (video != nullptr && video->rotation != 0 && !format.StatesRotation(video->rotation)) {
        notes.push_back("the pictures are to be shown turned by " + std::to_string(video->rotation) +
                        " degrees, which " + key + " does not state");
    }
    return notes;
}

std::vector<std::string> PlayerNotes(const Format& format, const PackFacts& facts) {
    const std::string key(format.key);
    const uint32_t picture = facts.video != nullptr ? facts.video->codec : 0;
    const uint32_t sound = facts.audio != nullptr ? facts.audio->codec : 0;
    const bool telephone = sound == MX_AUDIO_ALAW || sound == MX_AUDIO_MULAW;
    std::vector<std::string> notes;
    if (format.number == MX_FORMAT_TS && telephone) {
        notes.push_back("G.711 has no public number in " + key +
                        ": the players of recorders know it, ffmpeg finds no sound there");
    }
    if ((format.number == MX_FORMAT_PS_GAYS || format.number == MX_FORMAT_PS_GD) && telephone) {
        notes.push_back("G.711 has no public number in " + key +
                        ": the players of that dialect know it, ffmpeg takes it for MPEG audio");
    }
    if (format.number == MX_FORMAT_PS_GD && picture == MX_VIDEO_MPEG4) {
        notes.push_back("MPEG-4 has no public number in " + key +
                        ": the players of that dialect know it, ffmpeg takes it for H.264");
    }
    if (format.number == MX_FORMAT_PS_OV && picture == MX_VIDEO_MJPEG) {
        notes.push_back("Motion JPEG has no public number in " + key +
                        ": the players of that dialect know it, ffmpeg finds no pictures there");
    }
    return notes;
}

}  // namespace Orvane::Muxora::Tools
