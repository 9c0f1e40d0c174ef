// A large block of operator new that stays from run to run: the sanitizer would give its pages back each time, and
// fetching them again was half of what a run of Matroska cost.
#pragma once

#include <malloc.h>
#include <sanitizer/asan_interface.h>

#include <cstddef>
#include <cstdlib>
#include <utility>

namespace fuzz {

class LargeBlock {
  public:
    // Null where none of this size is kept.
    static void* Take(std::size_t size) noexcept {
        if (kept_ == nullptr || size != size_) return nullptr;
        ASAN_UNPOISON_MEMORY_REGION(kept_, size_);
        return std::exchange(kept_, nullptr);
    }
    // For std::free.
    static void Free(void* block) noexcept {
        constexpr std::size_t kLarge = std::size_t{1} << 18;
        const std::size_t size = block == nullptr ? 0 : malloc_usable_size(block);
        if (size < kLarge || kept_ != nullptr) {
            std::free(block);
            return;
        }
        kept_ = block;
        size_ = size;
        ASAN_POISON_MEMORY_REGION(block, size);
    }

  private:
    inline static thread_local void* kept_ = nullptr;
    inline static thread_local std::size_t size_ = 0;
};

}  // namespace fuzz
