// Who may do what: bearer tokens, and addresses that are signed and expire.
#pragma once

#include <cstdint>
#include <string>

#include "protocols/request.h"

namespace Orvane::Muxora::Gateway {

struct AccessSettings {
    std::string view_token;  // empty: everybody may watch
    std::string api_token;   // of the interface that adds and removes
    std::string sign_key;    // of signed addresses; empty: there are none
};

class Access {
  public:
    explicit Access(AccessSettings settings) : settings_(std::move(settings)) {}

    // With the view token (Authorization: Bearer, or ?token=), or with a signature of this stream that has not expired.
    // `now` in seconds since 1970.
    bool MayView(const Request& request, const std::string& stream, int64_t now) const;
    // All streams at once: the page and the list.
    bool MayList(const Request& request) const;
    // With the interface's token (Authorization: Bearer only).
    bool MayChange(const Request& request) const;

    // What an address of the stream needs behind it to be good until `expires`: "expires=...&signature=...".
    std::string Sign(const std::string& stream, int64_t expires) const;

    // May a page of this origin open a WebSocket to this host? Browsers ask no server beforehand (RFC 6455 10.2). A
    // client that names no origin is no browser. `cors` is the origin whose pages may read, "*" for all, or empty.
    static bool MayOpenSocket(const std::string& origin, const std::string& host, const std::string& cors);

    // The part of a request's query that addresses inside a playlist must carry on, beginning with '?'; or empty.
    static std::string Carried(const Request& request);

  private:
    AccessSettings settings_;
};

// Takes the same time wherever the two differ.
bool SameSecret(const std::string& a, const std::string& b);
// 32 hex digits nobody can guess.
std::string RandomToken();

}  // namespace Orvane::Muxora::Gateway
