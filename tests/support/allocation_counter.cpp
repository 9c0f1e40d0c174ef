#include "support/allocation_counter.h"

#include <cstddef>
#include <cstdlib>
#include <new>

#if defined(_WIN32)
#include <malloc.h>
#endif
#if defined(MUXORA_KEEP_LARGE_BLOCKS)
#include "harness/large_blocks.h"
#endif

namespace {

constexpr uint64_t kUnlimited = UINT64_MAX;

// Per thread, so that what others do does not count.
thread_local uint64_t count = 0;
thread_local uint64_t bytes = 0;
thread_local uint64_t budget = kUnlimited;  // allocations that still succeed
thread_local uint64_t failures_left = 0;    // behind those

void* Allocate(std::size_t size, std::size_t alignment) noexcept {
    ++count;
    bytes += size;
    if (budget != kUnlimited) {
        if (budget != 0) {
            --budget;
        } else if (failures_left != 0) {
            if (failures_left != kUnlimited) --failures_left;
            return nullptr;
        }
    }
    if (size == 0) size = 1;
#if defined(MUXORA_KEEP_LARGE_BLOCKS)
    if (void* const kept = alignment <= alignof(std::max_align_t) ? fuzz::LargeBlocks::Take(size) : nullptr)
        return kept;
#endif
    if (alignment <= alignof(std::max_align_t)) return std::malloc(size);
#if defined(_WIN32)
    return _aligned_malloc(size, alignment);
#else
    return std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
#endif
}

void Free(void* block) noexcept {
#if defined(MUXORA_KEEP_LARGE_BLOCKS)
    if (fuzz::LargeBlocks::Keep(block)) return;
#endif
    std::free(block);
}

// What was allocated with more than the usual alignment.
void FreeAligned(void* block) noexcept {
#if defined(_WIN32)
    _aligned_free(block);
#else
    std::free(block);
#endif
}

void* AllocateOrThrow(std::size_t size, std::size_t alignment) {
    void* const block = Allocate(size, alignment);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}

}  // namespace

namespace test {

AllocationCounter::AllocationCounter() : start_(count), start_bytes_(bytes) {
}

uint64_t AllocationCounter::Count() const {
    return count - start_;
}

uint64_t AllocationCounter::Bytes() const {
    return bytes - start_bytes_;
}

FailingAllocations::FailingAllocations(uint64_t successes, uint64_t failures) {
    budget = successes;
    failures_left = failures;
}

FailingAllocations::~FailingAllocations() {
    budget = kUnlimited;
}

}  // namespace test

void* operator new(std::size_t size) {
    return AllocateOrThrow(size, 1);
}
void* operator new[](std::size_t size) {
    return AllocateOrThrow(size, 1);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return AllocateOrThrow(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
    return AllocateOrThrow(size, static_cast<std::size_t>(alignment));
}
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return Allocate(size, 1);
}
void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return Allocate(size, 1);
}
void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t& /*tag*/) noexcept {
    return Allocate(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment, const std::nothrow_t& /*tag*/) noexcept {
    return Allocate(size, static_cast<std::size_t>(alignment));
}

void operator delete(void* block) noexcept {
    Free(block);
}
void operator delete[](void* block) noexcept {
    Free(block);
}
void operator delete(void* block, std::size_t /*size*/) noexcept {
    Free(block);
}
void operator delete[](void* block, std::size_t /*size*/) noexcept {
    Free(block);
}
void operator delete(void* block, std::align_val_t /*alignment*/) noexcept {
    FreeAligned(block);
}
void operator delete[](void* block, std::align_val_t /*alignment*/) noexcept {
    FreeAligned(block);
}
void operator delete(void* block, std::size_t /*size*/, std::align_val_t /*alignment*/) noexcept {
    FreeAligned(block);
}
void operator delete[](void* block, std::size_t /*size*/, std::align_val_t /*alignment*/) noexcept {
    FreeAligned(block);
}
void operator delete(void* block, const std::nothrow_t& /*tag*/) noexcept {
    Free(block);
}
void operator delete[](void* block, const std::nothrow_t& /*tag*/) noexcept {
    Free(block);
}
