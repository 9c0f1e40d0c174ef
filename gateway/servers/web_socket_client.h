// A client of an endless stream over WebSocket (RFC 6455): each write is one binary message.
#pragma once

#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>
#include <memory>
#include <vector>

#include "servers/feed_client.h"

namespace Orvane::Muxora::Gateway {

class WebSocketClient final : public FeedMember {
  public:
    using Upgrade = boost::beast::http::request<boost::beast::http::string_body>;

    WebSocketClient(const SessionPlace& place, NetStream stream, ConnectionCount count,
                    std::shared_ptr<Broadcast> feed);
    ~WebSocketClient() override;

    // On the worker's thread.
    void Run(Upgrade request);

  private:
    struct Socket;

    std::shared_ptr<WebSocketClient> Self() { return std::static_pointer_cast<WebSocketClient>(shared_from_this()); }
    void Accepted();
    void Read();
    bool WriteBlocks() override;
    void SayGoodbye() override;
    NetStream& Connection() override;

    std::unique_ptr<Socket> socket_;
    boost::beast::flat_buffer incoming_;
    std::vector<boost::asio::const_buffer> buffers_;
};

}  // namespace Orvane::Muxora::Gateway
