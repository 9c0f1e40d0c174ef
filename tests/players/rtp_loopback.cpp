#include "rtp_loopback.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <thread>

#include "MuxoraAPI.h"
#include "support/clip.h"

namespace test {

namespace {

using namespace std::chrono_literals;
using Orvane::Muxora::Tools::MediaFrame;

constexpr uint16_t kSourcePort = 40000;

class UdpSocket {
  public:
    UdpSocket() : fd_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        if (fd_ < 0) throw std::runtime_error("no UDP socket");
    }
    ~UdpSocket() { close(fd_); }
    UdpSocket(const UdpSocket&) = delete;
    UdpSocket& operator=(const UdpSocket&) = delete;

    // Port 0 takes a free one. Returns the port, or 0 if it is taken.
    uint16_t Bind(uint16_t port) const {
        sockaddr_in address = Loopback(port);
        socklen_t length = sizeof address;
        auto* const any = reinterpret_cast<sockaddr*>(&address);
        if (bind(fd_, any, length) != 0 || getsockname(fd_, any, &length) != 0) return 0;
        return ntohs(address.sin_port);
    }
    void SendTo(uint16_t port, const std::vector<uint8_t>& bytes) const {
        const sockaddr_in address = Loopback(port);
        // What a receiver that has gone refuses is not the sender's concern.
        static_cast<void>(
            sendto(fd_, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&address), sizeof address));
    }

  private:
    static sockaddr_in Loopback(uint16_t port) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return address;
    }

    int fd_;
};

// Bytes that wait in the socket bound to the port; nothing if there is none. The kernel lists all sockets in
// /proc/net/udp: "sl local_address rem_address st tx_queue:rx_queue ...", in hexadecimal.
std::optional<uint64_t> WaitingBytes(uint16_t port) {
    std::ifstream list("/proc/net/udp");
    std::string line;
    std::getline(list, line);
    while (std::getline(list, line)) {
        std::string number;
        std::string local;
        std::string remote;
        std::string state;
        std::string queues;
        std::istringstream(line) >> number >> local >> remote >> state >> queues;
        if (std::stoul(local.substr(local.find(':') + 1), nullptr, 16) != port) continue;
        return std::stoull(queues.substr(queues.find(':') + 1), nullptr, 16);
    }
    return std::nullopt;
}

void Put(std::vector<uint8_t>& out, uint64_t value, int bytes) {
    for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8)
        out.push_back(static_cast<uint8_t>(value >> shift));
}

// An empty receiver report, which a compound packet begins with, and BYE (RFC 3550 6.1, 6.6).
std::vector<uint8_t> Goodbye(uint32_t ssrc) {
    std::vector<uint8_t> out;
    Put(out, 0x80C90001, 4);
    Put(out, ssrc, 4);
    Put(out, 0x81CB0001, 4);
    Put(out, ssrc, 4);
    return out;
}

uint32_t Ssrc(const Datagram& datagram) {
    const std::vector<uint8_t>& b = datagram.bytes;
    return static_cast<uint32_t>(b.at(8) << 24 | b.at(9) << 16 | b.at(10) << 8 | b.at(11));
}

struct Collector {
    std::vector<Datagram> datagrams;
    size_t frame = 0;
    bool prefixed = true;
    bool ok = true;

    static int32_t Output(const MXOutputBlock* block, void* user) {
        static_cast<Collector*>(user)->Take(static_cast<const uint8_t*>(block->data), block->length);
        return 0;
    }
    void Take(const uint8_t* bytes, uint32_t length) {
        if (prefixed) {
            ok = ok && length > 2 && static_cast<uint32_t>(bytes[0] << 8 | bytes[1]) == length - 2;
            if (!ok) return;
            bytes += 2;
            length -= 2;
        }
        datagrams.push_back({{bytes, bytes + length}, frame});
    }
};

}  // namespace

std::vector<Datagram> PackRtp(const std::vector<MediaFrame>& frames, const RtpFormat& format, const MXRtpParam& param) {
    Collector collector;
    collector.prefixed = format.prefixed;
    MXCreateParam create{};
    create.user = &collector;
    create.output = Collector::Output;
    const std::unique_ptr<void, uint32_t (*)(void*)> handle(MX_CreateHandle(MX_FORMAT_RTP, &create), MX_DestroyHandle);
    MXHeaderInfo info{};
    if (MX_SetParam(handle.get(), MX_PARAM_RTP, &param, sizeof param) != MX_OK ||
        MX_CreateHeader(handle.get(), &info) != MX_OK) {
        throw std::runtime_error("no RTP packager");
    }
    for (const MediaFrame& frame : frames) {
        MediaFrame copy = frame;
        MXFrameInfo record = copy.Record();
        if (MX_InputFrame(handle.get(), &record) != MX_OK) throw std::runtime_error("a frame was refused");
        ++collector.frame;
    }
    if (!collector.ok) throw std::runtime_error("a packet's length is wrong");
    return collector.datagrams;
}

RtpLoopback::RtpLoopback(const RtpFormat& format) {
    // RTP wants an even port, and the one above it for RTCP (RFC 3550 11).
    for (int attempt = 0; port_ == 0; ++attempt) {
        if (attempt == 100) throw std::runtime_error("no pair of ports");
        const UdpSocket first;
        const UdpSocket second;
        const uint16_t port = first.Bind(0);
        if (port % 2 == 0 && port != 0 && second.Bind(static_cast<uint16_t>(port + 1)) != 0) port_ = port;
    }
    std::ostringstream sdp;
    const std::string type = std::to_string(format.payload_type);
    sdp << "v=0\r\no=- 0 0 IN IP4 127.0.0.1\r\ns=test\r\nc=IN IP4 127.0.0.1\r\nt=0 0\r\n"
        << "m=" << format.media << ' ' << port_ << " RTP/AVP " << type << "\r\n"
        << "a=rtpmap:" << type << ' ' << format.rtpmap << "\r\n";
    if (!format.fmtp.empty()) sdp << "a=fmtp:" << type << ' ' << format.fmtp << "\r\n";
    const std::string text = sdp.str();
    sdp_path_ = WorkPath("stream" + std::to_string(port_) + ".sdp");
    WriteFile(sdp_path_, {text.begin(), text.end()});
}

void RtpLoopback::Send(const std::vector<Datagram>& datagrams, const std::function<bool()>& done) const {
    const auto deadline = std::chrono::steady_clock::now() + 30s;
    const auto late = [&] { return done() || std::chrono::steady_clock::now() > deadline; };
    while (!WaitingBytes(port_) && !late())
        std::this_thread::sleep_for(5ms);
    std::this_thread::sleep_for(50ms);

    const UdpSocket socket;
    for (size_t i = 0; i < datagrams.size(); ++i) {
        socket.SendTo(port_, datagrams[i].bytes);
        // Frame by frame, and never more than a receiver's buffer holds.
        if (i + 1 < datagrams.size() && datagrams[i + 1].frame != datagrams[i].frame) {
            std::this_thread::sleep_for(4ms);
            while (WaitingBytes(port_).value_or(0) > 32768 && !late())
                std::this_thread::sleep_for(1ms);
        }
    }
    while (WaitingBytes(port_).value_or(0) > 0 && !late())
        std::this_thread::sleep_for(5ms);
    while (!late()) {
        std::this_thread::sleep_for(200ms);
        socket.SendTo(static_cast<uint16_t>(port_ + 1), Goodbye(Ssrc(datagrams.back())));
    }
}

std::vector<uint8_t> PcapFile(const std::vector<Datagram>& datagrams, uint16_t port) {
    std::vector<uint8_t> out;
    Put(out, 0xA1B2C3D4, 4);  // big-endian, microseconds
    Put(out, 0x00020004, 4);  // version 2.4
    Put(out, 0, 8);           // time zone, accuracy
    Put(out, 65535, 4);       // snapshot length
    Put(out, 1, 4);           // Ethernet
    uint32_t number = 0;
    for (const Datagram& datagram : datagrams) {
        const auto size = static_cast<uint32_t>(datagram.bytes.size());
        ++number;
        Put(out, number / 1000, 4);         // seconds
        Put(out, number % 1000 * 1000, 4);  // microseconds
        Put(out, uint64_t{size} + 42, 4);   // captured
        Put(out, uint64_t{size} + 42, 4);   // on the wire
        Put(out, 0x020000000002, 6);        // Ethernet: to, from, IPv4
        Put(out, 0x020000000001, 6);
        Put(out, 0x0800, 2);
        Put(out, 0x45000000u | (size + 28), 4);  // IPv4: version, length; identification; TTL, UDP, no checksum
        Put(out, number << 16, 4);
        Put(out, 0x40110000, 4);
        Put(out, 0x7F000001, 4);
        Put(out, 0x7F000001, 4);
        Put(out, kSourcePort, 2);  // UDP: ports, length, no checksum
        Put(out, port, 2);
        Put(out, size + 8, 2);
        Put(out, 0, 2);
        out.insert(out.end(), datagram.bytes.begin(), datagram.bytes.end());
    }
    return out;
}

}  // namespace test
