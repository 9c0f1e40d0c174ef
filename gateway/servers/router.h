// Which address means what.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "hub/hub.h"
#include "packaging/shelf.h"
#include "protocols/access.h"
#include "servers/api.h"
#include "servers/http_server.h"
#include "servers/metrics.h"
#include "servers/page.h"
#include "servers/segment_server.h"

namespace Orvane::Muxora::Gateway {

class Router final : public RequestHandler {
  public:
    struct Parts {
        Hub& hub;
        Shelf& shelf;
        SegmentServer& segments;
        const Access& access;
        Api& api;
        Metrics& metrics;
        const Page& page;
        std::string cors;  // value of Access-Control-Allow-Origin; empty: none is sent
    };

    explicit Router(Parts parts) : parts_(std::move(parts)) {}

    void Handle(Request request, Responder respond) override;

  private:
    Reply Answer(const Request& request);
    // "/NAME/FILE": false when it is none of that.
    bool AnswerSegments(const Request& request, const Responder& respond);
    Reply Feed(const Request& request, const StreamPtr& stream, const std::string& extension);
    Reply Preflight() const;

    Parts parts_;
};

}  // namespace Orvane::Muxora::Gateway
