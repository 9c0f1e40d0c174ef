// A test sender: packs frames into RTP, tells receivers about the stream in an SDP file, and sends it to them on the
// loopback interface.
#pragma once

#include <cstdint>
#include <functional>
#include <future>
#include <stdexcept>
#include <string>
#include <vector>

#include "media_input/media_input.h"

namespace test {

struct Datagram {
    std::vector<uint8_t> bytes;
    size_t frame = 0;  // the number of the frame that it came from
};

// What an SDP file says of a stream (RFC 4566).
struct RtpFormat {
    std::string media;  // video or audio
    uint32_t payload_type = 96;
    std::string rtpmap;    // "H264/90000"
    std::string fmtp;      // empty: none
    bool prefixed = true;  // the library's blocks have a length in front
};

// The frames' packets without their length, in order. Throws if a frame is refused or a length is wrong.
std::vector<Datagram> PackRtp(const std::vector<Orvane::Muxora::Tools::MediaFrame>& frames, const RtpFormat& format,
                              const MXRtpParam& param);

// A pair of free ports on the loopback interface, even and odd, and an SDP file that names them.
class RtpLoopback {
  public:
    explicit RtpLoopback(const RtpFormat& format);

    uint16_t port() const { return port_; }
    const std::string& sdp_path() const { return sdp_path_; }

    // Runs `receiver` on a thread, sends it the datagrams as soon as it listens, and says goodbye (RFC 3550 6.6) until
    // it is done.
    template <typename Receiver>
    auto Play(const std::vector<Datagram>& datagrams, Receiver receiver) const {
        auto result = std::async(std::launch::async, receiver);
        const auto done = [&] { return result.wait_for(std::chrono::seconds(0)) == std::future_status::ready; };
        Send(datagrams, done);
        return result.get();
    }

  private:
    void Send(const std::vector<Datagram>& datagrams, const std::function<bool()>& done) const;

    uint16_t port_ = 0;
    std::string sdp_path_;
};

// A capture file of the datagrams, as they would look on an Ethernet, to this port.
std::vector<uint8_t> PcapFile(const std::vector<Datagram>& datagrams, uint16_t port);

}  // namespace test
