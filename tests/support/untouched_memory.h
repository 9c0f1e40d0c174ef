// Memory that nobody has touched.
#pragma once

#if defined(_WIN32)
#if !defined(NOMINMAX)
#define NOMINMAX  // libstdc++ has it already
#endif
#include <windows.h>
#else
#include <sys/mman.h>
#endif

#include <cstddef>

namespace test {

// A readable stretch of addresses for which the system need not find memory before it is looked at.
class UntouchedMemory {
  public:
#if defined(_WIN32)
    explicit UntouchedMemory(size_t size)
        : size_(size), bytes_(VirtualAlloc(nullptr, size, MEM_RESERVE | MEM_COMMIT, PAGE_READONLY)) {
    }
    ~UntouchedMemory() {
        if (bytes_ != nullptr) VirtualFree(bytes_, 0, MEM_RELEASE);
    }
#else
    explicit UntouchedMemory(size_t size)
        : size_(size), bytes_(mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0)) {
        if (bytes_ == MAP_FAILED) bytes_ = nullptr;
    }
    ~UntouchedMemory() {
        if (bytes_ != nullptr) munmap(bytes_, size_);
    }
#endif
    UntouchedMemory(const UntouchedMemory&) = delete;
    UntouchedMemory& operator=(const UntouchedMemory&) = delete;

    // Null if the system has no such stretch.
    void* Get() const {
        return bytes_;
    }

  private:
    [[maybe_unused]] size_t size_;
    void* bytes_;
};

}  // namespace test
