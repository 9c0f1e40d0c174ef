#include "core/grow_buffer.h"

#include <cstring>
#include <limits>
#include <new>

#include "MuxoraAPI.h"

namespace Orvane::Muxora {

namespace {

constexpr int32_t kFirstCapacity = 16384;
constexpr int32_t kDoublingBelow = 256001;
constexpr int32_t kLinearStep = 0x10000;

}  // namespace

uint32_t CGrowBuffer::Create(int32_t capacity) {
    size_ = 0;
    capacity_ = 0;
    data_.reset();
    if (capacity < 0) return MX_NO_RESOURCES;
    data_.reset(new (std::nothrow) uint8_t[static_cast<size_t>(capacity)]());
    if (data_ == nullptr) return MX_NO_RESOURCES;
    capacity_ = capacity;
    return MX_OK;
}

uint32_t CGrowBuffer::Append(const void* data, uint32_t length) {
    if (data == nullptr) return MX_NULL_RECORD;
    if (length == 0) return MX_OK;
    if (Reserve(length) != MX_OK) return MX_NO_RESOURCES;
    std::memcpy(data_.get() + size_, data, length);
    size_ += length;
    return MX_OK;
}

uint8_t* CGrowBuffer::Extend(uint32_t length) {
    if (Reserve(length) != MX_OK) return nullptr;
    uint8_t* const first = data_.get() + size_;
    size_ += length;
    return first;
}

uint32_t CGrowBuffer::Reserve(uint32_t length) {
    const uint64_t needed = uint64_t{size_} + length;
    if (data_ != nullptr && needed <= static_cast<uint64_t>(capacity_)) return MX_OK;
    // The steps are worked out first and taken by one allocation.
    int64_t capacity = capacity_ == 0 ? kFirstCapacity : capacity_;
    while (static_cast<uint64_t>(capacity) < needed)
        capacity += capacity < kDoublingBelow ? capacity : kLinearStep;
    // The bytes behind the content are left as they come: nothing reads them before they are written.
    std::unique_ptr<uint8_t[]> grown;
    if (capacity <= std::numeric_limits<int32_t>::max()) {
        grown.reset(new (std::nothrow) uint8_t[static_cast<size_t>(capacity)]);
    }
    if (grown == nullptr) {
        // The block stays: what was handed out of it may still be looked at.
        size_ = 0;
        return MX_NO_RESOURCES;
    }
    if (size_ != 0) std::memcpy(grown.get(), data_.get(), size_);
    data_ = std::move(grown);
    capacity_ = static_cast<int32_t>(capacity);
    return MX_OK;
}

uint32_t CGrowBuffer::Reset() {
    size_ = 0;
    return MX_OK;
}

}  // namespace Orvane::Muxora
