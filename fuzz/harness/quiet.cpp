// Of every target that sees the library: what it says is no finding, and takes more time than the rest.
#include "MuxoraExt.h"

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    MX_SetMessageFunction([](const char* /*text*/, void* /*user*/) {}, nullptr);
    return 0;
}
