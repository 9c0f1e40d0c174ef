#include "servers/web_socket_client.h"

#include <boost/asio/post.hpp>
#include <boost/beast/core/bind_handler.hpp>
#include <boost/beast/core/role.hpp>
#include <boost/beast/websocket/stream.hpp>
#include <utility>

#include "bounds.h"

namespace Orvane::Muxora::Gateway {

namespace beast = boost::beast;
namespace websocket = beast::websocket;

// What Beast looks for beside a stream of ours: how it is torn down.
void beast_close_socket(NetStream& stream) {
    stream.Close();
}

void teardown(beast::role_type, NetStream& stream, boost::system::error_code& error) {
    stream.Close();
    error = {};
}

template <typename Handler>
void async_teardown(beast::role_type, NetStream& stream, Handler&& handler) {
    stream.Close();
    boost::asio::post(stream.get_executor(),
                      beast::bind_front_handler(std::forward<Handler>(handler), boost::system::error_code{}));
}

struct WebSocketClient::Socket {
    explicit Socket(NetStream stream) : ws(std::move(stream)) {}
    websocket::stream<NetStream, false> ws;
    Upgrade request;
};

WebSocketClient::WebSocketClient(const SessionPlace& place, NetStream stream, ConnectionCount count,
                                 std::shared_ptr<Broadcast> feed)
    : FeedMember(place, std::move(count), std::move(feed)),
      socket_(std::make_unique<Socket>(std::move(stream))),
      incoming_(kMaxWebSocketMessage) {
}

WebSocketClient::~WebSocketClient() = default;

void WebSocketClient::Run(Upgrade request) {
    auto& ws = socket_->ws;
    socket_->request = std::move(request);
    ws.read_message_max(kMaxWebSocketMessage);
    ws.auto_fragment(false);
    ws.binary(true);
    ws.set_option(websocket::stream_base::decorator(
        [](websocket::response_type& response) { response.set(beast::http::field::server, "muxora"); }));
    // The receiver is let in at once: what it is offered waits until the handshake is done.
    Enter();
    if (!Inside()) return;
    ws.async_accept(socket_->request, [self = Self()](const boost::system::error_code& error) {
        if (!self->Inside()) return;
        if (error) return self->Leave();
        self->Accepted();
    });
}

void WebSocketClient::Accepted() {
    socket_->request = {};
    Read();
    Written();
}

void WebSocketClient::Read() {
    socket_->ws.async_read(incoming_, [self = Self()](const boost::system::error_code& error, size_t) {
        if (!self->Inside()) return;
        if (error) return self->Leave();
        self->incoming_.clear();
        self->Read();
    });
}

bool WebSocketClient::WriteBlocks() {
    buffers_.clear();
    for (const BlockPtr& block : in_flight_)
        buffers_.emplace_back(block->bytes.data(), block->bytes.size());
    const BufferView all{buffers_.data(), buffers_.data() + buffers_.size()};
    socket_->ws.async_write(all, [self = Self()](const boost::system::error_code& error, size_t) {
        if (!self->Inside()) return;
        if (error) return self->Leave();
        self->Written();
    });
    return false;
}

void WebSocketClient::SayGoodbye() {
    socket_->ws.async_close(websocket::close_code::going_away, [self = Self()](const boost::system::error_code&) {
        if (self->Inside()) self->Leave();
    });
}

NetStream& WebSocketClient::Connection() {
    return socket_->ws.next_layer();
}

}  // namespace Orvane::Muxora::Gateway
