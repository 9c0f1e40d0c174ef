#include "streaming/manifest.h"

#include <cstdio>

#include "streaming/playlist.h"

namespace Orvane::Muxora::Streaming {

namespace {

std::string Period(double seconds) {
    char text[32];
    std::snprintf(text, sizeof text, "PT%.3fS", seconds);
    return text;
}

// XML 1.0 knows no control characters but three.
std::string Escaped(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        escaped += c == '&'                              ? "&amp;"
                   : c == '"'                            ? "&quot;"
                   : c == '<'                            ? "&lt;"
                   : static_cast<unsigned char>(c) < ' ' ? " "
                                                         : std::string(1, c);
    }
    return escaped;
}

std::string Attribute(const char* name, const std::string& value) {
    return std::string(" ") + name + "=\"" + Escaped(value) + "\"";
}

std::string Attribute(const char* name, uint64_t value) {
    return Attribute(name, std::to_string(value));
}

// Neighbours of the same length share an element.
std::string Timeline(const std::vector<ManifestSegment>& segments) {
    std::string text = "     <SegmentTimeline>\n";
    for (size_t i = 0; i < segments.size();) {
        const ManifestSegment& first = segments[i];
        size_t next = i + 1;
        while (next < segments.size() && segments[next].duration == first.duration &&
               segments[next].time == segments[next - 1].time + first.duration)
            ++next;
        text += "      <S" + Attribute("t", std::to_string(first.time)) +
                Attribute("d", std::to_string(first.duration)) + (next - i > 1 ? Attribute("r", next - i - 1) : "") +
                "/>\n";
        i = next;
    }
    return text + "     </SegmentTimeline>\n";
}

std::string RepresentationText(const Representation& one, bool video, const std::string& carried) {
    std::string text = "   <Representation" + Attribute("id", one.id) + Attribute("codecs", one.codec) +
                       Attribute("bandwidth", one.bandwidth);
    if (video) {
        text += Attribute("width", one.width) + Attribute("height", one.height) +
                (one.frame_rate.empty() ? "" : Attribute("frameRate", one.frame_rate)) + ">\n";
    } else {
        text += Attribute("audioSamplingRate", one.sample_rate) + ">\n";
        text += "    <AudioChannelConfiguration" +
                Attribute("schemeIdUri", "urn:mpeg:dash:23003:3:audio_channel_configuration:2011") +
                Attribute("value", one.channels) + "/>\n";
    }
    text += "    <SegmentTemplate" + Attribute("timescale", one.time_scale) +
            Attribute("initialization", one.prefix + InitName(one.init) + carried) +
            Attribute("media", one.prefix + "$Number$.m4s" + carried) + Attribute("startNumber", one.first_number) +
            ">\n";
    return text + Timeline(one.segments) + "    </SegmentTemplate>\n   </Representation>\n";
}

std::string AdaptationSetText(const AdaptationSet& set, const std::string& carried) {
    std::string text = "  <AdaptationSet" + Attribute("contentType", set.video ? "video" : "audio") +
                       Attribute("mimeType", set.video ? "video/mp4" : "audio/mp4") +
                       Attribute("segmentAlignment", set.aligned ? "true" : "false") +
                       Attribute("startWithSAP", static_cast<uint64_t>(set.begins_with_sap)) + ">\n";
    if (!set.label.empty()) text += "   <Label>" + Escaped(set.label) + "</Label>\n";
    for (const Representation& one : set.representations)
        text += RepresentationText(one, set.video, carried);
    return text + "  </AdaptationSet>\n";
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
    for (const AdaptationSet& set : manifest.sets)
        text += AdaptationSetText(set, manifest.carried);
    text += " </Period>\n";
    if (!manifest.ended) {
        text += " <UTCTiming" + Attribute("schemeIdUri", "urn:mpeg:dash:utc:direct:2014") +
                Attribute("value", DateText(manifest.now_ms)) + "/>\n";
    }
    return text + "</MPD>\n";
}

}  // namespace Orvane::Muxora::Streaming
