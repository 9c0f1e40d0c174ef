// Listens for RTSP clients.
#pragma once

#include <atomic>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <cstdint>
#include <string>

#include "hub/hub.h"
#include "packaging/shelf.h"
#include "protocols/access.h"

namespace Orvane::Muxora::Gateway {

struct RtspSettings {
    std::string address = "127.0.0.1";
    uint16_t port = 8554;  // 0: any that is free
    bool on = true;
    size_t max_clients = 1000;
    size_t queue_bytes = 0;
};

class RtspServer {
  public:
    // Listens; throws std::runtime_error when the address is taken. All references outlive the server.
    RtspServer(const RtspSettings& settings, Hub& hub, Shelf& shelf, const Access& access);
    RtspServer(const RtspServer&) = delete;
    RtspServer& operator=(const RtspServer&) = delete;

    void Start();
    void Stop();
    uint16_t Port() const { return port_; }
    size_t Clients() const { return clients_; }

  private:
    void Accept();

    RtspSettings settings_;
    Hub& hub_;
    Shelf& shelf_;
    const Access& access_;
    std::atomic<size_t> clients_{0};
    size_t next_worker_ = 0;
    boost::asio::ip::tcp::acceptor acceptor_;
    boost::asio::steady_timer pause_;
    uint16_t port_ = 0;
};

}  // namespace Orvane::Muxora::Gateway
