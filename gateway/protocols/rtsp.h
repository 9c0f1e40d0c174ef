// RTSP 1.0 (RFC 2326): requests and interleaved frames out of a stream of bytes, and replies as text. No sockets.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Orvane::Muxora::Gateway {

struct RtspRequest {
    std::string method;
    std::string uri;
    std::map<std::string, std::string> fields;  // names in lower case
    std::string body;

    // Empty when there is none.
    std::string Field(const std::string& name) const;
};

// Takes bytes as they come.
class RtspReader {
  public:
    enum class Result {
        kMore,     // nothing whole is there
        kRequest,  // Request() holds one
        kFrame,    // an interleaved frame was there, and is skipped (RFC 2326 10.12)
        kBad       // this is no RTSP; nothing more can be read
    };

    void Put(std::string_view bytes) { bytes_.append(bytes); }
    Result Next();
    const RtspRequest& Request() const { return request_; }
    // Never more than a request's bounds and what one Put brought.
    size_t Held() const { return bytes_.size(); }

  private:
    Result Frame();
    bool ParseHead(std::string_view head);

    std::string bytes_;
    RtspRequest request_;
};

// "rtsp://host:port/NAME/trackID=1?token=x", or a path alone.
struct RtspAddress {
    std::string stream;
    std::optional<unsigned> track;
    std::string query;
};
std::optional<RtspAddress> ParseRtspAddress(const std::string& uri);

// What a client wants of SETUP (RFC 2326 12.39).
struct RtspTransport {
    bool interleaved = false;
    uint16_t rtp = 0;  // the client's ports, or the channels
    uint16_t rtcp = 0;
};
// The first one of those offered that is served here: unicast, UDP or interleaved.
std::optional<RtspTransport> ParseRtspTransport(const std::string& field);

using RtspFields = std::vector<std::pair<std::string, std::string>>;
std::string PrintRtspReply(unsigned status, const std::string& sequence, const RtspFields& fields = {},
                           const std::string& body = {});

// What a sender report tells (RFC 3550 6.4.1), with the description that must go with it (6.5).
struct SenderReport {
    uint32_t ssrc = 0;
    int64_t wall_us = 0;  // since 1970
    uint32_t rtp_time = 0;
    uint32_t packets = 0;
    uint32_t octets = 0;
    bool goodbye = false;
};
std::string PrintSenderReport(const SenderReport& report);

}  // namespace Orvane::Muxora::Gateway
