// In the place of malloc and free in all that is linked into the target (--wrap): large blocks stay from run to run.
#include <cstddef>

#include "harness/large_blocks.h"

extern "C" {
void* __real_malloc(std::size_t size);           // NOLINT(bugprone-reserved-identifier): the linker's names
void __real_free(void* block);                   // NOLINT(bugprone-reserved-identifier)
void* __wrap_malloc(std::size_t size) noexcept;  // NOLINT(bugprone-reserved-identifier)
void __wrap_free(void* block) noexcept;          // NOLINT(bugprone-reserved-identifier)

void* __wrap_malloc(std::size_t size) noexcept {
    void* const kept = fuzz::LargeBlocks::Take(size);
    return kept != nullptr ? kept : __real_malloc(size);
}

void __wrap_free(void* block) noexcept {
    if (!fuzz::LargeBlocks::Keep(block)) __real_free(block);
}
}
