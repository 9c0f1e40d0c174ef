#pragma once

#include <cstdint>

#include "basalt/export.h"

namespace Basalt {

/** The operation is not implemented by the class that it was called on. */
constexpr uint32_t kErrorNotImplemented = 0x10030010;

/** Sets the calling thread's last error. Every thread has one of its own, 0 at first. Operations that succeed leave it
 *  as it is, so clear it with setLastError(0) before a call whose failure is to be told apart. */
BASALT_API void setLastError(uint32_t error) noexcept;

/** The calling thread's last error. */
BASALT_API uint32_t getLastError() noexcept;

}  // namespace Basalt
