#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "MuxoraAPI.h"

namespace Orvane::Muxora {

// The byte buffer in which packagers put headers, box trees and frames together. Reset() keeps the memory, so that a
// steady stream does not allocate. The fill size never exceeds the capacity.
//
// The capacity is what is told, and what some output depends on: 16384 at first, doubling up to 256000 and growing by
// 65536 from there. The memory behind it grows by halves, so that filling the buffer takes time in proportion to what
// goes in.
//
// Results are MX_OK, MX_NULL_RECORD for null data, or MX_NO_RESOURCES when memory ran out; the buffer is then empty.
class CGrowBuffer {
  public:
    // Drops everything and allocates `capacity` bytes, zeroed.
    uint32_t Create(int32_t capacity);
    // Adds bytes behind the last one.
    uint32_t Append(const void* data, uint32_t length);
    // Adds `length` bytes that the caller fills at once, and returns the first of them; null when memory ran out.
    uint8_t* Extend(uint32_t length) {
        if (Reserve(length) != MX_OK) return Lose();
        uint8_t* const first = data_.get() + size_;
        size_ += length;
        return first;
    }
    // Gives back the last `length` bytes of what Extend gave.
    void Shrink(uint32_t length) { size_ -= length < size_ ? length : size_; }
    // Room for `length` bytes more, in one step. The block stays where it is until they are added. When memory ran out
    // nothing is changed.
    uint32_t Reserve(uint32_t length) {
        const uint64_t needed = uint64_t{size_} + length;
        if (data_ != nullptr && needed <= static_cast<uint64_t>(capacity_)) [[likely]]
            return MX_OK;
        return Enlarge(needed);
    }
    // Empties the buffer; capacity and bytes stay. Always MX_OK.
    uint32_t Reset() {
        size_ = 0;
        return MX_OK;
    }

    uint8_t* Data() const { return data_.get(); }
    uint32_t Size() const { return size_; }
    int32_t Capacity() const { return capacity_; }

  private:
    uint8_t* Lose();
    uint32_t Enlarge(uint64_t needed);
    bool Grow(int32_t room);

    std::unique_ptr<uint8_t[]> data_;
    int32_t capacity_ = 0;
    int32_t room_ = 0;  // bytes of the block, the capacity or more
    uint32_t size_ = 0;
};

}  // namespace Orvane::Muxora
