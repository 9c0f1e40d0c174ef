#include "servers/block_queue.h"

#include <algorithm>

#include "bounds.h"

namespace Orvane::Muxora::Gateway {

bool BlockQueue::Offer(const BlockPtr& block) {
    const bool header = block->kind == Block::Kind::kHeader;
    if (!header) {
        if (wait_for_key_ && !block->key) return false;
        wait_for_key_ = false;
    }
    bool ran_over = false;
    if (bytes_ + block->bytes.size() > max_bytes_ || blocks_.size() >= kMaxQueueBlocks) {
        std::erase_if(blocks_, [](const BlockPtr& one) { return one->kind == Block::Kind::kMedia; });
        // Nothing but headers, and full: this client has not taken a byte for a very long time.
        if (blocks_.size() >= kMaxQueueBlocks) blocks_.clear();
        bytes_ = 0;
        for (const BlockPtr& one : blocks_)
            bytes_ += one->bytes.size();
        ran_over = true;
        if (!header && !block->key) {
            wait_for_key_ = true;
            return true;
        }
    }
    blocks_.push_back(block);
    bytes_ += block->bytes.size();
    return ran_over;
}

void BlockQueue::Take(size_t count, std::vector<BlockPtr>& out) {
    const size_t taken = std::min(count, blocks_.size());
    for (size_t i = 0; i < taken; ++i) {
        bytes_ -= blocks_.front()->bytes.size();
        out.push_back(std::move(blocks_.front()));
        blocks_.pop_front();
    }
}

}  // namespace Orvane::Muxora::Gateway
