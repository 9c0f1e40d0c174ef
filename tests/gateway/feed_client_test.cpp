#include "servers/feed_client.h"

#include <gtest/gtest.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>
#include <chrono>
#include <future>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bounds.h"
#include "hub/hub.h"
#include "servers/web_socket_client.h"

using namespace Orvane::Muxora::Gateway;
namespace asio = boost::asio;
namespace http = boost::beast::http;
using asio::ip::tcp;
using namespace std::chrono_literals;

namespace {

constexpr Form kForm{".test", MX_FORMAT_TS, 0, "video/mp2t", true};
constexpr size_t kPictureBytes = 3000000;
// Of a reader that is never idle for long, a loaded machine included.
constexpr auto kStalled = 6s;

class NoHandler final : public RequestHandler {
  public:
    void Handle(Request, Responder) override {}
};

WebSocketClient::Upgrade Upgrading() {
    WebSocketClient::Upgrade request{http::verb::get, "/cam.test", 11};
    request.set(http::field::host, "x");
    request.set(http::field::upgrade, "websocket");
    request.set(http::field::connection, "Upgrade");
    request.set(http::field::sec_websocket_version, "13");
    request.set(http::field::sec_websocket_key, "dGhlIHNhbXBsZSBub25jZQ==");
    return request;
}

// One picture that takes long to read, for readers over HTTP and over WebSocket.
class FeedClientTest : public ::testing::Test {
  protected:
    FeedClientTest()
        : workers_(2), hub_(workers_), acceptor_(own_, tcp::endpoint(asio::ip::address_v4::loopback(), 0)) {
        workers_.Start();
        stream_ = hub_.Add("cam", "test");
        broadcast_ = Broadcast::Make(workers_, stream_, kForm);
        Frame frame;
        frame.media.type = MX_FRAME_VIDEO;
        frame.media.codec = MX_VIDEO_H264;
        frame.media.sub_type = MX_SUB_I;
        std::vector<uint8_t> bytes = {0, 0, 0, 1, 0x65};
        bytes.resize(kPictureBytes, 0x5A);
        frame.media.SetBytes(bytes.data(), bytes.size());
        frame.arrival_us = WallClockUs();
        stream_->Push(std::move(frame));
    }
    ~FeedClientTest() override {
        stream_->End();
        workers_.Stop();
    }

    // The client's end of a connection that is being fed. `near` becomes another descriptor of the gateway's end, for
    // the caller to close: the first one is the worker's by then.
    tcp::socket Connect(bool web_socket, int receive_buffer = 16384, int send_buffer = 16384, int* near = nullptr) {
        tcp::socket client(own_);
        client.open(tcp::v4());
        client.set_option(tcp::socket::receive_buffer_size(receive_buffer));
        client.connect(acceptor_.local_endpoint());
        Worker& worker = workers_.At(0);
        NetStream::Socket server(worker.Context());
        acceptor_.accept(server);
        if (send_buffer != 0) server.set_option(tcp::socket::send_buffer_size(send_buffer));
        if (near != nullptr) *near = dup(server.native_handle());
        const SessionPlace place{worker, handler_, counts_, kDefaultQueueBytes, kStalled};
        asio::post(worker.Context(), [this, place, web_socket, end = std::make_shared<NetStream>(std::move(server))] {
            if (web_socket) {
                std::make_shared<WebSocketClient>(place, std::move(*end), ConnectionCount(counts_), broadcast_)
                    ->Run(Upgrading());
            } else {
                std::make_shared<FeedClient>(place, std::move(*end), ConnectionCount(counts_), broadcast_, true)
                    ->Run("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n");
            }
        });
        return client;
    }

    // Reads at that pace; gives how many bytes came up to the end of the picture or of the connection.
    static size_t ReadSlowly(tcp::socket client, size_t at_once, std::chrono::milliseconds pause) {
        std::vector<char> buffer(at_once);
        size_t total = 0;
        while (total < kPictureBytes) {
            boost::system::error_code error;
            total += client.read_some(asio::buffer(buffer), error);
            if (error) break;
            std::this_thread::sleep_for(pause);
        }
        return total;
    }

    NoHandler handler_;
    HttpCounts counts_;
    Workers workers_;
    Hub hub_;
    StreamPtr stream_;
    std::shared_ptr<Broadcast> broadcast_;
    asio::io_context own_;
    tcp::acceptor acceptor_;
};

}  // namespace

// 3 MB wait for each, and the system would take two of them.
TEST_F(FeedClientTest, OfWhatAClientDoesNotTakeTheSystemHoldsLittle) {
    for (const bool web_socket : {false, true}) {
        int near = -1;
        const tcp::socket client = Connect(web_socket, 4096, 0, &near);
        int held = 0;
        // Something comes to stand there; more would come at once.
        const auto end = std::chrono::steady_clock::now() + 60s;
        while (held < 65536 && std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(20ms);
            ASSERT_EQ(ioctl(near, SIOCOUTQ, &held), 0);
        }
        std::this_thread::sleep_for(200ms);
        ASSERT_EQ(ioctl(near, SIOCOUTQ, &held), 0);
        EXPECT_GE(held, 65536);
        EXPECT_LT(held, 400000);
        close(near);
    }
}

TEST_F(FeedClientTest, ForAClientThatReadsTheSystemHoldsWhatItLikes) {
    for (const bool web_socket : {false, true}) {
        int near = -1;
        tcp::socket client = Connect(web_socket, 65536, 0, &near);
        std::vector<char> buffer(65536);
        size_t total = 0;
        while (total < kPictureBytes)
            total += client.read_some(asio::buffer(buffer));
        const auto limit = [near] {
            int most = 0;
            socklen_t size = sizeof most;
            EXPECT_EQ(getsockopt(near, IPPROTO_TCP, TCP_NOTSENT_LOWAT, &most, &size), 0);
            return most;
        };
        const auto end = std::chrono::steady_clock::now() + 60s;
        while (limit() <= static_cast<int>(kMaxUnsentBytes) && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(20ms);
        EXPECT_EQ(limit(), std::numeric_limits<int>::max());
        close(near);
    }
}

TEST_F(FeedClientTest, WhatComesAtOnceMayBeMoreThanTheQueueHolds) {
    constexpr size_t kBlockBytes = 10000;
    tcp::socket client(own_);
    client.connect(acceptor_.local_endpoint());
    Worker& worker = workers_.At(0);
    NetStream::Socket server(worker.Context());
    acceptor_.accept(server);
    const SessionPlace place{worker, handler_, counts_, 10 * kBlockBytes, kStalled};
    const auto member =
        std::make_shared<FeedClient>(place, NetStream(std::move(server)), ConnectionCount(counts_), broadcast_, false);
    asio::post(worker.Context(), [&] { member->Run("head"); });
    std::vector<char> head(4);
    asio::read(client, asio::buffer(head));
    std::promise<void> given;
    asio::post(worker.Context(), [&] {
        std::vector<BlockPtr> blocks;
        for (int i = 0; i < 30; ++i) {
            const auto block = std::make_shared<Block>();
            block->storage.assign(kBlockBytes, static_cast<uint8_t>(i));
            block->bytes = block->storage;
            block->key = i == 0;
            blocks.push_back(block);
        }
        member->Take(blocks);
        given.set_value();
    });
    std::vector<char> all(30 * kBlockBytes);
    EXPECT_EQ(asio::read(client, asio::buffer(all)), all.size());
    given.get_future().wait();
    for (size_t i = 0; i < all.size(); ++i)
        ASSERT_EQ(all[i], static_cast<char>(i / kBlockBytes));
    EXPECT_EQ(broadcast_->Skipped(), 0U);
}

TEST_F(FeedClientTest, WhoReadsSlowlyIsServedAndWhoDoesNotReadIsClosed) {
    std::vector<std::future<size_t>> slow;
    std::vector<tcp::socket> stalled;
    for (const bool web_socket : {false, true}) {
        // 3 MB take 15 s and more: far longer than anybody may take nothing.
        slow.push_back(std::async(std::launch::async, [client = Connect(web_socket)]() mutable {
            return ReadSlowly(std::move(client), 8000, 40ms);
        }));
        stalled.push_back(Connect(web_socket));
    }
    // A little now and then is as good as nothing. Of a small buffer, so that the system hears of it at once.
    std::vector<std::future<size_t>> dripping;
    for (const bool web_socket : {false, true}) {
        dripping.push_back(std::async(std::launch::async, [client = Connect(web_socket, 4096)]() mutable {
            return ReadSlowly(std::move(client), 200, 100ms);
        }));
    }
    for (auto& total : slow)
        EXPECT_GE(total.get(), kPictureBytes);
    // Of those who do not read, the one and the other are gone.
    const auto end = std::chrono::steady_clock::now() + 60s;
    while (counts_.stalled < 4 && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(20ms);
    EXPECT_EQ(counts_.stalled, 4U);
    for (auto& total : dripping)
        EXPECT_LT(total.get(), kPictureBytes);
}
