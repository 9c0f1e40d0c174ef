// Many HTTP clients in one thread, for bench/gateway_load.py: each asks once and throws away what comes.
//
//     http_clients PORT PATH CLIENTS STALLED SECONDS
//
// CLIENTS read as fast as they can, for SECONDS or until their answers end; STALLED more ask and read nothing. One line
// of JSON: clients that were answered, bytes read in all, the least and the most of one client, and how many were ended
// by the server.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

int Ask(uint16_t port, const std::string& request, int receive_buffer) {
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0) return -1;
    if (receive_buffer != 0) setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof receive_buffer);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        send(descriptor, request.data(), request.size(), MSG_NOSIGNAL) < 0) {
        close(descriptor);
        return -1;
    }
    fcntl(descriptor, F_SETFL, O_NONBLOCK);
    return descriptor;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 6) return 2;
    const auto port = static_cast<uint16_t>(std::atoi(argv[1]));
    const std::string request = std::string("GET ") + argv[2] + " HTTP/1.1\r\nHost: bench\r\nConnection: close\r\n\r\n";
    const int clients = std::atoi(argv[3]);
    const int stalled = std::atoi(argv[4]);
    const double seconds = std::atof(argv[5]);
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);

    const int poll = epoll_create1(EPOLL_CLOEXEC);
    std::vector<int> held;
    std::vector<int> sockets;
    std::vector<uint64_t> bytes;
    constexpr int kSmall = 4096;
    for (int i = 0; i < stalled; ++i)
        held.push_back(Ask(port, request, kSmall));
    for (int i = 0; i < clients; ++i) {
        const int descriptor = Ask(port, request, 0);
        if (descriptor < 0) continue;
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.u32 = static_cast<uint32_t>(sockets.size());
        epoll_ctl(poll, EPOLL_CTL_ADD, descriptor, &event);
        sockets.push_back(descriptor);
        bytes.push_back(0);
    }
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    size_t ended = 0;
    std::vector<epoll_event> events(512);
    while (ended < sockets.size() && std::chrono::steady_clock::now() < end) {
        const int count = epoll_wait(poll, events.data(), static_cast<int>(events.size()), 100);
        for (int i = 0; i < count; ++i) {
            const size_t client = events[static_cast<size_t>(i)].data.u32;
            // The bytes are counted and thrown away in the kernel.
            const ssize_t got = recv(sockets[client], nullptr, size_t{1} << 20, MSG_TRUNC);
            if (got > 0) {
                bytes[client] += static_cast<uint64_t>(got);
            } else if (got == 0 || (errno != EAGAIN && errno != EINTR)) {
                epoll_ctl(poll, EPOLL_CTL_DEL, sockets[client], nullptr);
                ++ended;
            }
        }
    }
    uint64_t all = 0;
    for (const uint64_t one : bytes)
        all += one;
    const auto [least, most] = std::minmax_element(bytes.begin(), bytes.end());
    std::printf("{\"clients\": %zu, \"bytes\": %llu, \"least\": %llu, \"most\": %llu, \"ended\": %zu}\n",
                sockets.size(), static_cast<unsigned long long>(all),
                static_cast<unsigned long long>(bytes.empty() ? 0 : *least),
                static_cast<unsigned long long>(bytes.empty() ? 0 : *most), ended);
    return 0;
}
