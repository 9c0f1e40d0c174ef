#include "MuxoraExt.h"
#include "core/messages.h"

extern "C" void MX_SetMessageFunction(MXMessageFunction function, void* user) noexcept {
    Orvane::Muxora::SetMessageFunction(function, user);
}
