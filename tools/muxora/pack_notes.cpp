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

}  // namespace

std::vector<std::string> FormatNotes(const Format& format, const PackFacts& facts) {
    std::vector<std::string> notes;
    const std::string key(format.key);
    char text[320];
    const MediaStream* video = facts.video;
    if (video != nullptr && CountsPictures(format) && std::abs(video->exact_rate - video->frame_rate) > 0.001) {
        const double seconds = std::abs(1 - video->exact_rate / video->frame_rate) * 3600;
        std::snprintf(text, sizeof text,
                      "%.3f frames a second are written as %u: %s times pictures by whole rates, so they run %s of the "
                      "sound by %.1f s an hour",
                      video->exact_rate, video->frame_rate, key.c_str(),
                      video->exact_rate < video->frame_rate ? "ahead" : "behind", seconds);
        notes.emplace_back(text);
    }
    if (facts.has_b_pictures && !StatesPresentationTimes(format)) {
        notes.push_back("the video has B pictures, and " + key +
                        " states the time of decoding alone: players that sort pictures by the codec's own order "
                        "(ffmpeg) show them right, those that go by the file's times (browsers) do not");
    }
    // The block's time has 16 bits, and the cluster's starts again with it.
    constexpr int64_t kMatroskaEnd = 65535;
    if (format.number == MX_FORMAT_MKV && facts.media_ms > kMatroskaEnd) {
        std::snprintf(
            text, sizeof text,
            "mkv counts time in 16 bits of milliseconds: what is past 65.5 s (this is %.1f s) starts again at "
            "0, and players jump back or stop there; cut it with --segment 60s, or choose another format",
            static_cast<double>(facts.media_ms) / 1000);
        notes.emplace_back(text);
    }
    // Two headers are fixed, whatever the frames are.
    const uint32_t fixed_rate = format.number == MX_FORMAT_WAV ? 8000 : 16000;
    const MediaStream* audio = facts.audio;
    if (audio != nullptr && (format.number == MX_FORMAT_WAV || format.number == MX_FORMAT_ASF_STREAM) &&
        (audio->codec != MX_AUDIO_PCM16 || audio->samples_per_sec != fixed_rate || audio->channels != 1)) {
        notes.push_back(key + " always states 16 bit PCM, " + std::to_string(fixed_rate) +
                        " Hz, one channel: players take this sound for that");
    }
    return notes;
}

}  // namespace Orvane::Muxora::Tools
