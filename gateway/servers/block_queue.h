// What waits for one client, and the rule for those that are slow.
#pragma once

#include <cstddef>
#include <deque>
#include <vector>

#include "hub/block.h"

namespace Orvane::Muxora::Gateway {

class BlockQueue {
  public:
    explicit BlockQueue(size_t max_bytes) : max_bytes_(max_bytes) {}

    // True when the queue ran over: all media that waited was dropped, and what comes is left out up to the next key
    // frame. Headers stay.
    bool Offer(const BlockPtr& block);
    // Takes up to `count` blocks for one write.
    void Take(size_t count, std::vector<BlockPtr>& out);

    bool Empty() const { return blocks_.empty(); }
    size_t Bytes() const { return bytes_; }
    size_t MaxBytes() const { return max_bytes_; }

  private:
    size_t max_bytes_;
    std::deque<BlockPtr> blocks_;
    size_t bytes_ = 0;
    bool wait_for_key_ = true;
};

}  // namespace Orvane::Muxora::Gateway
