// Signs of life: Prometheus text and liveness.
#pragma once

#include <functional>

#include "hub/hub.h"
#include "packaging/shelf.h"
#include "protocols/request.h"
#include "servers/http_server.h"

namespace Orvane::Muxora::Gateway {

class Metrics {
  public:
    Metrics(Hub& hub, Shelf& shelf) : hub_(hub), shelf_(shelf) {}

    // The server's counts; before the first request.
    void SetCounts(const HttpCounts& counts) { counts_ = &counts; }

    // The text exposition format.
    Reply Text() const;
    // 200 while the gateway works, with the number of streams that are live.
    Reply Health() const;

  private:
    Hub& hub_;
    Shelf& shelf_;
    const HttpCounts* counts_ = nullptr;
};

}  // namespace Orvane::Muxora::Gateway
