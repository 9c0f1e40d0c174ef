// A connection's bytes, plain or under TLS: one type, so that everything above is compiled once.
#pragma once

#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <utility>
#include <variant>

namespace Orvane::Muxora::Gateway {

// Bytes of a TCP connection that were acknowledged; 0 when that is not known.
uint64_t TakenBytes(int descriptor);

class NetStream {
  public:
    using Socket = boost::asio::basic_stream_socket<boost::asio::ip::tcp, boost::asio::io_context::executor_type>;
    using executor_type = Socket::executor_type;
    using Error = boost::system::error_code;
    using Done = std::function<void(const Error&, size_t)>;

    explicit NetStream(Socket socket) : stream_(std::in_place_type<Socket>, std::move(socket)) {}
    NetStream(Socket socket, boost::asio::ssl::context& tls)
        : stream_(std::in_place_type<TlsPtr>, std::make_unique<Tls>(std::move(socket), tls)) {}

    bool Encrypted() const { return std::holds_alternative<TlsPtr>(stream_); }
    Socket& Lowest() { return Encrypted() ? std::get<TlsPtr>(stream_)->next_layer() : std::get<Socket>(stream_); }
    executor_type get_executor() { return Lowest().get_executor(); }

    // TLS: the server's side of the handshake; plain: done at once.
    void Handshake(std::function<void(const Error&)> done) {
        if (Encrypted()) {
            std::get<TlsPtr>(stream_)->async_handshake(boost::asio::ssl::stream_base::server, std::move(done));
        } else {
            done({});
        }
    }

    // So much, or a little more, the system takes ahead of what the client asks for.
    void LimitUnsent(size_t bytes);

    // WriteNow may be called from here on.
    void WriteWithoutWaiting() {
        Error ignored;
        if (!Encrypted()) Lowest().non_blocking(true, ignored);
    }
    // What the system takes at once; would_block: nothing, and always so under TLS, which keeps an order of its own.
    template <typename Buffers>
    size_t WriteNow(const Buffers& buffers, Error& error) {
        error = boost::asio::error::would_block;
        return Encrypted() ? 0 : std::get<Socket>(stream_).write_some(buffers, error);
    }

    // The same without copying, out of memory that is SharedPages.
    size_t SendNow(std::span<const uint8_t> bytes, Error& error);
    // Calls back when the system has room again. Not under TLS.
    template <typename Handler>
    void WaitForRoom(Handler&& handler) {
        std::get<Socket>(stream_).async_wait(Socket::wait_write, std::forward<Handler>(handler));
    }

    // How many bytes the other side has taken so far.
    uint64_t Taken() { return TakenBytes(Lowest().native_handle()); }

    // Ends the connection at once.
    void Close() {
        Error ignored;
        Lowest().shutdown(boost::asio::ip::tcp::socket::shutdown_both, ignored);
        Lowest().close(ignored);
    }

    // What Beast and Asio ask of a stream.
    template <typename Buffers, typename Handler>
    auto async_read_some(const Buffers& buffers, Handler&& handler) {
        return boost::asio::async_initiate<Handler, void(Error, size_t)>(
            [this](auto&& inner, const auto& to) {
                if (Encrypted()) {
                    std::get<TlsPtr>(stream_)->async_read_some(to, std::forward<decltype(inner)>(inner));
                } else {
                    std::get<Socket>(stream_).async_read_some(to, std::forward<decltype(inner)>(inner));
                }
            },
            handler, buffers);
    }

    template <typename Buffers, typename Handler>
    auto async_write_some(const Buffers& buffers, Handler&& handler) {
        return boost::asio::async_initiate<Handler, void(Error, size_t)>(
            [this](auto&& inner, const auto& from) {
                if (Encrypted()) {
                    std::get<TlsPtr>(stream_)->async_write_some(from, std::forward<decltype(inner)>(inner));
                } else {
                    std::get<Socket>(stream_).async_write_some(from, std::forward<decltype(inner)>(inner));
                }
            },
            handler, buffers);
    }

  private:
    using Tls = boost::asio::ssl::stream<Socket>;
    using TlsPtr = std::unique_ptr<Tls>;

    std::variant<Socket, TlsPtr> stream_;
};

}  // namespace Orvane::Muxora::Gateway
