#include "servers/router.h"

#include <chrono>

namespace Orvane::Muxora::Gateway {

namespace {

int64_t Now() {
    return WallClockUs() / 1000000;
}

Reply NotFound() {
    return Reply::Text(404, "There is nothing here.\n");
}

Reply Unauthorized() {
    Reply reply = Reply::Text(401, "A token or a signed address is needed.\n");
    reply.headers.emplace_back("WWW-Authenticate", "Bearer");
    return reply;
}

bool IsRead(const Request& request) {
    return request.method == "GET" || request.method == "HEAD";
}

}  // namespace

void Router::Handle(Request request, Responder respond) {
    if (!parts_.cors.empty()) {
        respond = [cors = parts_.cors, inner = std::move(respond)](Reply reply) {
            reply.headers.emplace_back("Access-Control-Allow-Origin", cors);
            if (cors != "*") reply.headers.emplace_back("Vary", "Origin");
            inner(std::move(reply));
        };
        if (request.method == "OPTIONS") return respond(Preflight());
    }
    if (request.web_socket && !Access::MayOpenSocket(request.origin, request.host, parts_.cors)) {
        return respond(Reply::Text(403, "Pages of another origin may not open this.\n"));
    }
    if (!AnswerSegments(request, respond)) respond(Answer(request));
}

bool Router::AnswerSegments(const Request& request, const Responder& respond) {
    const size_t slash = request.path.find('/', 1);
    if (slash == std::string::npos || !IsRead(request)) return false;
    const std::string name = request.path.substr(1, slash - 1);
    const StreamPtr stream = parts_.hub.Find(name);
    if (stream == nullptr) return false;
    if (!parts_.access.MayView(request, name, Now())) {
        respond(Unauthorized());
    } else {
        parts_.segments.Answer(stream, request.path.substr(slash + 1), request, respond);
    }
    return true;
}

Reply Router::Preflight() const {
    Reply reply;
    reply.status = 204;
    reply.headers = {{"Access-Control-Allow-Methods", "GET, HEAD, OPTIONS"},
                     {"Access-Control-Allow-Headers", "Authorization, Range"},
                     {"Access-Control-Max-Age", "3600"}};
    return reply;
}

Reply Router::Answer(const Request& request) {
    const std::string& path = request.path;
    if (path == "/health") return parts_.metrics.Health();
    if (path == "/metrics") return parts_.access.MayList(request) ? parts_.metrics.Text() : Unauthorized();
    if (path.rfind("/api/", 0) == 0) return parts_.api.Answer(request);
    if (!IsRead(request)) return Reply::Text(405, "Only GET and HEAD.\n");
    if (const auto file = parts_.page.Find(path)) return *file;
    // "/NAME.flv"
    const size_t dot = path.rfind('.');
    if (path.find('/', 1) == std::string::npos && dot != std::string::npos) {
        const StreamPtr stream = parts_.hub.Find(path.substr(1, dot - 1));
        const Form* form = FormByExtension(path.substr(dot));
        if (form == nullptr) return NotFound();
        if (!parts_.access.MayView(request, path.substr(1, dot - 1), Now())) return Unauthorized();
        return stream != nullptr ? Feed(request, stream, path.substr(dot)) : NotFound();
    }
    return NotFound();
}

Reply Router::Feed(const Request& request, const StreamPtr& stream, const std::string& extension) {
    const Form& form = *FormByExtension(extension);
    if (request.web_socket && !form.web_socket) return NotFound();
    Reply reply;
    reply.feed = parts_.shelf.Get(stream, form);
    if (reply.feed == nullptr) return Reply::Text(501, "This build does not make this form.\n");
    reply.content_type = form.content_type;
    reply.headers = {{"Cache-Control", "no-store"}};
    return reply;
}

}  // namespace Orvane::Muxora::Gateway
