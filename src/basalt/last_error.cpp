#include "basalt/last_error.h"

namespace Basalt {

namespace {

thread_local uint32_t t_last_error = 0;

}  // namespace

void setLastError(uint32_t error) noexcept {
    t_last_error = error;
}

uint32_t getLastError() noexcept {
    return t_last_error;
}

}  // namespace Basalt
