// Sends the datagrams of an MPEG-2 transport stream: over UDP, or over SRT.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace Orvane::Muxora::Tools {

// SRT is libsrt's, as libavformat drives it: a second copy of that library in the process would be one too many.
class TsLink {
  public:
    // Is it udp:// or srt://?
    static bool Takes(const std::string& address);

    // udp://HOST:PORT or srt://HOST:PORT, with libavformat's options behind a '?', as ttl=4 or
    // mode=listener&latency=200000&passphrase=... Waits for the other side of SRT. Throws WrongUsage, and Failure when
    // nobody answers or this machine's libavformat has no SRT.
    explicit TsLink(const std::string& address);
    // SRT: what is on its way arrives first.
    ~TsLink();
    TsLink(const TsLink&) = delete;
    TsLink& operator=(const TsLink&) = delete;

    // One datagram. Throws Failure when an SRT connection is gone.
    void Send(std::span<const uint8_t> datagram);

    uint64_t Datagrams() const { return datagrams_; }
    uint64_t Lost() const { return lost_; }  // the system would not take them

  private:
    struct Writer;
    std::string address_;
    std::unique_ptr<Writer> writer_;
    uint64_t datagrams_ = 0;
    uint64_t lost_ = 0;
};

}  // namespace Orvane::Muxora::Tools
