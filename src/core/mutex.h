#pragma once

#include <mutex>

namespace Orvane::Muxora {

// A recursive lock: a packager that holds it may take it again further down.
class CMXMutex {
  public:
    CMXMutex() = default;
    CMXMutex(const CMXMutex&) = delete;
    CMXMutex& operator=(const CMXMutex&) = delete;
    void Enter() { mutex_.lock(); }
    void Leave() { mutex_.unlock(); }

  private:
    std::recursive_mutex mutex_;
};

// Holds a CMXMutex for a scope.
class CMXAutoMutexLock {
  public:
    explicit CMXAutoMutexLock(CMXMutex& mutex) : mutex_(mutex) { mutex_.Enter(); }
    ~CMXAutoMutexLock() { mutex_.Leave(); }
    CMXAutoMutexLock(const CMXAutoMutexLock&) = delete;
    CMXAutoMutexLock& operator=(const CMXAutoMutexLock&) = delete;

  private:
    CMXMutex& mutex_;
};

}  // namespace Orvane::Muxora
