// How bytes that never change come into a socket without being copied: a pipe lends their pages to it (vmsplice,
// splice).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace Orvane::Muxora::Gateway {

class PageLane {
  public:
    // Of this thread.
    static PageLane& Own();

    PageLane() = default;
    ~PageLane() { Close(); }
    PageLane(const PageLane&) = delete;
    PageLane& operator=(const PageLane&) = delete;

    // How many of the bytes the socket, which does not block, took; 0: none, and `error` is a number of errno. The
    // bytes may go away at once, but stay as they are: they are anonymous memory that was never written twice.
    size_t Send(int socket, std::span<const uint8_t> bytes, int& error);

  private:
    bool Open();
    void Close();

    int in_ = -1;
    int out_ = -1;
    size_t room_ = 0;
};

}  // namespace Orvane::Muxora::Gateway
