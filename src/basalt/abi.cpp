#include "basalt/abi.h"

void MUXORA_ABI_CHECK() noexcept {
}
