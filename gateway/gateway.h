// The gateway as a whole: the rooms, put together.
#pragma once

#include <boost/asio/ssl/context.hpp>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "hub/hub.h"
#include "hub/workers.h"
#include "options.h"
#include "packaging/shelf.h"
#include "protocols/access.h"
#include "recording/recorder.h"
#include "relay/finder.h"
#include "relay/nats.h"
#include "relay/publisher.h"
#include "servers/api.h"
#include "servers/http_server.h"
#include "servers/metrics.h"
#include "servers/page.h"
#include "servers/router.h"
#include "servers/rtsp_server.h"
#include "servers/segment_server.h"
#include "sources/endings.h"
#include "sources/source.h"

namespace Orvane::Muxora::Gateway {

class GatewayRun final : public StreamKeeper {
  public:
    // Listens and opens all streams; throws std::runtime_error.
    explicit GatewayRun(const Options& options);
    ~GatewayRun() override;
    GatewayRun(const GatewayRun&) = delete;
    GatewayRun& operator=(const GatewayRun&) = delete;

    std::string AddStream(const std::string& name, const std::string& input, bool trusted) override;
    bool RemoveStream(const std::string& name) override;

    // All addresses, a line each.
    std::string Addresses() const;
    // One line a stream.
    std::string Signs() const;
    // Ends all streams and gives the clients a moment to hear of it. False when an input does not come back from where
    // it reads (a pipe that is silent, a name that is looked up): then this object must not be destroyed.
    bool End();

  private:
    // What works for one stream, on threads of its own.
    struct Work {
        std::unique_ptr<Source> source;
        std::shared_ptr<Recorder> recorder;
        std::shared_ptr<RelayPublisher> publisher;
    };
    Work Begin(const StreamPtr& stream, const std::string& input, bool trusted);
    // Each of them may take a moment to end: none holds up the caller.
    void EndWork(Work work);

    Options options_;
    Access access_;
    std::unique_ptr<boost::asio::ssl::context> tls_;
    Workers workers_;
    Hub hub_;
    Shelf shelf_;
    SegmentServer segments_;
    Api api_;
    Metrics metrics_;
    Page page_;
    Router router_;
    HttpServer http_;
    RtspServer rtsp_;
    Endings endings_;
    std::mutex mutex_;  // of what stands below; streams come and go one at a time
    std::map<std::string, Work> works_;
    bool ended_ = false;
    std::shared_ptr<NatsLink> publishing_;  // null: nothing is published
    std::unique_ptr<RelayFinder> finder_;
};

}  // namespace Orvane::Muxora::Gateway
