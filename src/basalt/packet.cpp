#include "basalt/packet.h"

#include <cstring>
#include <new>
#include <utility>

namespace Basalt {

CPacket::CPacket() = default;

CPacket::CPacket(size_t capacity) : data_(new (std::nothrow) uint8_t[capacity]()) {
    if (data_ != nullptr) capacity_ = capacity;
}

CPacket::~CPacket() = default;

CPacket::CPacket(CPacket&& other) noexcept
    : data_(std::move(other.data_)),
      size_(std::exchange(other.size_, 0)),
      capacity_(std::exchange(other.capacity_, 0)) {
}

CPacket& CPacket::operator=(CPacket&& other) noexcept {
    if (this != &other) {
        data_ = std::move(other.data_);
        size_ = std::exchange(other.size_, 0);
        capacity_ = std::exchange(other.capacity_, 0);
    }
    return *this;
}

bool CPacket::resize(size_t size) {
    if (size > capacity_) {
        std::unique_ptr<uint8_t[]> grown(new (std::nothrow) uint8_t[size]());
        if (grown == nullptr) return false;
        if (size_ != 0) std::memcpy(grown.get(), data_.get(), size_);
        data_ = std::move(grown);
        capacity_ = size;
    }
    size_ = size;
    return true;
}

}  // namespace Basalt
