#include "core/messages.h"

#include <cstdarg>
#include <cstdio>

#include "core/mutex.h"

namespace Orvane::Muxora {

namespace {

constexpr size_t kLongest = 256;  // no message comes near to that

struct Listener {
    CMXMutex mutex;
    MXMessageFunction function = nullptr;
    void* user = nullptr;
};

Listener& TheListener() {
    static Listener listener;
    return listener;
}

}  // namespace

void Say(const char* format, ...) {
    char text[kLongest];
    va_list arguments;
    va_start(arguments, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): va_start is just above
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    Listener& listener = TheListener();
    // Held over the call, so that a function that was replaced is not running any more. It is recursive: the function
    // may set another.
    const CMXAutoMutexLock lock(listener.mutex);
    if (listener.function != nullptr) {
        listener.function(text, listener.user);
    } else {
        std::fputs(text, stdout);
    }
}

void SetMessageFunction(MXMessageFunction function, void* user) {
    Listener& listener = TheListener();
    const CMXAutoMutexLock lock(listener.mutex);
    listener.function = function;
    listener.user = user;
}

}  // namespace Orvane::Muxora
