// Memory of frames, kept from run to run: fresh pages for each would be most of what a run costs.
#pragma once

#include <sanitizer/asan_interface.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "harness/input.h"

namespace fuzz {

// One frame at a time. AddressSanitizer sees the first byte behind it, and any use after the frame is gone.
class FrameMemory {
  public:
    static constexpr size_t kMost = 8u << 20;

    // `size` bytes that end `offset` bytes ahead of where the memory does: alignment follows from both.
    FrameMemory(size_t size, size_t offset)
        : block_(size + offset <= kSmall ? small_ : large_),
          capacity_(size + offset <= kSmall ? kSmall : kMost + kSmall),
          size_(size) {
        Require(size <= kMost && offset <= kSmall);
        if (block_ == nullptr) {
            block_ = static_cast<uint8_t*>(std::malloc(capacity_));
            Require(block_ != nullptr);
            ASAN_POISON_MEMORY_REGION(block_, capacity_);
        }
        data_ = block_ + capacity_ - size - offset;
        ASAN_UNPOISON_MEMORY_REGION(data_, size_);
    }
    ~FrameMemory() { ASAN_POISON_MEMORY_REGION(data_, size_); }
    FrameMemory(const FrameMemory&) = delete;
    FrameMemory& operator=(const FrameMemory&) = delete;

    uint8_t* Data() const { return data_; }

  private:
    static constexpr size_t kSmall = 64u << 10;
    inline static uint8_t* small_ = nullptr;
    inline static uint8_t* large_ = nullptr;

    uint8_t*& block_;
    size_t capacity_;
    size_t size_;
    uint8_t* data_ = nullptr;
};

}  // namespace fuzz
