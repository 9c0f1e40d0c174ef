#pragma once

#include <cstdint>

#include "MuxoraExt.h"

namespace Orvane::Muxora {

// Says something to the user of the process: to the function that was set, else to standard output. As printf.
#if defined(__GNUC__)
__attribute__((format(printf, 1, 2)))
#endif
void Say(const char* format, ...);

// Who takes the messages from now on; null: standard output.
void SetMessageFunction(MXMessageFunction function, void* user);

}  // namespace Orvane::Muxora
