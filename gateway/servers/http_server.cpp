#include "servers/http_server.h"

#include <boost/asio/post.hpp>
#include <stdexcept>

#include "log.h"
#include "servers/http_session.h"

namespace Orvane::Muxora::Gateway {

namespace asio = boost::asio;
using asio::ip::tcp;

namespace {

// When the system has no descriptors left, accepting again at once would spin.
constexpr std::chrono::milliseconds kAcceptPause{100};

}  // namespace

HttpServer::HttpServer(Workers& workers, const HttpSettings& settings, asio::ssl::context* tls, RequestHandler& handler)
    : workers_(workers),
      settings_(settings),
      tls_(tls),
      handler_(handler),
      acceptor_(workers.At(0).Context()),
      pause_(workers.At(0).Context()) {
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

void HttpServer::Start() {
    asio::post(acceptor_.get_executor(), [this] { Accept(); });
}

void HttpServer::Stop() {
    asio::post(acceptor_.get_executor(), [this] {
        boost::system::error_code ignored;
        acceptor_.close(ignored);
    });
}

void HttpServer::Accept() {
    Worker& worker = workers_.At(next_worker_++ % workers_.Count());
    acceptor_.async_accept(worker.Context(), [this, &worker](const boost::system::error_code& error,
                                                             NetStream::Socket socket) {
        if (error) {
            if (error == asio::error::operation_aborted || !acceptor_.is_open()) return;
            LogWarning("accept failed", {{"why", error.message()}});
            pause_.expires_after(kAcceptPause);
            pause_.async_wait([this](const boost::system::error_code& stopped) {
                if (!stopped) Accept();
            });
            return;
        }
        ++counts_.accepted;
        if (counts_.connections >= settings_.max_clients) {
            ++counts_.turned_away;
            static constexpr char kFull[] =
                "HTTP/1.1 503 Service Unavailable\r\nContent-Length: 0\r\nRetry-After: 5\r\nConnection: close\r\n\r\n";
            boost::system::error_code ignored;
            if (tls_ == nullptr) {
                socket.non_blocking(true, ignored);
                socket.write_some(asio::buffer(kFull, sizeof kFull - 1), ignored);
            }
        } else {
            boost::system::error_code ignored;
            socket.set_option(tcp::no_delay(true), ignored);
            NetStream stream = tls_ != nullptr ? NetStream(std::move(socket), *tls_) : NetStream(std::move(socket));
            const SessionPlace place{worker, handler_, counts_, settings_.queue_bytes};
            auto session = std::make_shared<HttpSession>(place, std::move(stream));
            asio::post(worker.Context(), [session] { session->Run(); });
        }
        Accept();
    });
}

}  // namespace Orvane::Muxora::Gateway
