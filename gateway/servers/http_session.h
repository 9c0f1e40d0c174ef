// One connection of an HTTP client: requests, one after the other, until it becomes a feed or ends.
#pragma once

#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "servers/gather.h"
#include "servers/http_server.h"
#include "servers/net_stream.h"

namespace Orvane::Muxora::Gateway {

// Where a connection lives.
struct SessionPlace {
    Worker& worker;
    RequestHandler& handler;
    HttpCounts& counts;
    size_t queue_bytes;
    Guarded::Clock::duration stalled_for = kStalledFor;
};

// Counts a connection from its first to its last moment, whatever it turns into.
class ConnectionCount {
  public:
    explicit ConnectionCount(HttpCounts& counts) : counts_(&counts) { ++counts.connections; }
    ConnectionCount(ConnectionCount&& other) noexcept : counts_(std::exchange(other.counts_, nullptr)) {}
    ConnectionCount& operator=(ConnectionCount&&) = delete;
    ~ConnectionCount() {
        if (counts_ != nullptr) --counts_->connections;
    }

  private:
    HttpCounts* counts_;
};

class HttpSession final : public Guarded, public std::enable_shared_from_this<HttpSession> {
  public:
    HttpSession(const SessionPlace& place, NetStream stream);

    // On the worker's thread.
    void Run();

  private:
    using Parser = boost::beast::http::request_parser<boost::beast::http::string_body>;

    void Read();
    void OnRead(const boost::system::error_code& error);
    void OnRequest();
    void Answer(Reply reply);
    bool HasChunks() const;
    void BecomeFeed(const Reply& reply);
    void Write();
    void OnWritten();
    void Refuse(unsigned status);
    void Close();
    void Expired() override;

    SessionPlace place_;
    NetStream stream_;
    ConnectionCount count_;
    std::optional<Worker::Watch> watch_;
    boost::beast::flat_buffer buffer_;
    std::optional<Parser> parser_;
    bool keep_alive_ = true;
    bool head_only_ = false;
    bool web_socket_ = false;
    Reply reply_;
    std::string head_;
    Gather gather_;
};

}  // namespace Orvane::Muxora::Gateway
