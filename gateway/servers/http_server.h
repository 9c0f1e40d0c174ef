// Listens for HTTP and WebSocket clients and hands each request to one handler.
#pragma once

#include <atomic>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <cstdint>
#include <memory>
#include <string>

#include "bounds.h"
#include "hub/workers.h"
#include "protocols/request.h"

namespace Orvane::Muxora::Gateway {

// Answers requests; called on any worker's thread. The answer may be given later, on any thread, once.
class RequestHandler {
  public:
    virtual ~RequestHandler() = default;
    virtual void Handle(Request request, Responder respond) = 0;
};

struct HttpSettings {
    std::string address = "127.0.0.1";
    uint16_t port = 8080;  // 0: any that is free
    size_t max_clients = kDefaultMaxClients;
    size_t queue_bytes = kDefaultQueueBytes;
};

// Counts of the whole server.
struct HttpCounts {
    std::atomic<size_t> connections{0};
    std::atomic<uint64_t> accepted{0};
    std::atomic<uint64_t> turned_away{0};
    std::atomic<uint64_t> requests{0};
    std::atomic<uint64_t> bad_requests{0};
    std::atomic<uint64_t> timed_out{0};
    std::atomic<uint64_t> stalled{0};
};

class HttpServer {
  public:
    // Listens; throws std::runtime_error when the address is taken. `tls` may be null. All references outlive the
    // server.
    HttpServer(Workers& workers, const HttpSettings& settings, boost::asio::ssl::context* tls, RequestHandler& handler);
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    void Start();
    // No new clients.
    void Stop();
    uint16_t Port() const { return port_; }
    const HttpCounts& Counts() const { return counts_; }

  private:
    void Accept();

    Workers& workers_;
    HttpSettings settings_;
    boost::asio::ssl::context* tls_;
    RequestHandler& handler_;
    HttpCounts counts_;
    size_t next_worker_ = 0;
    boost::asio::ip::tcp::acceptor acceptor_;
    boost::asio::steady_timer pause_;
    uint16_t port_ = 0;
};

}  // namespace Orvane::Muxora::Gateway
