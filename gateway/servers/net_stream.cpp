#include "servers/net_stream.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>
#include <limits>

#include "servers/page_lane.h"

namespace Orvane::Muxora::Gateway {

void NetStream::LimitUnsent(size_t bytes) {
    const int most = static_cast<int>(std::min(bytes, size_t{std::numeric_limits<int>::max()}));
    setsockopt(Lowest().native_handle(), IPPROTO_TCP, TCP_NOTSENT_LOWAT, &most, sizeof most);
}

size_t NetStream::SendNow(std::span<const uint8_t> bytes, Error& error) {
    int number = 0;
    const size_t sent = PageLane::Own().Send(Lowest().native_handle(), bytes, number);
    error = Error(number, boost::system::system_category());
    return sent;
}

}  // namespace Orvane::Muxora::Gateway
