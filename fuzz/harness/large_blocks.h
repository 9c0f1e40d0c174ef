// Large blocks of operator new, and of malloc where a target says so, that stay from run to run: the sanitizer would
// give their pages back each time, and fetching them again was half of what a run cost.
#pragma once

#include <malloc.h>
#include <sanitizer/asan_interface.h>

#include <cstddef>
#include <cstdlib>
#include <utility>

namespace fuzz {

class LargeBlocks {
  public:
    // Null where none of this size is kept.
    static void* Take(std::size_t size) noexcept {
        if (size < kLarge) return nullptr;
        for (Kept& kept : kept_) {
            if (kept.block == nullptr || kept.size != size) continue;
            ASAN_UNPOISON_MEMORY_REGION(kept.block, size);
            return std::exchange(kept.block, nullptr);
        }
        return nullptr;
    }
    // In the place of std::free; false: the caller frees it.
    static bool Keep(void* block) noexcept {
        const std::size_t size = block == nullptr ? 0 : malloc_usable_size(block);
        if (size < kLarge) return false;
        // One that is freed twice, which AddressSanitizer does not get to see here.
        for (const Kept& kept : kept_) {
            if (kept.block == block) std::abort();
        }
        for (Kept& kept : kept_) {
            if (kept.block != nullptr) continue;
            kept = {block, size};
            ASAN_POISON_MEMORY_REGION(block, size);
            return true;
        }
        return false;
    }

  private:
    struct Kept {
        void* block;
        std::size_t size;
    };
    static constexpr std::size_t kLarge = std::size_t{1} << 18;

    inline static thread_local Kept kept_[4] = {};
};

}  // namespace fuzz
