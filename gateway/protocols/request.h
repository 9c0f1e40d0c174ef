// A request as the servers see it, and the answer to it: no sockets, no parser.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "hub/block.h"

namespace Orvane::Muxora::Gateway {

class Broadcast;

struct Request {
    std::string method;
    std::string path;                          // decoded, without the query
    std::map<std::string, std::string> query;  // decoded
    std::string authorization;
    std::string origin;
    std::string host;
    std::string body;
    bool web_socket = false;

    // Empty when there is none.
    std::string Parameter(const std::string& name) const;
};

// Takes a request's target apart. False when it is none: not beginning with '/', a bad escape, a byte that is no text.
bool ParseTarget(std::string_view target, Request& request);

// A text as part of an address (RFC 3986 2.1): ParseTarget gives it back.
std::string Escape(std::string_view text);

struct Reply {
    unsigned status = 200;
    std::string content_type = "text/plain; charset=utf-8";
    std::vector<std::pair<std::string, std::string>> headers;
    // One of these.
    std::string body;
    std::vector<BlockPtr> blocks;
    std::shared_ptr<Broadcast> feed;  // endless

    static Reply Text(unsigned status, std::string text, std::string type = "text/plain; charset=utf-8");
};

using Responder = std::function<void(Reply)>;

const char* ReasonPhrase(unsigned status);
// The status line and the header fields with the empty line behind. `length` is left out where it is not known.
std::string PrintHead(const Reply& reply, std::optional<size_t> length, bool chunked, bool keep_alive);

}  // namespace Orvane::Muxora::Gateway
