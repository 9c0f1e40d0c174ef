#include "protocols/manifest.h"

#include <cstdio>

#include "protocols/playlist.h"

namespace Orvane::Muxora::Gateway {

namespace {

std::string Period(double seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "PT%.3fS", seconds);
    return text;
}

std::string Attribute(const char* name, const std::string& value) {
    std::string escaped;
    for (const char c : value)
        escaped += c == '&' ? "&amp;" : c == '"' ? "&quot;" : c == '<' ? "&lt;" : std::string(1, c);
    return std::string(" ") + name + "=\"" + escaped + "\"";
}

std::string Attribute(const char* name, uint64_t value) {
    return Attribute(name, std::to_string(value));
}

std::string Timeline(const ManifestTrack& track) {
    std::string text = "     <SegmentTimeline>\n";
    for (const ManifestSegment& segment : track.segments) {
        text += "      <S" + Attribute("t", std::to_string(segment.time)) +
                Attribute("d", std::to_string(segment.duration)) + "/>\n";
    }
    return text + "     </SegmentTimeline>\n";
}

std::string AdaptationSet(const ManifestTrack& track, const std::string& carried) {
    std::string text = "  <AdaptationSet" + Attribute("contentType", track.video ? "video" : "audio") +
                       Attribute("mimeType", track.video ? "video/mp4" : "audio/mp4") +
                       Attribute("segmentAlignment", "true") + Attribute("startWithSAP", 1) + ">\n";
    text += "   <Representation" + Attribute("id", track.video ? "video" : "audio") + Attribute("codecs", track.codec) +
            Attribute("bandwidth", track.bandwidth);
    if (track.video) {
        text += Attribute("width", track.width) + Attribute("height", track.height) + ">\n";
    } else {
        text += Attribute("audioSamplingRate", track.sample_rate) + ">\n";
        text += "    <AudioChannelConfiguration" +
                Attribute("schemeIdUri", "urn:mpeg:dash:23003:3:audio_channel_configuration:2011") +
                Attribute("value", track.channels) + "/>\n";
    }
    text += "    <SegmentTemplate" + Attribute("timescale", track.time_scale) +
            Attribute("initialization", track.prefix + InitName(track.init) + carried) +
            Attribute("media", track.prefix + "$Number$.m4s" + carried) + Attribute("startNumber", track.first_number) +
            ">\n";
    return text + Timeline(track) + "    </SegmentTemplate>\n   </Representation>\n  </AdaptationSet>\n";
}

}  // namespace

std::string PrintManifest(const Manifest& manifest) {
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<MPD xmlns=\"urn:mpeg:dash:schema:mpd:2011\"" +
                       Attribute("profiles", "urn:mpeg:dash:profile:isoff-live:2011") +
                       Attribute("minBufferTime", Period(manifest.target));
    if (manifest.ended) {
        text += Attribute("type", "static") + Attribute("mediaPresentationDuration", Period(manifest.depth));
    } else {
        text += Attribute("type", "dynamic") + Attribute("availabilityStartTime", DateText(manifest.start_ms)) +
                Attribute("publishTime", DateText(manifest.now_ms)) +
                Attribute("minimumUpdatePeriod", Period(manifest.target / 2)) +
                Attribute("timeShiftBufferDepth", Period(manifest.depth)) +
                Attribute("suggestedPresentationDelay", Period(manifest.target * 2));
    }
    text += ">\n <Period" + Attribute("id", "0") + Attribute("start", "PT0S") + ">\n";
    for (const ManifestTrack& track : manifest.tracks)
        text += AdaptationSet(track, manifest.carried);
    text += " </Period>\n";
    if (!manifest.ended) {
        text += " <UTCTiming" + Attribute("schemeIdUri", "urn:mpeg:dash:utc:direct:2014") +
                Attribute("value", DateText(manifest.now_ms)) + "/>\n";
    }
    return text + "</MPD>\n";
}

}  // namespace Orvane::Muxora::Gateway
