#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "core/raw_array.h"

namespace Orvane::Muxora {

// A list of numbers that only grows: by blocks, so that an entry costs the same however many there are, and none moves.
class Ledger {
  public:
    // Room for `count` more. Throws std::bad_alloc with nothing changed.
    void Reserve(size_t count) {
        while (blocks_.size() * kBlock < size_ + count)
            blocks_.push_back(MakeRawArray<uint32_t>(kBlock));
    }
    // Only where there is room.
    void Append(uint32_t value) {
        blocks_[size_ / kBlock][size_ % kBlock] = value;
        ++size_;
    }
    uint32_t operator[](size_t index) const { return blocks_[index / kBlock][index % kBlock]; }
    uint32_t& operator[](size_t index) { return blocks_[index / kBlock][index % kBlock]; }
    size_t Size() const { return size_; }
    // Bytes held.
    size_t Capacity() const { return blocks_.size() * kBlock * sizeof(uint32_t); }

  private:
    static constexpr size_t kBlock = 4096;

    std::vector<std::unique_ptr<uint32_t[]>> blocks_;
    size_t size_ = 0;
};

}  // namespace Orvane::Muxora
