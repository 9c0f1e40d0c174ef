// Sends RTP packets and the sender reports beside them over UDP.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace Orvane::Muxora::Tools {

struct RtpTarget {
    std::string host;
    uint16_t port = 0;
};

// "rtp://HOST:PORT", or "rtp://[IPv6]:PORT". Throws WrongUsage.
RtpTarget ParseRtpTarget(const std::string& text);

// One stream: RTP to the port, RTCP (RFC 3550 6.4) to the next one.
class RtpSender {
  public:
    // Throws Failure when the host is not known.
    RtpSender(const RtpTarget& target, uint32_t ssrc);
    // Says goodbye.
    ~RtpSender();
    RtpSender(const RtpSender&) = delete;
    RtpSender& operator=(const RtpSender&) = delete;

    // Sends one packet. `media_ms` is the time of its frame on the clock that all streams share.
    void Send(const uint8_t* packet, size_t size, int64_t media_ms);

    uint64_t Packets() const { return packets_; }
    uint64_t Lost() const { return lost_; }  // the system would not take them

  private:
    struct Socket;
    void Report(int64_t media_ms, bool goodbye);

    std::unique_ptr<Socket> socket_;
    uint32_t ssrc_;
    uint32_t rtp_time_ = 0;
    int64_t media_ms_ = 0;
    int64_t reported_ms_ = 0;
    uint64_t packets_ = 0;
    uint64_t payload_bytes_ = 0;
    uint64_t lost_ = 0;
};

}  // namespace Orvane::Muxora::Tools
