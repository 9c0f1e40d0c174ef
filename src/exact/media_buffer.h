#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>

#include "core/raw_array.h"

namespace Orvane::Muxora {

// The bytes of a fragment's samples, with room ahead of them for what is known only at the end. Grows by halves and
// keeps its room; bytes that nobody wrote are never touched.
class MediaBuffer {
  public:
    uint8_t* Data() { return bytes_.get() + front_; }
    size_t Size() const { return size_; }
    size_t Capacity() const { return capacity_; }

    // Room for `count` bytes behind the last one; Commit takes the first of them in. Throws std::bad_alloc.
    uint8_t* Reserve(size_t count) {
        if (front_ + size_ + count > capacity_) Grow(front_, front_ + size_ + count);
        return Data() + size_;
    }
    void Commit(size_t count) { size_ += count; }
    void Append(const uint8_t* data, size_t count) {
        std::memcpy(Reserve(count), data, count);
        Commit(count);
    }

    // Room for PutInFront. Throws std::bad_alloc with nothing changed.
    void ReserveFront(size_t count) {
        if (count > front_) Grow(count + count / 2, count + count / 2 + size_);
    }
    // Puts bytes directly ahead of the first one, over what stood there, and gives the place where they begin.
    uint8_t* PutInFront(const uint8_t* data, size_t count) {
        ReserveFront(count);
        std::memcpy(Data() - count, data, count);
        return Data() - count;
    }

    void Truncate(size_t size) { size_ = size; }
    void Clear() { size_ = 0; }

  private:
    static constexpr size_t kFirstFront = 4096;
    static constexpr size_t kFirstCapacity = size_t{64} << 10;

    void Grow(size_t front, size_t needed) {
        const size_t capacity = std::max({needed, capacity_ + capacity_ / 2, kFirstCapacity});
        auto grown = MakeRawArray<uint8_t>(capacity);
        if (size_ != 0) std::memcpy(grown.get() + front, Data(), size_);
        bytes_ = std::move(grown);
        capacity_ = capacity;
        front_ = front;
    }

    std::unique_ptr<uint8_t[]> bytes_;
    size_t capacity_ = 0;
    size_t front_ = kFirstFront;
    size_t size_ = 0;
};

}  // namespace Orvane::Muxora
