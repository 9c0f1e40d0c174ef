#include "iso/entry_table.h"

#include <algorithm>
#include <new>

#include "core/raw_array.h"

namespace Orvane::Muxora {

namespace {

constexpr uint64_t kFirstBlock = 2048 * 4;
constexpr uint64_t kLargestBlock = 16384 * 4;

}  // namespace

uint32_t EntryTable::Write(CGrowBuffer* buffer) const {
    uint32_t written = 0;
    for (const Block& block : blocks_) {
        const uint8_t* const bytes = block.bytes.get();
        const bool last = &block == &blocks_.back();
        const uint32_t size = last ? static_cast<uint32_t>(at_ - bytes) : block.size;
        buffer->Append(bytes, size);
        written += size;
    }
    return written;
}

bool EntryTable::Grow() {
    const auto size = static_cast<uint32_t>(std::clamp(capacity_, kFirstBlock, kLargestBlock));
    try {
        blocks_.push_back({MakeRawArray<uint8_t>(size), size});
    } catch (const std::bad_alloc&) {
        return false;
    }
    at_ = blocks_.back().bytes.get();
    end_ = at_ + size;
    capacity_ += size;
    return true;
}

}  // namespace Orvane::Muxora
