#include "servers/http_session.h"

#include <boost/asio/dispatch.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/websocket/rfc6455.hpp>
#include <utility>

#include "servers/feed_client.h"
#include "servers/web_socket_client.h"

namespace Orvane::Muxora::Gateway {

namespace asio = boost::asio;
namespace http = boost::beast::http;

HttpSession::HttpSession(const SessionPlace& place, NetStream stream)
    : place_(place), stream_(std::move(stream)), count_(place.counts), buffer_(kMaxHeaderBytes + kMaxBodyBytes) {
}

void HttpSession::Run() {
    watch_ = place_.worker.Look(*this);
    Expect(kHandshakeTakes);
    stream_.Handshake([self = shared_from_this()](const boost::system::error_code& error) {
        if (error) {
            self->Close();
        } else {
            self->Read();
        }
    });
}

void HttpSession::Expired() {
    ++place_.counts.timed_out;
    Close();
}

void HttpSession::Close() {
    if (watch_) place_.worker.Forget(*watch_);
    watch_.reset();
    stream_.Close();
}

void HttpSession::Read() {
    parser_.emplace();
    parser_->header_limit(kMaxHeaderBytes);
    parser_->body_limit(kMaxBodyBytes);
    Expect(kRequestTakes);
    http::async_read(
        stream_, buffer_, *parser_,
        [self = shared_from_this()](const boost::system::error_code& error, size_t) { self->OnRead(error); });
}

void HttpSession::OnRead(const boost::system::error_code& error) {
    if (!watch_) return;
    if (!error) {
        OnRequest();
        return;
    }
    keep_alive_ = false;
    if (error == http::error::header_limit || error == http::error::buffer_overflow) {
        Refuse(431);
    } else if (error == http::error::body_limit) {
        Refuse(413);
    } else if (error == http::error::end_of_stream ||
               error.category() != http::make_error_code(http::error::bad_target).category()) {
        Close();  // the client, or the network
    } else {
        Refuse(400);
    }
}

void HttpSession::Refuse(unsigned status) {
    ++place_.counts.bad_requests;
    keep_alive_ = false;
    Answer(Reply::Text(status, std::string(ReasonPhrase(status)) + "\n"));
}

void HttpSession::OnRequest() {
    ++place_.counts.requests;
    const auto& message = parser_->get();
    keep_alive_ = message.keep_alive();
    head_only_ = message.method() == http::verb::head;
    Request request;
    const std::string_view target(message.target().data(), message.target().size());
    if (target.size() > kMaxTargetBytes) return Refuse(414);
    // RFC 9112 3.2.
    if (message.version() >= 11 && message.count(http::field::host) != 1) return Refuse(400);
    if (!ParseTarget(target, request)) return Refuse(400);
    const auto field = [&message](http::field name) { return std::string(message[name]); };
    request.method = std::string(message.method_string());
    request.authorization = field(http::field::authorization);
    request.origin = field(http::field::origin);
    request.host = field(http::field::host);
    request.body = message.body();
    request.web_socket = web_socket_ = boost::beast::websocket::is_upgrade(message);
    Expect(kAnswerComes);
    place_.handler.Handle(std::move(request), [self = shared_from_this()](Reply reply) {
        asio::dispatch(self->place_.worker.Context(),
                       [self, answer = std::move(reply)]() mutable { self->Answer(std::move(answer)); });
    });
}

void HttpSession::Answer(Reply reply) {
    if (!watch_) return;
    const bool endless = reply.feed != nullptr;
    if (endless && !head_only_) {
        BecomeFeed(reply);
        return;
    }
    reply_ = std::move(reply);
    if (endless) {
        // RFC 9110 9.3.2: the fields that GET would have; an endless answer has no length.
        head_ = PrintHead(reply_, std::nullopt, HasChunks(), keep_alive_);
    } else {
        size_t length = reply_.body.size();
        for (const BlockPtr& block : reply_.blocks)
            length += block->bytes.size();
        head_ = PrintHead(reply_, length, false, keep_alive_);
    }
    gather_.Clear();
    gather_.Add(head_.data(), head_.size());
    if (!head_only_) {
        gather_.Add(reply_.body.data(), reply_.body.size());
        for (const BlockPtr& block : reply_.blocks)
            gather_.Add(block->bytes.data(), block->bytes.size());
    }
    Expect(kAnswerTakes);
    Write();
}

// HTTP/1.0 knows no chunks: there the end of the connection ends a feed.
bool HttpSession::HasChunks() const {
    return parser_->get().version() >= 11;
}

void HttpSession::BecomeFeed(const Reply& reply) {
    place_.worker.Forget(*watch_);
    watch_.reset();
    if (web_socket_) {
        std::make_shared<WebSocketClient>(place_, std::move(stream_), std::move(count_), reply.feed)
            ->Run(parser_->release());
    } else {
        const bool chunked = HasChunks();
        std::make_shared<FeedClient>(place_, std::move(stream_), std::move(count_), reply.feed, chunked)
            ->Run(PrintHead(reply, std::nullopt, chunked, false));
    }
}

void HttpSession::Write() {
    stream_.async_write_some(gather_.Rest(),
                             [self = shared_from_this()](const boost::system::error_code& error, size_t written) {
                                 if (!self->watch_) return;
                                 if (error) return self->Close();
                                 self->gather_.Advance(written);
                                 if (self->gather_.Done()) {
                                     self->OnWritten();
                                 } else {
                                     self->Write();
                                 }
                             });
}

void HttpSession::OnWritten() {
    reply_ = Reply{};
    if (keep_alive_) {
        Read();
    } else {
        Close();
    }
}

}  // namespace Orvane::Muxora::Gateway
