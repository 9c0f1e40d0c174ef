// Many HTTP clients in one thread, for bench/gateway_load.py: each asks once and throws away what comes.
//
//     http_clients HOW PORT PATH CLIENTS STALLED SECONDS
//
// HOW is http, tls, or websocket (a WebSocket that only listens). CLIENTS read as fast as they can, for SECONDS or
// until their answers end; STALLED more ask and read nothing. One line of JSON: clients that were answered, bytes read
// in all, the least and the most of one client, and how many were ended by the server.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
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

struct Client {
    int descriptor = -1;
    SSL* tls = nullptr;
    uint64_t bytes = 0;
};

// Null: not encrypted.
SSL_CTX* g_tls = nullptr;

Client Ask(uint16_t port, const std::string& request, int receive_buffer) {
    Client client;
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0) return client;
    if (receive_buffer != 0) setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &receive_buffer, sizeof receive_buffer);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bool asked = connect(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    if (asked && g_tls != nullptr) {
        client.tls = SSL_new(g_tls);
        SSL_set_fd(client.tls, descriptor);
        asked =
            SSL_connect(client.tls) == 1 && SSL_write(client.tls, request.data(), static_cast<int>(request.size())) > 0;
    } else if (asked) {
        asked = send(descriptor, request.data(), request.size(), MSG_NOSIGNAL) > 0;
    }
    if (!asked) {
        SSL_free(client.tls);
        close(descriptor);
        return {};
    }
    fcntl(descriptor, F_SETFL, O_NONBLOCK);
    client.descriptor = descriptor;
    return client;
}

// All that is there. False once nothing comes any more.
bool Read(Client& client) {
    if (client.tls == nullptr) {
        // The bytes are counted and thrown away in the kernel.
        const ssize_t got = recv(client.descriptor, nullptr, size_t{1} << 20, MSG_TRUNC);
        if (got > 0) client.bytes += static_cast<uint64_t>(got);
        return got > 0 || (got < 0 && (errno == EAGAIN || errno == EINTR));
    }
    static char record[16384];
    // What another client's end left there would be taken for this one's.
    ERR_clear_error();
    int got = 0;
    while ((got = SSL_read(client.tls, record, sizeof record)) > 0)
        client.bytes += static_cast<uint64_t>(got);
    return SSL_get_error(client.tls, got) == SSL_ERROR_WANT_READ;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 7) return 2;
    const std::string how = argv[1];
    const auto port = static_cast<uint16_t>(std::atoi(argv[2]));
    std::string request = std::string("GET ") + argv[3] + " HTTP/1.1\r\nHost: bench\r\n";
    // RFC 6455 4.1
    request += how == "websocket" ? "Upgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\n"
                                    "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n"
                                  : "Connection: close\r\n\r\n";
    if (how == "tls") g_tls = SSL_CTX_new(TLS_client_method());
    const int clients = std::atoi(argv[4]);
    const int stalled = std::atoi(argv[5]);
    const double seconds = std::atof(argv[6]);
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);

    const int poll = epoll_create1(EPOLL_CLOEXEC);
    std::vector<Client> held;
    std::vector<Client> readers;
    constexpr int kSmall = 4096;
    for (int i = 0; i < stalled; ++i)
        held.push_back(Ask(port, request, kSmall));
    for (int i = 0; i < clients; ++i) {
        const Client client = Ask(port, request, 0);
        if (client.descriptor < 0) continue;
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.u32 = static_cast<uint32_t>(readers.size());
        epoll_ctl(poll, EPOLL_CTL_ADD, client.descriptor, &event);
        readers.push_back(client);
    }
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    size_t ended = 0;
    std::vector<epoll_event> events(512);
    while (ended < readers.size() && std::chrono::steady_clock::now() < end) {
        const int count = epoll_wait(poll, events.data(), static_cast<int>(events.size()), 100);
        for (int i = 0; i < count; ++i) {
            Client& client = readers[events[static_cast<size_t>(i)].data.u32];
            if (Read(client)) continue;
            epoll_ctl(poll, EPOLL_CTL_DEL, client.descriptor, nullptr);
            ++ended;
        }
    }
    uint64_t all = 0;
    uint64_t most = 0;
    uint64_t least = readers.empty() ? 0 : UINT64_MAX;
    for (const Client& client : readers) {
        all += client.bytes;
        most = std::max(most, client.bytes);
        least = std::min(least, client.bytes);
    }
    std::printf("{\"clients\": %zu, \"bytes\": %llu, \"least\": %llu, \"most\": %llu, \"ended\": %zu}\n",
                readers.size(), static_cast<unsigned long long>(all), static_cast<unsigned long long>(least),
                static_cast<unsigned long long>(most), ended);
    return 0;
}
