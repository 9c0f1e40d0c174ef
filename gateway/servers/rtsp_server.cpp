#include "servers/rtsp_server.h"

#include <boost/asio/post.hpp>
#include <chrono>
#include <stdexcept>

#include "log.h"
#include "servers/rtsp_session.h"

namespace Orvane::Muxora::Gateway {

namespace asio = boost::asio;
using asio::ip::tcp;

namespace {

// When the system has no descriptors left, accepting again at once would spin.
constexpr std::chrono::milliseconds kAcceptPause{100};

}  // namespace

RtspServer::RtspServer(const RtspSettings& settings, Hub& hub, Shelf& shelf, const Access& access)
    : settings_(settings),
      hub_(hub),
      shelf_(shelf),
      access_(access),
      acceptor_(hub.Threads().At(hub.Threads().Count() - 1).Context()),
      pause_(hub.Threads().At(hub.Threads().Count() - 1).Context()) {
    if (!settings.on) return;
    try {
        const tcp::endpoint endpoint(asio::ip::make_address(settings.address), settings.port);
        acceptor_.open(endpoint.protocol());
        acceptor_.set_option(tcp::acceptor::reuse_address(true));
        acceptor_.bind(endpoint);
        acceptor_.listen();
        port_ = acceptor_.local_endpoint().port();
    } catch (const boost::system::system_error& error) {
        throw std::runtime_error("cannot listen on " + settings.address + ":" + std::to_string(settings.port) + ": " +
                                 error.code().message());
    }
}

void RtspServer::Start() {
    if (settings_.on) asio::post(acceptor_.get_executor(), [this] { Accept(); });
}

void RtspServer::Stop() {
    asio::post(acceptor_.get_executor(), [this] {
        boost::system::error_code ignored;
        acceptor_.close(ignored);
    });
}

void RtspServer::Accept() {
    Worker& worker = hub_.Threads().At(next_worker_++ % hub_.Threads().Count());
    acceptor_.async_accept(
        worker.Context(), [this, &worker](const boost::system::error_code& error, RtspSession::Socket socket) {
            if (error == asio::error::operation_aborted || !acceptor_.is_open()) return;
            if (error) {
                LogWarning("accept failed", {{"why", error.message()}});
                pause_.expires_after(kAcceptPause);
                pause_.async_wait([this](const boost::system::error_code& stopped) {
                    if (!stopped && acceptor_.is_open()) Accept();
                });
                return;
            }
            if (clients_ < settings_.max_clients) {
                const RtspSession::Place place{worker, hub_, shelf_, access_, clients_, settings_.queue_bytes};
                auto session = std::make_shared<RtspSession>(place, std::move(socket));
                asio::post(worker.Context(), [session] { session->Run(); });
            }
            Accept();
        });
}

}  // namespace Orvane::Muxora::Gateway
