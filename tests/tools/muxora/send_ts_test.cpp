// muxora send as transport stream: the datagrams and their moments, and ffmpeg as receiver on the loopback interface.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <sstream>

#include "common/ts_schedule.h"
#include "tool.h"

namespace {

using Orvane::Muxora::Tools::TsSchedule;
using test::ClipSpec;
using test::Contains;
using test::Muxora;

struct Sent {
    size_t size;
    int64_t due_us;
    uint8_t first;  // the counter of the first packet in it
    bool operator==(const Sent&) const = default;
};

// A packet of PID 256 with a number in its payload, and with a PCR of so many milliseconds unless that is below 0.
std::vector<uint8_t> Packet(uint8_t number, double pcr_ms = -1, uint8_t pid = 0) {
    std::vector<uint8_t> packet(TsSchedule::kPacket, 0xFF);
    packet[0] = 0x47;
    packet[1] = 1;
    packet[2] = pid;
    packet[3] = pcr_ms < 0 ? 0x10 : 0x30;
    if (pcr_ms >= 0) {
        const auto ticks = static_cast<uint64_t>(pcr_ms * 27000);
        const uint64_t base = ticks / 300;
        const auto rest = static_cast<uint16_t>(ticks % 300);
        packet[4] = 7;
        packet[5] = 0x10;
        for (int i = 0; i < 4; ++i)
            packet[static_cast<size_t>(6 + i)] = static_cast<uint8_t>(base >> (25 - 8 * i) & 0xFF);
        packet[10] = static_cast<uint8_t>((base & 1) << 7 | 0x7E | rest >> 8);
        packet[11] = static_cast<uint8_t>(rest & 0xFF);
    }
    packet[12] = number;
    return packet;
}

class Schedule : public testing::Test {
  protected:
    std::vector<Sent> sent;
    TsSchedule schedule{[this](std::span<const uint8_t> datagram, int64_t due_us) {
        sent.push_back({datagram.size(), due_us, datagram[12]});
    }};
};

TEST_F(Schedule, PacketsBetweenTwoClocksComeEvenly) {
    for (uint8_t i = 0; i < 14; ++i)
        schedule.Put(Packet(i, i == 0 ? 500 : -1));
    EXPECT_TRUE(sent.empty()) << "when they end is not known yet";
    schedule.Put(Packet(14, 514));
    EXPECT_EQ(sent, (std::vector<Sent>{{1316, 0, 0}, {1316, 7000, 7}}));
    schedule.Put(Packet(15));
    schedule.End();
    // The rest goes on at the pace of those before.
    EXPECT_EQ(sent.back(), (Sent{376, 14000, 14}));
}

TEST_F(Schedule, TheClockOfAnotherProgramDoesNotCount) {
    schedule.Put(Packet(0, 100));
    schedule.Put(Packet(1, 90000, 7));
    for (uint8_t i = 2; i < 7; ++i)
        schedule.Put(Packet(i));
    schedule.Put(Packet(7, 107));
    for (uint8_t i = 8; i < 14; ++i)
        schedule.Put(Packet(i));
    schedule.Put(Packet(14, 114));
    EXPECT_EQ(sent, (std::vector<Sent>{{1316, 0, 0}, {1316, 7000, 7}}));
}

TEST_F(Schedule, TheClockStartsAgainAndAJumpIsNoPause) {
    const double range_ms = 8589934592.0 / 90;
    uint8_t number = 0;
    for (const double pcr : {range_ms - 10, 4.0, 18.0, 90000.0, 90014.0}) {
        schedule.Put(Packet(number++, pcr));
        for (int i = 0; i < 6; ++i)
            schedule.Put(Packet(number++));
    }
    schedule.End();
    std::vector<int64_t> moments;
    for (const Sent& one : sent)
        moments.push_back(one.due_us);
    EXPECT_EQ(moments, (std::vector<int64_t>{0, 14000, 28000, 28000, 42000}));
}

// Datagrams on a port of the system's choice.
class Receiver {
  public:
    Receiver() : socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const int room = 4 << 20;
        setsockopt(socket_, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
        bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address);
        socklen_t size = sizeof address;
        getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &size);
        port_ = ntohs(address.sin_port);
    }
    ~Receiver() { close(socket_); }
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

    std::string Address() const { return "127.0.0.1:" + std::to_string(port_); }

    // Until nothing came for so long.
    std::vector<std::vector<uint8_t>> Datagrams(int silence_ms) const {
        std::vector<std::vector<uint8_t>> all;
        pollfd wait{socket_, POLLIN, 0};
        while (poll(&wait, 1, all.empty() ? 60000 : silence_ms) > 0) {
            std::vector<uint8_t> bytes(65536);
            const ssize_t got = recv(socket_, bytes.data(), bytes.size(), 0);
            bytes.resize(got > 0 ? static_cast<size_t>(got) : 0);
            all.push_back(std::move(bytes));
        }
        return all;
    }

  private:
    int socket_;
    uint16_t port_ = 0;
};

std::string Clip() {
    ClipSpec spec;
    spec.container = "mp4";
    spec.b_frames = 2;
    return test::MakeClip(spec);
}

TEST(SendTs, UdpCarriesTheStreamInSevenPacketsADatagram) {
    const Receiver receiver;
    const auto before = std::chrono::steady_clock::now();
    test::Background sender({MUXORA_TOOL, "send", Clip(), "--to", "udp://" + receiver.Address()});
    const auto datagrams = receiver.Datagrams(3000);
    EXPECT_EQ(sender.Wait(), 0);
    // Two seconds of media; the last second's end is not paced.
    EXPECT_GT(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(1800));
    ASSERT_GT(datagrams.size(), 20u);
    std::vector<uint8_t> stream;
    for (const auto& datagram : datagrams) {
        EXPECT_TRUE(datagram.size() == 1316u || &datagram == &datagrams.back()) << datagram.size();
        stream.insert(stream.end(), datagram.begin(), datagram.end());
    }
    const std::string file = test::WorkPath("same.ts");
    ASSERT_EQ(Muxora({"pack", Clip(), "-f", "xts", "-o", file, "--quiet"}).exit_code, 0);
    EXPECT_EQ(stream, test::ReadFile(file));
}

std::vector<std::string> HashesIn(const std::string& path) {
    std::vector<std::string> found;
    const auto bytes = test::ReadFile(path);
    std::istringstream lines(std::string(bytes.begin(), bytes.end()));
    for (std::string line; std::getline(lines, line);) {
        if (line[0] != '#') found.push_back(line.substr(line.rfind(' ') + 1));
    }
    return found;
}

// ffmpeg listens, then the sender calls: it asks until somebody answers.
TEST(SendTs, SrtReachesAReceiverWithEveryPicture) {
    const std::string folder = test::FreshDirectory("srt");
    const std::string port = std::to_string(20000 + 8 * (getpid() % 4000) + 7);
    const std::string secret = "passphrase=a-secret-of-ten";
    test::Background receiver({"ffmpeg", "-nostdin", "-v", "error", "-i",
                               "srt://127.0.0.1:" + port + "?mode=listener&" + secret, "-map", "0:v", "-fps_mode",
                               "passthrough", "-f", "framemd5", folder + "/v.md5"});
    test::RunResult sent;
    for (int i = 0; i < 20; ++i) {
        sent = Muxora({"send", Clip(), "--to", "srt://127.0.0.1:" + port + "?" + secret, "--json"});
        if (sent.exit_code == 0) break;
    }
    ASSERT_EQ(sent.exit_code, 0) << sent.err;
    EXPECT_TRUE(Contains(sent.out, "\"video_frames\":50")) << sent.out;
    EXPECT_FALSE(Contains(sent.out, "a-secret-of-ten")) << sent.out;
    EXPECT_EQ(receiver.Wait(), 0);
    EXPECT_EQ(HashesIn(folder + "/v.md5"), test::DecodeVideo(Clip()).Hashes());
}

TEST(SendTs, WhatCannotBeSentIsToldWithoutThePassphrase) {
    for (const std::string address : {"udp://nowhere", "udp://:5000", "srt://127.0.0.1:99999"}) {
        const auto run = Muxora({"send", Clip(), "--to", address});
        EXPECT_EQ(run.exit_code, 2) << address << run.err;
    }
    const Receiver nobody;  // keeps the port, and speaks no SRT
    const auto alone = Muxora({"send", Clip(), "--to", "srt://" + nobody.Address() + "?passphrase=a-secret-of-ten"});
    EXPECT_EQ(alone.exit_code, 1);
    EXPECT_TRUE(Contains(alone.err, "is somebody listening there")) << alone.err;
    EXPECT_FALSE(Contains(alone.err, "a-secret"));
    // A misspelt option, and a value that is none.
    for (const std::string address :
         {"udp://127.0.0.1:9?tll=4", "udp://127.0.0.1:9?ttl=4&", "srt://127.0.0.1:9?latncy=1"}) {
        const auto misspelt = Muxora({"send", Clip(), "--to", address, "--speed", "1000"});
        if (address.ends_with("&")) {
            EXPECT_EQ(misspelt.exit_code, 0) << misspelt.err;
            continue;
        }
        EXPECT_EQ(misspelt.exit_code, 2) << address << misspelt.err;
        EXPECT_TRUE(Contains(misspelt.err, ":// has no option '")) << misspelt.err;
        EXPECT_TRUE(Contains(misspelt.err, "'; it has: ")) << misspelt.err;
    }
    const auto value = Muxora({"send", Clip(), "--to", "udp://127.0.0.1:9?ttl=many"});
    EXPECT_EQ(value.exit_code, 1);
    EXPECT_TRUE(Contains(value.err, "cannot send to udp://127.0.0.1:9: Invalid argument")) << value.err;
    const auto described = Muxora({"send", Clip(), "--to", "udp://127.0.0.1:5000", "--sdp", "x.sdp"});
    EXPECT_EQ(described.exit_code, 2);
}

}  // namespace
