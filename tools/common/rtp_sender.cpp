#include "common/rtp_sender.h"

#include <boost/asio/ip/udp.hpp>

#include <charconv>
#include <chrono>
#include <vector>

#include "common/errors.h"

namespace Orvane::Muxora::Tools {

namespace asio = boost::asio;

namespace {

constexpr size_t kRtpHeaderSize = 12;
constexpr int64_t kReportEveryMs = 2000;
constexpr char kName[] = "muxora";
constexpr uint8_t kSenderReport = 200;
constexpr uint8_t kDescription = 202;
constexpr uint8_t kGoodbye = 203;

void Put32(std::vector<uint8_t>& out, uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8)
        out.push_back(static_cast<uint8_t>(value >> shift & 0xFF));
}

// Time of the Network Time Protocol for a moment of the media: the same for all streams of this process.
uint64_t NtpTime(int64_t media_ms) {
    static const int64_t start_ms = std::chrono::system_clock::now().time_since_epoch() / std::chrono::milliseconds(1);
    constexpr int64_t kFrom1900To1970 = 2208988800;
    const int64_t ms = start_ms + media_ms;
    const auto seconds = static_cast<uint64_t>(ms / 1000 + kFrom1900To1970);
    return seconds << 32 | (static_cast<uint64_t>(ms % 1000) << 32) / 1000;
}

}  // namespace

RtpTarget ParseRtpTarget(const std::string& text) {
    const std::string expected = "'" + text + "' is no rtp://HOST:PORT, udp://HOST:PORT or srt://HOST:PORT";
    constexpr std::string_view kScheme = "rtp://";
    if (text.rfind(kScheme, 0) != 0) throw WrongUsage(expected);
    const std::string rest = text.substr(kScheme.size());
    const size_t colon = rest.rfind(':');
    if (colon == std::string::npos || colon == 0) throw WrongUsage(expected);
    RtpTarget target;
    target.host = rest.substr(0, colon);
    if (target.host.size() > 2 && target.host.front() == '[' && target.host.back() == ']') {
        target.host = target.host.substr(1, target.host.size() - 2);
    }
    unsigned port = 0;
    const char* end = rest.data() + rest.size();
    const auto parsed = std::from_chars(rest.data() + colon + 1, end, port);
    if (parsed.ec != std::errc() || parsed.ptr != end || port == 0) throw WrongUsage(expected);
    if (port % 2 != 0 || port > 65532) {
        throw WrongUsage("RTP goes to an even port up to 65532: video there, audio two above, reports beside them");
    }
    target.port = static_cast<uint16_t>(port);
    return target;
}

struct RtpSender::Socket {
    asio::io_context context;
    asio::ip::udp::socket socket{context};
    asio::ip::udp::endpoint rtp;
    asio::ip::udp::endpoint rtcp;
};

RtpSender::RtpSender(const RtpTarget& target, uint32_t ssrc) : socket_(std::make_unique<Socket>()), ssrc_(ssrc) {
    boost::system::error_code error;
    asio::ip::udp::resolver resolver(socket_->context);
    const auto found = resolver.resolve(target.host, std::to_string(target.port), error);
    if (error || found.empty()) throw Failure("host " + target.host + " is not known: " + error.message());
    socket_->rtp = found.begin()->endpoint();
    socket_->rtcp = asio::ip::udp::endpoint(socket_->rtp.address(), static_cast<uint16_t>(target.port + 1));
    socket_->socket.open(socket_->rtp.protocol(), error);
    if (error) throw Failure("cannot open a UDP socket: " + error.message());
    socket_->socket.set_option(asio::socket_base::send_buffer_size(1 << 20), error);
}

RtpSender::~RtpSender() {
    try {
        if (packets_ != 0) Report(media_ms_, true);
    } catch (...) {
        // Nobody is left to hear of it.
    }
}

void RtpSender::Send(const uint8_t* packet, size_t size, int64_t media_ms) {
    if (size < kRtpHeaderSize) return;
    rtp_time_ = static_cast<uint32_t>(packet[4]) << 24 | static_cast<uint32_t>(packet[5]) << 16 |
                static_cast<uint32_t>(packet[6]) << 8 | packet[7];
    media_ms_ = media_ms;
    if (packets_ == 0 || media_ms - reported_ms_ >= kReportEveryMs) {
        Report(media_ms, false);
        reported_ms_ = media_ms;
    }
    boost::system::error_code error;
    socket_->socket.send_to(asio::buffer(packet, size), socket_->rtp, 0, error);
    ++packets_;
    payload_bytes_ += size - kRtpHeaderSize;
    if (error) ++lost_;
}

void RtpSender::Report(int64_t media_ms, bool goodbye) {
    std::vector<uint8_t> out{0x80, kSenderReport, 0, 6};
    Put32(out, ssrc_);
    const uint64_t ntp = NtpTime(media_ms);
    Put32(out, static_cast<uint32_t>(ntp >> 32));
    Put32(out, static_cast<uint32_t>(ntp & 0xFFFFFFFFu));
    Put32(out, rtp_time_);
    Put32(out, static_cast<uint32_t>(packets_ & 0xFFFFFFFFu));
    Put32(out, static_cast<uint32_t>(payload_bytes_ & 0xFFFFFFFFu));
    // The canonical name ties the streams together: item 1, its length, the text, and zeros to the next word.
    out.insert(out.end(), {0x81, kDescription, 0, 4});
    Put32(out, ssrc_);
    out.push_back(1);
    out.push_back(static_cast<uint8_t>(sizeof kName - 1));
    out.insert(out.end(), kName, kName + sizeof kName - 1);
    out.insert(out.end(), 4, 0);
    if (goodbye) {
        out.insert(out.end(), {0x81, kGoodbye, 0, 1});
        Put32(out, ssrc_);
    }
    boost::system::error_code ignored;
    socket_->socket.send_to(asio::buffer(out), socket_->rtcp, 0, ignored);
}

}  // namespace Orvane::Muxora::Tools
