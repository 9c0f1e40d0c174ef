// One RTSP client: its requests, and the packets that go to it over the same connection or over UDP.
#pragma once

#include <array>
#include <atomic>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ip/udp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "hub/hub.h"
#include "packaging/rtp_packager.h"
#include "packaging/shelf.h"
#include "protocols/access.h"
#include "protocols/rtsp.h"
#include "servers/block_queue.h"
#include "servers/gather.h"

namespace Orvane::Muxora::Gateway {

class RtspSession : public Guarded, public BlockReceiver, public std::enable_shared_from_this<RtspSession> {
  public:
    using Socket = boost::asio::basic_stream_socket<boost::asio::ip::tcp, boost::asio::io_context::executor_type>;

    struct Place {
        Worker& worker;
        Hub& hub;
        Shelf& shelf;
        const Access& access;
        std::atomic<size_t>& clients;
        size_t queue_bytes;
    };

    RtspSession(const Place& place, Socket socket);
    ~RtspSession() override;
    RtspSession(const RtspSession&) = delete;
    RtspSession& operator=(const RtspSession&) = delete;

    // On the worker's thread, as all below.
    void Run();

    void Take(std::span<const BlockPtr> blocks) override;
    size_t Room() const override { return queue_.MaxBytes(); }
    void End() override;

  private:
    using Udp = boost::asio::ip::udp;

    // The pictures (0) or the sound (1) of the stream.
    struct Track {
        bool set_up = false;
        RtspTransport transport;
        RtpTrack rtp;
        std::optional<Udp::socket> rtp_socket;  // UDP
        std::optional<Udp::socket> rtcp_socket;
        bool begun = false;
        uint32_t packets = 0;
        uint32_t octets = 0;
        uint32_t last_time = 0;
        int64_t last_wall_us = 0;
        std::array<char, 64> ignored{};
    };

    void Read();
    void OnRequest(const RtspRequest& request);
    void Describe(const RtspRequest& request, const StreamPtr& stream);
    void SetUp(const RtspRequest& request, const RtspAddress& address, const StreamPtr& stream);
    bool OpenPorts(Track& track);
    void Play(const RtspRequest& request);
    void Reply(unsigned status, const RtspRequest& request, const RtspFields& fields = {},
               const std::string& body = {});
    void SendText(std::string text);
    void WriteNext();
    void Offer(const BlockPtr& block);
    void SendUdp(const BlockPtr& block);
    void Gathered(const BlockPtr& block);
    void Report(Track& track, bool goodbye);
    void ReportEvery();
    void WatchReceiver(Track& track);
    Track& TrackOf(const Block& block) { return tracks_[block.video ? 0 : 1]; }
    bool AnyInterleaved() const;
    void Close();
    void Expired() override { Close(); }

    Place place_;
    Socket socket_;
    RtspReader reader_;
    std::array<char, 2048> incoming_{};
    std::optional<Worker::Watch> watch_;
    std::string session_;
    StreamPtr stream_;
    std::shared_ptr<Broadcast> feed_;
    std::array<Track, 2> tracks_;
    bool playing_ = false;
    BlockQueue queue_;
    std::deque<std::string> texts_;  // replies and reports that wait
    bool writing_ = false;
    bool ending_ = false;
    std::string text_;  // under way
    std::vector<BlockPtr> in_flight_;
    std::vector<std::array<uint8_t, 4>> heads_;  // of interleaved packets under way
    Gather gather_;
    boost::asio::steady_timer reports_;
};

}  // namespace Orvane::Muxora::Gateway
