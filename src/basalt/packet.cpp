#include "basalt/packet.h"

#include <cstring>
#include <new>

namespace Basalt {

CPacket::CPacket(size_t capacity) : data_(new (std::nothrow) uint8_t[capacity]) {
    if (data_ != nullptr) capacity_ = capacity;
}

bool CPacket::resize(size_t size) {
    if (size > capacity_) {
        std::unique_ptr<uint8_t[]> grown(new (std::nothrow) uint8_t[size]);
        if (grown == nullptr) return false;
        if (size_ != 0) std::memcpy(grown.get(), data_.get(), size_);
        data_ = std::move(grown);
        capacity_ = size;
    }
    size_ = size;
    return true;
}

}  // namespace Basalt
