#include "support/libav_memory.h"

#include <malloc.h>

#include <atomic>
#include <cerrno>

namespace {

std::atomic<size_t> g_left{0};  // until one fails; 0: none does

}  // namespace

// All that libav allocates at once comes from here, and nothing else of these programs does.
extern "C" __attribute__((visibility("default"))) int posix_memalign(void** place, size_t alignment,
                                                                     size_t size) noexcept {
    if (g_left != 0 && --g_left == 0) return ENOMEM;
    *place = memalign(alignment, size);
    return *place != nullptr ? 0 : ENOMEM;
}

namespace test {

FailingLibavAllocation::FailingLibavAllocation(size_t count) {
    g_left = count;
}

FailingLibavAllocation::~FailingLibavAllocation() {
    g_left = 0;
}

bool FailingLibavAllocation::Failed() const {
    return g_left == 0;
}

}  // namespace test
