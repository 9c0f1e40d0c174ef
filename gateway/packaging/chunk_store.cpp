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
    if (file_ == nullptr || file_->Room() < size) file_ = PageFile::Make(std::max(kPageFileBytes, size));
    if (file_ == nullptr) {
        block.storage.assign(bytes.begin(), bytes.end());
        block.bytes = block.storage;
        return;
    }
    block.file = file_;
    block.chunk_begin = file_->Used();
    file_->Append(line, line_size);
    block.bytes = {file_->Data() + file_->Used(), bytes.size()};
    file_->Append(bytes.data(), bytes.size());
    file_->Append("\r\n", 2);
    block.chunk_end = file_->Used();
}

}  // namespace Orvane::Muxora::Gateway
