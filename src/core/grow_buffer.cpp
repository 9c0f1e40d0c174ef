#include "core/grow_buffer.h"

#include <algorithm>
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
    capacity_ = room_ = 0;
    data_.reset();
    if (capacity < 0) return MX_NO_RESOURCES;
    data_.reset(new (std::nothrow) uint8_t[static_cast<size_t>(capacity)]());
    if (data_ == nullptr) return MX_NO_RESOURCES;
    capacity_ = room_ = capacity;
    return MX_OK;
}

uint32_t CGrowBuffer::Append(const void* data, uint32_t length) {
    if (data == nullptr) return MX_NULL_RECORD;
    if (length == 0) return MX_OK;
    uint8_t* const place = Extend(length);
    if (place == nullptr) return MX_NO_RESOURCES;
    std::memcpy(place, data, length);
    return MX_OK;
}

// Memory ran out. The block stays: what was handed out of it may still be looked at.
uint8_t* CGrowBuffer::Lose() {
    size_ = 0;
    return nullptr;
}

uint32_t CGrowBuffer::Enlarge(uint64_t needed) {
    // The steps of the capacity are worked out first and taken at once.
    int64_t capacity = capacity_ == 0 ? kFirstCapacity : capacity_;
    while (static_cast<uint64_t>(capacity) < needed)
        capacity += capacity < kDoublingBelow ? capacity : kLinearStep;
    if (capacity > std::numeric_limits<int32_t>::max()) return MX_NO_RESOURCES;
    if (data_ == nullptr || capacity > room_) {
        const int64_t half_more = std::min<int64_t>(int64_t{room_} + room_ / 2, std::numeric_limits<int32_t>::max());
        const auto least = static_cast<int32_t>(capacity);
        if (!Grow(std::max(static_cast<int32_t>(half_more), least)) && !Grow(least)) return MX_NO_RESOURCES;
    }
    capacity_ = static_cast<int32_t>(capacity);
    return MX_OK;
}

// Moves the content into a block of `room` bytes. Those behind the content are left as they come: nothing reads them
// before they are written.
bool CGrowBuffer::Grow(int32_t room) {
    std::unique_ptr<uint8_t[]> grown(new (std::nothrow) uint8_t[static_cast<size_t>(room)]);
    if (grown == nullptr) return false;
    if (size_ != 0) std::memcpy(grown.get(), data_.get(), size_);
    data_ = std::move(grown);
    room_ = room;
    return true;
}

}  // namespace Orvane::Muxora
