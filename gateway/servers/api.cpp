#include "servers/api.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "packaging/forms.h"

namespace Orvane::Muxora::Gateway {

namespace {

using Json = nlohmann::ordered_json;

Reply Answered(unsigned status, const Json& json) {
    Reply reply = Reply::Text(status, json.dump(1, ' ', false, Json::error_handler_t::replace) + "\n",
                              "application/json; charset=utf-8");
    reply.headers = {{"Cache-Control", "no-store"}};
    return reply;
}

Reply Refused(unsigned status, const std::string& why) {
    return Answered(status, Json{{"error", why}});
}

double Rounded(double value) {
    return std::round(value * 1000) / 1000;
}

Json Repairs(const RepairCounts& counts) {
    return {{"not_rising", counts.not_rising}, {"jumps", counts.jumps}, {"early", counts.early}};
}

Json Describe(const Stream& stream, const Shelf& shelf) {
    const StreamStatus status = stream.Status();
    Json json;
    json["name"] = status.name;
    json["input"] = status.input;
    json["state"] = status.state;
    if (!status.trouble.empty()) json["trouble"] = status.trouble;
    json["video"] = status.video;
    json["audio"] = status.audio;
    json["pictures"] = status.pictures;
    json["sounds"] = status.sounds;
    json["bytes"] = status.bytes;
    json["opened"] = status.opened;
    json["damaged"] = status.damaged;
    json["overruns"] = status.overruns;
    json["relayed"] = status.relayed;
    json["relay_lost"] = status.relay_lost;
    json["bits_per_second"] = std::llround(status.bits_per_second);
    json["pictures_per_second"] = Rounded(status.pictures_per_second);
    json["key_distance"] = Rounded(status.key_distance);
    json["media_seconds"] = Rounded(status.media_seconds);
    json["arrival_ms"] = status.last_arrival_us / 1000;
    json["repairs"] = {{"video", Repairs(status.video_repairs)}, {"audio", Repairs(status.audio_repairs)}};
    Json clients = Json::object();
    size_t count = 0;
    for (const auto& output : shelf.Of(stream)) {
        clients[ShortName(output->Shape())] = output->Clients();
        count += output->Clients();
    }
    json["viewers"] = count;
    json["clients"] = clients;
    return json;
}

}  // namespace

Reply Api::Answer(const Request& request) {
    constexpr std::string_view kList = "/api/streams";
    const std::string& path = request.path;
    if (path.compare(0, kList.size(), kList) != 0) return Refused(404, "there is nothing here");
    const bool read = request.method == "GET" || request.method == "HEAD";
    if (!(read ? access_.MayList(request) : access_.MayChange(request))) {
        Reply reply = Refused(401, "a token is needed: Authorization: Bearer TOKEN");
        reply.headers.emplace_back("WWW-Authenticate", "Bearer");
        return reply;
    }
    if (path.size() == kList.size()) {
        if (read) return List();
        return request.method == "POST" ? Add(request) : Refused(405, "GET and POST");
    }
    if (path[kList.size()] != '/') return Refused(404, "there is nothing here");
    const std::string name = path.substr(kList.size() + 1);
    if (request.method == "DELETE") {
        return keeper_.RemoveStream(name) ? Answered(200, Json{{"removed", name}}) : Refused(404, "no such stream");
    }
    if (!read) return Refused(405, "GET and DELETE");
    const StreamPtr stream = hub_.Find(name);
    return stream != nullptr ? Answered(200, Describe(*stream, shelf_)) : Refused(404, "no such stream");
}

Reply Api::List() const {
    Json list = Json::array();
    for (const StreamPtr& stream : hub_.All())
        list.push_back(Describe(*stream, shelf_));
    return Answered(200, Json{{"now_ms", WallClockUs() / 1000}, {"streams", list}});
}

Reply Api::Add(const Request& request) {
    const Json json = Json::parse(request.body, nullptr, false);
    if (!json.is_object() || !json.contains("name") || !json.contains("input") || !json["name"].is_string() ||
        !json["input"].is_string()) {
        return Refused(400, R"(a JSON object is needed: {"name": "...", "input": "..."})");
    }
    const std::string name = json["name"];
    if (!IsStreamName(name)) return Refused(400, "a name has letters, digits, '-' and '_', 64 at most");
    if (hub_.Find(name) != nullptr) return Refused(409, "there is a stream of that name");
    const std::string input = json["input"];
    if (std::any_of(input.begin(), input.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; })) {
        return Refused(400, "an input has no control characters");
    }
    const std::string why = keeper_.AddStream(name, input, false);
    if (!why.empty()) return Refused(400, why);
    return Answered(201, Json{{"added", name}});
}

}  // namespace Orvane::Muxora::Gateway
