#include "servers/page_lane.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "bounds.h"

namespace Orvane::Muxora::Gateway {

namespace {

constexpr size_t kPage = 4096;

size_t Copy(int socket, std::span<const uint8_t> bytes, int& error) {
    ssize_t sent = 0;
    do {
        sent = send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    error = sent < 0 ? errno : 0;
    return sent < 0 ? 0 : static_cast<size_t>(sent);
}

}  // namespace

PageLane& PageLane::Own() {
    thread_local PageLane lane;
    return lane;
}

bool PageLane::Open() {
    if (in_ >= 0) return true;
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) return false;
    out_ = ends[0];
    in_ = ends[1];
    // A user's pipes have a bound together: beyond it this one stays as it is.
    fcntl(in_, F_SETPIPE_SZ, static_cast<int>(kLaneBytes));
    const int size = fcntl(in_, F_GETPIPE_SZ);
    // Bytes that do not begin with a page take one more.
    room_ = size > static_cast<int>(kPage) ? static_cast<size_t>(size) - kPage : kPage;
    return true;
}

void PageLane::Close() {
    if (in_ < 0) return;
    close(in_);
    close(out_);
    in_ = out_ = -1;
}

size_t PageLane::Send(int socket, std::span<const uint8_t> bytes, int& error) {
    if (bytes.size() < kLendFrom || !Open()) return Copy(socket, bytes, error);
    iovec piece{const_cast<uint8_t*>(bytes.data()), std::min(bytes.size(), room_)};
    const ssize_t lent = vmsplice(in_, &piece, 1, SPLICE_F_NONBLOCK);
    // Not on this system.
    if (lent <= 0) return Copy(socket, bytes, error);
    ssize_t sent = 0;
    do {
        sent = splice(out_, nullptr, socket, nullptr, static_cast<size_t>(lent), SPLICE_F_NONBLOCK);
    } while (sent < 0 && errno == EINTR);
    error = sent < 0 ? errno : 0;
    // What the socket left is nobody else's: with the pipe it goes.
    if (sent < lent) Close();
    return sent < 0 ? 0 : static_cast<size_t>(sent);
}

}  // namespace Orvane::Muxora::Gateway
