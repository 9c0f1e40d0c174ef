// Where an operation stands in its class's table of virtual operations.
#pragma once

#include <cstddef>
#include <cstring>

namespace test {

#if defined(__GNUC__) && defined(__x86_64__)

// Read from the pointer to the operation (Itanium C++ ABI 2.3).
template <typename Operation>
size_t Slot(Operation operation) {
    std::ptrdiff_t parts[2];
    static_assert(sizeof parts == sizeof operation);
    std::memcpy(parts, &operation, sizeof parts);
    return static_cast<size_t>(parts[0] - 1) / sizeof(void*);
}

#endif

}  // namespace test
