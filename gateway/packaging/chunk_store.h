// Where the blocks of an endless output stand: each as a chunk of HTTP/1.1 (RFC 9112 7.1), one behind the other in
// memory that the system sends from, so that what waits for a client is one stretch of bytes, the same for all clients.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "hub/block.h"

namespace Orvane::Muxora::Gateway {

class ChunkStore {
  public:
    // The block's bytes become these. Without such memory they stand by themselves, in `storage`.
    void Put(std::span<const uint8_t> bytes, Block& block);

  private:
    std::shared_ptr<SharedPages> pages_;  // the one that is being filled
};

}  // namespace Orvane::Muxora::Gateway
