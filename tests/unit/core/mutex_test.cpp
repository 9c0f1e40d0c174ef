#include "core/mutex.h"

#include <gtest/gtest.h>

#include <thread>

namespace Orvane::Muxora {
namespace {

TEST(Mutex, ItsHolderMayTakeItAgain) {
    CMXMutex mutex;
    const CMXAutoMutexLock outer(mutex);
    const CMXAutoMutexLock inner(mutex);
    mutex.Enter();
    mutex.Leave();
}

TEST(Mutex, KeepsOthersOut) {
    CMXMutex mutex;
    int64_t count = 0;  // torn or lost without the lock; tsan tells as well
    const auto add = [&] {
        for (int i = 0; i < 20000; ++i) {
            const CMXAutoMutexLock outer(mutex);
            const CMXAutoMutexLock inner(mutex);
            ++count;
        }
    };
    std::thread first(add);
    std::thread second(add);
    first.join();
    second.join();
    EXPECT_EQ(count, 40000);
}

}  // namespace
}  // namespace Orvane::Muxora
