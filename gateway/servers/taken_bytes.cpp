// By itself: the system's own header, which alone has the count, does not go with the C library's.
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstddef>
#include <cstdint>

namespace Orvane::Muxora::Gateway {

uint64_t TakenBytes(int descriptor);

uint64_t TakenBytes(int descriptor) {
    tcp_info info{};
    socklen_t size = sizeof info;
    if (getsockopt(descriptor, IPPROTO_TCP, TCP_INFO, &info, &size) != 0) return 0;
    return size >= offsetof(tcp_info, tcpi_bytes_acked) + sizeof info.tcpi_bytes_acked ? info.tcpi_bytes_acked : 0;
}

}  // namespace Orvane::Muxora::Gateway
