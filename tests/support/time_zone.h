// The time zone of a test.
#pragma once

#include <cstdlib>
#include <ctime>
#include <string>

namespace test {

// Puts the process into a time zone for the life of the object.
class ScopedTimeZone {
  public:
    explicit ScopedTimeZone(const char* zone) {
        if (const char* const before = std::getenv("TZ")) before_ = before;
        Set(zone);
    }
    ~ScopedTimeZone() { Set(before_.empty() ? nullptr : before_.c_str()); }
    ScopedTimeZone(const ScopedTimeZone&) = delete;
    ScopedTimeZone& operator=(const ScopedTimeZone&) = delete;

  private:
    static void Set(const char* zone) {
#if defined(_WIN32)
        _putenv_s("TZ", zone != nullptr ? zone : "");
        _tzset();
#else
        if (zone != nullptr) {
            setenv("TZ", zone, 1);
        } else {
            unsetenv("TZ");
        }
        tzset();
#endif
    }
    std::string before_;
};

}  // namespace test
