#include "packaging/chunk_store.h"

#include <algorithm>
#include <cstdio>

#include "bounds.h"

namespace Orvane::Muxora::Gateway {

void ChunkStore::Put(std::span<const uint8_t> bytes, Block& block) {
    if (bytes.empty()) return;  // an empty chunk would be the end
    char line[20];
    const auto line_size = static_cast<size_t>(std::snprintf(line, sizeof line, "%zx\r\n", bytes.size()));
    const size_t size = line_size + bytes.size() + 2;
    if (pages_ == nullptr || pages_->Room() < size) pages_ = SharedPages::Make(std::max(kSharedPagesBytes, size));
    if (pages_ == nullptr) {
        block.storage.assign(bytes.begin(), bytes.end());
        block.bytes = block.storage;
        return;
    }
    block.pages = pages_;
    const uint8_t* const begin = pages_->Data() + pages_->Used();
    pages_->Append(line, line_size);
    block.bytes = {pages_->Data() + pages_->Used(), bytes.size()};
    pages_->Append(bytes.data(), bytes.size());
    pages_->Append("\r\n", 2);
    block.chunk = {begin, size};
}

}  // namespace Orvane::Muxora::Gateway
