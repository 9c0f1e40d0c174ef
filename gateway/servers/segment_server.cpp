#include "servers/segment_server.h"

#include <boost/asio/post.hpp>
#include <charconv>
#include <optional>
#include <string_view>
#include <utility>

#include "protocols/access.h"
#include "streaming/manifest.h"
#include "streaming/playlist.h"

namespace Orvane::Muxora::Gateway {

namespace {

using Streaming::AdaptationSet;
using Streaming::Manifest;
using Streaming::MasterPlaylist;
using Streaming::MediaPlaylist;
using Streaming::Representation;
using Streaming::Variant;

using SegmentsPtr = std::shared_ptr<Segments>;

constexpr char kForEver[] = "public, max-age=31536000, immutable";
constexpr char kPlaylistType[] = "application/vnd.apple.mpegurl";
// A request for what lies further ahead than this is a mistake (RFC 8216bis 6.2.5.2).
constexpr uint64_t kFarAhead = 2;

template <typename Number>
bool Read(std::string_view& text, Number& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc()) return false;
    text.remove_prefix(static_cast<size_t>(end - text.data()));
    return true;
}

bool Take(std::string_view& text, std::string_view start) {
    if (text.substr(0, start.size()) != start) return false;
    text.remove_prefix(start.size());
    return true;
}

// "video-GENERATION-12.3.m4s" and its like.
struct FileName {
    bool video = false;
    std::optional<unsigned> init;
    uint64_t number = 0;
    std::optional<size_t> part;
};

std::optional<FileName> ParseName(std::string_view text, const std::string& generation) {
    FileName name;
    name.video = Take(text, "video-");
    if (!name.video && !Take(text, "audio-")) return std::nullopt;
    if (!Take(text, generation) || !Take(text, "-")) return std::nullopt;
    if (Take(text, "init")) {
        unsigned init = 0;
        if (!Read(text, init) || text != ".mp4") return std::nullopt;
        name.init = init;
        return name;
    }
    if (!Read(text, name.number) || !Take(text, ".")) return std::nullopt;
    if (size_t part = 0; text != "m4s") {
        if (!Read(text, part) || text != ".m4s") return std::nullopt;
        name.part = part;
    }
    return name;
}

Reply NotFound() {
    return Reply::Text(404, "There is nothing here, or no longer.\n");
}

Reply Busy() {
    Reply reply = Reply::Text(503, "There is no media yet.\n");
    reply.headers = {{"Retry-After", "1"}, {"Cache-Control", "no-store"}};
    return reply;
}

Reply Playlist(std::string text, std::string cache) {
    Reply reply = Reply::Text(200, std::move(text), kPlaylistType);
    reply.headers = {{"Cache-Control", std::move(cache)}};
    return reply;
}

Reply Media(std::vector<BlockPtr> blocks, bool video) {
    if (blocks.empty()) return NotFound();
    Reply reply;
    reply.content_type = video ? "video/mp4" : "audio/mp4";
    reply.headers = {{"Cache-Control", kForEver}};
    reply.blocks = std::move(blocks);
    return reply;
}

const SegmentList* ListOf(const Segments& segments, bool video) {
    return video ? segments.Video() : segments.Audio();
}

// Has every track of the stream something to list?
bool Ready(const Segments& segments) {
    const SegmentList* video = segments.Video();
    const SegmentList* audio = segments.Audio();
    if (video == nullptr && audio == nullptr) return false;
    return (video == nullptr || (!video->Empty() && !segments.About().video_codec.empty())) &&
           (audio == nullptr || (!audio->Empty() && !segments.About().audio_codec.empty()));
}

Reply Master(const Segments& segments, const std::string& carried) {
    const auto& about = segments.About();
    const bool video = !about.video_codec.empty();
    const bool audio = !about.audio_codec.empty();
    MasterPlaylist playlist;
    playlist.version = 9;
    if (video && audio) playlist.audio.push_back({"audio", "audio.m3u8" + carried, about.channels});
    Variant& variant = playlist.variants.emplace_back();
    variant.uri = (video ? "video.m3u8" : "audio.m3u8") + carried;
    variant.codecs = about.video_codec + (video && audio ? "," : "") + about.audio_codec;
    variant.width = video ? about.width : 0;
    variant.height = about.height;
    variant.frame_rate = video ? about.frame_rate : 0;
    for (const SegmentList* list : {segments.Video(), segments.Audio()})
        variant.bandwidth += list != nullptr ? std::max<uint64_t>(list->Bandwidth(), 1000) : 0;
    return Playlist(PrintMasterPlaylist(playlist), "no-cache");
}

void AddReport(MediaPlaylist& playlist, const SegmentList* list, const char* track) {
    if (list == nullptr || list->Empty()) return;
    const bool between = list->NextPart() == 0;
    const uint64_t number = list->NextNumber() - (between ? 1 : 0);
    const auto& segments = list->Segments();
    const size_t parts =
        between ? segments[segments.size() - (segments.back().complete ? 1 : 2)].parts.size() : list->NextPart();
    playlist.reports.push_back({track, number, parts - 1});
}

Reply MediaList(const Segments& segments, bool video, const std::string& carried, bool waited, double target) {
    const SegmentList* list = ListOf(segments, video);
    if (list == nullptr) return NotFound();
    if (list->Empty()) return Busy();
    MediaPlaylist playlist = list->Playlist();
    playlist.prefix = std::string(video ? "video-" : "audio-") + segments.Generation() + "-";
    playlist.carried = carried;
    AddReport(playlist, ListOf(segments, !video), video ? "audio" : "video");
    // What was waited for is the same for everybody who asks for it; the plain address changes all the time.
    const std::string cache =
        waited ? "public, max-age=" + std::to_string(static_cast<int>(target * 6)) : std::string("public, max-age=1");
    return Playlist(PrintMediaPlaylist(playlist), playlist.ended ? "no-cache" : cache);
}

Reply Dash(const Segments& segments, const std::string& carried, double target) {
    const auto& about = segments.About();
    Manifest manifest;
    manifest.carried = carried;
    manifest.start_ms = about.start_ms;
    manifest.now_ms = WallClockUs() / 1000;
    manifest.target = target;
    for (const bool video : {true, false}) {
        const SegmentList* list = ListOf(segments, video);
        if (list == nullptr) continue;
        AdaptationSet& set = manifest.sets.emplace_back();
        set.video = video;
        Representation& track = set.representations.emplace_back();
        track.id = video ? "video" : "audio";
        track.prefix = std::string(video ? "video-" : "audio-") + segments.Generation() + "-";
        track.codec = video ? about.video_codec : about.audio_codec;
        track.bandwidth = std::max<uint64_t>(list->Bandwidth(), 1000);
        track.width = about.width;
        track.height = about.height;
        track.sample_rate = about.sample_rate;
        track.channels = about.channels;
        double depth = 0;
        for (const auto& segment : list->Segments()) {
            if (!segment.complete) continue;
            // One period has one initialisation segment and one scale.
            if (!track.segments.empty() && (segment.init != track.init || segment.time_scale != track.time_scale)) {
                track.segments.clear();
                depth = 0;
            }
            if (track.segments.empty()) {
                track.first_number = segment.number;
                track.init = segment.init;
                track.time_scale = segment.time_scale;
            }
            track.segments.push_back({segment.time, segment.length});
            depth += segment.duration;
        }
        if (track.segments.empty()) return Busy();
        manifest.depth = std::max(manifest.depth, depth);
        manifest.ended = manifest.ended || list->Ended();
    }
    Reply reply = Reply::Text(200, PrintManifest(manifest), "application/dash+xml");
    reply.headers = {{"Cache-Control", "public, max-age=1"}};
    return reply;
}

// On the stream's thread.
void AnswerHere(const SegmentsPtr& segments, const SegmentSettings& settings, const std::string& file,
                const Request& request, const Responder& respond) {
    const std::string carried = Access::Carried(request);
    if (file == "index.m3u8" || file == "manifest.mpd") {
        const bool dash = file == "manifest.mpd";
        segments->Wait(
            [segments, dash] {
                if (!Ready(*segments)) return false;
                return !dash || ((segments->Video() == nullptr || segments->Video()->NextNumber() > 0) &&
                                 (segments->Audio() == nullptr || segments->Audio()->NextNumber() > 0));
            },
            [=](bool ready) {
                if (!ready) return respond(Busy());
                respond(dash ? Dash(*segments, carried, settings.segment) : Master(*segments, carried));
            });
        return;
    }
    if (file == "video.m3u8" || file == "audio.m3u8") {
        const bool video = file == "video.m3u8";
        const std::string number_text = request.Parameter("_HLS_msn");
        const std::string part_text = request.Parameter("_HLS_part");
        if (number_text.empty()) {
            if (!part_text.empty()) return respond(Reply::Text(400, "_HLS_part without _HLS_msn\n"));
            segments->Wait(
                [segments, video] {
                    const SegmentList* list = ListOf(*segments, video);
                    return list != nullptr && !list->Empty();
                },
                [=](bool) { respond(MediaList(*segments, video, carried, false, settings.segment)); });
            return;
        }
        uint64_t number = 0;
        size_t part = 0;
        std::string_view number_view = number_text;
        std::string_view part_view = part_text;
        const SegmentList* list = ListOf(*segments, video);
        if (!Read(number_view, number) || !number_view.empty() ||
            (!part_text.empty() && (!Read(part_view, part) || !part_view.empty())) ||
            (list != nullptr && number > list->NextNumber() + kFarAhead)) {
            return respond(Reply::Text(400, "_HLS_msn or _HLS_part is out of range\n"));
        }
        const std::optional<size_t> wanted = part_text.empty() ? std::nullopt : std::optional(part);
        segments->Wait(
            [=] {
                const SegmentList* now = ListOf(*segments, video);
                return now != nullptr && now->Has(number, wanted);
            },
            [=](bool ready) {
                if (!ready && !segments->Source()->Ended()) return respond(Busy());
                respond(MediaList(*segments, video, carried, true, settings.segment));
            });
        return;
    }
    const auto name = ParseName(file, segments->Generation());
    const SegmentList* list = name ? ListOf(*segments, name->video) : nullptr;
    if (list == nullptr) return respond(NotFound());
    if (name->init) return respond(Media(list->InitBlocks(*name->init), name->video));
    // The part that was hinted at, and the segment that grows, may be asked for before they are there.
    if (name->number > list->NextNumber() + 1) return respond(NotFound());
    segments->Wait(
        [=] {
            const SegmentList* now = ListOf(*segments, name->video);
            return now->Has(name->number, name->part);
        },
        [=](bool) {
            const SegmentList* now = ListOf(*segments, name->video);
            respond(Media(name->part ? now->PartBlocks(name->number, *name->part) : now->SegmentBlocks(name->number),
                          name->video));
        });
}

}  // namespace

void SegmentServer::Add(const StreamPtr& stream) {
    const auto made = Segments::Make(stream, settings_);
    if (made == nullptr) return;
    const std::lock_guard lock(mutex_);
    segments_[stream.get()] = made;
}

void SegmentServer::Drop(const Stream& stream) {
    const std::lock_guard lock(mutex_);
    segments_.erase(&stream);
}

SegmentsPtr SegmentServer::Find(const Stream& stream) const {
    const std::lock_guard lock(mutex_);
    const auto found = segments_.find(&stream);
    return found != segments_.end() ? found->second : nullptr;
}

void SegmentServer::Answer(const StreamPtr& stream, const std::string& file, const Request& request,
                           Responder respond) {
    const SegmentsPtr segments = Find(*stream);
    if (segments == nullptr) return respond(Reply::Text(501, "This build does not make segments.\n"));
    boost::asio::post(stream->Home().Context(),
                      [segments, settings = settings_, file, request, answer = std::move(respond)] {
                          AnswerHere(segments, settings, file, request, answer);
                      });
}

}  // namespace Orvane::Muxora::Gateway
