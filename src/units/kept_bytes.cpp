#include "units/kept_bytes.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace Orvane::Muxora {

namespace {

constexpr size_t kFirstCapacity = 65536;

}  // namespace

bool KeptBytes::Append(std::span<const uint8_t> bytes) {
    if (bytes.empty()) return true;
    if (!MakeRoom(bytes.size())) return false;
    std::memcpy(memory_.get() + end_, bytes.data(), bytes.size());
    end_ += bytes.size();
    memory_[end_] = 0;
    return true;
}

bool KeptBytes::MakeRoom(size_t count) {
    const size_t size = Size();
    const size_t needed = size + count + 1;
    if (end_ + count + 1 <= capacity_) return true;
    if (needed > capacity_) {
        const size_t capacity = std::max({needed, capacity_ * 2, kFirstCapacity});
        std::unique_ptr<uint8_t[]> grown(new (std::nothrow) uint8_t[capacity]);
        if (grown == nullptr) return false;
        if (size != 0) std::memcpy(grown.get(), memory_.get() + begin_, size);
        memory_ = std::move(grown);
        capacity_ = capacity;
    } else if (size != 0) {
        std::memmove(memory_.get(), memory_.get() + begin_, size);
    }
    begin_ = 0;
    end_ = size;
    return true;
}

}  // namespace Orvane::Muxora
