#include "servers/net_stream.h"

#include <sys/sendfile.h>

#include <cerrno>

namespace Orvane::Muxora::Gateway {

size_t NetStream::SendNow(int file, size_t begin, size_t size, Error& error) {
    auto at = static_cast<off_t>(begin);
    ssize_t sent = 0;
    do {
        sent = sendfile(Lowest().native_handle(), file, &at, size);
    } while (sent < 0 && errno == EINTR);
    if (sent >= 0) {
        error = {};
        return static_cast<size_t>(sent);
    }
    error = Error(errno, boost::system::system_category());
    return 0;
}

}  // namespace Orvane::Muxora::Gateway
